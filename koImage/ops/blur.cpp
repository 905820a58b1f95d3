// How it is computed
//
// The running sum of a line is a chain of additions in a fixed order, but lines do not depend on each other.
// So they are filtered in bundles: the samples of a bundle are copied to a work area, position by position,
//
//   line          0    1    2   ...  lanes - 1
//   position 0   [ ]  [ ]  [ ]  ...  [ ]           a row of the bundle
//   position 1   [ ]  [ ]  [ ]  ...  [ ]
//   ...
//
// and a step of the filter takes eight whole rows: the four that leave the boxes and the four that enter. The
// loops over the lanes of a row become vector instructions on any processor.
//
// Columns of an image are rows of a bundle already, rows of an image are transposed on the way in and out.
// The copy is worth its time: rows of an image are often a power of two apart and evict each other from the
// cache, and a bundle that is copied can be filtered in place. So the result holds what the first pass makes,
// and the temporary image is the work area.
#include "koImage/ops/blur.h"

#include "koImage/image/numeric.h"
#include "koImage/image/typed_image.h"
#include "koImage/ops/blur_sums.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace koImage {

namespace {

/// The half-widths a, b, c, d; d is the widest. In 64 bits, as all positions are: sums of them are defined.
using HalfWidths = std::array<std::int64_t, 4>;

HalfWidths halfWidthsOf(int diameter)
{
    float const f = static_cast<float>(diameter) * 0.5f + 0.5f;
    auto const rounded = [f](float part) { return std::max(truncateToInt(part * f + 128.0f) >> 8, 0); };
    return {rounded(65), rounded(122), rounded(176), std::max(truncateToInt(f), 0)};
}

// ---- Filtering a bundle ----
//
// The outputs of position o are written to output.row(o), which output.done(o) then takes from there.

template <class Sample, class Lanes>
struct Bundle {
    Sample const* row(std::int64_t position) const { return samples + position * lanes; }

    Sample const* samples;
    std::int64_t length;
    Lanes lanes;
};

template <class Channel, class Lanes, class Output>
void filterClamped(Bundle<SampleOf<Channel>, Lanes> bundle, HalfWidths const& halfWidths, Output output)
{
    // Outside of the line, samples are zeros: x + 0 and x - 0 are x, for no sum is -0.
    alignas(64) static constexpr SampleOf<Channel> zeros[maxLanes] = {};
    std::int64_t const n = bundle.length;

    // A step takes out what lies behind the previous position, then adds what lies ahead. Box k reads from
    // the line ahead from -k to n - 1 - k, and behind from k + 1 on; between these bounds nothing has to be
    // tested.
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
            std::int64_t const k = halfWidths[i];
            bool const leaves = first > k;
            taps.behind[i] = leaves ? bundle.row(first - 1 - k) : zeros;
            behindStep[i] = leaves ? int{bundle.lanes} : 0;
            leaving += leaves;

            bool const enters = -k <= first && first < n - k;
            taps.ahead[i] = enters ? bundle.row(first + k) : zeros;
            aheadStep[i] = enters ? int{bundle.lanes} : 0;
            entering += enters;
        }

        // Boxes wider than the line leave gaps before the first output, as long as a diameter can make them.
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

template <class Channel, class Lanes, class Output>
void filterWrapped(Bundle<SampleOf<Channel>, Lanes> bundle, HalfWidths const& halfWidths, Output output)
{
    std::int64_t const n = bundle.length;
    std::array<std::int64_t, 4> behind;
    std::array<std::int64_t, 4> ahead;
    for (std::size_t i = 0; i < 4; ++i) {
        ahead[i] = halfWidths[i] % n;
        behind[i] = (n - ahead[i]) % n;
    }

    LineSums<Channel> sums;
    auto const step = [n](std::int64_t& position) { position = position + 1 == n ? 0 : position + 1; };
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

template <class Channel, int fullLanes, class Output>
void filterBundle(SampleOf<Channel> const* samples, std::int64_t length, int lanes,
                  HalfWidths const& halfWidths, bool wrap, Output output)
{
    static_assert(fullLanes <= maxLanes);
    auto const filter = [&](auto count) {
        Bundle<SampleOf<Channel>, decltype(count)> const bundle{samples, length, count};
        if (wrap)
            filterWrapped<Channel>(bundle, halfWidths, output);
        else
            filterClamped<Channel>(bundle, halfWidths, output);
    };
    if (lanes == fullLanes)
        filter(std::integral_constant<int, fullLanes>{});
    else
        filter(lanes);
}

/// How many of `lines` lines make a bundle: as many as wanted, or as fit the work area, which has the size of
/// the image. Halves take twice their size there.
template <class Channel>
std::ptrdiff_t bundleSize(std::ptrdiff_t wanted, std::ptrdiff_t lines)
{
    constexpr std::ptrdiff_t growth = sizeof(SampleOf<Channel>) / sizeof(Channel);
    return std::min(wanted, lines / growth);
}

/// Brings the cache lines of `count` values closer.
template <class T>
void prefetch(T const* values, int count)
{
    for (int i = 0; i < count; i += static_cast<int>(64 / sizeof(T)))
        __builtin_prefetch(values + i);
}

// ---- Columns ----

// A bundle takes no more than 256 bytes of each row of the image, too few for the processor to see the next
// ones coming: they are asked for by name.
constexpr std::int64_t rowsAhead = 8;

template <class Channel>
struct ColumnOutput {
    Channel* row(std::int64_t y) const { return out + y * stride; }
    void done(std::int64_t y) const { prefetch(row(std::min(y + rowsAhead, height - 1)), lanes); }

    Channel* out;
    std::ptrdiff_t stride;
    std::int64_t height;
    int lanes;
};

/// Filters the columns of rows of `lines` channels; in and out may be the same.
template <class Channel>
void filterColumns(Channel const* in, Channel* out, std::ptrdiff_t lines, std::int64_t height,
                   HalfWidths const& halfWidths, bool wrap, SampleOf<Channel>* work)
{
    // Whole cache lines of every row; wider bundles were no faster.
    constexpr int fullLanes = sizeof(Channel) == 1 ? 256 : 64;
    std::ptrdiff_t const most = bundleSize<Channel>(fullLanes, lines);
    for (std::ptrdiff_t first = 0; first < lines; first += most) {
        int const lanes = static_cast<int>(std::min(most, lines - first));
        Channel const* const from = in + first;
        for (std::int64_t y = 0; y < height; ++y) {
            prefetch(from + std::min(y + rowsAhead, height - 1) * lines, lanes);
            LineSums<Channel>::load(from + y * lines, work + y * lanes, lanes);
        }
        filterBundle<Channel, fullLanes>(work, height, lanes, halfWidths, wrap,
                                         ColumnOutput<Channel>{out + first, lines, height, lanes});
    }
}

// ---- Rows ----

template <class Pixel>
auto firstChannel(Pixel pixel)
{
    if constexpr (requires { pixel.r; })
        return pixel.r;
    else
        return pixel;
}

template <class Pixel>
using ChannelOf = decltype(firstChannel(Pixel{}));

/// Rows of an image are transposed in pieces of so many pixels: a cache line, or a few.
constexpr int tileLength = 16;

// Each row of the image is visited once, row by row: rows a power of two apart evict each other.

/// bundle(x, y) = image(y, x)
template <class Pixel>
void rowsToBundle(Pixel const* __restrict image, std::ptrdiff_t stride, Pixel* __restrict bundle, int rows,
                  int length)
{
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < length; ++x)
            bundle[x * rows + y] = image[y * stride + x];
}

/// image(y, x) = bundle(x, y)
template <class Pixel>
void bundleToRows(Pixel const* __restrict bundle, Pixel* __restrict image, std::ptrdiff_t stride, int rows,
                  int length)
{
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < length; ++x)
            image[y * stride + x] = bundle[x * rows + y];
}

/// 16 x 16 bytes. To deal the two halves of the tile into each other moves the eight bits of an index, row
/// before column, round by one; done four times, row and column have changed places.
void transposeTile(unsigned char const* from, std::ptrdiff_t fromStride, unsigned char* to,
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

// Bytes by whole tiles; the last tile of the rows overlaps the one before.

void rowsToBundle(unsigned char const* image, std::ptrdiff_t stride, unsigned char* bundle, int rows,
                  int length)
{
    if (rows < 16 || length != 16) {
        rowsToBundle<unsigned char>(image, stride, bundle, rows, length);
        return;
    }
    for (int y = 0; y < rows; y += 16) {
        int const first = std::min(y, rows - 16);
        transposeTile(image + first * stride, stride, bundle + first, rows);
    }
}

void bundleToRows(unsigned char const* bundle, unsigned char* image, std::ptrdiff_t stride, int rows,
                  int length)
{
    if (rows < 16 || length != 16) {
        bundleToRows<unsigned char>(bundle, image, stride, rows, length);
        return;
    }
    for (int y = 0; y < rows; y += 16) {
        int const first = std::min(y, rows - 16);
        transposeTile(bundle + first, rows, image + first * stride, stride);
    }
}

/// Halves become samples of another size on the way.
void rowsToBundle(Half4 const* image, std::ptrdiff_t stride, Float4* bundle, int rows, int length)
{
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < length; ++x)
            LineSums<half>::load(&image[y * stride + x].r, &bundle[x * rows + y].r, 4);
}

template <class Pixel>
struct RowOutput {
    ChannelOf<Pixel>* row(std::int64_t x) const
    {
        return reinterpret_cast<ChannelOf<Pixel>*>(tile + x % tileLength * rows);
    }

    void done(std::int64_t x) const
    {
        std::int64_t const start = x - x % tileLength;
        if (x + 1 == start + tileLength || x + 1 == width)
            bundleToRows(tile, out + start, width, rows, static_cast<int>(x + 1 - start));
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
    constexpr int channels = sizeof(Pixel) / sizeof(Channel);

    // A single row is a column lying down: its channels are lines that fit any work area.
    if (height == 1) {
        filterColumns(reinterpret_cast<Channel const*>(in), reinterpret_cast<Channel*>(out), channels, width,
                      halfWidths, wrap, work);
        return;
    }

    // Whole vectors. More rows were slower: they are more streams than the processor follows at a time.
    constexpr int fullRows = sizeof(Pixel) == 1 ? 64 : channels == 1 ? 32 : 16;
    std::ptrdiff_t const most = bundleSize<Channel>(fullRows, height);
    constexpr auto tilePixels = static_cast<std::size_t>(tileLength * fullRows);
    alignas(64) Pixel tile[tilePixels];
    for (std::ptrdiff_t first = 0; first < height; first += most) {
        int const rows = static_cast<int>(std::min<std::int64_t>(most, height - first));
        for (std::int64_t x = 0; x < width; x += tileLength) {
            int const length = static_cast<int>(std::min<std::int64_t>(tileLength, width - x));
            using BundlePixel = std::conditional_t<std::is_same_v<Pixel, Half4>, Float4, Pixel>;
            rowsToBundle(in + first * width + x, width, reinterpret_cast<BundlePixel*>(work) + x * rows, rows,
                         length);
        }
        filterBundle<Channel, fullRows * channels>(work, width, rows * channels, halfWidths, wrap,
                                                   RowOutput<Pixel>{out + first * width, width, rows, tile});
    }
}

}  // namespace

void imageBlur(Image const& source, Image& result, int diameter, bool wrapX, bool wrapY)
{
    if (source.pixelType() != result.pixelType())
        return;

    // Read first: a result that is also the source, and borrows its pixels, leaves them in resize.
    void const* const pixels = source.data();
    int const width = source.width();
    int const height = source.height();
    result.resize(width, height);

    dispatchPixel(source.pixelType(), BlurPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        using Channel = ChannelOf<Pixel>;
        if (pixels == nullptr || !result.holdsItsRows())
            return;

        TypedImage<Pixel> temporary;
        temporary.resize(width, height);
        auto* const work = static_cast<SampleOf<Channel>*>(temporary.data());
        auto* const out = static_cast<Pixel*>(result.data());
        auto* const channels = reinterpret_cast<Channel*>(out);
        HalfWidths const halfWidths = halfWidthsOf(diameter);

        filterRows(static_cast<Pixel const*>(pixels), out, width, height, halfWidths, wrapX, work);
        filterColumns(channels, channels, width * std::ptrdiff_t{sizeof(Pixel) / sizeof(Channel)}, height,
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
