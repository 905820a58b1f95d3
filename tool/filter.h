// Blurring as the verbs offer it.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/image/image.h"

#include <CLI/CLI.hpp>

namespace koTool {

/// Whether the left edge of a picture goes on at its right edge, and the bottom at the top.
struct Wrap {
    bool horizontal = false;
    bool vertical = false;
};

/// --wrap
void addWrap(CLI::App& command, Wrap& wrap);

/// Whether `blurred` takes a pixel type: BlurPixels without Half4, and Float4.
///
/// The sums of imageBlur are halves for Half4: beside a sun they lose the sky, or become infinite and then
/// NaN. A command has the time to go by way of floats.
bool blurTakes(koImage::PixelTypeId type);

/// A blurred copy, with the kernel of imageBlur. The four channels of Float4 are filtered like those of the
/// other types, alpha too.
ko::Reference<koImage::Image> blurred(koImage::Image const& image, int diameter, Wrap wrap);

}  // namespace koTool
