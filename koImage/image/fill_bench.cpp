#include "koImage/image/fill.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"
#include "koImage/testing/yardsticks.h"

namespace koImage::testing {

namespace {

template <class Pixel>
Work workOf(std::int64_t side)
{
    return {.pixels = side * side, .bytes = side * side * std::int64_t{sizeof(Pixel)}};
}

// Against memset over as many bytes.
template <class Pixel>
void BM_fillBlack(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = imageOf<Pixel>({side, side});
    auto const theirs = imageOf<Pixel>({side, side});
    auto const yardBytes = bytesOf(*theirs);
    sideBySide(
        state, workOf<Pixel>(side), [&] { fillBlack(*image); },
        [&] { std::memset(yardBytes.data(), 0, yardBytes.size()); });
}

// Against a loop of streaming stores over as many bytes.
template <class Pixel>
void BM_fillWhite(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = imageOf<Pixel>({side, side});
    auto const theirs = imageOf<Pixel>({side, side});
    auto const yardBytes = bytesOf(*theirs);
    sideBySide(
        state, workOf<Pixel>(side), [&] { fillWhite(*image); }, [&] { streamingFill(yardBytes); });
}

}  // namespace

// 256 KiB and 64 MiB.
BENCHMARK_TEMPLATE(BM_fillBlack, Byte4)->ArgName("side")->Arg(256)->Arg(4096)->UseManualTime();
BENCHMARK_TEMPLATE(BM_fillWhite, Byte4)->ArgName("side")->Arg(256)->Arg(4096)->UseManualTime();

// 192 KiB and 192 MiB.
BENCHMARK_TEMPLATE(BM_fillWhite, Float3)->ArgName("side")->Arg(128)->Arg(4096)->UseManualTime();

// 256 KiB and 256 MiB.
BENCHMARK_TEMPLATE(BM_fillBlack, Float4)->ArgName("side")->Arg(128)->Arg(4096)->UseManualTime();
BENCHMARK_TEMPLATE(BM_fillWhite, Float4)->ArgName("side")->Arg(128)->Arg(4096)->UseManualTime();

}  // namespace koImage::testing
