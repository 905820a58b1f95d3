// Where pixel arrays come from.
//
// A fresh large image costs mostly page faults. Arrays of 2 MiB and more are therefore aligned to 2 MiB and
// advised for huge pages where the system offers them; smaller ones are aligned to a cache line.
#pragma once

#include "koImage/export.h"

#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

namespace koImage {

/// Uninitialised memory. Throws std::bad_alloc.
KOIMAGE_EXPORT void* allocatePixelMemory(std::size_t bytes);

/// Takes memory of allocatePixelMemory with its size; null is fine.
KOIMAGE_EXPORT void releasePixelMemory(void* memory, std::size_t bytes);

/// An array of count > 0 pixels: constructed where the type asks for it, else undefined.
template <class T>
T* newPixelArray(int count)
{
    auto const length = static_cast<std::size_t>(count);
    if (length > std::numeric_limits<std::size_t>::max() / sizeof(T))
        throw std::bad_array_new_length();
    auto* const pixels = static_cast<T*>(allocatePixelMemory(length * sizeof(T)));
    if constexpr (!std::is_trivially_default_constructible_v<T>) {
        static_assert(std::is_nothrow_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
        std::uninitialized_default_construct_n(pixels, length);
    }
    return pixels;
}

/// Releases an array of newPixelArray, made with the same count; null is fine.
template <class T>
void deletePixelArray(T* pixels, int count)
{
    if (pixels != nullptr)
        releasePixelMemory(pixels, static_cast<std::size_t>(count) * sizeof(T));
}

}  // namespace koImage
