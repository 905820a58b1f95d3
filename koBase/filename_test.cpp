#include "koBase/filename.h"

#include <gtest/gtest.h>

namespace koOS {

TEST(Filename, IsEmptyByDefault)
{
    Filename const none;
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.multibyte(), "");
}

TEST(Filename, KeepsTheBytesThatItWasMadeFrom)
{
    // Not UTF-8: a name is whatever bytes the system accepts.
    std::string const bytes = "/tmp/\xC3\xA4 \xFF.txt";
    EXPECT_EQ(Filename(bytes).multibyte(), bytes);
    EXPECT_EQ(Filename(bytes.c_str()).multibyte(), bytes);
    EXPECT_FALSE(Filename(bytes).empty());
}

TEST(Filename, IsEmptyWhenMadeFromNothing)
{
    EXPECT_TRUE(Filename("").empty());
    EXPECT_TRUE(Filename(std::string()).empty());
    EXPECT_TRUE(Filename(static_cast<char const*>(nullptr)).empty());
}

TEST(Filename, ComparesByteByByte)
{
    EXPECT_EQ(Filename("a.txt"), Filename(std::string("a.txt")));
    EXPECT_NE(Filename("a.txt"), Filename("A.txt"));
    EXPECT_NE(Filename("a.txt"), Filename("./a.txt"));
    EXPECT_EQ(Filename(), Filename(""));
}

TEST(Filename, IsMadeWhereAFunctionTakesOne)
{
    auto const lengthOf = [](Filename const& name) { return name.multibyte().size(); };
    EXPECT_EQ(lengthOf("abc"), 3u);
    EXPECT_EQ(lengthOf(std::string("abcd")), 4u);
}

}  // namespace koOS
