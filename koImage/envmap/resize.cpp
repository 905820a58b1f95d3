#include "koImage/envmap/resize.h"

#include "koImage/envmap/resize_rows.h"

#include <memory>
#include <utility>

namespace koImage {

namespace {

/// Whether the sizes describe the pixel array: positive, their product within 32 bits.
bool isRegular(Image const& image)
{
    return image.width() > 0 && image.height() > 0 &&
           std::int64_t{image.width()} * image.height() == image.pixelCount();
}

// --- One pixel at a time: images whose sizes do not describe their pixels ---

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
void samplePixels(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    fill(result, [&source](float u, float v) {
        SampleOf<Pixel> sample;
        sampleBilinear(source, u, v, sample);
        return pixelOf(sample);
    });
}

template <class Pixel>
void copyPixels(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    auto const pixels = pixelsOf<Pixel>(source);
    fill(result, [&](float u, float v) {
        return pixelNear(pixels, source, truncateToInt(positionOf(u, source.width())),
                         truncateToInt(positionOf(v, source.height())));
    });
}

// --- Bilinear, many pixels at a time ---

template <class Pixel>
void findColumns(TypedImage<Pixel> const& source, TypedImage<Pixel> const& result, int first,
                 Columns& columns)
{
    columns.count = static_cast<std::size_t>(std::min(tileWidth, result.width() - first));
    for (std::size_t i = 0; i < columns.count; ++i) {
        Neighbours const x = neighboursOf(centreOf(first + static_cast<int>(i), result.invWidth()),
                                          source.width(), source.wrapHorizontal());
        columns.set(i, static_cast<std::int32_t>(x.near), static_cast<std::int32_t>(x.far),
                    rowWeights<Pixel>(x.t));
    }
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
void blendPixels(TypedImage<Pixel> const& source, TypedImage<Pixel>& result)
{
    // Tiles of columns, one after the other down a band of rows: the band's part of the result and its source
    // rows stay in the second-level cache while the tiles go over them.
    constexpr std::size_t bandBytes = std::size_t{2} << 20;
    auto const bandHeight = static_cast<int>(
        std::max<std::size_t>(16, bandBytes / (static_cast<std::size_t>(result.width()) * sizeof(Pixel))));

    // Reducing by more than two, no source row is read twice.
    bool const keep = result.height() > source.height() / 2;
    for (int band = 0; band < result.height(); band += bandHeight) {
        int const last = result.height() - band < bandHeight ? result.height() : band + bandHeight;
        for (int first = 0; first < result.width(); first += tileWidth) {
            Columns columns;
            findColumns(source, result, first, columns);
            KeptRows<Pixel> rows(source, columns);
            for (int y = band; y < last; ++y) {
                Neighbours const at =
                    neighboursOf(centreOf(y, result.invHeight()), source.height(), source.wrapVertical());
                Pixel* const out = result.pixels() + pixelOffset(first, y, result.width());
                if (keep)
                    RowBlend<Pixel>::down(rows.get(at.near, at.far), rows.get(at.far, at.near), Weights(at.t),
                                          columns.count, out);
                else
                    RowBlend<Pixel>::both(source.pixels() + at.near * source.width(),
                                          source.pixels() + at.far * source.width(), columns, Weights(at.t),
                                          out);
            }
        }
    }
}

}  // namespace

Image* resize(Image const& source, int width, int height, bool filter)
{
    Image* result = nullptr;
    dispatchPixel(source.pixelType(), ResamplePixels{}, [&](auto tag) {
        using Pixel = typename decltype(tag)::type;
        auto image = std::make_unique<TypedImage<Pixel>>();
        image->resize(width, height);

        if (isRegular(*image) && !pixelsOf<Pixel>(source).empty()) {
            auto const& typedSource = static_cast<TypedImage<Pixel> const&>(source);
            if (filter && isRegular(source))
                blendPixels(typedSource, *image);
            else if (filter)
                samplePixels(typedSource, *image);
            else
                copyPixels(typedSource, *image);
        }
        result = image.release();
    });
    return result;
}

}  // namespace koImage
