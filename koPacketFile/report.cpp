#include "koPacketFile/report.h"

#include <utility>

namespace koPacketFile {

char const* nameOf(Problem problem)
{
    switch (problem) {
    case Problem::None:
        return "nothing wrong";
    case Problem::CannotRead:
        return "the system failed to read";
    case Problem::NotAPacketFile:
        return "not a packet file";
    case Problem::WrongByteOrder:
        return "written in the wrong byte order";
    case Problem::NewerVersion:
        return "written by a newer version";
    case Problem::UnknownFeature:
        return "needs a feature that is not known here";
    case Problem::DamagedFileHeader:
        return "file header damaged";
    case Problem::DamagedRecord:
        return "record damaged";
    case Problem::DamagedPayload:
        return "payload damaged";
    case Problem::DamagedPadding:
        return "padding damaged";
    case Problem::LostRecords:
        return "records missing";
    case Problem::RepeatedRecord:
        return "record repeated or out of order";
    case Problem::UnknownRecord:
        return "record needs to be understood, and is not";
    case Problem::BrokenPacket:
        return "parts of a packet missing";
    case Problem::WrongTypeName:
        return "type name damaged";
    case Problem::Truncated:
        return "file cut off";
    case Problem::DamagedEndRecord:
        return "end record disagrees with the file";
    case Problem::TrailingData:
        return "bytes after the end";
    case Problem::PacketTooLarge:
        return "packet too large";
    case Problem::RepeatedId:
        return "object number repeated";
    case Problem::UnknownPacket:
        return "packet needs to be understood, and is not";
    case Problem::MissingValue:
        return "value missing";
    case Problem::WrongValue:
        return "value of another type or length";
    case Problem::DamagedValue:
        return "value damaged";
    case Problem::InvalidValue:
        return "value without meaning";
    case Problem::TooDeep:
        return "nested too deep";
    case Problem::WrongObjectType:
        return "reference to an object of another class";
    case Problem::SizeLimit:
        return "object too large for a file";
    case Problem::PromiseTooLarge:
        return "object larger than the rest of the file";
    case Problem::IncompleteObject:
        return "object incomplete";
    case Problem::Misuse:
        return "call out of order";
    case Problem::InvalidName:
        return "packet type name empty or too long";
    case Problem::NameCollision:
        return "packet type name taken";
    case Problem::ReferenceToUntagged:
        return "reference to an object that was not written";
    case Problem::CannotWrite:
        return "the system failed to write";
    case Problem::OutOfMemory:
        return "out of memory";
    case Problem::SkippedPacket:
        return "packet of unknown type skipped";
    case Problem::SkippedRecord:
        return "record of unknown kind skipped";
    case Problem::UnresolvedReference:
        return "reference without an object";
    case Problem::UnclaimedObject:
        return "object that nothing refers to";
    }
    return "unknown problem";
}

std::string Finding::message() const
{
    std::string text = nameOf(problem);
    if (amount > 0)
        text += " (" + std::to_string(amount) + ")";
    text += ": byte " + std::to_string(place.offset) + ", record " + std::to_string(place.record);
    if (!place.packetType.empty())
        text += ", packet " + place.packetType;
    if (place.objectId != 0)
        text += ", object " + std::to_string(place.objectId);
    return text;
}

koUtil::Error Finding::error() const
{
    return *this ? koUtil::Error(static_cast<int>(problem), "%s", message().c_str()) : koUtil::Error();
}

void Report::add(Problem problem, Place place, std::uint64_t amount)
{
    bool const informs = isInformation(problem);
    ++(informs ? informationCount_ : damageCount_);
    auto& list = informs ? information_ : damage_;
    if (list.size() < most)
        list.push_back({problem, std::move(place), amount});
}

}  // namespace koPacketFile
