// koimage dump: what stands between a light probe and a specular map, as files to look into.

#include "koImage/lighting/coefficients.h"
#include "koImage/lighting/diagnostics.h"
#include "koImage/lighting/harmonics.h"
#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/irradiance.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/lighting/specular_map.h"
#include "tool/display.h"
#include "tool/files.h"
#include "tool/library_output.h"
#include "tool/light_probe.h"
#include "tool/lobe.h"
#include "tool/output_folder.h"
#include "tool/panels.h"
#include "tool/rotation_cache.h"
#include "tool/shapes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>

namespace koTool {

using namespace koImage;

namespace {

constexpr int mapWidth = harmonics::azimuthSamples;
constexpr int mapHeight = harmonics::polarSamples;
constexpr int outputOrder = HarmonicsPixel::order();

/// The surface in the middle of the map: it faces -y.
constexpr int middleColumn = mapWidth / 2;
constexpr int middleRow = mapHeight / 2;

constexpr int faceSize = 32;

constexpr double alongNormal[] = {0.0, 0.0, 1.0};

struct Dump {
    Files files;
    std::string probe;
    std::string folder;
    std::string lobeName = "phong:20";
    std::array<double, 3> view = {0.0, 1.0, 0.0};
    std::string rotations;
    bool json = false;
};

/// The lobe's coefficients, and what the library says about them.
struct Reflectance {
    koUtil::ArrayN<3, Double3> coeffs{21, 21, 21};
    std::string listing;
    std::string analysis;
};

Reflectance expand(Lobe const& lobe, SphericalHarmonics<Double3> const& light)
{
    Reflectance reflectance;
    ReflectanceSamples samples(100, 100, 200);
    Double3 const energy = lobe.reflectance->sample(samples);
    computeBrdfCoeffs(samples, reflectance.coeffs, outputOrder);

    // Ready lobes are grey: one channel tells all. What the library leaves alone is 0 in the listing.
    auto const red = std::make_unique<double[][21][21][21]>(1);
    for (int l = 0; l <= harmonics::maxDegree; ++l)
        for (int p = 0; p <= outputOrder; ++p)
            for (int q = 0; q <= std::min(l, p); ++q)
                red[0][l][p][q] = reflectance.coeffs(l, p, q).r;
    {
        LibraryOutput output;
        printBrdfCoeffs(red[0]);
        reflectance.listing = output.text();
    }
    LibraryOutput output;
    int lightOrder = 0;
    int brdfOrder = 0;
    computeOrder(light, reflectance.coeffs, energy, lightOrder, brdfOrder);
    reflectance.analysis = output.text();
    return reflectance;
}

std::string listing(SphericalHarmonics<Double3> const& light)
{
    std::string text;
    for (int l = 0; l <= light.order(); ++l)
        for (int m = -l; m <= l; ++m) {
            Double3 const& value = light.at(l, m);
            std::array<char, 200> line;
            std::snprintf(line.data(), line.size(), "%4d %4d %16.9g %16.9g %16.9g\n", l, m, value.r, value.g,
                          value.b);
            text += line.data();
        }
    return text;
}

/// The largest magnitude among the coefficients of a map.
double largestCoefficient(TypedImage<HarmonicsPixel> const& map)
{
    double most = 0.0;
    for (HarmonicsPixel const& pixel : pixelsOf<HarmonicsPixel>(map))
        for (int k = 0; k < HarmonicsPixel::size(); ++k)
            most = std::max({most, std::abs(pixel[k].r), std::abs(pixel[k].g), std::abs(pixel[k].b)});
    return most;
}

/// The exposure for surfaces in the light of a probe.
Display displayFor(EnvironmentMap const& probe)
{
    IrradianceAlg sums;
    sums.accumulate(probe);
    Irradiance irradiance;
    sums.getIrradiance(irradiance);
    auto const diffuse = makeMap({EnvironmentMapType::LatLong, mapWidth, false}, PixelTypeId::Float3);
    computeDiffuseMap(irradiance, *diffuse);
    return Display::forSurfaces(static_cast<Colours const&>(*diffuse->image()));
}

// --- Pictures ---

/// A basis function as a map: red where it is above 0, blue where it is below.
ColoursReference drawHarmonic(int l, int m)
{
    constexpr int width = 56;
    constexpr int height = width / 2;
    ColoursReference picture = newColours(width, height);
    auto const index = [](int pixel, int pixels, int samples) { return (pixel + 0.5) / pixels * samples; };
    float most = 0.0f;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto const value = static_cast<float>(
                harmonics::Y(l, m, index(y, height, mapHeight), index(x, width, mapWidth)));
            most = std::max(most, std::abs(value));
            picture->pixels()[pixelOffset(x, y, width)].r = value;
        }
    for (Float3& pixel : pixelsOf<Float3>(*picture)) {
        float const value = pixel.r / most;
        float const up = std::max(value, 0.0f);
        float const down = std::max(-value, 0.0f);
        pixel = {0.05f + 0.95f * up + 0.1f * down, 0.05f + 0.5f * up + 0.4f * down,
                 0.05f + 0.1f * up + 0.95f * down};
    }
    return picture;
}

ColoursReference drawBasis()
{
    std::vector<std::vector<Panel>> rows;
    for (int l = 0; l <= outputOrder; ++l) {
        rows.emplace_back();
        for (int m = -l; m <= l; ++m)
            rows.back().push_back({drawHarmonic(l, m), std::to_string(l) + " " + std::to_string(m)});
    }
    return drawPanels(rows, 1);
}

/// The light that its coefficients up to a degree describe, on the grid of the harmonics.
ColoursReference reconstruct(SphericalHarmonics<Double3> const& light, int degree)
{
    std::vector<Double3> sums(std::size_t{mapWidth} * mapHeight);
    for (int l = 0; l <= degree; ++l)
        for (int m = -l; m <= l; ++m) {
            Double3 const& coefficient = light.at(l, m);
            for (int t = 0; t < mapHeight; ++t) {
                double const polar = harmonics::legendrePart(l, m, t);
                for (int x = 0; x < mapWidth; ++x) {
                    double const y = polar * harmonics::azimuthPart(m, x);
                    Double3& sum = sums[static_cast<std::size_t>(pixelOffset(x, t, mapWidth))];
                    sum = {sum.r + y * coefficient.r, sum.g + y * coefficient.g, sum.b + y * coefficient.b};
                }
            }
        }
    ColoursReference picture = newColours(mapWidth, mapHeight);
    std::transform(sums.begin(), sums.end(), picture->pixels(), [](Double3 const& sum) {
        return Float3{static_cast<float>(sum.r), static_cast<float>(sum.g), static_cast<float>(sum.b)};
    });
    return picture;
}

/// What the coefficients make of the probe, and of what the surfaces of the lobe send back along their
/// normals, the more of them are used.
ColoursReference drawReconstructions(EnvironmentMap const& probe, SphericalHarmonics<Double3> const& light,
                                     koUtil::ArrayN<3, Double3> const& coeffs, std::string const& lobe,
                                     Display const& display)
{
    auto const& image = static_cast<Colours const&>(*probe.image());
    std::vector<Panel> lit = {{display.levels(image), "light probe"}};
    for (int const degree : {1, 2, 5, 10, 20})
        lit.push_back(
            {display.levels(*reconstruct(light, degree)), "light to degree " + std::to_string(degree)});

    std::vector<Panel> reflected;
    TypedImage<HarmonicsPixel> map;
    ColoursReference const specular = newColours(0, 0);
    for (int const degree : {0, 1, 2, 5, 10, 20}) {
        computeReflectionCoeffs(light, coeffs, degree, outputOrder, map, nullptr);
        computeSpecularMap(map, alongNormal, outputOrder, 1.0, *specular);
        reflected.push_back({display.levels(*specular), lobe + " to degree " + std::to_string(degree)});
    }

    std::vector<std::vector<Panel>> rows;
    for (auto const& panels : {lit, reflected})
        for (std::size_t i = 0; i < panels.size(); i += 3)
            rows.emplace_back(panels.begin() + static_cast<std::ptrdiff_t>(i),
                              panels.begin() + static_cast<std::ptrdiff_t>(i + 3));
    return drawPanels(rows, 1);
}

// --- The library's own files ---

/// The names of what writeDiagnostics leaves.
std::vector<std::string> diagnosticNames()
{
    std::vector<std::string> names = {"map.shrm"};
    for (char const* const face : {"nx", "px", "ny", "py", "nz", "pz"})
        names.push_back(std::string("cube_") + face + ".shrm");
    for (char const* const name :
         {"probe.ppm", "tmp.ppm", "tmpref.ppm", "tmpjbsphere.ppm", "tmpfreq.ppm", "tmp3D.ppm"})
        names.emplace_back(name);
    for (int p = 0; p <= outputOrder; ++p)
        names.push_back("refp" + std::to_string(p) + ".ppm");
    for (int t = 0; t < mapHeight; t += 10)
        for (char const* const name : {"tmpfreq", "tmp3D"})
            names.push_back(name + std::to_string(t) + ".ppm");
    return names;
}

/// Into the working directory.
koUtil::Error writeDiagnostics(Colours const& probe, TypedImage<HarmonicsPixel> const& map,
                               double const* view, double scale)
{
    double const most = largestCoefficient(map);
    if (auto error = printshrms("map", "cube", faceSize, map, most > 0.0 ? 1 / most : 1.0))
        return error;
    if (auto error = dumpImage("probe", probe, true))
        return error;
    if (auto error = dumpimage(map, alongNormal, scale))
        return error;
    if (auto error = dumpimageref(map, view, scale))
        return error;
    if (auto error = dumpimagerefp(map, view, scale))
        return error;
    if (auto error = dumpjbsphere(map, view, outputOrder, scale))
        return error;
    if (auto error = dumpimagesphere(map, middleColumn, middleRow, scale))
        return error;
    return dumpimagesphereall(map, middleColumn, scale);
}

void run(Dump& dump)
{
    Lobe const lobe = parseLobe(dump.lobeName);
    ColoursReference const image = readLightProbe(dump.files, dump.probe);
    checkLightProbe(*image, dump.probe);
    loadRotations(dump.files, dump.rotations);
    OutputFolder folder(dump.folder);

    dump.files.work("lighting " + lobe.name);
    MapReference const probe = reducedProbe(*requireMap(*image, dump.probe));
    auto const& reduced = static_cast<Colours const&>(*probe->image());
    SphericalHarmonics<Double3> light(harmonics::maxDegree);
    computeLightCoeffs(reduced, light);
    Reflectance const reflectance = expand(lobe, light);
    TypedImage<HarmonicsPixel> map;
    computeReflectionCoeffs(light, reflectance.coeffs, harmonics::maxDegree, outputOrder, map, nullptr);
    Display const display = displayFor(*probe);

    dump.files.work("drawing");
    folder.savePng(dump.files, "reconstruction.png",
                   *drawReconstructions(*probe, light, reflectance.coeffs, lobe.name, display));
    folder.savePng(dump.files, "basis.png", *drawBasis());
    folder.saveText(dump.files, "light.txt", listing(light));
    folder.saveText(dump.files, "brdf.txt", reflectance.listing);
    folder.saveText(dump.files, "order.txt", reflectance.analysis);

    dump.files.work("writing the reflection map");
    for (std::string const& name : diagnosticNames())
        folder.path(name);

    // That is where the library writes; nothing is opened by its name afterwards.
    std::error_code problem;
    std::filesystem::current_path(dump.folder, problem);
    if (problem)
        throw Failure(dump.folder + ": " + problem.message());
    double const scale = std::exp2(double{display.exposure()});
    if (koUtil::Error const error = writeDiagnostics(reduced, map, dump.view.data(), scale))
        throw Failure(std::filesystem::path(dump.folder) / error.message());

    dump.files.endLine();
    if (dump.json) {
        nlohmann::ordered_json const report = {{"probe", dump.probe},
                                               {"lobe", lobe.name},
                                               {"view", dump.view},
                                               {"exposure", display.exposure()},
                                               {"files", folder.written()}};
        std::cout << jsonText(report) << '\n';
        return;
    }
    for (std::string const& file : folder.written())
        std::cout << printable(file) << '\n';
}

void add(CLI::App& command)
{
    auto const dump = std::make_shared<Dump>();
    command
        .add_option("PROBE", dump->probe,
                    "The light probe, lat-long or cross, - for standard input; its shape is known by its "
                    "proportions")
        ->required();
    command.add_option("-o,--output", dump->folder, "The folder to write to, made where it is missing")
        ->required();
    command.add_option("--lobe", dump->lobeName,
                       "The surface: phong:EXPONENT (0 to 200), ggx:ROUGHNESS (0.2 to 1) or lambert; without "
                       "it phong:20");
    command
        .add_option("--view", dump->view,
                    "Where the viewer stands; without it 0 1 0, who looks along -y. The ready lobes look the "
                    "same from everywhere")
        ->type_name("X Y Z");
    command.add_option("--rotations", dump->rotations,
                       "File of rotation matrices; without it the one in the cache folder, made once");
    dump->files.addSource(command);
    dump->files.addQuiet(command);
    command.add_flag("--json", dump->json, "Tell on standard output as JSON what was written");
    command.callback([dump] {
        double const length = std::hypot(dump->view[0], dump->view[1], dump->view[2]);
        if (!(length > 0.0 && std::isfinite(length)))
            throw CLI::ValidationError("--view", "takes a direction: three numbers, not all 0");
        run(*dump);
    });
}

}  // namespace

Verb const dumpVerb = {"dump", "What stands between a light probe and a specular map, as files to look into",
                       "koimage dump probe.exr -o inside\n"
                       "koimage dump probe.exr -o inside --lobe ggx:0.3 --view 1 1 0.5",
                       add};

}  // namespace koTool
