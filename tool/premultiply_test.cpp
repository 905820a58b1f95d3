#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Byte4;
using koImage::testing::imageOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Premultiply : ::testing::Test {
    Folder folder;

    /// The pixels that a verb makes of some in one row.
    std::vector<Byte4> result(std::string const& verb, std::vector<Byte4> const& pixels)
    {
        auto const image = imageOf<Byte4>({static_cast<int>(pixels.size()), 1});
        std::copy(pixels.begin(), pixels.end(), image->pixels());
        koImageIO::Misfits misfits;
        EXPECT_FALSE(koImageIO::writePicture(folder / "a.png", *image, misfits));
        auto const outcome = koimage({verb, folder / "a.png", "-o", folder / "b.png"});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_THAT(outcome.err, IsEmpty());
        auto const made = picture(folder / "b.png").image;
        EXPECT_EQ(koImage::PixelTypeId::Byte4, made->pixelType());
        auto const span = koImage::pixelsOf<Byte4>(*made);
        return {span.begin(), span.end()};
    }
};

// 100 * 128 / 255 is 50.2, 255 * 1 / 255 is 1.
TEST_F(Premultiply, MultipliesColoursByAlpha)
{
    EXPECT_THAT(
        result("premultiply", {{200, 100, 50, 128}, {255, 254, 0, 1}, {9, 8, 7, 0}, {9, 8, 7, 255}}),
        ElementsAre(Byte4{100, 50, 25, 128}, Byte4{1, 0, 0, 1}, Byte4{0, 0, 0, 0}, Byte4{9, 8, 7, 255}));
}

// Both directions truncate; colours beyond alpha are clamped.
TEST_F(Premultiply, DividesThemByAlphaAgain)
{
    EXPECT_THAT(
        result("unpremultiply", {{100, 50, 25, 128}, {255, 1, 0, 1}, {9, 8, 7, 0}, {9, 8, 7, 255}}),
        ElementsAre(Byte4{199, 99, 49, 128}, Byte4{255, 255, 0, 1}, Byte4{9, 8, 7, 0}, Byte4{9, 8, 7, 255}));
}

TEST_F(Premultiply, LeavesGreyWithoutAlphaAndSaysSo)
{
    writeFile(folder / "a.pgm", pgm(2, 1, {7, 200}));
    for (std::string const verb : {"premultiply", "unpremultiply"}) {
        auto const outcome = koimage({verb, folder / "a.pgm", folder / "b.pgm"});
        EXPECT_EQ(0, outcome.exitCode);
        EXPECT_EQ("koimage: " + folder / "a.pgm" + ": is grey without alpha, and stays as it is\n",
                  outcome.err);
        EXPECT_EQ(readFile(folder / "a.pgm"), readFile(folder / "b.pgm"));
    }
}

TEST_F(Premultiply, WorksOnOtherPixelsOnlyWhenTheyAreReadAsBytes)
{
    auto const image = imageOf<koImage::Float4>({1, 1});
    image->pixels()[0] = {1.0f, 0.0f, 1.0f, 0.2f};
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto outcome = koimage({"premultiply", folder / "a.exr", folder / "b.png"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("pixels of Float4 cannot be worked on so, only 8 bits a channel; "
                                       "--type Byte4 reads them as such"));
    EXPECT_THAT(folder.names(), ElementsAre("a.exr"));

    outcome = koimage({"premultiply", folder / "a.exr", folder / "b.png", "--type", "Byte4"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ((Byte4{51, 0, 51, 51}), koImage::pixelsOf<Byte4>(*picture(folder / "b.png").image)[0]);
}

TEST_F(Premultiply, FailsOnWhatIsNoPicture)
{
    writeFile(folder / "a.png", "\x89PNG\r\n\x1a\nand no more");
    for (std::string const verb : {"premultiply", "unpremultiply"}) {
        EXPECT_EQ(1, koimage({verb, folder / "a.png", folder / "b.png"}).exitCode);
        EXPECT_EQ(2, koimage({verb, folder / "a.png"}).exitCode);
    }
    EXPECT_THAT(folder.names(), ElementsAre("a.png"));
}

}  // namespace
}  // namespace koTool::testing
