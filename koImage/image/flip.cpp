#include "koImage/image/flip.h"

#include "koImage/image/flip_v3.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <type_traits>

namespace koImage {

namespace {

// Rows up to this size are turned while the next ones are fetched: the processor, which looks ahead along
// runs of addresses, finds these too short. Longer rows it follows by itself, and they would not wait in the
// cache.
constexpr std::ptrdiff_t fetchedRow = std::ptrdiff_t{32} << 10;

void exchangeRows(unsigned char* lower, unsigned char* upper, std::ptrdiff_t bytes)
{
    constexpr std::ptrdiff_t run = 256;
    std::ptrdiff_t at = 0;
    for (; bytes <= fetchedRow && bytes - at >= run; at += run) {
        for (std::ptrdiff_t line = at; line < at + run; line += 64) {
            prefetchAhead(lower + line, bytes);
            prefetchAhead(upper + line, -bytes);
        }
        std::swap_ranges(lower + at, lower + at + run, upper + at);
    }
    std::swap_ranges(lower + at, lower + bytes, upper + at);
}

/// A pixel by itself.
template <class Pixel>
struct OnePixel {
    Pixel pixel;

    static OnePixel load(Pixel const* source) { return {*source}; }
    void store(Pixel* target) const { *target = pixel; }
    OnePixel reversed() const { return *this; }
};

/// Eight pixels of one byte, or two of four.
template <class Pixel>
struct PixelWord {
    std::uint64_t pixels;

    static PixelWord load(Pixel const* source)
    {
        PixelWord word;
        std::memcpy(&word.pixels, source, sizeof word.pixels);
        return word;
    }
    void store(Pixel* target) const { std::memcpy(target, &pixels, sizeof pixels); }
    PixelWord reversed() const
    {
        return {sizeof(Pixel) == 1 ? __builtin_bswap64(pixels) : std::rotl(pixels, 32)};
    }
};

/// As many pixels as are best turned in one go.
#if KO_SIMD_V3
template <class Pixel>
using PixelBlock = v3::PixelBlock<sizeof(Pixel)>;
#else
template <class Pixel>
using PixelBlock = std::conditional_t<sizeof(Pixel) <= 4, PixelWord<Pixel>, OnePixel<Pixel>>;
#endif

/// Exchanges and turns blocks from both ends of a row, `done` pixels inside at first, for as long as two are
/// left between. Returns how far inside that came.
template <class Block, bool FetchNextRow, class Pixel>
std::ptrdiff_t exchangeEnds(Pixel* row, std::ptrdiff_t width, std::ptrdiff_t done)
{
    constexpr auto pixelBytes = static_cast<std::ptrdiff_t>(sizeof(Pixel));
    constexpr auto blockBytes = static_cast<std::ptrdiff_t>(sizeof(Block));
    constexpr std::ptrdiff_t blockWidth = blockBytes / pixelBytes;
    for (; width - 2 * done >= 2 * blockWidth; done += blockWidth) {
        Pixel* const left = row + done;
        Pixel* const right = row + width - done - blockWidth;
        auto const toRight = Block::load(left).reversed();
        auto const toLeft = Block::load(right).reversed();
        if constexpr (FetchNextRow)
            for (std::ptrdiff_t line = 0; line < 2 * blockBytes; line += 64)
                prefetchAhead(row + 2 * done, width * pixelBytes + line);
        toLeft.store(left);
        toRight.store(right);
    }
    return done;
}

template <bool FetchNextRow, class Pixel>
void reverseRows(Pixel* row, std::ptrdiff_t width, int height)
{
    for (int y = 0; y < height; ++y, row += width) {
        std::ptrdiff_t const done = exchangeEnds<PixelBlock<Pixel>, FetchNextRow>(row, width, 0);
        exchangeEnds<OnePixel<Pixel>, false>(row, width, done);
    }
}

}  // namespace

void imageFlipVertical(Image& image)
{
    if (!image.holdsItsRows())
        return;
    auto const rowBytes = std::ptrdiff_t{image.bytesPerPixel()} * image.width();
    auto* lower = static_cast<unsigned char*>(image.data());
    auto* upper = lower + rowBytes * (image.height() - 1);
    for (; lower < upper; lower += rowBytes, upper -= rowBytes)
        exchangeRows(lower, upper, rowBytes);
}

void imageFlipHorizontal(Image& image)
{
    if (!image.holdsItsRows())
        return;
    dispatchPixel(image.pixelType(), FlipHorizontalPixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto* const pixels = static_cast<Pixel*>(image.data());
        if (image.width() * std::ptrdiff_t{sizeof(Pixel)} <= fetchedRow)
            reverseRows<true>(pixels, image.width(), image.height());
        else
            reverseRows<false>(pixels, image.width(), image.height());
    });
}

}  // namespace koImage
