#include "koImage/image/convert.h"

#include "koImage/testing/allocation_limit.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace koImage::testing {
namespace {

// ---- the definition, value by value, in real numbers

void convertByHand(float value, unsigned char& result)
{
    // The product is rounded to a float; from there on nothing is.
    double const product = value * 255.0f;
    bool const fits = product > -2147483649.0 && product < 2147483648.0;
    double const whole = fits ? std::trunc(product) : 0.0;
    result = static_cast<unsigned char>(whole - 256 * std::floor(whole / 256));
}

// A quotient of two bytes that is rounded to double first still rounds to the nearest float.
float fractionOf(unsigned char byte)
{
    return static_cast<float>(byte / 255.0);
}

void convertByHand(Byte4 p, Float3& result)
{
    result = {fractionOf(p.r), fractionOf(p.g), fractionOf(p.b)};
}

void convertByHand(Byte4 p, Float4& result)
{
    result = {fractionOf(p.r), fractionOf(p.g), fractionOf(p.b), fractionOf(p.a)};
}

void convertByHand(Float3 p, Float4& result)
{
    std::memset(static_cast<void*>(&result), 0, sizeof result);
    std::memcpy(static_cast<void*>(&result), &p, sizeof p);
}

template <class F, class T>
struct Conversion {
    using From = F;
    using To = T;

    static ImageRef<To> byHand(TypedImage<From> const& source)
    {
        auto result = imageOf<To>({source.width(), source.height()});
        auto const from = pixelsOf<From>(source);
        auto const to = pixelsOf<To>(*result);
        for (std::size_t i = 0; i < from.size(); ++i)
            convertByHand(from[i], to[i]);
        return result;
    }
};

template <class C>
class ImageConvert : public ::testing::Test {
};

using Conversions = ::testing::Types<Conversion<float, unsigned char>, Conversion<Byte4, Float3>,
                                     Conversion<Byte4, Float4>, Conversion<Float3, Float4>>;

// By the number of the source type and that of the result.
struct ByIds {
    template <class C>
    static std::string GetName(int)
    {
        return ById::GetName<typename C::From>(0) +
               std::to_string(static_cast<int>(pixelTypeIdOf<typename C::To>));
    }
};
TYPED_TEST_SUITE(ImageConvert, Conversions, ByIds);

#define KO_CONVERSION                                                                                        \
    using From [[maybe_unused]] = typename TypeParam::From;                                                  \
    using To [[maybe_unused]] = typename TypeParam::To

TYPED_TEST(ImageConvert, ConvertsEveryPixelAtEverySize)
{
    KO_CONVERSION;
    TypedImage<To> result;
    auto const expectConverted = [&](Size size) {
        for (std::uint32_t seed = 1; seed <= 3; ++seed) {
            auto const source = hostileImage<From>(size, seed);
            imageConvert(*source, result);
            EXPECT_TRUE(samePixels(*TypeParam::byHand(*source), result)) << size;
        }
    };
    for (Size const size : awkwardSizes)
        expectConverted(size);
    for (Size const size : hostileSizes)
        expectConverted(size);
}

// Bits that differ everywhere, written faster than a generator could.
template <class Pixel>
void fillQuickly(TypedImage<Pixel>& image)
{
    std::uint32_t word = 1;
    auto* const bytes = static_cast<unsigned char*>(image.data());
    std::size_t const size = pixelsOf<Pixel>(image).size_bytes();
    for (std::size_t i = 0; i + 4 <= size; i += 4) {
        word = word * 1664525u + 1013904223u;
        std::memcpy(bytes + i, &word, 4);
    }
}

TYPED_TEST(ImageConvert, ConvertsImagesTooLargeForTheCache)
{
    KO_CONVERSION;
    int const width = 1031;
    int const height = (17 << 20) / (width * static_cast<int>(sizeof(To)));
    auto const source = imageOf<From>({width, height});
    fillQuickly(*source);
    TypedImage<To> result;
    result.resize(width, height);
    fillQuickly(result);  // only memory that was written before is streamed to
    imageConvert(*source, result);
    EXPECT_TRUE(samePixels(*TypeParam::byHand(*source), result));
}

TYPED_TEST(ImageConvert, ReadsAndWritesAnyAlignmentOfTheChannels)
{
    KO_CONVERSION;
    using Channel = typename ChannelOf<From>::type;
    auto const aligned = hostileImage<From>({61, 7}, 1);
    auto const bytes = pixelsOf<From>(*aligned).size_bytes();
    for (std::size_t shift = 0; shift < 64; shift += sizeof(Channel)) {
        auto const memory = std::make_unique<unsigned char[]>(bytes + shift);
        std::memcpy(memory.get() + shift, aligned->data(), bytes);
        TypedImage<From> source;
        source.borrow(reinterpret_cast<From*>(memory.get() + shift), 61, 7);

        TypedImage<To> result;
        imageConvert(source, result);
        EXPECT_TRUE(samePixels(*TypeParam::byHand(*aligned), result)) << shift;
    }
}

TYPED_TEST(ImageConvert, GivesTheResultTheSizeOfTheSourceAndNotItsFlags)
{
    KO_CONVERSION;
    auto const source = randomImage<From>({3, 5}, 1);
    source->setWrap(true, true);
    auto const result = randomImage<To>({16, 16}, 2);
    result->setWrap(false, true);
    imageConvert(*source, *result);
    EXPECT_EQ(result->width(), 3);
    EXPECT_EQ(result->height(), 5);
    EXPECT_EQ(result->invWidth(), 1.0f / 3.0f);
    EXPECT_FALSE(result->wrapHorizontal());
    EXPECT_TRUE(result->wrapVertical());
}

TYPED_TEST(ImageConvert, KeepsTheArrayOfAResultWithAsManyPixels)
{
    KO_CONVERSION;
    auto const source = randomImage<From>({3, 5}, 1);
    auto const expected = TypeParam::byHand(*source);
    auto const result = randomImage<To>({5, 3}, 2);
    auto const* const array = result->pixels();
    AllocationLimit const none(0);
    imageConvert(*source, *result);
    EXPECT_EQ(result->pixels(), array);
    EXPECT_TRUE(samePixels(*expected, *result));
}

TYPED_TEST(ImageConvert, ReplacesBorrowedMemoryOfTheResult)
{
    KO_CONVERSION;
    auto const source = randomImage<From>({3, 5}, 1);
    auto const lender = randomImage<To>({3, 5}, 2);
    ImageRef<To> const before(lender->clone());
    TypedImage<To> result;
    result.borrow(lender->pixels(), 3, 5);
    imageConvert(*source, result);
    EXPECT_TRUE(result.ownsPixels());
    EXPECT_TRUE(samePixels(*TypeParam::byHand(*source), result));
    EXPECT_TRUE(samePixels(*before, *lender));
}

// An image that lost its pixels to a failed resize.
template <class Pixel>
ImageRef<Pixel> imageWithoutPixels(Size size)
{
    auto image = imageOf<Pixel>(size);
    AllocationLimit const none(0);
    EXPECT_THROW(image->resize(size.width + 1, size.height), std::bad_alloc);
    return image;
}

TYPED_TEST(ImageConvert, OnlyResizesForASourceWithoutPixels)
{
    KO_CONVERSION;
    auto const source = imageWithoutPixels<From>({3, 5});
    auto const result = randomImage<To>({5, 3}, 2);
    ImageRef<To> const before(result->clone());
    before->resize(3, 5);
    imageConvert(*source, *result);
    EXPECT_TRUE(samePixels(*before, *result));
}

TYPED_TEST(ImageConvert, TakesAResultThatResizeLeavesWithoutPixels)
{
    KO_CONVERSION;
    auto const source = randomImage<From>({3, 5}, 1);
    auto const result = imageWithoutPixels<To>({5, 3});
    imageConvert(*source, *result);
    EXPECT_EQ(result->pixels(), nullptr);
    EXPECT_EQ(result->width(), 3);
}

TYPED_TEST(ImageConvert, PassesAllocationFailureOn)
{
    KO_CONVERSION;
    auto const source = randomImage<From>({3, 5}, 1);
    ImageRef<From> const before(source->clone());
    auto const result = randomImage<To>({2, 2}, 2);
    std::size_t const arrays = livePixelArrays();
    AllocationLimit const none(0);
    EXPECT_THROW(imageConvert(*source, *result), std::bad_alloc);
    EXPECT_EQ(livePixelArrays(), arrays - 1);
    EXPECT_EQ(result->width(), 2);
    EXPECT_TRUE(samePixels(*before, *source));
}

// The source stands in the result's own array, `shift` bytes from its start: each pixel is read after the one
// before it was written.
template <class C>
void expectConvertedInOrder(std::size_t shift)
{
    using From = typename C::From;
    using To = typename C::To;
    constexpr int count = 203;
    auto const result = hostileImage<To>({count, 1}, 1);

    std::vector<unsigned char> expected(sizeof(To) * count);
    std::memcpy(expected.data(), result->data(), expected.size());
    for (std::size_t i = 0; i < count; ++i) {
        From from;
        To to;
        std::memcpy(static_cast<void*>(&from), expected.data() + shift + i * sizeof(From), sizeof from);
        convertByHand(from, to);
        std::memcpy(expected.data() + i * sizeof(To), &to, sizeof to);
    }

    TypedImage<From> source;
    source.borrow(reinterpret_cast<From*>(static_cast<unsigned char*>(result->data()) + shift), count, 1);
    imageConvert(source, *result);
    EXPECT_EQ(std::memcmp(result->data(), expected.data(), expected.size()), 0) << shift;
}

TYPED_TEST(ImageConvert, ReadsASourceInTheResultsArrayPixelByPixel)
{
    KO_CONVERSION;
    if constexpr (sizeof(From) < sizeof(To)) {
        std::size_t const last = 203 * (sizeof(To) - sizeof(From));
        for (std::size_t const shift :
             {std::size_t{0}, std::size_t{4}, std::size_t{64}, last / 8 * 4, last - 4, last})
            expectConvertedInOrder<TypeParam>(shift);
    } else {
        // A float needs four of the result's bytes: its array never fits into the result's.
        static_assert(std::is_same_v<To, unsigned char>);
    }
}

// ---- values

unsigned char byteOf(float value)
{
    auto const source = imageOf<float>({1, 1});
    *source->pixels() = value;
    TypedImage<unsigned char> result;
    imageConvert(*source, result);
    return *result.pixels();
}

TEST(ImageConvertFloat, TruncatesAndKeepsTheLowByte)
{
    EXPECT_EQ(byteOf(1.0f), 255);
    EXPECT_EQ(byteOf(0.5f), 127);
    EXPECT_EQ(byteOf(0.999f), 254);
    EXPECT_EQ(byteOf(1.5f), 126);
    EXPECT_EQ(byteOf(-0.5f), 129);
    EXPECT_EQ(byteOf(0.0f), 0);
    EXPECT_EQ(byteOf(-0.0f), 0);
    EXPECT_EQ(byteOf(-0.003f), 0);
}

TEST(ImageConvertFloat, GivesZeroBeyondTheIntegersAndForNaN)
{
    float const infinity = std::numeric_limits<float>::infinity();
    for (float const value : {8421505.0f, -8421506.0f, 1e10f, -1e10f, 3e38f, -3e38f, infinity, -infinity,
                              std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(byteOf(value), 0) << value;

    // The last products inside: 2^31 - 128 and -(2^31 - 128).
    EXPECT_EQ(byteOf(8421504.0f), 128);
    EXPECT_EQ(byteOf(-8421504.0f), 128);
}

// Converts the patterns first, first + step, ... below end, a block at a time.
void expectBytesOfPatterns(std::uint64_t first, std::uint64_t end, std::uint64_t step)
{
    auto const source = imageOf<float>({1 << 16, 1});
    TypedImage<unsigned char> result;
    while (first < end) {
        for (float& value : pixelsOf<float>(*source)) {
            value = std::bit_cast<float>(static_cast<std::uint32_t>(first));
            first += step;
        }
        imageConvert(*source, result);
        ASSERT_TRUE(samePixels(*Conversion<float, unsigned char>::byHand(*source), result)) << first;
    }
}

TEST(ImageConvertFloat, AgreesWithTheDefinitionAcrossAllPatterns)
{
    expectBytesOfPatterns(0, std::uint64_t{1} << 32, 1021);
}

TEST(ImageConvertFloat, AgreesWithTheDefinitionWhereTheLowByteVaries)
{
    // From 2^-9 to 2^24, both signs.
    expectBytesOfPatterns(0x3B000000, 0x4B800000, 127);
    expectBytesOfPatterns(0xBB000000, 0xCB800000, 127);
}

// Every byte in every channel, beside every other.
ImageRef<Byte4> allBytes()
{
    auto image = imageOf<Byte4>({256, 256});
    for (std::size_t i = 0; i < 65536; ++i) {
        auto const x = static_cast<unsigned char>(i);
        auto const y = static_cast<unsigned char>(i >> 8);
        image->pixels()[i] = {x, y, static_cast<unsigned char>(x + y), static_cast<unsigned char>(y - x)};
    }
    return image;
}

TEST(ImageConvertByte4, DividesEveryByteBy255)
{
    auto const bytes = allBytes();
    TypedImage<Float3> three;
    imageConvert(*bytes, three);
    EXPECT_TRUE(samePixels(*(Conversion<Byte4, Float3>::byHand(*bytes)), three));
    TypedImage<Float4> four;
    imageConvert(*bytes, four);
    EXPECT_TRUE(samePixels(*(Conversion<Byte4, Float4>::byHand(*bytes)), four));
}

TEST(ImageConvertByte4, DropsAlphaForThreeChannelsAndKeepsItForFour)
{
    auto const source = imageOf<Byte4>({1, 1});
    *source->pixels() = {255, 128, 0, 7};
    TypedImage<Float3> three;
    imageConvert(*source, three);
    EXPECT_EQ(*three.pixels(), (Float3{1.0f, 128.0f / 255.0f, 0.0f}));
    TypedImage<Float4> four;
    imageConvert(*source, four);
    EXPECT_EQ(*four.pixels(), (Float4{1.0f, 128.0f / 255.0f, 0.0f, 7.0f / 255.0f}));
}

TEST(ImageConvertByte4, GivesEveryByteBackThroughFloat)
{
    auto const bytes = allBytes();
    TypedImage<Float4> fractions;
    imageConvert(*bytes, fractions);

    // The four channels of each pixel as four grey ones.
    TypedImage<float> grey;
    grey.borrow(&fractions.pixels()->r, 1024, 256);
    TypedImage<unsigned char> result;
    imageConvert(grey, result);
    EXPECT_EQ(std::memcmp(result.pixels(), bytes->pixels(), 4 * 65536), 0);
}

TEST(ImageConvertFloat3, AddsAnAlphaOfZero)
{
    auto const source = imageOf<Float3>({1, 1});
    *source->pixels() = {0.2f, 0.4f, 0.6f};
    TypedImage<Float4> result;
    imageConvert(*source, result);
    EXPECT_EQ(*result.pixels(), (Float4{0.2f, 0.4f, 0.6f, 0.0f}));
    EXPECT_FALSE(std::signbit(result.pixels()->a));
}

// ---- convertToType

constexpr int otherIds[] = {9, 10, 100, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};

bool isConverted(PixelTypeId from, PixelTypeId to)
{
    return (from == PixelTypeId::Byte4 && to == PixelTypeId::Float3) ||
           (from == PixelTypeId::Float && to == PixelTypeId::Byte);
}

template <class Pixel>
class ConvertToType : public ::testing::Test {
};
TYPED_TEST_SUITE(ConvertToType, TestTypes<AllPixels>, ById);

TYPED_TEST(ConvertToType, KeepsTheImageUnlessThePairIsInTheTable)
{
    constexpr PixelTypeId from = pixelTypeIdOf<TypeParam>;
    auto const image = hostileImage<TypeParam>({3, 2}, 1);
    image->setWrap(true, true);
    ImageRef<TypeParam> const before(image->clone());
    auto const expectKept = [&](PixelTypeId to) {
        SCOPED_TRACE(static_cast<int>(to));
        ko::Reference<Image> handle = image;
        EXPECT_EQ(convertToType(handle, to), from == to);
        EXPECT_EQ(handle, image);
    };
    for (int id = 0; id < 9; ++id)
        if (!isConverted(from, PixelTypeId{id}))
            expectKept(PixelTypeId{id});
    for (int const id : otherIds)
        expectKept(PixelTypeId{id});
    EXPECT_TRUE(samePixels(*before, *image));
    EXPECT_TRUE(image->wrapHorizontal());
    EXPECT_EQ(image->referenceCount(), 1u);
}

TYPED_TEST(ConvertToType, ReturnsFalseForAnImageOfNoPixelsWhateverTheType)
{
    for (Size const size : {Size{0, 5}, Size{5, 0}, Size{0, 0}, Size{65536, 65536}}) {
        auto const image = imageOf<TypeParam>(size);
        ko::Reference<Image> handle = image;
        for (int id = 0; id < 10; ++id)
            EXPECT_FALSE(convertToType(handle, PixelTypeId{id})) << size << " to " << id;
        EXPECT_EQ(handle, image);
    }
}

template <class C>
class ConvertToTypeOfTheTable : public ::testing::Test {
};
using Table = ::testing::Types<Conversion<Byte4, Float3>, Conversion<float, unsigned char>>;
TYPED_TEST_SUITE(ConvertToTypeOfTheTable, Table, ByIds);

TYPED_TEST(ConvertToTypeOfTheTable, PutsAConvertedCopyInThePlaceOfTheImage)
{
    KO_CONVERSION;
    for (Size const size : {Size{3, 5}, Size{61, 7}, Size{-2, -3}, Size{65537, 65536}}) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = hostileImage<From>(size, 1);
        image->setWrap(true, true);
        ko::Reference<Image> handle = image;
        ASSERT_TRUE(convertToType(handle, pixelTypeIdOf<To>));

        EXPECT_TRUE(samePixels(*TypeParam::byHand(*image), *handle));
        EXPECT_NE(dynamic_cast<TypedImage<To>*>(handle.get()), nullptr);
        EXPECT_FALSE(handle->wrapHorizontal());
        EXPECT_FALSE(handle->wrapVertical());
        EXPECT_EQ(handle->referenceCount(), 1u);
        EXPECT_EQ(image->referenceCount(), 1u);
    }
}

TYPED_TEST(ConvertToTypeOfTheTable, ReleasesTheOldImageWithItsLastReference)
{
    KO_CONVERSION;
    std::size_t const arrays = livePixelArrays();
    ko::Reference<Image> image = randomImage<From>({3, 5}, 1);
    EXPECT_TRUE(convertToType(image, pixelTypeIdOf<To>));
    EXPECT_EQ(livePixelArrays(), arrays + 1);
}

TYPED_TEST(ConvertToTypeOfTheTable, TakesImagesWithoutPixels)
{
    KO_CONVERSION;
    ko::Reference<Image> lost = imageWithoutPixels<From>({3, 5});
    EXPECT_TRUE(convertToType(lost, pixelTypeIdOf<To>));
    EXPECT_EQ(lost->pixelType(), pixelTypeIdOf<To>);
    EXPECT_EQ(lost->width(), 3);

    // A count below zero is not a count of zero.
    ko::Reference<Image> negative = imageOf<From>({-1, 4});
    EXPECT_TRUE(convertToType(negative, pixelTypeIdOf<To>));
    EXPECT_EQ(negative->width(), -1);
    EXPECT_EQ(negative->data(), nullptr);
}

TYPED_TEST(ConvertToTypeOfTheTable, LeavesEverythingAsItWasWhenAllocationFails)
{
    KO_CONVERSION;
    auto const image = hostileImage<From>({3, 5}, 1);
    ImageRef<From> const before(image->clone());
    ko::Reference<Image> handle = image;
    std::size_t const arrays = livePixelArrays();
    {
        AllocationLimit const none(0);
        EXPECT_THROW(static_cast<void>(convertToType(handle, pixelTypeIdOf<To>)), std::bad_alloc);
    }
    EXPECT_EQ(handle, image);
    EXPECT_EQ(image->referenceCount(), 2u);
    EXPECT_EQ(livePixelArrays(), arrays);
    EXPECT_TRUE(samePixels(*before, *image));
}

TEST(ConvertToType, ReturnsFalseForAnEmptyReference)
{
    ko::Reference<Image> nothing;
    for (int id = 0; id < 10; ++id)
        EXPECT_FALSE(convertToType(nothing, PixelTypeId{id})) << id;
    EXPECT_EQ(nothing, nullptr);
}

}  // namespace
}  // namespace koImage::testing
