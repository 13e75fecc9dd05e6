// A growing array of strings. Indexes are checked at the upper end only; below it, what an index out of range does to
// the list is done without touching memory outside the array.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include <velkor/concurrency.h>

// Small C libraries have no such function.
extern "C" __attribute__((weak)) size_t malloc_usable_size(void *block);

namespace {

size_t array_bytes(int32_t count) { return static_cast<size_t>(count) * sizeof(char *); }

bool resize(sList &list, int32_t count) {
    char **const items = static_cast<char **>(realloc(list.items, array_bytes(count)));
    if (items == nullptr) {
        return false;
    }
    list.items = items;
    return true;
}

char *copy_of(const char *text) {
    const size_t size = strlen(text) + 1;
    char *const copy = static_cast<char *>(malloc(size));
    if (copy != nullptr) {
        memcpy(copy, text, size);
    }
    return copy;
}

// A block of no bytes has none behind them either: it may not be written to, whatever the C library says of its size.
bool has_byte_behind(char *block, size_t length) {
    return length != 0 && block != nullptr && malloc_usable_size != nullptr && malloc_usable_size(block) > length;
}

// An inserted string asks for its characters only, and finds room for the terminator in what the C library gives
// beyond that. Where it gives nothing, the block grows by the byte.
char *tight_copy_of(const char *text) {
    const size_t length = strlen(text);
    char *copy = static_cast<char *>(malloc(length));
    if (!has_byte_behind(copy, length)) {
        char *const wider = static_cast<char *>(realloc(copy, length + 1));
        if (wider == nullptr) {
            free(copy);
            return nullptr;
        }
        copy = wider;
    }
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

// Takes the string over, also when it fails.
int put(sList &list, char *string, int32_t index) {
    if (string == nullptr || !resize(list, list.count + 1)) {
        free(string);
        return -1;
    }
    std::move_backward(list.items + index, list.items + list.count, list.items + list.count + 1);
    list.items[index] = string;
    ++list.count;
    return 0;
}

}  // namespace

int sList_Init(sList *list) {
    if (list == nullptr) {
        return -1;
    }
    list->count = 0;
    list->items = static_cast<char **>(malloc(array_bytes(1)));
    list->Add = sList_Add;
    list->Clear = sList_Clear;
    list->Insert = sList_Insert;
    list->Delete = sList_Delete;
    list->Init = sList_Init;
    list->Destroy = sList_Destroy;
    list->IndexOf = sList_IndexOf;
    return 0;
}

int sList_Add(sList *list, const char *text) {
    if (list == nullptr || text == nullptr) {
        return -1;
    }
    return put(*list, copy_of(text), list->count);
}

int sList_Insert(sList *list, const char *text, int index) {
    if (list == nullptr || text == nullptr || index > list->count) {
        return -1;
    }
    return put(*list, tight_copy_of(text), std::max(index, 0));
}

// An index of count is not refused: the last string leaves the list. In an empty list there is none to leave.
int sList_Delete(sList *list, int index) {
    if (list == nullptr || index > list->count || list->count == 0) {
        return -1;
    }
    char **const end = list->items + list->count;
    char **const item = list->items + std::clamp(index, 0, list->count - 1);
    free(*item);
    std::move(item + 1, end, item);
    end[-1] = nullptr;
    const bool resized = resize(*list, list->count);  // one too many: the next change makes it right
    --list->count;
    return resized ? 0 : -1;
}

int sList_IndexOf(const sList *list, const char *text) {
    if (list == nullptr || text == nullptr) {
        return -1;
    }
    for (int32_t index = 0; index < list->count; ++index) {
        if (strcmp(list->items[index], text) == 0) {
            return index;
        }
    }
    return -1;
}

int sList_Clear(sList *list) {
    if (list == nullptr) {
        return -1;
    }
    for (int32_t index = 0; index < list->count; ++index) {
        free(list->items[index]);
        list->items[index] = nullptr;
    }
    list->count = 0;
    return 0;
}

int sList_Destroy(sList *list) {
    if (list == nullptr) {
        return -1;
    }
    sList_Clear(list);
    free(list->items);
    list->items = nullptr;
    return 0;
}
