// OpenEXR files of every kind, made and read back by the library's C++ classes: koImageIO reads through its
// core, which is other code.
#pragma once

#include "koImage/image/pixel_types.h"
#include "koImageIO/testing/files.h"

#include <ImfChannelList.h>
#include <ImfDeepFrameBuffer.h>
#include <ImfDeepScanLineOutputFile.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOutputFile.h>
#include <ImfOutputPart.h>
#include <ImfPartType.h>
#include <ImfPreviewImage.h>
#include <ImfRgbaFile.h>
#include <ImfStringAttribute.h>
#include <ImfStringVectorAttribute.h>
#include <ImfTiledOutputFile.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace koImageIO::testing {

class ExrOut : public Imf::OStream {
public:
    ExrOut() : OStream("made") {}
    void write(char const from[], int count) override
    {
        auto const length = static_cast<std::size_t>(count);
        bytes.resize(std::max(bytes.size(), at_ + length));
        std::memcpy(bytes.data() + at_, from, length);
        at_ += length;
    }
    std::uint64_t tellp() override { return at_; }
    void seekp(std::uint64_t position) override { at_ = position; }

    Bytes bytes;

private:
    std::size_t at_ = 0;
};

class ExrIn : public Imf::IStream {
public:
    explicit ExrIn(Bytes const& bytes) : IStream("read"), bytes_(bytes) {}
    bool read(char to[], int count) override
    {
        auto const length = static_cast<std::size_t>(count);
        if (at_ + length > bytes_.size())
            throw std::runtime_error("too short");
        std::memcpy(to, bytes_.data() + at_, length);
        at_ += length;
        return at_ < bytes_.size();
    }
    std::uint64_t tellg() override { return at_; }
    void seekg(std::uint64_t position) override { at_ = position; }

private:
    Bytes const& bytes_;
    std::size_t at_ = 0;
};

/// The value of a channel at (x, y) of the file's coordinates: exact as half, and different for neighbours.
inline float exrValue(std::string const& channel, int x, int y)
{
    int seed = 0;
    for (char const c : channel)
        seed = (seed * 5 + c) % 10007;
    return static_cast<float>((x * 37 + y * 101 + seed * 13 + 100000) % 1999) / 8 - 50;
}

/// The same as unsigned integers.
inline std::uint32_t exrInteger(std::string const& channel, int x, int y)
{
    return static_cast<std::uint32_t>(exrValue(channel, x, y) * 8 + 4000);
}

/// The channels of a header filled with exrValue over the data window, and the frame buffer that shows them.
class ExrPixels {
public:
    explicit ExrPixels(Imf::Header const& header)
    {
        Imath::Box2i const& window = header.dataWindow();
        int const width = window.max.x - window.min.x + 1;
        int const height = window.max.y - window.min.y + 1;
        for (auto it = header.channels().begin(); it != header.channels().end(); ++it) {
            Imf::Channel const& channel = it.channel();
            std::size_t const size = channel.type == Imf::HALF ? 2 : 4;
            auto& memory = memory_.emplace_back(size * static_cast<std::size_t>(width) *
                                                static_cast<std::size_t>(height));
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x) {
                    std::byte* const to = memory.data() + size * static_cast<std::size_t>(y * width + x);
                    float const v = exrValue(it.name(), window.min.x + x, window.min.y + y);
                    koImage::half const h(v);
                    std::uint32_t const i = exrInteger(it.name(), window.min.x + x, window.min.y + y);
                    std::memcpy(to,
                                channel.type == Imf::HALF    ? static_cast<void const*>(&h)
                                : channel.type == Imf::FLOAT ? static_cast<void const*>(&v)
                                                             : &i,
                                size);
                }
            }
            // Subsampled channels are given the values of the first columns and rows: who reads them?
            auto const stride = size * static_cast<std::size_t>(width);
            char* const base = reinterpret_cast<char*>(memory.data()) -
                               window.min.x / channel.xSampling * static_cast<std::ptrdiff_t>(size) -
                               window.min.y / channel.ySampling * static_cast<std::ptrdiff_t>(stride);
            buffer.insert(it.name(),
                          Imf::Slice(channel.type, base, size, stride, channel.xSampling, channel.ySampling));
        }
    }

    Imf::FrameBuffer buffer;

private:
    std::vector<std::vector<std::byte>> memory_;
};

struct ExrWindow {
    int left, top, right, bottom;  // inclusive
};

/// A header with channels given as "R:half", "Z:float", "id:uint".
inline Imf::Header exrHeader(ExrWindow data, ExrWindow display, std::vector<std::string> const& channels,
                             Imf::Compression compression = Imf::ZIP_COMPRESSION)
{
    Imf::Header header(Imath::Box2i({display.left, display.top}, {display.right, display.bottom}),
                       Imath::Box2i({data.left, data.top}, {data.right, data.bottom}));
    header.compression() = compression;
    for (std::string const& channel : channels) {
        std::size_t const colon = channel.find(':');
        std::string const type = channel.substr(colon + 1);
        header.channels().insert(channel.substr(0, colon), Imf::Channel(type == "half"    ? Imf::HALF
                                                                        : type == "float" ? Imf::FLOAT
                                                                                          : Imf::UINT));
    }
    return header;
}

inline Imf::Header exrHeader(int width, int height, std::vector<std::string> const& channels,
                             Imf::Compression compression = Imf::ZIP_COMPRESSION)
{
    ExrWindow const window = {0, 0, width - 1, height - 1};
    return exrHeader(window, window, channels, compression);
}

inline Bytes scanlineExr(Imf::Header const& header)
{
    ExrOut out;
    {
        ExrPixels const pixels(header);
        Imf::OutputFile file(out, header, 0);
        file.setFrameBuffer(pixels.buffer);
        file.writePixels(header.dataWindow().max.y - header.dataWindow().min.y + 1);
    }
    return out.bytes;
}

/// Every level, which at level 0 holds exrValue.
inline Bytes tiledExr(Imf::Header header, int tileWidth, int tileHeight, Imf::LevelMode mode)
{
    ExrOut out;
    header.setTileDescription(
        Imf::TileDescription(static_cast<unsigned>(tileWidth), static_cast<unsigned>(tileHeight), mode));
    {
        ExrPixels const pixels(header);
        Imf::TiledOutputFile file(out, header, 0);
        file.setFrameBuffer(pixels.buffer);
        for (int ly = 0; ly < file.numYLevels(); ++ly) {
            for (int lx = 0; lx < file.numXLevels(); ++lx) {
                if (mode == Imf::RIPMAP_LEVELS || lx == ly)
                    file.writeTiles(0, file.numXTiles(lx) - 1, 0, file.numYTiles(ly) - 1, lx, ly);
            }
        }
    }
    return out.bytes;
}

inline Bytes multiPartExr(std::vector<Imf::Header> headers)
{
    ExrOut out;
    for (std::size_t i = 0; i < headers.size(); ++i) {
        headers[i].setName("part" + std::to_string(i));
        headers[i].setType(Imf::SCANLINEIMAGE);
    }
    {
        Imf::MultiPartOutputFile file(out, headers.data(), static_cast<int>(headers.size()), false, 0);
        for (std::size_t i = 0; i < headers.size(); ++i) {
            ExrPixels const pixels(headers[i]);
            Imf::OutputPart part(file, static_cast<int>(i));
            part.setFrameBuffer(pixels.buffer);
            part.writePixels(headers[i].dataWindow().max.y - headers[i].dataWindow().min.y + 1);
        }
    }
    return out.bytes;
}

/// One sample of depth in each pixel.
inline Bytes deepExr(int width, int height)
{
    ExrOut out;
    Imf::Header header = exrHeader(width, height, {"Z:float"}, Imf::ZIPS_COMPRESSION);
    header.setType(Imf::DEEPSCANLINE);
    auto const count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<unsigned> samples(count, 1);
    std::vector<float> depths(count, 2.5f);
    std::vector<float*> pointers(count);
    for (std::size_t i = 0; i < count; ++i)
        pointers[i] = &depths[i];
    {
        auto const stride = static_cast<std::size_t>(width);
        Imf::DeepFrameBuffer buffer;
        buffer.insertSampleCountSlice(Imf::Slice(Imf::UINT, reinterpret_cast<char*>(samples.data()),
                                                 sizeof(unsigned), sizeof(unsigned) * stride));
        buffer.insert("Z", Imf::DeepSlice(Imf::FLOAT, reinterpret_cast<char*>(pointers.data()),
                                          sizeof(float*), sizeof(float*) * stride, sizeof(float)));
        Imf::DeepScanLineOutputFile file(out, header, 0);
        file.setFrameBuffer(buffer);
        file.writePixels(height);
    }
    return out.bytes;
}

/// Luminance with subsampled chroma.
inline Bytes chromaExr(int width, int height)
{
    ExrOut out;
    {
        Imf::Header const header(width, height);
        std::vector<Imf::Rgba> const pixels(static_cast<std::size_t>(width * height), Imf::Rgba(1, 2, 3, 1));
        Imf::RgbaOutputFile file(out, header, Imf::WRITE_YC, 0);
        file.setFrameBuffer(pixels.data(), 1, static_cast<std::size_t>(width));
        file.writePixels(height);
    }
    return out.bytes;
}

/// What the C++ classes read, as channels in that order, one pixel after the other, top row first.
template <class Value>
std::vector<Value> readByLibrary(Bytes const& file, std::vector<std::string> const& channels)
{
    ExrIn in(file);
    Imf::InputFile input(in, 0);
    Imath::Box2i const window = input.header().dataWindow();
    auto const width = static_cast<std::size_t>(window.max.x - window.min.x + 1);
    auto const height = static_cast<std::size_t>(window.max.y - window.min.y + 1);
    std::vector<Value> values(width * height * channels.size());
    std::size_t const stride = sizeof(Value) * channels.size();
    Imf::FrameBuffer buffer;
    for (std::size_t c = 0; c < channels.size(); ++c) {
        char* const base = reinterpret_cast<char*>(values.data() + c) -
                           window.min.x * static_cast<std::ptrdiff_t>(stride) -
                           window.min.y * static_cast<std::ptrdiff_t>(stride * width);
        buffer.insert(channels[c],
                      Imf::Slice(sizeof(Value) == 2 ? Imf::HALF : Imf::FLOAT, base, stride, stride * width));
    }
    input.setFrameBuffer(buffer);
    input.readPixels(window.min.y, window.max.y);
    return values;
}

}  // namespace koImageIO::testing
