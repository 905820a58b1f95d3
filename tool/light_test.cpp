// Lights the labelled probe and others made by hand. All tests of one process share a file of rotation
// matrices in a cache folder of its own.

#include "koImage/testing/test_images.h"
#include "tool/testing/packets.h"
#include "tool/testing/rotation_cache_test.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <map>

namespace koTool::testing {
namespace {

using koImage::Float3;
using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr int width = 200;
constexpr int height = 100;

struct Light : RotationCacheTest {
    /// Lights a probe into folder/out and gives the report.
    json light(std::string const& probe, std::vector<std::string> const& more = {}) const
    {
        std::vector<std::string> arguments = {"light", probe, "-o", folder / "out", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto const outcome = koimage(arguments);
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        return json::parse(outcome.out);
    }

    std::string labelledProbe(std::vector<std::string> const& shape = {"latlong", "--size", "256"}) const
    {
        std::vector<std::string> arguments = {"probe", folder / "probe.exr", "--shape"};
        arguments.insert(arguments.end(), shape.begin(), shape.end());
        EXPECT_EQ(0, koimage(arguments).exitCode);
        return folder / "probe.exr";
    }
};

/// Column and row of the brightest pixel.
std::array<int, 2> brightest(koImage::TypedImage<Float3> const& image)
{
    std::array<int, 2> at = {0, 0};
    float most = -1.0f;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (float const r = image.pixels()[koImage::pixelOffset(x, y, image.width())].r; r > most) {
                most = r;
                at = {x, y};
            }
    return at;
}

float contrast(koImage::TypedImage<Float3> const& image)
{
    auto const [x, y] = brightest(image);
    double sum = 0.0;
    for (auto const& pixel : koImage::pixelsOf<Float3>(image))
        sum += pixel.r;
    return image.pixels()[koImage::pixelOffset(x, y, image.width())].r /
           static_cast<float>(sum / (width * height));
}

std::string constantProbe(float value)
{
    return pfm(width, height, std::vector<float>(width * height * 3, value));
}

TEST_F(Light, WritesMapsAsNumbersAndAsPicturesAndOneSheet)
{
    json const report = light(labelledProbe(), {"--lobe", "phong:20", "--lobe", "ggx:0.3"});
    std::vector<std::string> expected;
    for (std::string const name :
         {"diffuse.exr", "diffuse.png", "ggx-0.3.exr", "ggx-0.3.png", "lighting.json", "phong-20.exr",
          "phong-20.png", "probe.exr", "probe.png", "sheet.png"})
        expected.push_back(folder / ("out/" + name));
    EXPECT_THAT(report["files"].get<std::vector<std::string>>(),
                ::testing::UnorderedElementsAreArray(expected));
    for (std::string const& file : expected) {
        // What is levels already must not be said to be light: viewers would put a second curve on it.
        if (file.ends_with("png")) {
            EXPECT_EQ(koImageIO::Transfer::Srgb, picture(file).transfer) << file;
        }
        if (file.ends_with("json") || file.ends_with("sheet.png"))
            continue;
        json const about = info(file);
        EXPECT_EQ(width, about["width"]) << file;
        EXPECT_EQ(height, about["height"]) << file;
        EXPECT_EQ(0, about["nan"]) << file;
    }
    json const saved = json::parse(readFile(folder / "out/lighting.json"));
    EXPECT_EQ(report["irradiance"], saved["irradiance"]);
    EXPECT_EQ(report["lobes"], saved["lobes"]);
}

// The sun of the labelled probe is at longitude atan2(8, 12), 33.7 degrees right of the middle, and 32
// degrees high: column 119, row 68. A degree of a lat-long map is 0.56 pixels, half a pixel is lost to
// resampling on both ways.
TEST_F(Light, IsBrightestWhereTheSunIs)
{
    light(labelledProbe(), {"--lobe", "phong:200", "--lobe", "phong:20"});
    for (std::string const name : {"phong-200.exr", "phong-20.exr"}) {
        auto const [x, y] = brightest(*colours(folder / ("out/" + name)));
        EXPECT_NEAR(118.7, x, 3.0) << name;
        EXPECT_NEAR(67.8, y, 3.0) << name;
    }
    auto const [x, y] = brightest(*colours(folder / "out/diffuse.exr"));
    EXPECT_NEAR(118.7, x, 8.0);
    EXPECT_NEAR(67.8, y, 8.0);
}

TEST_F(Light, IsSmootherTheRougherTheLobe)
{
    json const report =
        light(labelledProbe(), {"--lobe", "ggx:0.9", "--lobe", "phong:100", "--lobe", "phong:10"});
    ASSERT_EQ(3u, report["lobes"].size());
    EXPECT_EQ("phong:100", report["lobes"][0]["lobe"]) << "mirror-like first";
    float last = std::numeric_limits<float>::infinity();
    for (json const& lobe : report["lobes"]) {
        float const now = contrast(*colours(folder / ("out/" + lobe["file"].get<std::string>())));
        EXPECT_LT(now, 0.8f * last) << lobe;
        last = now;
    }
    EXPECT_LT(report["lobes"][0]["capturedEnergy"], report["lobes"][2]["capturedEnergy"]);
    EXPECT_LT(report["lobes"][1]["lightOrder"], 20);
}

TEST_F(Light, OfConstantRadianceIsThatRadiance)
{
    writeFile(folder / "p.pfm", constantProbe(3.0f));
    light(folder / "p.pfm", {"--lobe", "phong:5", "--lobe", "lambert"});
    for (std::string const name : {"diffuse.exr", "phong-5.exr", "lambert.exr"}) {
        auto const map = colours(folder / ("out/" + name));
        for (Float3 const& pixel : koImage::pixelsOf<Float3>(*map)) {
            ASSERT_NEAR(3.0, pixel.r, 0.03) << name;
            ASSERT_NEAR(3.0, pixel.b, 0.03) << name;
        }
    }
}

TEST_F(Light, KeepsWhatTheLibraryPrintsOutOfItsOutput)
{
    auto const outcome =
        koimage({"light", labelledProbe(), "-o", folder / "out", "--lobe", "phong:5", "--quiet"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_THAT(outcome.out, Not(HasSubstr("BRDF")));
    std::istringstream lines(outcome.out);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count)
        EXPECT_TRUE(std::filesystem::exists(line)) << line;
    EXPECT_EQ(8, count);
}

TEST_F(Light, TimesEveryStageOfEveryLobe)
{
    json const report = light(labelledProbe(), {"--lobe", "phong:5", "--lobe", "ggx:1"});
    std::vector<std::string> stages;
    for (json const& stage : report["timings"]) {
        stages.push_back(stage["stage"]);
        EXPECT_GE(stage["milliseconds"], 0.0);
    }
    for (char const* const stage :
         {"reading", "rotation matrices", "irradiance", "diffuse map", "sheet", "writing",
          "phong:5: brdf coeffs", "ggx:1: brdf sampling", "ggx:1: create shrm"})
        EXPECT_THAT(stages, Contains(stage));
}

TEST_F(Light, TakesCrossesUprightAndLyingAlike)
{
    light(labelledProbe({"cross", "--size", "64"}), {"--lobe", "phong:50"});
    std::string const upright = readFile(folder / "out/phong-50.exr");
    auto const [x, y] = brightest(*colours(folder / "out/phong-50.exr"));
    EXPECT_NEAR(118.7, x, 4.0);
    EXPECT_NEAR(67.8, y, 4.0);
    light(labelledProbe({"cross", "--size", "64", "--horizontal"}), {"--lobe", "phong:50"});
    EXPECT_TRUE(upright == readFile(folder / "out/phong-50.exr"));
}

TEST_F(Light, RefusesPixelsThatAreNoLightWithTheirPlace)
{
    for (float const bad :
         {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        std::vector<float> channels(width * height * 3, 1.0f);
        channels[3 * (5 * width + 7) + 1] = bad;
        writeFile(folder / "p.pfm", pfm(width, height, channels));
        auto const outcome = koimage({"light", folder / "p.pfm", "-o", folder / "out"});
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_THAT(outcome.err, HasSubstr("p.pfm: Pixel (7, 5)"));
        EXPECT_THAT(folder.names(), ElementsAre("p.pfm")) << "nothing is begun";
    }
}

TEST_F(Light, TellsOfNegativeValuesAndTakesThemForZeroIfAsked)
{
    std::vector<float> channels(width * height * 3, 1.0f);
    for (std::size_t i = 0; i < channels.size() / 2; ++i)
        channels[i] = -1.0f;
    writeFile(folder / "p.pfm", pfm(width, height, channels));
    auto const outcome = koimage({"light", folder / "p.pfm", "-o", folder / "out", "--lobe", "phong:5"});
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("30000 values below 0"));
    double const below = colours(folder / "out/diffuse.exr")->pixels()[width / 2].r;

    light(folder / "p.pfm", {"--lobe", "phong:5", "--clamp-negative"});
    EXPECT_LT(below, -0.5);
    EXPECT_NEAR(0.0, colours(folder / "out/diffuse.exr")->pixels()[width / 2].r, 0.05);
}

TEST_F(Light, ReadsItsProbeFromStandardInput)
{
    std::string const probe = labelledProbe();
    auto const outcome = koimage({"light", "-", "-o", folder / "out", "--lobe", "phong:5"}, readFile(probe));
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    std::string const map = readFile(folder / "out/phong-5.exr");
    light(probe, {"--lobe", "phong:5"});
    EXPECT_TRUE(map == readFile(folder / "out/phong-5.exr"));
}

TEST_F(Light, FailsWhereItsFolderCannotBe)
{
    writeFile(folder / "file", "");
    auto const outcome = koimage({"light", labelledProbe(), "-o", folder / "file"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr(folder / "file"));
    EXPECT_EQ("", readFile(folder / "file"));
}

TEST_F(Light, SurvivesADarkProbe)
{
    writeFile(folder / "p.pfm", constantProbe(0.0f));
    light(folder / "p.pfm", {"--lobe", "phong:5"});
    EXPECT_EQ(0.0, info(folder / "out/phong-5.exr")["max"][0]);
}

TEST_F(Light, MakesTheFileOfMatricesOnceAndAnewWhereItIsDamaged)
{
    Folder const caches;
    std::string const run = "XDG_CACHE_HOME='" + caches / "" + "' koimage light '" + labelledProbe() +
                            "' -o '" + folder / "out" + "' --lobe phong:5";
    std::string const file = caches / "koimage/rotations.txt";
    ASSERT_EQ(0, shell(run).exitCode);
    std::string const whole = readFile(file);
    EXPECT_EQ(0, koimage({"rotations", "--check", file}).exitCode);
    std::string const map = readFile(folder / "out/phong-5.exr");
    auto const made = std::filesystem::last_write_time(file);

    auto outcome = shell(run);
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, IsEmpty());
    EXPECT_EQ(made, std::filesystem::last_write_time(file));

    writeFile(file, whole.substr(0, 1000));
    outcome = shell(run);
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("made anew"));
    EXPECT_TRUE(whole == readFile(file));
    EXPECT_TRUE(map == readFile(folder / "out/phong-5.exr"));
}

TEST_F(Light, RefusesAMissingOrDamagedFileOfMatricesThatWasNamed)
{
    std::string const probe = labelledProbe();
    writeFile(folder / "short.txt", "0 0 1\n");
    for (std::string const name : {"none.txt", "short.txt"}) {
        auto const outcome = koimage({"light", probe, "-o", folder / "out", "--rotations", folder / name});
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_THAT(outcome.err, HasSubstr(folder / name));
    }
    auto const outcome = shell("unset XDG_CACHE_HOME HOME; koimage light '" + probe + "' -o out");
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("--rotations"));
}

TEST_F(Light, WarnsOfLobesThatAreTooNarrow)
{
    std::string const probe = labelledProbe();
    auto const narrow = koimage({"light", probe, "-o", folder / "out", "--lobe", "phong:200"});
    EXPECT_THAT(narrow.err, HasSubstr("phong:200: too narrow"));
    EXPECT_TRUE(light(probe, {"--lobe", "phong:200"})["lobes"][0]["lightOrder"].is_null());
    auto const wide = koimage({"light", probe, "-o", folder / "out", "--lobe", "phong:50"});
    EXPECT_THAT(wide.err, IsEmpty());
}

/// A pixel of a picture, counted from its upper left corner.
Float3 pixelOf(koImage::TypedImage<Float3> const& picture, int x, int y)
{
    return picture.pixels()[koImage::pixelOffset(x, picture.height() - 1 - y, picture.width())];
}

// The sun of the labelled probe is turned to 130 degrees right of the panorama's middle, which is 752 pixels
// wide from column 24 on; it is 32 degrees high. The second ball, below, is centred at (450, 548) and 122
// pixels large. Left of the sun by 90 degrees, so left behind the viewer, is the green face +y; the blue face
// +z is above and the yellow -z below.
TEST_F(Light, DrawsItsSheetUprightAndNotMirrored)
{
    json const report = light(labelledProbe({"latlong", "--size", "512"}), {"--lobe", "phong:20"});
    EXPECT_NEAR(33.7 - 130.0, report["sheetLongitude"].get<double>() * 180 / 3.14159265, 4.0);
    auto const sheet = colours(folder / "out/sheet.png");
    ASSERT_EQ(1184, sheet->width());

    auto const [sunX, sunY] = std::array{24 + 752 * 310 / 360, 24 + 376 * 58 / 180};
    EXPECT_GT(pixelOf(*sheet, sunX, sunY).r, 0.9f);
    EXPECT_LT(pixelOf(*sheet, 800 - sunX, sunY).r, 0.9f);

    auto const ball = [&](double right, double up) {
        return pixelOf(*sheet, static_cast<int>(450 + 122 * right), static_cast<int>(548 - 122 * up));
    };
    EXPECT_GT(ball(0.65, 0.55).r, 0.9f) << "the sun is on the right, above";
    for (auto const& [right, up] : {std::array{-0.65, 0.55}, {0.65, -0.55}, {-0.65, -0.55}})
        EXPECT_LT(ball(right, up).r, 0.8f) << right << " " << up;
    EXPECT_GT(ball(-0.97, 0.0).g, 1.2f * ball(-0.97, 0.0).b) << "+y is on the left";
    EXPECT_GT(ball(-0.3, 0.93).b, ball(-0.3, 0.93).g) << "+z is above";
    EXPECT_GT(ball(-0.1, -0.95).r, 1.2f * ball(-0.1, -0.95).b) << "-z is below";
}

TEST_F(Light, RefusesLobesThatMakeNoSense)
{
    for (std::string const lobe : {"phong", "phong:", "phong:x", "phong:201", "phong:-1", "phong:nan",
                                   "ggx:0.1", "ggx:2", "phong:20 ", "mirror:1", ""}) {
        auto const outcome = koimage({"light", "p.exr", "-o", "out", "--lobe", lobe});
        EXPECT_EQ(2, outcome.exitCode) << lobe;
        EXPECT_THAT(outcome.err, HasSubstr("--lobe"));
    }
    EXPECT_EQ(2, koimage({"light", "p.exr", "-o", "o", "--lobe", "phong:1", "--lobe", "phong:1"}).exitCode);
    EXPECT_EQ(2, koimage({"light", "p.exr"}).exitCode);
}

TEST_F(Light, RefusesBallsAndPicturesThatAreNoProbes)
{
    for (auto const& [w, h] : {std::array{4, 4}, {5, 4}}) {
        writeFile(folder / "p.ppm", ppm(w, h, std::vector<int>(static_cast<std::size_t>(3 * w * h), 9)));
        auto const outcome = koimage({"light", folder / "p.ppm", "-o", folder / "out"});
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_THAT(outcome.err, HasSubstr("p.ppm: "));
    }
}

/// The files of a folder by name.
std::map<std::string, std::string> contentsOf(std::string const& folder)
{
    std::map<std::string, std::string> contents;
    for (auto const& entry : std::filesystem::directory_iterator(folder))
        contents[entry.path().filename()] = readFile(entry.path());
    return contents;
}

std::vector<std::string> names(std::map<std::string, std::string> const& contents)
{
    std::vector<std::string> all;
    for (auto const& [name, content] : contents)
        all.push_back(name);
    return all;
}

TEST_F(Light, GoesOnFromASavedFileToTheBit)
{
    std::string const saved = folder / "saved.packets";
    for (std::string const shape : {"latlong", "cross"}) {
        json const first = light(labelledProbe({shape, "--size", "64"}),
                                 {"--lobe", "ggx:0.5", "--lobe", "phong:20", "--save", saved});
        EXPECT_THAT(first["files"], Contains(saved));
        auto const expected = contentsOf(folder / "out");
        std::filesystem::remove_all(folder / "out");

        // Without matrices, and with no folder to make them in: nothing is computed again.
        auto const outcome =
            shell("unset XDG_CACHE_HOME HOME; koimage light '" + saved + "' -o '" + folder / "out" + "'");
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        auto const again = contentsOf(folder / "out");
        EXPECT_EQ(names(expected), names(again));
        for (auto const& [name, content] : expected)
            EXPECT_TRUE(content == again.at(name)) << name;
        std::filesystem::remove_all(folder / "out");
    }
}

TEST_F(Light, ComputesWhatASavedFileLacksAndSavesItWithTheRest)
{
    std::string const probe = labelledProbe();
    std::string const saved = folder / "saved.packets";
    std::vector<std::string> const all = {"--lobe", "phong:20", "--lobe", "lambert", "--lobe", "ggx:0.5"};
    light(probe, all);
    auto const expected = contentsOf(folder / "out");
    std::filesystem::remove_all(folder / "out");

    light(probe, {"--lobe", "phong:20", "--save", saved});
    std::filesystem::remove_all(folder / "out");
    json const more = light(saved, {"--lobe", "lambert", "--lobe", "ggx:0.5", "--save", saved});
    EXPECT_EQ(2u, more["lobes"].size());
    for (json const& stage : more["timings"])
        EXPECT_THAT(stage["stage"].get<std::string>(), Not(HasSubstr("phong:20")));
    EXPECT_FALSE(std::filesystem::exists(folder / "out/phong-20.exr"));
    std::filesystem::remove_all(folder / "out");

    light(saved);
    // But for the times on the sheet.
    auto const again = contentsOf(folder / "out");
    EXPECT_EQ(names(expected), names(again));
    for (auto const& [name, content] : expected)
        EXPECT_TRUE(content == again.at(name) || name == "sheet.png") << name;
}

TEST_F(Light, IsToldOfByInfoAndList)
{
    std::string const saved = folder / "saved.packets";
    light(labelledProbe(), {"--lobe", "phong:20", "--lobe", "ggx:0.5", "--save", saved});
    EXPECT_EQ(0, koimage({"packet", "verify", saved}).exitCode);

    std::istringstream lines(koimage({"info", "--json", saved}).out);
    std::vector<json> about;
    for (std::string line; std::getline(lines, line);)
        about.push_back(json::parse(line));
    ASSERT_EQ(4u, about.size()) << "three images and the lighting";
    EXPECT_EQ((json{{"file", saved},
                    {"format", "packets"},
                    {"lighting",
                     {{"probe", folder / "probe.exr"},
                      {"image", "image-1"},
                      {"usable", true},
                      {"lobes",
                       {{{"lobe", "phong:20"}, {"image", "image-2"}},
                        {{"lobe", "ggx:0.5"}, {"image", "image-3"}}}}}}}),
              about[3]);
    EXPECT_THAT(koimage({"info", saved}).out,
                HasSubstr("\n  lighting by   " + folder / "probe.exr" +
                          "\n  probe         image-1\n  phong:20      image-2\n  ggx:0.5       image-3\n"));

    json const list = json::parse(koimage({"packet", "list", "--json", saved}).out);
    EXPECT_EQ("koimage.light", list["packets"].back()["type"]);
    EXPECT_EQ(json({1, 2, 3}), list["packets"].back()["references"]);
    auto const picture = koimage({"convert", saved, folder / "map.exr", "--layer", "image-2"});
    EXPECT_EQ(0, picture.exitCode) << picture.err;
    EXPECT_TRUE(
        koImage::testing::samePixels(*colours(folder / "out/phong-20.exr"), *colours(folder / "map.exr")));
}

TEST_F(Light, ComputesAMapAgainThatARecoveredFileHasLost)
{
    std::string const saved = folder / "saved.packets";
    light(labelledProbe(), {"--lobe", "phong:20", "--lobe", "ggx:0.5", "--save", saved});
    auto const expected = contentsOf(folder / "out");
    std::filesystem::remove_all(folder / "out");

    // The first packets of the three images, in the order of the file.
    std::vector<std::size_t> images;
    json const list = json::parse(koimage({"packet", "list", "--json", saved}).out);
    for (json const& packet : list["packets"])
        if (packet["type"] == "ko.lb.image")
            images.push_back(packet["byte"]);
    ASSERT_EQ(3u, images.size());
    std::string const whole = readFile(saved);
    auto const lose = [&](std::size_t at) {
        std::string damaged = whole;
        damaged[at + 40] ^= 1;
        writeFile(folder / "damaged.packets", damaged);
        auto const refused = koimage({"light", folder / "damaged.packets", "-o", folder / "out"});
        EXPECT_EQ(1, refused.exitCode);
        EXPECT_THAT(refused.err, HasSubstr("koimage packet recover"));
        auto const outcome =
            koimage({"packet", "recover", folder / "damaged.packets", "-o", folder / "recovered.packets"});
        EXPECT_EQ(0, outcome.exitCode) << outcome.err;
        EXPECT_EQ(0, koimage({"packet", "verify", folder / "recovered.packets"}).exitCode);
    };
    lose(images[1]);
    EXPECT_THAT(koimage({"info", folder / "recovered.packets"}).out, HasSubstr("\n  phong:20      lost\n"));
    light(folder / "recovered.packets");
    auto const again = contentsOf(folder / "out");
    EXPECT_EQ(names(expected), names(again));
    for (auto const& [name, content] : expected)
        EXPECT_TRUE(content == again.at(name) || name == "sheet.png") << name;

    lose(images[0]);
    auto const outcome = koimage({"light", folder / "recovered.packets", "-o", folder / "out"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("recovered.packets: holds lighting, but not its probe"));
}

TEST_F(Light, TakesThePictureOfAPacketFileForAProbe)
{
    std::string const probe = labelledProbe();
    EXPECT_EQ(0, koimage({"convert", probe, folder / "probe.packets"}).exitCode);
    light(probe, {"--lobe", "phong:20"});
    std::string const map = readFile(folder / "out/phong-20.exr");
    light(folder / "probe.packets", {"--lobe", "phong:20", "--save", folder / "saved.packets"});
    EXPECT_TRUE(map == readFile(folder / "out/phong-20.exr"));
    // Also of one with lighting, where it is the picture that is asked for.
    json const report = light(folder / "saved.packets", {"--lobe", "phong:20", "--layer", "image-2"});
    EXPECT_EQ(folder / "saved.packets", report["probe"]["file"]);
    EXPECT_FALSE(map == readFile(folder / "out/phong-20.exr")) << "lit by the map";
}

TEST_F(Light, RefusesToSaveOrToGoOnWhereThatMakesNoSense)
{
    std::string const probe = labelledProbe();
    EXPECT_EQ(2, koimage({"light", probe, "-o", folder / "out", "--save", "-"}).exitCode);
    auto outcome = koimage(
        {"light", probe, "-o", folder / "out", "--lobe", "phong:5", "--save", folder / "no/a.packets"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("no/a.packets: cannot be written: "));

    std::string const saved = folder / "saved.packets";
    light(probe, {"--lobe", "phong:5", "--save", saved});
    outcome = koimage({"light", saved, "-o", folder / "out", "--clamp-negative"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("--clamp-negative is for pictures"));
}

/// A saved light of one lobe that says what a test wants.
std::string savedByHand(std::string const& lobe, double energy, koImage::Image const* map)
{
    auto const probe = koImage::testing::randomImage<Float3>({4, 2}, 1);
    std::array<double, 16> const zeros{};
    return packetFile([&](ioWriteContext& out) {
        auto const text = [&](std::string const& letters) {
            out.writeBytes(reinterpret_cast<std::uint8_t const*>(letters.data()), letters.size());
        };
        out.startPacket("koimage.light", nullptr);
        out.startSubPacket();
        out.writeBool(true);
        out.startSubPacket();
        for (int i = 0; i < 3; ++i)
            out.writeDoubles(zeros.data(), zeros.size());
        out.endSubPacket();
        koImage::packetFile::writeImage(out, probe.get());
        out.writeReference(probe.get());
        out.writeInt(1);
        koImage::packetFile::writeImage(out, map);
        out.startSubPacket();
        out.writeInt(0);
        out.writeReference(map);
        out.endSubPacket();
        out.endSubPacket();
        text("p.exr");
        out.writeInt(1);
        out.startSubPacket();
        text(lobe);
        out.writeInt(0);
        out.writeReference(map);
        out.writeInt(5);
        std::array<double, 3> const numbers{energy, 0.5, 7.0};
        out.writeDoubles(numbers.data(), numbers.size());
        out.endSubPacket();
        out.writeInt(0);
        out.endPacket();
    });
}

TEST_F(Light, TrustsNothingThatASavedFileSays)
{
    auto const map = koImage::testing::randomImage<Float3>({4, 2}, 2);
    auto const run = [&](std::string const& bytes) {
        writeFile(folder / "a.packets", bytes);
        return koimage({"light", folder / "a.packets", "-o", folder / "out"});
    };
    EXPECT_EQ(0, run(savedByHand("phong:5", 1.0, map.get())).exitCode) << "what is right passes";
    std::filesystem::remove_all(folder / "out");

    double const nan = std::numeric_limits<double>::quiet_NaN();
    auto const wrongType = koImage::testing::randomImage<koImage::Byte4>({4, 2}, 2);
    auto const wrongShape = koImage::testing::randomImage<Float3>({3, 2}, 2);
    auto const infinite = koImage::testing::randomImage<Float3>({4, 2}, 2);
    infinite->pixels()[3].g = std::numeric_limits<float>::infinity();
    for (std::string const& bytes :
         {savedByHand("../../phong:5", 1.0, map.get()), savedByHand("phong:5000", 1.0, map.get()),
          savedByHand(std::string(5000, 'x'), 1.0, map.get()), savedByHand("phong:5", nan, map.get()),
          savedByHand("phong:5", -1.0, map.get()), savedByHand("phong:5", 1.0, wrongType.get()),
          savedByHand("phong:5", 1.0, wrongShape.get()), savedByHand("phong:5", 1.0, infinite.get())}) {
        auto const outcome = run(bytes);
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_THAT(outcome.err, HasSubstr("a.packets: "));
        EXPECT_FALSE(std::filesystem::exists(folder / "out/sheet.png"));
    }
}

}  // namespace
}  // namespace koTool::testing
