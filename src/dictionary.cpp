// The string-to-string store under the configuration files.
//
// Entries sit in flat arrays, and a look-up scans one of them in the order of the slots: for the few hundred settings
// of a recorder that is a handful of cache lines. It does not scan the hashes that callers see: making one takes four
// steps for each byte of the key, more than all the rest. Each slot has a tag beside its hash, a quicker hash of the
// same key, and that is what is compared.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include <velkor/configuration.h>

#include "support/dictionary_arrays.h"
#include "support/number_text.h"
#include "support/quick_hash.h"

namespace {

constexpr int32_t LEAST_SLOTS = 512;
constexpr int32_t NOT_FOUND = -1;
constexpr int UNCHANGED = 1000;
constexpr size_t NUMBER_SIZE = 512;

using Tag = uint32_t;

// What dictionary_new() really makes: the record that callers know, and what spares walks over all slots.
struct Store {
    dictionary record;
    Tag *tags;            // 0 for a free slot
    uint8_t *seen;        // a bit for each tag that was ever here; several tags share one
    int32_t seen_size;    // bytes
    int32_t used_end;     // all slots from here on are free
    int32_t search_from;  // all slots before this one are in use
};
static_assert(std::is_standard_layout_v<Store>);

Store &store_of(dictionary &d) { return *reinterpret_cast<Store *>(&d); }
const Store &store_of(const dictionary &d) { return *reinterpret_cast<const Store *>(&d); }

}  // namespace

// ---- The hash -----------------------------------------------------------------------------------------------------

// R. J. Jenkins, Hash Functions, Dr. Dobb's Journal, September 1997. Each byte waits for the one before it, so a
// step is written to be short: h + b, and that times 1025, is (h << 10) + (h + 1025 b), where one addition need not
// wait. The compiler would put it back.
#if __has_builtin(__builtin_assoc_barrier)
#define VELKOR_TOGETHER(sum) __builtin_assoc_barrier(sum)
#else
#define VELKOR_TOGETHER(sum) (sum)
#endif

uint32_t dictionary_hash(const char *key) {
    if (key == nullptr) {
        return 0;
    }
    uint32_t hash = 0;
    for (; *key != '\0'; ++key) {
        const uint32_t byte = static_cast<unsigned char>(*key);
        hash = (hash << 10) + VELKOR_TOGETHER(hash + byte * 1025);
        hash ^= hash >> 6;
    }
    hash += hash << 3;
    hash ^= hash >> 11;
    hash += hash << 15;
    return hash;
}

// ---- Slots --------------------------------------------------------------------------------------------------------

namespace {

Tag tag_of(const char *key) { return velkor::high_half(velkor::quick_hash(key)); }

// Tags that are compared at once: a loop of fixed length without a way out becomes vector compares where the
// processor has them. Unrolled it is a third faster.
constexpr int32_t BLOCK = 32;

bool block_holds(const Tag *tags, Tag tag) {
    uint32_t equal = 0;
#pragma GCC unroll 16
    for (int32_t i = 0; i < BLOCK; ++i) {
        equal += tags[i] == tag ? 1 : 0;
    }
    return equal != 0;
}

int32_t next_with_tag(const Tag *tags, int32_t slot, int32_t end, Tag tag) {
    while (end - slot >= BLOCK && !block_holds(tags + slot, tag)) {
        slot += BLOCK;
    }
    while (slot < end && tags[slot] != tag) {
        ++slot;
    }
    return slot;
}

// Most keys that are added are new. Their bit is not set, unless another key set it, so that there is no need to scan
// all slots just to find out.
struct Bit {
    uint32_t byte;
    uint8_t mask;
};

Bit bit_of(const Store &store, Tag tag) {
    const auto number = static_cast<uint32_t>(uint64_t{tag} * static_cast<uint32_t>(store.seen_size) >> (32 - 3));
    return {number / 8, static_cast<uint8_t>(1U << number % 8)};
}

bool was_seen(const Store &store, Tag tag) {
    const Bit bit = bit_of(store, tag);
    return (store.seen[bit.byte] & bit.mask) != 0;
}

void note_seen(Store &store, Tag tag) {
    const Bit bit = bit_of(store, tag);
    store.seen[bit.byte] = static_cast<uint8_t>(store.seen[bit.byte] | bit.mask);
}

// A free slot has the tag 0, and so may a key.
int32_t find(const dictionary &d, const char *key, Tag tag) {
    const Store &store = store_of(d);
    const int32_t end = store.used_end;
    if (end == 0 || !was_seen(store, tag)) {
        return NOT_FOUND;
    }
    for (int32_t slot = 0; (slot = next_with_tag(store.tags, slot, end, tag)) < end; ++slot) {
        if (d.keys[slot] != nullptr && strcmp(d.keys[slot], key) == 0) {
            return slot;
        }
    }
    return NOT_FOUND;
}

int32_t find(const dictionary &d, const char *key) { return find(d, key, tag_of(key)); }

int32_t lowest_free(const dictionary &d) {
    int32_t slot = store_of(d).search_from;
    while (slot < d.size && d.keys[slot] != nullptr) {
        ++slot;
    }
    return slot;
}

// A byte for each slot. Without memory the old bits go on, though more keys share each.
void renew_seen(Store &store) {
    auto *const renewed = static_cast<uint8_t *>(calloc(static_cast<size_t>(store.record.size), 1));
    if (renewed == nullptr) {
        return;
    }
    free(store.seen);
    store.seen = renewed;
    store.seen_size = store.record.size;
    for (int32_t slot = 0; slot < store.used_end; ++slot) {
        note_seen(store, store.tags[slot]);
    }
}

bool grow(dictionary &d) {
    Store &store = store_of(d);
    if (!velkor::double_arrays(d.size, d.values, d.keys, d.hashes, store.tags)) {
        return false;
    }
    renew_seen(store);
    return true;
}

bool has_room(dictionary &d) {
    const Store &store = store_of(d);
    return velkor::entry_slots(d) > 0 && store.tags != nullptr && store.seen != nullptr &&
           (d.count != d.size || grow(d));
}

void take_slot(dictionary &d, int32_t slot, char *key, char *value, Tag tag) {
    d.keys[slot] = key;
    d.values[slot] = value;
    d.hashes[slot] = dictionary_hash(key);
    ++d.count;
    Store &store = store_of(d);
    store.tags[slot] = tag;
    note_seen(store, tag);
    store.search_from = slot + 1;
    store.used_end = std::max(store.used_end, slot + 1);
}

void free_slot(dictionary &d, int32_t slot) {
    free(d.keys[slot]);
    free(d.values[slot]);
    d.keys[slot] = nullptr;
    d.values[slot] = nullptr;
    d.hashes[slot] = 0;
    --d.count;
    Store &store = store_of(d);
    store.tags[slot] = 0;
    store.search_from = std::min(store.search_from, slot);
    while (store.used_end > 0 && d.keys[store.used_end - 1] == nullptr) {
        --store.used_end;
    }
}

// Whether `copy` is what it should be: NULL for NULL, or a copy. False when there was no memory.
bool copy_value(const char *value, char *&copy) {
    copy = value != nullptr ? velkor::own_copy(value) : nullptr;
    return value == nullptr || copy != nullptr;
}

int insert(dictionary &d, const char *key, Tag tag, const char *value) {
    if (!has_room(d)) {
        return -1;
    }
    const int32_t slot = lowest_free(d);
    char *const own_key = slot < d.size ? velkor::own_copy(key) : nullptr;
    char *own_value = nullptr;
    if (own_key == nullptr || !copy_value(value, own_value)) {
        free(own_key);
        return -1;
    }
    take_slot(d, slot, own_key, own_value, tag);
    return 0;
}

// The new value may be a part of the old one, so that is freed last.
int replace(dictionary &d, int32_t slot, const char *value) {
    char *own_value = nullptr;
    if (!copy_value(value, own_value)) {
        return -1;
    }
    free(d.values[slot]);
    d.values[slot] = own_value;
    return 0;
}

}  // namespace

// ---- A dictionary's life ------------------------------------------------------------------------------------------

void *mem_double(void *block, size_t length) {
    if (block == nullptr) {
        return nullptr;
    }
    void *const doubled = calloc(2, length);
    if (doubled != nullptr) {
        memcpy(doubled, block, length);
        free(block);
    }
    return doubled;
}

namespace {

template <typename Element>
void allocate(Element *&array, int32_t size) {
    array = static_cast<Element *>(calloc(static_cast<size_t>(size), sizeof(Element)));
}

void free_texts(char **texts, int32_t size) {
    for (int32_t slot = 0; texts != nullptr && slot < size; ++slot) {
        if (texts[slot] != nullptr) {  // most are, and a call costs more than a look
            free(texts[slot]);
        }
    }
    free(texts);
}

}  // namespace

// What an array could not be allocated for is refused later; see entry_slots().
dictionary *dictionary_new(int size) {
    auto *const store = static_cast<Store *>(calloc(1, sizeof(Store)));
    if (store == nullptr) {
        return nullptr;
    }
    dictionary &d = store->record;
    d.size = std::max<int32_t>(size, LEAST_SLOTS);
    d.comment_size = d.size;
    allocate(d.values, d.size);
    allocate(d.keys, d.size);
    allocate(d.hashes, d.size);
    allocate(store->tags, d.size);
    renew_seen(*store);
    allocate(d.comment_texts, d.comment_size);
    allocate(d.comment_anchors, d.comment_size);
    allocate(d.comment_kinds, d.comment_size);
    return &d;
}

void dictionary_del(dictionary *d) {
    if (d == nullptr) {
        return;
    }
    free_texts(d->keys, d->size);
    free_texts(d->values, d->size);
    free_texts(d->comment_texts, d->comment_size);
    free(d->hashes);
    free(d->comment_anchors);
    free(d->comment_kinds);
    Store &store = store_of(*d);
    free(store.tags);
    free(store.seen);
    free(&store);
}

// ---- Reading ------------------------------------------------------------------------------------------------------

char *dictionary_get(const dictionary *d, const char *key, const char *def) {
    const int32_t slot = d != nullptr && key != nullptr ? find(*d, key) : NOT_FOUND;
    return slot != NOT_FOUND ? d->values[slot] : const_cast<char *>(def);
}

// An entry without value reads as if it were absent: there is nothing to convert.
unsigned char dictionary_getchar(const dictionary *d, const char *key, unsigned char def) {
    const char *const value = dictionary_get(d, key, nullptr);
    return value != nullptr ? static_cast<unsigned char>(*value) : def;
}

int dictionary_getint(const dictionary *d, const char *key, int def) {
    const char *const value = dictionary_get(d, key, nullptr);
    return value != nullptr ? velkor::number_of(value) : def;
}

double dictionary_getdouble(const dictionary *d, const char *key, double def) {
    const char *const value = dictionary_get(d, key, nullptr);
    return value != nullptr ? strtod(value, nullptr) : def;
}

// ---- Changing -----------------------------------------------------------------------------------------------------

int dictionary_set(dictionary *d, const char *key, const char *value) {
    if (d == nullptr || key == nullptr || value == nullptr || d->count <= 0) {
        return -1;
    }
    const int32_t slot = find(*d, key);
    if (slot == NOT_FOUND) {
        return -1;
    }
    const char *const old = d->values[slot];
    return old != nullptr && strcmp(old, value) == 0 ? UNCHANGED : replace(*d, slot, value);
}

int dictionary_add(dictionary *d, const char *key, const char *value) {
    if (d == nullptr || key == nullptr) {
        return -1;
    }
    const Tag tag = tag_of(key);
    return find(*d, key, tag) == NOT_FOUND ? insert(*d, key, tag, value) : -1;
}

int dictionary_modify(dictionary *d, const char *key, const char *value) {
    if (d == nullptr || key == nullptr) {
        return -1;
    }
    const Tag tag = tag_of(key);
    const int32_t slot = find(*d, key, tag);
    return slot != NOT_FOUND ? replace(*d, slot, value) : insert(*d, key, tag, value);
}

void dictionary_unset(dictionary *d, const char *key) {
    const int32_t slot = d != nullptr && key != nullptr ? find(*d, key) : NOT_FOUND;
    if (slot != NOT_FOUND) {
        free_slot(*d, slot);
    }
}

int dictionary_setint(dictionary *d, const char *key, int value) {
    char text[NUMBER_SIZE];
    snprintf(text, sizeof text, "%d", value);
    return dictionary_set(d, key, text);
}

int dictionary_setdouble(dictionary *d, const char *key, double value) {
    char text[NUMBER_SIZE];
    snprintf(text, sizeof text, "%g", value);
    return dictionary_set(d, key, text);
}

// ---- Printing -----------------------------------------------------------------------------------------------------

void dictionary_dump(const dictionary *d, FILE *out) {
    if (d == nullptr || out == nullptr) {
        return;
    }
    if (d->count < 1) {
        fputs("empty dictionary\n", out);
        return;
    }
    for (int32_t slot = 0; slot < velkor::entry_slots(*d); ++slot) {
        if (d->keys[slot] != nullptr) {
            fprintf(out, "%20s\t[%s]\n", d->keys[slot], d->values[slot] != nullptr ? d->values[slot] : "UNDEF");
        }
    }
}
