#include <gtest/gtest.h>
#include <locale.h>
#include <velkor/text.h>

#include <algorithm>
#include <string>

#include "support/exact_bytes.h"
#include "support/random_text.h"

namespace {

TEST(CheckString, RefusesSixCharacters) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = std::string("ab") + static_cast<char>(byte) + "cd";
        const bool refused = std::string("#;:\\'\"").find(static_cast<char>(byte)) != std::string::npos;
        EXPECT_EQ(check_string(text.c_str()), refused ? 0 : 1) << byte;
    }
    EXPECT_EQ(check_string("camera:1"), 0);
    EXPECT_EQ(check_string("camera 1"), 1);
}

// The rule, not the summary that only upper-case text passes: digits and signs pass as well.
TEST(CheckStringAscii, RefusesLowerCaseAndBytesFrom128Up) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = std::string("A") + static_cast<char>(byte) + "B";
        EXPECT_EQ(check_string_ascii(text.c_str()), byte >= 128 || (byte >= 'a' && byte <= 'z') ? 0 : 1) << byte;
    }
    EXPECT_EQ(check_string_ascii("CAMERA 1"), 1);
    EXPECT_EQ(check_string_ascii("Camera 1"), 0);
}

TEST(CheckVisualString, TakesDigitsLettersAndHighBytes) {
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text = std::string("a") + static_cast<char>(byte) + "9";
        const bool taken =
            (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte >= 128;
        EXPECT_EQ(check_visual_string(text.c_str()), taken ? 1 : 0) << byte;
    }
}

TEST(Checks, AnswerZeroForNullAndEmpty) {
    EXPECT_EQ(check_string(nullptr), 0);
    EXPECT_EQ(check_string(""), 0);
    EXPECT_EQ(check_string_ascii(nullptr), 0);
    EXPECT_EQ(check_string_ascii(""), 0);
    EXPECT_EQ(check_visual_string(nullptr), 0);
    EXPECT_EQ(check_visual_string(""), 0);
}

TEST(Checks, AgreeWithTheirRulesOnRandomBytes) {
    RandomText random(13);
    const auto each = [](const std::string &text, auto rule) {
        return !text.empty() && std::ranges::all_of(text, [=](char c) { return rule(static_cast<unsigned char>(c)); });
    };
    for (int i = 0; i < RandomText::INPUTS; ++i) {
        const std::string bytes = random.number(1) == 0 ? random.text("ABZ09 #az\xe4", 8) : random.text(6);
        const ExactText text(bytes);
        ASSERT_EQ(check_string(text.get()), each(bytes, [](int c) {
                      return c != '#' && c != ';' && c != ':' && c != '\\' && c != '\'' && c != '"';
                  }));
        ASSERT_EQ(check_string_ascii(text.get()), each(bytes, [](int c) { return c < 128 && (c < 97 || c > 122); }));
        ASSERT_EQ(check_visual_string(text.get()), each(bytes, [](int c) {
                      return c > 127 || (c > 47 && c < 58) || (c > 64 && c < 91) || (c > 96 && c < 123);
                  }));
    }
}

}  // namespace
