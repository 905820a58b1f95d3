#include "koImage/ops/interpolate.h"

#include "koImage/image/numeric.h"
#include "koImage/ops/arithmetic.h"

#include <algorithm>
#include <functional>

namespace koImage {

namespace {

using ByteImage = TypedImage<unsigned char>;

// Added before truncation. Just below one half on purpose, so that exact halves go down: 0.5f would change
// one filled pixel in many.
constexpr float roundingTerm = 0.4999f;

/// A row or a column of an image: every stride-th byte.
struct Line {
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
void fillLine(Line const& line, Put const& put)
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
            for (int t = 1; t < i - last; ++t)
                put(last + t, lowByte(truncateToInt(static_cast<float>(t) * slope + from + roundingTerm)));
        }
        last = i;
    }
    if (last >= 0)
        for (int hole = last + 1; hole < line.length; ++hole)
            put(hole, line.value(last));
}

/// Fills what the known pixels reach along rows and columns, and marks it.
void sweep(ByteImage const& mask, ByteImage& values, ByteImage& marks)
{
    int const width = values.width();
    int const height = values.height();
    auto const lineAt = [&](std::ptrdiff_t first, std::ptrdiff_t stride, int length) {
        return Line{mask.pixels() + first, values.pixels() + first, marks.pixels() + first, stride, length};
    };

    for (int y = 0; y < height; ++y) {
        Line const row = lineAt(pixelOffset(0, y, width), 1, width);
        fillLine(row, [&](int x, unsigned char v) {
            row.value(x) = v;
            row.mark(x) = 1;
        });
    }
    for (int x = 0; x < width; ++x) {
        Line const column = lineAt(x, width, height);
        fillLine(column, [&](int y, unsigned char v) {
            int const sum = column.value(y) + v;
            column.value(y) = column.mark(y) == 0
                                  ? v
                                  : lowByte(truncateToInt(static_cast<float>(sum) * 0.5f + roundingTerm));
            column.mark(y) = 1;
        });
    }
}

/// False for two images on the same memory, and for sizes whose product is not the number of their pixels.
bool canInterpolate(ByteImage const& mask, ByteImage const& values)
{
    if (mask.width() != values.width() || mask.height() != values.height())
        return false;
    if (mask.pixels() == nullptr || values.pixels() == nullptr)
        return false;
    int const count = values.pixelCount();
    if (values.width() < 1 || values.height() < 1 || std::int64_t{values.width()} * values.height() != count)
        return false;
    std::less<unsigned char const*> const before;
    return !before(mask.pixels(), values.pixels() + count) || !before(values.pixels(), mask.pixels() + count);
}

}  // namespace

void imageInterpolate(TypedImage<unsigned char> const& mask, TypedImage<unsigned char>& values)
{
    if (!canInterpolate(mask, values))
        return;

    ByteImage firstMarks;
    ByteImage secondMarks;
    for (ByteImage* const marks : {&firstMarks, &secondMarks}) {
        marks->resize(values.width(), values.height());
        std::ranges::fill(pixelsOf<unsigned char>(*marks), static_cast<unsigned char>(0));
    }

    sweep(mask, values, firstMarks);
    imageMax(mask, firstMarks, firstMarks);
    sweep(firstMarks, values, secondMarks);
}

}  // namespace koImage
