#include "tool/shapes.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/image/factory.h"
#include "tool/files.h"
#include "tool/verb.h"

#include <limits>

namespace koTool {

using namespace koImage;

namespace {

struct Size {
    double width;
    double height;
};

Size sizeOf(MapChoice const& choice)
{
    double const size = choice.size;
    switch (choice.shape) {
    case EnvironmentMapType::Sphere:
        return {size, size};
    case EnvironmentMapType::LatLong:
        return {size, size / 2};
    case EnvironmentMapType::Cross:
        break;
    }
    return choice.horizontal ? Size{4 * size, 3 * size} : Size{3 * size, 4 * size};
}

}  // namespace

void addMapChoice(CLI::App& command, MapChoice& choice)
{
    using Shape = EnvironmentMapType;
    addChoice(
        command, "--shape",
        std::vector<std::pair<std::string, Shape>>{
            {"latlong", Shape::LatLong}, {"cross", Shape::Cross}, {"sphere", Shape::Sphere}},
        [&choice](Shape shape) { choice.shape = shape; }, "Shape of the map to make")
        ->required();
    command
        .add_option("--size", choice.size,
                    "Its width in pixels for latlong (even: the height is half of it) and sphere, "
                    "the edge of a face for cross")
        ->required();
    command.add_flag("--horizontal", choice.horizontal, "A cross four faces wide and three high");
}

void checkMapChoice(MapChoice const& choice)
{
    if (choice.horizontal && choice.shape != EnvironmentMapType::Cross)
        throw CLI::ValidationError("--horizontal", "goes with --shape cross");
    if (choice.shape == EnvironmentMapType::LatLong && choice.size % 2 != 0)
        throw CLI::ValidationError("--size", "is even for latlong, which is twice as wide as high");
    auto const [width, height] = sizeOf(choice);
    checkPixelCount("--size", width, height);
}

MapReference makeMap(MapChoice const& choice, PixelTypeId type)
{
    auto const [w, h] = sizeOf(choice);
    int const width = static_cast<int>(w);
    int const height = static_cast<int>(h);
    ko::Reference<Image> const image(imageCreateByType(type));
    image->resize(width, height);

    MapReference map;
    switch (choice.shape) {
    case EnvironmentMapType::Sphere:
        map = new SphereMap(width);
        break;
    case EnvironmentMapType::LatLong:
        map = new LatLongMap(width, height);
        break;
    case EnvironmentMapType::Cross:
        map = new CrossMap(choice.size, choice.horizontal);
        break;
    }
    map->setImage(image.get());
    return map;
}

MapReference recogniseMap(Image& image)
{
    if (MapReference map = newEnvironmentMap(image))
        return map;
    // The library leaves horizontal crosses to their callers, as not every picture of 4 : 3 is one.
    if (image.width() < 1 || image.width() % 4 != 0 || image.width() / 4 * 3 != image.height())
        return nullptr;
    MapReference cross(new CrossMap(image.width() / 4, true));
    cross->setImage(&image);
    image.setWrap(true, true);
    return cross;
}

MapReference requireMap(Image& image, std::string const& file)
{
    if (MapReference map = recogniseMap(image))
        return map;
    throw Failure(file + ": " + std::to_string(image.width()) + " x " + std::to_string(image.height()) +
                  " pixels are no environment map: those are 2 : 1 (latlong), 1 : 1 (sphere), "
                  "3 : 4 or 4 : 3 (cross)");
}

char const* shapeName(EnvironmentMap const& map)
{
    switch (map.mapType()) {
    case EnvironmentMapType::Sphere:
        return "sphere";
    case EnvironmentMapType::LatLong:
        return "latlong";
    case EnvironmentMapType::Cross:
        break;
    }
    return static_cast<CrossMap const&>(map).horizontal() ? "horizontal cross" : "cross";
}

koImageIO::Metadata describeMap(EnvironmentMap const& map, koImageIO::Metadata metadata)
{
    metadata = without(without(std::move(metadata), "shape"), "orientation");
    metadata.emplace_back("shape", shapeName(map));
    metadata.emplace_back("orientation", map.mapType() == EnvironmentMapType::Sphere
                                             ? "+z up, -y in the middle, +x on the right"
                                             : "+z up, -y in the middle, -x on the right");
    return metadata;
}

void checkPixelCount(std::string const& option, double width, double height)
{
    if (!(width >= 1.0 && height >= 1.0))
        throw CLI::ValidationError(option, "makes no picture: sides are at least 1");
    if (!(width * height <= std::numeric_limits<int>::max()))
        throw CLI::ValidationError(option, "makes too many pixels: an image holds 2147483647");
}

}  // namespace koTool
