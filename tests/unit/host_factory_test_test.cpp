#include <gtest/gtest.h>
#include <velkor/text.h>
#include <velkor_host.h>

namespace {

TEST(HostFactoryTest, IsNotRunningUntilAProgramSaysSo) {
    EXPECT_EQ(vk_cmd_gAutoTestState(1, 2, 3, 4), 0);
    velkor_host_factory_test_set(5);
    EXPECT_EQ(vk_cmd_gAutoTestState(0, 0, 0, 0), 5);
    EXPECT_EQ(get_NvrAutoTestState(1, 2, 3, 4), 5);
}

}  // namespace
