#include "koImage/envmap/environment_map.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <limits>
#include <optional>

namespace koImage {

namespace {

using testing::imageOf;
using testing::Size;

using MapRef = ko::Reference<EnvironmentMap>;

constexpr float twoPi = 6.2831855f;
constexpr float pi = 3.1415927f;

/// What detection must find for a size, written out for each shape by itself.
struct Found {
    EnvironmentMapType type;
    float omegaFactor;
    bool wrapVertical;
};

std::optional<Found> foundByHand(int width, int height)
{
    for (int n = 1; n <= 2 * (width + height); ++n) {
        float const step = twoPi / static_cast<float>(n);
        if (width == n && height == n)
            return Found{EnvironmentMapType::Sphere, step * step, true};
        if (width == 2 * n && height == n)
            return Found{EnvironmentMapType::LatLong,
                         (pi / static_cast<float>(n)) * (twoPi / static_cast<float>(2 * n)), false};
        if (width == 3 * n && height == 4 * n)
            return Found{EnvironmentMapType::Cross, step * step / 6.0f * 0.5f, true};
    }
    return std::nullopt;
}

float omegaFactorOf(EnvironmentMap const& map)
{
    switch (map.mapType()) {
    case EnvironmentMapType::Sphere:
        return dynamic_cast<SphereMap const&>(map).omegaFactor();
    case EnvironmentMapType::LatLong:
        return dynamic_cast<LatLongMap const&>(map).omegaFactor();
    case EnvironmentMapType::Cross:
        break;
    }
    return dynamic_cast<CrossMap const&>(map).omegaFactor();
}

TEST(NewEnvironmentMap, KnowsEverySizeUpTo60By60ByItsProportions)
{
    int found = 0;
    for (int width = 0; width <= 60; ++width)
        for (int height = 0; height <= 60; ++height) {
            SCOPED_TRACE(::testing::Message() << width << " x " << height);
            auto const image = imageOf<float>({width, height});
            auto const expected = foundByHand(width, height);
            for (bool const wrapBefore : {false, true}) {
                image->setWrap(wrapBefore, wrapBefore);
                MapRef const map(newEnvironmentMap(*image));
                ASSERT_EQ(bool(map), expected.has_value());
                EXPECT_EQ(image->wrapHorizontal(), expected || wrapBefore);
                EXPECT_EQ(image->wrapVertical(), expected ? expected->wrapVertical : wrapBefore);
                if (expected) {
                    ++found;
                    EXPECT_EQ(map->mapType(), expected->type);
                    EXPECT_EQ(omegaFactorOf(*map), expected->omegaFactor);
                    EXPECT_EQ(map->image(), image.get());
                }
            }
        }
    EXPECT_EQ(found, 2 * (60 + 30 + 15));
}

EnvironmentMapType typeOf(Size size)
{
    TypedImage<float> image;
    image.borrow(nullptr, size.width, size.height);
    image.addReference();  // it stands on the stack
    MapRef const map(newEnvironmentMap(image));
    return map ? map->mapType() : EnvironmentMapType(99);
}

constexpr auto none = EnvironmentMapType(99);

TEST(NewEnvironmentMap, TakesCommonSizesForWhatTheyAre)
{
    EXPECT_EQ(typeOf({256, 256}), EnvironmentMapType::Sphere);
    EXPECT_EQ(typeOf({512, 256}), EnvironmentMapType::LatLong);
    EXPECT_EQ(typeOf({768, 1024}), EnvironmentMapType::Cross);
    EXPECT_EQ(typeOf({1024, 768}), none) << "a horizontal cross is never recognised";
    EXPECT_EQ(typeOf({300, 200}), none);
}

TEST(NewEnvironmentMap, MakesAVerticalCross)
{
    auto const image = imageOf<Float3>({768, 1024});
    MapRef const map(newEnvironmentMap(*image));
    EXPECT_FALSE(dynamic_cast<CrossMap const&>(*map).horizontal());
}

TEST(NewEnvironmentMap, GivesNullForSizesBelowOne)
{
    for (Size const size : {Size{0, 0}, Size{0, 7}, Size{-4, -4}, Size{-8, -4}, Size{-3, -4}, Size{-2, 1}})
        EXPECT_EQ(typeOf(size), none) << size;
}

TEST(NewEnvironmentMap, CountsInWholeNumbersAtTheEndOfTheirRange)
{
    int const most = std::numeric_limits<int>::max();
    EXPECT_EQ(typeOf({most, most}), EnvironmentMapType::Sphere);
    EXPECT_EQ(typeOf({most - 1, most / 2}), EnvironmentMapType::LatLong);
    EXPECT_EQ(typeOf({3 * (most / 4), 4 * (most / 4)}), EnvironmentMapType::Cross);
    // Doubled modulo 2^32 these heights would be the widths.
    EXPECT_EQ(typeOf({2, most / 2 + 2}), none);
    EXPECT_EQ(typeOf({most, most / 2}), none);
}

TEST(NewEnvironmentMap, HoldsTheImageForAsLongAsItLives)
{
    auto const image = imageOf<float>({4, 4});
    EnvironmentMap* const fresh = newEnvironmentMap(*image);
    EXPECT_EQ(fresh->referenceCount(), 0u);
    EXPECT_EQ(image->referenceCount(), 2u);
    {
        MapRef const map(fresh);
        EXPECT_EQ(image->referenceCount(), 2u);
    }
    EXPECT_EQ(image->referenceCount(), 1u);
}

TEST(NewEnvironmentMap, KeepsNoHoldOfAnImageThatItDoesNotRecognise)
{
    auto const image = imageOf<float>({5, 4});
    EXPECT_EQ(newEnvironmentMap(*image), nullptr);
    EXPECT_EQ(image->referenceCount(), 1u);
}

TEST(EnvironmentMap, HasNoImageUntilOneIsSet)
{
    MapRef const map(new LatLongMap(8, 4));
    EXPECT_EQ(map->image(), nullptr);

    auto const first = imageOf<float>({8, 4});
    auto const second = imageOf<float>({16, 8});
    map->setImage(first.get());
    map->setImage(second.get());
    EXPECT_EQ(map->image(), second.get());
    EXPECT_EQ(first->referenceCount(), 1u);
    EXPECT_EQ(second->referenceCount(), 2u);
    map->setImage(nullptr);
    EXPECT_EQ(map->image(), nullptr);
    EXPECT_EQ(second->referenceCount(), 1u);
}

TEST(EnvironmentMap, NumbersItsShapes)
{
    EXPECT_EQ(static_cast<std::uint32_t>(MapRef(new SphereMap(1))->mapType()), 0u);
    EXPECT_EQ(static_cast<std::uint32_t>(MapRef(new LatLongMap(2, 1))->mapType()), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(MapRef(new CrossMap(1, false))->mapType()), 2u);
    static_assert(sizeof(EnvironmentMapType) == 4);
}

/// A shape that a caller derives: one direction for the whole image.
class FixedMap : public EnvironmentMap {
public:
    FixedMap() : EnvironmentMap(EnvironmentMapType::Sphere) {}

    bool isValidCoord(float, float) const override { return true; }
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir) const override
    {
        return EnvironmentMap::coordToDir(u, v, dir);
    }
    bool coordToDir(float u, float, koLinear::VectorFlt& dir, float&, bool wantWeight) const override
    {
        weightWanted = wantWeight;
        dir = {0, 0, 1};
        return u < 0.5f;
    }
    void dirToCoord(koLinear::VectorFlt const&, float& u, float& v) const override { u = v = 0.25f; }

    mutable bool weightWanted = true;
};

TEST(EnvironmentMap, AsksForADirectionWithoutItsWeightThroughTheSameOperation)
{
    FixedMap const map;
    koLinear::VectorFlt dir;
    EXPECT_TRUE(map.coordToDir(0.1f, 0.5f, dir));
    EXPECT_EQ(dir, koLinear::VectorFlt(0, 0, 1));
    EXPECT_FALSE(map.weightWanted);
    EXPECT_FALSE(map.coordToDir(0.9f, 0.5f, dir));
}

TEST(EnvironmentMap, GivesTheSameDirectionWithAndWithoutItsWeight)
{
    MapRef const maps[] = {new SphereMap(9), new LatLongMap(18, 9), new CrossMap(3, false),
                           new CrossMap(3, true)};
    for (MapRef const& map : maps)
        for (int i = 0; i <= 36; ++i)
            for (int k = 0; k <= 36; ++k) {
                float const u = static_cast<float>(i) / 36;
                float const v = static_cast<float>(k) / 36;
                koLinear::VectorFlt plain(7, 7, 7);
                koLinear::VectorFlt weighted(7, 7, 7);
                koLinear::VectorFlt unasked(7, 7, 7);
                float weight = -1;
                float unaskedWeight = -1;
                bool const valid = map->coordToDir(u, v, plain);
                ASSERT_EQ(map->coordToDir(u, v, weighted, weight, true), valid);
                ASSERT_EQ(map->coordToDir(u, v, unasked, unaskedWeight, false), valid);
                ASSERT_EQ(plain, weighted);
                ASSERT_EQ(plain, unasked);
                // Without a direction the weight is 0 also where it was not asked for, and dir is left.
                ASSERT_EQ(unaskedWeight, valid ? -1.0f : 0.0f);
                if (valid) {
                    // On the rim of the disc theta is the float pi, whose sine is just below 0.
                    ASSERT_GE(weight, -1e-7f);
                } else {
                    ASSERT_EQ(weight, 0.0f);
                    ASSERT_EQ(plain, koLinear::VectorFlt(7, 7, 7));
                }
            }
}

// Looking along -y with z up: where the other axes are in each shape.
TEST(EnvironmentMap, SeesMinusXToTheRightFromInsideAndPlusXOnTheBall)
{
    auto const right = [](EnvironmentMap const& map, koLinear::VectorFlt const& dir) {
        float u = 0;
        float v = 0;
        map.dirToCoord(dir, u, v);
        return u;
    };
    MapRef const sphere(new SphereMap(64));
    MapRef const latLong(new LatLongMap(64, 32));
    MapRef const cross(new CrossMap(16, false));
    koLinear::VectorFlt const minusX(-0.6f, -0.8f, 0);
    EXPECT_LT(right(*sphere, minusX), 0.5f);
    EXPECT_GT(right(*latLong, minusX), 0.5f);
    EXPECT_GT(right(*cross, minusX), 0.5f);

    for (MapRef const& map : {sphere, latLong, cross}) {
        float u = 0;
        float low = 0;
        float high = 0;
        map->dirToCoord({0, -0.8f, -0.6f}, u, low);
        map->dirToCoord({0, -0.8f, 0.6f}, u, high);
        EXPECT_LT(low, high) << "z is up";
    }
}

#ifdef __x86_64__
// A pointer to a virtual member holds one more than the offset of its slot, in bytes. Slots 0 and 1 are the
// two destructors.
template <class Member>
std::ptrdiff_t slotOf(Member member)
{
    std::ptrdiff_t word;
    std::memcpy(&word, &member, sizeof word);
    return (word - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(EnvironmentMap, KeepsTheOrderOfItsVirtualOperations)
{
    using Plain = bool (EnvironmentMap::*)(float, float, koLinear::VectorFlt&) const;
    using Weighted = bool (EnvironmentMap::*)(float, float, koLinear::VectorFlt&, float&, bool) const;
    EXPECT_EQ(slotOf(&EnvironmentMap::isValidCoord), 2);
    EXPECT_EQ(slotOf(static_cast<Plain>(&EnvironmentMap::coordToDir)), 3);
    EXPECT_EQ(slotOf(static_cast<Weighted>(&EnvironmentMap::coordToDir)), 4);
    EXPECT_EQ(slotOf(&EnvironmentMap::dirToCoord), 5);
}
#endif

}  // namespace

}  // namespace koImage
