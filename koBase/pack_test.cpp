#include "koBase/pack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace koUtil::testing {

namespace {

using Tiles = ko::vector<IntRange2d>;

constexpr int largest = std::numeric_limits<std::int32_t>::max();

/// Sides in 8 .. 128, each as likely.
Tiles uniformTiles(std::size_t count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Tiles tiles;
    while (tiles.size() < count) {
        int const width = 8 + static_cast<int>(random() % 121);
        int const height = 8 + static_cast<int>(random() % 121);
        tiles.push_back({-1, -1, width, height});
    }
    return tiles;
}

/// Many small tiles and a few large ones: half the sides are 8 to 15, a quarter 16 to 31, and so on to 256.
Tiles heavyTailedTiles(std::size_t count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    auto const side = [&random] {
        int const scale = std::min(std::countl_zero(static_cast<std::uint32_t>(random())), 4);
        return static_cast<int>((8 + random() % 8) << scale);
    };
    Tiles tiles;
    while (tiles.size() < count) {
        int const width = side();
        int const height = side();
        tiles.push_back({7, 7, width, height});
    }
    return tiles;
}

double areaOf(Tiles const& tiles)
{
    double area = 0;
    for (IntRange2d const& tile : tiles)
        area += double{static_cast<double>(tile.width)} * tile.height;
    return area;
}

/// The sizes are those of before, no tile overlaps another, and all lie in the area.
::testing::AssertionResult isLayout(Tiles const& before, Tiles const& after, IntRange2d area)
{
    if (area.x != 0 || area.y != 0 || before.size() != after.size())
        return ::testing::AssertionFailure() << "not the same tiles, or an area off the origin";
    for (std::size_t i = 0; i < after.size(); ++i) {
        IntRange2d const& t = after[i];
        if (t.width != before[i].width || t.height != before[i].height)
            return ::testing::AssertionFailure() << "tile " << i << " changed its size";
        bool const inside = t.x >= 0 && t.y >= 0 && std::int64_t{t.x} + t.width <= area.width &&
                            std::int64_t{t.y} + t.height <= area.height;
        if (!inside)
            return ::testing::AssertionFailure() << "tile " << i << " leaves the area";
    }

    // Swept from left to right, each tile meets those that begin before it ends.
    std::vector<IntRange2d> sorted(after.begin(), after.end());
    std::sort(sorted.begin(), sorted.end(), [](auto const& a, auto const& b) { return a.x < b.x; });
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        IntRange2d const& a = sorted[i];
        for (std::size_t j = i + 1; j < sorted.size() && sorted[j].x < std::int64_t{a.x} + a.width; ++j) {
            IntRange2d const& b = sorted[j];
            if (b.y < std::int64_t{a.y} + a.height && a.y < std::int64_t{b.y} + b.height)
                return ::testing::AssertionFailure() << "two tiles overlap at " << b.x << ", " << b.y;
        }
    }
    return ::testing::AssertionSuccess();
}

/// Packs, checks the layout, and tells the share of the area that is used.
double shareUsed(Tiles const& tiles, bool powersOfTwo = false)
{
    Tiles packed = tiles;
    IntRange2d const area = pack(packed, powersOfTwo);
    EXPECT_TRUE(isLayout(tiles, packed, area));
    return areaOf(tiles) / (static_cast<double>(area.width) * area.height);
}

}  // namespace

TEST(Pack, IsEmptyForNoTiles)
{
    Tiles tiles;
    EXPECT_EQ(pack(tiles, false), (IntRange2d{0, 0, 0, 0}));
    EXPECT_EQ(pack(tiles, true), (IntRange2d{0, 0, 0, 0}));
}

TEST(Pack, PutsOneTileIntoItsOwnArea)
{
    Tiles tiles = {{5, -6, 70, 30}};
    EXPECT_EQ(pack(tiles, false), (IntRange2d{0, 0, 70, 30}));
    EXPECT_EQ(tiles[0], (IntRange2d{0, 0, 70, 30}));
    EXPECT_EQ(pack(tiles, true), (IntRange2d{0, 0, 128, 32}));
    EXPECT_EQ(tiles[0], (IntRange2d{0, 0, 70, 30}));
}

TEST(Pack, FillsASquareWithEqualTilesLeavingNothing)
{
    Tiles const tiles(64, {0, 0, 10, 10});
    EXPECT_EQ(shareUsed(tiles), 1.0);
    EXPECT_EQ(shareUsed(Tiles(64, {0, 0, 16, 16}), true), 1.0);
}

TEST(Pack, TakesSidesOfOne)
{
    Tiles tiles(100, {0, 0, 1, 1});
    tiles.push_back({0, 0, 1, 20});
    tiles.push_back({0, 0, 20, 1});
    EXPECT_GT(shareUsed(tiles), 0.3);
}

TEST(Pack, LeavesTilesWithoutAreaAtTheOrigin)
{
    Tiles tiles = {{3, 3, 0, 9}, {3, 3, 12, 8}, {3, 3, 9, 0}, {3, 3, 0, 0}, {3, 3, -4, 5}, {3, 3, 5, -4}};
    EXPECT_EQ(pack(tiles, false), (IntRange2d{0, 0, 12, 8}));
    for (IntRange2d const& tile : tiles) {
        EXPECT_EQ(tile.x, 0);
        EXPECT_EQ(tile.y, 0);
    }
    EXPECT_EQ(tiles[4].width, -4);
}

TEST(Pack, MakesSoundLayoutsOfEveryNumberOfTiles)
{
    for (std::size_t count = 1; count < 60; ++count) {
        auto const seed = static_cast<std::uint32_t>(count);
        for (bool const powersOfTwo : {false, true}) {
            EXPECT_GT(shareUsed(uniformTiles(count, seed), powersOfTwo), 0.3) << count;
            EXPECT_LE(shareUsed(heavyTailedTiles(count, seed), powersOfTwo), 1.0) << count;
        }
    }
}

TEST(Pack, UsesNearlyAllOfTheAreaForManyTiles)
{
    EXPECT_GE(shareUsed(uniformTiles(100, 1)), 0.944);
    EXPECT_GE(shareUsed(uniformTiles(1000, 2)), 0.985);
    EXPECT_GE(shareUsed(uniformTiles(10000, 3)), 0.997);
    EXPECT_GE(shareUsed(heavyTailedTiles(100, 6)), 0.96);
    EXPECT_GE(shareUsed(heavyTailedTiles(1000, 4)), 0.987);
    EXPECT_GE(shareUsed(heavyTailedTiles(10000, 5)), 0.99);
}

TEST(Pack, RoundsToPowersOfTwoAndChoosesForThat)
{
    for (std::size_t const count : {3u, 40u, 500u}) {
        Tiles const tiles = uniformTiles(count, 6);
        Tiles packed = tiles;
        IntRange2d const area = pack(packed, true);
        EXPECT_TRUE(isLayout(tiles, packed, area));
        EXPECT_TRUE(std::has_single_bit(static_cast<std::uint32_t>(area.width)));
        EXPECT_TRUE(std::has_single_bit(static_cast<std::uint32_t>(area.height)));

        // Half of it would be too small, but for what no layout can use.
        EXPECT_LT(static_cast<double>(area.width) * area.height, 2 * areaOf(tiles) / 0.85) << count;
    }
}

TEST(Pack, RepeatsItself)
{
    Tiles const tiles = heavyTailedTiles(300, 7);
    Tiles once = tiles;
    Tiles twice = tiles;
    EXPECT_EQ(pack(once, false), pack(twice, false));
    EXPECT_EQ(once, twice);
    EXPECT_EQ(pack(twice, false), pack(once, false)) << "positions before do not matter";
    EXPECT_EQ(once, twice);
}

// A layout that callers have stored: the numbers of one run, for all machines.
TEST(Pack, GivesTheLayoutOfEveryOtherMachine)
{
    Tiles tiles = uniformTiles(200, 8);
    IntRange2d const area = pack(tiles, false);
    std::uint64_t digest = 0xCBF29CE484222325u;
    for (IntRange2d const& tile : tiles)
        for (int const value : {tile.x, tile.y})
            digest = (digest ^ static_cast<std::uint32_t>(value)) * 0x100000001B3u;
    EXPECT_EQ(area, (IntRange2d{0, 0, 952, 1031}));
    EXPECT_EQ(digest, 16088865795494173339u);
}

TEST(Pack, TakesTilesAsLongAsAnIntegerAndGivesUpBeyond)
{
    Tiles row = {{0, 0, largest, 1}, {0, 0, largest, 2}, {0, 0, 1, 3}};
    Tiles const before = row;
    EXPECT_TRUE(isLayout(before, row, pack(row, false)));

    Tiles cross = {{1, 1, largest, largest}, {1, 1, 2, 2}};
    EXPECT_EQ(pack(cross, false), (IntRange2d{0, 0, 0, 0}));
    EXPECT_EQ(cross[1], (IntRange2d{0, 0, 2, 2}));

    Tiles rounded = {{1, 1, (1 << 30) + 1, 1}};
    EXPECT_EQ(pack(rounded, true), (IntRange2d{0, 0, 0, 0}));
}

}  // namespace koUtil::testing
