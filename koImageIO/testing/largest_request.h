// The largest piece of memory that a piece of work asks for, by whatever library: what hostile files are held
// to.
#pragma once

#include <cstddef>

namespace koImageIO::testing {

/// Of every request to the C library's allocator since the program started or resetLargestRequest().
std::size_t largestRequest();
void resetLargestRequest();

template <class Work>
std::size_t largestRequestOf(Work const& work)
{
    resetLargestRequest();
    work();
    return largestRequest();
}

}  // namespace koImageIO::testing
