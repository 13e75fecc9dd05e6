// velkor sha1 and velkor text, as a person or a script uses them: the real tool beside the system's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using place::output_of;
using place::write_file;
using testing::HasSubstr;
using tool::run;

// ---- sha1 ----

TEST(ToolSha1, WritesTheLinesOfTheSystemsTool) {
    write_file("/tmp/a", "abc");
    write_file("/tmp/empty", "");
    write_file("/tmp/with blank", std::string(200000, 'x'));
    const auto [status, out, err] = run("sha1 /tmp/a /tmp/empty '/tmp/with blank'");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(out, output_of("sha1sum /tmp/a /tmp/empty '/tmp/with blank'"));
    EXPECT_EQ(err, "");
}

TEST(ToolSha1, EscapesNamesAsTheSystemsToolDoes) {
    for (const std::string name : {"/tmp/back\\slash", "/tmp/line\nfeed", "/tmp/carriage\rreturn"}) {
        write_file(name, name);
    }
    const std::string files = "/tmp/back* /tmp/line* /tmp/carr*";
    EXPECT_EQ(run("sha1 " + files).out, output_of("sha1sum " + files));
    output_of("sha1sum " + files + " >/tmp/list");
    EXPECT_EQ(run("sha1 --check --quiet /tmp/list").status, 0);
}

TEST(ToolSha1, AgreesOnAWholeTree) {
    const std::string files = "$(find " VELKOR_SOURCE_DIR "/src " VELKOR_SOURCE_DIR "/tests -type f)";
    EXPECT_EQ(run("sha1 " + files).out, output_of("sha1sum " + files));
}

TEST(ToolSha1, ReadsStandardInput) {
    write_file("/tmp/a", "abc");
    EXPECT_EQ(run("sha1", "/tmp/a").out, "a9993e364706816aba3e25717850c26c9cd0d89d  -\n");
    EXPECT_EQ(run("sha1 -", "/tmp/a").out, "a9993e364706816aba3e25717850c26c9cd0d89d  -\n");
}

TEST(ToolSha1, GoesOnBehindAFileThatCannotBeRead) {
    write_file("/tmp/a", "abc");
    const auto [status, out, err] = run("sha1 /tmp/missing /tmp /tmp/a");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "a9993e364706816aba3e25717850c26c9cd0d89d  /tmp/a\n");
    EXPECT_THAT(err, HasSubstr("cannot read /tmp/missing: error 2, No such file or directory"));
    EXPECT_THAT(err, HasSubstr("cannot read /tmp: error 21, Is a directory"));
}

TEST(ToolSha1, ChecksWhatTheSystemsToolWrote) {
    write_file("/tmp/a", "abc");
    write_file("/tmp/b", "def");
    output_of("cd /tmp && sha1sum a b >list && sha1sum --tag a >>list && sha1sum -b b >>list");
    auto outcome = run("sha1 -c /tmp/list");
    EXPECT_EQ(outcome.status, 1);  // the names in it are seen from /tmp
    output_of("sha1sum /tmp/a /tmp/b >/tmp/list && sha1sum --tag /tmp/a >>/tmp/list && sha1sum -b /tmp/b >>/tmp/list");
    outcome = run("sha1 -c /tmp/list");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "/tmp/a: OK\n/tmp/b: OK\n/tmp/a: OK\n/tmp/b: OK\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(run("sha1 -c --quiet /tmp/list").out, "");
    EXPECT_EQ(run("sha1 -c", "/tmp/list").status, 0);
}

// Byte by byte the system tool's answers, and its remarks.
TEST(ToolSha1, ChecksEveryLineAsTheSystemsToolDoes) {
    for (const std::string name : {"a", "with blank", "back\\slash", "line\nfeed", "carriage\rreturn"}) {
        write_file("/tmp/file_" + name, name);
    }
    std::string list;
    for (const std::string option : {"", "-b ", "--tag "}) {
        list += output_of("sha1sum " + option + "/tmp/file_*");
    }
    const std::string digest = output_of("printf a | sha1sum").substr(0, 40);
    const std::vector<std::string> lines = {
        "\t " + digest + "  /tmp/file_a\r",     // blanks in front, a carriage return behind
        "SHA1(/tmp/file_a)=" + digest,          // no blanks
        "  SHA1 (/tmp/file_a)  =\t " + digest,  // more of them
        "\\" + digest + "  /tmp/file_a",
        digest + "  /tmp/file_with blank",  // another file's
        digest + " **missing",
        "",
        "# remark",
        digest + "\t/tmp/file_a",
        digest + "X  /tmp/file_a",
        "SHA1 (/tmp/file_a) " + digest,
        "SHA1 (/tmp/file_a = " + digest,
        digest + "  ",
        "\\" + digest + "  bad\\escape",
        "nonsense",
    };
    for (const std::string &line : lines) {
        list += line + "\n";
    }
    write_file("/tmp/list", list);
    const auto [status, out, err] = run("sha1 -c /tmp/list");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, output_of("sha1sum -c /tmp/list 2>/tmp/remarks; true"));
    EXPECT_THAT(out, HasSubstr("\\/tmp/file_line\\nfeed: OK\n"));
    EXPECT_EQ(err.substr(err.find("velkor: WARNING")),
              output_of("grep WARNING /tmp/remarks | sed 's/^sha1sum/velkor/'"));
}

TEST(ToolSha1, SaysWhatDoesNotMatch) {
    write_file("/tmp/a", "abc");
    write_file("/tmp/b", "def");
    output_of("sha1sum /tmp/a /tmp/b >/tmp/list; echo nonsense >>/tmp/list");
    write_file("/tmp/a", "abd");
    unlink("/tmp/b");
    const auto [status, out, err] = run("sha1 -c /tmp/list");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "/tmp/a: FAILED\n/tmp/b: FAILED open or read\n");
    EXPECT_EQ(err,
              "velkor: cannot read /tmp/b: error 2, No such file or directory\n"
              "velkor: WARNING: 1 line is improperly formatted\n"
              "velkor: WARNING: 1 listed file could not be read\n"
              "velkor: WARNING: 1 computed checksum did NOT match\n");
}

TEST(ToolSha1, RefusesAListWithoutDigests) {
    write_file("/tmp/list", "nonsense\n");
    EXPECT_EQ(run("sha1 -c /tmp/list").status, 1);
    EXPECT_THAT(run("sha1 -c /tmp/list").err, HasSubstr("/tmp/list: no properly formatted checksum lines found"));
    EXPECT_EQ(run("sha1 -c /tmp/missing").status, 1);
}

TEST(ToolSha1, PrintsJson) {
    write_file("/tmp/a", "abc");
    EXPECT_EQ(json::parse(run("sha1 --json /tmp/a").out),
              json::parse(R"([{"file":"/tmp/a","sha1":"a9993e364706816aba3e25717850c26c9cd0d89d","error":0}])"));
    output_of("sha1sum /tmp/a >/tmp/list");
    EXPECT_EQ(json::parse(run("sha1 --json -c /tmp/list").out),
              json::parse(R"({"files":[{"file":"/tmp/a","ok":true,"error":0}],"malformed_lines":0})"));
}

// ---- text ----

TEST(ToolText, Splits) {
    EXPECT_EQ(run("text split --at . a.b..c").out, "a\nb\n\nc\n");
    EXPECT_EQ(run("text split [x],{y}").out, "[x]\n{y}\n");
    write_file("/tmp/lines", "a,b\nc\n");
    EXPECT_EQ(run("text split", "/tmp/lines").out, "a\nb\nc\n");
    EXPECT_EQ(json::parse(run("text split --json a,b").out), json::parse(R"({"result":2,"pieces":["a","b"]})"));
}

TEST(ToolText, SaysWhyATextCannotBeSplit) {
    auto outcome = run("text split --max 2 a,b,c");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("error -3, as many separators as --max"));
    outcome = run("text split --size 3 abc");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("error -2, a piece has as many characters as --size"));
    EXPECT_EQ(run("text split --size 0 abc").status, 2);
}

TEST(ToolText, Replaces) {
    EXPECT_EQ(run("text replace , ' - ' a,b,c").out, "a - b - c\n");
    EXPECT_EQ(run("text replace b '' abc").out, "ac\n");
    EXPECT_EQ(run("text replace --size 5 , '<->' a,b").out, "a<->\n");
    EXPECT_EQ(run("text replace --size 3 , x a,b").status, 1);
    EXPECT_EQ(run("text replace '' x abc").status, 2);
    write_file("/tmp/zero", std::string("a\0,b\n", 5));
    EXPECT_EQ(run("text replace , x", "/tmp/zero").status, 1);
}

TEST(ToolText, WritesBase64) {
    EXPECT_EQ(run("text base64 foobar").out, "Zm9vYmFy\n");
    write_file("/tmp/bytes", std::string("\0\xff\n", 3));
    EXPECT_EQ(run("text base64", "/tmp/bytes").out, output_of("base64 /tmp/bytes"));
}

TEST(ToolText, ChangesAndShowsTriggerSets) {
    EXPECT_EQ(run("text trigger set 0 0 1 2-4").out, "1F\n");
    EXPECT_EQ(run("text trigger set 0 255").out, "8" + std::string(63, '0') + "\n");
    EXPECT_EQ(run("text trigger clear 1F 0-3").out, "10\n");
    EXPECT_EQ(run("text trigger clear 1 0").out, "0\n");
    EXPECT_EQ(run("text trigger show 1f1").out, "0, 4-8\n");
    EXPECT_EQ(json::parse(run("text trigger show --json 3").out), json::parse(R"({"set":"3","channels":[0,1]})"));
    const auto [status, out, err] = run("text trigger show 0");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "no channel\n");
}

TEST(ToolText, RefusesWhatIsNoSetAndNoChannel) {
    EXPECT_EQ(run("text trigger show 1G").status, 2);
    EXPECT_EQ(run("text trigger show ''").status, 2);
    EXPECT_EQ(run("text trigger show " + std::string(65, '1')).status, 2);
    EXPECT_EQ(run("text trigger set 1 256").status, 2);
    EXPECT_EQ(run("text trigger set 1 3-1").status, 2);
    EXPECT_EQ(run("text trigger set 1 x").status, 2);
    EXPECT_EQ(run("text trigger set 1").status, 2);
}

TEST(ToolText, HasHelpEverywhere) {
    for (const char *const command : {"sha1", "text", "text split", "text replace", "text base64", "text gb2312",
                                      "text gb2312 decode", "text trigger", "text trigger set"}) {
        EXPECT_EQ(run(std::string(command) + " --help").status, 0) << command;
    }
}

}  // namespace
