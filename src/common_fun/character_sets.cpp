// Text between the interface's UTF-8 and the GB2312 of old configuration files, by the firmware's converters.
#include <stddef.h>
#include <string.h>

#include <algorithm>

#include <velkor/firmware.h>
#include <velkor/text.h>

namespace {

constexpr size_t MOST_BYTES = 2047;
constexpr int CONVERT = 1;

template <typename Convert>
int convert_in_place(int mode, char *text, Convert convert) {
    if (text == nullptr) {
        return -1;
    }
    const size_t length = strlen(text);
    if (mode != CONVERT) {
        return static_cast<int>(length);
    }
    char copy[MOST_BYTES + 1] = "";
    memcpy(copy, text, std::min(length, MOST_BYTES));
    memset(text, 0, length + 1);
    return convert(copy);
}

}  // namespace

int vk_TextGB2312ToUtf8(int mode, char *text, int size) {
    return convert_in_place(mode, text, [=](const char *copy) { return GB2312ToUTF8(copy, text, size, mode); });
}

int vk_TextUtf8ToGB2312(int mode, char *text, int size) {
    return convert_in_place(mode, text, [=](const char *copy) { return UTF8ToGB2312(copy, text, size); });
}
