#include "koImage/image/pixel_array.h"

#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <thread>
#include <vector>

#ifdef __linux__
#include <sys/mman.h>
#endif

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

// Arrays are kept where the system may take their pages.
#ifdef MADV_FREE

TEST(HasPages, TellsAnArrayThatWasWrittenFromANewOne)
{
    constexpr std::size_t bytes = 50 * hugePage + 1;
    releaseKeptPixelMemory();
    {
        PixelMemory const memory(bytes);
        EXPECT_FALSE(hasPages(memory.data, bytes));
        std::memset(memory.data, 1, bytes);
        EXPECT_TRUE(hasPages(memory.data, bytes));
    }
    PixelMemory const kept(bytes);
    EXPECT_TRUE(hasPages(kept.data, bytes));
}

// How many of some arrays are kept when all of them have been released.
std::size_t keptOf(std::size_t count, std::size_t bytes)
{
    releaseKeptPixelMemory();
    std::size_t const others = livePixelArrays();
    std::vector<void*> arrays(count);
    for (void*& array : arrays)
        array = allocatePixelMemory(bytes);
    for (void* const array : arrays)
        releasePixelMemory(array, bytes);
    return livePixelArrays() - others;
}

TEST(ReleasePixelMemory, KeepsALargeArrayForTheNextOneOfItsSize)
{
    releaseKeptPixelMemory();
    void* const first = allocatePixelMemory(2 * hugePage);
    releasePixelMemory(first, 2 * hugePage);
    PixelMemory const longer(2 * hugePage + 1);
    EXPECT_NE(longer.data, first);
    PixelMemory const same(2 * hugePage);
    EXPECT_EQ(same.data, first);
    PixelMemory const another(2 * hugePage);
    EXPECT_NE(another.data, first);
}

TEST(ReleasePixelMemory, KeepsTheArrayReleasedLastForTheNext)
{
    void* const first = allocatePixelMemory(hugePage);
    void* const second = allocatePixelMemory(hugePage);
    releasePixelMemory(first, hugePage);
    releasePixelMemory(second, hugePage);
    PixelMemory const next(hugePage);
    EXPECT_EQ(next.data, second);
    PixelMemory const nextButOne(hugePage);
    EXPECT_EQ(nextButOne.data, first);
}

TEST(ReleasePixelMemory, KeepsEightArraysAnd128MiBAtMost)
{
    EXPECT_EQ(keptOf(1, hugePage - 1), 0);
    EXPECT_EQ(keptOf(8, hugePage), 8);
    EXPECT_EQ(keptOf(9, hugePage), 8);
    EXPECT_EQ(keptOf(3, 32 * hugePage), 2);
    EXPECT_EQ(keptOf(1, 64 * hugePage), 1);
    EXPECT_EQ(keptOf(1, 64 * hugePage + 1), 0);
}

TEST(ReleasePixelMemory, GivesUpTheOldestArraysForANewOne)
{
    releaseKeptPixelMemory();
    void* const first = allocatePixelMemory(hugePage);
    releasePixelMemory(first, hugePage);
    std::size_t const withFirst = livePixelArrays();
    PixelMemory{64 * hugePage};
    EXPECT_EQ(livePixelArrays(), withFirst);
}

TEST(ReleaseKeptPixelMemory, LeavesNothingKept)
{
    releaseKeptPixelMemory();
    std::size_t const before = livePixelArrays();
    PixelMemory{3 * hugePage};
    EXPECT_EQ(livePixelArrays(), before + 1);
    releaseKeptPixelMemory();
    EXPECT_EQ(livePixelArrays(), before);
}

TEST(AllocatePixelMemory, GivesUpWhatIsKeptBeforeItFails)
{
    releaseKeptPixelMemory();
    std::size_t const before = livePixelArrays();
    PixelMemory{hugePage};
    EXPECT_EQ(livePixelArrays(), before + 1);
    EXPECT_THROW(allocatePixelMemory(std::numeric_limits<std::ptrdiff_t>::max()), std::bad_alloc);
    EXPECT_EQ(livePixelArrays(), before);
}

TEST(AllocatePixelMemory, GivesThreadsArraysOfTheirOwn)
{
    auto const work = [](unsigned char mark) {
        for (int i = 0; i < 200; ++i) {
            PixelMemory const memory(hugePage);
            std::memset(memory.data, mark, 4096);
            std::this_thread::yield();
            auto const* const bytes = static_cast<unsigned char const*>(memory.data);
            ASSERT_EQ(std::count(bytes, bytes + 4096, mark), 4096);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned char mark = 1; mark <= 4; ++mark)
        threads.emplace_back(work, mark);
    for (std::thread& thread : threads)
        thread.join();
}

#endif

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
