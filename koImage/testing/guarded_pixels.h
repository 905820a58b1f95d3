// Pixels between two pages that may not be touched: a read or write beyond either end stops the test.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <new>

namespace koImage::testing {

template <class Pixel>
class GuardedPixels {
public:
    /// `count` pixels that touch the upper page, or, `atStart`, the lower one.
    explicit GuardedPixels(std::size_t count, bool atStart = false)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
    {
        std::size_t const bytes = count * sizeof(Pixel);
        std::size_t const inner = (bytes + page_ - 1) / page_ * page_;
        size_ = inner + 2 * page_;
        void* const memory = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::bad_alloc();
        memory_ = static_cast<char*>(memory);
        if (inner > 0 && mprotect(memory_ + page_, inner, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
        first_ = memory_ + page_ + (atStart ? 0 : inner - bytes);
    }
    GuardedPixels(GuardedPixels const&) = delete;
    GuardedPixels& operator=(GuardedPixels const&) = delete;
    ~GuardedPixels() { munmap(memory_, size_); }

    Pixel* data() { return reinterpret_cast<Pixel*>(first_); }

private:
    std::size_t page_;
    std::size_t size_ = 0;
    char* memory_ = nullptr;
    char* first_ = nullptr;
};

}  // namespace koImage::testing
