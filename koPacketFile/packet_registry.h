// The packet types that a program knows.
#pragma once

#include "koPacketFile/export.h"
#include "koPacketFile/report.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class ioClientReadContext;
class ioReadContext;

/// One type of packet: its name, and what to do with a packet of that name.
class KOPACKETFILE_EXPORT ioPacketType {
public:
    // The order of the virtual operations is binding.

    explicit ioPacketType(char const* name);
    virtual ~ioPacketType();
    ioPacketType(ioPacketType const&) = delete;
    ioPacketType& operator=(ioPacketType const&) = delete;

    /// Reads the packet at whose first value the context stands. The client is the one that enlisted first,
    /// or null.
    virtual void read(ioReadContext& context, ioClientReadContext* client) = 0;

    /// Told once, after the last packet, for each object that a packet of this type set and no reference
    /// asked for. The object, a ko::ReferenceCount*, is released with the context; whoever takes a reference
    /// to it now keeps it. Not told where there is no client. The base does nothing.
    virtual void memoryNotReferenced(ioClientReadContext& client, void* object);

    /// Told once for each reference in a packet of this type that stayed null although the file names an
    /// object: the n-th of its packet, from 0. The object, a ko::ReferenceCount*, is the one that the packet
    /// set, or null. Not told where there is no client. The base does nothing.
    virtual void hasUnresolvedPointer(ioClientReadContext& client, void* object, int n);

    std::string const& name() const { return name_; }

private:
    std::string name_;
};

/// Finds packet types by the ids that stand in files. Owns them.
class KOPACKETFILE_EXPORT ioPacketRegistry {
public:
    ioPacketRegistry();
    ~ioPacketRegistry();
    ioPacketRegistry(ioPacketRegistry const&) = delete;
    ioPacketRegistry& operator=(ioPacketRegistry const&) = delete;

    /// Takes a type over, which was made with new; null is ignored.
    ///
    ///   failure   error() holds the first one: Misuse for a type that is here already; NameCollision for
    ///             the name of another, or its hash: the first type stays, this one is deleted; InvalidName
    ///             for a name of 0 bytes or more than 255
    void supportedType(ioPacketType* type);

    /// The type of that id, or null.
    ioPacketType* find(std::uint64_t typeId) const;

    koPacketFile::Finding const& error() const { return error_; }

private:
    struct Entry;

    std::vector<Entry> types_;  // by id
    koPacketFile::Finding error_;
};
