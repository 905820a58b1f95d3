#include "koImage/image/pixel_array.h"

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace koImage {

namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t cacheLine = 64;

constexpr std::align_val_t alignmentFor(std::size_t bytes)
{
    return std::align_val_t{bytes >= hugePage ? hugePage : cacheLine};
}

}  // namespace

void* allocatePixelMemory(std::size_t bytes)
{
    void* const memory = ::operator new(bytes, alignmentFor(bytes));
#ifdef MADV_HUGEPAGE
    // Advice only: where it is refused the array is as good, its first touch slower. The rest behind the last
    // whole huge page keeps small pages, or the array could take up to 2 MiB more than its size.
    if (bytes >= hugePage)
        static_cast<void>(madvise(memory, bytes - bytes % hugePage, MADV_HUGEPAGE));
#endif
    return memory;
}

void releasePixelMemory(void* memory, std::size_t bytes)
{
    ::operator delete(memory, alignmentFor(bytes));
}

}  // namespace koImage
