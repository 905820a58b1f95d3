// Saving images as packet files and loading them, against OpenEXR's classes without compression. Ours sums a
// checksum over everything, syncs, and makes a new image at every load, of memory that the last one left;
// OpenEXR does none of these, sorts pixels into channels, and loads into an image that it keeps.

#include "peers.h"
#include "peers_opencv.h"

#include "koImage/packet/image_packet.h"
#include "koImage/testing/memory_file.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace koImage::peers {

namespace {

using testing::MemoryFile;

template <class Pixel>
constexpr Imf::PixelType exrType = sizeof(Pixel) == 8 ? Imf::HALF : Imf::FLOAT;

constexpr char const* channelNames[] = {"R", "G", "B", "A"};

template <class Pixel>
Imf::FrameBuffer frameOf(TypedImage<Pixel>& image)
{
    Imf::FrameBuffer frame;
    auto* const bytes = reinterpret_cast<char*>(image.pixels());
    for (std::size_t c = 0; c < 4; ++c)
        frame.insert(channelNames[c], Imf::Slice(exrType<Pixel>, bytes + c * sizeof(Pixel) / 4, sizeof(Pixel),
                                                 sizeof(Pixel) * static_cast<std::size_t>(image.width())));
    return frame;
}

template <class Pixel>
void saveByPeer(std::string const& name, TypedImage<Pixel>& image)
{
    Imf::Header header(image.width(), image.height());
    header.compression() = Imf::NO_COMPRESSION;
    for (char const* const channel : channelNames)
        header.channels().insert(channel, Imf::Channel(exrType<Pixel>));
    Imf::OutputFile file(name.c_str(), header, 0);
    file.setFrameBuffer(frameOf(image));
    file.writePixels(image.height());
}

template <class Pixel>
void loadByPeer(std::string const& name, TypedImage<Pixel>& image)
{
    Imf::InputFile file(name.c_str(), 0);
    file.setFrameBuffer(frameOf(image));
    file.readPixels(0, image.height() - 1);
}

void save(std::string const& name, Image const& image)
{
    koPacketFile::FileSink sink(name);
    ioWriteContext out(sink);
    packetFile::writeImage(out, &image);
    if (!out.commit())
        std::abort();
}

void load(std::string const& name)
{
    koPacketFile::FileSource source(name);
    ioReadContext in(source);
    packetFile::ReadInterface reader(in);
    ioPacketRegistry registry;
    packetFile::registerTypes(&registry, &reader);
    if (in.readAll(registry) != koPacketFile::ReadResult::Complete || in.objects().size() != 1)
        std::abort();
}

template <class Pixel>
Race race(bool loads)
{
    auto const image = randomImage<Pixel>(largeSize, 1);
    auto const theirs = imageOf<Pixel>(largeSize);
    auto const ourFile = std::make_shared<MemoryFile>(".packets");
    auto const theirFile = std::make_shared<MemoryFile>(".exr");
    save(ourFile->name(), *image);
    saveByPeer(theirFile->name(), *image);

    std::int64_t const bytes = 2 * pixelCount(largeSize) * std::int64_t{sizeof(Pixel)};
    if (loads)
        return {pixelCount(largeSize), bytes, [=] { load(ourFile->name()); },
                [=] { loadByPeer(theirFile->name(), *theirs); }};
    return {pixelCount(largeSize), bytes, [=] { save(ourFile->name(), *image); },
            [=] { saveByPeer(theirFile->name(), *image); }};
}

template <class Pixel>
void add(Cases& cases)
{
    char const* const peer = "OpenEXR, uncompressed";
    cases.push_back({caseName<Pixel>("save", largeSize), peer, [] { return race<Pixel>(false); }});
    cases.push_back({caseName<Pixel>("load", largeSize), peer, [] { return race<Pixel>(true); }});
}

}  // namespace

void addFiles(Cases& cases)
{
    add<Half4>(cases);
    add<Float4>(cases);
}

}  // namespace koImage::peers
