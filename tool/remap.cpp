// koimage remap: an environment map in another shape or size.

#include "koImage/envmap/remap.h"

#include "koImage/image/pixel_dispatch.h"
#include "tool/files.h"
#include "tool/shapes.h"

#include <memory>

namespace koTool {

using namespace koImage;

namespace {

struct Remap {
    Files files;
    std::string input;
    MapChoice choice;
};

void run(Remap& remap)
{
    auto const picture = remap.files.read(remap.input, RemapPixels::contains);
    auto const source = requireMap(*picture.image, remap.input);
    auto const result = makeMap(remap.choice, picture.image->pixelType());

    remap.files.work("remapping");
    koImage::remap(*source, *result);
    remap.files.write(*result->image(), describeMap(*result, picture.metadata));
}

void add(CLI::App& command)
{
    auto const remap = std::make_shared<Remap>();
    command
        .add_option(
            "IN", remap->input,
            "The environment map to read, - for standard input; its shape is known by its proportions")
        ->required();
    remap->files.addInput(command);
    remap->files.addOutput(command);
    addMapChoice(command, remap->choice);
    command.callback([remap] {
        checkMapChoice(remap->choice);
        run(*remap);
    });
}

}  // namespace

Verb const remapVerb = {"remap", "An environment map in another shape: lat-long, cross or sphere",
                        "koimage remap panorama.exr cross.exr --shape cross --size 256\n"
                        "koimage remap cross.hdr panorama.hdr --shape latlong --size 2048\n"
                        "koimage remap panorama.exr wide.exr --shape cross --horizontal --size 256",
                        add};

}  // namespace koTool
