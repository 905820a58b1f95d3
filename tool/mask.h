// Masks made of pictures.
//
// A pixel belongs to the mask where its level is above a threshold. Its level is that of its brightest
// channel, or its alpha: of bytes and 16-bit integers as the file stores them, 1 for full, of floats the
// value itself.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/image/typed_image.h"
#include "tool/files.h"

#include <string>

namespace koTool {

using Bytes = koImage::TypedImage<unsigned char>;
using BytesReference = ko::Reference<Bytes>;

/// How a picture becomes a mask.
struct MaskChoice {
    float threshold;
    bool alpha = false;
    bool inverted = false;
};

/// --threshold, --channel, --invert
void addMaskChoice(CLI::App& command, MaskChoice& choice);

/// Reads a mask: 255 for the pixels that belong to it, 0 for the others. NaN is above nothing.
BytesReference readMask(Files& files, std::string const& file, MaskChoice const& choice);

}  // namespace koTool
