// The blur beside a memcpy of the image and beside its definition. What it allocates is one temporary image:
// as many bytes a pixel as the type has.

#include "koImage/ops/blur.h"

#include "koImage/testing/blur_by_hand.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstring>
#include <string>

namespace koImage {

using namespace testing;

namespace {

template <class Pixel>
void BM_imageBlur(benchmark::State& state)
{
    Size const size{static_cast<int>(state.range(0)), static_cast<int>(state.range(0) / 2)};
    auto const diameter = static_cast<int>(state.range(1));
    bool const wrap = state.range(2) != 0;
    auto const source = randomImage<Pixel>(size, 1);
    auto const result = imageOf<Pixel>(size);
    auto const copy = imageOf<Pixel>(size);
    auto const bytes = pixelsOf<Pixel>(*source).size_bytes();

    std::int64_t const pixels = source->pixelCount();
    sideBySide(
        state, {pixels, 2 * static_cast<std::int64_t>(bytes)},
        [&] { imageBlur(*source, *result, diameter, wrap, wrap); },
        [&] { std::memcpy(copy->data(), source->data(), bytes); });
}

template <class Pixel>
void BM_imageBlurByHand(benchmark::State& state)
{
    Size const size{512, 256};
    bool const wrap = state.range(0) != 0;
    auto const source = randomImage<Pixel>(size, 1);
    auto const result = imageOf<Pixel>(size);

    std::int64_t const pixels = source->pixelCount();
    sideBySide(
        state, {pixels, 2 * pixels * std::int64_t{sizeof(Pixel)}},
        [&] { imageBlur(*source, *result, 33, wrap, wrap); },
        [&] { benchmark::DoNotOptimize(blurByHand(*source, 33, wrap, wrap)); });
}

template <class... Pixels>
void registerAll(PixelList<Pixels...>)
{
    auto const named = [](char const* name, PixelTypeId type) {
        return std::string(name) + "/type:" + std::to_string(static_cast<int>(type));
    };
    (benchmark::RegisterBenchmark(named("imageBlur", pixelTypeIdOf<Pixels>).c_str(), BM_imageBlur<Pixels>)
         ->ArgNames({"width", "diameter", "wrap"})
         ->ArgsProduct({{512, 4096}, {5, 33, 129}, {0, 1}})
         ->UseManualTime(),
     ...);
    (benchmark::RegisterBenchmark(named("imageBlurByHand", pixelTypeIdOf<Pixels>).c_str(),
                                  BM_imageBlurByHand<Pixels>)
         ->ArgName("wrap")
         ->DenseRange(0, 1)
         ->UseManualTime(),
     ...);
}

[[maybe_unused]] bool const registered = (registerAll(BlurPixels{}), true);

}  // namespace

}  // namespace koImage
