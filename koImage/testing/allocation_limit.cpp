#include "koImage/testing/allocation_limit.h"

#include "koImage/image/pixel_array.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace koImage::testing {
namespace {

// Without a limit of the test's, 1 TiB, or half of what 32 bits can address: a system that promises memory it
// does not have would grant more, and end the test at the first touch.
std::atomic<std::size_t> limit =
    static_cast<std::size_t>(std::min<std::uint64_t>(std::uint64_t{1} << 40, SIZE_MAX / 2));
std::atomic<std::size_t> liveArrays = 0;

void release(void* memory)
{
    if (memory != nullptr)
        --liveArrays;
    std::free(memory);
}

}  // namespace

AllocationLimit::AllocationLimit(std::size_t bytes) : outer_(limit.exchange(bytes))
{
    releaseKeptPixelMemory();  // which would meet a request without a limit
}

AllocationLimit::~AllocationLimit()
{
    limit = outer_;
}

std::size_t livePixelArrays()
{
    return liveArrays;
}

}  // namespace koImage::testing

// Replacing them keeps the address sanitizer's view: posix_memalign is one of its functions.

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    void* memory = nullptr;
    if (bytes > koImage::testing::limit ||
        posix_memalign(&memory, static_cast<std::size_t>(alignment), bytes) != 0)
        throw std::bad_alloc();
    ++koImage::testing::liveArrays;
    return memory;
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    koImage::testing::release(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    koImage::testing::release(memory);
}
