// Doubles that are computed side by side. Private.
//
// The sums of this folder are defined addition by addition, so no sum can be split among the lanes of a
// register. Sums that do not depend on each other can: each lane carries one of them, in its own order.
#pragma once

#include <cstddef>
#include <cstring>

namespace koImage {

/// Four doubles: one register of x86-64-v3, two of baseline x86-64. Loops keep arrays of them in registers,
/// which neither compiler does for arrays of doubles that it has to vectorise itself.
using Lanes = double __attribute__((vector_size(32)));
inline constexpr int laneCount = 4;

/// Vectors that hold `count` doubles.
constexpr std::size_t vectorsFor(int count)
{
    return static_cast<std::size_t>((count + laneCount - 1) / laneCount);
}

/// From any alignment. Not returned by value: how would depend on the instruction set.
inline void loadLanes(Lanes& lanes, double const* from)
{
    std::memcpy(&lanes, from, sizeof lanes);
}

}  // namespace koImage
