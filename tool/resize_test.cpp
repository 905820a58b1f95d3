#include "koImage/envmap/resize.h"

#include "koImage/ops/blur.h"
#include "koImage/testing/test_images.h"
#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using koImage::Float3;
using koImage::Image;
using koImage::PixelTypeId;
using koImage::testing::samePixels;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::vector<float> ramp(int count)
{
    std::vector<float> values;
    for (int i = 0; i < count; ++i)
        values.push_back(static_cast<float>((i * 7919) % 101) * 0.125f);
    return values;
}

TEST(Resize, MakesThePictureThatTheLibraryMakes)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(12, 10, ramp(360)));
    auto const source = colours(folder / "a.pfm");
    struct Case {
        char const* filter;
        bool bilinear;
    };
    for (Case const& c : {Case{"bilinear", true}, Case{"point", false}}) {
        auto const outcome =
            koimage({"resize", folder / "a.pfm", folder / "b.pfm", "7", "4", "--filter", c.filter});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        ko::Reference<Image> const expected(koImage::resize(*source, 7, 4, c.bilinear));
        EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm"))) << c.filter;
    }
}

TEST(Resize, IsBilinearAndDoesNotBlurUnlessAsked)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(12, 10, ramp(360)));
    EXPECT_EQ(0, koimage({"resize", folder / "a.pfm", folder / "b.pfm", "3", "2"}).exitCode);
    ko::Reference<Image> const expected(koImage::resize(*colours(folder / "a.pfm"), 3, 2, true));
    EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm")));
}

TEST(Resize, TakesAPercentage)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(12, 10, ramp(360)));
    struct Case {
        char const* percent;
        int width;
        int height;
    };
    for (Case const& c : {Case{"50%", 6, 5}, Case{"200%", 24, 20}, Case{"12.5%", 2, 1}, Case{"1%", 1, 1}}) {
        EXPECT_EQ(0, koimage({"resize", folder / "a.pfm", folder / "b.pfm", c.percent}).exitCode);
        auto const about = info(folder / "b.pfm");
        EXPECT_EQ(c.width, about["width"]) << c.percent;
        EXPECT_EQ(c.height, about["height"]) << c.percent;
    }
}

TEST(Resize, BlursBeforeByTheDiameterThatFitsOrIsGiven)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(40, 30, ramp(3600)));
    auto const source = colours(folder / "a.pfm");
    // 40 / 10 + 1 by the wider ratio, 30 / 10 + 1 by the other.
    for (auto const& [blur, diameter] : {std::pair{"auto", 5}, {"5", 5}, {"9", 9}}) {
        auto const outcome =
            koimage({"resize", folder / "a.pfm", folder / "b.pfm", "10", "10", "--blur", blur});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        auto const soft = koImage::testing::imageOf<Float3>({0, 0});
        koImage::imageBlur(*source, *soft, diameter, false, false);
        ko::Reference<Image> const expected(koImage::resize(*soft, 10, 10, true));
        EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm"))) << blur;
    }
}

TEST(Resize, DoesNotBlurWhatGrows)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(12, 10, ramp(360)));
    EXPECT_EQ(0,
              koimage({"resize", folder / "a.pfm", folder / "b.pfm", "24", "5", "--blur", "auto"}).exitCode);
    ko::Reference<Image> const expected(koImage::resize(*colours(folder / "a.pfm"), 24, 5, true));
    EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm")));
}

TEST(Resize, WrapsBlurAndSamplesAsAsked)
{
    Folder const folder;
    writeFile(folder / "a.pfm", pfm(12, 10, ramp(360)));
    EXPECT_EQ(0,
              koimage({"resize", folder / "a.pfm", folder / "b.pfm", "30", "9", "--wrap", "x", "--blur", "3"})
                  .exitCode);
    auto const soft = koImage::testing::imageOf<Float3>({0, 0});
    koImage::imageBlur(*colours(folder / "a.pfm"), *soft, 3, true, false);
    soft->setWrap(true, false);
    ko::Reference<Image> const expected(koImage::resize(*soft, 30, 9, true));
    EXPECT_TRUE(samePixels(*expected, *colours(folder / "b.pfm")));

    soft->setWrap(false, false);
    ko::Reference<Image> const clamped(koImage::resize(*soft, 30, 9, true));
    EXPECT_FALSE(samePixels(*clamped, *colours(folder / "b.pfm"))) << "the edges must matter here";
}

TEST(Resize, KeepsColoursAsBytesAndMakesGreyBytesLight)
{
    Folder const folder;
    writeFile(folder / "a.ppm", ppm(2, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(0,
              koimage({"resize", folder / "a.ppm", folder / "b.ppm", "200%", "--filter", "point"}).exitCode);
    EXPECT_THAT(ppmChannels(readFile(folder / "b.ppm")),
                ElementsAre(1, 2, 3, 1, 2, 3, 4, 5, 6, 4, 5, 6, 1, 2, 3, 1, 2, 3, 4, 5, 6, 4, 5, 6,  //
                            7, 8, 9, 7, 8, 9, 10, 11, 12, 10, 11, 12, 7, 8, 9, 7, 8, 9, 10, 11, 12, 10, 11,
                            12));

    writeFile(folder / "a.pgm", pgm(2, 1, {255, 0}));
    EXPECT_EQ(
        0, koimage({"resize", folder / "a.pgm", folder / "b.pfm", "4", "1", "--filter", "point"}).exitCode);
    auto const grey = picture(folder / "b.pfm").image;
    EXPECT_EQ(PixelTypeId::Float, grey->pixelType());
    EXPECT_EQ(1.0f, static_cast<float const*>(grey->data())[1]);
    EXPECT_EQ(0.0f, static_cast<float const*>(grey->data())[2]);
}

TEST(Resize, RefusesSizesThatAreNone)
{
    Folder const folder;
    writeFile(folder / "a.pgm", pgm(2, 1, {255, 0}));
    for (std::vector<std::string> const& size : std::vector<std::vector<std::string>>{{"50"},
                                                                                      {"0", "5"},
                                                                                      {"5", "-1"},
                                                                                      {"a", "b"},
                                                                                      {"0%"},
                                                                                      {"-5%"},
                                                                                      {"nan%"},
                                                                                      {"inf%"},
                                                                                      {"%"},
                                                                                      {"5%%"},
                                                                                      {"50%", "50%"},
                                                                                      {"1.5", "2"},
                                                                                      {"65536", "65536"},
                                                                                      {"99999999999", "1"}}) {
        std::vector<std::string> arguments = {"resize", folder / "a.pgm", folder / "b.pgm"};
        arguments.insert(arguments.end(), size.begin(), size.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(2, outcome.exitCode) << ::testing::PrintToString(size);
    }
    writeFile(folder / "wide.pgm", pgm(1000, 1, std::vector<int>(1000)));
    EXPECT_EQ(2, koimage({"resize", folder / "wide.pgm", folder / "b.pgm", "1000000%"}).exitCode);
    EXPECT_EQ(
        2, koimage({"resize", folder / "a.pgm", folder / "b.pgm", "1", "1", "--filter", "cubic"}).exitCode);
    auto const blur = koimage({"resize", folder / "a.pgm", folder / "b.pgm", "1", "1", "--blur", "much"});
    EXPECT_EQ(2, blur.exitCode);
    EXPECT_THAT(blur.err, HasSubstr("takes auto or a diameter in pixels, not much"));
}

}  // namespace
}  // namespace koTool::testing
