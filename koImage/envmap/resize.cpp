#include "koImage/envmap/resize.h"

#include "koImage/envmap/resize_rows.h"
#include "koImage/envmap/resize_v3.h"
#include "koImage/image/simd.h"
#include "koImage/image/streaming.h"

#include <memory>
#include <utility>

namespace koImage {

namespace {

// --- Blocks of the result, from a source whose sizes describe its pixels ---
//
// All positions then lie inside the source: insideScale takes more from a coordinate than its roundings add.

struct Block {
    int left;
    int width;
    int top;
    int bottom;
};

/// Calls work(block) for blocks that cover the result, from left to right in bands of rows. A band's part of
/// a fresh result, just cleared by the system, and its source rows stay in the second-level cache.
template <class Pixel, class Work>
void forEachBlock(TypedImage<Pixel> const& result, int maxWidth, Work const& work)
{
    constexpr std::int64_t bandBytes = 2 << 20;
    constexpr std::int64_t fewestRows = 16;  // finding a block's columns takes as long as a row or two
    auto const rowBytes = std::int64_t{result.width()} * std::int64_t{sizeof(Pixel)};
    auto const bandRows = static_cast<int>(std::max(bandBytes / rowBytes, fewestRows));

    int rows = 0;
    for (int top = 0; top < result.height(); top += rows) {
        rows = std::min(bandRows, result.height() - top);
        int width = 0;
        for (int left = 0; left < result.width(); left += width) {
            width = std::min(maxWidth, result.width() - left);
            work(Block{left, width, top, top + rows});
        }
    }
}

// --- Point sampling ---

/// Only columns are kept: long runs of memory are worth more than small tiles.
constexpr int copyWidth = 4096;

template <class Pixel>
void copyBlock(TypedImage<Pixel> const& source, TypedImage<Pixel>& result, Block block, bool streamed)
{
    std::array<std::int32_t, copyWidth> columns;
    auto const count = static_cast<std::size_t>(block.width);
    for (std::size_t i = 0; i < count; ++i)
        columns[i] = nearestTo(centreOf(block.left + static_cast<int>(i), result.invWidth()), source.width());

    std::array<Pixel, copyWidth> kept;
    std::int32_t copied = -1;
    for (int y = block.top; y < block.bottom; ++y) {
        std::int32_t const row = nearestTo(centreOf(y, result.invHeight()), source.height());
        Pixel* const out = result.pixels() + pixelOffset(block.left, y, result.width());
        if (row != copied) {
            Pixel const* const pixels = source.pixels() + pixelOffset(0, row, source.width());
            copyColumns(pixels, columns.data(), count, streamed ? kept.data() : out);
            copied = row;
        } else if (!streamed) {
            std::copy_n(out - result.width(), count, out);
        }
        if (streamed)
            streamBytes(out, kept.data(), count * sizeof(Pixel));
    }
}

// --- Bilinear ---

template <class Pixel>
void findColumns(TypedImage<Pixel> const& source, TypedImage<Pixel> const& result, Block block,
                 Columns& columns)
{
    columns.count = static_cast<std::size_t>(block.width);
    for (std::size_t i = 0; i < columns.count; ++i) {
        Neighbours const x = neighboursOf(centreOf(block.left + static_cast<int>(i), result.invWidth()),
                                          source.width(), source.wrapHorizontal());
        columns.set(i, static_cast<std::int32_t>(x.near), static_cast<std::int32_t>(x.far),
                    rowWeights<Pixel>(x.t));
    }
    for (std::size_t i = columns.count; i < columns.paddedCount(); ++i)
        columns.set(i, 0, 0, Weights(0, 0));
}

/// The two source rows that were blended last.
template <class Pixel>
class KeptRows {
    using Kept = typename RowBlend<Pixel>::Kept;

public:
    KeptRows(TypedImage<Pixel> const& source, Columns const& columns) : source_(source), columns_(columns) {}

    /// Row y of the source, blended along itself. The row `other` is kept beside it, if it was before.
    Kept const* get(std::int64_t y, std::int64_t other)
    {
        if (y_[0] == y)
            return rows_[0].data();
        if (y_[1] == y)
            return rows_[1].data();
        std::size_t const i = y_[0] == other ? 1 : 0;
        y_[i] = y;
        RowBlend<Pixel>::across(source_.pixels() + y * source_.width(), columns_, rows_[i].data());
        return rows_[i].data();
    }

private:
    TypedImage<Pixel> const& source_;
    Columns const& columns_;
    std::array<std::int64_t, 2> y_ = {-1, -1};
    std::array<std::array<Kept, tileWidth>, 2> rows_;
};

template <class Pixel>
void blendBlock(TypedImage<Pixel> const& source, TypedImage<Pixel>& result, Block block, bool streamed)
{
    Columns columns;
    findColumns(source, result, block, columns);
    KeptRows<Pixel> rows(source, columns);

    // Reducing by more than two, no source row is read twice.
    bool const keep = result.height() > source.height() / 2;
    for (int y = block.top; y < block.bottom; ++y) {
        Neighbours const at =
            neighboursOf(centreOf(y, result.invHeight()), source.height(), source.wrapVertical());
        Pixel* const out = result.pixels() + pixelOffset(block.left, y, result.width());
        auto const blendRow = [&](Pixel* to) {
            if (keep)
                RowBlend<Pixel>::down(rows.get(at.near, at.far), rows.get(at.far, at.near), Weights(at.t),
                                      columns.count, to);
            else
                RowBlend<Pixel>::both(source.pixels() + at.near * source.width(),
                                      source.pixels() + at.far * source.width(), columns, Weights(at.t), to);
        };
        if (streamed) {
            std::array<Pixel, tileWidth> row;
            blendRow(row.data());
            streamBytes(out, row.data(), columns.count * sizeof(Pixel));
        } else {
            blendRow(out);
        }
    }
}

// --- One pixel at a time, from a source whose sizes do not describe its pixels ---

/// result(x, y) = pixelAt(u, v) at the centre of every pixel.
template <class Pixel, class PixelAt>
void fill(TypedImage<Pixel>& result, PixelAt const& pixelAt)
{
    Pixel* out = result.pixels();
    for (int y = 0; y < result.height(); ++y) {
        float const v = centreOf(y, result.invHeight());
        for (int x = 0; x < result.width(); ++x)
            *out++ = pixelAt(centreOf(x, result.invWidth()), v);
    }
}

template <class Pixel>
void copyPixels(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    fill(result, [&source, pixels = pixelsOf<Pixel>(source)](float u, float v) {
        return pixelNear(pixels, source, nearestTo(u, source.width()), nearestTo(v, source.height()));
    });
}

template <class Pixel>
void blendPixels(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    fill(result, [&source](float u, float v) {
        SampleOf<Pixel> sample;
        sampleBilinear(source, u, v, sample);
        return pixelOf(sample);
    });
}

/// Writes every pixel of the result.
template <class Pixel>
void resample(TypedImage<Pixel> const& source, TypedImage<Pixel>& result, bool filter)
{
    if (!source.holdsItsRows()) {
        filter ? blendPixels(source, result) : copyPixels(source, result);
        return;
    }
    bool const streamed =
        isStreamed(result.pixels(), static_cast<std::size_t>(result.pixelCount()) * sizeof(Pixel));
    if (filter)
        forEachBlock(result, tileWidth, [&](Block block) { blendBlock(source, result, block, streamed); });
    else
        forEachBlock(result, copyWidth, [&](Block block) { copyBlock(source, result, block, streamed); });
    finishStreaming();
}

}  // namespace

Image* resize(Image const& source, int width, int height, bool filter)
{
    Image* result = nullptr;
    dispatchPixel(source.pixelType(), ResamplePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto image = std::make_unique<TypedImage<Pixel>>();
        image->resize(width, height);
        if (image->holdsItsRows() && !pixelsOf<Pixel>(source).empty())
            resample(static_cast<TypedImage<Pixel> const&>(source), *image, filter);
        result = image.release();
    });
    return result;
}

}  // namespace koImage
