#include "koPacketFile/packet_registry.h"

#include "koPacketFile/encoding.h"

#include <algorithm>

using koPacketFile::Problem;

struct ioPacketRegistry::Entry {
    std::uint64_t id;
    std::unique_ptr<ioPacketType> type;
};

ioPacketType::ioPacketType(char const* name) : name_(name != nullptr ? name : "") {}

ioPacketType::~ioPacketType() = default;

void ioPacketType::memoryNotReferenced(ioClientReadContext&, void*) {}

void ioPacketType::hasUnresolvedPointer(ioClientReadContext&, void*, int) {}

ioPacketRegistry::ioPacketRegistry() = default;
ioPacketRegistry::~ioPacketRegistry() = default;

void ioPacketRegistry::supportedType(ioPacketType* type)
{
    if (type == nullptr)
        return;
    auto const fail = [&](Problem problem) {
        if (!error_)
            error_ = {problem, {.packetType = type->name()}, 0};
    };
    if (std::any_of(types_.begin(), types_.end(), [&](Entry const& e) { return e.type.get() == type; })) {
        fail(Problem::Misuse);
        return;
    }

    std::unique_ptr<ioPacketType> owned(type);
    if (type->name().empty() || type->name().size() > koPacketFile::mostNameBytes) {
        fail(Problem::InvalidName);
        return;
    }
    std::uint64_t const id = koPacketFile::typeIdOf(type->name());
    auto const place = std::lower_bound(types_.begin(), types_.end(), id,
                                        [](Entry const& e, std::uint64_t wanted) { return e.id < wanted; });
    if (place != types_.end() && place->id == id) {
        fail(Problem::NameCollision);
        return;
    }
    types_.insert(place, Entry{id, std::move(owned)});
}

ioPacketType* ioPacketRegistry::find(std::uint64_t typeId) const
{
    auto const place = std::lower_bound(types_.begin(), types_.end(), typeId,
                                        [](Entry const& e, std::uint64_t wanted) { return e.id < wanted; });
    return place != types_.end() && place->id == typeId ? place->type.get() : nullptr;
}
