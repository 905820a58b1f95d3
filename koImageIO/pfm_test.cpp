#include "koImageIO/testing/picture_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

namespace koImageIO {
namespace {

using namespace koImage::testing;
using namespace koImageIO::testing;
using koImage::Byte4;
using koImage::Float3;
using koImage::Float4;
using koImage::half;
using koImage::Half4;
using koImage::pixelsOf;
using koImage::PixelTypeId;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::StartsWith;

// The four bytes of a float, the lowest first.
std::string littleEndian(float value)
{
    auto const bits = std::bit_cast<std::uint32_t>(value);
    std::string text;
    for (int shift = 0; shift < 32; shift += 8)
        text += static_cast<char>(bits >> shift & 0xFF);
    return text;
}

std::string bigEndian(float value)
{
    std::string text = littleEndian(value);
    std::ranges::reverse(text);
    return text;
}

TEST(Pfm, ReadsBothByteOrdersFromTheBottomUp)
{
    for (bool const little : {true, false}) {
        std::string file = little ? "PF\n2 2\n-1.0\n" : "PF\n2 2\n1.0\n";
        for (int i = 0; i < 12; ++i)
            file += little ? littleEndian(static_cast<float>(i) + 0.25f)
                           : bigEndian(static_cast<float>(i) + 0.25f);
        Picture const picture = pictureOf(file);
        EXPECT_EQ(picture.format, PictureFormat::Pfm);
        ASSERT_EQ(picture.image->pixelType(), PixelTypeId::Float3);
        ASSERT_EQ(picture.image->width(), 2);
        ASSERT_EQ(picture.image->height(), 2);
        EXPECT_THAT(pixelsOf<Float3>(*picture.image),
                    ElementsAre(Float3{0.25f, 1.25f, 2.25f}, Float3{3.25f, 4.25f, 5.25f},
                                Float3{6.25f, 7.25f, 8.25f}, Float3{9.25f, 10.25f, 11.25f}));
        EXPECT_THAT(picture.metadata, IsEmpty());
    }
}

TEST(Pfm, ReadsGrey)
{
    Picture const picture = pictureOf("Pf 1 3 -1\n" + littleEndian(1) + littleEndian(2) + littleEndian(3));
    ASSERT_EQ(picture.image->pixelType(), PixelTypeId::Float);
    EXPECT_EQ(picture.image->height(), 3);
    EXPECT_THAT(pixelsOf<float>(*picture.image), ElementsAre(1.0f, 2.0f, 3.0f));
}

TEST(Pfm, ReportsTheScaleAndAppliesNone)
{
    Picture const picture = pictureOf("Pf 1 1 -2.50\n" + littleEndian(3));
    EXPECT_THAT(pixelsOf<float>(*picture.image), ElementsAre(3.0f));
    EXPECT_THAT(picture.metadata, ElementsAre(Pair("scale", "2.50")));
    EXPECT_THAT(pictureOf("Pf 1 1 1e3\n" + bigEndian(3)).metadata, ElementsAre(Pair("scale", "1e3")));
}

TEST(Pfm, TakesOneWhiteSpaceBeforeThePixels)
{
    // The first byte of the pixel is a line feed.
    float const value = std::bit_cast<float>(0x3F80200Au);
    EXPECT_THAT(pixelsOf<float>(*pictureOf("Pf\n# a comment\n1 1\n-1\n" + littleEndian(value)).image),
                ElementsAre(value));
}

TEST(Pfm, IgnoresWhatFollowsThePixels)
{
    EXPECT_THAT(pixelsOf<float>(*pictureOf("Pf 1 1 -1\n" + littleEndian(3) + "more").image),
                ElementsAre(3.0f));
}

TEST(Pfm, KeepsEveryBitOfFloatsBothWays)
{
    for (Size const size : {Size{1, 1}, Size{16, 2}, Size{17, 31}}) {
        auto const colour = hostileImage<Float3>(size, 1);
        EXPECT_TRUE(samePixels(*colour, *pictureOf(fileOf(*colour, ".pfm")).image));
        auto const grey = hostileImage<float>(size, 2);
        EXPECT_TRUE(samePixels(*grey, *pictureOf(fileOf(*grey, ".pfm")).image));
    }
}

TEST(Pfm, WritesTheHeaderAndRowsOfTheFormat)
{
    auto const image = imageOf<float>({1, 2});
    pixelsOf<float>(*image)[0] = 1;
    pixelsOf<float>(*image)[1] = 2;
    EXPECT_EQ(fileOf(*image, ".pfm"), std::endian::native == std::endian::little
                                          ? "Pf\n1 2\n-1.0\n" + littleEndian(1) + littleEndian(2)
                                          : "Pf\n1 2\n1.0\n" + bigEndian(1) + bigEndian(2));
}

TEST(Pfm, WritesOtherTypesAsLightWithoutAlpha)
{
    auto const float4 = imageOf<Float4>({1, 1});
    pixelsOf<Float4>(*float4)[0] = {1, -2, 3, 0.5f};
    EXPECT_THAT(pixelsOf<Float3>(*pictureOf(fileOf(*float4, ".pfm")).image), ElementsAre(Float3{1, -2, 3}));

    auto const half4 = imageOf<Half4>({1, 1});
    pixelsOf<Half4>(*half4)[0] = {half(1.0f), half(-2.0f), half(65504.0f), half(0.5f)};
    EXPECT_THAT(pixelsOf<Float3>(*pictureOf(fileOf(*half4, ".pfm")).image),
                ElementsAre(Float3{1, -2, 65504}));

    auto const byte4 = imageOf<Byte4>({1, 1});
    pixelsOf<Byte4>(*byte4)[0] = {255, 0, 51, 7};
    EXPECT_THAT(pixelsOf<Float3>(*pictureOf(fileOf(*byte4, ".pfm", writing(0, Transfer::None))).image),
                ElementsAre(Float3{1, 0, 0.2f}));

    auto const byte = imageOf<unsigned char>({1, 1});
    pixelsOf<unsigned char>(*byte)[0] = 255;
    std::string const file = fileOf(*byte, ".pfm");
    EXPECT_THAT(file, StartsWith("Pf\n"));
    EXPECT_THAT(pixelsOf<float>(*pictureOf(file).image), ElementsAre(1.0f));
}

// Another program has 16 bits of a channel: they come through both ways.
TEST(Pfm, ExchangesPicturesWithAnotherProgram)
{
    auto const image = imageOf<Float3>({7, 5});
    fillImage(*image, 3, [](Random& random) { return static_cast<float>(random() % 65536) / 65535; });
    std::string words;
    for (int row = 4; row >= 0; --row) {
        for (int x = 0; x < 7; ++x) {
            Float3 const p = pixelsOf<Float3>(*image)[static_cast<std::size_t>(row * 7 + x)];
            for (float const value : {p.r, p.g, p.b}) {
                long const word = std::lround(value * 65535);
                words += textOf({static_cast<int>(word & 255), static_cast<int>(word >> 8)});
            }
        }
    }
    std::string const asWords = "-depth 16 -endian LSB";
    EXPECT_EQ(convertedByOthers(fileOf(*image, ".pfm"), "pfm", asWords, "rgb"), words);

    for (std::string const order : {"LSB", "MSB"}) {
        Picture const picture =
            pictureOf(convertedByOthers(words, "-size 7x5 " + asWords + " rgb", "-endian " + order, "pfm"));
        ASSERT_EQ(picture.image->pixelCount(), 35);
        for (std::size_t i = 0; i < 35; ++i) {
            Float3 const expected = pixelsOf<Float3>(*image)[i];
            Float3 const actual = pixelsOf<Float3>(*picture.image)[i];
            EXPECT_NEAR(actual.r, expected.r, 0x1p-23) << i;
            EXPECT_NEAR(actual.g, expected.g, 0x1p-23) << i;
            EXPECT_NEAR(actual.b, expected.b, 0x1p-23) << i;
        }
    }
}

TEST(Pfm, SaysWhereAndWhatIsWrong)
{
    std::string const pixel = littleEndian(1);
    EXPECT_EQ(complaintAbout("PF4 1 1 -1\n" + pixel),
              "memory: byte 0: the file begins neither with PF nor with Pf");
    for (char const* const size : {"0 1", "-1 1", "x 1", "2147483648 1"})
        EXPECT_EQ(complaintAbout("Pf " + std::string(size) + " -1\n" + pixel),
                  "memory: byte 3: the size is not a positive number");
    EXPECT_EQ(complaintAbout("Pf 1 0 -1\n" + pixel), "memory: byte 5: the size is not a positive number");
    for (char const* const scale : {"0", "-0.0", "nan", "inf", "1e999", "x"})
        EXPECT_EQ(complaintAbout("Pf 1 1 " + std::string(scale) + "\n" + pixel),
                  "memory: byte 7: the scale is not a number other than 0");
    EXPECT_EQ(complaintAbout("Pf 1 1"), "memory: byte 6: the scale is not a number other than 0");
    for (char const* const start : {"Pf 1 2 -1\n", "PF 1 1 -1\n", "Pf 2147483647 2147483647 -1\n"})
        EXPECT_EQ(complaintAbout(start + pixel), "memory: byte " + std::to_string(std::strlen(start)) +
                                                     ": the file is too short for a picture of this size");
    EXPECT_THAT(complaintAbout("Pf 1 1 -1"), HasSubstr("too short"));
}

TEST(Pfm, SurvivesEveryTruncationAndEveryChangeOfAByte)
{
    std::string const pixel = littleEndian(1.5f);
    expectSurvivesEveryDamage("Pf\n2 2\n-1.0\n" + pixel + pixel + pixel + pixel, 4096);
    expectSurvivesEveryDamage("PF 1 1 2.5 " + pixel + pixel + pixel, 4096);
}

}  // namespace
}  // namespace koImageIO
