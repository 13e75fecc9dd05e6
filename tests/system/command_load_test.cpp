// The command runner as a busy recorder uses it: all kinds of commands from several threads at once, some of which
// fail, and callers that break off.
#include <gtest/gtest.h>
#include <velkor/process.h>

#include <string>
#include <thread>
#include <vector>

#include "support/command_runner.h"
#include "support/place.h"

namespace {

constexpr int THREADS = 4;
constexpr int ROUNDS = 15;

void run_plain(const std::string &id, int number) {
    EXPECT_EQ(VkSystem(("exit " + std::to_string(number)).c_str()), number << 8) << id;
    EXPECT_EQ(VkSystem("kill -KILL $$"), SIGKILL) << id;
}

std::string read_first_line(FILE *stream) {
    char line[64] = "";
    return fgets(line, sizeof line, stream) != nullptr ? line : "";
}

void read_to_the_end(const std::string &id) {
    FILE *const stream = VkPipeOpen(("echo " + id).c_str(), "r");
    ASSERT_NE(stream, nullptr) << id;
    EXPECT_EQ(read_first_line(stream), id + "\n");
    EXPECT_EQ(fgetc(stream), EOF) << id;
    EXPECT_EQ(VkPipeClose(stream), 0) << id;
}

void break_off(const std::string &id) {
    FILE *const stream = VkPipeOpen(("exec yes " + id + " 2>/dev/null").c_str(), "r");
    ASSERT_NE(stream, nullptr) << id;
    EXPECT_EQ(read_first_line(stream), id + "\n");
    EXPECT_EQ(VkPipeClose(stream), 0) << id;
}

void fail_to_open(const std::string &id) { EXPECT_EQ(VkPipeOpen(("touch /tmp/ran" + id).c_str(), "?"), nullptr) << id; }

void run_without_the_runner(const std::string &id, int number) {
    FILE *const stream = vk_popen(("echo " + id + "; exit " + std::to_string(number)).c_str(), "r");
    ASSERT_NE(stream, nullptr) << id;
    EXPECT_EQ(read_first_line(stream), id + "\n");
    EXPECT_EQ(vk_pclose(stream), number << 8) << id;
}

TEST(CommandLoad, GivesEachCallerItsOwnAndLeavesNothingBehind) {
    const command_runner::Runner runner;
    std::vector<std::thread> callers;
    for (int i = 0; i < THREADS; ++i) {
        callers.emplace_back([i] {
            for (int round = 0; round < ROUNDS; ++round) {
                const int number = i * ROUNDS + round;
                const std::string id = std::to_string(number);
                run_plain(id, number);
                read_to_the_end(id);
                break_off(id);
                fail_to_open(id);
                run_without_the_runner(id, number);
            }
        });
    }
    for (std::thread &caller : callers) {
        caller.join();
    }
    const command_runner::Area area;
    EXPECT_TRUE(place::eventually([&] { return area.in_use() == 0; })) << "each pump gives its slot back";
    EXPECT_TRUE(place::eventually([] { return place::output_of("ls -A /tmpfile") == ""; })) << "no pipe is left";
    EXPECT_EQ(place::output_of("find /tmp -name 'ran*'"), "") << "nothing runs for a caller that could not read it";
    const std::string id = std::to_string(runner.process());
    EXPECT_EQ(place::read_file("/proc/" + id + "/task/" + id + "/children"), "") << "all commands were waited for";
}

}  // namespace
