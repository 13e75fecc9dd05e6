// velkor ini, as a person or a script uses it: the real tool on real files and file systems.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/configuration.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/ini_lockstep.h"
#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using place::read_file;
using place::write_file;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using namespace std::string_literals;

const std::string DIRECTORY = "/dvrfile";
const std::string INI = "/dvrfile/net.ini";

constexpr const char *SAMPLE =
    "; head\n[Net] ; wired\n  IP = 1.2.3.4 ; the address\nBanner=\"a; b\" # c\n\n[Video]\nFps = 25\nOn = yes\n";

tool::Outcome ini(const std::string &arguments) { return tool::run("ini " + arguments); }

std::vector<std::string> files_in(const std::string &directory) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
}

// What `set` or `unset` made of a file.
std::string changed(const std::string &content, const std::string &arguments) {
    write_file(INI, content);
    const size_t space = arguments.find(' ');
    const tool::Outcome outcome = ini(arguments.substr(0, space) + " " + INI + arguments.substr(space));
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(files_in(DIRECTORY), ElementsAre("net.ini"));
    return read_file(INI);
}

// The file stays as it was, and the tool says why.
std::string refusal(const std::string &content, const std::string &arguments, int status = 1) {
    write_file(INI, content);
    const size_t space = arguments.find(' ');
    const tool::Outcome outcome = ini(arguments.substr(0, space) + " " + INI + arguments.substr(space));
    EXPECT_EQ(outcome.status, status) << arguments;
    EXPECT_THAT(outcome.err, StartsWith("velkor: "));
    EXPECT_EQ(read_file(INI), content);
    EXPECT_THAT(files_in(DIRECTORY), ElementsAre("net.ini"));
    return outcome.err;
}

// ---- The command line ----

TEST(ToolIni, HelpsEverywhere) {
    for (const std::string command : {"", "get", "set", "unset", "sections", "list", "check", "diff"}) {
        const tool::Outcome help = ini(command + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_THAT(help.out, AllOf(HasSubstr("Usage: velkor ini"), HasSubstr(command)));
    }
}

TEST(ToolIni, AnswersTwoToBadUse) {
    write_file(INI, SAMPLE);
    for (const std::string command :
         {"", "gett", "get", "get /dvrfile/net.ini", "get /dvrfile/net.ini a b", "set /dvrfile/net.ini net:ip",
          "set /dvrfile/net.ini net value", "set /dvrfile/net.ini net:ip 'two\nlines'", "list",
          "get /dvrfile/net.ini net:ip --type colour", "diff /dvrfile/net.ini --colour red"}) {
        const tool::Outcome outcome = ini(command);
        EXPECT_EQ(outcome.status, 2) << command;
        EXPECT_THAT(outcome.err, StartsWith("velkor: "));
    }
    EXPECT_EQ(read_file(INI), SAMPLE);
}

TEST(ToolIni, SaysWhichFileCannotBeRead) {
    for (const std::string command : {"get /dvrfile/none.ini a:b", "set /dvrfile/none.ini a:b c",
                                      "unset /dvrfile/none.ini a:b", "sections /dvrfile/none.ini",
                                      "list /dvrfile/none.ini", "check /dvrfile/none.ini", "diff /dvrfile/none.ini"}) {
        const tool::Outcome outcome = ini(command);
        EXPECT_EQ(outcome.status, 1) << command;
        EXPECT_THAT(outcome.err, AllOf(HasSubstr("/dvrfile/none.ini"), HasSubstr("No such file"))) << command;
    }
    EXPECT_EQ(ini("list /dvrfile").status, 1) << "a directory is no empty file";
    EXPECT_THAT(files_in(DIRECTORY), IsEmpty());
}

// ---- get ----

TEST(ToolIniGet, PrintsTheValue) {
    write_file(INI, SAMPLE);
    EXPECT_EQ(ini("get /dvrfile/net.ini NET:ip").out, "1.2.3.4\n");
    EXPECT_EQ(ini("get /dvrfile/net.ini net:banner").out, "a; b\n");
    EXPECT_EQ(json::parse(ini("get /dvrfile/net.ini Net:IP --json").out),
              json({{"key", "net:ip"}, {"value", "1.2.3.4"}}));
}

TEST(ToolIniGet, ReadsAsAProcessDoes) {
    write_file(INI, SAMPLE);
    EXPECT_EQ(ini("get /dvrfile/net.ini video:fps --type int").out, "25\n");
    EXPECT_EQ(ini("get /dvrfile/net.ini video:on --type boolean").out, "true\n");
    EXPECT_EQ(json::parse(ini("get /dvrfile/net.ini video:fps --type double --json").out)["value"], 25.0);
    const tool::Outcome cut = ini("get /dvrfile/net.ini net:ip --type int");
    EXPECT_EQ(cut.out, "1\n");
    EXPECT_THAT(cut.err, HasSubstr("not all a number"));
    const tool::Outcome neither = ini("get /dvrfile/net.ini net:banner --type boolean");
    EXPECT_EQ(neither.status, 1);
    EXPECT_THAT(neither.err, HasSubstr("neither yes nor no"));
}

TEST(ToolIniGet, AnswersOneForWhatHasNoValue) {
    write_file(INI, SAMPLE);
    EXPECT_THAT(ini("get /dvrfile/net.ini net:none").err, HasSubstr("no \"net:none\""));
    for (const std::string type : {"string", "int", "double", "boolean"}) {
        const tool::Outcome section = ini("get /dvrfile/net.ini net --type " + type);
        EXPECT_EQ(section.status, 1);
        EXPECT_THAT(section.err, HasSubstr("is a section"));
    }
}

// ---- sections, list ----

TEST(ToolIniList, PrintsWhatIsThere) {
    write_file(INI, SAMPLE);
    EXPECT_EQ(ini("sections /dvrfile/net.ini").out, "net\nvideo\n");
    EXPECT_EQ(json::parse(ini("sections /dvrfile/net.ini --json").out), json({"net", "video"}));
    EXPECT_EQ(ini("list /dvrfile/net.ini").out,
              "net:ip      \"1.2.3.4\"\nnet:banner  \"a; b\"\nvideo:fps   \"25\"\nvideo:on    \"yes\"\n");
    const json list = json::parse(ini("list /dvrfile/net.ini --json").out);
    EXPECT_EQ(list.size(), 6U);
    EXPECT_EQ(list[0], json({{"key", "net"}, {"value", nullptr}}));
    EXPECT_EQ(list[1], json({{"key", "net:ip"}, {"value", "1.2.3.4"}}));
}

TEST(ToolIniList, KeepsTheTerminalSafe) {
    write_file(INI, "[\033[2Js]\nk = \033[31m\n");
    EXPECT_THAT(ini("list /dvrfile/net.ini").out, HasSubstr("\"^[[31m\""));
    write_file(INI, "[s]\nk = \xe9\n");
    EXPECT_EQ(json::parse(ini("list /dvrfile/net.ini --json").out)[1]["value"], "\xEF\xBF\xBD");
}

// ---- set ----

TEST(ToolIniSet, LeavesEveryOtherByteAlone) {
    EXPECT_EQ(
        changed(SAMPLE, "set NET:ip 5.6.7.8"),
        "; head\n[Net] ; wired\n  IP = 5.6.7.8 ; the address\nBanner=\"a; b\" # c\n\n[Video]\nFps = 25\nOn = yes\n");
    EXPECT_EQ(changed("[s]\r\nk\t=\told\t; c\r\nl = 1\r\n", "set s:k new"), "[s]\r\nk\t=\tnew\t; c\r\nl = 1\r\n");
    EXPECT_EQ(changed("\xEF\xBB\xBF[s]\nk=1", "set s:k 2"), "\xEF\xBB\xBF[s]\nk=2");
    EXPECT_EQ(changed("[s]\nk=1\nK=2\n; \0 zero\n"s, "set s:k 3"), "[s]\nk=3\nK=2\n; \0 zero\n"s);
}

TEST(ToolIniSet, QuotesWhatNeedsIt) {
    EXPECT_EQ(changed("[s]\nk = 1 ; c\n", "set s:k 'a; b'"), "[s]\nk = \"a; b\" ; c\n");
    EXPECT_EQ(changed("[s]\nk = 1\n", "set s:k 'a; \"b\"'"), "[s]\nk = 'a; \"b\"'\n");
    EXPECT_EQ(changed("[s]\nk = 'x' y\n", "set s:k z"), "[s]\nk = 'z' y\n");
    EXPECT_EQ(changed("[s]\nk = \"x\"\n", "set s:k \"it's\""), "[s]\nk = \"it's\"\n");
    EXPECT_EQ(changed("[s]\nk = 1\n", "set s:k '  x'"), "[s]\nk = \"  x\"\n");
    EXPECT_EQ(changed("[s]\nk = 1\n", "set -- s:k -5"), "[s]\nk = -5\n");
}

TEST(ToolIniSet, WritesAnEmptyValueInTheOneWayThatReads) {
    EXPECT_EQ(changed("[s]\nk = 1 ; c\n", "set s:k ''"), "[s]\nk = \"\"; c\n");
    EXPECT_EQ(changed("[s]\nk = 1\n", "set s:k ''"), "[s]\nk = \"\";\n");
    EXPECT_EQ(ini("get /dvrfile/net.ini s:k").out, "\n");
}

TEST(ToolIniSet, AddsASettingToItsSection) {
    EXPECT_EQ(changed("[a]\nx = 1\n; about b\n[b]\ny = 2\n", "set a:Z 3"),
              "[a]\nx = 1\nZ = 3\n; about b\n[b]\ny = 2\n");
    EXPECT_EQ(changed("[a]\n[b]\n[A]\n", "set a:z 3"), "[a]\nz = 3\n[b]\n[A]\n");
    EXPECT_EQ(changed("[a]\nx = 1", "set a:z 3"), "[a]\nx = 1\nz = 3\n");
    EXPECT_EQ(changed("[a:b]\n[a]\n", "set a:b:c 3"), "[a:b]\nc = 3\n[a]\n");
    EXPECT_EQ(changed("\xEF\xBB\xBF; c\n[a]\n", "set :z 3"), "\xEF\xBB\xBFz = 3\n; c\n[a]\n");
    EXPECT_EQ(changed("x = 1\n[a]\n", "set :z 3"), "x = 1\nz = 3\n[a]\n");
}

TEST(ToolIniSet, AddsASectionToTheFile) {
    EXPECT_EQ(changed("[a]\r\nx = 1\r\n", "set B:z 3"), "[a]\r\nx = 1\r\n\r\n[B]\r\nz = 3\r\n");
    EXPECT_EQ(changed("", "set b:z 3"), "[b]\nz = 3\n");
    EXPECT_EQ(changed("[a]\nx = 1", "set b:z 3"), "[a]\nx = 1\n\n[b]\nz = 3\n");
}

TEST(ToolIniSet, WritesNothingWhenItIsSoAlready) {
    write_file(INI, SAMPLE);
    struct stat before;
    stat(INI.c_str(), &before);
    EXPECT_EQ(json::parse(ini("set /dvrfile/net.ini net:ip 1.2.3.4 --json").out)["changed"], false);
    struct stat after;
    stat(INI.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(json::parse(ini("set /dvrfile/net.ini net:ip 4 --json").out)["changed"], true);
    EXPECT_EQ(ini("set /dvrfile/net.ini net:ip 4").out, "/dvrfile/net.ini is so already\n");
}

TEST(ToolIniSet, RefusesWhatNoProcessWouldReadAsTyped) {
    EXPECT_THAT(refusal(SAMPLE, "set net:ip 'ends in a blank '"), HasSubstr("cannot hold this"));
    refusal(SAMPLE, "set net:ip '; both \" and '\\'");
    refusal("[s]\nk = 1", "set s:k '\"\"'");  // at the end of a file they read as nothing
    refusal(SAMPLE, "set 'net:a=b' c");
    refusal(SAMPLE, "set 'net:;a' c");
    refusal(SAMPLE, "set 'n]et:a' c");
    refusal(SAMPLE, "set net: c");
    refusal(SAMPLE, "set net:ip " + std::string(513, 'x'));
}

TEST(ToolIniSet, KeepsCommentsOfAnyLength) {
    for (const size_t length : {511U, 512U, 513U, 1000U, 1100U, 3000U}) {
        const std::string comment = " ; " + std::string(length, 'c') + "\n";
        EXPECT_EQ(changed("[s]\nk = 1" + comment, "set s:k 12345"), "[s]\nk = 12345" + comment);
    }
}

TEST(ToolIniSet, KeepsModeAndOwner) {
    write_file(INI, SAMPLE);
    ASSERT_EQ(chmod(INI.c_str(), 0640), 0);
    const bool may_give_away = chown(INI.c_str(), 1, 2) == 0;  // as root on a machine with more than one user
    const auto expect_kept = [&](uid_t owner, gid_t group) {
        struct stat status;
        stat(INI.c_str(), &status);
        EXPECT_EQ(status.st_mode & 07777, 0640U);
        EXPECT_EQ(status.st_uid, may_give_away ? owner : geteuid());
        EXPECT_EQ(status.st_gid, may_give_away ? group : getegid());
    };
    ASSERT_EQ(ini("set /dvrfile/net.ini net:ip 5").status, 0);
    expect_kept(1, 2);
    if (may_give_away) {  // new files in the directory belong to its group
        ASSERT_EQ(chown(INI.c_str(), 0, 0), 0);
        ASSERT_EQ(chown(DIRECTORY.c_str(), 0, 3), 0);
        ASSERT_EQ(chmod(DIRECTORY.c_str(), 02755), 0);
        ASSERT_EQ(ini("set /dvrfile/net.ini net:ip 6").status, 0);
        expect_kept(0, 0);
    }
}

TEST(ToolIniSet, FollowsALink) {
    write_file("/dvr/real.ini", SAMPLE);
    ASSERT_EQ(symlink("/dvr/real.ini", INI.c_str()), 0);
    ASSERT_EQ(ini("set /dvrfile/net.ini net:ip 5").status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(INI));
    EXPECT_THAT(read_file("/dvr/real.ini"), HasSubstr("IP = 5 ;"));
}

TEST(ToolIniSet, TakesRegularFilesOnly) {
    ASSERT_EQ(mkfifo(INI.c_str(), 0600), 0);
    const tool::Outcome outcome = ini("set /dvrfile/net.ini a:b c");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("no regular file"));
}

// ---- set, when it goes wrong ----

class SmallDisk {
public:
    explicit SmallDisk(const char *options) { EXPECT_EQ(mount("small", "/dvr", "tmpfs", 0, options), 0); }
    ~SmallDisk() { umount2("/dvr", MNT_DETACH); }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    static void fill() {
        const int descriptor = open("/dvr/filler", O_WRONLY | O_CREAT, 0600);
        const std::string block(4096, 'x');
        while (write(descriptor, block.data(), block.size()) > 0) {
        }
        close(descriptor);
    }
};

TEST(ToolIniSet, LosesNothingOnAFullDisk) {
    const SmallDisk disk("size=64k");
    write_file("/dvr/net.ini", SAMPLE);
    SmallDisk::fill();
    const tool::Outcome outcome = ini("set /dvr/net.ini net:ip 5");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("No space left"));
    EXPECT_EQ(read_file("/dvr/net.ini"), SAMPLE);
    EXPECT_THAT(files_in("/dvr"), ElementsAre("filler", "net.ini"));
}

TEST(ToolIniSet, LosesNothingWithoutRoomForAnotherName) {
    const SmallDisk disk("nr_inodes=2");
    write_file("/dvr/net.ini", SAMPLE);
    EXPECT_EQ(ini("set /dvr/net.ini net:ip 5").status, 1);
    EXPECT_EQ(read_file("/dvr/net.ini"), SAMPLE);
}

TEST(ToolIniSet, LosesNothingOnAReadOnlyDisk) {
    const SmallDisk disk("size=64k");
    write_file("/dvr/net.ini", SAMPLE);
    ASSERT_EQ(mount("small", "/dvr", "tmpfs", MS_REMOUNT | MS_RDONLY, "size=64k"), 0);
    const tool::Outcome outcome = ini("set /dvr/net.ini net:ip 5");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("Read-only"));
    EXPECT_EQ(read_file("/dvr/net.ini"), SAMPLE);
}

#ifdef __arm__
// The emulator knows no tracing: at moments spread over the whole run instead.
bool set_killed_at(int moment) {
    tool::Running running("ini set /dvrfile/net.ini net:ip 5");
    usleep(static_cast<useconds_t>(moment) * 100'000);
    running.send(SIGKILL);
    return running.wait() == 128 + SIGKILL;
}
#else
// Kills the tool at a call of the system, counted from the one that made the file beside. False when it ended before.
bool set_killed_at(int call) {
    const pid_t tool = fork();
    if (tool == 0) {
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // the leak checker wants to trace the process itself
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        execl(VELKOR_TOOL_COMMAND, "velkor", "ini", "set", INI.c_str(), "net:ip", "5", static_cast<char *>(nullptr));
        _exit(127);
    }
    int stops_left = 2 * call;  // at the begin and at the end of each call
    int status = 0;
    for (bool begun = false; waitpid(tool, &status, 0) == tool && WIFSTOPPED(status);) {
        begun = begun || files_in(DIRECTORY).size() > 1;
        if (begun && stops_left-- == 0) {
            kill(tool, SIGKILL);
            return waitpid(tool, &status, 0) == tool && WIFSIGNALED(status);
        }
        ptrace(PTRACE_SYSCALL, tool, nullptr, nullptr);
    }
    return false;
}
#endif

TEST(ToolIniSet, LosesNothingWhereverItIsKilled) {
    const std::string new_content = changed(SAMPLE, "set net:ip 5");
    bool is_killed = true;
    bool is_replaced = false;
    int kills = 0;
    for (; is_killed && !is_replaced; ++kills) {
        for (const std::string &name : files_in(DIRECTORY)) {
            ASSERT_TRUE(std::filesystem::remove(std::filesystem::path(DIRECTORY) / name));
        }
        write_file(INI, SAMPLE);
        is_killed = set_killed_at(kills);
        const std::string content = read_file(INI);
        is_replaced = content == new_content;
        EXPECT_TRUE(is_replaced || content == SAMPLE) << content;
    }
    EXPECT_TRUE(is_replaced);
    EXPECT_GT(kills, 1);
}

// ---- unset ----

TEST(ToolIniUnset, RemovesTheSettingAndItsRepetitions) {
    EXPECT_EQ(changed("[s]\nk = 1\n; c\nK = 2 ; d\nl = 3\n[S]\nk = 4\n", "unset s:K"), "[s]\n; c\nl = 3\n[S]\n");
}

TEST(ToolIniUnset, RemovesASectionWithAllInIt) {
    EXPECT_EQ(changed("[a]\nx = 1\n[b]\ny = 2\n; c\n\n[A]\nz = 3\n[d]\n", "unset A"), "[b]\ny = 2\n; c\n\n[d]\n");
}

TEST(ToolIniUnset, AnswersOneForWhatIsNotThere) {
    EXPECT_THAT(refusal(SAMPLE, "unset net:none"), HasSubstr("there is no \"net:none\""));
    refusal(SAMPLE, "unset none");
}

// ---- check ----

std::vector<std::string> notes_on(const std::string &content) {
    write_file(INI, content);
    const tool::Outcome outcome = ini("check /dvrfile/net.ini --json");
    const json answer = json::parse(outcome.out);
    std::vector<std::string> notes;
    for (const json &note : answer["notes"]) {
        notes.push_back(std::to_string(note["line"].get<int>()) + ": " + note["why"].get<std::string>());
    }
    EXPECT_EQ(outcome.status, notes.empty() ? 0 : 1);
    return notes;
}

TEST(ToolIniCheck, IsSilentOnAFileThatKeeps) {
    EXPECT_THAT(notes_on("; head\n\n[s] ; c\nkey = v\n\n  # d\nl = 2\n[t]\n"), IsEmpty());
    EXPECT_THAT(notes_on(""), IsEmpty());
}

TEST(ToolIniCheck, TellsWhatALoadDrops) {
    EXPECT_THAT(
        notes_on("[s]\nk = 1\nK = 2\n[S]\nk = 3\n"),
        ElementsAre("3: dropped: repeats line 2", "4: the section of line 1 goes on", "5: dropped: repeats line 2"));
    EXPECT_THAT(
        notes_on("[s]\nword\nk =\n= v\nl = ; c\n"),
        ElementsAre("2: no \"=\": kept as a blank line only", "3: no value: kept as a blank line only",
                    "4: no name before \"=\": kept as a blank line only", "5: no value: kept as a blank line only"));
    EXPECT_THAT(notes_on("[s]\nk = 1\0 2\n"s),
                ElementsAre("2: a zero byte ends the line: what follows on it is dropped"));
    EXPECT_THAT(notes_on("[open\n"), testing::Contains("1: no \"]\": the name runs to the end of the line"));
}

TEST(ToolIniCheck, TellsWhatIsTooLong) {
    const std::string long_text(600, 'x');
    EXPECT_THAT(notes_on(";" + long_text + "\n"),
                ElementsAre("1: a comment keeps 512 characters, and not its line end"));
    EXPECT_THAT(notes_on("[" + long_text + "]\n"), ElementsAre("1: a name keeps 512 characters"));
    EXPECT_THAT(notes_on("[s]\nk = " + long_text + "\n"),
                ElementsAre("2: a value keeps 512 characters: the rest is kept behind it like a comment, 512 of it"));
    EXPECT_THAT(notes_on("[s]\nk = \"" + long_text + "\"\n"),
                ElementsAre("2: a value in quotes keeps 512 characters: the rest is dropped"));
    EXPECT_THAT(notes_on("[s]\nk = 1 ; " + long_text + "\n"), ElementsAre("2: a comment keeps 512 characters"));
    EXPECT_THAT(notes_on("[s] ; " + long_text + "\n"), ElementsAre("1: a comment keeps 512 characters"));
    const std::string just_fits(512, 'x');
    EXPECT_THAT(notes_on("[" + just_fits + "]\nkey = \"" + just_fits + "\"\nlast = " + just_fits + "\n"), IsEmpty());
    EXPECT_THAT(notes_on("[" + just_fits.substr(1) + "\n"),
                ElementsAre("1: no \"]\": the name runs to the end of the line"));
    EXPECT_THAT(notes_on("[s]\n" + long_text + " = 1\n"),
                ElementsAre("2: a name of more than 512 characters: kept as a blank line only"));
    EXPECT_THAT(
        notes_on("[s]\nk = 1 ; " + std::string(1100, 'c') + "\n"),
        testing::Contains("2: the line is longer than 1023 characters: this rest is read as a line of its own"));
}

TEST(ToolIniCheck, TellsWhatAWriteBackLoses) {
    EXPECT_THAT(
        notes_on("k = 1\n; c\n[s]\n"),
        ElementsAre("1: stands before the first section: a write-back drops it",
                    "2: a write-back loses the comment: it does not follow a section or setting that is written"));
    EXPECT_THAT(notes_on("k = 1\n"),
                ElementsAre("1: there is no section: a write-back writes it twice, under another name"));
    EXPECT_THAT(notes_on("[s]\n[a:b]\nk = 1\n"),
                ElementsAre("2: a section whose name holds a \":\" is no section for a write-back: it drops it",
                            "3: a write-back drops it"));
    EXPECT_THAT(notes_on("[s]\nk = \"a; b\"\nl = \"  c\"\nm = \"\";\n"),
                ElementsAre("2: reads \"a\" after a write-back", "3: reads \"c\" after a write-back",
                            "4: an empty value is written as blanks, which read as nothing: a write-back loses it"));
    EXPECT_THAT(notes_on("[s]\nword\n; c\n"),
                testing::Contains("3: a write-back loses the comment: it does not follow a section or setting that is "
                                  "written"));
}

TEST(ToolIniCheck, NamesTheLineForPeople) {
    write_file(INI, "[s]\nk =\n");
    EXPECT_EQ(ini("check /dvrfile/net.ini").out, "/dvrfile/net.ini:2: no value: kept as a blank line only\n    k =\n");
}

// What the tool says is lost must be lost, and nothing else.
TEST(ToolIniCheck, IsSilentExactlyWhenAWriteBackKeepsEverySetting) {
    for (const std::string content : {"[a]\nx = 1\n", "[a]\nx = 'y'\n", "[a]\nx = ' y'\n", "[a]\nx = '\"y\"'\n",
                                      "x = 1\n", "[a]\nx=1 ; y\n", "[a]\nx = \"\";\n", "[a]\nx = \"''\" \n"}) {
        write_file(INI, content);
        const ini::Owned d(iniparser_load(INI.c_str()));
        const std::string before = ini::printed(iniparser_dump, d.get());
        const bool is_silent = notes_on(content).empty();
        write_file(INI, ini::printed(iniparser_dump_ini, d.get()));
        const ini::Owned again(iniparser_load(INI.c_str()));
        EXPECT_EQ(is_silent, ini::printed(iniparser_dump, again.get()) == before) << content;
    }
}

// ---- diff ----

TEST(ToolIniDiff, ShowsWhatAWriteBackWouldChange) {
    write_file(INI, "; head\n[s]\nkey = v1\nK = 1 ; c\n\nlast = 22\n");
    const tool::Outcome diff = ini("diff /dvrfile/net.ini");
    EXPECT_EQ(diff.status, 1);
    EXPECT_EQ(diff.out, " ; head\n [s]\n key = v1\n-K = 1 ; c\n-\n+k  = 1 ; c\n+^M\n last = 22\n");
    EXPECT_EQ(json::parse(ini("diff /dvrfile/net.ini --json").out)["changes"],
              json::parse(R"([{"change":"removed","text":"K = 1 ; c\n"},{"change":"removed","text":"\n"},
                              {"change":"added","text":"k  = 1 ; c\n"},{"change":"added","text":"\r\n"}])"));
    EXPECT_THAT(ini("diff /dvrfile/net.ini --colour always").out, HasSubstr("\033[1;31m-K = 1 ; c\033[0m\n"));
}

TEST(ToolIniDiff, IsSilentOnAFileThatAProcessWrote) {
    write_file(INI, "[s]\nkey = v1\n\r\n");
    const tool::Outcome diff = ini("diff /dvrfile/net.ini");
    EXPECT_EQ(diff.status, 0);
    EXPECT_THAT(diff.out, IsEmpty());
}

TEST(ToolIniDiff, FindsLinesThatMoved) {
    write_file(INI, "[a]\nk1 = 11\n[b]\nk2 = 22\n[a]\nk3 = 33\n");
    EXPECT_EQ(ini("diff /dvrfile/net.ini").out, " [a]\n k1 = 11\n+k3 = 33\n [b]\n k2 = 22\n-[a]\n-k3 = 33\n");
}

}  // namespace
