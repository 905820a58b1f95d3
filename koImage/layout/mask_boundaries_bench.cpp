#include "koImage/layout/mask_boundaries.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImage/testing/yardsticks.h"

#include <cmath>

namespace koImage::testing {

namespace {

constexpr int side = 4096;

unsigned char blobs(int x, int y, Random& /*random*/)
{
    double const wave = std::sin(x * 0.031) + std::sin(y * 0.027) + std::sin((x + 2 * y) * 0.013);
    return wave > 0.4 ? 255 : 0;
}

unsigned char solid(int /*x*/, int /*y*/, Random& /*random*/)
{
    return 255;
}

unsigned char noise(int /*x*/, int /*y*/, Random& random)
{
    return static_cast<unsigned char>(random());
}

// Against reading the mask.
void BM_maskBoundaries(benchmark::State& state, unsigned char (*make)(int, int, Random&))
{
    auto const mask = imageOf<unsigned char>({side, side});
    Random random(1);
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x)
            mask->pixels()[y * side + x] = make(x, y, random);

    ko::list<Boundary3d> boundaries;
    constexpr std::int64_t pixels = std::int64_t{side} * side;
    auto const copy = imageOf<unsigned char>({side, side});
    sideBySide(
        state, {.pixels = pixels, .bytes = pixels}, [&] { computeMaskBoundaries(*mask, boundaries); },
        [&] { std::memcpy(copy->pixels(), mask->pixels(), std::size_t{pixels}); });
    state.counters["outlines"] = static_cast<double>(boundaries.size());
}

}  // namespace

BENCHMARK_CAPTURE(BM_maskBoundaries, blobs, blobs)->UseManualTime();
BENCHMARK_CAPTURE(BM_maskBoundaries, solid, solid)->UseManualTime();
BENCHMARK_CAPTURE(BM_maskBoundaries, noise, noise)->UseManualTime();

}  // namespace koImage::testing
