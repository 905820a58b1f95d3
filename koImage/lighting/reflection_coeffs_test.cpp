#include "koImage/lighting/reflection_coeffs.h"

#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/rotation_matrices.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace koImage {

using namespace testing;

namespace {

SphericalHarmonics<Double3> randomLight(std::uint32_t seed, int order = 20)
{
    Random random(seed);
    SphericalHarmonics<Double3> light(order);
    for (int i = 0; i < light.size(); ++i)
        light[i] = {randomChannel<double>(random) - 1, randomChannel<double>(random),
                    randomChannel<double>(random)};
    return light;
}

koUtil::ArrayN<3, Double3> randomBrdf(std::uint32_t seed)
{
    Random random(seed);
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    for (std::int64_t i = 0; i < brdf.size(); ++i)
        brdf.data()[i] = {randomChannel<double>(random), randomChannel<double>(random) - 1,
                          randomChannel<double>(random)};
    return brdf;
}

ImageRef<HarmonicsPixel> mapOf(SphericalHarmonics<Double3> const& light,
                               koUtil::ArrayN<3, Double3> const& brdf, int lightOrder, int threads)
{
    koUtil::ThreadPool pool(threads);
    auto map = imageOf<HarmonicsPixel>({0, 0});
    computeReflectionCoeffs(light, brdf, lightOrder, 10, *map, nullptr, pool);
    return map;
}

class ComputeReflectionCoeffs : public ::testing::Test {
protected:
    static void SetUpTestSuite() { rotations = std::make_unique<LoadedRotations>(); }
    static void TearDownTestSuite() { rotations.reset(); }

private:
    static inline std::unique_ptr<LoadedRotations> rotations;
};

std::vector<std::string> events;

void remember(char const* label)
{
    events.emplace_back(label);
}

class RememberProgress : public koUtil::Progress {
public:
    void set(double fraction) override { events.push_back(std::to_string(fraction)); }
};

}  // namespace

TEST_F(ComputeReflectionCoeffs, AreThoseOfTheirDefinitionToTheBitForEveryThreadCount)
{
    auto const light = randomLight(1);
    auto const brdf = randomBrdf(2);
    auto const expected = imageOf<HarmonicsPixel>({0, 0});
    reflectionByHand(light, brdf, rotationsByHand(), 20, *expected);
    for (int const threads : {1, 2, 3, 7, 100, 101}) {
        SCOPED_TRACE(threads);
        EXPECT_TRUE(samePixels(*expected, *mapOf(light, brdf, 20, threads)));
    }
}

TEST_F(ComputeReflectionCoeffs, UseTheLightUpToItsOrder)
{
    auto const light = randomLight(3);
    auto const brdf = randomBrdf(4);
    for (int const order : {0, 1, 9, 13}) {
        SCOPED_TRACE(order);
        auto const expected = imageOf<HarmonicsPixel>({0, 0});
        reflectionByHand(light, brdf, rotationsByHand(), order, *expected);
        EXPECT_TRUE(samePixels(*expected, *mapOf(light, brdf, order, 2)));
    }
}

TEST_F(ComputeReflectionCoeffs, OfANegativeLightOrderAreZero)
{
    auto const map = mapOf(randomLight(5), randomBrdf(6), -1, 2);
    ASSERT_EQ(map->width(), 200);
    ASSERT_EQ(map->height(), 100);
    for (int i = 0; i < map->pixelCount(); ++i)
        for (int k = 0; k < 121; ++k)
            ASSERT_EQ(map->pixels()[i][k], (Double3{0, 0, 0})) << i << ", " << k;
}

TEST_F(ComputeReflectionCoeffs, TakeMissingDegreesAsZero)
{
    auto const small = randomLight(7, 12);
    SphericalHarmonics<Double3> padded(20);
    for (int i = 0; i < small.size(); ++i)
        padded[i] = small[i];
    auto const brdf = randomBrdf(8);
    EXPECT_TRUE(samePixels(*mapOf(padded, brdf, 20, 2), *mapOf(small, brdf, 20, 2)));

    auto const large = randomLight(9, 23);
    SphericalHarmonics<Double3> cut(20);
    for (int i = 0; i < cut.size(); ++i)
        cut[i] = large[i];
    EXPECT_TRUE(samePixels(*mapOf(cut, brdf, 20, 2), *mapOf(large, brdf, 1000, 2)));
}

TEST_F(ComputeReflectionCoeffs, DoNotReadReflectanceThatIsNotMade)
{
    auto const light = randomLight(10);
    auto brdf = randomBrdf(11);
    auto const expected = mapOf(light, brdf, 20, 2);
    for (int l = 0; l <= 20; ++l)
        for (int p = 0; p <= 20; ++p)
            for (int q = 0; q <= 20; ++q)
                if (p > 10 || q > p || q > l)
                    brdf(l, p, q) = {std::nan(""), std::nan(""), std::nan("")};
    EXPECT_TRUE(samePixels(*expected, *mapOf(light, brdf, 20, 2)));
}

// White furnace: constant light on a reflectance whose energy lies in degree 0 looks the same everywhere.
TEST_F(ComputeReflectionCoeffs, OfConstantLightAndConstantReflectanceAreOneNumber)
{
    SphericalHarmonics<Double3> light(20);
    light[0] = {1, 2, 3};
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0, 0, 0});
    brdf(0, 0, 0) = {1, 1, 1};
    auto const map = mapOf(light, brdf, 20, 2);
    for (int i = 0; i < map->pixelCount(); ++i) {
        ASSERT_EQ(map->pixels()[i][0],
                  (Double3{2.5066282746310007, 2 * 2.5066282746310007, 3 * 2.5066282746310007}));
        for (int k = 1; k < 121; ++k)
            ASSERT_EQ(map->pixels()[i][k], (Double3{0, 0, 0})) << i << ", " << k;
    }
}

TEST_F(ComputeReflectionCoeffs, TellTheirStagesAndProgress)
{
    events.clear();
    observeCheckpoints(remember);
    RememberProgress progress;
    auto const map = imageOf<HarmonicsPixel>({0, 0});
    computeReflectionCoeffs(randomLight(1), randomBrdf(2), 20, 10, *map, &progress);
    observeCheckpoints(nullptr);
    EXPECT_EQ(events, (std::vector<std::string>{"convolution", "0.500000", "0.750000", "create shrm",
                                                "0.900000", "warped shrm"}));
}

TEST_F(ComputeReflectionCoeffs, ReplaceABorrowedArray)
{
    std::vector<HarmonicsPixel> borrowed(2);
    auto const map = imageOf<HarmonicsPixel>({0, 0});
    map->borrow(borrowed.data(), 2, 1);
    auto const light = randomLight(1);
    auto const brdf = randomBrdf(2);
    computeReflectionCoeffs(light, brdf, 20, 10, *map, nullptr);
    EXPECT_TRUE(map->ownsPixels());
    EXPECT_TRUE(samePixels(*mapOf(light, brdf, 20, 1), *map));
}

TEST_F(ComputeReflectionCoeffs, OfAReflectanceOfOtherDimensionsAreNotMade)
{
    auto const map = imageOf<HarmonicsPixel>({2, 1});
    computeReflectionCoeffs(randomLight(1), koUtil::ArrayN<3, Double3>(21, 11, 11), 20, 10, *map, nullptr);
    EXPECT_EQ(map->width(), 2);
}

TEST(ReflectionCoeffs, WithoutMatricesAreNotMade)
{
    finalizeReflectance();
    RememberProgress progress;
    events.clear();
    auto const map = imageOf<HarmonicsPixel>({2, 1});
    computeReflectionCoeffs(randomLight(1), randomBrdf(2), 20, 10, *map, &progress);
    EXPECT_EQ(map->width(), 2);
    EXPECT_TRUE(events.empty());
}

}  // namespace koImage
