#include <gtest/gtest.h>
#include <velkor/firmware.h>
#include <velkor/text.h>

#include <array>

namespace {

std::array<uintptr_t, 4> arguments;

}  // namespace

// The firmware's answer depends on what it is asked; that of the host's does not.
int vk_cmd_gAutoTestState(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth) {
    arguments = {first, second, third, fourth};
    return static_cast<int>(first) - 10;
}

namespace {

TEST(FirmwareState, HandsArgumentsAndAnswerThrough) {
    EXPECT_EQ(get_NvrAutoTestState(3, 2, UINTPTR_MAX, 0), -7);
    EXPECT_EQ(arguments, (std::array<uintptr_t, 4>{3, 2, UINTPTR_MAX, 0}));
}

TEST(FirmwareState, HasNoFishEye) { EXPECT_EQ(getFishEyeEnable(), 0); }

}  // namespace
