#include "koImage/lighting/harmonics.h"

#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/harmonics_tables.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>

namespace koImage::harmonics {

namespace {

constexpr double gridStep = 0.031415926535897934;  // pi / 100
constexpr double fourPi = 12.566370614359172;

constexpr std::size_t index(int i)
{
    return static_cast<std::size_t>(i);
}

bool isBasisFunction(int l, int m)
{
    return l >= 0 && l <= maxDegree && m >= -l && m <= l;
}

// (-1)^m for m <= 0, and 1 for m > 0.
double phaseOf(int m)
{
    return m < 0 && m % 2 != 0 ? -1.0 : 1.0;
}

template <std::size_t N>
double interpolated(std::array<double, N> const& samples, double position)
{
    if (std::isnan(position))
        return position;
    double const inside = std::clamp(position, 0.0, static_cast<double>(N - 1));
    auto const i = static_cast<std::size_t>(inside);

    // Only a sample from below counts as hit: 2.99999 is between 2 and 3.
    double const fraction = inside - static_cast<double>(i);
    if (fraction < 0.0001)
        return samples[i];
    return (1 - fraction) * samples[i] + fraction * samples[std::min(i + 1, N - 1)];
}

}  // namespace

Tables::Tables() : legendre{}
{
    for (int t = 0; t < polarSamples; ++t) {
        polarCos[index(t)] = std::cos(t * gridStep);
        polarSin[index(t)] = std::sin(t * gridStep);
    }
    for (int j = 0; j < azimuthSamples; ++j) {
        double const phi = j * gridStep;
        azimuthCos[index(j)] = std::cos(phi);
        azimuthSin[index(j)] = std::sin(phi);
        for (int m = 0; m <= maxDegree; ++m) {
            multipleCos[index(m)][index(j)] = std::cos(m * phi);
            multipleSin[index(m)][index(j)] = std::sin(m * phi);
        }
    }

    // Each order starts at degree m and climbs. The grouping of every expression is binding.
    for (int m = 0; m <= maxDegree; ++m) {
        double start = std::sqrt((2 * m + 1) / fourPi);
        for (int k = 1; k < 2 * m; k += 2)
            start *= -std::sqrt(static_cast<double>(k) / (k + 1));
        for (int t = 0; t < polarSamples; ++t)
            legendre[index(m)][index(m)][index(t)] = start * std::pow(polarSin[index(t)], m);

        for (int l = m + 1; l <= maxDegree; ++l) {
            auto& value = legendre[index(l)][index(m)];
            auto const& below = legendre[index(l - 1)][index(m)];
            if (l == m + 1) {
                double const factor = std::sqrt(2.0 * m + 3);
                for (std::size_t t = 0; t < polarSamples; ++t)
                    value[t] = factor * polarCos[t] * below[t];
                continue;
            }
            auto const& below2 = legendre[index(l - 2)][index(m)];
            double const near = std::sqrt((2.0 * l - 1) * (2 * l + 1) * (l - m) / (l + m));
            double const far =
                std::sqrt((2.0 * l + 1) * (l - m) * (l - m - 1) * (l + m - 1) / ((2.0 * l - 3) * (l + m)));
            for (std::size_t t = 0; t < polarSamples; ++t)
                value[t] = (polarCos[t] * near * below[t] - far * below2[t]) / (l - m);
        }
    }
}

Tables const& tables()
{
    static Tables const filled;
    return filled;
}

void setup()
{
    static std::atomic_flag announced;
    tables();
    if (!announced.test_and_set())
        checkpoint("spherical harmonics setup");
}

double Y(int l, int m, double thetaIndex, double phiIndex)
{
    return isBasisFunction(l, m) ? legendrePart(l, m, thetaIndex) * azimuthPart(m, phiIndex) : 0.0;
}

double legendrePart(int l, int m, double thetaIndex)
{
    if (!isBasisFunction(l, m))
        return 0.0;
    double const value = interpolated(tables().legendre[index(l)][index(std::abs(m))], thetaIndex);
    return m == 0 ? value : value * roundedSqrt2;
}

double legendrePart(int l, int m, int t)
{
    return legendrePart(l, m, static_cast<double>(t));
}

double azimuthPart(int m, double phiIndex)
{
    if (m < -maxDegree || m > maxDegree)
        return 0.0;
    Tables const& table = tables();
    return interpolated(m >= 0 ? table.multipleCos[index(m)] : table.multipleSin[index(-m)], phiIndex);
}

double signedLegendre(int l, int m, double thetaIndex)
{
    if (!isBasisFunction(l, m))
        return 0.0;
    return phaseOf(m) * interpolated(tables().legendre[index(l)][index(std::abs(m))], thetaIndex);
}

double signedLegendre(int l, int m, int t)
{
    return signedLegendre(l, m, static_cast<double>(t));
}

}  // namespace koImage::harmonics
