#include "koImage/ops/average.h"

#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

float channelValue(float value)
{
    return value;
}
float channelValue(unsigned char value)
{
    return value;
}
float channelValue(half value)
{
    return (value.bits() & 0x7C00) == 0x7C00 ? 1.0f : static_cast<float>(value);
}

/// The definition: each channel summed on its own, one addition after the other.
template <class Pixel>
std::array<float, 4> meanByHand(TypedImage<Pixel> const& image)
{
    using Channel = typename ChannelOf<Pixel>::type;
    constexpr std::size_t channels = sizeof(Pixel) / sizeof(Channel);
    int const count = image.pixelCount();
    std::array<float, 4> mean{};
    if (count < 1) {
        if constexpr (std::is_same_v<Channel, half>)
            mean = {nan, nan, nan, nan};
        return mean;
    }

    auto const* const values = static_cast<Channel const*>(image.data());
    float const inverse = 1.0f / static_cast<float>(count);
    for (std::size_t c = 0; c < channels; ++c) {
        if constexpr (std::is_same_v<Pixel, Byte4>) {
            std::uint32_t sum = 0;
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
                sum += values[i * channels + c];
            mean[c] = std::trunc(static_cast<float>(sum) * inverse);
        } else {
            float sum = 0.0f;
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
                sum += channelValue(values[i * channels + c]);
            mean[c] = inverse * sum;
        }
    }
    return mean;
}

/// Equal to the bit, but one NaN is as good as another.
::testing::AssertionResult sameMean(std::array<float, 4> const& expected, Float4 const& mean)
{
    auto const actual = std::bit_cast<std::array<float, 4>>(mean);
    for (std::size_t c = 0; c < 4; ++c) {
        bool const same = std::isnan(expected[c]) ? std::isnan(actual[c])
                                                  : std::bit_cast<std::uint32_t>(expected[c]) ==
                                                        std::bit_cast<std::uint32_t>(actual[c]);
        if (!same)
            return ::testing::AssertionFailure() << "channel " << c << ": expected " << std::hexfloat
                                                 << expected[c] << " got " << actual[c];
    }
    return ::testing::AssertionSuccess();
}

/// An image over borrowed values: a line.
template <class Pixel>
ImageRef<Pixel> lineOf(std::vector<Pixel>& pixels, std::size_t first, std::size_t count)
{
    ImageRef<Pixel> image(new TypedImage<Pixel>);
    image->borrow(pixels.data() + first, static_cast<int>(count), 1);
    return image;
}

/// Compares the mean of the values from `first` on, for counts around the block length of 64 and beyond.
/// Counts that are powers of two show every bit of the sum.
template <class Pixel>
void checkRuns(std::vector<Pixel>& values, std::size_t first = 0)
{
    for (std::size_t const count : {std::size_t{1}, std::size_t{63}, std::size_t{64}, std::size_t{65},
                                    std::size_t{128}, std::size_t{129}, std::size_t{512}, std::size_t{777},
                                    std::size_t{1024}, std::size_t{4096}, values.size() - first}) {
        if (count > values.size() - first)
            continue;
        auto const image = lineOf(values, first, count);
        ASSERT_TRUE(sameMean(meanByHand(*image), imageAverage(*image))) << count << " values";
    }
}

/// In -1 .. 1.
float signedUnit(Random& random)
{
    return static_cast<float>(random() >> 8) * 0x1p-23f - 1.0f;
}

struct FloatKind {
    char const* name;
    float (*make)(Random&, int index);
};

float fromBits(std::uint32_t bits)
{
    return std::bit_cast<float>(bits);
}

// Data on which sums in units of the last place could go wrong: every magnitude, sign and grain, and values
// that meet the ends of the range.
constexpr FloatKind floatKinds[] = {
    {"uniform", [](Random& random, int) { return randomChannel<float>(random); }},
    {"either sign", [](Random& random, int) { return signedUnit(random); }},
    {"negative", [](Random& random, int) { return -randomChannel<float>(random); }},
    {"ones", [](Random&, int) { return 1.0f; }},
    {"tenths", [](Random&, int) { return 0.1f; }},
    {"thirds", [](Random&, int) { return -1.0f / 3.0f; }},
    {"zeros", [](Random&, int) { return 0.0f; }},
    {"minus zeros", [](Random&, int) { return -0.0f; }},
    {"mostly zeros", [](Random& random, int) { return random() % 100 == 0 ? signedUnit(random) : 0.0f; }},
    {"whole bytes", [](Random& random, int) { return static_cast<float>(random() & 255); }},
    {"bytes in 0 .. 1", [](Random& random, int) { return static_cast<float>(random() & 255) / 255.0f; }},
    {"halves",
     [](Random& random, int) { return static_cast<float>(half(randomChannel<float>(random) * 100.0f)); }},
    {"few bright",
     [](Random& random, int) {
         return random() % 500 == 0 ? 5e4f * randomChannel<float>(random) : randomChannel<float>(random);
     }},
    {"growing",
     [](Random& random, int i) {
         return std::exp2(static_cast<float>(i) / 40.0f) * randomChannel<float>(random);
     }},
    {"shrinking",
     [](Random& random, int i) { return std::exp2(-static_cast<float>(i) / 40.0f) * signedUnit(random); }},
    {"falling through the ranges",
     [](Random& random, int i) { return i == 0 ? 2e3f : -randomChannel<float>(random); }},
    {"taken back",
     [](Random&, int i) { return i % 2 == 0 ? 1.0f + static_cast<float>(i) : -static_cast<float>(i); }},
    {"exactly taken back", [](Random&, int i) { return i % 2 == 0 ? 0.7f : -0.7f; }},
    {"powers of two",
     [](Random& random, int) {
         return std::ldexp(random() % 2 ? 1.0f : -1.0f, static_cast<int>(random() % 40));
     }},
    {"any finite",
     [](Random& random, int) {
         float const x = fromBits(static_cast<std::uint32_t>(random()));
         return std::isfinite(x) ? x : 1.0f;
     }},
    {"hostile", [](Random& random, int) { return hostileChannel<float>(random); }},
    {"subnormal",
     [](Random& random, int) { return fromBits(static_cast<std::uint32_t>(random()) & 0x807FFFFFu); }},
    {"hardly normal",
     [](Random& random, int) {
         return fromBits(0x00800000u + (static_cast<std::uint32_t>(random()) & 0x01FFFFFFu));
     }},
    {"about the smallest unit",
     [](Random& random, int) { return std::ldexp(signedUnit(random) + 0.5f, -97); }},
    {"about the largest sum", [](Random& random, int) { return std::ldexp(signedUnit(random) + 0.1f, 121); }},
    {"overflowing", [](Random& random, int) { return std::ldexp(randomChannel<float>(random), 118); }},
    {"NaN in the middle",
     [](Random& random, int i) { return i == 700 ? nan : randomChannel<float>(random); }},
    {"signalling NaN in the middle",
     [](Random& random, int i) { return i == 700 ? fromBits(0xFF800001u) : randomChannel<float>(random); }},
    {"infinity in the middle",
     [](Random& random, int i) { return i == 700 ? -infinity : randomChannel<float>(random); }},
    {"both infinities",
     [](Random& random, int i) { return i == 700   ? -infinity
                                        : i == 900 ? infinity
                                                   : signedUnit(random); }},
};

}  // namespace

// Means

template <class Pixel>
class ImageAverage : public ::testing::Test {
};
TYPED_TEST_SUITE(ImageAverage, TestTypes<AveragePixels>, ById);

TYPED_TEST(ImageAverage, IsTheMeanOfEveryChannelAtEverySize)
{
    for (Size const size : awkwardSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = randomImage<TypeParam>(size, 1);
        EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image)));
    }
    for (Size const size : hostileSizes) {
        SCOPED_TRACE(::testing::Message() << size);
        auto const image = randomImage<TypeParam>(size, 2);
        EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image)));
    }
}

TYPED_TEST(ImageAverage, IsExactOnHostileValues)
{
    for (std::uint32_t seed = 0; seed < 50; ++seed) {
        auto const image = hostileImage<TypeParam>({61, 7}, seed);
        EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image)));
    }
}

TYPED_TEST(ImageAverage, ReadsBorrowedPixelsWhereverTheyStand)
{
    using Channel = typename ChannelOf<TypeParam>::type;
    std::vector<TypeParam> memory(300);
    Random random(3);
    auto* const channels = reinterpret_cast<Channel*>(memory.data());
    for (std::size_t i = 0; i < memory.size() * sizeof(TypeParam) / sizeof(Channel); ++i)
        channels[i] = randomChannel<Channel>(random);
    ImageRef<TypeParam> const image(new TypedImage<TypeParam>);
    image->borrow(reinterpret_cast<TypeParam*>(channels + 1), 299, 1);
    EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image)));
}

TYPED_TEST(ImageAverage, IsZeroWithoutPixelsButNanForHalves)
{
    float const expected = std::is_same_v<TypeParam, Half4> ? nan : 0.0f;
    for (Size const size : {Size{0, 0}, Size{7, 0}, Size{0, 7}, Size{-1, 4}, Size{65536, 65536}}) {
        auto const image = imageOf<TypeParam>(size);
        EXPECT_TRUE(sameMean({expected, expected, expected, expected}, imageAverage(*image)));
    }
}

TYPED_TEST(ImageAverage, IsZeroWhereAnImageHoldsNoPixelsInSpiteOfItsSize)
{
    ImageRef<TypeParam> const image(new TypedImage<TypeParam>);
    image->borrow(nullptr, 4, 4);
    EXPECT_TRUE(sameMean({}, imageAverage(*image)));
}

TEST(ImageAverageTypes, AreZeroWhereUnsupported)
{
    auto const check = [](auto tag) {
        using Pixel = typename decltype(tag)::type;
        if (AveragePixels::contains(pixelTypeIdOf<Pixel>))
            return;
        auto const image = imageOf<Pixel>({3, 4});
        std::memset(static_cast<void*>(image->pixels()), 0x11, 12 * sizeof(Pixel));
        EXPECT_TRUE(sameMean({}, imageAverage(*image))) << "type " << static_cast<int>(pixelTypeIdOf<Pixel>);
    };
    for (int id = 0; id <= 9; ++id)
        EXPECT_TRUE(dispatchPixel(PixelTypeId{id}, AllPixels{}, check));
}

TEST(ImageAverageOfBytes, KeepsFractionsAndThatOfBytePixelsDoesNot)
{
    std::vector<unsigned char> bytes{1, 2};
    EXPECT_TRUE(sameMean({1.5f, 0, 0, 0}, imageAverage(*lineOf(bytes, 0, 2))));
    std::vector<Byte4> pixels{{1, 255, 0, 3}, {2, 255, 0, 4}};
    EXPECT_TRUE(sameMean({1, 255, 0, 3}, imageAverage(*lineOf(pixels, 0, 2))));
}

TEST(ImageAverageOfHalves, CountsInfinityAndNanAsOne)
{
    half const three(3.0f);
    std::vector<Half4> pixels{
        {half::fromBits(0x7C00), half::fromBits(0xFC00), half::fromBits(0x7E01), half::fromBits(0xFC01)},
        {three, three, three, three}};
    EXPECT_TRUE(sameMean({2, 2, 2, 2}, imageAverage(*lineOf(pixels, 0, 2))));
}

TEST(ImageAverageOfHalves, TakesEveryHalf)
{
    std::vector<Half4> pixels;
    for (unsigned word = 0; word < 0x10000; ++word) {
        auto const h = [word](unsigned step) {
            return half::fromBits(static_cast<std::uint16_t>(word * step));
        };
        pixels.push_back({h(1), h(3), h(5), h(0x7FFF)});
    }
    checkRuns(pixels);
    checkRuns(pixels, 0x7BF0);
}

TEST(ImageAverageOfBytePixels, WrapsItsSumsAt32Bits)
{
    // 255 * 16,843,009 is 2^32 - 1.
    for (int const count : {16843009, 16843010}) {
        auto const image = imageOf<Byte4>({count, 1});
        std::memset(image->pixels(), 0xFF, static_cast<std::size_t>(count) * 4);
        image->pixels()[count - 1] = {255, 254, 0, 255};
        EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image)));
        EXPECT_EQ(imageAverage(*image).r, count == 16843009 ? 255.0f : 0.0f);
    }
}

TEST(ImageAverageOfBytePixels, CountsEachChannelOnItsOwn)
{
    // All of full scale, over more pixels than 16 bits can count.
    auto const image = imageOf<Byte4>({1031, 64});
    for (auto const& [pixel, mean] : {std::pair{Byte4{255, 0, 0, 0}, Float4{255, 0, 0, 0}},
                                      std::pair{Byte4{0, 255, 0, 0}, Float4{0, 255, 0, 0}},
                                      std::pair{Byte4{0, 0, 255, 0}, Float4{0, 0, 255, 0}},
                                      std::pair{Byte4{0, 0, 0, 255}, Float4{0, 0, 0, 255}}}) {
        std::fill_n(image->pixels(), image->pixelCount(), pixel);
        EXPECT_EQ(imageAverage(*image), mean);
    }
}

// Sums of floats in storage order

TEST(ImageAverageOfFloats, AddsInStorageOrderOnEveryKindOfData)
{
    for (FloatKind const& kind : floatKinds) {
        SCOPED_TRACE(kind.name);
        for (std::uint32_t seed = 0; seed < 8; ++seed) {
            Random random(seed);
            std::vector<float> values(8192 + 3);
            for (std::size_t i = 0; i < values.size(); ++i)
                values[i] = kind.make(random, static_cast<int>(i));
            checkRuns(values);
            checkRuns(values, 3);
        }
    }
}

TEST(ImageAverageOfFloats, AddsInStorageOrderOverManyMillions)
{
    for (FloatKind const& kind : {floatKinds[0], floatKinds[1], floatKinds[3], floatKinds[9]}) {
        SCOPED_TRACE(kind.name);
        Random random(5);
        std::vector<float> values((std::size_t{1} << 24) + (std::size_t{1} << 22));
        for (float& value : values)
            value = kind.make(random, 1);
        checkRuns(values);
        auto const powerOfTwo = lineOf(values, 0, std::size_t{1} << 24);
        EXPECT_TRUE(sameMean(meanByHand(*powerOfTwo), imageAverage(*powerOfTwo)));
    }
}

TEST(ImageAverageOfFloats, SettlesTiesAsSingleAdditionsDo)
{
    // A start somewhere between 2^e and 2^(e+1), of either sign; then multiples of half its unit, often odd
    // ones.
    Random random(6);
    std::vector<float> values(1024);
    for (int round = 0; round < 3000; ++round) {
        int const exponent = static_cast<int>(random() % 200) - 90;
        float const sign = random() % 2 ? 1.0f : -1.0f;
        values[0] = std::ldexp(sign * static_cast<float>(0x800000 + random() % 0x800000), exponent - 23);
        auto const spread = std::uint32_t{1} << random() % 12;
        auto const tieShare = random() % 5;
        for (std::size_t i = 1; i < values.size(); ++i) {
            auto halfUnits = static_cast<float>(random() % (2 * spread + 1)) - static_cast<float>(spread);
            if (random() % 4 < tieShare)
                halfUnits = 2.0f * halfUnits + 1.0f;
            values[i] = std::ldexp(halfUnits, exponent - 24);
        }
        SCOPED_TRACE(::testing::Message() << "round " << round);
        checkRuns(values);
        if (HasFatalFailure())
            return;
    }
}

TEST(ImageAverageOfFloats, IsExactWhereSumsMeetPowersOfTwo)
{
    // A start within some units of either end of the range, and values around one unit that pass it to and
    // fro, thirds of units included: below the power of two the unit is half as large.
    Random random(7);
    std::vector<float> values(512);
    for (int round = 0; round < 6000; ++round) {
        int const exponent = static_cast<int>(random() % 40) - 20;
        float const sign = random() % 2 ? 1.0f : -1.0f;
        int const offset = static_cast<int>(random() % 401) - 200;
        values[0] = std::ldexp(sign * static_cast<float>(0x1000000 + offset), exponent - 23);
        int const grain = static_cast<int>(random() % 4);
        float const bias = static_cast<float>(random() % 3) - 1.0f;
        for (std::size_t i = 1; i < values.size(); ++i) {
            float const units = signedUnit(random) * 2.0f + bias;
            values[i] = std::ldexp(
                grain == 3 ? units : std::round(std::ldexp(units, grain)) / std::ldexp(1.0f, grain),
                exponent - 22);
        }
        SCOPED_TRACE(::testing::Message() << "round " << round);
        checkRuns(values);
        if (HasFatalFailure())
            return;
    }
}

// Sums of bytes in storage order

TEST(ImageAverageOfBytes, AddsInStorageOrderThroughEveryRange)
{
    // The sum grows to 2^32, where a byte no longer counts, over stretches of every sort: ties for each unit
    // from 2 to 256, dark, bright and mixed. It is compared at many lengths on the way.
    std::vector<unsigned char> values(std::size_t{1} << 26);
    Random random(8);
    for (std::size_t i = 0; i < values.size();) {
        auto const kind = random() % 8;
        auto const constant = static_cast<unsigned char>(random());
        auto const power = static_cast<unsigned char>(1u << (random() % 8));
        for (std::size_t const end = std::min(values.size(), i + random() % 9000); i < end; ++i)
            switch (kind) {
            case 0:
                values[i] = constant;
                break;
            case 1:
                values[i] = power;
                break;
            case 2:
                values[i] = static_cast<unsigned char>(random() & 1);
                break;
            case 3:
                values[i] = static_cast<unsigned char>(power + random() % 3 - 1);
                break;
            case 4:
                values[i] = 0;
                break;
            default:
                values[i] = static_cast<unsigned char>(i % 4 == 0 ? random() : 200 + kind * (i & 7));
                break;
            }
    }

    float sum = 0.0f;
    std::size_t counted = 0;
    for (std::size_t count = 1; count < values.size(); count += 1 + count / 16 + random() % 64) {
        for (; counted < count; ++counted)
            sum += static_cast<float>(values[counted]);
        auto const mean = imageAverage(*lineOf(values, 0, count)).r;
        ASSERT_EQ(mean, 1.0f / static_cast<float>(count) * sum) << count << " bytes";
    }
    EXPECT_EQ(sum, 0x1p32f) << "the last range was not reached";
}

TEST(ImageAverageOfBytes, AddsInStorageOrderBehindAnySum)
{
    // A bright lead brings the sum to each range; then one sort of bytes, in counts that are powers of two.
    for (int unitBits = 0; unitBits <= 9; ++unitBits) {
        SCOPED_TRACE(::testing::Message() << "unit 2^" << unitBits);
        std::size_t const lead = unitBits == 0 ? 1000 : (std::size_t{5} << (21 + unitBits)) / 255;
        std::size_t const count = std::bit_ceil(lead + 100000);
        std::vector<unsigned char> values(count, 255);
        for (std::uint32_t const range : {1u, 2u, 3u, 5u, 17u, 64u, 129u, 256u}) {
            Random random(range);
            for (std::size_t i = lead; i < count; ++i)
                values[i] = static_cast<unsigned char>(random() % range);
            auto const image = lineOf(values, 0, count);
            EXPECT_TRUE(sameMean(meanByHand(*image), imageAverage(*image))) << "bytes below " << range;
        }
    }
}

TEST(ImageAverageOfBytes, AddsInStorageOrderForEveryConstant)
{
    for (int value = 0; value < 256; ++value) {
        std::vector<unsigned char> values(std::size_t{1} << 19, static_cast<unsigned char>(value));
        checkRuns(values);
    }
}

}  // namespace koImage
