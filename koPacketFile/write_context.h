// Writing a packet file.
//
//     koPacketFile::FileSink file("scene.packets");
//     ioWriteContext out(file);
//     out.startPacket("my.shape", &shape);     // tagged: later packets may refer to it
//     out.writeInt(shape.kind);
//     out.writeFloats(shape.points.data(), shape.points.size());
//     out.endPacket();
//     if (!out.commit())
//         complain(out.error().message());
#pragma once

#include "koPacketFile/byte_stream.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/export.h"
#include "koPacketFile/report.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace koPacketFile {

struct WriteOptions {
    /// What tells the records of this file from those of others; drawn at random unless it is given. Files
    /// that are to be equal to the byte are given the same one.
    std::optional<std::uint32_t> salt = {};

    /// A larger packet is refused. Readers refuse those above 1 GiB.
    std::uint64_t mostPacketBytes = koPacketFile::mostPacketBytes;
};

}  // namespace koPacketFile

/// Writes packets to a sink, all or nothing: without a successful commit() the sink holds no file.
///
///   order     a packet may be started while others are open. It goes to the file when it ends, so an inner
///             packet precedes the outer one, and a reader has its object when the outer one refers to it
///   failure   the first error stays: error() tells it, nothing is written after it, and commit() refuses.
///             Exceptions of the allocator pass; commit() refuses after them too
///   memory    256 KiB, and the values of the packets that are open
class KOPACKETFILE_EXPORT ioWriteContext {
public:
    /// The sink outlives the context.
    explicit ioWriteContext(koPacketFile::ByteSink& sink, koPacketFile::WriteOptions const& options = {});
    virtual ~ioWriteContext();
    ioWriteContext(ioWriteContext const&) = delete;
    ioWriteContext& operator=(ioWriteContext const&) = delete;

    /// Begins a packet of that type, of 1 to 255 bytes. Tagged with an object (null for none): references to
    /// that address from now on mean this packet, until another one is tagged with it.
    void startPacket(char const* type, void const* object);
    void endPacket();

    /// Begins a sub-packet: values that a reader can step over as one. At most 64 deep.
    void startSubPacket();
    void endSubPacket();

    /// Begins the next chunk of the packet or sub-packet. Values that a later version adds go into a new
    /// chunk, so that an older file reads as one where that chunk is empty.
    void nextChunk();

    // Values of the packet that was started last.

    virtual void writeInt(std::int32_t value);
    virtual void writeBool(bool value);

    /// Refers to the object of a packet, or to nothing.
    ///
    ///   failure   ReferenceToUntagged where no packet was tagged with the address. A reference to a
    ///             packet that is still open is stored, but comes too early: readers find no object
    virtual void writeReference(void const* object);

    virtual void writeBytes(std::uint8_t const* elements, std::size_t count);
    virtual void writeShorts(std::uint16_t const* elements, std::size_t count);
    virtual void writeInts(std::int32_t const* elements, std::size_t count);
    virtual void writeFloats(float const* elements, std::size_t count);
    virtual void writeDoubles(double const* elements, std::size_t count);

    /// Ends writing for a reason of the caller's, such as an object that no file can hold.
    void fail(koPacketFile::Problem problem);

    /// Ends the file and makes it count. False after any error, with a packet open, or the second time.
    [[nodiscard]] bool commit();

    /// The first error, or none.
    koPacketFile::Finding const& error() const { return error_; }

private:
    struct TypeName {
        std::string name;
        std::uint64_t id = 0;
        bool written = false;
    };

    struct OpenPacket {
        TypeName* type = nullptr;
        void const* object = nullptr;
        std::vector<std::byte> bytes;         // room for the packet's id and length, then its values
        std::vector<std::size_t> subPackets;  // where the contents of those that are open begin
    };

    template <class Work>
    void guarded(Work const& work);
    OpenPacket* packetFor(std::uint64_t valueBytes);
    void appendValue(koPacketFile::ValueTag tag, void const* bytes, std::size_t count);
    template <class T>
    void appendArray(T const* elements, std::size_t count);

    void emit(OpenPacket& packet);
    void emitRecord(koPacketFile::RecordHeader header, void const* payload, std::size_t bytes);
    void emitBytes(void const* bytes, std::size_t count);
    void flush();

    koPacketFile::ByteSink& sink_;
    std::uint32_t salt_;
    std::uint64_t mostPacketBytes_;
    koPacketFile::Finding error_;
    bool committed_ = false;

    // As many as were ever open at once; the first openPackets_ of them are. The others keep their memory.
    std::vector<OpenPacket> packets_;
    std::size_t openPackets_ = 0;

    // Ids of objects by address: 0 while the packet is open.
    std::unordered_map<void const*, std::uint64_t> ids_;
    std::uint64_t lastId_ = 0;
    std::unordered_map<std::uint64_t, TypeName> typeNames_;

    std::vector<std::byte> pending_;  // not yet given to the sink
    std::uint64_t offset_ = 0;        // in the file, of what follows
    std::uint32_t records_ = 0;
    std::uint64_t packetCount_ = 0;
    std::uint32_t headerCrcs_ = 0;
};
