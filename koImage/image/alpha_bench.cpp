#include "koImage/image/alpha.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImage/testing/yardsticks.h"

namespace koImage::testing {

namespace {

using Edit = void (*)(unsigned char*, int, int, int);

// Against a read-modify-write loop over as many bytes.
void BM_alpha(benchmark::State& state, Edit edit)
{
    auto const side = static_cast<int>(state.range(0));
    auto const ours = randomImage<Byte4>({side, side}, 1);
    auto const theirs = randomImage<Byte4>({side, side}, 2);
    auto const bytes = bytesOf(*ours);
    auto const yardBytes = bytesOf(*theirs);
    auto const pixels = std::int64_t{side} * side;
    sideBySide(
        state, {.pixels = pixels, .bytes = 8 * pixels}, [&] { edit(bytes.data(), side, side, 4); },
        [&] { readModifyWrite(yardBytes); });
}

}  // namespace

// 256 KiB, 64 MiB and 256 MiB.
BENCHMARK_CAPTURE(BM_alpha, premultiply, convert2PreMultipliedAlpha)
    ->ArgName("side")
    ->Arg(256)
    ->Arg(4096)
    ->Arg(8192)
    ->UseManualTime();
BENCHMARK_CAPTURE(BM_alpha, unpremultiply, convert2NonPreMultipliedAlpha)
    ->ArgName("side")
    ->Arg(256)
    ->Arg(4096)
    ->Arg(8192)
    ->UseManualTime();

}  // namespace koImage::testing
