// Splitting in all its ways, against the models of the tests.
#include <velkor/text.h>

#include <vector>

#include "fuzzer.h"
#include "support/exact_bytes.h"
#include "support/text_models.h"

namespace {

class Buffers {
public:
    Buffers(size_t count, size_t size) {
        for (size_t i = 0; i < count; ++i) {
            blocks_.emplace_back(size, '\0');
        }
        for (ExactBytes &block : blocks_) {
            pointers_.push_back(block.get());
        }
    }
    char **get() { return pointers_.data(); }
    bool hold(const std::vector<std::string> &texts) const {
        for (size_t i = 0; i < texts.size(); ++i) {
            if (blocks_[i].bytes() != texts[i] + std::string(blocks_[i].size() - texts[i].size(), '\0')) {
                return false;
            }
        }
        return true;
    }

private:
    std::vector<ExactBytes> blocks_;
    std::vector<char *> pointers_;
};

void split_string(const std::string &text, char delimiter, int room, int most) {
    const ExactText exact(text);
    const char delimiters[] = {delimiter, ';', '\0'};
    Buffers buffers(static_cast<size_t>(most), static_cast<size_t>(room));
    const model::Split expected = model::split_string(text, delimiter, room, most);
    EXPECT_TRUE(SplitString(exact.get(), delimiters, buffers.get(), room, most) == expected.result);
    EXPECT_TRUE(buffers.hold(expected.pieces));
}

void split_to_array(const std::string &text, const std::string &separator, int most) {
    const ExactText exact(text);
    const ExactText exact_separator(separator);
    Buffers buffers(static_cast<size_t>(most), text.size() + 1);
    const int result = SplitStringToArrayEx(exact.get(), exact_separator.get(), buffers.get(), most);
    if (separator.empty()) {
        EXPECT_TRUE(result == (text.empty() ? 0 : -1));
        return;
    }
    const model::Split expected = model::split_to_array(text, separator, most);
    EXPECT_TRUE(result == expected.result);
    EXPECT_TRUE(buffers.hold(expected.pieces));
}

void cut_tokens(const std::string &text, const std::string &separator, int most) {
    ExactText exact(text);
    const ExactText exact_separator(separator);
    std::vector<char *> tokens(static_cast<size_t>(most));
    const int count = strtoken_r(exact.get(), exact_separator.get(), tokens.data(), most);
    EXPECT_TRUE(count >= 1 && count <= most);
    for (int i = 0; i < count; ++i) {
        EXPECT_TRUE(tokens[static_cast<size_t>(i)] < exact.get() + exact.size());
    }
    if (!separator.empty()) {
        std::string expected = text;
        EXPECT_TRUE(model::tokens(expected, separator, most).size() == static_cast<size_t>(count));
        EXPECT_TRUE(exact.bytes() == expected + '\0');
    }
}

void find_fields(const std::string &data, char separator, int max) {
    const ExactBytes exact(data);
    std::vector<char *> starts(static_cast<size_t>(max) + 1);
    std::vector<int> lengths(static_cast<size_t>(max) + 1);
    const auto size = static_cast<int>(data.size());
    const int count = vk_strnchr(exact.get(), size, separator, starts.data(), lengths.data(), max);
    if (data.empty()) {
        EXPECT_TRUE(count == -1);
        return;
    }
    const std::vector<model::Field> expected = model::fields(data, separator);
    EXPECT_TRUE(static_cast<size_t>(count) == expected.size());
    for (size_t i = 0; i < std::min(expected.size(), starts.size()); ++i) {
        EXPECT_TRUE(starts[i] == exact.get() + expected[i].begin);
        EXPECT_TRUE(static_cast<size_t>(lengths[i]) == expected[i].length);
    }
}

struct Expected {
    const std::vector<std::string> *pieces;
};

int compare(char **pieces, int count, void *argument) {
    const auto *const expected = static_cast<const Expected *>(argument);
    EXPECT_TRUE(std::vector<std::string>(pieces, pieces + count) == *expected->pieces);
    return spilt_strcmp(pieces, count, pieces[count - 1]) == 0 && split_intcmp(pieces, count, vk_atoi(pieces[0])) == 0
               ? 9
               : 8;
}

void split_and_compare(const std::string &text, char delimiter, int room) {
    const ExactText exact(text);
    const char delimiters[] = {delimiter, '\0'};
    const model::Split split = model::split_string(text, delimiter, room, 256);
    Expected expected = {&split.pieces};
    EXPECT_TRUE(SplitStrCmp(exact.get(), delimiters, room, compare, &expected) == (split.result < 0 ? -1 : 9));
}

void halve(const std::string &text, const std::string &separator) {
    const ExactText exact(text);
    const ExactText exact_separator(separator);
    ExactBytes out(text.size() + 1);
    const size_t at = text.find(separator);
    OnCharLeft(exact.get(), exact_separator.get(), out.get());
    EXPECT_TRUE(out.get() == (at == std::string::npos ? "" : text.substr(0, at)));
    OnCharRight(exact.get(), exact_separator.get(), out.get());
    EXPECT_TRUE(out.get() == (at == std::string::npos ? "" : text.substr(at + separator.size())));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const int room = input.number(1, 80);
    const int most = input.number(1, 12);
    const std::string separator = input.text(4);
    const std::string bytes = input.rest();
    const std::string text = bytes.c_str();
    const char delimiter = separator.empty() ? ',' : separator[0];
    split_string(text, delimiter, room, most);
    split_to_array(text, separator, most);
    cut_tokens(text, separator, most);
    find_fields(bytes, delimiter, most - 1);
    split_and_compare(text, delimiter, room);
    halve(text, separator);
    return 0;
}
