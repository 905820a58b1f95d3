#include "koImage/tone/tone_map.h"

#include "koBase/linear.h"
#include "koImage/tone/tone_map_v3.h"

#include <array>
#include <cmath>

namespace koImage {

namespace {

/// The powers of each kind of pixel. They differ in the last bit.
float power(FloatPixel3<float> const& /*kind*/, float base, float exponent)
{
    return std::pow(base, exponent);
}

float power(FloatPixel4<float> const& /*kind*/, float base, float exponent)
{
    return static_cast<float>(std::pow(static_cast<double>(base), static_cast<double>(exponent)));
}

template <class F>
void eachChannel(FloatPixel3<float>& p, F const& change)
{
    change(p.r);
    change(p.g);
    change(p.b);
}

template <class F>
void eachChannel(FloatPixel4<float>& p, F const& change)
{
    change(p.r);
    change(p.g);
    change(p.b);
    change(p.a);  // on purpose: alpha is mapped like a colour
}

template <class Pixel>
float luminanceOf(Pixel const& p)
{
    return (0.2125f * p.r + 0.7154f * p.g) + 0.0721f * p.b;
}

/// Whether a pixel has ratios to its luminance. NaN has none.
bool isBright(float luminance)
{
    return luminance > koLinear::epsilonTolFlt;
}

/// The definition: one pixel.
template <class Pixel>
void mapPixel(ToneMap const& map, Pixel& pixel)
{
    eachChannel(pixel, [&](float& c) {
        c *= map.exposureScale();
        if (c < 0.0f)
            c = 0.0f;
        c = power(pixel, c, map.invGamma());
    });

    float const luminance = luminanceOf(pixel);
    if (isBright(luminance)) {
        float const k = 1.0f / luminance;
        eachChannel(pixel, [&](float& c) { c = power(pixel, c * k, map.saturation()) * luminance; });
    }
}

#if KO_SIMD_V3
constexpr std::size_t blockSize = 64;

/// One channel of a block of pixels.
using Plane = std::array<float, blockSize>;

/// The definition for a block at once, channel by channel.
template <class Pixel>
void mapBlock(ToneMap const& map, Pixel* pixels)
{
    constexpr std::size_t channels = sizeof(Pixel) / sizeof(float);
    std::array<Plane, channels> planes;
    for (std::size_t i = 0; i < blockSize; ++i) {
        std::size_t channel = 0;
        eachChannel(pixels[i], [&](float c) {
            c *= map.exposureScale();
            planes[channel++][i] = c < 0.0f ? 0.0f : c;
        });
    }
    for (Plane& plane : planes)
        v3::powers<Pixel>(plane, map.invGamma());

    Plane luminances;
    Plane inverses;
    for (std::size_t i = 0; i < blockSize; ++i) {
        luminances[i] = luminanceOf(Float3{planes[0][i], planes[1][i], planes[2][i]});
        inverses[i] = 1.0f / luminances[i];
    }
    // A pixel too dark to have ratios gets the powers of 0, and drops them. Arithmetic and choices stand in
    // loops of their own: together they are not vectorised.
    for (std::size_t i = 0; i < blockSize; ++i)
        inverses[i] = isBright(luminances[i]) ? inverses[i] : 0.0f;
    for (Plane& plane : planes) {
        Plane mapped;
        for (std::size_t i = 0; i < blockSize; ++i)
            mapped[i] = plane[i] * inverses[i];
        v3::powers<Pixel>(mapped, map.saturation());
        for (std::size_t i = 0; i < blockSize; ++i)
            mapped[i] *= luminances[i];
        for (std::size_t i = 0; i < blockSize; ++i)
            plane[i] = isBright(luminances[i]) ? mapped[i] : plane[i];
    }

    for (std::size_t i = 0; i < blockSize; ++i) {
        std::size_t channel = 0;
        eachChannel(pixels[i], [&](float& c) { c = planes[channel++][i]; });
    }
}
#endif

template <class Pixel>
void mapRun(ToneMap const& map, std::span<Pixel> pixels)
{
#if KO_SIMD_V3
    for (; pixels.size() >= blockSize; pixels = pixels.subspan(blockSize))
        mapBlock(map, pixels.data());
#endif
    for (Pixel& pixel : pixels)
        mapPixel(map, pixel);
}

}  // namespace

void ToneMap::calculate(ToneControls const& controls)
{
    invGamma_ = 1.0f / controls.gamma;
    exposureScale_ = std::exp2(controls.exposure);
    saturation_ = controls.saturation;
}

void ToneMap::apply(FloatPixel3<float>& pixel) const
{
    mapPixel(*this, pixel);
}

void ToneMap::apply(FloatPixel4<float>& pixel) const
{
    mapPixel(*this, pixel);
}

void ToneMap::apply(std::span<FloatPixel3<float>> pixels) const
{
    mapRun(*this, pixels);
}

void ToneMap::apply(std::span<FloatPixel4<float>> pixels) const
{
    mapRun(*this, pixels);
}

void ToneMap::apply(Image& /*image*/) const {}

}  // namespace koImage
