// Bounded copies and integer parsing: what the log manager and the allocator stand on.
#include <errno.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <velkor/text.h>

#include "support/log.h"

void strncopy(char *dst, const char *src, int n) {
    if (dst == nullptr || src == nullptr || n < 0) {
        return;
    }
    strncpy(dst, src, static_cast<size_t>(n));
    dst[n] = '\0';
}

void vk_strncpy(char *dst, int size, const char *src, int n) {
    if (size <= 0) {
        return;
    }
    strncopy(dst, src, n < size ? n : size - 1);
}

long long vk_atoll(const char *text) {
    if (text == nullptr) {
        return 0;
    }
    errno = 0;
    const long long value = strtoll(text, nullptr, 10);
    if (errno != 0) {
        VK_LOG_FLAGS(0xff0000, "[%s:%d]-under/over flow occurs\n", "vk_atoll", 895);
    }
    return value;
}

int vk_atoi(const char *text) { return static_cast<int32_t>(vk_atoll(text)); }

unsigned char vk_atou8(const char *text) {
    // Not atoi(): where `long` has 64 bits it would let 4294967297 through as 1, on the recorder it does not.
    const long long value = text != nullptr ? strtoll(text, nullptr, 10) : 0;
    return value >= 0 && value <= 255 ? static_cast<unsigned char>(value) : 0;
}
