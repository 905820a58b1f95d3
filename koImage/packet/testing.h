// Lighting objects for the tests of packets. Private.
#pragma once

#include "koImage/lighting/image_based_lighting.h"
#include "koImage/packet/image_packet.h"
#include "koImage/packet/irradiance_packet.h"
#include "koPacketFile/testing.h"

#include <span>

namespace koImage::testing {

struct LightingEntry {
    int key;
    Image const* image;
};

/// Lighting value by value, so that it can be what ImageBasedLighting never is.
inline void writeLightingByHand(ioWriteContext& out, bool usable, Irradiance const& irradiance,
                                Image const* probe, std::span<LightingEntry const> entries)
{
    out.startSubPacket();
    out.writeBool(usable);
    packetFile::writeIrradiance(out, irradiance);
    packetFile::writeImage(out, probe);
    out.writeReference(probe);
    out.writeInt(static_cast<int>(entries.size()));
    for (auto const& [key, image] : entries) {
        packetFile::writeImage(out, image);
        out.startSubPacket();
        out.writeInt(key);
        out.writeReference(image);
        out.endSubPacket();
    }
    out.endSubPacket();
}

/// Reads the packets "light" of a file with `read`, and the images before them.
template <class Read>
koPacketFile::testing::Outcome readLights(koPacketFile::ByteSource& source, Read const& read,
                                          koPacketFile::ReadOptions const& options = {})
{
    ioReadContext in(source, options);
    packetFile::ReadInterface reader(in);
    ioPacketRegistry registry;
    packetFile::registerTypes(&registry, &reader);
    registry.supportedType(new koPacketFile::testing::TestType("light", read));
    auto const result = in.readAll(registry);
    return {result, in.report()};
}

template <class Read>
koPacketFile::testing::Outcome readLights(std::span<std::byte const> file, Read const& read)
{
    koPacketFile::MemorySource source(file);
    return readLights(source, read);
}

/// Makes a lighting object what writeLightingByHand is given: with maps that are small, and not computed.
inline void makeLighting(ImageBasedLighting& lighting, Irradiance const& irradiance, Image const* probe,
                         std::span<LightingEntry const> entries)
{
    auto const file = koPacketFile::testing::fileOf([&](ioWriteContext& out) {
        out.startPacket("light", nullptr);
        writeLightingByHand(out, probe != nullptr, irradiance, probe, entries);
        out.endPacket();
    });
    readLights(file, [&](ioReadContext& in) { lighting.readSubPacket(in); });
}

/// Asks for the map that is kept for a key, and has none of its own.
class MapOf final : public ReflectanceFunction {
public:
    explicit MapOf(int key) { setKey(key); }

    Double3 sample(ReflectanceSamples&) const override { return {}; }
};

}  // namespace koImage::testing
