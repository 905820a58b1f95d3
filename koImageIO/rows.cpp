#include "koImageIO/rows.h"

#include "koImage/image/convert.h"
#include "koImage/image/factory.h"
#include "koImage/image/half_runs.h"
#include "koImageIO/srgb.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace koImageIO {

using koImage::Byte4;
using koImage::Float3;
using koImage::Float4;
using koImage::half;
using koImage::Half4;
using koImage::Image;
using koImage::PixelTypeId;

namespace {

constexpr float largestHalf = 65504.0f;

// Pixels are taken through light in blocks that stay in the nearest cache.
constexpr std::size_t blockPixels = 256;
using Block = std::array<Float4, blockPixels>;

void lightOf(std::span<unsigned char const> pixels, Transfer transfer, Block& light)
{
    auto const& srgb = srgbBytes();
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        float const v =
            transfer == Transfer::Srgb ? srgb.light(pixels[i]) : static_cast<float>(pixels[i]) / 255.0f;
        light[i] = {v, v, v, 1.0f};
    }
}

void lightOf(std::span<Byte4 const> pixels, Transfer transfer, Block& light)
{
    auto const& srgb = srgbBytes();
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        auto const [r, g, b, a] = pixels[i];
        light[i] = {static_cast<float>(r) / 255.0f, static_cast<float>(g) / 255.0f,
                    static_cast<float>(b) / 255.0f, static_cast<float>(a) / 255.0f};
        if (transfer == Transfer::Srgb)
            light[i] = {srgb.light(r), srgb.light(g), srgb.light(b), light[i].a};
    }
}

void lightOf(std::span<Half4 const> pixels, Transfer, Block& light)
{
    koImage::halvesToFloats(&pixels[0].r, &light[0].r, 4 * pixels.size());
}

void lightOf(std::span<float const> pixels, Transfer, Block& light)
{
    for (std::size_t i = 0; i < pixels.size(); ++i)
        light[i] = {pixels[i], pixels[i], pixels[i], 1.0f};
}

void lightOf(std::span<Float3 const> pixels, Transfer, Block& light)
{
    for (std::size_t i = 0; i < pixels.size(); ++i)
        light[i] = {pixels[i].r, pixels[i].g, pixels[i].b, 1.0f};
}

void lightOf(std::span<Float4 const> pixels, Transfer, Block& light)
{
    std::copy(pixels.begin(), pixels.end(), light.begin());
}

float luminance(Float4 const& p)
{
    // Products would round a grey away from itself.
    if (p.r == p.g && p.g == p.b)
        return p.g;
    // Which of several NaNs a sum passes on is the compiler's choice.
    float const sum = 0.2126f * p.r + 0.7152f * p.g + 0.0722f * p.b;
    return std::isnan(sum) ? std::numeric_limits<float>::quiet_NaN() : sum;
}

// The channels of a row, as light.
template <bool grey>
void spread(std::span<Float4 const> light, int channels, float* values)
{
    for (Float4 const& p : light) {
        if (channels == 1) {
            *values++ = grey ? p.g : luminance(p);
            continue;
        }
        *values++ = p.r;
        *values++ = p.g;
        *values++ = p.b;
        if (channels == 4)
            *values++ = p.a;
    }
}

// From the pixels of a picture through light to values: convert(channels of some pixels, where they go).
template <class Value, class Convert>
void rowThroughLight(Image const& image, int row, int channels, Transfer transfer, std::span<Value> values,
                     Convert const& convert)
{
    assert(values.size() == static_cast<std::size_t>(image.width()) * static_cast<std::size_t>(channels));
    koImage::dispatchPixel(image.pixelType(), PicturePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        constexpr bool grey = std::is_scalar_v<Pixel>;
        auto const pixels = pictureRow<Pixel>(image, row);
        Block light;
        std::array<float, 4 * blockPixels> lightOfChannels;
        for (std::size_t first = 0; first < pixels.size(); first += blockPixels) {
            auto const some = pixels.subspan(first, std::min(blockPixels, pixels.size() - first));
            lightOf(some, transfer, light);
            spread<grey>(std::span(light).first(some.size()), channels, lightOfChannels.data());
            auto const count = static_cast<std::size_t>(channels);
            convert(std::span<float const>(lightOfChannels).first(some.size() * count),
                    values.data() + first * count);
        }
    });
}

// What levels from 0 to 1 cannot hold.
void countMisfits(std::span<float const> light, Misfits& misfits)
{
    int overflow = 0, negative = 0, nan = 0;
    for (float const v : light) {
        overflow += v > 1.0f ? 1 : 0;
        negative += v < 0.0f ? 1 : 0;
        nan += std::isnan(v) ? 1 : 0;
    }
    misfits += {overflow, negative, nan};
}

// The levels of bytes, which need no light. Whether the image has bytes, and as many channels.
template <class Level>
bool levelsOfBytes(Image const& image, int row, int channels, Level* to)
{
    constexpr unsigned top = SrgbLevels<Level>::top;
    constexpr unsigned scale = top / 255;
    if (image.pixelType() == PixelTypeId::Byte) {
        for (unsigned char const v : pictureRow<unsigned char>(image, row)) {
            for (int c = 0; c < channels; ++c)
                *to++ = c == 3 ? Level{top} : static_cast<Level>(v * scale);
        }
        return true;
    }
    if (image.pixelType() != PixelTypeId::Byte4 || channels == 1)
        return false;
    for (auto const [r, g, b, a] : pictureRow<Byte4>(image, row)) {
        *to++ = static_cast<Level>(r * scale);
        *to++ = static_cast<Level>(g * scale);
        *to++ = static_cast<Level>(b * scale);
        if (channels == 4)
            *to++ = static_cast<Level>(a * scale);
    }
    return true;
}

template <class Level>
void rowAsLevels(Image const& image, int row, int channels, Transfer transfer, SrgbLevels<Level> const& srgb,
                 std::span<Level> values, Misfits& misfits)
{
    if (levelsOfBytes(image, row, channels, values.data()))
        return;

    auto const linear = [](float v) {
        // The comparisons are false for NaN.
        double const clamped = v > 0.0f ? (v < 1.0f ? v : 1.0f) : 0.0f;
        return static_cast<Level>(clamped * SrgbLevels<Level>::top + 0.5);
    };
    rowThroughLight(image, row, channels, transfer, values, [&](std::span<float const> light, Level* to) {
        countMisfits(light, misfits);
        if (transfer == Transfer::None) {
            std::transform(light.begin(), light.end(), to, linear);
            return;
        }
        std::transform(light.begin(), light.end(), to, [&](float v) { return srgb.level(v); });
        if (channels == 4) {
            for (std::size_t i = 3; i < light.size(); i += 4)
                to[i] = linear(light[i]);
        }
    });
}

// What imageConvert makes of the picture.
template <class From, class To>
ko::Reference<Image> converted(Image const& image)
{
    ko::Reference<koImage::TypedImage<To>> result(new koImage::TypedImage<To>);
    koImage::imageConvert(static_cast<koImage::TypedImage<From> const&>(image), *result);
    return result;
}

void convertRow(Image const& from, Image& to, int row, Transfer transfer, Misfits& misfits)
{
    koImage::dispatchPixel(to.pixelType(), PicturePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto const pixels = pictureRow<Pixel>(to, row);
        if constexpr (std::is_same_v<Pixel, unsigned char>)
            rowAsBytes(from, row, 1, transfer, pixels, misfits);
        else if constexpr (std::is_same_v<Pixel, float>)
            rowAsFloats(from, row, 1, transfer, pixels);
        else if constexpr (std::is_same_v<Pixel, Byte4>)
            rowAsBytes(from, row, 4, transfer, {&pixels[0].r, 4 * pixels.size()}, misfits);
        else if constexpr (std::is_same_v<Pixel, Half4>)
            rowAsHalves(from, row, 4, transfer, {&pixels[0].r, 4 * pixels.size()}, misfits);
        else
            rowAsFloats(from, row, koImage::channelCount(to.pixelType()), transfer,
                        {&pixels[0].r, pixels.size_bytes() / sizeof(float)});
    });
}

}  // namespace

void rowAsFloats(Image const& image, int row, int channels, Transfer transfer, std::span<float> values)
{
    rowThroughLight(image, row, channels, transfer, values, [](std::span<float const> light, float* to) {
        std::copy(light.begin(), light.end(), to);
    });
}

void rowAsHalves(Image const& image, int row, int channels, Transfer transfer, std::span<half> values,
                 Misfits& misfits)
{
    if (image.pixelType() == PixelTypeId::Half4 && channels != 1) {
        // Words, not values: half floats keep the sign of zero and every NaN.
        auto* to = values.data();
        for (Half4 const& p : pictureRow<Half4>(image, row)) {
            std::copy_n(&p.r, channels, to);
            to += channels;
        }
        return;
    }

    constexpr float infinity = std::numeric_limits<float>::infinity();
    rowThroughLight(image, row, channels, transfer, values, [&](std::span<float const> light, half* to) {
        std::array<float, 4 * blockPixels> clamped;
        int overflow = 0, negative = 0;
        for (std::size_t i = 0; i < light.size(); ++i) {
            float const v = light[i];
            bool const above = v > largestHalf && v < infinity;
            bool const below = v < -largestHalf && v > -infinity;
            overflow += above ? 1 : 0;
            negative += below ? 1 : 0;
            clamped[i] = above ? largestHalf : below ? -largestHalf : v;
        }
        misfits += {overflow, negative, 0};
        koImage::floatsToHalves(clamped.data(), to, light.size());
    });
}

void rowAsBytes(Image const& image, int row, int channels, Transfer transfer, std::span<std::uint8_t> values,
                Misfits& misfits)
{
    rowAsLevels(image, row, channels, transfer, srgbBytes(), values, misfits);
}

void rowAsWords(Image const& image, int row, int channels, Transfer transfer, std::span<std::uint16_t> values,
                Misfits& misfits)
{
    rowAsLevels(image, row, channels, transfer, srgbWords(), values, misfits);
}

void wordsAsFloats(std::span<std::uint16_t const> words, int channels, Transfer transfer,
                   std::span<float> floats)
{
    auto const& srgb = srgbWords();
    auto const count = static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i < words.size(); ++i) {
        bool const curved = transfer == Transfer::Srgb && !(channels == 4 && i % count == 3);
        floats[i] = curved ? srgb.light(words[i]) : static_cast<float>(words[i]) / 65535.0f;
    }
}

void convertPicture(ko::Reference<Image>& image, PixelTypeId type, Transfer transfer, Misfits& misfits)
{
    PixelTypeId const from = image->pixelType();
    if (from == type)
        return;

    // What imageConvert defines. Its division of bytes and the curve together are the light of the curve's
    // table.
    if (from == PixelTypeId::Float3 && type == PixelTypeId::Float4) {
        image = converted<Float3, Float4>(*image);
        return;
    }
    if (transfer == Transfer::None) {
        if (from == PixelTypeId::Byte4 && type == PixelTypeId::Float3) {
            image = converted<Byte4, Float3>(*image);
            return;
        }
        if (from == PixelTypeId::Byte4 && type == PixelTypeId::Float4) {
            image = converted<Byte4, Float4>(*image);
            return;
        }
        if (from == PixelTypeId::Float && type == PixelTypeId::Byte) {
            image = converted<float, unsigned char>(*image);
            return;
        }
    }

    ko::Reference<Image> result(koImage::imageCreateByType(type));
    result->resize(image->width(), image->height());
    for (int row = 0; row < image->height(); ++row)
        convertRow(*image, *result, row, transfer, misfits);
    image = std::move(result);
}

}  // namespace koImageIO
