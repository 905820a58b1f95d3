// Letters drawn into pictures.
#pragma once

#include "tool/display.h"

#include <string>

namespace koTool {

inline constexpr int letterWidth = 5;
inline constexpr int letterHeight = 7;

/// Columns that the text takes, the gap after its last letter included.
constexpr int textWidth(std::size_t letters, int scale)
{
    return static_cast<int>(letters) * (letterWidth + 1) * scale;
}

/// Draws a line of text, its letters `scale` times 5 x 7 pixels. There are capitals, digits and . , : + - % /
/// ( ) _ and the blank; all else shows as a question mark.
///
///   left, top  of the first letter, counted from the upper left corner of the picture; what lies outside the
///              picture is left out
void drawText(Colours& image, int left, int top, int scale, std::string const& text,
              koImage::Float3 const& colour);

}  // namespace koTool
