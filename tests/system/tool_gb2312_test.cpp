// velkor text gb2312, where the C library has the character sets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using place::write_file;
using testing::HasSubstr;
using tool::run;

TEST(ToolGb2312, ConvertsWordsAndLines) {
    const std::string utf8 = "\xe9\x97\xa8\xe5\x8f\xa3";
    const std::string gb2312 = "\xc3\xc5\xbf\xda";
    EXPECT_EQ(run("text gb2312 encode " + utf8).out, gb2312 + "\n");
    EXPECT_EQ(run("text gb2312 decode " + gb2312).out, utf8 + "\n");
    write_file("/tmp/lines", gb2312 + "\nabc\n\xff\n");
    const auto [status, out, err] = run("text gb2312 decode", "/tmp/lines");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, utf8 + "\nabc\n");
    EXPECT_THAT(err, HasSubstr("error -2, no such character"));
    EXPECT_EQ(run("text gb2312 decode " + std::string(2048, 'a')).status, 1);
}

}  // namespace
