#include "koImageIO/picture.h"
#include "koImageIO/rows.h"
#include "koImageIO/srgb.h"
#include "koImageIO/testing/files.h"
#include "koImageIO/testing/png_by_hand.h"

#include <gtest/gtest.h>

#include <string>

namespace koImageIO {

namespace {

using namespace koImage;
using koImage::testing::hostileImage;
using koImage::testing::imageOf;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using koImage::testing::Size;
using testing::Bytes;
using testing::expectNoHarmFrom;
using testing::Folder;
using testing::PngByHand;
using testing::roundTrip;
using testing::RoundTrip;
using testing::runs;

// Numbers that tell every pixel and channel from its neighbours, within `depth` bits.
unsigned patternOf(int depth, int x, int y, int c)
{
    return static_cast<unsigned>(x * 7919 + y * 104729 + c * 40503 + 12345) % (1u << depth);
}

PngByHand patterned(PngByHand::Colour colour, int depth, bool interlaced = false, Size size = {11, 9})
{
    return {.width = size.width,
            .height = size.height,
            .depth = depth,
            .colour = colour,
            .interlaced = interlaced,
            .value = [depth](int x, int y, int c) { return patternOf(depth, x, y, c); }};
}

Picture readWell(Bytes const& file, ReadOptions const& options = {})
{
    Picture picture;
    koUtil::Error const error = readPicture(file, "png", picture, options);
    EXPECT_FALSE(error) << error.message();
    return picture;
}

std::string errorOf(Bytes const& file)
{
    Picture picture;
    koUtil::Error const error = readPicture(file, "png", picture);
    EXPECT_FALSE(picture.image);
    return error.message();
}

// The pixel that the top row and left column count from.
template <class Pixel>
Pixel pixelAt(Picture const& picture, int x, int y)
{
    return pictureRow<Pixel>(std::as_const(*picture.image), y)[static_cast<std::size_t>(x)];
}

// Reads the file and compares every pixel with what `expected(x, y)` makes of the pattern.
template <class Pixel, class Expected>
void expectPixels(PngByHand const& png, Expected const& expected, ReadOptions const& options = {})
{
    Picture const picture = readWell(png.file(), options);
    ASSERT_TRUE(picture.image);
    ASSERT_EQ(picture.image->pixelType(), pixelTypeIdOf<Pixel>);
    ASSERT_EQ(picture.image->width(), png.width);
    ASSERT_EQ(picture.image->height(), png.height);
    EXPECT_EQ(picture.format, PictureFormat::Png);
    for (int y = 0; y < png.height; ++y) {
        for (int x = 0; x < png.width; ++x)
            ASSERT_EQ(pixelAt<Pixel>(picture, x, y), expected(x, y)) << x << ", " << y;
    }
}

unsigned char byteOf(unsigned v)
{
    return static_cast<unsigned char>(v);
}

float lightOf(unsigned word)
{
    return srgbWords().light(static_cast<std::uint16_t>(word));
}

constexpr bool bothWays[] = {false, true};

}  // namespace

TEST(Png, OfGreyIsReadAsBytesWhateverTheDepth)
{
    for (bool const interlaced : bothWays) {
        for (int const depth : {1, 2, 4, 8}) {
            SCOPED_TRACE(depth);
            auto const top = (1u << depth) - 1;
            expectPixels<unsigned char>(patterned(PngByHand::Grey, depth, interlaced), [&](int x, int y) {
                return byteOf(patternOf(depth, x, y, 0) * 255 / top);
            });
        }
    }
}

TEST(Png, OfEightBitsIsReadAsByte4)
{
    for (bool const interlaced : bothWays) {
        auto const at = [](int x, int y, int c) { return byteOf(patternOf(8, x, y, c)); };
        expectPixels<Byte4>(patterned(PngByHand::Rgb, 8, interlaced), [&](int x, int y) {
            return Byte4{at(x, y, 0), at(x, y, 1), at(x, y, 2), 255};
        });
        expectPixels<Byte4>(patterned(PngByHand::Rgba, 8, interlaced), [&](int x, int y) {
            return Byte4{at(x, y, 0), at(x, y, 1), at(x, y, 2), at(x, y, 3)};
        });
        expectPixels<Byte4>(patterned(PngByHand::GreyAlpha, 8, interlaced), [&](int x, int y) {
            return Byte4{at(x, y, 0), at(x, y, 0), at(x, y, 0), at(x, y, 1)};
        });
    }
}

TEST(Png, OfSixteenBitsIsReadAsLight)
{
    for (bool const interlaced : bothWays) {
        auto const at = [](int x, int y, int c) { return patternOf(16, x, y, c); };
        auto const alpha = [](unsigned word) { return static_cast<float>(word) / 65535.0f; };
        expectPixels<float>(patterned(PngByHand::Grey, 16, interlaced),
                            [&](int x, int y) { return lightOf(at(x, y, 0)); });
        expectPixels<Float3>(patterned(PngByHand::Rgb, 16, interlaced), [&](int x, int y) {
            return Float3{lightOf(at(x, y, 0)), lightOf(at(x, y, 1)), lightOf(at(x, y, 2))};
        });
        expectPixels<Float4>(patterned(PngByHand::Rgba, 16, interlaced), [&](int x, int y) {
            return Float4{lightOf(at(x, y, 0)), lightOf(at(x, y, 1)), lightOf(at(x, y, 2)),
                          alpha(at(x, y, 3))};
        });
        expectPixels<Float4>(patterned(PngByHand::GreyAlpha, 16, interlaced), [&](int x, int y) {
            float const v = lightOf(at(x, y, 0));
            return Float4{v, v, v, alpha(at(x, y, 1))};
        });
    }
}

TEST(Png, OfAPaletteIsReadAsByte4)
{
    for (bool const interlaced : bothWays) {
        for (int const depth : {1, 2, 4, 8}) {
            SCOPED_TRACE(depth);
            std::string palette, alpha;
            for (int i = 0; i < 1 << depth; ++i) {
                palette += {static_cast<char>(i), static_cast<char>(255 - i), static_cast<char>(3 * i)};
                alpha += static_cast<char>(i + 100);
            }
            PngByHand png = patterned(PngByHand::Palette, depth, interlaced);
            png.chunks = {{"PLTE", palette}};
            auto const colour = [&](int x, int y, unsigned char a) {
                unsigned const i = patternOf(depth, x, y, 0);
                return Byte4{byteOf(i), byteOf(255 - i), byteOf(3 * i), a};
            };
            expectPixels<Byte4>(png, [&](int x, int y) { return colour(x, y, 255); });

            // Alpha for some of the entries; the others are opaque.
            png.chunks.emplace_back("tRNS", alpha.substr(0, alpha.size() / 2));
            expectPixels<Byte4>(png, [&](int x, int y) {
                unsigned const i = patternOf(depth, x, y, 0);
                return colour(x, y, i < alpha.size() / 2 ? byteOf(i + 100) : 255);
            });
        }
    }
}

TEST(Png, WithAKeyIsTransparentThere)
{
    PngByHand grey = patterned(PngByHand::Grey, 16);
    grey.chunks = {{"tRNS", "\x30\x39"}};  // 12345, the pattern's first value
    expectPixels<Float4>(grey, [](int x, int y) {
        unsigned const word = patternOf(16, x, y, 0);
        float const v = lightOf(word);
        return Float4{v, v, v, word == 12345 ? 0.0f : 1.0f};
    });

    PngByHand bits = patterned(PngByHand::Grey, 1);
    bits.chunks = {{"tRNS", std::string("\0\1", 2)}};
    expectPixels<Byte4>(bits, [](int x, int y) {
        unsigned char const v = patternOf(1, x, y, 0) != 0 ? 255 : 0;
        return Byte4{v, v, v, byteOf(255 - v)};
    });

    PngByHand rgb = patterned(PngByHand::Rgb, 8);
    rgb.chunks = {{"tRNS", std::string{0, static_cast<char>(patternOf(8, 3, 2, 0)), 0,
                                       static_cast<char>(patternOf(8, 3, 2, 1)), 0,
                                       static_cast<char>(patternOf(8, 3, 2, 2))}}};
    expectPixels<Byte4>(rgb, [](int x, int y) {
        return Byte4{byteOf(patternOf(8, x, y, 0)), byteOf(patternOf(8, x, y, 1)),
                     byteOf(patternOf(8, x, y, 2)), byteOf(x == 3 && y == 2 ? 0 : 255)};
    });
}

TEST(Png, OfEverySizeIsReadInterlacedOrNot)
{
    // Passes without pixels, and rows that end within a byte.
    for (bool const interlaced : bothWays) {
        for (int height = 1; height <= 9; ++height) {
            for (int width = 1; width <= 17; ++width)
                expectPixels<unsigned char>(patterned(PngByHand::Grey, 2, interlaced, {width, height}),
                                            [](int x, int y) { return byteOf(patternOf(2, x, y, 0) * 85); });
        }
    }
}

TEST(Png, IsLinearOnlyWhereGammaSaysSo)
{
    auto const gamma = [](std::uint32_t value) {
        std::string content;
        PngByHand::append32(content, value);
        return std::pair<std::string, std::string>("gAMA", content);
    };
    std::pair<std::string, std::string> const srgb("sRGB", std::string(1, '\0'));
    struct Case {
        std::vector<std::pair<std::string, std::string>> chunks;
        Transfer expected;
    };
    Case const cases[] = {{{}, Transfer::Srgb},
                          {{gamma(100000)}, Transfer::None},
                          {{gamma(99000)}, Transfer::None},
                          {{gamma(104000)}, Transfer::None},
                          {{gamma(45455)}, Transfer::Srgb},
                          {{gamma(55556)}, Transfer::Srgb},
                          {{gamma(94000)}, Transfer::Srgb},
                          {{gamma(106000)}, Transfer::Srgb},
                          {{srgb, gamma(100000)}, Transfer::Srgb},
                          {{srgb}, Transfer::Srgb}};
    for (Case const& c : cases) {
        PngByHand words = patterned(PngByHand::Rgb, 16);
        words.chunks = c.chunks;
        PngByHand bytes = patterned(PngByHand::Grey, 8);
        bytes.chunks = c.chunks;
        Picture const wide = readWell(words.file());
        EXPECT_EQ(wide.transfer, c.expected);
        unsigned const word = patternOf(16, 4, 3, 1);
        EXPECT_EQ(pixelAt<Float3>(wide, 4, 3).g,
                  c.expected == Transfer::Srgb ? lightOf(word) : static_cast<float>(word) / 65535.0f);

        // Bytes stay what they are; floats made of them follow the file.
        unsigned char const byte = byteOf(patternOf(8, 4, 3, 0));
        EXPECT_EQ(pixelAt<unsigned char>(readWell(bytes.file()), 4, 3), byte);
        EXPECT_EQ(pixelAt<float>(readWell(bytes.file(), {.pixelType = PixelTypeId::Float}), 4, 3),
                  c.expected == Transfer::Srgb ? srgbBytes().light(byte) : static_cast<float>(byte) / 255.0f);
    }
}

TEST(Png, LeavesTheCurveOutWhenAsked)
{
    expectPixels<float>(patterned(PngByHand::Grey, 16),
                        [](int x, int y) { return static_cast<float>(patternOf(16, x, y, 0)) / 65535.0f; },
                        {.transfer = Transfer::None});
    expectPixels<float>(patterned(PngByHand::Grey, 8),
                        [](int x, int y) { return static_cast<float>(patternOf(8, x, y, 0)) / 255.0f; },
                        {.pixelType = PixelTypeId::Float, .transfer = Transfer::None});
}

TEST(Png, GivesItsTextAsMetadata)
{
    PngByHand png = patterned(PngByHand::Grey, 8);
    png.chunks = {{"tEXt", std::string("Software\0a program", 18)},
                  {"tEXt", std::string("shape\0latlong", 13)}};
    EXPECT_EQ(readWell(png.file()).metadata, (Metadata{{"software", "a program"}, {"shape", "latlong"}}));
}

TEST(Png, SkipsChunksThatItDoesNotNeed)
{
    PngByHand png = patterned(PngByHand::Grey, 8);
    png.chunks = {{"iCCP", std::string("profile\0\0", 9) + std::string(20, 'x')},
                  {"zTXt", std::string("key\0\0", 5) + std::string(20, 'x')},
                  {"eXIf", "MM"},
                  {"prVt", "anything"}};
    EXPECT_EQ(readWell(png.file()).metadata, Metadata());
}

TEST(Png, BytesComeBackToTheBit)
{
    for (Size const size : koImage::testing::awkwardSizes) {
        if (size.width < 1 || size.height < 1)
            continue;
        SCOPED_TRACE(::testing::Message() << size);
        auto const grey = randomImage<unsigned char>(size, 1);
        auto const colour = randomImage<Byte4>(size, 2);
        for (Image const* image :
             {static_cast<Image const*>(grey.get()), static_cast<Image const*>(colour.get())}) {
            for (Transfer const transfer : {Transfer::Srgb, Transfer::None}) {
                RoundTrip const trip = roundTrip(*image, "png", {.transfer = transfer});
                ASSERT_FALSE(trip.error) << trip.error.message();
                EXPECT_TRUE(samePixels(*image, *trip.picture.image));
                EXPECT_EQ(trip.picture.transfer, transfer);
                EXPECT_FALSE(trip.written.any());
            }
        }
    }
}

TEST(Png, WordsComeBackToTheBit)
{
    // Light of each word comes back from a second trip as it came from the first.
    for (Transfer const transfer : {Transfer::Srgb, Transfer::None}) {
        auto const image = randomImage<Float4>({67, 9}, 3);
        RoundTrip const first = roundTrip(*image, "png", {.transfer = transfer});
        ASSERT_FALSE(first.error) << first.error.message();
        ASSERT_EQ(first.picture.image->pixelType(), PixelTypeId::Float4);
        RoundTrip const second = roundTrip(*first.picture.image, "png", {.transfer = transfer});
        EXPECT_TRUE(samePixels(*first.picture.image, *second.picture.image));
        EXPECT_TRUE(first.written.any());  // ordinary pixels go up to 2
        EXPECT_FALSE(second.written.any());
    }
}

// The file neither calls them linear, which viewers would undo, nor puts a curve on them.
TEST(Png, LevelsOfAScreenAreWrittenAsTheyAre)
{
    auto const image = imageOf<Float3>({1, 1});
    image->pixels()[0] = {0.0f, 0.5f, 1.0f};
    for (Transfer const transfer : {Transfer::Srgb, Transfer::None}) {
        RoundTrip const trip = roundTrip(*image, "png", {.bits = 8, .transfer = transfer, .levels = true});
        ASSERT_FALSE(trip.error) << trip.error.message();
        EXPECT_EQ(trip.picture.transfer, Transfer::Srgb);
        EXPECT_EQ(pixelsOf<Byte4>(*trip.picture.image)[0], (Byte4{0, 128, 255, 255}));
    }
}

TEST(Png, IsWrittenAsTheRowsSay)
{
    for (int const bits : {8, 16}) {
        auto const image = hostileImage<Float3>({31, 5}, 4);
        RoundTrip const trip = roundTrip(*image, "png", {.bits = bits});
        ASSERT_FALSE(trip.error) << trip.error.message();
        ASSERT_EQ(trip.picture.image->pixelType(), bits == 8 ? PixelTypeId::Byte4 : PixelTypeId::Float3);
        Misfits expected, none;
        for (int row = 0; row < 5; ++row) {
            std::vector<std::uint16_t> before(93), after(93);
            std::vector<std::uint8_t> bytesBefore(93), bytesAfter(93);
            if (bits == 8) {
                rowAsBytes(*image, row, 3, Transfer::Srgb, bytesBefore, expected);
                rowAsBytes(*trip.picture.image, row, 3, Transfer::Srgb, bytesAfter, none);
                EXPECT_EQ(bytesAfter, bytesBefore);
            } else {
                rowAsWords(*image, row, 3, Transfer::Srgb, before, expected);
                rowAsWords(*trip.picture.image, row, 3, Transfer::Srgb, after, none);
                EXPECT_EQ(after, before);
            }
        }
        EXPECT_EQ(trip.written, expected);
        EXPECT_TRUE(trip.written.any());
    }
}

TEST(Png, HasTheBitsOfThePixelsUnlessAsked)
{
    // The depth stands in byte 24 of a file.
    auto const depthOf = [](Image const& image, int bits) {
        return static_cast<int>(roundTrip(image, "png", {.bits = bits}).file.at(24));
    };
    auto const bytes = randomImage<Byte4>({3, 2}, 1);
    auto const halves = randomImage<Half4>({3, 2}, 1);
    auto const floats = randomImage<float>({3, 2}, 1);
    EXPECT_EQ(depthOf(*bytes, 0), 8);
    EXPECT_EQ(depthOf(*bytes, 16), 16);
    EXPECT_EQ(depthOf(*halves, 0), 16);
    EXPECT_EQ(depthOf(*floats, 0), 16);
    EXPECT_EQ(depthOf(*floats, 8), 8);
    EXPECT_TRUE(roundTrip(*floats, "png", {.bits = 32})
                    .error.message()
                    .ends_with("PNG has 8 or 16 bits in a channel, not 32"));
}

TEST(Png, NamesTheProgramAndKeepsMetadata)
{
    auto const image = randomImage<unsigned char>({3, 2}, 1);
    RoundTrip const trip =
        roundTrip(*image, "png", {.metadata = {{"shape", "latlong"}, {"software", "another"}}});
    EXPECT_EQ(trip.picture.metadata.size(), 2u);
    EXPECT_EQ(trip.picture.metadata.at(0), std::pair(std::string("shape"), std::string("latlong")));
    EXPECT_EQ(trip.picture.metadata.at(1).first, "software");
    EXPECT_TRUE(trip.picture.metadata.at(1).second.starts_with("koImage "));

    // A keyword that PNG has no place for.
    EXPECT_TRUE(roundTrip(*image, "png", {.metadata = {{"", "text"}}}).error);
}

TEST(Png, ThatIsDamagedTellsTheByteAndTheReason)
{
    Bytes file = patterned(PngByHand::Rgb, 8).file();
    Bytes const cut(file.begin(), file.begin() + 60);
    EXPECT_EQ(errorOf(cut), "png: byte 33: a chunk does not end within the file");
    Bytes const endless(file.begin(), file.end() - 12);
    EXPECT_EQ(errorOf(endless), "png: byte " + std::to_string(endless.size()) + ": the file ends too early");
    Bytes tooLong = file;
    tooLong[33] = std::byte{0x7F};
    EXPECT_EQ(errorOf(tooLong), "png: byte 33: a chunk does not end within the file");
    Bytes crc = file;
    crc[29] ^= std::byte{1};
    EXPECT_EQ(errorOf(crc), "png: byte 33: IHDR: CRC error");
}

TEST(Png, ThatIsTooShortForItsSizeAllocatesNothing)
{
    for (int const size : {2000, 1000000, 0x7FFFFFFF}) {
        PngByHand png = patterned(PngByHand::Rgba, 16);
        png.claimed = Size{size, size};
        Bytes const file = png.file();
        std::string message;
        EXPECT_LT(testing::largestRequestOf([&] { message = errorOf(file); }), 200000u);
        EXPECT_TRUE(message.starts_with("png: byte 16: the file is too short for ")) << message;
    }
    PngByHand none = patterned(PngByHand::Grey, 8);
    none.claimed = Size{0, 1};
    EXPECT_NE(errorOf(none.file()), "");
}

TEST(Png, IsNotTakenForTooShortWhereItIsBlack)
{
    auto const image = imageOf<Byte4>({3000, 2000});
    std::memset(image->data(), 0, std::size_t{3000} * 2000 * sizeof(Byte4));
    RoundTrip const trip = roundTrip(*image, "png");
    ASSERT_FALSE(trip.error) << trip.error.message();
    EXPECT_TRUE(samePixels(*image, *trip.picture.image));
}

TEST(Png, WithDamageDoesNoHarm)
{
    std::string palette;
    for (int i = 0; i < 12; ++i)
        palette += static_cast<char>(20 * i);
    PngByHand indexed = patterned(PngByHand::Palette, 2, true, {5, 5});
    indexed.chunks = {{"PLTE", palette}, {"tRNS", "\1\2"}};
    PngByHand words = patterned(PngByHand::GreyAlpha, 16, true, {3, 3});
    words.chunks = {{"gAMA", std::string("\0\1\x86\xA0", 4)}, {"tEXt", std::string("shape\0cross", 11)}};
    for (PngByHand const& png : {indexed, words, patterned(PngByHand::Rgb, 8, false, {4, 3})}) {
        Bytes const file = png.file();
        // The pixels that the deflate stream could hold, as the widest of ours: a bit becomes four floats.
        expectNoHarmFrom(file, file.size() * 1032 * 8 * 4);
    }
}

TEST(Png, OfAnotherProgramIsRead)
{
    Folder const folder;
    auto const image = randomImage<Byte4>({23, 17}, 5);
    std::string raw;
    for (int row = 0; row < 17; ++row) {
        for (Byte4 const p : pictureRow<Byte4>(*image, row))
            raw += {static_cast<char>(p.r), static_cast<char>(p.g), static_cast<char>(p.b),
                    static_cast<char>(p.a)};
    }
    testing::writeFile(folder / "in.rgba", std::as_bytes(std::span(raw)));
    for (std::string const options :
         {"-define png:color-type=6 -depth 8", "-define png:color-type=6 -depth 8 -interlace PNG"}) {
        ASSERT_TRUE(runs("convert-im6 -size 23x17 -depth 8 " + folder / "in.rgba" + " " + options + " " +
                         folder / "out.png"));
        Picture picture;
        koUtil::Error const error = readPicture(folder / "out.png", picture);
        ASSERT_FALSE(error) << error.message();
        EXPECT_TRUE(samePixels(*image, *picture.image));
    }
}

TEST(Png, IsReadByAnotherProgram)
{
    Folder const folder;
    Misfits misfits;
    auto const bytes = randomImage<Byte4>({23, 17}, 5);
    auto const floats = randomImage<Float3>({23, 17}, 6);
    ASSERT_FALSE(writePicture(folder / "bytes.png", *bytes, misfits));
    ASSERT_FALSE(writePicture(folder / "words.png", *floats, misfits));
    ASSERT_TRUE(runs("convert-im6 " + folder / "bytes.png" + " -depth 8 " + folder / "bytes.rgba"));
    ASSERT_TRUE(
        runs("convert-im6 " + folder / "words.png" + " -depth 16 -endian LSB " + folder / "words.rgb"));

    std::vector<std::uint8_t> byteRows;
    std::vector<std::uint16_t> wordRows;
    for (int row = 0; row < 17; ++row) {
        std::vector<std::uint8_t> byteRow(23 * 4);
        rowAsBytes(*bytes, row, 4, Transfer::Srgb, byteRow, misfits);
        byteRows.insert(byteRows.end(), byteRow.begin(), byteRow.end());
        std::vector<std::uint16_t> wordRow(23 * 3);
        rowAsWords(*floats, row, 3, Transfer::Srgb, wordRow, misfits);
        wordRows.insert(wordRows.end(), wordRow.begin(), wordRow.end());
    }
    auto const sameBytes = [](auto const& values, Bytes const& file) {
        auto const expected = std::as_bytes(std::span(values));
        return std::equal(expected.begin(), expected.end(), file.begin(), file.end());
    };
    EXPECT_TRUE(sameBytes(byteRows, testing::bytesOfFile(folder / "bytes.rgba")));
    EXPECT_TRUE(sameBytes(wordRows, testing::bytesOfFile(folder / "words.rgb")));
}

}  // namespace koImageIO
