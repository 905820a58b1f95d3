#include "koImage/ops/blur.h"

#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::Float4;
using koImage::testing::imageOf;
using koImage::testing::samePixels;
using ::testing::StartsWith;

/// The same noise at every run, in a file that holds it to the bit.
std::string noise(Folder const& folder, int width, int height)
{
    std::vector<float> values;
    for (int i = 0; i < 3 * width * height; ++i)
        values.push_back(static_cast<float>((i * 7919) % 101) * 0.125f);
    writeFile(folder / "noise.pfm", pfm(width, height, values));
    return folder / "noise.pfm";
}

TEST(Blur, MakesThePictureThatTheLibraryMakes)
{
    Folder const folder;
    std::string const source = noise(folder, 31, 17);
    struct Case {
        char const* wrap;
        bool x;
        bool y;
    };
    for (Case const& c :
         {Case{"", false, false}, Case{"x", true, false}, Case{"y", false, true}, Case{"xy", true, true}}) {
        std::vector<std::string> arguments = {"blur", source, folder / "b.pfm", "7"};
        if (c.wrap[0] != '\0')
            arguments.insert(arguments.end(), {"--wrap", c.wrap});
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        auto const expected = imageOf<Float3>({0, 0});
        koImage::imageBlur(*colours(source), *expected, 7, c.x, c.y);
        EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm"))) << c.wrap;
    }
}

// The library leaves Float4 out; the command filters its channels by themselves.
TEST(Blur, BlursColoursAndAlphaOfFloat4LikeAnyChannel)
{
    Folder const folder;
    auto const image = koImage::testing::randomImage<Float4>({31, 17}, 1);
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto const outcome = koimage({"blur", folder / "a.exr", folder / "b.exr", "5", "--wrap", "x"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;

    auto const colour = imageOf<Float3>({31, 17});
    auto const alpha = imageOf<float>({31, 17});
    for (std::size_t i = 0; i < image->arrayLength(); ++i) {
        auto const& [r, g, b, a] = image->pixels()[i];
        colour->pixels()[i] = {r, g, b};
        alpha->pixels()[i] = a;
    }
    koImage::imageBlur(*colour, *colour, 5, true, false);
    koImage::imageBlur(*alpha, *alpha, 5, true, false);
    auto const blurred = picture(folder / "b.exr").image;
    ASSERT_EQ(koImage::PixelTypeId::Float4, blurred->pixelType());
    auto const pixels = koImage::pixelsOf<Float4>(*blurred);
    ASSERT_EQ(image->arrayLength(), pixels.size());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        Float3 const& c = colour->pixels()[i];
        ASSERT_EQ((Float4{c.r, c.g, c.b, alpha->pixels()[i]}), pixels[i]) << i;
    }
}

// In sums of halves, this sun would be infinite, and the rest of its lines NaN.
TEST(Blur, BlursHalvesAsFloats)
{
    Folder const folder;
    auto const image = imageOf<koImage::Half4>({40, 20});
    for (auto& pixel : koImage::pixelsOf<koImage::Half4>(*image))
        pixel = {0.25f, 0.5f, 0.75f, 1.0f};
    image->pixels()[300] = {40000.0f, 40000.0f, 30000.0f, 1.0f};
    koImageIO::Misfits misfits;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    auto const outcome = koimage({"blur", folder / "a.exr", folder / "b.exr", "7"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;

    auto const expected = imageOf<Float3>({0, 0});
    koImage::imageBlur(*colours(folder / "a.exr"), *expected, 7, false, false);
    EXPECT_TRUE(samePixels(*expected, *picture(folder / "b.exr").image));
    auto const about = info(folder / "b.exr");
    EXPECT_EQ(0, about["nan"]);
    EXPECT_EQ(0, about["infinite"]);

    // Alpha that says something stays.
    image->pixels()[0].a = 0.5f;
    ASSERT_FALSE(koImageIO::writePicture(folder / "a.exr", *image, misfits));
    EXPECT_EQ(0, koimage({"blur", folder / "a.exr", folder / "b.exr", "7"}).exitCode);
    EXPECT_EQ(koImage::PixelTypeId::Float4, picture(folder / "b.exr").image->pixelType());
}

TEST(Blur, RefusesDiametersThatAreNone)
{
    Folder const folder;
    std::string const source = noise(folder, 2, 2);
    for (std::string const diameter : {"-1", "wide", "1e9", "16777217"})
        EXPECT_EQ(2, koimage({"blur", source, folder / "b.pfm", diameter}).exitCode) << diameter;
    EXPECT_EQ(2, koimage({"blur", source, folder / "b.pfm"}).exitCode);
    EXPECT_EQ(2, koimage({"blur", source, folder / "b.pfm", "3", "--wrap", "z"}).exitCode);
    EXPECT_EQ((std::vector<std::string>{"noise.pfm"}), folder.names());
}

}  // namespace
}  // namespace koTool::testing
