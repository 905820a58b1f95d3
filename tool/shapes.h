// Environment maps as the verbs offer them.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/envmap/environment_map.h"
#include "koImage/image/image.h"
#include "koImageIO/picture.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace koTool {

using MapReference = ko::Reference<koImage::EnvironmentMap>;

/// A shape and size as the user chooses them.
struct MapChoice {
    koImage::EnvironmentMapType shape = koImage::EnvironmentMapType::LatLong;
    int size = 0;
    bool horizontal = false;
};

/// --shape, --size, --horizontal
void addMapChoice(CLI::App& command, MapChoice& choice);

/// Throws where a choice contradicts itself: to be called before the work begins.
void checkMapChoice(MapChoice const& choice);

/// A new map with an image of that pixel type, its pixels undefined.
MapReference makeMap(MapChoice const& choice, koImage::PixelTypeId type);

/// The map that an image is by its proportions, or null. Horizontal crosses are recognised as well.
///
///   shape   2 : 1 lat-long, 1 : 1 sphere, 3 : 4 vertical cross, 4 : 3 horizontal cross
MapReference recogniseMap(koImage::Image& image);

/// The same, or a Failure that tells the proportions.
MapReference requireMap(koImage::Image& image, std::string const& file);

/// "latlong", "sphere", "cross" or "horizontal cross".
char const* shapeName(koImage::EnvironmentMap const& map);

/// What a file should say of a map: its shape, and which way it is turned.
koImageIO::Metadata describeMap(koImage::EnvironmentMap const& map, koImageIO::Metadata metadata);

/// Throws when that many pixels are none, or too many for one image.
void checkPixelCount(std::string const& option, double width, double height);

}  // namespace koTool
