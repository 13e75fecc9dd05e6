// The recorder's modules that have a memory pool of their own from the start.
#pragma once

#include <array>

namespace velkor {

// A source file belongs to the first module whose name occurs anywhere in its path. The names are the firmware's
// folders with the subsystem before them, so that a file that merely has "web" or "disk" in its name is charged to
// nobody by accident. No name may occur in another.
inline constexpr std::array MODULE_NAMES = {
    "media/capture",      "media/encoder",    "media/decoder",        "media/audio",      "media/talkback",
    "media/overlay",      "media/snapshot",   "media/playback",       "media/live_view",

    "detection/motion",   "detection/tamper", "detection/video_loss",

    "recording/schedule", "recording/writer", "recording/index",      "recording/search", "recording/export",

    "storage/disk",       "storage/format",   "storage/health",       "storage/backup",

    "camera/discovery",   "camera/channel",   "camera/ptz",

    "alarm/input",        "alarm/relay",      "alarm/linkage",        "alarm/notify",

    "network/rtsp",       "network/web",      "network/mail",         "network/upload",   "network/ddns",
    "network/clock",      "network/remote",

    "interface/menu",     "interface/wizard", "interface/input",

    "device/config",      "device/users",     "device/journal",       "device/upgrade",   "device/selftest",
};
static_assert(MODULE_NAMES.size() == 43);

}  // namespace velkor
