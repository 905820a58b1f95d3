#include "koImage/lighting/specular_map.h"

#include "koImage/lighting/harmonics.h"

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

}  // namespace

void computeSpecularMap(TypedImage<HarmonicsPixel> const& reflection, double const* view, int order,
                        double scale, TypedImage<Float3>& out)
{
    // The basis at the direction of view, the same for every pixel.
    double const theta = std::acos(std::clamp(view[2], -1.0, 1.0));
    double phi = std::atan2(view[1], view[0]);
    if (phi < 0)
        phi += twoPi;
    double const t = gridPosition(theta / pi, reflection.height(), harmonics::polarSamples);
    double const s = gridPosition(phi / twoPi, reflection.width(), harmonics::azimuthSamples);

    std::array<double, HarmonicsPixel::size()> basis;
    int terms = 0;
    for (int l = 0; l <= std::min(order, highestDegree); ++l)
        for (int m = -l; m <= l; ++m)
            basis[static_cast<std::size_t>(terms++)] = harmonics::Y(l, m, t, s);

    out.resize(reflection.width(), reflection.height());
    auto const pixels = pixelsOf<HarmonicsPixel>(reflection);
    auto const result = pixelsOf<Float3>(out);
    for (std::size_t i = 0; i < std::min(pixels.size(), result.size()); ++i) {
        Double3 sum = {0, 0, 0};
        for (int k = 0; k < terms; ++k) {
            double const weight = basis[static_cast<std::size_t>(k)];
            Double3 const& coefficient = pixels[i][k];
            sum.r += weight * coefficient.r;
            sum.g += weight * coefficient.g;
            sum.b += weight * coefficient.b;
        }
        auto const channel = [scale](double value) {
            return static_cast<float>((value < 0 ? 0.0 : value) * scale);
        };
        result[i] = {channel(sum.r), channel(sum.g), channel(sum.b)};
    }
}

}  // namespace koImage
