// A picture of a layout: rectangles in colours that tell them apart, with names on them.
#pragma once

#include "koBase/int_range2d.h"
#include "tool/display.h"

#include <string>
#include <vector>

namespace koTool {

struct LayoutTile {
    koUtil::IntRange2d place;  ///< in pixels of the atlas, y from its upper edge, without border
    std::string name;
};

/// Draws an atlas of that size, in levels of the screen. The borders around the tiles are darker than they
/// are.
///
///   size   the longer side has 1024 pixels or a little less; each pixel of a small atlas is a square
///   names  as large as they fit, in one line or else in several; where there is no room, cut, or left out
ColoursReference drawLayout(int width, int height, int border, std::vector<LayoutTile> const& tiles);

}  // namespace koTool
