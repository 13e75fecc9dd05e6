// The stand-ins for disks and swap settings.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <string>

#include "support/place.h"

namespace {

void set(const std::string &content) { place::write_file(VELKOR_HOST_SETTINGS_FILE, content); }

std::string path_of(int disk) {
    char path[64] = "";
    return disk_GetSataMntPath(disk, 1, path) == 1001 ? path : "(none)";
}

TEST(HostDisks, AreNoneWithoutTheFile) {
    EXPECT_EQ(disk_GetDiskNum(1), 0);
    EXPECT_EQ(disk_GetState(0), 0);
    EXPECT_EQ(path_of(0), "(none)");
    EXPECT_EQ(cfg_gSwapMaxsize(), 64);
    EXPECT_EQ(cfg_gSwapHighLv(), 32);
}

TEST(HostDisks, AreDirectories) {
    mkdir("/tmp/disk", 0755);
    set("# disks of this bench\n"
        "\n"
        "[disk 0]\r\n"
        "  path =  /tmp/disk \r\n"
        "[disk 3]\n"
        "path=/tmp/missing\n"
        "; path=/tmp/disk\n"
        "[ disk 23 ]\n"
        "path = /proc\n"
        "path = /tmp/disk\n"
        "[disk 24]\n"
        "path = /tmp/disk\n");
    EXPECT_EQ(disk_GetDiskNum(1), 3);
    EXPECT_EQ(disk_GetDiskNum(2), 0) << "there is one kind of disk";
    EXPECT_EQ(disk_GetState(0), 3);
    EXPECT_EQ(disk_GetState(1), 0);
    EXPECT_EQ(disk_GetState(3), 1);
    EXPECT_EQ(disk_GetState(24), 0);
    EXPECT_EQ(disk_GetState(-1), 0);
    EXPECT_EQ(path_of(0), "/tmp/disk");
    EXPECT_EQ(path_of(3), "(none)");
    EXPECT_EQ(path_of(23), "/proc") << "the first line counts";
    EXPECT_EQ(path_of(24), "(none)");
    EXPECT_EQ(path_of(-1), "(none)");
    char path[64] = "untouched";
    EXPECT_NE(disk_GetSataMntPath(0, 2, path), 1001);
    EXPECT_NE(disk_GetSataMntPath(0, 1, nullptr), 1001);
    EXPECT_STREQ(path, "untouched");
}

TEST(HostDisks, StateMayBeSaidInTheFile) {
    set("[disk 5]\npath = /tmp/missing\nstate = 3\n[disk 6]\npath = /tmp\nstate = many\n");
    EXPECT_EQ(disk_GetState(5), 3);
    EXPECT_EQ(disk_GetState(6), 3) << "what is no number says nothing";
}

TEST(HostDisks, PathMustFit) {
    const std::string longest = "/tmp/" + std::string(58, 'd');
    mkdir(longest.c_str(), 0755);
    mkdir((longest + "d").c_str(), 0755);
    set("[disk 0]\npath = " + longest + "\n[disk 1]\npath = " + longest + "d\n[disk 2]\npath =\n");
    EXPECT_EQ(path_of(0), longest);
    EXPECT_EQ(path_of(1), "(none)");
    EXPECT_EQ(disk_GetDiskNum(1), 1);
}

TEST(HostSwap, SizesAreReadEachTime) {
    set("max_size = 1\n[swap]\nmax_size = 128\nhigh_level = 5\n");
    EXPECT_EQ(cfg_gSwapMaxsize(), 128);
    EXPECT_EQ(cfg_gSwapHighLv(), 5);
    set("[swap]\nmax_size = 99999999999999999999\nhigh_level = 5 MiB\n[swap\nmax_size 3\n");
    EXPECT_EQ(cfg_gSwapMaxsize(), 64);
    EXPECT_EQ(cfg_gSwapHighLv(), 32);
}

}  // namespace
