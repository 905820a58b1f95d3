#include "koPacketFile/byte_stream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace koPacketFile {

ByteSink::~ByteSink() = default;
ByteSource::~ByteSource() = default;

bool MemorySink::write(std::span<std::byte const> bytes)
{
    written_.insert(written_.end(), bytes.begin(), bytes.end());
    return true;
}

bool MemorySink::commit()
{
    bytes_.swap(written_);
    written_.clear();
    return true;
}

bool FileSink::commit()
{
    error_ = file_.commit();
    return !error_;
}

std::ptrdiff_t MemorySource::read(std::span<std::byte> buffer)
{
    std::size_t const count = std::min(buffer.size(), rest_.size());
    std::copy_n(rest_.begin(), count, buffer.begin());
    rest_ = rest_.subspan(count);
    return static_cast<std::ptrdiff_t>(count);
}

FileSource::FileSource(std::string const& name)
{
    do
        descriptor_ = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    while (descriptor_ < 0 && errno == EINTR);

    struct stat status;
    if (isOpen() && fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode))
        size_ = static_cast<std::uint64_t>(status.st_size);
}

FileSource::~FileSource()
{
    if (isOpen())
        close(descriptor_);
}

std::ptrdiff_t FileSource::read(std::span<std::byte> buffer)
{
    ssize_t count;
    do
        count = ::read(descriptor_, buffer.data(), buffer.size());
    while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace koPacketFile
