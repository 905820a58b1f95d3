// Reading a packet file.
//
//     koPacketFile::FileSource file("scene.packets");
//     ioReadContext in(file);
//     ioPacketRegistry registry;
//     registry.supportedType(new ShapeType);
//     if (in.readAll(registry) != koPacketFile::ReadResult::Complete)
//         complain(in.report().first().message());
//
// Whatever the bytes of the file are, nothing here crashes, overruns, hangs, or holds more of the file than a
// packet; no damage goes unnoticed. What a packet type is given to read has passed its checksum.
#pragma once

#include "koBase/reference_count.h"
#include "koPacketFile/byte_stream.h"
#include "koPacketFile/export.h"
#include "koPacketFile/packet_reader.h"
#include "koPacketFile/packet_registry.h"
#include "koPacketFile/report.h"
#include "koPacketFile/value_reader.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace koPacketFile {

enum class ReadResult {
    Complete,  // all that was written
    Damaged,   // some of it; the report tells what is missing
    Failed,    // nothing
};

struct ReadOptions {
    /// Recover is for programs that have told their user.
    Policy policy = Policy::Strict;

    /// Objects may hold so many bytes more than the file: to save the beginning of one that was cut off.
    std::uint64_t missingBytes = 0;

    /// A larger packet is dropped: it would be held as a whole.
    std::uint64_t mostPacketBytes = koPacketFile::mostPacketBytes;

    /// Like missingBytes, where the size of the file is unknown.
    std::uint64_t mostBytesFromPipe = std::uint64_t{2} << 30;
};

/// An object that a packet has set.
struct FoundObject {
    ko::ReferenceCount* object;
    std::uint64_t id;        // of its packet; 0 when that is not tagged
    std::uint64_t elements;  // that it was announced with
    std::uint64_t missing;   // of those
};

}  // namespace koPacketFile

/// Somebody who takes part in reading a file: enlisted from construction to destruction, told of each packet.
class KOPACKETFILE_EXPORT ioClientReadContext {
public:
    // The order of the virtual operations is binding.

    explicit ioClientReadContext(ioReadContext& context);
    virtual ~ioClientReadContext();
    ioClientReadContext(ioClientReadContext const&) = delete;
    ioClientReadContext& operator=(ioClientReadContext const&) = delete;

    /// Called before and after every packet that a type reads: before in the order of construction, after in
    /// reverse, and also when reading fails or throws. The base does nothing.
    virtual void prePacketRead();
    virtual void postPacketRead();

    /// Null once the context is gone.
    ioReadContext* readContext() const { return context_; }

private:
    friend class ioReadContext;

    ioReadContext* context_;
};

/// Reads a file, once: hands each packet to the type of its name, and keeps the objects that packets make
/// until the context goes.
///
///   failure   the report holds it. Exceptions of packet types and of the allocator pass; the context
///             can only be destroyed then
///   memory    1.25 MiB, the packet being read where it is larger than 1 MiB, and the objects
class KOPACKETFILE_EXPORT ioReadContext {
public:
    /// The source outlives the context.
    explicit ioReadContext(koPacketFile::ByteSource& source, koPacketFile::ReadOptions const& options = {});
    ~ioReadContext();
    ioReadContext(ioReadContext const&) = delete;
    ioReadContext& operator=(ioReadContext const&) = delete;

    /// Reads the whole file. A packet of another type is skipped.
    koPacketFile::ReadResult readAll(ioPacketRegistry& registry);

    koPacketFile::Report const& report() const { return report_; }

    /// What packets set with setObject and is not null, in the order of the file.
    std::vector<ko::ReferenceCount*> objects() const;

    /// The same with what is known of each.
    std::vector<koPacketFile::FoundObject> foundObjects() const;

    // For packet types: the values of the packet being read.
    //
    // The first value that is not the one asked for fails the packet: from then on values read as 0, false
    // and null. Outside packets the same values come back, and the report says Misuse.

    std::int32_t readInt();
    bool readBool();

    // Arrays of exactly that many elements. False, and the elements stay as they are, when the file holds
    // something else; where it holds elements of another type that take as many bytes, they become 0.

    bool readBytes(std::uint8_t* elements, std::size_t count);
    bool readShorts(std::uint16_t* elements, std::size_t count);
    bool readInts(std::int32_t* elements, std::size_t count);
    bool readFloats(float* elements, std::size_t count);
    bool readDoubles(double* elements, std::size_t count);

    /// How many elements the array has that is the next value; 0 when that is something else.
    std::uint64_t peekCount() const;

    /// The object of the packet that was tagged with the address that was written here: null when null was
    /// written, when no object came for it, or when it is of another class (WrongObjectType). Belongs to the
    /// context: whoever keeps it takes a ko::Reference.
    template <class T>
    T* readReference()
    {
        return typed<T>(true);
    }
    ko::ReferenceCount* readReference() { return readReference<ko::ReferenceCount>(); }

    /// The same for the object that this packet brings a part of, which does not count as asking for it.
    template <class T>
    T* readOwner()
    {
        return typed<T>(false);
    }

    /// Goes on to the next chunk, whatever is left in this one. There is always one more: it may be empty.
    void nextChunk();

    /// Whether there is another value in this chunk.
    bool hasValues() const;

    void startSubPacket();
    void endSubPacket();

    /// Makes that object, or none, the one of this packet: references to the packet resolve to it. The
    /// context takes a reference. Once for each packet.
    void setObject(ko::ReferenceCount* object);

    /// Fails the packet for a reason of the reader's.
    void fail(koPacketFile::Problem problem);

    bool packetFailed() const;

    // Objects that arrive in pieces. The packet that sets such an object says how large it will be; then no
    // object is larger than what the file still has to say, and missing pieces are reported.

    /// Announces an object of so many elements, before memory is taken for it. False when the file cannot
    /// hold them: the packet fails with PromiseTooLarge.
    [[nodiscard]] bool expectElements(std::uint64_t count, std::uint32_t elementBytes);

    /// Notes that these elements of the object that readOwner returned last have arrived. Elements that were
    /// not announced do not count.
    void elementsArrived(std::uint64_t start, std::uint64_t count);

    /// How many bytes the file has after this packet, where its size is known.
    std::optional<std::uint64_t> bytesLeft() const;

    /// The client at that address, if it is enlisted here and of that class; else the packet fails with
    /// Misuse and null comes back. For packet types that keep a pointer to their client.
    template <class Client>
    Client* enlisted(Client* client)
    {
        auto* const found = dynamic_cast<Client*>(findClient(client));
        if (found == nullptr)
            fail(koPacketFile::Problem::Misuse);
        return found;
    }

private:
    friend class ioClientReadContext;

    /// An object that a packet set.
    struct Entry {
        std::uint64_t id;  // 0 when the packet was not tagged
        ko::Reference<ko::ReferenceCount> object;
        ioPacketType* type;
        std::uint64_t offset;
        std::uint32_t record;
        bool claimed = false;

        // Of its elements all below arrivedUpTo have arrived, and behind a gap these ranges, from start to
        // end.
        std::uint32_t elementBytes = 0;
        std::uint64_t expected = 0;
        std::uint64_t arrivedUpTo = 0;
        std::unique_ptr<std::map<std::uint64_t, std::uint64_t>> arrivedBehind = nullptr;

        std::uint64_t missing() const;
    };

    struct Lookup {
        bool isNull;   // as it was written
        Entry* entry;  // null when no packet has set an object for it
    };

    template <class T>
    T* typed(bool claims)
    {
        Lookup const found = lookUp();
        T* const object = found.entry != nullptr ? dynamic_cast<T*>(found.entry->object.get()) : nullptr;
        resolve(found, object != nullptr, claims);
        return object;
    }
    Lookup lookUp();
    void resolve(Lookup const& found, bool isOfThatClass, bool claims);
    Entry* find(std::uint64_t id);
    koPacketFile::ValueReader& values();
    ioClientReadContext* findClient(ioClientReadContext const* client) const;
    ioClientReadContext* firstClient() const;
    koPacketFile::Place place() const;

    void readPacket(ioPacketRegistry& registry);
    void callType();
    void endPacket();
    void checkObjects();

    koPacketFile::ReadOptions options_;
    koPacketFile::Report report_;
    koPacketFile::PacketReader packets_;
    koPacketFile::Packet packet_;
    bool started_ = false;
    bool anyPacketRead_ = false;

    std::vector<ioClientReadContext*> clients_;  // null: one that left during a packet

    // In deques, for they grow without moving what is there, or needing twice the memory meanwhile.
    std::deque<Entry> entries_;   // of tagged packets, by id
    std::deque<Entry> untagged_;  // of others
    std::size_t lastFound_ = 0;
    std::uint64_t outstandingBytes_ = 0;  // expected and not arrived, of all objects

    // The packet that a type is reading.
    struct Current {
        // In place: a value reader is large, and there is one for every few kilobytes of a file.
        Current(ioPacketType* itsType, koPacketFile::Packet const& packet)
            : type(itsType),
              values(packet.values),
              id(packet.id)
        {
        }

        ioPacketType* type;
        koPacketFile::ValueReader values;
        std::uint64_t id;  // 0 when it is not tagged
        bool objectIsSet = false;
        ko::Reference<ko::ReferenceCount> object = {};
        std::uint64_t expected = 0;
        std::uint32_t elementBytes = 0;
        Entry* owner = nullptr;
        int references = 0;
        std::vector<int> unresolved = {};
    };
    std::optional<Current> current_;
    koPacketFile::ValueReader noValues_;
};
