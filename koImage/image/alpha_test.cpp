#include "koImage/image/alpha.h"

#include "koImage/testing/guarded_image.h"
#include "koImage/testing/repeated_memory.h"

#include <gtest/gtest.h>

#include <string>

namespace koImage::testing {

namespace {

using Edit = void (*)(unsigned char*, int, int, int);

unsigned char truncatedAndClamped(float value)
{
    int const integer = truncateToInt(value);
    return static_cast<unsigned char>(integer < 0 ? 0 : integer > 255 ? 255 : integer);
}

unsigned char premultiplied(unsigned char colour, unsigned char alpha)
{
    float const factor = static_cast<float>(alpha) / 255.0f;
    return truncatedAndClamped(static_cast<float>(colour) * factor);
}

unsigned char unpremultiplied(unsigned char colour, unsigned char alpha)
{
    if (alpha == 0)
        return colour;
    float const factor = 255.0f / static_cast<float>(alpha);
    return truncatedAndClamped(static_cast<float>(colour) * factor);
}

/// One of the two edits, and what it makes of a colour.
struct Direction {
    Edit edit;
    unsigned char (*expected)(unsigned char colour, unsigned char alpha);
    char const* name;
};

std::vector<unsigned char> editedByHand(std::vector<unsigned char> bytes, Direction const& direction)
{
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        for (std::size_t c = 0; c < 3; ++c)
            bytes[i + c] = direction.expected(bytes[i + c], bytes[i + 3]);
    return bytes;
}

Byte4 edited(Edit edit, Byte4 pixel)
{
    edit(&pixel.r, 1, 1, 4);
    return pixel;
}

/// All 2^16 pairs of colour and alpha, in the channel `c`; the other two colours are other pairs.
std::vector<unsigned char> everyPair(std::size_t c)
{
    std::vector<unsigned char> bytes(4 << 16);
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        std::size_t const colour = i / 4 % 256;
        bytes[i + c] = static_cast<unsigned char>(colour);
        bytes[i + (c + 1) % 3] = static_cast<unsigned char>(255 - colour);
        bytes[i + (c + 2) % 3] = static_cast<unsigned char>(colour * 37);
        bytes[i + 3] = static_cast<unsigned char>(i / 1024);
    }
    return bytes;
}

class AlphaEdits : public ::testing::TestWithParam<Direction> {};

INSTANTIATE_TEST_SUITE_P(
    , AlphaEdits,
    ::testing::Values(Direction{convert2PreMultipliedAlpha, premultiplied, "Premultiply"},
                      Direction{convert2NonPreMultipliedAlpha, unpremultiplied, "Unpremultiply"}),
    [](auto const& instance) { return std::string(instance.param.name); });

}  // namespace

TEST_P(AlphaEdits, GiveTheDefinedByteForEveryColourAndAlpha)
{
    for (std::size_t c = 0; c < 3; ++c) {
        auto bytes = everyPair(c);
        auto const expected = editedByHand(bytes, GetParam());
        GetParam().edit(bytes.data(), 256, 256, 4);
        EXPECT_TRUE(bytes == expected) << "channel " << c;
    }
}

TEST_P(AlphaEdits, EditExactlyTheirPixelsAtEverySizeAndAlignment)
{
    for (int width = 1; width <= 70; ++width) {
        for (int offset = 0; offset < 5; ++offset) {
            SCOPED_TRACE(::testing::Message() << width << " pixels, offset " << offset);
            GuardedImage<Byte4> pixels({width, 3}, offset);
            GetParam().edit(&pixels.pixels()->r, width, 3, 4);
            ASSERT_TRUE(pixels.holds(editedByHand(pixels.bytesBefore(), GetParam())));
        }
    }
}

TEST_P(AlphaEdits, LeaveOtherChannelCountsAlone)
{
    for (int const channels : {3, 5, 1, 0, -4, INT_MAX, INT_MIN}) {
        GuardedImage<Byte4> pixels({20, 2});
        GetParam().edit(&pixels.pixels()->r, 20, 2, channels);
        EXPECT_TRUE(pixels.holds(pixels.bytesBefore())) << channels << " channels";
    }
}

TEST_P(AlphaEdits, DoNothingWithoutAPositiveWidthAndHeight)
{
    for (Size const size : {Size{0, 0}, {0, 2}, {20, 0}, {-2, -3}, {-1, 4}, {4, -1}, {INT_MIN, INT_MIN}}) {
        GuardedImage<Byte4> pixels({20, 2});
        GetParam().edit(&pixels.pixels()->r, size.width, size.height, 4);
        EXPECT_TRUE(pixels.holds(pixels.bytesBefore())) << size;
    }
}

TEST_P(AlphaEdits, TolerateANullBuffer)
{
    GetParam().edit(nullptr, 640, 480, 4);
}

TEST(ConvertToPreMultipliedAlpha, TruncatesWhatTheAlphaLeaves)
{
    // 200 * (128 / 255) is a little above 100.
    EXPECT_EQ(edited(convert2PreMultipliedAlpha, {200, 100, 50, 128}), (Byte4{100, 50, 25, 128}));
}

TEST(ConvertToPreMultipliedAlpha, GivesTheIntegerQuotientAndNoColourAboveAlpha)
{
    auto const before = everyPair(0);
    auto bytes = before;
    convert2PreMultipliedAlpha(bytes.data(), 256, 256, 4);
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        unsigned const alpha = before[i + 3];
        for (std::size_t c = 0; c < 3; ++c) {
            ASSERT_EQ(bytes[i + c], before[i + c] * alpha / 255) << "alpha " << alpha;
            ASSERT_LE(bytes[i + c], alpha);
        }
        ASSERT_EQ(bytes[i + 3], alpha);
    }
}

// In 32 bits the number of pixels would be negative; the last one lies 8 GiB from the first.
TEST(ConvertToPreMultipliedAlpha, CountsPixelsIn64Bits)
{
    constexpr int side = 46341;
    constexpr std::size_t count = std::size_t{side} * side;
    RepeatedMemory memory(4 * count);
    unsigned char* const last = memory.start() + 4 * (count - 1);
    Byte4 const before{200, 100, 50, 128};
    Byte4 const after{100, 50, 25, 128};
    std::memcpy(last, &before, sizeof before);

    convert2PreMultipliedAlpha(memory.start(), side, side, 4);
    EXPECT_EQ(std::memcmp(last, &after, sizeof after), 0);
}

TEST(ConvertToNonPreMultipliedAlpha, LosesWhatBothDirectionsTruncate)
{
    EXPECT_EQ(edited(convert2NonPreMultipliedAlpha, {100, 50, 25, 128}), (Byte4{199, 99, 49, 128}));
}

TEST(ConvertToNonPreMultipliedAlpha, KeepsTheColourWithoutAlpha)
{
    EXPECT_EQ(edited(convert2NonPreMultipliedAlpha, {10, 20, 30, 0}), (Byte4{10, 20, 30, 0}));
}

TEST(ConvertToNonPreMultipliedAlpha, ClampsColoursAboveAlpha)
{
    // 200 * 2.55 is 510.
    EXPECT_EQ(edited(convert2NonPreMultipliedAlpha, {200, 10, 10, 100}), (Byte4{255, 25, 25, 100}));
}

// The factor 255 / 7 is rounded down so far that 7 of 7 falls short of full colour.
TEST(ConvertToNonPreMultipliedAlpha, RoundsItsFactorToSinglePrecision)
{
    EXPECT_EQ(edited(convert2NonPreMultipliedAlpha, {7, 8, 0, 7}), (Byte4{254, 255, 0, 7}));
}

}  // namespace koImage::testing
