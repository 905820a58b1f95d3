#include "koPacketFile/packet_reader.h"

#include <algorithm>
#include <utility>

namespace koPacketFile {

namespace {

// In front of the values of a packet of several records: its id and its length.
constexpr std::uint64_t prefixBytes = 16;

// Where in the first record of a packet its length stands, or would stand.
std::size_t lengthPlace(RecordHeader const& first)
{
    return first.is(flag::tagged) ? 8 : 0;
}

// Beyond them types go without a name: a file of nothing but names must not fill the memory.
constexpr std::size_t mostTypeNames = 4096;

}  // namespace

PacketReader::PacketReader(ByteSource& source, Policy policy, Report& report, std::uint64_t mostBytes)
    : policy_(policy),
      report_(report),
      mostBytes_(mostBytes),
      records_(source, policy, report)
{
}

bool PacketReader::stops() const
{
    return policy_ == Policy::Strict && report_.damageCount() > 0;
}

bool PacketReader::next(Packet& packet)
{
    whole_ = {};
    while (!stops() && records_.next(record_)) {
        if (record_.header.kind == RecordKind::TypeName)
            checkTypeName();
        else if (record_.header.kind == RecordKind::Packet && takePart(packet))
            return true;
    }
    if (!stops())
        dropParts();
    return false;
}

// Packets are found by their ids; names are for people. A name that is not what it says is damage.
void PacketReader::checkTypeName()
{
    std::string_view const name(reinterpret_cast<char const*>(record_.payload.data()),
                                record_.payload.size());
    if (name.empty() || name.size() > mostNameBytes || typeIdOf(name) != record_.header.typeId)
        report_.add(Problem::WrongTypeName, place());
    else if (typeNames_.size() < mostTypeNames)
        typeNames_.try_emplace(record_.header.typeId, name);
}

// Whether the packet is whole with this record.
bool PacketReader::takePart(Packet& packet)
{
    RecordHeader const& header = record_.header;
    bool const isFirst = header.is(flag::first);
    bool const isLast = header.is(flag::last);
    bool const continues = hasParts_ && !isFirst && header.number == nextPart_ &&
                           header.typeId == firstPart_.typeId && !header.is(flag::tagged);
    if (!continues)
        dropParts();
    if (stops())
        return false;

    if (isFirst) {
        dropping_ = false;
        if (isLast)
            return open(header, record_.payload, packet);
        firstPart_ = header;
        hasParts_ = true;
    } else if (!continues) {
        // The parts behind a lost one are lost with it, and counted as one.
        if (!std::exchange(dropping_, true))
            report_.add(Problem::BrokenPacket, place());
        return false;
    }
    if (parts_.size() + record_.payload.size() > mostBytes_ + prefixBytes) {
        report_.add(Problem::PacketTooLarge, place());
        hasParts_ = false;
        dropping_ = true;
        parts_ = {};
        return false;
    }
    appendPart();
    nextPart_ = header.number + 1;
    if (!isLast)
        return false;

    hasParts_ = false;
    whole_ = std::exchange(parts_, {});
    return open(firstPart_, whole_, packet);
}

// Takes memory at the first part for what that announces, as far as the file can hold it, and else for a
// quarter more than has come: doubling, as vectors do, takes up to three times as much.
void PacketReader::appendPart()
{
    std::size_t const needed = parts_.size() + record_.payload.size();
    if (parts_.empty())
        parts_.reserve(static_cast<std::size_t>(std::max<std::uint64_t>(needed, announcedBytes())));
    else if (needed > parts_.capacity())
        parts_.reserve(needed + needed / 4);
    parts_.insert(parts_.end(), record_.payload.begin(), record_.payload.end());
}

// By the first part of a packet, of all its parts; 0 where the file cannot hold so much.
std::uint64_t PacketReader::announcedBytes() const
{
    std::size_t const lengthAt = lengthPlace(firstPart_);
    if (record_.payload.size() < lengthAt + 8)
        return 0;
    auto const values = load<std::uint64_t>(record_.payload.data() + lengthAt);
    std::uint64_t const most = record_.payload.size() + bytesLeft().value_or(0);
    return values < most && values <= mostBytes_ ? lengthAt + 8 + values : 0;
}

// What has been put together so far has lost its end.
void PacketReader::dropParts()
{
    if (!std::exchange(hasParts_, false))
        return;
    parts_ = {};
    report_.add(Problem::BrokenPacket, place());
}

// Reads what stands in front of the values: the id of a tagged packet, and the length of one of several
// records.
bool PacketReader::open(RecordHeader const& header, std::span<std::byte const> body, Packet& packet)
{
    bool const isTagged = header.is(flag::tagged);
    std::size_t const lengthAt = lengthPlace(header);
    std::size_t const valuesAt = lengthAt + (header.is(flag::last) ? 0 : 8);
    if (body.size() < valuesAt ||
        (valuesAt > lengthAt && load<std::uint64_t>(body.data() + lengthAt) != body.size() - valuesAt)) {
        report_.add(Problem::BrokenPacket, place());
        return false;
    }
    std::uint64_t const id = isTagged ? load<std::uint64_t>(body.data()) : 0;
    if (isTagged && id <= lastId_) {
        report_.add(Problem::RepeatedId, place());
        return false;
    }
    lastId_ = std::max(lastId_, id);
    ++report_.packets;

    auto const name = typeNames_.find(header.typeId);
    packet = {.typeId = header.typeId,
              .typeName = name != typeNames_.end() ? std::string_view(name->second) : std::string_view(),
              .mustUnderstand = header.is(flag::mustUnderstand),
              .id = id,
              .values = body.subspan(valuesAt)};
    return true;
}

}  // namespace koPacketFile
