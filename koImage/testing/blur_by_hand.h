// The blur as it is defined, one channel of one line at a time: the yardstick of its tests and benchmarks.
#pragma once

#include "koImage/ops/blur.h"
#include "koImage/testing/test_images.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace koImage::testing {

using BoxWidths = std::array<std::int64_t, 4>;

/// The half-widths a, b, c, d.
inline BoxWidths boxWidthsByHand(int diameter)
{
    float const f = static_cast<float>(diameter) * 0.5f + 0.5f;
    auto const truncated = [](float value) {
        return std::abs(value) < 2147483648.0f ? static_cast<std::int64_t>(value) : std::int64_t{-2147483648};
    };
    BoxWidths widths{};
    for (std::size_t i = 0; i < 3; ++i) {
        std::array<float, 3> constexpr parts{65, 122, 176};
        widths[i] = static_cast<std::int64_t>(
            std::floor(static_cast<double>(truncated(parts[i] * f + 128.0f)) / 256));
    }
    widths[3] = truncated(f);
    for (std::int64_t& width : widths)
        width = std::max<std::int64_t>(width, 0);
    return widths;
}

/// What the sum of a channel is kept as.
template <class Channel>
using SumOf = std::conditional_t<std::is_same_v<Channel, unsigned char>, std::uint32_t, Channel>;

/// Half sums round at each step, through the conversions of half.
template <class Channel>
SumOf<Channel> plus(SumOf<Channel> sum, Channel value)
{
    if constexpr (std::is_same_v<Channel, half>)
        return half(float(sum) + float(value));
    else
        return sum + value;
}

template <class Channel>
SumOf<Channel> minus(SumOf<Channel> sum, Channel value)
{
    if constexpr (std::is_same_v<Channel, half>)
        return half(float(sum) - float(value));
    else
        return sum - value;
}

template <class Channel>
Channel scaled(SumOf<Channel> sum, float factor)
{
    return static_cast<Channel>(static_cast<float>(sum) * factor);
}

/// Filters in[0], in[step], ... in[(n - 1) * step] into the same places of out, another array.
template <class Channel>
void clampedLineByHand(Channel const* in, Channel* out, std::int64_t n, std::int64_t step,
                       BoxWidths const& widths)
{
    auto const inLine = [n](std::int64_t x) { return 0 <= x && x < n; };
    SumOf<Channel> sum(0);
    std::int64_t count = 0;
    for (std::int64_t o = -widths[3]; o < n; ++o) {
        bool const nothingEnters =
            std::none_of(widths.begin(), widths.end(), [&](std::int64_t k) { return inLine(o + k); });
        if (o < 0 && nothingEnters) {
            // On to where the next box begins to enter, or the outputs do.
            std::int64_t next = 0;
            for (std::int64_t const k : widths)
                next = -k > o ? std::min(next, -k) : next;
            o = next - 1;
            continue;
        }

        for (std::int64_t const k : widths) {
            if (inLine(o + k)) {
                sum = plus(sum, in[(o + k) * step]);
                ++count;
            }
        }
        if (o >= 0)
            out[o * step] = scaled<Channel>(sum, 1.0f / static_cast<float>(count));
        for (std::int64_t const k : widths) {
            if (inLine(o - k)) {
                sum = minus(sum, in[(o - k) * step]);
                --count;
            }
        }
    }
}

template <class Channel>
void wrappedLineByHand(Channel const* in, Channel* out, std::int64_t n, std::int64_t step,
                       BoxWidths const& widths)
{
    for (std::int64_t o = 0; o < n; ++o) {
        SumOf<Channel> sum(0);
        for (std::int64_t const width : widths) {
            std::int64_t const k = width < n ? width : width % n;
            sum = plus(sum, in[(o + k < n ? o + k : o + k - n) * step]);
            sum = plus(sum, in[(o - k < 0 ? o - k + n : o - k) * step]);
        }
        out[o * step] = scaled<Channel>(sum, 0.125f);
    }
}

/// A new image: `source` blurred.
template <class Pixel>
ImageRef<Pixel> blurByHand(TypedImage<Pixel> const& source, int diameter, bool wrapX, bool wrapY)
{
    using Channel = typename ChannelOf<Pixel>::type;
    constexpr std::int64_t channels = sizeof(Pixel) / sizeof(Channel);
    std::int64_t const width = source.width();
    std::int64_t const height = source.height();

    auto result = imageOf<Pixel>({source.width(), source.height()});
    auto between = imageOf<Pixel>({source.width(), source.height()});
    auto const* const in = static_cast<Channel const*>(source.data());
    auto* const rows = static_cast<Channel*>(between->data());
    auto* const out = static_cast<Channel*>(result->data());
    BoxWidths const widths = boxWidthsByHand(diameter);
    if (in == nullptr || out == nullptr)
        return result;

    for (std::int64_t y = 0; y < height; ++y) {
        for (std::int64_t c = 0; c < channels; ++c) {
            std::int64_t const first = y * width * channels + c;
            auto const& filter = wrapX ? wrappedLineByHand<Channel> : clampedLineByHand<Channel>;
            filter(in + first, rows + first, width, channels, widths);
        }
    }
    for (std::int64_t first = 0; first < width * channels; ++first) {
        auto const& filter = wrapY ? wrappedLineByHand<Channel> : clampedLineByHand<Channel>;
        filter(rows + first, out + first, height, width * channels, widths);
    }
    return result;
}

}  // namespace koImage::testing
