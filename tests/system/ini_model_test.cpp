// The library against the model, on a great many files and edits: the answer of every call, and the three dumps byte
// for byte. A failure prints its seed: the case that it names can be run again alone.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/ini_lockstep.h"
#include "support/sweep.h"

namespace {

// In parts, so that every processor has its share.
constexpr unsigned PARTS = 16;
constexpr unsigned CASES = sweep::cases(13000);  // of each part: 208,000 altogether

class IniModel : public testing::TestWithParam<unsigned> {};

TEST_P(IniModel, IsWhatTheLibraryDoes) {
    const ini::MemoryFile file;
    for (unsigned seed = GetParam() * CASES; seed < (GetParam() + 1) * CASES; ++seed) {
        std::mt19937 random(seed);
        const std::string content = ini::random_content(random);
        const std::string edits = ini::random_edits(random);
        const std::string difference = ini::difference(file, content, edits);
        ASSERT_EQ(difference, "") << "seed " << seed << ", content:\n" << content;
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, IniModel, testing::Range(0U, PARTS));

}  // namespace
