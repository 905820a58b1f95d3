// The lighting pipeline as it is defined, step by step and one pixel at a time: what the tests compare with
// to the bit, and the yardstick of the benchmarks.
#pragma once

#include "koBase/array_n.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/rotation_matrices.h"
#include "koImage/lighting/spherical_harmonics.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <memory>
#include <vector>

namespace koImage::testing {

// Colours as three channels that a loop can run over.
struct Channels {
    std::array<double, 3> c{};

    Channels() = default;
    Channels(Double3 const& value) : c{value.r, value.g, value.b} {}  // NOLINT(google-explicit-constructor)
    operator Double3() const { return {c[0], c[1], c[2]}; }           // NOLINT(google-explicit-constructor)

    void add(double weight, Channels const& value)
    {
        for (std::size_t i = 0; i < 3; ++i)
            c[i] += weight * value.c[i];
    }
};

/// The tables of the basis.
struct HarmonicsByHand {
    std::array<double, 100> polarCos, polarSin;
    std::array<double, 200> azimuthCos, azimuthSin;
    double multiple[200][41][2];
    double legendre[21][21][100];

    HarmonicsByHand()
    {
        for (int t = 0; t < 100; ++t) {
            polarCos[std::size_t(t)] = std::cos(t * 0.031415926535897934);
            polarSin[std::size_t(t)] = std::sin(t * 0.031415926535897934);
        }
        for (int j = 0; j < 200; ++j) {
            double const phi = j * 0.031415926535897934;
            azimuthCos[std::size_t(j)] = std::cos(phi);
            azimuthSin[std::size_t(j)] = std::sin(phi);
            for (int k = 0; k <= 40; ++k) {
                multiple[j][k][0] = std::cos((k - 20) * phi);
                multiple[j][k][1] = std::sin((k - 20) * phi);
            }
        }
        for (int l = 0; l <= 20; ++l)
            for (int m = 0; m <= 20; ++m)
                for (int t = 0; t < 100; ++t)
                    legendre[l][m][t] = m > l ? 0.0 : legendreAt(l, m, t);
    }

    double legendreAt(int l, int m, int t) const
    {
        double const cosine = polarCos[std::size_t(t)];
        if (l == m) {
            double value = std::sqrt((2.0 * m + 1) / 12.566370614359172);
            for (int k = 1; k <= 2 * m - 1; k += 2)
                value = value * -std::sqrt(k / (k + 1.0));
            return value * std::pow(polarSin[std::size_t(t)], m);
        }
        if (l == m + 1)
            return std::sqrt(2.0 * m + 3) * cosine * legendre[m][m][t];
        double const a = std::sqrt((2.0 * l - 1) * (2.0 * l + 1) * (l - m) / (l + m));
        double const b =
            std::sqrt((2.0 * l + 1) * (l - m) * (l - m - 1) * (l + m - 1) / ((2.0 * l - 3) * (l + m)));
        return (cosine * a * legendre[l - 1][m][t] - b * legendre[l - 2][m][t]) / (l - m);
    }

    /// Legendre part with the rounded square root of 2.
    double part(int l, int m, int t) const
    {
        double const value = legendre[l][std::abs(m)][t];
        return m != 0 ? value * 1.4142136 : value;
    }

    /// Legendre part with the sign of the order.
    double signedPart(int l, int m, int t) const
    {
        double const value = legendre[l][std::abs(m)][t];
        return m <= 0 && m % 2 != 0 ? -value : value;
    }

    double Y(int l, int m, double theta, double phi) const
    {
        auto const between = [](double position, auto const& value) {
            int const i = static_cast<int>(position);
            double const d = position - i;
            return std::abs(d) < 0.0001 ? value(i) : (1 - d) * value(i) + d * value(i + 1);
        };
        double polar = between(theta, [&](int t) { return legendre[l][std::abs(m)][t]; });
        if (m != 0)
            polar *= 1.4142136;
        return polar * between(phi, [&](int j) { return multiple[j][std::abs(m) + 20][m < 0 ? 1 : 0]; });
    }

    static HarmonicsByHand const& get()
    {
        static auto const tables = std::make_unique<HarmonicsByHand>();
        return *tables;
    }
};

inline SphericalHarmonics<Double3> lightByHand(TypedImage<Float3> const& probe)
{
    using Complex = std::complex<double>;
    HarmonicsByHand const& basis = HarmonicsByHand::get();
    int const width = probe.width();
    int const height = probe.height();
    SphericalHarmonics<Double3> light(20);

    for (int channel = 0; channel < 3; ++channel) {
        std::vector<std::array<Complex, 41>> transform(std::size_t(height), std::array<Complex, 41>{});
        double const dPhi = 6.283185307179586 / width;
        for (int m = -20; m <= 20; ++m)
            for (int r = 0; r < height; ++r) {
                double re = 1, im = 0;
                double const stepRe = std::cos(m * dPhi), stepIm = -std::sin(m * dPhi);
                double sumRe = 0, sumIm = 0;
                for (int x = 0; x < width; ++x) {
                    Float3 const& pixel = probe.pixels()[r * width + x];
                    double const value = channel == 0 ? pixel.r : channel == 1 ? pixel.g : pixel.b;
                    sumRe += value * re;
                    sumIm += value * im;
                    double const nextRe = re * stepRe - im * stepIm;
                    im = re * stepIm + im * stepRe;
                    re = nextRe;
                }
                transform[std::size_t(r)][std::size_t(m + 20)] = {dPhi * sumRe, dPhi * sumIm};
            }

        std::array<Complex, 441> c;
        double const dTheta = 3.141592653589793 / height;
        for (int l = 0; l <= 20; ++l)
            for (int m = -l; m <= l; ++m) {
                double sumRe = 0, sumIm = 0;
                for (int r = 0; r < height; ++r) {
                    double const weight = basis.polarSin[std::size_t(r)] * basis.signedPart(l, m, r);
                    Complex const value = transform[std::size_t(r)][std::size_t(m + 20)];
                    sumRe += weight * value.real();
                    sumIm += weight * value.imag();
                }
                c[std::size_t(l * l + l + m)] = {dTheta * sumRe, dTheta * sumIm};
            }

        std::array<Complex, 441> real = c;
        for (int l = 1; l <= 20; ++l)
            for (int m = 1; m <= l; ++m) {
                double const s = m % 2 == 0 ? 1 : -1;
                Complex const a = s * c[std::size_t(l * l + l - m)];
                Complex const b = c[std::size_t(l * l + l + m)];
                double const half = 0.7071067811865475;
                real[std::size_t(l * l + l + m)] = (a + b) * half;
                real[std::size_t(l * l + l - m)] = {(a.imag() - b.imag()) * half,
                                                    (b.real() - a.real()) * half};
            }
        for (int i = 0; i < 441; ++i)
            (channel == 0   ? light[i].r
             : channel == 1 ? light[i].g
                            : light[i].b) = real[std::size_t(i)].real();
    }
    return light;
}

inline void brdfByHand(koUtil::ArrayN<3, Double3> const& samples, koUtil::ArrayN<3, Double3>& coeffs,
                       int order)
{
    HarmonicsByHand const& basis = HarmonicsByHand::get();
    koUtil::ArrayN<3, Double3> f(100, 100, 21);
    for (int i = 0; i < 100; ++i)
        for (int j = 0; j < 100; ++j)
            for (int q = 0; q <= order; ++q) {
                Channels sum;
                for (int k = 0; k < 200; ++k)
                    sum.add(basis.azimuthCos[std::size_t(k * q % 200)], samples(i, j, k));
                Channels scaled;
                scaled.add(0.05568327996831707, sum);
                f(i, j, q) = scaled;
            }

    for (int q = 0; q <= order; ++q)
        for (int p = q; p <= order; ++p) {
            std::array<Channels, 100> h;
            for (int i = 0; i < 100; ++i) {
                Channels sum;
                for (int j = 0; j < 100; ++j)
                    sum.add(basis.polarSin[std::size_t(j)] * basis.part(p, q, j), f(i, j, q));
                h[std::size_t(i)] = {};
                h[std::size_t(i)].add(0.031415926535897934, sum);
            }
            for (int l = q; l <= 20; ++l) {
                Channels sum;
                for (int i = 0; i < 100; ++i)
                    sum.add(basis.polarSin[std::size_t(i)] * basis.part(l, q, i), h[std::size_t(i)]);
                Channels scaled;
                scaled.add(q == 0 ? 0.04442882938158367 : 0.031415926535897934, sum);
                coeffs(l, p, q) = scaled;
            }
        }
}

inline koUtil::ArrayN<4, Double3> convolutionByHand(SphericalHarmonics<Double3> const& light,
                                                    koUtil::ArrayN<3, Double3> const& brdf, int lightOrder)
{
    koUtil::ArrayN<4, Double3> convolution(21, 41, 21, 41);
    convolution.fill({0, 0, 0});
    for (int l = 0; l <= lightOrder; ++l)
        for (int p = 0; p <= 10; ++p)
            for (int q = 0; q <= std::min(l, p); ++q) {
                double const a = q == 0 ? 2.5066282746310007 : 1.7724538509055159;
                for (int m = -l; m <= l; ++m) {
                    Double3 const& x = light.at(l, m);
                    Double3 const& y = brdf(l, p, q);
                    Double3 const value = {a * x.r * y.r, a * x.g * y.g, a * x.b * y.b};
                    convolution(l, m + 20, p, q + 20) = value;
                    convolution(l, m + 20, p, -q + 20) = value;
                }
            }
    return convolution;
}

/// The loaded rotation matrices at [l][m + 20][n + 20][t].
inline koUtil::ArrayN<4, double> rotationsByHand()
{
    koUtil::ArrayN<4, double> rotations(21, 41, 41, 100);
    for (int l = 0; l <= 20; ++l)
        for (int m = -20; m <= 20; ++m)
            for (int n = -20; n <= 20; ++n)
                for (int t = 0; t < 100; ++t)
                    rotations(l, m + 20, n + 20, t) = rotationMatrixEntry(l, m, n, t);
    return rotations;
}

inline void reflectionByHand(SphericalHarmonics<Double3> const& light, koUtil::ArrayN<3, Double3> const& brdf,
                             koUtil::ArrayN<4, double> const& rotations, int lightOrder,
                             TypedImage<HarmonicsPixel>& map)
{
    auto const convolution = convolutionByHand(light, brdf, lightOrder);
    map.resize(200, 100);
    HarmonicsByHand const& basis = HarmonicsByHand::get();
    for (int t = 0; t < 100; ++t)
        for (int p = 0; p <= 10; ++p)
            for (int q = -p; q <= p; ++q) {
                std::array<Channels, 21> a{}, b{};
                for (int l = std::abs(q); l <= lightOrder; ++l)
                    for (int k = -l; k <= l; ++k) {
                        Channels const c = convolution(l, k + 20, p, q + 20);
                        double const s = k < 0 ? 1 : -1;
                        a[std::size_t(std::abs(k))].add(rotations(l, k + 20, q + 20, t), c);
                        b[std::size_t(std::abs(k))].add(s * rotations(l, -k + 20, q + 20, t), c);
                    }
                for (int x = 0; x < 200; ++x) {
                    std::array<double, 3> sum{};
                    for (int j = 0; j <= lightOrder; ++j) {
                        auto const i = std::size_t(j * x % 200);
                        for (std::size_t c = 0; c < 3; ++c)
                            sum[c] += a[std::size_t(j)].c[c] * basis.azimuthCos[i] +
                                      b[std::size_t(j)].c[c] * basis.azimuthSin[i];
                    }
                    map.pixels()[t * 200 + x].at(p, q) = {sum[0], sum[1], sum[2]};
                }
            }
}

inline void specularMapByHand(TypedImage<HarmonicsPixel> const& reflection, std::array<double, 3> const& view,
                              int order, double scale, TypedImage<Float3>& out)
{
    HarmonicsByHand const& basis = HarmonicsByHand::get();
    int const width = reflection.width();
    int const height = reflection.height();
    double const theta = std::acos(std::clamp(view[2], -1.0, 1.0));
    double phi = std::atan2(view[1], view[0]);
    if (phi < 0)
        phi += 6.283185307179586;
    double const t = std::clamp(theta / 3.141592653589793 * height, 0.0, height - 1.0001);
    double const s = std::clamp(phi / 6.283185307179586 * width, 0.0, width - 1.0001);

    out.resize(width, height);
    for (int i = 0; i < width * height; ++i) {
        Channels sum;
        for (int l = 0; l <= order; ++l)
            for (int m = -l; m <= l; ++m)
                sum.add(basis.Y(l, m, t, s), reflection.pixels()[i].at(l, m));
        for (double& value : sum.c)
            value = (value < 0 ? 0 : value) * scale;
        out.pixels()[i] = {float(sum.c[0]), float(sum.c[1]), float(sum.c[2])};
    }
}

/// Samples of a reflectance that is none: any numbers, some negative.
inline koUtil::ArrayN<3, Double3> randomReflectance(std::uint32_t seed)
{
    koUtil::ArrayN<3, Double3> samples(100, 100, 200);
    Random random(seed);
    for (std::int64_t i = 0; i < samples.size(); ++i)
        samples.data()[i] = {randomChannel<double>(random), randomChannel<double>(random),
                             randomChannel<double>(random) - 1};
    return samples;
}

}  // namespace koImage::testing
