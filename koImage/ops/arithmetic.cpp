#include "koImage/ops/arithmetic.h"

#include "koImage/image/channels.h"
#include "koImage/image/streaming.h"
#include "koImage/ops/arithmetic_v3.h"

#include <algorithm>
#include <functional>
#include <span>
#include <type_traits>

namespace koImage {

namespace {

/// Division in every type that imageDiv supports.
struct Quotient : std::divides<> {
    using std::divides<>::operator();

    unsigned char operator()(unsigned char a, unsigned char b) const
    {
        // Without a branch, so that compilers take many pixels at a time. The quotient is at most 65025.5.
        int const byZero = b == 0;
        int const scaled =
            static_cast<int>(static_cast<float>(a) / static_cast<float>(b + byZero) * 255.0f + 0.5f);
        // Wraps instead of clamping when a > b: 2 / 1 gives 254. Files and callers depend on it.
        return lowByte(scaled + byZero * (a - scaled));
    }
};

/// result[i] = op(a[i], b[i]). The arrays are one or do not overlap.
template <class Pixel, class Op>
void zipRun(Pixel const* a, Pixel const* b, Pixel* result, std::size_t count, Op op)
{
    std::size_t i = 0;
#if KO_SIMD_V3
    if constexpr (std::is_same_v<Pixel, Half4>) {
        i = count - count % 4;
        v3::zipHalves(a, b, result, i, op);
    }
#endif
    for (; i < count; ++i) {
        if constexpr (std::is_same_v<Pixel, unsigned char>)
            result[i] = op(a[i], b[i]);
        else
            result[i] = zipChannels(a[i], b[i], op);
    }
}

/// op for every pixel. The spans have one length, or are empty where an image holds no pixels in spite
/// of its size.
template <class Pixel, class Op>
void zip(std::span<Pixel const> a, std::span<Pixel const> b, std::span<Pixel> result, Op op)
{
    if (a.empty() || b.empty() || result.empty())
        return;

    // An array that is read and written goes by one name: told apart, it would keep some compilers from
    // vectors.
    if (result.data() == a.data())
        return zipRun(result.data(), b.data(), result.data(), result.size(), op);
    if (result.data() == b.data())
        return zipRun(a.data(), result.data(), result.data(), result.size(), op);

    writeRuns(result.data(), result.size(), false, [&](Pixel* run, std::size_t first, std::size_t length) {
        zipRun(a.data() + first, b.data() + first, run, length, op);
    });
}

bool sameSize(Image const& a, Image const& b)
{
    return a.width() == b.width() && a.height() == b.height();
}

template <class Supported, class Op>
void combine(Image const& a, Image const& b, Image& result, Supported supported, Op op)
{
    if (a.pixelType() != b.pixelType() || a.pixelType() != result.pixelType())
        return;

    // Before the type and b's size are looked at: callers see the result resized although its pixels are not
    // written, and a b that is the result takes a's shape.
    result.resize(a.width(), a.height());

    dispatchPixel(a.pixelType(), supported, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        if (!sameSize(a, b))
            return;
        // Once more, on purpose: an image class that overrides resize can count on both calls.
        result.resize(a.width(), a.height());
        zip(pixelsOf<Pixel>(a), pixelsOf<Pixel>(b), pixelsOf<Pixel>(result), op);
    });
}

template <class Op>
void select(TypedImage<unsigned char> const& a, TypedImage<unsigned char> const& b,
            TypedImage<unsigned char>& result, Op op)
{
    if (!sameSize(a, b))
        return;
    result.resize(a.width(), a.height());
    zip(pixelsOf<unsigned char>(a), pixelsOf<unsigned char>(b), pixelsOf<unsigned char>(result), op);
}

}  // namespace

void imageAdd(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, AddPixels{}, std::plus<>{});
}

void imageSub(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, AddPixels{}, std::minus<>{});
}

void imageMult(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, AddPixels{}, std::multiplies<>{});
}

void imageDiv(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, DivPixels{}, Quotient{});
}

void imageMin(TypedImage<unsigned char> const& a, TypedImage<unsigned char> const& b,
              TypedImage<unsigned char>& result)
{
    select(a, b, result, [](unsigned char p, unsigned char q) { return std::min(p, q); });
}

void imageMax(TypedImage<unsigned char> const& a, TypedImage<unsigned char> const& b,
              TypedImage<unsigned char>& result)
{
    select(a, b, result, [](unsigned char p, unsigned char q) { return std::max(p, q); });
}

}  // namespace koImage
