#include "koImage/lighting/reflection_coeffs.h"

#include "koImage/image/numeric.h"
#include "koImage/image/simd.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/harmonics_tables.h"
#include "koImage/lighting/lanes.h"
#include "koImage/lighting/rotation_table.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace koImage {

namespace {

using harmonics::maxDegree;

constexpr int mapWidth = harmonics::azimuthSamples;
constexpr int mapHeight = RotationTable::tilts;
constexpr int outputDegree = HarmonicsPixel::order();

constexpr std::size_t index(int i)
{
    return static_cast<std::size_t>(i);
}

/// Light times reflectance: an entry for each light (l, m) and each output (p, q) with q <= l, q >= 0. Those
/// of -q would be the same.
class Convolution {
public:
    Convolution(SphericalHarmonics<Double3> const& light, koUtil::ArrayN<3, Double3> const& brdf,
                int lightOrder)
        : lightOrder_(std::min({lightOrder, light.order(), maxDegree}))
    {
        std::size_t size = 0;
        for (int q = 0; q <= outputDegree; ++q) {
            start_[index(q)] = size;
            size +=
                index(std::max(0, (lightOrder_ + 1) * (lightOrder_ + 1) - q * q) * (outputDegree + 1 - q));
        }
        entries_.resize(size);

        for (int q = 0; q <= outputDegree; ++q) {
            double const weight = q == 0 ? 2.5066282746310007 : 1.7724538509055159;  // sqrt(2 pi), sqrt(pi)
            for (int l = q; l <= lightOrder_; ++l)
                for (int m = -l; m <= l; ++m) {
                    Double3 const scaled = {weight * light.at(l, m).r, weight * light.at(l, m).g,
                                            weight * light.at(l, m).b};
                    for (int p = q; p <= outputDegree; ++p) {
                        Double3 const& reflectance = brdf(l, p, q);
                        entries_[offsetOf(l, m, q) + index(p - q)] = {
                            scaled.r * reflectance.r, scaled.g * reflectance.g, scaled.b * reflectance.b};
                    }
                }
        }
    }

    /// The highest degree of light that it holds.
    int lightOrder() const { return lightOrder_; }

    /// The entries of outputs (p, q), (p + 1, q), ...
    Double3 const* at(int l, int m, int p, int q) const
    {
        return entries_.data() + offsetOf(l, m, q) + index(p - q);
    }

private:
    std::size_t offsetOf(int l, int m, int q) const
    {
        return start_[index(q)] + index((l * (l + 1) + m - q * q) * (outputDegree + 1 - q));
    }

    int lightOrder_;
    std::array<std::size_t, outputDegree + 1> start_{};
    std::vector<Double3> entries_;
};

// The 363 numbers of a pixel are made in blocks of eight. Blocks begin where the 32-byte lines of the pixels
// do: eight bytes of degree and three numbers before the second block.
constexpr int blockLength = 2 * laneCount;
constexpr int numbersPerPixel = 3 * HarmonicsPixel::size();
constexpr int unusedNumbers = 5;
constexpr int blockCount = (numbersPerPixel + unusedNumbers) / blockLength;
static_assert(blockCount * blockLength == numbersPerPixel + unusedNumbers);

using Block = std::array<Lanes, 2>;

/// The Fourier series of a row of the map, A_j cos(j phi) + B_j sin(j phi), at [block][j].
struct Term {
    Block a;
    Block b;
};
using Series = std::array<Term, maxDegree + 1>;
using RowSeries = std::array<Series, blockCount>;

// Rows are tilted side by side: the table holds neighbouring tilts next to each other.
constexpr int rowsAtOnce = laneCount;

class CreateSHRM : public koUtil::ThreadedAlg {
public:
    CreateSHRM(Convolution const& convolution, RotationTable const& rotations,
               TypedImage<HarmonicsPixel>& map)
        : convolution_(convolution),
          rotations_(rotations),
          map_(map)
    {
        harmonics::Tables const& tables = harmonics::tables();
        for (int x = 0; x < quarter; ++x)
            for (int j = 0; j <= maxDegree; ++j)
                for (int k = 0; k < 4; ++k) {
                    auto const at = index(j * (x + k * quarter) % mapWidth);
                    cosSin_[index(x)][index(j)][index(k)] = {tables.azimuthCos[at], tables.azimuthSin[at]};
                }
    }

    void work(int threadIndex, int threadCount) override
    {
        // The first parts take one row more where the rows do not divide evenly.
        int const rows = mapHeight / threadCount;
        int const extra = mapHeight % threadCount;
        int const first = rows * threadIndex + std::min(threadIndex, extra);
        int const last = first + rows + (threadIndex < extra ? 1 : 0);

        std::vector<RowSeries> series;
        for (int t = first; t < last; t += rowsAtOnce) {
            series.resize(rowsAtOnce);

            // The last rows of the table are tilted together with rows before them.
            int const start = std::min(t, mapHeight - rowsAtOnce);
            tilt(start, series);
            for (int row = t; row < std::min(t + rowsAtOnce, last); ++row)
                turn(series[index(row - start)], map_.pixels() + pixelOffset(0, row, mapWidth));
        }
    }

private:
    static constexpr int quarter = mapWidth / 4;

    struct CosSin {
        double cosine;
        double sine;
    };

    void tilt(int t, std::vector<RowSeries>& series) const
    {
        // The entries lie far apart: asked for all at once they arrive together, not one after the other.
        for (int l = 0; l <= convolution_.lightOrder(); ++l)
            for (int m = -l; m <= l; ++m)
                for (int q = -std::min(l, outputDegree); q <= std::min(l, outputDegree); ++q)
                    prefetchAhead(rotations_.at(l, m, q) + t, 0);

        for (int q = -outputDegree; q <= outputDegree; ++q) {
            int p = std::abs(q);
            for (; p < outputDegree; p += 2)
                tiltOutputs<2>(t, p, q, series);
            if (p == outputDegree)
                tiltOutputs<1>(t, p, q, series);
        }
    }

    /// The series of outputs (p, q), (p + 1, q), ..., `count` of them.
    template <std::size_t count>
    void tiltOutputs(int t, int p, int q, std::vector<RowSeries>& series) const
    {
        using Sums = std::array<std::array<Lanes, 3>, count>;
        int const order = std::abs(q);
        for (int j = 0; j <= convolution_.lightOrder(); ++j) {
            Sums a{};
            Sums b{};
            for (int l = std::max(order, j); l <= convolution_.lightOrder(); ++l) {
                Lanes plus;
                Lanes minus;
                loadLanes(plus, rotations_.at(l, j, q) + t);
                loadLanes(minus, rotations_.at(l, -j, q) + t);
                if (j > 0) {
                    addProducts<count>(convolution_.at(l, -j, p, order), minus, a);
                    addProducts<count>(convolution_.at(l, -j, p, order), plus, b);
                }
                // Minus for order 0 as well, on purpose.
                addProducts<count>(convolution_.at(l, j, p, order), plus, a);
                addProducts<count>(convolution_.at(l, j, p, order), -minus, b);
            }
            for (std::size_t i = 0; i < count; ++i)
                for (int c = 0; c < 3; ++c) {
                    int const degree = p + static_cast<int>(i);
                    int const number = (degree * (degree + 1) + q) * 3 + c + unusedNumbers;
                    int const lane = number % blockLength;
                    for (int row = 0; row < rowsAtOnce; ++row) {
                        Term& term = series[index(row)][index(number / blockLength)][index(j)];
                        term.a[index(lane / laneCount)][lane % laneCount] = a[i][index(c)][row];
                        term.b[index(lane / laneCount)][lane % laneCount] = b[i][index(c)][row];
                    }
                }
        }
    }

    template <std::size_t count, class Sums>
    static void addProducts(Double3 const* entries, Lanes const& rotation, Sums& sums)
    {
        for (std::size_t i = 0; i < count; ++i) {
            sums[i][0] += rotation * entries[i].r;
            sums[i][1] += rotation * entries[i].g;
            sums[i][2] += rotation * entries[i].b;
        }
    }

    /// Evaluates the series of a row at every column.
    void turn(RowSeries const& series, HarmonicsPixel* pixels) const
    {
        for (int x = 0; x < quarter; ++x)
            for (int block = 0; block < blockCount; ++block) {
                std::array<Block, 4> sums{};
                for (int j = 0; j <= convolution_.lightOrder(); ++j) {
                    Term const& term = series[index(block)][index(j)];
                    auto const& columns = cosSin_[index(x)][index(j)];

                    // Columns a quarter turn apart share their terms where j is a multiple of 4, columns half
                    // a turn apart where it is even.
                    if (j % 4 == 0)
                        addTerm<1>(term, columns, sums);
                    else if (j % 2 == 0)
                        addTerm<2>(term, columns, sums);
                    else
                        addTerm<4>(term, columns, sums);
                }
                for (int k = 0; k < 4; ++k)
                    store(sums[index(k)], block, pixels[x + k * quarter]);
            }
    }

    template <std::size_t distinct>
    static void addTerm(Term const& term, std::array<CosSin, 4> const& columns, std::array<Block, 4>& sums)
    {
        for (std::size_t i = 0; i < 2; ++i)
            for (std::size_t k = 0; k < distinct; ++k) {
                Lanes const value = term.a[i] * columns[k].cosine + term.b[i] * columns[k].sine;
                for (std::size_t column = k; column < 4; column += distinct)
                    sums[column][i] += value;
            }
    }

    static void store(Block const& sums, int block, HarmonicsPixel& pixel)
    {
        constexpr std::size_t unusedBytes = unusedNumbers * sizeof(double);
        auto* const numbers = reinterpret_cast<std::byte*>(&pixel[0]);
        if (block > 0)
            std::memcpy(numbers + index(block) * sizeof sums - unusedBytes, &sums, sizeof sums);
        else
            std::memcpy(numbers, reinterpret_cast<std::byte const*>(&sums) + unusedBytes,
                        sizeof sums - unusedBytes);
    }

    Convolution const& convolution_;
    RotationTable const& rotations_;
    TypedImage<HarmonicsPixel>& map_;

    // cos and sin of j phi at [x][j][k], for the columns x, x + 50, x + 100, x + 150.
    std::array<std::array<std::array<CosSin, 4>, maxDegree + 1>, quarter> cosSin_;
};

}  // namespace

void computeReflectionCoeffs(SphericalHarmonics<Double3> const& light, koUtil::ArrayN<3, Double3> const& brdf,
                             int lightOrder, int /*brdfOrder*/, TypedImage<HarmonicsPixel>& out,
                             koUtil::Progress* progress, koUtil::ThreadPool& pool)
{
    RotationTable const* const rotations = loadedRotations();
    if (rotations == nullptr || brdf.dimension(0) != maxDegree + 1 || brdf.dimension(1) != maxDegree + 1 ||
        brdf.dimension(2) != maxDegree + 1)
        return;

    Convolution const convolution(light, brdf, lightOrder);
    checkpoint("convolution");
    koUtil::setProgress(progress, 0.5);

    out.resize(mapWidth, mapHeight);
    CreateSHRM algorithm(convolution, *rotations, out);
    pool.run(algorithm);
    koUtil::setProgress(progress, 0.75);
    checkpoint("create shrm");

    koUtil::setProgress(progress, 0.9);
    checkpoint("warped shrm");
}

}  // namespace koImage
