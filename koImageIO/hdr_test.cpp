#include "koImage/testing/test_images.h"
#include "koImageIO/picture.h"
#include "koImageIO/testing/picture_bytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace koImageIO {
namespace {

using namespace koImage::testing;
using namespace koImageIO::testing;
using koImage::Float3;
using koImage::Image;
using koImage::pixelsOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

// --- The format by hand

using Rgbe = std::array<int, 4>;

std::string textOf(Rgbe const& pixel)
{
    return testing::textOf({pixel[0], pixel[1], pixel[2], pixel[3]});
}

std::string textOf(std::vector<Rgbe> const& pixels)
{
    std::string text;
    for (Rgbe const& pixel : pixels)
        text += textOf(pixel);
    return text;
}

std::string headerOf(std::string const& size, std::string const& lines = "FORMAT=32-bit_rle_rgbe\n")
{
    return "#?RADIANCE\n" + lines + "\n" + size + "\n";
}

std::string headerOf(int width, int height)
{
    return headerOf("-Y " + std::to_string(height) + " +X " + std::to_string(width));
}

// The scanline with runs: four planes, here without a run.
std::string stretchesOf(std::vector<Rgbe> const& pixels)
{
    auto const length = static_cast<int>(pixels.size());
    std::string text = testing::textOf({2, 2, length / 256, length % 256});
    for (std::size_t plane = 0; plane < 4; ++plane) {
        for (std::size_t x = 0; x < pixels.size(); ++x) {
            if (x % 128 == 0)
                text += static_cast<char>(std::min<std::size_t>(128, pixels.size() - x));
            text += static_cast<char>(pixels[x][plane]);
        }
    }
    return text;
}

// All pixels of a file of ours, decoded by the description of the format: -Y, +X, flat where the width is
// below 8 or above 32767, with runs otherwise.
std::vector<Rgbe> pixelsInFile(std::string const& file)
{
    std::size_t const sizeLine = file.find("\n\n") + 2;
    int width = 0;
    int height = 0;
    EXPECT_EQ(std::sscanf(file.c_str() + sizeLine, "-Y %d +X %d\n", &height, &width), 2);
    std::size_t at = file.find('\n', sizeLine) + 1;
    auto const next = [&] { return static_cast<unsigned char>(file.at(at++)); };

    std::vector<Rgbe> pixels;
    for (int y = 0; y < height; ++y) {
        std::vector<Rgbe> line(static_cast<std::size_t>(width));
        if (width < 8 || width > 32767) {
            for (Rgbe& pixel : line)
                for (int& channel : pixel)
                    channel = next();
        } else {
            EXPECT_EQ(next(), 2);
            EXPECT_EQ(next(), 2);
            EXPECT_EQ(next(), width / 256);
            EXPECT_EQ(next(), width % 256);
            for (std::size_t plane = 0; plane < 4; ++plane) {
                for (std::size_t x = 0; x < line.size();) {
                    int const code = next();
                    int const value = code > 128 ? next() : -1;
                    for (int i = code > 128 ? code - 128 : code; i > 0; --i)
                        line.at(x++)[plane] = value >= 0 ? value : next();
                }
            }
        }
        pixels.insert(pixels.end(), line.begin(), line.end());
    }
    EXPECT_EQ(at, file.size());
    return pixels;
}

float valueOf(int mantissa, int exponent)
{
    return exponent == 0 ? 0 : static_cast<float>(std::ldexp(mantissa + 0.5, exponent - 136));
}

Float3 valueOf(Rgbe const& p)
{
    return {valueOf(p[0], p[3]), valueOf(p[1], p[3]), valueOf(p[2], p[3])};
}

/// Pixel (x, row) counted from the top left corner.
Float3 pixelAt(Image const& image, int x, int row)
{
    return pixelsOf<Float3>(image)[static_cast<std::size_t>((image.height() - 1 - row) * image.width() + x)];
}

/// Pixels that look different wherever they stand.
Rgbe pixelFor(int x, int row)
{
    return {128 + x, 3 * row, 7 * x + row, 128 + x - row};
}

Rgbe randomPixel(Random& random)
{
    auto const byte = [&] { return static_cast<int>(random() % 256); };
    return {128 + byte() / 2, byte(), byte(), 1 + static_cast<int>(random() % 255)};
}

// --- Values

// Every mantissa as the largest with every mantissa beside it, at exponents from the smallest floats to the
// format's end, each channel in turn.
TEST(Hdr, ReadsEveryNormalisedPixelExactlyAndWritesItAsItWas)
{
    for (int const exponent : {1, 2, 3, 9, 10, 11, 64, 127, 128, 129, 136, 137, 200, 253, 254, 255}) {
        for (std::size_t channel = 0; channel < 3; ++channel) {
            SCOPED_TRACE(::testing::Message() << "exponent " << exponent << ", channel " << channel);
            std::vector<Rgbe> pixels;
            std::string file = headerOf(256, 128);
            for (int largest = 128; largest < 256; ++largest) {
                std::vector<Rgbe> line;
                for (int other = 0; other < 256; ++other) {
                    Rgbe pixel = {other, other * 77 % 256, other ^ 255, exponent};
                    pixel[channel] = largest;
                    line.push_back(pixel);
                }
                file += stretchesOf(line);
                pixels.insert(pixels.end(), line.begin(), line.end());
            }

            Picture const picture = pictureOf(file);
            bool exact = true;
            for (int row = 0; row < 128; ++row) {
                for (int x = 0; x < 256; ++x)
                    exact &= pixelAt(*picture.image, x, row) ==
                             valueOf(pixels[static_cast<std::size_t>(row * 256 + x)]);
            }
            EXPECT_TRUE(exact);
            EXPECT_TRUE(pixelsInFile(fileOf(*picture.image, ".hdr")) == pixels);
        }
    }
}

TEST(Hdr, ReadsAnExponentOfZeroAsBlack)
{
    Picture const picture = pictureOf(headerOf(2, 1) + textOf({{{255, 128, 1, 0}, {0, 0, 0, 0}}}));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), (Float3{0, 0, 0}));
    EXPECT_EQ(pixelAt(*picture.image, 1, 0), (Float3{0, 0, 0}));
}

TEST(Hdr, KeepsPixelsWhoseMantissasAreAllSmallAsTheValuesThatTheyAre)
{
    Picture const picture = pictureOf(headerOf(2, 1) + textOf({{{3, 2, 0, 128}, {127, 127, 127, 255}}}));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), (Float3{3.5f / 256, 2.5f / 256, 0.5f / 256}));
    EXPECT_EQ(pixelAt(*picture.image, 1, 0),
              (Float3{127.5f * 0x1p119f, 127.5f * 0x1p119f, 127.5f * 0x1p119f}));
}

TEST(Hdr, RoundsDownWithTheExponentOfTheLargestChannel)
{
    auto const image = imageOf<Float3>({7, 1});
    auto const pixels = pixelsOf<Float3>(*image);
    pixels[0] = {1.0f, 0.5f, 0.25f};
    pixels[1] = {0.999f, 0.0f, 0.0f};                           // 255.7 of 256
    pixels[2] = {0.0f, 2.99f, 3.999f};                          // 191.4 and 255.9 of 256 in 4
    pixels[3] = {0x1p-128f, 0x1p-129f, 0.0f};                   // the smallest exponent
    pixels[4] = {std::nextafter(0x1p-128f, 0.0f), 0.0f, 0.0f};  // below it: black
    pixels[5] = {0.0f, 0.0f, 0x1p-149f};
    pixels[6] = {0x1p126f, 0x1p118f, 0x1.FFFFFEp126f};
    EXPECT_EQ(pixelsInFile(fileOf(*image, ".hdr")), (std::vector<Rgbe>{{128, 64, 32, 129},
                                                                       {255, 0, 0, 128},
                                                                       {0, 191, 255, 130},
                                                                       {128, 64, 0, 1},
                                                                       {0, 0, 0, 0},
                                                                       {0, 0, 0, 0},
                                                                       {128, 0, 255, 255}}));
}

TEST(Hdr, ClampsAndCountsWhatItCannotHold)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    auto const image = imageOf<Float3>({6, 1});
    auto const pixels = pixelsOf<Float3>(*image);
    pixels[0] = {0x1p127f, infinity, FLT_MAX};
    pixels[1] = {1.0f, -1.0f, -FLT_MAX};
    pixels[2] = {nan, 1.0f, -nan};
    pixels[3] = {-infinity, -0x1p-149f, 1.0f};
    pixels[4] = {-0.0f, -0.0f, -0.0f};  // fits: it is 0
    pixels[5] = {nan, -2.0f, -infinity};
    Misfits misfits;
    EXPECT_EQ(pixelsInFile(fileOf(*image, ".hdr", misfits)), (std::vector<Rgbe>{{255, 255, 255, 255},
                                                                                {128, 0, 0, 129},
                                                                                {0, 128, 0, 129},
                                                                                {0, 0, 128, 129},
                                                                                {0, 0, 0, 0},
                                                                                {0, 0, 0, 0}}));
    EXPECT_EQ(misfits, (Misfits{.overflow = 3, .negative = 6, .nan = 3}));
}

// --- Orientation

// A scanline after another in the order that the size line names, told by the definition: x grows to the
// right and y upwards; the first axis is the slow one.
TEST(Hdr, TurnsEveryOrientationUpright)
{
    for (auto const& [width, height] : {std::pair(3, 2), std::pair(1, 4), std::pair(9, 10)}) {
        for (bool const columns : {false, true}) {
            for (bool const xUp : {false, true}) {
                for (bool const yUp : {false, true}) {
                    std::string const x = (xUp ? "+X " : "-X ") + std::to_string(width);
                    std::string const y = (yUp ? "+Y " : "-Y ") + std::to_string(height);
                    std::string const size = columns ? x + ' ' + y : y + ' ' + x;
                    SCOPED_TRACE(size);

                    std::string file = headerOf(size);
                    for (int i = 0; i < (columns ? width : height); ++i) {
                        std::vector<Rgbe> line;
                        for (int j = 0; j < (columns ? height : width); ++j) {
                            int const alongX = columns ? i : j;
                            int const alongY = columns ? j : i;
                            line.push_back(pixelFor(xUp ? alongX : width - 1 - alongX,
                                                    yUp ? height - 1 - alongY : alongY));
                        }
                        file += line.size() < 8 ? textOf(line) : stretchesOf(line);
                    }

                    Picture const picture = pictureOf(file);
                    ASSERT_EQ(picture.image->width(), width);
                    ASSERT_EQ(picture.image->height(), height);
                    for (int row = 0; row < height; ++row) {
                        for (int column = 0; column < width; ++column)
                            EXPECT_EQ(pixelAt(*picture.image, column, row), valueOf(pixelFor(column, row)))
                                << column << ", " << row;
                    }
                }
            }
        }
    }
}

TEST(Hdr, WritesTheTopRowFirst)
{
    auto const image = imageOf<Float3>({1, 2});
    pixelsOf<Float3>(*image)[0] = {1, 1, 1};
    pixelsOf<Float3>(*image)[1] = {2, 2, 2};
    std::string const file = fileOf(*image, ".hdr");
    EXPECT_THAT(file, HasSubstr("\n\n-Y 2 +X 1\n"));
    EXPECT_EQ(pixelsInFile(file), (std::vector<Rgbe>{{128, 128, 128, 130}, {128, 128, 128, 129}}));
}

// --- Scanlines

TEST(Hdr, RepeatsPixels)
{
    Rgbe const first = {200, 100, 50, 130};
    Rgbe const second = {10, 220, 30, 120};
    Picture const picture = pictureOf(headerOf(12, 1) + textOf({first, {1, 1, 1, 4}, second, {1, 1, 1, 6}}));
    for (int x = 0; x < 12; ++x)
        EXPECT_EQ(pixelAt(*picture.image, x, 0), valueOf(x < 5 ? first : second)) << x;
}

TEST(Hdr, CountsEachFurtherRepetition256Times)
{
    Rgbe const first = {200, 100, 50, 130};
    Rgbe const second = {10, 220, 30, 120};
    int const width = 1 + 43 + 2 * 256 + 65536 + 1 + 5;
    Picture const picture =
        pictureOf(headerOf(width, 1) +
                  textOf({first, {1, 1, 1, 43}, {1, 1, 1, 2}, {1, 1, 1, 1}, second, {1, 1, 1, 5}}));
    for (int x = 0; x < width; ++x)
        ASSERT_EQ(pixelAt(*picture.image, x, 0), valueOf(x < width - 6 ? first : second)) << x;
}

TEST(Hdr, TakesRepetitionsOfNothing)
{
    Rgbe const first = {200, 100, 50, 130};
    Rgbe const none = {1, 1, 1, 0};
    std::vector<Rgbe> pixels(9, none);
    pixels[0] = first;
    pixels.push_back({10, 220, 30, 120});
    Picture const picture = pictureOf(headerOf(2, 1) + textOf(pixels));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), valueOf(first));
    EXPECT_EQ(pixelAt(*picture.image, 1, 0), valueOf({10, 220, 30, 120}));
}

TEST(Hdr, ReadsRunsAndStretchesOfEachChannel)
{
    // Red: a run of 127, then one of 3; green: 128 different, then two; blue and exponent: runs.
    std::string line = testing::textOf({2, 2, 0, 130, 128 + 127, 200, 128 + 3, 201, 128});
    for (int i = 0; i < 128; ++i)
        line += static_cast<char>(i);
    line += testing::textOf({2, 77, 78, 128 + 126, 5, 128 + 4, 6, 128 + 127, 130, 128 + 1, 131, 2, 132, 133});
    Picture const picture = pictureOf(headerOf(130, 1) + line);
    for (int x = 0; x < 130; ++x) {
        Rgbe const expected = {x < 127 ? 200 : 201, x < 128 ? x : x - 51, x < 126 ? 5 : 6,
                               x < 127 ? 130 : x + 4};
        EXPECT_EQ(pixelAt(*picture.image, x, 0), valueOf(expected)) << x;
    }
}

TEST(Hdr, TellsTheFormOfEachScanlineFromItsBeginning)
{
    std::vector<Rgbe> flat(8);
    for (int x = 0; x < 8; ++x)
        flat[static_cast<std::size_t>(x)] = pixelFor(x, 0);
    flat[0] = {2, 2, 128, 140};  // not runs: the third byte is above 127
    std::string const runs = testing::textOf({2, 2, 0, 8, 136, 9, 136, 8, 136, 7, 136, 140});
    std::string const repeated = textOf({{200, 1, 1, 130}, {1, 1, 1, 7}});
    Picture const picture = pictureOf(headerOf(8, 3) + textOf(flat) + runs + repeated);
    for (int x = 0; x < 8; ++x) {
        EXPECT_EQ(pixelAt(*picture.image, x, 0), valueOf(flat[static_cast<std::size_t>(x)])) << x;
        EXPECT_EQ(pixelAt(*picture.image, x, 1), valueOf({9, 8, 7, 140})) << x;
        EXPECT_EQ(pixelAt(*picture.image, x, 2), valueOf({200, 1, 1, 130})) << x;
    }
}

// The narrowest and widest scanlines of each form, runs and stretches of every length.
TEST(Hdr, ReadsWhatItWroteAtEveryWidth)
{
    Random random(3);
    for (int const width : {1, 2, 7, 8, 9, 127, 128, 129, 130, 255, 256, 257, 1000, 32767, 32768, 40000}) {
        SCOPED_TRACE(width);
        auto const image = imageOf<Float3>({width, 3});
        std::vector<Rgbe> expected;
        Rgbe pixel{};
        for (std::size_t i = 0, left = 0; i < pixelsOf<Float3>(*image).size(); ++i, --left) {
            if (left == 0) {
                pixel = randomPixel(random);
                left = 1 + random() % (i % 2 == 0 ? 300 : 6);
            }
            if (i % 3 == 0)
                pixel[2] = static_cast<int>(random() % 256);
            expected.push_back(pixel);
            pixelsOf<Float3>(*image)[i] = valueOf(pixel);
        }

        std::string const file = fileOf(*image, ".hdr");
        std::vector<Rgbe> turned;
        for (int row = 2; row >= 0; --row)
            turned.insert(turned.end(), expected.begin() + row * width, expected.begin() + (row + 1) * width);
        EXPECT_TRUE(pixelsInFile(file) == turned);
        EXPECT_TRUE(samePixels(*image, *pictureOf(file).image));
    }
}

TEST(Hdr, MakesRunsOfWhatRepeatsAndLosesLittleOnWhatDoesNot)
{
    auto const image = imageOf<Float3>({1270, 1});
    for (Float3& pixel : pixelsOf<Float3>(*image))
        pixel = {1, 2, 3};
    auto const scanlineBytes = [&] {
        std::string const file = fileOf(*image, ".hdr");
        return file.size() - (file.find("+X 1270\n") + 8);
    };
    EXPECT_EQ(scanlineBytes(), 4 + 4 * 2 * 10);

    Random random(5);
    for (Float3& pixel : pixelsOf<Float3>(*image))
        pixel = valueOf(randomPixel(random));
    EXPECT_LE(scanlineBytes(), 4 + 4 * (1270 + 10));
}

// --- The header

TEST(Hdr, KnowsBothMagicWords)
{
    std::string const rest = "FORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 1\n" + textOf(Rgbe{128, 64, 32, 129});
    for (char const* const word : {"#?RADIANCE\n", "#?RGBE\n"}) {
        Picture const picture = pictureOf(word + rest);
        EXPECT_EQ(picture.format, PictureFormat::Hdr);
        EXPECT_EQ(pixelAt(*picture.image, 0, 0), valueOf({128, 64, 32, 129}));
    }
    EXPECT_THAT(complaintAbout("#?RGB\n" + rest), HasSubstr("not a picture of a known format"));
}

TEST(Hdr, PassesOverCommentsCommandsAndLinesOfOtherPictures)
{
    Picture const picture = pictureOf(headerOf("-Y 1 +X 1", "# a comment with EXPOSURE=3\n"
                                                            "rpict -vp 0 0 0\n"
                                                            "\tEXPOSURE=5\n"
                                                            " FORMAT=none\n") +
                                      textOf(Rgbe{128, 64, 32, 129}));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), valueOf({128, 64, 32, 129}));
    EXPECT_EQ(picture.metadata, Metadata());
}

TEST(Hdr, ReadsLinesThatEndInACarriageReturn)
{
    Picture const picture = pictureOf("#?RADIANCE\r\nFORMAT=32-bit_rle_rgbe\r\n\r\n-Y 1 +X 1\r\n" +
                                      textOf(Rgbe{128, 64, 32, 129}));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), valueOf({128, 64, 32, 129}));
}

TEST(Hdr, DividesByAllExposuresAndCorrections)
{
    Picture const picture = pictureOf(headerOf("-Y 1 +X 2", "EXPOSURE=3\n"
                                                            "COLORCORR= 0.5 1 7\n"
                                                            "EXPOSURE= 1.25e-1 \n"
                                                            "COLORCORR=2\t3 1\n") +
                                      textOf({{128, 64, 32, 129}, {255, 77, 1, 90}}));
    for (int x = 0; x < 2; ++x) {
        Float3 const stored = x == 0 ? valueOf({128, 64, 32, 129}) : valueOf({255, 77, 1, 90});
        EXPECT_EQ(pixelAt(*picture.image, x, 0),
                  (Float3{static_cast<float>(double{stored.r} / (0.375 * 1)),
                          static_cast<float>(double{stored.g} / (0.375 * 3)),
                          static_cast<float>(double{stored.b} / (0.375 * 7))}));
    }
    EXPECT_THAT(picture.metadata, ElementsAre(Pair("exposure", "0.375"), Pair("colorcorr", "1 3 7")));
    EXPECT_EQ(picture.misfits, Misfits());
}

TEST(Hdr, ClampsAndCountsLightBeyondTheFloats)
{
    Picture const picture =
        pictureOf(headerOf("-Y 1 +X 1", "EXPOSURE=0.25\n") + textOf(Rgbe{255, 128, 64, 255}));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), (Float3{FLT_MAX, FLT_MAX, valueOf(64, 255) * 4}));
    EXPECT_EQ(picture.misfits, (Misfits{.overflow = 2}));
}

TEST(Hdr, RefusesExposuresThatAreNotPositiveNumbers)
{
    std::string const pixel = textOf(Rgbe{128, 64, 32, 129});
    for (char const* const text :
         {"", "0", "-1", "nan", "inf", "1e-300", "1e300", "1e999", "one", "1 2", "1,5"})
        EXPECT_THAT(complaintAbout(headerOf("-Y 1 +X 1", "EXPOSURE=" + std::string(text) + "\n") + pixel),
                    "memory: byte 11: the exposure is not a positive number")
            << text;
    for (char const* const text : {"1", "1 2", "1 2 0", "1 2 3 4", "1 -2 3", "1 nan 1"})
        EXPECT_THAT(complaintAbout(headerOf("-Y 1 +X 1", "COLORCORR=" + std::string(text) + "\n") + pixel),
                    "memory: byte 11: the colour correction is not three positive numbers")
            << text;
    EXPECT_THAT(complaintAbout(headerOf("-Y 1 +X 1", "EXPOSURE=1e-30\nEXPOSURE=1e-30\n") + pixel),
                "memory: byte 26: the exposure is not a positive number");
}

TEST(Hdr, ReportsPrimariesAndOtherVariables)
{
    Picture const picture =
        pictureOf(headerOf("-Y 1 +X 1", "FORMAT=32-bit_rle_rgbe\n"
                                        "PRIMARIES= 0.64 0.33 0.3 0.6 0.15 0.06 0.3127 0.329\n"
                                        "Software=a = b \n") +
                  textOf(Rgbe{128, 64, 32, 129}));
    EXPECT_THAT(picture.metadata, ElementsAre(Pair("primaries", "0.64 0.33 0.3 0.6 0.15 0.06 0.3127 0.329"),
                                              Pair("software", "a = b")));
    EXPECT_EQ(pixelAt(*picture.image, 0, 0), valueOf({128, 64, 32, 129}));
}

TEST(Hdr, WritesMetadataButNothingThatWouldChangeTheValues)
{
    auto const image = imageOf<Float3>({1, 1});
    pixelsOf<Float3>(*image)[0] = valueOf({128, 64, 32, 129});
    WriteOptions options;
    options.metadata = {{"shape", "latlong"},
                        {"exposure", "2"},
                        {"ColorCorr", "1 2 3"},
                        {"format", "32-bit_rle_xyze"},
                        {"made by", "two\nlines\n\n-Y 9 +X 9"},
                        {"a=b\n", "c"}};
    std::string const file = fileOf(*image, ".hdr", options);
    EXPECT_THAT(file, ::testing::EndsWith("SHAPE=latlong\n"
                                          "MADE_BY=two lines  -Y 9 +X 9\n"
                                          "A_B_=c\n"
                                          "FORMAT=32-bit_rle_rgbe\n\n-Y 1 +X 1\n" +
                                          textOf(Rgbe{128, 64, 32, 129})));
    Picture const picture = pictureOf(file);
    EXPECT_TRUE(samePixels(*image, *picture.image));
    EXPECT_THAT(picture.metadata, ::testing::IsSupersetOf({Pair("shape", "latlong"), Pair("a_b_", "c")}));
}

// --- XYZE

struct Chromaticity {
    double x, y;
};

// X, Y, Z of linear RGB whose white (1, 1, 1) is equal energy (1, 1, 1), from the chromaticities alone:
// each primary has x + y + z = 1, and its weight is what makes white.
std::array<double, 3> xyzOf(Float3 const& rgb)
{
    constexpr Chromaticity primaries[3] = {{0.64, 0.33}, {0.29, 0.60}, {0.15, 0.06}};
    // Weights by Cramer's rule.
    double columns[3][3];
    for (int i = 0; i < 3; ++i) {
        columns[i][0] = primaries[i].x;
        columns[i][1] = primaries[i].y;
        columns[i][2] = 1 - primaries[i].x - primaries[i].y;
    }
    auto const determinant = [](double const* a, double const* b, double const* c) {
        return a[0] * (b[1] * c[2] - b[2] * c[1]) - b[0] * (a[1] * c[2] - a[2] * c[1]) +
               c[0] * (a[1] * b[2] - a[2] * b[1]);
    };
    constexpr double white[3] = {1, 1, 1};
    double const whole = determinant(columns[0], columns[1], columns[2]);
    double const weights[3] = {determinant(white, columns[1], columns[2]) / whole,
                               determinant(columns[0], white, columns[2]) / whole,
                               determinant(columns[0], columns[1], white) / whole};
    std::array<double, 3> xyz;
    for (std::size_t i = 0; i < 3; ++i)
        xyz[i] = rgb.r * weights[0] * columns[0][i] + rgb.g * weights[1] * columns[1][i] +
                 rgb.b * weights[2] * columns[2][i];
    return xyz;
}

TEST(Hdr, TurnsXyzIntoTheFormatsOwnRgb)
{
    Random random(7);
    for (int i = 0; i < 1000; ++i) {
        Rgbe const pixel = i == 0 ? Rgbe{200, 200, 200, 130} : randomPixel(random);
        Picture const picture =
            pictureOf(headerOf("-Y 1 +X 1", "FORMAT=32-bit_rle_xyze\nEXPOSURE=2\n") + textOf(pixel));
        Float3 const rgb = pixelAt(*picture.image, 0, 0);

        // Each channel was rounded once, by at most half a step of the largest. What the smallest floats lose
        // in steps is left out.
        auto const xyz = xyzOf(rgb);
        double const most = std::max({std::abs(rgb.r), std::abs(rgb.g), std::abs(rgb.b)});
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(xyz[c], std::ldexp(pixel[c] + 0.5, pixel[3] - 136) / 2, most * 0x1p-24 + 0x1p-148);
        if (i == 0) {
            EXPECT_EQ(rgb, (Float3{200.5f / 128, 200.5f / 128, 200.5f / 128}));
        }
    }
}

// --- Other programs

ImageRef<Float3> randomLight(Size size)
{
    auto image = imageOf<Float3>(size);
    fillImage(*image, 9, [](Random& random) { return static_cast<float>(random() % 65536) / 65535; });
    return image;
}

TEST(Hdr, ReadsWhatAnotherProgramWrote)
{
    for (Size const size : {Size{7, 3}, Size{61, 7}}) {
        auto const image = randomLight(size);
        std::string const file = convertedByOthers(fileOf(*image, ".pfm"), "pfm", "", "hdr");
        Picture const picture = pictureOf(file);
        ASSERT_EQ(picture.image->width(), size.width);
        ASSERT_EQ(picture.image->height(), size.height);
        for (std::size_t i = 0; i < pixelsOf<Float3>(*image).size(); ++i) {
            Float3 const expected = pixelsOf<Float3>(*image)[i];
            Float3 const actual = pixelsOf<Float3>(*picture.image)[i];

            // It has 16 bits of a channel, and rounds down to a mantissa: half a step remains.
            double const most = std::max({expected.r, expected.g, expected.b});
            double const bound = 0.5 * std::exp2(std::floor(std::log2(most)) - 7) + 1.0 / 65535;
            EXPECT_NEAR(actual.r, expected.r, bound) << i;
            EXPECT_NEAR(actual.g, expected.g, bound) << i;
            EXPECT_NEAR(actual.b, expected.b, bound) << i;
        }
    }
}

TEST(Hdr, IsReadByAnotherProgram)
{
    for (Size const size : {Size{7, 3}, Size{61, 7}}) {
        std::string const file = fileOf(*randomLight(size), ".hdr");
        std::string const words =
            convertedByOthers(file, "hdr", "-set colorspace sRGB -depth 16 -endian LSB", "rgb");
        std::vector<Rgbe> const pixels = pixelsInFile(file);
        ASSERT_EQ(words.size(), pixels.size() * 6);
        for (std::size_t i = 0; i < pixels.size() * 3; ++i) {
            int const word =
                static_cast<unsigned char>(words[2 * i]) + 256 * static_cast<unsigned char>(words[2 * i + 1]);
            Rgbe const pixel = pixels[i / 3];
            // It leaves out the half of a mantissa.
            EXPECT_NEAR(word, std::ldexp(pixel[i % 3], pixel[3] - 136) * 65535, 1) << i;
        }
    }
}

// --- Damage

TEST(Hdr, SaysWhereAndWhatIsWrong)
{
    std::string const start = headerOf(8, 2);
    auto const expectComplaint = [](std::string const& file, std::size_t byte, std::string const& reason) {
        EXPECT_EQ(complaintAbout(file), "memory: byte " + std::to_string(byte) + ": " + reason);
    };
    std::size_t const at = start.size();
    std::string const line = testing::textOf({2, 2, 0, 8, 136, 9, 136, 8, 136, 7, 136, 140});

    expectComplaint("#?RADIANCE\nA=B\n", 15, "the header has no end");
    expectComplaint("#?RADIANCE\nFORMAT=32-bit_rle_luv\n\n-Y 1 +X 1\n", 11,
                    "the format is neither 32-bit_rle_rgbe nor 32-bit_rle_xyze");
    for (char const* const size : {"", "-Y 1", "-Y 1 +Y 1", "-Y 0 +X 1", "-Y 1 +X -1", "Y 1 X 1",
                                   "-Y 1 +X 1 1", "-Y 1 +X 99999999999", "-Y +X 1 1", "-Z 1 +X 1"})
        expectComplaint(headerOf(size), 35, "the size is not of the form -Y <height> +X <width>");

    expectComplaint(start + line.substr(0, 11), at, "the file is too short for a picture of this size");
    expectComplaint(start + line + line.substr(0, 4), at + 16, "the file ends within a scanline");
    expectComplaint(start + line + line.substr(0, 11), at + 22, "the file ends within a scanline");
    expectComplaint(start + line + testing::textOf({2, 2, 0, 8, 8, 1, 2, 3}), at + 17,
                    "the file ends within a scanline");
    expectComplaint(start + line + testing::textOf({2, 2, 0, 9, 136, 9, 136, 8}), at + 16,
                    "a scanline has another length than the picture");
    expectComplaint(start + line + testing::textOf({2, 2, 0, 8, 137, 9, 136, 8}), at + 17,
                    "a run is longer than its scanline");
    expectComplaint(start + line + testing::textOf({2, 2, 0, 8, 9, 9, 136, 8}), at + 17,
                    "a run is longer than its scanline");
    expectComplaint(start + line + testing::textOf({2, 2, 0, 8, 0, 9, 136, 8}), at + 17,
                    "a stretch has no pixels");
    expectComplaint(start + line + textOf({{1, 1, 1, 8}, {1, 1, 1, 8}}), at + 16,
                    "a scanline begins with a repetition");
    expectComplaint(start + line + textOf({{128, 1, 1, 8}, {1, 1, 1, 8}}), at + 20,
                    "a run is longer than its scanline");
    expectComplaint(start + line + textOf({{128, 1, 1, 8}, {9, 1, 1, 8}}), at + 20,
                    "the file ends within a scanline");
    std::vector<Rgbe> shifted(9, {1, 1, 1, 0});
    shifted[0] = {128, 1, 1, 8};
    shifted[8] = {1, 1, 1, 1};
    expectComplaint(start + line + textOf(shifted), at + 12 + 9 * 4, "a run is longer than its scanline");
}

// Four bytes for each scanline are the least; beyond 32 pixels for each byte a picture has at most 2^22.
TEST(Hdr, BoundsThePictureByTheSizeOfItsFile)
{
    std::string const repeated = textOf({{128, 64, 32, 129}, {1, 1, 1, 255}, {1, 1, 1, 255}, {1, 1, 1, 63}});
    Picture const picture = pictureOf(headerOf(1 << 22, 1) + repeated);
    EXPECT_EQ(picture.image->pixelCount(), 1 << 22);
    EXPECT_EQ(pixelAt(*picture.image, (1 << 22) - 1, 0), valueOf({128, 64, 32, 129}));

    EXPECT_THAT(complaintAbout(headerOf((1 << 22) + 1, 1) + repeated),
                HasSubstr("the picture is too large for its file"));
    EXPECT_THAT(complaintAbout(headerOf(2147483647, 1) + repeated + repeated),
                HasSubstr("the picture is too large for its file"));
    EXPECT_THAT(complaintAbout(headerOf(1, 1000) + std::string(3999, '\1')),
                HasSubstr("the file is too short for a picture of this size"));
    EXPECT_THAT(complaintAbout(headerOf(2147483647, 2147483647) + std::string(100000, '\1')),
                HasSubstr("the file is too short for a picture of this size"));
    EXPECT_THAT(complaintAbout(headerOf(60000, 30000) + std::string(360000, '\1')),
                HasSubstr("the picture is too large for its file"));
}

TEST(Hdr, SurvivesEveryTruncationAndEveryChangeOfAByte)
{
    constexpr std::size_t mostBytes = (1 << 22) * sizeof(Float3);
    std::string const runs =
        testing::textOf({2, 2, 0, 8, 136, 9, 130, 8, 6, 1, 2, 3, 4, 5, 6, 136, 7, 136, 140});
    std::string const repeated = textOf({{200, 1, 1, 130}, {1, 1, 1, 6}, {100, 1, 1, 2}});
    expectSurvivesEveryDamage(headerOf("-Y 2 +X 8", "EXPOSURE=2\nFORMAT=32-bit_rle_xyze\n") + runs + repeated,
                              mostBytes);
    expectSurvivesEveryDamage(headerOf("+X 2 -Y 8") + repeated + runs, mostBytes);
}

}  // namespace
}  // namespace koImageIO
