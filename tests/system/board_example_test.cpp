// The example of a board that brings a service of the firmware itself: what docs/porting.md shows is what it prints.
#include <gtest/gtest.h>

#include <string>

#include "support/place.h"

namespace {

TEST(BoardExample, IsServedByItsOwnMemoryService) {
    EXPECT_EQ(place::output_of(VELKOR_EMULATOR " " VELKOR_BOARD_PROGRAM),
              "a first frame of 40 KiB: there, a second: refused\n"
              "board_camera: 40960 bytes in use, limit 65536\n"
              "generalDvr: 15 bytes in use, limit 0\n"
              "once more, the frame at 16 KiB\n"
              "board_camera: 16384 bytes in use, limit 65536\n"
              "generalDvr: 15 bytes in use, limit 0\n"
              "released: yes\n"
              "in a child: works\n"
              "board_camera: 0 bytes in use, limit 65536\n"
              "generalDvr: 0 bytes in use, limit 0\n");
}

TEST(BoardExample, IsWhatTheDocumentShows) {
    const std::string document = place::read_file(VELKOR_SOURCE_DIR "/docs/porting.md");
    EXPECT_NE(document.find(place::output_of(VELKOR_EMULATOR " " VELKOR_BOARD_PROGRAM)), std::string::npos);
}

}  // namespace
