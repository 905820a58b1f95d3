#include "koBase/int_range2d.h"

#include <gtest/gtest.h>

#include <limits>

namespace koUtil {

namespace {

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

// Off-centre on both axes, and different on each.
constexpr IntRange2d tile = {3, -5, 4, 7};

}  // namespace

TEST(IntRange2d, IsEmptyAtTheOriginByDefault)
{
    constexpr IntRange2d range;
    EXPECT_EQ(range, (IntRange2d{0, 0, 0, 0}));
}

TEST(IntRange2d, IsFourIntegersInOrder)
{
    EXPECT_EQ(sizeof(IntRange2d), 16u);
    EXPECT_EQ(tile.x, 3);
    EXPECT_EQ(tile.y, -5);
    EXPECT_EQ(tile.width, 4);
    EXPECT_EQ(tile.height, 7);
}

TEST(IntRange2d, GivesOriginAndSizeByAxis)
{
    EXPECT_EQ(tile.origin(0), 3);
    EXPECT_EQ(tile.origin(1), -5);
    EXPECT_EQ(tile.size(0), 4);
    EXPECT_EQ(tile.size(1), 7);
}

TEST(IntRange2d, ComparesAllFourNumbers)
{
    EXPECT_EQ(tile, IntRange2d(tile));
    EXPECT_NE(tile, (IntRange2d{4, -5, 4, 7}));
    EXPECT_NE(tile, (IntRange2d{3, -4, 4, 7}));
    EXPECT_NE(tile, (IntRange2d{3, -5, 5, 7}));
    EXPECT_NE(tile, (IntRange2d{3, -5, 4, 8}));
}

// The oracle walks the members of each range one by one.
TEST(IntRange2d, AgreesWithItsMembersOnBothAxes)
{
    for (int axis = 0; axis < 2; ++axis)
        for (int value = -40; value <= 40; ++value) {
            SCOPED_TRACE(::testing::Message() << "axis " << axis << ", value " << value);
            int const first = axis == 0 ? 3 : -5;
            int const count = axis == 0 ? 4 : 7;

            bool found = false;
            int nearest = first;
            int congruent = first;
            for (int member = first; member < first + count; ++member) {
                found = found || member == value;
                if (std::abs(member - value) < std::abs(nearest - value))
                    nearest = member;
                if ((member - value) % count == 0)
                    congruent = member;
            }

            EXPECT_EQ(tile.contains(axis, value), found);
            EXPECT_EQ(tile.clamp(axis, value), nearest);
            EXPECT_EQ(tile.wrap(axis, value), congruent);
        }
}

TEST(IntRange2d, WrapsValuesBelowItsOriginToItsEnd)
{
    EXPECT_EQ(tile.wrap(0, 2), 6);
    EXPECT_EQ(tile.wrap(0, -1), 3);
    EXPECT_EQ(tile.wrap(0, -2), 6);
    EXPECT_EQ(tile.wrap(1, -6), 1);
}

TEST(IntRange2d, ContainsNothingWhenEmpty)
{
    for (int const size : {0, -1, lowest}) {
        IntRange2d const empty = {5, 6, size, size};
        for (int const value : {lowest, 4, 5, 6, 7, highest}) {
            EXPECT_FALSE(empty.contains(0, value));
            EXPECT_EQ(empty.clamp(0, value), 5);
            EXPECT_EQ(empty.clamp(1, value), 6);
            EXPECT_EQ(empty.wrap(0, value), 5);
            EXPECT_EQ(empty.wrap(1, value), 6);
        }
    }
}

TEST(IntRange2d, IsExactAtTheLowestIntegers)
{
    constexpr IntRange2d range = {lowest, lowest, 10, highest};
    EXPECT_TRUE(range.contains(0, lowest));
    EXPECT_TRUE(range.contains(0, lowest + 9));
    EXPECT_FALSE(range.contains(0, lowest + 10));
    EXPECT_FALSE(range.contains(0, highest));
    EXPECT_EQ(range.clamp(0, lowest), lowest);
    EXPECT_EQ(range.clamp(0, highest), lowest + 9);
    EXPECT_EQ(range.wrap(0, highest), lowest + 5);  // 2^32 - 1 = 10 * 429496729 + 5

    EXPECT_TRUE(range.contains(1, -2));
    EXPECT_FALSE(range.contains(1, -1));
    EXPECT_EQ(range.clamp(1, highest), -2);
    EXPECT_EQ(range.wrap(1, highest), lowest + 1);  // 2^32 - 1 = 2 * (2^31 - 1) + 1
}

TEST(IntRange2d, IsExactAtTheHighestIntegers)
{
    constexpr IntRange2d range = {highest, highest - 9, 1, 10};
    EXPECT_TRUE(range.contains(0, highest));
    EXPECT_FALSE(range.contains(0, lowest));
    EXPECT_EQ(range.clamp(0, lowest), highest);
    EXPECT_EQ(range.wrap(0, lowest), highest);

    EXPECT_TRUE(range.contains(1, highest));
    EXPECT_FALSE(range.contains(1, highest - 10));
    EXPECT_EQ(range.clamp(1, highest), highest);
    EXPECT_EQ(range.wrap(1, highest - 10), highest);
    EXPECT_EQ(range.wrap(1, lowest), highest - 9 + 4);  // -(2^32 - 10) = -10 * 429496729 + 4
}

TEST(IntRange2d, MayRunPastTheHighestInteger)
{
    constexpr IntRange2d range = {highest - 1, 0, highest, highest};
    EXPECT_TRUE(range.contains(0, highest));
    EXPECT_FALSE(range.contains(0, highest - 2));
    EXPECT_EQ(range.clamp(0, highest), highest);
    EXPECT_EQ(range.wrap(0, highest), highest);

    // One below the origin is the last member, 2^32 - 4: its low 32 bits are -4.
    EXPECT_EQ(range.wrap(0, highest - 2), -4);
}

}  // namespace koUtil
