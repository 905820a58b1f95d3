// How ImageBasedLighting is saved. Here and not beside the class: packets know lighting, and lighting only
// that there are contexts.

#include "koImage/lighting/image_based_lighting.h"
#include "koImage/lighting/probe_map.h"
#include "koImage/packet/image_packet.h"
#include "koImage/packet/irradiance_packet.h"

#include <algorithm>
#include <limits>
#include <unordered_map>
#include <utility>

namespace koImage {

namespace {

using koPacketFile::Problem;

Image* imageOf(EnvironmentMap const* map)
{
    return map != nullptr ? map->image() : nullptr;
}

/// The map of an image that may be none, or null.
ko::Reference<EnvironmentMap> mapOf(Image* image)
{
    koUtil::Error notTold;
    return probeMapOf(image, notTold);
}

}  // namespace

void ImageBasedLighting::writeSubPacket(ioWriteContext& context) const
{
    if (specularMaps_.size() > std::numeric_limits<int>::max())
        return context.fail(Problem::SizeLimit);

    context.startSubPacket();
    context.writeBool(usable_);
    packetFile::writeIrradiance(context, irradiance_);
    packetFile::writeImage(context, imageOf(probe_.get()));
    context.writeReference(imageOf(probe_.get()));

    context.writeInt(static_cast<int>(specularMaps_.size()));
    for (SpecularMap const& entry : specularMaps_) {
        Image const* const image = imageOf(entry.map.get());
        packetFile::writeImage(context, image);
        context.startSubPacket();
        context.writeInt(entry.key);
        context.writeReference(image);
        context.endSubPacket();
    }
    context.endSubPacket();
}

void ImageBasedLighting::readSubPacket(ioReadContext& context)
{
    // Read aside, for reading may throw.
    Irradiance irradiance;
    SpecularMaps specularMaps;
    // One for each image, however often the file names it.
    std::unordered_map<Image*, ko::Reference<EnvironmentMap>> mapsOfImages;

    context.startSubPacket();
    bool const usable = context.readBool();
    packetFile::readIrradiance(context, irradiance);
    ko::Reference<EnvironmentMap> probe = mapOf(context.readReference<Image>());

    int const count = context.readInt();
    if (count < 0)
        context.fail(Problem::InvalidValue);
    // Any number can stand there: it is the packet that ends the loop.
    for (int i = 0; i < count && !context.packetFailed(); ++i) {
        context.startSubPacket();
        int const key = context.readInt();
        auto* const image = context.readReference<Image>();
        context.endSubPacket();

        if (image == nullptr)
            continue;

        auto const [known, isNew] = mapsOfImages.try_emplace(image);
        ko::Reference<EnvironmentMap>& map = known->second;
        if (isNew) {
            // A probe wraps as its shape does, a specular map as it was saved: getSpecularMap makes ones that
            // do not wrap at all.
            bool const wrapHorizontal = image->wrapHorizontal();
            bool const wrapVertical = image->wrapVertical();
            map = mapOf(image);
            if (map)
                image->setWrap(wrapHorizontal, wrapVertical);
        }
        if (map)
            specularMaps.push_back({key, false, map});
    }
    context.endSubPacket();
    mapsOfImages = {};  // before sorting takes memory

    // Of equal keys the last stays.
    std::stable_sort(specularMaps.begin(), specularMaps.end(),
                     [](SpecularMap const& a, SpecularMap const& b) { return a.key < b.key; });
    auto const kept = std::unique(specularMaps.rbegin(), specularMaps.rend(),
                                  [](SpecularMap const& a, SpecularMap const& b) { return a.key == b.key; });
    specularMaps.erase(specularMaps.begin(), kept.base());

    usable_ = usable;
    probe_ = std::move(probe);
    lightCoeffs_.reset();
    reducedProbe_ = nullptr;
    irradiance_ = irradiance;
    specularMaps_ = std::move(specularMaps);
}

}  // namespace koImage
