// Packet files made and read by the library.
#pragma once

#include "koImage/image/image.h"
#include "koImage/packet/image_packet.h"
#include "koPacketFile/koPacketFile.h"
#include "tool/testing/command.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace koTool::testing {

/// The bytes of the file that `write` makes.
inline std::string packetFile(std::function<void(ioWriteContext&)> const& write)
{
    koPacketFile::MemorySink sink;
    ioWriteContext out(sink, {.salt = 7});
    write(out);
    EXPECT_TRUE(out.commit()) << out.error().message();
    return {reinterpret_cast<char const*>(sink.bytes().data()), sink.bytes().size()};
}

inline std::string packetFile(std::initializer_list<koImage::Image const*> images)
{
    return packetFile([&](ioWriteContext& out) {
        for (koImage::Image const* const image : images)
            koImage::packetFile::writeImage(out, image);
    });
}

/// Where the records of a whole file begin, the end record last.
inline std::vector<std::size_t> recordsOf(std::string const& file)
{
    std::vector<std::size_t> places;
    koPacketFile::RecordHeader header;
    for (std::size_t at = koPacketFile::fileHeaderBytes; at < file.size(); at += header.recordBytes()) {
        auto const* const bytes = reinterpret_cast<unsigned char const*>(file.data());
        if (!koPacketFile::parseRecordHeader(bytes + at, 7, header)) {
            ADD_FAILURE() << "no record at byte " << at;
            break;
        }
        places.push_back(at);
    }
    return places;
}

/// The images of a file that must be whole.
inline std::vector<ko::Reference<koImage::Image>> imagesOf(std::string const& file)
{
    koPacketFile::MemorySource source(std::as_bytes(std::span(file)));
    ioReadContext in(source);
    koImage::packetFile::ReadInterface reader(in);
    ioPacketRegistry registry;
    koImage::packetFile::registerTypes(&registry, &reader);
    EXPECT_EQ(in.readAll(registry), koPacketFile::ReadResult::Complete) << in.report().first().message();
    std::vector<ko::Reference<koImage::Image>> images;
    for (ko::ReferenceCount* const object : in.objects())
        images.emplace_back(dynamic_cast<koImage::Image*>(object));
    return images;
}

}  // namespace koTool::testing
