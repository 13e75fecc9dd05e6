#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdint.h>
#include <velkor/concurrency.h>

#include <string>
#include <vector>

#include "support/allocation_faults.h"

namespace {

using testing::ElementsAre;

// A list that gives everything back, so that the leak checker sees what the list itself lost.
class StringList : public testing::Test {
protected:
    StringList() { EXPECT_EQ(sList_Init(&list_), 0); }
    ~StringList() override { EXPECT_EQ(sList_Destroy(&list_), 0); }

    void add(const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            EXPECT_EQ(sList_Add(&list_, text.c_str()), 0);
        }
    }

    std::vector<std::string> strings() const { return {list_.items, list_.items + list_.count}; }

    sList list_;
};

TEST_F(StringList, BeginsEmpty) {
    EXPECT_EQ(list_.count, 0);
    EXPECT_NE(list_.items, nullptr);
    EXPECT_EQ(sList_IndexOf(&list_, ""), -1);
    EXPECT_EQ(sList_IndexOf(&list_, "eth0"), -1);
}

TEST_F(StringList, BeginsWithAnArrayOfOneString) {
    sList other;
    allocations::take_sizes();
    sList_Init(&other);
    EXPECT_THAT(allocations::take_sizes(), ElementsAre(sizeof(char *)));
    sList_Destroy(&other);
}

TEST_F(StringList, KnowsItsFunctions) {
    EXPECT_EQ(list_.Add, sList_Add);
    EXPECT_EQ(list_.Clear, sList_Clear);
    EXPECT_EQ(list_.Insert, sList_Insert);
    EXPECT_EQ(list_.Delete, sList_Delete);
    EXPECT_EQ(list_.Init, sList_Init);
    EXPECT_EQ(list_.Destroy, sList_Destroy);
    EXPECT_EQ(list_.IndexOf, sList_IndexOf);
}

TEST_F(StringList, AddAppendsACopy) {
    char text[] = "eth0";
    EXPECT_EQ(list_.Add(&list_, text), 0);
    text[3] = '1';
    EXPECT_EQ(list_.Add(&list_, text), 0);
    EXPECT_EQ(list_.Add(&list_, ""), 0);
    EXPECT_THAT(strings(), ElementsAre("eth0", "eth1", ""));
}

TEST_F(StringList, AddAsksForTheTerminatorToo) {
    allocations::take_sizes();
    sList_Add(&list_, std::string(24, 'x').c_str());
    EXPECT_THAT(allocations::take_sizes(), ElementsAre(25, sizeof(char *)));
}

TEST_F(StringList, InsertAsksForTheCharactersAloneAndWidensWhereTheTerminatorHasNoRoom) {
    for (size_t length = 0; length < 100; ++length) {
        allocations::take_sizes();
        ASSERT_EQ(sList_Insert(&list_, std::string(length, 'x').c_str(), 0), 0);
        const std::vector<size_t> sizes = allocations::take_sizes();
        const size_t array = static_cast<size_t>(list_.count) * sizeof(char *);
        const bool is_widened = sizes == std::vector<size_t>{length, length + 1, array};
        EXPECT_TRUE(is_widened || sizes == (std::vector<size_t>{length, array})) << length;
        EXPECT_TRUE(is_widened || length != 0) << "a block of no bytes was written to";
        EXPECT_GT(malloc_usable_size(list_.items[0]), length);
    }
}

TEST_F(StringList, InsertMovesLaterStringsUp) {
    add({"a", "c"});
    EXPECT_EQ(list_.Insert(&list_, "b", 1), 0);
    EXPECT_EQ(list_.Insert(&list_, "0", 0), 0);
    EXPECT_THAT(strings(), ElementsAre("0", "a", "b", "c"));
}

TEST_F(StringList, InsertAtCountAppends) {
    EXPECT_EQ(sList_Insert(&list_, "a", 0), 0);
    EXPECT_EQ(sList_Insert(&list_, "b", 1), 0);
    EXPECT_THAT(strings(), ElementsAre("a", "b"));
}

TEST_F(StringList, InsertAboveCountIsRefused) {
    add({"a"});
    EXPECT_EQ(sList_Insert(&list_, "x", 2), -1);
    EXPECT_EQ(sList_Insert(&list_, "x", INT32_MAX), -1);
    EXPECT_THAT(strings(), ElementsAre("a"));
}

TEST_F(StringList, InsertAtANegativeIndexGoesToTheFront) {
    EXPECT_EQ(sList_Insert(&list_, "b", -1), 0);
    EXPECT_EQ(sList_Insert(&list_, "a", INT32_MIN), 0);
    EXPECT_THAT(strings(), ElementsAre("a", "b"));
}

// Every length around the sizes in which a C library gives out memory: with the terminator in its spare bytes, and
// where it has none to spare. AddressSanitizer gives none ever.
TEST_F(StringList, InsertKeepsTextsOfAnyLengthWhole) {
    std::vector<std::string> texts;
    for (size_t length = 0; length < 300; ++length) {
        texts.emplace_back(length, static_cast<char>('a' + length % 26));
        ASSERT_EQ(sList_Insert(&list_, texts.back().c_str(), static_cast<int>(length)), 0);
    }
    EXPECT_EQ(strings(), texts);
}

TEST_F(StringList, DeleteRemovesAndMovesLaterStringsDown) {
    add({"a", "b", "c", "d"});
    EXPECT_EQ(list_.Delete(&list_, 1), 0);
    EXPECT_THAT(strings(), ElementsAre("a", "c", "d"));
    EXPECT_EQ(list_.Delete(&list_, 0), 0);
    EXPECT_THAT(strings(), ElementsAre("c", "d"));
}

TEST_F(StringList, DeleteOfTheLastLeavesTheOthersInPlace) {
    add({"a", "b", "c"});
    const char *const first = list_.items[0];
    EXPECT_EQ(sList_Delete(&list_, 2), 0);
    EXPECT_THAT(strings(), ElementsAre("a", "b"));
    EXPECT_EQ(list_.items[0], first);
}

TEST_F(StringList, DeleteOfTheOnlyStringEmptiesTheList) {
    add({"a"});
    EXPECT_EQ(sList_Delete(&list_, 0), 0);
    EXPECT_EQ(list_.count, 0);
    add({"b"});
    EXPECT_THAT(strings(), ElementsAre("b"));
}

TEST_F(StringList, DeleteResizesToTheCountBefore) {
    add({"a", "b", "c"});
    allocations::take_sizes();
    EXPECT_EQ(sList_Delete(&list_, 1), 0);
    EXPECT_EQ(sList_Delete(&list_, 1), 0);
    EXPECT_THAT(allocations::take_sizes(), ElementsAre(3 * sizeof(char *), 2 * sizeof(char *)));
}

TEST_F(StringList, DeleteAboveCountIsRefused) {
    add({"a"});
    EXPECT_EQ(sList_Delete(&list_, 2), -1);
    EXPECT_EQ(sList_Delete(&list_, INT32_MAX), -1);
    EXPECT_THAT(strings(), ElementsAre("a"));
}

TEST_F(StringList, DeleteAtCountIsAcceptedAndDropsTheLastString) {
    add({"a", "b", "c"});
    EXPECT_EQ(sList_Delete(&list_, 3), 0);
    EXPECT_THAT(strings(), ElementsAre("a", "b"));
}

TEST_F(StringList, DeleteAtANegativeIndexDropsTheFirstString) {
    add({"a", "b", "c"});
    EXPECT_EQ(sList_Delete(&list_, -1), 0);
    EXPECT_THAT(strings(), ElementsAre("b", "c"));
    EXPECT_EQ(sList_Delete(&list_, INT32_MIN), 0);
    EXPECT_THAT(strings(), ElementsAre("c"));
}

TEST_F(StringList, DeleteInAnEmptyListFailsAndLeavesItEmpty) {
    EXPECT_EQ(sList_Delete(&list_, 0), -1);
    EXPECT_EQ(sList_Delete(&list_, -1), -1);
    EXPECT_EQ(list_.count, 0);
    add({"a"});
    EXPECT_THAT(strings(), ElementsAre("a"));
}

TEST_F(StringList, IndexOfGivesTheLowestOfDuplicates) {
    add({"a", "b", "b", "bb"});
    EXPECT_EQ(list_.IndexOf(&list_, "b"), 1);
    EXPECT_EQ(list_.IndexOf(&list_, "bb"), 3);
    EXPECT_EQ(list_.IndexOf(&list_, "B"), -1);
    EXPECT_EQ(list_.IndexOf(&list_, ""), -1);
}

TEST_F(StringList, ClearKeepsTheArrayAndEmptiesItsSlots) {
    add({"a", "b"});
    char **const items = list_.items;
    EXPECT_EQ(list_.Clear(&list_), 0);
    EXPECT_EQ(list_.count, 0);
    EXPECT_EQ(list_.items, items);
    EXPECT_EQ(items[0], nullptr);
    EXPECT_EQ(items[1], nullptr);
}

TEST_F(StringList, ClearThenAddNeedsNoInit) {
    add({"a", "b"});
    sList_Clear(&list_);
    add({"c"});
    EXPECT_THAT(strings(), ElementsAre("c"));
}

TEST_F(StringList, DestroyGivesTheArrayBackAndMayBeRepeated) {
    add({"a", "b"});
    EXPECT_EQ(list_.Destroy(&list_), 0);
    EXPECT_EQ(list_.count, 0);
    EXPECT_EQ(list_.items, nullptr);
    EXPECT_EQ(list_.Destroy(&list_), 0);
    EXPECT_EQ(list_.IndexOf(&list_, "a"), -1);
    add({"c"});
    EXPECT_THAT(strings(), ElementsAre("c"));
}

TEST_F(StringList, ClearAndDestroyOfAnEmptyListAreHarmless) {
    EXPECT_EQ(sList_Clear(&list_), 0);
    EXPECT_EQ(sList_Clear(&list_), 0);
    EXPECT_EQ(sList_Destroy(&list_), 0);
}

TEST_F(StringList, NullIsRefusedAndChangesNothing) {
    add({"a"});
    EXPECT_EQ(sList_Add(&list_, nullptr), -1);
    EXPECT_EQ(sList_Insert(&list_, nullptr, 0), -1);
    EXPECT_EQ(sList_IndexOf(&list_, nullptr), -1);
    EXPECT_EQ(sList_Init(nullptr), -1);
    EXPECT_EQ(sList_Add(nullptr, "a"), -1);
    EXPECT_EQ(sList_Insert(nullptr, "a", 0), -1);
    EXPECT_EQ(sList_Delete(nullptr, 0), -1);
    EXPECT_EQ(sList_IndexOf(nullptr, "a"), -1);
    EXPECT_EQ(sList_Clear(nullptr), -1);
    EXPECT_EQ(sList_Destroy(nullptr), -1);
    EXPECT_THAT(strings(), ElementsAre("a"));
}

// ---- Without memory ----

TEST_F(StringList, AddWithoutMemoryChangesNothing) {
    add({"a"});
    for (const int request : {1, 2}) {  // the string, the array
        allocations::fail(request);
        EXPECT_EQ(sList_Add(&list_, "b"), -1) << request;
        EXPECT_THAT(strings(), ElementsAre("a"));
    }
    add({"b"});
    EXPECT_THAT(strings(), ElementsAre("a", "b"));
}

TEST_F(StringList, InsertWithoutMemoryChangesNothing) {
    add({"a"});
    // Too long for a spare byte on 64 bits: asked for, asked for again with its terminator, and then the array.
    const std::string text(24, 'b');
    int failures = 0;
    for (const int request : {1, 2, 3}) {
        allocations::fail(request);
        const int result = sList_Insert(&list_, text.c_str(), 0);
        allocations::fail(0);
        if (result != 0) {
            ++failures;
            EXPECT_THAT(strings(), ElementsAre("a")) << request;
        } else {
            EXPECT_THAT(strings(), ElementsAre(text, "a")) << request;
            EXPECT_EQ(sList_Delete(&list_, 0), 0);
        }
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(sList_Insert(&list_, text.c_str(), 0), 0);
    EXPECT_THAT(strings(), ElementsAre(text, "a"));
}

TEST_F(StringList, DeleteReportsAnArrayThatCannotBeResizedButDeletes) {
    add({"a", "b"});
    allocations::fail(1);
    EXPECT_EQ(sList_Delete(&list_, 0), -1);
    EXPECT_THAT(strings(), ElementsAre("b"));
    add({"c"});
    EXPECT_THAT(strings(), ElementsAre("b", "c"));
}

TEST_F(StringList, InitWithoutMemoryGivesAListThatGrowsAllTheSame) {
    sList other;
    allocations::fail(1);
    EXPECT_EQ(sList_Init(&other), 0);
    EXPECT_EQ(other.items, nullptr);
    EXPECT_EQ(other.Add(&other, "a"), 0);
    EXPECT_STREQ(other.items[0], "a");
    other.Destroy(&other);
}

}  // namespace
