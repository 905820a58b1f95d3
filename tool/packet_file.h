// Packet files as the verbs see them: with images in them, and with lighting.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/image/image.h"
#include "koImageIO/picture.h"
#include "koPacketFile/byte_stream.h"
#include "koPacketFile/read_context.h"
#include "koPacketFile/report.h"
#include "koPacketFile/write_context.h"
#include "tool/saved_light.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace koTool {

/// Whether the name ends in .packets, in small letters or capitals.
bool namedAsPacketFile(std::string const& file);

/// Whether these are the first bytes of a packet file.
bool beginsAsPacketFile(std::span<std::byte const> file);

struct PacketImage {
    std::uint64_t id;
    ko::Reference<koImage::Image> image;
    std::uint64_t elements;  ///< channel values
    std::uint64_t missing;   ///< of those: 0 in the image

    /// What the user calls it: "image-3". "3" and "#3" will do as well.
    std::string name() const { return "image-" + std::to_string(id); }
    bool isCalled(std::string const& called) const;
};

/// What a packet file holds, and what is wrong with it.
struct PacketFile {
    std::vector<PacketImage> images;  ///< in the order of the file
    std::vector<std::unique_ptr<SavedLight>> lights;
    koPacketFile::Report report;

    bool whole() const { return report.damageCount() == 0; }

    /// Throws a Failure with the first damage, if there is any.
    void demandWhole(std::string const& file) const;
};

PacketFile readPacketFile(koPacketFile::ByteSource& source, koPacketFile::ReadOptions const& options = {});

/// The image that is called so, the first for ""; a Failure that tells what there is instead.
PacketImage const& imageCalled(PacketFile const& packets, std::string const& called, std::string const& file);

/// One image as a picture, converted as pictures from other files are.
koImageIO::Picture pictureOf(PacketImage const& stored, koImageIO::ReadOptions const& options,
                             std::string const& file);

/// Writes a packet file, whole or not at all; "-" is standard output.
void writePacketFile(std::string const& file, std::function<void(ioWriteContext&)> const& write);

}  // namespace koTool
