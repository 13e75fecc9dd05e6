// What the library opens is closed on exec from its birth, and no open waits for anybody. The kernel itself looks: in a
// child it refuses every other open, so that a function which does one fails.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velkor/configuration.h>
#include <velkor/files.h>
#include <velkor/network.h>
#include <velkor/system_info.h>

#include <string>
#include <vector>

#include "support/place.h"

namespace {

// A child of this process in which an open must have the flags that are wanted.
class Guard {
public:
    // An open of this system call, whose flags are its argument number `argument`, needs one of `flags`.
    void want(uint32_t system_call, unsigned argument, uint32_t flags) {
        const auto word = static_cast<uint32_t>(offsetof(struct seccomp_data, args) + argument * sizeof(uint64_t));
        add(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr));
        jump(BPF_JMP | BPF_JEQ | BPF_K, system_call, 0, 3);
        add(BPF_LD | BPF_W | BPF_ABS, word);  // its lower half
        jump(BPF_JMP | BPF_JSET | BPF_K, flags, 1, 0);
        add(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EXDEV);
    }

    bool begin() {
        add(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
        const struct sock_fprog program = {static_cast<unsigned short>(steps_.size()), steps_.data()};
        return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    }

private:
    void add(unsigned code, size_t value) {
        steps_.push_back(BPF_STMT(static_cast<unsigned short>(code), static_cast<uint32_t>(value)));
    }
    void jump(unsigned code, uint32_t value, unsigned char if_so, unsigned char if_not) {
        steps_.push_back(BPF_JUMP(static_cast<unsigned short>(code), value, if_so, if_not));
    }

    std::vector<struct sock_filter> steps_;
};

bool begin_guard() {
    constexpr uint32_t DOES_NOT_WAIT = O_NONBLOCK | O_DIRECTORY;
    Guard guard;
    for (const uint32_t flags : {uint32_t{O_CLOEXEC}, DOES_NOT_WAIT}) {
        guard.want(SYS_openat, 2, flags);
#ifdef SYS_open
        guard.want(SYS_open, 1, flags);
#endif
    }
    guard.want(SYS_socket, 1, SOCK_CLOEXEC);
    return guard.begin();
}

template <typename Call>
bool works_guarded(Call call) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(begin_guard() && call() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status == 0;
}

constexpr const char *FILE_PATH = "/tmp/file";
constexpr const char *TREE = "/tmp/tree";

TEST(OpenedFiles, OfAnyOtherKindAreRefusedHere) {
    place::write_file(FILE_PATH, "x");
    EXPECT_TRUE(works_guarded([] { return open(FILE_PATH, O_RDONLY | O_CLOEXEC | O_NONBLOCK) >= 0; }));
    EXPECT_FALSE(works_guarded([] { return open(FILE_PATH, O_RDONLY | O_NONBLOCK) >= 0; }));
    EXPECT_FALSE(works_guarded([] { return open(FILE_PATH, O_RDONLY | O_CLOEXEC) >= 0; }));
    EXPECT_FALSE(works_guarded([] { return fopen(FILE_PATH, "r") != nullptr; }));
    EXPECT_FALSE(works_guarded([] { return socket(AF_INET, SOCK_DGRAM, 0) >= 0; }));
}

TEST(OpenedFiles, OfConfigurationsCloseOnExecAndDoNotWait) {
    place::write_file(FILE_PATH, "[s]\na = 1\n");
    EXPECT_TRUE(works_guarded([] { return iniparser_getint(iniparser_load(FILE_PATH), "s:a", 0) == 1; }));
}

TEST(OpenedFiles, OfTheSystemsStateCloseOnExecAndDoNotWait) {
    EXPECT_TRUE(works_guarded([] {
        uint32_t words[VELKOR_CPU_WORDS];
        return GetCpuData(words) == 0;
    })) << "GetCpuData";
    EXPECT_TRUE(works_guarded([] {
        velkor_cpu_counters sample = {};
        return _GetCpuStats(&sample) == 0 && sample.idle != 0;
    })) << "_GetCpuStats";
    EXPECT_TRUE(works_guarded([] {
        uint32_t idle = 999;
        return GetCpuIdle(&idle) == 0 && idle != 999;
    })) << "GetCpuIdle";
    EXPECT_TRUE(works_guarded([] { return GetMemInfo(nullptr, nullptr) >= 0; })) << "GetMemInfo";
    EXPECT_TRUE(works_guarded([] {
        uint32_t record[8] = {};
        return GetProcRss(getpid(), record) == 0;
    })) << "GetProcRss";
}

TEST(OpenedFiles, AreDirectoriesThatCloseOnExec) {
    ASSERT_EQ(mkdir(TREE, 0755), 0);
    ASSERT_EQ(mkdir("/tmp/tree/sub", 0755), 0);
    EXPECT_TRUE(works_guarded([] { return is_empty_dir(TREE) == 1; })) << "is_empty_dir";
    place::write_file("/tmp/tree/sub/file", std::string(10000, 'x'));
    const int whole = du(TREE, 0);
    EXPECT_TRUE(works_guarded([&] { return du(TREE, 0) == whole; })) << "du";
    EXPECT_TRUE(works_guarded([] { return remove_file(TREE) == 0; })) << "remove_file";
}

TEST(OpenedFiles, OfMappingsCloseOnExecAndDoNotWait) {
    ASSERT_EQ(mount("velkor", "/dev", "tmpfs", 0, nullptr), 0);
    place::write_file("/dev/mem", std::string(4096, 'm'));
    place::write_file(FILE_PATH, std::string(4096, 'f'));
    EXPECT_TRUE(works_guarded([] { return memmap(0, 4096) != 0; })) << "memmap";
    const auto is_mapped = [](void *address) { return address != nullptr && address != MAP_FAILED; };
    EXPECT_TRUE(works_guarded([&] { return is_mapped(mmapfile(FILE_PATH, 4096)); })) << "mmapfile";
    EXPECT_TRUE(works_guarded([&] { return is_mapped(mmapfile_r(FILE_PATH, 4096)); })) << "mmapfile_r";
}

TEST(OpenedFiles, AreSocketsThatCloseOnExec) {
    char text[64] = "";
    EXPECT_TRUE(works_guarded([&] { return get_local_address(text, nullptr, "lo") == 0; })) << "get_local_address";
    EXPECT_TRUE(works_guarded([&] { return GetNetInterFaceMac(text, "lo") == 0; })) << "GetNetInterFaceMac";
    EXPECT_TRUE(works_guarded([&] { return get_gateway(text, "lo") == 0; })) << "get_gateway";
    testing::internal::CaptureStderr();
    EXPECT_TRUE(works_guarded([] { return DetectEth0(0) >= 0; })) << "DetectEth0";
    testing::internal::GetCapturedStderr();
}

}  // namespace
