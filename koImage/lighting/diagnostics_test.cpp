// Every file is read back, and its numbers are computed again from the definition of the map.

#include "koImage/lighting/diagnostics.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/lighting/specular_map.h"
#include "koImage/testing/lighting_by_hand.h"
#include "koImage/testing/loaded_rotations.h"
#include "koImage/testing/test_images.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace koImage {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr double pi = std::numbers::pi;

using Vector = std::array<double, 3>;

double dot(Vector const& a, Vector const& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector unit(Vector const& a)
{
    double const length = std::sqrt(dot(a, a));
    return {a[0] / length, a[1] / length, a[2] / length};
}

/// The axes of a surface's frame in the world: where the next row faces, where the next column faces, the
/// normal. Its tilt is counted from the nadir, its turn from +y over +x.
struct Frame {
    Vector x, y, normal;

    Frame(TypedImage<HarmonicsPixel> const& map, int column, int t)
    {
        double const theta = t * pi / map.height();
        double const phi = column * 2 * pi / map.width();
        normal = {std::sin(phi) * std::sin(theta), std::cos(phi) * std::sin(theta), -std::cos(theta)};
        x = {std::sin(phi) * std::cos(theta), std::cos(phi) * std::cos(theta), std::sin(theta)};
        y = {std::cos(phi), -std::sin(phi), 0};
    }

    Vector inside(Vector const& v) const { return {dot(x, v), dot(y, v), dot(normal, v)}; }
};

/// The expansion of a pixel at a direction in its frame, negative light as 0.
Channels lightByHand(TypedImage<HarmonicsPixel> const& map, int index, Vector const& local, int order = 10)
{
    int const width = map.width();
    int const height = map.height();
    double phi = std::atan2(local[1], local[0]);
    if (phi < 0)
        phi += 2 * pi;
    double const t =
        std::clamp(std::acos(std::clamp(local[2], -1.0, 1.0)) / pi * height, 0.0, height - 1.0001);
    double const s = std::clamp(phi / (2 * pi) * width, 0.0, width - 1.0001);
    Channels sum;
    for (int l = 0; l <= order; ++l)
        for (int m = -l; m <= l; ++m)
            sum.add(HarmonicsByHand::get().Y(l, m, t, s), map.pixels()[index].at(l, m));
    for (double& channel : sum.c)
        channel = std::max(channel, 0.0);
    return sum;
}

/// Light around 0.5, with some of all degrees, so that few levels are cut off.
ImageRef<HarmonicsPixel> someMap(Size size = {200, 100}, std::uint32_t seed = 1)
{
    auto map = imageOf<HarmonicsPixel>(size);
    Random random(seed);
    for (HarmonicsPixel& pixel : pixelsOf<HarmonicsPixel>(*map)) {
        for (int k = 0; k < 121; ++k) {
            double const size_ = k == 0 ? 1.0 : 0.05;
            pixel[k] = {size_ * (randomChannel<double>(random) - 1) + (k == 0 ? 1.5 : 0.0),
                        size_ * (randomChannel<double>(random) - 1) + (k == 0 ? 1.5 : 0.0),
                        size_ * (randomChannel<double>(random) - 1) + (k == 0 ? 1.5 : 0.0)};
        }
    }
    return map;
}

/// Light that does not depend on the view: of each pixel, what `light` says for its normal.
ImageRef<HarmonicsPixel> mapOf(Size size, std::function<Channels(Vector const& normal)> const& light)
{
    auto map = imageOf<HarmonicsPixel>(size);
    for (int t = 0; t < size.height; ++t)
        for (int x = 0; x < size.width; ++x) {
            Channels value;
            value.add(std::sqrt(4 * pi), light(Frame(*map, x, t).normal));
            map->pixels()[t * size.width + x] = HarmonicsPixel();
            map->pixels()[t * size.width + x][0] = value;
        }
    return map;
}

std::string contentOf(std::string const& file)
{
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A picture that was written; the first row is the upper one.
struct Ppm {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> levels;

    explicit Ppm(std::string const& file)
    {
        std::string const content = contentOf(file);
        int begin = 0;
        EXPECT_EQ(std::sscanf(content.c_str(), "P6\n%d %d\n255%n", &width, &height, &begin), 2) << file;
        std::string const header = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
        EXPECT_EQ(content.substr(0, header.size()), header) << file;
        levels.assign(content.begin() + static_cast<std::ptrdiff_t>(std::min(header.size(), content.size())),
                      content.end());
        EXPECT_EQ(levels.size(), 3 * std::size_t(width) * std::size_t(height)) << file;
    }

    std::array<int, 3> at(int column, int row) const
    {
        auto const i = 3 * (std::size_t(row) * std::size_t(width) + std::size_t(column));
        return {levels[i], levels[i + 1], levels[i + 2]};
    }
};

/// Of light without rounding: 127.9999 and 128.0001 may be either level.
::testing::AssertionResult shows(std::array<int, 3> const& levels, Channels const& light)
{
    for (std::size_t c = 0; c < 3; ++c)
        if (std::abs(levels[c] - 255 * std::clamp(light.c[c], 0.0, 1.0)) > 0.5001)
            return ::testing::AssertionFailure()
                   << "channel " << c << " has level " << levels[c] << ", not " << 255 * light.c[c];
    return ::testing::AssertionSuccess();
}

/// A .shrm file that was written.
struct Shrm {
    std::array<std::vector<double>, 3> text;
    std::vector<int> samples;

    explicit Shrm(std::string const& file)
    {
        std::string const content = contentOf(file);
        std::size_t begin = 0;
        for (auto& line : text) {
            std::size_t const end = content.find('\n', begin);
            if (end == std::string::npos)
                throw std::runtime_error(file + ": three lines of text are missing");
            EXPECT_EQ(content[end - 1], ' ') << file;
            std::istringstream words(content.substr(begin, end - begin));
            for (std::string word; words >> word;)
                line.push_back(std::strtod(word.c_str(), nullptr));
            begin = end + 1;
        }
        for (; begin + 1 < content.size(); begin += 2)
            samples.push_back(static_cast<unsigned char>(content[begin]) * 256 +
                              static_cast<unsigned char>(content[begin + 1]));
        EXPECT_EQ(begin, content.size()) << file;
    }

    /// The sample of a channel's coefficient as a number.
    double at(int pixel, int channel, int k) const
    {
        return (samples[(std::size_t(pixel) * 3 + std::size_t(channel)) * 121 + std::size_t(k)] - 32768) /
               32767.0;
    }
};

double channelOf(Double3 const& value, int channel)
{
    return channel == 0 ? value.r : channel == 1 ? value.g : value.b;
}

/// Works in a folder of its own.
class Diagnostics : public ::testing::Test {
protected:
    Diagnostics() : before_(std::filesystem::current_path())
    {
        std::string name = (std::filesystem::temp_directory_path() / "koImage.XXXXXX").string();
        folder_ = mkdtemp(name.data());
        std::filesystem::current_path(folder_);
    }
    ~Diagnostics() override
    {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(folder_);
    }

    static std::vector<std::string> names()
    {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator("."))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path before_;
    std::filesystem::path folder_;
};

void expectDone(koUtil::Error const& error)
{
    EXPECT_FALSE(error) << error.message();
}

}  // namespace

// --- Listing ---

TEST_F(Diagnostics, ListTheCoefficientsThatHaveAMeaning)
{
    auto const coeffs = std::make_unique<double[][21][21][21]>(1);
    std::string expected;
    int lines = 0;
    for (int l = 0; l <= 20; ++l)
        for (int p = 0; p <= 20; ++p)
            for (int q = 0; q <= 20; ++q) {
                double const value = (l - 10) * 1e4 + p * 100 + q + 0.123456;
                coeffs[0][l][p][q] = value;
                if (q > p || q > l)
                    continue;
                std::array<char, 80> line;
                std::snprintf(line.data(), line.size(), "%4d %4d %4d %12.6lf\n", l, p, q, value);
                expected += line.data();
                ++lines;
            }
    EXPECT_EQ(lines, 3311);

    ::testing::internal::CaptureStdout();
    printBrdfCoeffs(coeffs[0]);
    std::string const printed = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(printed == expected) << printed.substr(0, 200);
    EXPECT_EQ(printed.substr(0, 28), "   0    0    0 -99999.876544");
    EXPECT_THAT(names(), IsEmpty());
}

// --- Coefficient files ---

TEST_F(Diagnostics, WriteTheCoefficientsOfEveryPixel)
{
    auto const map = someMap({7, 5});
    double const scale = 0.4;
    expectDone(printshrms("whole", "cube", 4, *map, scale));
    EXPECT_THAT(names(), ElementsAre("cube_nx.shrm", "cube_ny.shrm", "cube_nz.shrm", "cube_px.shrm",
                                     "cube_py.shrm", "cube_pz.shrm", "whole.shrm"));

    Shrm const file("whole.shrm");
    ASSERT_EQ(file.samples.size(), 35u * 363u);
    for (int channel = 0; channel < 3; ++channel) {
        ASSERT_EQ(file.text[std::size_t(channel)].size(), 121u);
        for (int k = 0; k < 121; ++k) {
            double const value = scale * channelOf(map->pixels()[0][k], channel);
            EXPECT_NEAR(file.text[std::size_t(channel)][std::size_t(k)], value, 0.5000001e-6);
            for (int pixel = 0; pixel < 35; ++pixel)
                EXPECT_NEAR(file.at(pixel, channel, k), scale * channelOf(map->pixels()[pixel][k], channel),
                            0.5000001 / 32767)
                    << pixel << ", " << channel << ", " << k;
        }
    }
}

TEST_F(Diagnostics, WriteCoefficientsAsTheDefinitionPrintsThem)
{
    auto const map = imageOf<HarmonicsPixel>({1, 1});
    map->pixels()[0] = HarmonicsPixel();
    map->pixels()[0][0] = {1.5, -0.25, 1e300};
    map->pixels()[0][120] = {-1e-9, 12345678.9, std::nan("")};
    expectDone(printshrms("w", "w", 1, *map, 1.0));

    std::string expected;
    for (auto const& [first, last] : {std::pair{1.5, -1e-9}, {-0.25, 12345678.9}, {1e300, std::nan("")}})
        for (int k = 0; k < 121; ++k) {
            std::array<char, 400> number;
            std::snprintf(number.data(), number.size(), "%lf ", k == 0 ? first : k == 120 ? last : 0.0);
            expected += number.data();
            expected += k == 120 ? "\n" : "";
        }
    std::string const content = contentOf("w.shrm");
    EXPECT_TRUE(content.starts_with(expected)) << content.substr(0, 100);
    ASSERT_EQ(content.size(), expected.size() + 726);
    for (char const* const face :
         {"w_nx.shrm", "w_px.shrm", "w_ny.shrm", "w_py.shrm", "w_nz.shrm", "w_pz.shrm"})
        EXPECT_TRUE(contentOf(face) == content) << face << " of the only pixel that there is";
}

TEST_F(Diagnostics, CutSamplesOffAtTheirEnds)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    auto const map = imageOf<HarmonicsPixel>({1, 1});
    map->pixels()[0] = HarmonicsPixel();
    std::array<std::pair<double, int>, 8> const cases = {{{1.0, 65535},
                                                          {-1.0, 1},
                                                          {7.0, 65535},
                                                          {-1e300, 1},
                                                          {infinity, 65535},
                                                          {-infinity, 1},
                                                          {std::nan(""), 32768},
                                                          {-0.0, 32768}}};
    for (int k = 0; k < 8; ++k)
        map->pixels()[0][k].g = cases[std::size_t(k)].first;
    expectDone(printshrms("w", "w", 1, *map, 1.0));
    Shrm const file("w.shrm");
    for (std::size_t k = 0; k < 8; ++k)
        EXPECT_EQ(file.samples[121 + k], cases[k].second) << cases[k].first;
}

// Each pixel of the map holds its own normal.
TEST_F(Diagnostics, WriteCubesWhosePixelsFaceAsThoseOfACross)
{
    auto const map = imageOf<HarmonicsPixel>({200, 100});
    for (int t = 0; t < 100; ++t)
        for (int x = 0; x < 200; ++x) {
            Vector const n = Frame(*map, x, t).normal;
            map->pixels()[t * 200 + x] = HarmonicsPixel();
            map->pixels()[t * 200 + x][5] = {n[0], n[1], n[2]};
        }
    constexpr int size = 9;
    expectDone(printshrms("w", "c", size, *map, 1.0));

    CrossMap const cross(size, false);
    std::array<char const*, 6> const files = {"c_nx.shrm", "c_px.shrm", "c_nz.shrm",
                                              "c_pz.shrm", "c_ny.shrm", "c_py.shrm"};
    for (int face = 0; face < 6; ++face) {
        Shrm const file(files[std::size_t(face)]);
        ASSERT_EQ(file.samples.size(), std::size_t{size} * size * 363);
        auto const normalOf = [&](float fu, float fv) {
            float u = 0, v = 0;
            cross.cubeToCross(fu, fv, face, u, v);
            koLinear::VectorFlt direction;
            cross.coordToDir(u, v, direction);
            return unit({direction.x, direction.y, direction.z});
        };
        // Half a step in either angle, 0.9 degrees; the zenith is not on the grid, but a step beside it.
        for (int row = 0; row < size; ++row)
            for (int column = 0; column < size; ++column) {
                Vector const n = normalOf((float(column) + 0.5f) / size, (float(row) + 0.5f) / size);
                Vector const found = {file.at(row * size + column, 0, 5), file.at(row * size + column, 1, 5),
                                      file.at(row * size + column, 2, 5)};
                double const atMost = face == 3 ? 1.81 : 1.28;
                EXPECT_GT(dot(n, unit(found)), std::cos(atMost * pi / 180))
                    << face << ' ' << column << ' ' << row;
            }
        Vector const axis = normalOf(0.5f, 0.5f);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(file.text[c][5], axis[c], face == 3 ? 0.032 : 1e-6) << face;
    }
}

// --- Images ---

TEST_F(Diagnostics, WriteTheLevelsOfAnImage)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    auto const image = imageOf<Float3>({2, 3});
    std::array<Float3, 6> const pixels = {{{0, 0.25f, 0.5f},
                                           {1, 2, -1},
                                           {infinity, -infinity, std::nanf("")},
                                           {0.999f, 1e30f, -0.0f},
                                           {1 / 255.0f, 2 / 255.0f, 254 / 255.0f},
                                           {0.4999f / 255, 0.5001f / 255, 1e-40f}}};
    std::copy(pixels.begin(), pixels.end(), image->pixels());
    expectDone(dumpImage("rows", *image, false));
    expectDone(dumpImage("upright", *image, true));
    EXPECT_THAT(names(), ElementsAre("rows.ppm", "upright.ppm"));

    std::vector<std::array<int, 3>> const levels = {{0, 64, 128},  {255, 255, 0}, {255, 0, 0},
                                                    {255, 255, 0}, {1, 2, 254},   {0, 1, 0}};
    Ppm const rows("rows.ppm");
    Ppm const upright("upright.ppm");
    ASSERT_EQ(rows.width, 2);
    ASSERT_EQ(rows.height, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 2; ++x) {
            EXPECT_EQ(rows.at(x, y), levels[std::size_t(2 * y + x)]) << x << ", " << y;
            EXPECT_EQ(upright.at(x, 2 - y), levels[std::size_t(2 * y + x)]) << x << ", " << y;
        }
}

TEST_F(Diagnostics, TakeNoNameForAnEmptyOne)
{
    expectDone(dumpImage(nullptr, *randomImage<Float3>({2, 3}, 1), true));
    expectDone(printshrms(nullptr, nullptr, 1, *someMap({4, 3}), 1));
    EXPECT_THAT(names(), ElementsAre(".ppm", ".shrm", "_nx.shrm", "_ny.shrm", "_nz.shrm", "_px.shrm",
                                     "_py.shrm", "_pz.shrm"));
}

TEST_F(Diagnostics, RefuseWhatHasNoPixels)
{
    for (Size const size : {Size{0, 0}, Size{0, 5}, Size{-2, -3}, Size{65536, 65536}}) {
        TypedImage<Float3> image;
        image.borrow(nullptr, size.width, size.height);
        EXPECT_THAT(dumpImage("image", image, true).message(), HasSubstr("image.ppm")) << size;
    }
    Double3 const view = {0, 0, 1};
    for (Size const size : {Size{0, 0}, Size{200, 100}, Size{-2, -3}, Size{65536, 65536}}) {
        TypedImage<HarmonicsPixel> map;
        map.borrow(nullptr, size.width, size.height);
        EXPECT_THAT(printshrms("w", "c", 4, map, 1).message(), HasSubstr("w.shrm")) << size;
        EXPECT_THAT(dumpimage(map, &view.r, 1).message(), HasSubstr("tmp.ppm")) << size;
        EXPECT_THAT(dumpimageref(map, &view.r, 1).message(), HasSubstr("tmpref.ppm")) << size;
        EXPECT_THAT(dumpimagerefp(map, &view.r, 1).message(), HasSubstr("refp0.ppm")) << size;
        EXPECT_THAT(dumpjbsphere(map, &view.r, 10, 1).message(), HasSubstr("tmpjbsphere.ppm")) << size;
        EXPECT_THAT(dumpimagesphere(map, 0, 0, 1).message(), HasSubstr("tmpfreq.ppm")) << size;
        EXPECT_THAT(dumpimagesphereall(map, 0, 1).message(), HasSubstr("tmpfreq0.ppm")) << size;
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Diagnostics, RefuseWhatIsOutsideTheMap)
{
    auto const map = someMap({4, 3});
    for (auto const& [x, t] : {std::pair{-1, 0}, {4, 0}, {0, -1}, {0, 3}})
        EXPECT_THAT(dumpimagesphere(*map, x, t, 1).message(), HasSubstr("4 x 3")) << x << ", " << t;
    EXPECT_THAT(dumpimagesphereall(*map, -1, 1).message(), HasSubstr("4 x 3"));
    EXPECT_THAT(dumpimagesphereall(*map, 4, 1).message(), HasSubstr("4 x 3"));
    for (int const size : {0, -1, 1025, std::numeric_limits<int>::max()})
        EXPECT_THAT(printshrms("w", "c", size, *map, 1).message(), HasSubstr("1 to 1024")) << size;
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Diagnostics, TellWhichFileCannotBeWritten)
{
    auto const map = someMap({20, 10});
    Double3 const view = {0, 0, 1};
    for (char const* const taken : {"tmp.ppm", "tmpref.ppm", "refp3.ppm", "tmpjbsphere.ppm", "i.ppm",
                                    "tmp3D.ppm", "tmpfreq0.ppm", "c_ny.shrm"})
        std::filesystem::create_directory(taken);
    EXPECT_THAT(dumpimage(*map, &view.r, 1).message(), HasSubstr("tmp.ppm"));
    EXPECT_THAT(dumpimageref(*map, &view.r, 1).message(), HasSubstr("tmpref.ppm"));
    EXPECT_THAT(dumpimagerefp(*map, &view.r, 1).message(), HasSubstr("refp3.ppm"));
    EXPECT_THAT(dumpjbsphere(*map, &view.r, 10, 1).message(), HasSubstr("tmpjbsphere.ppm"));
    EXPECT_THAT(dumpImage("i", *imageOf<Float3>({1, 1}), true).message(), HasSubstr("i.ppm"));
    EXPECT_THAT(dumpimagesphere(*map, 0, 0, 1).message(), HasSubstr("tmp3D.ppm"));
    EXPECT_THAT(dumpimagesphereall(*map, 0, 1).message(), HasSubstr("tmpfreq0.ppm"));
    EXPECT_THAT(printshrms("w", "c", 1, *map, 1).message(), HasSubstr("c_ny.shrm"));
    EXPECT_THAT(printshrms("nowhere/w", "c", 1, *map, 1).message(), HasSubstr("nowhere/w.shrm"));

    for (char const* const before : {"refp2.ppm", "tmpfreq.ppm", "w.shrm", "c_px.shrm"})
        EXPECT_TRUE(std::filesystem::is_regular_file(before)) << before;
    for (char const* const after : {"refp4.ppm", "tmp3D0.ppm", "c_py.shrm"})
        EXPECT_FALSE(std::filesystem::exists(after)) << after;
}

// --- Pictures of a map ---

TEST_F(Diagnostics, ShowEverySurfaceFromTheSameSideOfItsOwn)
{
    auto const map = someMap();
    Double3 const view = {0.3, -0.5, 0.6};
    expectDone(dumpimage(*map, &view.r, 0.7));
    EXPECT_THAT(names(), ElementsAre("tmp.ppm"));

    TypedImage<Float3> expected;
    computeSpecularMap(*map, &view.r, 10, 0.7, expected);
    Ppm const picture("tmp.ppm");
    ASSERT_EQ(picture.width, 200);
    ASSERT_EQ(picture.height, 100);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 200; ++x) {
            Float3 const& light = expected.pixels()[y * 200 + x];
            ASSERT_TRUE(shows(picture.at(x, 99 - y), Double3{light.r, light.g, light.b})) << x << ", " << y;
        }
}

TEST_F(Diagnostics, ShowEverySurfaceFromTheSameSideOfTheWorld)
{
    auto const map = someMap();
    for (Vector const& view : {Vector{0, 0, 1}, Vector{3, -4, 2}, Vector{-1e-200, 2e-200, 0}}) {
        expectDone(dumpimageref(*map, view.data(), 0.8));
        Ppm const picture("tmpref.ppm");
        ASSERT_EQ(picture.width, 200);
        ASSERT_EQ(picture.height, 100);
        Vector const towards = unit({view[0] * 1e100, view[1] * 1e100, view[2] * 1e100});
        for (int t = 0; t < 100; t += 3)
            for (int x = 0; x < 200; ++x) {
                Channels light;
                light.add(0.8, lightByHand(*map, t * 200 + x, Frame(*map, x, t).inside(towards)));
                ASSERT_TRUE(shows(picture.at(x, 99 - t), light)) << x << ", " << t << " from " << view[0];
            }
    }
    EXPECT_THAT(names(), ElementsAre("tmpref.ppm"));
}

TEST_F(Diagnostics, ShowTheExpansionsUpToEachDegree)
{
    auto const map = someMap({40, 20});
    Vector const view = {1, 2, 3};
    expectDone(dumpimagerefp(*map, view.data(), 1));
    EXPECT_EQ(names().size(), 11u);
    for (int p = 0; p <= 10; ++p) {
        auto const cut = someMap({40, 20});
        for (HarmonicsPixel& pixel : pixelsOf<HarmonicsPixel>(*cut))
            for (int k = (p + 1) * (p + 1); k < 121; ++k)
                pixel[k] = {0, 0, 0};
        expectDone(dumpimageref(*cut, view.data(), 1));
        EXPECT_TRUE(contentOf("refp" + std::to_string(p) + ".ppm") == contentOf("tmpref.ppm")) << p;
    }
    EXPECT_FALSE(contentOf("refp0.ppm") == contentOf("refp10.ppm"));
}

TEST_F(Diagnostics, TakeAViewWithoutDirectionForOneFromAbove)
{
    auto const map = someMap({40, 20});
    Vector const above = {0, 0, 1};
    expectDone(dumpimageref(*map, above.data(), 1));
    expectDone(dumpjbsphere(*map, above.data(), 10, 1));
    std::string const picture = contentOf("tmpref.ppm");
    std::string const ball = contentOf("tmpjbsphere.ppm");
    for (Vector const& view : {Vector{0, 0, 0}, Vector{std::nan(""), 0, 0},
                               Vector{std::numeric_limits<double>::infinity(), 0, 0}}) {
        expectDone(dumpimageref(*map, view.data(), 1));
        expectDone(dumpjbsphere(*map, view.data(), 10, 1));
        EXPECT_TRUE(contentOf("tmpref.ppm") == picture);
        EXPECT_TRUE(contentOf("tmpjbsphere.ppm") == ball);
    }
}

// The colours of the ball tell its normals.
TEST_F(Diagnostics, DrawABallAsItsViewerSeesIt)
{
    auto const map = mapOf({200, 100}, [](Vector const& n) {
        return Channels(Double3{0.5 + 0.5 * n[0], 0.5 + 0.5 * n[1], 0.5 + 0.5 * n[2]});
    });
    struct Case {
        Vector view, right, up;
    };
    // A viewer who looks along -y with z up has -x on the right, as in environment maps.
    double const h = std::sqrt(0.5);
    for (Case const& c : {Case{{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}}, Case{{5, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                          Case{{0, -1e-5, 0}, {1, 0, 0}, {0, 0, 1}}, Case{{0, 0, 2}, {1, 0, 0}, {0, 1, 0}},
                          Case{{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}}, Case{{1, 0, 1}, {0, 1, 0}, {-h, 0, h}}}) {
        expectDone(dumpjbsphere(*map, c.view.data(), 10, 1));
        Ppm const ball("tmpjbsphere.ppm");
        ASSERT_EQ(ball.width, 200);
        ASSERT_EQ(ball.height, 200);
        Vector const towards = unit(c.view);
        for (int row = 0; row < 200; ++row)
            for (int column = 0; column < 200; ++column) {
                double const sx = (column + 0.5) / 100 - 1;
                double const sy = 1 - (row + 0.5) / 100;
                double const rest = 1 - sx * sx - sy * sy;
                std::array<int, 3> const levels = ball.at(column, row);
                if (rest < 0) {
                    ASSERT_EQ(levels, (std::array{0, 0, 0})) << column << ", " << row;
                    continue;
                }
                for (std::size_t i = 0; i < 3; ++i) {
                    double const n = sx * c.right[i] + sy * c.up[i] + std::sqrt(rest) * towards[i];
                    // 1.8 degrees where the nearest pixel is a step away, 0.032 of a component.
                    ASSERT_NEAR(levels[i] / 255.0, 0.5 + 0.5 * n, 0.5 * 0.032 + 0.002)
                        << column << ", " << row << ", " << i << " from " << c.view[0] << ' ' << c.view[1];
                }
            }
    }
}

TEST_F(Diagnostics, DrawTheBallUpToADegree)
{
    auto const map = someMap({40, 20});
    Vector const view = {0.2, 0.7, -0.4};
    auto const ballOf = [&](TypedImage<HarmonicsPixel> const& of, int order) {
        expectDone(dumpjbsphere(of, view.data(), order, 0.9));
        return contentOf("tmpjbsphere.ppm");
    };
    std::string const whole = ballOf(*map, 10);
    EXPECT_TRUE(ballOf(*map, std::numeric_limits<int>::max()) == whole);
    std::string const part = ballOf(*map, 3);
    EXPECT_FALSE(part == whole);
    for (HarmonicsPixel& pixel : pixelsOf<HarmonicsPixel>(*map))
        for (int k = 16; k < 121; ++k)
            pixel[k] = {0, 0, 0};
    EXPECT_TRUE(ballOf(*map, 10) == part);
    std::string const none = ballOf(*map, -1);
    EXPECT_EQ(none.find_first_not_of('\0', 15), std::string::npos) << "black but for the header of 15 bytes";
}

// A reflectance that passes the light through: from everywhere a surface sends the light that comes to it
// from there. So every surface, seen from one direction of the world, shows the light of that direction,
// whatever its tilt and turn.
TEST_F(Diagnostics, ShowThePipelineInTheFrameOfTheWorld)
{
    LoadedRotations const rotations;
    koUtil::ArrayN<3, Double3> brdf(21, 21, 21);
    brdf.fill({0, 0, 0});
    for (int l = 0; l <= 2; ++l)
        for (int q = 0; q <= l; ++q) {
            double const through = q == 0 ? 1 / std::sqrt(2 * pi) : 1 / std::sqrt(pi);
            brdf(l, l, q) = {through, through, through};
        }
    SphericalHarmonics<Double3> light(20);
    light[0] = {1.8, 1.7, 1.6};
    Random random(5);
    for (int k = 1; k < 9; ++k)
        light[k] = {0.3 * (randomChannel<double>(random) - 1), 0.3 * (randomChannel<double>(random) - 1),
                    0.3 * (randomChannel<double>(random) - 1)};
    auto const map = imageOf<HarmonicsPixel>({0, 0});
    computeReflectionCoeffs(light, brdf, 20, 10, *map, nullptr);

    for (Vector const& view :
         {Vector{0, 0, 1}, Vector{1, 0, 0}, Vector{0, -1, 0}, Vector{0.48, 0.6, -0.64}}) {
        // The light itself, of the lighting frame (y, x, -z).
        double const x = view[1], y = view[0], z = -view[2];
        std::array<double, 9> const basis = {std::sqrt(1 / (4 * pi)),
                                             -std::sqrt(3 / (4 * pi)) * y,
                                             std::sqrt(3 / (4 * pi)) * z,
                                             -std::sqrt(3 / (4 * pi)) * x,
                                             std::sqrt(15 / (4 * pi)) * x * y,
                                             -std::sqrt(15 / (4 * pi)) * y * z,
                                             std::sqrt(5 / (16 * pi)) * (3 * z * z - 1),
                                             -std::sqrt(15 / (4 * pi)) * x * z,
                                             std::sqrt(15 / (16 * pi)) * (x * x - y * y)};
        Channels expected;
        for (int k = 0; k < 9; ++k)
            expected.add(basis[std::size_t(k)], light[k]);

        expectDone(dumpimageref(*map, view.data(), 1));
        expectDone(dumpjbsphere(*map, view.data(), 10, 1));
        Ppm const picture("tmpref.ppm");
        Ppm const ball("tmpjbsphere.ppm");
        double most = 0, sum = 0;
        int count = 0;
        auto const compare = [&](std::array<int, 3> const& levels) {
            for (std::size_t c = 0; c < 3; ++c) {
                double const error = std::abs(levels[c] - 255 * expected.c[c]);
                most = std::max(most, error);
                sum += error;
                ++count;
            }
        };
        for (int t = 0; t < 100; ++t)
            for (int column = 0; column < 200; ++column) {
                compare(picture.at(column, t));
                if (std::hypot(column - 99.5, 2 * t - 99.5) < 99)
                    compare(ball.at(column, 2 * t));
            }
        // The basis stops a step of the grid, 0.03, before its last samples, and the light changes by less
        // than 0.6 per radian: up to 4.5 levels there. Elsewhere levels are rounded, no more.
        EXPECT_LE(most, 4.5) << view[0] << ' ' << view[1];
        EXPECT_LE(sum / count, 0.45) << view[0] << ' ' << view[1];
    }
}

// --- Pictures of one pixel ---

TEST_F(Diagnostics, DrawTheCoefficientsOfAPixel)
{
    auto const map = someMap({5, 4}, 3);
    map->pixels()[2 * 5 + 3].at(10, -10) = {5, -5, std::nan("")};
    expectDone(dumpimagesphere(*map, 3, 2, 0.5));
    EXPECT_THAT(names(), ElementsAre("tmp3D.ppm", "tmpfreq.ppm"));

    Ppm const picture("tmpfreq.ppm");
    ASSERT_EQ(picture.width, 168);
    ASSERT_EQ(picture.height, 88);
    for (int row = 0; row < 88; ++row)
        for (int column = 0; column < 168; ++column) {
            int const l = row / 8;
            int const m = column / 8 - 10;
            Channels expected;
            if (std::abs(m) <= l) {
                Double3 const& value = map->pixels()[2 * 5 + 3].at(l, m);
                expected = Double3{0.5 + 0.25 * value.r, 0.5 + 0.25 * value.g, 0.5 + 0.25 * value.b};
                if (std::isnan(value.b))
                    expected.c[2] = 0;
            }
            ASSERT_TRUE(shows(picture.at(column, row), expected)) << column << ", " << row;
        }
}

TEST_F(Diagnostics, DrawWhatAPixelSendsToEveryViewer)
{
    auto const map = someMap({40, 20});
    int const x = 30, t = 14;
    expectDone(dumpimagesphere(*map, x, t, 0.6));
    Ppm const ball("tmp3D.ppm");
    ASSERT_EQ(ball.width, 200);
    ASSERT_EQ(ball.height, 200);
    for (int row = 0; row < 200; ++row)
        for (int column = 0; column < 200; ++column) {
            double const vx = (column + 0.5) / 100 - 1;
            double const vy = 1 - (row + 0.5) / 100;
            Channels light;
            if (double const rest = 1 - vx * vx - vy * vy; rest >= 0)
                light.add(0.6, lightByHand(*map, t * 40 + x, {vx, vy, std::sqrt(rest)}));
            ASSERT_TRUE(shows(ball.at(column, row), light)) << column << ", " << row;
        }
}

TEST_F(Diagnostics, DrawEveryTenthPixelOfAColumn)
{
    auto const map = someMap({6, 25});
    expectDone(dumpimagesphereall(*map, 4, 0.5));
    EXPECT_THAT(names(), ElementsAre("tmp3D0.ppm", "tmp3D10.ppm", "tmp3D20.ppm", "tmpfreq0.ppm",
                                     "tmpfreq10.ppm", "tmpfreq20.ppm"));
    for (int const t : {0, 10, 20}) {
        expectDone(dumpimagesphere(*map, 4, t, 0.5));
        EXPECT_TRUE(contentOf("tmpfreq.ppm") == contentOf("tmpfreq" + std::to_string(t) + ".ppm")) << t;
        EXPECT_TRUE(contentOf("tmp3D.ppm") == contentOf("tmp3D" + std::to_string(t) + ".ppm")) << t;
    }
    EXPECT_FALSE(contentOf("tmpfreq0.ppm") == contentOf("tmpfreq10.ppm"));
}

}  // namespace koImage
