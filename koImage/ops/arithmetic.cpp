#include "koImage/ops/arithmetic.h"

#include "koImage/image/channels.h"

#include <algorithm>
#include <functional>
#include <span>
#include <type_traits>

namespace koImage {

namespace {

/// Division in every type that imageDiv supports.
struct Quotient {
    float operator()(float a, float b) const { return a / b; }

    unsigned char operator()(unsigned char a, unsigned char b) const
    {
        if (b == 0)
            return a;
        // Wraps instead of clamping when a > b: 2 / 1 gives 254. Files and callers depend on it.
        return lowByte(static_cast<int>(static_cast<float>(a) / static_cast<float>(b) * 255.0f + 0.5f));
    }
};

template <class Pixel, class Op>
Pixel zipPixels(Pixel const& p, Pixel const& q, Op op)
{
    if constexpr (std::is_same_v<Pixel, unsigned char>)
        return op(p, q);
    else
        return zipChannels(p, q, op);
}

/// result[i] = op(a[i], b[i]). The spans have one length, or are empty where an image holds no pixels in
/// spite of its size.
template <class Pixel, class Op>
void zip(std::span<Pixel const> a, std::span<Pixel const> b, std::span<Pixel> result, Op op)
{
    if (a.empty() || b.empty() || result.empty())
        return;
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = zipPixels(a[i], b[i], op);
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
    combine(a, b, result, AddPixels{}, std::plus<float>{});
}

void imageSub(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, AddPixels{}, std::minus<float>{});
}

void imageMult(Image const& a, Image const& b, Image& result)
{
    combine(a, b, result, AddPixels{}, std::multiplies<float>{});
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
