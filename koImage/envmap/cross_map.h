// The sphere as the six faces of a cube, folded out into a cross. Faces are numbered
//
//   0  -x      1  +x      2  -z      3  +z      4  -y      5  +y
//
//   vertical, 3 faces wide and 4 high               horizontal, 4 faces wide and 3 high
//
//   v = 1  +------+------+------+
//          |      |  +z  |      |                    v = 1  +------+------+------+------+
//          |      |  3   |      |                           |      |      |  -x  |      |
//          +------+------+------+                           |      |      |  0   |      |
//          |  +x  |  -y  |  -x  |                           +------+------+------+------+
//          |  1   |  4   |  0   |                           |  +y  |  -z  |  -y  |  +z  |
//          +------+------+------+                           | (5)  |  2   |  4   |  3   |
//          |      |  -z  |      |                           +------+------+------+------+
//          |      |  2   |      |                           |      |      |  +x  |      |
//          +------+------+------+                           |      |      |  1   |      |
//          |      |  +y  |      |                    v = 0  +------+------+------+------+
//          |      | (5)  |      |                         u = 0                       u = 1
//   v = 0  +------+------+------+
//        u = 0                u = 1
//
// Face 5 stands in its cell turned by 180 degrees. The horizontal cross is the vertical one mirrored about
// its diagonal, cell by cell; the contents of the cells are not mirrored with it, so they do not join there.
//
// Coordinates (fu, fv) run from 0 to 1 across a face, before face 5 is turned. With a = 2 fu - 1 and
// b = 2 fv - 1 a face looks along, before normalising:
//
//   0  (-1, a, b)     1  (1, -a, b)     2  (-a, -b, -1)     3  (-a, b, 1)     4  (-a, -1, b)     5  (a, 1, b)
#pragma once

#include "koImage/envmap/environment_map.h"

#include <cassert>
#include <cstdint>

namespace koImage {

class KOIMAGE_EXPORT CrossMap final : public EnvironmentMap {
public:
    static constexpr int faceCount = 6;

    /// `width` and `height` are taken for those of a face, as computeOmegaFactor does.
    CrossMap(int width, int height, bool horizontal);
    CrossMap(int faceSize, bool horizontal) : CrossMap(faceSize, faceSize, horizontal) {}

    /// Two sizes do not say which way the cross lies; without this they would pass for (faceSize,
    /// horizontal).
    CrossMap(int width, int height) = delete;

    /// Whether crossToCube finds a face.
    bool isValidCoord(float u, float v) const override;

    /// The weight is omegaFactor / (1 + r^2) with r = sqrt(a^2 + b^2), computed as omegaFactor divided by the
    /// square of the secant of atan(r), a double. The square, not the third power, on purpose: these weights
    /// do not sum to the sphere.
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir) const override;
    bool coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight,
                    bool wantWeight) const override;

    /// The face is that of the largest component: x before y before z where they are equal. A zero vector is
    /// at (0, 0).
    void dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const override;

    /// The face at (u, v) of the cross, and the place (fu, fv) on it. In the empty cells and outside the
    /// cross the face is -1, the result false, and (fu, fv) the place in the cell.
    ///
    ///   cells     cut towards zero: coordinates just below 0 belong to the first cell, with a negative place
    bool crossToCube(float u, float v, int& face, float& fu, float& fv) const;

    /// The place (u, v) on the cross of (fu, fv) on a face; nothing for a face outside 0 .. 5.
    void cubeToCross(float fu, float fv, int face, float& u, float& v) const;

    /// Copies one face out of an image of this cross; face 5 is turned upright.
    ///
    ///   types     any; the two images are expected to share one. imageFlipHorizontal does not support
    ///             Double3, whose face 5 therefore comes out mirrored
    ///   shape     face is resized to w x h, where w is a quarter of the side of four cells and h a third of
    ///             the side of three, and takes the block at (w * faceColumn, h * faceRow). That is the cell
    ///             where cells are square. Where they are not, w is still that quarter in a vertical cross
    ///             too, on purpose; a block that does not fit the image is not copied. Nothing happens where
    ///             the sides are not multiples of 4 and 3, nor for a face index outside 0 .. 5
    ///   failure   throws the allocator's exception, as Image::resize does
    void copyFace(Image const& cross, Image& face, int faceIndex) const;

    /// The reverse: copies a face into the map's own image; the caller's face is not changed. Nothing happens
    /// without an image.
    void pasteFace(Image const& face, int faceIndex);

    /// The weight at the centre of a face: (2 pi / height) * (2 pi / width) / 6 * 0.5.
    float omegaFactor() const { return omegaFactor_; }

    /// Sets omegaFactor again, for that size.
    void computeOmegaFactor(int width, int height);

    bool horizontal() const { return horizontal_; }

    /// Chooses the places of the cells by horizontal().
    void setupOffset();

    /// The cell of a face, 0 .. 5; rows count from v = 0.
    int faceColumn(int face) const { return cellAlong(faceColumn_, face); }
    int faceRow(int face) const { return cellAlong(faceRow_, face); }

private:
    static int cellAlong(std::int32_t const* cells, int face)
    {
        assert(face >= 0 && face < faceCount);
        return cells[face];
    }

    bool horizontal_;
    std::int32_t const* faceColumn_ = nullptr;
    std::int32_t const* faceRow_ = nullptr;
    float omegaFactor_ = 0.0f;
};

}  // namespace koImage
