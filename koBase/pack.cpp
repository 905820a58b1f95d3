#include "koBase/pack.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

namespace koUtil {

namespace {

using Index = std::uint32_t;
constexpr Index nobody = std::numeric_limits<Index>::max();
constexpr std::int64_t endless = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t largestSize = std::numeric_limits<std::int32_t>::max();

struct Tile {
    std::int64_t width;
    std::int64_t height;
    std::size_t origin;  // index among the caller's tiles
};

struct Place {
    std::int64_t x;
    std::int64_t y;
};

struct Extent {
    std::int64_t width;
    std::int64_t height;
};

/// A set of 0 .. n - 1 that only shrinks, and tells the nearest member at or after an index.
class Survivors {
public:
    void fill(Index count)
    {
        next_.resize(count + std::size_t{1});
        std::iota(next_.begin(), next_.end(), Index{0});
    }

    void erase(Index i) { next_[i] = i + 1; }

    /// The first member from i on, or n.
    Index from(Index i)
    {
        Index end = i;
        while (next_[end] != end)
            end = next_[end];
        while (next_[i] != end && next_[i] != i)
            i = std::exchange(next_[i], end);
        return end;
    }

private:
    std::vector<Index> next_;
};

/// The narrowest member of every span of a sequence, to find the first that is narrow enough.
class NarrowestTree {
public:
    void fill(std::span<Tile const> tiles)
    {
        leaves_ = std::bit_ceil(std::max<std::size_t>(tiles.size(), 1));
        narrowest_.assign(2 * leaves_, endless);
        for (std::size_t i = 0; i < tiles.size(); ++i)
            narrowest_[leaves_ + i] = tiles[i].width;
        for (std::size_t i = leaves_ - 1; i > 0; --i)
            narrowest_[i] = std::min(narrowest_[2 * i], narrowest_[2 * i + 1]);
    }

    void erase(Index i)
    {
        std::size_t node = leaves_ + i;
        narrowest_[node] = endless;
        while (node > 1) {
            node /= 2;
            narrowest_[node] = std::min(narrowest_[2 * node], narrowest_[2 * node + 1]);
        }
    }

    /// The first member no wider than that, or nobody.
    Index first(std::int64_t width) const
    {
        if (narrowest_[1] > width)
            return nobody;
        std::size_t node = 1;
        while (node < leaves_)
            node = narrowest_[2 * node] <= width ? 2 * node : 2 * node + 1;
        return static_cast<Index>(node - leaves_);
    }

private:
    std::size_t leaves_ = 0;
    std::vector<std::int64_t> narrowest_;
};

/// Tiles in the order in which they are preferred, and what is left of them.
class Stock {
public:
    explicit Stock(std::vector<Tile> tiles) : tiles_(std::move(tiles))
    {
        bySize_.resize(tiles_.size());
        std::iota(bySize_.begin(), bySize_.end(), Index{0});
        byWidth_ = bySize_;
        // By height, and from wide to narrow: the first survivor behind a width is the widest that fits.
        std::sort(bySize_.begin(), bySize_.end(), [this](Index a, Index b) {
            return std::make_tuple(tiles_[a].height, -tiles_[a].width, a) <
                   std::make_tuple(tiles_[b].height, -tiles_[b].width, b);
        });
        std::sort(byWidth_.begin(), byWidth_.end(), [this](Index a, Index b) {
            return std::make_pair(tiles_[a].width, a) < std::make_pair(tiles_[b].width, b);
        });
        rankBySize_ = ranksOf(bySize_);
        rankByWidth_ = ranksOf(byWidth_);
    }

    std::span<Tile const> tiles() const { return tiles_; }

    void refill()
    {
        auto const count = static_cast<Index>(tiles_.size());
        survivorsBySize_.fill(count);
        survivorsByWidth_.fill(count);
        narrowest_.fill(tiles_);
    }

    void erase(Index i)
    {
        survivorsBySize_.erase(rankBySize_[i]);
        survivorsByWidth_.erase(rankByWidth_[i]);
        narrowest_.erase(i);
    }

    /// The widest tile of that height that is no wider than that, or nobody.
    Index ofHeight(std::int64_t height, std::int64_t width)
    {
        auto const at = std::partition_point(bySize_.begin(), bySize_.end(), [&](Index i) {
            return std::make_pair(tiles_[i].height, -tiles_[i].width) < std::make_pair(height, -width);
        });
        return survivor(bySize_, survivorsBySize_, at,
                        [=](Tile const& tile) { return tile.height == height; });
    }

    /// The preferred tile of that width, or nobody.
    Index ofWidth(std::int64_t width)
    {
        auto const at = std::partition_point(byWidth_.begin(), byWidth_.end(),
                                             [&](Index i) { return tiles_[i].width < width; });
        return survivor(byWidth_, survivorsByWidth_, at,
                        [=](Tile const& tile) { return tile.width == width; });
    }

    /// The preferred tile that is no wider than that, or nobody.
    Index within(std::int64_t width) const { return narrowest_.first(width); }

private:
    static std::vector<Index> ranksOf(std::vector<Index> const& order)
    {
        std::vector<Index> ranks(order.size());
        for (std::size_t rank = 0; rank < order.size(); ++rank)
            ranks[order[rank]] = static_cast<Index>(rank);
        return ranks;
    }

    template <class Fits>
    Index survivor(std::vector<Index> const& order, Survivors& survivors,
                   std::vector<Index>::const_iterator at, Fits const& fits) const
    {
        Index const rank = survivors.from(static_cast<Index>(at - order.begin()));
        return rank < order.size() && fits(tiles_[order[rank]]) ? order[rank] : nobody;
    }

    std::vector<Tile> tiles_;
    std::vector<Index> bySize_;
    std::vector<Index> byWidth_;
    std::vector<Index> rankBySize_;
    std::vector<Index> rankByWidth_;
    Survivors survivorsBySize_;
    Survivors survivorsByWidth_;
    NarrowestTree narrowest_;
};

/// A strip of some width, filled from the bottom. Its skyline is a row of ledges without equal neighbours.
class Strip {
public:
    /// Places all tiles; false where that takes more than the height.
    [[nodiscard]] bool fill(Stock& stock, std::int64_t width, std::int64_t height)
    {
        stock.refill();
        places_.assign(stock.tiles().size(), {});
        skyline_.assign(1, {0, 0, width});
        extent_ = {0, 0};
        for (std::size_t left = stock.tiles().size(); left > 0;) {
            Gap const gap = lowestGap();
            auto const [tile, atLeft] = choose(stock, gap);
            if (tile == nobody) {
                raise(gap);
                continue;
            }
            place(stock.tiles()[tile], tile, gap, atLeft);
            if (extent_.height > height)
                return false;
            stock.erase(tile);
            --left;
        }
        return true;
    }

    Extent extent() const { return extent_; }
    std::span<Place const> places() const { return places_; }

private:
    struct Ledge {
        std::int64_t x;
        std::int64_t y;
        std::int64_t width;
    };

    /// The lowest ledge, and how high its neighbours stand above it.
    struct Gap {
        std::size_t ledge;
        std::int64_t width;
        std::int64_t leftWall;
        std::int64_t rightWall;
    };

    Gap lowestGap() const
    {
        auto const lowest = std::min_element(skyline_.begin(), skyline_.end(),
                                             [](Ledge const& a, Ledge const& b) { return a.y < b.y; });
        bool const first = lowest == skyline_.begin();
        bool const last = std::next(lowest) == skyline_.end();
        return {static_cast<std::size_t>(lowest - skyline_.begin()), lowest->width,
                first ? endless : std::prev(lowest)->y - lowest->y,
                last ? endless : std::next(lowest)->y - lowest->y};
    }

    /// The tile for a gap, and whether it goes to the left end. Tiles that fill the whole width come first,
    /// those that end level with a wall before others; then tiles level with a wall; then the preferred one.
    static std::pair<Index, bool> choose(Stock& stock, Gap const& gap)
    {
        bool const leftIsHigher = gap.leftWall >= gap.rightWall;
        std::int64_t const higher = std::max(gap.leftWall, gap.rightWall);
        std::int64_t const lower = std::min(gap.leftWall, gap.rightWall);

        Index const levelWithHigher = stock.ofHeight(higher, gap.width);
        Index const levelWithLower = stock.ofHeight(lower, gap.width);
        for (Index const level : {levelWithHigher, levelWithLower}) {
            if (level != nobody && stock.tiles()[level].width == gap.width)
                return {level, true};
        }
        if (Index const wide = stock.ofWidth(gap.width); wide != nobody)
            return {wide, true};
        if (levelWithHigher != nobody)
            return {levelWithHigher, leftIsHigher};
        if (levelWithLower != nobody)
            return {levelWithLower, !leftIsHigher};
        return {stock.within(gap.width), leftIsHigher};
    }

    void place(Tile const& tile, Index index, Gap const& gap, bool atLeft)
    {
        Ledge& ledge = skyline_[gap.ledge];
        std::int64_t const x = atLeft ? ledge.x : ledge.x + ledge.width - tile.width;
        std::int64_t const top = ledge.y + tile.height;
        places_[index] = {x, ledge.y};
        extent_ = {std::max(extent_.width, x + tile.width), std::max(extent_.height, top)};

        if (tile.width == ledge.width) {
            ledge.y = top;
            join(gap.ledge);
            return;
        }
        ledge.width -= tile.width;
        ledge.x += atLeft ? tile.width : 0;
        std::size_t const at = gap.ledge + (atLeft ? 0 : 1);
        skyline_.insert(skyline_.begin() + static_cast<std::ptrdiff_t>(at), {x, top, tile.width});
        join(at);
    }

    /// Gives up the gap: it is filled to its lower wall.
    void raise(Gap const& gap)
    {
        skyline_[gap.ledge].y += std::min(gap.leftWall, gap.rightWall);
        join(gap.ledge);
    }

    /// Makes one ledge of this and its neighbours where they are level.
    void join(std::size_t at)
    {
        if (at + 1 < skyline_.size() && skyline_[at + 1].y == skyline_[at].y)
            joinPair(at);
        if (at > 0 && skyline_[at - 1].y == skyline_[at].y)
            joinPair(at - 1);
    }

    void joinPair(std::size_t at)
    {
        skyline_[at].width += skyline_[at + 1].width;
        skyline_.erase(skyline_.begin() + static_cast<std::ptrdiff_t>(at + 1));
    }

    std::vector<Ledge> skyline_;
    std::vector<Place> places_;
    Extent extent_ = {0, 0};
};

/// How good a layout is: smaller is better.
struct Cost {
    std::int64_t area = endless;
    std::int64_t longerSide = endless;

    friend bool operator<(Cost const& a, Cost const& b)
    {
        return std::tie(a.area, a.longerSide) < std::tie(b.area, b.longerSide);
    }
};

std::int64_t powerOfTwoFrom(std::int64_t size)
{
    return static_cast<std::int64_t>(std::bit_ceil(static_cast<std::uint64_t>(size)));
}

/// Tries strips of several widths, and several orders of preference, and keeps the best layout.
class Search {
public:
    Search(std::vector<Tile> tiles, bool powersOfTwo) : tiles_(std::move(tiles)), powersOfTwo_(powersOfTwo)
    {
        for (Tile const& tile : tiles_) {
            widest_ = std::max(widest_, tile.width);
            tallest_ = std::max(tallest_, tile.height);
            area_ += static_cast<double>(tile.width) * static_cast<double>(tile.height);
        }
    }

    /// Writes the places of the best layout and tells the area that it takes.
    Extent run(std::vector<Place>& places)
    {
        std::vector<std::int64_t> const widths = powersOfTwo_ ? powersOfTwo() : widthsAroundTheBest();
        for (auto const prefer : {byPerimeter, byArea, byHeight}) {
            std::vector<Tile> sorted = tiles_;
            std::stable_sort(sorted.begin(), sorted.end(),
                             [prefer](Tile const& a, Tile const& b) { return prefer(a) > prefer(b); });
            Stock stock(std::move(sorted));
            for (std::int64_t const width : widths)
                attempt(stock, width, places);
        }
        return extent_;
    }

private:
    static double byPerimeter(Tile const& tile) { return static_cast<double>(tile.width + tile.height); }
    static double byHeight(Tile const& tile) { return static_cast<double>(tile.height); }
    static double byArea(Tile const& tile)
    {
        return static_cast<double>(tile.width) * static_cast<double>(tile.height);
    }

    /// Near a square where the tiles allow it: no narrower than the widest, no lower than the tallest.
    std::vector<std::int64_t> widthsAroundTheBest() const
    {
        auto const widest = static_cast<double>(widest_);
        double const best =
            std::max(widest, std::min(std::sqrt(area_), area_ / static_cast<double>(tallest_)));

        // Fewer for many tiles, whose layouts differ less and take longer.
        int const count = std::clamp(static_cast<int>(20000 / tiles_.size()), 4, 64);
        std::vector<std::int64_t> widths;
        for (int i = 0; i < count; ++i) {
            double const width = std::min(best * (0.8 + 0.5 * i / count), static_cast<double>(largestSize));
            widths.push_back(std::max(widest_, static_cast<std::int64_t>(width)));
        }
        widths.push_back(widest_);
        std::sort(widths.begin(), widths.end());
        widths.erase(std::unique(widths.begin(), widths.end()), widths.end());
        return widths;
    }

    std::vector<std::int64_t> powersOfTwo() const
    {
        std::vector<std::int64_t> widths;
        for (std::int64_t width = powerOfTwoFrom(widest_); width <= largestSize; width *= 2) {
            widths.push_back(width);
            if (static_cast<double>(width) > 2 * std::sqrt(area_))
                break;
        }
        return widths;
    }

    Cost costOf(Extent extent) const
    {
        if (powersOfTwo_)
            extent = {powerOfTwoFrom(extent.width), powerOfTwoFrom(extent.height)};
        return {extent.width * extent.height, std::max(extent.width, extent.height)};
    }

    void attempt(Stock& stock, std::int64_t width, std::vector<Place>& places)
    {
        // Higher strips have more area than the best so far, or sizes that cannot be told.
        std::int64_t const highest = powersOfTwo_ ? powerOfTwoFrom(largestSize) / 2 : largestSize;
        if (!strip_.fill(stock, width, std::min(highest, cost_.area / width)))
            return;
        Cost const cost = costOf(strip_.extent());
        if (!(cost < cost_))
            return;
        cost_ = cost;
        extent_ = strip_.extent();
        for (std::size_t i = 0; i < stock.tiles().size(); ++i)
            places[stock.tiles()[i].origin] = strip_.places()[i];
    }

    std::vector<Tile> tiles_;
    bool powersOfTwo_;
    std::int64_t widest_ = 0;
    std::int64_t tallest_ = 0;
    double area_ = 0;
    Strip strip_;
    Cost cost_;
    Extent extent_ = {0, 0};
};

}  // namespace

IntRange2d pack(ko::vector<IntRange2d>& tiles, bool powersOfTwo)
{
    // Tiles without area stay at the origin.
    std::vector<Tile> solid;
    std::vector<Place> places(tiles.size(), Place{0, 0});
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        if (tiles[i].width > 0 && tiles[i].height > 0)
            solid.push_back({tiles[i].width, tiles[i].height, i});
    }
    Extent used = {0, 0};
    if (!solid.empty())
        used = Search(std::move(solid), powersOfTwo).run(places);

    for (std::size_t i = 0; i < tiles.size(); ++i) {
        tiles[i].x = static_cast<std::int32_t>(places[i].x);
        tiles[i].y = static_cast<std::int32_t>(places[i].y);
    }
    if (powersOfTwo && used.width > 0)
        used = {powerOfTwoFrom(used.width), powerOfTwoFrom(used.height)};
    return {0, 0, static_cast<std::int32_t>(used.width), static_cast<std::int32_t>(used.height)};
}

}  // namespace koUtil
