// Which name did the user mean?
#pragma once

#include <string>
#include <vector>

namespace koTool {

/// The name that takes the fewest changes to come from what was typed: letters added, dropped, replaced, or
/// two neighbours swapped. The first of several; "" when more than half of the letters would have to change.
std::string nearestName(std::string const& typed, std::vector<std::string> const& names);

}  // namespace koTool
