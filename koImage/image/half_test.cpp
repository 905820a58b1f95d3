#include "koImage/image/half.h"

#include "koImage/testing/half_rule.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <type_traits>

namespace koImage {

using namespace testing;

namespace {

half halfOf(unsigned word)
{
    return half::fromBits(static_cast<std::uint16_t>(word));
}

float floatOf(std::uint32_t pattern)
{
    return std::bit_cast<float>(pattern);
}

int patternOf(float value)
{
    return std::bit_cast<std::int32_t>(value);
}

/// Whether work() raises the overflow condition.
template <class Work>
bool raisesOverflow(Work const& work)
{
    std::feclearexcept(FE_OVERFLOW);
    work();
    return std::fetestexcept(FE_OVERFLOW) != 0;
}

// Converted before main, and so before anything that a run-time initialiser of the library would have made.
half const startupHalf(0.1f);
half const startupSubnormal(-3e-6f);
float const startupFloat = halfOf(0x3555);

}  // namespace

TEST(Half, IsAPlainWord)
{
    EXPECT_EQ(sizeof(half), 2u);
    EXPECT_EQ(alignof(half), 2u);
    EXPECT_TRUE(std::is_trivial_v<half>);
    EXPECT_TRUE(std::is_standard_layout_v<half>);
    for (unsigned word = 0; word <= 0xFFFF; ++word)
        ASSERT_EQ(halfOf(word).bits(), word);
}

TEST(Half, ConvertsInStaticInitialisersOfOtherFiles)
{
    EXPECT_EQ(startupHalf.bits(), expectedHalf(0.1f));
    EXPECT_EQ(startupSubnormal.bits(), expectedHalf(-3e-6f));
    EXPECT_EQ(startupFloat, static_cast<float>(halfValue(0x3555)));
}

TEST(Half, WidensEveryWordToTheFloatOfItsValue)
{
    EXPECT_EQ(half::_toFloat.size(), 65536u);
    for (unsigned word = 0; word <= 0xFFFF; ++word) {
        float const value = floatOf(half::_toFloat[word]);
        unsigned const magnitude = word & 0x7FFF;
        ASSERT_EQ(std::signbit(value), word != magnitude) << std::hex << word;
        if (magnitude < infinityWord)
            ASSERT_EQ(std::fabs(value), halfValue(magnitude)) << std::hex << word;
        else if (magnitude == infinityWord)
            ASSERT_TRUE(std::isinf(value)) << std::hex << word;
        else
            ASSERT_EQ(half::_toFloat[word] & 0x7FFFFFFF, infinityPattern + (magnitude - infinityWord) * 8192)
                << std::hex << word;
    }
    EXPECT_EQ(half::_toFloat[0x0001], 0x33800000u);
    EXPECT_EQ(half::_toFloat[0x7C00], 0x7F800000u);
    EXPECT_EQ(half::_toFloat[0x8000], 0x80000000u);
}

TEST(Half, ReadsItsFloatFromTheTable)
{
    for (unsigned word = 0; word <= 0xFFFF; ++word)
        ASSERT_EQ(std::bit_cast<std::uint32_t>(static_cast<float>(halfOf(word))), half::_toFloat[word])
            << std::hex << word;
}

TEST(Half, HasAFastEntryForThePowersOfTwoThatCannotOverflow)
{
    EXPECT_EQ(half::_eLut.size(), 512u);
    for (unsigned k = 0; k < 512; ++k) {
        // The power of two with this sign and exponent; zero and infinity at the ends.
        float const power = floatOf(k << 23);
        bool const fast = std::fabs(power) >= 0x1p-14f && std::fabs(power) <= 0x1p14f;
        ASSERT_EQ(half::_eLut[k], fast ? expectedHalf(power) : 0) << k;
    }
    EXPECT_EQ(half::_eLut[113], 0x0400);
    EXPECT_EQ(half::_eLut[141], 0x7400);
    EXPECT_EQ(half::_eLut[256 + 127], 0xBC00);
}

TEST(Half, RoundTripsThroughFloatExceptForMinusZero)
{
    for (unsigned word = 0; word <= 0xFFFF; ++word)
        ASSERT_EQ(half(static_cast<float>(halfOf(word))).bits(), word == 0x8000 ? 0u : word)
            << std::hex << word;
}

TEST(Half, GivesTheWorkedValues)
{
    struct {
        std::uint32_t pattern;
        unsigned word;
    } const cases[] = {
        {0x00000000, 0x0000},                        // 0
        {0x80000000, 0x0000},                        // -0
        {0x3F800000, 0x3C00},                        // 1
        {0x477FE000, 0x7BFF},                        // 65504
        {0x477FEF00, 0x7BFF},                        // 65519
        {0x477FF000, 0x7C00},                        // 65520
        {0xC788B800, 0xFC00},                        // -70000
        {0x3F801000, 0x3C01},                        // 1 + 2^-11, a tie
        {0xBF801000, 0xBC01}, {0x3F803000, 0x3C02},  // 1 + 3 * 2^-11, a tie
        {0x3F800FFF, 0x3C00}, {0x33800000, 0x0001},  // 2^-24
        {0xB3800000, 0x8001}, {0x33000000, 0x0001},  // 2^-25, the smallest that is not zero
        {0xB3000000, 0x8001}, {0x32FFFFFF, 0x0000}, {0xB2FFFFFF, 0x0000}, {0x32800000, 0x0000},  // 2^-26
        {0xB2800000, 0x0000}, {0x00000001, 0x0000},  // the smallest float
        {0x80000001, 0x0000}, {0x387FDFFF, 0x03FF},  // just below the tie before the smallest normal half
        {0x387FE000, 0x0400}, {0x38800000, 0x0400},  // 2^-14
        {0x46FFF000, 0x7800},                        // carries into the exponent
        {0x7F7FFFFF, 0x7C00},                        // the largest float
        {0x7F800000, 0x7C00},                        // infinity
        {0xFF800000, 0xFC00}, {0x7F800001, 0x7C01},  // NaNs
        {0x7F801FFF, 0x7C01}, {0x7F802000, 0x7C01}, {0x7F804000, 0x7C02}, {0xFFC00000, 0xFE00},
        {0x7FFFFFFF, 0x7FFF},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(half(floatOf(c.pattern)).bits(), c.word) << std::hex << c.pattern;
        EXPECT_EQ(expectedHalf(floatOf(c.pattern)), c.word) << std::hex << c.pattern << ", by the rule";
    }
}

TEST(Half, ChangesExactlyAtTheMiddleOfTwoHalves)
{
    for (unsigned word = 1; word <= infinityWord; ++word) {
        auto const middle = static_cast<float>(lowerMiddle(word));
        ASSERT_EQ(middle, lowerMiddle(word)) << "a middle is a float";
        float const below = std::nextafter(middle, 0.0f);
        ASSERT_EQ(half(middle).bits(), word);
        ASSERT_EQ(half(-middle).bits(), 0x8000 | word);
        ASSERT_EQ(half(below).bits(), word - 1);
        ASSERT_EQ(half(-below).bits(), word == 1 ? 0 : 0x8000 | (word - 1));
    }
}

TEST(Half, NeverFallsWhileTheFloatRises)
{
    float last = -std::numeric_limits<float>::infinity();
    auto const rise = [&last](std::uint32_t pattern) {
        float const value = half(floatOf(pattern));
        ASSERT_GE(value, last) << std::hex << pattern;
        last = value;
    };
    for (std::uint32_t magnitude = infinityPattern; magnitude > 997; magnitude -= 997)
        rise(0x80000000 | magnitude);
    for (std::uint32_t magnitude = 0; magnitude < infinityPattern; magnitude += 997)
        rise(magnitude);
    rise(infinityPattern);
}

TEST(HalfConvert, GivesTheWordAsASigned16BitNumber)
{
    EXPECT_EQ(half::convert(patternOf(-0x1p-24f)), -0x7FFF);
    EXPECT_EQ(half::convert(patternOf(-70000.0f)), -0x0400);
    EXPECT_EQ(half::convert(patternOf(70000.0f)), 0x7C00);
    EXPECT_EQ(half::convert(std::numeric_limits<std::int32_t>::min()), 0);  // -0
    EXPECT_EQ(half::convert(-1), -1);                                       // the NaN of all ones
}

TEST(HalfConvert, GivesTheSameForFloatsWithAFastEntry)
{
    for (std::uint32_t pattern = 0x38000000; pattern < 0x47000000; pattern += 211)
        for (std::uint32_t const p : {pattern, pattern | 0x80000000}) {
            auto const word = static_cast<std::uint16_t>(half::convert(static_cast<int>(p)));
            ASSERT_EQ(word, half(floatOf(p)).bits()) << std::hex << p;
        }
}

TEST(HalfOverflow, RaisesTheConditionAndReturnsInfinity)
{
    float result = 0;
    EXPECT_TRUE(raisesOverflow([&] { result = half::overflow(); }));
    EXPECT_EQ(result, std::numeric_limits<float>::infinity());
}

TEST(HalfOverflow, IsRaisedByFiniteInputAlone)
{
    for (float const value : {65520.0f, -65520.0f, 70000.0f, std::numeric_limits<float>::max()})
        EXPECT_TRUE(raisesOverflow([&] { EXPECT_GE(half(value).bits() & 0x7FFF, 0x7C00); })) << value;
    for (std::uint32_t const pattern : hostileFloatBits) {
        float const value = floatOf(pattern);
        EXPECT_EQ(raisesOverflow([&] { EXPECT_EQ(half(value).bits(), expectedHalf(value)); }),
                  overflowsHalf(value))
            << std::hex << pattern;
    }
}

// All 2^32 floats.
class EveryFloat : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(Half, EveryFloat, ::testing::Range(0, partsOfAllFloats));

TEST_P(EveryFloat, GoesToTheNearestHalf)
{
    expectTheRuleForPart(GetParam(), [](float const* floats, half* halves, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            halves[i] = half(floats[i]);
    });
}

}  // namespace koImage
