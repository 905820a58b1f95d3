#include "koImage/ops/blur.h"

#include "koImage/image/numeric.h"
#include "koImage/image/pixel_array.h"
#include "koImage/image/typed_image.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace koImage {

namespace {

/// The half-widths a, b, c, d. In 64 bits, so that a position plus a half-width is defined.
using HalfWidths = std::array<std::int64_t, 4>;

HalfWidths halfWidthsOf(int diameter)
{
    float const f = static_cast<float>(diameter) * 0.5f + 0.5f;
    auto const rounded = [f](float part) { return std::max(truncateToInt(part * f + 128.0f) >> 8, 0); };
    return {rounded(65), rounded(122), rounded(176), std::max(truncateToInt(f), 0)};
}

template <class Channel>
using SumOf = std::conditional_t<std::is_same_v<Channel, unsigned char>, std::uint32_t, Channel>;

template <class Channel>
void filterClamped(Channel const* in, Channel* out, std::int64_t n, std::ptrdiff_t step,
                   HalfWidths const& halfWidths)
{
    auto const inLine = [n](std::int64_t x) { return 0 <= x && x < n; };
    SumOf<Channel> sum(0);
    std::int64_t count = 0;
    for (std::int64_t o = -halfWidths[3]; o < n; ++o) {
        for (std::int64_t const k : halfWidths) {
            if (inLine(o + k)) {
                sum = SumOf<Channel>(sum + in[(o + k) * step]);
                ++count;
            }
        }
        if (o >= 0)
            out[o * step] =
                static_cast<Channel>(static_cast<float>(sum) * (1.0f / static_cast<float>(count)));
        for (std::int64_t const k : halfWidths) {
            if (inLine(o - k)) {
                sum = SumOf<Channel>(sum - in[(o - k) * step]);
                --count;
            }
        }
    }
}

template <class Channel>
void filterWrapped(Channel const* in, Channel* out, std::int64_t n, std::ptrdiff_t step,
                   HalfWidths const& halfWidths)
{
    for (std::int64_t o = 0; o < n; ++o) {
        SumOf<Channel> sum(0);
        for (std::int64_t const k : halfWidths) {
            sum = SumOf<Channel>(sum + in[(o + k) % n * step]);
            sum = SumOf<Channel>(sum + in[((o - k) % n + n) % n * step]);
        }
        out[o * step] = static_cast<Channel>(static_cast<float>(sum) * 0.125f);
    }
}

}  // namespace

void imageBlur(Image const& source, Image& result, int diameter, bool wrapX, bool wrapY)
{
    if (source.pixelType() != result.pixelType())
        return;

    // Taken first: when result is source and borrows its pixels, resize gives it an array of its own.
    void const* const pixels = source.data();
    int const width = source.width();
    int const height = source.height();
    result.resize(width, height);

    dispatchPixel(source.pixelType(), BlurPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        using Channel =
            std::conditional_t<std::is_same_v<Pixel, Half4>, half,
                               std::conditional_t<(sizeof(Pixel) % 4 == 0 && !std::is_same_v<Pixel, Byte4>),
                                                  float, unsigned char>>;
        constexpr std::ptrdiff_t channels = sizeof(Pixel) / sizeof(Channel);
        if (pixels == nullptr || result.data() == nullptr || width < 1 || height < 1 ||
            std::int64_t{width} * height != source.pixelCount())
            return;

        HalfWidths const halfWidths = halfWidthsOf(diameter);
        TypedImage<Pixel> between;
        between.resize(width, height);
        std::ptrdiff_t const row = channels * width;
        auto const* const in = static_cast<Channel const*>(pixels);
        auto* const rows = static_cast<Channel*>(between.data());
        auto* const out = static_cast<Channel*>(result.data());
        for (int y = 0; y < height; ++y)
            for (int c = 0; c < channels; ++c)
                (wrapX ? filterWrapped<Channel> : filterClamped<Channel>)(in + y * row + c,
                                                                          rows + y * row + c, width, channels,
                                                                          halfWidths);
        for (std::ptrdiff_t x = 0; x < row; ++x)
            (wrapY ? filterWrapped<Channel> : filterClamped<Channel>)(rows + x, out + x, height, row,
                                                                      halfWidths);
    });
}

int suggestFilterDiamater(Image const& image, int width, int height)
{
    if (image.width() < width || image.height() < height)
        return 0;
    float const across = static_cast<float>(image.width()) / static_cast<float>(width);
    float const up = static_cast<float>(image.height()) / static_cast<float>(height);
    return truncateToInt(std::max(across, up) + 1.0f);
}

}  // namespace koImage
