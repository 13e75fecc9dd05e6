// The pipe numbers' end. Nobody opens 268 million pipes for a test: this program has the library's source for itself,
// and the runner that it forks begins shortly before.
#include "vk_system/vk_system.cpp"  // NOLINT(bugprone-suspicious-include)

#include <gtest/gtest.h>

#include "support/command_runner.h"
#include "support/place.h"

namespace {

TEST(VkPipeNumbers, BeginAgainAtOne) {
    pipe_counter = 0x0FFFFFFE;
    const command_runner::Runner runner;
    for (const char *const path : {"/tmpfile/vk_pipe_file_268435454.pipe", "/tmpfile/vk_pipe_file_268435455.pipe",
                                   "/tmpfile/vk_pipe_file_1.pipe", "/tmpfile/vk_pipe_file_2.pipe"}) {
        FILE *const stream = VkPipeOpen("echo x", "r");
        ASSERT_NE(stream, nullptr);
        EXPECT_TRUE(place::exists(path)) << path;
        EXPECT_EQ(VkPipeClose(stream), 0);
    }
}

}  // namespace
