#include "koImage/image/pixel_array.h"

#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

namespace koImage::testing {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;

struct PixelMemory {
    explicit PixelMemory(std::size_t size) : bytes(size), data(allocatePixelMemory(size)) {}
    ~PixelMemory() { releasePixelMemory(data, bytes); }
    PixelMemory(PixelMemory const&) = delete;
    PixelMemory& operator=(PixelMemory const&) = delete;

    bool alignedTo(std::size_t alignment) const
    {
        return reinterpret_cast<std::uintptr_t>(data) % alignment == 0;
    }

    std::size_t bytes;
    void* data;
};

TEST(AllocatePixelMemory, AlignsSmallArraysToACacheLine)
{
    for (std::size_t const bytes : {std::size_t{1}, std::size_t{63}, std::size_t{4097}, hugePage - 1}) {
        PixelMemory const memory(bytes);
        EXPECT_TRUE(memory.alignedTo(64)) << bytes;
        std::memset(memory.data, 1, bytes);
    }
}

TEST(AllocatePixelMemory, AlignsLargeArraysToHugePages)
{
    for (std::size_t const bytes : {hugePage, hugePage + 1, 5 * hugePage / 2}) {
        PixelMemory const memory(bytes);
        EXPECT_TRUE(memory.alignedTo(hugePage)) << bytes;
        std::memset(memory.data, 1, bytes);
    }
}

// The flags that Linux shows for the mapping in which an address lies.
std::string mappingFlags(void const* memory)
{
    auto const address = reinterpret_cast<std::uintptr_t>(memory);
    std::ifstream maps("/proc/self/smaps");
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t end = 0;
        char dash = 0;
        std::istringstream range(line);
        if (range >> std::hex >> first >> dash >> end && dash == '-')
            inside = first <= address && address < end;
        else if (inside && line.starts_with("VmFlags:"))
            return line + ' ';
    }
    return {};
}

TEST(AllocatePixelMemory, AsksForHugePagesWhereTheSystemHasThem)
{
    bool const offered = std::filesystem::exists("/sys/kernel/mm/transparent_hugepage/enabled");
    PixelMemory const memory(3 * hugePage);
    EXPECT_EQ(mappingFlags(memory.data).find(" hg ") != std::string::npos, offered);
}

TEST(AllocatePixelMemory, ThrowsWhatTheAllocatorThrows)
{
    EXPECT_THROW(allocatePixelMemory(std::numeric_limits<std::ptrdiff_t>::max()), std::bad_alloc);
    AllocationLimit const limit(99);
    EXPECT_THROW(allocatePixelMemory(100), std::bad_alloc);
}

TEST(ReleasePixelMemory, TakesNull)
{
    releasePixelMemory(nullptr, 0);
    releasePixelMemory(nullptr, hugePage);
}

// An object that knows how many of its kind there are.
struct Counted {
    Counted() noexcept { ++alive; }
    ~Counted() { --alive; }
    static int alive;
};
int Counted::alive = 0;

TEST(NewPixelArray, ConstructsObjectsThatDeletePixelArrayDestroys)
{
    auto* const pixels = newPixelArray<Counted>(7);
    EXPECT_EQ(Counted::alive, 7);
    deletePixelArray(pixels, 7);
    EXPECT_EQ(Counted::alive, 0);
}

TEST(NewPixelArray, RefusesMoreBytesThanCanBeAddressed)
{
    using Giant = std::array<char, std::size_t{1} << 40>;
    EXPECT_THROW(newPixelArray<Giant>(std::numeric_limits<int>::max()), std::bad_array_new_length);
}

TEST(CopyPixelArray, CopiesEveryByte)
{
    auto const source = hostileImage<Half4>({61, 7}, 1);
    auto* const copy = copyPixelArray(source->pixels(), source->pixelCount());
    EXPECT_EQ(std::memcmp(copy, source->pixels(), sizeof(Half4) * 61 * 7), 0);
    deletePixelArray(copy, source->pixelCount());
}

TEST(DeletePixelArray, TakesNull)
{
    deletePixelArray<Float4>(nullptr, 0);
    deletePixelArray<HarmonicsPixel>(nullptr, 5);
}

}  // namespace
}  // namespace koImage::testing
