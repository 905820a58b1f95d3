#include "koImage/image/numeric.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace koImage {

namespace {

constexpr std::int32_t intMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t intMax = std::numeric_limits<std::int32_t>::max();

// The rules hold in constant expressions too.
static_assert(truncateToInt(-1.75f) == -1 && truncateToInt(-1.75) == -1);
static_assert(truncateToInt(2147483648.0f) == intMin && truncateToInt(2147483648.0) == intMin);
static_assert(lowByte(-127) == 129);
static_assert(wrappedProduct(65536, 65536) == 0 && wrappedProduct(-2, -3) == 6);
static_assert(pixelOffset(1, 65536, 65536) == 4294967297);

/// What both precisions do alike.
template <class T>
class TruncateToInt : public ::testing::Test {
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(TruncateToInt, Precisions);

}  // namespace

TYPED_TEST(TruncateToInt, GoesTowardZero)
{
    for (int const i : {0, 1, 2, 127, 128, 255, 65535, 1 << 22}) {
        auto const value = static_cast<TypeParam>(i);
        EXPECT_EQ(truncateToInt(value), i);
        EXPECT_EQ(truncateToInt(-value), -i);
        TypeParam const next = std::nextafter(value + 1, TypeParam{0});  // just below i + 1
        EXPECT_EQ(truncateToInt(next), i);
        EXPECT_EQ(truncateToInt(-next), -i);
    }
    EXPECT_EQ(truncateToInt(std::numeric_limits<TypeParam>::denorm_min()), 0);
    EXPECT_EQ(truncateToInt(-std::numeric_limits<TypeParam>::denorm_min()), 0);
}

TYPED_TEST(TruncateToInt, GivesTheMinimumForNaNAndInfinity)
{
    using Limits = std::numeric_limits<TypeParam>;
    for (TypeParam const value : {Limits::quiet_NaN(), -Limits::quiet_NaN(), Limits::infinity(),
                                  -Limits::infinity(), Limits::max(), Limits::lowest()}) {
        EXPECT_EQ(truncateToInt(value), intMin) << value;
        EXPECT_EQ(lowByte(truncateToInt(value)), 0) << value;
    }
}

TYPED_TEST(TruncateToInt, GivesTheMinimumFromTwoToThe31On)
{
    auto const edge = static_cast<TypeParam>(2147483648.0);
    EXPECT_EQ(truncateToInt(edge), intMin);
    EXPECT_EQ(truncateToInt(-edge), intMin);
    EXPECT_NE(truncateToInt(std::nextafter(edge, TypeParam{0})), intMin);
    EXPECT_NE(truncateToInt(std::nextafter(-edge, TypeParam{0})), intMin);
}

TEST(TruncateToIntOfFloat, ReachesTheLastFloatsInRange)
{
    EXPECT_EQ(truncateToInt(2147483520.0f), 2147483520);
    EXPECT_EQ(truncateToInt(-2147483520.0f), -2147483520);
}

TEST(TruncateToIntOfDouble, ReachesBothEndsOfTheRange)
{
    EXPECT_EQ(truncateToInt(2147483647.0), intMax);
    EXPECT_EQ(truncateToInt(std::nextafter(2147483648.0, 0.0)), intMax);
    EXPECT_EQ(truncateToInt(-2147483647.5), intMin + 1);
    EXPECT_EQ(truncateToInt(std::nextafter(-2147483648.0, 0.0)), intMin + 1);
    // These truncate into the range, or give its minimum: the same.
    EXPECT_EQ(truncateToInt(-2147483648.5), intMin);
    EXPECT_EQ(truncateToInt(-2147483649.0), intMin);
}

TEST(LowByte, KeepsEightBitsWithoutClamping)
{
    EXPECT_EQ(lowByte(0), 0);
    EXPECT_EQ(lowByte(255), 255);
    EXPECT_EQ(lowByte(256), 0);
    EXPECT_EQ(lowByte(510), 254);
    EXPECT_EQ(lowByte(-1), 255);
    EXPECT_EQ(lowByte(-127), 129);
    EXPECT_EQ(lowByte(-256), 0);
    EXPECT_EQ(lowByte(intMax), 255);
    EXPECT_EQ(lowByte(intMin), 0);
}

TEST(WrappedProduct, IsTheProductModuloTwoToThe32)
{
    EXPECT_EQ(wrappedProduct(4096, 2048), 8388608);
    EXPECT_EQ(wrappedProduct(-3, 7), -21);
    EXPECT_EQ(wrappedProduct(-2, -3), 6);
    EXPECT_EQ(wrappedProduct(0, intMin), 0);
    EXPECT_EQ(wrappedProduct(65536, 65536), 0);
    EXPECT_EQ(wrappedProduct(65537, 65536), 65536);
    EXPECT_EQ(wrappedProduct(46341, 46341), -2147479015);
    EXPECT_EQ(wrappedProduct(65536, 32768), intMin);
    EXPECT_EQ(wrappedProduct(intMin, -1), intMin);
    EXPECT_EQ(wrappedProduct(intMin, intMin), 0);
    EXPECT_EQ(wrappedProduct(intMax, intMax), 1);
}

TEST(PixelOffset, CountsIn64Bits)
{
    EXPECT_EQ(pixelOffset(3, 2, 10), 23);
    EXPECT_EQ(pixelOffset(intMax, intMax, intMax), std::int64_t{intMax} * intMax + intMax);
    EXPECT_EQ(pixelOffset(-1, 1, intMin), std::int64_t{intMin} - 1);
}

TEST(FloatArithmetic, KeepsDenormalResultsAndOperands)
{
    // Volatile, so that the processor multiplies.
    float volatile small = 0x1p-75f;
    float const product = small * small;
    EXPECT_EQ(product, 0.0f);  // halfway between 0 and the smallest denormal: to even
    small = 0x1p-74f;
    float const denormal = small * 0x1p-75f;
    EXPECT_EQ(std::fpclassify(denormal), FP_SUBNORMAL);
    EXPECT_EQ(denormal, std::numeric_limits<float>::denorm_min());

    float volatile operand = denormal;
    EXPECT_EQ(operand * 0x1p100f, 0x1p-49f);

    double volatile smallDouble = 0x1p-537;
    double const denormalDouble = smallDouble * smallDouble;
    EXPECT_EQ(denormalDouble, std::numeric_limits<double>::denorm_min());
    double volatile operandDouble = denormalDouble;
    EXPECT_EQ(operandDouble * 0x1p1000, 0x1p-74);
}

}  // namespace koImage
