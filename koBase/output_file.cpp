#include "koBase/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <system_error>
#include <utility>

namespace koOS {

namespace {

constexpr std::size_t bufferBytes = std::size_t{1} << 18;

// As the system's own limit on links that lead to links.
constexpr int longestChainOfLinks = 40;

// The folder part of a name with its slash, "" for the current folder.
std::string folderOf(std::string const& path)
{
    return path.substr(0, path.rfind('/') + 1);  // npos + 1 is 0
}

// The name at the end of a chain of symbolic links; that file need not exist.
std::string followLinks(std::string path)
{
    for (int i = 0; i < longestChainOfLinks; ++i) {
        std::array<char, PATH_MAX> target;
        ssize_t const length = readlink(path.c_str(), target.data(), target.size());
        if (length < 0)
            return path;
        std::string const link(target.data(), static_cast<std::size_t>(length));
        path = link.starts_with('/') ? link : folderOf(path).append(link);
    }
    return path;  // opening it fails, with the system's reason
}

std::string newTemporaryName()
{
    static std::atomic<unsigned> serial = 0;
    return ".ko-" + std::to_string(getpid()) + "-" + std::to_string(serial++) + ".tmp";
}

std::string descriptorPath(int file)
{
    return "/proc/self/fd/" + std::to_string(file);
}

}  // namespace

int writeAll(int descriptor, std::span<std::byte const> bytes) noexcept
{
    while (!bytes.empty()) {
        ssize_t const sent = ::write(descriptor, bytes.data(), bytes.size());
        if (sent >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

OutputFile::OutputFile(Filename name) : name_(std::move(name))
{
    buffer_.reserve(bufferBytes);  // so that write() needs no more
    open();
}

OutputFile::~OutputFile()
{
    close();
}

void OutputFile::open()
{
    std::string const path = followLinks(name_.multibyte());
    entry_ = path.substr(folderOf(path).size());

    struct stat old = {};
    bool const replaces = stat(path.c_str(), &old) == 0;
    if (!replaces && errno != ENOENT)
        return fail(errno);
    // Renaming over a device or a pipe would remove it.
    if (replaces && !S_ISREG(old.st_mode))
        return fail(S_ISDIR(old.st_mode) ? EISDIR : EOPNOTSUPP);
    if (entry_.empty())
        return fail(ENOENT);

    std::string const folder = folderOf(path);
    folder_ = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder_ < 0)
        return fail(errno);

    // A file without a name gets one through /proc.
    file_ = openat(folder_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (file_ >= 0 && access(descriptorPath(file_).c_str(), F_OK) != 0) {
        ::close(file_);
        file_ = -1;
        errno = EOPNOTSUPP;
    }
    // The system answers with any of these where files without names are not known.
    if (file_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL))
        openNamed();
    if (file_ < 0)
        return fail(errno);

    if (replaces && fchmod(file_, old.st_mode & 0777) != 0)
        fail(errno);
}

void OutputFile::openNamed()
{
    do {
        temporary_ = newTemporaryName();
        file_ = openat(folder_, temporary_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    } while (file_ < 0 && errno == EEXIST);
    if (file_ < 0)
        temporary_.clear();
}

bool OutputFile::write(std::span<std::byte const> bytes) noexcept
{
    if (buffer_.size() + bytes.size() > bufferBytes) {
        send(buffer_);
        buffer_.clear();
    }
    if (bytes.size() >= bufferBytes)
        send(bytes);
    else if (reason_ == 0)
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    return reason_ == 0;
}

void OutputFile::send(std::span<std::byte const> bytes)
{
    if (reason_ != 0)
        return;
    if (int const reason = writeAll(file_, bytes))
        fail(reason);
}

koUtil::Error OutputFile::commit()
{
    send(buffer_);
    if (reason_ == 0 && fsync(file_) != 0)
        fail(errno);
    if (reason_ == 0)
        closeCopy();
    if (reason_ == 0)
        publish();
    close();
    if (reason_ == 0)
        return {};
    return koUtil::Error(1, "%s: cannot be written: %s", name_.multibyte().c_str(),
                         std::generic_category().message(reason_).c_str());
}

// Some file systems tell only when a file is closed that they could not keep it. They are asked before it has
// its name, which it can only get while it is open.
void OutputFile::closeCopy()
{
    int const copy = fcntl(file_, F_DUPFD_CLOEXEC, 0);
    if (copy < 0 || ::close(copy) != 0)
        fail(errno);
}

void OutputFile::publish()
{
    if (temporary_.empty()) {
        if (linkAs(entry_)) {
            // A new name: done in one step.
            if (fsync(folder_) != 0)
                fail(errno);
            return;
        }
        bool linked = false;
        while (!linked && errno == EEXIST) {
            temporary_ = newTemporaryName();
            linked = linkAs(temporary_);
        }
        if (!linked) {
            temporary_.clear();
            return fail(errno);
        }
    }
    if (renameat(folder_, temporary_.c_str(), folder_, entry_.c_str()) != 0)
        return fail(errno);
    temporary_.clear();
    if (fsync(folder_) != 0)
        fail(errno);
}

bool OutputFile::linkAs(std::string const& entry) const
{
    return linkat(AT_FDCWD, descriptorPath(file_).c_str(), folder_, entry.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

void OutputFile::fail(int reason)
{
    if (reason_ == 0)
        reason_ = reason;
}

// Whatever has not reached its name by now goes.
void OutputFile::close()
{
    if (!temporary_.empty())
        unlinkat(folder_, temporary_.c_str(), 0);
    temporary_.clear();
    if (file_ >= 0)
        ::close(file_);
    if (folder_ >= 0)
        ::close(folder_);
    file_ = folder_ = -1;
}

}  // namespace koOS
