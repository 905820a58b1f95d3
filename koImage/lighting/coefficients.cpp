#include "koImage/lighting/coefficients.h"

#include "koImage/image/numeric.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/harmonics_tables.h"
#include "koImage/lighting/lanes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

namespace koImage {

namespace {

using harmonics::azimuthSamples;
using harmonics::maxDegree;
using harmonics::polarSamples;

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;

constexpr std::size_t index(int i)
{
    return static_cast<std::size_t>(i);
}

/// Channel 0, 1 or 2.
constexpr double channelOf(Double3 const& value, int channel)
{
    return channel == 0 ? value.r : channel == 1 ? value.g : value.b;
}

// --- Light ---

/// A complex number for every order m, -20 to 20; the orders are the lanes, three of them unused.
struct ByOrder {
    static constexpr std::size_t vectors = vectorsFor(2 * maxDegree + 1);

    std::array<Lanes, vectors> re;
    std::array<Lanes, vectors> im;

    static std::size_t vectorOf(int m) { return index((m + maxDegree) / laneCount); }
    static int laneOf(int m) { return (m + maxDegree) % laneCount; }
};

/// e^(-i m angle).
ByOrder rotorsOf(double angle)
{
    ByOrder rotors{};
    for (int m = -maxDegree; m <= maxDegree; ++m) {
        rotors.re[ByOrder::vectorOf(m)][ByOrder::laneOf(m)] = std::cos(m * angle);
        rotors.im[ByOrder::vectorOf(m)][ByOrder::laneOf(m)] = -std::sin(m * angle);
    }
    return rotors;
}

void turn(ByOrder& rotors, ByOrder const& step)
{
    for (std::size_t i = 0; i < ByOrder::vectors; ++i) {
        Lanes const re = rotors.re[i] * step.re[i] - rotors.im[i] * step.im[i];
        rotors.im[i] = rotors.re[i] * step.im[i] + rotors.im[i] * step.re[i];
        rotors.re[i] = re;
    }
}

/// The azimuth transform of one row, by channel.
using RowTransform = std::array<ByOrder, 3>;

/// Adds pixels times rotors, from left to right.
void addColumns(std::span<Float3 const> pixels, std::span<ByOrder const> rotors, RowTransform& transform)
{
    for (std::size_t i = 0; i < ByOrder::vectors; ++i) {
        std::array<Lanes, 3> re;
        std::array<Lanes, 3> im;
        for (std::size_t c = 0; c < 3; ++c) {
            re[c] = transform[c].re[i];
            im[c] = transform[c].im[i];
        }
        for (std::size_t x = 0; x < pixels.size(); ++x) {
            std::array<double, 3> const pixel = {pixels[x].r, pixels[x].g, pixels[x].b};
            for (std::size_t c = 0; c < 3; ++c) {
                re[c] += pixel[c] * rotors[x].re[i];
                im[c] += pixel[c] * rotors[x].im[i];
            }
        }
        for (std::size_t c = 0; c < 3; ++c) {
            transform[c].re[i] = re[c];
            transform[c].im[i] = im[c];
        }
    }
}

std::vector<RowTransform> azimuthTransform(TypedImage<Float3> const& probe, int rows)
{
    // All rows meet the same rotors. They are made for some columns at a time, so that probes of any width
    // need the same memory.
    constexpr int blockColumns = 64;
    int const width = probe.width();
    double const columnAngle = twoPi / width;
    ByOrder const step = rotorsOf(columnAngle);
    ByOrder rotor = rotorsOf(0.0);
    std::vector<ByOrder> block(blockColumns);

    std::vector<RowTransform> transforms(index(rows), RowTransform{});
    for (int first = 0; first < width; first += blockColumns) {
        auto const columns = index(std::min(blockColumns, width - first));
        for (std::size_t x = 0; x < columns; ++x) {
            block[x] = rotor;
            turn(rotor, step);
        }
        for (int r = 0; r < rows; ++r)
            addColumns({probe.pixels() + pixelOffset(first, r, width), columns}, block, transforms[index(r)]);
    }

    for (RowTransform& transform : transforms)
        for (ByOrder& channel : transform)
            for (std::size_t i = 0; i < ByOrder::vectors; ++i) {
                channel.re[i] *= columnAngle;
                channel.im[i] *= columnAngle;
            }
    return transforms;
}

struct Complex {
    double re;
    double im;
};

/// The coefficient of the complex harmonic, by channel.
std::array<Complex, 3> polarIntegral(std::vector<RowTransform> const& transforms, int l, int m)
{
    harmonics::Tables const& tables = harmonics::tables();
    auto const& legendre = tables.legendre[index(l)][index(std::abs(m))];
    double const phase = m < 0 && m % 2 != 0 ? -1.0 : 1.0;

    std::array<Complex, 3> sums{};
    for (std::size_t r = 0; r < transforms.size(); ++r) {
        double const weight = tables.polarSin[r] * (phase * legendre[r]);
        for (std::size_t c = 0; c < 3; ++c) {
            sums[c].re += weight * transforms[r][c].re[ByOrder::vectorOf(m)][ByOrder::laneOf(m)];
            sums[c].im += weight * transforms[r][c].im[ByOrder::vectorOf(m)][ByOrder::laneOf(m)];
        }
    }
    double const rowAngle = pi / static_cast<double>(transforms.size());
    for (Complex& sum : sums)
        sum = {rowAngle * sum.re, rowAngle * sum.im};
    return sums;
}

// --- Reflectance ---

/// Neighbouring output orders q, from `first` up, computed side by side.
struct OrderBlock {
    static constexpr int width = 12;
    static constexpr std::size_t vectors = vectorsFor(width);
    using Row = std::array<Lanes, vectors>;
    using Colour = std::array<Row, 3>;

    int first;
    std::array<Row, azimuthSamples> cosines;  // cos(q phi_k), as cos phi_(k q mod 200)
    // sin theta_t times the Legendre part of (degree, q), at [degree][t]; 0 where q is above the degree.
    std::array<std::array<Row, polarSamples>, maxDegree + 1> weights;

    explicit OrderBlock(int firstOrder) : first(firstOrder)
    {
        harmonics::Tables const& tables = harmonics::tables();
        for (int lane = 0; lane < width; ++lane) {
            int const q = first + lane;
            auto const at = [lane](Row & row) -> auto&
            {
                return row[index(lane / laneCount)];
            };
            for (int k = 0; k < azimuthSamples; ++k)
                at(cosines[index(k)])[lane % laneCount] = tables.azimuthCos[index(k * q % azimuthSamples)];
            for (int degree = 0; degree <= maxDegree; ++degree)
                for (int t = 0; t < polarSamples; ++t)
                    at(weights[index(degree)][index(t)])[lane % laneCount] =
                        q > degree ? 0.0 : tables.polarSin[index(t)] * harmonics::legendrePart(degree, q, t);
        }
    }
};

/// The azimuth step for one pair of polar angles.
OrderBlock::Colour azimuthStep(OrderBlock const& block, Double3 const* samples)
{
    OrderBlock::Colour sums{};
    for (std::size_t k = 0; k < azimuthSamples; ++k) {
        std::array<double, 3> const sample = {samples[k].r, samples[k].g, samples[k].b};
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t i = 0; i < OrderBlock::vectors; ++i)
                sums[c][i] += block.cosines[k][i] * sample[c];
    }
    for (OrderBlock::Row& row : sums)
        for (Lanes& lanes : row)
            lanes *= 0.05568327996831707;  // pi / 100 sqrt pi
    return sums;
}

/// The sum over one polar angle of weights times values.
OrderBlock::Colour polarStep(std::array<OrderBlock::Row, polarSamples> const& weights,
                             OrderBlock::Colour const* values, std::size_t stride)
{
    OrderBlock::Colour sums{};
    for (std::size_t t = 0; t < polarSamples; ++t)
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t i = 0; i < OrderBlock::vectors; ++i)
                sums[c][i] += weights[t][i] * values[t * stride][c][i];
    return sums;
}

void computeBlock(koUtil::ArrayN<3, Double3> const& samples, koUtil::ArrayN<3, Double3>& coeffs, int order,
                  OrderBlock const& block)
{
    // The integral over the outgoing angle, at [incoming angle][p].
    int const degrees = order + 1;
    std::vector<OrderBlock::Colour> outgoing(index(polarSamples * degrees));
    std::vector<OrderBlock::Colour> azimuths(polarSamples);
    for (int i = 0; i < polarSamples; ++i) {
        for (int j = 0; j < polarSamples; ++j)
            azimuths[index(j)] = azimuthStep(block, &samples(i, j, 0));
        for (int p = block.first; p <= order; ++p) {
            OrderBlock::Colour& colour = outgoing[index(i * degrees + p)];
            colour = polarStep(block.weights[index(p)], azimuths.data(), 1);
            for (OrderBlock::Row& row : colour)
                for (Lanes& lanes : row)
                    lanes *= 0.031415926535897934;  // pi / 100
        }
    }

    for (int l = block.first; l <= maxDegree; ++l)
        for (int p = block.first; p <= order; ++p) {
            OrderBlock::Colour const sums =
                polarStep(block.weights[index(l)], &outgoing[index(p)], index(degrees));
            for (int q = block.first; q <= std::min({l, p, block.first + OrderBlock::width - 1}); ++q) {
                // pi / 100, times sqrt 2 for order 0.
                double const weight = q == 0 ? 0.04442882938158367 : 0.031415926535897934;
                auto const at = [&](int c) {
                    int const lane = q - block.first;
                    return weight * sums[index(c)][index(lane / laneCount)][lane % laneCount];
                };
                coeffs(l, p, q) = {at(0), at(1), at(2)};
            }
        }
}

template <std::size_t N>
bool hasDimensions(koUtil::ArrayN<N, Double3> const& array, std::array<int, N> const& dimensions)
{
    for (std::size_t n = 0; n < N; ++n)
        if (array.dimension(static_cast<int>(n)) != dimensions[n])
            return false;
    return true;
}

constexpr std::array<int, 3> coefficientDimensions = {maxDegree + 1, maxDegree + 1, maxDegree + 1};

// --- Order analysis ---

/// The output degrees that the analysis walks.
constexpr int outputDegrees = 10;

/// What one pass over one channel finds: the energy, and the degree where 97 % of it are reached.
struct Analysis {
    double energy = 0.0;
    int order = 0;
};

constexpr bool isEnough(double energy, double total)
{
    return energy / total > 0.97;
}

Analysis analyseOutput(koUtil::ArrayN<3, Double3> const& brdf, double total, int channel)
{
    Analysis found;
    for (int p = 0; p <= outputDegrees; ++p)
        for (int q = 0; q <= p; ++q)
            for (int l = q; l <= maxDegree; ++l) {
                double const value = channelOf(brdf(l, p, q), channel);
                found.energy += value * value;

                // 0 stands for not found yet, on purpose: energy that lies wholly in degree 0 gives order 1.
                if (found.order == 0 && isEnough(found.energy, total))
                    found.order = p;
            }
    return found;
}

Analysis analyseLight(koUtil::ArrayN<3, Double3> const& brdf, double total, int channel, int outputOrder)
{
    Analysis found;
    bool isFound = false;
    for (int l = 0; l <= maxDegree; ++l)
        for (int p = 0; p <= outputOrder; ++p)
            for (int q = 0; q <= std::min(p, l); ++q) {
                double const value = channelOf(brdf(l, p, q), channel);
                found.energy += value * value;
                if (!isFound && isEnough(found.energy, total)) {
                    isFound = true;
                    found.order = l;
                }
            }
    return found;
}

}  // namespace

void computeLightCoeffs(TypedImage<Float3> const& probe, SphericalHarmonics<Double3>& out)
{
    harmonics::setup();
    out = SphericalHarmonics<Double3>(maxDegree);

    // As many rows as there are polar samples, and pixels for: a size may promise more than there is.
    if (probe.width() < 1 || probe.pixels() == nullptr)
        return;
    std::int64_t const wholeRows = static_cast<std::int64_t>(probe.arrayLength()) / probe.width();
    int const rows = static_cast<int>(std::min<std::int64_t>({polarSamples, probe.height(), wholeRows}));
    if (rows < 1)
        return;

    std::vector<RowTransform> const transforms = azimuthTransform(probe, rows);
    for (int l = 0; l <= maxDegree; ++l) {
        auto const central = polarIntegral(transforms, l, 0);
        out.at(l, 0) = {central[0].re, central[1].re, central[2].re};

        // From the complex harmonics to the real ones. Light is real, so the parts left out are 0 but for
        // rounding.
        constexpr double halfRoot = 0.7071067811865475;  // sqrt(1/2)
        for (int m = 1; m <= l; ++m) {
            double const sign = m % 2 == 0 ? 1.0 : -1.0;
            auto const b = polarIntegral(transforms, l, m);
            auto a = polarIntegral(transforms, l, -m);
            for (Complex& value : a)
                value = {sign * value.re, sign * value.im};
            out.at(l, m) = {(a[0].re + b[0].re) * halfRoot, (a[1].re + b[1].re) * halfRoot,
                            (a[2].re + b[2].re) * halfRoot};
            out.at(l, -m) = {(a[0].im - b[0].im) * halfRoot, (a[1].im - b[1].im) * halfRoot,
                             (a[2].im - b[2].im) * halfRoot};
        }
    }
}

void computeBrdfCoeffs(koUtil::ArrayN<3, Double3> const& samples, koUtil::ArrayN<3, Double3>& coeffs,
                       int order)
{
    harmonics::setup();
    if (!hasDimensions(samples, {polarSamples, polarSamples, azimuthSamples}) ||
        !hasDimensions(coeffs, coefficientDimensions))
        return;

    int const highest = std::min(order, maxDegree);
    for (int first = 0; first <= highest; first += OrderBlock::width)
        computeBlock(samples, coeffs, highest, *std::make_unique<OrderBlock>(first));
}

void computeOrder(SphericalHarmonics<Double3> const& /*light*/, koUtil::ArrayN<3, Double3> const& brdf,
                  Double3 total, int& lightOrder, int& brdfOrder)
{
    lightOrder = 0;
    brdfOrder = 0;
    if (!hasDimensions(brdf, coefficientDimensions))
        return;

    std::array<Analysis, 3> output;
    std::array<Analysis, 3> light;
    for (int c = 0; c < 3; ++c) {
        output[index(c)] = analyseOutput(brdf, channelOf(total, c), c);
        light[index(c)] = analyseLight(brdf, channelOf(total, c), c, output[index(c)].order);
        brdfOrder = std::max(brdfOrder, output[index(c)].order);
    }
    if (brdfOrder == 0)
        brdfOrder = outputDegrees;

    std::printf("BRDF coefficient norm is %lf %lf %lf\n", output[0].energy, output[1].energy,
                output[2].energy);
    std::printf("Percentage accuracy is %lf %lf %lf\n", 100 * output[0].energy / total.r,
                100 * output[1].energy / total.g, 100 * output[2].energy / total.b);
    std::printf("brdfOrder is %d %d %d\n", output[0].order, output[1].order, output[2].order);
    std::printf("Light coefficient norm is %lf %lf %lf\n", light[0].energy, light[1].energy, light[2].energy);
    std::printf("lightOrder is %d %d %d\n", light[0].order, light[1].order, light[2].order);

    // Every degree of the light is used whatever the analysis finds.
    lightOrder = maxDegree;
    checkpoint("order analysis");
}

}  // namespace koImage
