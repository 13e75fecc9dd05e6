#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/stat.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <velkor/files.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/command_runner.h"
#include "support/log_capture.h"
#include "support/place.h"

namespace {

int64_t played_blocks = -1;  // negative: as many as there are

}  // namespace

// What is measured is asked here. Of the kernel, since boards' C libraries need not know statx().
extern "C" int fstatat(int directory, const char *name, struct stat *status, int flags) noexcept {
    struct statx real;
    if (syscall(SYS_statx, directory, name, flags, STATX_BASIC_STATS, &real) != 0) {
        return -1;
    }
    *status = {};
    status->st_mode = real.stx_mode;
    status->st_dev = makedev(real.stx_dev_major, real.stx_dev_minor);
    status->st_ino = static_cast<ino_t>(real.stx_ino);
    status->st_blocks = played_blocks >= 0 ? played_blocks : static_cast<int64_t>(real.stx_blocks);
    return 0;
}

namespace {

constexpr int FOLLOW = 1;
constexpr int KIB = 0x200;

void make(const std::string &directory) { ASSERT_EQ(mkdir(directory.c_str(), 0755), 0) << directory; }
void link_to(const std::string &target, const std::string &name) {
    ASSERT_EQ(symlink(target.c_str(), name.c_str()), 0) << name;
}

// A file that takes this many bytes of disk.
void fill(const std::string &path, size_t bytes) { place::write_file(path, std::string(bytes, 'x')); }

int64_t blocks_of(const std::string &path) {
    struct stat status;
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_blocks;
}

// A directory below /tmp whose path has this many characters.
std::string deep_directory(size_t length) {
    std::string path = "/tmp/deep";
    make(path);
    while (path.size() + 1 < length) {
        path += "/" + std::string(std::min<size_t>(length - path.size() - 1, 50), 'd');
        make(path);
    }
    EXPECT_EQ(path.size(), length);
    return path;
}

// ---- Removing ----

TEST(RemoveFile, RemovesATreeAndNothingThatLinksLeadTo) {
    make("/tmp/kept");
    fill("/tmp/kept/file", 1);
    make("/tmp/tree");
    make("/tmp/tree/empty");
    make("/tmp/tree/full");
    fill("/tmp/tree/full/file", 1);
    fill("/tmp/tree/" + std::string(200, 'n'), 1);
    fill("/tmp/tree/.hidden", 1);
    link_to("/tmp/kept", "/tmp/tree/link");
    link_to("/tmp/tree", "/tmp/tree/full/loop");
    link_to("nowhere", "/tmp/tree/dangling");
    EXPECT_EQ(remove_file("/tmp/tree"), 0);
    EXPECT_FALSE(place::exists("/tmp/tree"));
    EXPECT_TRUE(place::exists("/tmp/kept/file"));
}

TEST(RemoveFile, RemovesAFileAndALink) {
    fill("/tmp/file", 1);
    link_to("/tmp/file", "/tmp/link");
    EXPECT_EQ(remove_file("/tmp/link"), 0);
    EXPECT_TRUE(place::exists("/tmp/file"));
    EXPECT_EQ(remove_file("/tmp/file"), 0);
    EXPECT_FALSE(place::exists("/tmp/file"));
}

TEST(RemoveFile, IsContentWithWhatIsNotThere) {
    EXPECT_EQ(remove_file("/tmp/none"), 0);
    fill("/tmp/file", 1);
    EXPECT_EQ(remove_file("/tmp/file/below"), -1);  // ENOTDIR is not ENOENT
    EXPECT_EQ(remove_file(nullptr), -1);
}

TEST(RemoveFile, GoesOnAfterAnEntryThatStays) {
    make("/tmp/tree");
    make("/tmp/tree/busy");
    fill("/tmp/tree/a", 1);
    fill("/tmp/tree/z", 1);
    const place::BoundPath mounted("/tmp/tree/busy", "/tmpfile");
    EXPECT_EQ(remove_file("/tmp/tree"), -1);
    EXPECT_FALSE(place::exists("/tmp/tree/a"));
    EXPECT_FALSE(place::exists("/tmp/tree/z"));
    EXPECT_TRUE(place::exists("/tmp/tree/busy"));
}

TEST(RemoveFile, TakesPathsOf255CharactersAndFailsForLongerOnesAlone) {
    const std::string directory = deep_directory(250);
    fill(directory + "/1234", 1);  // 255
    EXPECT_EQ(remove_file("/tmp/deep"), 0);

    const std::string again = deep_directory(250);
    ASSERT_EQ(chdir(again.c_str()), 0);
    fill("12345", 1);  // 256
    fill("1234", 1);   // what a path cut short would name
    ASSERT_EQ(link("1234", "../1234"), 0);
    EXPECT_EQ(remove_file("/tmp/deep"), -1);
    EXPECT_TRUE(place::exists("12345"));
    EXPECT_FALSE(place::exists("1234"));
}

TEST(RemoveFile, FailsForADirectoryThatCannotBeLookedInto) {
    make("/tmp/tree");
    const command_runner::FewDescriptors none(getpid(), 0);
    EXPECT_EQ(remove_file("/tmp/tree"), -1);
    EXPECT_EQ(is_dir("/tmp/tree"), 1);
}

// ---- Measuring ----

TEST(Du, RoundsToTheNearestUnit) {
    fill("/tmp/file", size_t{3} * 4096);
    const int64_t bytes = blocks_of("/tmp/file") * 512;
    EXPECT_EQ(du("/tmp/file", 0), bytes);
    EXPECT_EQ(du("/tmp/file", KIB), (bytes + 512) / 1024);
    EXPECT_EQ(du("/tmp/file", 0x400), 0);
    EXPECT_EQ(du("/tmp/file", KIB | 0x400 | 0x800), (bytes + 512) / 1024);  // the smallest unit wins
    fill("/tmp/file", size_t{600} * 1024);
    EXPECT_EQ(du("/tmp/file", 0x400), 1);
    EXPECT_EQ(du("/tmp/file", 0x400 | 0x800), 1);
    EXPECT_EQ(du("/tmp/file", 0x800), 0);
}

// No file system here gives any number of blocks.
TEST(Du, RoundsAnyNumberOfBlocksTo32BitsOfTheUnit) {
    constexpr int MIB = 0x400;
    constexpr int GIB = 0x800;
    const struct {
        int64_t blocks;
        int flags;
        int size;
    } files[] = {
        {3, KIB, 2},  // 1536 bytes, and half a KiB more makes two
        {1, KIB, 1},
        {5, 0, 2560},
        {1023, MIB, 0},
        {1024, MIB, 1},
        {(1 << 20) - 1, GIB, 0},
        {1 << 20, GIB, 1},
        {int64_t{1} << 32, GIB, 2048},
        {1 << 22, 0, INT32_MIN},  // 2 GiB
        {(1 << 23) + 1, 0, 512},  // 4 GiB
    };
    fill("/tmp/file", 1);
    for (const auto &file : files) {
        played_blocks = file.blocks;
        EXPECT_EQ(du("/tmp/file", file.flags), file.size) << file.blocks;
    }
}

TEST(Du, AddsUpATreeWithItsDirectories) {
    make("/tmp/tree");
    make("/tmp/tree/sub");
    fill("/tmp/tree/a", 10000);
    fill("/tmp/tree/sub/b", 20000);
    fill("/tmp/tree/.c", 5000);
    ASSERT_EQ(link("/tmp/tree/a", "/tmp/tree/again"), 0);
    link_to("/tmp", "/tmp/tree/link");
    int64_t blocks = 0;
    for (const char *const path : {"/tmp/tree", "/tmp/tree/sub", "/tmp/tree/a", "/tmp/tree/again", "/tmp/tree/sub/b",
                                   "/tmp/tree/.c", "/tmp/tree/link"}) {
        blocks += blocks_of(path);
    }
    EXPECT_EQ(du("/tmp/tree", 0), blocks * 512);
    EXPECT_EQ(du("/tmp/tree/", 0), blocks * 512);
}

TEST(Du, FollowsLinksWhenItIsTold) {
    make("/tmp/tree");
    make("/tmp/far");
    fill("/tmp/far/file", 40000);
    link_to("/tmp/far", "/tmp/tree/link");
    EXPECT_EQ(du("/tmp/tree/link", 0), blocks_of("/tmp/tree/link") * 512);
    EXPECT_EQ(du("/tmp/tree", FOLLOW), du("/tmp/tree", 0) - du("/tmp/tree/link", 0) + du("/tmp/far", 0));
}

// Twenty links back would be walked 20^40 times before the kernel refuses a path of so many links.
TEST(Du, EndsOnLinksThatPointAtADirectoryAroundThem) {
    make("/tmp/tree");
    make("/tmp/tree/sub");
    fill("/tmp/tree/sub/file", 10000);
    for (int i = 0; i < 20; ++i) {
        link_to("..", "/tmp/tree/sub/up" + std::to_string(i));
        link_to(".", "/tmp/tree/sub/here" + std::to_string(i));
    }
    const int64_t top = blocks_of("/tmp/tree");
    const int64_t sub = blocks_of("/tmp/tree/sub");
    EXPECT_EQ(du("/tmp/tree", FOLLOW), (top + sub + blocks_of("/tmp/tree/sub/file") + 20 * (top + sub)) * 512);
}

TEST(Du, CountsADirectoryThatCannotBeOpenedAlone) {
    make("/tmp/tree");
    fill("/tmp/tree/file", 40000);
    const command_runner::FewDescriptors none(getpid(), 0);
    EXPECT_EQ(du("/tmp/tree", 0), blocks_of("/tmp/tree") * 512);
}

TEST(Du, LogsWhatItCannotExamine) {
    const LogCapture log;
    EXPECT_EQ(du("/tmp/none", KIB), 0);
    link_to("nowhere", "/tmp/dangling");
    EXPECT_EQ(du("/tmp/dangling", FOLLOW), 0);
    EXPECT_EQ(du(nullptr, 0), 0);
    EXPECT_EQ(log.take_messages(),
              (std::vector<std::string>{"[src/file.do_du.763]Stat file /tmp/none error, errno = 2.",
                                        "[src/file.do_du.776]Stat file /tmp/dangling error, errno = 2."}));
}

TEST(Du, CountsNothingForPathsThatDoNotFit) {
    const std::string directory = deep_directory(250);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    fill("1234", 5000);
    const int before = du("/tmp/deep", 0);
    fill("12345", 5000);
    const LogCapture log;
    EXPECT_EQ(du("/tmp/deep", 0), before);
    const std::vector<std::string> messages = log.take_messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0], "[src/file.do_du.763]Stat file " + directory +
                               "/1234 error, errno = " + std::to_string(ENAMETOOLONG) + ".");
}

// ---- Making ----

TEST(MakeDir, MakesADirectoryOfMode0755) {
    umask(0077);
    EXPECT_EQ(make_dir("/tmp/new"), 0);
    struct stat status;
    ASSERT_EQ(stat("/tmp/new", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    EXPECT_EQ(make_dir("/tmp/none/new"), -1);
    EXPECT_EQ(make_dir(""), -1);
    EXPECT_EQ(make_dir(nullptr), -1);
}

TEST(MakeDir, LogsAndCorrectsTheModeOfOneThatIsThere) {
    make("/tmp/there");
    const LogCapture log;
    EXPECT_EQ(make_dir("/tmp/there"), 0);
    EXPECT_TRUE(log.take_messages().empty());
    ASSERT_EQ(chmod("/tmp/there", 0700), 0);
    EXPECT_EQ(make_dir("/tmp/there"), 0);
    EXPECT_EQ(log.take_messages(),
              std::vector<std::string>{"/tmp/there existed, and it's a direct.Now will chage its mode! "});
    struct stat status;
    ASSERT_EQ(stat("/tmp/there", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST(MakeDir, FailsWhereAFileIs) {
    fill("/tmp/file", 1);
    EXPECT_EQ(make_dir("/tmp/file"), -1);
    struct stat status;
    ASSERT_EQ(stat("/tmp/file", &status), 0);
    EXPECT_NE(status.st_mode & 07777U, 0755U);
}

TEST(MakeDir, TakesALinkToADirectoryForOne) {
    make("/tmp/there");
    link_to("/tmp/there", "/tmp/link");
    EXPECT_EQ(make_dir("/tmp/link"), 0);
}

// ---- Looking ----

TEST(IsDir, DoesNotFollowALink) {
    make("/tmp/there");
    link_to("/tmp/there", "/tmp/link");
    fill("/tmp/file", 1);
    EXPECT_EQ(is_dir("/tmp/there"), 1);
    EXPECT_EQ(is_dir("/tmp/link"), 0);
    EXPECT_EQ(is_dir("/tmp/file"), 0);
    EXPECT_EQ(is_dir("/tmp/none"), 0);
    EXPECT_EQ(is_dir(nullptr), 0);
}

TEST(IsEmptyDir, TakesATreeOfDirectoriesForEmpty) {
    make("/tmp/tree");
    EXPECT_EQ(is_empty_dir("/tmp/tree"), 1);
    make("/tmp/tree/a");
    make("/tmp/tree/a/b");
    make("/tmp/tree/.c");
    EXPECT_EQ(is_empty_dir("/tmp/tree"), 1);
    EXPECT_EQ(is_empty_dir("/tmp/tree/"), 1);
    link_to(".", "/tmp/tree/a/b/link");
    EXPECT_EQ(is_empty_dir("/tmp/tree"), 0);
    fill("/tmp/file", 1);
    EXPECT_EQ(is_empty_dir("/tmp/file"), 0);
    EXPECT_EQ(is_empty_dir("/tmp/none"), 0);
    EXPECT_EQ(is_empty_dir(""), 0);
    EXPECT_EQ(is_empty_dir(nullptr), 0);
}

// Who asks is about to remove it: what cannot be looked into is not empty.
TEST(IsEmptyDir, IsNotADirectoryThatCannotBeOpened) {
    make("/tmp/tree");
    const command_runner::FewDescriptors none(getpid(), 0);
    EXPECT_EQ(is_empty_dir("/tmp/tree"), 0);
}

TEST(IsEmptyDir, LooksAtTheFirst256CharactersOfAPath) {
    const std::string directory = deep_directory(256);
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 1);
    EXPECT_EQ(is_empty_dir(directory.c_str()), 1);
    EXPECT_EQ(is_empty_dir((directory + "/").c_str()), 1);
    EXPECT_EQ(is_empty_dir((directory + "and what is not there").c_str()), 1);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    fill("file", 1);
    EXPECT_EQ(is_empty_dir(directory.c_str()), 0);
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 0);
}

TEST(IsEmptyDir, LooksAtTheFirst256CharactersOfAnEntrysPath) {
    const std::string directory = deep_directory(254);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    make("x");  // 256
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 1);
    make("xyz");  // is taken for x
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 1);
    make("yz");  // is taken for y, which is not there
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 0);
}

// An entry's name is put behind the first 255 characters, of which the "/" may be none.
TEST(IsEmptyDir, PutsANameBehindTheFirst255CharactersOfItsDirectory) {
    const std::string directory = deep_directory(255);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    make("x");
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 0);
    make(directory + "x");
    EXPECT_EQ(is_empty_dir(directory.c_str()), 1) << "it is the directory's neighbour that was looked at";
    fill("x/file", 1);
    EXPECT_EQ(is_empty_dir(directory.c_str()), 1);
    ASSERT_EQ(rmdir((directory + "x").c_str()), 0);
    fill(directory + "x", 1);
    EXPECT_EQ(is_empty_dir(directory.c_str()), 0);
}

// Calls something on a thread whose stack is not for a thousand calls inside each other.
void on_a_small_stack(void *(*call)(void *)) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, size_t{256} * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, call, nullptr), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// "x" in "x" is taken for the outer one, in which it is found again.
TEST(IsEmptyDir, EndsWherePathsThatAreCutLeadRoundAndRound) {
    const std::string directory = deep_directory(254);
    ASSERT_EQ(chdir(directory.c_str()), 0);
    make("x");
    make("x/x");
    on_a_small_stack([](void *) -> void * {
        EXPECT_EQ(is_empty_dir("/tmp/deep"), 0);
        return nullptr;
    });
    ASSERT_EQ(rmdir("x/x"), 0);
    EXPECT_EQ(is_empty_dir("/tmp/deep"), 1);
}

// The steps as they were always taken.
bool is_empty_in_steps(const std::string &path) {
    std::string own = path.substr(0, 256);
    if (is_dir(own.c_str()) == 0) {
        return false;
    }
    own += own.ends_with('/') ? "" : "/";
    DIR *const directory = opendir(own.c_str());
    bool is_empty = directory != nullptr;
    for (const dirent *entry; is_empty && (entry = readdir(directory)) != nullptr;) {
        const std::string name = entry->d_name;
        is_empty = name == "." || name == ".." || is_empty_in_steps(own.substr(0, 255) + name);
    }
    closedir(directory);
    return is_empty;
}

TEST(IsEmptyDir, TakesTheDescribedStepsWherePathsAreLong) {
    for (size_t length = 250; length <= 258; ++length) {
        place::output_of("rm -rf /tmp/deep");
        const std::string directory = deep_directory(length);
        ASSERT_EQ(chdir(directory.c_str()), 0);
        for (const char *const entry : {"", "x", "yy", "zzz", "zzz/a", "yy/b"}) {
            if (*entry != '\0') {
                make(entry);
            }
            for (const std::string &path : {std::string("/tmp/deep"), directory, directory + "/", directory + "/x"}) {
                EXPECT_EQ(is_empty_dir(path.c_str()), is_empty_in_steps(path) ? 1 : 0) << length << " " << entry;
            }
        }
        ASSERT_EQ(chdir("/"), 0);
    }
}

}  // namespace
