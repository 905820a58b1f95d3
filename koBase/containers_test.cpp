#include "koBase/containers.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace ko {

TEST(Containers, AreThoseOfTheStandardLibrary)
{
    EXPECT_TRUE((std::is_same_v<vector<int>, std::vector<int>>));
    EXPECT_TRUE((std::is_same_v<list<int>, std::list<int>>));
}

TEST(Containers, DeduceTheirElementTypeAsTheStandardOnesDo)
{
    vector const numbers = {1, 2, 3};
    list const linked(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers.size(), 3u);
    EXPECT_EQ(linked.back(), 3);
}

}  // namespace ko
