#include "koPacketFile/read_context.h"

#include <algorithm>
#include <iterator>
#include <utility>

using koPacketFile::Problem;
using koPacketFile::ReadResult;
using koPacketFile::ValueReader;

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
      packets_(source, options.policy, report_, options.mostPacketBytes)
{
}

ioReadContext::~ioReadContext()
{
    for (ioClientReadContext* const client : clients_)
        if (client != nullptr)
            client->context_ = nullptr;
}

ReadResult ioReadContext::readAll(ioPacketRegistry& registry)
{
    if (std::exchange(started_, true)) {
        report_.add(Problem::Misuse, place());
        return ReadResult::Failed;
    }
    if (packets_.start())
        while (packets_.next(packet_))
            readPacket(registry);
    checkObjects();

    if (report_.damageCount() == 0)
        return ReadResult::Complete;
    return anyPacketRead_ ? ReadResult::Damaged : ReadResult::Failed;
}

void ioReadContext::readPacket(ioPacketRegistry& registry)
{
    ioPacketType* const type = registry.find(packet_.typeId);
    if (type == nullptr) {
        auto where = packets_.place();
        where.packetType = packet_.typeName;
        where.objectId = packet_.id;
        report_.add(packet_.mustUnderstand ? Problem::UnknownPacket : Problem::SkippedPacket, where);
        return;
    }
    anyPacketRead_ = true;
    current_.emplace(type, packet_);
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
    auto const where = packets_.place();
    auto& entries = packet.id != 0 ? entries_ : untagged_;
    entries.push_back({.id = packet.id,
                       .object = std::move(packet.object),
                       .type = packet.type,
                       .offset = where.offset,
                       .record = where.record,
                       .elementBytes = packet.elementBytes,
                       .expected = packet.expected});
}

// What can only be told after the last packet.
void ioReadContext::checkObjects()
{
    for (auto* const entries : {&entries_, &untagged_}) {
        for (Entry& entry : *entries) {
            koPacketFile::Place const where{entry.offset, entry.record, entry.type->name(), entry.id};
            if (auto const missing = entry.missing(); missing > 0)
                report_.add(Problem::IncompleteObject, where, missing);

            if (entry.claimed)
                continue;
            report_.add(Problem::UnclaimedObject, where);
            if (ioClientReadContext* const client = firstClient())
                entry.type->memoryNotReferenced(*client, entry.object.get());
        }
    }
}

std::uint64_t ioReadContext::Entry::missing() const
{
    std::uint64_t count = expected - arrivedUpTo;
    if (arrivedBehind != nullptr)
        for (auto const& [start, end] : *arrivedBehind)
            count -= end - start;
    return count;
}

std::vector<koPacketFile::FoundObject> ioReadContext::foundObjects() const
{
    std::vector<koPacketFile::FoundObject> all;
    all.reserve(entries_.size() + untagged_.size());
    for (auto const* const entries : {&entries_, &untagged_})
        for (Entry const& entry : *entries)
            all.push_back({entry.object.get(), entry.id, entry.expected, entry.missing()});
    return all;
}

std::vector<ko::ReferenceCount*> ioReadContext::objects() const
{
    auto const found = foundObjects();
    std::vector<ko::ReferenceCount*> all(found.size());
    std::transform(found.begin(), found.end(), all.begin(), [](auto const& f) { return f.object; });
    return all;
}

koPacketFile::Place ioReadContext::place() const
{
    koPacketFile::Place where = packets_.place();
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
    return packets_.bytesLeft();
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
