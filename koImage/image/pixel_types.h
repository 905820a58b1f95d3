// The closed list of pixel types, and their plain structures.
//
// Channels are contiguous in the order red, green, blue, alpha. Floating-point types have no implied range: 1
// is full scale for images that come from 8-bit data, and values above 1 and below 0 are kept. White in Int4
// is 255.
#pragma once

#include "koImage/export.h"
#include "koImage/image/half.h"
#include "koImage/image/harmonics_pixel.h"

#include <cstdint>
#include <type_traits>

namespace koImage {

/// Stored in files: never renumber.
enum class PixelTypeId : std::int32_t {
    Byte = 0,       // unsigned char
    Byte4 = 1,      // Byte4
    UInt = 2,       // unsigned int
    Int4 = 3,       // Int4
    Half4 = 4,      // FloatPixel4<half>
    Float = 5,      // float
    Float3 = 6,     // FloatPixel3<float>
    Float4 = 7,     // FloatPixel4<float>
    Double3 = 8,    // FloatPixel3<double>
    Harmonics = 9,  // HarmonicsPixel; not made by the factory, not stored as an image
};

struct KOIMAGE_EXPORT Byte4 {
    unsigned char r, g, b, a;
    friend constexpr bool operator==(Byte4 const&, Byte4 const&) = default;
};

struct KOIMAGE_EXPORT Int4 {
    std::int32_t r, g, b, a;
    friend constexpr bool operator==(Int4 const&, Int4 const&) = default;
};

template <class T>
struct KOIMAGE_EXPORT FloatPixel3 {
    T r, g, b;
    friend constexpr bool operator==(FloatPixel3 const&, FloatPixel3 const&) = default;
};

template <class T>
struct KOIMAGE_EXPORT FloatPixel4 {
    T r, g, b, a;
    friend constexpr bool operator==(FloatPixel4 const&, FloatPixel4 const&) = default;
};

using Half4 = FloatPixel4<half>;
using Float3 = FloatPixel3<float>;
using Float4 = FloatPixel4<float>;
using Double3 = FloatPixel3<double>;
using HarmonicsPixel = FixedOrderSphericalHarmonics<FloatPixel3<double>, 10>;

static_assert(sizeof(half) == 2 && sizeof(Byte4) == 4 && sizeof(Int4) == 16 && sizeof(Half4) == 8);
static_assert(sizeof(Float3) == 12 && sizeof(Float4) == 16 && sizeof(Double3) == 24);
static_assert(sizeof(HarmonicsPixel) == 2912);
static_assert(std::is_trivial_v<Half4> && std::is_trivial_v<Byte4> && std::is_trivial_v<Double3>);

/// Channels of a pixel: 1 to 4 for the types 0 to 8, and 1 for any other value.
KOIMAGE_EXPORT std::int32_t channelCount(PixelTypeId type);

/// The id of each pixel type.
template <class Pixel>
inline constexpr PixelTypeId pixelTypeIdOf = PixelTypeId{-1};
template <>
inline constexpr PixelTypeId pixelTypeIdOf<unsigned char> = PixelTypeId::Byte;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Byte4> = PixelTypeId::Byte4;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<unsigned int> = PixelTypeId::UInt;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Int4> = PixelTypeId::Int4;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Half4> = PixelTypeId::Half4;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<float> = PixelTypeId::Float;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Float3> = PixelTypeId::Float3;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Float4> = PixelTypeId::Float4;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<Double3> = PixelTypeId::Double3;
template <>
inline constexpr PixelTypeId pixelTypeIdOf<HarmonicsPixel> = PixelTypeId::Harmonics;

}  // namespace koImage
