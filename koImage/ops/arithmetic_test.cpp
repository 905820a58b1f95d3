#include "koImage/ops/arithmetic.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

// The operations, each with the value that one channel should become. Halves are computed as floats and
// converted back.

struct Add {
    using Pixels = AddPixels;
    static constexpr char const* name = "imageAdd";
    static void run(Image const& a, Image const& b, Image& result) { imageAdd(a, b, result); }
    static float channel(float a, float b) { return a + b; }
};

struct Sub {
    using Pixels = AddPixels;
    static constexpr char const* name = "imageSub";
    static void run(Image const& a, Image const& b, Image& result) { imageSub(a, b, result); }
    static float channel(float a, float b) { return a - b; }
};

struct Mult {
    using Pixels = AddPixels;
    static constexpr char const* name = "imageMult";
    static void run(Image const& a, Image const& b, Image& result) { imageMult(a, b, result); }
    static float channel(float a, float b) { return a * b; }
};

struct Div {
    using Pixels = DivPixels;
    static constexpr char const* name = "imageDiv";
    static void run(Image const& a, Image const& b, Image& result) { imageDiv(a, b, result); }
    static float channel(float a, float b) { return a / b; }

    static unsigned char channel(unsigned char a, unsigned char b)
    {
        if (b == 0)
            return a;
        double const scaled = std::floor(float(a) / float(b) * 255.0f + 0.5f);
        return static_cast<unsigned char>(std::fmod(scaled, 256.0));
    }
};

/// Calls body(operation) for every operation.
template <class Body>
void forOperations(Body const& body)
{
    auto const call = [&](auto operation) {
        SCOPED_TRACE(operation.name);
        body(operation);
    };
    call(Add{});
    call(Sub{});
    call(Mult{});
    call(Div{});
}

/// Calls body(operation) for every operation that supports the pixel type.
template <class Pixel, class Body>
void forOperationsOn(Body const& body)
{
    forOperations([&](auto operation) {
        if constexpr (decltype(operation)::Pixels::contains(pixelTypeIdOf<Pixel>))
            body(operation);
    });
}

template <class Pixel>
using ChannelsOf =
    std::array<typename ChannelOf<Pixel>::type, sizeof(Pixel) / sizeof(typename ChannelOf<Pixel>::type)>;

/// One NaN for all of them: their sign and payload are not defined.
template <class Channel>
Channel canonicalChannel(Channel value)
{
    if constexpr (std::is_same_v<Channel, half>)
        return (value.bits() & 0x7FFF) > 0x7C00 ? half::fromBits(0x7E00) : value;
    else if constexpr (std::is_same_v<Channel, float>)
        return std::isnan(value) ? std::bit_cast<float>(0x7FC00000u) : value;
    else
        return value;
}

template <class Pixel>
std::vector<Pixel> canonical(std::vector<Pixel> pixels)
{
    for (Pixel& pixel : pixels) {
        auto channels = std::bit_cast<ChannelsOf<Pixel>>(pixel);
        for (auto& channel : channels)
            channel = canonicalChannel(channel);
        pixel = std::bit_cast<Pixel>(channels);
    }
    return pixels;
}

/// What `operation` should make of two runs of pixels, channel by channel.
template <class Operation, class Pixel>
std::vector<Pixel> byHand(Operation operation, std::vector<Pixel> const& a, std::vector<Pixel> const& b)
{
    std::vector<Pixel> result(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        auto p = std::bit_cast<ChannelsOf<Pixel>>(a[i]);
        auto const q = std::bit_cast<ChannelsOf<Pixel>>(b[i]);
        for (std::size_t c = 0; c < p.size(); ++c)
            p[c] = operation.channel(p[c], q[c]);
        result[i] = std::bit_cast<Pixel>(p);
    }
    return canonical(std::move(result));
}

template <class Pixel>
std::vector<Pixel> pixelsIn(TypedImage<Pixel> const& image)
{
    auto const pixels = pixelsOf<Pixel>(image);
    return {pixels.begin(), pixels.end()};
}

/// Whether the image holds the expected pixels, to the bit but for NaNs.
template <class Pixel>
::testing::AssertionResult holds(TypedImage<Pixel> const& image, std::vector<Pixel> const& expected)
{
    auto const actual = canonical(pixelsIn(image));
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " pixels, not " << expected.size();
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (std::memcmp(&actual[i], &expected[i], sizeof(Pixel)) != 0)
            return ::testing::AssertionFailure()
                   << "pixel " << i << ": expected " << bytesText(&expected[i], sizeof(Pixel)) << "got "
                   << bytesText(&actual[i], sizeof(Pixel));
    return ::testing::AssertionSuccess();
}

template <class Pixel>
ImageRef<Pixel> imageWith(std::vector<Pixel> const& pixels)
{
    auto image = imageOf<Pixel>({static_cast<int>(pixels.size()), 1});
    std::copy(pixels.begin(), pixels.end(), image->pixels());
    return image;
}

Half4 halfPixel(std::uint16_t r, std::uint16_t g, std::uint16_t b, std::uint16_t a)
{
    return {half::fromBits(r), half::fromBits(g), half::fromBits(b), half::fromBits(a)};
}

/// All pairs of bytes.
std::pair<ImageRef<unsigned char>, ImageRef<unsigned char>> allBytePairs()
{
    auto a = imageOf<unsigned char>({256, 256});
    auto b = imageOf<unsigned char>({256, 256});
    for (int i = 0; i < 65536; ++i) {
        a->pixels()[i] = static_cast<unsigned char>(i >> 8);
        b->pixels()[i] = static_cast<unsigned char>(i & 255);
    }
    return {a, b};
}

}  // namespace

// Every operation on every type that it supports

template <class Pixel>
class ImageArithmetic : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageArithmetic, TestTypes<DivPixels>, ById);

TYPED_TEST(ImageArithmetic, ComputesEveryChannelAtEverySize)
{
    forOperationsOn<TypeParam>([](auto operation) {
        for (Size const size : awkwardSizes) {
            SCOPED_TRACE(::testing::Message() << size);
            auto const a = randomImage<TypeParam>(size, 1);
            auto const b = randomImage<TypeParam>(size, 2);
            auto const result = imageOf<TypeParam>({2, 2});
            operation.run(*a, *b, *result);
            EXPECT_EQ(result->width(), size.width);
            EXPECT_EQ(result->height(), size.height);
            EXPECT_TRUE(holds(*result, byHand(operation, pixelsIn(*a), pixelsIn(*b))));
        }
    });
}

TYPED_TEST(ImageArithmetic, IsExactOnHostileValues)
{
    forOperationsOn<TypeParam>([](auto operation) {
        auto const a = hostileImage<TypeParam>({211, 97}, 3);
        auto const b = hostileImage<TypeParam>({211, 97}, 4);
        auto const result = imageOf<TypeParam>({0, 0});
        operation.run(*a, *b, *result);
        EXPECT_TRUE(holds(*result, byHand(operation, pixelsIn(*a), pixelsIn(*b))));
    });
}

TYPED_TEST(ImageArithmetic, MayWriteOverItsOperands)
{
    forOperationsOn<TypeParam>([](auto operation) {
        for (Size const size : awkwardSizes) {
            SCOPED_TRACE(::testing::Message() << size);
            auto const a = hostileImage<TypeParam>(size, 5);
            auto const b = hostileImage<TypeParam>(size, 6);
            auto const left = pixelsIn(*a);
            auto const right = pixelsIn(*b);

            operation.run(*a, *b, *a);
            EXPECT_TRUE(holds(*a, byHand(operation, left, right)));

            std::copy(left.begin(), left.end(), a->pixels());
            operation.run(*a, *b, *b);
            EXPECT_TRUE(holds(*b, byHand(operation, left, right)));

            operation.run(*a, *a, *a);
            EXPECT_TRUE(holds(*a, byHand(operation, left, left)));
        }
    });
}

TYPED_TEST(ImageArithmetic, IsTheSameForResultsWrittenPastTheCache)
{
    // Above 16 MiB, by a count that ends in the middle of every block.
    Size const size{1027, static_cast<int>((std::size_t{17} << 20) / sizeof(TypeParam) / 1027)};
    auto const a = randomImage<TypeParam>(size, 7);
    auto const b = randomImage<TypeParam>(size, 8);
    forOperationsOn<TypeParam>([&](auto operation) {
        auto const result =
            randomImage<TypeParam>(size, 9);  // as large, and written: else nothing is streamed
        operation.run(*a, *b, *result);
        auto const expected = byHand(operation, pixelsIn(*a), pixelsIn(*b));
        EXPECT_TRUE(holds(*result, expected));

        ko::Reference<TypedImage<TypeParam>> const inPlace(a->clone());
        operation.run(*inPlace, *b, *inPlace);
        EXPECT_TRUE(holds(*inPlace, expected));
    });
}

TYPED_TEST(ImageArithmetic, ReadsBorrowedPixelsWhereverTheyStand)
{
    // Off every vector boundary by one channel, and the operands overlap.
    using Channel = typename ChannelOf<TypeParam>::type;
    constexpr int count = 77;
    std::vector<TypeParam> memory(count + 2);
    Random random(9);
    for (TypeParam& pixel : memory)
        for (std::size_t c = 0; c < sizeof(TypeParam) / sizeof(Channel); ++c)
            reinterpret_cast<Channel*>(&pixel)[c] = randomChannel<Channel>(random);
    ImageRef<TypeParam> const a(new TypedImage<TypeParam>);
    ImageRef<TypeParam> const b(new TypedImage<TypeParam>);
    a->borrow(reinterpret_cast<TypeParam*>(reinterpret_cast<Channel*>(memory.data()) + 1), count, 1);
    b->borrow(memory.data() + 1, count, 1);

    forOperationsOn<TypeParam>([&](auto operation) {
        auto const result = imageOf<TypeParam>({0, 0});
        operation.run(*a, *b, *result);
        EXPECT_TRUE(holds(*result, byHand(operation, pixelsIn(*a), pixelsIn(*b))));
    });
}

TYPED_TEST(ImageArithmetic, GoesByThePixelCountOfNegativeAndWrappedSizes)
{
    forOperationsOn<TypeParam>([](auto operation) {
        for (Size const size : hostileSizes) {
            SCOPED_TRACE(::testing::Message() << size);
            auto const a = randomImage<TypeParam>(size, 10);
            auto const b = randomImage<TypeParam>(size, 11);
            auto const result = imageOf<TypeParam>({3, 3});
            operation.run(*a, *b, *result);
            EXPECT_EQ(result->width(), size.width);
            EXPECT_EQ(result->height(), size.height);
            EXPECT_TRUE(holds(*result, byHand(operation, pixelsIn(*a), pixelsIn(*b))));
        }
    });
}

TYPED_TEST(ImageArithmetic, WritesNothingWhereAnImageHoldsNoPixels)
{
    forOperationsOn<TypeParam>([](auto operation) {
        auto const full = randomImage<TypeParam>({6, 4}, 12);
        auto const before = pixelsIn(*full);
        ImageRef<TypeParam> const none(new TypedImage<TypeParam>);
        none->borrow(nullptr, 4, 6);

        auto const result = imageWith(before);
        operation.run(*none, *full, *result);  // sizes differ, too
        EXPECT_EQ(result->width(), 4);
        EXPECT_TRUE(holds(*result, before));

        none->borrow(nullptr, 6, 4);
        operation.run(*none, *full, *result);
        operation.run(*full, *none, *result);
        operation.run(*none, *none, *result);
        EXPECT_EQ(result->width(), 6);
        EXPECT_TRUE(holds(*result, before));

        // The copy of an image without pixels owns none, whatever its size.
        ko::Reference<TypedImage<TypeParam>> const target(none->clone());
        operation.run(*full, *full, *target);
        EXPECT_EQ(target->pixels(), nullptr);
    });
}

TYPED_TEST(ImageArithmetic, GivesABorrowingResultItsOwnArray)
{
    forOperationsOn<TypeParam>([](auto operation) {
        auto const a = randomImage<TypeParam>({5, 3}, 13);
        auto const lent = randomImage<TypeParam>({5, 3}, 14);
        auto const before = pixelsIn(*lent);
        ImageRef<TypeParam> const result(new TypedImage<TypeParam>);
        result->borrow(lent->pixels(), 5, 3);

        operation.run(*a, *lent, *result);
        EXPECT_TRUE(result->ownsPixels());
        EXPECT_TRUE(holds(*lent, before));
        EXPECT_TRUE(holds(*result, byHand(operation, pixelsIn(*a), before)));
    });
}

TYPED_TEST(ImageArithmetic, ReshapesAnOperandThatIsTheResultBeforeItComparesSizes)
{
    forOperationsOn<TypeParam>([](auto operation) {
        auto const a = randomImage<TypeParam>({4, 6}, 15);
        auto const b = randomImage<TypeParam>({8, 3}, 16);
        auto const expected = byHand(operation, pixelsIn(*a), pixelsIn(*b));
        operation.run(*a, *b, *b);
        EXPECT_EQ(b->width(), 4);
        EXPECT_EQ(b->height(), 6);
        EXPECT_TRUE(holds(*b, expected));

        // With another count its pixels are undefined, its size is not.
        auto const other = randomImage<TypeParam>({2, 2}, 17);
        operation.run(*a, *other, *other);
        EXPECT_EQ(other->width(), 4);
        EXPECT_EQ(other->height(), 6);
    });
}

TYPED_TEST(ImageArithmetic, OnlyResizesWhenSizesDiffer)
{
    forOperationsOn<TypeParam>([](auto operation) {
        auto const a = randomImage<TypeParam>({4, 4}, 18);
        for (Size const size : {Size{4, 5}, Size{5, 4}, Size{2, 8}, Size{0, 0}}) {
            auto const b = randomImage<TypeParam>(size, 19);
            auto const result = randomImage<TypeParam>({8, 2}, 20);
            auto const before = pixelsIn(*result);
            operation.run(*a, *b, *result);
            EXPECT_EQ(result->width(), 4);
            EXPECT_EQ(result->height(), 4);
            EXPECT_TRUE(holds(*result, before));
        }
    });
}

TEST(ImageArithmeticTypes, AreResizedButNotWrittenWhereUnsupported)
{
    forOperations([](auto operation) {
        using Supported = typename decltype(operation)::Pixels;
        auto const check = [&](auto tag) {
            using Pixel = typename decltype(tag)::type;
            if (Supported::contains(pixelTypeIdOf<Pixel>))
                return;
            auto const a = imageOf<Pixel>({3, 4});
            auto const b = imageOf<Pixel>({3, 4});
            auto const result = imageOf<Pixel>({6, 2});
            std::memset(static_cast<void*>(a->pixels()), 0x11, 12 * sizeof(Pixel));
            std::memset(static_cast<void*>(b->pixels()), 0x22, 12 * sizeof(Pixel));
            std::memset(static_cast<void*>(result->pixels()), 0x77, 12 * sizeof(Pixel));
            operation.run(*a, *b, *result);
            EXPECT_EQ(result->width(), 3);
            EXPECT_EQ(result->height(), 4);
            auto const* const bytes = static_cast<unsigned char const*>(result->data());
            EXPECT_TRUE(std::all_of(bytes, bytes + 12 * sizeof(Pixel), [](int byte) { return byte == 0x77; }))
                << "type " << static_cast<int>(pixelTypeIdOf<Pixel>);
        };
        for (int id = 0; id <= 9; ++id)
            EXPECT_TRUE(dispatchPixel(PixelTypeId{id}, AllPixels{}, check));
    });
}

TEST(ImageArithmeticTypes, LeaveEverythingAloneWhereTheyDiffer)
{
    auto const float4 = randomImage<Float4>({4, 4}, 21);
    auto const float3 = randomImage<Float3>({4, 4}, 22);
    auto const floats = randomImage<float>({3, 3}, 23);
    auto const floatsBefore = pixelsIn(*floats);
    auto const result = randomImage<Float4>({3, 3}, 24);
    auto const resultBefore = pixelsIn(*result);

    forOperations([&](auto operation) {
        operation.run(*float4, *float4, *floats);
        operation.run(*float4, *float3, *result);
        operation.run(*float3, *float4, *result);
        operation.run(*float3, *float3, *result);
        EXPECT_EQ(floats->width(), 3);
        EXPECT_EQ(result->width(), 3);
        EXPECT_TRUE(holds(*floats, floatsBefore));
        EXPECT_TRUE(holds(*result, resultBefore));
    });
}

// Halves

TEST(HalfArithmetic, IsExactForEveryHalfAgainstChosenOnes)
{
    // Zeros, subnormals, the ends of both ranges, neighbours of powers of two, infinities and NaNs.
    static constexpr std::uint16_t chosen[] = {
        0x0000, 0x8000, 0x0001, 0x8001, 0x0002, 0x01FF, 0x0200, 0x03FF, 0x83FF, 0x0400, 0x8400,
        0x0401, 0x07FF, 0x0800, 0x1000, 0x1001, 0x13FF, 0x1400, 0x2E66, 0x3555, 0x37FF, 0x3800,
        0x3BFF, 0x3C00, 0xBC00, 0x3C01, 0xBC01, 0x3FFF, 0x4248, 0x5640, 0x63FF, 0x6400, 0xE401,
        0x77FF, 0x7800, 0x7801, 0x7BFE, 0x7BFF, 0xFBFF, 0x7C00, 0xFC00, 0x7C01, 0x7E00, 0xFFFF};
    std::vector<Half4> every(65536 / 4);
    for (std::size_t i = 0; i < every.size(); ++i) {
        auto const first = static_cast<std::uint16_t>(4 * i);
        every[i] = halfPixel(first, first + 1, first + 2, first + 3);
    }
    auto const all = imageWith(every);
    auto const result = imageOf<Half4>({0, 0});

    for (std::uint16_t const word : chosen) {
        SCOPED_TRACE(::testing::Message() << "with half " << word);
        std::vector<Half4> const same(every.size(), halfPixel(word, word, word, word));
        auto const one = imageWith(same);
        forOperations([&](auto operation) {
            operation.run(*all, *one, *result);
            EXPECT_TRUE(holds(*result, byHand(operation, every, same)));
            operation.run(*one, *all, *result);
            EXPECT_TRUE(holds(*result, byHand(operation, same, every)));
        });
    }
}

TEST(HalfArithmetic, NeverGivesMinusZero)
{
    auto const ones = imageWith<Half4>({halfPixel(0x3C00, 0x8000, 0x8000, 0x0000)});
    auto const others = imageWith<Half4>({halfPixel(0x3C00, 0x8000, 0x3C00, 0x8000)});
    auto const result = imageOf<Half4>({0, 0});

    imageSub(*ones, *others, *result);  // 1 - 1, -0 - -0, -0 - 1, 0 - -0
    EXPECT_EQ(result->pixels()[0].r.bits(), 0x0000);
    EXPECT_EQ(result->pixels()[0].g.bits(), 0x0000);
    EXPECT_EQ(result->pixels()[0].b.bits(), 0xBC00);
    imageAdd(*ones, *others, *result);  // -0 + -0
    EXPECT_EQ(result->pixels()[0].g.bits(), 0x0000);
    imageMult(*ones, *others, *result);  // -0 * 1, 0 * -0
    EXPECT_EQ(result->pixels()[0].b.bits(), 0x0000);
    EXPECT_EQ(result->pixels()[0].a.bits(), 0x0000);
    imageDiv(*ones, *others, *result);  // -0 / 1
    EXPECT_EQ(result->pixels()[0].b.bits(), 0x0000);
}

TEST(HalfArithmetic, RoundsTiesAwayFromZeroAndOverflowsToInfinity)
{
    // 2048 + 1 lies between 2048 and 2050; 65504 + 16 between 65504 and the first value that is too large.
    auto const a = imageWith<Half4>({halfPixel(0x6800, 0xE800, 0x7BFF, 0x7BFF)});
    auto const b = imageWith<Half4>({halfPixel(0x3C00, 0xBC00, 0x4C00, 0x4BFF)});
    auto const result = imageOf<Half4>({0, 0});
    imageAdd(*a, *b, *result);
    EXPECT_EQ(result->pixels()[0].r.bits(), 0x6801);
    EXPECT_EQ(result->pixels()[0].g.bits(), 0xE801);
    EXPECT_EQ(result->pixels()[0].b.bits(), 0x7C00);
    EXPECT_EQ(result->pixels()[0].a.bits(), 0x7BFF);
}

// Division by zero, division of bytes

TEST(ImageDiv, GivesInfinityOrNanInTheChannelDividedByZero)
{
    auto const a = imageWith<Float4>({{1, -1, 0, 6}});
    auto const b = imageWith<Float4>({{0, 0, 0, 4}});
    auto const result = imageOf<Float4>({0, 0});
    imageDiv(*a, *b, *result);
    EXPECT_EQ(result->pixels()[0].r, std::numeric_limits<float>::infinity());
    EXPECT_EQ(result->pixels()[0].g, -std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(result->pixels()[0].b));
    EXPECT_EQ(result->pixels()[0].a, 1.5f);
}

TEST(ImageDiv, WrapsBytesAndKeepsThoseDividedByZero)
{
    auto const a = imageWith<unsigned char>({100, 200, 2, 255, 7});
    auto const b = imageWith<unsigned char>({200, 200, 1, 1, 0});
    auto const result = imageOf<unsigned char>({0, 0});
    imageDiv(*a, *b, *result);
    EXPECT_EQ(pixelsIn(*result), (std::vector<unsigned char>{128, 255, 254, 1, 7}));
}

TEST(ImageDiv, IsExactForEveryPairOfBytes)
{
    auto const [a, b] = allBytePairs();
    auto const result = imageOf<unsigned char>({0, 0});
    imageDiv(*a, *b, *result);
    EXPECT_TRUE(holds(*result, byHand(Div{}, pixelsIn(*a), pixelsIn(*b))));
}

// Properties

template <class Pixel>
class ImageAddAndMult : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageAddAndMult, TestTypes<AddPixels>, ById);

TYPED_TEST(ImageAddAndMult, Commute)
{
    auto const a = hostileImage<TypeParam>({37, 29}, 25);
    auto const b = hostileImage<TypeParam>({37, 29}, 26);
    auto const ab = imageOf<TypeParam>({0, 0});
    auto const ba = imageOf<TypeParam>({0, 0});
    imageAdd(*a, *b, *ab);
    imageAdd(*b, *a, *ba);
    EXPECT_TRUE(holds(*ba, canonical(pixelsIn(*ab))));
    imageMult(*a, *b, *ab);
    imageMult(*b, *a, *ba);
    EXPECT_TRUE(holds(*ba, canonical(pixelsIn(*ab))));
}

// Minimum and maximum

TEST(ImageMinMax, PicksTheSmallerAndTheLargerOfEveryPairOfBytes)
{
    auto const [a, b] = allBytePairs();
    auto const smaller = imageOf<unsigned char>({0, 0});
    auto const larger = imageOf<unsigned char>({0, 0});
    imageMin(*a, *b, *smaller);
    imageMax(*a, *b, *larger);
    for (int i = 0; i < 65536; ++i) {
        int const p = i >> 8;
        int const q = i & 255;
        ASSERT_EQ(smaller->pixels()[i], p < q ? p : q);
        ASSERT_EQ(larger->pixels()[i], p < q ? q : p);
    }
}

TEST(ImageMinMax, SumToTheSumOfTheOperandsAtEverySize)
{
    auto const check = [](Size size) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const a = randomImage<unsigned char>(size, 27);
        auto const b = randomImage<unsigned char>(size, 28);
        auto const smaller = randomImage<unsigned char>(size, 29);
        auto const larger = imageOf<unsigned char>({3, 3});
        imageMin(*a, *b, *smaller);
        imageMax(*a, *b, *larger);
        EXPECT_EQ(smaller->width(), size.width);
        EXPECT_EQ(larger->height(), size.height);
        for (std::size_t i = 0; i < pixelsOf<unsigned char>(*a).size(); ++i) {
            ASSERT_LE(smaller->pixels()[i], larger->pixels()[i]);
            ASSERT_EQ(smaller->pixels()[i] + larger->pixels()[i], a->pixels()[i] + b->pixels()[i]);
        }
    };
    for (Size const size : awkwardSizes)
        check(size);
    for (Size const size : hostileSizes)
        check(size);
    check({4099, 4111});  // written past the cache
}

TEST(ImageMinMax, MayWriteOverTheirOperands)
{
    for (Size const size : awkwardSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const a = randomImage<unsigned char>(size, 29);
        auto const b = randomImage<unsigned char>(size, 30);
        auto const smaller = imageOf<unsigned char>({0, 0});
        auto const larger = imageOf<unsigned char>({0, 0});
        imageMin(*a, *b, *smaller);
        imageMax(*a, *b, *larger);

        ko::Reference<TypedImage<unsigned char>> const left(a->clone());
        imageMin(*left, *b, *left);
        EXPECT_TRUE(samePixels(*smaller, *left));
        ko::Reference<TypedImage<unsigned char>> const right(b->clone());
        imageMax(*a, *right, *right);
        EXPECT_TRUE(samePixels(*larger, *right));
        imageMax(*a, *a, *right);
        EXPECT_TRUE(samePixels(*a, *right));
    }
}

TEST(ImageMinMax, LeaveTheResultAloneWhenSizesDiffer)
{
    auto const a = randomImage<unsigned char>({4, 6}, 31);
    auto const b = randomImage<unsigned char>({6, 4}, 32);
    auto const result = randomImage<unsigned char>({3, 8}, 33);
    auto const before = pixelsIn(*result);
    imageMin(*a, *b, *result);
    imageMax(*a, *b, *result);
    EXPECT_EQ(result->width(), 3);
    EXPECT_TRUE(holds(*result, before));

    // Unlike the arithmetic, b is not reshaped first where it is the result.
    imageMin(*a, *b, *b);
    EXPECT_EQ(b->width(), 6);
}

TEST(ImageMinMax, ResizeTheResultEvenWhereAnImageHoldsNoPixels)
{
    auto const full = randomImage<unsigned char>({4, 6}, 34);
    ImageRef<unsigned char> const none(new TypedImage<unsigned char>);
    none->borrow(nullptr, 4, 6);
    auto const result = randomImage<unsigned char>({3, 8}, 35);
    auto const before = pixelsIn(*result);
    imageMin(*full, *none, *result);
    EXPECT_EQ(result->width(), 4);
    EXPECT_EQ(result->height(), 6);
    EXPECT_TRUE(holds(*result, before));
    imageMax(*none, *full, *result);
    EXPECT_TRUE(holds(*result, before));

    ko::Reference<TypedImage<unsigned char>> const target(none->clone());
    imageMax(*full, *full, *target);
    EXPECT_EQ(target->pixels(), nullptr);
}

}  // namespace koImage
