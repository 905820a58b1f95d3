// Reading beside what the codecs need alone.

#include "koImageIO/picture.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImageIO/testing/exr_by_library.h"

#include <benchmark/benchmark.h>
#include <png.h>

#include <cmath>
#include <vector>

namespace koImageIO {

namespace {

using namespace koImage;
using koImage::testing::imageOf;
using koImage::testing::sideBySide;

// Smooth light with a little noise, as pictures are.
template <class Pixel>
koImage::testing::ImageRef<Pixel> smoothImage(int side)
{
    auto const image = imageOf<Pixel>({side, side});
    std::mt19937 random(1);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            float const noise = static_cast<float>(random() >> 24) / 2048.0f;
            float const v =
                0.5f +
                0.4f * std::sin(static_cast<float>(x) * 0.01f) * std::cos(static_cast<float>(y) * 0.013f) +
                noise;
            auto& p = image->pixels()[pixelOffset(x, y, side)];
            if constexpr (std::is_same_v<Pixel, Byte4>)
                p = {static_cast<unsigned char>(v * 200), static_cast<unsigned char>(v * 150),
                     static_cast<unsigned char>(v * 100), 255};
            else
                p = {v, v * 0.75f, v * 0.5f, 1.0f};
        }
    }
    return image;
}

void BM_readPng(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    testing::Bytes const file = testing::roundTrip(*smoothImage<Byte4>(side), "png").file;
    std::int64_t const pixels = std::int64_t{side} * side;
    std::vector<png_byte> buffer(static_cast<std::size_t>(pixels) * 4);
    sideBySide(
        state, {pixels, pixels * 4},
        [&] {
            Picture picture;
            if (readPicture(file, "png", picture))
                state.SkipWithError("not read");
        },
        [&] {
            png_image image = {};
            image.version = PNG_IMAGE_VERSION;
            png_image_begin_read_from_memory(&image, file.data(), file.size());
            image.format = PNG_FORMAT_RGBA;
            png_image_finish_read(&image, nullptr, buffer.data(), 0, nullptr);
        });
}
BENCHMARK(BM_readPng)->ArgName("side")->Arg(512)->UseManualTime();

void BM_readExr(benchmark::State& state, char const* compression)
{
    auto const side = static_cast<int>(state.range(0));
    testing::Bytes const file =
        testing::roundTrip(*smoothImage<Half4>(side), "exr", {.compression = compression}).file;
    std::int64_t const pixels = std::int64_t{side} * side;
    sideBySide(
        state, {pixels, pixels * 8},
        [&] {
            Picture picture;
            if (readPicture(file, "exr", picture))
                state.SkipWithError("not read");
        },
        [&] {
            benchmark::DoNotOptimize(testing::readByLibrary<std::uint16_t>(file, {"R", "G", "B", "A"}));
        });
}
BENCHMARK_CAPTURE(BM_readExr, none, "none")->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_CAPTURE(BM_readExr, zip, "zip")->ArgName("side")->Arg(512)->UseManualTime();
BENCHMARK_CAPTURE(BM_readExr, piz, "piz")->ArgName("side")->Arg(512)->UseManualTime();

}  // namespace

}  // namespace koImageIO
