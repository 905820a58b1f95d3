#include "koImage/lighting/lobes.h"

#include "koImage/lighting/harmonics_tables.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <numbers>
#include <utility>

namespace koImage {

namespace {

using harmonics::azimuthSamples;
using harmonics::polarSamples;
using std::numbers::pi;

Double3 scaled(Double3 const& colour, double value)
{
    return {colour.r * value, colour.g * value, colour.b * value};
}

/// Fills the samples with colour * lobe(cos alpha).
template <class Lobe>
Double3 sampleLobe(ReflectanceSamples& samples, Double3 const& colour, Lobe const& lobe)
{
    harmonics::Tables const& tables = harmonics::tables();
    for (std::size_t i = 0; i < polarSamples; ++i)
        for (std::size_t j = 0; j < polarSamples; ++j) {
            Double3* const row = &samples(static_cast<int>(i), static_cast<int>(j), 0);
            double const cosines = tables.polarCos[i] * tables.polarCos[j];
            double const sines = tables.polarSin[i] * tables.polarSin[j];
            for (std::size_t k = 0; k <= azimuthSamples / 2; ++k)
                row[k] = scaled(colour, lobe(cosines - sines * tables.azimuthCos[k]));

            // The other half of the circle mirrors the first.
            std::reverse_copy(row + 1, row + azimuthSamples / 2, row + azimuthSamples / 2 + 1);
        }
    return reflectanceEnergy(samples);
}

}  // namespace

PhongLobe::PhongLobe(double exponent, Double3 colour)
    : exponent_(exponent > 0.0 ? std::min(exponent, maxExponent) : 0.0),
      colour_(colour)
{
}

Double3 PhongLobe::sample(ReflectanceSamples& samples) const
{
    double const scale = (exponent_ + 1.0) / (2.0 * pi);
    return sampleLobe(samples, colour_, [&](double c) {
        // Sines and cosines are rounded, so c may come out a little above 1.
        return c > 0.0 ? scale * std::pow(std::min(c, 1.0), exponent_) : 0.0;
    });
}

Lambert::Lambert(Double3 colour) : colour_(colour) {}

Double3 Lambert::sample(ReflectanceSamples& samples) const
{
    auto const& cosines = harmonics::tables().polarCos;
    for (int i = 0; i < polarSamples; ++i) {
        Double3 const value = scaled(colour_, std::max(0.0, cosines[static_cast<std::size_t>(i)]) / pi);
        std::fill_n(&samples(i, 0, 0), samples.stride(0), value);
    }
    return reflectanceEnergy(samples);
}

GgxLobe::GgxLobe(double roughness, Double3 colour)
    : roughness_(roughness < 1.0 ? std::max(roughness, minRoughness) : 1.0),
      colour_(colour)
{
}

Double3 GgxLobe::sample(ReflectanceSamples& samples) const
{
    double const a = roughness_ * roughness_;
    double const a2 = a * a;
    return sampleLobe(samples, colour_, [&](double c) {
        if (c <= 0.0)
            return 0.0;
        double const h = (1.0 + c) / 2.0;
        double const base = (a2 - 1.0) * h + 1.0;
        double const distribution = a2 / (pi * base * base);
        double const shadowing = 2.0 * c / (c + std::sqrt(a2 + (1.0 - a2) * c * c));
        return distribution * shadowing / 4.0;
    });
}

CallableReflectance::CallableReflectance(Function function, Double3 colour)
    : function_(std::move(function)),
      colour_(colour)
{
    assert(function_);
}

Double3 CallableReflectance::sample(ReflectanceSamples& samples) const
{
    constexpr double step = 0.031415926535897934;  // pi / 100
    for (int i = 0; i < polarSamples; ++i)
        for (int j = 0; j < polarSamples; ++j)
            for (int k = 0; k < azimuthSamples; ++k) {
                Double3 const value = function_(i * step, j * step, k * step);
                samples(i, j, k) = {value.r * colour_.r, value.g * colour_.g, value.b * colour_.b};
            }
    return reflectanceEnergy(samples);
}

}  // namespace koImage
