#include "koImage/image/copy.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstring>

namespace koImage::testing {
namespace {

// Copies between a frame of side x side pixels and a block of width x side, against one memcpy of the block's
// bytes.
struct Blocks {
    explicit Blocks(benchmark::State const& state)
        : side(static_cast<int>(state.range(0))),
          width(static_cast<int>(state.range(1))),
          x((side - width) / 2),
          frame(randomImage<Float4>({side, side}, 1)),
          block(randomImage<Float4>({width, side}, 2)),
          other(imageOf<Float4>({width, side}))
    {
    }

    Work work() const { return {block->pixelCount(), 2 * bytes()}; }
    std::int64_t bytes() const { return std::int64_t{block->pixelCount()} * block->bytesPerPixel(); }
    void memcpyBlock() const { std::memcpy(other->data(), block->data(), static_cast<std::size_t>(bytes())); }

    int side, width, x;
    ImageRef<Float4> frame, block, other;
};

void BM_imageCopyIn(benchmark::State& state)
{
    Blocks const b(state);
    sideBySide(
        state, b.work(), [&] { imageCopyIn(*b.block, *b.frame, b.x, 0); }, [&] { b.memcpyBlock(); });
}

void BM_imageCopyOut(benchmark::State& state)
{
    Blocks const b(state);
    sideBySide(
        state, b.work(), [&] { imageCopyOut(*b.frame, *b.block, b.x, 0); }, [&] { b.memcpyBlock(); });
}

#define KO_BLOCKS                                                                                            \
    ArgNames({"side", "width"})                                                                              \
        ->Args({256, 256})                                                                                   \
        ->Args({256, 101})                                                                                   \
        ->Args({2048, 2048})                                                                                 \
        ->Args({2048, 1501})                                                                                 \
        ->Args({2048, 101})                                                                                  \
        ->Args({4096, 4096})                                                                                 \
        ->Args({4096, 3001})                                                                                 \
        ->UseManualTime()
BENCHMARK(BM_imageCopyIn)->KO_BLOCKS;
BENCHMARK(BM_imageCopyOut)->KO_BLOCKS;

}  // namespace
}  // namespace koImage::testing
