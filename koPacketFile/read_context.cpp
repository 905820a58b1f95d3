#include "koPacketFile/read_context.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

using koPacketFile::Policy;
using koPacketFile::Problem;
using koPacketFile::ReadResult;
using koPacketFile::RecordHeader;
using koPacketFile::RecordKind;
using koPacketFile::ValueReader;

namespace flag = koPacketFile::flag;

namespace {

// In front of the values of a packet of several records: its id and its length.
constexpr std::uint64_t prefixBytes = 16;

}  // namespace

ioClientReadContext::ioClientReadContext(ioReadContext& context) : context_(&context)
{
    context.clients_.push_back(this);
}

ioClientReadContext::~ioClientReadContext()
{
    if (context_ == nullptr)
        return;
    auto& clients = context_->clients_;
    auto const place = std::find(clients.begin(), clients.end(), this);
    // During a packet the others are being counted through.
    if (context_->current_)
        *place = nullptr;
    else
        clients.erase(place);
}

void ioClientReadContext::prePacketRead() {}

void ioClientReadContext::postPacketRead() {}

ioReadContext::ioReadContext(koPacketFile::ByteSource& source, koPacketFile::ReadOptions const& options)
    : options_(options),
      records_(source, options.policy, report_)
{
}

ioReadContext::~ioReadContext()
{
    for (ioClientReadContext* const client : clients_)
        if (client != nullptr)
            client->context_ = nullptr;
}

bool ioReadContext::stops() const
{
    return options_.policy == Policy::Strict && report_.damageCount() > 0;
}

ReadResult ioReadContext::readAll(ioPacketRegistry& registry)
{
    if (std::exchange(started_, true)) {
        report_.add(Problem::Misuse, place());
        return ReadResult::Failed;
    }
    if (records_.start())
        readRecords(registry);
    checkObjects();

    if (report_.damageCount() == 0)
        return ReadResult::Complete;
    return anyPacketRead_ ? ReadResult::Damaged : ReadResult::Failed;
}

void ioReadContext::readRecords(ioPacketRegistry& registry)
{
    while (!stops() && records_.next(record_)) {
        if (record_.header.kind == RecordKind::Packet)
            readPart(registry);
        else if (record_.header.kind == RecordKind::TypeName)
            checkTypeName();
    }
    if (!stops())
        dropParts();
}

// Packets are found by their ids; names are for the report. A name that is not what it says is damage.
void ioReadContext::checkTypeName()
{
    std::string_view const name(reinterpret_cast<char const*>(record_.payload.data()),
                                record_.payload.size());
    if (name.empty() || name.size() > koPacketFile::mostNameBytes ||
        koPacketFile::typeIdOf(name) != record_.header.typeId)
        report_.add(Problem::WrongTypeName, place());
    else if (typeNames_.size() < koPacketFile::Report::most)
        typeNames_.try_emplace(record_.header.typeId, name);
}

void ioReadContext::readPart(ioPacketRegistry& registry)
{
    RecordHeader const& header = record_.header;
    bool const isFirst = header.is(flag::first);
    bool const isLast = header.is(flag::last);
    bool const continues = hasParts_ && !isFirst && header.number == nextPart_ &&
                           header.typeId == firstPart_.typeId && !header.is(flag::tagged);
    if (!continues)
        dropParts();
    if (stops())
        return;

    if (isFirst) {
        dropping_ = false;
        if (isLast) {
            readPacket(header, record_.payload, registry);
            return;
        }
        firstPart_ = header;
        hasParts_ = true;
    } else if (!continues) {
        // The parts behind a lost one are lost with it, and counted as one.
        if (!std::exchange(dropping_, true))
            report_.add(Problem::BrokenPacket, place());
        return;
    }
    if (parts_.size() + record_.payload.size() > options_.mostPacketBytes + prefixBytes) {
        report_.add(Problem::PacketTooLarge, place());
        hasParts_ = false;
        dropping_ = true;
        parts_ = {};
        return;
    }
    // Memory is taken for what has come, not for what the first part announces.
    parts_.insert(parts_.end(), record_.payload.begin(), record_.payload.end());
    nextPart_ = header.number + 1;
    if (!isLast)
        return;

    hasParts_ = false;
    auto const parts = std::exchange(parts_, {});
    readPacket(firstPart_, parts, registry);
}

// What has been put together so far has lost its end.
void ioReadContext::dropParts()
{
    if (!std::exchange(hasParts_, false))
        return;
    parts_ = {};
    report_.add(Problem::BrokenPacket, place());
}

void ioReadContext::readPacket(RecordHeader const& header, std::span<std::byte const> body,
                               ioPacketRegistry& registry)
{
    // In front of the values: the id of a tagged packet, and the length of one of several records.
    bool const isTagged = header.is(flag::tagged);
    std::size_t const lengthAt = isTagged ? 8 : 0;
    std::size_t const valuesAt = lengthAt + (header.is(flag::last) ? 0 : 8);
    if (body.size() < valuesAt ||
        (valuesAt > lengthAt &&
         koPacketFile::load<std::uint64_t>(body.data() + lengthAt) != body.size() - valuesAt)) {
        report_.add(Problem::BrokenPacket, place());
        return;
    }
    std::uint64_t const id = isTagged ? koPacketFile::load<std::uint64_t>(body.data()) : 0;
    if (isTagged && id <= lastId_) {
        report_.add(Problem::RepeatedId, place());
        return;
    }
    lastId_ = std::max(lastId_, id);
    ++report_.packets;

    ioPacketType* const type = registry.find(header.typeId);
    if (type == nullptr) {
        bool const isNeeded = header.is(flag::mustUnderstand);
        auto const name = typeNames_.find(header.typeId);
        report_.add(
            isNeeded ? Problem::UnknownPacket : Problem::SkippedPacket,
            {record_.offset, record_.header.number, name != typeNames_.end() ? name->second : "", id});
        return;
    }
    anyPacketRead_ = true;
    current_.emplace(Current{.type = type, .values = ValueReader(body.subspan(valuesAt)), .id = id});
    try {
        callType();
        endPacket();
    } catch (...) {
        current_.reset();
        throw;
    }
    current_.reset();
}

void ioReadContext::callType()
{
    // Clients that enlist meanwhile wait for the next packet.
    std::size_t const count = clients_.size();
    std::size_t told = 0;
    auto const tellAfter = [&] {
        while (told > 0)
            if (ioClientReadContext* const client = clients_[--told])
                client->postPacketRead();
    };
    try {
        for (; told < count; ++told)
            if (clients_[told] != nullptr)
                clients_[told]->prePacketRead();

        current_->type->read(*this, firstClient());
        for (int const n : current_->unresolved)
            if (ioClientReadContext* const client = firstClient())
                current_->type->hasUnresolvedPointer(*client, current_->object.get(), n);
    } catch (...) {
        tellAfter();
        throw;
    }
    tellAfter();
}

void ioReadContext::endPacket()
{
    std::erase(clients_, nullptr);
    Current& packet = *current_;
    if (packet.values.problem() != Problem::None)
        report_.add(packet.values.problem(), place());

    if (packet.object == nullptr) {
        outstandingBytes_ -= packet.expected * packet.elementBytes;
        return;
    }
    auto& entries = packet.id != 0 ? entries_ : untagged_;
    entries.push_back({.id = packet.id,
                       .object = std::move(packet.object),
                       .type = packet.type,
                       .offset = record_.offset,
                       .record = record_.header.number,
                       .elementBytes = packet.elementBytes,
                       .expected = packet.expected});
}

// What can only be told after the last packet.
void ioReadContext::checkObjects()
{
    for (auto* const entries : {&entries_, &untagged_}) {
        for (Entry& entry : *entries) {
            koPacketFile::Place const where{entry.offset, entry.record, entry.type->name(), entry.id};
            std::uint64_t missing = entry.expected - entry.arrivedUpTo;
            if (entry.arrivedBehind != nullptr)
                for (auto const& [start, end] : *entry.arrivedBehind)
                    missing -= end - start;
            if (missing > 0)
                report_.add(Problem::IncompleteObject, where, missing);

            if (entry.claimed)
                continue;
            report_.add(Problem::UnclaimedObject, where);
            if (ioClientReadContext* const client = firstClient())
                entry.type->memoryNotReferenced(*client, entry.object.get());
        }
    }
}

std::vector<ko::ReferenceCount*> ioReadContext::objects() const
{
    std::vector<ko::ReferenceCount*> all;
    for (auto const* const entries : {&entries_, &untagged_})
        for (Entry const& entry : *entries)
            all.push_back(entry.object.get());
    return all;
}

koPacketFile::Place ioReadContext::place() const
{
    koPacketFile::Place where{.offset = record_.offset, .record = record_.header.number};
    if (current_) {
        where.packetType = current_->type->name();
        where.objectId = current_->id;
    }
    return where;
}

ioClientReadContext* ioReadContext::findClient(ioClientReadContext const* client) const
{
    auto const place = std::find(clients_.begin(), clients_.end(), client);
    return place != clients_.end() ? *place : nullptr;
}

ioClientReadContext* ioReadContext::firstClient() const
{
    auto const place = std::find_if(clients_.begin(), clients_.end(), [](auto* c) { return c != nullptr; });
    return place != clients_.end() ? *place : nullptr;
}

std::optional<std::uint64_t> ioReadContext::bytesLeft() const
{
    return records_.bytesLeft();
}

// Values

ValueReader& ioReadContext::values()
{
    if (current_)
        return current_->values;
    report_.add(Problem::Misuse, place());
    noValues_ = {};
    return noValues_;
}

std::int32_t ioReadContext::readInt()
{
    return values().readInt();
}

bool ioReadContext::readBool()
{
    return values().readBool();
}

bool ioReadContext::readBytes(std::uint8_t* elements, std::size_t count)
{
    return values().readArray(elements, count);
}

bool ioReadContext::readShorts(std::uint16_t* elements, std::size_t count)
{
    return values().readArray(elements, count);
}

bool ioReadContext::readInts(std::int32_t* elements, std::size_t count)
{
    return values().readArray(elements, count);
}

bool ioReadContext::readFloats(float* elements, std::size_t count)
{
    return values().readArray(elements, count);
}

bool ioReadContext::readDoubles(double* elements, std::size_t count)
{
    return values().readArray(elements, count);
}

std::uint64_t ioReadContext::peekCount() const
{
    return current_ ? current_->values.peekCount() : 0;
}

void ioReadContext::nextChunk()
{
    values().nextChunk();
}

bool ioReadContext::hasValues() const
{
    return current_ && current_->values.hasValues();
}

void ioReadContext::startSubPacket()
{
    values().startSubPacket();
}

void ioReadContext::endSubPacket()
{
    values().endSubPacket();
}

void ioReadContext::fail(Problem problem)
{
    values().fail(problem);
}

bool ioReadContext::packetFailed() const
{
    return !current_ || current_->values.problem() != Problem::None;
}

// Objects

void ioReadContext::setObject(ko::ReferenceCount* object)
{
    // Taken in any case: an object that is not wanted is deleted here, as it would be later.
    ko::Reference<ko::ReferenceCount> taken(object);
    if (!current_ || current_->objectIsSet) {
        fail(Problem::Misuse);
        return;
    }
    current_->objectIsSet = true;
    current_->object = std::move(taken);
}

ioReadContext::Entry* ioReadContext::find(std::uint64_t id)
{
    // Parts of one object follow each other.
    if (lastFound_ < entries_.size() && entries_[lastFound_].id == id)
        return &entries_[lastFound_];
    auto const place = std::lower_bound(entries_.begin(), entries_.end(), id,
                                        [](Entry const& e, std::uint64_t wanted) { return e.id < wanted; });
    if (place == entries_.end() || place->id != id)
        return nullptr;
    lastFound_ = static_cast<std::size_t>(place - entries_.begin());
    return &*place;
}

ioReadContext::Lookup ioReadContext::lookUp()
{
    auto const stored = values().readReference();
    return {stored.isNull, stored.isNull ? nullptr : find(stored.id)};
}

void ioReadContext::resolve(Lookup const& found, bool isOfThatClass, bool claims)
{
    if (!current_)
        return;
    int const n = current_->references++;
    if (!claims)
        current_->owner = isOfThatClass ? found.entry : nullptr;
    else if (isOfThatClass)
        found.entry->claimed = true;

    if (found.isNull || isOfThatClass)
        return;
    report_.add(found.entry != nullptr ? Problem::WrongObjectType : Problem::UnresolvedReference, place());
    current_->unresolved.push_back(n);
}

bool ioReadContext::expectElements(std::uint64_t count, std::uint32_t elementBytes)
{
    if (!current_ || current_->expected > 0 || elementBytes == 0) {
        fail(Problem::Misuse);
        return false;
    }

    // What is skipped as damaged is never delivered, but the file was that much larger.
    std::uint64_t const left = bytesLeft().value_or(options_.mostBytesFromPipe);
    std::uint64_t const most = left + report_.bytesSkipped + options_.missingBytes;
    if (outstandingBytes_ > most || count > (most - outstandingBytes_) / elementBytes) {
        fail(Problem::PromiseTooLarge);
        return false;
    }
    outstandingBytes_ += count * elementBytes;
    current_->expected = count;
    current_->elementBytes = elementBytes;
    return true;
}

void ioReadContext::elementsArrived(std::uint64_t start, std::uint64_t count)
{
    Entry* const entry = current_ ? current_->owner : nullptr;
    if (entry == nullptr || count > entry->expected || start > entry->expected - count)
        return;

    // In order, as writers write them, nothing lies behind a gap.
    std::uint64_t first = std::max(start, entry->arrivedUpTo);
    std::uint64_t end = std::max(start + count, first);
    std::uint64_t arrivedBefore = 0;
    if (first > entry->arrivedUpTo && entry->arrivedBehind == nullptr)
        entry->arrivedBehind = std::make_unique<std::map<std::uint64_t, std::uint64_t>>();

    // The ranges that touch this one become one with it.
    if (entry->arrivedBehind != nullptr) {
        auto& ranges = *entry->arrivedBehind;
        auto range = ranges.upper_bound(first);
        if (range != ranges.begin() && std::prev(range)->second >= first)
            --range;
        while (range != ranges.end() && range->first <= end) {
            arrivedBefore += range->second - range->first;
            first = std::min(first, range->first);
            end = std::max(end, range->second);
            range = ranges.erase(range);
        }
        if (first > entry->arrivedUpTo)
            ranges.emplace(first, end);
    }
    outstandingBytes_ -= (end - first - arrivedBefore) * entry->elementBytes;
    if (first == entry->arrivedUpTo)
        entry->arrivedUpTo = end;
}
