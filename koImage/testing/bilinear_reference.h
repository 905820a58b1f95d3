// The bilinear sample written out channel by channel, slowly: what every faster form is tested against.
#pragma once

#include "koImage/testing/test_images.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace koImage::testing {

/// What sampleBilinear writes for a pixel type, and its channels.
template <class Pixel>
struct SampleTypes {
    using Sample = Pixel;
    using Channel = typename ChannelOf<Pixel>::type;
};
template <>
struct SampleTypes<Byte4> {
    using Sample = std::array<std::uint32_t, 4>;
    using Channel = std::uint32_t;
};
template <class Pixel>
using Sample = typename SampleTypes<Pixel>::Sample;

template <class Channel, class Pixel>
auto channelsOf(Pixel const& pixel)
{
    return std::bit_cast<std::array<Channel, sizeof(Pixel) / sizeof(Channel)>>(pixel);
}

struct ReferenceAxis {
    long long x0;
    long long x1;
    float t;
};

inline long long referenceTruncation(float value)
{
    // 2^31 and more, infinities and NaN give the 32-bit minimum.
    bool const fits = value > -0x1p31f && value < 0x1p31f;
    return fits ? static_cast<long long>(std::trunc(double{value})) : -2147483648LL;
}

inline float referencePosition(float coordinate, int size)
{
    float const s = 1.0f - 1e-6f;
    float const scaled = coordinate * s;
    return static_cast<float>(size) * scaled;
}

inline ReferenceAxis referenceAxis(float coordinate, int size, bool wrap)
{
    float const f = referencePosition(coordinate, size);
    long long const x0 = referenceTruncation(f);
    long long x1 = x0 + 1;
    if (x1 >= size || x0 < -1) {
        if (wrap)
            x1 = x1 % size;
        else if (x0 >= -1)
            x1 = size - 1;
        else
            x1 = 0;
    }
    return {x0, x1, f - static_cast<float>(x0)};
}

/// The array position of (x, y): the plain index if it lies in the array, else that of the clamped position.
inline long long referenceIndex(Image const& image, long long x, long long y)
{
    long long const count = image.pixelCount();
    long long const plain = y * image.width() + x;
    if (plain >= 0 && plain < count)
        return plain;

    long long const column = x < 0 || image.width() <= 0 ? 0 : std::min(x, image.width() - 1LL);
    long long const row = y < 0 || image.height() <= 0 ? 0 : std::min(y, image.height() - 1LL);
    long long const clamped = row * image.width() + column;
    return clamped < 0 ? 0 : std::min(clamped, count - 1);
}

inline float referenceBlend(float p00, float p10, float p01, float p11, float tx, float ty)
{
    return (1.0f - ty) * ((1.0f - tx) * p00 + tx * p10) + ty * ((1.0f - tx) * p01 + tx * p11);
}

inline half referenceBlend(half p00, half p10, half p01, half p11, float tx, float ty)
{
    half const left = 1.0f - tx;
    half const right = tx;

    half const a00 = float(p00) * float(left);
    half const a10 = float(p10) * float(right);
    half const a01 = float(p01) * float(left);
    half const a11 = float(p11) * float(right);
    half const row0 = float(a00) + float(a10);
    half const row1 = float(a01) + float(a11);

    half const upper = float(row0) * (1.0f - ty);
    half const lower = float(row1) * ty;
    return float(upper) + float(lower);
}

inline std::uint32_t referenceBlend(unsigned char p00, unsigned char p10, unsigned char p01,
                                    unsigned char p11, float tx, float ty)
{
    // Integers of 32 bits: sums leave their carry behind.
    auto const product = [](long long value, float weight) {
        return referenceTruncation(static_cast<float>(value) * weight);
    };
    auto const sum = [](long long a, long long b) {
        return static_cast<long long>(static_cast<std::int32_t>(static_cast<std::uint32_t>(a + b)));
    };
    long long const row0 = sum(product(p00, 1.0f - tx), product(p10, tx));
    long long const row1 = sum(product(p01, 1.0f - tx), product(p11, tx));
    return static_cast<std::uint32_t>(sum(product(row0, 1.0f - ty), product(row1, ty)));
}

/// The sample of an image that has pixels.
template <class Pixel>
Sample<Pixel> referenceSample(TypedImage<Pixel> const& image, float u, float v)
{
    using Channel = typename ChannelOf<Pixel>::type;

    ReferenceAxis const x = referenceAxis(u, image.width(), image.wrapHorizontal());
    ReferenceAxis const y = referenceAxis(v, image.height(), image.wrapVertical());
    auto const corner = [&image](long long column, long long row) {
        return channelsOf<Channel>(image.pixels()[referenceIndex(image, column, row)]);
    };
    auto const p00 = corner(x.x0, y.x0);
    auto const p10 = corner(x.x1, y.x0);
    auto const p01 = corner(x.x0, y.x1);
    auto const p11 = corner(x.x1, y.x1);

    std::array<typename SampleTypes<Pixel>::Channel, sizeof(Pixel) / sizeof(Channel)> blended;
    for (std::size_t c = 0; c < blended.size(); ++c)
        blended[c] = referenceBlend(p00[c], p10[c], p01[c], p11[c], x.t, y.t);
    return std::bit_cast<Sample<Pixel>>(blended);
}

/// One value for every NaN, whose payload and sign are not defined.
inline float withPlainNan(float value)
{
    return std::isnan(value) ? std::numeric_limits<float>::quiet_NaN() : value;
}
inline half withPlainNan(half value)
{
    return std::isnan(float(value)) ? half::fromBits(0x7E00) : value;
}
inline unsigned char withPlainNan(unsigned char value)
{
    return value;
}
inline std::uint32_t withPlainNan(std::uint32_t value)
{
    return value;
}

template <class Channel>
void makeNansPlain(Channel* channels, std::size_t count)
{
    std::transform(channels, channels + count, channels, [](Channel c) { return withPlainNan(c); });
}

}  // namespace koImage::testing
