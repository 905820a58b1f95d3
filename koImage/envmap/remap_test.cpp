#include "koImage/envmap/remap.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/image/factory.h"
#include "koImage/testing/bilinear_reference.h"
#include "koImage/testing/guarded_pixels.h"

#include <gtest/gtest.h>

#include <cmath>

namespace koImage {

namespace {

using testing::hostileImage;
using testing::imageOf;
using testing::ImageRef;
using testing::randomImage;
using testing::samePixels;
using testing::Size;

using MapRef = ko::Reference<EnvironmentMap>;

enum class Shape { Sphere, LatLong, VerticalCross, HorizontalCross };
constexpr Shape shapes[] = {Shape::Sphere, Shape::LatLong, Shape::VerticalCross, Shape::HorizontalCross};

MapRef mapOf(Shape shape, Image& image)
{
    MapRef map;
    switch (shape) {
    case Shape::Sphere:
        map = new SphereMap(image.width(), image.height());
        break;
    case Shape::LatLong:
        map = new LatLongMap(image.width(), image.height());
        break;
    case Shape::VerticalCross:
        map = new CrossMap(image.width(), image.height(), false);
        break;
    case Shape::HorizontalCross:
        map = new CrossMap(image.width(), image.height(), true);
        break;
    }
    map->setImage(&image);
    return map;
}

/// Of about `side` squared pixels, in the proportions of the shape.
Size usualSize(Shape shape, int side)
{
    switch (shape) {
    case Shape::Sphere:
        return {side, side};
    case Shape::LatLong:
        return {2 * side, side};
    case Shape::VerticalCross:
        return {3 * side, 4 * side};
    case Shape::HorizontalCross:
        break;
    }
    return {4 * side, 3 * side};
}

/// One pixel after the other, as it is defined; returns how many had a direction.
template <class Pixel>
int remapByHand(EnvironmentMap const& source, TypedImage<Pixel> const& from,
                EnvironmentMap const& destination, TypedImage<Pixel>& to)
{
    int seen = 0;
    for (int y = 0; y < to.height(); ++y)
        for (int x = 0; x < to.width(); ++x) {
            float const u = (static_cast<float>(x) + 0.5f) * to.invWidth();
            float const v = (static_cast<float>(y) + 0.5f) * to.invHeight();
            Pixel pixel{};
            koLinear::VectorFlt dir;
            if (destination.coordToDir(u, v, dir)) {
                float sourceU = 0;
                float sourceV = 0;
                source.dirToCoord(dir, sourceU, sourceV);
                pixel = testing::referenceSample(from, sourceU, sourceV);
                ++seen;
            }
            to.pixels()[y * to.width() + x] = pixel;
        }
    return seen;
}

template <class Pixel>
void makeNansPlain(TypedImage<Pixel>& image)
{
    using Channel = typename testing::ChannelOf<Pixel>::type;
    testing::makeNansPlain(reinterpret_cast<Channel*>(image.pixels()),
                           image.arrayLength() * (sizeof(Pixel) / sizeof(Channel)));
}

/// Remaps into a new image of `size` and compares it with the definition. Returns how many pixels had a
/// direction.
template <class Pixel>
int expectDefinition(Shape fromShape, TypedImage<Pixel>& from, Shape toShape, Size size)
{
    Size const fromSize = {from.width(), from.height()};
    SCOPED_TRACE(::testing::Message() << "shape " << int(fromShape) << ", " << fromSize << ", to shape "
                                      << int(toShape) << ", " << size);
    auto const expected = randomImage<Pixel>(size, 98);
    auto const actual = randomImage<Pixel>(size, 99);
    MapRef const source = mapOf(fromShape, from);
    MapRef const destination = mapOf(toShape, *actual);

    int const seen = remapByHand(*source, from, *destination, *expected);
    remap(*source, *destination);
    makeNansPlain(*expected);
    makeNansPlain(*actual);
    EXPECT_TRUE(samePixels(*expected, *actual));
    return seen;
}

template <class Pixel>
class Remap : public ::testing::Test {
};
TYPED_TEST_SUITE(Remap, testing::TestTypes<RemapPixels>, testing::ById);

TYPED_TEST(Remap, SamplesTheSourceInTheDirectionOfEveryPixelBetweenAllShapes)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes)
            for (int const side : {1, 3, 8, 21, 60}) {
                auto const source = randomImage<TypeParam>(usualSize(from, 37), 1);
                source->setWrap(true, from != Shape::LatLong);
                EXPECT_GT(expectDefinition(from, *source, to, usualSize(to, side)), 0);
            }
}

TYPED_TEST(Remap, TakesImagesOfAnySize)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes)
            for (Size const size : testing::awkwardSizes) {
                for (Size const sourceSize : {Size{1, 1}, Size{2, 7}, Size{19, 3}}) {
                    auto const source = randomImage<TypeParam>(sourceSize, 2);
                    source->setWrap(size.width % 2 == 0, size.height % 2 == 0);
                    expectDefinition(from, *source, to, size);
                }
            }
}

TYPED_TEST(Remap, TakesRowsLongerThanAnyBlock)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes) {
            auto const source = randomImage<TypeParam>({50, 40}, 3);
            source->setWrap(true, true);
            expectDefinition(from, *source, to, {3001, 7});
        }
}

TYPED_TEST(Remap, KeepsInfinitiesNansAndTinyValues)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes) {
            auto const source = hostileImage<TypeParam>(usualSize(from, 9), 4);
            source->setWrap(true, false);
            expectDefinition(from, *source, to, usualSize(to, 25));
        }
}

TYPED_TEST(Remap, ReadsAndWritesNothingOutsideThePixels)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes)
            for (bool const atStart : {false, true}) {
                Size const fromSize = usualSize(from, 3);
                Size const toSize = usualSize(to, 5);
                auto const count = [](Size size) {
                    return static_cast<std::size_t>(size.width * size.height);
                };
                testing::GuardedPixels<TypeParam> fromPixels(count(fromSize), atStart);
                testing::GuardedPixels<TypeParam> toPixels(count(toSize), atStart);
                auto const source = imageOf<TypeParam>({0, 0});
                auto const result = imageOf<TypeParam>({0, 0});
                source->borrow(fromPixels.data(), fromSize.width, fromSize.height);
                result->borrow(toPixels.data(), toSize.width, toSize.height);
                testing::randomise(*source, 5);
                for (bool const wrap : {false, true}) {
                    source->setWrap(wrap, wrap);
                    remap(*mapOf(from, *source), *mapOf(to, *result));
                }
            }
}

TYPED_TEST(Remap, StaysInsideASourceThatItsSizesDoNotDescribe)
{
    for (Size const size : {Size{-2, -3}, Size{-1, -1}, Size{65537, 65536}, Size{-65535, 65537 * 2}})
        for (Shape const from : shapes) {
            int const count = wrappedProduct(size.width, size.height);
            testing::GuardedPixels<TypeParam> pixels(static_cast<std::size_t>(count));
            auto const source = imageOf<TypeParam>({0, 0});
            source->borrow(pixels.data(), size.width, size.height);
            testing::randomise(*source, 6);
            expectDefinition(from, *source, Shape::LatLong, {16, 8});
        }
}

TYPED_TEST(Remap, WritesNothingIntoAnImageWhoseRowsDoNotFitItsArray)
{
    auto const source = randomImage<TypeParam>({16, 8}, 7);
    for (Size const size : testing::hostileSizes)
        for (Shape const to : shapes) {
            auto const image = randomImage<TypeParam>(size, 8);
            remap(*mapOf(Shape::LatLong, *source), *mapOf(to, *image));
            EXPECT_TRUE(samePixels(*randomImage<TypeParam>(size, 8), *image)) << size;
        }
}

TYPED_TEST(Remap, MayFillTheImageThatItReads)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes) {
            auto const image = randomImage<TypeParam>({24, 32}, 9);
            auto const expected = randomImage<TypeParam>({24, 32}, 9);
            remapByHand(*mapOf(from, *expected), *expected, *mapOf(to, *expected), *expected);
            remap(*mapOf(from, *image), *mapOf(to, *image));
            EXPECT_TRUE(samePixels(*expected, *image)) << int(from) << " to " << int(to);
        }
}

TYPED_TEST(Remap, MayFillPixelsThatItsSourceBorrowsToo)
{
    auto const whole = randomImage<TypeParam>({16, 18}, 10);
    auto const byHand = randomImage<TypeParam>({16, 18}, 10);
    auto const upper = imageOf<TypeParam>({0, 0});
    auto const expectedUpper = imageOf<TypeParam>({0, 0});
    auto const lower = imageOf<TypeParam>({0, 0});
    auto const expectedLower = imageOf<TypeParam>({0, 0});
    upper->borrow(whole->pixels() + 16, 16, 8);
    lower->borrow(whole->pixels(), 16, 8);
    expectedUpper->borrow(byHand->pixels() + 16, 16, 8);
    expectedLower->borrow(byHand->pixels(), 16, 8);

    MapRef const expectedSource = mapOf(Shape::LatLong, *expectedLower);
    MapRef const expectedResult = mapOf(Shape::VerticalCross, *expectedUpper);
    remapByHand(*expectedSource, *expectedLower, *expectedResult, *expectedUpper);
    remap(*mapOf(Shape::LatLong, *lower), *mapOf(Shape::VerticalCross, *upper));
    EXPECT_TRUE(samePixels(*byHand, *whole));
}

// A blend of equal values strays by its roundings: 2.5 u for each of two blends of floats, u = 2^-24; 2.75 u
// and 2 u of halves, u = 2^-11.
TYPED_TEST(Remap, OfAConstantIsThatConstantWhereThereAreDirectionsAndZeroElsewhere)
{
    using Channel = typename testing::ChannelOf<TypeParam>::type;
    double const relative = std::is_same_v<TypeParam, Half4> ? 4.75 * 0x1p-11 : 5 * 0x1p-24;
    for (Shape const from : shapes)
        for (Shape const to : shapes) {
            auto const source = imageOf<TypeParam>(usualSize(from, 8));
            TypeParam const constant = randomImage<TypeParam>({1, 1}, 11)->pixels()[0];
            std::fill_n(source->pixels(), source->pixelCount(), constant);
            source->setWrap(true, true);
            auto const result = randomImage<TypeParam>(usualSize(to, 20), 12);
            MapRef const destination = mapOf(to, *result);
            remap(*mapOf(from, *source), *destination);

            int seen = 0;
            for (int i = 0; i < result->pixelCount(); ++i) {
                float const u = (static_cast<float>(i % result->width()) + 0.5f) * result->invWidth();
                float const v = (static_cast<float>(i / result->width()) + 0.5f) * result->invHeight();
                koLinear::VectorFlt dir;
                bool const valid = destination->coordToDir(u, v, dir);
                seen += valid ? 1 : 0;
                auto const expected = testing::channelsOf<Channel>(valid ? constant : TypeParam{});
                auto const actual = testing::channelsOf<Channel>(result->pixels()[i]);
                for (std::size_t c = 0; c < expected.size(); ++c)
                    ASSERT_NEAR(double(expected[c]), double(actual[c]), relative * double(expected[c]));
            }
            EXPECT_EQ(seen == result->pixelCount(), to == Shape::LatLong);
            EXPECT_GE(seen, result->pixelCount() / 2);
        }
}

// Some hundred thousand directions each: the arcs and sines of remap_v3.h differ from the library's in none.
TEST(RemapFloat, IsTheDefinitionAtEveryPixelOfLargeImages)
{
    for (Shape const from : shapes)
        for (Shape const to : shapes) {
            auto const source = randomImage<float>(usualSize(from, 301), 22);
            source->setWrap(true, from != Shape::LatLong);
            expectDefinition(from, *source, to, usualSize(to, 191));
        }
}

TEST(RemapFloat, LeavesTheSixEmptyCellsOfACrossAtZero)
{
    auto const panorama = randomImage<float>({64, 32}, 13);
    auto const cross = randomImage<float>({24, 32}, 14);
    MapRef const from(newEnvironmentMap(*panorama));
    MapRef const to(newEnvironmentMap(*cross));
    remap(*from, *to);

    int emptyCells = 0;
    for (int cell = 0; cell < 12; ++cell) {
        int const left = cell % 3 * 8;
        int const bottom = cell / 3 * 8;
        int zeros = 0;
        for (int y = bottom; y < bottom + 8; ++y)
            for (int x = left; x < left + 8; ++x)
                zeros += std::bit_cast<std::uint32_t>(cross->pixels()[y * 24 + x]) == 0 ? 1 : 0;
        EXPECT_TRUE(zeros == 0 || zeros == 64) << "cell " << cell;
        emptyCells += zeros == 64 ? 1 : 0;
    }
    EXPECT_EQ(emptyCells, 6);
}

TEST(RemapFloat, ChangesHandsBetweenTheBallAndTheViewFromInside)
{
    // The left half of a panorama is bright: seen from inside it is that of +x. On the ball +x is right.
    auto const panorama = imageOf<float>({64, 32});
    for (int i = 0; i < panorama->pixelCount(); ++i)
        panorama->pixels()[i] = i % 64 < 32 ? 1.0f : 0.0f;
    MapRef const from(newEnvironmentMap(*panorama));
    auto const ball = imageOf<float>({32, 32});
    MapRef const to(newEnvironmentMap(*ball));
    remap(*from, *to);
    EXPECT_EQ(ball->pixels()[16 * 32 + 24], 1.0f);
    EXPECT_EQ(ball->pixels()[16 * 32 + 7], 0.0f);

    auto const cross = imageOf<float>({24, 32});
    MapRef const toCross(newEnvironmentMap(*cross));
    remap(*from, *toCross);
    EXPECT_EQ(cross->pixels()[20 * 24 + 4], 1.0f);
    EXPECT_EQ(cross->pixels()[20 * 24 + 20], 0.0f);
}

TEST(RemapOtherTypes, WriteNothing)
{
    for (int id = 0; id <= 8; ++id) {
        auto const type = static_cast<PixelTypeId>(id);
        if (RemapPixels::contains(type))
            continue;
        dispatchPixel(type, StoredPixels{}, [](auto tag) {
            using Pixel = typename decltype(tag)::type;
            auto const source = randomImage<Pixel>({16, 8}, 15);
            auto const result = randomImage<Pixel>({8, 8}, 16);
            remap(*mapOf(Shape::LatLong, *source), *mapOf(Shape::Sphere, *result));
            EXPECT_TRUE(samePixels(*randomImage<Pixel>({8, 8}, 16), *result));
        });
    }
    auto const source = imageOf<HarmonicsPixel>({2, 1});
    auto const result = imageOf<HarmonicsPixel>({1, 1});
    remap(*mapOf(Shape::LatLong, *source), *mapOf(Shape::Sphere, *result));
}

TEST(RemapMissing, ImagesPixelsOrEqualTypesWriteNothing)
{
    auto const source = randomImage<Float3>({16, 8}, 17);
    auto const result = randomImage<Float3>({8, 8}, 18);
    auto const before = randomImage<Float3>({8, 8}, 18);
    MapRef const from = mapOf(Shape::LatLong, *source);
    MapRef const to = mapOf(Shape::Sphere, *result);
    MapRef const bare(new LatLongMap(16, 8));
    remap(*bare, *to);
    remap(*from, *bare);
    remap(*bare, *bare);

    auto const empty = imageOf<Float3>({0, 0});
    auto const null = imageOf<Float3>({0, 0});
    null->borrow(nullptr, 16, 8);
    auto const others = randomImage<Float4>({16, 8}, 19);
    for (Image* const image : std::initializer_list<Image*>{empty.get(), null.get(), others.get()}) {
        MapRef const map = mapOf(Shape::LatLong, *image);
        remap(*map, *to);
        remap(*from, *map);
    }
    EXPECT_TRUE(samePixels(*before, *result));
    EXPECT_TRUE(samePixels(*randomImage<Float4>({16, 8}, 19), *others));
}

/// Shapes that a caller derives. The first looks up everywhere on the left half of the image; the second
/// sees every direction at one place. Only the operation with a weight is asked.
class UpwardMap : public EnvironmentMap {
public:
    explicit UpwardMap(EnvironmentMapType type) : EnvironmentMap(type) {}
    bool isValidCoord(float, float) const override { return false; }
    bool coordToDir(float, float, koLinear::VectorFlt&) const override { return false; }
    bool coordToDir(float u, float, koLinear::VectorFlt& dir, float& weight, bool wantWeight) const override
    {
        EXPECT_TRUE(wantWeight);
        weight = 1;
        dir = {0, 0, 1};
        return u < 0.5f;
    }
    void dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const override
    {
        EXPECT_EQ(dir, koLinear::VectorFlt(0, 0, 1));
        u = 0.25f;
        v = 0.75f;
    }
};

TEST(RemapDerived, ShapesAreAskedThroughTheirOperations)
{
    for (auto const type :
         {EnvironmentMapType::Sphere, EnvironmentMapType::LatLong, EnvironmentMapType::Cross}) {
        auto const source = randomImage<float>({8, 8}, 20);
        auto const result = randomImage<float>({8, 4}, 21);
        MapRef const from(new UpwardMap(type));
        MapRef const to(new UpwardMap(type));
        from->setImage(source.get());
        to->setImage(result.get());
        remap(*from, *to);
        float const sample = testing::referenceSample(*source, 0.25f, 0.75f);
        for (int i = 0; i < 32; ++i)
            EXPECT_EQ(result->pixels()[i], i % 8 < 4 ? sample : 0.0f);
    }
}

}  // namespace

}  // namespace koImage
