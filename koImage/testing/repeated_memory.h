// More addresses than memory, for tests of offsets beyond 32 bits.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace koImage::testing {

/// A range of zeros in which every block is the same memory, except the last one, which has its own. The
/// pages are mapped beforehand: one by one, on first use, they would take longer than the tests.
class RepeatedMemory {
public:
    static constexpr std::size_t blockBytes = std::size_t{16} << 20;

    explicit RepeatedMemory(std::size_t bytes) : blocks_((bytes + blockBytes - 1) / blockBytes)
    {
        std::FILE* const file = std::tmpfile();
        check(file != nullptr && ftruncate(fileno(file), off_t{2 * blockBytes}) == 0);
        start_ = static_cast<unsigned char*>(map(nullptr, blocks_ * blockBytes, PROT_NONE,
                                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (std::size_t i = 0; i < blocks_; ++i)
            map(start_ + i * blockBytes, blockBytes, PROT_READ | PROT_WRITE,
                MAP_SHARED | MAP_FIXED | MAP_POPULATE, fileno(file), i + 1 < blocks_ ? 0 : off_t{blockBytes});
        std::fclose(file);
    }
    ~RepeatedMemory() { munmap(start_, blocks_ * blockBytes); }
    RepeatedMemory(RepeatedMemory const&) = delete;
    RepeatedMemory& operator=(RepeatedMemory const&) = delete;

    unsigned char* start() { return start_; }

private:
    static void check(bool fine)
    {
        if (!fine) {
            std::perror("RepeatedMemory");
            std::abort();
        }
    }
    static void* map(void* at, std::size_t bytes, int access, int flags, int file, off_t offset)
    {
        void* const memory = mmap(at, bytes, access, flags, file, offset);
        check(memory != MAP_FAILED);
        return memory;
    }

    std::size_t blocks_;
    unsigned char* start_;
};

}  // namespace koImage::testing
