// The checksum of packet files: CRC-32C, the polynomial 0x1EDC6F41 with its bits reversed.
#pragma once

#include "koPacketFile/export.h"

#include <cstddef>
#include <cstdint>

namespace koPacketFile {

/// The checksum of what `crc` stands for, followed by these bytes. Nothing at all has the checksum 0, so
///
///     crc32c(crc32c(0, a, m), b, n)   is the checksum of m bytes at a and n bytes at b.
///
///   numbers   "123456789" has the checksum E3069283
///   cost      9 GB a second or more with the processor's instruction, 1.5 with tables
KOPACKETFILE_EXPORT std::uint32_t crc32c(std::uint32_t crc, void const* bytes, std::size_t count);

/// How a checksum is stored. A checksum over bytes that hold their own checksums says little: the checksum of
/// any message followed by its checksum is the same number. Stored ones are therefore turned and moved.
constexpr std::uint32_t masked(std::uint32_t crc)
{
    return ((crc >> 15) | (crc << 17)) + 0xA282EAD8u;
}

constexpr std::uint32_t unmasked(std::uint32_t stored)
{
    std::uint32_t const turned = stored - 0xA282EAD8u;
    return (turned << 15) | (turned >> 17);
}

}  // namespace koPacketFile
