// velkor run, as a person or a script uses it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using place::eventually;
using testing::HasSubstr;
using testing::StartsWith;

// Nothing of the runner's is left behind: no shared memory, no file, no pipe.
void expect_tidy() {
    EXPECT_EQ(place::output_of("ipcs -m | grep -c '^0x' || true"), "0\n");
    EXPECT_EQ(place::output_of("ls -d /tmp/velkor-* /tmpfile/* 2>/dev/null || true"), "");
}

TEST(ToolRun, GivesOutputAndStatusOfTheCommand) {
    const tool::Outcome three = tool::run("run 'echo hello; echo oops >&2; exit 3'");
    EXPECT_EQ(three.status, 3);
    EXPECT_EQ(three.out, "hello\n");
    EXPECT_EQ(three.err, "oops\n");
    EXPECT_EQ(tool::run("run true").status, 0);
    EXPECT_EQ(tool::run("run /no/such/program").status, 127);
    EXPECT_EQ(tool::run("run 'kill -KILL $$'").status, 128 + SIGKILL);
    expect_tidy();
}

TEST(ToolRun, GivesStatusAndOutputOfAPipeCommand) {
    const tool::Outcome three = tool::run("run --pipe 'echo \"it'\\''s\"; exit 3'");
    EXPECT_EQ(three.status, 3);
    EXPECT_EQ(three.out, "it's\n");
    EXPECT_EQ(three.err, "");
    EXPECT_EQ(tool::run("run --pipe 'kill -KILL $$'").status, 128 + SIGKILL);
    EXPECT_EQ(tool::run("run --pipe 'echo x'").status, 0);
    const std::string much = tool::run("run --pipe 'seq 1 50000'").out;
    EXPECT_TRUE(much == place::output_of("seq 1 50000"));
    expect_tidy();
}

TEST(ToolRun, PrintsAPipeCommandsOutputAsItComes) {
    ASSERT_EQ(mkfifo("/tmp/gate", 0600), 0);
    tool::Running running("run --pipe 'echo one; read line </tmp/gate; echo two'");
    EXPECT_TRUE(eventually([&] { return running.out() == "one\n"; }));
    place::write_file("/tmp/gate", "\n");
    EXPECT_EQ(running.wait(), 0);
    EXPECT_EQ(running.out(), "one\ntwo\n");
}

TEST(ToolRun, PutsWordsTogether) {
    EXPECT_EQ(tool::run("run echo one two").out, "one two\n");
    EXPECT_EQ(tool::run("run -- echo -n x").out, "x");
}

TEST(ToolRun, RunsWhereThePersonIsWithWhatThePersonTypes) {
    place::write_file("/tmp/input", "some text\n");
    EXPECT_EQ(tool::run("run cat", "/tmp/input").out, "some text\n");
    char here[4096];
    ASSERT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(tool::run("run 'pwd -P'").out, place::output_of("pwd -P"));
    EXPECT_EQ(tool::run("run --pipe 'pwd -P'").out, place::output_of("pwd -P"));
}

TEST(ToolRun, LeavesARecorderInTheSameDirectoryAlone) {
    ASSERT_EQ(chdir("/tmp"), 0);
    place::write_file("TODO", "");
    EXPECT_EQ(tool::run("run true").status, 0);
    EXPECT_TRUE(place::exists("TODO"));
}

TEST(ToolRun, RefusesATooLongCommand) {
    const tool::Outcome refused = tool::run("run '" + std::string(512, '#') + "'");
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err, "velkor: the command has 512 characters, the runner takes 511 at most\n");
    EXPECT_EQ(tool::run("run '" + std::string(511, '#') + "'").status, 0);
    EXPECT_EQ(tool::run("run --pipe '" + std::string(511, '#') + "'").status, 0);
    EXPECT_EQ(tool::run("run").status, 2);
}

TEST(ToolRun, SaysWhatAPipeNeeds) {
    ASSERT_EQ(rmdir("/tmpfile"), 0);
    const tool::Outcome failed = tool::run("run --pipe true");
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.err, HasSubstr("/tmpfile"));
}

TEST(ToolRun, EndsWhenItsReaderDoes) {
    ASSERT_EQ(mkfifo("/tmp/reader", 0600), 0);
    tool::Running running("run --pipe 'yes 2>/dev/null' >/tmp/reader");
    FILE *const reader = fopen("/tmp/reader", "r");
    EXPECT_EQ(fgetc(reader), 'y');
    fclose(reader);
    EXPECT_EQ(running.wait(), 128 + SIGPIPE) << "as the shell's, too";
    expect_tidy();
}

// The runner has the tool's output, too, and would keep a pipeline open that nobody writes into any more.
TEST(ToolRun, LeavesNoRunnerInAPipelineWhenItIsKilled) {
    ASSERT_EQ(mkfifo("/tmp/reader", 0600), 0);
    ASSERT_EQ(mkfifo("/tmp/gate", 0600), 0);
    tool::Running running("run 'echo x; read line </tmp/gate' >/tmp/reader");
    const int reader = open("/tmp/reader", O_RDONLY | O_CLOEXEC);
    char text[2];
    EXPECT_EQ(read(reader, text, sizeof text), 2);
    running.send(SIGKILL);
    EXPECT_EQ(running.wait(), 128 + SIGKILL);
    place::write_file("/tmp/gate", "\n");
    struct pollfd end = {reader, POLLIN, 0};
    EXPECT_EQ(poll(&end, 1, 10000), 1);
    EXPECT_EQ(end.revents, POLLHUP);
    close(reader);
}

// Whether the process whose id is in the file has become this program. A shell that is about to become one loses the
// signals that reach it just then.
bool has_become(const std::string &program, const std::string &id_file) {
    const std::string id = place::exists(id_file) ? place::read_file(id_file) : "";
    return !id.empty() && place::read_file("/proc/" + id.substr(0, id.find('\n')) + "/comm") == program + "\n";
}

// As the terminal does it: everybody in the group gets the signal, and it is the command that it ends.
TEST(ToolRun, LeavesCtrlCToTheCommand) {
    for (const char *const option : {"", "--pipe "}) {
        tool::Running running(std::string("run ") + option + "'echo $$ >/tmp/there; exec sleep 1000'");
        ASSERT_TRUE(eventually([] { return has_become("sleep", "/tmp/there"); }));
        kill(-running.process(), SIGINT);
        EXPECT_EQ(running.wait(), 128 + SIGINT) << option << running.err();
        unlink("/tmp/there");
    }
    expect_tidy();
}

TEST(ToolRun, EndsItsRunnerWhenItIsToldToEnd) {
    for (const char *const option : {"", "--pipe "}) {
        tool::Running running(std::string("run ") + option + "'touch /tmp/there; sleep 1000'");
        ASSERT_TRUE(eventually([] { return place::exists("/tmp/there"); }));
        running.send(SIGTERM);
        EXPECT_EQ(running.wait(), 128 + SIGTERM);
        unlink("/tmp/there");
    }
    EXPECT_TRUE(eventually([] { return place::output_of("ipcs -m | grep -c '^0x' || true") == "0\n"; }));
}

TEST(ToolRun, ExplainsItself) {
    const tool::Outcome help = tool::run("run --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--pipe"));
    EXPECT_THAT(help.out, StartsWith("Run a shell command"));
}

}  // namespace
