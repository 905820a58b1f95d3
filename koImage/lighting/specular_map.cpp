#include "koImage/lighting/specular_map.h"

#include "koImage/lighting/harmonics.h"
#include "koImage/lighting/lanes.h"
#include "koImage/lighting/view_basis.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace koImage {

namespace {

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;

constexpr int highestDegree = HarmonicsPixel::order();

/// A position on the grid, kept so far below the size of the map that both neighbours are there. Maps larger
/// than the grid end with the grid.
double gridPosition(double fraction, int size, int samples)
{
    double const last = std::min(size, samples) - 1.0001;
    return std::max(0.0, std::min(fraction * size, last));
}

// Pixels are evaluated side by side: one alone would wait for its own sum.
constexpr std::size_t together = 4;

/// Sums the first `terms` terms of `count` pixels. The lanes are the channels.
template <std::size_t count>
void evaluate(HarmonicsPixel const* pixels, ViewBasis const& basis, int terms, double scale, Float3* result)
{
    std::array<Lanes, count> sums{};
    for (int k = 0; k < terms; ++k)
        for (std::size_t i = 0; i < count; ++i) {
            // The channels with the number before them: behind the last ones the pixel ends. Before the first
            // ones stands the degree, no number.
            Lanes value = {0, pixels[i][0].r, pixels[i][0].g, pixels[i][0].b};
            if (k > 0)
                loadLanes(value, &pixels[i][k - 1].b);
            sums[i] += basis[static_cast<std::size_t>(k)] * value;
        }
    auto const channel = [scale](double sum) { return static_cast<float>((sum < 0 ? 0.0 : sum) * scale); };
    for (std::size_t i = 0; i < count; ++i)
        result[i] = {channel(sums[i][1]), channel(sums[i][2]), channel(sums[i][3])};
}

}  // namespace

ViewBasis viewBasis(double const* view, int width, int height)
{
    double const theta = std::acos(std::clamp(view[2], -1.0, 1.0));
    double phi = std::atan2(view[1], view[0]);
    if (phi < 0)
        phi += twoPi;
    double const t = gridPosition(theta / pi, height, harmonics::polarSamples);
    double const s = gridPosition(phi / twoPi, width, harmonics::azimuthSamples);

    ViewBasis basis;
    std::size_t k = 0;
    for (int l = 0; l <= highestDegree; ++l)
        for (int m = -l; m <= l; ++m)
            basis[k++] = harmonics::Y(l, m, t, s);
    return basis;
}

int termsTo(int order)
{
    int const degrees = std::clamp(order, -1, highestDegree) + 1;
    return degrees * degrees;
}

Float3 lightAlong(HarmonicsPixel const& pixel, ViewBasis const& basis, int terms, double scale)
{
    Float3 light;
    evaluate<1>(&pixel, basis, terms, scale, &light);
    return light;
}

void computeSpecularMap(TypedImage<HarmonicsPixel> const& reflection, double const* view, int order,
                        double scale, TypedImage<Float3>& out)
{
    // The same for every pixel.
    ViewBasis const basis = viewBasis(view, reflection.width(), reflection.height());
    int const terms = termsTo(order);

    out.resize(reflection.width(), reflection.height());
    auto const pixels = pixelsOf<HarmonicsPixel>(reflection);
    auto const result = pixelsOf<Float3>(out);
    std::size_t const count = std::min(pixels.size(), result.size());
    std::size_t i = 0;
    for (; i + together <= count; i += together)
        evaluate<together>(&pixels[i], basis, terms, scale, &result[i]);
    for (; i < count; ++i)
        evaluate<1>(&pixels[i], basis, terms, scale, &result[i]);
}

}  // namespace koImage
