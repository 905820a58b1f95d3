// Looks into the lighting of small probes. All tests of one process share a file of rotation matrices in a
// cache folder of its own.

#include "tool/testing/command.h"
#include "tool/testing/rotation_cache_test.h"

#include "koImage/lighting/coefficients.h"
#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/lobes.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace koTool::testing {
namespace {

using koImage::Double3;
using koImage::Float3;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Dump : RotationCacheTest {
    /// A probe of 200 x 100 pixels: grey light that grows from `low` at the bottom to `high` at the top.
    std::string gradient(float low, float high) const
    {
        std::vector<float> channels;
        for (int y = 0; y < 100; ++y)
            for (int x = 0; x < 200; ++x)
                channels.insert(channels.end(), 3, low + (high - low) * (float(y) + 0.5f) / 100);
        writeFile(folder / "p.pfm", pfm(200, 100, channels));
        return folder / "p.pfm";
    }

    /// Dumps into folder/out and gives the report.
    json dump(std::string const& probe, std::vector<std::string> const& more = {}) const
    {
        std::vector<std::string> arguments = {"dump", probe, "-o", folder / "out", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        return json::parse(outcome.out);
    }

    std::string out(std::string const& name) const { return folder / ("out/" + name); }
};

std::vector<std::vector<double>> numbersIn(std::string const& text)
{
    std::vector<std::vector<double>> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        std::istringstream words(line);
        lines.emplace_back();
        for (double number; words >> number;)
            lines.back().push_back(number);
    }
    return lines;
}

TEST_F(Dump, WritesWhatItSays)
{
    json const report = dump(gradient(0, 1));
    EXPECT_EQ("phong:20", report["lobe"]);
    EXPECT_EQ((json{0.0, 1.0, 0.0}), report["view"]);

    std::vector<std::string> expected = {"basis.png",          "brdf.txt",     "cube_nx.shrm", "cube_ny.shrm",
                                         "cube_nz.shrm",       "cube_px.shrm", "cube_py.shrm", "cube_pz.shrm",
                                         "light.txt",          "map.shrm",     "order.txt",    "probe.ppm",
                                         "reconstruction.png", "tmp.ppm",      "tmp3D.ppm",    "tmpfreq.ppm",
                                         "tmpjbsphere.ppm",    "tmpref.ppm"};
    for (int i = 0; i <= 10; ++i)
        expected.push_back("refp" + std::to_string(i) + ".ppm");
    for (int i = 0; i < 100; i += 10) {
        expected.push_back("tmpfreq" + std::to_string(i) + ".ppm");
        expected.push_back("tmp3D" + std::to_string(i) + ".ppm");
    }
    std::vector<std::string> written;
    for (auto const& entry : std::filesystem::directory_iterator(folder / "out"))
        written.push_back(entry.path().filename());
    EXPECT_THAT(written, ::testing::UnorderedElementsAreArray(expected));

    for (std::string& name : expected)
        name = out(name);
    EXPECT_THAT(report["files"].get<std::vector<std::string>>(),
                ::testing::UnorderedElementsAreArray(expected));
    for (std::string const& file : expected)
        if (file.ends_with(".ppm") || file.ends_with(".png")) {
            EXPECT_GT(info(file)["width"], 100) << file;
        }
    EXPECT_THAT(folder.names(), ::testing::ElementsAre("out", "p.pfm"));
}

TEST_F(Dump, ListsTheFilesOnLinesWithoutJson)
{
    auto const outcome = koimage({"dump", gradient(0, 1), "-o", folder / "out"});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_EQ(49, std::count(outcome.out.begin(), outcome.out.end(), '\n'));
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(std::filesystem::is_regular_file(line)) << line;
}

TEST_F(Dump, ListsTheCoefficientsOfTheLibrary)
{
    std::string const file = gradient(0.5, 2);
    json const report = dump(file, {"--lobe", "phong:7"});

    auto const image = colours(file);
    auto const map = koImage::newEnvironmentMap(*image);
    ko::Reference<koImage::EnvironmentMap> const keep(map);
    auto const reduced = koImage::reducedProbe(*map);
    koImage::SphericalHarmonics<Double3> light(20);
    koImage::computeLightCoeffs(static_cast<koImage::TypedImage<Float3> const&>(*reduced->image()), light);
    auto const lines = numbersIn(readFile(out("light.txt")));
    ASSERT_EQ(441u, lines.size());
    for (int l = 0, i = 0; l <= 20; ++l)
        for (int m = -l; m <= l; ++m, ++i) {
            auto const& line = lines[std::size_t(i)];
            ASSERT_EQ(5u, line.size()) << i;
            EXPECT_EQ(l, line[0]);
            EXPECT_EQ(m, line[1]);
            EXPECT_NEAR(light[i].r, line[2], 1e-8 * std::abs(light[i].r));
            EXPECT_NEAR(light[i].g, line[3], 1e-8 * std::abs(light[i].g));
            EXPECT_NEAR(light[i].b, line[4], 1e-8 * std::abs(light[i].b));
        }

    koImage::ReflectanceSamples samples(100, 100, 200);
    koImage::PhongLobe(7).sample(samples);
    koUtil::ArrayN<3, Double3> coeffs(21, 21, 21);
    koImage::computeBrdfCoeffs(samples, coeffs, 10);
    auto const listed = numbersIn(readFile(out("brdf.txt")));
    ASSERT_EQ(3311u, listed.size());
    for (auto const& line : listed) {
        ASSERT_EQ(4u, line.size());
        double const expected = line[1] <= 10 ? coeffs(int(line[0]), int(line[1]), int(line[2])).r : 0.0;
        ASSERT_NEAR(expected, line[3], 0.51e-6) << line[0] << ' ' << line[1] << ' ' << line[2];
    }
    EXPECT_THAT(readFile(out("order.txt")), HasSubstr("Percentage accuracy is "));
    EXPECT_THAT(readFile(out("order.txt")), HasSubstr("\nlightOrder is "));
}

// Smooth light: two degrees of it look like all, none does not. The pictures have 200 x 100 pixels each, 4
// apart, with a line of text below; they begin at (16, 16).
TEST_F(Dump, ShowsTheProbeBesideWhatTheCoefficientsMakeOfIt)
{
    dump(gradient(0.2f, 1.0f));
    auto const sheet = colours(out("reconstruction.png"));
    ASSERT_EQ(2 * 16 + 3 * 200 + 2 * 4, sheet->width());
    auto const level = [&](int column, int row, int x, int y) {
        int const left = 16 + column * 204 + x;
        int const top = 16 + row * 115 + y;
        return sheet->pixels()[koImage::pixelOffset(left, sheet->height() - 1 - top, sheet->width())].g;
    };
    for (int const y : {20, 50, 80}) {
        float const probe = level(0, 0, 100, y);
        for (auto const& [column, row] : {std::pair{1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}})
            EXPECT_NEAR(probe, level(column, row, 100, y), 0.05 * probe)
                << column << ", " << row << ", " << y;
    }
    EXPECT_GT(level(0, 0, 100, 20), 1.3f * level(0, 0, 100, 80)) << "upright";
    EXPECT_EQ(level(0, 2, 100, 20), level(0, 2, 100, 80)) << "degree 0 is constant";
    EXPECT_GT(level(2, 3, 100, 20), 1.3f * level(2, 3, 100, 80)) << "the lobe to degree 20";
}

TEST_F(Dump, ShowsBasisFunctionsWithTheirSigns)
{
    dump(gradient(0, 1));
    auto const sheet = colours(out("basis.png"));
    // Eleven rows of 56 x 28 pixels, 4 and 15 apart; degree 1 begins one and a half panels left of the
    // middle.
    auto const pixel = [&](int order, int x, int y) {
        int const left = sheet->width() / 2 - 28 + order * 60 + x;
        return sheet
            ->pixels()[koImage::pixelOffset(left, sheet->height() - 1 - (16 + 43 + y), sheet->width())];
    };
    ASSERT_EQ(2 * 16 + 21 * 60 - 4, sheet->width());
    auto const warm = [](Float3 const& p) { return p.r > 2 * p.b; };
    auto const cold = [](Float3 const& p) { return p.b > 2 * p.r; };
    // Y_10 is cos theta, 1 at the nadir of the map. Y_1-1 is -y of the lighting frame, -x of the world: +x is
    // left of the middle. Y_11 is -y of the world, which is in the middle.
    EXPECT_TRUE(cold(pixel(0, 28, 1)) && warm(pixel(0, 28, 26)));
    EXPECT_TRUE(cold(pixel(-1, 14, 14)) && warm(pixel(-1, 42, 14)));
    EXPECT_TRUE(warm(pixel(1, 28, 14)) && cold(pixel(1, 2, 14)));
}

TEST_F(Dump, TakesRelativePathsFromWhereItWasCalled)
{
    gradient(0, 1);
    auto const outcome = shell("cd " + (folder / "") + " && koimage dump p.pfm -o inner/out");
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("inner/out/tmp.ppm\n"));
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "inner/out/tmp.ppm"));
}

TEST_F(Dump, RefusesWhatMakesNoSense)
{
    std::string const probe = gradient(0, 1);
    for (std::vector<std::string> const& wrong : {std::vector<std::string>{"--view", "0", "0", "0"},
                                                  {"--view", "nan", "0", "1"},
                                                  {"--view", "1", "2"},
                                                  {"--lobe", "phong:-1"},
                                                  {"--lobe", "mirror"}}) {
        std::vector<std::string> arguments = {"dump", probe, "-o", folder / "out"};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(2, outcome.exitCode) << wrong[1];
        EXPECT_THAT(outcome.err, HasSubstr(wrong[0]));
    }
    writeFile(folder / "disc.pfm", pfm(4, 4, std::vector<float>(48, 1.0f)));
    auto const outcome = koimage({"dump", folder / "disc.pfm", "-o", folder / "out"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("disc.pfm"));
    EXPECT_THAT(folder.names(), ::testing::ElementsAre("disc.pfm", "p.pfm"));
}

TEST_F(Dump, TellsWhichFileCannotBeWritten)
{
    std::filesystem::create_directories(out("refp4.ppm"));
    auto const outcome = koimage({"dump", gradient(0, 1), "-o", folder / "out"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("out/refp4.ppm"));
    EXPECT_THAT(outcome.out, IsEmpty());
}

}  // namespace
}  // namespace koTool::testing
