// velkor copy, du and rm, as a person or a script uses them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/place.h"
#include "support/tool.h"

namespace {

using nlohmann::json;
using place::eventually;
using tool::Outcome;

bool holds(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::string text_of(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>(i * 7 % 251);
    }
    return text;
}

// A destination that takes nothing until it is told to.
class SlowDestination {
public:
    explicit SlowDestination(const char *path) {
        EXPECT_EQ(mkfifo(path, 0600), 0);
        descriptor_ = open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
        EXPECT_GE(descriptor_, 0);
    }
    ~SlowDestination() { close(descriptor_); }
    SlowDestination(const SlowDestination &) = delete;
    SlowDestination &operator=(const SlowDestination &) = delete;

    // A first bit has come: the copy is under way.
    bool is_written_to() const {
        struct pollfd waiting = {descriptor_, POLLIN, 0};
        return poll(&waiting, 1, 0) > 0;
    }

    // Takes all that comes until the tool has ended; answers how much that was.
    size_t take(const tool::Running &running) const {
        size_t taken = 0;
        EXPECT_TRUE(eventually([&] {
            char piece[65536];
            for (ssize_t length; (length = read(descriptor_, piece, sizeof piece)) > 0;) {
                taken += static_cast<size_t>(length);
            }
            siginfo_t ended = {};
            return waitid(P_PID, static_cast<id_t>(running.process()), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                   ended.si_pid == running.process();
        }));
        return taken;
    }

private:
    int descriptor_;
};

// ---- copy ----

TEST(ToolCopy, CopiesIntoAFileAndIntoADirectory) {
    const std::string content = text_of(600000);
    place::write_file("/tmp/source", content);
    const Outcome outcome = tool::run("copy /tmp/source /tmp/destination");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(outcome.out.starts_with("/tmp/destination: 585.9 KiB, ")) << outcome.out;
    EXPECT_TRUE(place::read_file("/tmp/destination") == content);
    ASSERT_EQ(mkdir("/tmp/directory", 0755), 0);
    const Outcome second = tool::run("copy --json --size 10 /tmp/source /tmp/directory");
    EXPECT_EQ(second.status, 0);
    const json report = json::parse(second.out);
    EXPECT_EQ(report["destination"], "/tmp/directory/source");
    EXPECT_EQ(report["code"], 0);
    EXPECT_EQ(report["bytes"], 10);
    EXPECT_EQ(place::read_file("/tmp/directory/source"), content.substr(0, 10));
    EXPECT_EQ(tool::run("copy --quiet /tmp/source /tmp/destination").out, "");
}

TEST(ToolCopy, SaysWhatACodeMeans) {
    place::write_file("/tmp/source", text_of(600000));
    ASSERT_EQ(mkdir("/tmp/small", 0755), 0);
    ASSERT_EQ(mount("velkor", "/tmp/small", "tmpfs", 0, "size=64k"), 0);
    ASSERT_EQ(mkdir("/tmp/directory", 0755), 0);
    const struct {
        const char *arguments;
        const char *remark;
    } uses[] = {
        {"/tmp/none /tmp/x", "velkor: not copied, code -8: the source cannot be examined: is it there?\n"},
        {"/tmp/source /tmp/none/x", "velkor: not copied, code -2: the destination cannot be opened\n"},
        {"/tmp/source /tmp/small",
         "velkor: not copied, code -3: ten attempts to write in a row fell short: is the disk full?\n"},
        {"--size 9 /tmp/directory /tmp/x", "velkor: not copied, code -4: the source cannot be read\n"},
    };
    for (const auto &use : uses) {
        const Outcome outcome = tool::run(std::string("copy ") + use.arguments);
        EXPECT_EQ(outcome.status, 1) << use.arguments;
        EXPECT_EQ(outcome.err, use.remark);
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(ToolCopy, RefusesAFileOntoItself) {
    place::write_file("/tmp/source", "text");
    ASSERT_EQ(symlink("source", "/tmp/link"), 0);
    for (const char *const destination : {"/tmp/source", "/tmp/link", "/tmp"}) {
        EXPECT_EQ(tool::run(std::string("copy /tmp/source ") + destination).status, 2);
        EXPECT_EQ(place::read_file("/tmp/source"), "text");
    }
}

TEST(ToolCopy, TakesADeviceForItsDestinationOnlyWhereNothingRemovesIt) {
    place::write_file("/tmp/source", "text");
    const Outcome refused = tool::run("copy /tmp/source /dev/null");
    EXPECT_EQ(refused.status, 2);
    EXPECT_TRUE(holds(refused.err, "/dev/null is a device")) << refused.err;
    EXPECT_EQ(tool::run("copy --no-cancel /tmp/source /dev/null").status, 0);
}

TEST(ToolCopy, IsCancelledByCtrlCAndRemovesThePart) {
    place::write_file("/tmp/source", text_of(4 << 20));
    const SlowDestination destination("/tmp/destination");
    tool::Running running("copy /tmp/source /tmp/destination");
    ASSERT_TRUE(eventually([&] { return destination.is_written_to(); }));
    running.send(SIGINT);
    ASSERT_TRUE(eventually([&] { return holds(running.err(), "cancelling"); }));
    EXPECT_EQ(destination.take(running), size_t{512} * 1024);  // the block that was under way
    EXPECT_EQ(running.wait(), 1);
    EXPECT_TRUE(holds(running.err(), "velkor: cancelled, /tmp/destination is removed")) << running.err();
    EXPECT_FALSE(place::exists("/tmp/destination"));
}

TEST(ToolCopy, GoesOnAfterCtrlCWhenItIsToldTo) {
    place::write_file("/tmp/source", text_of(2 << 20));
    const SlowDestination destination("/tmp/destination");
    tool::Running running("copy --no-cancel /tmp/source /tmp/destination");
    ASSERT_TRUE(eventually([&] { return destination.is_written_to(); }));
    running.send(SIGINT);
    ASSERT_TRUE(eventually([&] { return holds(running.err(), "not cancelable"); }));
    EXPECT_EQ(destination.take(running), size_t{2} << 20);
    EXPECT_EQ(running.wait(), 0);
    EXPECT_TRUE(place::exists("/tmp/destination"));
}

// Out of a pipe, so that the copy is known to wait.
TEST(ToolCopy, LeavesAPartWhenItIsKilled) {
    const tool::Feed source("/tmp/source");
    tool::Running running("copy --size 1000000 /tmp/source /tmp/destination");
    const std::string content = text_of(50000);
    source.write(content);
    ASSERT_TRUE(eventually([&] {
        return place::exists("/tmp/destination") && place::read_file("/tmp/destination").size() == content.size();
    }));
    place::output_of("pkill -KILL -P " + std::to_string(running.process()) + " || kill -KILL " +
                     std::to_string(running.process()));
    EXPECT_EQ(running.wait(), 128 + SIGKILL);
    EXPECT_TRUE(place::read_file("/tmp/destination") == content);
}

TEST(ToolCopy, ShowsItsProgressOnATerminal) {
    place::Terminal terminal;
    const tool::Feed source("/tmp/source");
    tool::Running running("copy --size 100000 /tmp/source /tmp/destination 2>" + terminal.path());
    source.write(text_of(50000));
    const std::string shown = terminal.read_until(" left\033[K");
    EXPECT_TRUE(holds(shown, "\r[###############---------------] 50 %  48.8 KiB of 97.7 KiB  ")) << shown;
    source.write(text_of(50000));
    EXPECT_EQ(running.wait(), 0);
    EXPECT_TRUE(terminal.read_until("\r\033[K").ends_with("\r\033[K"));
}

// ---- du ----

TEST(ToolDu, MeasuresInAllUnits) {
    place::write_file("/tmp/file", text_of(size_t{600} * 1024));
    EXPECT_EQ(tool::run("du /tmp/file").out, "600.0 KiB\t/tmp/file\n");
    EXPECT_EQ(tool::run("du --unit k /tmp/file").out, "600\t/tmp/file\n");
    EXPECT_EQ(tool::run("du --unit b /tmp/file").out, "614400\t/tmp/file\n");
    EXPECT_EQ(tool::run("du --unit m /tmp/file").out, "1\t/tmp/file\n");
    EXPECT_EQ(json::parse(tool::run("du --json /tmp/file").out),
              json::parse(R"([{"path": "/tmp/file", "size": 600, "unit": "k"}])"));
    ASSERT_EQ(symlink("file", "/tmp/link"), 0);
    EXPECT_EQ(tool::run("du /tmp/link").out, "0 B\t/tmp/link\n");
    EXPECT_EQ(tool::run("du --follow /tmp/link").out, "600.0 KiB\t/tmp/link\n");
}

TEST(ToolDu, GoesOnAfterAPathThatIsNotThere) {
    place::write_file("/tmp/file", "");
    const Outcome outcome = tool::run("du /tmp/none /tmp/file");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "velkor: cannot examine /tmp/none: error 2, No such file or directory\n");
    EXPECT_EQ(outcome.out, "0 B\t/tmp/file\n");
    EXPECT_EQ(tool::run("du").status, 2);
    EXPECT_EQ(tool::run("du --unit x /tmp").status, 2);
}

// ---- rm ----

TEST(ToolRm, AsksBeforeItRemoves) {
    ASSERT_EQ(mkdir("/tmp/tree", 0755), 0);
    place::write_file("/tmp/tree/file", "text");
    place::write_file("/tmp/no", "n\n");
    const Outcome refused = tool::run("rm /tmp/tree", "/tmp/no");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(holds(refused.err, "remove directory /tmp/tree, 4.0 KiB? [y/N] velkor: /tmp/tree stays\n"))
        << refused.err;
    EXPECT_EQ(tool::run("rm /tmp/tree").status, 1);  // no answer
    EXPECT_TRUE(place::exists("/tmp/tree/file"));
    place::write_file("/tmp/yes", "y\n");
    EXPECT_EQ(tool::run("rm /tmp/tree", "/tmp/yes").status, 0);
    EXPECT_FALSE(place::exists("/tmp/tree"));
}

// Each is tried with a file in front of it, which must stay, too: nothing is removed before all is examined.
void expect_refused(const std::string &path, const std::string &why) {
    const Outcome outcome = tool::run("rm --yes /tmp/file " + path);
    EXPECT_EQ(outcome.status, 2) << path;
    EXPECT_TRUE(holds(outcome.err, why)) << path << ": " << outcome.err;
    EXPECT_TRUE(place::exists("/tmp/file")) << path;
}

TEST(ToolRm, RefusesTheRootAndNothingBeforeItRemovesAnything) {
    place::write_file("/tmp/file", "text");
    for (const char *const path : {"/", "//", "/tmp/../../", "/."}) {
        expect_refused(path, "not removed");
    }
    expect_refused("''", "an empty path is nothing to remove");
    EXPECT_EQ(tool::run("rm --yes").status, 2);
}

TEST(ToolRm, RefusesTheRootUnderAnotherName) {
    place::write_file("/tmp/file", "text");
    ASSERT_EQ(mkdir("/tmp/again", 0755), 0);
    ASSERT_EQ(mount("/", "/tmp/again", nullptr, MS_BIND | MS_REC, nullptr), 0);
    expect_refused("/tmp/again", "is the root of everything");
    expect_refused("--mounts /tmp/again", "is the root of everything");
}

TEST(ToolRm, RefusesTheWorkingDirectoryAndWhatHoldsIt) {
    place::write_file("/tmp/file", "text");
    ASSERT_EQ(mkdir("/tmp/above", 0755), 0);
    ASSERT_EQ(mkdir("/tmp/above/here", 0755), 0);
    ASSERT_EQ(symlink("above", "/tmp/link"), 0);
    ASSERT_EQ(symlink("/tmp", "/tmp/link_above"), 0);
    ASSERT_EQ(chdir("/tmp/above/here"), 0);
    for (const char *const path : {".", "..", "./", "../", "../..", "../../..", "../here/.", "/tmp/above/here/.."}) {
        expect_refused(path, "not removed");
    }
    for (const char *const path : {"/tmp/above", "/tmp/above/here", "../here", "/tmp/link/", "../../above/",
                                   "/tmp/link_above/above", "/tmp/above/here/../../above"}) {
        expect_refused(path, "holds the working directory");
    }
    EXPECT_TRUE(place::exists("/tmp/above/here"));
    EXPECT_EQ(tool::run("rm --yes /tmp/link").status, 0) << "a link is only a link";
    EXPECT_TRUE(place::exists("/tmp/above/here"));
}

TEST(ToolRm, RefusesWhereSomethingIsMountedUnlessItIsTold) {
    place::write_file("/tmp/file", "text");
    ASSERT_EQ(mkdir("/tmp/tree", 0755), 0);
    ASSERT_EQ(mkdir("/tmp/tree/a disk", 0755), 0);
    const place::BoundPath mounted("/tmp/tree/a disk", "/tmpfile");
    place::write_file("/tmpfile/kept", "text");
    expect_refused("/tmp/tree", "something is mounted at /tmp/tree/a disk");
    expect_refused("'/tmp/tree/a disk'", "something is mounted at /tmp/tree/a disk");
    ASSERT_EQ(symlink("tree", "/tmp/link"), 0);
    expect_refused("/tmp/link/", "something is mounted at /tmp/tree/a disk");
    EXPECT_TRUE(place::exists("/tmpfile/kept"));
    tool::run("rm --yes --mounts /tmp/tree");
    EXPECT_FALSE(place::exists("/tmpfile/kept"));
}

TEST(ToolRm, ReportsWhatStaysAndWhatWasNotThere) {
    EXPECT_EQ(tool::run("rm --yes /tmp/none").out, "/tmp/none was not there\n");
    EXPECT_EQ(tool::run("rm --yes /tmp/none/neither").out, "/tmp/none/neither was not there\n");
    ASSERT_EQ(mkdir("/tmp/tree", 0755), 0);
    ASSERT_EQ(mkdir("/tmp/tree/busy", 0755), 0);
    const place::BoundPath mounted("/tmp/tree/busy", "/tmpfile");
    const Outcome outcome = tool::run("rm --yes --mounts /tmp/tree");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "velkor: code -1: something of /tmp/tree could not be removed, the rest of it is gone\n");
}

}  // namespace
