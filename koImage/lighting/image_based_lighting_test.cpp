#include "koImage/lighting/image_based_lighting.h"

#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/remap.h"
#include "koImage/envmap/resize.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/coefficients.h"
#include "koImage/lighting/lobes.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/lighting/rotation_matrices.h"
#include "koImage/lighting/specular_map.h"
#include "koImage/ops/blur.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

namespace koImage {

using namespace testing;
using std::numbers::pi;

namespace {

using MapRef = ko::Reference<EnvironmentMap>;
using Vector = std::array<double, 3>;

/// Made once for each process.
std::string const& matrixFile()
{
    static LoadedRotations const rotations;
    return rotations.path();
}

/// Starts without matrices, with the good file named.
class Lighting : public ::testing::Test {
protected:
    Lighting()
    {
        ImageBasedLighting::setRotationMatrixFilename(matrixFile());
        finalizeReflectance();
    }
    ~Lighting() override
    {
        finalizeReflectance();
        ImageBasedLighting::setRotationMatrixFilename({});
    }
};

using ImageBasedLightingTest = Lighting;
using ReducedProbe = Lighting;
using VerifyLightProbe = Lighting;
using SpecularMaps = Lighting;

/// A lobe that counts how often it is sampled.
class Counted final : public ReflectanceFunction {
public:
    explicit Counted(int key, Double3 colour = {1.0, 1.0, 1.0}) : lobe_(20.0, colour) { setKey(key); }

    Double3 sample(ReflectanceSamples& samples) const override
    {
        ++count_;
        return lobe_.sample(samples);
    }
    int count() const { return count_; }

private:
    PhongLobe lobe_;
    mutable int count_ = 0;
};

/// Sampling an expensive lobe is not what most tests are about.
ImageRef<Float3> someProbe()
{
    return randomImage<Float3>({64, 32}, 1);
}

void setProbe(ImageBasedLighting& lighting, TypedImage<Float3>* image)
{
    koUtil::Error error;
    lighting.setLightProbe(image, error);
    ASSERT_EQ(error.code(), 0) << error.message();
    ASSERT_TRUE(lighting.haveUsableLightProbe());
}

TypedImage<Float3> const& imageIn(EnvironmentMap const* map)
{
    return static_cast<TypedImage<Float3> const&>(*map->image());
}

bool isFinite(TypedImage<Float3> const& image)
{
    auto const pixels = pixelsOf<Float3>(image);
    return std::all_of(pixels.begin(), pixels.end(), [](Float3 const& p) {
        return std::isfinite(p.r) && std::isfinite(p.g) && std::isfinite(p.b);
    });
}

bool isBlack(TypedImage<Float3> const& image)
{
    auto const pixels = pixelsOf<Float3>(image);
    return std::all_of(pixels.begin(), pixels.end(), [](Float3 const& p) { return p == Float3{}; });
}

// --- Lights, and the integral that specular maps stand for ---

Float3 grey(double value)
{
    auto const v = static_cast<float>(value);
    return {v, v, v};
}

Vector normalised(Vector v)
{
    double const length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return {v[0] / length, v[1] / length, v[2] / length};
}

double dot(Vector const& a, Vector const& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// The direction of position (x, r) on the grid of a 200 x 100 map. Column x lies at azimuth x pi / 100 and
/// row r at polar angle r pi / 100 of a frame whose axes are y, x and -z of the map.
Vector gridDirection(int x, int r)
{
    double const theta = r * pi / 100;
    double const phi = x * pi / 100;
    return {std::sin(theta) * std::sin(phi), std::sin(theta) * std::cos(phi), -std::cos(theta)};
}

/// A lat-long probe of light(direction), sampled finely enough to need no care.
template <class Light>
ImageRef<Float3> probeOf(Size size, Light const& light)
{
    auto image = imageOf<Float3>(size);
    LatLongMap const map(size.width, size.height);
    Float3* out = image->pixels();
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) {
            koLinear::VectorFlt d;
            map.coordToDir((static_cast<float>(x) + 0.5f) * image->invWidth(),
                           (static_cast<float>(y) + 0.5f) * image->invHeight(), d);
            *out++ = light(Vector{d.x, d.y, d.z});
        }
    return image;
}

/// P_l(c) for l = 0 .. 20.
std::array<double, 21> legendrePolynomials(double c)
{
    std::array<double, 21> p{1.0, c};
    for (std::size_t l = 2; l < p.size(); ++l)
        p[l] = ((2.0 * double(l) - 1.0) * c * p[l - 1] - (double(l) - 1.0) * p[l - 2]) / double(l);
    return p;
}

/// A point of light that holds the degrees to 20 alone, fading towards the last.
double softPoint(double cosine)
{
    static auto const factors = [] {
        std::array<double, 21> f{};
        for (int l = 0; l <= 20; ++l)
            f[std::size_t(l)] = (2 * l + 1) / (4 * pi) * std::exp(-0.02 * l * (l + 1));
        return f;
    }();
    auto const p = legendrePolynomials(cosine);
    return std::inner_product(p.begin(), p.end(), factors.begin(), 0.0);
}

struct NamedLight {
    char const* name;
    std::function<Float3(Vector const&)> light;
};

std::vector<NamedLight> physicalLights()
{
    Vector const sun = normalised({0.5, -0.7, 0.4});
    Vector const lamp = normalised({-0.8, 0.2, -0.3});
    std::vector<NamedLight> lights;
    lights.push_back({"constant", [](Vector const&) { return Float3{1.0f, 2.0f, 0.5f}; }});
    lights.push_back({"spot", [=](Vector const& d) {
                          return Float3{dot(d, sun) > 0.94 ? 4.0f : 0.0f, dot(d, lamp) > 0.9 ? 2.0f : 0.0f,
                                        dot(d, sun) > 0.86 ? 1.0f : 0.0f};
                      }});
    lights.push_back({"band-limited point", [=](Vector const& d) {
                          return Float3{static_cast<float>(softPoint(dot(d, sun))),
                                        static_cast<float>(softPoint(dot(d, lamp))),
                                        static_cast<float>(softPoint(d[2]))};
                      }});
    lights.push_back({"sky with sun", [=](Vector const& d) {
                          double const sky = d[2] > 0.0 ? 0.5 + 0.5 * d[2] : 0.1;
                          double const disc = dot(d, sun) > 0.99 ? 60.0 : 0.0;
                          return Float3{static_cast<float>(0.5 * sky + disc),
                                        static_cast<float>(0.7 * sky + disc),
                                        static_cast<float>(sky + 0.8 * disc)};
                      }});
    // Points of random brightness, sums of all harmonics to degree 20.
    lights.push_back({"random harmonics", [](Vector const& d) {
                          Random random(77);
                          auto const next = [&] { return static_cast<double>(random()) * 0x1p-31 - 1.0; };
                          std::array<double, 3> sum{3.0, 3.0, 3.0};
                          for (int i = 0; i < 60; ++i) {
                              Vector const at = normalised({next(), next(), next()});
                              double const value = softPoint(dot(d, at)) * next();
                              sum[std::size_t(i % 3)] += value;
                          }
                          return Float3{static_cast<float>(sum[0]), static_cast<float>(sum[1]),
                                        static_cast<float>(sum[2])};
                      }});
    return lights;
}

/// Radiance that a surface facing `normal` sends back along it: the sum over the map's grid.
std::array<double, 3> radianceByHand(TypedImage<Float3> const& map, Vector const& normal,
                                     std::function<double(double)> const& lobe)
{
    std::array<double, 3> sum{};
    for (int r = 0; r < 100; ++r)
        for (int x = 0; x < 200; ++x) {
            double const cosine = dot(gridDirection(x, r), normal);
            if (cosine <= 0.0)
                continue;
            double const weight = lobe(cosine) * std::sin(r * pi / 100) * (pi / 100) * (pi / 100);
            Float3 const& p = map.pixels()[200 * r + x];
            sum[0] += weight * p.r;
            sum[1] += weight * p.g;
            sum[2] += weight * p.b;
        }
    return sum;
}

/// Relative rms difference between a specular map and the integral, over every 17th column and 9th row.
double relativeError(TypedImage<Float3> const& map, TypedImage<Float3> const& probe,
                     std::function<double(double)> const& lobe)
{
    double difference = 0.0;
    double total = 0.0;
    for (int r = 0; r < 100; r += 9)
        for (int x = 0; x < 200; x += 17) {
            auto const expected = radianceByHand(probe, gridDirection(x, r), lobe);
            Float3 const& p = map.pixels()[200 * r + x];
            std::array<double, 3> const actual{p.r, p.g, p.b};
            for (std::size_t c = 0; c < 3; ++c) {
                double const e = std::max(expected[c], 0.0);
                difference += (actual[c] - e) * (actual[c] - e);
                total += e * e;
            }
        }
    return std::sqrt(difference / total);
}

/// The column and row of the brightest red.
Size brightestPixel(TypedImage<Float3> const& image)
{
    auto const pixels = pixelsOf<Float3>(image);
    auto const at = std::max_element(pixels.begin(), pixels.end(),
                                     [](Float3 const& a, Float3 const& b) { return a.r < b.r; });
    auto const index = static_cast<int>(at - pixels.begin());
    return {index % image.width(), index / image.width()};
}

}  // namespace

// --- Probes ---

TEST_F(ImageBasedLightingTest, StartsWithoutProbeLightAndMaps)
{
    ImageBasedLighting lighting;
    EXPECT_FALSE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);

    Irradiance irradiance;
    irradiance.green(1, 1) = 3.0;
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_EQ(irradiance, Irradiance());

    Counted const lobe(1);
    EXPECT_EQ(lighting.getSpecularMap(lobe, nullptr), nullptr);
    EXPECT_EQ(lobe.count(), 0);
    lighting.updateLightCoeffs(nullptr);
    lighting.markSpecularMapUsed(1);
    lighting.markAllSpecularMapsUnused();
    lighting.deleteUnusedSpecularMaps();
}

TEST_F(ImageBasedLightingTest, TakesLatLongMapsAndVerticalCrosses)
{
    for (Size const size : {Size{64, 32}, Size{2, 1}, Size{48, 64}, Size{3, 4}}) {
        auto const image = randomImage<Float3>(size, 1);
        ImageBasedLighting lighting;
        koUtil::Error error(7, "from before");
        lighting.setLightProbe(image.get(), error);
        EXPECT_TRUE(lighting.haveUsableLightProbe()) << size;
        ASSERT_NE(lighting.getReflectionMap(), nullptr);
        EXPECT_EQ(lighting.getReflectionMap()->image(), image.get());
        EXPECT_EQ(error.code(), 7) << "an error is passed on, the lack of one is not";
    }
}

TEST_F(ImageBasedLightingTest, RefusesSpheres)
{
    auto const image = randomImage<Float3>({32, 32}, 1);
    ImageBasedLighting lighting;
    koUtil::Error error;
    lighting.setLightProbe(image.get(), error);
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.message(),
              "Image based lighting only supports vertical cross and latitude-longitude environment maps.");
    EXPECT_FALSE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(image->referenceCount(), 1u);
}

TEST_F(ImageBasedLightingTest, RefusesSizesThatAreNoMap)
{
    for (Size const size : {Size{30, 20}, Size{64, 48}, Size{0, 0}, Size{-2, -1}}) {
        auto const image = imageOf<Float3>(size);
        ImageBasedLighting lighting;
        koUtil::Error error;
        lighting.setLightProbe(image.get(), error);
        EXPECT_EQ(error.code(), 1) << size;
        EXPECT_EQ(error.message(),
                  "The image you have specified is not a recognized environment map shape.Please consult the "
                  "documentation for descriptions of the supported types.");
        EXPECT_FALSE(lighting.haveUsableLightProbe());
        EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    }
}

TEST_F(ImageBasedLightingTest, DropsTheProbeForNullAndClearsTheError)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    koUtil::Error error(3, "old");
    lighting.setLightProbe(nullptr, error);
    EXPECT_EQ(error.code(), 0);
    EXPECT_EQ(error.message(), "");
    EXPECT_FALSE(lighting.haveUsableLightProbe());
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    EXPECT_EQ(image->referenceCount(), 1u);
}

TEST_F(ImageBasedLightingTest, ARefusedProbeDropsTheOneBefore)
{
    auto const image = someProbe();
    auto const sphere = randomImage<Float3>({8, 8}, 1);
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Irradiance irradiance;
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_NE(irradiance, Irradiance());

    koUtil::Error error;
    lighting.setLightProbe(sphere.get(), error);
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(lighting.getReflectionMap(), nullptr);
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_EQ(irradiance, Irradiance());
}

TEST_F(ImageBasedLightingTest, ComputesEverythingAnewForAnotherProbe)
{
    auto const first = someProbe();
    auto const second = randomImage<Float3>({64, 32}, 2);
    Counted const lobe(5);
    ImageBasedLighting lighting;
    setProbe(lighting, first.get());
    MapRef const before = lighting.getSpecularMap(lobe, nullptr);
    Irradiance irradianceBefore;
    lighting.getIrradiance(irradianceBefore, nullptr);

    setProbe(lighting, second.get());
    Irradiance irradiance;
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_NE(irradiance, irradianceBefore);
    MapRef const after = lighting.getSpecularMap(lobe, nullptr);
    EXPECT_EQ(lobe.count(), 2);
    EXPECT_FALSE(samePixels(*before->image(), *after->image()));
}

// --- The reduced probe ---

TEST_F(ReducedProbe, IsALatLongMapResizedAndBlurredWhereItIsWide)
{
    for (int const width : {2, 64, 200, 400, 402, 1000}) {
        SCOPED_TRACE(width);
        auto const image = randomImage<Float3>({width, width / 2}, 3);
        MapRef const probe = newEnvironmentMap(*image);

        ko::Reference<Image> expected;
        if (width > 400) {
            auto const blurred = imageOf<Float3>({0, 0});
            imageBlur(*image, *blurred, width / 200 + 1, false, false);
            expected = resize(*blurred, 200, 100, true);
        } else {
            expected = resize(*image, 200, 100, true);
        }
        MapRef const map = reducedProbe(*probe);
        EXPECT_EQ(map->mapType(), EnvironmentMapType::LatLong);
        EXPECT_TRUE(samePixels(*expected, *map->image()));
    }
}

TEST_F(ReducedProbe, IsRemappedFromACross)
{
    auto const image = randomImage<Float3>({48, 64}, 3);
    MapRef const probe = newEnvironmentMap(*image);
    auto const expected = imageOf<Float3>({200, 100});
    MapRef const expectedMap = newEnvironmentMap(*expected);
    remap(*probe, *expectedMap);

    MapRef const map = reducedProbe(*probe);
    EXPECT_EQ(map->mapType(), EnvironmentMapType::LatLong);
    EXPECT_TRUE(samePixels(*expected, *map->image()));
    EXPECT_TRUE(map->image()->wrapHorizontal());
    EXPECT_FALSE(map->image()->wrapVertical());
}

TEST_F(ReducedProbe, IsBlackWithoutPixels)
{
    for (Size const size : {Size{64, 32}, Size{1000, 500}, Size{3, 4}}) {
        ImageRef<Float3> const image(new TypedImage<Float3>);
        image->borrow(nullptr, size.width, size.height);
        MapRef const probe = newEnvironmentMap(*image);
        MapRef const map = reducedProbe(*probe);
        ASSERT_EQ(map->image()->width(), 200);
        ASSERT_EQ(map->image()->height(), 100);
        EXPECT_TRUE(isBlack(imageIn(map.get()))) << size;
    }
    // 2^32 pixels by its size, none in its array.
    ImageRef<Float3> const wide(new TypedImage<Float3>);
    wide->borrow(nullptr, 92682, 46341);
    MapRef const wideProbe = newEnvironmentMap(*wide);
    MapRef const wideMap = reducedProbe(*wideProbe);
    EXPECT_TRUE(isBlack(imageIn(wideMap.get())));

    MapRef const noImage(new LatLongMap(8, 4));
    MapRef const noImageMap = reducedProbe(*noImage);
    EXPECT_TRUE(isBlack(imageIn(noImageMap.get())));
    auto const half = randomImage<Half4>({8, 4}, 1);
    MapRef const otherType = newEnvironmentMap(*half);
    MapRef const otherMap = reducedProbe(*otherType);
    EXPECT_TRUE(isBlack(imageIn(otherMap.get())));
}

// --- Light ---

TEST_F(ImageBasedLightingTest, HasTheIrradianceOfTheReducedProbe)
{
    for (Size const size : {Size{64, 32}, Size{48, 64}, Size{600, 300}}) {
        auto const image = randomImage<Float3>(size, 4);
        ImageBasedLighting lighting;
        setProbe(lighting, image.get());
        Irradiance irradiance;
        EXPECT_EQ(lighting.getReducedProbe(), nullptr);
        lighting.getIrradiance(irradiance, nullptr);

        MapRef const reduced = reducedProbe(*lighting.getReflectionMap());
        ASSERT_NE(lighting.getReducedProbe(), nullptr);
        EXPECT_TRUE(samePixels(*reduced->image(), *lighting.getReducedProbe()->image()));
        IrradianceAlg alg;
        alg.accumulate(*reduced);
        Irradiance expected;
        alg.getIrradiance(expected);
        EXPECT_EQ(irradiance, expected) << size;
        EXPECT_NE(irradiance, Irradiance());

        koUtil::Error error;
        lighting.setLightProbe(nullptr, error);
        EXPECT_EQ(lighting.getReducedProbe(), nullptr);
    }
}

TEST_F(ImageBasedLightingTest, HasNoLightWhereTheMatricesCannotBeRead)
{
    ImageBasedLighting::setRotationMatrixFilename("/nowhere/matrices.txt");
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Counted const lobe(1);

    ::testing::internal::CaptureStdout();
    Irradiance irradiance;
    irradiance.red(0, 0) = 1.0;
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Failed to load spherical harmonic matrix file /nowhere/matrices.txt.\n");
    EXPECT_EQ(irradiance, Irradiance());

    // Nothing is kept, so the same call succeeds when there is a file.
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(lighting.getSpecularMap(lobe, nullptr), nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Failed to load spherical harmonic matrix file /nowhere/matrices.txt.\n");
    EXPECT_EQ(lobe.count(), 0);
    EXPECT_TRUE(lighting.haveUsableLightProbe());

    ImageBasedLighting::setRotationMatrixFilename(matrixFile());
    EXPECT_NE(lighting.getSpecularMap(lobe, nullptr), nullptr);
    lighting.getIrradiance(irradiance, nullptr);
    EXPECT_NE(irradiance, Irradiance());
}

TEST_F(ImageBasedLightingTest, ReadsTheMatricesAgainWhenTheyHaveBeenReleased)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Counted const first(1);
    Counted const second(2);
    MapRef const before = lighting.getSpecularMap(first, nullptr);
    ASSERT_TRUE(before);

    finalizeReflectance();
    ImageBasedLighting::setRotationMatrixFilename("/nowhere/matrices.txt");
    EXPECT_EQ(lighting.getSpecularMap(second, nullptr), nullptr);
    EXPECT_EQ(lighting.getSpecularMap(first, nullptr), before.get());

    ImageBasedLighting::setRotationMatrixFilename(matrixFile());
    MapRef const after = lighting.getSpecularMap(second, nullptr);
    ASSERT_TRUE(after);
    EXPECT_TRUE(samePixels(*before->image(), *after->image()));
}

TEST_F(ImageBasedLightingTest, MakesFiniteMapsOfShortAndDamagedMatrixFiles)
{
    std::string const name = matrixFile() + ".damaged";
    std::string whole;
    {
        std::ifstream in(matrixFile(), std::ios::binary);
        whole.assign(std::istreambuf_iterator<char>(in), {});
    }
    auto const image = someProbe();
    std::string noise = whole.substr(0, 1000000);
    for (std::size_t at = 5000; at < noise.size(); at += 9973)
        noise[at] = static_cast<char>('!' + at % 90);
    for (std::string const& content : {std::string(), std::string("no numbers"), whole.substr(0, 1),
                                       whole.substr(0, whole.size() / 2), noise}) {
        std::ofstream(name, std::ios::binary) << content;
        finalizeReflectance();
        ImageBasedLighting::setRotationMatrixFilename(name);
        ImageBasedLighting lighting;
        setProbe(lighting, image.get());
        Counted const lobe(1);
        EnvironmentMap const* const map = lighting.getSpecularMap(lobe, nullptr);
        ASSERT_NE(map, nullptr);
        EXPECT_TRUE(isFinite(imageIn(map)));
    }
    EXPECT_NE(verifyRotationMatrixFile(name.c_str()).code(), 0) << "the check tells such files";
    std::remove(name.c_str());
}

TEST_F(ImageBasedLightingTest, TellsHowFarItIsAndWhichStagesAreDone)
{
    class Recorder final : public koUtil::Progress {
    public:
        void set(double fraction) override { fractions.push_back(fraction); }
        std::vector<double> fractions;
    };
    static std::vector<std::string> labels;
    labels.clear();
    auto const observer = observeCheckpoints([](char const* label) { labels.emplace_back(label); });

    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Recorder recorder;
    Counted const lobe(1);
    lighting.getSpecularMap(lobe, &recorder);

    // Loading the matrices comes first, from 0 to 1.
    std::vector<double> const map = {0.1, 0.4, 0.5, 0.75, 0.9, 1.0};
    ASSERT_GE(recorder.fractions.size(), map.size() + 2);
    EXPECT_TRUE(std::equal(map.rbegin(), map.rend(), recorder.fractions.rbegin()));
    EXPECT_EQ(recorder.fractions.front(), 0.0);
    EXPECT_EQ(*(recorder.fractions.end() - 7), 1.0);

    std::vector<std::string> const expected = {"irradiance",  "lighting coeffs", "brdf sampling",
                                               "brdf coeffs", "order analysis",  "convolution",
                                               "create shrm", "warped shrm",     "view-dependent texture"};
    std::erase(labels, "spherical harmonics setup");
    EXPECT_EQ(labels, expected);

    // What is kept takes no work.
    recorder.fractions.clear();
    labels.clear();
    lighting.getSpecularMap(lobe, &recorder);
    EXPECT_TRUE(recorder.fractions.empty());
    EXPECT_TRUE(labels.empty());
    observeCheckpoints(observer);
}

// --- Specular maps ---

TEST_F(SpecularMaps, AreThePipelineOneStepAfterTheOther)
{
    auto const image = randomImage<Float3>({48, 64}, 6);
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    PhongLobe const lobe(20.0, {1.0, 0.5, 2.0});
    EnvironmentMap const* const map = lighting.getSpecularMap(lobe, nullptr);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(map->mapType(), EnvironmentMapType::LatLong);
    EXPECT_FLOAT_EQ(static_cast<LatLongMap const*>(map)->omegaFactor(), float(pi * pi / 10000));
    EXPECT_EQ(map->image()->invWidth(), 0.005f);
    EXPECT_EQ(map->image()->invHeight(), 0.01f);

    MapRef const reduced = reducedProbe(*lighting.getReflectionMap());
    SphericalHarmonics<Double3> light(20);
    computeLightCoeffs(imageIn(reduced.get()), light);
    ReflectanceSamples samples(100, 100, 200);
    Double3 const energy = lobe.sample(samples);
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    computeBrdfCoeffs(samples, brdf, 10);
    int lightOrder = 0;
    int brdfOrder = 0;
    computeOrder(light, brdf, energy, lightOrder, brdfOrder);
    ImageRef<HarmonicsPixel> const reflection(new TypedImage<HarmonicsPixel>);
    computeReflectionCoeffs(light, brdf, lightOrder, brdfOrder, *reflection, nullptr);
    auto const expected = imageOf<Float3>({0, 0});
    double const view[3] = {0.0, 0.0, 1.0};
    computeSpecularMap(*reflection, view, 10, 1.0, *expected);
    EXPECT_TRUE(samePixels(*expected, *map->image()));
    EXPECT_FALSE(isBlack(*expected));
}

TEST_F(SpecularMaps, AreComputedOnceForEachKey)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Counted const lobe(1);
    Counted const sameKey(1);
    Counted const otherKey(-2);
    EnvironmentMap* const map = lighting.getSpecularMap(lobe, nullptr);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(lighting.getSpecularMap(lobe, nullptr), map);
    EXPECT_EQ(lighting.getSpecularMap(sameKey, nullptr), map);
    EXPECT_EQ(lobe.count(), 1);
    EXPECT_EQ(sameKey.count(), 0);
    EXPECT_NE(lighting.getSpecularMap(otherKey, nullptr), map);
    EXPECT_EQ(otherKey.count(), 1);
}

TEST_F(SpecularMaps, AreNullForFunctionsWithoutASpecularPartWhichAreNotSampledAgain)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    int key = 0;
    for (Double3 const colour : {Double3{0, 1, 1}, Double3{1, 0, 1}, Double3{1, 1, 0}, Double3{0, 0, 0}}) {
        Counted const lobe(++key, colour);
        EXPECT_EQ(lighting.getSpecularMap(lobe, nullptr), nullptr);
        EXPECT_EQ(lighting.getSpecularMap(lobe, nullptr), nullptr);
        EXPECT_EQ(lobe.count(), 1);
    }
}

TEST_F(SpecularMaps, AreDeletedUnlessTheyAreMarkedUsed)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Counted const fresh(1);
    Counted const found(2);
    Counted const marked(3);
    Counted const dark(4, {0.0, 0.0, 0.0});
    for (ReflectanceFunction const* lobe :
         std::initializer_list<ReflectanceFunction const*>{&fresh, &found, &marked, &dark})
        lighting.getSpecularMap(*lobe, nullptr);

    // A new map is not marked; one that is found again is.
    lighting.getSpecularMap(found, nullptr);
    lighting.markSpecularMapUsed(3);
    lighting.markSpecularMapUsed(12345);
    lighting.deleteUnusedSpecularMaps();
    for (Counted const* lobe : {&fresh, &found, &marked, &dark})
        lighting.getSpecularMap(*lobe, nullptr);
    EXPECT_EQ(fresh.count(), 2);
    EXPECT_EQ(found.count(), 1);
    EXPECT_EQ(marked.count(), 1);
    EXPECT_EQ(dark.count(), 2);

    // All marks gone, all maps are.
    lighting.markAllSpecularMapsUnused();
    lighting.deleteUnusedSpecularMaps();
    lighting.getSpecularMap(marked, nullptr);
    EXPECT_EQ(marked.count(), 2);
}

TEST_F(SpecularMaps, OutliveTheObjectForWhoHoldsThem)
{
    auto const image = someProbe();
    Counted const lobe(1);
    MapRef map;
    {
        ImageBasedLighting lighting;
        setProbe(lighting, image.get());
        map = lighting.getSpecularMap(lobe, nullptr);
        EXPECT_EQ(map->referenceCount(), 2u);
    }
    EXPECT_EQ(map->referenceCount(), 1u);
    EXPECT_EQ(image->referenceCount(), 1u);
    EXPECT_EQ(map->image()->width(), 200);
}

TEST_F(SpecularMaps, AreKeptByTheStrongestAndWeakestKeys)
{
    auto const image = someProbe();
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    for (int const key : {std::numeric_limits<int>::min(), 0, std::numeric_limits<int>::max()}) {
        Counted const dark(key, {0.0, 0.0, 0.0});
        lighting.getSpecularMap(dark, nullptr);
        lighting.getSpecularMap(dark, nullptr);
        EXPECT_EQ(dark.count(), 1);
    }
}

// --- Hostile probes ---

TEST_F(VerifyLightProbe, PassesWhatMapsCanBeMadeOf)
{
    for (Size const size : {Size{64, 32}, Size{2, 1}, Size{48, 64}}) {
        auto const image = randomImage<Float3>(size, 1);
        image->pixels()[1] = {-5.0f, 0.0f, 9e29f};
        EXPECT_EQ(verifyLightProbe(*image).code(), 0);
        EXPECT_EQ(image->referenceCount(), 1u);
        EXPECT_FALSE(image->wrapHorizontal()) << "the image is only looked at";
    }
}

TEST_F(VerifyLightProbe, NamesTheFirstPixelThatIsNotFinite)
{
    auto const image = someProbe();
    image->pixels()[70].g = std::numeric_limits<float>::quiet_NaN();
    image->pixels()[71].b = -std::numeric_limits<float>::infinity();
    koUtil::Error error = verifyLightProbe(*image);
    EXPECT_EQ(error.code(), 1);
    EXPECT_NE(error.message().find("(6, 1)"), std::string::npos) << error.message();
    EXPECT_NE(error.message().find("nan"), std::string::npos) << error.message();
    image->pixels()[70].g = 1.0f;
    error = verifyLightProbe(*image);
    EXPECT_NE(error.message().find("(7, 1)"), std::string::npos) << error.message();
    EXPECT_NE(error.message().find("-inf"), std::string::npos) << error.message();
    image->pixels()[71].b = 1e30f;
    EXPECT_EQ(verifyLightProbe(*image).code(), 1);
    image->pixels()[71].b = -0.0f;
    EXPECT_EQ(verifyLightProbe(*image).code(), 0);
}

TEST_F(VerifyLightProbe, RefusesOtherShapesAndMissingPixels)
{
    for (Size const size : {Size{32, 32}, Size{30, 20}, Size{0, 0}, Size{-4, -2}, Size{-2, -1}})
        EXPECT_EQ(verifyLightProbe(*imageOf<Float3>(size)).code(), 1) << size;
    ImageRef<Float3> const image(new TypedImage<Float3>);
    image->borrow(nullptr, 64, 32);
    koUtil::Error const error = verifyLightProbe(*image);
    EXPECT_EQ(error.code(), 1);
    EXPECT_NE(error.message().find("64 x 32"), std::string::npos) << error.message();
}

TEST_F(VerifyLightProbe, RefusesEveryProbeThatGivesAMapThatIsNotFinite)
{
    std::vector<ImageRef<Float3>> probes;
    float const large = 9e29f;
    for (Size const size : {Size{2, 1}, Size{64, 32}, Size{600, 300}, Size{48, 64}}) {
        for (float const value :
             {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
              std::numeric_limits<float>::max(), large, -large, -1.0f}) {
            probes.push_back(randomImage<Float3>(size, 1));
            probes.back()->pixels()[1].g = value;
        }
        probes.push_back(imageOf<Float3>(size));
        std::fill_n(probes.back()->pixels(), size.width * size.height, Float3{large, -large, large});
        probes.push_back(hostileImage<Float3>(size, 1));
    }
    Lambert const lobe;
    int accepted = 0;
    for (auto const& probe : probes) {
        SCOPED_TRACE(probe->width());
        ImageBasedLighting lighting;
        setProbe(lighting, probe.get());
        lighting.updateLightCoeffs(nullptr);
        if (verifyLightProbe(*probe).code() != 0)
            continue;
        ++accepted;
        EXPECT_TRUE(isFinite(imageIn(lighting.getSpecularMap(lobe, nullptr))));
        Irradiance irradiance;
        lighting.getIrradiance(irradiance, nullptr);
        EXPECT_TRUE(std::all_of(irradiance.green.data(), irradiance.green.data() + 16,
                                [](double element) { return std::isfinite(element); }));
    }
    EXPECT_EQ(accepted, 16);
}

// --- Physics ---

TEST_F(SpecularMaps, AgreeWithTheIntegralOverTheProbe)
{
    // The sums of the grid leave half a percent, and what lies beyond degree 20 is lost: the more the sharper
    // the lobe.
    struct Case {
        double exponent;
        double bound;
    };
    for (NamedLight const& light : physicalLights()) {
        auto const image = probeOf({200, 100}, light.light);
        ImageBasedLighting lighting;
        setProbe(lighting, image.get());
        MapRef const reduced = reducedProbe(*lighting.getReflectionMap());
        int key = 0;
        for (Case const c : {Case{1, 0.008}, Case{5, 0.010}, Case{20, 0.014}, Case{50, 0.019}}) {
            PhongLobe lobe(c.exponent);
            lobe.setKey(++key);
            EnvironmentMap const* const map = lighting.getSpecularMap(lobe, nullptr);
            double const error = relativeError(imageIn(map), imageIn(reduced.get()), [&](double cosine) {
                return (c.exponent + 1) / (2 * pi) * std::pow(cosine, c.exponent);
            });
            EXPECT_LE(error, c.bound) << light.name << ", exponent " << c.exponent;
            RecordProperty(std::string(light.name) + " " + std::to_string(int(c.exponent)),
                           std::to_string(error));
        }
    }
}

TEST_F(SpecularMaps, AreBrightestInTheDirectionOfTheLight)
{
    // Pixel (x, y) of a map stands for a grid direction, half a pixel beside its centre.
    auto const directionOf = [](Size pixel) { return gridDirection(pixel.width, pixel.height); };
    for (Vector const sun :
         {normalised({0.5, -0.7, 0.4}), normalised({-0.6, 0.3, 0.1}), normalised({0.2, 0.9, -0.6}),
          normalised({-1.0, 0.0, 0.0}), normalised({0.1, 0.1, 0.9})}) {
        auto const image =
            probeOf({400, 200}, [&](Vector const& d) { return grey(dot(d, sun) > 0.995 ? 100.0 : 0.1); });
        ImageBasedLighting lighting;
        setProbe(lighting, image.get());
        EnvironmentMap const* const map = lighting.getSpecularMap(PhongLobe(20.0), nullptr);
        Vector const brightest = directionOf(brightestPixel(imageIn(map)));
        // Within two pixels of 1.8 degrees.
        EXPECT_GT(dot(brightest, sun), std::cos(3.6 * pi / 180)) << "sun " << sun[0] << ", " << sun[1];
    }
}

TEST_F(SpecularMaps, AreTooBrightWhereTheReflectanceIsCutOffAtTheHorizonOfTheViewer)
{
    auto const image = imageOf<Float3>({200, 100});
    std::fill_n(image->pixels(), 20000, Float3{1.0f, 1.0f, 1.0f});
    ImageBasedLighting lighting;
    setProbe(lighting, image.get());
    Lambert smooth;
    CallableReflectance cut([](double in, double out, double) {
        double const value = out < pi / 2 ? std::max(0.0, std::cos(in)) / pi : 0.0;
        return Double3{value, value, value};
    });
    smooth.setKey(1);
    cut.setKey(2);
    Float3 const right = imageIn(lighting.getSpecularMap(smooth, nullptr)).pixels()[10100];
    Float3 const wrong = imageIn(lighting.getSpecularMap(cut, nullptr)).pixels()[10100];
    EXPECT_NEAR(right.r, 1.0, 0.008);
    EXPECT_NEAR(wrong.r, 1.13, 0.02);
}

}  // namespace koImage
