#include "koImage/image/copy.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstring>

namespace koImage::testing {
namespace {

// An image whose pages have been touched.
ImageRef<Float4> touchedImage(Size size)
{
    auto image = imageOf<Float4>(size);
    std::memset(image->data(), 1, pixelsOf<Float4>(*image).size_bytes());
    return image;
}

// A frame of side x side pixels and a block of width x side in its middle, against one memcpy of the block.
struct Blocks {
    explicit Blocks(benchmark::State const& state)
        : side(static_cast<int>(state.range(0))),
          width(static_cast<int>(state.range(1))),
          x((side - width) / 2),
          frame(touchedImage({side, side})),
          block(touchedImage({width, side})),
          other(touchedImage({width, side}))
    {
    }

    std::size_t bytes() const { return pixelsOf<Float4>(*block).size_bytes(); }
    Work work() const { return {block->pixelCount(), static_cast<std::int64_t>(2 * bytes())}; }
    void copyAtOnce() const { std::memcpy(other->data(), block->data(), bytes()); }

    int side, width, x;
    ImageRef<Float4> frame, block, other;
};

void BM_imageCopyIn(benchmark::State& state)
{
    Blocks const b(state);
    sideBySide(
        state, b.work(), [&] { imageCopyIn(*b.block, *b.frame, b.x, 0); }, [&] { b.copyAtOnce(); });
}

void BM_imageCopyOut(benchmark::State& state)
{
    Blocks const b(state);
    sideBySide(
        state, b.work(), [&] { imageCopyOut(*b.frame, *b.block, b.x, 0); }, [&] { b.copyAtOnce(); });
}

// Whole rows, wide and narrow blocks; in the cache, larger, and much larger than it.
void blocks(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"side", "width"})->UseManualTime();
    bench->Args({256, 256})->Args({256, 101});
    bench->Args({2048, 2048})->Args({2048, 1501})->Args({2048, 101});
    bench->Args({4096, 4096})->Args({4096, 3001});
}
BENCHMARK(BM_imageCopyIn)->Apply(blocks);
BENCHMARK(BM_imageCopyOut)->Apply(blocks);

}  // namespace
}  // namespace koImage::testing
