// The numbers of the encoding: what stands at which byte. docs/packet-format.md tells the same in prose.
//
// Every number is stored with its low byte first.
#pragma once

#include "koPacketFile/crc32c.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace koPacketFile {

// The file header.
inline constexpr std::array<unsigned char, 8> fileMagic{0x8B, 0x6B, 0x6F, 0x70, 0x6B, 0x0D, 0x0A, 0x1A};
inline constexpr std::size_t fileHeaderBytes = 40;
inline constexpr std::size_t mostFileHeaderBytes = 4096;
inline constexpr std::uint16_t majorVersion = 1;
inline constexpr std::uint16_t minorVersion = 0;
inline constexpr std::uint32_t byteOrderMark = 0x01020304;

// Records.
inline constexpr std::uint32_t recordMarker = 0xDBAC4B9E;
inline constexpr std::size_t recordHeaderBytes = 32;
inline constexpr std::size_t mostPayloadBytes = std::size_t{1} << 20;
inline constexpr std::size_t endPayloadBytes = 32;
inline constexpr std::size_t mostNameBytes = 255;

/// A packet's values together, and how deep sub-packets nest.
inline constexpr std::uint64_t mostPacketBytes = std::uint64_t{1} << 30;
inline constexpr int mostDepth = 64;

enum class RecordKind : std::uint8_t { TypeName = 1, Packet = 2, End = 3, Information = 4 };

namespace flag {
inline constexpr std::uint8_t first = 1;
inline constexpr std::uint8_t last = 2;
inline constexpr std::uint8_t tagged = 4;
inline constexpr std::uint8_t mustUnderstand = 8;
inline constexpr std::uint8_t all = first | last | tagged | mustUnderstand;
}  // namespace flag

/// What a value is. The upper three bits say how many bytes follow, so that a reader steps over values that
/// it does not know: 0 none, 1 one, 2 two, 3 four, 4 eight, 5 and 6 a count of eight bytes and as many bytes
/// as it says. 7 is never valid.
enum class ValueTag : std::uint8_t {
    Invalid = 0x00,
    NextChunk = 0x01,
    False = 0x02,
    True = 0x03,
    NullReference = 0x04,
    Int = 0x61,
    Reference = 0x81,
    Bytes = 0xA1,
    Shorts = 0xA2,
    Ints = 0xA3,
    Floats = 0xA4,
    Doubles = 0xA5,
    SubPacket = 0xC1,
};

template <class T>
inline constexpr ValueTag arrayTagOf = ValueTag::Invalid;
template <>
inline constexpr ValueTag arrayTagOf<std::uint8_t> = ValueTag::Bytes;
template <>
inline constexpr ValueTag arrayTagOf<std::uint16_t> = ValueTag::Shorts;
template <>
inline constexpr ValueTag arrayTagOf<std::int32_t> = ValueTag::Ints;
template <>
inline constexpr ValueTag arrayTagOf<float> = ValueTag::Floats;
template <>
inline constexpr ValueTag arrayTagOf<double> = ValueTag::Doubles;

/// Copies numbers into or out of a file.
///
///   numbers   bit for bit: nothing is loaded as a number, so a NaN keeps its payload
template <class T>
void copyLittleEndian(void* target, void const* source, std::size_t count)
{
    if constexpr (std::endian::native == std::endian::little || sizeof(T) == 1) {
        if (count > 0)
            std::memcpy(target, source, count * sizeof(T));
    } else {
        auto* to = static_cast<unsigned char*>(target);
        auto const* from = static_cast<unsigned char const*>(source);
        for (; count > 0; --count, to += sizeof(T), from += sizeof(T))
            for (std::size_t i = 0; i < sizeof(T); ++i)
                to[i] = from[sizeof(T) - 1 - i];
    }
}

template <class T>
T load(void const* bytes)
{
    T value;
    copyLittleEndian<T>(&value, bytes, 1);
    return value;
}

template <class T>
void store(void* bytes, T value)
{
    copyLittleEndian<T>(bytes, &value, 1);
}

/// The id of a packet type: its name hashed with FNV-1a.
constexpr std::uint64_t typeIdOf(std::string_view name)
{
    std::uint64_t hash = 0xCBF29CE484222325;
    for (char const c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return hash;
}

/// What stands in front of every payload.
struct RecordHeader {
    std::uint32_t payloadBytes = 0;
    RecordKind kind = RecordKind::Packet;
    std::uint8_t flags = 0;
    std::uint64_t typeId = 0;
    std::uint32_t number = 0;
    std::uint32_t payloadCrc = 0;  // masked

    bool is(std::uint8_t flags_) const { return (flags & flags_) == flags_; }

    /// The bytes from this record's first to the next one's.
    std::size_t recordBytes() const { return recordHeaderBytes + (payloadBytes + std::size_t{7}) / 8 * 8; }
};

using RecordHeaderBytes = std::array<unsigned char, recordHeaderBytes>;

/// Bytes 4 to 7 are the masked checksum of bytes 8 to 31, started from the salt of the file: what is left of
/// an older file in the same place, or embedded in a payload, does not pass for a record of this one.
inline std::uint32_t recordHeaderCrc(unsigned char const* header, std::uint32_t salt)
{
    return masked(crc32c(salt, header + 8, recordHeaderBytes - 8));
}

inline RecordHeaderBytes bytesOf(RecordHeader const& header, std::uint32_t salt)
{
    RecordHeaderBytes bytes{};
    store(bytes.data(), recordMarker);
    store(bytes.data() + 8, header.payloadBytes);
    bytes[12] = static_cast<unsigned char>(header.kind);
    bytes[13] = header.flags;
    store(bytes.data() + 16, header.typeId);
    store(bytes.data() + 24, header.number);
    store(bytes.data() + 28, header.payloadCrc);
    store(bytes.data() + 4, recordHeaderCrc(bytes.data(), salt));
    return bytes;
}

/// False where marker, checksum or length are not those of a record.
inline bool parseRecordHeader(unsigned char const* bytes, std::uint32_t salt, RecordHeader& header)
{
    if (load<std::uint32_t>(bytes) != recordMarker ||
        load<std::uint32_t>(bytes + 4) != recordHeaderCrc(bytes, salt))
        return false;
    header.payloadBytes = load<std::uint32_t>(bytes + 8);
    header.kind = RecordKind{bytes[12]};
    header.flags = bytes[13];
    header.typeId = load<std::uint64_t>(bytes + 16);
    header.number = load<std::uint32_t>(bytes + 24);
    header.payloadCrc = load<std::uint32_t>(bytes + 28);
    return header.payloadBytes <= mostPayloadBytes && load<std::uint16_t>(bytes + 14) == 0;
}

}  // namespace koPacketFile
