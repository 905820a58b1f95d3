#include "koImage/lighting/image_based_lighting.h"

#include "koImage/envmap/environment_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/remap.h"
#include "koImage/envmap/resize.h"
#include "koImage/image/fill.h"
#include "koImage/lighting/checkpoint.h"
#include "koImage/lighting/coefficients.h"
#include "koImage/lighting/probe_map.h"
#include "koImage/lighting/reflection_coeffs.h"
#include "koImage/lighting/rotation_matrices.h"
#include "koImage/lighting/specular_map.h"
#include "koImage/ops/blur.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace koImage {

namespace {

constexpr int mapWidth = 200;
constexpr int mapHeight = 100;
constexpr int lightOrder = 20;
constexpr int outputOrder = 10;

koOS::Filename rotationMatrixFilename;

bool haveRotationMatrices(koUtil::Progress* progress)
{
    return initializeReflectance(rotationMatrixFilename.multibyte().c_str(), progress);
}

ko::Reference<TypedImage<Float3>> newMapImage()
{
    ko::Reference<TypedImage<Float3>> image(new TypedImage<Float3>);
    image->resize(mapWidth, mapHeight);
    return image;
}

/// A lat-long image at mapWidth x mapHeight.
ko::Reference<Image> reduced(TypedImage<Float3> const& image)
{
    if (image.width() <= 2 * mapWidth)
        return resize(image, mapWidth, mapHeight, true);

    // The blur does not wrap around, nor does the new image that it fills, although the probe does: maps
    // computed from it depend on that.
    ko::Reference<TypedImage<Float3>> blurred(new TypedImage<Float3>);
    imageBlur(image, *blurred, image.width() / mapWidth + 1, false, false);
    return resize(*blurred, mapWidth, mapHeight, true);
}

}  // namespace

ko::Reference<EnvironmentMap> probeMapOf(Image* image, koUtil::Error& error)
{
    if (image == nullptr) {
        error = koUtil::Error(1, "Image-based lighting file not found.");
        return nullptr;
    }
    ko::Reference<EnvironmentMap> map = newEnvironmentMap(*image);
    if (!map) {
        // No blank after "shape.", on purpose: callers know the message as it is.
        error = koUtil::Error(1, "The image you have specified is not a recognized environment map shape."
                                 "Please consult the documentation for descriptions of the supported types.");
        return nullptr;
    }
    if (map->mapType() != EnvironmentMapType::LatLong && map->mapType() != EnvironmentMapType::Cross) {
        error = koUtil::Error(1, "Image based lighting only supports vertical cross and latitude-longitude "
                                 "environment maps.");
        return nullptr;
    }
    return map;
}

ko::Reference<EnvironmentMap> reducedProbe(EnvironmentMap const& probe)
{
    Image const* const any = probe.image();
    auto const* const image = any != nullptr && any->pixelType() == PixelTypeId::Float3
                                  ? static_cast<TypedImage<Float3> const*>(any)
                                  : nullptr;
    if (image != nullptr && image->holdsItsRows() && probe.mapType() == EnvironmentMapType::LatLong)
        return newEnvironmentMap(*reduced(*image));

    auto const pixels = newMapImage();
    ko::Reference<EnvironmentMap> map = newEnvironmentMap(*pixels);
    if (image != nullptr && image->holdsItsRows())
        remap(probe, *map);
    else
        fillBlack(*pixels);
    return map;
}

koUtil::Error verifyLightProbe(TypedImage<Float3> const& image)
{
    // Only the size tells the shape: an image without pixels has it too, and its wrap flags are nobody's.
    ko::Reference<TypedImage<Float3>> const shape(new TypedImage<Float3>);
    shape->borrow(nullptr, image.width(), image.height());
    koUtil::Error error;
    if (!probeMapOf(shape.get(), error))
        return error;
    if (!image.holdsItsRows())
        return {1, "The image has a size, %d x %d, but not its pixels.", image.width(), image.height()};

    auto const pixels = pixelsOf<Float3>(image);
    auto const bad = std::find_if(pixels.begin(), pixels.end(), [](Float3 const& p) {
        auto const good = [](float channel) { return std::abs(channel) < 1e30f; };  // NaN is not
        return !good(p.r) || !good(p.g) || !good(p.b);
    });
    if (bad == pixels.end())
        return {};
    auto const index = static_cast<int>(bad - pixels.begin());
    return {1,
            "Pixel (%d, %d) is (%g, %g, %g): not finite, or too large.",
            index % image.width(),
            index / image.width(),
            double{bad->r},
            double{bad->g},
            double{bad->b}};
}

ImageBasedLighting::ImageBasedLighting() = default;
ImageBasedLighting::~ImageBasedLighting() = default;

void ImageBasedLighting::setRotationMatrixFilename(koOS::Filename const& filename)
{
    rotationMatrixFilename = filename;
}

void ImageBasedLighting::setLightProbe(TypedImage<Float3>* image, koUtil::Error& error)
{
    lightCoeffs_.reset();
    reducedProbe_ = nullptr;
    probe_ = nullptr;
    irradiance_.clear();
    specularMaps_.clear();
    usable_ = false;

    if (image == nullptr) {
        error = koUtil::Error();
        return;
    }
    koUtil::Error nested(error);
    probe_ = probeMapOf(image, nested);
    usable_ = static_cast<bool>(probe_);
}

void ImageBasedLighting::getIrradiance(Irradiance& irradiance, koUtil::Progress* progress)
{
    if (!usable_) {
        irradiance.clear();
        return;
    }
    updateLightCoeffs(progress);
    irradiance = irradiance_;
}

void ImageBasedLighting::updateLightCoeffs(koUtil::Progress* progress)
{
    if (lightCoeffs_ || !probe_ || !haveRotationMatrices(progress))
        return;
    ko::Reference<EnvironmentMap> map = reducedProbe(*probe_);

    IrradianceAlg alg;
    alg.accumulate(*map);
    checkpoint("irradiance");

    auto coeffs = std::make_unique<SphericalHarmonics<Double3>>(lightOrder);
    computeLightCoeffs(static_cast<TypedImage<Float3> const&>(*map->image()), *coeffs);
    alg.getIrradiance(irradiance_);
    reducedProbe_ = std::move(map);
    lightCoeffs_ = std::move(coeffs);
    checkpoint("lighting coeffs");
}

EnvironmentMap* ImageBasedLighting::getSpecularMap(ReflectanceFunction const& reflectance,
                                                   koUtil::Progress* progress)
{
    if (!usable_)
        return nullptr;
    int const key = reflectance.getKey();
    if (SpecularMap* const found = find(key)) {
        found->used = true;
        return found->map.get();
    }

    // Without light or matrices there is nothing to keep. The matrices may be gone although the light is
    // there.
    updateLightCoeffs(progress);
    if (!lightCoeffs_ || !haveRotationMatrices(progress))
        return nullptr;
    koUtil::setProgress(progress, 0.1);
    ko::Reference<EnvironmentMap> map = computeMap(reflectance, progress);

    // Again, for the reflectance may have asked for other maps meanwhile.
    SpecularMap* const found = find(key);
    SpecularMap& entry = found != nullptr ? *found : *specularMaps_.insert(placeOf(key), {key, false, {}});
    entry.map = std::move(map);
    return entry.map.get();
}

ImageBasedLighting::SpecularMaps::iterator ImageBasedLighting::placeOf(int key)
{
    return std::lower_bound(specularMaps_.begin(), specularMaps_.end(), key,
                            [](SpecularMap const& map, int wanted) { return map.key < wanted; });
}

ImageBasedLighting::SpecularMap* ImageBasedLighting::find(int key)
{
    auto const place = placeOf(key);
    return place != specularMaps_.end() && place->key == key ? &*place : nullptr;
}

ko::Reference<EnvironmentMap> ImageBasedLighting::computeMap(ReflectanceFunction const& reflectance,
                                                             koUtil::Progress* progress) const
{
    // Large arrays live no longer than they are needed.
    std::optional<ReflectanceSamples> samples(std::in_place, 100, 100, 200);
    Double3 const energy = reflectance.sample(*samples);
    checkpoint("brdf sampling");
    if (energy.r == 0.0 || energy.g == 0.0 || energy.b == 0.0)
        return nullptr;

    std::optional<koUtil::ArrayN<3, Double3>> brdfCoeffs(std::in_place, 21, 21, 21);
    computeBrdfCoeffs(*samples, *brdfCoeffs, outputOrder);
    samples.reset();
    checkpoint("brdf coeffs");
    koUtil::setProgress(progress, 0.4);

    int neededLightOrder = 0;
    int neededOutputOrder = 0;
    computeOrder(*lightCoeffs_, *brdfCoeffs, energy, neededLightOrder, neededOutputOrder);
    TypedImage<HarmonicsPixel> reflection;
    computeReflectionCoeffs(*lightCoeffs_, *brdfCoeffs, neededLightOrder, neededOutputOrder, reflection,
                            progress);
    brdfCoeffs.reset();

    auto const image = newMapImage();
    double const alongNormal[3] = {0.0, 0.0, 1.0};
    computeSpecularMap(reflection, alongNormal, outputOrder, 1.0, *image);
    checkpoint("view-dependent texture");
    koUtil::setProgress(progress, 1.0);

    ko::Reference<EnvironmentMap> map(new LatLongMap(mapWidth, mapHeight));
    map->setImage(image.get());
    return map;
}

void ImageBasedLighting::markSpecularMapUsed(int key)
{
    if (SpecularMap* const found = find(key))
        found->used = true;
}

void ImageBasedLighting::markAllSpecularMapsUnused()
{
    for (SpecularMap& map : specularMaps_)
        map.used = false;
}

void ImageBasedLighting::deleteUnusedSpecularMaps()
{
    std::erase_if(specularMaps_, [](SpecularMap const& map) { return !map.used; });
}

}  // namespace koImage
