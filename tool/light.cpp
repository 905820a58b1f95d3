// koimage light: the whole way from a light probe to its diffuse light and specular maps, and one sheet with
// pictures of them.

#include "koImage/envmap/lat_long_map.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/image_based_lighting.h"
#include "tool/display.h"
#include "tool/files.h"
#include "tool/irradiance_report.h"
#include "tool/library_output.h"
#include "tool/light_probe.h"
#include "tool/lobe.h"
#include "tool/output_folder.h"
#include "tool/rotation_cache.h"
#include "tool/saved_light.h"
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

struct LitLobe {
    SavedLobe found;
    std::string fileName;
    MapReference map;
};

struct Light {
    Files files;
    std::string probe;
    std::string folder;
    std::vector<std::string> lobeNames;
    std::vector<Lobe> lobes;
    std::string rotations;
    std::string save;
    bool clampNegative = false;
    bool json = false;

    Stopwatch watch;
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
        light.files.remark(probeName(light.probe) + ": " + std::to_string(count) +
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

/// What was lit before of a lobe, or null.
SavedLobe* savedLobe(SavedLight& saved, std::string const& name)
{
    auto const found = std::find_if(saved.lobes.begin(), saved.lobes.end(), [&](SavedLobe const& lobe) {
        return lobe.name == name && lobe.map != nullptr;
    });
    return found != saved.lobes.end() ? &*found : nullptr;
}

int unusedKey(SavedLight const& saved)
{
    std::set<int> used;
    for (SavedLobe const& lobe : saved.lobes)
        used.insert(lobe.key);
    int key = 0;
    while (used.contains(key))
        ++key;
    return key;
}

/// Lights a lobe that the saved light lacks.
void lightLobe(Light& light, SavedLight& saved, Lobe& lobe)
{
    koUtil::Progress* const progress = light.files.work("lighting " + lobe.name);
    light.watch.nameWork(lobe.name);
    std::size_t const first = light.watch.stages().size();

    SavedLobe result{lobe.name, unusedKey(saved), nullptr, {}, 0.0};
    // Each function is known to the lighting by its key.
    lobe.reflectance->setKey(result.key);
    {
        LibraryOutput output;
        auto const* const map = saved.lighting.getSpecularMap(*lobe.reflectance, progress);
        result.map = map != nullptr ? map->image() : nullptr;
        result.analysis = analysisIn(output.text());
    }
    if (!result.map)
        throw Failure(probeName(light.probe) + ": no specular map of " + lobe.name);
    if (!result.analysis.lightOrder)
        light.files.remark(lobe.name +
                           ": too narrow for 20 degrees of light: rings show around what is bright");
    auto const& stages = light.watch.stages();
    for (std::size_t i = first; i < stages.size(); ++i)
        result.milliseconds += stages[i].milliseconds;
    light.watch.nameWork("");

    // One of that name has lost its map.
    std::erase_if(saved.lobes, [&](SavedLobe const& old) { return old.name == lobe.name; });
    saved.lobes.push_back(std::move(result));
}

/// The map of a lobe that is lit. What was saved may be anything.
MapReference mapOf(Light const& light, SavedLight& saved, Lobe& lobe)
{
    SavedLobe const& found = *savedLobe(saved, lobe.name);
    lobe.reflectance->setKey(found.key);
    LibraryOutput const output;
    MapReference map = saved.lighting.getSpecularMap(*lobe.reflectance, nullptr);
    auto const* const image = dynamic_cast<Colours const*>(found.map.get());
    if (!map || image == nullptr || map->image() != image || verifyLightProbe(*image))
        throw Failure(probeName(light.probe) + ": holds no specular map of " + lobe.name);
    return map;
}

std::vector<LitLobe> lightLobes(Light& light, SavedLight& saved)
{
    std::vector<LitLobe> lit;
    for (Lobe& lobe : light.lobes) {
        if (savedLobe(saved, lobe.name) == nullptr)
            lightLobe(light, saved, lobe);
        auto const map = mapOf(light, saved, lobe);
        lit.push_back({*savedLobe(saved, lobe.name), lobe.fileName(), map});
    }
    // Mirror-like first: narrow lobes have much energy.
    std::stable_sort(lit.begin(), lit.end(), [](LitLobe const& a, LitLobe const& b) {
        return a.found.analysis.energy > b.found.analysis.energy;
    });
    return lit;
}

/// A map as numbers, and as a picture to look at.
void saveMap(Light& light, OutputFolder& folder, std::string const& name, EnvironmentMap const& map,
             Display const& display)
{
    auto const& image = static_cast<Colours const&>(*map.image());
    koImageIO::WriteOptions options;
    options.bits = 32;
    options.metadata = describeMap(map, {});
    light.files.save(folder.path(name + ".exr"), image, options);
    folder.savePng(light.files, name + ".png", *display.levels(image));
}

Json describe(LitLobe const& lobe)
{
    auto const& [energy, captured, lightOrder] = lobe.found.analysis;
    return {{"lobe", lobe.found.name},
            {"file", lobe.fileName + ".exr"},
            {"energy", energy},
            {"capturedEnergy", captured},
            {"lightOrder", lightOrder ? Json(*lightOrder) : Json()}};
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
std::vector<std::string> notesOf(SavedLight const& saved, Colours const& probe, Display const& display)
{
    char exposure[32];
    std::snprintf(exposure, sizeof exposure, "exposure %+.1f stops", double{display.exposure()});
    std::vector<std::string> notes = {std::filesystem::path(inputName(saved.probe)).filename().string(),
                                      std::to_string(probe.width()) + " x " + std::to_string(probe.height()) +
                                          " pixels",
                                      exposure,
                                      "",
                                      "seen with the light over",
                                      "the right shoulder",
                                      ""};
    for (auto const& stage : saved.stages)
        if (stage.name.find(':') == std::string::npos)
            notes.push_back(stage.name + " " + inMilliseconds(stage.milliseconds));
    return notes;
}

std::vector<std::string> labelOf(SavedLobe const& lobe)
{
    char captured[32];
    std::snprintf(captured, sizeof captured, "energy held %.1f %%", 100 * lobe.analysis.captured);
    return {lobe.name, captured,
            lobe.analysis.lightOrder ? "light order " + std::to_string(*lobe.analysis.lightOrder)
                                     : "light order beyond 20",
            inMilliseconds(lobe.milliseconds)};
}

ColoursReference makeSheet(SavedLight const& saved, IrradianceAlg const& sums, EnvironmentMap const& diffuse,
                           std::vector<LitLobe> const& lit, Display const& display)
{
    std::vector<Ball> balls = {{&diffuse, {"diffuse", "nine coefficients", "light order 2"}}};
    for (LitLobe const& lobe : lit)
        balls.push_back({lobe.map.get(), labelOf(lobe.found)});
    EnvironmentMap const& probe = *saved.lighting.getReflectionMap();
    auto const notes = notesOf(saved, static_cast<Colours const&>(*probe.image()), display);
    return drawSheet(probe, viewLongitude(sums), balls, notes, display);
}

/// Light that was saved before, or null where a picture is meant.
std::unique_ptr<SavedLight> readSaved(Light& light)
{
    if (light.files.namesPart())
        return nullptr;
    auto packets = light.files.readPackets(light.probe);
    if (!packets || packets->lights.empty())
        return nullptr;
    auto saved = std::move(packets->lights.front());

    auto const* const probe = saved->lighting.getReflectionMap();
    auto const* const image = probe != nullptr ? dynamic_cast<Colours const*>(probe->image()) : nullptr;
    if (image == nullptr || verifyLightProbe(*image))
        throw Failure(probeName(light.probe) + ": holds lighting, but not its probe");
    if (light.clampNegative)
        throw Failure(probeName(light.probe) + ": was lit before; --clamp-negative is for pictures");
    return saved;
}

std::unique_ptr<SavedLight> readProbe(Light& light)
{
    ColoursReference const image = readLightProbe(light.files, light.probe);
    treatNegatives(light, *image);
    checkLightProbe(*image, light.probe);

    auto saved = std::make_unique<SavedLight>();
    saved->probe = light.probe;
    koUtil::Error error;
    saved->lighting.setLightProbe(image.get(), error);
    if (error)
        throw Failure(probeName(light.probe) + ": " + error.message());
    return saved;
}

void chooseLobes(Light& light, std::vector<std::string> const& names)
{
    std::set<std::string> chosen;
    for (std::string const& name : names) {
        if (!chosen.insert(name).second)
            throw CLI::ValidationError("--lobe", name + ": is asked for twice");
        light.lobes.push_back(parseLobe(name));
    }
}

/// Where the user names no lobes: those that were lit before, or the usual ones.
void chooseLobes(Light& light, SavedLight const* saved)
{
    if (!light.lobes.empty())
        return;
    std::vector<std::string> names = {"phong:50", "phong:15", "ggx:0.7"};
    if (saved != nullptr) {
        names.clear();
        for (SavedLobe const& lobe : saved->lobes)
            names.push_back(lobe.name);
    }
    try {
        chooseLobes(light, names);
    } catch (CLI::ValidationError const& error) {
        throw Failure(probeName(light.probe) + ": " + error.what());
    }
}

void run(Light& light)
{
    auto saved = readSaved(light);
    chooseLobes(light, saved.get());
    bool const isNew = saved == nullptr;
    if (isNew)
        saved = readProbe(light);
    light.watch.lap("reading");

    // Before any work. What was lit before needs no matrices.
    bool const computes = isNew || std::any_of(light.lobes.begin(), light.lobes.end(), [&](Lobe const& lobe) {
                              return savedLobe(*saved, lobe.name) == nullptr;
                          });
    if (computes) {
        ImageBasedLighting::setRotationMatrixFilename(loadRotations(light.files, light.rotations));
        light.watch.lap("rotation matrices");
    }

    // Before the work as well, but after all that is to be refused.
    OutputFolder folder(light.folder);

    light.files.work("lighting");
    EnvironmentMap const& probe = *saved->lighting.getReflectionMap();
    StageObserver const observer(light.watch);
    if (computes)
        saved->lighting.updateLightCoeffs(nullptr);
    // Light that was saved does without it.
    ko::Reference<EnvironmentMap const> probeMap = saved->lighting.getReducedProbe();
    if (!probeMap)
        probeMap = reducedProbe(probe);

    IrradianceAlg sums;
    sums.accumulate(*probeMap);
    Irradiance irradiance;
    sums.getIrradiance(irradiance);
    auto const diffuse = makeMap({EnvironmentMapType::LatLong, 200, false}, PixelTypeId::Float3);
    computeDiffuseMap(irradiance, *diffuse);
    light.watch.lap("diffuse map");

    std::vector<LitLobe> const lit = lightLobes(light, *saved);
    if (isNew)
        saved->stages = light.watch.stages();

    auto const display = Display::forSurfaces(static_cast<Colours const&>(*diffuse->image()));
    light.files.work("drawing the sheet");
    auto const sheet = makeSheet(*saved, sums, *diffuse, lit, display);
    light.watch.lap("sheet");

    folder.savePng(light.files, "sheet.png", *sheet);
    saveMap(light, folder, "probe", *probeMap, display);
    saveMap(light, folder, "diffuse", *diffuse, display);
    for (LitLobe const& lobe : lit)
        saveMap(light, folder, lobe.fileName, *lobe.map, display);

    Json lobes = Json::array();
    for (LitLobe const& lobe : lit)
        lobes.push_back(describe(lobe));
    Json const about = {{"probe",
                         {{"file", saved->probe},
                          {"shape", shapeName(probe)},
                          {"width", probe.image()->width()},
                          {"height", probe.image()->height()}}},
                        {"exposure", display.exposure()},
                        {"sheetLongitude", viewLongitude(sums)},
                        {"lobes", lobes},
                        {"irradiance", reportIrradiance(sums)}};
    folder.saveText(light.files, "lighting.json", jsonText(about, 2) + "\n");
    std::vector<std::string> written = folder.written();
    if (!light.save.empty()) {
        writePacketFile(light.save, [&](ioWriteContext& out) { saved->write(out); });
        written.push_back(light.save);
    }
    light.watch.lap("writing");

    light.files.endLine();
    if (light.json) {
        Json report = about;
        report["files"] = written;
        report["timings"] = describe(light.watch);
        std::cout << jsonText(report) << '\n';
        return;
    }
    for (std::string const& file : written)
        std::cout << printable(file) << '\n';
}

void add(CLI::App& command)
{
    auto const light = std::make_shared<Light>();
    command
        .add_option("PROBE", light->probe,
                    "The light probe, lat-long or cross, - for standard input; its shape is known by its "
                    "proportions. Or a file that --save wrote, to go on from")
        ->required();
    command.add_option("-o,--output", light->folder, "The folder to write to, made where it is missing")
        ->required();
    command
        .add_option("--lobe", light->lobeNames,
                    "A surface to light: phong:EXPONENT (0 to 200), ggx:ROUGHNESS (0.2 to 1) or lambert; as "
                    "often as you like. Without it phong:50, phong:15 and ggx:0.7, or what was saved")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command.add_option("--save", light->save,
                       "A packet file to save the lighting in, so that it need not be computed again");
    command.add_option("--rotations", light->rotations,
                       "File of rotation matrices; without it the one in the cache folder, made once");
    command.add_flag("--clamp-negative", light->clampNegative, "Take values of the probe below 0 for 0");
    light->files.addSource(command);
    light->files.addQuiet(command);
    command.add_flag("--json", light->json,
                     "Tell on standard output as JSON what was written, and how long each stage took");
    command.callback([light] {
        chooseLobes(*light, light->lobeNames);
        if (light->save == "-")
            throw CLI::ValidationError("--save", "standard output takes the report already");
        run(*light);
    });
}

}  // namespace

Verb const lightVerb = {"light", "The diffuse light and specular maps of a light probe",
                        "koimage light probe.exr -o lit\n"
                        "koimage light probe.exr -o lit --lobe phong:50 --lobe ggx:0.3 --lobe ggx:0.8\n"
                        "koimage light probe.exr -o lit --save probe.packets\n"
                        "koimage light probe.packets -o more --lobe phong:50 --lobe lambert",
                        add};

}  // namespace koTool
