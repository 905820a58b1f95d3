// Where pixel arrays come from.
//
// A fresh large image costs mostly page faults. Arrays of 2 MiB and more are therefore aligned to 2 MiB, and
// their whole huge pages are asked for where the system offers them. When one is released it is kept for the
// next array of exactly its size, so that work repeated on frames of one size touches no new page: up to
// eight arrays and 128 MiB, the latest ones, whose pages the system may take meanwhile (only where it can).
// They are given up before an allocation fails. Smaller arrays are aligned to a cache line and never kept.
#pragma once

#include "koImage/export.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace koImage {

/// Uninitialised memory: of a large array also what stood in the last one. Throws std::bad_alloc.
KOIMAGE_EXPORT void* allocatePixelMemory(std::size_t bytes);

/// Takes memory of allocatePixelMemory with its size; null is fine.
KOIMAGE_EXPORT void releasePixelMemory(void* memory, std::size_t bytes);

/// Whether a large array has pages by now, judged by the one in its middle: a new array gets each when it is
/// first written. True where the system does not tell.
KOIMAGE_EXPORT bool hasPages(void const* memory, std::size_t bytes);

/// Gives what is kept back to the system: for a program that is done with large images, or measures memory.
KOIMAGE_EXPORT void releaseKeptPixelMemory();

/// Bytes of an array of count > 0 pixels. Throws std::bad_array_new_length where they cannot be addressed.
template <class T>
std::size_t pixelArrayBytes(int count)
{
    auto const length = static_cast<std::size_t>(count);
    if (length > std::numeric_limits<std::size_t>::max() / sizeof(T))
        throw std::bad_array_new_length();
    return length * sizeof(T);
}

/// An array of count > 0 pixels: constructed where the type asks for it, else undefined.
template <class T>
T* newPixelArray(int count)
{
    auto* const pixels = static_cast<T*>(allocatePixelMemory(pixelArrayBytes<T>(count)));
    static_assert(std::is_nothrow_default_constructible_v<T>,
                  "a constructor that throws would leak the array");
    std::uninitialized_default_construct_n(pixels, count);
    return pixels;
}

/// A new array with the bytes of another of count > 0 pixels: a half or a NaN keeps every bit.
template <class T>
T* copyPixelArray(T const* pixels, int count)
{
    static_assert(std::is_trivially_copyable_v<T>);
    std::size_t const bytes = pixelArrayBytes<T>(count);
    return static_cast<T*>(std::memcpy(allocatePixelMemory(bytes), pixels, bytes));
}

/// Releases an array of the functions above, made with the same count; null is fine.
template <class T>
void deletePixelArray(T* pixels, int count)
{
    if (pixels == nullptr)
        return;
    std::destroy_n(pixels, count);
    releasePixelMemory(pixels, pixelArrayBytes<T>(count));
}

}  // namespace koImage
