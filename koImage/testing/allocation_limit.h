// Failing allocations, for tests.
//
// A test binary that links allocation_limit.cpp has its own aligned forms of the global operator new and
// delete: the ones through which pixel arrays come and go, and nothing else does. So what the test framework
// allocates is neither refused nor counted.
#pragma once

#include <cstddef>

namespace koImage::testing {

/// While it lives, a request of more than `bytes` throws std::bad_alloc. Limits nest.
class AllocationLimit {
public:
    explicit AllocationLimit(std::size_t bytes);
    ~AllocationLimit();
    AllocationLimit(AllocationLimit const&) = delete;
    AllocationLimit& operator=(AllocationLimit const&) = delete;

private:
    std::size_t outer_;
};

/// Pixel arrays that are allocated now; kept ones count.
std::size_t livePixelArrays();

}  // namespace koImage::testing
