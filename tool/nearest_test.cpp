#include "tool/nearest.h"

#include <gtest/gtest.h>

namespace koTool {
namespace {

TEST(NearestName, FindsANameWithALetterAddedDroppedReplacedOrSwapped)
{
    std::vector<std::string> const names = {"info", "convert", "resize", "blur"};
    EXPECT_EQ("info", nearestName("infos", names));
    EXPECT_EQ("convert", nearestName("covert", names));
    EXPECT_EQ("resize", nearestName("resise", names));
    EXPECT_EQ("blur", nearestName("bulr", names));
}

TEST(NearestName, CountsASwapOfNeighboursAsOneChange)
{
    // Without swaps, "bulr" would be as far from "bur" as from "blur".
    EXPECT_EQ("blur", nearestName("bulr", {"bxxr", "blur"}));
    EXPECT_EQ("ab", nearestName("ba", {"xx", "ab"}));
}

TEST(NearestName, TakesTheFirstOfEquallyNearNames)
{
    EXPECT_EQ("add", nearestName("aad", {"add", "aab"}));
}

TEST(NearestName, IsNothingWhenMoreThanHalfOfTheLettersDiffer)
{
    EXPECT_EQ("ab12", nearestName("abcd", {"ab12"}));
    EXPECT_EQ("", nearestName("abcd", {"a123"}));
    EXPECT_EQ("", nearestName("", {"add"}));
    EXPECT_EQ("", nearestName("add", {}));
}

}  // namespace
}  // namespace koTool
