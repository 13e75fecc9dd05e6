// What dvrFree() does, step by step: its own result does not tell whether the memory service took the block.
#pragma once

#include <velkor/firmware.h>

#include "support/log.h"

namespace velkor {

// Answers the memory service's result, negative for a block that is not the service's. Such a block is still there.
inline int release_block(void *block) {
    if (block != nullptr) {
        // Whoever still holds a freed string reads an empty one. Volatile, because nobody reads this byte that the
        // compiler knows of.
        *static_cast<volatile char *>(block) = '\0';
    }
    return VkMem_Free(block);
}

inline int report_refused_block(void *block) {
    return VK_LOG("%s %d err _ptr = %p code = %d", "dvrFree", 238, block, VkMem_Error());
}

}  // namespace velkor
