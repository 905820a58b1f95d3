// Remapping beside its definition: the shapes' own operations and one sampleBilinear for every pixel of the
// result, empty ones included in the count.
#include "koImage/envmap/remap.h"

#include "koImage/envmap/sample_bilinear.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

namespace koImage {

using namespace testing;

namespace {

using MapRef = ko::Reference<EnvironmentMap>;

template <class Pixel>
void remapByDefinition(EnvironmentMap const& source, TypedImage<Pixel> const& from,
                       EnvironmentMap const& destination, TypedImage<Pixel>& to)
{
    Pixel* out = to.pixels();
    for (int y = 0; y < to.height(); ++y) {
        float const v = (static_cast<float>(y) + 0.5f) * to.invHeight();
        for (int x = 0; x < to.width(); ++x) {
            koLinear::VectorFlt dir;
            Pixel pixel{};
            if (destination.coordToDir((static_cast<float>(x) + 0.5f) * to.invWidth(), v, dir)) {
                float sourceU;
                float sourceV;
                source.dirToCoord(dir, sourceU, sourceV);
                sampleBilinear(from, sourceU, sourceV, pixel);
            }
            *out++ = pixel;
        }
    }
}

/// From and to images of so many columns and rows, whose proportions say their shapes.
template <class Pixel>
void BM_remap(benchmark::State& state)
{
    auto const size = [&state](std::size_t at) {
        return Size{static_cast<int>(state.range(at)), static_cast<int>(state.range(at + 1))};
    };
    auto const source = randomImage<Pixel>(size(0), 1);
    auto const ours = imageOf<Pixel>(size(2));
    auto const theirs = imageOf<Pixel>(size(2));
    MapRef const from(newEnvironmentMap(*source));
    MapRef const to(newEnvironmentMap(*ours));

    auto const pixels = std::int64_t{ours->pixelCount()};
    sideBySide(
        state, {pixels, (pixels + source->pixelCount()) * std::int64_t{sizeof(Pixel)}},
        [&] { remap(*from, *to); }, [&] { remapByDefinition(*from, *source, *to, *theirs); });
}

void shapes(benchmark::internal::Benchmark* benchmark)
{
    constexpr Size latLong{2048, 1024};
    constexpr Size cross{1536, 2048};
    constexpr Size sphere{1024, 1024};
    benchmark->ArgNames({"from", "", "to", ""})->UseManualTime();
    for (Size const from : {latLong, cross, sphere})
        for (Size const to : {latLong, cross, sphere})
            benchmark->Args({from.width, from.height, to.width, to.height});
}

void commonShapes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"from", "", "to", ""})->UseManualTime();
    benchmark->Args({2048, 1024, 1536, 2048})->Args({1536, 2048, 2048, 1024});
    benchmark->Args({256, 128, 192, 256})->Args({192, 256, 256, 128});
}

BENCHMARK_TEMPLATE(BM_remap, Float3)->Apply(shapes);
BENCHMARK_TEMPLATE(BM_remap, Half4)->Apply(commonShapes);
BENCHMARK_TEMPLATE(BM_remap, float)->Apply(commonShapes);
BENCHMARK_TEMPLATE(BM_remap, Float4)->Apply(commonShapes);

}  // namespace

}  // namespace koImage
