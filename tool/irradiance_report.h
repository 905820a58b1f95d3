// The nine coefficients and three matrices of diffuse light as JSON, with their conventions in words.
#pragma once

#include "koImage/lighting/irradiance.h"

#include <nlohmann/json_fwd.hpp>

namespace koTool {

/// What the sums hold, twice:
///
///   "stored"     as the library has them: odd orders carry a minus sign, so n'Mn, n = (x, y, z, 1), is the
///                light on a surface that faces (-x, -y, z)
///   "converted"  without those signs, as in most papers and programs: n'Mn is the light on a surface that
///                faces (x, y, z)
nlohmann::ordered_json reportIrradiance(koImage::IrradianceAlg const& sums);

}  // namespace koTool
