// Rows of points and of bilinear samples, many columns at a time. Private to resize.cpp.
//
// What a column of the result takes from the source does not depend on the row, so columns are found once for
// many rows. A source row blended along itself does not depend on the row of the result, so when enlarging it
// is kept for as long as it is asked for.
#pragma once

#include "koImage/envmap/bilinear.h"

#include <array>
#include <cstddef>

namespace koImage {

/// out[i] = the pixel in column columns[i] of a row. resize_v3.h does pixels of four bytes faster.
template <class Pixel>
void copyColumns(Pixel const* row, std::int32_t const* columns, std::size_t count, Pixel* out)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = row[columns[i]];
}

/// Columns that are blended together: what is kept of them stays in the first-level cache.
inline constexpr int tileWidth = 512;

/// Up to tileWidth columns of the result: the source columns that they blend, and by which weights.
struct Columns {
    std::size_t count;
    std::array<std::int32_t, tileWidth> near;
    std::array<std::int32_t, tileWidth> far;
    std::array<float, tileWidth> nearWeight;
    std::array<float, tileWidth> farWeight;

    /// `count`, rounded up for blends that take several columns at a time: the columns beyond it are there,
    /// with weights of 0.
    std::size_t paddedCount() const { return (count + 7) / 8 * 8; }

    void set(std::size_t i, std::int32_t nearColumn, std::int32_t farColumn, Weights weights)
    {
        near[i] = nearColumn;
        far[i] = farColumn;
        nearWeight[i] = weights.near;
        farWeight[i] = weights.far;
    }

    template <class Pixel>
    auto blendAcross(Pixel const* row, std::size_t i) const
    {
        return koImage::blendAcross(row[near[i]], row[far[i]], Weights(nearWeight[i], farWeight[i]));
    }
};

/// The blends of a row of samples. resize_v3.h specialises them for pixel types that it blends faster.
template <class Pixel>
struct RowBlend {
    /// A pixel of a source row blended along itself.
    using Kept = decltype(blendAcross(Pixel{}, Pixel{}, Weights(0)));

    /// Blends a source row along itself.
    static void across(Pixel const* row, Columns const& columns, Kept* kept)
    {
        for (std::size_t i = 0; i < columns.count; ++i)
            kept[i] = columns.blendAcross(row, i);
    }

    /// Blends two kept rows.
    static void down(Kept const* near, Kept const* far, Weights weights, std::size_t count, Pixel* out)
    {
        if constexpr (std::is_same_v<Pixel, Float3> || std::is_same_v<Pixel, Float4>) {
            // As one run of channels: compilers make vectors of it, but not good ones of pixels of three.
            RowBlend<float>::down(&near->r, &far->r, weights, count * sizeof(Pixel) / sizeof(float), &out->r);
        } else {
            for (std::size_t i = 0; i < count; ++i)
                out[i] = pixelOf(blendDown(near[i], far[i], weights));
        }
    }

    /// Both at once, keeping nothing. Two source rows that are read together arrive faster from memory.
    static void both(Pixel const* near, Pixel const* far, Columns const& columns, Weights weights, Pixel* out)
    {
        for (std::size_t i = 0; i < columns.count; ++i)
            out[i] = pixelOf(blendDown(columns.blendAcross(near, i), columns.blendAcross(far, i), weights));
    }
};

}  // namespace koImage
