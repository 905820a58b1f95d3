#include "koBase/array_n.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

namespace koUtil {

namespace {

constexpr int highest = std::numeric_limits<int>::max();

}  // namespace

TEST(ArrayN, KnowsItsDimensionsStridesAndSize)
{
    ArrayN<4, double> const array(21, 41, 20, 40);
    EXPECT_EQ(array.dimension(0), 21);
    EXPECT_EQ(array.dimension(1), 41);
    EXPECT_EQ(array.dimension(2), 20);
    EXPECT_EQ(array.dimension(3), 40);
    EXPECT_EQ(array.stride(0), 41 * 20 * 40);
    EXPECT_EQ(array.stride(1), 20 * 40);
    EXPECT_EQ(array.stride(2), 40);
    EXPECT_EQ(array.stride(3), 1);
    EXPECT_EQ(array.size(), 21 * 41 * 20 * 40);
}

TEST(ArrayN, HasOneDimensionToo)
{
    ArrayN<1, int> array(5);
    array(4) = 9;
    EXPECT_EQ(array.stride(0), 1);
    EXPECT_EQ(array.size(), 5);
    EXPECT_EQ(array.data()[4], 9);
}

TEST(ArrayN, LaysTheLastIndexOutFastest)
{
    ArrayN<3, int> array(3, 4, 5);
    for (int n = 0; n < 60; ++n)
        array.data()[n] = n;

    ArrayN<3, int> const& constArray = array;
    int expected = 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 5; ++k, ++expected) {
                EXPECT_EQ(array(i, j, k), expected);
                EXPECT_EQ(&constArray(i, j, k), constArray.data() + expected);
            }
}

TEST(ArrayN, GivesElementsToWriteOnlyWhenItIsNotConst)
{
    using Array = ArrayN<2, int>;
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<Array&>()(0, 0)), int&>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<Array const&>()(0, 0)), int const&>));
    EXPECT_TRUE((std::is_same_v<decltype(std::declval<Array const&>().data()), int const*>));
}

TEST(ArrayN, FillsEveryElement)
{
    ArrayN<3, float> array(3, 4, 5);
    array.fill(2.5f);
    for (int n = 0; n < 60; ++n)
        EXPECT_EQ(array.data()[n], 2.5f);
    array.fill(0);
    for (int n = 0; n < 60; ++n)
        EXPECT_EQ(array.data()[n], 0.0f);
}

TEST(ArrayN, ConstructsElementsThatAskForIt)
{
    ArrayN<2, std::string> array(2, 3);
    EXPECT_EQ(array(1, 2), "");
    array(0, 1) = "a string that is too long for the object itself";
    array.fill(array(0, 1));
    EXPECT_EQ(array(1, 2), "a string that is too long for the object itself");
}

TEST(ArrayN, CountsANegativeDimensionAsZero)
{
    ArrayN<3, int> const array(2, -3, 4);
    EXPECT_EQ(array.dimension(0), 2);
    EXPECT_EQ(array.dimension(1), 0);
    EXPECT_EQ(array.dimension(2), 4);
    EXPECT_EQ(array.size(), 0);

    // Two negative ones do not make a positive size.
    EXPECT_EQ((ArrayN<2, int>(-3, -4).size()), 0);
    EXPECT_EQ((ArrayN<2, int>(std::numeric_limits<int>::min(), 2).size()), 0);
}

TEST(ArrayN, MayBeEmpty)
{
    ArrayN<2, int> array(0, 7);
    EXPECT_EQ(array.size(), 0);
    EXPECT_EQ(array.stride(0), 7);
    EXPECT_NO_THROW(array.fill(1));

    // Elements that no memory could hold are nobody's concern once the last dimension is 0.
    EXPECT_EQ((ArrayN<4, int>(highest, highest, highest, 0).size()), 0);
}

TEST(ArrayN, ThrowsWhenTheCountOfElementsDoesNotFit)
{
    EXPECT_THROW((ArrayN<3, char>(highest, highest, highest)), std::bad_array_new_length);
    EXPECT_THROW((ArrayN<4, char>(65536, 65536, 65536, 65536)), std::bad_array_new_length);
    EXPECT_THROW((ArrayN<5, char>(0, highest, highest, highest, highest)), std::bad_array_new_length);
}

TEST(ArrayN, ThrowsWhenTheBytesOfItsElementsDoNotFit)
{
    struct Wide {
        char bytes[4];
    };
    // 2^31 * 2^30 * 4 = 2^63 bytes: one more than the largest distance between two pointers.
    EXPECT_THROW((ArrayN<3, Wide>(1 << 30, 1 << 30, 2)), std::bad_array_new_length);
}

TEST(ArrayN, IsNotCopied)
{
    EXPECT_FALSE((std::is_copy_constructible_v<ArrayN<1, int>>));
    EXPECT_FALSE((std::is_copy_assignable_v<ArrayN<2, int>>));
}

TEST(ArrayN, IsMadeFromAsManyNumbersAsItHasDimensions)
{
    EXPECT_TRUE((std::is_constructible_v<ArrayN<2, int>, int, int>));
    EXPECT_FALSE((std::is_constructible_v<ArrayN<2, int>, int>));
    EXPECT_FALSE((std::is_constructible_v<ArrayN<2, int>, int, int, int>));
    EXPECT_FALSE((std::is_default_constructible_v<ArrayN<2, int>>));
    EXPECT_FALSE((std::is_convertible_v<int, ArrayN<1, int>>));
}

TEST(ArrayN, TakesItsElementsAlongWhenItMoves)
{
    ArrayN<2, int> first(2, 3);
    first.fill(6);
    int const* const elements = first.data();

    ArrayN<2, int> second(std::move(first));
    EXPECT_EQ(second.data(), elements);
    EXPECT_EQ(second.size(), 6);
    EXPECT_EQ(second(1, 2), 6);
    EXPECT_EQ(first.size(), 0);
    EXPECT_EQ(first.dimension(1), 0);
    EXPECT_EQ(first.data(), nullptr);

    first = std::move(second);
    EXPECT_EQ(first.data(), elements);
    EXPECT_EQ(first.dimension(1), 3);
    EXPECT_EQ(first.stride(0), 3);
    EXPECT_EQ(second.size(), 0);
}

TEST(ArrayN, MayBeMovedToItself)
{
    ArrayN<2, int> array(2, 3);
    array.fill(6);
    ArrayN<2, int>& same = array;
    array = std::move(same);
    EXPECT_EQ(array.size(), 6);
    EXPECT_EQ(array(1, 2), 6);
}

// In release builds each of these accesses reads an element of the array, though not the one it seems to.
TEST(ArrayNDeathTest, ChecksEachIndexInDebugBuilds)
{
    ArrayN<2, int> array(3, 4);
    array.fill(1);
    EXPECT_DEBUG_DEATH(EXPECT_EQ(array(0, 4), 1), "indices");
    EXPECT_DEBUG_DEATH(EXPECT_EQ(array(1, -1), 1), "indices");
    EXPECT_DEBUG_DEATH(EXPECT_EQ(array(-1, 4), 1), "indices");
    EXPECT_DEBUG_DEATH(EXPECT_EQ(array(3, -1), 1), "indices");
}

}  // namespace koUtil
