// The tables behind harmonics.h, for loops over whole grids. Private.
#pragma once

#include "koImage/lighting/harmonics.h"

#include <array>
#include <cstddef>

namespace koImage::harmonics {

// The square root of 2 to eight digits, on purpose: a better one would change every result.
inline constexpr double roundedSqrt2 = 1.4142136;

struct Tables {
    Tables();

    std::array<double, polarSamples> polarCos;
    std::array<double, polarSamples> polarSin;
    std::array<double, azimuthSamples> azimuthCos;
    std::array<double, azimuthSamples> azimuthSin;

    // cos(m phi_j) and sin(m phi_j) at [m][j], m = 0 .. 20. Not azimuthCos[m * j % 200]: the arguments are
    // rounded differently.
    std::array<std::array<double, azimuthSamples>, maxDegree + 1> multipleCos;
    std::array<std::array<double, azimuthSamples>, maxDegree + 1> multipleSin;

    // N P_lm(cos theta_t) at [l][m][t]; 0 where m > l.
    std::array<std::array<std::array<double, polarSamples>, maxDegree + 1>, maxDegree + 1> legendre;
};

/// Fills them on the first call.
Tables const& tables();

}  // namespace koImage::harmonics
