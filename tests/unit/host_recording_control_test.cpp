// The stand-in for the firmware's recording control.
#include <gtest/gtest.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

namespace {

velkor_host_recording look() {
    velkor_host_recording state = {};
    EXPECT_EQ(velkor_host_recording_get(&state), 0);
    return state;
}

TEST(HostRecording, IsPausedUntilItIsRestarted) {
    EXPECT_EQ(look().paused, 0);
    EXPECT_EQ(rec_PauseAllFile(), 0);
    EXPECT_EQ(look().paused, 1);
    EXPECT_EQ(look().pauses, 1U);
    EXPECT_EQ(look().restarts, 0U);
    EXPECT_EQ(rec_RestartAllFile(), 0);
    EXPECT_EQ(look().paused, 0);
    EXPECT_EQ(look().restarts, 1U);
    EXPECT_EQ(look().channels_paused, 0) << "files and channels are told apart";
}

TEST(HostRecording, PausesChannelsUntilToldOtherwise) {
    EXPECT_EQ(look().channels_paused, 0);
    EXPECT_EQ(vk_cmd_UpgradeSetChnStat(0), 0);
    EXPECT_EQ(look().channels_paused, 1);
    EXPECT_EQ(look().paused, 0);
    EXPECT_EQ(vk_cmd_UpgradeSetChnStat(1), 0);
    EXPECT_EQ(look().channels_paused, 0);
}

TEST(HostRecording, RefusesToFillNothing) { EXPECT_EQ(velkor_host_recording_get(nullptr), -1); }

}  // namespace
