// What changes, checks or reads a text: editing, bounded copies, numbers and trigger sets, against the models of the
// tests.
#include <errno.h>
#include <string.h>
#include <velkor/text.h>

#include "fuzzer.h"
#include "support/exact_bytes.h"
#include "support/text_models.h"

namespace {

void replace_into(const std::string &text, const std::string &old_text, const std::string &new_text) {
    const std::string expected =
        old_text.empty() || new_text.empty() ? "" : model::replace_all(text, old_text, new_text);
    const ExactText exact(text);
    ExactBytes out(expected.size());
    EXPECT_TRUE(vk_strst(exact.get(), old_text.c_str(), new_text.c_str(), out.get()) ==
                static_cast<int>(expected.size()));
    EXPECT_TRUE(out.bytes() == expected);
}

void replace_in_place(const std::string &text, size_t size, const std::string &old_text, const std::string &new_text) {
    ExactText buffer(text, size);
    StringReplaceSub(buffer.get(), static_cast<int>(size), old_text.c_str(), new_text.c_str());
    const bool changes_nothing = old_text.empty() && new_text.empty();
    EXPECT_TRUE(buffer.text() == (changes_nothing ? text : model::replace_bounded(text, size, old_text, new_text)));
}

void edit(const std::string &text) {
    ExactText exact(text);
    ReverseString(exact.get());
    EXPECT_TRUE(exact.text() == std::string(text.rbegin(), text.rend()));
    ReverseString(exact.get());
    EXPECT_TRUE(ConverStrLowerToUper(exact.get()) == 0);
    EXPECT_TRUE(exact.text().size() == text.size());
    EXPECT_TRUE(exact.text().find_first_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos);
    EXPECT_TRUE(vk_rtrim(exact.get()) == static_cast<int>(text.find_last_not_of(" \n")));
    StringReplace(exact.get(), 'A', 'b');
    EXPECT_TRUE(exact.text().find('A') == std::string::npos);
    vk_strchr(exact.get(), 'A');
}

void check(const std::string &text) {
    const ExactText exact(text);
    EXPECT_TRUE(check_string(exact.get()) ==
                (!text.empty() && text.find_first_of("#;:\\'\"") == std::string::npos ? 1 : 0));
    bool is_upper = !text.empty();
    bool is_visual = !text.empty();
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        is_upper = is_upper && byte < 128 && (byte < 'a' || byte > 'z');
        is_visual = is_visual && (byte > 127 || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                                  (byte >= 'a' && byte <= 'z'));
    }
    EXPECT_TRUE(check_string_ascii(exact.get()) == (is_upper ? 1 : 0));
    EXPECT_TRUE(check_visual_string(exact.get()) == (is_visual ? 1 : 0));
}

void copy(const std::string &text, int room, int count) {
    const ExactText exact(text);
    ExactBytes out(static_cast<size_t>(count) + 1, '#');
    strncopy(out.get(), exact.get(), count);
    std::string expected = text.substr(0, static_cast<size_t>(count));
    expected.resize(static_cast<size_t>(count) + 1, '\0');
    EXPECT_TRUE(out.bytes() == expected);
    ExactBytes bounded(static_cast<size_t>(room), '#');
    vk_strncpy(bounded.get(), room, exact.get(), count);
    EXPECT_TRUE(bounded.get() == text.substr(0, static_cast<size_t>(std::min(room - 1, count))));
}

void read_number(const std::string &text) {
    const ExactText exact(text);
    const long long value = vk_atoll(exact.get());
    const int error = errno;
    errno = 0;
    EXPECT_TRUE(value == strtoll(text.c_str(), nullptr, 10));
    EXPECT_TRUE(error == errno);
    EXPECT_TRUE(vk_atoi(exact.get()) == static_cast<int32_t>(value));
    EXPECT_TRUE(vk_atou8(exact.get()) == (value >= 0 && value <= 255 ? value : 0));
    const auto number = static_cast<unsigned>(value);
    ExactBytes out(11);
    itoa(number, out.get());
    EXPECT_TRUE(out.get() == std::to_string(number));
    EXPECT_TRUE(pow1(vk_atoi(exact.get()), 1) == std::max(vk_atoi(exact.get()), 0));
}

// `bit` may lie outside the set.
void read_trigger_set(const std::string &text, uint64_t bit) {
    const ExactText exact(text);
    uint64_t set[VELKOR_TRIGGER_WORDS] = {};
    db_Str2Trigger(set, exact.get());
    model::Bits bits(VELKOR_TRIGGER_BITS);
    model::add_trigger_text(bits, text);
    db_SetTriggerBit(set, bit);
    if (bit < bits.size()) {
        bits[bit] = true;
    }
    for (uint64_t i = 0; i < bits.size(); ++i) {
        EXPECT_TRUE((db_GetTriggerBit(set, i) == 1) == bits[i]);
    }
    ExactBytes out(VELKOR_TRIGGER_TEXT_SIZE);
    db_Trigger2Str(set, out.get());
    EXPECT_TRUE(out.get() == model::trigger_text(bits));
    db_ClrTriggerBit(set, bit);
    EXPECT_TRUE(db_GetTriggerBit(set, bit) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const int spare = input.number(0, 40);
    const std::string old_text = input.text(6);
    const std::string new_text = input.text(10);
    const std::string text = std::string(input.rest().c_str());
    replace_into(text, old_text, new_text);
    replace_in_place(text, text.size() + 1 + static_cast<size_t>(spare), old_text, new_text);
    edit(text);
    check(text);
    copy(text, spare + 1, spare);
    read_number(text);
    read_trigger_set(text, static_cast<uint64_t>(spare) * 8);
    return 0;
}
