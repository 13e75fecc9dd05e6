#include <gtest/gtest.h>
#include <string.h>
#include <velkor/files.h>
#include <velkor/firmware.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/fork_meanwhile.h"
#include "support/waiting_text.h"

namespace velkor {
extern std::atomic<int32_t> delete_file_size;
}

namespace {

constexpr size_t WORD = 1523;

TEST(CopyControl, IsTheWordAtByte1523OfTheStatusRecord) {
    unsigned char record[WORD + 4];  // ends with the word: the sanitizers watch the byte behind it
    memset(record, 0xee, sizeof record);
    g_ptGuiSysStatus = record;
    EXPECT_EQ(GetCopyCtrlStatus(), 0);
    SetCopyCtrlStatus(1);
    const unsigned char cancel[] = {0, 1, 0, 0};
    EXPECT_EQ(memcmp(record + WORD, cancel, 4), 0);
    EXPECT_EQ(record[WORD - 1], 0xee);
    EXPECT_EQ(GetCopyCtrlStatus(), 1);
    SetCopyCtrlStatus(2);
    SetCopyCtrlStatus(256);
    EXPECT_EQ(memcmp(record + WORD, cancel, 4), 0);
    SetCopyCtrlStatus(0);
    const unsigned char none[] = {0, 0, 0, 0};
    EXPECT_EQ(memcmp(record + WORD, none, 4), 0);
    EXPECT_EQ(GetCopyCtrlStatus(), 0);
    record[WORD] = 1;
    EXPECT_EQ(GetCopyCtrlStatus(), 0);  // 1 is not 256
}

TEST(CopyControl, IsNoRequestWithoutAStatusRecord) {
    g_ptGuiSysStatus = nullptr;
    SetCopyCtrlStatus(1);
    EXPECT_EQ(GetCopyCtrlStatus(), 0);
}

TEST(CopyTarget, IsReadOnceAndHolds64Characters) {
    char out[66];
    memset(out, '?', sizeof out);
    EXPECT_EQ(Get_Dir(out), -1);
    EXPECT_EQ(out[0], '?');
    EXPECT_EQ(Set_Dir(nullptr), -1);
    EXPECT_EQ(Set_Dir(std::string(70, 'd').c_str()), 0);
    EXPECT_EQ(Get_Dir(nullptr), -1);
    EXPECT_EQ(Get_Dir(out), 0);
    EXPECT_EQ(std::string(out), std::string(64, 'd'));
    EXPECT_EQ(out[65], '?');
    EXPECT_EQ(Get_Dir(out), -1);
    EXPECT_EQ(Set_Dir("/mnt/long"), 0);
    EXPECT_EQ(Set_Dir("/a"), 0);
    EXPECT_EQ(Get_Dir(out), 0);
    EXPECT_EQ(std::string(out, 65), "/a" + std::string(63, '\0'));
    EXPECT_EQ(Set_Dir(""), 0);
    EXPECT_EQ(Get_Dir(out), -1);
}

TEST(CopyTarget, IsWholeInAChildForkedMeanwhile) {
    WaitingText path("/mnt/disk0/record");
    std::thread setter([&] { EXPECT_EQ(Set_Dir(path.c_str()), 0); });
    ASSERT_TRUE(path.has_reader());
    const auto has_target = [] {
        char out[65] = "";
        return Get_Dir(out) == 0 && std::string(out) == "/mnt/disk0/record" && Set_Dir("/a") == 0;
    };
    EXPECT_TRUE(fork_meanwhile::child_is_well(has_target, [&] { path.let_go(); }));
    setter.join();
}

TEST(DeleteFileSize, StaysBetween16And1024) {
    EXPECT_EQ(velkor::delete_file_size, 64);
    const struct {
        int given;
        int stored;
    } sizes[] = {{5, 16}, {16, 16}, {17, 17}, {1024, 1024}, {1025, 1024}, {5000, 1024}, {0, 16}, {-1, 16}};
    for (const auto &size : sizes) {
        EXPECT_EQ(SetDeletelFileSize(size.given), 0);
        EXPECT_EQ(velkor::delete_file_size, size.stored) << size.given;
    }
}

}  // namespace
