// Files for benchmarks, in memory where the system has such a folder, so that the figures are those of the
// code.
#pragma once

#include <filesystem>
#include <string>
#include <unistd.h>

namespace koImage::testing {

/// A file name that no other process uses; the file goes with it.
class MemoryFile {
public:
    explicit MemoryFile(std::string const& ending)
    {
        std::filesystem::path const memory = "/dev/shm";
        auto const folder = is_directory(memory) ? memory : std::filesystem::temp_directory_path();
        name_ = folder / ("koimage." + std::to_string(getpid()) + ending);
    }
    ~MemoryFile()
    {
        std::error_code notTold;
        std::filesystem::remove(name_, notTold);
    }
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    std::string name() const { return name_.string(); }

private:
    std::filesystem::path name_;
};

}  // namespace koImage::testing
