// How it is computed
//
// The running sum of a line is a chain of additions whose order is fixed, but lines are independent. So lines
// are filtered in bundles, side by side: the samples of a bundle are copied to a work area in which sample x
// of every line follows each other,
//
//   line          0    1    2   ...  lanes - 1
//   position 0   [ ]  [ ]  [ ]  ...  [ ]           one row of the bundle
//   position 1   [ ]  [ ]  [ ]  ...  [ ]
//   ...
//
// and each step of the filter takes eight whole rows: the four that leave the boxes and the four that enter.
// The loops over the lanes of a row are what the compiler turns into vector instructions.
//
// Columns of an image are copied to a bundle as they are, rows are transposed, and the outputs go straight to
// the result. The copy is not only for the order: rows of an image are often a power of two apart and would
// evict each other from the cache. And it is what lets the columns be filtered in place.
#include "koImage/ops/blur.h"

#include "koImage/image/numeric.h"
#include "koImage/image/pixel_array.h"
#include "koImage/image/typed_image.h"
#include "koImage/ops/blur_v3.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace koImage {

namespace {

// ---- kernel
// ------------------------------------------------------------------------------------------------

/// The half-widths a, b, c, d; d is the widest. In 64 bits, as all positions are: their sums are defined.
using HalfWidths = std::array<std::int64_t, 4>;

HalfWidths halfWidthsOf(int diameter)
{
    float const f = static_cast<float>(diameter) * 0.5f + 0.5f;
    auto const rounded = [f](float part) { return std::max(truncateToInt(part * f + 128.0f) >> 8, 0); };
    return {rounded(65), rounded(122), rounded(176), std::max(truncateToInt(f), 0)};
}

/// The rows of a bundle that one step reads, in the order a, b, c, d.
template <class Sample>
struct Taps {
    std::array<Sample const*, 4> behind;
    std::array<Sample const*, 4> ahead;
};

constexpr int maxLanes = 256;

// ---- sums of lines side by side, by channel type
// -----------------------------------------------------------
//
//   Sample   a channel in a bundle
//   load     copies a run of channels to a bundle
//   slide    takes the samples behind out of the sums, in turn, and adds those ahead
//   collect  sets the sums to those of the wrapped kernel
//   write    writes the outputs: sum times factor

template <class Channel>
class LineSums;

// The pattern of a float that is a half, give or take a power of two, rounds like this: half a unit added to
// the magnitude, the 13 bits that a half lacks cleared. Ties go away from zero.
inline float roundedAsHalf(float value)
{
    return std::bit_cast<float>((std::bit_cast<std::uint32_t>(value) + 0x1000) & ~std::uint32_t{0x1FFF});
}

/// Floats, and halves kept as floats 2^112 times as large. In that unit
///   - the halves from 65520 on are the floats from 2^128 on: a sum that overflows the one overflows the
///     other, and infinity and NaN stay what they are;
///   - sums of halves below 2^-14 are exact, as they should be, for halves are multiples of 2^-24;
///   - a sum is never -0, for it starts at +0 and x - x is +0.
/// So rounding as above is the conversion to half and back, on every sum there can be.
template <class Channel>
class FloatSums {
public:
    using Sample = float;

    void slide(Taps<float> taps, int lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        for (int i = 0; i < lanes; ++i) {
            float sum = sums_[i];
            sum = rounded(sum - a[i]);
            sum = rounded(sum - b[i]);
            sum = rounded(sum - c[i]);
            sum = rounded(sum - d[i]);
            sum = rounded(sum + e[i]);
            sum = rounded(sum + f[i]);
            sum = rounded(sum + g[i]);
            sum = rounded(sum + h[i]);
            sums_[i] = sum;
        }
    }

    void collect(Taps<float> taps, int lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        for (int i = 0; i < lanes; ++i) {
            // Not the first sample itself: 0 + -0 is +0.
            float sum = rounded(0.0f + e[i]);
            sum = rounded(sum + a[i]);
            sum = rounded(sum + f[i]);
            sum = rounded(sum + b[i]);
            sum = rounded(sum + g[i]);
            sum = rounded(sum + c[i]);
            sum = rounded(sum + h[i]);
            sum = rounded(sum + d[i]);
            sums_[i] = sum;
        }
    }

protected:
    static float rounded(float sum)
    {
        if constexpr (std::is_same_v<Channel, half>)
            return roundedAsHalf(sum);
        else
            return sum;
    }

    alignas(64) float sums_[maxLanes] = {};
};

template <>
class LineSums<float> : public FloatSums<float> {
public:
    static void load(float const* in, float* samples, int count)
    {
        std::memcpy(samples, in, static_cast<std::size_t>(count) * sizeof(float));
    }

    void write(std::int64_t /*count*/, float factor, float* __restrict out, int lanes) const
    {
        for (int i = 0; i < lanes; ++i)
            out[i] = sums_[i] * factor;
    }
};

template <>
class LineSums<half> : public FloatSums<half> {
public:
    static void load(half const* in, float* __restrict samples, int count)
    {
        int i = 0;
#if KO_SIMD_V3
        i = v3::multiplyHalves(in, unit, samples, count);
#endif
        for (; i < count; ++i)
            samples[i] = static_cast<float>(in[i]) * unit;
    }

    void write(std::int64_t /*count*/, float factor, half* __restrict out, int lanes) const
    {
        // Two products: 1 / unit alone is exact.
        int i = 0;
#if KO_SIMD_V3
        i = v3::roundToHalves(sums_, 1 / unit, factor, out, lanes);
#endif
        for (; i < lanes; ++i)
            out[i] = half(sums_[i] * (1 / unit) * factor);
    }

private:
    static constexpr float unit = 0x1p112f;
};

/// Bytes are summed exactly, so their order is free: two of them at a time as a 16-bit word. The words of all
/// eight rows are added as they are, modulo 2^16, and so are their high bytes; what the high bytes account
/// for, taken from the words, leaves the low bytes.
template <>
class LineSums<unsigned char> {
public:
    using Sample = unsigned char;

    static void load(unsigned char const* in, unsigned char* samples, int count)
    {
        std::memcpy(samples, in, static_cast<std::size_t>(count));
    }

    void slide(Taps<unsigned char> taps, int lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        add(lanes, [=](auto at) { return at(e) + at(f) + at(g) + at(h) - at(a) - at(b) - at(c) - at(d); });
    }

    void collect(Taps<unsigned char> taps, int lanes)
    {
        auto const [a, b, c, d] = taps.behind;
        auto const [e, f, g, h] = taps.ahead;
        std::fill_n(sums_, lanes, 0u);
        add(lanes, [=](auto at) { return at(e) + at(f) + at(g) + at(h) + at(a) + at(b) + at(c) + at(d); });
    }

    void write(std::int64_t count, float factor, unsigned char* out, int lanes) const
    {
        // Signed words are converted by one instruction, unsigned ones by many.
        if (count <= std::int64_t{0x7FFFFFFF} / 255)
            write<std::int32_t>(factor, out, lanes);
        else
            write<std::uint32_t>(factor, out, lanes);
    }

private:
    static std::uint16_t wordOf(unsigned char const* row, int i)
    {
        std::uint16_t word;
        std::memcpy(&word, row + 2 * i, 2);
        return word;
    }

    /// Adds total(at) to the sums, where total adds and subtracts at(row) of the rows of its choice.
    template <class Total>
    void add(int lanes, Total total)
    {
        int const words = lanes / 2;
        std::uint32_t* __restrict const lows = sums_;
        std::uint32_t* __restrict const highs = sums_ + words;
        for (int i = 0; i < words; ++i) {
            int const high = total([i](unsigned char const* row) { return wordOf(row, i) >> 8; });
            int const both = total([i](unsigned char const* row) { return int{wordOf(row, i)}; });
            lows[i] += static_cast<std::uint32_t>(static_cast<std::int16_t>(both - high * 256));
            highs[i] += static_cast<std::uint32_t>(static_cast<std::int16_t>(high));
        }
        if (lanes % 2 != 0)
            sums_[lanes - 1] += static_cast<std::uint32_t>(
                total([lanes](unsigned char const* row) { return int{row[lanes - 1]}; }));
    }

    template <class Word>
    void write(float factor, unsigned char* __restrict out, int lanes) const
    {
        int const words = lanes / 2;
        auto const mean = [this, factor](int i) {
            return static_cast<int>(static_cast<float>(static_cast<Word>(sums_[i])) * factor);
        };
        for (int i = 0; i < words; ++i) {
            auto const word = static_cast<std::uint16_t>(mean(i) | mean(words + i) << 8);
            std::memcpy(out + 2 * i, &word, 2);
        }
        if (lanes % 2 != 0)
            out[lanes - 1] = static_cast<unsigned char>(mean(lanes - 1));
    }

    // The low bytes of all words, then the high ones; last the byte that is left of an odd number of lanes.
    alignas(64) std::uint32_t sums_[maxLanes] = {};
};

template <class Channel>
using SampleOf = typename LineSums<Channel>::Sample;

// ---- one bundle
// --------------------------------------------------------------------------------------------

template <class Sample>
struct Bundle {
    Sample const* row(std::int64_t x) const { return samples + x * lanes; }

    Sample const* samples;
    std::int64_t length;
    int lanes;
};

/// Hands each position's outputs to `output`: written to output.row(o), followed by output.done(o).
template <class Channel, class Output>
void filterClamped(Bundle<SampleOf<Channel>> const& bundle, HalfWidths const& halfWidths, Output output)
{
    // What lies outside of the line is a row of zeros: x + 0 and x - 0 are x, and no sum is -0.
    alignas(64) static constexpr SampleOf<Channel> zeros[maxLanes] = {};
    std::int64_t const n = bundle.length;

    // Between two neighbours of these positions each box enters and leaves at every step, or at none: it
    // enters from -k to n - 1 - k, and from k + 1 on the sample of the step before leaves.
    std::array<std::int64_t, 14> bounds = {0, n};
    for (std::size_t i = 0; i < 4; ++i) {
        bounds[3 * i + 2] = -halfWidths[i];
        bounds[3 * i + 3] = n - halfWidths[i];
        bounds[3 * i + 4] = std::min(halfWidths[i] + 1, n);
    }
    std::sort(bounds.begin(), bounds.end());

    LineSums<Channel> sums;
    std::int64_t count = 0;
    for (std::size_t part = 1; part < bounds.size(); ++part) {
        std::int64_t const first = bounds[part - 1];
        std::int64_t const last = bounds[part];

        Taps<SampleOf<Channel>> taps;
        std::array<std::ptrdiff_t, 4> behindStep;
        std::array<std::ptrdiff_t, 4> aheadStep;
        int entering = 0;
        int leaving = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            bool const leaves = first > halfWidths[i];
            taps.behind[i] = leaves ? bundle.row(first - 1 - halfWidths[i]) : zeros;
            behindStep[i] = leaves ? bundle.lanes : 0;
            leaving += leaves;

            bool const enters = -halfWidths[i] <= first && first < n - halfWidths[i];
            taps.ahead[i] = enters ? bundle.row(first + halfWidths[i]) : zeros;
            aheadStep[i] = enters ? bundle.lanes : 0;
            entering += enters;
        }

        // Wide boxes leave gaps before the first output, as long as the diameter is large.
        if (last <= 0 && entering == 0)
            continue;

        float factor = 0;
        for (std::int64_t o = first; o < last; ++o) {
            sums.slide(taps, bundle.lanes);
            count += entering - leaving;
            if (o >= 0) {
                if (o == first || entering != leaving)
                    factor = 1.0f / static_cast<float>(count);
                sums.write(count, factor, output.row(o), bundle.lanes);
                output.done(o);
            }
            for (std::size_t i = 0; i < 4; ++i) {
                taps.behind[i] += behindStep[i];
                taps.ahead[i] += aheadStep[i];
            }
        }
    }
}

template <class Channel, class Output>
void filterWrapped(Bundle<SampleOf<Channel>> const& bundle, HalfWidths const& halfWidths, Output output)
{
    std::int64_t const n = bundle.length;
    std::array<std::int64_t, 4> behind;
    std::array<std::int64_t, 4> ahead;
    for (std::size_t i = 0; i < 4; ++i) {
        ahead[i] = halfWidths[i] % n;
        behind[i] = (n - ahead[i]) % n;
    }

    LineSums<Channel> sums;
    auto const step = [n](std::int64_t& x) { x = x + 1 == n ? 0 : x + 1; };
    for (std::int64_t o = 0; o < n; ++o) {
        Taps<SampleOf<Channel>> taps;
        for (std::size_t i = 0; i < 4; ++i) {
            taps.behind[i] = bundle.row(behind[i]);
            taps.ahead[i] = bundle.row(ahead[i]);
            step(behind[i]);
            step(ahead[i]);
        }
        sums.collect(taps, bundle.lanes);
        sums.write(8, 0.125f, output.row(o), bundle.lanes);
        output.done(o);
    }
}

template <class Channel, class Output>
void filterBundle(Bundle<SampleOf<Channel>> const& bundle, HalfWidths const& halfWidths, bool wrap,
                  Output output)
{
    if (wrap)
        filterWrapped<Channel>(bundle, halfWidths, output);
    else
        filterClamped<Channel>(bundle, halfWidths, output);
}

/// How many of `lines` lines make a bundle: `wanted`, or as many as the work area holds. It has the size of
/// the image, and halves take twice their size there.
template <class Channel>
std::ptrdiff_t bundleSize(std::ptrdiff_t wanted, std::ptrdiff_t lines)
{
    return std::min(wanted, lines / std::ptrdiff_t{sizeof(SampleOf<Channel>) / sizeof(Channel)});
}

// ---- columns
// -----------------------------------------------------------------------------------------------

#ifndef COLS_F
#define COLS_B 256
#define COLS_F 64
#define COLS_H 64
#define ROWS_B 64
#define ROWS_F 32
#define ROWS_H 32
#define PREF 1
#endif

template <class Channel>
struct ColumnOutput {
    Channel* row(std::int64_t y) const { return out + y * stride; }
    void done(std::int64_t y) const
    {
        if (PREF)
            for (int l = 0; l < next; l += int(64 / sizeof(Channel)))
                __builtin_prefetch(out + y * stride + next + l, 0, 2);
    }

    Channel* out;
    std::ptrdiff_t stride;
    int next;
};

/// Filters `lines` adjacent columns of channels; in and out may be the same.
template <class Channel>
void filterColumns(Channel const* in, Channel* out, std::ptrdiff_t lines, std::int64_t height,
                   HalfWidths const& halfWidths, bool wrap, SampleOf<Channel>* work)
{
    constexpr int wanted = sizeof(Channel) == 1 ? COLS_B : sizeof(Channel) == 2 ? COLS_H : COLS_F;
    std::ptrdiff_t const most = bundleSize<Channel>(wanted, lines);
    for (std::ptrdiff_t first = 0; first < lines; first += most) {
        int const lanes = static_cast<int>(std::min(most, lines - first));
        for (std::int64_t y = 0; y < height; ++y)
            LineSums<Channel>::load(in + y * lines + first, work + y * lanes, lanes);

        filterBundle<Channel>({work, height, lanes}, halfWidths, wrap,
                              ColumnOutput<Channel>{out + first, lines, first + lanes < lines ? lanes : 0});
    }
}

// ---- rows
// --------------------------------------------------------------------------------------------------

/// to(x, y) = from(y, x) for `columns` x `rows` pixels of `to`; strides in pixels.
template <class Pixel>
void transpose(Pixel const* __restrict from, std::ptrdiff_t fromStride, Pixel* __restrict to,
               std::ptrdiff_t toStride, int columns, int rows)
{
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x)
            to[y * toStride + x] = from[x * fromStride + y];
}

/// 16 x 16 bytes. Dealing the two halves of the tile into each other shifts the digits of a position, row
/// and column, by one bit; four times, and they have changed places.
inline void transposeTile(unsigned char const* from, std::ptrdiff_t fromStride, unsigned char* to,
                          std::ptrdiff_t toStride)
{
    constexpr auto deal = [](unsigned char const* __restrict in, unsigned char* __restrict out) {
        for (int i = 0; i < 128; ++i) {
            out[2 * i] = in[i];
            out[2 * i + 1] = in[128 + i];
        }
    };
    unsigned char tile[256];
    unsigned char other[256];
    for (int y = 0; y < 16; ++y)
        std::memcpy(tile + 16 * y, from + y * fromStride, 16);
    deal(tile, other);
    deal(other, tile);
    deal(tile, other);
    deal(other, tile);
    for (int y = 0; y < 16; ++y)
        std::memcpy(to + y * toStride, tile + 16 * y, 16);
}

/// Bytes by whole tiles; the last ones of a row or column overlap those before.
inline void transpose(unsigned char const* __restrict from, std::ptrdiff_t fromStride,
                      unsigned char* __restrict to, std::ptrdiff_t toStride, int columns, int rows)
{
    if (columns < 16 || rows < 16) {
        transpose<unsigned char>(from, fromStride, to, toStride, columns, rows);
        return;
    }
    for (int y = 0; y < rows; y += 16) {
        int const top = std::min(y, rows - 16);
        for (int x = 0; x < columns; x += 16) {
            int const left = std::min(x, columns - 16);
            transposeTile(from + left * fromStride + top, fromStride, to + top * toStride + left, toStride);
        }
    }
}

/// The type of a pixel's channels.
template <class Pixel>
struct ChannelIn {
    using type = Pixel;
};
template <class Pixel>
requires requires(Pixel pixel)
{
    pixel.r;
}
struct ChannelIn<Pixel> {
    using type = decltype(Pixel::r);
};
template <class Pixel>
using ChannelOf = typename ChannelIn<Pixel>::type;

template <class Pixel>
constexpr int channelsOf = sizeof(Pixel) / sizeof(ChannelOf<Pixel>);

/// Positions that are transposed at a time: a cache line of each row, or a few.
template <class Pixel>
constexpr int tileLength = sizeof(Pixel) == 1 ? 64 : 16;

template <class Pixel>
struct RowOutput {
    ChannelOf<Pixel>* row(std::int64_t x) const
    {
        return reinterpret_cast<ChannelOf<Pixel>*>(tile + x % tileLength<Pixel> * rows);
    }
    void done(std::int64_t x) const
    {
        if ((x + 1) % tileLength<Pixel> != 0 && x + 1 != width)
            return;
        std::int64_t const first = x - x % tileLength<Pixel>;
        transpose(tile, rows, out + first, width, static_cast<int>(x + 1 - first), rows);
    }

    Pixel* out;
    std::int64_t width;
    int rows;
    Pixel* tile;
};

/// Filters the rows of an image; in and out may be the same.
template <class Pixel>
void filterRows(Pixel const* in, Pixel* out, std::int64_t width, std::int64_t height,
                HalfWidths const& halfWidths, bool wrap, SampleOf<ChannelOf<Pixel>>* work)
{
    using Channel = ChannelOf<Pixel>;
    constexpr int channels = channelsOf<Pixel>;

    // A single row is a column lying down; no bundle is too small for it.
    if (height == 1) {
        filterColumns(reinterpret_cast<Channel const*>(in), reinterpret_cast<Channel*>(out), channels, width,
                      halfWidths, wrap, work);
        return;
    }

    constexpr int wanted = sizeof(Channel) == 1 ? ROWS_B : sizeof(Channel) == 2 ? ROWS_H : ROWS_F;
    constexpr int wantedRows = wanted / channels;
    std::ptrdiff_t const most = bundleSize<Channel>(wantedRows, height);
    alignas(64) Pixel tile[tileLength<Pixel> * wantedRows];
    for (std::ptrdiff_t first = 0; first < height; first += most) {
        int const rows = static_cast<int>(std::min(most, height - first));
        Pixel const* const from = in + first * width;
        for (std::int64_t x = 0; x < width; x += tileLength<Pixel>) {
            int const length = static_cast<int>(std::min<std::int64_t>(tileLength<Pixel>, width - x));
            if constexpr (std::is_same_v<Channel, half>) {
                for (int r = 0; r < rows; ++r)
                    for (int i = 0; i < length; ++i)
                        LineSums<half>::load(&from[r * width + x + i].r,
                                             work + ((x + i) * rows + r) * channels, channels);
            } else {
                transpose(from + x, width, reinterpret_cast<Pixel*>(work) + x * rows, rows, rows, length);
            }
        }

        filterBundle<Channel>({work, width, rows * channels}, halfWidths, wrap,
                              RowOutput<Pixel>{out + first * width, width, rows, tile});
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
        using Channel = ChannelOf<Pixel>;
        if (pixels == nullptr || result.data() == nullptr || width < 1 || height < 1 ||
            std::int64_t{width} * height != source.pixelCount())
            return;

        TypedImage<Pixel> between;
        between.resize(width, height);
        auto* const work = reinterpret_cast<SampleOf<Channel>*>(between.pixels());
        auto* const out = static_cast<Pixel*>(result.data());
        auto* const outChannels = reinterpret_cast<Channel*>(out);
        HalfWidths const halfWidths = halfWidthsOf(diameter);
        filterRows(static_cast<Pixel const*>(pixels), out, width, height, halfWidths, wrapX, work);
        filterColumns<Channel>(outChannels, outChannels, std::ptrdiff_t{channelsOf<Pixel>} * width, height,
                               halfWidths, wrapY, work);
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
