#include "koImageIO/rows.h"

#include "koImage/image/convert.h"
#include "koImage/image/factory.h"
#include "koImage/testing/test_images.h"
#include "koImageIO/srgb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace koImageIO {

namespace {

using namespace koImage;
using koImage::testing::hostileImage;
using koImage::testing::imageOf;
using koImage::testing::ImageRef;
using koImage::testing::randomImage;
using koImage::testing::samePixels;
using koImage::testing::Size;

// Longer than the blocks in which rows are converted, and not a multiple of them.
constexpr Size size = {300, 3};

constexpr Transfer transfers[] = {Transfer::Srgb, Transfer::None};
constexpr int channelCounts[] = {1, 3, 4};

struct Light {
    float r, g, b, a;
    bool grey;
};

float lightOf(unsigned char level, Transfer transfer)
{
    return transfer == Transfer::Srgb ? srgbBytes().light(level) : static_cast<float>(level) / 255.0f;
}

Light lightOfPixel(unsigned char p, Transfer t)
{
    float const v = lightOf(p, t);
    return {v, v, v, 1, true};
}
Light lightOfPixel(Byte4 p, Transfer t)
{
    return {lightOf(p.r, t), lightOf(p.g, t), lightOf(p.b, t), static_cast<float>(p.a) / 255.0f, false};
}
Light lightOfPixel(Half4 p, Transfer)
{
    return {p.r, p.g, p.b, p.a, false};
}
Light lightOfPixel(float p, Transfer)
{
    return {p, p, p, 1, true};
}
Light lightOfPixel(Float3 p, Transfer)
{
    return {p.r, p.g, p.b, 1, false};
}
Light lightOfPixel(Float4 p, Transfer)
{
    return {p.r, p.g, p.b, p.a, false};
}

// The channels of a row by the definition: light, and whether it is alpha.
template <class Pixel>
std::vector<std::pair<float, bool>> channelsByHand(Image const& image, int row, int channels, Transfer t)
{
    std::vector<std::pair<float, bool>> values;
    auto const pixels = pixelsOf<Pixel>(image);
    for (int x = 0; x < image.width(); ++x) {
        // The top row of the picture is the last of the image.
        auto const at = static_cast<std::size_t>((image.height() - 1 - row) * image.width() + x);
        Light const light = lightOfPixel(pixels[at], t);
        float luminance = 0.2126f * light.r + 0.7152f * light.g + 0.0722f * light.b;
        if (light.grey || (light.r == light.g && light.g == light.b))
            luminance = light.g;
        else if (std::isnan(luminance))
            luminance = std::numeric_limits<float>::quiet_NaN();
        if (channels == 1) {
            values.emplace_back(luminance, false);
            continue;
        }
        values.insert(values.end(), {{light.r, false}, {light.g, false}, {light.b, false}});
        if (channels == 4)
            values.emplace_back(light.a, true);
    }
    return values;
}

template <class Level>
Level levelByHand(float v, bool alpha, Transfer transfer, SrgbLevels<Level> const& srgb, Misfits& misfits)
{
    if (std::isnan(v))
        ++misfits.nan;
    else if (v > 1)
        ++misfits.overflow;
    else if (v < 0)
        ++misfits.negative;
    if (transfer == Transfer::Srgb && !alpha)
        return srgb.level(v);
    if (!(v > 0))
        return 0;
    return static_cast<Level>(std::floor(std::min(double{v}, 1.0) * srgb.top + 0.5));
}

half halfByHand(float v, Misfits& misfits)
{
    if (std::isfinite(v) && v > 65504) {
        ++misfits.overflow;
        return half(65504.0f);
    }
    if (std::isfinite(v) && v < -65504) {
        ++misfits.negative;
        return half(-65504.0f);
    }
    return half(v);
}

template <class Value>
bool sameBits(std::vector<Value> const& a, std::vector<Value> const& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(Value)) == 0;
}

template <class Pixel>
ImageRef<Pixel> testImage(bool hostile)
{
    return hostile ? hostileImage<Pixel>(size, 7) : randomImage<Pixel>(size, 7);
}

template <class Pixel>
class Rows : public ::testing::Test {
protected:
    // Runs over rows, channels and transfers, on ordinary and on hostile pixels.
    template <class Check>
    void forEachRow(Check const& check)
    {
        for (bool const hostile : {false, true}) {
            auto const image = testImage<Pixel>(hostile);
            for (Transfer const transfer : transfers) {
                for (int const channels : channelCounts) {
                    for (int row = 0; row < size.height; ++row) {
                        SCOPED_TRACE(::testing::Message()
                                     << "hostile " << hostile << " transfer " << static_cast<int>(transfer)
                                     << " channels " << channels << " row " << row);
                        check(*image, row, channels, transfer,
                              channelsByHand<Pixel>(*image, row, channels, transfer));
                    }
                }
            }
        }
    }
};
TYPED_TEST_SUITE(Rows, koImage::testing::TestTypes<PicturePixels>, koImage::testing::ById);

}  // namespace

TYPED_TEST(Rows, GiveLightAsFloats)
{
    this->forEachRow([](Image const& image, int row, int channels, Transfer transfer, auto const& byHand) {
        std::vector<float> values(byHand.size()), expected;
        for (auto const& [light, alpha] : byHand)
            expected.push_back(light);
        rowAsFloats(image, row, channels, transfer, values);
        EXPECT_TRUE(sameBits(expected, values));
    });
}

TYPED_TEST(Rows, GiveLightAsHalvesAndCountWhatIsBeyond)
{
    this->forEachRow([](Image const& image, int row, int channels, Transfer transfer, auto const& byHand) {
        std::vector<half> values(byHand.size()), expected;
        Misfits misfits, expectedMisfits;
        for (auto const& [light, alpha] : byHand)
            expected.push_back(halfByHand(light, expectedMisfits));
        rowAsHalves(image, row, channels, transfer, values, misfits);

        // Halves of an image stay as they are: a row through light loses the sign of zero.
        if (image.pixelType() == PixelTypeId::Half4 && channels != 1) {
            expected.clear();
            for (Half4 const& p : pictureRow<Half4>(image, row))
                expected.insert(expected.end(), &p.r, &p.r + channels);
        }
        EXPECT_TRUE(sameBits(expected, values));
        EXPECT_EQ(misfits, expectedMisfits);
    });
}

TYPED_TEST(Rows, GiveBytesAndCountWhatIsClamped)
{
    this->forEachRow([](Image const& image, int row, int channels, Transfer transfer, auto const& byHand) {
        std::vector<std::uint8_t> values(byHand.size()), expected;
        Misfits misfits, expectedMisfits;
        for (auto const& [light, alpha] : byHand)
            expected.push_back(levelByHand(light, alpha, transfer, srgbBytes(), expectedMisfits));
        rowAsBytes(image, row, channels, transfer, values, misfits);
        EXPECT_TRUE(sameBits(expected, values));
        EXPECT_EQ(misfits, expectedMisfits);
    });
}

TYPED_TEST(Rows, GiveWordsAndCountWhatIsClamped)
{
    this->forEachRow([](Image const& image, int row, int channels, Transfer transfer, auto const& byHand) {
        std::vector<std::uint16_t> values(byHand.size()), expected;
        Misfits misfits, expectedMisfits;
        for (auto const& [light, alpha] : byHand)
            expected.push_back(levelByHand(light, alpha, transfer, srgbWords(), expectedMisfits));
        rowAsWords(image, row, channels, transfer, values, misfits);
        EXPECT_TRUE(sameBits(expected, values));
        EXPECT_EQ(misfits, expectedMisfits);
    });
}

TEST(Rows, CountOnTopOfWhatWasCounted)
{
    auto const image = imageOf<float>({3, 1});
    std::array const values = {2.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()};
    std::copy(values.begin(), values.end(), image->pixels());
    Misfits misfits = {10, 20, 30};
    std::array<std::uint8_t, 3> bytes;
    rowAsBytes(*image, 0, 1, Transfer::Srgb, bytes, misfits);
    EXPECT_EQ(misfits, (Misfits{11, 21, 31}));
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 3>{255, 0, 0}));
}

TEST(Rows, BringEveryByteAndWordBackFromLight)
{
    std::vector<std::uint16_t> words(65536);
    for (std::size_t i = 0; i < words.size(); ++i)
        words[i] = static_cast<std::uint16_t>(i);
    for (Transfer const transfer : transfers) {
        auto const light = imageOf<float>({65536, 1});
        wordsAsFloats(words, 1, transfer, pixelsOf<float>(*light));
        std::vector<std::uint16_t> back(65536);
        Misfits misfits;
        rowAsWords(*light, 0, 1, transfer, back, misfits);
        EXPECT_EQ(back, words);

        auto const bytes = imageOf<unsigned char>({256, 1});
        for (std::size_t i = 0; i < 256; ++i)
            bytes->pixels()[i] = static_cast<unsigned char>(i);
        ko::Reference<Image> image(bytes->clone());
        convertPicture(image, PixelTypeId::Float, transfer, misfits);
        std::vector<std::uint8_t> byteRow(256);
        rowAsBytes(*image, 0, 1, transfer, byteRow, misfits);
        EXPECT_TRUE(std::equal(byteRow.begin(), byteRow.end(), bytes->pixels()));
        EXPECT_FALSE(misfits.any());
    }
}

TEST(Rows, OfWordsLeaveTheCurveOutForAlpha)
{
    std::vector<std::uint16_t> const words = {0, 1000, 40000, 1000, 65535, 30000, 7, 65535};
    std::vector<float> floats(8);
    wordsAsFloats(words, 4, Transfer::Srgb, floats);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(floats[i],
                  i % 4 == 3 ? static_cast<float>(words[i]) / 65535.0f : srgbWords().light(words[i]));
    wordsAsFloats(words, 4, Transfer::None, floats);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(floats[i], static_cast<float>(words[i]) / 65535.0f);
}

TEST(Rows, BeginAtTheTopOfThePicture)
{
    auto const image = imageOf<float>({2, 3});
    for (int i = 0; i < 6; ++i)
        image->pixels()[i] = static_cast<float>(i);
    EXPECT_EQ(pictureRow<float>(*image, 0).data(), image->pixels() + 4);
    EXPECT_EQ(pictureRow<float>(*image, 2).data(), image->pixels());
    EXPECT_EQ(pictureRow<float>(*image, 1).size(), 2u);
    EXPECT_EQ(pictureRowBytes(*image, 0).data(), reinterpret_cast<std::byte*>(image->pixels() + 4));
    EXPECT_EQ(pictureRowBytes(*image, 0).size(), 8u);
}

namespace {

template <class Pixel>
class ConvertPicture : public ::testing::Test {
};
TYPED_TEST_SUITE(ConvertPicture, koImage::testing::TestTypes<PicturePixels>, koImage::testing::ById);

template <class From, class To>
void imageConvertTo(Image const& from, Image& to)
{
    imageConvert(static_cast<TypedImage<From> const&>(from), static_cast<TypedImage<To>&>(to));
}

// What is expected of a pair of types, pixel by pixel from rows that were tested above.
ko::Reference<Image> convertedByHand(Image const& image, PixelTypeId type, Transfer transfer,
                                     Misfits& misfits)
{
    ko::Reference<Image> result(imageCreateByType(type));
    PixelTypeId const from = image.pixelType();
    if (from == PixelTypeId::Float3 && type == PixelTypeId::Float4) {
        imageConvertTo<Float3, Float4>(image, *result);
        return result;
    }
    if (from == PixelTypeId::Float && type == PixelTypeId::Byte && transfer == Transfer::None) {
        imageConvertTo<float, unsigned char>(image, *result);
        return result;
    }
    // imageConvert's quotients, through the curve one by one.
    auto const curved = [&](float v, bool alpha) {
        return transfer == Transfer::Srgb && !alpha
                   ? srgbBytes().light(static_cast<unsigned char>(std::lround(v * 255.0f)))
                   : v;
    };
    if (from == PixelTypeId::Byte4 && type == PixelTypeId::Float3) {
        imageConvertTo<Byte4, Float3>(image, *result);
        for (Float3& p : pixelsOf<Float3>(*result))
            p = {curved(p.r, false), curved(p.g, false), curved(p.b, false)};
        return result;
    }
    if (from == PixelTypeId::Byte4 && type == PixelTypeId::Float4) {
        imageConvertTo<Byte4, Float4>(image, *result);
        for (Float4& p : pixelsOf<Float4>(*result))
            p = {curved(p.r, false), curved(p.g, false), curved(p.b, false), curved(p.a, true)};
        return result;
    }

    result->resize(image.width(), image.height());
    for (int row = 0; row < image.height(); ++row) {
        auto const bytes = pictureRowBytes(*result, row);
        auto const as = [&]<class Value>(Value) {
            return std::span(reinterpret_cast<Value*>(bytes.data()), bytes.size() / sizeof(Value));
        };
        int const channels = channelCount(type);
        if (type == PixelTypeId::Byte || type == PixelTypeId::Byte4)
            rowAsBytes(image, row, channels, transfer, as(std::uint8_t{}), misfits);
        else if (type == PixelTypeId::Half4)
            rowAsHalves(image, row, channels, transfer, as(half{}), misfits);
        else
            rowAsFloats(image, row, channels, transfer, as(float{}));
    }
    return result;
}

}  // namespace

TYPED_TEST(ConvertPicture, GivesEveryTypeAsImageConvertAndRowsSay)
{
    for (bool const hostile : {false, true}) {
        auto const source = testImage<TypeParam>(hostile);
        for (Transfer const transfer : transfers) {
            for (int id = 0; id <= 9; ++id) {
                auto const type = static_cast<PixelTypeId>(id);
                if (!PicturePixels::contains(type) || type == source->pixelType())
                    continue;
                SCOPED_TRACE(::testing::Message() << "to type " << id << " transfer "
                                                  << static_cast<int>(transfer) << " hostile " << hostile);
                Misfits misfits, expectedMisfits;
                ko::Reference<Image> image(source->clone());
                convertPicture(image, type, transfer, misfits);
                EXPECT_TRUE(samePixels(*convertedByHand(*source, type, transfer, expectedMisfits), *image));
                EXPECT_EQ(misfits, expectedMisfits);
            }
        }
    }
}

TYPED_TEST(ConvertPicture, LeavesAPictureOfTheTypeAlone)
{
    ko::Reference<Image> image(testImage<TypeParam>(true)->clone());
    Image const* const before = image.get();
    Misfits misfits;
    convertPicture(image, pixelTypeIdOf<TypeParam>, Transfer::Srgb, misfits);
    EXPECT_EQ(image.get(), before);
    EXPECT_FALSE(misfits.any());
}

TEST(ConvertPicture, MakesAlphaOpaqueButForImageConvertsPair)
{
    Misfits misfits;
    auto const alphaOf = [&](PixelTypeId type) {
        ko::Reference<Image> image(randomImage<Float3>({1, 1}, 1)->clone());
        convertPicture(image, type, Transfer::Srgb, misfits);
        return type == PixelTypeId::Half4   ? float(pixelsOf<Half4>(*image)[0].a)
               : type == PixelTypeId::Byte4 ? static_cast<float>(pixelsOf<Byte4>(*image)[0].a)
                                            : pixelsOf<Float4>(*image)[0].a;
    };
    EXPECT_EQ(alphaOf(PixelTypeId::Half4), 1.0f);
    EXPECT_EQ(alphaOf(PixelTypeId::Byte4), 255.0f);
    EXPECT_EQ(alphaOf(PixelTypeId::Float4), 0.0f);
}

TEST(ConvertPicture, KeepsGreysOfColourExactly)
{
    auto const image = imageOf<Float3>({1000, 1});
    auto const greys = randomImage<float>({1000, 1}, 3);
    for (std::size_t i = 0; i < 1000; ++i)
        image->pixels()[i] = {greys->pixels()[i], greys->pixels()[i], greys->pixels()[i]};
    ko::Reference<Image> converted(image->clone());
    Misfits misfits;
    convertPicture(converted, PixelTypeId::Float, Transfer::Srgb, misfits);
    EXPECT_TRUE(samePixels(*greys, *converted));
}

}  // namespace koImageIO
