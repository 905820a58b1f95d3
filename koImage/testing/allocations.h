// How much memory a piece of work asks for.
#pragma once

#include <cstdint>

namespace koImage::testing {

struct Allocations {
    std::int64_t count = 0;
    std::int64_t bytes = 0;

    friend Allocations operator-(Allocations a, Allocations b)
    {
        return {a.count - b.count, a.bytes - b.bytes};
    }
};

/// What operator new was asked for since the program started, by every thread and library. Programs that call
/// it link allocations.cpp, which replaces the operator.
Allocations allocationsSoFar();

template <class F>
Allocations allocationsOf(F const& work)
{
    auto const before = allocationsSoFar();
    work();
    return allocationsSoFar() - before;
}

}  // namespace koImage::testing
