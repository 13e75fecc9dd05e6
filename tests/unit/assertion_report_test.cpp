#include "support/assertion_report.h"

#include <gtest/gtest.h>
#include <time.h>

#include <string>

namespace {

std::string report_into_memory() {
    char *text = nullptr;
    size_t size = 0;
    fpDebugFile = open_memstream(&text, &size);
    velkor::report_assertion("src/safe_circle_queue", 81, "sq_construct", "NULL != _pThis");
    fclose(fpDebugFile);
    fpDebugFile = nullptr;
    std::string result(text, size);
    free(text);
    return result;
}

TEST(AssertionReport, NamesTimeSourceAndExpression) {
    const time_t before = time(nullptr);
    const std::string report = report_into_memory();
    const time_t after = time(nullptr);
    bool seen = false;
    for (time_t second = before; second <= after; ++second) {
        char stamp[26];
        seen |= report == std::string(ctime_r(&second, stamp)) +
                              "src/safe_circle_queue: 81: sq_construct: Assertion 'NULL != _pThis' failed.\r\n";
    }
    EXPECT_TRUE(seen) << report;
}

TEST(AssertionReport, IsSilentWithoutADebugStream) {
    ASSERT_EQ(fpDebugFile, nullptr);
    velkor::report_assertion("src/safe_circle_queue", 81, "sq_construct", "NULL != _pThis");
    SUCCEED();
}

}  // namespace
