#include "koImage/image/pixel_dispatch.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

using SomePixels = PixelList<Float4, unsigned char, Half4>;

/// The ids of the kernels that dispatching `id` over a list calls.
template <class List>
std::vector<PixelTypeId> calls(PixelTypeId id, List list)
{
    std::vector<PixelTypeId> called;
    bool const found = dispatchPixel(
        id, list, [&](auto tag) { called.push_back(pixelTypeIdOf<typename decltype(tag)::type>); });
    EXPECT_EQ(found, !called.empty());
    return called;
}

/// Converts to anything, and would take over a comma.
struct Greedy {
    template <class T>
    friend bool operator,(Greedy, T)
    {
        return false;
    }
};

}  // namespace

TEST(PixelList, ContainsItsOwnIdsAlone)
{
    for (int id = -1; id <= 10; ++id) {
        EXPECT_EQ(SomePixels::contains(PixelTypeId{id}), id == 0 || id == 4 || id == 7) << id;
        EXPECT_EQ(StoredPixels::contains(PixelTypeId{id}), id >= 0 && id <= 8) << id;
        EXPECT_EQ(AllPixels::contains(PixelTypeId{id}), id >= 0 && id <= 9) << id;
    }
    static_assert(StoredPixels::contains(PixelTypeId::Double3) &&
                  !StoredPixels::contains(PixelTypeId::Harmonics));
}

TEST(DispatchPixel, CallsTheKernelOfTheIdOnce)
{
    for (int id = 0; id <= 9; ++id)
        EXPECT_EQ(calls(PixelTypeId{id}, AllPixels{}), std::vector{PixelTypeId{id}});
    EXPECT_EQ(calls(PixelTypeId::Half4, SomePixels{}), std::vector{PixelTypeId::Half4});
}

TEST(DispatchPixel, CallsNothingForAnIdOutsideTheList)
{
    for (std::int32_t const id : {-1, 9, 10, 1000, std::numeric_limits<std::int32_t>::min()})
        EXPECT_TRUE(calls(PixelTypeId{id}, StoredPixels{}).empty()) << id;
    EXPECT_TRUE(calls(PixelTypeId::Byte4, SomePixels{}).empty());
}

TEST(DispatchPixel, IgnoresWhatTheKernelReturns)
{
    EXPECT_TRUE(dispatchPixel(PixelTypeId::Float4, SomePixels{}, [](auto) { return false; }));
    EXPECT_TRUE(dispatchPixel(PixelTypeId::Float4, SomePixels{}, [](auto) { return Greedy{}; }));
}

TEST(DispatchPixel, WorksInConstantExpressions)
{
    constexpr std::size_t size = [] {
        std::size_t bytes = 0;
        dispatchPixel(PixelTypeId::Float3, AllPixels{},
                      [&](auto tag) { bytes = sizeof(typename decltype(tag)::type); });
        return bytes;
    }();
    EXPECT_EQ(size, 12u);
}

}  // namespace koImage
