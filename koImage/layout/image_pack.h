// Several images side by side in one: an atlas, with a border around each tile so that filtering near its
// edge does not reach its neighbours.
//
//   +-----------------+
//   | border          |    padded tile: what is packed, `border` pixels wider on every side
//   |   +---------+   |
//   |   | tile    |   |    interior: the image
//   |   +---------+   |
//   |                 |
//   +-----------------+
#pragma once

#include "koBase/containers.h"
#include "koBase/int_range2d.h"
#include "koBase/reference_count.h"
#include "koImage/export.h"
#include "koImage/image/image.h"

#include <cstdint>

namespace koImage {

/// From the unit square of a tile to that of the atlas: offset + t * scale.
struct TileTransform {
    float scaleX = 1.0f;
    float scaleY = 1.0f;
    float offsetX = 0.0f;
    float offsetY = 0.0f;
    std::int32_t isIdentity = 1;  ///< 1 until imagePack sets the transform

    friend bool operator==(TileTransform const&, TileTransform const&) = default;
};

/// An atlas and where its tiles are. Made for a number of tiles; imagePack may fill it again and again.
class KOIMAGE_EXPORT Packing {
public:
    /// Tiles without size or transform, and a border for filters of that diameter: (filterDiameter - 1) / 2
    /// pixels, none for 1 and 2. A negative border, from a diameter below -1, leaves all tiles without
    /// pixels.
    Packing(int tileCount, int filterDiameter);

    /// Sizes a padded tile for an image of that size; its position stays. No effect on tiles that are not
    /// there.
    void setTileInterior(int tile, koUtil::IntRange2d const& interior);

    /// Where the tiles are in the atlas, their borders included. The packer writes positions here.
    ko::vector<koUtil::IntRange2d>& getPaddedTiles() { return paddedTiles_; }

    ko::vector<TileTransform> const& transforms() const { return transforms_; }

    /// The atlas, or null before imagePack.
    Image* atlas() const { return atlas_.get(); }
    int tileCount() const { return tileCount_; }
    int filterDiameter() const { return filterDiameter_; }
    int border() const { return border_; }

private:
    friend KOIMAGE_EXPORT void imagePack(Packing&, ko::vector<Image*>, float, bool);

    ko::Reference<Image> atlas_;
    ko::vector<koUtil::IntRange2d> paddedTiles_;
    ko::vector<TileTransform> transforms_;
    std::int32_t tileCount_;
    std::int32_t filterDiameter_;
    std::int32_t border_;
};

/// Makes the atlas of some images: a new one, white where no tile lies.
///
///   images       of one pixel type, tile i from image i. The atlas has the type of the first; where another
///                differs it stays empty, and nothing else changes. Null images, and images beyond the
///                number of tiles, are left out; no image at all changes nothing
///   inset        which part of a tile its unit square covers: 0.5 the whole interior, 0 the rectangle
///                between the centres of its outermost pixels
///   powersOfTwo  as koUtil::pack takes it; the atlas has at least 64 x 64 pixels all the same
///   border       repeats the pixels of the opposite edge where the image wraps in that direction, otherwise
///                those of the nearest edge
///   transforms   of all tiles, also of those without an image
///   fill         white as fillWhite makes it, so part of each pixel of Double3, and nothing of Harmonics
///   cost         that of koUtil::pack, and one pass over the atlas and the images
KOIMAGE_EXPORT void imagePack(Packing& packing, ko::vector<Image*> images, float inset, bool powersOfTwo);

}  // namespace koImage
