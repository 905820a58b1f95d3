#include "koImage/image/pixel_array.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>

#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(memory, bytes) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(memory, bytes) static_cast<void>(0)
#endif

namespace koImage {

namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t cacheLine = 64;

// --- The system's pages: of an array only the whole huge ones ---

#ifdef __linux__
bool advise(void* memory, std::size_t bytes, int advice)
{
    return madvise(memory, bytes - bytes % hugePage, advice) == 0;
}
#endif

/// Advice only: where it is refused the array is as good, its first touch slower. The rest behind the last
/// whole huge page keeps small pages, or the array could take up to 2 MiB more than its size.
void askForHugePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes)
{
#ifdef MADV_HUGEPAGE
    static_cast<void>(advise(memory, bytes, MADV_HUGEPAGE));
#endif
}

/// From now on the system may take the pages, until they are written again. False where it cannot.
bool offerPages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes)
{
#ifdef MADV_FREE
    return advise(memory, bytes, MADV_FREE);
#else
    return false;
#endif
}

// --- Released large arrays, kept for the next ones of their sizes ---

class KeptArrays {
public:
    /// An array of this size, the one released last; null when there is none.
    void* take(std::size_t bytes)
    {
        std::lock_guard const lock(mutex_);
        for (std::size_t i = count_; i-- > 0;)
            if (arrays_[i].bytes == bytes)
                return remove(i);
        return nullptr;
    }

    /// Keeps the array in place of the oldest ones. False when it is too large, or its pages would stay
    /// taken.
    bool keep(void* memory, std::size_t bytes)
    {
        if (bytes > mostBytes || !offerPages(memory, bytes))
            return false;
        ASAN_POISON_MEMORY_REGION(memory, bytes);
        std::lock_guard const lock(mutex_);
        while (count_ == arrays_.size() || bytes_ > mostBytes - bytes)
            releaseOldest();
        arrays_[count_++] = {memory, bytes};
        bytes_ += bytes;
        return true;
    }

    void releaseAll()
    {
        std::lock_guard const lock(mutex_);
        while (count_ > 0)
            releaseOldest();
    }

private:
    struct Array {
        void* memory = nullptr;
        std::size_t bytes = 0;
    };

    static constexpr std::size_t mostBytes = std::size_t{128} << 20;

    void* remove(std::size_t i)
    {
        Array const array = arrays_[i];
        for (--count_; i < count_; ++i)
            arrays_[i] = arrays_[i + 1];
        bytes_ -= array.bytes;
        ASAN_UNPOISON_MEMORY_REGION(array.memory, array.bytes);
        return array.memory;
    }

    void releaseOldest() { ::operator delete (remove(0), std::align_val_t{hugePage}); }

    std::mutex mutex_;
    std::array<Array, 8> arrays_;  // the oldest first
    std::size_t count_ = 0;
    std::size_t bytes_ = 0;
};

// An image may be released after everything that is destroyed at the end.
static_assert(std::is_trivially_destructible_v<KeptArrays>);
constinit KeptArrays keptArrays;

void* newLargeArray(std::size_t bytes)
{
    try {
        return ::operator new (bytes, std::align_val_t{hugePage});
    } catch (std::bad_alloc const&) {
        keptArrays.releaseAll();
        return ::operator new (bytes, std::align_val_t{hugePage});
    }
}

}  // namespace

void* allocatePixelMemory(std::size_t bytes)
{
    if (bytes < hugePage)
        return ::operator new (bytes, std::align_val_t{cacheLine});
    if (void* const memory = keptArrays.take(bytes))
        return memory;
    void* const memory = newLargeArray(bytes);
    askForHugePages(memory, bytes);
    return memory;
}

void releasePixelMemory(void* memory, std::size_t bytes)
{
    if (memory == nullptr || bytes < hugePage)
        ::operator delete (memory, std::align_val_t{cacheLine});
    else if (!keptArrays.keep(memory, bytes))
        ::operator delete (memory, std::align_val_t{hugePage});
}

bool hasPages([[maybe_unused]] void const* memory, [[maybe_unused]] std::size_t bytes)
{
#ifdef __linux__
    auto* middle = static_cast<char*>(const_cast<void*>(memory)) + bytes / 2;
    middle -= reinterpret_cast<std::uintptr_t>(middle) % static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    unsigned char resident = 1;
    static_cast<void>(mincore(middle, 1, &resident));
    return (resident & 1) != 0;
#else
    return true;
#endif
}

void releaseKeptPixelMemory()
{
    keptArrays.releaseAll();
}

}  // namespace koImage
