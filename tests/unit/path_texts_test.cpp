#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <memory>
#include <string>

namespace {

// In a block of exactly the text and `spare` bytes, so that the sanitizers see every byte beside it.
std::string changed(int (*change)(char *), const std::string &text, size_t spare = 0) {
    const auto path = std::make_unique<char[]>(text.size() + 1 + spare);
    strcpy(path.get(), text.c_str());
    EXPECT_EQ(change(path.get()), 0) << text;
    std::string result(path.get());
    for (size_t i = result.size(); i <= text.size(); ++i) {
        EXPECT_EQ(path[i], '\0') << text << " " << i;
    }
    return result;
}

std::string joined(char *(*join)(const char *, const char *), const char *dir, const char *name) {
    char *const path = join(dir, name);
    if (path == nullptr) {
        return "NULL";
    }
    path[255] = '\0';  // a block of 256 bytes
    std::string text(path);
    vkmem_GlobalFree(path);
    return text;
}

TEST(ExtractFileName, KeepsWhatFollowsTheLastSlash) {
    const struct {
        const char *path;
        const char *name;
    } paths[] = {{"/mnt/disk0/a.dat", "a.dat"},
                 {"/a", "a"},
                 {"abc", "bc"},
                 {"a", ""},
                 {"/mnt/", ""},
                 {"/", ""},
                 {"", ""},
                 {"a/b", "b"},
                 {"//", ""}};
    for (const auto &path : paths) {
        EXPECT_EQ(changed(extract_file_name, path.path), path.name) << path.path;
    }
    EXPECT_EQ(changed(extract_file_name, std::string(255, 'n')), std::string(254, 'n'));
}

TEST(ExtractFilePath, KeepsTheDirectoryWithItsSlash) {
    const struct {
        const char *path;
        const char *directory;
    } paths[] = {{"/none/b/c.dat", "/none/b/"},
                 {"/none/b/", "/none/"},
                 {"abc", "a"},
                 {"abc/", "a"},
                 {"/none", "/"},
                 {"", ""},
                 {"x", "x"},
                 {"none//", "none/"}};
    for (const auto &path : paths) {
        EXPECT_EQ(changed(extract_file_path, path.path), path.directory) << path.path;
    }
}

TEST(ExtractFilePath, OnlyAddsASlashToADirectory) {
    ASSERT_EQ(mkdir("/tmp/dir", 0755), 0);
    ASSERT_EQ(symlink("/tmp/dir", "/tmp/link"), 0);
    EXPECT_EQ(changed(extract_file_path, "/tmp/dir", 1), "/tmp/dir/");
    EXPECT_EQ(changed(extract_file_path, "/tmp/dir/"), "/tmp/dir/");
    EXPECT_EQ(changed(extract_file_path, "/"), "/");
    EXPECT_EQ(changed(extract_file_path, "/tmp/link"), "/tmp/");  // a link is no directory
}

TEST(ExtractFilePath, DoesNotGrowAbove255Characters) {
    std::string path = "/tmp/" + std::string(125, 'a');
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    path += "/" + std::string(124, 'b');
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    ASSERT_EQ(path.size(), 255U);
    std::string text = path;
    EXPECT_EQ(extract_file_path(text.data()), -1);
    EXPECT_EQ(text, path);
}

TEST(ExtractFile, RefusesNullAndMoreThan255Characters) {
    std::string path(256, '/');
    EXPECT_EQ(extract_file_name(path.data()), -1);
    EXPECT_EQ(extract_file_path(path.data()), -1);
    EXPECT_EQ(path, std::string(256, '/'));
    EXPECT_EQ(extract_file_name(nullptr), -1);
    EXPECT_EQ(extract_file_path(nullptr), -1);
}

TEST(ConcatPathFile, PutsOneSlashBetween) {
    EXPECT_EQ(joined(concat_path_file, "/a/", "//b"), "/a/b");
    EXPECT_EQ(joined(concat_path_file, "/a", "b/"), "/a/b/");
    EXPECT_EQ(joined(concat_path_file, nullptr, "b"), "/b");
    EXPECT_EQ(joined(concat_path_file, "", "b"), "/b");
    EXPECT_EQ(joined(concat_path_file, "/a//", ""), "/a//");
    EXPECT_EQ(joined(concat_path_file, "/a", nullptr), "NULL");
    EXPECT_EQ(joined(concat_path_file, "/a", "."), "/a/.");
}

TEST(ConcatPathFile, IsNullForAPathThatDoesNotFit) {
    const std::string directory = "/" + std::string(127, 'a');
    EXPECT_EQ(joined(concat_path_file, directory.c_str(), std::string(126, 'b').c_str()).size(), 255U);
    EXPECT_EQ(joined(concat_path_file, directory.c_str(), std::string(127, 'b').c_str()), "NULL");
}

TEST(ConcatSubpathFile, IsNullForTheDirectoryItselfAndTheOneAbove) {
    EXPECT_EQ(joined(concat_subpath_file, "/a", "."), "NULL");
    EXPECT_EQ(joined(concat_subpath_file, "/a", ".."), "NULL");
    EXPECT_EQ(joined(concat_subpath_file, "/a", nullptr), "NULL");
    EXPECT_EQ(joined(concat_subpath_file, "/a", "..."), "/a/...");
    EXPECT_EQ(joined(concat_subpath_file, "/a", ".b"), "/a/.b");
}

TEST(LastCharIs, PointsAtTheLastCharacter) {
    const char *const text = "/a/";
    EXPECT_EQ(last_char_is(text, '/'), text + 2);
    EXPECT_EQ(last_char_is(text, 'a'), nullptr);
    EXPECT_EQ(last_char_is("", '\0'), nullptr);
    EXPECT_EQ(last_char_is(nullptr, '/'), nullptr);
    const char *const high = "\xe9";
    EXPECT_EQ(last_char_is(high, 0xe9), high);  // on both platforms, whatever the sign of a char
    EXPECT_EQ(last_char_is(high, '\xe9'), high);
}

}  // namespace
