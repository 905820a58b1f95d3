#include "koImageIO/testing/picture_bytes.h"

#include "koImageIO/srgb.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace koImageIO {
namespace {

using namespace koImage::testing;
using namespace koImageIO::testing;
using koImage::Byte4;
using koImage::Float3;
using koImage::Float4;
using koImage::pixelsOf;
using koImage::PixelTypeId;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string bigEndian(unsigned word)
{
    return textOf({static_cast<int>(word >> 8), static_cast<int>(word & 0xFF)});
}

TEST(Pnm, ReadsBytesTheTopRowFirst)
{
    Picture const grey = pictureOf("P5\n2 2\n255\n" + textOf({1, 2, 3, 255}));
    EXPECT_EQ(grey.format, PictureFormat::Pnm);
    ASSERT_EQ(grey.image->pixelType(), PixelTypeId::Byte);
    EXPECT_THAT(pixelsOf<unsigned char>(*grey.image), ElementsAre(3, 255, 1, 2));

    Picture const colour = pictureOf("P6\n1 2\n255\n" + textOf({1, 2, 3, 4, 5, 255}));
    ASSERT_EQ(colour.image->pixelType(), PixelTypeId::Byte4);
    EXPECT_THAT(pixelsOf<Byte4>(*colour.image), ElementsAre(Byte4{4, 5, 255, 255}, Byte4{1, 2, 3, 255}));
}

TEST(Pnm, ReadsWordsAsLight)
{
    Picture const grey = pictureOf("P5 1 2 65535\n" + bigEndian(0x1234) + bigEndian(65535));
    ASSERT_EQ(grey.image->pixelType(), PixelTypeId::Float);
    EXPECT_THAT(pixelsOf<float>(*grey.image), ElementsAre(1.0f, srgbWords().light(0x1234)));

    Picture const colour = pictureOf("P6 1 1 65535\n" + bigEndian(0) + bigEndian(257) + bigEndian(65535),
                                     reading(Transfer::None));
    ASSERT_EQ(colour.image->pixelType(), PixelTypeId::Float3);
    EXPECT_THAT(pixelsOf<Float3>(*colour.image), ElementsAre(Float3{0, 257.0f / 65535.0f, 1}));
}

TEST(Pnm, ReadsTextWithCommentsAnywhere)
{
    Picture const grey =
        pictureOf("P2 # grey\n#\n2#width\n 1 \n# largest\n255\n  12\n# between levels\n\t034#end");
    EXPECT_THAT(pixelsOf<unsigned char>(*grey.image), ElementsAre(12, 34));
    Picture const colour = pictureOf("P3 1 1 255 1 2 3");
    EXPECT_THAT(pixelsOf<Byte4>(*colour.image), ElementsAre(Byte4{1, 2, 3, 255}));
    Picture const words = pictureOf("P2 1 1 65535 65535");
    EXPECT_THAT(pixelsOf<float>(*words.image), ElementsAre(1.0f));
}

TEST(Pnm, TakesOneWhiteSpaceOrOneCommentBeforeTheBytes)
{
    EXPECT_THAT(pixelsOf<unsigned char>(*pictureOf("P5 1 1 255\n\n").image), ElementsAre('\n'));
    EXPECT_THAT(pixelsOf<unsigned char>(*pictureOf("P5 1 1 255\n#").image), ElementsAre('#'));
    EXPECT_THAT(pixelsOf<unsigned char>(*pictureOf("P5 1 1 255# a comment\n\n").image), ElementsAre('\n'));
    EXPECT_THAT(pixelsOf<unsigned char>(*pictureOf("P5\r\n# a comment\r\n1 1\r\n255\n\1more").image),
                ElementsAre(1));
}

// Every level of every largest level: nearest, by a comparison that has no division.
TEST(Pnm, ScalesLevelsToTheFullRange)
{
    for (unsigned largest = 1; largest < 256; ++largest) {
        std::string file = "P5 " + std::to_string(largest + 1) + " 1 " + std::to_string(largest) + "\n";
        for (unsigned level = 0; level <= largest; ++level)
            file += static_cast<char>(level);
        Picture const picture = pictureOf(file);
        EXPECT_EQ(picture.misfits, Misfits());
        for (unsigned level = 0; level <= largest; ++level) {
            int const scaled = pixelsOf<unsigned char>(*picture.image)[level];
            // |scaled / 255 - level / largest| is at most half a step; a tie goes up.
            int const off = 2 * (scaled * static_cast<int>(largest) - 255 * static_cast<int>(level));
            ASSERT_TRUE(off <= static_cast<int>(largest) && off > -static_cast<int>(largest))
                << level << " of " << largest << " gives " << scaled;
        }
    }
    for (unsigned const largest : {256u, 1000u, 1023u, 4095u, 32767u, 65534u}) {
        std::string file = "P5 " + std::to_string(largest + 1) + " 1 " + std::to_string(largest) + "\n";
        for (unsigned level = 0; level <= largest; ++level)
            file += bigEndian(level);
        Picture const picture = pictureOf(file, reading(Transfer::None));
        for (unsigned level = 0; level <= largest; ++level) {
            auto const scaled = std::lround(pixelsOf<float>(*picture.image)[level] * 65535.0);
            long const off = 2 * (scaled * static_cast<long>(largest) - 65535 * static_cast<long>(level));
            ASSERT_TRUE(off <= static_cast<long>(largest) && off > -static_cast<long>(largest))
                << level << " of " << largest << " gives " << scaled;
        }
    }
}

TEST(Pnm, ClampsAndCountsLevelsAboveTheLargest)
{
    Picture const bytes = pictureOf("P5 4 1 100\n" + textOf({50, 100, 101, 255}));
    EXPECT_THAT(pixelsOf<unsigned char>(*bytes.image), ElementsAre(128, 255, 255, 255));
    EXPECT_EQ(bytes.misfits, (Misfits{.overflow = 2}));
    Picture const text = pictureOf("P3 1 1 255 256 4294967295 255");
    EXPECT_THAT(pixelsOf<Byte4>(*text.image), ElementsAre(Byte4{255, 255, 255, 255}));
    EXPECT_EQ(text.misfits, (Misfits{.overflow = 2}));
    EXPECT_EQ(pictureOf("P5 1 1 256\n" + bigEndian(257)).misfits, (Misfits{.overflow = 1}));
}

TEST(Pnm, WritesBytesAsTheyAre)
{
    auto const grey = imageOf<unsigned char>({2, 2});
    std::ranges::copy(std::array<unsigned char, 4>{1, 2, 3, 4}, pixelsOf<unsigned char>(*grey).begin());
    EXPECT_EQ(fileOf(*grey, ".pgm"), "P5\n2 2\n255\n" + textOf({3, 4, 1, 2}));
    auto const colour = imageOf<Byte4>({1, 2});
    pixelsOf<Byte4>(*colour)[0] = {1, 2, 3, 4};
    pixelsOf<Byte4>(*colour)[1] = {5, 6, 255, 8};
    EXPECT_EQ(fileOf(*colour, ".ppm"), "P6\n1 2\n255\n" + textOf({5, 6, 255, 1, 2, 3}));
    EXPECT_EQ(fileOf(*colour, ".ppm", writing(16)),
              "P6\n1 2\n65535\n" + textOf({5, 5, 6, 6, 255, 255, 1, 1, 2, 2, 3, 3}));
}

TEST(Pnm, ReadsWhatItWroteAtEverySize)
{
    for (Size const size : awkwardSizes) {
        if (size.width == 0 || size.height == 0)
            continue;
        SCOPED_TRACE(::testing::Message() << size.width << " x " << size.height);
        auto const grey = randomImage<unsigned char>(size, 1);
        EXPECT_TRUE(samePixels(*grey, *pictureOf(fileOf(*grey, ".pgm")).image));
        auto const colour = randomImage<Byte4>(size, 2);
        for (Byte4& pixel : pixelsOf<Byte4>(*colour))
            pixel.a = 255;
        EXPECT_TRUE(samePixels(*colour, *pictureOf(fileOf(*colour, ".ppm")).image));

        // Light that is a word's comes back.
        auto const light = imageOf<Float3>(size);
        fillImage(*light, 3,
                  [](Random& random) { return srgbWords().light(static_cast<std::uint16_t>(random())); });
        EXPECT_TRUE(samePixels(*light, *pictureOf(fileOf(*light, ".ppm")).image));
    }
}

TEST(Pnm, WritesFloatsThroughTheCurveClampedAndCounted)
{
    auto const image = imageOf<Float3>({2, 1});
    pixelsOf<Float3>(*image)[0] = {1.5f, -0.5f, std::numeric_limits<float>::quiet_NaN()};
    pixelsOf<Float3>(*image)[1] = {srgbBytes().light(77), 1, 0};
    Misfits misfits;
    EXPECT_EQ(fileOf(*image, ".ppm", misfits, writing(8)),
              "P6\n2 1\n255\n" + textOf({255, 0, 0, 77, 255, 0}));
    EXPECT_EQ(misfits, (Misfits{.overflow = 1, .negative = 1, .nan = 1}));

    auto const grey = imageOf<float>({1, 1});
    pixelsOf<float>(*grey)[0] = 0.5f;
    EXPECT_EQ(fileOf(*grey, ".pgm", writing(0, Transfer::None)), "P5\n1 1\n65535\n" + textOf({128, 0}));
}

TEST(Pnm, RefusesOtherBits)
{
    EXPECT_THAT(roundTrip(*imageOf<Byte4>({1, 1}), "ppm", writing(12)).error.message(),
                HasSubstr("PPM and PGM have 8 or 16 bits in a channel, not 12"));
}

TEST(Pnm, ExchangesPicturesWithAnotherProgram)
{
    auto const colour = randomImage<Byte4>({23, 7}, 1);
    for (Byte4& pixel : pixelsOf<Byte4>(*colour))
        pixel.a = 255;
    auto const grey = randomImage<unsigned char>({23, 7}, 2);
    std::string const raw = fileOf(*colour, ".ppm").substr(12);
    ASSERT_EQ(raw.size(), 23u * 7 * 3);

    // Ours, of 8 and of 16 bits, as its bytes.
    EXPECT_EQ(convertedByOthers(fileOf(*colour, ".ppm"), "ppm", "-depth 8", "rgb"), raw);
    EXPECT_EQ(convertedByOthers(fileOf(*colour, ".ppm", writing(16)), "ppm", "-depth 8", "rgb"), raw);
    EXPECT_EQ(convertedByOthers(fileOf(*grey, ".pgm"), "pgm", "-depth 8", "gray"),
              fileOf(*grey, ".pgm").substr(12));

    // Its own, binary and plain.
    std::string const asColour = "-size 23x7 -depth 8 rgb";
    std::string const asGrey = "-size 23x7 -depth 8 gray";
    for (std::string const compress : {"", "-compress none"}) {
        std::string const ppm = convertedByOthers(raw, asColour, compress, "ppm");
        EXPECT_THAT(ppm, StartsWith(compress.empty() ? "P6" : "P3"));
        EXPECT_TRUE(samePixels(*colour, *pictureOf(ppm).image));
        std::string const pgm = convertedByOthers(fileOf(*grey, ".pgm").substr(12), asGrey, compress, "pgm");
        EXPECT_THAT(pgm, StartsWith(compress.empty() ? "P5" : "P2"));
        EXPECT_TRUE(samePixels(*grey, *pictureOf(pgm).image));

        // Words that are bytes twice.
        Picture const words = pictureOf(convertedByOthers(raw, asColour, compress + " -depth 16", "ppm"),
                                        reading(Transfer::None));
        ASSERT_EQ(words.image->pixelType(), PixelTypeId::Float3);
        for (std::size_t i = 0; i < pixelsOf<Byte4>(*colour).size(); ++i) {
            auto const [r, g, b, a] = pixelsOf<Byte4>(*colour)[i];
            auto const level = [](unsigned char v) { return static_cast<float>(v * 257) / 65535.0f; };
            EXPECT_EQ(pixelsOf<Float3>(*words.image)[i], (Float3{level(r), level(g), level(b)})) << i;
        }
    }
}

TEST(Pnm, SaysWhereAndWhatIsWrong)
{
    EXPECT_EQ(complaintAbout("P1 1 1 0"), "memory: byte 0: bitmaps (P1 and P4) are not read");
    EXPECT_EQ(complaintAbout("P4 1 1 0"), "memory: byte 0: bitmaps (P1 and P4) are not read");
    EXPECT_EQ(complaintAbout("P66 1 1 255\n123"),
              "memory: byte 0: the file begins with none of P2, P3, P5 and P6");
    for (char const* const width : {"0", "-1", "x", "2147483648", ""})
        EXPECT_EQ(complaintAbout("P5\n" + std::string(width)),
                  "memory: byte 3: the width is not a positive number");
    EXPECT_EQ(complaintAbout("P5 1 0 255\n1"), "memory: byte 5: the height is not a positive number");
    for (char const* const largest : {"0", "-1", "x", "65536", "99999999999"})
        EXPECT_EQ(complaintAbout("P5 1 1 " + std::string(largest) + "\n1"),
                  "memory: byte 7: the largest level is not one of 1 to 65535");
    for (char const* const file : {"P5 2 1 255\n1", "P6 1 1 255\n11", "P5 1 1 256\n1", "P2 2 1 255\n12",
                                   "P5 1 1 255", "P5 2147483647 2147483647 255\n1"})
        EXPECT_THAT(complaintAbout(file), HasSubstr("the file is too short for a picture of this size"))
            << file;
    EXPECT_EQ(complaintAbout("P2 2 1 255\n1 x"), "memory: byte 13: a level is missing or no number");
    EXPECT_EQ(complaintAbout("P2 2 1 255\n1   "), "memory: byte 15: a level is missing or no number");
    EXPECT_EQ(complaintAbout("P2 2 1 255\n-1 1"), "memory: byte 11: a level is missing or no number");
}

TEST(Pnm, SurvivesEveryTruncationAndEveryChangeOfAByte)
{
    srgbWords();  // made at the first use, and no file's doing

    expectSurvivesEveryDamage("P6\n# a\n2 2\n255\nabcdefghijkl", 4096);
    expectSurvivesEveryDamage("P5 2 1 1000 abcd", 4096);
    expectSurvivesEveryDamage("P3 1 2 9\n1 2 3\n4 5#\n 6", 4096);
    expectSurvivesEveryDamage("P2 2 1 65535 1 65535", 4096);
}

}  // namespace
}  // namespace koImageIO
