#include "koImage/tone/tone_map.h"

#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::Float4;
using koImage::PixelTypeId;
using koImage::testing::imageOf;
using koImage::testing::samePixels;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Tonemap : ::testing::Test {
    Folder folder;

    /// Runs the verb on a file of the folder.
    Outcome mapped(std::string const& input, std::string const& output,
                   std::vector<std::string> const& options = {})
    {
        std::vector<std::string> arguments = {"tonemap", folder / input, "-o", folder / output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return koimage(arguments);
    }

    void save(std::string const& name, koImage::Image const& image)
    {
        koImageIO::Misfits misfits;
        ASSERT_FALSE(koImageIO::writePicture(folder / name, image, misfits));
    }
};

koImage::ToneMap toneMap(float exposure, float gamma, float saturation)
{
    koImage::ToneControls controls;
    controls.exposure = exposure;
    controls.gamma = gamma;
    controls.saturation = saturation;
    koImage::ToneMap map;
    map.calculate(controls);
    return map;
}

// More pixels than are mapped in one run, and negative ones among them.
TEST_F(Tonemap, MapsEachPixelAsTheLibraryDoes)
{
    auto const image = koImage::testing::randomImage<Float3>({301, 227}, 1);
    for (std::size_t i = 0; i < image->arrayLength(); i += 7)
        image->pixels()[i].g = -image->pixels()[i].g;
    save("a.exr", *image);
    auto const outcome =
        mapped("a.exr", "b.exr", {"--exposure", "-1.25", "--gamma", "2.2", "--saturation", "1.5"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.err, IsEmpty());

    auto const map = toneMap(-1.25f, 2.2f, 1.5f);
    for (std::size_t i = 0; i < image->arrayLength(); ++i)
        map.apply(image->pixels()[i]);
    EXPECT_TRUE(samePixels(*image, *colours(folder / "b.exr")));
}

TEST_F(Tonemap, KeepsAlphaUnlessItIsToBeMapped)
{
    auto const image = koImage::testing::randomImage<Float4>({61, 7}, 2);
    save("a.exr", *image);
    auto const map = toneMap(1.0f, 1.8f, 0.5f);
    for (std::string const alpha : {"keep", "map", ""}) {
        auto const options =
            alpha.empty() ? std::vector<std::string>{} : std::vector<std::string>{"--alpha", alpha};
        std::vector<std::string> arguments = {"--exposure", "1", "--gamma", "1.8", "--saturation", "0.5"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        auto const outcome = mapped("a.exr", "b.exr", arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;

        auto const expected = imageOf<Float4>({61, 7});
        for (std::size_t i = 0; i < image->arrayLength(); ++i) {
            Float4 pixel = image->pixels()[i];
            map.apply(pixel);
            if (alpha != "map")
                pixel.a = image->pixels()[i].a;
            expected->pixels()[i] = pixel;
        }
        EXPECT_TRUE(samePixels(*expected, *picture(folder / "b.exr").image)) << alpha;
    }
}

TEST_F(Tonemap, LeavesThePictureAsItIsWithoutOptions)
{
    writeFile(folder / "a.ppm", ppm(2, 1, {0, 50, 128, 200, 254, 255}));
    auto const outcome = mapped("a.ppm", "b.ppm", {"--bits", "8"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(ppmChannels(readFile(folder / "b.ppm")), ElementsAre(0, 50, 128, 200, 254, 255));
}

TEST_F(Tonemap, WritesLinearLightThroughTheCurveAndLevelsOfAGammaAsTheyAre)
{
    writeFile(folder / "a.pfm", pfm(1, 1, {0.25f, 0.25f, 0.25f}));
    ASSERT_EQ(0, mapped("a.pfm", "b.ppm", {"--bits", "8", "--exposure", "1"}).exitCode);
    // The sRGB curve of IEC 61966-2-1.
    EXPECT_EQ(std::lround(255 * (1.055 * std::pow(0.5, 1 / 2.4) - 0.055)),
              ppmChannels(readFile(folder / "b.ppm"))[0]);

    ASSERT_EQ(0, mapped("a.pfm", "b.ppm", {"--bits", "8", "--exposure", "1", "--gamma", "2"}).exitCode);
    EXPECT_EQ(std::lround(255 * std::sqrt(0.5)), ppmChannels(readFile(folder / "b.ppm"))[0]);
    // A viewer must not take the levels for light.
    ASSERT_EQ(0, mapped("a.pfm", "b.png", {"--exposure", "1", "--gamma", "2"}).exitCode);
    EXPECT_EQ(koImageIO::Transfer::Srgb, picture(folder / "b.png").transfer);

    // A display whose levels are light.
    ASSERT_EQ(0, mapped("a.pfm", "b.ppm", {"--bits", "8", "--exposure", "1", "--gamma", "1"}).exitCode);
    EXPECT_EQ(128, ppmChannels(readFile(folder / "b.ppm"))[0]);
}

TEST_F(Tonemap, KeepsLightAboveWhiteInFilesThatHoldIt)
{
    writeFile(folder / "a.pfm", pfm(1, 1, {3, 3, 3}));
    EXPECT_EQ(0, mapped("a.pfm", "b.pfm", {"--exposure", "1"}).exitCode);
    EXPECT_EQ((Float3{6, 6, 6}), colours(folder / "b.pfm")->pixels()[0]);
    auto const outcome = mapped("a.pfm", "b.png", {"--exposure", "1"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("koimage: " + folder / "b.png" + ": values clamped: 3 too large\n", outcome.err);
}

TEST_F(Tonemap, ReadsBytesAndHalvesAsLight)
{
    writeFile(folder / "grey.pgm", pgm(2, 1, {255, 0}));
    EXPECT_EQ(0, mapped("grey.pgm", "b.pfm", {"--exposure", "2"}).exitCode);
    EXPECT_EQ((Float3{4, 4, 4}), colours(folder / "b.pfm")->pixels()[0]);
    EXPECT_EQ((Float3{0, 0, 0}), colours(folder / "b.pfm")->pixels()[1]);

    auto const halves = imageOf<koImage::Half4>({1, 1});
    halves->pixels()[0] = {0.5f, 1.0f, 2.0f, 0.25f};
    save("half.exr", *halves);
    EXPECT_EQ(0, mapped("half.exr", "b.exr", {"--exposure", "1"}).exitCode);
    auto const image = picture(folder / "b.exr").image;
    ASSERT_EQ(PixelTypeId::Float4, image->pixelType());
    auto expected = Float4{0.5f, 1.0f, 2.0f, 0.25f};
    toneMap(1.0f, 1.0f, 1.0f).apply(expected);
    expected.a = 0.25f;
    EXPECT_EQ(expected, koImage::pixelsOf<Float4>(*image)[0]);
}

TEST_F(Tonemap, SurvivesValuesThatAreNone)
{
    float const infinity = std::numeric_limits<float>::infinity();
    float const nan = std::numeric_limits<float>::quiet_NaN();
    writeFile(folder / "a.pfm", pfm(2, 2, {nan, 1, 1, infinity, 1, 1, -infinity, -1, 0, 1e38f, 1e-45f, 0}));
    auto const outcome =
        mapped("a.pfm", "b.png", {"--exposure", "100", "--gamma", "2.2", "--saturation", "3"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("not a number"));
}

TEST_F(Tonemap, TakesTheFileToWriteWithOrWithoutItsOption)
{
    writeFile(folder / "a.pfm", pfm(1, 1, {1, 2, 3}));
    EXPECT_EQ(0, koimage({"tonemap", folder / "a.pfm", folder / "b.pfm", "--exposure", "1"}).exitCode);
    EXPECT_EQ((Float3{2, 4, 6}), colours(folder / "b.pfm")->pixels()[0]);

    auto const piped = koimage({"tonemap", "-", "-o", "-", "--format", "pfm"}, readFile(folder / "a.pfm"));
    EXPECT_EQ(0, piped.exitCode) << piped.err;
    writeFile(folder / "c.pfm", piped.out);
    EXPECT_EQ((Float3{1, 2, 3}), colours(folder / "c.pfm")->pixels()[0]);
}

TEST_F(Tonemap, RefusesControlsThatMakeNoSense)
{
    writeFile(folder / "a.pfm", pfm(1, 1, {1, 2, 3}));
    for (auto const& [option, value] : {std::pair{"--gamma", "0"},
                                        {"--gamma", "-2.2"},
                                        {"--gamma", "nan"},
                                        {"--gamma", "inf"},
                                        {"--exposure", "bright"},
                                        {"--exposure", "1e9"},
                                        {"--exposure", "nan"},
                                        {"--saturation", "-1"},
                                        {"--saturation", "nan"},
                                        {"--alpha", "drop"}}) {
        auto const outcome = mapped("a.pfm", "b.pfm", {option, value});
        EXPECT_EQ(2, outcome.exitCode) << option << " " << value;
        EXPECT_THAT(outcome.err, HasSubstr(option));
    }
    EXPECT_EQ(2, koimage({"tonemap", folder / "a.pfm"}).exitCode);
    EXPECT_EQ(1, mapped("a.pfm", "b.pfm", {"--type", "Byte4"}).exitCode);
    EXPECT_EQ(1, mapped("none.pfm", "b.pfm").exitCode);
    EXPECT_THAT(folder.names(), ElementsAre("a.pfm"));
}

}  // namespace
}  // namespace koTool::testing
