#include "koImageIO/testing/largest_request.h"

#include <atomic>
#include <cerrno>

#if defined(__SANITIZE_ADDRESS__)
#define KO_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KO_SANITIZED 1
#endif
#endif

namespace koImageIO::testing {

namespace {

std::atomic<std::size_t> largest = 0;

void note(std::size_t bytes)
{
    std::size_t before = largest;
    while (bytes > before && !largest.compare_exchange_weak(before, bytes))
        ;
}

}  // namespace

std::size_t largestRequest()
{
    return largest;
}

void resetLargestRequest()
{
    largest = 0;
}

}  // namespace koImageIO::testing

#ifdef KO_SANITIZED

// The sanitizer's allocator tells of each request.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(void const volatile*, std::size_t),
                                                         void (*)(void const volatile*));

namespace {

[[maybe_unused]] int const installed = __sanitizer_install_malloc_and_free_hooks(
    [](void const volatile*, std::size_t bytes) { koImageIO::testing::note(bytes); },
    [](void const volatile*) {});

}  // namespace

#else

// The program's functions stand before those of the C library, which does the work. free() is its own.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the names of the system are reserved ones
extern "C" {

void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* memory, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);

void* malloc(std::size_t bytes)
{
    koImageIO::testing::note(bytes);
    return __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes)
{
    koImageIO::testing::note(count * bytes);
    return __libc_calloc(count, bytes);
}

void* realloc(void* memory, std::size_t bytes)
{
    koImageIO::testing::note(bytes);
    return __libc_realloc(memory, bytes);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t bytes)
{
    koImageIO::testing::note(bytes);
    *memory = __libc_memalign(alignment, bytes);
    return *memory != nullptr ? 0 : ENOMEM;
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    koImageIO::testing::note(bytes);
    return __libc_memalign(alignment, bytes);
}

}  // extern "C"
   // NOLINTEND(readability-inconsistent-declaration-parameter-name)

#endif
