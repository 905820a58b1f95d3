#include "koImage/image/typed_image.h"

#include "koImage/image/pixel_array.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <sys/mman.h>

#include <cstring>
#include <memory>

namespace koImage::testing {
namespace {

// Memory as new[] gives it on a system that backs it with 4 KiB pages.
class SmallPages {
public:
    explicit SmallPages(std::size_t bytes)
        : bytes_(bytes),
          memory_(mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
    {
        madvise(memory_, bytes, MADV_NOHUGEPAGE);
    }
    ~SmallPages() { munmap(memory_, bytes_); }
    SmallPages(SmallPages const&) = delete;
    SmallPages& operator=(SmallPages const&) = delete;

    void* data() const { return memory_; }

private:
    std::size_t bytes_;
    void* memory_;
};

// A new image of side x side pixels, filled, against an array of small pages of the same bytes.
void BM_freshResizeAndFill(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const pixels = std::int64_t{side} * side;
    auto const bytes = static_cast<std::size_t>(pixels) * sizeof(Float4);
    sideBySide(
        state, {pixels, static_cast<std::int64_t>(bytes)},
        [&] {
            auto const image = imageOf<Float4>({side, side});
            std::memset(image->data(), 1, bytes);
        },
        [&] {
            SmallPages const plain(bytes);
            std::memset(plain.data(), 1, bytes);
        });
}
BENCHMARK(BM_freshResizeAndFill)->ArgName("side")->Arg(512)->Arg(1024)->Arg(2048)->Arg(4096)->UseManualTime();

// A clone against new memory of the same kind and a memcpy into it.
template <class Pixel>
void BM_clone(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const image = randomImage<Pixel>({side, side}, 1);
    auto const pixels = std::int64_t{side} * side;
    auto const bytes = static_cast<std::size_t>(pixels) * sizeof(Pixel);
    sideBySide(
        state, {pixels, static_cast<std::int64_t>(2 * bytes)},
        [&] { ImageRef<Pixel> const copy(image->clone()); },
        [&] {
            void* const copy = allocatePixelMemory(bytes);
            std::memcpy(copy, image->data(), bytes);
            releasePixelMemory(copy, bytes);
        });
}
BENCHMARK_TEMPLATE(BM_clone, Float4)->ArgName("side")->Arg(64)->Arg(1024)->Arg(4096)->UseManualTime();
BENCHMARK_TEMPLATE(BM_clone, HarmonicsPixel)->ArgName("side")->Arg(200)->UseManualTime();

}  // namespace
}  // namespace koImage::testing
