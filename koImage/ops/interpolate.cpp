// A sweep gives a hole the value of its row, that of its column, or the mean of both. The two do not depend
// on each other, and the mean not on their order, so columns go first here. They are walked in memory order,
// many side by side; what a hole contains is free until then, and tells how far ahead its gap ends.

#include "koImage/ops/interpolate.h"

#include "koImage/image/numeric.h"
#include "koImage/ops/arithmetic.h"
#include "koImage/ops/interpolate_v3.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <functional>

namespace koImage {

namespace {

using ByteImage = TypedImage<unsigned char>;

// Added before truncation. Below one half on purpose: exact halves go down, 0.5f would send them up.
constexpr float roundingTerm = 0.4999f;

/// The mean of two values, rounded like everything else here: see below.
constexpr unsigned char meanOf(unsigned char a, unsigned char b)
{
    return static_cast<unsigned char>((a + b) >> 1);
}

// The shift is trunc(sum * 0.5f + roundingTerm) for every sum of two bytes.
static_assert([] {
    for (int sum = 0; sum <= 2 * 255; ++sum)
        if (truncateToInt(static_cast<float>(sum) * 0.5f + roundingTerm) != sum >> 1)
            return false;
    return true;
}());

/// The straight line through a gap of one row or column: onLine(i - start, from, slope) at position i.
struct GapLine {
    int start;  // the position before the gap's first one
    float from;
    float slope;
    bool isKnown;  // false when the gap is the whole row or column
};

/// `last` is the known pixel before the gap, `next` the one after it, at position `end`; null where there is
/// none.
GapLine lineAcross(int start, unsigned char const* last, std::ptrdiff_t end, unsigned char const* next)
{
    if (last != nullptr && next != nullptr) {
        float const from = *last;
        return {start, from, (static_cast<float>(*next) - from) / static_cast<float>(end - start), true};
    }
    unsigned char const* const only = last != nullptr ? last : next;
    return {start, only != nullptr ? *only : 0.0f, 0.0f, only != nullptr};
}

/// The value at t before truncation. Inside the gap it lies between 0 and 256.
float onLine(int t, float from, float slope)
{
    return static_cast<float>(t) * slope + from + roundingTerm;
}

// Holes are looked for 64 pixels at a time, one bit each.
constexpr int wordPixels = 64;

/// Bit i is set where mask[i] is 0. Bits from `count` on are clear.
std::uint64_t holesOf(unsigned char const* mask, int count)
{
    unsigned char padded[wordPixels];
    if (count < wordPixels) {
        std::fill(std::copy_n(mask, count, padded), padded + wordPixels, static_cast<unsigned char>(1));
        mask = padded;
    }
#if KO_SIMD_V3
    return v3::holesOf64(mask);
#else
    std::uint64_t holes = 0;
    for (int i = 0; i < wordPixels; i += 8) {
        std::uint64_t bytes = 0;
        for (int k = 0; k < 8; ++k)
            bytes |= std::uint64_t{mask[i + k]} << (8 * k);

        // The top bit of each byte is set where the byte is not 0; the product gathers the eight inverses.
        constexpr std::uint64_t ones = 0x0101010101010101;
        std::uint64_t const known = (bytes | ((bytes & ones * 0x7F) + ones * 0x7F)) >> 7 & ones;
        holes |= (known ^ ones) * 0x0102040810204080 >> 56 << i;
    }
    return holes;
#endif
}

// Columns, in strips: rows of a strip are long enough to be read in memory order, and the state of its
// columns stays in the nearest cache.

constexpr int stripWords = 16;
constexpr int stripColumns = stripWords * wordPixels;

struct Strip {
    unsigned char const* mask;
    unsigned char* values;
    unsigned char* marks;
    std::ptrdiff_t width;  // of the image
    int columns;
    int height;
};

/// Writes hops[x] to the holes of one row, and makes them the hops of the row before it.
void layHopsOfRow(unsigned char const* mask, unsigned char* __restrict values, unsigned char* __restrict hops,
                  int count)
{
    for (int x = 0; x < count; ++x) {
        unsigned char const known = values[x];
        unsigned char const hop = hops[x];
        auto const longer = static_cast<unsigned char>(hop == 255 ? 255 : hop + 1);
        bool const hole = mask[x] == 0;
        values[x] = hole ? hop : known;
        hops[x] = hole ? longer : static_cast<unsigned char>(1);
    }
}

/// Writes to each hole how many rows to hop toward the next known pixel of its column: all the way, or 255
/// when that is further or there is none.
void layHops(Strip const& strip)
{
    unsigned char hops[stripColumns];
    std::fill_n(hops, stripColumns, static_cast<unsigned char>(255));
    for (int y = strip.height; y-- > 0;)
        layHopsOfRow(strip.mask + y * strip.width, strip.values + y * strip.width, hops, strip.columns);
}

/// The gap of column x that starts in row y.
GapLine enterGap(Strip const& strip, int x, int y)
{
    std::ptrdiff_t end = y;
    while (end < strip.height && strip.mask[end * strip.width + x] == 0)
        end += strip.values[end * strip.width + x];

    int const start = y - 1;
    auto const valueAt = [&](std::ptrdiff_t row) { return strip.values + row * strip.width + x; };
    return lineAcross(start, start >= 0 ? valueAt(start) : nullptr, end,
                      end < strip.height ? valueAt(end) : nullptr);
}

/// The lines of the gaps that the columns of a strip are in, or were in last.
struct ColumnLines {
    int start[stripColumns];
    float from[stripColumns];
    float slope[stripColumns];
};

/// The holes of `count` pixels of row y, whose lines start at column `first`.
void followLines(unsigned char const* mask, unsigned char* __restrict values, int y, ColumnLines const& lines,
                 int first, int count)
{
    int const* const start = lines.start + first;
    float const* const from = lines.from + first;
    float const* const slope = lines.slope + first;
    for (int i = 0; i < count; ++i) {
        unsigned char const known = values[i];
        // Where a column has left its gap, the line may leave the range too, even that of int.
        float const v = onLine(y - start[i], from[i], slope[i]);
        float const below = v < 255.0f ? v : 255.0f;
        float const inRange = below > 0.0f ? below : 0.0f;
        auto const filled = static_cast<unsigned char>(static_cast<int>(inRange));
        values[i] = mask[i] == 0 ? filled : known;
    }
}

/// Fills the holes from their columns alone. Marks the columns that have a known pixel, from end to end; the
/// holes of the others lose what they contained.
void fillColumns(Strip const& strip)
{
    layHops(strip);

    ColumnLines lines = {};
    unsigned char reached[stripColumns] = {};
    std::uint64_t holesBefore[stripWords] = {};
    for (int y = 0; y < strip.height; ++y) {
        auto const row = y * strip.width;
        for (int first = 0; first < strip.columns; first += wordPixels) {
            int const count = std::min(wordPixels, strip.columns - first);
            std::uint64_t const holes = holesOf(strip.mask + row + first, count);
            std::uint64_t& before = holesBefore[first / wordPixels];
            for (std::uint64_t starts = holes & ~before; starts != 0; starts &= starts - 1) {
                int const x = first + std::countr_zero(starts);
                GapLine const line = enterGap(strip, x, y);
                lines.start[x] = line.start;
                lines.from[x] = line.from;
                lines.slope[x] = line.slope;
                reached[x] = line.isKnown;
            }
            before = holes;
            if (holes != 0)
                followLines(strip.mask + row + first, strip.values + row + first, y, lines, first, count);
        }
        std::copy_n(reached, strip.columns, strip.marks + row);
    }
}

// Rows.

/// The first known pixel from x on, or `width`.
int nextKnown(unsigned char const* mask, int x, int width)
{
    for (; width - x >= wordPixels; x += wordPixels)
        if (std::uint64_t const known = ~holesOf(mask + x, wordPixels))
            return x + std::countr_zero(known);
    return x + std::countr_one(holesOf(mask + x, width - x));
}

// Lines are drawn in runs of fixed length, over the end of the gap: what follows it is drawn later or known.
constexpr int runLength = 32;
static_assert(wordPixels <= 2 * runLength);

void drawRun(unsigned char* run, int t, float from, float slope)
{
    // Unsigned: in the longest rows the run's end may lie beyond the largest int.
    for (unsigned i = 0; i < runLength; ++i) {
        float const v = onLine(static_cast<int>(static_cast<unsigned>(t) + i), from, slope);
        run[i] = static_cast<unsigned char>(static_cast<int>(v));
    }
}

/// Merges what the row says into what the columns have filled.
void mergeRow(unsigned char const* mask, unsigned char* __restrict values, unsigned char const* byRow,
              unsigned char const* reached, int count)
{
    for (int i = 0; i < count; ++i) {
        unsigned char const old = values[i];
        unsigned char const v = byRow[i];
        unsigned char const merged = reached[i] != 0 ? meanOf(old, v) : v;
        values[i] = mask[i] == 0 ? merged : old;
    }
}

/// Fills the holes from their row, and marks it from end to end. Nothing happens in a row without a known
/// pixel.
void fillRow(unsigned char const* mask, unsigned char* values, unsigned char* marks, int width)
{
    GapLine line = {};
    std::uint64_t holeBefore = 0;
    unsigned char byRow[wordPixels + 2 * runLength] = {};
    int count = 0;
    for (int x = 0; x < width; x += count) {
        count = std::min(wordPixels, width - x);
        std::uint64_t const holes = holesOf(mask + x, count);
        for (std::uint64_t left = holes; left != 0;) {
            int const first = std::countr_zero(left);
            int const end = first + std::countr_one(left >> first);
            left = end < wordPixels ? left >> end << end : 0;

            bool const goesOn = first == 0 && holeBefore != 0;
            if (!goesOn) {
                int const start = x + first - 1;
                int const next = end < wordPixels ? x + end : nextKnown(mask, x + end, width);
                line = lineAcross(start, start >= 0 ? values + start : nullptr, next,
                                  next < width ? values + next : nullptr);
            }
            if (!line.isKnown)
                return;
            drawRun(byRow + first, x + first - line.start, line.from, line.slope);
            if (int const rest = first + runLength; rest < end)
                drawRun(byRow + rest, x + rest - line.start, line.from, line.slope);
        }
        if (holes != 0)
            mergeRow(mask + x, values + x, byRow, marks + x, count);
        holeBefore = holes >> (wordPixels - 1);
    }
    std::memset(marks, 1, static_cast<std::size_t>(width));
}

/// Fills what the known pixels reach along rows and columns. A hole's mark says whether it was filled; if
/// not, what it contained is lost. The marks of known pixels mean nothing.
void sweep(ByteImage const& mask, ByteImage& values, ByteImage& marks)
{
    int const width = values.width();
    int const height = values.height();
    for (std::ptrdiff_t x = 0; x < width; x += stripColumns) {
        int const columns = static_cast<int>(std::min<std::ptrdiff_t>(stripColumns, width - x));
        fillColumns({mask.pixels() + x, values.pixels() + x, marks.pixels() + x, width, columns, height});
    }
    for (int y = 0; y < height; ++y) {
        auto const row = pixelOffset(0, y, width);
        fillRow(mask.pixels() + row, values.pixels() + row, marks.pixels() + row, width);
    }
}

/// False for sizes whose product is not the number of pixels, and for two images on the same memory.
bool canInterpolate(ByteImage const& mask, ByteImage const& values)
{
    if (mask.width() != values.width() || mask.height() != values.height())
        return false;
    if (mask.pixels() == nullptr || values.pixels() == nullptr)
        return false;
    int const count = values.pixelCount();
    if (values.width() < 1 || values.height() < 1 || std::int64_t{values.width()} * values.height() != count)
        return false;
    std::less_equal<unsigned char const*> const upTo;
    return upTo(mask.pixels() + count, values.pixels()) || upTo(values.pixels() + count, mask.pixels());
}

bool isZero(std::span<unsigned char const> bytes)
{
    // The first byte is 0 and each of the others equals the one before it.
    return bytes.front() == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

}  // namespace

void imageInterpolate(TypedImage<unsigned char> const& mask, TypedImage<unsigned char>& values)
{
    if (!canInterpolate(mask, values) || isZero(pixelsOf<unsigned char>(mask)))
        return;

    // Both before the first value changes: there may be no memory for them.
    ByteImage firstMarks;
    ByteImage secondMarks;
    firstMarks.resize(values.width(), values.height());
    secondMarks.resize(values.width(), values.height());

    sweep(mask, values, firstMarks);
    imageMax(mask, firstMarks, firstMarks);

    // A second sweep over a mask without holes changes nothing.
    auto const known = pixelsOf<unsigned char>(firstMarks);
    if (std::memchr(known.data(), 0, known.size()) != nullptr)
        sweep(firstMarks, values, secondMarks);
}

}  // namespace koImage
