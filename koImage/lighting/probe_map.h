// From an image to the map that serves as light probe. Private.
#pragma once

#include "koBase/error.h"
#include "koBase/reference_count.h"
#include "koImage/envmap/environment_map.h"

namespace koImage {

/// The image as LatLongMap or vertical CrossMap, by its size; null and an error where it is none.
ko::Reference<EnvironmentMap> probeMapOf(Image* image, koUtil::Error& error);

}  // namespace koImage
