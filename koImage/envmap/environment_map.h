// Images seen as the sphere of directions around a point.
//
// Three shapes translate between normalised image coordinates (u, v) and directions: SphereMap (a disc in a
// square), LatLongMap (latitude and longitude) and CrossMap (the six faces of a cube). Each header draws its
// own. z is up, and a viewer looks along -y:
//
//   - row 0 of an image, v = 0, is the bottom of the picture;
//   - lat-long and cross maps are seen from inside the sphere: -x is to the right of -y, +z above it;
//   - the disc is seen from outside, like a mirrored ball: +x is to the right, against the other two. What
//     is remapped from a disc to another shape, or back, comes out mirrored, on purpose.
//
// Of all shapes:
//   - numbers are floats. Sines, arcs and their like are the C library's functions on doubles, applied to the
//     widened arguments; a quantity that a header names is rounded to float once, from the whole expression
//     that makes it. Headers say where a quantity stays a double;
//   - twoPi and pi are those floats, not the numbers;
//   - each call costs a few of these functions; remap shares what rows and columns have in common;
//   - nothing is reported: a coordinate without a direction gives false and a weight of 0;
//   - outputs that a call does not set are left as they were.
#pragma once

#include "koBase/linear.h"
#include "koBase/reference_count.h"
#include "koImage/export.h"
#include "koImage/image/image.h"

#include <cstdint>

namespace koImage {

enum class EnvironmentMapType : std::uint32_t { Sphere, LatLong, Cross };

/// A shape, and the image that it gives directions to.
///
///   lifetime  counts start at 0: whoever creates a map takes it into a ko::Reference, or deletes it
///   threads   no lock; the const operations only read
class KOIMAGE_EXPORT EnvironmentMap : public ko::ReferenceCount {
public:
    // The order of the virtual operations is binding.

    ~EnvironmentMap() override;

    /// Whether the shape has a direction at (u, v).
    virtual bool isValidCoord(float u, float v) const = 0;

    /// The unit vector `dir` that (u, v) looks along. Returns false, dir as it was, where there is none.
    virtual bool coordToDir(float u, float v, koLinear::VectorFlt& dir) const = 0;

    /// The same, with the solid angle [sr] of a pixel at (u, v) if `wantWeight`; else the weight stays as it
    /// is. Where there is no direction the weight becomes 0 either way.
    virtual bool coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight,
                            bool wantWeight) const = 0;

    /// The coordinates at which the map shows the direction `dir`, a unit vector.
    virtual void dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const = 0;

    EnvironmentMapType mapType() const { return mapType_; }

    /// The pixels, or null. The shape does not look at them.
    Image* image() const { return image_.get(); }

    /// Holds a counted reference to the image, in place of the one before; null lets go of it.
    void setImage(Image* image) { image_ = image; }

    static constexpr float pi = 3.1415927f;
    static constexpr float twoPi = 6.2831855f;

protected:
    explicit EnvironmentMap(EnvironmentMapType mapType) : mapType_(mapType) {}

private:
    EnvironmentMapType mapType_;
    ko::Reference<Image> image_;
};

/// A new map of the shape that the proportions of the image tell, holding the image; reference count 0.
///
///   size (N > 0)   shape               wraps
///   N x N          SphereMap           horizontally and vertically
///   2N x N         LatLongMap          horizontally
///   3N x 4N        CrossMap, vertical  horizontally and vertically
///   any other      none: returns null, and the image keeps its wrap flags
///
/// A horizontal cross is never recognised: whoever has one makes its CrossMap directly.
///
///   lifetime  the map takes one reference to the image and drops it with its own end. The image is the
///             caller's, who must hold a ko::Reference to it before the call: an image that nobody else
///             holds, one on the stack among them, would be deleted together with the map
///   image     its wrap flags are set as the table says, through setWrap
[[nodiscard]] KOIMAGE_EXPORT EnvironmentMap* newEnvironmentMap(Image& image);

}  // namespace koImage
