#include "koImage/image/swap_red_blue.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImage/testing/yardsticks.h"

namespace koImage::testing {

namespace {

// Against a read-modify-write loop over as many bytes.
void BM_imageSwapRedBlue(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = randomImage<Byte4>({side, side}, 1);
    auto const theirs = randomImage<Byte4>({side, side}, 2);
    auto const yardBytes = bytesOf(*theirs);
    auto const pixels = std::int64_t{side} * side;
    sideBySide(
        state, {.pixels = pixels, .bytes = 8 * pixels}, [&] { imageSwapRedBlue(*image); },
        [&] { readModifyWrite(yardBytes); });
}

}  // namespace

// 256 KiB, 64 MiB and 256 MiB.
BENCHMARK(BM_imageSwapRedBlue)->ArgName("side")->Arg(256)->Arg(4096)->Arg(8192)->UseManualTime();

}  // namespace koImage::testing
