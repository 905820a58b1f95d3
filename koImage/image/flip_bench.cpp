#include "koImage/image/flip.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImage/testing/yardsticks.h"

namespace koImage::testing {

namespace {

using Flip = void (*)(Image&);

// Against a read-modify-write loop over as many bytes.
template <class Pixel>
void flipBesideReadModifyWrite(benchmark::State& state, Flip flip)
{
    Size const size{static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
    auto const image = randomImage<Pixel>(size, 1);
    auto const theirs = randomImage<Pixel>(size, 2);
    auto const yardBytes = bytesOf(*theirs);
    auto const pixels = std::int64_t{size.width} * size.height;
    sideBySide(
        state, {.pixels = pixels, .bytes = 2 * pixels * std::int64_t{sizeof(Pixel)}}, [&] { flip(*image); },
        [&] { readModifyWrite(yardBytes); });
}

template <class Pixel>
void BM_imageFlipHorizontal(benchmark::State& state)
{
    flipBesideReadModifyWrite<Pixel>(state, imageFlipHorizontal);
}

template <class Pixel>
void BM_imageFlipVertical(benchmark::State& state)
{
    flipBesideReadModifyWrite<Pixel>(state, imageFlipVertical);
}

// 128 MiB each, in rows of 4096 pixels, and once in short, odd ones.
template <class Pixel>
void largeImages(benchmark::internal::Benchmark* benchmark)
{
    constexpr auto pixels = (128 << 20) / static_cast<int>(sizeof(Pixel));
    benchmark->ArgNames({"width", "height"})->UseManualTime();
    for (int const width : {331, 4096})
        benchmark->Args({width, pixels / width});
}

}  // namespace

BENCHMARK_TEMPLATE(BM_imageFlipHorizontal, unsigned char)->Apply(largeImages<unsigned char>);
BENCHMARK_TEMPLATE(BM_imageFlipHorizontal, Byte4)->Apply(largeImages<Byte4>);
BENCHMARK_TEMPLATE(BM_imageFlipHorizontal, Half4)->Apply(largeImages<Half4>);
BENCHMARK_TEMPLATE(BM_imageFlipHorizontal, Float3)->Apply(largeImages<Float3>);
BENCHMARK_TEMPLATE(BM_imageFlipHorizontal, Float4)->Apply(largeImages<Float4>);
BENCHMARK_TEMPLATE(BM_imageFlipVertical, unsigned char)->Apply(largeImages<unsigned char>);
BENCHMARK_TEMPLATE(BM_imageFlipVertical, Float4)->Apply(largeImages<Float4>);

}  // namespace koImage::testing
