#include "koImage/image/harmonics_pixel.h"

#include "koImage/image/pixel_types.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

namespace koImage {

namespace {

/// The number of eight bytes at `offset`.
template <class T>
T numberAt(HarmonicsPixel const& pixel, std::size_t offset)
{
    static_assert(sizeof(T) == 8);
    T number;
    std::memcpy(&number, reinterpret_cast<unsigned char const*>(&pixel) + offset, sizeof number);
    return number;
}

constexpr std::size_t headBytes = 8;
constexpr std::size_t coefficientBytes = 24;

}  // namespace

TEST(HarmonicsPixel, HoldsTheCoefficientsUpToItsDegree)
{
    EXPECT_EQ(HarmonicsPixel::order(), 10);
    EXPECT_EQ(HarmonicsPixel::size(), 121);
    EXPECT_EQ((FixedOrderSphericalHarmonics<float, 0>::size()), 1);
    EXPECT_EQ((FixedOrderSphericalHarmonics<float, 2>::size()), 9);
}

TEST(HarmonicsPixel, IsEightBytesAndThenTheCoefficients)
{
    EXPECT_EQ(sizeof(HarmonicsPixel), headBytes + 121 * coefficientBytes);
    EXPECT_EQ(sizeof(HarmonicsPixel), 2912u);
    EXPECT_EQ(alignof(HarmonicsPixel), alignof(double));
    EXPECT_TRUE(std::is_trivially_copyable_v<HarmonicsPixel>);
    EXPECT_TRUE(std::is_standard_layout_v<HarmonicsPixel>);

    HarmonicsPixel pixel;
    for (int i = 0; i < pixel.size(); ++i)
        pixel[i] = {i + 0.25, i + 0.5, i + 0.75};
    EXPECT_EQ(numberAt<std::int64_t>(pixel, 0), 10);
    for (int i = 0; i < pixel.size(); ++i) {
        std::size_t const offset = headBytes + static_cast<std::size_t>(i) * coefficientBytes;
        EXPECT_EQ(numberAt<double>(pixel, offset), i + 0.25);
        EXPECT_EQ(numberAt<double>(pixel, offset + 8), i + 0.5);
        EXPECT_EQ(numberAt<double>(pixel, offset + 16), i + 0.75);
    }
}

TEST(HarmonicsPixel, StartsAtPositiveZero)
{
    // Over memory that holds something else.
    alignas(HarmonicsPixel) unsigned char memory[sizeof(HarmonicsPixel)];
    std::memset(memory, 0xA5, sizeof memory);
    auto const* const pixel = new (memory) HarmonicsPixel;
    EXPECT_EQ(numberAt<std::int64_t>(*pixel, 0), 10);
    for (std::size_t offset = headBytes; offset < sizeof memory; offset += 8)
        EXPECT_EQ(numberAt<std::uint64_t>(*pixel, offset), 0u) << offset;
}

TEST(HarmonicsPixel, KeepsCoefficientsByDegreeAndThenOrder)
{
    HarmonicsPixel pixel;
    HarmonicsPixel const& reading = pixel;
    int index = 0;
    for (int l = 0; l <= 10; ++l)
        for (int m = -l; m <= l; ++m, ++index) {
            EXPECT_EQ(&pixel.at(l, m), &pixel[index]) << l << ", " << m;
            EXPECT_EQ(&reading.at(l, m), &reading[index]) << l << ", " << m;
            EXPECT_EQ(&reading[index], &pixel[index]);
        }
    EXPECT_EQ(index, pixel.size());
}

}  // namespace koImage
