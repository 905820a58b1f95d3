#include "koImageIO/rows.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace koImageIO {

namespace {

using namespace koImage;
using koImage::testing::randomImage;
using koImage::testing::sideBySide;

// The curve value by value, as its definition reads.
template <class Level>
Level levelByDefinition(float light)
{
    constexpr double top = std::numeric_limits<Level>::max();
    double const v = std::clamp(double{light}, 0.0, 1.0);
    double const curved = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    return static_cast<Level>(curved * top + 0.5);
}

template <class Level>
void BM_rowsAsLevels(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = randomImage<Float3>({side, side}, 1);
    std::vector<Level> ours(3 * static_cast<std::size_t>(side)), theirs(ours.size());
    std::int64_t const pixels = std::int64_t{side} * side;
    Misfits misfits;
    sideBySide(
        state, {pixels, pixels * 3 * static_cast<std::int64_t>(sizeof(float) + sizeof(Level))},
        [&] {
            for (int row = 0; row < side; ++row) {
                if constexpr (sizeof(Level) == 1)
                    rowAsBytes(*image, row, 3, Transfer::Srgb, ours, misfits);
                else
                    rowAsWords(*image, row, 3, Transfer::Srgb, ours, misfits);
            }
            benchmark::DoNotOptimize(ours.data());
        },
        [&] {
            for (int row = 0; row < side; ++row) {
                auto* to = theirs.data();
                for (Float3 const& p : pictureRow<Float3>(*image, row)) {
                    *to++ = levelByDefinition<Level>(p.r);
                    *to++ = levelByDefinition<Level>(p.g);
                    *to++ = levelByDefinition<Level>(p.b);
                }
            }
            benchmark::DoNotOptimize(theirs.data());
        });
}
BENCHMARK_TEMPLATE(BM_rowsAsLevels, std::uint8_t)->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_TEMPLATE(BM_rowsAsLevels, std::uint16_t)->ArgName("side")->Arg(512)->UseManualTime();

// Conversion of a whole picture beside a copy of its bytes.
template <class From, class To>
void BM_convertPicture(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = randomImage<From>({side, side}, 1);
    std::int64_t const pixels = std::int64_t{side} * side;
    std::vector<std::byte> copy(static_cast<std::size_t>(pixels) * std::max(sizeof(From), sizeof(To)));
    Misfits misfits;
    sideBySide(
        state, {pixels, pixels * static_cast<std::int64_t>(sizeof(From) + sizeof(To))},
        [&] {
            ko::Reference<Image> converted = image;
            convertPicture(converted, pixelTypeIdOf<To>, Transfer::Srgb, misfits);
            benchmark::DoNotOptimize(converted->data());
        },
        [&] {
            std::memcpy(copy.data(), image->data(), static_cast<std::size_t>(pixels) * sizeof(From));
            benchmark::DoNotOptimize(copy.data());
        });
}
BENCHMARK_TEMPLATE(BM_convertPicture, Byte4, Float3)->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_TEMPLATE(BM_convertPicture, Half4, Float4)->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_TEMPLATE(BM_convertPicture, Float3, Half4)->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_TEMPLATE(BM_convertPicture, Float3, Byte4)->ArgName("side")->Arg(512)->UseManualTime();

}  // namespace

}  // namespace koImageIO
