// The command runner over a memory service that needs a descriptor: this file plays the service.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <velkor/firmware.h>
#include <velkor/process.h>

#include <string>

#include "support/command_runner.h"
#include "support/place.h"

namespace {

// A journal of allocations, opened with the first pool. Without its line nobody gets a block.
int journal = -1;

template <typename Function>
Function host(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int VkMem_Open(const char *name, int zero, unsigned parameter) {
    if (journal < 0) {
        journal = open("/tmp/journal", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    return host<int (*)(const char *, int, unsigned)>("VkMem_Open")(name, zero, parameter);
}

void *VkMem_Alloc(unsigned short pool, size_t size) {
    const std::string line = std::to_string(getpid()) + " " + std::to_string(size) + "\n";
    if (write(journal, line.data(), line.size()) < 0) {
        return nullptr;
    }
    return host<void *(*)(unsigned short, size_t)>("VkMem_Alloc")(pool, size);
}

namespace {

TEST(RunnersMemory, ComesOfAServiceThatNeedsItsDescriptor) {
    EXPECT_EQ(vk_pclose(vk_popen("true", "r")), 0);  // the service is open from here on
    const command_runner::Runner runner;
    FILE *const stream = VkPipeOpen("echo x", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fgetc(stream), 'x');
    EXPECT_EQ(VkPipeClose(stream), 0);
    EXPECT_NE(place::read_file("/tmp/journal").find(std::to_string(runner.process()) + " "), std::string::npos);
}

}  // namespace
