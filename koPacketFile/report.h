// What a reader found wrong with a file, or a writer with its calls.
#pragma once

#include "koBase/error.h"
#include "koPacketFile/export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace koPacketFile {

enum class Problem {
    None,

    // The file as a whole.
    CannotRead,         // the system failed to read
    NotAPacketFile,     // it begins with something else
    WrongByteOrder,     // written by a program that ignores the byte order
    NewerVersion,       // a major version that this reader does not know
    UnknownFeature,     // it says that readers must know something that this one does not
    DamagedFileHeader,  // its checksum fails

    // Records.
    DamagedRecord,     // bytes that are no record; amount: how many
    DamagedPayload,    // a payload whose checksum fails
    DamagedPadding,    // bytes after a payload that should be 0
    LostRecords,       // missing between two others; amount: how many
    RepeatedRecord,    // one that was there before, or comes too late
    UnknownRecord,     // of a kind, or with a flag, that a reader must know but this one does not
    BrokenPacket,      // the records of a packet do not fit together
    WrongTypeName,     // a name that has another hash than it says
    Truncated,         // the file ends before its end record
    DamagedEndRecord,  // it counts something else than there was
    TrailingData,      // bytes after the end record

    // Packets.
    PacketTooLarge,    // above 1 GiB
    RepeatedId,        // objects are numbered upwards; this one is not
    UnknownPacket,     // of a type that a reader must know but this one does not
    MissingValue,      // a chunk ends where a value should be
    WrongValue,        // a value of another type, or an array of another length
    DamagedValue,      // bytes that are no value
    InvalidValue,      // a value that means nothing here, such as a negative size
    TooDeep,           // sub-packets nested beyond the limit
    WrongObjectType,   // a reference to an object of another class
    SizeLimit,         // an object larger than files can hold
    PromiseTooLarge,   // an object larger than what the file still has to say
    IncompleteObject,  // elements that no packet delivered; amount: how many

    // Calls.
    Misuse,               // calls in an order that has no meaning
    InvalidName,          // a packet type without name, or with one that is too long
    NameCollision,        // two packet types with one hash, or one name
    ReferenceToUntagged,  // a reference to an object that no packet was tagged with
    CannotWrite,          // the system failed to write
    OutOfMemory,

    // Not damage: what a sound file may hold.
    SkippedPacket,        // of an unknown type
    SkippedRecord,        // of an unknown kind
    UnresolvedReference,  // no object has come for it
    UnclaimedObject,      // nothing has asked for it
};

/// Whether it is no more than worth knowing.
constexpr bool isInformation(Problem problem)
{
    return problem >= Problem::SkippedPacket;
}

/// A few words: "payload damaged".
KOPACKETFILE_EXPORT char const* nameOf(Problem problem);

/// Where something was found.
struct KOPACKETFILE_EXPORT Place {
    std::uint64_t offset = 0;     // in the file
    std::uint32_t record = 0;     // its number
    std::string packetType = {};  // empty outside packets
    std::uint64_t objectId = 0;   // of the packet; 0 when it has none
};

struct KOPACKETFILE_EXPORT Finding {
    Problem problem = Problem::None;
    Place place;
    std::uint64_t amount = 0;

    explicit operator bool() const { return problem != Problem::None; }

    /// A sentence with all that is known.
    std::string message() const;

    /// The same as an error whose code is the number of the problem.
    koUtil::Error error() const;
};

/// Everything that a reader found, damage apart from information.
class KOPACKETFILE_EXPORT Report {
public:
    /// So many findings of each kind are kept, the first ones. All are counted.
    static constexpr std::size_t most = 100;

    void add(Problem problem, Place place, std::uint64_t amount = 0);

    std::vector<Finding> const& damage() const { return damage_; }
    std::vector<Finding> const& information() const { return information_; }
    std::uint64_t damageCount() const { return damageCount_; }
    std::uint64_t informationCount() const { return informationCount_; }

    /// The first damage, or none.
    Finding first() const { return damage_.empty() ? Finding{} : damage_.front(); }

    // What was read, and what was not.
    std::uint64_t records = 0;       // whole ones
    std::uint64_t packets = 0;       // whole ones, of known types and of others
    std::uint64_t recordsLost = 0;   // by their numbers
    std::uint64_t bytesSkipped = 0;  // in damaged records, and between records
    std::uint64_t bytesSummed = 0;   // for checksums of records: at most four times those of the file

private:
    std::vector<Finding> damage_;
    std::vector<Finding> information_;
    std::uint64_t damageCount_ = 0;
    std::uint64_t informationCount_ = 0;
};

}  // namespace koPacketFile
