#include "tool/light_probe.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/image/fill.h"
#include "koImage/lighting/image_based_lighting.h"
#include "tool/shapes.h"

namespace koTool {

using namespace koImage;

ColoursReference readLightProbe(Files& files, std::string const& file)
{
    auto const picture = files.readAs(file, PixelTypeId::Float3);
    Image& image = *picture.image;
    auto const map = recogniseMap(image);
    if (!map || map->mapType() != EnvironmentMapType::Cross ||
        !static_cast<CrossMap const&>(*map).horizontal())
        return static_cast<Colours*>(&image);

    auto const vertical = makeMap({EnvironmentMapType::Cross, image.width() / 4, false}, PixelTypeId::Float3);
    fillBlack(*vertical->image());
    auto const face = newColours(0, 0);
    for (int i = 0; i < 6; ++i) {
        static_cast<CrossMap const&>(*map).copyFace(image, *face, i);
        static_cast<CrossMap&>(*vertical).pasteFace(*face, i);
    }
    return static_cast<Colours*>(vertical->image());
}

void checkLightProbe(Colours const& probe, std::string const& file)
{
    if (koUtil::Error const error = verifyLightProbe(probe))
        throw Failure(probeName(file) + ": " + error.message());
}

std::string probeName(std::string const& file)
{
    return file == "-" ? "standard input" : file;
}

}  // namespace koTool
