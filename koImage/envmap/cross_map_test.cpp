#include "koImage/envmap/cross_map.h"

#include "koImage/image/factory.h"
#include "koImage/image/fill.h"
#include "koImage/testing/directions.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace koImage {

namespace {

using koLinear::VectorFlt;
using testing::coordinates;
using testing::distance;
using testing::imageOf;
using testing::plainBits;
using testing::randomImage;
using testing::Size;
using testing::unitVectors;

constexpr float untouched = -7.0f;

// Two sizes must not pass for a size and a direction.
static_assert(!std::is_constructible_v<CrossMap, int, int>);
static_assert(std::is_constructible_v<CrossMap, int, bool>);
static_assert(std::is_constructible_v<CrossMap, int, int, bool>);

struct Cell {
    int column;
    int row;
};

/// The cells of the faces 0 to 5, rows from the bottom.
constexpr Cell verticalCells[] = {{2, 2}, {0, 2}, {1, 1}, {1, 3}, {1, 2}, {1, 0}};
constexpr Cell horizontalCells[] = {{2, 2}, {2, 0}, {1, 1}, {3, 1}, {2, 1}, {0, 1}};

Cell cellByHand(bool horizontal, int face)
{
    return horizontal ? horizontalCells[face] : verticalCells[face];
}

struct Place {
    int face;
    float fu;
    float fv;
};

std::array<std::uint32_t, 3> bitsOf(Place const& place)
{
    return {static_cast<std::uint32_t>(place.face), plainBits(place.fu), plainBits(place.fv)};
}

/// Towards zero, for everything that is a 32-bit integer; the least one for the rest.
int cut(float value)
{
    bool const fits = value > -0x1p31f && value < 0x1p31f;
    return fits ? static_cast<int>(std::trunc(double{value})) : std::numeric_limits<int>::min();
}

Place placeByHand(bool horizontal, float u, float v)
{
    float const acrossCells = (horizontal ? 4 : 3) * u;
    float const upCells = (horizontal ? 3 : 4) * v;
    int const column = cut(acrossCells);
    int const row = cut(upCells);
    Place place{-1, acrossCells - static_cast<float>(column), upCells - static_cast<float>(row)};
    for (int face = 5; face >= 0; --face) {
        Cell const cell = cellByHand(horizontal, face);
        if (cell.column == column && cell.row == row)
            place.face = face;
    }
    if (place.face == 5)
        return {5, 1 - place.fu, 1 - place.fv};
    return place;
}

struct Point {
    float u;
    float v;
};

std::array<std::uint32_t, 2> bitsOf(Point const& point)
{
    return {plainBits(point.u), plainBits(point.v)};
}

Point pointByHand(bool horizontal, Place place)
{
    if (place.face == 5)
        place = {5, 1 - place.fu, 1 - place.fv};
    Cell const cell = cellByHand(horizontal, place.face);
    float const across = static_cast<float>(cell.column) + place.fu;
    float const up = static_cast<float>(cell.row) + place.fv;
    if (horizontal)
        return {across * 0.25f, up / 3};
    return {across / 3, up * 0.25f};
}

Point pointByHand(bool horizontal, VectorFlt const& dir)
{
    float const ax = std::fabs(dir.x);
    float const ay = std::fabs(dir.y);
    float const az = std::fabs(dir.z);
    auto const on = [horizontal](int face, float p, float q, float s) {
        return pointByHand(horizontal, Place{face, (p * s + 1) * 0.5f, (q * s + 1) * 0.5f});
    };
    if (ax >= ay && ax >= az) {
        if (dir.x == 0)
            return {0, 0};
        return dir.x > 0 ? on(1, -dir.y, dir.z, 1 / ax) : on(0, dir.y, dir.z, 1 / ax);
    }
    if (ay >= az)
        return dir.y > 0 ? on(5, dir.x, dir.z, 1 / ay) : on(4, -dir.x, dir.z, 1 / ay);
    return dir.z > 0 ? on(3, -dir.x, dir.y, 1 / az) : on(2, -dir.x, -dir.y, 1 / az);
}

Place placeAt(CrossMap const& map, float u, float v)
{
    Place place{7, untouched, untouched};
    bool const found = map.crossToCube(u, v, place.face, place.fu, place.fv);
    EXPECT_EQ(found, place.face >= 0);
    return place;
}

Point pointOf(CrossMap const& map, VectorFlt const& dir)
{
    Point point{untouched, untouched};
    map.dirToCoord(dir, point.u, point.v);
    return point;
}

class EachCross : public ::testing::TestWithParam<bool> {
protected:
    bool const horizontal = GetParam();
    CrossMap const map{64, horizontal};
};
INSTANTIATE_TEST_SUITE_P(CrossMap, EachCross, ::testing::Bool(), [](auto const& instance) {
    return std::string(instance.param ? "Horizontal" : "Vertical");
});

TEST_P(EachCross, FindsThePlaceOnTheCubeToTheBit)
{
    int onFaces = 0;
    for (float const u : coordinates(400, 1))
        for (float const v : coordinates(400, 2)) {
            Place const expected = placeByHand(horizontal, u, v);
            ASSERT_EQ(bitsOf(placeAt(map, u, v)), bitsOf(expected)) << u << ", " << v;
            ASSERT_EQ(map.isValidCoord(u, v), expected.face >= 0);
            onFaces += expected.face >= 0 ? 1 : 0;
        }
    EXPECT_GT(onFaces, 60000);
}

TEST_P(EachCross, FindsThePlaceOnTheCrossToTheBit)
{
    for (int face = 0; face < 6; ++face)
        for (float const fu : coordinates(100, 3))
            for (float const fv : coordinates(100, 4)) {
                Point point{untouched, untouched};
                map.cubeToCross(fu, fv, face, point.u, point.v);
                ASSERT_EQ(bitsOf(point), bitsOf(pointByHand(horizontal, Place{face, fu, fv})))
                    << fu << ", " << fv << " on " << face;
            }
}

TEST_P(EachCross, FindsTheCoordinatesOfADirectionToTheBit)
{
    for (VectorFlt const& dir : unitVectors(200000, 5))
        ASSERT_EQ(bitsOf(pointOf(map, dir)), bitsOf(pointByHand(horizontal, dir)))
            << dir.x << ", " << dir.y << ", " << dir.z;
}

TEST_P(EachCross, FindsTheCoordinatesOfWhatIsNoDirectionToTheBit)
{
    for (std::uint32_t const x : testing::hostileFloatBits)
        for (std::uint32_t const y : testing::hostileFloatBits)
            for (std::uint32_t const z : testing::hostileFloatBits) {
                VectorFlt const dir(std::bit_cast<float>(x), std::bit_cast<float>(y),
                                    std::bit_cast<float>(z));
                ASSERT_EQ(bitsOf(pointOf(map, dir)), bitsOf(pointByHand(horizontal, dir)))
                    << dir.x << ", " << dir.y << ", " << dir.z;
            }
}

TEST_P(EachCross, HasItsFacesWhereItsPictureShowsThem)
{
    VectorFlt const axes[] = {{-1, 0, 0}, {1, 0, 0}, {0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}};
    for (int face = 0; face < 6; ++face) {
        Cell const cell = cellByHand(horizontal, face);
        EXPECT_EQ(map.faceColumn(face), cell.column);
        EXPECT_EQ(map.faceRow(face), cell.row);

        float const columns = horizontal ? 4 : 3;
        float const rows = horizontal ? 3 : 4;
        float const u = (static_cast<float>(cell.column) + 0.5f) / columns;
        float const v = (static_cast<float>(cell.row) + 0.5f) / rows;
        VectorFlt dir;
        ASSERT_TRUE(map.coordToDir(u, v, dir));
        EXPECT_LT(distance({axes[face].x, axes[face].y, axes[face].z}, dir), 1e-6) << face;
    }
}

TEST(CrossMap, JoinsTheFacesOfTheVerticalCrossWithoutASeam)
{
    // Across each edge between two cells of the cross, directions go on.
    CrossMap const map(64, false);
    struct Edge {
        float u;
        float v;
        bool alongU;
    };
    for (Edge const& edge :
         {Edge{1.0f / 3, 0.6f, true}, Edge{2.0f / 3, 0.6f, true}, Edge{0.45f, 0.75f, false},
          Edge{0.45f, 0.5f, false}, Edge{0.45f, 0.25f, false}}) {
        float const step = 1e-5f;
        VectorFlt before;
        VectorFlt behind;
        ASSERT_TRUE(
            map.coordToDir(edge.u - (edge.alongU ? step : 0), edge.v - (edge.alongU ? 0 : step), before));
        ASSERT_TRUE(
            map.coordToDir(edge.u + (edge.alongU ? step : 0), edge.v + (edge.alongU ? 0 : step), behind));
        EXPECT_LT(distance({before.x, before.y, before.z}, behind), 3e-4) << edge.u << ", " << edge.v;
    }
}

TEST(CrossMap, BreaksTiesForXBeforeYBeforeZ)
{
    CrossMap const map(64, false);
    auto const expectAt = [&map](Point const& expected, VectorFlt const& dir) {
        EXPECT_EQ(bitsOf(pointOf(map, dir)), bitsOf(expected)) << dir.x << ", " << dir.y << ", " << dir.z;
    };
    expectAt({0, 0.75f}, {1, 1, 1});         // the upper left corner of face 1
    expectAt({1, 0.75f}, {-1, 1, 1});        // the upper right corner of face 0
    expectAt({0.5f / 3, 0.75f}, {1, 0, 1});  // the middle of the upper edge of face 1
    expectAt({0.5f, 0}, {0, 1, 1});          // the middle of an edge of face 5, which is turned
    expectAt({0.5f, 0.875f}, {0, 0, 1});     // face 3
}

TEST_P(EachCross, IsAtZeroForTheZeroVector)
{
    for (float const zero : {0.0f, -0.0f})
        EXPECT_EQ(bitsOf(pointOf(map, {zero, 0, 0})), bitsOf(Point{0, 0}));
}

TEST_P(EachCross, HasNoFaceInItsEmptyCells)
{
    EXPECT_EQ(placeAt(map, 0.1f, 0.1f).face, -1);
    EXPECT_EQ(placeAt(map, 0.9f, 0.95f).face, -1);

    VectorFlt dir(untouched, untouched, untouched);
    float weight = untouched;
    EXPECT_FALSE(map.coordToDir(0.1f, 0.1f, dir, weight, false));
    EXPECT_EQ(dir, VectorFlt(untouched, untouched, untouched));
    EXPECT_EQ(weight, 0.0f);
}

TEST(CrossMap, CountsCoordinatesJustBelowZeroToItsFirstCell)
{
    Place const place = placeAt(CrossMap(64, false), -0.1f, 0.6f);
    EXPECT_EQ(place.face, 1);
    EXPECT_FLOAT_EQ(place.fu, -0.3f);
    EXPECT_EQ(placeAt(CrossMap(64, false), -0.4f, 0.6f).face, -1);
}

TEST_P(EachCross, LeavesThePointAloneForAFaceThatItDoesNotHave)
{
    for (int const face : {-1, 6, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        Point point{untouched, untouched};
        map.cubeToCross(0.5f, 0.5f, face, point.u, point.v);
        EXPECT_EQ(bitsOf(point), bitsOf(Point{untouched, untouched}));
    }
}

TEST_P(EachCross, LeavesTheWeightAloneWhereItIsNotWanted)
{
    VectorFlt dir;
    float weight = untouched;
    EXPECT_TRUE(map.coordToDir(0.5f, 0.5f, dir, weight, false));
    EXPECT_EQ(weight, untouched);
}

TEST(CrossMap, HasAnOmegaFactorForEverySize)
{
    float const a = 6.2831855f / 3.0f;
    float const b = 6.2831855f / 5.0f;
    EXPECT_EQ(CrossMap(3, true).omegaFactor(), a * a / 6.0f * 0.5f);
    EXPECT_EQ(CrossMap(5, 3, false).omegaFactor(), a * b / 6.0f * 0.5f);
    CrossMap map(1, false);
    map.computeOmegaFactor(5, 3);
    EXPECT_EQ(map.omegaFactor(), a * b / 6.0f * 0.5f);
    EXPECT_TRUE(std::isinf(CrossMap(0, false).omegaFactor()));
}

TEST(CrossMap, ChoosesItsTablesAgain)
{
    CrossMap map(4, 4, true);
    EXPECT_TRUE(map.horizontal());
    map.setupOffset();
    EXPECT_EQ(map.faceColumn(3), 3);
    EXPECT_EQ(map.faceRow(3), 1);
}

TEST_P(EachCross, GivesTheDirectionsAndWeightsOfASlowReference)
{
    testing::Random random(6);
    int onFaces = 0;
    for (int i = 0; i < 200000; ++i) {
        float const u = testing::randomUnit(random);
        float const v = testing::randomUnit(random);
        long double const across = (horizontal ? 4 : 3) * (long double){u};
        long double const up = (horizontal ? 3 : 4) * (long double){v};
        if (std::abs(across - std::round(across)) < 1e-6L || std::abs(up - std::round(up)) < 1e-6L)
            continue;

        int face = -1;
        for (int k = 0; k < 6; ++k)
            if (cellByHand(horizontal, k).column == int(across) && cellByHand(horizontal, k).row == int(up))
                face = k;
        VectorFlt dir;
        float weight = untouched;
        ASSERT_EQ(map.coordToDir(u, v, dir, weight, true), face >= 0);
        if (face < 0)
            continue;

        ++onFaces;
        long double const turn = face == 5 ? -1 : 1;
        long double const a = turn * (2 * (across - std::floor(across)) - 1);
        long double const b = turn * (2 * (up - std::floor(up)) - 1);
        testing::LongVector const toFace[] = {{-1, a, b}, {1, -a, b},  {-a, -b, -1},
                                              {-a, b, 1}, {-a, -1, b}, {a, 1, b}};
        long double const length = std::sqrt(1 + a * a + b * b);
        ASSERT_LT(std::abs(toFace[face].x / length - dir.x), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(toFace[face].y / length - dir.y), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(toFace[face].z / length - dir.z), 1e-6L) << u << ", " << v;
        ASSERT_LT(std::abs(map.omegaFactor() / (1 + a * a + b * b) - weight), 1e-6L * map.omegaFactor());
    }
    EXPECT_GT(onFaces, 90000);
}

// In units of h = 2^-24, as errors of the place (a, b) in -1 .. 1 on the face, on the way from direction to
// direction:
//
//   s, p * s                    half an ulp each                                       2
//   + 1                         half an ulp of up to 2                                 1
//   1 - fu, twice, on face 5    half an ulp of up to 1, doubled                        2
//   column + fu                 half an ulp of up to 4, doubled                        4
//   / 3, times 3                half an ulp of up to 1, times 6; of up to 4, doubled   3 + 4, exact for the
//   sides of 4 2 fu - 1                    half an ulp of up to 1                                 0.5
//
// Together 16.5 along the three cells and 9.5 along the four, 19.1 across. The direction moves by no more
// than the place, and is rounded again, by half an ulp each in length, quotient and square: 1.5 at most.
TEST_P(EachCross, LeadsBackToADirectionWithin21UlpsOfOneHalf)
{
    constexpr long double bound = 20.6L * 0x1p-24L;
    long double worst = 0;
    int checked = 0;
    for (VectorFlt const& dir : unitVectors(300000, 7)) {
        float const largest = std::max({std::abs(dir.x), std::abs(dir.y), std::abs(dir.z)});
        float const rest = std::abs(dir.x) + std::abs(dir.y) + std::abs(dir.z) - largest;
        if (rest / largest > 0.99999f &&
            std::max({std::min(std::abs(dir.x), std::abs(dir.y)), std::min(std::abs(dir.y), std::abs(dir.z)),
                      std::min(std::abs(dir.z), std::abs(dir.x))}) /
                    largest >
                0.99999f)
            continue;  // the edges of the faces, where a place may round into an empty cell
        Point const point = pointOf(map, dir);
        VectorFlt back;
        ASSERT_TRUE(map.coordToDir(point.u, point.v, back)) << dir.x << ", " << dir.y << ", " << dir.z;
        worst = std::max(worst, distance({dir.x, dir.y, dir.z}, back));
        ++checked;
    }
    EXPECT_GT(checked, 290000);
    EXPECT_LE(worst, bound);
    EXPECT_GE(worst, bound / 4) << "the bound says too little";
}

// The weights sum to (2 pi)^2 / 12 times the integral of 1 / (1 + a^2 + b^2) over six faces of side 1: less
// than the sphere. The integral over the square of side 2 is I = 2.5577; of the midpoint rule with n x n
// points the sum exceeds it by (2 / n)^2 / 24 times the flux of the gradient out of the square, here inward:
// 3.074, which is 0.2003 / n^2 of I.
TEST_P(EachCross, WeighsItsPixelsToItsOwnTotal)
{
    // The inner integral in closed form, the outer by Simpson's rule.
    auto const inner = [](long double a) {
        long double const k = std::sqrt(1 + a * a);
        return 2 * std::atan(1 / k) / k;
    };
    long double integral = 0;
    constexpr int steps = 2000;
    for (int i = 0; i <= steps; ++i)
        integral += inner(-1 + 2.0L * i / steps) * (i == 0 || i == steps ? 1 : i % 2 != 0 ? 4 : 2);
    integral *= 2.0L / steps / 3;
    long double const total = 4 * testing::longPi * testing::longPi / 12 * 6 * integral / 4;

    for (int const n : {8, 16, 64}) {
        CrossMap const sized(n, horizontal);
        int const width = (horizontal ? 4 : 3) * n;
        int const height = (horizontal ? 3 : 4) * n;
        long double sum = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                VectorFlt dir;
                float weight = 0;
                sized.coordToDir((static_cast<float>(x) + 0.5f) / static_cast<float>(width),
                                 (static_cast<float>(y) + 0.5f) / static_cast<float>(height), dir, weight,
                                 true);
                sum += weight;
            }
        long double const excess = 0.2003L / (n * n);
        EXPECT_NEAR(double(sum / total), double(1 + excess), double(excess / 4 + 1e-6L)) << n;
    }
}

// --- faces ---

struct Layout {
    Size size;
    bool horizontal;
};

// Square cells; cells wider than high and the reverse; blocks that do not fit; one pixel a cell.
constexpr Layout layouts[] = {{{12, 16}, false}, {{16, 12}, true}, {{16, 6}, true}, {{8, 21}, true},
                              {{6, 16}, false},  {{12, 8}, false}, {{3, 4}, false}, {{4, 3}, true}};

struct Rectangle {
    int x;
    int y;
    int width;
    int height;

    bool fits(Size size) const { return x + width <= size.width && y + height <= size.height; }
};

Rectangle blockByHand(Layout const& layout, int face)
{
    int const longSide = layout.horizontal ? layout.size.width : layout.size.height;
    int const shortSide = layout.horizontal ? layout.size.height : layout.size.width;
    Cell const cell = cellByHand(layout.horizontal, face);
    return {longSide / 4 * cell.column, shortSide / 3 * cell.row, longSide / 4, shortSide / 3};
}

template <class Pixel>
class CrossFaces : public ::testing::Test {
};
TYPED_TEST_SUITE(CrossFaces, testing::TestTypes<StoredPixels>, testing::ById);

template <class Pixel>
bool sameBytes(Pixel const& a, Pixel const& b)
{
    return std::memcmp(&a, &b, sizeof(Pixel)) == 0;
}

TYPED_TEST(CrossFaces, ComeOutUpright)
{
    for (Layout const& layout : layouts) {
        SCOPED_TRACE(::testing::Message() << layout.size << (layout.horizontal ? " horizontal" : ""));
        CrossMap const map(4, layout.horizontal);
        auto const cross = randomImage<TypeParam>(layout.size, 1);
        for (int face = 0; face < 6; ++face) {
            Rectangle const block = blockByHand(layout, face);
            auto const copy = randomImage<TypeParam>({2, 5}, 2);
            map.copyFace(*cross, *copy, face);
            ASSERT_EQ(copy->width(), block.width);
            ASSERT_EQ(copy->height(), block.height);
            if (!block.fits(layout.size))
                continue;
            // Rows of Double3 cannot be turned.
            bool const mirrored = face == 5 && !std::is_same_v<TypeParam, Double3>;
            for (int y = 0; y < block.height; ++y)
                for (int x = 0; x < block.width; ++x) {
                    int const fromX = block.x + (mirrored ? block.width - 1 - x : x);
                    int const fromY = block.y + (face == 5 ? block.height - 1 - y : y);
                    ASSERT_TRUE(sameBytes(cross->pixels()[fromY * layout.size.width + fromX],
                                          copy->pixels()[y * block.width + x]))
                        << "face " << face << " at " << x << ", " << y;
                }
        }
    }
}

TYPED_TEST(CrossFaces, OutAndInGiveTheImageBack)
{
    for (Layout const& layout : layouts) {
        SCOPED_TRACE(::testing::Message() << layout.size << (layout.horizontal ? " horizontal" : ""));
        auto const cross = randomImage<TypeParam>(layout.size, 3);
        auto const target = randomImage<TypeParam>(layout.size, 4);
        auto const expected = randomImage<TypeParam>(layout.size, 4);
        CrossMap map(4, layout.horizontal);
        map.setImage(target.get());

        for (int face = 0; face < 6; ++face) {
            Rectangle const block = blockByHand(layout, face);
            auto const copy = imageOf<TypeParam>({0, 0});
            map.copyFace(*cross, *copy, face);
            if (!block.fits(layout.size))
                fillBlack(*copy);  // nothing was copied, and nothing must be
            ko::Reference<Image> const before(copy->clone());
            map.pasteFace(*copy, face);
            EXPECT_TRUE(testing::samePixels(*before, *copy)) << "the caller's face changed";

            for (int y = block.y; block.fits(layout.size) && y < block.y + block.height; ++y)
                for (int x = block.x; x < block.x + block.width; ++x) {
                    int const at = y * layout.size.width + x;
                    std::memcpy(&expected->pixels()[at], &cross->pixels()[at], sizeof(TypeParam));
                }
        }
        EXPECT_TRUE(testing::samePixels(*expected, *target));
        map.setImage(nullptr);
    }
}

TEST(CrossMapCopyFace, LeavesTheFaceAloneWhereSidesAreNotMultiplesOf4And3)
{
    auto const face = randomImage<Float3>({5, 7}, 5);
    auto const before = randomImage<Float3>({5, 7}, 5);
    for (Layout const& layout : {Layout{{12, 15}, false}, Layout{{13, 16}, false}, Layout{{15, 12}, true},
                                 Layout{{16, 13}, true}, Layout{{16, 12}, false}})
        for (int i = 0; i < 6; ++i) {
            auto const cross = randomImage<Float3>(layout.size, 6);
            CrossMap(4, layout.horizontal).copyFace(*cross, *face, i);
            EXPECT_TRUE(testing::samePixels(*before, *face)) << layout.size;
        }
}

TEST(CrossMapCopyFace, LeavesTheFaceAloneForAFaceThatTheCrossDoesNotHave)
{
    auto const cross = randomImage<Float3>({12, 16}, 7);
    auto const face = randomImage<Float3>({5, 7}, 8);
    auto const before = randomImage<Float3>({5, 7}, 8);
    for (int const i : {-1, 6, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        CrossMap(4, false).copyFace(*cross, *face, i);
        EXPECT_TRUE(testing::samePixels(*before, *face)) << i;
    }
}

TEST(CrossMapCopyFace, MayBeGivenTheCrossItself)
{
    for (int face = 0; face < 6; ++face) {
        auto const cross = randomImage<Float3>({12, 16}, 9);
        CrossMap(4, false).copyFace(*cross, *cross, face);
        EXPECT_EQ(cross->width(), 4);
        EXPECT_EQ(cross->height(), 4);
    }
}

TEST(CrossMapCopyFace, TakesACrossWithoutPixels)
{
    for (Size const size : {Size{0, 0}, Size{-3, -4}, Size{-12, 16}, Size{12, -16}, Size{12, 16}}) {
        auto const empty = imageOf<Float3>({0, 0});
        empty->borrow(nullptr, size.width, size.height);
        for (int face = 0; face < 6; ++face) {
            auto const target = imageOf<Float3>({1, 1});
            CrossMap(4, false).copyFace(*empty, *target, face);
            EXPECT_EQ(target->width(), size.height / 4);
            EXPECT_EQ(target->height(), size.width / 3);
        }
    }
}

TEST(CrossMapPasteFace, DoesNothingWithoutAnImageOrAFace)
{
    auto const cross = randomImage<Float3>({12, 16}, 10);
    auto const before = randomImage<Float3>({12, 16}, 10);
    auto const face = randomImage<Float3>({4, 4}, 11);
    ko::Reference<CrossMap> const map(new CrossMap(4, false));
    for (int i = 0; i < 6; ++i)
        map->pasteFace(*face, i);

    map->setImage(cross.get());
    for (int const i : {-1, 6, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
        map->pasteFace(*face, i);
    auto const none = imageOf<Float3>({0, 0});
    auto const large = randomImage<Float3>({13, 4}, 12);
    for (int i = 0; i < 6; ++i) {
        map->pasteFace(*none, i);
        map->pasteFace(*large, i);
    }
    EXPECT_TRUE(testing::samePixels(*before, *cross));
}

TEST(CrossMapPasteFace, DoesNothingWhereSidesAreNotMultiplesOf4And3)
{
    auto const cross = randomImage<Float3>({12, 17}, 13);
    auto const before = randomImage<Float3>({12, 17}, 13);
    ko::Reference<CrossMap> const map(new CrossMap(4, false));
    map->setImage(cross.get());
    for (int i = 0; i < 6; ++i)
        map->pasteFace(*randomImage<Float3>({2, 2}, 14), i);
    EXPECT_TRUE(testing::samePixels(*before, *cross));
}

}  // namespace

}  // namespace koImage
