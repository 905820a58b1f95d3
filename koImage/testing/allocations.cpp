#include "koImage/testing/allocations.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace koImage::testing {

namespace {

std::atomic<std::int64_t> count = 0;
std::atomic<std::int64_t> bytes = 0;

void* counted(std::size_t size, std::size_t alignment)
{
    count.fetch_add(1, std::memory_order_relaxed);
    bytes.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);

    // aligned_alloc asks for a multiple of the alignment.
    std::size_t const whole = (size + alignment - 1) / alignment * alignment;
    void* const memory = whole < size ? nullptr : std::aligned_alloc(alignment, whole);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

Allocations allocationsSoFar()
{
    return {count.load(std::memory_order_relaxed), bytes.load(std::memory_order_relaxed)};
}

}  // namespace koImage::testing

// The array and nothrow forms call these two.

void* operator new(std::size_t size)
{
    return koImage::testing::counted(size, alignof(std::max_align_t));
}

void* operator new(std::size_t size, std::align_val_t alignment)
{
    return koImage::testing::counted(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
