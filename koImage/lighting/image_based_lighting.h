// Lighting by one light probe: its diffuse light, and specular maps for reflectance functions.
//
//   probe (any size) -> 200 x 100 lat-long map -> irradiance                      getIrradiance
//                                              -> light coefficients, degree 20
//                            reflectance function -> its coefficients
//                                                       -> specular map, 200 x 100 getSpecularMap
//
// A specular map is a lat-long map like the probe, with the same directions: its pixel holds the radiance
// that a surface facing there reflects along its normal.
#pragma once

#include "koBase/error.h"
#include "koBase/filename.h"
#include "koBase/progress.h"
#include "koBase/reference_count.h"
#include "koImage/envmap/environment_map.h"
#include "koImage/export.h"
#include "koImage/image/typed_image.h"
#include "koImage/lighting/irradiance.h"
#include "koImage/lighting/reflectance_function.h"
#include "koImage/lighting/spherical_harmonics.h"

#include <deque>
#include <memory>

class ioReadContext;
class ioWriteContext;

namespace koImage {

/// The probe as the 200 x 100 LatLongMap of Float3 pixels from which everything is computed.
///
///   lat-long  resized with filtering; wider than 400 pixels, blurred beforehand with diameter
///             trunc(width / 200 + 1), nothing wrapped
///   other     remapped: one bilinear sample a pixel
///   black     where the image is not Float3, or without pixels for all its rows
///   memory    when blurred, two more images of the probe's size for a while
[[nodiscard]] KOIMAGE_EXPORT ko::Reference<EnvironmentMap> reducedProbe(EnvironmentMap const& probe);

/// Whether an image can serve as a light probe: it is twice as wide as high or a vertical cross, it has all
/// its pixels, and their channels are finite and below 1e30 in magnitude, so that no sum of them overflows.
/// Negative values pass: maps are clamped to 0 in the end.
///
///   failure  an error that tells the reason, and the first pixel that is to blame. ImageBasedLighting takes
///            any pixels: those of its maps that a bad one reaches are infinite or NaN
[[nodiscard]] KOIMAGE_EXPORT koUtil::Error verifyLightProbe(TypedImage<Float3> const& image);

/// Owns the light probe and what is computed from it, on first demand and once.
///
/// Specular maps are kept by the key of their reflectance function until they are deleted; neither number nor
/// age limits them. A client that renders again and again calls markAllSpecularMapsUnused, then
/// getSpecularMap or markSpecularMapUsed for what is still in use, then deleteUnusedSpecularMaps.
///
///   threads   one at a time. getSpecularMap uses the thread pool
///   progress  may be null
///   failure   setLightProbe reports; where the rotation-matrix file cannot be read, that is printed, and
///             there is no light and no map. Allocations throw; the object is as before the call then, or as
///             after setLightProbe(nullptr)
class KOIMAGE_EXPORT ImageBasedLighting {
public:
    /// No probe, no light.
    ImageBasedLighting();
    virtual ~ImageBasedLighting();

    ImageBasedLighting(ImageBasedLighting const&) = delete;
    ImageBasedLighting& operator=(ImageBasedLighting const&) = delete;

    /// The file that computations read the rotation matrices from, if none have been read; for all objects.
    static void setRotationMatrixFilename(koOS::Filename const& filename);

    /// Drops the probe and everything computed from it, and takes another. Nothing is computed yet.
    ///
    ///   image    a LatLongMap or a vertical CrossMap by its shape, shared and not copied; its wrap flags are
    ///            set to those of the shape. Null: no probe, and `error` is cleared
    ///   failure  error code 1, its message made for the user, and no probe. Else `error` stays as it is
    void setLightProbe(TypedImage<Float3>* image, koUtil::Error& error);

    bool haveUsableLightProbe() const { return usable_; }

    /// The probe, or null.
    EnvironmentMap* getReflectionMap() const { return probe_.get(); }

    /// The irradiance of the probe. All zero without a probe, and where the rotation-matrix file cannot be
    /// read, although the irradiance itself does not need it; after readSubPacket what was read instead.
    void getIrradiance(Irradiance& irradiance, koUtil::Progress* progress);

    /// Computes the irradiance and the light coefficients, unless that has been done.
    void updateLightCoeffs(koUtil::Progress* progress);

    /// What they were computed from, reducedProbe of the probe; null until then. Belongs to this object.
    EnvironmentMap const* getReducedProbe() const { return reducedProbe_.get(); }

    /// The specular map of a reflectance function, or null: without a probe; where the rotation-matrix file
    /// cannot be read; and for functions without a specular part. A map that is kept is marked used; a new
    /// one is not. So is the null of a function without a specular part.
    ///
    ///   result    belongs to this object; take it into a ko::Reference to keep it longer
    ///   progress  0.1 with the light, 0.4 with the reflectance, 1 at the end
    ///   memory    up to 110 MB for a while
    EnvironmentMap* getSpecularMap(ReflectanceFunction const& reflectance, koUtil::Progress* progress);

    /// Marks the map of that key, if there is one.
    void markSpecularMapUsed(int key);
    void markAllSpecularMapsUnused();
    void deleteUnusedSpecularMaps();

    // Saving: a sub-packet in whatever packet is open. docs/packet-format.md tells its bytes.

    /// Writes the probe, its irradiance as far as it has been computed, and the specular maps with their
    /// keys, the images as packets of their own in front of the open one. Not kept: the light coefficients,
    /// which are computed anew when they are needed; which maps are marked used; and nulls in place of maps.
    ///
    ///   failure  in the context. An image that cannot be stored, of doubles for one, is missing afterwards
    void writeSubPacket(ioWriteContext& context) const;

    /// Reads the sub-packet in place of everything that this object holds. The images are shared with the
    /// context.
    ///
    ///   usable   as it was written, even where the image of the probe is missing or is no probe by its size:
    ///            then the irradiance is the one that was written, and there are no new maps
    ///   maps     without those whose image is missing or no LatLongMap or vertical CrossMap by its size; of
    ///            two with one key the last. None is marked used
    ///   memory   beside the images 32 bytes for each map of the file, and 70 for each image that they name
    ///   failure  in the context: InvalidValue for a negative number of maps. What stands behind a failure
    ///            is missing. Allocations throw; the object is as before the call then
    void readSubPacket(ioReadContext& context);

private:
    struct SpecularMap {
        int key;
        bool used;
        ko::Reference<EnvironmentMap> map;
    };

    // By ascending keys. In a deque, for it grows without needing twice the memory meanwhile.
    using SpecularMaps = std::deque<SpecularMap>;

    /// The first whose key is not below that one.
    SpecularMaps::iterator placeOf(int key);

    /// The one of that key, or null.
    SpecularMap* find(int key);

    /// The map of the reflectance, or null where it has no specular part.
    ko::Reference<EnvironmentMap> computeMap(ReflectanceFunction const& reflectance,
                                             koUtil::Progress* progress) const;

    bool usable_ = false;
    ko::Reference<EnvironmentMap> probe_;
    ko::Reference<EnvironmentMap> reducedProbe_;
    std::unique_ptr<SphericalHarmonics<Double3>> lightCoeffs_;
    Irradiance irradiance_;
    SpecularMaps specularMaps_;
};

}  // namespace koImage
