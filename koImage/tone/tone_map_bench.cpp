#include "koImage/tone/tone_map.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <vector>

namespace koImage::testing {

namespace {

// A run against the loop over its pixels.
template <class Pixel>
void BM_toneMap(benchmark::State& state, ToneControls const& controls, PixelTag<Pixel> /*pixel*/)
{
    constexpr int side = 64;
    auto const image = randomImage<Pixel>({side, side}, 1);
    auto const source = pixelsOf<Pixel>(*image);
    ToneMap map;
    map.calculate(controls);

    // Each call maps the same colours: mapped again and again, they would turn to white.
    std::vector<Pixel> ours(source.begin(), source.end());
    std::vector<Pixel> theirs = ours;
    constexpr std::int64_t pixels = std::int64_t{side} * side;
    sideBySide(
        state, {.pixels = pixels, .bytes = 2 * pixels * std::int64_t{sizeof(Pixel)}},
        [&] {
            std::copy(source.begin(), source.end(), ours.begin());
            map.apply(std::span(ours));
        },
        [&] {
            std::copy(source.begin(), source.end(), theirs.begin());
            for (Pixel& pixel : theirs)
                map.apply(pixel);
        });
}

constexpr ToneControls gammaAndSaturation{.gamma = 2.2f, .exposure = 0.5f, .saturation = 1.2f};
constexpr ToneControls gammaOnly{.gamma = 2.2f, .exposure = 0.5f};

}  // namespace

BENCHMARK_CAPTURE(BM_toneMap, Float3 gamma saturation, gammaAndSaturation, PixelTag<Float3>{})
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_toneMap, Float4 gamma saturation, gammaAndSaturation, PixelTag<Float4>{})
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_toneMap, Float3 gamma, gammaOnly, PixelTag<Float3>{})->UseManualTime();
BENCHMARK_CAPTURE(BM_toneMap, Float4 gamma, gammaOnly, PixelTag<Float4>{})->UseManualTime();

}  // namespace koImage::testing
