// Swap from the call to the kernel: the library, the runner, the script of examples/, the stand-in's disks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/process.h>
#include <velkor_host.h>

#include <string>

#include "support/command_runner.h"
#include "support/place.h"

namespace {

using command_runner::Runner;
using testing::HasSubstr;

const std::string TITLES = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
const std::string SWAP_FILE = "/tmp/disk/swapfile.dat";

// A recorder with one disk and the script in its place.
class Bench {
public:
    Bench() {
        mkdir("/tmp/disk", 0755);
        place::write_file(VELKOR_HOST_SETTINGS_FILE,
                          "[disk 2]\npath = /tmp/disk\n[swap]\nmax_size = 3\nhigh_level = 2\n");
        place::output_of("cp " VELKOR_SOURCE_DIR "/examples/swap_ctrl.sh /dvr/");
    }
};

// swapon is the whole machine's, so these tests have one of their own that only tells the list of swap areas, as the
// kernel would.
class PretendedKernel {
public:
    PretendedKernel() : swaps_("/proc/swaps", TITLES) {
        command("swapon", "printf '%s                 file\\t\\t3068\\t\\t1024\\t\\t-2\\n' \"$1\" >>" + swaps_.file());
        command("swapoff", "sed 1q " + swaps_.file() + " >/tmp/titles; cat /tmp/titles >" + swaps_.file());
        setenv("PATH", (std::string("/tmp/bin:") + getenv("PATH")).c_str(), 1);
    }

private:
    static void command(const std::string &name, const std::string &work) {
        mkdir("/tmp/bin", 0755);
        place::write_file("/tmp/bin/" + name, "#!/bin/sh\n" + work + "\n");
        chmod(("/tmp/bin/" + name).c_str(), 0755);
    }

    place::BoundContent swaps_;
};

// What the script says, and its exit status behind it.
std::string script(const std::string &arguments) {
    return place::output_of("/dvr/swap_ctrl.sh " + arguments + " 2>&1; echo \"status $?\"");
}

TEST(Swap, GoesOnAndOffAgain) {
    const Bench bench;
    const PretendedKernel kernel;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(-1), 0);
    int active = 0;
    int size = 0;
    int used = 0;
    EXPECT_EQ(swapmem_Check(&active, &size, &used), 0);
    EXPECT_EQ(active, 1);
    EXPECT_EQ(size, 3068);
    EXPECT_EQ(used, 1024);
    struct stat file = {};
    ASSERT_EQ(stat(SWAP_FILE.c_str(), &file), 0);
    EXPECT_EQ(file.st_size, 3 * 1048576);
    EXPECT_EQ(file.st_mode & 0777, 0600);
    EXPECT_THAT(place::output_of("blkid -o value -s TYPE " + SWAP_FILE), HasSubstr("swap")) << "mkswap was there";

    EXPECT_EQ(swapmem_Stop(2), 0);
    EXPECT_FALSE(place::exists(SWAP_FILE));
    EXPECT_EQ(swapmem_Check(&active, nullptr, nullptr), 0);
    EXPECT_EQ(active, 0);
}

// The file system of the sandbox is in memory, and no kernel swaps on that.
TEST(Swap, IsRefusedByARealKernelAndLeavesNothingBehind) {
    const Bench bench;
    const Runner runner;
    EXPECT_EQ(swapmem_Start(2), -4);
    EXPECT_FALSE(place::exists(SWAP_FILE));
    EXPECT_THAT(script("start /tmp/disk 3"),
                testing::AllOf(HasSubstr("swap_ctrl.sh: this kernel does not swap on /tmp/disk/swapfile.dat\n"),
                               HasSubstr("status 1\n")));
    EXPECT_FALSE(place::exists(SWAP_FILE));
}

TEST(SwapScript, SaysWhyItCannot) {
    const Bench bench;
    EXPECT_EQ(script("start /tmp/missing 3"), "swap_ctrl.sh: no such directory: /tmp/missing\nstatus 1\n");
    EXPECT_EQ(script("start /tmp/disk lots"), "swap_ctrl.sh: not a number of megabytes: lots\nstatus 1\n");
    EXPECT_EQ(script("start /tmp/disk ''"), "swap_ctrl.sh: not a number of megabytes: \nstatus 1\n");
    EXPECT_EQ(script("stop"), "swap_ctrl.sh: no swap is on\nstatus 1\n");
    EXPECT_THAT(script(""), HasSubstr("usage: "));
    EXPECT_THAT(script("start /tmp/disk"), HasSubstr("usage: "));
    place::output_of("mkdir /tmp/small && mount -t tmpfs -o size=1m none /tmp/small");
    EXPECT_EQ(script("start /tmp/small 3"), "swap_ctrl.sh: no room for 3 megabytes in /tmp/small\nstatus 1\n");
    EXPECT_FALSE(place::exists("/tmp/small/swapfile.dat"));
}

TEST(SwapScript, TakesADirectoryWithABlank) {
    const Bench bench;
    const PretendedKernel kernel;
    mkdir("/tmp/a disk", 0755);
    EXPECT_EQ(script("start '/tmp/a disk' 1"), "status 0\n");
    EXPECT_TRUE(place::exists("/tmp/a disk/swapfile.dat"));
}

TEST(SwapScript, DoesNotTakeASecondDisk) {
    const Bench bench;
    const PretendedKernel kernel;
    EXPECT_EQ(script("start /tmp/disk 1"), "status 0\n");
    EXPECT_EQ(script("start /tmp/disk 1"), "swap_ctrl.sh: swap is on already: /tmp/disk/swapfile.dat\nstatus 1\n");
    EXPECT_TRUE(place::exists(SWAP_FILE)) << "the one in use stays";
    EXPECT_EQ(script("stop"), "status 0\n");
}

}  // namespace
