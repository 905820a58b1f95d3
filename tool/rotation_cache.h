// The file of rotation matrices in the user's cache folder.
#pragma once

#include "tool/files.h"

#include <string>

namespace koTool {

/// koimage/rotations.txt in XDG_CACHE_HOME, or else in ~/.cache: checked, and made where it is missing or
/// wrong.
///
///   failure   a Failure that tells the reason and the way out, --rotations
std::string cachedRotationFile(Files& files);

/// The file of the user's choice, checked.
std::string checkedRotationFile(Files& files, std::string const& file);

}  // namespace koTool
