// The store under the configuration files: every answer, and where each entry sits.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/configuration.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/ini_lockstep.h"
#include "support/quick_hash.h"

namespace {

using ini::Owned;

std::string dumped(const Owned &d) { return ini::printed(dictionary_dump, d.get()); }

std::string numbered(int number) { return "key" + std::to_string(number); }

void add_numbered(const Owned &d, int count) {
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(dictionary_add(d.get(), numbered(i).c_str(), std::to_string(i).c_str()), 0);
    }
}

int slot_of(const Owned &d, const std::string &key) {
    for (int slot = 0; slot < d->size; ++slot) {
        if (d->keys[slot] != nullptr && d->keys[slot] == key) {
            return slot;
        }
    }
    return -1;
}

// What must hold between any two calls.
void expect_sound(const Owned &d) {
    int used = 0;
    for (int slot = 0; slot < d->size; ++slot) {
        if (d->keys[slot] == nullptr) {
            ASSERT_EQ(d->values[slot], nullptr) << slot;
            ASSERT_EQ(d->hashes[slot], 0U) << slot;
        } else {
            ASSERT_EQ(d->hashes[slot], dictionary_hash(d->keys[slot])) << slot;
            ++used;
        }
    }
    ASSERT_EQ(d->count, used);
}

// ---- The record ----

#if __SIZEOF_POINTER__ == 4
static_assert(sizeof(dictionary) == 40);
#endif
static_assert(offsetof(dictionary, count) == 0 && offsetof(dictionary, size) == 4);
static_assert(offsetof(dictionary, values) < offsetof(dictionary, keys));
static_assert(offsetof(dictionary, keys) < offsetof(dictionary, hashes));
static_assert(offsetof(dictionary, hashes) < offsetof(dictionary, comment_count));
static_assert(offsetof(dictionary, comment_size) == offsetof(dictionary, comment_count) + 4);
static_assert(offsetof(dictionary, comment_size) < offsetof(dictionary, comment_texts));
static_assert(offsetof(dictionary, comment_texts) < offsetof(dictionary, comment_anchors));
static_assert(offsetof(dictionary, comment_anchors) < offsetof(dictionary, comment_kinds));

// ---- The hash ----

TEST(DictionaryHash, IsOneAtATime) {
    // Computed by hand from the definition, and by its author's published example for "a".
    EXPECT_EQ(dictionary_hash("a"), 0xca2e9442U);
    EXPECT_EQ(dictionary_hash("The quick brown fox jumps over the lazy dog"), 0x519e91f5U);
}

TEST(DictionaryHash, IsZeroForNothing) {
    EXPECT_EQ(dictionary_hash(nullptr), 0U);
    EXPECT_EQ(dictionary_hash(""), 0U);
}

TEST(DictionaryHash, TakesBytesAsUnsigned) {
    std::mt19937 random(6);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same keys every time
    for (int i = 0; i < 2000; ++i) {
        std::string key(random() % 40, '\0');
        uint32_t expected = 0;
        for (char &byte : key) {
            byte = static_cast<char>(random() % 255 + 1);
            expected += static_cast<unsigned char>(byte);
            expected += expected << 10;
            expected ^= expected >> 6;
        }
        expected += expected << 3;
        expected ^= expected >> 11;
        expected += expected << 15;
        EXPECT_EQ(dictionary_hash(key.c_str()), expected);
    }
}

// ---- Growth ----

TEST(MemDouble, KeepsTheOldBytesAndClearsTheNew) {
    char *const block = static_cast<char *>(malloc(5));
    std::fill_n(block, 5, 'x');
    char *const doubled = static_cast<char *>(mem_double(block, 5));
    EXPECT_EQ(std::string(doubled, 10), std::string(5, 'x') + std::string(5, '\0'));
    free(doubled);
}

TEST(MemDouble, GivesNullForNull) { EXPECT_EQ(mem_double(nullptr, 4), nullptr); }

TEST(DictionaryNew, HasAtLeast512Slots) {
    for (const int wanted : {0, -5, 100, 511, 512, std::numeric_limits<int>::min()}) {
        const Owned d(dictionary_new(wanted));
        EXPECT_EQ(d->size, 512) << wanted;
        EXPECT_EQ(d->comment_size, 512) << wanted;
        EXPECT_EQ(d->count, 0);
        EXPECT_EQ(d->comment_count, 0);
        expect_sound(d);
    }
    const Owned d(dictionary_new(1000));
    EXPECT_EQ(d->size, 1000);
    EXPECT_EQ(d->comment_size, 1000);
    for (int slot = 0; slot < 1000; ++slot) {
        EXPECT_EQ(d->comment_kinds[slot], 0);
        EXPECT_EQ(d->comment_texts[slot], nullptr);
    }
}

TEST(DictionaryGrowth, DoublesAtThe513thEntryAndKeepsEverySlot) {
    const Owned d(dictionary_new(0));
    add_numbered(d, 512);
    EXPECT_EQ(d->size, 512);
    add_numbered(d, 0);
    ASSERT_EQ(dictionary_add(d.get(), "one more", nullptr), 0);
    EXPECT_EQ(d->size, 1024);
    EXPECT_EQ(d->comment_size, 512);
    for (int i = 0; i < 512; ++i) {
        EXPECT_EQ(slot_of(d, numbered(i)), i);
    }
    EXPECT_EQ(slot_of(d, "one more"), 512);
    expect_sound(d);
}

TEST(DictionaryGrowth, NeverShrinks) {
    const Owned d(dictionary_new(0));
    add_numbered(d, 600);
    for (int i = 0; i < 600; ++i) {
        dictionary_unset(d.get(), numbered(i).c_str());
    }
    EXPECT_EQ(d->size, 1024);
    EXPECT_EQ(d->count, 0);
    expect_sound(d);
}

TEST(DictionaryGrowth, ComesWithModifyToo) {
    const Owned d(dictionary_new(0));
    for (int i = 0; i < 513; ++i) {
        ASSERT_EQ(dictionary_modify(d.get(), numbered(i).c_str(), "v"), 0);
    }
    EXPECT_EQ(d->size, 1024);
    EXPECT_EQ(slot_of(d, numbered(512)), 512);
}

// ---- Reading ----

TEST(DictionaryGet, AnswersTheDefaultWhereNothingIs) {
    const Owned d(dictionary_new(0));
    const char *const otherwise = "default";
    EXPECT_EQ(dictionary_get(nullptr, "a", otherwise), otherwise);
    EXPECT_EQ(dictionary_get(d.get(), nullptr, otherwise), otherwise);
    EXPECT_EQ(dictionary_get(d.get(), "a", otherwise), otherwise);
    EXPECT_EQ(dictionary_get(d.get(), "a", nullptr), nullptr);
}

TEST(DictionaryGet, AnswersNullForAnEntryWithoutValue) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "section", nullptr);
    EXPECT_EQ(dictionary_get(d.get(), "section", "default"), nullptr);
}

TEST(DictionaryGet, KnowsTheEmptyKey) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "first", "1");
    EXPECT_STREQ(dictionary_get(d.get(), "", "default"), "default");
    ASSERT_EQ(dictionary_add(d.get(), "", "empty"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "", "default"), "empty");
    dictionary_unset(d.get(), "first");
    EXPECT_STREQ(dictionary_get(d.get(), "", "default"), "empty") << "a free slot before it has the same hash";
    expect_sound(d);
}

TEST(DictionaryGet, TellsKeysOfOneHashApart) {
    // Two texts of one hash, found by search.
    std::map<uint32_t, std::string> seen;
    std::string one;
    std::string other;
    for (unsigned i = 0; one.empty(); ++i) {
        const std::string key = "k" + std::to_string(i);
        const auto [found, is_new] = seen.emplace(dictionary_hash(key.c_str()), key);
        if (!is_new) {
            one = found->second;
            other = key;
        }
    }
    ASSERT_EQ(dictionary_hash(one.c_str()), dictionary_hash(other.c_str()));
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_add(d.get(), one.c_str(), "1"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), other.c_str(), "none"), "none");
    EXPECT_EQ(dictionary_add(d.get(), other.c_str(), "2"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), one.c_str(), "none"), "1");
    EXPECT_STREQ(dictionary_get(d.get(), other.c_str(), "none"), "2");
}

TEST(DictionaryGet, FindsAmongThousands) {
    const Owned d(dictionary_new(0));
    add_numbered(d, 5000);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(dictionary_getint(d.get(), numbered(i).c_str(), -1), i);
        ASSERT_EQ(dictionary_get(d.get(), (numbered(i) + "x").c_str(), nullptr), nullptr);
    }
    expect_sound(d);
}

TEST(DictionaryGetchar, AnswersTheFirstByteUnsigned) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "word", "yes");
    dictionary_add(d.get(), "high", "\xe9t\xe9");
    dictionary_add(d.get(), "empty", "");
    EXPECT_EQ(dictionary_getchar(d.get(), "word", 'x'), 'y');
    EXPECT_EQ(dictionary_getchar(d.get(), "high", 'x'), 0xe9);
    EXPECT_EQ(dictionary_getchar(d.get(), "empty", 'x'), 0);
    EXPECT_EQ(dictionary_getchar(d.get(), "absent", 'x'), 'x');
    EXPECT_EQ(dictionary_getchar(nullptr, "word", 'x'), 'x');
}

TEST(DictionaryGetint, ReadsAsAtoi) {
    const Owned d(dictionary_new(0));
    for (const auto &[text, number] : std::map<std::string, int>{{"12abc", 12},
                                                                 {"abc", 0},
                                                                 {"", 0},
                                                                 {"  -7", -7},
                                                                 {"+3", 3},
                                                                 {"0x10", 0},
                                                                 {"2147483647", 2147483647},
                                                                 {"-2147483648", std::numeric_limits<int>::min()}}) {
        dictionary_modify(d.get(), "n", text.c_str());
        EXPECT_EQ(dictionary_getint(d.get(), "n", 5), number) << text;
    }
    EXPECT_EQ(dictionary_getint(d.get(), "absent", 5), 5);
    EXPECT_EQ(dictionary_getint(d.get(), nullptr, 5), 5);
}

TEST(DictionaryGetint, StopsAt32BitsOnEveryPlatform) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "high", "4294967297");
    dictionary_add(d.get(), "low", "-99999999999999999999");
    EXPECT_EQ(dictionary_getint(d.get(), "high", 5), 2147483647);
    EXPECT_EQ(dictionary_getint(d.get(), "low", 5), std::numeric_limits<int>::min());
}

TEST(DictionaryGetdouble, ReadsAsAtof) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "half", "0.5x");
    dictionary_add(d.get(), "word", "abc");
    EXPECT_DOUBLE_EQ(dictionary_getdouble(d.get(), "half", 7), 0.5);
    EXPECT_DOUBLE_EQ(dictionary_getdouble(d.get(), "word", 7), 0);
    EXPECT_DOUBLE_EQ(dictionary_getdouble(d.get(), "absent", 7.25), 7.25);
}

TEST(DictionaryGetters, AnswerTheDefaultForAnEntryWithoutValue) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "section", nullptr);
    EXPECT_EQ(dictionary_getchar(d.get(), "section", 'x'), 'x');
    EXPECT_EQ(dictionary_getint(d.get(), "section", 5), 5);
    EXPECT_DOUBLE_EQ(dictionary_getdouble(d.get(), "section", 7), 7);
}

// ---- Changing ----

TEST(DictionarySet, NeverInserts) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_set(d.get(), "a", "1"), -1);
    dictionary_add(d.get(), "b", "1");
    EXPECT_EQ(dictionary_set(d.get(), "a", "1"), -1);
    EXPECT_EQ(d->count, 1);
}

TEST(DictionarySet, RefusesNull) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "1");
    EXPECT_EQ(dictionary_set(nullptr, "a", "2"), -1);
    EXPECT_EQ(dictionary_set(d.get(), nullptr, "2"), -1);
    EXPECT_EQ(dictionary_set(d.get(), "a", nullptr), -1);
    EXPECT_STREQ(dictionary_get(d.get(), "a", ""), "1");
}

TEST(DictionarySet, AnswersThousandForTheSameValueAndKeepsTheString) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "1");
    const char *const stored = dictionary_get(d.get(), "a", nullptr);
    EXPECT_EQ(dictionary_set(d.get(), "a", "1"), 1000);
    EXPECT_EQ(dictionary_get(d.get(), "a", nullptr), stored);
    EXPECT_EQ(dictionary_set(d.get(), "a", "2"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "2");
    EXPECT_EQ(dictionary_set(d.get(), "a", ""), 0);
    EXPECT_EQ(dictionary_set(d.get(), "a", ""), 1000);
}

TEST(DictionarySet, GivesAnEntryWithoutValueOne) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", nullptr);
    EXPECT_EQ(dictionary_set(d.get(), "a", "1"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "1");
}

TEST(DictionarySet, TakesAPartOfTheOldValue) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "one two");
    EXPECT_EQ(dictionary_set(d.get(), "a", dictionary_get(d.get(), "a", nullptr) + 4), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "two");
    EXPECT_EQ(dictionary_modify(d.get(), "a", dictionary_get(d.get(), "a", nullptr) + 1), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "wo");
}

TEST(DictionaryAdd, NeverReplaces) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_add(d.get(), "a", "1"), 0);
    EXPECT_EQ(dictionary_add(d.get(), "a", "2"), -1);
    EXPECT_EQ(dictionary_add(d.get(), "a", nullptr), -1);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "1");
    EXPECT_EQ(d->count, 1);
    EXPECT_EQ(dictionary_add(nullptr, "a", "1"), -1);
    EXPECT_EQ(dictionary_add(d.get(), nullptr, "1"), -1);
}

TEST(DictionaryAdd, KeepsCopies) {
    const Owned d(dictionary_new(0));
    std::string key = "key";
    std::string value = "value";
    dictionary_add(d.get(), key.c_str(), value.c_str());
    key = "xxx";
    value = "yyyyy";
    EXPECT_STREQ(dictionary_get(d.get(), "key", nullptr), "value");
}

TEST(DictionaryModify, InsertsOrReplaces) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_modify(d.get(), "a", "1"), 0);
    EXPECT_EQ(dictionary_modify(d.get(), "a", "2"), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "2");
    EXPECT_EQ(d->count, 1);
    EXPECT_EQ(dictionary_modify(nullptr, "a", "1"), -1);
    EXPECT_EQ(dictionary_modify(d.get(), nullptr, "1"), -1);
}

TEST(DictionaryModify, LeavesNoValueForNull) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "1");
    EXPECT_EQ(dictionary_modify(d.get(), "a", nullptr), 0);
    EXPECT_EQ(dictionary_get(d.get(), "a", "default"), nullptr);
    EXPECT_EQ(d->count, 1);
    EXPECT_EQ(dictionary_modify(d.get(), "new", nullptr), 0);
    EXPECT_EQ(dictionary_get(d.get(), "new", "default"), nullptr);
}

TEST(DictionaryUnset, FreesTheSlotForTheNextEntry) {
    const Owned d(dictionary_new(0));
    add_numbered(d, 5);
    dictionary_unset(d.get(), numbered(3).c_str());
    dictionary_unset(d.get(), numbered(1).c_str());
    dictionary_unset(d.get(), "absent");
    EXPECT_EQ(d->count, 3);
    expect_sound(d);
    dictionary_add(d.get(), "low", "x");
    dictionary_add(d.get(), "next", "y");
    dictionary_add(d.get(), "last", "z");
    EXPECT_EQ(slot_of(d, "low"), 1);
    EXPECT_EQ(slot_of(d, "next"), 3);
    EXPECT_EQ(slot_of(d, "last"), 5);
    EXPECT_EQ(dumped(d),
              "                key0\t[0]\n                 low\t[x]\n                key2\t[2]\n"
              "                next\t[y]\n                key4\t[4]\n                last\t[z]\n");
}

TEST(DictionaryUnset, TakesTheEntrysOwnKey) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "1");
    dictionary_unset(d.get(), d->keys[0]);
    EXPECT_EQ(d->count, 0);
}

TEST(DictionaryUnset, SurvivesNull) {
    const Owned d(dictionary_new(0));
    dictionary_unset(nullptr, "a");
    dictionary_unset(d.get(), nullptr);
    EXPECT_EQ(d->count, 0);
}

TEST(DictionarySetint, PrintsAndOnlyUpdates) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_setint(d.get(), "n", 5), -1);
    dictionary_add(d.get(), "n", nullptr);
    EXPECT_EQ(dictionary_setint(d.get(), "n", -2147483647 - 1), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "n", nullptr), "-2147483648");
    EXPECT_EQ(dictionary_setint(d.get(), "n", -2147483647 - 1), 1000);
}

TEST(DictionarySetdouble, PrintsSixDigitsAndOnlyUpdates) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dictionary_setdouble(d.get(), "x", 0.5), -1);
    dictionary_add(d.get(), "x", nullptr);
    EXPECT_EQ(dictionary_setdouble(d.get(), "x", 3.14159265), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "x", nullptr), "3.14159");
    EXPECT_EQ(dictionary_setdouble(d.get(), "x", 3.141591), 1000);
    EXPECT_EQ(dictionary_setdouble(d.get(), "x", 1e300), 0);
    EXPECT_STREQ(dictionary_get(d.get(), "x", nullptr), "1e+300");
}

// ---- Printing ----

TEST(DictionaryDump, AlignsKeysAndSaysUndef) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "section", nullptr);
    dictionary_add(d.get(), "section:key", "value");
    dictionary_add(d.get(), "a key that is longer than twenty", "");
    EXPECT_EQ(dumped(d),
              "             section\t[UNDEF]\n         section:key\t[value]\n"
              "a key that is longer than twenty\t[]\n");
}

TEST(DictionaryDump, SaysWhenNothingIsThere) {
    const Owned d(dictionary_new(0));
    EXPECT_EQ(dumped(d), "empty dictionary\n");
    dictionary_add(d.get(), "a", "1");
    dictionary_unset(d.get(), "a");
    EXPECT_EQ(dumped(d), "empty dictionary\n");
}

TEST(DictionaryDump, DoesNothingWithoutItsArguments) {
    const Owned d(dictionary_new(0));
    dictionary_dump(d.get(), nullptr);
    EXPECT_EQ(ini::printed(dictionary_dump, nullptr), "");
}

TEST(DictionaryDel, TakesNull) { dictionary_del(nullptr); }

// ---- Over a long life ----

TEST(Dictionary, StaysSoundThroughManyChanges) {
    const Owned d(dictionary_new(0));
    std::map<std::string, std::string> expected;
    std::mt19937 random(66);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same keys every time
    for (int step = 0; step < 20000; ++step) {
        const std::string key = numbered(static_cast<int>(random() % 1500));
        const std::string value = std::to_string(random());
        switch (random() % 3) {
            case 0:
                EXPECT_EQ(dictionary_add(d.get(), key.c_str(), value.c_str()), expected.emplace(key, value).second - 1);
                break;
            case 1:
                EXPECT_EQ(dictionary_modify(d.get(), key.c_str(), value.c_str()), 0);
                expected[key] = value;
                break;
            default:
                dictionary_unset(d.get(), key.c_str());
                expected.erase(key);
        }
    }
    expect_sound(d);
    ASSERT_EQ(static_cast<size_t>(d->count), expected.size());
    for (const auto &[key, value] : expected) {
        EXPECT_STREQ(dictionary_get(d.get(), key.c_str(), nullptr), value.c_str());
    }
}

TEST(QuickHash, TellsTextsApartThatDifferInAnyOneByte) {
    for (size_t length = 1; length < 40; ++length) {
        std::set<uint32_t> hashes;
        for (size_t at = 0; at < length; ++at) {
            for (const char byte : {'a', 'b', '0', '\x80'}) {
                std::string text(length, '.');
                text[at] = byte;
                hashes.insert(velkor::high_half(velkor::quick_hash(text)));
            }
        }
        EXPECT_GE(hashes.size() + 1, 4 * length) << length;
    }
}

}  // namespace
