// Every allocation of memory that the library hands out or keeps goes through here, so that a
// test can make the Nth allocation fail and check that the call fails cleanly.
#pragma once

#include <cstddef>

namespace kova {

void *xmalloc(size_t size);
void *xcalloc(size_t count, size_t size);
void *xrealloc(void *block, size_t size);  // on failure the old block is left as it was

namespace testing {
// Makes the nth allocation from now fail (1 = the next one); 0 stops failing.
void fail_allocation(long nth);
// Allocations made through the seam since the process started.
long allocation_count();
}  // namespace testing

}  // namespace kova
