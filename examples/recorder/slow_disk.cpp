// This process's own vfs_Write() in front of the stand-in's: a program may bring any of the firmware's functions
// itself. A disk in memory takes gigabytes a second; the recorder's takes some 24 MiB, and a copy can be watched.
#include <dlfcn.h>
#include <velkor/firmware.h>

#include <chrono>
#include <thread>

int vfs_Write(int fd, const void *buffer, int length) {
    constexpr double BYTES_A_SECOND = 24.0 * 1024 * 1024;
    static const auto stand_in = reinterpret_cast<decltype(&vfs_Write)>(dlsym(RTLD_NEXT, "vfs_Write"));
    const int written = stand_in(fd, buffer, length);
    if (written > 0) {
        std::this_thread::sleep_for(std::chrono::duration<double>(written / BYTES_A_SECOND));
    }
    return written;
}
