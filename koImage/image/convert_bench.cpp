#include "koImage/image/convert.h"

#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <cstring>

namespace koImage::testing {
namespace {

// A conversion against a memcpy that reads and writes as many bytes in all.
template <class From, class To>
void BM_imageConvert(benchmark::State& state)
{
    auto const side = static_cast<int>(state.range(0));
    auto const source = randomImage<From>({side, side}, 1);
    TypedImage<To> result;

    auto const pixels = std::int64_t{side} * side;
    auto const bytes = pixels * static_cast<std::int64_t>(sizeof(From) + sizeof(To));
    TypedImage<unsigned char> from;
    from.resize(static_cast<int>(bytes / side / 2), side);
    std::memset(from.data(), 1, static_cast<std::size_t>(bytes / 2));
    ImageRef<unsigned char> const to(from.clone());

    sideBySide(
        state, {pixels, bytes}, [&] { imageConvert(*source, result); },
        [&] { std::memcpy(to->data(), from.data(), static_cast<std::size_t>(bytes / 2)); });
}

// One image that fits the cache, one about as large, and one that is larger.
void sizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("side")->Arg(256)->Arg(1024)->Arg(4096)->UseManualTime();
}
BENCHMARK_TEMPLATE(BM_imageConvert, float, unsigned char)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_imageConvert, Byte4, Float3)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_imageConvert, Byte4, Float4)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_imageConvert, Float3, Float4)->Apply(sizes);

}  // namespace
}  // namespace koImage::testing
