// Any bytes, searched, written as base64, and read as GB2312 and as UTF-8. What has several versions is asked for each.
#include <velkor/text.h>
#include <velkor_host.h>

#include "common_fun/base64_plain.h"
#include "common_fun/find_plain.h"
#include "fuzzer.h"
#include "support/exact_bytes.h"
#include "support/text_models.h"

namespace {

// Short inputs would never leave the short ways.
std::string at_least_500_bytes(const std::string &bytes) {
    std::string repeated = bytes;
    while (!bytes.empty() && repeated.size() < 500) {
        repeated += bytes;
    }
    return repeated;
}

void search(const std::string &data, const std::string &pattern, int next1, int next2) {
    const ExactBytes bytes(data);
    const ExactBytes sought_bytes(pattern);
    const auto length = static_cast<int>(pattern.size());
    const auto size = static_cast<int>(data.size());
    const int expected = model::find(data, pattern);
    EXPECT_TRUE(FindPosByFlag(bytes.get(), size, sought_bytes.get(), length) == expected);
    EXPECT_TRUE(FindPosByFlag_Fast(bytes.get(), size, sought_bytes.get(), length, next1, next2) ==
                model::find_followed(data, pattern, next1, next2));
    if (!pattern.empty() && pattern.size() <= data.size()) {
        const velkor::Sought sought = {reinterpret_cast<const uint8_t *>(sought_bytes.get()), pattern.size()};
        EXPECT_TRUE(velkor::TwoWay(sought).find(reinterpret_cast<const uint8_t *>(bytes.get()), data.size()) ==
                    expected);
    }
}

void encode(const std::string &data) {
    const ExactBytes bytes(data);
    const std::string expected = model::base64(data);
    ExactBytes out(expected.size() + 1, '#');
    int length = -1;
    to_base64(out.get(), bytes.get(), static_cast<int>(data.size()), &length);
    EXPECT_TRUE(static_cast<size_t>(length) == expected.size());
    EXPECT_TRUE(out.bytes() == expected + '\0');
    ExactBytes plain(expected.size());
    velkor::base64_plain(plain.get(), reinterpret_cast<const uint8_t *>(bytes.get()), data.size());
    EXPECT_TRUE(plain.bytes() == expected);
}

void expect_fits(int result, const ExactText &buffer) {
    EXPECT_TRUE(buffer.text().size() < buffer.size());
    EXPECT_TRUE(result < 0 ? result >= VELKOR_HOST_TEXT_NO_ROOM : static_cast<size_t>(result) == buffer.text().size());
}

// Whole characters, inside the buffer, and the same ones on the way back.
void convert(const std::string &text, size_t spare) {
    const size_t room = text.size() + 1 + spare;
    ExactText utf8(text, room);
    const int result = vk_TextGB2312ToUtf8(1, utf8.get(), static_cast<int>(room));
    expect_fits(result, utf8);
    if (result >= 0 && text.size() <= 2047) {
        ExactText back(utf8.text(), room);
        const int back_result = vk_TextUtf8ToGB2312(1, back.get(), static_cast<int>(room));
        expect_fits(back_result, back);
        EXPECT_TRUE(utf8.text().size() > 2047 || back.text() == text);
    }
    ExactText gb2312(text, room);
    expect_fits(vk_TextUtf8ToGB2312(1, gb2312.get(), static_cast<int>(room)), gb2312);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const int next1 = input.number(-1, 254);
    const int next2 = input.number(-1, 254);
    const std::string pattern = input.bytes();
    const std::string bytes = input.rest();
    search(at_least_500_bytes(bytes), pattern, next1, next2);
    encode(bytes);
    convert(bytes.c_str(), static_cast<size_t>(next1 + 1));
    return 0;
}
