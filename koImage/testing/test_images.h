// What the tests and benchmarks share: sizes, seeded random and hostile images, comparison to the bit, and
// type lists for typed tests.
#pragma once

#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>

namespace koImage::testing {

struct Size {
    int width;
    int height;
};

inline std::ostream& operator<<(std::ostream& out, Size size)
{
    return out << size.width << " x " << size.height;
}

/// Empty, one pixel, one row, one column, and counts around the vector widths 4, 8, 16 and 32.
inline constexpr Size awkwardSizes[] = {{0, 0},  {0, 5},  {5, 0},  {1, 1},   {2, 1},   {7, 1},
                                        {1, 9},  {3, 5},  {8, 4},  {16, 16}, {17, 31}, {33, 3},
                                        {67, 2}, {64, 1}, {61, 7}, {129, 5}};

/// Sizes whose pixel count is not what their rows suggest: negative, and products beyond 32 bits.
inline constexpr Size hostileSizes[] = {{-2, -3}, {-1, 4}, {3, -7}, {65536, 65536}, {65537, 65536}};

/// Random generator of the tests: the same numbers on every platform.
using Random = std::mt19937;

// Float patterns that break careless code: zeros of both signs, subnormals, the edges of the half range and
// of the 32-bit integers, infinities, quiet and signalling NaNs.
inline constexpr std::array<std::uint32_t, 32> hostileFloatBits = {
    0x00000000, 0x80000000, 0x00000001, 0x80000001, 0x007FFFFF, 0x00800000, 0x32FFFFFF, 0x33000000,
    0xB3000000, 0x33800000, 0x387FC000, 0x387FFFFF, 0x38800000, 0x3F800000, 0xBF800000, 0x3F801000,
    0x3F7FFFFF, 0x477FE000, 0x477FEFFF, 0x477FF000, 0xC77FF000, 0x4EFFFFFF, 0x4F000000, 0xCF000000,
    0xCF000001, 0x7F7FFFFF, 0x7F800000, 0xFF800000, 0x7F800001, 0x7FC00000, 0xFFC12345, 0x7FBFFFFF};

/// A value of ordinary pixels: in 0 .. 2 for floating point, anything for integers.
template <class Channel>
Channel randomChannel(Random& random)
{
    if constexpr (std::is_integral_v<Channel>)
        return static_cast<Channel>(random());
    else if constexpr (std::is_same_v<Channel, half>)
        return half(static_cast<float>(random() >> 8) * 0x1p-23f);
    else
        return static_cast<Channel>(static_cast<float>(random() >> 8) * 0x1p-23f);
}

/// Any bit pattern, the hostile ones often.
template <class Channel>
Channel hostileChannel(Random& random)
{
    if constexpr (std::is_integral_v<Channel>) {
        std::uint32_t const pick = random() % 4;
        return static_cast<Channel>(pick == 0 ? 0u : pick == 1 ? ~0u : random());
    } else if constexpr (std::is_same_v<Channel, half>) {
        return half::fromBits(random() % 2 == 0
                                  ? half(std::bit_cast<float>(hostileFloatBits[random() % 32])).bits()
                                  : static_cast<std::uint16_t>(random()));
    } else {
        return static_cast<Channel>(std::bit_cast<float>(random() % 2 == 0 ? hostileFloatBits[random() % 32]
                                                                           : std::uint32_t(random())));
    }
}

template <class Pixel>
struct ChannelOf {
    using type = Pixel;
};
template <>
struct ChannelOf<Byte4> {
    using type = unsigned char;
};
template <>
struct ChannelOf<Int4> {
    using type = std::int32_t;
};
template <class T>
struct ChannelOf<FloatPixel3<T>> {
    using type = T;
};
template <class T>
struct ChannelOf<FloatPixel4<T>> {
    using type = T;
};
template <>
struct ChannelOf<HarmonicsPixel> {
    using type = double;
};

/// An image whose channels come from `makeChannel(random)`, in storage order.
template <class Pixel, class MakeChannel>
void fillImage(TypedImage<Pixel>& image, std::uint32_t seed, MakeChannel makeChannel)
{
    using Channel = typename ChannelOf<Pixel>::type;
    Random random(seed);
    for (Pixel& pixel : pixelsOf<Pixel>(image)) {
        std::array<Channel, sizeof(Pixel) / sizeof(Channel)> channels;
        for (Channel& channel : channels)
            channel = makeChannel(random);
        std::memcpy(static_cast<void*>(&pixel), channels.data(), sizeof(Pixel));
    }
}

template <class Pixel>
void randomise(TypedImage<Pixel>& image, std::uint32_t seed)
{
    fillImage(image, seed, randomChannel<typename ChannelOf<Pixel>::type>);
}

template <class Pixel>
void makeHostile(TypedImage<Pixel>& image, std::uint32_t seed)
{
    fillImage(image, seed, hostileChannel<typename ChannelOf<Pixel>::type>);
}

/// Images are counted objects and do not move: tests hold them by reference.
template <class Pixel>
using ImageRef = ko::Reference<TypedImage<Pixel>>;

template <class Pixel>
ImageRef<Pixel> imageOf(Size size)
{
    ImageRef<Pixel> image(new TypedImage<Pixel>);
    image->resize(size.width, size.height);
    return image;
}

template <class Pixel>
ImageRef<Pixel> randomImage(Size size, std::uint32_t seed)
{
    auto image = imageOf<Pixel>(size);
    randomise(*image, seed);
    return image;
}

template <class Pixel>
ImageRef<Pixel> hostileImage(Size size, std::uint32_t seed)
{
    auto image = imageOf<Pixel>(size);
    makeHostile(*image, seed);
    return image;
}

/// Bytes of one pixel, for messages.
inline std::string bytesText(void const* data, std::size_t bytes)
{
    std::string text;
    for (std::size_t i = 0; i < bytes; ++i) {
        static constexpr char digits[] = "0123456789abcdef";
        unsigned char const byte = static_cast<unsigned char const*>(data)[i];
        text += {digits[byte >> 4], digits[byte & 15], ' '};
    }
    return text;
}

/// Equal type, size and pixel bytes; names the first pixel that differs.
inline ::testing::AssertionResult samePixels(Image const& expected, Image const& actual)
{
    if (expected.pixelType() != actual.pixelType())
        return ::testing::AssertionFailure() << "pixel types differ";
    if (expected.width() != actual.width() || expected.height() != actual.height())
        return ::testing::AssertionFailure() << "sizes differ: " << Size{expected.width(), expected.height()}
                                             << " and " << Size{actual.width(), actual.height()};
    if ((expected.data() == nullptr) != (actual.data() == nullptr))
        return ::testing::AssertionFailure() << "only one image has pixels";
    if (expected.data() == nullptr)
        return ::testing::AssertionSuccess();

    auto const bytes = static_cast<std::size_t>(expected.bytesPerPixel());
    for (std::int64_t i = 0; i < expected.pixelCount(); ++i) {
        auto const at = static_cast<std::size_t>(i) * bytes;
        auto const* const e = static_cast<char const*>(expected.data()) + at;
        auto const* const a = static_cast<char const*>(actual.data()) + at;
        if (std::memcmp(e, a, bytes) != 0)
            return ::testing::AssertionFailure()
                   << "pixel " << i << ": expected " << bytesText(e, bytes) << "got " << bytesText(a, bytes);
    }
    return ::testing::AssertionSuccess();
}

/// A PixelList as the types of a typed test.
template <class List>
struct TestTypesOf;
template <class... Pixels>
struct TestTypesOf<PixelList<Pixels...>> {
    using type = ::testing::Types<Pixels...>;
};
template <class List>
using TestTypes = typename TestTypesOf<List>::type;

/// Names the instances of a typed test by their PixelTypeId number.
struct ById {
    template <class Pixel>
    static std::string GetName(int)
    {
        return std::to_string(static_cast<int>(pixelTypeIdOf<Pixel>));
    }
};

}  // namespace koImage::testing
