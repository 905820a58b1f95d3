// One picture that shows a light probe and what it lights.
//
// The viewer stands in the middle of the probe and has the light over the right shoulder: the panorama is
// turned until the side that most light comes from is 130 degrees to the right of its middle, and the balls
// float before the viewer. So a ball is bright on the right where the panorama is, and above where the sky
// is; it is no mirror image.
#pragma once

#include "koImage/envmap/environment_map.h"
#include "koImage/lighting/irradiance.h"
#include "tool/display.h"

#include <string>
#include <vector>

namespace koTool {

/// A ball whose pixels are those of a map in the direction of its normals.
struct Ball {
    koImage::EnvironmentMap const* map;  ///< of Float3 pixels
    std::vector<std::string> lines;      ///< below it; at most 4 are shown
};

/// The longitude [rad] that the viewer looks along: see LatLongMap::longitude.
///
///   sums   of the light; 0, the middle of the probe, where it comes from all sides alike
float viewLongitude(koImage::IrradianceAlg const& sums);

/// Draws the sheet, in levels of the screen.
///
///   probe  of Float3 pixels
///   notes  beside the panorama
ColoursReference drawSheet(koImage::EnvironmentMap const& probe, float view, std::vector<Ball> const& balls,
                           std::vector<std::string> const& notes, Display const& display);

}  // namespace koTool
