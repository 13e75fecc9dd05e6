#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

#include <string>
#include <thread>
#include <vector>

#include "support/forked.h"
#include "support/place.h"

namespace {

using testing::MatchesRegex;

TEST(HostUser, IsNobodyUntilOneLogsIn) {
    EXPECT_EQ(UKCmd_GetUser(), nullptr);
    velkor_host_set_user("admin");
    EXPECT_STREQ(UKCmd_GetUser(), "admin");
    velkor_host_set_user("");
    EXPECT_EQ(UKCmd_GetUser(), nullptr);
    velkor_host_set_user("admin");
    velkor_host_set_user(nullptr);
    EXPECT_EQ(UKCmd_GetUser(), nullptr);
}

TEST(HostUser, StaysForTheThreadThatAsked) {
    velkor_host_set_user("admin");
    const char *const user = UKCmd_GetUser();
    std::thread([] {
        velkor_host_set_user("guest");
        EXPECT_STREQ(UKCmd_GetUser(), "guest");
    }).join();
    EXPECT_STREQ(user, "admin");
}

TEST(HostOperationLog, IsWrittenInTheChildrenOfABusyFork) {
    const auto write = [] { return log_Write(17, 3, 0xFFF0, 3018, "%s", "zone set") == 0; };
    EXPECT_EQ(forked::first_that_fails(120, write, write), -1);
}

TEST(HostOperationLog, HasALineAnEntry) {
    EXPECT_EQ(log_Write(17, 3, 0xFFF0, 3223, "%s\t%s", "zone\nset", "admin"), 0);
    EXPECT_EQ(log_Write(-1, 3, 0xFFF0, 3018, "%s", "zone set"), 0);
    EXPECT_THAT(place::read_file(VELKOR_HOST_OPERATION_LOG),
                MatchesRegex("\\[....\\/..\\/.. ..:..:..\\] 17 3 0xFFF0 3223 zone set\tadmin\n"
                             "\\[....\\/..\\/.. ..:..:..\\] -1 3 0xFFF0 3018 zone set\n"));
}

TEST(HostOperationLog, ThatCannotBeWrittenSaysSo) {
    EXPECT_EQ(log_Write(17, 3, 0xFFF0, 3018, nullptr), -1);
    ASSERT_EQ(mkdir(VELKOR_HOST_OPERATION_LOG, 0755), 0);
    EXPECT_EQ(log_Write(17, 3, 0xFFF0, 3018, "%s", "zone set"), -1);
}

TEST(HostOperationLog, KeepsLinesOfManyThreadsWhole) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                log_Write(1, 3, 0xFFF0, 3018, "%s", "whole");
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    const std::string log = place::read_file(VELKOR_HOST_OPERATION_LOG);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 200);
}

}  // namespace
