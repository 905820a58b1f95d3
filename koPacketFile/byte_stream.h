// Where the bytes of a packet file go to, and where they come from.
#pragma once

#include "koBase/error.h"
#include "koBase/filename.h"
#include "koBase/output_file.h"
#include "koPacketFile/export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace koPacketFile {

/// Takes bytes in order, and makes them count all together or not at all.
class KOPACKETFILE_EXPORT ByteSink {
public:
    virtual ~ByteSink();

    /// Takes all of the bytes; false when it cannot. Nothing is written after that.
    virtual bool write(std::span<std::byte const> bytes) = 0;

    /// Makes what was written count. False when it cannot: then nothing of it does.
    virtual bool commit() = 0;
};

/// A file in memory: empty until it is committed.
class KOPACKETFILE_EXPORT MemorySink : public ByteSink {
public:
    bool write(std::span<std::byte const> bytes) override;
    bool commit() override;

    std::vector<std::byte> const& bytes() const { return bytes_; }

private:
    std::vector<std::byte> written_;
    std::vector<std::byte> bytes_;
};

/// A file that appears whole under its name, or not at all: see koOS::OutputFile.
class KOPACKETFILE_EXPORT FileSink : public ByteSink {
public:
    explicit FileSink(koOS::Filename name) : file_(std::move(name)) {}

    bool write(std::span<std::byte const> bytes) override { return file_.write(bytes); }
    bool commit() override;

    /// After a commit that failed: the name of the file and the system's reason.
    koUtil::Error const& error() const { return error_; }

private:
    koOS::OutputFile file_;
    koUtil::Error error_;
};

/// Gives bytes in order.
class KOPACKETFILE_EXPORT ByteSource {
public:
    virtual ~ByteSource();

    /// Fills the buffer, or its front where no more is at hand. Returns how many bytes it filled: 0 at the
    /// end, -1 on failure.
    virtual std::ptrdiff_t read(std::span<std::byte> buffer) = 0;

    /// How many bytes there are in all, where that is known: not for a pipe.
    virtual std::optional<std::uint64_t> size() const = 0;
};

/// Bytes in memory that outlive the source.
class KOPACKETFILE_EXPORT MemorySource : public ByteSource {
public:
    explicit MemorySource(std::span<std::byte const> bytes) : rest_(bytes), size_(bytes.size()) {}

    std::ptrdiff_t read(std::span<std::byte> buffer) override;
    std::optional<std::uint64_t> size() const override { return size_; }

private:
    std::span<std::byte const> rest_;
    std::uint64_t size_;
};

/// A file, or anything else that has a name and can be read from its front.
class KOPACKETFILE_EXPORT FileSource : public ByteSource {
public:
    explicit FileSource(std::string const& name);
    ~FileSource() override;
    FileSource(FileSource const&) = delete;
    FileSource& operator=(FileSource const&) = delete;

    /// Whether it could be opened. One that could not fails to read.
    bool isOpen() const { return descriptor_ >= 0; }

    // By read, not by mapping the file: a file that another process cuts must not end this one.
    std::ptrdiff_t read(std::span<std::byte> buffer) override;
    std::optional<std::uint64_t> size() const override { return size_; }

private:
    int descriptor_ = -1;
    std::optional<std::uint64_t> size_;
};

}  // namespace koPacketFile
