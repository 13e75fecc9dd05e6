// The table of exported functions is complete, and gives the reason for each exception.
#include "support/export_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Names = std::set<std::string>;

// What the list of exported names has as functions.
Names exported_functions() {
    std::ifstream list(VELKOR_SOURCE_DIR "/cmake/exports.txt");
    Names names;
    for (std::string line; std::getline(list, line) && line != "# data";) {
        if (!line.empty() && line[0] != '#') {
            names.insert(line);
        }
    }
    return names;
}

// What precedes the remark in brackets.
Names functions_of(const exports::Row &row) {
    std::istringstream words{std::string(row.names)};
    Names names;
    for (std::string word; words >> word && word[0] != '(';) {
        names.insert(word);
    }
    return names;
}

Names functions_with_rows() {
    Names names;
    for (const exports::Group &group : exports::groups()) {
        for (const exports::Row &row : group.rows) {
            names.merge(functions_of(row));
        }
    }
    return names;
}

std::vector<std::string> difference(const Names &all, const Names &known) {
    std::vector<std::string> names;
    std::ranges::set_difference(all, known, std::back_inserter(names));
    return names;
}

// A new exported function needs a row in the file of its header, in tests/support/exports/.
TEST(ExportTable, HasARowForEachExportedFunction) {
    const Names exported = exported_functions();
    EXPECT_GE(exported.size(), 295U) << "the list was not read to its end";
    EXPECT_THAT(difference(exported, functions_with_rows()), testing::IsEmpty()) << "without a row";
    EXPECT_THAT(difference(functions_with_rows(), exported), testing::IsEmpty()) << "not exported";
}

bool is_usual(const exports::Traits &traits) {
    return traits.threads == exports::Threads::AT_ONCE && traits.is_for_child;
}

TEST(ExportTable, GivesTheReasonForEachException) {
    for (const exports::Group &group : exports::groups()) {
        for (const exports::Row &row : group.rows) {
            EXPECT_EQ(std::string(row.traits.reason).empty(), is_usual(row.traits)) << row.names;
        }
    }
}

// They go through a storm together, as one.
TEST(ExportTable, HasNoExceptionAmongPlainRows) {
    for (const exports::Group &group : exports::groups()) {
        for (const exports::Row &row : group.rows) {
            const bool is_simple = is_usual(row.traits) && row.traits.lasts_ms == 0 && !row.traits.starts_threads;
            EXPECT_TRUE(is_simple || !row.traits.is_plain) << row.names;
        }
    }
}

}  // namespace
