// velkor log, as a person or a script uses it: the real tool, real processes that log, the real switch file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <velkor/diagnostics.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using place::eventually;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using namespace std::string_literals;

constexpr const char *SWITCH_FILE = "/dvrfile/logman";
constexpr const char *TERMINAL = "/tmp/tty.logman";

std::string switch_content() { return place::read_file(SWITCH_FILE); }
void set_switch(const std::string &content) { place::write_file(SWITCH_FILE, content); }

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> files_in(const std::string &directory) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

// From behind the "]" of the module on.
std::string message_of(const std::string &line) { return line.substr(line.find(']', line.find("] [") + 1) + 1); }

std::vector<std::string> messages_of(const std::string &text) {
    std::vector<std::string> messages;
    for (const std::string &line : lines_of(text)) {
        messages.push_back(message_of(line));
    }
    return messages;
}

bool is_link() {
    struct stat status;
    return lstat(TERMINAL, &status) == 0 && S_ISLNK(status.st_mode);
}

bool nothing_is_there() {
    struct stat status;
    return lstat(TERMINAL, &status) != 0;
}

// stat() sees a socket, open() refuses it, also to root.
void make_unreadable_switch() {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, SWITCH_FILE);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<struct sockaddr *>(&address), sizeof address), 0);
    close(descriptor);
}

// A follower that is ready: whoever reads the switch file from now on writes to it.
class Follower : public tool::Running {
public:
    explicit Follower(const std::string &options = "") : Running("log follow " + options) {
        EXPECT_TRUE(eventually([&] { return err().find("following on") != std::string::npos; })) << err();
    }

    bool shows(const std::string &text) const {
        return eventually([&] { return out().find(text) != std::string::npos; });
    }
};

json status_now() { return json::parse(tool::run("log status --json").out); }

bool holds_terminal(pid_t process) {
    const json holders = status_now()["holders"];
    return std::any_of(holders.begin(), holders.end(), [=](const json &holder) { return holder["pid"] == process; });
}

bool comes_to_hold_terminal(const tool::Running &running) {
    return eventually([&] { return holds_terminal(running.process()); });
}

// ---- The command line ----

TEST(ToolCommandLine, HelpsEverywhere) {
    for (const char *command : {"", "log", "log follow", "log write", "log config", "log status"}) {
        const tool::Outcome help = tool::run(std::string(command) + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_THAT(help.out, HasSubstr("Usage: velkor")) << command;
        EXPECT_THAT(help.out, HasSubstr(command)) << command;
        EXPECT_THAT(help.err, IsEmpty()) << command;
    }
}

TEST(ToolCommandLine, TellsItsVersion) {
    const tool::Outcome version = tool::run("--version");
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.out, testing::MatchesRegex("velkor [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(ToolCommandLine, AnswersTwoToBadUse) {
    for (const char *command :
         {"", "log", "lgo", "log bogus", "log status extra", "log status --what", "log config --print one",
          "log config --print", "log config --print 99999999999", "log config --settle-ms -1", "log follow --count 0",
          "log follow --count x", "log follow --colour red", "log follow extra", "log write --modul x text",
          "log write --timeout -1 text", "--jsn"}) {
        const tool::Outcome outcome = tool::run(command);
        EXPECT_EQ(outcome.status, 2) << command;
        EXPECT_THAT(outcome.err, StartsWith("velkor: ")) << command;
        EXPECT_THAT(outcome.out, IsEmpty()) << command;
    }
    EXPECT_THAT(files_in("/dvrfile"), IsEmpty());
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolCommandLine, NamesACommandThatItDoesNotKnow) {
    EXPECT_THAT(tool::run("log folow --json").err, HasSubstr("no command \"folow\""));
}

TEST(ToolCommandLine, SaysWhenItsOutputCannotBeWritten) {
    const tool::Outcome outcome = tool::run("--version >/dev/full");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot write the output"));
}

// ---- status ----

TEST(ToolLogStatus, SaysNoWithoutTheSwitchFile) {
    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out,
              "switch file      /dvrfile/logman, absent\n"
              "terminal         /tmp/tty.logman, missing\n"
              "lines get there  no: there is no /dvrfile/logman\n");

    const json status = status_now();
    EXPECT_EQ(status["switch"]["present"], false);
    EXPECT_EQ(status["terminal"]["kind"], "missing");
    EXPECT_EQ(status["terminal"]["target"], nullptr);
    EXPECT_EQ(status["holders"], json::array());
    EXPECT_EQ(status["enabled"], false);
    EXPECT_EQ(status["prints"], false);
}

TEST(ToolLogStatus, SaysNoWhilePrintingIsOff) {
    place::Terminal terminal;
    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    set_switch("dbgprint=0\n");
    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("no: printing is off"));

    const json status = status_now();
    EXPECT_EQ(status["enabled"], true);
    EXPECT_EQ(status["printing"], false);
    EXPECT_EQ(status["opens"], true);
    EXPECT_EQ(status["prints"], false);
}

TEST(ToolLogStatus, SaysNoWithoutATerminalAndNamesTheError) {
    set_switch("dbgprint=1\n");
    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("no: cannot open /tmp/tty.logman: error 2, No such file or directory"));
    EXPECT_EQ(status_now()["opens"], false);
}

TEST(ToolLogStatus, KnowsALinkThatLeadsNowhere) {
    set_switch("dbgprint=1\n");
    ASSERT_EQ(symlink("/dev/pts/4711", TERMINAL), 0);
    EXPECT_EQ(tool::run("log status").status, 1);
    const json terminal = status_now()["terminal"];
    EXPECT_EQ(terminal["kind"], "dangling link");
    EXPECT_EQ(terminal["target"], "/dev/pts/4711");
    EXPECT_EQ(terminal["error"], ENOENT);
}

TEST(ToolLogStatus, KnowsADirectoryInTheTerminalsPlace) {
    set_switch("dbgprint=1\n");
    ASSERT_EQ(mkdir(TERMINAL, 0755), 0);
    EXPECT_EQ(tool::run("log status").status, 1);
    const json terminal = status_now()["terminal"];
    EXPECT_EQ(terminal["kind"], "other");
    EXPECT_EQ(terminal["error"], EISDIR);
}

TEST(ToolLogStatus, SaysNoToASwitchFileThatCannotBeRead) {
    place::write_file(TERMINAL, "");
    make_unreadable_switch();
    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("no: cannot read /dvrfile/logman: error 6, "));
    const json status = status_now();
    EXPECT_EQ(status["enabled"], true);
    EXPECT_EQ(status["switch"]["readable"], false);
    EXPECT_EQ(status["printing"], false);
}

TEST(ToolLogStatus, SaysYesWithATerminalAndNamesWhoHoldsIt) {
    place::Terminal terminal;
    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    set_switch("dbgprint=1\n");
    const int descriptor = open(TERMINAL, O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(descriptor, 0);

    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out,
                HasSubstr("terminal         /tmp/tty.logman, terminal, link to " + terminal.path() + "\n"));
    EXPECT_THAT(outcome.out, HasSubstr("lines get there  yes\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("\033")));

    std::string name = place::read_file("/proc/" + std::to_string(getpid()) + "/comm");
    name.pop_back();
    const json status = status_now();
    EXPECT_EQ(status["terminal"]["kind"], "terminal");
    EXPECT_EQ(status["terminal"]["error"], 0);
    EXPECT_EQ(status["holders"], json::array({{{"pid", getpid()}, {"name", name}}}));
    EXPECT_EQ(status["prints"], true);
    close(descriptor);
    EXPECT_EQ(status_now()["holders"], json::array());
}

TEST(ToolLogStatus, SaysYesToAFileInTheTerminalsPlace) {
    place::write_file(TERMINAL, "");
    set_switch("dbgprint=1\nfilter=abc\n");
    const tool::Outcome outcome = tool::run("log status");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("yes, those that the texts let through"));
    EXPECT_EQ(status_now()["terminal"]["kind"], "file");
}

// ---- config, showing ----

TEST(ToolLogConfig, ShowsAnAbsentFile) {
    const tool::Outcome outcome = tool::run("log config");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "file   /dvrfile/logman\nstate  absent, the log is off\n");
    const tool::Outcome program = tool::run("log config --json");
    EXPECT_EQ(program.status, 1);
    EXPECT_EQ(json::parse(program.out), json({{"file", SWITCH_FILE}, {"present", false}, {"readable", false}}));
}

TEST(ToolLogConfig, ShowsWhatAFileSays) {
    set_switch("dbgprint=1\nfilter=libvelkor\nfilter= two words\ninvert=err code\n");
    const tool::Outcome outcome = tool::run("log config");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "file      /dvrfile/logman\n"
              "print     1 (on)\n"
              "filter 0  \"libvelkor\"\n"
              "filter 1  \" two words\"\n"
              "invert 0  \"err code\"\n");
}

TEST(ToolLogConfig, SaysWhichLinesDoNotDoWhatTheySeemTo) {
    set_switch("# a remark\ndbgprint=1\n\ndbglevel=7\nlevel=3\r\n filter=x\nfilter=" + std::string(300, 'f') + "\n");
    const json config = json::parse(tool::run("log config --json").out);
    EXPECT_EQ(config["print"], 7);
    EXPECT_EQ(config["filters"], json::array({std::string(255, 'f')}));
    std::vector<std::string> notes;
    for (const json &note : config["notes"]) {
        notes.push_back(note["line"].dump() + ": " + note["why"].get<std::string>());
    }
    EXPECT_THAT(notes, ElementsAre("1: no \"=\"", "2: overridden by line 4", "5: unknown key", "6: unknown key",
                                   "7: cut after 255 characters"));
    EXPECT_EQ(config["notes"][2]["text"], "level=3");
}

TEST(ToolLogConfig, DropsTextsFromTheNinthOn) {
    std::string content = "dbgprint=1\n";
    for (int i = 0; i < 10; ++i) {
        content += "invert=" + std::to_string(i) + "\n";
    }
    set_switch(content);
    const json config = json::parse(tool::run("log config --json").out);
    EXPECT_EQ(config["inverts"], json::array({"0", "1", "2", "3", "4", "5", "6", "7"}));
    ASSERT_EQ(config["notes"].size(), 2U);
    EXPECT_EQ(config["notes"][1]["line"], 11);
    EXPECT_EQ(config["notes"][1]["text"], "invert=9");
    EXPECT_EQ(config["notes"][1]["why"], "dropped: only 8 are kept");
}

// The tool has its own reading of the file, the library is what counts.
TEST(ToolLogConfig, ReadsEveryFileAsAProcessDoes) {
    const std::vector<std::string> contents = {
        "",
        "dbgprint=1",
        "dbg=-3\n",
        "dbgXYZ= 5 apples\nfilterA=x\ninvertible=y=z\n",
        "dbgprint=1\ndbgprint=\n",
        "dbgprint=0\r\ndbg=4294967296\n",
        "dbgprint=99999999999999999999\n",
        "Dbgprint=1\n dbgprint=1\n",
        "dbgprint=1\nfilter=a\rb\nfilter=\nfilter=c\n",
        "dbgprint=1\nfilter=a\0b\nfilter=x\0\n\0filter=hidden\n"s,
        "dbgprint\0=1\n"s,
        "dbgprint=1\nfilter=" + std::string(3000, '=') + "\n",
        std::string(1022, 'x') + "dbgprint=1\nfilter=behind a long line\n",
        std::string(1021, 'x') + "\ndbgprint=1\n",
        "filter=" + std::string(1015, 'y') + "invert=in the same line\ndbgprint=1\n",
        "filter=\xff\xfe caf\xc3\xa9\ndbgprint=2",
    };
    for (const std::string &content : contents) {
        unlink(SWITCH_FILE);
        EXPECT_EQ(vk_OutLogToLogmanEnable(), -1);
        set_switch(content);
        EXPECT_EQ(vk_OutLogToLogmanEnable(), 0);

        const json config = json::parse(tool::run("log config --json").out);
        const auto check_slots = [&](const char *kind, const char *slots) {
            for (size_t slot = 0; slot < VELKOR_LOGMAN_SLOTS; ++slot) {
                const std::string read = slots + slot * VELKOR_LOGMAN_SLOT_SIZE;
                const json shown = slot < config[kind].size() ? config[kind][slot] : json("");
                // In JSON what is not UTF-8 is replaced.
                EXPECT_EQ(shown, json::parse(json(read).dump(-1, ' ', false, json::error_handler_t::replace)))
                    << content;
            }
        };
        check_slots("filters", g_logman_filter);
        check_slots("inverts", g_logman_invert);
        for (unsigned slot = 0; slot < VELKOR_LOGMAN_SLOTS; ++slot) {
            logman_set_filter(slot, "");
            logman_set_invert(slot, "");
        }
        EXPECT_EQ(vk_printftomem(0, "test", 0, "x") == 0, config["print"] != 0) << content;
    }
}

// ---- config, changing ----

TEST(ToolLogConfig, MakesTheFile) {
    const tool::Outcome outcome = tool::run("log config --print 1 --settle-ms 0");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out,
                HasSubstr("/dvrfile/logman was away for 0 ms and is written: running processes read it again"));
    EXPECT_EQ(switch_content(), "dbgprint=1\n");
    struct stat status;
    ASSERT_EQ(stat(SWITCH_FILE, &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0644U);
    EXPECT_THAT(files_in("/dvrfile"), ElementsAre("logman"));
}

TEST(ToolLogConfig, KeepsEveryOtherByte) {
    set_switch("# by hand\r\ndbgprint=0\r\n\r\ndbglevel=3\r\nfilter=a\n\xff\xfe=?\nno end");
    EXPECT_EQ(tool::run("log config --print -2 --invert \"two words \" --settle-ms 0").status, 0);
    EXPECT_EQ(switch_content(),
              "# by hand\r\ndbgprint=0\r\n\r\ndbgprint=-2\r\nfilter=a\n\xff\xfe=?\nno end\ninvert=two words \n");
}

TEST(ToolLogConfig, PutsPrintingFirstWhereNothingWasSaid) {
    set_switch("filter=a");
    EXPECT_EQ(tool::run("log config --print 1 --settle-ms 0").status, 0);
    EXPECT_EQ(switch_content(), "dbgprint=1\nfilter=a");
}

TEST(ToolLogConfig, ClearsBeforeItAdds) {
    set_switch("filter=a\ndbgprint=1\nfilterB=b\ninvert=c\nfilter without value\ninvert=d");
    EXPECT_EQ(tool::run("log config --clear-filters --filter e --filter f --settle-ms 0").status, 0);
    EXPECT_EQ(switch_content(), "dbgprint=1\ninvert=c\nfilter without value\ninvert=d\nfilter=e\nfilter=f\n");
    EXPECT_EQ(tool::run("log config --clear-inverts --settle-ms 0").status, 0);
    EXPECT_EQ(switch_content(), "dbgprint=1\nfilter without value\nfilter=e\nfilter=f\n");
}

TEST(ToolLogConfig, TakesTextsAsTheyAre) {
    EXPECT_EQ(tool::run("log config --settle-ms 0 --filter '[a,b]' --filter '{}' --filter --json --filter=-x "
                        "--invert '100%%' --invert a=b")
                  .status,
              0);
    EXPECT_EQ(switch_content(), "filter=[a,b]\nfilter={}\nfilter=--json\nfilter=-x\ninvert=100%%\ninvert=a=b\n");
}

TEST(ToolLogConfig, RefusesTextsThatProcessesWouldReadOtherwise) {
    const std::string before = "dbgprint=1\nfilter=1\nfilter=2\nfilter=3\nfilter=4\nfilter=5\nfilter=6\nfilter=7\n";
    set_switch(before);
    for (const std::string &edit :
         {"--filter ''"s, "--invert \"$(printf 'a\\nb')\""s, "--invert \"$(printf 'a\\rb')\""s,
          "--invert " + std::string(256, 'x'), "--filter 8 --filter 9"s}) {
        const tool::Outcome outcome = tool::run("log config --print 5 " + edit);
        EXPECT_EQ(outcome.status, 2) << edit;
        EXPECT_THAT(outcome.err, StartsWith("velkor: ")) << edit;
        EXPECT_EQ(switch_content(), before) << edit;
    }
    EXPECT_THAT(files_in("/dvrfile"), ElementsAre("logman"));
    EXPECT_EQ(tool::run("log config --settle-ms 0 --filter 8 --invert " + std::string(255, 'x')).status, 0);
    EXPECT_EQ(switch_content(), before + "filter=8\ninvert=" + std::string(255, 'x') + "\n");
}

TEST(ToolLogConfig, KeepsModeAndOwner) {
    set_switch("dbgprint=1\n");
    ASSERT_EQ(chmod(SWITCH_FILE, 0660), 0);
    const bool may_give_away = chown(SWITCH_FILE, 1, 2) == 0;
    EXPECT_EQ(tool::run("log config --print 0 --settle-ms 0").status, 0);
    struct stat status;
    ASSERT_EQ(stat(SWITCH_FILE, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0660U);
    EXPECT_EQ(status.st_uid, may_give_away ? 1U : getuid());
    EXPECT_EQ(status.st_gid, may_give_away ? 2U : getgid());
}

TEST(ToolLogConfig, ReachesARunningProcess) {
    place::Terminal terminal;
    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    set_switch("dbgprint=0\n");
    logman_init();
    ASSERT_EQ(vk_GetLogmanEnable(), 1);
    ASSERT_EQ(vk_printftomem(0, "test", 0, "x"), -1);
    EXPECT_EQ(tool::run("log config --print 1 --filter wanted --settle-ms 1000").status, 0);
    EXPECT_TRUE(eventually([] { return vk_printftomem(0, "test", 0, "wanted") == 0; }));
    EXPECT_EQ(vk_printftomem(0, "test", 0, "x"), -1);
    terminal.read_until("wanted\n");
}

TEST(ToolLogConfig, RearmsWithTheSameContent) {
    const std::string content = "dbgprint=1\r\nanything\xff";
    place::write_file(TERMINAL, "");
    set_switch("");
    logman_init();
    ASSERT_EQ(vk_GetLogmanEnable(), 1);
    set_switch(content);  // in place: unnoticed
    ASSERT_EQ(vk_printftomem(0, "test", 0, "x"), -1);
    EXPECT_EQ(tool::run("log config --rearm --settle-ms 1000").status, 0);
    EXPECT_EQ(switch_content(), content);
    EXPECT_TRUE(eventually([] { return vk_printftomem(0, "test", 0, "x") == 0; }));
}

TEST(ToolLogConfig, HasNothingToRearmWhileTheLogIsOff) {
    const tool::Outcome outcome = tool::run("log config --rearm");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the log is off"));
    EXPECT_FALSE(place::exists(SWITCH_FILE));
}

TEST(ToolLogConfig, SwitchesOff) {
    set_switch("dbgprint=1\n");
    const tool::Outcome off = tool::run("log config --off");
    EXPECT_EQ(off.status, 0);
    EXPECT_EQ(off.out, "/dvrfile/logman removed: the log is off\n");
    EXPECT_FALSE(place::exists(SWITCH_FILE));
    const tool::Outcome again = tool::run("log config --off");
    EXPECT_EQ(again.status, 0);
    EXPECT_THAT(again.out, HasSubstr("off already"));
    EXPECT_EQ(json::parse(tool::run("log config --off --json").out)["present"], false);
}

TEST(ToolLogConfig, DoesNotSwitchOffAndChangeAtOnce) {
    set_switch("dbgprint=1\n");
    EXPECT_EQ(tool::run("log config --off --print 0").status, 2);
    EXPECT_EQ(tool::run("log config --off --rearm").status, 2);
    EXPECT_EQ(switch_content(), "dbgprint=1\n");
}

TEST(ToolLogConfig, PrintsItsChangeForPrograms) {
    const tool::Outcome outcome =
        tool::run("log config --print 3 --filter \"$(printf 'caf\\351')\" --json --settle-ms 0");
    EXPECT_EQ(outcome.status, 0);
    const json config = json::parse(outcome.out);
    EXPECT_EQ(config["print"], 3);
    EXPECT_EQ(config["filters"], json::array({"caf\xef\xbf\xbd"}));
    EXPECT_EQ(switch_content(), "dbgprint=3\nfilter=caf\351\n");
}

TEST(ToolLogConfig, LeavesAloneWhatItCannotRead) {
    make_unreadable_switch();
    const tool::Outcome outcome = tool::run("log config --print 1 --settle-ms 0");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot read /dvrfile/logman: error 6, "));
    struct stat status;
    ASSERT_EQ(stat(SWITCH_FILE, &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
}

TEST(ToolLogConfig, LeavesADirectoryAlone) {
    ASSERT_EQ(mkdir(SWITCH_FILE, 0755), 0);
    const tool::Outcome outcome = tool::run("log config --print 1 --settle-ms 0");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot remove /dvrfile/logman: error 21, Is a directory"));
    EXPECT_THAT(files_in("/dvrfile"), ElementsAre("logman"));
}

TEST(ToolLogConfig, NamesTheErrorOfADirectoryThatCannotBeWritten) {
    place::output_of("mount -t tmpfs -o ro none /dvrfile");
    const tool::Outcome outcome = tool::run("log config --print 1");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot create a file in /dvrfile: error 30, Read-only file system"));
}

TEST(ToolLogConfig, LosesNothingWhenTheDiskIsFull) {
    place::output_of("mount -t tmpfs -o size=8k none /dvrfile");
    const std::string before = "dbgprint=0\n" + std::string(4000, '#');
    set_switch(before);
    const tool::Outcome outcome = tool::run("log config --filter " + std::string(255, 'x'));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("error 28, No space left on device"));
    EXPECT_EQ(switch_content(), before);
    EXPECT_THAT(files_in("/dvrfile"), ElementsAre("logman"));
}

TEST(ToolLogConfig, FinishesAChangeThatIsInterrupted) {
    set_switch("dbgprint=0\n");
    tool::Running change("log config --print 1 --settle-ms 1500");
    ASSERT_TRUE(eventually([] { return !place::exists(SWITCH_FILE); }));
    change.send(SIGINT);
    change.send(SIGTERM);
    EXPECT_EQ(change.wait(), 0);
    EXPECT_EQ(switch_content(), "dbgprint=1\n");
}

// ---- write ----

class ToolLogWrite : public testing::Test {
protected:
    void link_terminal() { ASSERT_EQ(symlink(terminal_.path().c_str(), TERMINAL), 0); }

    place::Terminal terminal_;
};

TEST_F(ToolLogWrite, LogsItsWordsAsOneLine) {
    link_terminal();
    set_switch("dbgprint=1\n");
    const tool::Outcome outcome = tool::run("log write --module enc one  two '  three'");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out + outcome.err, IsEmpty());
    const std::string line = terminal_.read_until("\n");
    EXPECT_THAT(line, testing::MatchesRegex("\\[[0-9/]+ [0-9:]+\\] \\[[0-9]+ enc\\]one two   three\n"));
}

TEST_F(ToolLogWrite, TakesItsWordsAsTheyAre) {
    link_terminal();
    set_switch("dbgprint=1\n");
    EXPECT_EQ(tool::run("log write '[a,b]' {} %s%n config status log '' -- --json").status, 0);
    EXPECT_EQ(message_of(terminal_.read_until("\n")), "[a,b] {} %s%n config status log  --json\n");
}

TEST_F(ToolLogWrite, LogsEveryLineOfItsInputInOrder) {
    // Far more than the ring buffer holds.
    std::string input;
    std::vector<std::string> expected;
    for (int i = 0; i < 3000; ++i) {
        expected.push_back("line " + std::to_string(i));
        input += expected.back() + "\n";
    }
    input += "the end, without a line end";
    expected.push_back("the end, without a line end");
    place::write_file("/tmp/input", input);
    link_terminal();
    set_switch("dbgprint=1\n");
    tool::Running writer("log write", "/tmp/input");
    EXPECT_EQ(messages_of(terminal_.read_until("without a line end\n")), expected);
    EXPECT_EQ(writer.wait(), 0);
}

TEST_F(ToolLogWrite, KeepsOneInputLineOneLine) {
    place::write_file("/tmp/input", "a\tb\r\n\nzero\0byte\n"s);
    link_terminal();
    set_switch("dbgprint=1\n");
    EXPECT_EQ(tool::run("log write", "/tmp/input").status, 0);
    EXPECT_THAT(messages_of(terminal_.read_until("byte\n")), ElementsAre("a b ", "", "zero byte"));
}

TEST_F(ToolLogWrite, HasWrittenEverythingOutWhenItEnds) {
    // A file, unlike a terminal, is buffered by the process.
    place::write_file(TERMINAL, "");
    set_switch("dbgprint=1\n");
    for (int i = 0; i < 20; ++i) {
        place::write_file(TERMINAL, "");
        ASSERT_EQ(tool::run("log write there").status, 0);
        ASSERT_EQ(message_of(place::read_file(TERMINAL)), "there\n");
    }
}

TEST_F(ToolLogWrite, AnswersOneWhileTheLogIsOff) {
    link_terminal();
    const tool::Outcome outcome = tool::run("log write x");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("the log is off, there is no /dvrfile/logman"));
}

TEST_F(ToolLogWrite, AnswersOneWhilePrintingIsOff) {
    link_terminal();
    set_switch("dbgprint=0\n");
    const tool::Outcome outcome = tool::run("log write x");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("printing is off"));
}

TEST_F(ToolLogWrite, AnswersOneWithoutATerminal) {
    set_switch("dbgprint=1\n");
    const tool::Outcome outcome = tool::run("log write x");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot open /tmp/tty.logman: error 2, No such file or directory"));
}

TEST_F(ToolLogWrite, AnswersOneWhenLinesWereFilteredAndSaysHowMany) {
    link_terminal();
    set_switch("dbgprint=1\nfilter=keep\ninvert=not\n");
    place::write_file("/tmp/input", "keep\nother\nkeep not\nkeep too\n");
    const tool::Outcome outcome = tool::run("log write", "/tmp/input");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "velkor: 2 of 4 lines logged, 2 dropped by the filters in /dvrfile/logman\n");
    EXPECT_THAT(messages_of(terminal_.read_until("too\n")), ElementsAre("keep", "keep too"));
}

TEST_F(ToolLogWrite, CountsLinesThatCameWhileTheLogWasOff) {
    link_terminal();
    set_switch("dbgprint=1\n");
    tool::Feed feed("/tmp/feed");
    tool::Running writer("log write --timeout 0.5", feed.path());
    feed.write("before\n");
    terminal_.read_until("before\n");
    unlink(SWITCH_FILE);
    // The process notices within a hundred passes of its draining thread. From then on no line comes through; one may
    // have made it into the ring buffer, but not out of it.
    const auto comes_through = [&](const std::string &text) {
        feed.write(text + "\n");
        struct pollfd waiting = {terminal_.descriptor(), POLLIN, 0};
        const bool came = poll(&waiting, 1, 1000) == 1;
        if (came) {
            terminal_.read_until(text + "\n");
        }
        return came;
    };
    int number = 0;
    EXPECT_TRUE(eventually([&] { return !comes_through("after " + std::to_string(++number)); }));
    feed.write("refused\n");
    feed.end();
    EXPECT_EQ(writer.wait(), 1);
    EXPECT_THAT(writer.err(), HasSubstr("refused while the log was off"));
}

TEST_F(ToolLogWrite, GivesUpOnATerminalThatTakesNothing) {
    std::string input;
    for (int i = 0; i < 600; ++i) {
        input += std::string(900, 'x') + "\n";
    }
    place::write_file("/tmp/input", input);
    link_terminal();
    set_switch("dbgprint=1\n");
    const tool::Outcome outcome = tool::run("log write --timeout 0.5", "/tmp/input");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        outcome.err,
        testing::ContainsRegex(
            "not everything was written, 5[0-9][0-9] lines left .* nothing moved on /tmp/tty.logman for 500 ms"));
}

// ---- follow ----

TEST(ToolLogFollow, PrintsWhatAProcessLogs) {
    set_switch("dbgprint=1\n");
    Follower follower("--count 2");
    EXPECT_EQ(tool::run("log write --module enc hello").status, 0);
    EXPECT_EQ(tool::run("log write hello again").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    const std::vector<std::string> lines = lines_of(follower.out());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::MatchesRegex("\\[[0-9/]+ [0-9:]+\\] \\[[0-9]+ enc\\]hello"));
    EXPECT_EQ(message_of(lines[1]), "hello again");
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolLogFollow, KeepsTheLinesOfTwoProcessesWhole) {
    constexpr int LINES = 300;
    std::vector<std::string> expected_of[2];
    for (int writer = 0; writer < 2; ++writer) {
        std::string input;
        for (int i = 0; i < LINES; ++i) {
            // Of many lengths, up to the longest that fits.
            const std::string fill(static_cast<size_t>(i * 3), static_cast<char>('a' + writer));
            expected_of[writer].push_back(std::to_string(i) + fill);
            input += expected_of[writer].back() + "\n";
        }
        place::write_file("/tmp/input" + std::to_string(writer), input);
    }
    set_switch("dbgprint=1\n");
    Follower follower("--count " + std::to_string(2 * LINES));
    tool::Running first("log write --module w0", "/tmp/input0");
    tool::Running second("log write --module w1", "/tmp/input1");
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(follower.wait(), 0);
    std::vector<std::string> lines_from[2];
    for (const std::string &line : lines_of(follower.out())) {
        lines_from[line.find(" w1]") != std::string::npos ? 1 : 0].push_back(message_of(line));
    }
    EXPECT_EQ(lines_from[0], expected_of[0]);
    EXPECT_EQ(lines_from[1], expected_of[1]);
}

TEST(ToolLogFollow, ShowsTheLongestLine) {
    set_switch("dbgprint=1\n");
    Follower follower("--count 1");
    EXPECT_EQ(tool::run("log write " + std::string(2000, 'x')).status, 0);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_EQ(follower.out().size(), 1024U);  // with its line end
}

TEST(ToolLogFollow, CallsProcessesThatRunAlready) {
    const std::string content = "# mine\r\ndbgprint=1\r\n";
    place::write_file(TERMINAL, "");
    set_switch(content);
    tool::Feed feed("/tmp/feed");
    tool::Running writer("log write", feed.path());
    ASSERT_TRUE(comes_to_hold_terminal(writer));

    Follower follower("--replace --settle-ms 1000");
    EXPECT_EQ(switch_content(), content);
    ASSERT_TRUE(comes_to_hold_terminal(writer));
    feed.write("over here\n");
    EXPECT_TRUE(follower.shows("over here\n"));
    feed.end();
    EXPECT_EQ(writer.wait(), 0);
}

TEST(ToolLogFollow, CallsAgainAfterAnEarlierFollowerLeft) {
    set_switch("dbgprint=1\n");
    Follower first;
    tool::Feed feed("/tmp/feed");
    tool::Running writer("log write", feed.path());
    feed.write("one\n");
    EXPECT_TRUE(first.shows("one\n"));
    first.send(SIGTERM);
    EXPECT_EQ(first.wait(), 0);

    Follower second("--settle-ms 1000");
    ASSERT_TRUE(comes_to_hold_terminal(writer));
    feed.write("two\n");
    EXPECT_TRUE(second.shows("two\n"));
    feed.end();
    EXPECT_EQ(writer.wait(), 0);
}

// A process that leads a session without a controlling terminal gets the first terminal that it opens for one, and is
// ended when that hangs up.
TEST(ToolLogFollow, DoesNotEndADaemonWhenItEnds) {
    set_switch("dbgprint=1\n");
    Follower follower;
    tool::Feed feed("/tmp/feed");
    tool::Running writer("log write --timeout 1", feed.path());
    ASSERT_TRUE(eventually([&] { return getsid(writer.process()) == writer.process(); }));
    feed.write("one\n");
    EXPECT_TRUE(follower.shows("one\n"));
    follower.send(SIGTERM);
    EXPECT_EQ(follower.wait(), 0);
    feed.end();
    EXPECT_EQ(writer.wait(), 0);
}

TEST(ToolLogFollow, WaitsWhileTheLogIsOffAndSaysHowToSwitchItOn) {
    Follower follower;
    EXPECT_THAT(follower.err(), HasSubstr("the log is off, there is no /dvrfile/logman"));
    EXPECT_THAT(follower.err(), HasSubstr("velkor log config --print 1"));
    EXPECT_FALSE(place::exists(SWITCH_FILE));
    EXPECT_EQ(tool::run("log config --print 1").status, 0);
    EXPECT_EQ(tool::run("log write now").status, 0);
    EXPECT_TRUE(follower.shows("]now\n"));
}

TEST(ToolLogFollow, SaysWhenPrintingIsOffAndLeavesItSo) {
    set_switch("dbgprint=0\nfilter=a\n");
    Follower follower;
    EXPECT_THAT(follower.err(), HasSubstr("dbgprint is 0"));
    EXPECT_EQ(switch_content(), "dbgprint=0\nfilter=a\n");
}

TEST(ToolLogFollow, SwitchesPrintingOnWhenAskedTo) {
    set_switch("dbgprint=0\nfilter=a\n");
    Follower follower("--enable");
    EXPECT_EQ(switch_content(), "dbgprint=1\nfilter=a\n");
    EXPECT_EQ(tool::run("log write a").status, 0);
    EXPECT_TRUE(follower.shows("]a\n"));
}

TEST(ToolLogFollow, SwitchesTheLogOnWhenAskedTo) {
    Follower follower("--enable");
    EXPECT_EQ(switch_content(), "dbgprint=1\n");
    EXPECT_EQ(status_now()["prints"], true);
}

TEST(ToolLogFollow, LeavesAnotherPrintValueAlone) {
    set_switch("dbgprint=5\n");
    Follower follower("--enable");
    EXPECT_EQ(switch_content(), "dbgprint=5\n");
}

TEST(ToolLogFollow, PrintsOnlyWhatIsWanted) {
    set_switch("dbgprint=1\n");
    place::write_file("/tmp/input", "red apple\ngreen pear\nred pear rotten\nplum\ngreen apple\n[brackets]\n");
    Follower follower("--grep red --grep green --grep '[brackets]' --drop rotten --count 4");
    EXPECT_EQ(tool::run("log write", "/tmp/input").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_THAT(messages_of(follower.out()), ElementsAre("red apple", "green pear", "green apple", "[brackets]"));
}

TEST(ToolLogFollow, PrintsObjectsForPrograms) {
    set_switch("dbgprint=1\n");
    place::write_file("/tmp/input", "say \"hi\" \\ ]\nnot UTF-8: \xff\xfe\n");
    Follower follower("--json --count 2 --colour always");
    tool::Running writer("log write --module enc", "/tmp/input");
    const pid_t process = writer.process();
    EXPECT_EQ(writer.wait(), 0);
    EXPECT_EQ(follower.wait(), 0);
    const std::vector<std::string> lines = lines_of(follower.out());
    ASSERT_EQ(lines.size(), 2U);
    const json first = json::parse(lines[0]);
    EXPECT_THAT(first["time"].get<std::string>(), testing::MatchesRegex("[0-9]+/[0-9]+/[0-9]+ [0-9]+:[0-9]+:[0-9]+"));
    EXPECT_EQ(first["thread"], process);
    EXPECT_EQ(first["module"], "enc");
    EXPECT_EQ(first["message"], "say \"hi\" \\ ]");
    EXPECT_EQ(json::parse(lines[1])["message"], "not UTF-8: \xef\xbf\xbd\xef\xbf\xbd");
}

TEST(ToolLogFollow, PrintsLinesOfOtherOrigin) {
    Follower follower("--json --count 2");
    const int descriptor = open(TERMINAL, O_WRONLY | O_NOCTTY);
    ASSERT_GE(descriptor, 0);
    ASSERT_EQ(write(descriptor, "no head\n[] [", 12), 12);
    ASSERT_EQ(write(descriptor, "x y]z\n", 6), 6);
    EXPECT_EQ(follower.wait(), 0);
    close(descriptor);
    const std::vector<std::string> lines = lines_of(follower.out());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(json::parse(lines[0]),
              json({{"time", nullptr}, {"thread", nullptr}, {"module", nullptr}, {"message", "no head"}}));
    EXPECT_EQ(json::parse(lines[1])["message"], "[] [x y]z");
}

TEST(ToolLogFollow, ColoursTheParts) {
    set_switch("dbgprint=1\n");
    place::write_file("/tmp/input", "open Failed, no Error\nbell \a and \033[2J\n");
    Follower follower("--colour always --count 2");
    EXPECT_EQ(tool::run("log write --module enc", "/tmp/input").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    const std::vector<std::string> lines = lines_of(follower.out());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], StartsWith("\033[2m["));
    EXPECT_THAT(lines[0], HasSubstr(" \033[1menc\033[0m]open \033[1;31mFailed\033[0m, no \033[1;31mError\033[0m"));
    // What was logged does not steer the terminal of the person who looks.
    EXPECT_THAT(lines[1], HasSubstr("]bell ^G and ^[[2J"));
}

TEST(ToolLogFollow, LeavesTextPlainOutsideATerminal) {
    set_switch("dbgprint=1\n");
    Follower follower("--count 1");
    EXPECT_EQ(tool::run("log write \"$(printf 'error \\a')\"").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_EQ(message_of(follower.out()), "error \a\n");
}

TEST(ToolLogFollow, NeedNotBeColoured) {
    set_switch("dbgprint=1\n");
    Follower follower("--colour always --no-colour --count 1");
    EXPECT_EQ(tool::run("log write error").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_THAT(follower.out(), Not(HasSubstr("\033")));
}

TEST(ToolLogFollow, RemovesItsLinkWhenItIsStopped) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Follower follower;
        EXPECT_TRUE(is_link());
        follower.send(signal);
        EXPECT_EQ(follower.wait(), 0);
        EXPECT_TRUE(nothing_is_there()) << signal;
    }
}

TEST(ToolLogFollow, AnswersOneWhenItIsStoppedBeforeItsCount) {
    Follower follower("--count 3");
    follower.send(SIGTERM);
    EXPECT_EQ(follower.wait(), 1);
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolLogFollow, PutsTheSwitchFileBackBeforeItIsStopped) {
    set_switch("dbgprint=1\n");
    tool::Running follower("log follow --settle-ms 1500");
    ASSERT_TRUE(eventually([] { return !place::exists(SWITCH_FILE); }));
    follower.send(SIGTERM);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_EQ(switch_content(), "dbgprint=1\n");
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolLogFollow, LeavesALinkThatBecameAnothers) {
    Follower follower;
    ASSERT_EQ(unlink(TERMINAL), 0);
    ASSERT_EQ(symlink("/dev/null", TERMINAL), 0);
    follower.send(SIGTERM);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_TRUE(is_link());
}

TEST(ToolLogFollow, EndsWhenNobodyReadsItsOutput) {
    // The reader leaves at once; nothing is ever logged.
    place::output_of(tool::COMMAND + " log follow | true");
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolLogFollow, IsStoppedWhileItsReaderPauses) {
    set_switch("dbgprint=1\n");
    std::string input;
    for (int i = 0; i < 400; ++i) {
        input += std::string(900, 'x') + "\n";
    }
    place::write_file("/tmp/input", input);
    ASSERT_EQ(mkfifo("/tmp/pause", 0600), 0);
    const int paused = open("/tmp/pause", O_RDWR | O_CLOEXEC);
    tool::Running follower("log follow 1<>/tmp/pause");
    ASSERT_TRUE(eventually([&] { return follower.err().find("following on") != std::string::npos; }));
    EXPECT_EQ(tool::run("log write --timeout 0.5", "/tmp/input").status, 1);  // all pipes are full
    follower.send(SIGTERM);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_TRUE(nothing_is_there());
    close(paused);
}

TEST(ToolLogFollow, RefusesAPlaceThatIsTaken) {
    place::Terminal terminal;
    const auto refuses = [](const std::string &what) {
        const tool::Outcome outcome = tool::run("log follow");
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, HasSubstr("/tmp/tty.logman is there already (" + what));
    };
    set_switch("dbgprint=1\n");
    place::write_file(TERMINAL, "kept");
    refuses("file)");
    EXPECT_EQ(place::read_file(TERMINAL), "kept");
    unlink(TERMINAL);

    ASSERT_EQ(symlink(terminal.path().c_str(), TERMINAL), 0);
    refuses("terminal, link to " + terminal.path() + ")");
    EXPECT_TRUE(is_link());
    unlink(TERMINAL);

    ASSERT_EQ(mkdir(TERMINAL, 0755), 0);
    refuses("other)");
    EXPECT_EQ(tool::run("log follow --replace").status, 2);
    EXPECT_THAT(files_in("/tmp"), Not(testing::Contains(StartsWith("tty.logman."))));
}

TEST(ToolLogFollow, RefusesASecondFollower) {
    Follower follower;
    EXPECT_EQ(tool::run("log follow").status, 2);
    EXPECT_TRUE(is_link());
}

TEST(ToolLogFollow, TakesALinkThatLeadsNowhere) {
    ASSERT_EQ(symlink("/dev/pts/4711", TERMINAL), 0);
    set_switch("dbgprint=1\n");
    Follower follower("--count 1");
    EXPECT_EQ(tool::run("log write x").status, 0);
    EXPECT_EQ(follower.wait(), 0);
    EXPECT_TRUE(nothing_is_there());
}

TEST(ToolLogFollow, ReplacesAFileWhenAskedTo) {
    place::write_file(TERMINAL, "old");
    Follower follower("--replace");
    EXPECT_TRUE(is_link());
}

TEST(ToolLogFollow, LeavesNoLinkBehindWhenItCannotCallProcesses) {
    make_unreadable_switch();
    const tool::Outcome outcome = tool::run("log follow");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("cannot read /dvrfile/logman: error 6, "));
    EXPECT_TRUE(nothing_is_there());
}

// Even a follower that could not tidy up leaves no process. Its link is in the way only if another terminal has got the
// number meanwhile.
TEST(ToolLogFollow, LeavesOnlyALinkWhenItIsKilled) {
    Follower killed;
    const json holders = status_now()["holders"];
    ASSERT_EQ(holders.size(), 1U);
    const std::string keeper = "/proc/" + holders[0]["pid"].dump();
    killed.send(SIGKILL);
    EXPECT_EQ(killed.wait(), 128 + SIGKILL);
    EXPECT_TRUE(eventually([&] { return !place::exists(keeper); }));
    EXPECT_TRUE(is_link());
    Follower next("--replace");
    EXPECT_EQ(status_now()["terminal"]["kind"], "terminal");
}

}  // namespace
