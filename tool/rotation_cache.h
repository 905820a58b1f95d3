// The file of rotation matrices in the user's cache folder.
#pragma once

#include "tool/files.h"

#include <string>

namespace koTool {

/// Loads the rotation matrices and gives the path of their file: the user's choice, checked. Where that is
/// empty it is koimage/rotations.txt in XDG_CACHE_HOME, or else in ~/.cache: checked, and made where it is
/// missing or wrong.
///
///   failure   a Failure that tells the reason and, where the file could not be made, the way out,
///   --rotations
std::string loadRotations(Files& files, std::string const& choice);

}  // namespace koTool
