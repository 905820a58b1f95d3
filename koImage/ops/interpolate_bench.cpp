// Interpolation beside its definition, and beside a memcpy of as many pixels.

#include "koImage/ops/interpolate.h"

#include "koImage/testing/interpolate_by_hand.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstring>

namespace koImage {

using namespace testing;

namespace {

using Byte = unsigned char;

constexpr Size benchSize{4096, 2048};

// Reads mask and values, writes values.
constexpr Work work{std::int64_t{benchSize.width} * benchSize.height,
                    3 * std::int64_t{benchSize.width} * benchSize.height};

/// So many pixels of a thousand are known.
ImageRef<Byte> scatteredMask(int permille)
{
    auto mask = imageOf<Byte>(benchSize);
    fillImage(*mask, 1, [permille](Random& random) {
        return static_cast<Byte>(random() % 1000 < static_cast<unsigned>(permille) ? 255 : 0);
    });
    return mask;
}

/// Known pixels in every eighth row and every eighth column only: most pixels wait for the second sweep.
ImageRef<Byte> gridMask()
{
    auto mask = imageOf<Byte>(benchSize);
    for (int y = 0; y < benchSize.height; ++y)
        for (int x = 0; x < benchSize.width; ++x)
            mask->pixels()[pixelOffset(x, y, benchSize.width)] = x % 8 == 0 && y % 8 == 0 ? 255 : 0;
    return mask;
}

ImageRef<Byte> maskOf(benchmark::State const& state)
{
    auto const permille = static_cast<int>(state.range(0));
    return permille > 0 ? scatteredMask(permille) : gridMask();
}

void BM_imageInterpolateAgainstMemcpy(benchmark::State& state)
{
    auto const mask = maskOf(state);
    auto const values = randomImage<Byte>(benchSize, 2);
    auto const copy = imageOf<Byte>(benchSize);
    sideBySide(
        state, work, [&] { imageInterpolate(*mask, *values); },
        [&] { std::memcpy(copy->pixels(), values->pixels(), static_cast<std::size_t>(work.pixels)); });
}

void BM_imageInterpolateAgainstDefinition(benchmark::State& state)
{
    auto const mask = maskOf(state);
    auto const values = randomImage<Byte>(benchSize, 2);
    sideBySide(
        state, work, [&] { imageInterpolate(*mask, *values); }, [&] { interpolateByHand(*mask, *values); });
}

// Known pixels in a thousand; 0 stands for the grid.
void masks(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("permille")->Arg(10)->Arg(100)->Arg(900)->Arg(0)->UseManualTime();
}

BENCHMARK(BM_imageInterpolateAgainstMemcpy)->Apply(masks);
BENCHMARK(BM_imageInterpolateAgainstDefinition)->Apply(masks);

}  // namespace

}  // namespace koImage
