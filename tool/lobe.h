// Lobes as the user names them.
#pragma once

#include "koImage/lighting/reflectance_function.h"

#include <memory>
#include <string>

namespace koTool {

struct Lobe {
    std::string name;  ///< as it was typed: "phong:20"
    std::unique_ptr<koImage::ReflectanceFunction> reflectance;

    /// The name without the colon, for files.
    std::string fileName() const;
};

/// "phong:EXPONENT", "ggx:ROUGHNESS" or "lambert"; throws a CLI::ValidationError where it is neither, or
/// beyond what the lobe takes.
Lobe parseLobe(std::string const& name);

}  // namespace koTool
