// Small pictures in rows, each with a line of text below it.
#pragma once

#include "tool/display.h"

#include <string>
#include <vector>

namespace koTool {

struct Panel {
    ColoursReference levels;  ///< of the screen
    std::string label;
};

/// Draws the rows one below the other, each in the middle of the sheet. A label that is wider than its panel
/// is cut.
///
///   textScale   of the labels: see drawText
ColoursReference drawPanels(std::vector<std::vector<Panel>> const& rows, int textScale);

}  // namespace koTool
