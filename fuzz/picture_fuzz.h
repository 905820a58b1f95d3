// What the targets of single picture formats share.
#pragma once

#include "koImageIO/picture.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

/// Reads one input as a picture: whatever is made of it holds its pixels, and no more of them than promised.
inline void fuzzPicture(std::span<std::uint8_t const> input, std::size_t mostPixels)
{
    koImageIO::Picture picture;
    if (readPicture(std::as_bytes(input), "fuzz", picture))
        return;

    koImage::Image const& image = *picture.image;
    auto const pixels = static_cast<std::size_t>(image.pixelCount());
    if (image.width() < 1 || image.height() < 1 ||
        std::int64_t{image.width()} * image.height() != image.pixelCount() || pixels > mostPixels)
        std::abort();

    // The first and the last byte are there: the address sanitizer watches.
    auto const* const bytes = static_cast<unsigned char const volatile*>(image.data());
    static_cast<void>(bytes[0]);
    static_cast<void>(bytes[pixels * static_cast<std::size_t>(image.bytesPerPixel()) - 1]);
}

/// Inputs that do not begin as files of the format are another target's.
inline bool begins(std::span<std::uint8_t const> input, std::string_view beginning)
{
    return std::string_view(reinterpret_cast<char const*>(input.data()), input.size()).starts_with(beginning);
}
