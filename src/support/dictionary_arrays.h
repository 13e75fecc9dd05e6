// The arrays of a dictionary, for the files that walk them.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <limits>

#include <velkor/configuration.h>

namespace velkor {

// A dictionary whose arrays could not all be allocated has no slots to walk.
inline int32_t entry_slots(const dictionary &d) {
    return d.values != nullptr && d.keys != nullptr && d.hashes != nullptr ? d.size : 0;
}

inline int32_t comment_slots(const dictionary &d) {
    return d.comment_texts != nullptr && d.comment_anchors != nullptr && d.comment_kinds != nullptr ? d.comment_size
                                                                                                    : 0;
}

// strdup() that ends its copy itself: where the text is a helper's result, another thread may take its end away
// meanwhile.
inline char *own_copy(const char *text) {
    const size_t length = strlen(text);
    auto *const copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

// Whether a slot holds a section: its name has no ':'. A free slot holds nothing.
inline bool is_section(const char *key) { return key != nullptr && strchr(key, ':') == nullptr; }

// False when there is no memory. The array is then as it was, and may well be doubled again later.
template <typename Element>
bool double_array(Element *&array, int32_t size) {
    void *const doubled = mem_double(array, static_cast<size_t>(size) * sizeof(Element));
    if (doubled == nullptr) {
        return false;
    }
    array = static_cast<Element *>(doubled);
    return true;
}

// Arrays side by side, of `size` elements each. When the memory lasts for some of them only, these are larger than
// they need to be, which harms nobody.
template <typename... Elements>
bool double_arrays(int32_t &size, Elements *&...arrays) {
    if (size > std::numeric_limits<int32_t>::max() / 2 || !(double_array(arrays, size) && ...)) {
        return false;
    }
    size *= 2;
    return true;
}

}  // namespace velkor
