#include "koPacketFile/write_context.h"

#include <algorithm>
#include <array>
#include <random>
#include <string_view>

using koPacketFile::Problem;
using koPacketFile::RecordHeader;
using koPacketFile::RecordKind;
using koPacketFile::ValueTag;

namespace flag = koPacketFile::flag;

namespace {

// What is written to the sink at once.
constexpr std::size_t pieceBytes = std::size_t{256} << 10;

// In front of a packet's values: its id, and its length when it takes several records.
constexpr std::size_t prefixRoom = 16;

void append(std::vector<std::byte>& bytes, void const* data, std::size_t count)
{
    auto const* const first = static_cast<std::byte const*>(data);
    bytes.insert(bytes.end(), first, first + count);
}

}  // namespace

ioWriteContext::ioWriteContext(koPacketFile::ByteSink& sink, koPacketFile::WriteOptions const& options)
    : sink_(sink),
      salt_(options.salt ? *options.salt : std::random_device()()),
      mostPacketBytes_(options.mostPacketBytes)
{
    std::array<unsigned char, koPacketFile::fileHeaderBytes> header{};
    std::copy(koPacketFile::fileMagic.begin(), koPacketFile::fileMagic.end(), header.begin());
    koPacketFile::store(header.data() + 8, koPacketFile::majorVersion);
    koPacketFile::store(header.data() + 10, koPacketFile::minorVersion);
    koPacketFile::store(header.data() + 12, static_cast<std::uint32_t>(header.size()));
    koPacketFile::store(header.data() + 24, koPacketFile::byteOrderMark);
    koPacketFile::store(header.data() + 28, salt_);
    koPacketFile::store(header.data() + 36,
                        koPacketFile::masked(koPacketFile::crc32c(0, header.data(), header.size() - 4)));
    emitBytes(header.data(), header.size());
}

ioWriteContext::~ioWriteContext() = default;

void ioWriteContext::fail(Problem problem)
{
    if (error_)
        return;
    error_.problem = problem;  // first of all: naming the place may fail for want of memory
    error_.place.offset = offset_;
    error_.place.record = records_;
    if (openPackets_ > 0)
        error_.place.packetType = packets_[openPackets_ - 1].type->name;
}

// An exception leaves a value or a record half done: the file can no longer be ended.
template <class Work>
void ioWriteContext::guarded(Work const& work)
{
    try {
        work();
    } catch (...) {
        error_.problem = error_ ? error_.problem : Problem::OutOfMemory;
        throw;
    }
}

void ioWriteContext::startPacket(char const* type, void const* object)
{
    if (error_)
        return;
    std::string_view const name = type != nullptr ? type : "";
    if (committed_)
        return fail(Problem::Misuse);
    if (name.empty() || name.size() > koPacketFile::mostNameBytes)
        return fail(Problem::InvalidName);

    guarded([&] {
        std::uint64_t const id = koPacketFile::typeIdOf(name);
        auto const [known, isNew] = typeNames_.try_emplace(id);
        if (isNew)
            known->second = {std::string(name), id, false};
        else if (known->second.name != name)
            return fail(Problem::NameCollision);

        if (openPackets_ == packets_.size())
            packets_.emplace_back();
        OpenPacket& packet = packets_[openPackets_];
        packet.type = &known->second;
        packet.object = object;
        packet.bytes.assign(prefixRoom, std::byte{0});
        packet.subPackets.clear();
        if (object != nullptr)
            ids_[object] = 0;
        ++openPackets_;
    });
}

// The packet that takes values, if it can take so many bytes more.
ioWriteContext::OpenPacket* ioWriteContext::packetFor(std::uint64_t valueBytes)
{
    if (error_)
        return nullptr;
    if (openPackets_ == 0) {
        fail(Problem::Misuse);
        return nullptr;
    }
    OpenPacket& packet = packets_[openPackets_ - 1];
    std::uint64_t const used = packet.bytes.size() - prefixRoom;
    if (used > mostPacketBytes_ || valueBytes > mostPacketBytes_ - used) {
        fail(Problem::PacketTooLarge);
        return nullptr;
    }
    return &packet;
}

void ioWriteContext::appendValue(ValueTag tag, void const* bytes, std::size_t count)
{
    OpenPacket* const packet = packetFor(1 + count);
    if (packet == nullptr)
        return;
    guarded([&] {
        append(packet->bytes, &tag, 1);
        append(packet->bytes, bytes, count);
    });
}

void ioWriteContext::nextChunk()
{
    appendValue(ValueTag::NextChunk, nullptr, 0);
}

void ioWriteContext::writeInt(std::int32_t value)
{
    std::array<unsigned char, 4> bytes;
    koPacketFile::store(bytes.data(), value);
    appendValue(ValueTag::Int, bytes.data(), bytes.size());
}

void ioWriteContext::writeBool(bool value)
{
    appendValue(value ? ValueTag::True : ValueTag::False, nullptr, 0);
}

void ioWriteContext::writeReference(void const* object)
{
    auto const known = ids_.find(object);
    if (object == nullptr || known == ids_.end()) {
        appendValue(ValueTag::NullReference, nullptr, 0);
        if (object != nullptr)
            fail(Problem::ReferenceToUntagged);
        return;
    }
    std::array<unsigned char, 8> bytes;
    koPacketFile::store(bytes.data(), known->second);
    appendValue(ValueTag::Reference, bytes.data(), bytes.size());
}

template <class T>
void ioWriteContext::appendArray(T const* elements, std::size_t count)
{
    if (elements == nullptr && count > 0)
        return fail(Problem::Misuse);
    std::uint64_t const elementBytes = std::min<std::uint64_t>(count, mostPacketBytes_) * sizeof(T);
    OpenPacket* const packet = packetFor(9 + elementBytes);
    if (packet == nullptr)
        return;

    std::array<unsigned char, 9> head;
    head[0] = static_cast<unsigned char>(koPacketFile::arrayTagOf<T>);
    koPacketFile::store(head.data() + 1, elementBytes);
    guarded([&] {
        append(packet->bytes, head.data(), head.size());
        append(packet->bytes, elements, count * sizeof(T));
    });
    if constexpr (std::endian::native != std::endian::little) {
        std::byte* const stored = packet->bytes.data() + packet->bytes.size() - count * sizeof(T);
        koPacketFile::copyLittleEndian<T>(stored, elements, count);
    }
}

void ioWriteContext::writeBytes(std::uint8_t const* elements, std::size_t count)
{
    appendArray(elements, count);
}

void ioWriteContext::writeShorts(std::uint16_t const* elements, std::size_t count)
{
    appendArray(elements, count);
}

void ioWriteContext::writeInts(std::int32_t const* elements, std::size_t count)
{
    appendArray(elements, count);
}

void ioWriteContext::writeFloats(float const* elements, std::size_t count)
{
    appendArray(elements, count);
}

void ioWriteContext::writeDoubles(double const* elements, std::size_t count)
{
    appendArray(elements, count);
}

void ioWriteContext::startSubPacket()
{
    std::array<unsigned char, 8> const length{};  // known when it ends
    OpenPacket* const packet = packetFor(1 + length.size());
    if (packet == nullptr)
        return;
    if (packet->subPackets.size() == koPacketFile::mostDepth)
        return fail(Problem::TooDeep);
    appendValue(ValueTag::SubPacket, length.data(), length.size());
    guarded([&] { packet->subPackets.push_back(packet->bytes.size()); });
}

void ioWriteContext::endSubPacket()
{
    OpenPacket* const packet = packetFor(0);
    if (packet == nullptr)
        return;
    if (packet->subPackets.empty())
        return fail(Problem::Misuse);
    std::size_t const start = packet->subPackets.back();
    packet->subPackets.pop_back();
    koPacketFile::store<std::uint64_t>(packet->bytes.data() + start - 8, packet->bytes.size() - start);
}

void ioWriteContext::endPacket()
{
    OpenPacket* const packet = packetFor(0);
    if (packet == nullptr)
        return;
    if (!packet->subPackets.empty())
        return fail(Problem::Misuse);
    guarded([&] { emit(*packet); });
    --openPackets_;
}

void ioWriteContext::emit(OpenPacket& packet)
{
    TypeName& type = *packet.type;
    if (!type.written)
        emitRecord({.kind = RecordKind::TypeName, .typeId = type.id}, type.name.data(), type.name.size());
    type.written = true;

    // Ids are given out as packets reach the file: there they only grow.
    std::uint8_t const tag = packet.object != nullptr ? flag::tagged : 0;
    std::size_t const idBytes = tag != 0 ? 8 : 0;
    std::size_t const valueBytes = packet.bytes.size() - prefixRoom;
    bool const isWhole = idBytes + valueBytes <= koPacketFile::mostPayloadBytes;
    std::size_t const prefixBytes = idBytes + (isWhole ? 0 : 8);
    std::byte* payload = packet.bytes.data() + prefixRoom - prefixBytes;
    if (tag != 0) {
        ids_[packet.object] = ++lastId_;
        koPacketFile::store(payload, lastId_);
    }
    if (!isWhole)
        koPacketFile::store<std::uint64_t>(payload + idBytes, valueBytes);

    std::size_t left = prefixBytes + valueBytes;
    for (std::uint8_t first = flag::first; first != 0 || left > 0; first = 0) {
        std::size_t const bytes = std::min(left, koPacketFile::mostPayloadBytes);
        auto const last = bytes == left ? flag::last : std::uint8_t{0};
        auto const flags = static_cast<std::uint8_t>(first | last | (first != 0 ? tag : 0));
        emitRecord({.kind = RecordKind::Packet, .flags = flags, .typeId = type.id}, payload, bytes);
        payload += bytes;
        left -= bytes;
    }
    ++packetCount_;
}

void ioWriteContext::emitRecord(RecordHeader header, void const* payload, std::size_t bytes)
{
    header.payloadBytes = static_cast<std::uint32_t>(bytes);
    header.number = records_;
    header.payloadCrc = koPacketFile::masked(koPacketFile::crc32c(0, payload, bytes));
    auto const headerBytes = koPacketFile::bytesOf(header, salt_);
    headerCrcs_ = koPacketFile::crc32c(headerCrcs_, headerBytes.data() + 4, 4);
    ++records_;

    constexpr std::array<unsigned char, 8> zeros{};
    emitBytes(headerBytes.data(), headerBytes.size());
    emitBytes(payload, bytes);
    emitBytes(zeros.data(), header.recordBytes() - headerBytes.size() - bytes);
}

void ioWriteContext::emitBytes(void const* bytes, std::size_t count)
{
    auto const* from = static_cast<std::byte const*>(bytes);
    offset_ += count;
    while (count > 0) {
        std::size_t const now = std::min(count, pieceBytes - pending_.size());
        append(pending_, from, now);
        if (pending_.size() == pieceBytes)
            flush();
        from += now;
        count -= now;
    }
}

void ioWriteContext::flush()
{
    if (!error_ && !pending_.empty() && !sink_.write(pending_))
        fail(Problem::CannotWrite);
    pending_.clear();
}

bool ioWriteContext::commit()
{
    if (openPackets_ > 0 || committed_)
        fail(Problem::Misuse);
    if (error_)
        return false;
    committed_ = true;

    std::array<unsigned char, koPacketFile::endPayloadBytes> counts{};
    koPacketFile::store<std::uint64_t>(counts.data(), records_);
    koPacketFile::store<std::uint64_t>(counts.data() + 8, packetCount_);
    koPacketFile::store<std::uint64_t>(counts.data() + 16, offset_);
    koPacketFile::store<std::uint32_t>(counts.data() + 24, koPacketFile::masked(headerCrcs_));
    guarded([&] {
        emitRecord({.kind = RecordKind::End}, counts.data(), counts.size());
        flush();
        if (!error_ && !sink_.commit())
            fail(Problem::CannotWrite);
    });
    return !error_;
}
