#include "koImage/image/typed_image.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::Float4;
using koImage::PixelTypeId;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Arithmetic : ::testing::Test {
    Folder folder;

    void SetUp() override
    {
        writeFile(folder / "a.pfm", pfm(2, 1, {6, 2, -1, 8, 0.5f, 3}));
        writeFile(folder / "b.pfm", pfm(2, 1, {2, 4, 2, 0.5f, 0.25f, -3}));
    }

    std::vector<Float3> result(std::string const& verb)
    {
        auto const outcome = koimage({verb, folder / "a.pfm", folder / "b.pfm", folder / "c.pfm"});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_THAT(outcome.err, IsEmpty());
        auto const image = colours(folder / "c.pfm");
        return {image->pixels(), image->pixels() + image->arrayLength()};
    }
};

TEST_F(Arithmetic, AddsSubtractsMultipliesAndDivides)
{
    EXPECT_EQ((std::vector<Float3>{{8, 6, 1}, {8.5f, 0.75f, 0}}), result("add"));
    EXPECT_EQ((std::vector<Float3>{{4, -2, -3}, {7.5f, 0.25f, 6}}), result("sub"));
    EXPECT_EQ((std::vector<Float3>{{12, 8, -2}, {4, 0.125f, -9}}), result("mult"));
    EXPECT_EQ((std::vector<Float3>{{3, 0.5f, -0.5f}, {16, 2, -1}}), result("div"));
}

TEST_F(Arithmetic, WorksOnTheLightOfBytes)
{
    writeFile(folder / "white.ppm", ppm(2, 1, {255, 255, 255, 255, 255, 255}));
    auto const outcome = koimage({"mult", folder / "a.pfm", folder / "white.ppm", folder / "c.pfm"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_EQ((Float3{8, 0.5f, 3}), colours(folder / "c.pfm")->pixels()[1]);

    // Two pictures of bytes: light is halved, not the levels.
    writeFile(folder / "two.pfm", pfm(2, 1, {2, 2, 2, 2, 2, 2}));
    EXPECT_EQ(0,
              koimage({"div", folder / "white.ppm", folder / "two.pfm", folder / "half.ppm", "--bits", "8"})
                  .exitCode);
    EXPECT_EQ(188, ppmChannels(readFile(folder / "half.ppm"))[0]);
    EXPECT_EQ(0,
              koimage({"sub", folder / "white.ppm", folder / "white.ppm", folder / "none.ppm", "--bits", "8"})
                  .exitCode);
    EXPECT_EQ(std::vector<int>(6, 0), ppmChannels(readFile(folder / "none.ppm")));
}

TEST_F(Arithmetic, TurnsGreyIntoColours)
{
    writeFile(folder / "grey.pgm", pgm(2, 1, {255, 0}));
    auto const outcome = koimage({"mult", folder / "grey.pgm", folder / "grey.pgm", folder / "c.pfm"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    auto const product = colours(folder / "c.pfm");
    EXPECT_EQ((Float3{1, 1, 1}), product->pixels()[0]);
    EXPECT_EQ((Float3{0, 0, 0}), product->pixels()[1]);
}

TEST_F(Arithmetic, TreatsAlphaLikeAChannelWhereBothHaveIt)
{
    ko::Reference<koImage::TypedImage<Float4>> const image(new koImage::TypedImage<Float4>);
    image->resize(1, 1);
    image->pixels()[0] = {1, 2, 3, 0.5f};
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto const outcome = koimage({"mult", folder / "a.exr", folder / "a.exr", folder / "b.exr"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    auto const product = picture(folder / "b.exr").image;
    ASSERT_EQ(PixelTypeId::Float4, product->pixelType());
    EXPECT_EQ((Float4{1, 4, 9, 0.25f}), koImage::pixelsOf<Float4>(*product)[0]);
}

TEST_F(Arithmetic, SaysThatAlphaIsLeftOutWhereOnlyOneHasIt)
{
    ko::Reference<koImage::TypedImage<Float4>> const image(new koImage::TypedImage<Float4>);
    image->resize(2, 1);
    image->pixels()[0] = {1, 2, 3, 0.5f};
    image->pixels()[1] = {1, 1, 1, 0.5f};
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto const outcome = koimage({"mult", folder / "a.exr", folder / "b.pfm", folder / "c.exr"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage: alpha is left out: " + folder / "a.exr" + " is Float4, " + folder / "b.pfm" +
                  " is Float3\n",
              outcome.err);
    auto const product = picture(folder / "c.exr").image;
    ASSERT_EQ(PixelTypeId::Float3, product->pixelType());
    EXPECT_EQ((Float3{2, 8, 6}), koImage::pixelsOf<Float3>(*product)[0]);
}

TEST_F(Arithmetic, TellsSizesThatDiffer)
{
    writeFile(folder / "b.pfm", pfm(1, 1, {1, 2, 3}));
    auto const outcome = koimage({"add", folder / "a.pfm", folder / "b.pfm", folder / "c.pfm"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "b.pfm" + ": is 1 x 1, but " + folder / "a.pfm" + " is 2 x 1\n",
              outcome.err);
}

TEST_F(Arithmetic, TellsATypeThatCannotBeCalculatedWith)
{
    auto const outcome =
        koimage({"add", folder / "a.pfm", folder / "b.pfm", folder / "c.pfm", "--type", "Byte4"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "a.pfm" + ": pixels of Byte4 cannot be worked on so"));
}

TEST_F(Arithmetic, TakesStandardInputForBoth)
{
    auto const outcome = koimage({"add", "-", "-", "-", "--format", "pfm"}, pfm(1, 1, {1, 2, 3}));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    writeFile(folder / "sum.pfm", outcome.out);
    EXPECT_EQ((Float3{2, 4, 6}), colours(folder / "sum.pfm")->pixels()[0]);
}

}  // namespace
}  // namespace koTool::testing
