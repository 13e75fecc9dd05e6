// A C library without the character sets: Debian's for cross-compiling comes so, and the others are made so here.
#include <gtest/gtest.h>
#include <velkor/text.h>
#include <velkor_host.h>

#include <filesystem>
#include <list>
#include <string>

#include "support/exact_bytes.h"
#include "support/place.h"

namespace {

TEST(HostCharacterSetsMissing, AreAnsweredByACodeAndAnEmptyText) {
    std::filesystem::create_directory("/tmp/empty");
    std::list<place::BoundPath> hidden;
    for (const auto &entry : std::filesystem::directory_iterator("/usr/lib")) {
        if (std::filesystem::is_directory(entry.path() / "gconv")) {
            hidden.emplace_back(entry.path() / "gconv", "/tmp/empty");
        }
    }
    ExactText text("abc", 10);
    EXPECT_EQ(vk_TextGB2312ToUtf8(1, text.get(), 10), VELKOR_HOST_TEXT_NO_CONVERTER);
    EXPECT_EQ(text.text(), "");
    ExactBytes out(10, 'x');
    EXPECT_EQ(UTF8ToGB2312("abc", out.get(), 10), VELKOR_HOST_TEXT_NO_CONVERTER);
    EXPECT_EQ(out.bytes(), '\0' + std::string(9, 'x'));
}

}  // namespace
