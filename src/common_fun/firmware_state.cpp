// Questions about the recorder's state that programs ask through this library.
#include <stdint.h>

#include <velkor/firmware.h>
#include <velkor/text.h>

int get_NvrAutoTestState(uintptr_t first, uintptr_t second, uintptr_t third, uintptr_t fourth) {
    return vk_cmd_gAutoTestState(first, second, third, fourth);
}

int getFishEyeEnable(void) { return 0; }
