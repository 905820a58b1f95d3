#include "koImage/envmap/lat_long_map.h"

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
    double const a = latitude(v);
    double const b = longitude(u);
    float const c = cosineOfLatitude(latitude(v));
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
