// A file that appears whole under its name, or not at all.
#pragma once

#include "koBase/error.h"
#include "koBase/export.h"
#include "koBase/filename.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace koOS {

/// Writes all of the bytes to an open descriptor, as standard output is one. 0, or the system's number of
/// what failed.
KOBASE_EXPORT int writeAll(int descriptor, std::span<std::byte const> bytes) noexcept;

/// Bytes are gathered in a file without a name; commit() gives it the name, in one step, in the place of what
/// stood there. Without commit nothing changes: neither an error, an exception nor a killed program leaves a
/// trace.
///
///     OutputFile file(name);
///     file.write(bytes);
///     if (koUtil::Error error = file.commit())
///         return error;
///
///   name      of a regular file, or of none yet. Of a symbolic link the target is replaced, the link stays
///   mode      that of the file that was there, else what the umask leaves of 0666
///   owner     the program's
///   disk      bytes and name are synced before commit returns
///   failure   the first one is kept: writing goes on without effect, and commit reports it, with the name of
///             the file and the reason of the system. A folder that cannot be synced is reported although
///             the file is there
///   limits    where the file system knows no files without names (or /proc is missing), a killed program
///             leaves a file `.ko-<number>.tmp`; elsewhere it does if killed in the instant in which an older
///             file is replaced
class KOBASE_EXPORT OutputFile {
public:
    explicit OutputFile(Filename name);
    ~OutputFile();
    OutputFile(OutputFile const&) = delete;
    OutputFile& operator=(OutputFile const&) = delete;

    /// Appends. Whether all went well so far; bytes may still be in the buffer then.
    bool write(std::span<std::byte const> bytes) noexcept;

    /// Makes the file appear. Call it once; nothing can be written afterwards.
    [[nodiscard]] koUtil::Error commit();

private:
    void open();
    void openNamed();
    void send(std::span<std::byte const> bytes);
    void closeCopy();
    void publish();
    void fail(int reason);
    bool linkAs(std::string const& entry) const;
    void close();

    Filename name_;
    std::vector<std::byte> buffer_;
    int reason_ = 0;  // of the first failure, a number of the system
    int folder_ = -1;
    int file_ = -1;
    std::string entry_;      // the name in the folder
    std::string temporary_;  // the name that the file has in the folder for now, or empty
};

}  // namespace koOS
