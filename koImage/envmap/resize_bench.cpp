// Resizing beside its definition: one sampleBilinear, or one pixel looked up, for every pixel of the result.
// A pixel of the figures is one of the result, which is allocated anew each time on both sides.
#include "koImage/envmap/resize.h"

#include "koBase/linear.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <benchmark/benchmark.h>

#include <type_traits>

namespace koImage {

using namespace testing;

namespace {

template <class Pixel>
Pixel sampled(TypedImage<Pixel> const& source, float u, float v)
{
    if constexpr (std::is_same_v<Pixel, Byte4>) {
        Byte4Sample sample{};
        sampleBilinear(source, u, v, sample);
        return {static_cast<unsigned char>(sample[0]), static_cast<unsigned char>(sample[1]),
                static_cast<unsigned char>(sample[2]), static_cast<unsigned char>(sample[3])};
    } else {
        Pixel sample{};
        sampleBilinear(source, u, v, sample);
        return sample;
    }
}

template <class Pixel>
Pixel looked(TypedImage<Pixel> const& source, float u, float v)
{
    constexpr float inside = 1.0f - koLinear::epsilonTolFlt;
    int const x = truncateToInt(static_cast<float>(source.width()) * (u * inside));
    int const y = truncateToInt(static_cast<float>(source.height()) * (v * inside));
    return source.pixels()[pixelOffset(x, y, source.width())];
}

template <class Pixel>
void BM_resize(benchmark::State& state)
{
    Size const from{static_cast<int>(state.range(0)), static_cast<int>(state.range(0) / 2)};
    Size const to{static_cast<int>(state.range(1)), static_cast<int>(state.range(1) / 2)};
    bool const filter = state.range(2) != 0;
    auto const source = randomImage<Pixel>(from, 1);

    auto const pixels = std::int64_t{to.width} * to.height;
    sideBySide(
        state, {pixels, pixels * 2 * std::int64_t{sizeof(Pixel)}},
        [&] { ko::Reference<Image> const result(resize(*source, to.width, to.height, filter)); },
        [&] {
            auto const result = imageOf<Pixel>(to);
            Pixel* out = result->pixels();
            for (int y = 0; y < to.height; ++y) {
                float const v = (static_cast<float>(y) + 0.5f) * result->invHeight();
                for (int x = 0; x < to.width; ++x) {
                    float const u = (static_cast<float>(x) + 0.5f) * result->invWidth();
                    *out++ = filter ? sampled(*source, u, v) : looked(*source, u, v);
                }
            }
        });
}

void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"from", "to", "filter"})->UseManualTime();
    for (int const filter : {1, 0})
        benchmark->Args({4096, 1024, filter})
            ->Args({4096, 200, filter})
            ->Args({512, 1024, filter})
            ->Args({1024, 4096, filter});
}

BENCHMARK_TEMPLATE(BM_resize, Byte4)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_resize, Half4)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_resize, float)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_resize, Float3)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_resize, Float4)->Apply(sizes);

}  // namespace

}  // namespace koImage
