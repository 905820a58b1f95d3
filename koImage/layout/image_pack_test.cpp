#include "koImage/layout/image_pack.h"

#include "koImage/image/fill.h"
#include "koImage/testing/test_images.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <vector>

namespace koImage::testing {

namespace {

using koUtil::IntRange2d;

/// Every pixel type, the ones that the factory makes and the one that it does not.
using PackPixels = PixelList<unsigned char, Byte4, unsigned int, Int4, Half4, float, Float3, Float4, Double3,
                             HarmonicsPixel>;

template <class Pixel>
std::vector<ImageRef<Pixel>> randomImages(std::vector<Size> const& sizes)
{
    std::vector<ImageRef<Pixel>> images;
    for (Size const size : sizes)
        images.push_back(randomImage<Pixel>(size, static_cast<std::uint32_t>(images.size() + 1)));
    return images;
}

template <class Pixel>
ko::vector<Image*> pointersTo(std::vector<ImageRef<Pixel>> const& images)
{
    ko::vector<Image*> pointers;
    for (auto const& image : images)
        pointers.push_back(image.get());
    return pointers;
}

template <class Pixel>
Pixel pixelAt(Image const& image, int x, int y)
{
    return static_cast<TypedImage<Pixel> const&>(image).pixels()[y * image.width() + x];
}

template <class Pixel>
bool sameBytes(Pixel const& a, Pixel const& b)
{
    return std::memcmp(&a, &b, sizeof(Pixel)) == 0;
}

int continued(int position, int size, bool wraps)
{
    if (wraps)
        return ((position % size) + size) % size;
    return std::clamp(position, 0, size - 1);
}

template <class Pixel>
class ImagePack : public ::testing::Test {
};
TYPED_TEST_SUITE(ImagePack, TestTypes<PackPixels>, ById);

std::vector<Size> const someSizes = {{10, 10}, {1, 1}, {40, 3}, {17, 31}, {3, 64}, {2, 2}};

}  // namespace

TYPED_TEST(ImagePack, PutsEveryImageAndItsBorderWhereItsTileIs)
{
    for (int const diameter : {1, 2, 3, 5, 12}) {
        for (int const wrap : {0, 1, 2, 3}) {
            SCOPED_TRACE(::testing::Message() << "diameter " << diameter << ", wrap " << wrap);
            auto const images = randomImages<TypeParam>(someSizes);
            for (auto const& image : images)
                image->setWrap((wrap & 1) != 0, (wrap & 2) != 0);
            Packing packing(static_cast<int>(images.size()), diameter);
            imagePack(packing, pointersTo(images), 0.5f, false);

            int const border = (diameter - 1) / 2;
            Image const& atlas = *packing.atlas();
            ASSERT_EQ(atlas.pixelType(), pixelTypeIdOf<TypeParam>);
            for (std::size_t i = 0; i < images.size(); ++i) {
                Image const& image = *images[i];
                IntRange2d const tile = packing.getPaddedTiles()[i];
                ASSERT_EQ(tile.width, image.width() + 2 * border);
                ASSERT_EQ(tile.height, image.height() + 2 * border);
                for (int y = 0; y < tile.height; ++y) {
                    for (int x = 0; x < tile.width; ++x) {
                        int const sx = continued(x - border, image.width(), image.wrapHorizontal());
                        int const sy = continued(y - border, image.height(), image.wrapVertical());
                        ASSERT_TRUE(sameBytes(pixelAt<TypeParam>(image, sx, sy),
                                              pixelAt<TypeParam>(atlas, tile.x + x, tile.y + y)))
                            << "tile " << i << " at " << x << ", " << y;
                    }
                }
            }
        }
    }
}

TYPED_TEST(ImagePack, IsWhiteWhereNoTileLies)
{
    auto const images = randomImages<TypeParam>({{10, 10}, {10, 10}});
    Packing packing(2, 5);
    imagePack(packing, pointersTo(images), 0.5f, false);
    ASSERT_EQ(packing.atlas()->width(), 64);
    ASSERT_EQ(packing.atlas()->height(), 64);

    // Of Double3 the fill writes a part only: see below. Harmonics it leaves at 0.
    if (pixelTypeIdOf<TypeParam> == PixelTypeId::Double3)
        return;
    auto const white = imageOf<TypeParam>({1, 1});
    fillWhite(*white);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x) {
            bool const inTile = std::any_of(
                packing.getPaddedTiles().begin(), packing.getPaddedTiles().end(),
                [=](IntRange2d const& tile) { return tile.contains(0, x) && tile.contains(1, y); });
            if (!inTile) {
                ASSERT_TRUE(sameBytes(white->pixels()[0], pixelAt<TypeParam>(*packing.atlas(), x, y)));
            }
        }
    }
}

// White of Double3 is made of floats, 16 bytes for each pixel: two thirds of the memory, in which every word
// is that of 1.0f.
TEST(ImagePackFill, OfDouble3IsWhiteAsTheFillWritesIt)
{
    auto const images = randomImages<Double3>({{10, 10}});
    Packing packing(1, 5);
    imagePack(packing, pointersTo(images), 0.5f, false);
    IntRange2d const& tile = packing.getPaddedTiles()[0];
    int checked = 0;
    for (int i = 0; i < 64 * 64 * 16 / 24; ++i) {
        if (tile.contains(0, i % 64) && tile.contains(1, i / 64))
            continue;
        auto const words =
            std::bit_cast<std::array<float, 6>>(pixelAt<Double3>(*packing.atlas(), i % 64, i / 64));
        ASSERT_THAT(words, ::testing::Each(1.0f)) << i;
        ++checked;
    }
    EXPECT_GT(checked, 64 * 64 * 16 / 24 - 15 * 15);
}

TEST(ImagePackTiles, AreDisjointAndInsideTheAtlas)
{
    std::vector<Size> sizes;
    Random random(1);
    for (int i = 0; i < 60; ++i)
        sizes.push_back({1 + static_cast<int>(random() % 50), 1 + static_cast<int>(random() % 50)});
    for (bool const powersOfTwo : {false, true}) {
        auto const images = randomImages<unsigned char>(sizes);
        Packing packing(60, 7);
        imagePack(packing, pointersTo(images), 0.5f, powersOfTwo);

        Image const& atlas = *packing.atlas();
        std::vector<int> covers(static_cast<std::size_t>(atlas.pixelCount()));
        for (IntRange2d const& tile : packing.getPaddedTiles())
            for (int y = tile.y; y < tile.y + tile.height; ++y)
                for (int x = tile.x; x < tile.x + tile.width; ++x)
                    ++covers.at(static_cast<std::size_t>(y * atlas.width() + x));
        EXPECT_LE(*std::max_element(covers.begin(), covers.end()), 1);
        if (powersOfTwo) {
            EXPECT_TRUE(std::has_single_bit(static_cast<unsigned>(atlas.width())));
            EXPECT_TRUE(std::has_single_bit(static_cast<unsigned>(atlas.height())));
        }
    }
}

TEST(ImagePackBorders, ArePaddedByHalfTheFilter)
{
    Packing packing(2, 5);
    auto const images = randomImages<float>({{10, 10}, {10, 10}});
    imagePack(packing, pointersTo(images), 0.5f, false);
    EXPECT_EQ(packing.border(), 2);
    for (IntRange2d const& tile : packing.getPaddedTiles()) {
        EXPECT_EQ(tile.width, 14);
        EXPECT_EQ(tile.height, 14);
    }

    EXPECT_EQ(Packing(0, 1).border(), 0);
    EXPECT_EQ(Packing(0, 2).border(), 0);
    EXPECT_EQ(Packing(0, 3).border(), 1);
    EXPECT_EQ(Packing(0, 0).border(), 0);
    EXPECT_EQ(Packing(0, -2).border(), -1);
    EXPECT_EQ(Packing(0, std::numeric_limits<int>::min()).border(), -1073741824);
}

TEST(ImagePackTransforms, AreTheIdentityBefore)
{
    Packing const packing(3, 9);
    ASSERT_EQ(packing.transforms().size(), 3u);
    for (TileTransform const& transform : packing.transforms())
        EXPECT_EQ(transform, (TileTransform{1.0f, 1.0f, 0.0f, 0.0f, 1}));
    EXPECT_EQ(packing.atlas(), nullptr);
    EXPECT_EQ(packing.tileCount(), 3);
    EXPECT_EQ(packing.filterDiameter(), 9);
}

TEST(ImagePackTransforms, MapTheUnitSquareToTheEdgesOfTheInterior)
{
    auto const images = randomImages<unsigned char>({{16, 8}, {32, 24}});
    Packing packing(2, 5);
    imagePack(packing, pointersTo(images), 0.5f, false);
    ASSERT_EQ(packing.atlas()->width(), 64);
    for (std::size_t i = 0; i < 2; ++i) {
        IntRange2d const tile = packing.getPaddedTiles()[i];
        TileTransform const expected = {
            static_cast<float>(images[i]->width()) / 64, static_cast<float>(images[i]->height()) / 64,
            static_cast<float>(tile.x + 2) / 64, static_cast<float>(tile.y + 2) / 64, 0};
        EXPECT_EQ(packing.transforms()[i], expected);
    }
}

TEST(ImagePackTransforms, MapTheUnitSquareToTheCentresOfTheOutermostPixels)
{
    auto const images = randomImages<unsigned char>({{16, 8}});
    Packing packing(1, 5);
    imagePack(packing, pointersTo(images), 0.0f, false);
    TileTransform const& transform = packing.transforms()[0];
    EXPECT_FLOAT_EQ(transform.offsetX, 2.5f / 64);
    EXPECT_FLOAT_EQ(transform.offsetY, 2.5f / 64);
    EXPECT_FLOAT_EQ(transform.offsetX + transform.scaleX, 17.5f / 64);
    EXPECT_FLOAT_EQ(transform.offsetY + transform.scaleY, 9.5f / 64);
    EXPECT_EQ(transform.isIdentity, 0);
}

TEST(ImagePackTransforms, FollowTheOrderOfTheirOperations)
{
    auto const images = randomImages<unsigned char>({{13, 71}});
    Packing packing(1, 3);
    imagePack(packing, pointersTo(images), 0.3f, false);
    ASSERT_EQ(packing.atlas()->width(), 64);
    ASSERT_EQ(packing.atlas()->height(), 73);

    float const a = 1.0f / 64.0f;
    float const b = 1.0f / 73.0f;
    float const d = 0.5f - 0.3f;
    float scaleX = a * 13.0f;
    float scaleY = b * 71.0f;
    float offsetX = 1.0f * a;
    float offsetY = 1.0f * b;
    offsetX = offsetX + (((1.0f / 13.0f) * d) * scaleX);
    offsetY = offsetY + (((1.0f / 71.0f) * d) * scaleY);
    scaleX = (scaleX * (13.0f - 2.0f * d)) * (1.0f / 13.0f);
    scaleY = (scaleY * (71.0f - 2.0f * d)) * (1.0f / 71.0f);
    EXPECT_EQ(packing.transforms()[0], (TileTransform{scaleX, scaleY, offsetX, offsetY, 0}));
}

TEST(ImagePackImages, OfSeveralTypesLeaveAnEmptyAtlasAndNothingElse)
{
    auto const bytes = randomImage<unsigned char>({10, 10}, 1);
    auto const floats = randomImage<float>({10, 10}, 2);
    Packing packing(2, 5);
    imagePack(packing, {bytes.get(), floats.get()}, 0.5f, false);
    ASSERT_NE(packing.atlas(), nullptr);
    EXPECT_EQ(packing.atlas()->pixelType(), PixelTypeId::Byte);
    EXPECT_EQ(packing.atlas()->width(), 0);
    EXPECT_EQ(packing.transforms()[0].isIdentity, 1);
    EXPECT_EQ(packing.getPaddedTiles()[0], (IntRange2d{}));
}

TEST(ImagePackImages, MayBeNone)
{
    Packing packing(2, 5);
    imagePack(packing, {}, 0.5f, false);
    EXPECT_EQ(packing.atlas(), nullptr);
    imagePack(packing, {nullptr, nullptr}, 0.5f, false);
    EXPECT_EQ(packing.atlas(), nullptr);
    EXPECT_EQ(packing.transforms()[1].isIdentity, 1);
}

TEST(ImagePackImages, MayBeNullEmptyOrMoreThanTheTiles)
{
    auto const empty = imageOf<Byte4>({0, 5});
    auto const image = randomImage<Byte4>({20, 10}, 1);
    TypedImage<Byte4> promised;
    promised.borrow(nullptr, 6, 6);
    Packing packing(4, 3);
    imagePack(packing, {nullptr, empty.get(), image.get(), &promised, image.get()}, 0.5f, false);

    IntRange2d const tile = packing.getPaddedTiles()[2];
    EXPECT_EQ(tile.width, 22);
    EXPECT_EQ(pixelAt<Byte4>(*packing.atlas(), tile.x + 1, tile.y + 1), pixelAt<Byte4>(*image, 0, 0));
    EXPECT_EQ(packing.getPaddedTiles()[0], (IntRange2d{}));
    IntRange2d const hollow = packing.getPaddedTiles()[1];
    EXPECT_EQ(hollow.width, 2);
    EXPECT_EQ(hollow.height, 7);
    for (int y = hollow.y; y < hollow.y + hollow.height; ++y)
        for (int x = hollow.x; x < hollow.x + hollow.width; ++x)
            EXPECT_EQ(pixelAt<Byte4>(*packing.atlas(), x, y), (Byte4{255, 255, 255, 255}));
    for (TileTransform const& transform : packing.transforms())
        EXPECT_EQ(transform.isIdentity, 0);
}

TEST(ImagePackImages, MayHoldTheAtlasOfBefore)
{
    auto const image = randomImage<Byte4>({70, 10}, 1);
    Packing packing(1, 1);
    imagePack(packing, {image.get()}, 0.5f, false);
    Image* const atlas = packing.atlas();
    ko::Reference<Image> const copy(atlas->clone());
    imagePack(packing, {atlas}, 0.5f, false);
    EXPECT_TRUE(samePixels(*copy, *packing.atlas()));
}

TEST(ImagePackImages, AreLeftOutWhereTheBorderIsNegative)
{
    auto const image = randomImage<unsigned char>({20, 10}, 1);
    fillBlack(*image);
    for (int const diameter : {-2, -7, -100, std::numeric_limits<int>::min()}) {
        Packing packing(1, diameter);
        imagePack(packing, {image.get()}, 0.5f, false);
        auto const pixels =
            pixelsOf<unsigned char>(static_cast<TypedImage<unsigned char>&>(*packing.atlas()));
        EXPECT_TRUE(std::all_of(pixels.begin(), pixels.end(), [](unsigned char c) { return c == 255; }));
        EXPECT_EQ(packing.transforms()[0].isIdentity, 0);
    }
}

TEST(ImagePackAgain, ReplacesTheAtlasAndTheTransforms)
{
    auto const images = randomImages<unsigned char>({{100, 100}, {10, 10}});
    Packing packing(2, 5);
    imagePack(packing, pointersTo(images), 0.5f, false);
    ko::Reference<Image> const before(packing.atlas());
    TileTransform const transform = packing.transforms()[0];
    imagePack(packing, {images[1].get(), images[1].get()}, 0.5f, false);
    EXPECT_NE(packing.atlas(), before.get());
    EXPECT_NE(packing.transforms()[0], transform);
    EXPECT_EQ(packing.getPaddedTiles()[0].width, 14);
}

TEST(SetTileInterior, KeepsPositionsAndIgnoresTilesThatAreNotThere)
{
    Packing packing(1, 5);
    packing.getPaddedTiles()[0] = {7, 8, 0, 0};
    packing.setTileInterior(0, {100, 200, 30, 40});
    EXPECT_EQ(packing.getPaddedTiles()[0], (IntRange2d{7, 8, 34, 44}));
    packing.setTileInterior(1, {0, 0, 1, 1});
    packing.setTileInterior(-1, {0, 0, 1, 1});
    EXPECT_EQ(packing.getPaddedTiles()[0], (IntRange2d{7, 8, 34, 44}));
    EXPECT_TRUE(Packing(-3, 5).getPaddedTiles().empty());
}

}  // namespace koImage::testing
