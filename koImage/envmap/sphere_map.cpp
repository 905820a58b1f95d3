#include "koImage/envmap/sphere_map.h"

#include <cmath>

namespace koImage {

SphereMap::SphereMap(int width, int height) : EnvironmentMap(EnvironmentMapType::Sphere)
{
    computeOmegaFactor(width, height);
}

void SphereMap::computeOmegaFactor(int width, int height)
{
    omegaFactor_ = (twoPi / static_cast<float>(height)) * (twoPi / static_cast<float>(width));
}

bool SphereMap::isValidCoord(float u, float v) const
{
    float const x = u - 0.5f;
    float const y = v - 0.5f;
    return x * x + y * y <= 0.25f;
}

bool SphereMap::coordToDir(float u, float v, koLinear::VectorFlt& dir) const
{
    return EnvironmentMap::coordToDir(u, v, dir);
}

bool SphereMap::coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight, bool wantWeight) const
{
    float const x = 2.0f * u - 1.0f;
    float const y = 2.0f * v - 1.0f;
    float const r = std::sqrt(x * x + y * y);
    if (r > 1.0f) {
        weight = 0.0f;
        return false;
    }

    double const phi = static_cast<float>(std::atan2(double{y}, double{x}));
    double const theta = r * pi;
    double const sine = std::sin(theta);
    dir = {static_cast<float>(std::cos(phi) * sine), static_cast<float>(-std::cos(theta)),
           static_cast<float>(std::sin(phi) * sine)};
    if (wantWeight)
        weight = theta < 0.0001 ? omegaFactor_ : static_cast<float>(double{omegaFactor_} * (sine / theta));
    return true;
}

void SphereMap::dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const
{
    float const rho = std::sqrt(dir.x * dir.x + dir.z * dir.z);
    if (rho == 0.0f) {
        u = 0.5f;
        v = 0.5f;
        return;
    }
    double const k = std::acos(double{-dir.y}) * 0.5 / (double{rho} * double{pi});
    u = static_cast<float>(k * double{dir.x} + 0.5);
    v = static_cast<float>(k * double{dir.z} + 0.5);
}

}  // namespace koImage
