#include "koImage/envmap/lat_long_map.h"

#include <algorithm>
#include <cmath>

namespace koImage {

LatLongMap::LatLongMap(int width, int height) : EnvironmentMap(EnvironmentMapType::LatLong)
{
    computeOmegaFactor(width, height);
}

void LatLongMap::computeOmegaFactor(int width, int height)
{
    omegaFactor_ = (pi / static_cast<float>(height)) * (twoPi / static_cast<float>(width));
}

bool LatLongMap::isValidCoord(float, float) const
{
    return true;
}

bool LatLongMap::coordToDir(float u, float v, koLinear::VectorFlt& dir) const
{
    return EnvironmentMap::coordToDir(u, v, dir);
}

bool LatLongMap::coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight, bool wantWeight) const
{
    // The columns of the seam change places, as the header says. Not a wrap: 0 becomes 1.
    if (u == 0.0f)
        u = 1.0f;
    else if (u == 1.0f)
        u = 0.0f;

    double const a = (2.0f * v - 1.0f) * pi * 0.5f;
    double const b = (2.0f * u - 1.0f) * pi;
    float const c = std::max(0.0f, static_cast<float>(std::cos(a)));
    dir = {static_cast<float>(-std::sin(b) * double{c}), static_cast<float>(-std::cos(b) * double{c}),
           static_cast<float>(std::sin(a))};
    if (wantWeight)
        weight = c * omegaFactor_;
    return true;
}

void LatLongMap::dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const
{
    auto const lat = static_cast<float>(std::asin(double{dir.z}));
    auto const lon = static_cast<float>(std::atan2(double{-dir.x}, double{-dir.y}));
    u = (lon / pi + 1.0f) * 0.5f;
    v = (2.0f * lat / pi + 1.0f) * 0.5f;
}

}  // namespace koImage
