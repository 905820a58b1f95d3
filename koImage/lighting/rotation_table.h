// The rotation matrices in memory. Private.
#pragma once

#include "koImage/lighting/harmonics.h"

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace koImage {

/// Entries at [l][m + 20][n + 20][t]; those with |m| or |n| above l stay 0.
class RotationTable {
public:
    static constexpr int tilts = harmonics::polarSamples;
    static constexpr int side = 2 * harmonics::maxDegree + 1;
    static constexpr std::size_t size = std::size_t{harmonics::maxDegree + 1} * side * side * tilts;

    /// All zero. From calloc: the pages of entries that no matrix has are never touched.
    RotationTable() : entries_(static_cast<double*>(std::calloc(size, sizeof(double))))
    {
        if (entries_ == nullptr)
            throw std::bad_alloc();
    }

    /// The entries of all tilts.
    double* at(int l, int m, int n) { return entries_.get() + offsetOf(l, m, n); }
    double const* at(int l, int m, int n) const { return entries_.get() + offsetOf(l, m, n); }

private:
    static std::size_t offsetOf(int l, int m, int n)
    {
        auto const row = static_cast<std::size_t>(l * side + m + harmonics::maxDegree);
        return (row * side + static_cast<std::size_t>(n + harmonics::maxDegree)) * tilts;
    }

    struct Free {
        void operator()(double* entries) const { std::free(entries); }
    };
    std::unique_ptr<double[], Free> entries_;
};

/// The table of initializeReflectance, or null.
RotationTable const* loadedRotations();

}  // namespace koImage
