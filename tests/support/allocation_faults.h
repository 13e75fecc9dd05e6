// What the library asks of malloc() and realloc(), and memory that runs out when a test says so. Only in a program
// whose entry in tests/CMakeLists.txt redirects these two.
#pragma once

#include <stddef.h>

#include <vector>

namespace allocations {

// The n-th request from now on fails, once; 1 is the next. 0: none.
void fail(int nth);

// The sizes of the first requests since they were taken last, in order; there must be no more than sixteen.
std::vector<size_t> take_sizes();

}  // namespace allocations
