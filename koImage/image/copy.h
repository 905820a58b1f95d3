// Copies of a rectangle of pixels from one image to another.
//
// Of both operations:
//   - bytes are copied as they are, and nothing else of the target changes, its size least of all;
//   - nothing happens where the rectangle does not fit, x or y is negative, or either image has no pixels;
//   - types are not looked at: the images are expected to share one. Between types of different size, rows
//     start at the pixels of the larger image, and each takes the bytes of a row of the smaller one. They may
//     run over each other, the later one on top; where one would leave an array, nothing is copied;
//   - images may share memory: rows are copied one by one, row 0 first, each as if through a buffer;
//   - cost: one block copy for each row, one in all for whole rows; past the cache from 16 MiB on.
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"

namespace koImage {

/// Pastes all of the source into the target, its pixel (0, 0) onto pixel (x, y).
KOIMAGE_EXPORT void imageCopyIn(Image const& source, Image& target, int x, int y);

/// Fills the target with the rectangle of its size that starts at pixel (x, y) of the source.
KOIMAGE_EXPORT void imageCopyOut(Image const& source, Image& target, int x, int y);

}  // namespace koImage
