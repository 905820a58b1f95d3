// koimage probe: the labelled probe, to see which way a program turns environment maps.

#include "koImage/envmap/labelled_probe.h"

#include "tool/files.h"
#include "tool/shapes.h"

#include <memory>

namespace koTool {

namespace {

struct Probe {
    Files files;
    MapChoice choice;
};

void run(Probe& probe)
{
    probe.files.work("drawing");
    auto const map = makeMap(probe.choice, koImage::PixelTypeId::Float3);
    koImage::drawLabelledProbe(*map);
    probe.files.write(*map->image(), describeMap(*map, {}));
}

void add(CLI::App& command)
{
    auto const probe = std::make_shared<Probe>();
    probe->files.addOutput(command);
    addMapChoice(command, probe->choice);
    command.callback([probe] {
        checkMapChoice(probe->choice);
        run(*probe);
    });
}

}  // namespace

Verb const probeVerb = {"probe", "A test probe: six coloured faces with their names, and one sun",
                        "koimage probe probe.exr --shape latlong --size 1024\n"
                        "koimage probe probe.png --shape cross --size 256",
                        add};

}  // namespace koTool
