#include <gtest/gtest.h>
#include <limits.h>
#include <velkor/text.h>

#include <string>
#include <vector>

#include "common_fun/base64_plain.h"
#include "common_fun/base64_x86.h"
#include "support/exact_bytes.h"
#include "support/random_text.h"
#include "support/text_models.h"
#include "support/x86_features.h"

namespace {

std::string base64(const std::string &data) {
    const ExactBytes exact(data);
    ExactBytes out((data.size() + 2) / 3 * 4 + 1, 'x');
    int length = -1;
    to_base64(out.get(), exact.get(), static_cast<int>(data.size()), &length);
    EXPECT_EQ(static_cast<size_t>(length), out.size() - 1);
    EXPECT_EQ(out.get()[length], '\0');
    return {out.get(), static_cast<size_t>(length)};
}

TEST(ToBase64, KnowsThePublishedVectors) {
    EXPECT_EQ(base64(""), "");
    EXPECT_EQ(base64("f"), "Zg==");
    EXPECT_EQ(base64("fo"), "Zm8=");
    EXPECT_EQ(base64("foo"), "Zm9v");
    EXPECT_EQ(base64("foob"), "Zm9vYg==");
    EXPECT_EQ(base64("fooba"), "Zm9vYmE=");
    EXPECT_EQ(base64("foobar"), "Zm9vYmFy");
}

TEST(ToBase64, UsesPlusAndSlash) { EXPECT_EQ(base64("\xfb\xef\xff"), "++//"); }

TEST(ToBase64, TakesEveryByte) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    EXPECT_EQ(base64(bytes), model::base64(bytes));
}

TEST(ToBase64, NeedsNoPlaceForTheLength) {
    ExactBytes out(5, 'x');
    to_base64(out.get(), "abc", 3, nullptr);
    EXPECT_STREQ(out.get(), "YWJj");
}

TEST(ToBase64, WritesAnEmptyTextForWhatCannotBeEncoded) {
    const auto expect_empty = [](const char *data, int length) {
        ExactBytes out(1, 'x');
        int written = -1;
        to_base64(out.get(), data, length, &written);
        EXPECT_EQ(out.get()[0], '\0');
        EXPECT_EQ(written, 0);
    };
    expect_empty(nullptr, 3);
    expect_empty("abc", -1);
    expect_empty("abc", INT_MIN);
    expect_empty("abc", INT_MAX);     // its text would be longer than an int can say
    expect_empty("abc", 1610612734);  // the first such length
}

TEST(ToBase64, WritesNothingWithoutABuffer) {
    int written = -1;
    to_base64(nullptr, "abc", 3, &written);
    EXPECT_EQ(written, 0);
}

TEST(ToBase64, AgreesWithTheModelOnRandomBytes) {
    RandomText random(5);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string data = random.bytes(i % 50 == 0 ? 300 : 40);
        ASSERT_EQ(base64(data), model::base64(data));
    }
}

using Encode = void(char *, const uint8_t *, size_t);

// What the library chooses from on this processor.
std::vector<Encode *> versions() {
    std::vector<Encode *> found = {velkor::base64_plain};
#if defined(__x86_64__)
    if (velkor::cpu_has_avx2()) {
        found.push_back(velkor::base64_x86);
    }
#endif
    return found;
}

TEST(ToBase64, AgreesWithTheModelInEachOfItsVersions) {
    const std::vector<Encode *> here = versions();
    RandomText random(6);
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const ExactBytes data(random.bytes(i % 20 == 0 ? 400 : 60));
        const std::string expected = model::base64(data.bytes());
        for (Encode *const encode : here) {
            ExactBytes out(expected.size());
            encode(out.get(), reinterpret_cast<const uint8_t *>(data.get()), data.size());
            ASSERT_EQ(out.bytes(), expected);
        }
    }
}

}  // namespace
