// The values of one packet, one after the other.
#pragma once

#include "koPacketFile/encoding.h"
#include "koPacketFile/export.h"
#include "koPacketFile/report.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace koPacketFile {

/// Walks through the bytes of a packet. It trusts none of them.
///
///   failure   the first value that is not the one asked for is the last that is read: problem() tells
///             what was wrong, and everything after it reads as 0, false or null
///   cost      no allocation
class KOPACKETFILE_EXPORT ValueReader {
public:
    /// Nothing to read.
    ValueReader() = default;

    /// The bytes outlive the reader.
    explicit ValueReader(std::span<std::byte const> body);

    Problem problem() const { return problem_; }

    /// Ends reading, for a reason of the caller's. The first reason counts.
    void fail(Problem problem);

    /// Whether there is another value in this chunk.
    bool hasValues() const;

    /// Whether nothing follows in the packet, or the sub-packet that is open.
    bool atEnd() const { return problem_ != Problem::None || body_ == nullptr || at_ == end(); }

    /// Goes on to the next chunk of the packet, or of the sub-packet that is open, whatever is left in this
    /// one. There is always one more: it may be empty.
    void nextChunk();

    /// Opens the sub-packet that is the next value.
    void startSubPacket();

    /// Goes on behind the sub-packet that is open, whatever is left in it.
    void endSubPacket();

    int depth() const { return depth_; }

    /// What the next value is; Invalid where the chunk has none.
    ValueTag peekTag() const { return hasValues() ? ValueTag{byte(at_)} : ValueTag::Invalid; }

    /// How many elements the next value has; 0 when it is no array.
    std::uint64_t peekCount() const;

    std::int32_t readInt();
    bool readBool();

    struct StoredReference {
        bool isNull;
        std::uint64_t id;
    };

    /// A null reference where reading has failed.
    StoredReference readReference();

    /// Reads an array of exactly `count` elements: bytes, shorts, 32-bit integers, floats or doubles.
    ///
    ///   failure   false, and the elements stay as they are; but where only the type of the array is another,
    ///             they become 0
    template <class T>
    bool readArray(T* elements, std::size_t count)
    {
        auto const* const bytes = takeArray(arrayTagOf<T>, std::uint64_t{count} * sizeof(T));
        if (bytes != nullptr)
            copyLittleEndian<T>(elements, bytes, count);
        else if (onlyTypeDiffers_ && count > 0)
            std::memset(elements, 0, count * sizeof(T));
        return bytes != nullptr;
    }

    /// Steps over the next value, also one of an unknown type.
    void skip();

private:
    std::size_t end() const { return ends_[static_cast<std::size_t>(depth_)]; }
    unsigned char byte(std::size_t at) const { return std::to_integer<unsigned char>(body_[at]); }
    std::byte const* take(ValueTag tag, std::size_t bytes);
    std::byte const* takeArray(ValueTag tag, std::uint64_t bytes);
    std::uint64_t lengthAt(std::size_t at) const;
    std::uint64_t valueBytes() const;

    std::byte const* body_ = nullptr;
    std::size_t at_ = 0;
    int depth_ = 0;
    Problem problem_ = Problem::None;
    bool onlyTypeDiffers_ = false;
    std::array<std::size_t, mostDepth + 1> ends_;  // of the packet, and of the sub-packets that are open
};

}  // namespace koPacketFile
