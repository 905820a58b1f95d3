// PNG files written from the standard, without a library: any colour type, depth and interlacing, valid or
// not.
//
// The deflate stream is of stored blocks, so each byte of a pixel stands in the file as it is.
#pragma once

#include "koImageIO/testing/files.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace koImageIO::testing {

struct PngByHand {
    enum Colour : std::uint8_t { Grey = 0, Rgb = 2, Palette = 3, GreyAlpha = 4, Rgba = 6 };

    int width = 1;
    int height = 1;
    int depth = 8;
    Colour colour = Grey;
    bool interlaced = false;

    /// The value of a channel of the file's pixel (x, y), y counted from the top; of a palette, its index.
    std::function<unsigned(int x, int y, int channel)> value = [](int, int, int) { return 0u; };

    /// Chunks between the header and the pixels, by name and content.
    std::vector<std::pair<std::string, std::string>> chunks = {};

    /// A size that the header claims instead.
    std::optional<koImage::testing::Size> claimed = {};

    int channels() const { return colour == Rgba ? 4 : colour == Rgb ? 3 : colour == GreyAlpha ? 2 : 1; }

    Bytes file() const
    {
        std::string out = "\x89PNG\r\n\x1a\n";
        std::string header;
        koImage::testing::Size const size = claimed.value_or(koImage::testing::Size{width, height});
        append32(header, static_cast<std::uint32_t>(size.width));
        append32(header, static_cast<std::uint32_t>(size.height));
        header += {static_cast<char>(depth), static_cast<char>(colour), 0, 0, static_cast<char>(interlaced)};
        appendChunk(out, "IHDR", header);
        for (auto const& [name, content] : chunks)
            appendChunk(out, name, content);
        appendChunk(out, "IDAT", stored(scanlines()));
        appendChunk(out, "IEND", "");
        auto const bytes = std::as_bytes(std::span(out));
        return {bytes.begin(), bytes.end()};
    }

    static void append32(std::string& out, std::uint32_t v)
    {
        out += {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                static_cast<char>(v)};
    }

private:
    static void appendChunk(std::string& out, std::string_view name, std::string_view content)
    {
        append32(out, static_cast<std::uint32_t>(content.size()));
        std::string const checked = std::string(name).append(content);
        out += checked;
        std::uint32_t crc = ~0u;
        for (char const c : checked) {
            crc ^= static_cast<unsigned char>(c);
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0u);
        }
        append32(out, ~crc);
    }

    static std::string stored(std::string_view bytes)
    {
        std::string out = "\x78\x01";
        for (std::size_t first = 0; first < bytes.size(); first += 65535) {
            std::string_view const block = bytes.substr(first, 65535);
            auto const length = static_cast<unsigned>(block.size());
            out +=
                {static_cast<char>(first + block.size() == bytes.size()), static_cast<char>(length),
                 static_cast<char>(length >> 8), static_cast<char>(~length), static_cast<char>(~length >> 8)};
            out += block;
        }
        std::uint32_t a = 1, b = 0;
        for (char const c : bytes) {
            a = (a + static_cast<unsigned char>(c)) % 65521;
            b = (b + a) % 65521;
        }
        append32(out, b << 16 | a);
        return out;
    }

    // The lines of all passes, each with filter 0; pixels of less than 8 bits are packed from the left.
    std::string scanlines() const
    {
        struct Pass {
            int x, y, stepX, stepY;
        };
        static constexpr Pass whole[] = {{0, 0, 1, 1}};
        static constexpr Pass adam7[] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                         {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
        std::string out;
        for (Pass const pass : interlaced ? std::span<Pass const>(adam7) : std::span<Pass const>(whole)) {
            if (pass.x >= width)
                continue;
            for (int y = pass.y; y < height; y += pass.stepY) {
                out += '\0';
                unsigned gathered = 0;
                int bits = 0;
                for (int x = pass.x; x < width; x += pass.stepX) {
                    for (int c = 0; c < channels(); ++c) {
                        unsigned const v = value(x, y, c);
                        if (depth == 16)
                            out += static_cast<char>(v >> 8);
                        if (depth >= 8) {
                            out += static_cast<char>(v);
                            continue;
                        }
                        gathered = gathered << depth | v;
                        bits += depth;
                        if (bits == 8)
                            out += static_cast<char>(std::exchange(gathered, 0u)), bits = 0;
                    }
                }
                if (bits > 0)
                    out += static_cast<char>(gathered << (8 - bits));
            }
        }
        return out;
    }
};

}  // namespace koImageIO::testing
