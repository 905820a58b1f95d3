// koimage irradiance: the diffuse light of an environment map, in numbers and as a picture.

#include "koImage/lighting/irradiance.h"

#include "tool/files.h"
#include "tool/irradiance_report.h"
#include "tool/shapes.h"

#include <nlohmann/json.hpp>

#include <iostream>
#include <memory>

namespace koTool {

using namespace koImage;

namespace {

struct IrradianceOf {
    Files files;
    std::string probe;
    std::string map;
    std::string ball;
};

void saveDiffuse(Files& files, Irradiance const& irradiance, std::string const& file, MapChoice const& choice)
{
    if (file.empty())
        return;
    auto const map = makeMap(choice, PixelTypeId::Float3);
    computeDiffuseMap(irradiance, *map);
    koImageIO::WriteOptions options;
    options.metadata = describeMap(*map, {});
    files.save(file, *map->image(), options);
}

void run(IrradianceOf& task)
{
    auto const picture = task.files.readAs(task.probe, PixelTypeId::Float3);
    auto const map = requireMap(*picture.image, task.probe);

    task.files.work("summing up the light");
    IrradianceAlg sums;
    sums.accumulate(*map);
    Irradiance irradiance;
    sums.getIrradiance(irradiance);
    task.files.endLine();

    saveDiffuse(task.files, irradiance, task.map, {EnvironmentMapType::LatLong, 200, false});
    saveDiffuse(task.files, irradiance, task.ball, {EnvironmentMapType::Sphere, 200, false});

    nlohmann::ordered_json report = {{"file", task.probe},
                                     {"shape", shapeName(*map)},
                                     {"width", picture.image->width()},
                                     {"height", picture.image->height()}};
    report.update(reportIrradiance(sums));
    std::cout << jsonText(report) << '\n';
}

void add(CLI::App& command)
{
    auto const task = std::make_shared<IrradianceOf>();
    command
        .add_option("PROBE", task->probe,
                    "The environment map, - for standard input; its shape is known by its proportions")
        ->required();
    task->files.addSource(command);
    task->files.addQuiet(command);
    command.add_option("--map", task->map,
                       "Picture to write: the light on a white surface that faces each direction of a "
                       "lat-long map of 200 x 100 pixels");
    command.add_option("--ball", task->ball,
                       "Picture to write: the same as a ball of 200 x 200 pixels, seen looking along +y "
                       "with +x on the right");
    command.callback([task] { run(*task); });
}

}  // namespace

Verb const irradianceVerb = {"irradiance", "The diffuse light of an environment map, as JSON",
                             "koimage irradiance probe.exr\n"
                             "koimage irradiance probe.exr --ball ball.png --map diffuse.exr",
                             add};

}  // namespace koTool
