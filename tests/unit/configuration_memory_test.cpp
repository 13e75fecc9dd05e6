// Configuration files when memory lacks: each allocation in turn fails, alone or with all after it, and nothing is lost
// that was there. The linker puts these functions between the library and the C library's own.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <velkor/configuration.h>

#include <limits>
#include <string>

#include "support/ini_lockstep.h"
#include "support/place.h"
#include "support/sweep.h"

namespace {

constexpr int NEVER = std::numeric_limits<int>::max();

int allocations_left = NEVER;
bool only_one_fails = false;

bool is_refused() {
    if (allocations_left == NEVER) {
        return false;
    }
    if (allocations_left > 0) {
        --allocations_left;
        return false;
    }
    if (only_one_fails) {
        allocations_left = NEVER;
    }
    return true;
}

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
char *__real_strdup(const char *text);

void *__wrap_malloc(size_t size) { return is_refused() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(size_t count, size_t size) { return is_refused() ? nullptr : __real_calloc(count, size); }
char *__wrap_strdup(const char *text) { return is_refused() ? nullptr : __real_strdup(text); }
}

namespace {

using ini::Owned;

constexpr const char *FILE_PATH = "/tmp/test.ini";

// Lets the n-th allocation fail while it lives.
class Shortage {
public:
    Shortage(int after, bool only_one) {
        allocations_left = after;
        only_one_fails = only_one;
    }
    ~Shortage() { allocations_left = NEVER; }
    Shortage(const Shortage &) = delete;
    Shortage &operator=(const Shortage &) = delete;
};

// Calls `attempt` with more and more memory until it says that it got through; answers how often it did not.
template <typename Attempt>
int until_it_works(Attempt attempt, int step = 1) {
    int failures = 0;
    for (const bool only_one : {false, true}) {
        for (int after = 0; !attempt(after, only_one); after += step) {
            ++failures;
            if (after > 100000) {
                ADD_FAILURE() << "never got through";
                return failures;
            }
        }
    }
    return failures;
}

std::string everything(const Owned &d) {
    return ini::printed(dictionary_dump, d.get()) + ini::printed(iniparser_dump_ini, d.get());
}

void fill(const Owned &d, int count) {
    for (int i = d->count; i < count; ++i) {
        ASSERT_EQ(dictionary_add(d.get(), ("s:" + std::to_string(i)).c_str(), "value"), 0);
    }
}

TEST(ShortOfMemory, DoublingLeavesTheBlockAlone) {
    char *const block = strdup("kept");
    {
        const Shortage shortage(0, false);
        EXPECT_EQ(mem_double(block, 5), nullptr);
    }
    EXPECT_STREQ(block, "kept");
    free(block);
}

TEST(ShortOfMemory, NewAnswersNullForTheRecordAlone) {
    {
        const Shortage shortage(0, false);
        EXPECT_EQ(dictionary_new(0), nullptr);
    }
    for (int after = 1; after <= 8; ++after) {
        Owned d;
        {
            const Shortage shortage(after, true);
            d.reset(dictionary_new(0));
        }
        ASSERT_NE(d, nullptr) << after;
        EXPECT_EQ(d->size, 512);
        EXPECT_EQ(d->count, 0);
    }
}

TEST(ShortOfMemory, ADictionaryWithoutItsArraysRefusesAndAnswers) {
    const auto with_one_array_less = [](int after) {
        const Shortage shortage(after, true);
        return Owned(dictionary_new(0));
    };
    int refusing_entries = 0;
    int refusing_comments = 0;
    for (int after = 1; after <= 8; ++after) {
        const Owned d = with_one_array_less(after);
        const int added = dictionary_add(d.get(), "s", nullptr);
        const int commented = iniparser_add_comment(d.get(), "s", "", "; c", COMMENT_LINE);
        refusing_entries += added == -1 ? 1 : 0;
        refusing_comments += commented == -1 ? 1 : 0;
        EXPECT_EQ(d->count, added + 1);
        EXPECT_EQ(d->comment_count, commented + 1);
        EXPECT_EQ(dictionary_modify(d.get(), "t", "1"), added);
        EXPECT_EQ(iniparser_getnsec(d.get()), added == 0 ? 2 : 0);
        EXPECT_EQ(iniparser_find_entry(d.get(), "s"), added + 1);
        EXPECT_EQ(iniparser_getsecname(d.get(), 5), nullptr);
        EXPECT_EQ(dictionary_set(d.get(), "u", "1"), -1);
        dictionary_unset(d.get(), "s");
        everything(d);
    }
    EXPECT_EQ(refusing_entries, 5) << "values, keys, hashes, and two of its own";
    EXPECT_EQ(refusing_comments, 3);
}

TEST(ShortOfMemory, AddChangesNothing) {
    const Owned d(dictionary_new(0));
    fill(d, 512);
    const std::string before = everything(d);
    const int failures = until_it_works([&](int after, bool only_one) {
        int result = -1;
        {
            const Shortage shortage(after, only_one);
            result = dictionary_add(d.get(), "s:new", "v");
        }
        if (result == 0) {
            EXPECT_EQ(d->size, 1024);
            EXPECT_STREQ(dictionary_get(d.get(), "s:new", nullptr), "v");
            dictionary_unset(d.get(), "s:new");
        }
        EXPECT_EQ(everything(d), before);
        EXPECT_EQ(dictionary_getint(d.get(), "s:511", -1), 0);
        return result == 0;
    });
    EXPECT_GE(failures, 6);
}

TEST(ShortOfMemory, ModifyAndSetKeepTheOldValue) {
    const Owned d(dictionary_new(0));
    dictionary_add(d.get(), "a", "old");
    {
        const Shortage shortage(0, false);
        EXPECT_EQ(dictionary_set(d.get(), "a", "new"), -1);
        EXPECT_EQ(dictionary_modify(d.get(), "a", "new"), -1);
        EXPECT_EQ(dictionary_modify(d.get(), "b", "new"), -1);
        EXPECT_EQ(dictionary_setint(d.get(), "a", 5), -1);
        EXPECT_EQ(iniparser_setstr(d.get(), "a", "new"), 1);
        EXPECT_EQ(dictionary_set(d.get(), "a", "old"), 1000) << "needs no memory";
    }
    EXPECT_STREQ(dictionary_get(d.get(), "a", nullptr), "old");
    EXPECT_EQ(d->count, 1);
}

TEST(ShortOfMemory, AddEntryAnswersOne) {
    const Owned d(dictionary_new(0));
    const Shortage shortage(0, false);
    EXPECT_EQ(iniparser_add_entry(d.get(), "s", "k", "v"), 1);
    EXPECT_EQ(d->count, 0);
}

TEST(ShortOfMemory, AddCommentChangesNothing) {
    const auto add = [](const Owned &d, const char *text) {
        return iniparser_add_comment(d.get(), "s", "", text, COMMENT_LINE);
    };
    const int failures = until_it_works([&](int after, bool only_one) {
        const Owned d(dictionary_new(0));
        dictionary_add(d.get(), "s", nullptr);
        while (d->comment_count < 512) {
            add(d, "; c\n");
        }
        const std::string before = everything(d);
        int result = 0;
        {
            const Shortage shortage(after, only_one);
            result = add(d, "; d\n");
        }
        EXPECT_EQ(everything(d), result == 0 ? before + "; d\n" : before);
        EXPECT_EQ(d->comment_count, result == 0 ? 513 : 512);
        EXPECT_EQ(d->comment_size, after < 3 ? 512 : 1024);
        return result == 0;
    });
    EXPECT_EQ(failures, 8) << "three arrays and a text, twice";
}

TEST(ShortOfMemory, LoadGivesTheWholeFileOrNothing) {
    std::string content = "; head\n[s] ; behind\n";
    for (int i = 0; i < 600; ++i) {
        content += "k" + std::to_string(i) + " = v\n" + (i % 100 == 0 ? "; c\n" : "");
    }
    place::write_file(FILE_PATH, content + "k1 = again\n");
    const std::string whole = everything(Owned(iniparser_load(FILE_PATH)));
    int loads = 0;
    constexpr int STEP = sweep::SHARE;  // each failing allocation is a load of the whole file
    const auto load_short_of_memory = [&](int after, bool only_one) {
        Owned d;
        {
            const Shortage shortage(after, only_one);
            d.reset(iniparser_load(FILE_PATH));
        }
        if (d != nullptr) {
            EXPECT_EQ(everything(d), whole);
            ++loads;
        }
        // A larger filter of keys is all that a load can do without.
        return d != nullptr && (only_one ? after > 1300 : true);
    };
    EXPECT_GT(until_it_works(load_short_of_memory, STEP) * STEP, 1200);
    EXPECT_GE(loads, 2);
}

TEST(ShortOfMemory, WriteBackGivesTheSameBytes) {
    place::write_file(FILE_PATH, "; head\n[a] ; b\nk=1 ; c\n\n[ab]\nk=2\n  ; d\n[a]\nl=3\n[b:c]\nm=4\n");
    const Owned d(iniparser_load(FILE_PATH));
    const std::string expected = ini::printed(iniparser_dump_ini, d.get());
    for (const bool only_one : {false, true}) {
        for (int after = 0; after < 3; ++after) {
            FILE *const out = fopen("/tmp/out.ini", "w+");
            setvbuf(out, nullptr, _IONBF, 0);
            {
                const Shortage shortage(after, only_one);
                iniparser_dump_ini(d.get(), out);
            }
            fclose(out);
            EXPECT_EQ(place::read_file("/tmp/out.ini"), expected);
        }
    }
}

}  // namespace
