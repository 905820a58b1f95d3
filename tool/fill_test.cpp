#include "koImage/ops/interpolate.h"

#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Byte4;
using koImage::testing::imageOf;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Fill : ::testing::Test {
    Folder folder;

    Outcome filled(std::string const& values, std::string const& mask, std::string const& output,
                   std::vector<std::string> const& options = {})
    {
        std::vector<std::string> arguments = {"fill", folder / values, "--mask", folder / mask,
                                              "-o",   folder / output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return koimage(arguments);
    }

    void save(std::string const& name, koImage::Image const& image)
    {
        koImageIO::Misfits misfits;
        ASSERT_FALSE(koImageIO::writePicture(folder / name, image, misfits));
    }
};

// The grey levels of a binary PGM of 8 bits.
std::vector<int> levels(std::string const& path)
{
    auto const image = picture(path).image;
    EXPECT_EQ(koImage::PixelTypeId::Byte, image->pixelType());
    auto const pixels = koImage::pixelsOf<unsigned char>(*image);
    return {pixels.begin(), pixels.end()};
}

TEST_F(Fill, DrawsStraightLinesBetweenKnownPixels)
{
    writeFile(folder / "a.pgm", pgm(5, 1, {7, 10, 99, 99, 40}));
    writeFile(folder / "m.pgm", pgm(5, 1, {0, 1, 0, 0, 255}));
    auto const outcome = filled("a.pgm", "m.pgm", "b.pgm");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_THAT(levels(folder / "b.pgm"), ElementsAre(10, 10, 20, 30, 40));
}

TEST_F(Fill, FillsEachChannelAsTheLibraryDoes)
{
    auto const values = randomImage<Byte4>({61, 37}, 1);
    auto const mask = randomImage<unsigned char>({61, 37}, 2);
    for (std::size_t i = 0; i < mask->arrayLength(); ++i)
        mask->pixels()[i] = mask->pixels()[i] > 25 ? 0 : 255;
    save("a.png", *values);
    save("m.png", *mask);
    auto const outcome = filled("a.png", "m.png", "b.png");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;

    auto const expected = imageOf<Byte4>({61, 37});
    auto const channel = imageOf<unsigned char>({61, 37});
    for (auto const member : {&Byte4::r, &Byte4::g, &Byte4::b, &Byte4::a}) {
        for (std::size_t i = 0; i < values->arrayLength(); ++i)
            channel->pixels()[i] = values->pixels()[i].*member;
        koImage::imageInterpolate(*mask, *channel);
        for (std::size_t i = 0; i < values->arrayLength(); ++i)
            expected->pixels()[i].*member = channel->pixels()[i];
    }
    EXPECT_TRUE(samePixels(*expected, *picture(folder / "b.png").image));
}

TEST_F(Fill, TakesTheMaskAboveAThresholdOrItsOpposite)
{
    writeFile(folder / "a.pgm", pgm(4, 1, {10, 20, 30, 40}));
    writeFile(folder / "m.pgm", pgm(4, 1, {127, 128, 255, 0}));
    auto const with = [&](std::vector<std::string> const& options) {
        EXPECT_EQ(0, filled("a.pgm", "m.pgm", "b.pgm", options).exitCode);
        return levels(folder / "b.pgm");
    };
    EXPECT_THAT(with({}), ElementsAre(10, 20, 30, 30));
    EXPECT_THAT(with({"--threshold", "0.5"}), ElementsAre(20, 20, 30, 30));
    EXPECT_THAT(with({"--threshold", "0.5", "--invert"}), ElementsAre(10, 20, 30, 40));
    EXPECT_THAT(with({"--invert"}), ElementsAre(40, 40, 40, 40));
    // The level of a byte is n / 255, no curve bends it.
    EXPECT_THAT(with({"--threshold", "0.499"}), ElementsAre(20, 20, 30, 30));
    EXPECT_THAT(with({"--threshold", "0.498"}), ElementsAre(10, 20, 30, 30));
}

TEST_F(Fill, TakesMasksOfEveryKindOfPicture)
{
    writeFile(folder / "a.pgm", pgm(3, 1, {10, 20, 30}));
    float const nan = std::numeric_limits<float>::quiet_NaN();
    writeFile(folder / "m.pfm", pfm(3, 1, {-1, -1, 0, 0, 1e-30f, nan, nan, nan, nan}));
    writeFile(folder / "m.ppm", ppm(3, 1, {0, 0, 0, 0, 0, 1, 0, 0, 0}));
    auto const colours = imageOf<koImage::Half4>({3, 1});
    colours->pixels()[0] = {0.0f, 0.0f, 0.0f, 1.0f};
    colours->pixels()[1] = {0.0f, 2.0f, 0.0f, 1.0f};
    colours->pixels()[2] = {0.0f, 0.0f, 0.0f, 1.0f};
    save("m.exr", *colours);
    for (char const* const mask : {"m.pfm", "m.ppm", "m.exr"}) {
        auto const outcome = filled("a.pgm", mask, "b.pgm");
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_THAT(levels(folder / "b.pgm"), ElementsAre(20, 20, 20)) << mask;
    }
}

TEST_F(Fill, TakesAPictureForItsOwnMaskByItsAlpha)
{
    auto const image = imageOf<Byte4>({3, 1});
    image->pixels()[0] = {10, 20, 30, 255};
    image->pixels()[1] = {99, 99, 99, 0};
    image->pixels()[2] = {30, 20, 10, 55};
    save("a.png", *image);
    EXPECT_EQ(0, filled("a.png", "a.png", "b.png", {"--channel", "alpha"}).exitCode);
    EXPECT_EQ((Byte4{20, 20, 20, 155}), koImage::pixelsOf<Byte4>(*picture(folder / "b.png").image)[1]);

    writeFile(folder / "m.pgm", pgm(3, 1, {1, 1, 1}));
    auto const outcome = filled("a.png", "m.pgm", "c.png", {"--channel", "alpha"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "m.pgm" + ": has no alpha to take a mask of\n", outcome.err);
}

TEST_F(Fill, TellsWhatDoesNotFit)
{
    writeFile(folder / "a.pgm", pgm(2, 1, {10, 20}));
    writeFile(folder / "small.pgm", pgm(1, 1, {255}));
    writeFile(folder / "none.pgm", pgm(2, 1, {0, 0}));
    writeFile(folder / "a.pfm", pfm(2, 1, {1, 2, 3, 4, 5, 6}));
    auto outcome = filled("a.pgm", "small.pgm", "b.pgm");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "small.pgm" + ": is 1 x 1, but " + folder / "a.pgm" + " is 2 x 1\n",
              outcome.err);
    outcome = filled("a.pgm", "none.pgm", "b.pgm");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("knows no pixel that holes could be filled from"));
    outcome = filled("a.pfm", "a.pgm", "b.pfm");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("pixels of Float3 cannot be filled, only 8 bits a channel"));
    EXPECT_EQ(0, filled("a.pfm", "a.pgm", "b.png", {"--type", "Byte4", "-q"}).exitCode);
    EXPECT_EQ(1, filled("a.pgm", "missing.pgm", "c.pgm").exitCode);
    EXPECT_EQ(2, filled("a.pgm", "none.pgm", "c.pgm", {"--threshold", "nan"}).exitCode);
    EXPECT_EQ(2, filled("a.pgm", "none.pgm", "c.pgm", {"--channel", "blue"}).exitCode);
    EXPECT_EQ(2, koimage({"fill", folder / "a.pgm", "-o", folder / "c.pgm"}).exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("a.pfm", "a.pgm", "b.png", "none.pgm", "small.pgm"));
}

}  // namespace
}  // namespace koTool::testing
