// Interpolation of holes as it is defined, line by line: what the tests compare with and the benchmarks race.
#pragma once

#include "koImage/testing/test_images.h"

#include <algorithm>

namespace koImage::testing {

/// A row or a column of an image: every stride-th pixel.
struct PixelLine {
    unsigned char const* mask;
    unsigned char* values;
    unsigned char* marks;
    std::ptrdiff_t stride;
    int length;

    bool known(int i) const { return mask[i * stride] != 0; }
    unsigned char& value(int i) const { return values[i * stride]; }
    unsigned char& mark(int i) const { return marks[i * stride]; }
};

/// Calls put(i, v) with the line's own value v of each hole i; not at all when the line has no known pixel.
template <class Put>
void fillLineByHand(PixelLine const& line, Put const& put)
{
    int last = -1;  // the known pixel before the current one
    for (int i = 0; i < line.length; ++i) {
        if (!line.known(i))
            continue;
        if (last < 0) {
            for (int hole = 0; hole < i; ++hole)
                put(hole, line.value(i));
        } else if (i - last >= 2) {
            float const from = line.value(last);
            float const slope = (static_cast<float>(line.value(i)) - from) / static_cast<float>(i - last);
            for (int t = 1; t < i - last; ++t) {
                float const v = static_cast<float>(t) * slope + from + 0.4999f;
                put(last + t, static_cast<unsigned char>(static_cast<int>(v)));
            }
        }
        last = i;
    }
    if (last >= 0)
        for (int hole = last + 1; hole < line.length; ++hole)
            put(hole, line.value(last));
}

/// One sweep: all rows, then all columns, whose values are averaged into those of the rows. Marks what it
/// fills.
inline void sweepByHand(unsigned char const* mask, unsigned char* values, unsigned char* marks, Size size)
{
    auto const lineAt = [&](std::ptrdiff_t first, std::ptrdiff_t stride, int length) {
        return PixelLine{mask + first, values + first, marks + first, stride, length};
    };
    for (int y = 0; y < size.height; ++y) {
        PixelLine const row = lineAt(pixelOffset(0, y, size.width), 1, size.width);
        fillLineByHand(row, [&](int x, unsigned char v) {
            row.value(x) = v;
            row.mark(x) = 1;
        });
    }
    for (int x = 0; x < size.width; ++x) {
        PixelLine const column = lineAt(x, size.width, size.height);
        fillLineByHand(column, [&](int y, unsigned char v) {
            auto const sum = static_cast<float>(column.value(y) + v);
            column.value(y) =
                column.mark(y) == 0 ? v : static_cast<unsigned char>(static_cast<int>(sum * 0.5f + 0.4999f));
            column.mark(y) = 1;
        });
    }
}

/// Both images have the same size.
inline void interpolateByHand(TypedImage<unsigned char> const& mask, TypedImage<unsigned char>& values)
{
    Size const size{values.width(), values.height()};
    if (pixelsOf<unsigned char>(values).empty())
        return;
    auto const firstMarks = imageOf<unsigned char>(size);
    auto const secondMarks = imageOf<unsigned char>(size);
    std::ranges::fill(pixelsOf<unsigned char>(*firstMarks), static_cast<unsigned char>(0));
    std::ranges::fill(pixelsOf<unsigned char>(*secondMarks), static_cast<unsigned char>(0));

    sweepByHand(mask.pixels(), values.pixels(), firstMarks->pixels(), size);
    for (int i = 0; i < values.pixelCount(); ++i)
        firstMarks->pixels()[i] = std::max(firstMarks->pixels()[i], mask.pixels()[i]);
    sweepByHand(firstMarks->pixels(), values.pixels(), secondMarks->pixels(), size);
}

}  // namespace koImage::testing
