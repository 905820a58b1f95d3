#include "koImage/lighting/irradiance.h"

#include "koImage/envmap/bilinear.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/image/channels.h"
#include "koImage/image/half_runs.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/irradiance_run.h"
#include "koImage/lighting/irradiance_v3.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

namespace koImage {

namespace {

using Sums = std::array<Float3, 9>;
using Run = IrradianceRun;

constexpr float inversePi = 0.31830987f;

#if KO_SIMD_V3

using v3::addRun;

#else

void add(Float3& sum, Float3 const& colour, float constant, float first = 1.0f, float second = 1.0f)
{
    // Factors of 1 change nothing.
    sum.r += constant * colour.r * first * second;
    sum.g += constant * colour.g * first * second;
    sum.b += constant * colour.b * first * second;
}

/// Adds the pixels of a run to the sums, one after the other.
void addRun(Sums& sums, Run const& run)
{
    for (std::size_t i = 0; i < run.count; ++i) {
        Float3 const& c = run.colour[i];
        float const x = run.x[i];
        float const y = run.y[i];
        float const z = run.z[i];
        add(sums[0], c, 0.282095f);
        add(sums[1], c, -0.488603f, y);
        add(sums[2], c, 0.488603f, z);
        add(sums[3], c, -0.488603f, x);
        add(sums[4], c, 1.092548f, x, y);
        add(sums[5], c, -1.092548f, y, z);
        add(sums[6], c, 0.315392f, 3.0f * z * z - 1.0f);
        add(sums[7], c, -1.092548f, x, z);
        add(sums[8], c, 0.546274f, x * x - y * y);
    }
}

#endif

// colours = pixel * weight * 1 / pi, where every pixel has its weight

void weigh(std::span<Float3 const> pixels, float const* weights, Float3* colours)
{
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        Float3 const& p = pixels[i];
        float const w = weights[i];
        colours[i] = {p.r * w * inversePi, p.g * w * inversePi, p.b * w * inversePi};
    }
}

/// Both products round to half, alpha's too, as products of half pixels do; the factors are floats.
void weigh(std::span<Half4 const> pixels, float const* weights, Float3* colours)
{
    std::array<Half4, Run::capacity> halves;
    std::array<Float4, Run::capacity> floats;
    std::size_t const channels = 4 * pixels.size();
    auto const round = [&] {
        floatsToHalves(&floats[0].r, &halves[0].r, channels);
        halvesToFloats(&halves[0].r, &floats[0].r, channels);
    };

    halvesToFloats(&pixels.data()->r, &floats[0].r, channels);
    for (std::size_t i = 0; i < pixels.size(); ++i)
        floats[i] = mapChannels(floats[i], [w = weights[i]](float channel) { return channel * w; });
    round();
    for (std::size_t i = 0; i < pixels.size(); ++i)
        floats[i] = mapChannels(floats[i], [](float channel) { return channel * inversePi; });
    round();
    for (std::size_t i = 0; i < pixels.size(); ++i)
        colours[i] = {floats[i].r, floats[i].g, floats[i].b};
}

/// Calls addRow(y, pixels of row y) for every row; where the array ends early, so do the rows.
template <class Pixel, class AddRow>
void forEachRow(Image const& image, AddRow const& addRow)
{
    auto pixels = pixelsOf<Pixel>(image);
    if (image.width() < 1)
        return;
    for (int y = 0; y < image.height() && !pixels.empty(); ++y) {
        auto const row = pixels.first(std::min(pixels.size(), static_cast<std::size_t>(image.width())));
        addRow(y, row);
        pixels = pixels.subspan(row.size());
    }
}

/// Any map: the direction of every pixel.
template <class Pixel>
void accumulatePixels(EnvironmentMap const& map, Image const& image, Sums& sums)
{
    Run run;
    std::array<Pixel, Run::capacity> pixels;
    std::array<float, Run::capacity> weights;
    auto const flush = [&] {
        weigh(std::span(pixels).first(run.count), weights.data(), run.colour.data());
        addRun(sums, run);
        run.count = 0;
    };

    forEachRow<Pixel>(image, [&](int y, std::span<Pixel const> row) {
        float const v = centreOf(y, image.invHeight());
        for (std::size_t x = 0; x < row.size(); ++x) {
            std::size_t const i = run.count;
            koLinear::VectorFlt direction;
            weights[i] = 0.0f;
            if (!map.coordToDir(centreOf(static_cast<int>(x), image.invWidth()), v, direction, weights[i],
                                true))
                continue;
            pixels[i] = row[x];
            run.x[i] = direction.x;
            run.y[i] = direction.y;
            run.z[i] = direction.z;
            if (++run.count == Run::capacity)
                flush();
        }
    });
    flush();
}

/// A LatLongMap: only the longitude differs along a row, and only the latitude along a column.
template <class Pixel>
void accumulateLatLong(LatLongMap const& map, Image const& image, Sums& sums)
{
    auto const columns =
        std::min(pixelsOf<Pixel>(image).size(), static_cast<std::size_t>(std::max(image.width(), 0)));
    std::vector<double> columnX(columns);
    std::vector<double> columnY(columns);
    for (std::size_t x = 0; x < columns; ++x) {
        double const b = LatLongMap::longitude(centreOf(static_cast<int>(x), image.invWidth()));
        columnX[x] = -std::sin(b);
        columnY[x] = -std::cos(b);
    }

    Run run;
    std::array<float, Run::capacity> weights;
    forEachRow<Pixel>(image, [&](int y, std::span<Pixel const> row) {
        float const a = LatLongMap::latitude(centreOf(y, image.invHeight()));
        float const c = LatLongMap::cosineOfLatitude(a);
        run.z.fill(static_cast<float>(std::sin(double{a})));
        weights.fill(c * map.omegaFactor());
        for (std::size_t first = 0; first < row.size(); first += Run::capacity) {
            run.count = std::min(Run::capacity, row.size() - first);
            weigh(row.subspan(first, run.count), weights.data(), run.colour.data());
            for (std::size_t i = 0; i < run.count; ++i) {
                run.x[i] = static_cast<float>(columnX[first + i] * double{c});
                run.y[i] = static_cast<float>(columnY[first + i] * double{c});
            }
            addRun(sums, run);
        }
    });
}

/// n'Mn for n = (x, y, z, 1).
double quadraticForm(koLinear::ProjMatrix const& m, double x, double y, double z)
{
    std::array<double, 4> const n = {x, y, z, 1.0};
    double sum = 0.0;
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            sum += n[static_cast<std::size_t>(row)] * m(row, column) * n[static_cast<std::size_t>(column)];
    return sum;
}

koLinear::ProjMatrix matrixOf(Sums const& sums, float Float3::*channel)
{
    constexpr float c1 = 0.429043f;
    constexpr float c2 = 0.511664f;
    constexpr float c3 = 0.743125f;
    constexpr float c4 = 0.886227f;
    constexpr float c5 = 0.247708f;
    auto const sum = [&](std::size_t i) { return sums[i].*channel; };
    float const elements[4][4] = {
        {c1 * sum(8), c1 * sum(4), c1 * sum(7), c2 * sum(3)},
        {c1 * sum(4), -c1 * sum(8), c1 * sum(5), c2 * sum(1)},
        {c1 * sum(7), c1 * sum(5), c3 * sum(6), c2 * sum(2)},
        {c2 * sum(3), c2 * sum(1), c2 * sum(2), sum(6) * -c5 + sum(0) * c4},
    };

    koLinear::ProjMatrix matrix(0.0);
    std::copy_n(&elements[0][0], 16, matrix.data());
    return matrix;
}

}  // namespace

void IrradianceAlg::accumulate(EnvironmentMap const& map)
{
    Image const* const image = map.image();
    if (image == nullptr)
        return;
    dispatchPixel(image->pixelType(), IrradiancePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        if (auto const* const latLong = dynamic_cast<LatLongMap const*>(&map))
            accumulateLatLong<Pixel>(*latLong, *image, sums_);
        else
            accumulatePixels<Pixel>(map, *image, sums_);
    });
}

void IrradianceAlg::getCoefficients(Float3* out) const
{
    std::copy(sums_.begin(), sums_.end(), out);
}

void IrradianceAlg::getMatrices(koLinear::ProjMatrix& red, koLinear::ProjMatrix& green,
                                koLinear::ProjMatrix& blue) const
{
    red = matrixOf(sums_, &Float3::r);
    green = matrixOf(sums_, &Float3::g);
    blue = matrixOf(sums_, &Float3::b);
}

void IrradianceAlg::getIrradiance(Irradiance& irradiance) const
{
    getMatrices(irradiance.red, irradiance.green, irradiance.blue);
}

Float3 diffuseRadiance(Irradiance const& irradiance, koLinear::VectorFlt normal)
{
    // Turned by half a turn about z: the matrices hold the light of the opposite side, on purpose.
    auto const radiance = [&](koLinear::ProjMatrix const& matrix) {
        return static_cast<float>(quadraticForm(matrix, -normal.x, -normal.y, normal.z));
    };
    return {radiance(irradiance.red), radiance(irradiance.green), radiance(irradiance.blue)};
}

void computeDiffuseMap(Irradiance const& irradiance, EnvironmentMap& map)
{
    Image* const image = map.image();
    if (image == nullptr || image->pixelType() != PixelTypeId::Float3)
        return;
    Float3* out = static_cast<TypedImage<Float3>*>(image)->pixels();
    forEachRow<Float3>(*image, [&](int y, std::span<Float3 const> row) {
        for (std::size_t x = 0; x < row.size(); ++x) {
            koLinear::VectorFlt normal;
            bool const inside = map.coordToDir(centreOf(static_cast<int>(x), image->invWidth()),
                                               centreOf(y, image->invHeight()), normal);
            *out++ = inside ? diffuseRadiance(irradiance, normal) : Float3{};
        }
    });
}

}  // namespace koImage
