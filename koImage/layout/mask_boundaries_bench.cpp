#include "koImage/layout/mask_boundaries.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_masks.h"

#include <cstring>

namespace koImage::testing {

namespace {

// Against a copy of the mask.
void BM_maskBoundaries(benchmark::State& state)
{
    constexpr int side = 4096;
    constexpr std::int64_t pixels = std::int64_t{side} * side;
    MaskKind const& kind = maskKinds[static_cast<std::size_t>(state.range(0))];
    auto const mask = maskOfKind(kind, {side, side});
    auto const copy = imageOf<unsigned char>({side, side});

    ko::list<Boundary3d> boundaries;
    sideBySide(
        state, {.pixels = pixels, .bytes = pixels}, [&] { computeMaskBoundaries(*mask, boundaries); },
        [&] { std::memcpy(copy->pixels(), mask->pixels(), std::size_t{pixels}); });
    state.SetLabel(kind.name);
    state.counters["outlines"] = static_cast<double>(boundaries.size());
}

}  // namespace

BENCHMARK(BM_maskBoundaries)->DenseRange(0, std::ssize(maskKinds) - 1)->UseManualTime();

}  // namespace koImage::testing
