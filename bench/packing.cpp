// Packing of rectangles against stb_rect_pack: the share of the area used, and the time.
//
// That library fills a strip of a given width, by one of two heuristics. It is given both, with 32 widths
// each around that of a square; the best layout counts, and the time of all.

#include "koBase/pack.h"

#define STB_RECT_PACK_IMPLEMENTATION
#include <stb/stb_rect_pack.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using Tiles = ko::vector<koUtil::IntRange2d>;
using MakeSide = int (*)(std::mt19937&);

int uniformSide(std::mt19937& random)
{
    return 8 + static_cast<int>(random() % 121);
}

/// Half the sides are 8 to 15, a quarter 16 to 31, and so on to 256.
int heavyTailedSide(std::mt19937& random)
{
    int const scale = std::min(std::countl_zero(static_cast<std::uint32_t>(random())), 4);
    return static_cast<int>((8 + random() % 8) << scale);
}

Tiles tilesOf(MakeSide side, int count, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Tiles tiles;
    for (int i = 0; i < count; ++i) {
        int const width = side(random);
        int const height = side(random);
        tiles.push_back({0, 0, width, height});
    }
    return tiles;
}

double areaOf(Tiles const& tiles)
{
    double area = 0;
    for (koUtil::IntRange2d const& tile : tiles)
        area += static_cast<double>(tile.width) * tile.height;
    return area;
}

double shareOfOurs(Tiles tiles)
{
    koUtil::IntRange2d const used = koUtil::pack(tiles, false);
    return areaOf(tiles) / (static_cast<double>(used.width) * used.height);
}

double shareOfTheirs(Tiles const& tiles)
{
    double const area = areaOf(tiles);
    int widest = 0;
    for (koUtil::IntRange2d const& tile : tiles)
        widest = std::max(widest, tile.width);

    double best = 0;
    for (int const heuristic :
         {STBRP_HEURISTIC_Skyline_BL_sortHeight, STBRP_HEURISTIC_Skyline_BF_sortHeight}) {
        for (int i = 0; i < 32; ++i) {
            int const width = std::max(widest, static_cast<int>(std::sqrt(area) * (0.8 + 0.5 * i / 32)));
            std::vector<stbrp_node> nodes(static_cast<std::size_t>(width));
            std::vector<stbrp_rect> rects;
            for (koUtil::IntRange2d const& tile : tiles)
                rects.push_back(
                    {.id = 0, .w = tile.width, .h = tile.height, .x = 0, .y = 0, .was_packed = 0});

            stbrp_context context;
            stbrp_init_target(&context, width, 1 << 28, nodes.data(), width);
            stbrp_setup_heuristic(&context, heuristic);
            stbrp_pack_rects(&context, rects.data(), static_cast<int>(rects.size()));

            int height = 0;
            for (stbrp_rect const& rect : rects)
                height = std::max(height, rect.y + rect.h);
            best = std::max(best, area / (static_cast<double>(width) * height));
        }
    }
    return best;
}

struct Result {
    double share = 0;
    double milliseconds = 0;
};

template <class Share>
Result averageOf(std::vector<Tiles> const& sets, Share share)
{
    Result result;
    for (Tiles const& tiles : sets) {
        auto const start = std::chrono::steady_clock::now();
        result.share += share(tiles);
        result.milliseconds +=
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    }
    auto const count = static_cast<double>(sets.size());
    return {result.share / count, result.milliseconds / count};
}

void compare(char const* name, MakeSide side, int count)
{
    // Fewer sets of many tiles: they differ less.
    std::vector<Tiles> sets;
    for (std::uint32_t seed = 1; seed <= static_cast<std::uint32_t>(std::clamp(20000 / count, 2, 40)); ++seed)
        sets.push_back(tilesOf(side, count, seed));

    Result const ours = averageOf(sets, shareOfOurs);
    Result const theirs = averageOf(sets, shareOfTheirs);
    std::printf("%-14s %6d  %7.2f %% %8.2f ms   %7.2f %% %8.2f ms\n", name, count, 100 * ours.share,
                ours.milliseconds, 100 * theirs.share, theirs.milliseconds);
}

}  // namespace

int main()
{
    std::printf("%-14s %6s  %9s %11s   %9s %11s\n", "sides", "tiles", "ours", "", "stb", "");
    for (int const count : {100, 1000, 10000}) {
        compare("8 .. 128", uniformSide, count);
        compare("heavy-tailed", heavyTailedSide, count);
    }
}
