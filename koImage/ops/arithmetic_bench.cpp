// Each operation beside the loop of its definition, and beside a memcpy that moves as many bytes.

#include "koImage/ops/arithmetic.h"

#include "koImage/image/channels.h"
#include "koImage/testing/side_by_side.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace koImage {

using namespace testing;

namespace {

struct Add {
    static void run(Image const& a, Image const& b, Image& result) { imageAdd(a, b, result); }
    template <class Pixel>
    static Pixel pixel(Pixel const& p, Pixel const& q)
    {
        return zipChannels(p, q, std::plus<float>{});
    }
};

struct Sub {
    static void run(Image const& a, Image const& b, Image& result) { imageSub(a, b, result); }
    template <class Pixel>
    static Pixel pixel(Pixel const& p, Pixel const& q)
    {
        return zipChannels(p, q, std::minus<float>{});
    }
};

struct Mult {
    static void run(Image const& a, Image const& b, Image& result) { imageMult(a, b, result); }
    template <class Pixel>
    static Pixel pixel(Pixel const& p, Pixel const& q)
    {
        return zipChannels(p, q, std::multiplies<float>{});
    }
};

struct Div {
    static void run(Image const& a, Image const& b, Image& result) { imageDiv(a, b, result); }
    template <class Pixel>
    static Pixel pixel(Pixel const& p, Pixel const& q)
    {
        return zipChannels(p, q, std::divides<float>{});
    }
    static unsigned char pixel(unsigned char p, unsigned char q)
    {
        return q == 0 ? p : lowByte(truncateToInt(float(p) / float(q) * 255.0f + 0.5f));
    }
};

struct Min {
    static void run(Image const& a, Image const& b, Image& result)
    {
        using Bytes = TypedImage<unsigned char>;
        imageMin(static_cast<Bytes const&>(a), static_cast<Bytes const&>(b), static_cast<Bytes&>(result));
    }
    static unsigned char pixel(unsigned char p, unsigned char q) { return std::min(p, q); }
};

/// The definition: one pixel after the other, as the compiler takes it for baseline processors.
template <class Operation, class Pixel>
void definition(TypedImage<Pixel> const& a, TypedImage<Pixel> const& b, TypedImage<Pixel>& result)
{
    for (int i = 0; i < a.pixelCount(); ++i)
        result.pixels()[i] = Operation::pixel(a.pixels()[i], b.pixels()[i]);
}

enum class Yardstick { Definition, Memcpy };

template <class Operation, class Pixel, Yardstick yardstick>
void BM_arithmetic(benchmark::State& state)
{
    Size const size{static_cast<int>(state.range(0)), static_cast<int>(state.range(1))};
    auto const a = randomImage<Pixel>(size, 1);
    auto const b = randomImage<Pixel>(size, 2);
    auto const result = imageOf<Pixel>(size);
    auto const expected = imageOf<Pixel>(size);
    auto const pixels = std::int64_t{a->pixelCount()};
    auto const bytes = static_cast<std::size_t>(pixels) * sizeof(Pixel);

    Work const work{pixels, static_cast<std::int64_t>(3 * bytes)};
    auto const ours = [&] { Operation::run(*a, *b, *result); };
    if constexpr (yardstick == Yardstick::Definition)
        sideBySide(state, work, ours, [&] { definition<Operation>(*a, *b, *expected); });
    else
        sideBySide(state, work, ours, [&] {
            std::memcpy(expected->data(), a->data(), bytes);
            std::memcpy(expected->data(), b->data(), bytes / 2);
        });
}

void sizes(benchmark::internal::Benchmark* bench)
{
    bench->UseManualTime()->Args({256, 128})->Args({4096, 2048});
}

}  // namespace

BENCHMARK_TEMPLATE(BM_arithmetic, Add, Float4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Sub, Float4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Mult, Float4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Div, Float4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Add, Float3, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Sub, Float3, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Mult, Float3, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Div, Float3, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Add, Half4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Sub, Half4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Mult, Half4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Div, Half4, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Div, unsigned char, Yardstick::Definition)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Min, unsigned char, Yardstick::Definition)->Apply(sizes);

BENCHMARK_TEMPLATE(BM_arithmetic, Add, Float4, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Add, Float3, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Add, Half4, Yardstick::Memcpy)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_arithmetic, Min, unsigned char, Yardstick::Memcpy)->Apply(sizes);

}  // namespace koImage
