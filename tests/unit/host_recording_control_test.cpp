#include <gtest/gtest.h>
#include <velkor/firmware.h>
#include <velkor_host.h>

namespace {

TEST(HostRecording, IsPausedUntilItIsRestarted) {
    velkor_host_recording state;
    ASSERT_EQ(velkor_host_recording_get(&state), 0);
    EXPECT_EQ(state.paused, 0);
    EXPECT_EQ(rec_PauseAllFile(), 0);
    ASSERT_EQ(velkor_host_recording_get(&state), 0);
    EXPECT_EQ(state.paused, 1);
    EXPECT_EQ(state.pauses, 1U);
    EXPECT_EQ(rec_RestartAllFile(), 0);
    ASSERT_EQ(velkor_host_recording_get(&state), 0);
    EXPECT_EQ(state.paused, 0);
    EXPECT_EQ(state.restarts, 1U);
    EXPECT_EQ(velkor_host_recording_get(nullptr), -1);
}

}  // namespace
