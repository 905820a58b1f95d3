#include "koImage/image/half_runs.h"

#include "koImage/testing/half_rule.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cstring>
#include <numeric>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

constexpr std::size_t lanes = 32;  // more than the values that any kernel takes at a time

std::uint32_t patternOf(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

std::vector<half> everyHalf()
{
    std::vector<half> halves;
    for (unsigned word = 0; word <= 0xFFFF; ++word)
        halves.push_back(half::fromBits(static_cast<std::uint16_t>(word)));
    return halves;
}

std::vector<half> hostileHalves(std::size_t count)
{
    Random random(1);
    std::vector<half> halves(count);
    std::generate(halves.begin(), halves.end(), [&] { return hostileChannel<half>(random); });
    return halves;
}

std::vector<float> hostileFloats(std::size_t count)
{
    Random random(2);
    std::vector<float> floats(count);
    std::generate(floats.begin(), floats.end(), [&] { return hostileChannel<float>(random); });
    return floats;
}

/// Equal to the single conversions, to the bit.
void expectSingleConversions(half const* halves, float const* floats, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(patternOf(floats[i]), half::_toFloat[halves[i].bits()]) << "at " << i;
}

void expectSingleConversions(float const* floats, half const* halves, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(halves[i].bits(), half(floats[i]).bits()) << "at " << i;
}

/// Converts runs of 0 to 70 values at every alignment of both arrays, and expects that nothing around the
/// result changes.
template <class From, class To, class Convert>
void expectAnyRun(std::vector<From> const& source, To mark, Convert const& convert)
{
    for (std::size_t count = 0; count <= 70; ++count)
        for (std::size_t shift = 0; shift < lanes; ++shift) {
            SCOPED_TRACE(::testing::Message() << count << " values, shifted by " << shift);
            std::size_t const otherShift = (shift * 7 + count) % lanes;
            From const* const from = source.data() + shift;
            std::vector<To> result(lanes + 70 + lanes, mark);
            convert(from, result.data() + otherShift, count);

            expectSingleConversions(from, result.data() + otherShift, count);
            for (std::size_t i = 0; i < result.size(); ++i) {
                bool const inside = i >= otherShift && i < otherShift + count;
                ASSERT_TRUE(inside || std::memcmp(&result[i], &mark, sizeof mark) == 0) << "at " << i;
            }
        }
}

bool raisesOverflow(std::vector<float> const& floats)
{
    std::vector<half> halves(floats.size());
    std::feclearexcept(FE_OVERFLOW);
    floatsToHalves(floats.data(), halves.data(), floats.size());
    return std::fetestexcept(FE_OVERFLOW) != 0;
}

}  // namespace

TEST(HalvesToFloats, WidensEveryHalfAtEveryPlaceOfTheVector)
{
    std::vector<half> const halves = everyHalf();
    std::vector<float> floats(halves.size());
    for (std::size_t shift = 0; shift < lanes; ++shift) {
        halvesToFloats(halves.data() + shift, floats.data(), halves.size() - shift);
        expectSingleConversions(halves.data() + shift, floats.data(), halves.size() - shift);
    }
}

TEST(HalvesToFloats, KeepsOneSignallingNaNAmongOrdinaryValues)
{
    for (unsigned const word : {0x7C01u, 0x7DFFu, 0xFC01u, 0xFDFFu, 0xFD55u})
        for (std::size_t place = 0; place < lanes; ++place) {
            std::vector<half> halves(lanes, half(1.0f));
            halves[place] = half::fromBits(static_cast<std::uint16_t>(word));
            std::vector<float> floats(lanes);
            halvesToFloats(halves.data(), floats.data(), lanes);
            expectSingleConversions(halves.data(), floats.data(), lanes);
        }
}

TEST(HalvesToFloats, TakesAnyLengthAndAlignment)
{
    expectAnyRun(hostileHalves(lanes + 70), -123.5f, halvesToFloats);
}

TEST(HalvesToFloats, IsTheSameForResultsWrittenPastTheCache)
{
    constexpr std::size_t count = (std::size_t{17} << 20) / sizeof(float) + 5;
    std::vector<half> const halves = hostileHalves(count);
    std::vector<float> floats(count + 1);
    halvesToFloats(halves.data(), floats.data() + 1, count);
    expectSingleConversions(halves.data(), floats.data() + 1, count);
    EXPECT_EQ(floats[0], 0.0f);
}

TEST(HalvesToFloats, DoesNothingWithoutValues)
{
    halvesToFloats(nullptr, nullptr, 0);
}

TEST(FloatsToHalves, TakesAnyLengthAndAlignment)
{
    expectAnyRun(hostileFloats(lanes + 70), half(-123.5f), floatsToHalves);
}

TEST(FloatsToHalves, ConvertsEachHostileValueAtEveryPlaceAmongOrdinaryOnes)
{
    for (std::uint32_t const pattern : hostileFloatBits)
        for (std::size_t place = 0; place < lanes; ++place) {
            std::vector<float> floats(lanes, 1.0f);
            floats[place] = std::bit_cast<float>(pattern);
            std::vector<half> halves(lanes);
            floatsToHalves(floats.data(), halves.data(), lanes);
            expectSingleConversions(floats.data(), halves.data(), lanes);
        }
}

TEST(FloatsToHalves, RaisesOverflowForFiniteInputAloneAtEveryPlace)
{
    for (std::uint32_t const pattern : hostileFloatBits)
        for (std::size_t place = 0; place < lanes + 7; ++place) {
            // With ordinary neighbours, and with neighbours that take the way of the special values.
            for (float const neighbour : {1.0f, -std::numeric_limits<float>::infinity()}) {
                std::vector<float> floats(lanes + 7, neighbour);
                floats[place] = std::bit_cast<float>(pattern);
                ASSERT_EQ(raisesOverflow(floats), overflowsHalf(floats[place]))
                    << std::hex << pattern << " at " << std::dec << place << " among " << neighbour;
            }
        }
}

TEST(FloatsToHalves, LeavesARaisedConditionAsItWas)
{
    std::vector<float> const floats(lanes, 1.0f);
    std::vector<half> halves(lanes);
    std::feraiseexcept(FE_OVERFLOW);
    floatsToHalves(floats.data(), halves.data(), lanes);
    EXPECT_NE(std::fetestexcept(FE_OVERFLOW), 0);
}

TEST(FloatsToHalves, DoesNotDependOnTheRoundingMode)
{
    std::vector<float> const floats = hostileFloats(1000);
    std::vector<half> halves(floats.size());
    for (int const mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(mode);
        floatsToHalves(floats.data(), halves.data(), floats.size());
        std::fesetround(FE_TONEAREST);
        expectSingleConversions(floats.data(), halves.data(), floats.size());
    }
}

TEST(FloatsToHalves, IsTheSameForResultsWrittenPastTheCache)
{
    constexpr std::size_t count = (std::size_t{17} << 20) / sizeof(half) + 5;
    std::vector<float> const floats = hostileFloats(count);
    std::vector<half> halves(count + 1);
    floatsToHalves(floats.data(), halves.data() + 1, count);
    expectSingleConversions(floats.data(), halves.data() + 1, count);
    EXPECT_EQ(halves[0].bits(), 0u);
}

TEST(FloatsToHalves, DoesNothingWithoutValues)
{
    floatsToHalves(nullptr, nullptr, 0);
}

// All 2^32 floats.
class EveryFloatOfARun : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(FloatsToHalves, EveryFloatOfARun, ::testing::Range(0, partsOfAllFloats));

TEST_P(EveryFloatOfARun, GoesToTheNearestHalf)
{
    expectTheRuleForPart(GetParam(), floatsToHalves);
}

}  // namespace koImage
