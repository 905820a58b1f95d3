#include "koImage/layout/mask_boundaries.h"

#include "koImage/image/simd.h"

#include <array>
#include <bit>
#include <cstdint>

namespace koImage {

namespace {

using Word = std::uint64_t;
constexpr std::size_t wordBits = 64;

/// Which way a corner is left; `used` where the way was taken before.
enum Direction : std::uint8_t { none, up, right, down, left, used };

/// The direction in which a corner is left, for each direction in which it is entered. The row is the sum of
/// the pixels around the corner that are outside: 1 above and left of it, 2 above and right, 4 below and
/// left, 8 below and right.
constexpr std::array<std::array<Direction, 4>, 16> exits = {{
    // entered going up, right, down, left
    {none, none, none, none},   // 0
    {none, up, none, none},     // 1
    {none, none, right, none},  // 2
    {none, right, none, none},  // 3
    {left, none, none, none},   // 4
    {up, none, none, none},     // 5
    {right, none, left, none},  // 6: two inside pixels meet
    {right, none, none, none},  // 7
    {none, none, none, down},   // 8
    {none, down, none, up},     // 9: two inside pixels meet
    {none, none, down, none},   // 10
    {none, down, none, none},   // 11
    {none, none, none, left},   // 12
    {none, none, none, up},     // 13
    {none, none, left, none},   // 14
    {none, none, none, none},   // 15
}};

Word highBit(unsigned char pixel)
{
    return static_cast<Word>(pixel >> 7);
}

/// One bit a pixel: whether 64 of them have their high bit set, the first in the lowest bit.
Word highBits(unsigned char const* pixels)
{
    Word word = 0;
#if KO_SIMD_SSE2
    for (std::size_t i = 0; i < wordBits; i += 16) {
        auto const* const sixteen = reinterpret_cast<__m128i const*>(pixels + i);
        word |= Word{static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_loadu_si128(sixteen)))} << i;
    }
#else
    for (std::size_t i = 0; i < wordBits; ++i)
        word |= highBit(pixels[i]) << i;
#endif
    return word;
}

/// The corners of a mask: which pixels lie around each, and which of its ways are still to be walked.
///
/// A corner is entered at most once going up or right, and once going down or left: one bit each.
class Corners {
public:
    explicit Corners(TypedImage<unsigned char> const& mask)
        : width_(static_cast<std::size_t>(mask.width())),
          height_(static_cast<std::size_t>(mask.height())),
          // Bit p of a row is pixel p - 1, so that both ends are outside; one word more to shift from.
          words_((width_ + 2 + wordBits - 1) / wordBits + 1),
          inside_((height_ + 2) * words_),
          upOrRight_((height_ + 1) * words_),
          downOrLeft_((height_ + 1) * words_)
    {
        for (std::size_t j = 0; j < height_; ++j)
            readRow(mask.pixels() + j * width_, &inside_[(j + 1) * words_]);
        for (std::size_t r = 0; r <= height_; ++r)
            openRow(r);
    }

    /// Calls start(c, r) for every corner with open ways, row by row. It closes those of the corner, and may
    /// close others.
    template <class Start>
    void eachOpen(Start const& start)
    {
        for (std::size_t r = 0; r <= height_; ++r) {
            for (std::size_t k = 0; k < words_; ++k) {
                std::size_t const at = r * words_ + k;
                while (Word const open = upOrRight_[at] | downOrLeft_[at])
                    start(k * wordBits + static_cast<std::size_t>(std::countr_zero(open)), r);
            }
        }
    }

    /// Closes all open ways of a corner, on purpose both where there are two, and tells where the last one
    /// leads.
    Direction begin(std::size_t c, std::size_t r)
    {
        auto const& ways = exits[codeOf(c, r)];
        Direction way = none;
        for (Direction const entered : {up, right, down, left}) {
            if (ways[entered - 1u] != none && take(c, r, entered))
                way = ways[entered - 1u];
        }
        return way;
    }

    /// Where the way leads on that enters a corner in that direction, and closes it.
    Direction follow(std::size_t c, std::size_t r, Direction entered)
    {
        return take(c, r, entered) ? exits[codeOf(c, r)][entered - 1u] : used;
    }

private:
    void readRow(unsigned char const* pixels, Word* bits) const
    {
        std::size_t i = 0;
        Word before = 0;
        for (; i + wordBits <= width_; i += wordBits) {
            Word const word = highBits(pixels + i);
            *bits++ = word << 1 | before;
            before = word >> (wordBits - 1);
        }
        Word rest = 0;
        for (std::size_t bit = 0; i + bit < width_; ++bit)
            rest |= highBit(pixels[i + bit]) << bit;
        bits[0] = rest << 1 | before;
        bits[1] = rest >> (wordBits - 1);
    }

    /// The ways of 64 corners at a time: the columns of the table as logic of the four pixels.
    void openRow(std::size_t r)
    {
        Word const* const above = &inside_[r * words_];
        Word const* const below = above + words_;
        for (std::size_t k = 0; k + 1 < words_; ++k) {
            Word const a = ~above[k];
            Word const b = ~(above[k] >> 1 | above[k + 1] << (wordBits - 1));
            Word const c = ~below[k];
            Word const d = ~(below[k] >> 1 | below[k + 1] << (wordBits - 1));
            upOrRight_[r * words_ + k] = (d & a & ~c) | (~d & (a | c));
            downOrLeft_[r * words_ + k] = (d & ~(a & b)) | (~d & b & ~a);
        }
    }

    /// Whether a way was open; it is not any more.
    bool take(std::size_t c, std::size_t r, Direction entered)
    {
        Word& word = (entered <= right ? upOrRight_ : downOrLeft_)[r * words_ + c / wordBits];
        Word const bit = Word{1} << c % wordBits;
        bool const open = (word & bit) != 0;
        word &= ~bit;
        return open;
    }

    std::size_t codeOf(std::size_t c, std::size_t r) const
    {
        // Bits c and c + 1 of a row: the pixels on both sides.
        auto const pair = [c](Word const* row) {
            Word const* const word = row + c / wordBits;
            std::size_t const shift = c % wordBits;
            return (word[0] >> shift | word[1] << 1 << (wordBits - 1 - shift)) & 3;
        };
        Word const* const above = &inside_[r * words_];
        return 15 ^ (pair(above) | pair(above + words_) << 2);
    }

    std::size_t width_;
    std::size_t height_;
    std::size_t words_;  // of a row
    std::vector<Word> inside_;
    std::vector<Word> upOrRight_;
    std::vector<Word> downOrLeft_;
};

/// Walks around outlines. Vertices are gathered in memory that is kept, and copied once each outline is
/// whole.
class Walker {
public:
    explicit Walker(Corners& corners) : corners_(corners) {}

    void walk(std::size_t c, std::size_t r, Boundary3d& boundary)
    {
        points_.clear();
        parameters_.clear();
        addVertex(c, r, 0);

        Direction direction = corners_.begin(c, r);
        for (std::int64_t step = 1; direction != used; ++step) {
            c += static_cast<std::size_t>(direction == right) - static_cast<std::size_t>(direction == left);
            r += static_cast<std::size_t>(direction == down) - static_cast<std::size_t>(direction == up);
            Direction const next = corners_.follow(c, r, direction);
            if (next != direction)
                addVertex(c, r, step);
            direction = next;
        }
        boundary.points.assign(points_.begin(), points_.end());
        boundary.parameters.assign(parameters_.begin(), parameters_.end());
    }

private:
    void addVertex(std::size_t c, std::size_t r, std::int64_t step)
    {
        points_.insert(points_.end(), {static_cast<float>(c), static_cast<float>(r), 0.0f});
        parameters_.insert(parameters_.end(), {static_cast<float>(step), 0.0f});
    }

    Corners& corners_;
    ko::vector<float> points_;
    ko::vector<float> parameters_;
};

}  // namespace

void computeMaskBoundaries(TypedImage<unsigned char> const& mask, ko::list<Boundary3d>& boundaries)
{
    // What the list held lends its memory: on noisy masks allocation costs more than all the rest.
    ko::list<Boundary3d> spare;
    spare.swap(boundaries);

    if (!mask.holdsItsRows())
        return;

    Corners corners(mask);
    Walker walker(corners);
    corners.eachOpen([&](std::size_t c, std::size_t r) {
        if (spare.empty())
            boundaries.emplace_back();
        else
            boundaries.splice(boundaries.end(), spare, spare.begin());
        walker.walk(c, r, boundaries.back());
    });
}

}  // namespace koImage
