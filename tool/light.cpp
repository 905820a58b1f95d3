// koimage light: the whole way from a light probe to its diffuse light and specular maps, and one sheet with
// pictures of them.

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/image/fill.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/rotation_matrices.h"
#include "tool/display.h"
#include "tool/files.h"
#include "tool/irradiance_report.h"
#include "tool/library_output.h"
#include "tool/lobe.h"
#include "tool/rotation_cache.h"
#include "tool/shapes.h"
#include "tool/sheet.h"
#include "tool/stopwatch.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>

namespace koTool {

using namespace koImage;
using Json = nlohmann::ordered_json;

namespace {

/// What the analysis of a lobe's coefficients found, for its red channel: ready lobes are grey.
struct Analysis {
    double energy = 0.0;            ///< of the lobe: the integral of its square
    double captured = 0.0;          ///< the part of it that the coefficients hold
    std::optional<int> lightOrder;  ///< degrees of light that hold 97 %; none where all of them hold less
};

struct LitLobe {
    std::string name;
    std::string fileName;
    MapReference map;
    Analysis analysis;
    double milliseconds = 0.0;
};

struct Light {
    Files files;
    std::string probe;
    std::string folder;
    std::vector<std::string> lobeNames;
    std::vector<Lobe> lobes;
    std::string rotations;
    bool clampNegative = false;
    bool json = false;

    Stopwatch watch;
    std::vector<std::string> written;

    /// What messages call the probe.
    std::string probeName() const { return probe == "-" ? "standard input" : probe; }
};

/// Gives the name of each stage that the library finishes to a stopwatch, while it lives.
class StageObserver {
public:
    explicit StageObserver(Stopwatch& watch)
    {
        current = &watch;
        before_ = observeCheckpoints([](char const* label) { current->lap(label); });
    }
    ~StageObserver() { observeCheckpoints(before_); }
    StageObserver(StageObserver const&) = delete;
    StageObserver& operator=(StageObserver const&) = delete;

private:
    static Stopwatch* current;
    CheckpointObserver before_;
};

Stopwatch* StageObserver::current = nullptr;

/// The picture as the lighting takes it: a horizontal cross becomes a vertical one, face by face.
ColoursReference asProbe(Image& picture)
{
    auto const map = recogniseMap(picture);
    if (!map || map->mapType() != EnvironmentMapType::Cross ||
        !static_cast<CrossMap const&>(*map).horizontal())
        return static_cast<Colours*>(&picture);

    auto const vertical =
        makeMap({EnvironmentMapType::Cross, picture.width() / 4, false}, PixelTypeId::Float3);
    fillBlack(*vertical->image());
    auto const face = newColours(0, 0);
    for (int i = 0; i < 6; ++i) {
        static_cast<CrossMap const&>(*map).copyFace(picture, *face, i);
        static_cast<CrossMap&>(*vertical).pasteFace(*face, i);
    }
    return static_cast<Colours*>(vertical->image());
}

/// Makes channels below 0 zero if the user wishes it; else says that there are some.
void treatNegatives(Light& light, Colours& image)
{
    std::int64_t count = 0;
    for (Float3& pixel : pixelsOf<Float3>(image))
        for (float* const channel : {&pixel.r, &pixel.g, &pixel.b})
            if (*channel < 0.0f) {
                ++count;
                if (light.clampNegative)
                    *channel = 0.0f;
            }
    if (count > 0 && !light.clampNegative)
        light.files.remark(light.probeName() + ": " + std::to_string(count) +
                           " values below 0; --clamp-negative takes them for 0");
}

/// Reads what computeOrder printed about the last lobe.
Analysis analysisIn(std::string const& printed)
{
    auto const numberAfter = [&](char const* words) {
        std::size_t const at = printed.find(words);
        return at == std::string::npos ? 0.0
                                       : std::strtod(printed.c_str() + at + std::strlen(words), nullptr);
    };
    Analysis analysis;
    analysis.captured = numberAfter("Percentage accuracy is ") / 100;
    double const norm = numberAfter("BRDF coefficient norm is ");
    analysis.energy = analysis.captured > 0.0 ? norm / analysis.captured : 0.0;
    if (analysis.captured >= 0.97)
        analysis.lightOrder = static_cast<int>(numberAfter("lightOrder is "));
    return analysis;
}

std::vector<LitLobe> lightLobes(Light& light, ImageBasedLighting& lighting)
{
    std::vector<LitLobe> lit;
    for (Lobe& lobe : light.lobes) {
        koUtil::Progress* const progress = light.files.work("lighting " + lobe.name);
        // Each function is known to the lighting by its key.
        lobe.reflectance->setKey(static_cast<int>(lit.size()));
        light.watch.nameWork(lobe.name);
        std::size_t const first = light.watch.stages().size();

        LitLobe result{lobe.name, lobe.fileName(), nullptr, {}, 0.0};
        {
            LibraryOutput output;
            result.map = lighting.getSpecularMap(*lobe.reflectance, progress);
            result.analysis = analysisIn(output.text());
        }
        if (!result.map)
            throw Failure(light.probeName() + ": no specular map of " + lobe.name);
        if (!result.analysis.lightOrder)
            light.files.remark(lobe.name +
                               ": too narrow for 20 degrees of light: rings show around what is bright");
        auto const& stages = light.watch.stages();
        for (std::size_t i = first; i < stages.size(); ++i)
            result.milliseconds += stages[i].milliseconds;
        lit.push_back(std::move(result));
    }
    light.watch.nameWork("");
    // Mirror-like first: narrow lobes have much energy.
    std::stable_sort(lit.begin(), lit.end(), [](LitLobe const& a, LitLobe const& b) {
        return a.analysis.energy > b.analysis.energy;
    });
    return lit;
}

/// The brightest channel of an image.
float brightest(Colours const& image)
{
    float most = 0.0f;
    for (Float3 const& pixel : pixelsOf<Float3>(image))
        most = std::max({most, pixel.r, pixel.g, pixel.b});
    return most;
}

/// A picture's path, noted for the report.
std::string pathOf(Light& light, std::string const& name)
{
    light.written.push_back(std::filesystem::path(light.folder) / name);
    return light.written.back();
}

void savePng(Light& light, std::string const& name, Image const& levels)
{
    koImageIO::WriteOptions options;
    options.bits = 8;
    options.levels = true;
    light.files.save(pathOf(light, name), levels, options);
}

/// A map as numbers, and as a picture to look at.
void saveMap(Light& light, std::string const& name, EnvironmentMap const& map, Display const& display)
{
    auto const& image = static_cast<Colours const&>(*map.image());
    koImageIO::WriteOptions options;
    options.bits = 32;
    options.metadata = describeMap(map, {});
    light.files.save(pathOf(light, name + ".exr"), image, options);
    savePng(light, name + ".png", *display.levels(image));
}

Json describe(LitLobe const& lobe)
{
    return {{"lobe", lobe.name},
            {"file", lobe.fileName + ".exr"},
            {"energy", lobe.analysis.energy},
            {"capturedEnergy", lobe.analysis.captured},
            {"lightOrder", lobe.analysis.lightOrder ? Json(*lobe.analysis.lightOrder) : Json()}};
}

Json describe(Stopwatch const& watch)
{
    Json list = Json::array();
    for (auto const& stage : watch.stages())
        list.push_back({{"stage", stage.name}, {"milliseconds", stage.milliseconds}});
    return list;
}

std::string inMilliseconds(double time)
{
    return std::to_string(std::lround(time)) + " ms";
}

/// What stands beside the panorama: the probe, and the stages before the lobes, which are long ones.
std::vector<std::string> notesOf(Light const& light, Colours const& probe, Display const& display)
{
    char exposure[32];
    std::snprintf(exposure, sizeof exposure, "exposure %+.1f stops", double{display.exposure()});
    std::vector<std::string> notes = {std::filesystem::path(light.probeName()).filename().string(),
                                      std::to_string(probe.width()) + " x " + std::to_string(probe.height()) +
                                          " pixels",
                                      exposure,
                                      "",
                                      "seen with the light over",
                                      "the right shoulder",
                                      ""};
    for (auto const& stage : light.watch.stages())
        if (stage.name.find(':') == std::string::npos)
            notes.push_back(stage.name + " " + inMilliseconds(stage.milliseconds));
    return notes;
}

std::vector<std::string> labelOf(LitLobe const& lobe)
{
    char captured[32];
    std::snprintf(captured, sizeof captured, "energy held %.1f %%", 100 * lobe.analysis.captured);
    return {lobe.name, captured,
            lobe.analysis.lightOrder ? "light order " + std::to_string(*lobe.analysis.lightOrder)
                                     : "light order beyond 20",
            inMilliseconds(lobe.milliseconds)};
}

ColoursReference makeSheet(Light const& light, EnvironmentMap const& probe, IrradianceAlg const& sums,
                           EnvironmentMap const& diffuse, std::vector<LitLobe> const& lit,
                           Display const& display)
{
    std::vector<Ball> balls = {{&diffuse, {"diffuse", "nine coefficients", "light order 2"}}};
    for (LitLobe const& lobe : lit)
        balls.push_back({lobe.map.get(), labelOf(lobe)});
    auto const notes = notesOf(light, static_cast<Colours const&>(*probe.image()), display);
    return drawSheet(probe, viewLongitude(sums), balls, notes, display);
}

void run(Light& light)
{
    auto const picture = light.files.readAs(light.probe, PixelTypeId::Float3);
    ColoursReference const image = asProbe(*picture.image);
    treatNegatives(light, *image);
    if (koUtil::Error const error = verifyLightProbe(*image))
        throw Failure(light.probeName() + ": " + error.message());
    light.watch.lap("reading");

    // Before any work: without matrices there is no light.
    std::string const rotations = light.rotations.empty() ? cachedRotationFile(light.files)
                                                          : checkedRotationFile(light.files, light.rotations);
    ImageBasedLighting::setRotationMatrixFilename(rotations);
    if (!initializeReflectance(rotations.c_str(), light.files.work("reading rotation matrices")))
        throw Failure(rotations + ": cannot be read");
    light.watch.lap("rotation matrices");

    // Before the work as well, but after all that is to be refused.
    std::error_code problem;
    std::filesystem::create_directories(light.folder, problem);
    if (problem)
        throw Failure(light.folder + ": " + problem.message());

    light.files.work("lighting");
    ImageBasedLighting lighting;
    koUtil::Error error;
    lighting.setLightProbe(image.get(), error);
    if (error)
        throw Failure(light.probeName() + ": " + error.message());
    auto const probeMap = reducedProbe(*lighting.getReflectionMap());
    light.watch.lap("probe map");

    IrradianceAlg sums;
    sums.accumulate(*probeMap);
    Irradiance irradiance;
    sums.getIrradiance(irradiance);
    auto const diffuse = makeMap({EnvironmentMapType::LatLong, 200, false}, PixelTypeId::Float3);
    computeDiffuseMap(irradiance, *diffuse);
    light.watch.lap("diffuse map");

    std::vector<LitLobe> lit;
    {
        StageObserver const observer(light.watch);
        lighting.updateLightCoeffs(nullptr);
        lit = lightLobes(light, lighting);
    }

    // A white surface in the brightest light is nearly white: as a photographer would expose it.
    float const most = brightest(static_cast<Colours const&>(*diffuse->image()));
    Display const display(most > 0.0f ? 1.25f * most : 1.0f);
    light.files.work("drawing the sheet");
    auto const sheet = makeSheet(light, *lighting.getReflectionMap(), sums, *diffuse, lit, display);
    light.watch.lap("sheet");

    savePng(light, "sheet.png", *sheet);
    saveMap(light, "probe", *probeMap, display);
    saveMap(light, "diffuse", *diffuse, display);
    for (LitLobe const& lobe : lit)
        saveMap(light, lobe.fileName, *lobe.map, display);

    Json lobes = Json::array();
    for (LitLobe const& lobe : lit)
        lobes.push_back(describe(lobe));
    Json const about = {{"probe",
                         {{"file", light.probe},
                          {"shape", shapeName(*lighting.getReflectionMap())},
                          {"width", image->width()},
                          {"height", image->height()}}},
                        {"exposure", display.exposure()},
                        {"sheetLongitude", viewLongitude(sums)},
                        {"lobes", lobes},
                        {"irradiance", reportIrradiance(sums)}};
    light.files.saveText(pathOf(light, "lighting.json"), jsonText(about, 2) + "\n");
    light.watch.lap("writing");

    light.files.endLine();
    if (light.json) {
        Json report = about;
        report["files"] = light.written;
        report["timings"] = describe(light.watch);
        std::cout << jsonText(report) << '\n';
        return;
    }
    for (std::string const& file : light.written)
        std::cout << printable(file) << '\n';
}

void checkLobes(Light& light)
{
    if (light.lobeNames.empty())
        light.lobeNames = {"phong:50", "phong:15", "ggx:0.7"};
    std::set<std::string> names;
    for (std::string const& name : light.lobeNames) {
        if (!names.insert(name).second)
            throw CLI::ValidationError("--lobe", name + ": is asked for twice");
        light.lobes.push_back(parseLobe(name));
    }
}

void add(CLI::App& command)
{
    auto const light = std::make_shared<Light>();
    command
        .add_option("PROBE", light->probe,
                    "The light probe, lat-long or cross, - for standard input; its shape is known by its "
                    "proportions")
        ->required();
    command.add_option("-o,--output", light->folder, "The folder to write to, made where it is missing")
        ->required();
    command
        .add_option("--lobe", light->lobeNames,
                    "A surface to light: phong:EXPONENT (0 to 200), ggx:ROUGHNESS (0.2 to 1) or lambert; as "
                    "often as you like. Without it phong:50, phong:15 and ggx:0.7")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--rotations", light->rotations,
                       "File of rotation matrices; without it the one in the cache folder, made once");
    command.add_flag("--clamp-negative", light->clampNegative, "Take values of the probe below 0 for 0");
    light->files.addSource(command);
    light->files.addQuiet(command);
    command.add_flag("--json", light->json,
                     "Tell on standard output as JSON what was written, and how long each stage took");
    command.callback([light] {
        checkLobes(*light);
        run(*light);
    });
}

}  // namespace

Verb const lightVerb = {"light", "The diffuse light and specular maps of a light probe",
                        "koimage light probe.exr -o lit\n"
                        "koimage light probe.exr -o lit --lobe phong:50 --lobe ggx:0.3 --lobe ggx:0.8",
                        add};

}  // namespace koTool
