#include "koImage/layout/mask_boundaries.h"

#include "koImage/testing/test_images.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <vector>

namespace koImage::testing {

namespace {

using ::testing::ElementsAre;

ImageRef<unsigned char> maskOf(int width, int height, std::vector<unsigned char> const& values)
{
    auto mask = imageOf<unsigned char>({width, height});
    std::copy(values.begin(), values.end(), mask->pixels());
    return mask;
}

/// Random masks with that share of inside pixels, in percent.
ImageRef<unsigned char> randomMask(Size size, std::uint32_t seed, std::uint32_t percent)
{
    auto mask = imageOf<unsigned char>(size);
    Random random(seed);
    for (unsigned char& value : pixelsOf<unsigned char>(*mask))
        value = static_cast<unsigned char>(random() % 100 < percent ? 128 + random() % 128 : random() % 128);
    return mask;
}

ko::list<Boundary3d> boundariesOf(TypedImage<unsigned char> const& mask)
{
    ko::list<Boundary3d> boundaries(3);  // what it held is to vanish
    computeMaskBoundaries(mask, boundaries);
    return boundaries;
}

bool isInside(TypedImage<unsigned char> const& mask, int i, int j)
{
    return i >= 0 && j >= 0 && i < mask.width() && j < mask.height() &&
           mask.pixels()[j * mask.width() + i] >= 128;
}

/// The walk with four bytes for each corner.
ko::list<Boundary3d> boundariesByHand(TypedImage<unsigned char> const& mask)
{
    static constexpr int table[16][4] = {{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 2, 0}, {0, 2, 0, 0},
                                         {4, 0, 0, 0}, {1, 0, 0, 0}, {2, 0, 4, 0}, {2, 0, 0, 0},
                                         {0, 0, 0, 3}, {0, 3, 0, 1}, {0, 0, 3, 0}, {0, 3, 0, 0},
                                         {0, 0, 0, 4}, {0, 0, 0, 1}, {0, 0, 4, 0}, {0, 0, 0, 0}};
    int const columns = mask.width() + 1;
    int const rows = mask.height() + 1;
    std::vector<std::array<int, 4>> cells;
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            int const code = (isInside(mask, c - 1, r - 1) ? 0 : 1) + (isInside(mask, c, r - 1) ? 0 : 2) +
                             (isInside(mask, c - 1, r) ? 0 : 4) + (isInside(mask, c, r) ? 0 : 8);
            std::copy(std::begin(table[code]), std::end(table[code]), cells.emplace_back().begin());
        }
    }
    auto const slots = [&](int c, int r) -> std::array<int, 4>& {
        return cells[static_cast<std::size_t>(r * columns + c)];
    };

    ko::list<Boundary3d> boundaries;
    for (int r = 0; r < rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            int d = 0;
            for (int& slot : slots(c, r)) {
                if (slot != 0 && slot != 5) {
                    d = slot;
                    slot = 5;
                }
            }
            if (d == 0)
                continue;
            Boundary3d& boundary = boundaries.emplace_back();
            auto const add = [&boundary](int x, int y, int i) {
                for (int const value : {x, y, 0})
                    boundary.points.push_back(static_cast<float>(value));
                for (int const value : {i, 0})
                    boundary.parameters.push_back(static_cast<float>(value));
            };
            add(c, r, 0);
            int x = c;
            int y = r;
            for (int i = 1; d != 5; ++i) {
                x += d == 2 ? 1 : d == 4 ? -1 : 0;
                y += d == 3 ? 1 : d == 1 ? -1 : 0;
                int& slot = slots(x, y)[static_cast<std::size_t>(d - 1)];
                int const n = slot;
                slot = 5;
                if (n != d) {
                    add(x, y, i);
                    d = n;
                }
            }
        }
    }
    return boundaries;
}

::testing::AssertionResult sameBoundaries(ko::list<Boundary3d> const& expected,
                                          ko::list<Boundary3d> const& actual)
{
    if (expected.size() != actual.size())
        return ::testing::AssertionFailure() << actual.size() << " outlines instead of " << expected.size();
    auto a = actual.begin();
    for (Boundary3d const& e : expected) {
        if (e.points != a->points || e.parameters != a->parameters)
            return ::testing::AssertionFailure() << "outline " << std::distance(actual.begin(), a) << ": "
                                                 << ::testing::PrintToString(a->points) << " instead of "
                                                 << ::testing::PrintToString(e.points);
        ++a;
    }
    return ::testing::AssertionSuccess();
}

/// Components of the pixels for which `belongs`, in an image with a border of outside pixels.
int componentsOf(int width, int height, bool diagonals, std::function<bool(int, int)> const& belongs)
{
    auto const at = [&](int i, int j) { return static_cast<std::size_t>((j + 1) * (width + 2) + i + 1); };
    std::vector<bool> seen(static_cast<std::size_t>((width + 2) * (height + 2)));
    int count = 0;
    for (int j = -1; j <= height; ++j) {
        for (int i = -1; i <= width; ++i) {
            if (seen[at(i, j)] || !belongs(i, j))
                continue;
            ++count;
            seen[at(i, j)] = true;
            std::vector<std::pair<int, int>> open = {{i, j}};
            while (!open.empty()) {
                auto const [x, y] = open.back();
                open.pop_back();
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        int const nx = x + dx;
                        int const ny = y + dy;
                        bool const neighbour = diagonals || dx == 0 || dy == 0;
                        bool const there = nx >= -1 && ny >= -1 && nx <= width && ny <= height;
                        if (neighbour && there && !seen[at(nx, ny)] && belongs(nx, ny)) {
                            seen[at(nx, ny)] = true;
                            open.emplace_back(nx, ny);
                        }
                    }
                }
            }
        }
    }
    return count;
}

/// What holds of every set of outlines.
void expectSound(TypedImage<unsigned char> const& mask, ko::list<Boundary3d> const& boundaries)
{
    int insidePixels = 0;
    int insideEdges = 0;
    for (int j = 0; j < mask.height(); ++j) {
        for (int i = 0; i < mask.width(); ++i) {
            if (!isInside(mask, i, j))
                continue;
            ++insidePixels;
            insideEdges += !isInside(mask, i - 1, j) + !isInside(mask, i + 1, j) + !isInside(mask, i, j - 1) +
                           !isInside(mask, i, j + 1);
        }
    }

    double area = 0;
    double length = 0;
    std::pair<float, float> previousStart{-1.0f, -1.0f};
    for (Boundary3d const& boundary : boundaries) {
        std::size_t const vertices = boundary.points.size() / 3;
        ASSERT_GE(vertices, 5u);
        ASSERT_EQ(boundary.parameters.size(), 2 * vertices);
        auto const x = [&](std::size_t v) { return boundary.points[3 * v]; };
        auto const y = [&](std::size_t v) { return boundary.points[3 * v + 1]; };

        EXPECT_EQ(x(0), x(vertices - 1));
        EXPECT_EQ(y(0), y(vertices - 1));
        std::pair<float, float> const start{y(0), x(0)};
        EXPECT_LT(previousStart, start);
        previousStart = start;

        for (std::size_t v = 0; v < vertices; ++v) {
            EXPECT_EQ(boundary.points[3 * v + 2], 0.0f);
            EXPECT_EQ(boundary.parameters[2 * v + 1], 0.0f);
            if (v == 0)
                continue;
            float const dx = x(v) - x(v - 1);
            float const dy = y(v) - y(v - 1);
            EXPECT_TRUE((dx == 0) != (dy == 0));
            EXPECT_EQ(boundary.parameters[2 * v] - boundary.parameters[2 * v - 2], std::abs(dx + dy));
            if (v + 1 < vertices) {
                EXPECT_TRUE((dx == 0) != (x(v + 1) == x(v))) << "vertex " << v << " is no turn";
            }
            area += (double{x(v - 1)} * double{y(v)} - double{x(v)} * double{y(v - 1)}) / 2;
        }
        length += double{boundary.parameters[2 * vertices - 2]};
    }
    EXPECT_EQ(area, insidePixels);
    EXPECT_EQ(length, insideEdges);

    int const inside =
        componentsOf(mask.width(), mask.height(), false, [&](int i, int j) { return isInside(mask, i, j); });
    int const outside =
        componentsOf(mask.width(), mask.height(), true, [&](int i, int j) { return !isInside(mask, i, j); });
    EXPECT_EQ(static_cast<int>(boundaries.size()), inside + outside - 1);
}

}  // namespace

TEST(ComputeMaskBoundaries, WalksAroundOnePixel)
{
    auto const boundaries = boundariesOf(*maskOf(1, 1, {128}));
    ASSERT_EQ(boundaries.size(), 1u);
    EXPECT_THAT(boundaries.front().points, ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 0));
    EXPECT_THAT(boundaries.front().parameters, ElementsAre(0, 0, 1, 0, 2, 0, 3, 0, 4, 0));
}

TEST(ComputeMaskBoundaries, TakesPixelsOf128AndMoreAsInside)
{
    EXPECT_TRUE(boundariesOf(*maskOf(3, 2, {127, 127, 127, 127, 127, 127})).empty());

    auto const boundaries = boundariesOf(*maskOf(3, 2, {128, 128, 128, 255, 128, 200}));
    ASSERT_EQ(boundaries.size(), 1u);
    EXPECT_THAT(boundaries.front().points, ElementsAre(0, 0, 0, 3, 0, 0, 3, 2, 0, 0, 2, 0, 0, 0, 0));
    EXPECT_THAT(boundaries.front().parameters, ElementsAre(0, 0, 3, 0, 5, 0, 8, 0, 10, 0));
}

TEST(ComputeMaskBoundaries, GivesPixelsThatMeetAtACornerTheirOwnOutlines)
{
    auto const falling = boundariesOf(*maskOf(2, 2, {255, 0, 0, 255}));
    ASSERT_EQ(falling.size(), 2u);
    EXPECT_THAT(falling.front().points, ElementsAre(0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 0));
    EXPECT_THAT(falling.back().points, ElementsAre(1, 1, 0, 2, 1, 0, 2, 2, 0, 1, 2, 0, 1, 1, 0));

    auto const rising = boundariesOf(*maskOf(2, 2, {0, 255, 255, 0}));
    ASSERT_EQ(rising.size(), 2u);
    EXPECT_THAT(rising.front().points, ElementsAre(1, 0, 0, 2, 0, 0, 2, 1, 0, 1, 1, 0, 1, 0, 0));
    EXPECT_THAT(rising.back().points, ElementsAre(0, 1, 0, 1, 1, 0, 1, 2, 0, 0, 2, 0, 0, 1, 0));
}

TEST(ComputeMaskBoundaries, WalksAroundAHoleTheOtherWay)
{
    auto const boundaries = boundariesOf(*maskOf(3, 3, {255, 255, 255, 255, 0, 255, 255, 255, 255}));
    ASSERT_EQ(boundaries.size(), 2u);
    EXPECT_THAT(boundaries.back().points, ElementsAre(1, 1, 0, 1, 2, 0, 2, 2, 0, 2, 1, 0, 1, 1, 0));
}

TEST(ComputeMaskBoundaries, IsSoundAndAsWalkedByHandOnEverySmallMask)
{
    for (int width = 1; width <= 4; ++width) {
        for (int height = 1; height <= 4; ++height) {
            auto mask = imageOf<unsigned char>({width, height});
            int const pixels = width * height;
            for (int bits = 0; bits < 1 << pixels; ++bits) {
                for (int i = 0; i < pixels; ++i)
                    mask->pixels()[i] = (bits >> i & 1) != 0 ? 128 : 127;
                auto const boundaries = boundariesOf(*mask);
                ASSERT_TRUE(sameBoundaries(boundariesByHand(*mask), boundaries))
                    << width << " x " << height << ' ' << bits;
                ASSERT_NO_FATAL_FAILURE(expectSound(*mask, boundaries));
                ASSERT_FALSE(::testing::Test::HasFailure()) << width << " x " << height << ' ' << bits;
            }
        }
    }
}

TEST(ComputeMaskBoundaries, IsSoundAndAsWalkedByHandOnRandomMasks)
{
    // Widths around whole words of pixels, and of pixels with their border.
    for (Size const size : {Size{61, 7}, Size{62, 9}, Size{63, 5}, Size{64, 12}, Size{65, 11}, Size{127, 8},
                            Size{128, 3}, Size{129, 17}, Size{1, 200}, Size{300, 1}, Size{191, 61}}) {
        for (std::uint32_t const percent : {3u, 40u, 60u, 97u}) {
            SCOPED_TRACE(::testing::Message() << size << ", " << percent << " %");
            auto const mask = randomMask(size, percent, percent);
            auto const boundaries = boundariesOf(*mask);
            EXPECT_TRUE(sameBoundaries(boundariesByHand(*mask), boundaries));
            expectSound(*mask, boundaries);
        }
    }
}

TEST(ComputeMaskBoundaries, ReplacesWhateverTheListHeld)
{
    ko::list<Boundary3d> boundaries;
    for (std::uint32_t const percent : {50u, 5u, 0u, 70u, 100u, 40u}) {
        auto const mask = randomMask({61, 37}, percent, percent);
        computeMaskBoundaries(*mask, boundaries);
        EXPECT_TRUE(sameBoundaries(boundariesByHand(*mask), boundaries)) << percent << " %";
    }
}

TEST(ComputeMaskBoundaries, IsEmptyWithoutPixels)
{
    for (Size const size : {Size{0, 0}, Size{0, 5}, Size{5, 0}})
        EXPECT_TRUE(boundariesOf(*imageOf<unsigned char>(size)).empty());

    TypedImage<unsigned char> promised;
    promised.borrow(nullptr, 7, 5);
    EXPECT_TRUE(boundariesOf(promised).empty());
}

TEST(ComputeMaskBoundaries, IsEmptyWhereSizesDoNotDescribeTheArray)
{
    std::vector<unsigned char> const memory(64, 255);
    for (Size const size : hostileSizes) {
        TypedImage<unsigned char> mask;
        mask.borrow(const_cast<unsigned char*>(memory.data()), size.width, size.height);
        EXPECT_TRUE(boundariesOf(mask).empty()) << size;
    }
}

}  // namespace koImage::testing
