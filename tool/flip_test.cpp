#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Flip : ::testing::Test {
    Folder folder;

    void SetUp() override { writeFile(folder / "a.ppm", ppm(2, 2, {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4})); }

    std::vector<int> flipped(std::vector<std::string> const& how)
    {
        std::vector<std::string> arguments = {"flip", folder / "a.ppm", folder / "b.ppm"};
        arguments.insert(arguments.end(), how.begin(), how.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        return ppmChannels(readFile(folder / "b.ppm"));
    }
};

TEST_F(Flip, ExchangesLeftAndRight)
{
    EXPECT_THAT(flipped({"--horizontal"}), ElementsAre(2, 2, 2, 1, 1, 1, 4, 4, 4, 3, 3, 3));
}

TEST_F(Flip, ExchangesTopAndBottom)
{
    EXPECT_THAT(flipped({"--vertical"}), ElementsAre(3, 3, 3, 4, 4, 4, 1, 1, 1, 2, 2, 2));
}

TEST_F(Flip, DoesBoth)
{
    EXPECT_THAT(flipped({"--horizontal", "--vertical"}), ElementsAre(4, 4, 4, 3, 3, 3, 2, 2, 2, 1, 1, 1));
}

TEST_F(Flip, AsksInWhichDirection)
{
    auto const outcome = koimage({"flip", folder / "a.ppm", folder / "b.ppm"});
    EXPECT_EQ(2, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("needs --horizontal, --vertical or both"));
}

TEST_F(Flip, NoLongerSaysWhichWayAMapIsTurned)
{
    ASSERT_EQ(0, koimage({"probe", folder / "p.png", "--shape", "latlong", "--size", "64", "-q"}).exitCode);
    ASSERT_EQ(1u, info(folder / "p.png")["metadata"].count("orientation"));
    ASSERT_EQ(0, koimage({"flip", folder / "p.png", folder / "q.png", "--horizontal"}).exitCode);
    auto const metadata = info(folder / "q.png")["metadata"];
    EXPECT_EQ(0u, metadata.count("orientation"));
    EXPECT_EQ("latlong", metadata["shape"]);
}

}  // namespace
}  // namespace koTool::testing
