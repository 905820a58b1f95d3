// The rotation matrices in memory. Private.
#pragma once

#include "koImage/image/pixel_array.h"
#include "koImage/lighting/harmonics.h"

#include <algorithm>
#include <cstddef>
#include <memory>

namespace koImage {

/// The matrices of degree 0 to 20, each entry as an array over the tilts: at [l][m + l][n + l][t].
class RotationTable {
public:
    static constexpr int tilts = harmonics::polarSamples;
    static constexpr std::size_t entryCount = 1234100;  // 1 + 9 + ... + 41^2 for each tilt

    /// All zero.
    RotationTable() : entries_(static_cast<double*>(allocatePixelMemory(entryCount * sizeof(double))))
    {
        std::fill_n(entries_.get(), entryCount, 0.0);
    }

    /// The entries of all tilts.
    double* at(int l, int m, int n) { return entries_.get() + offsetOf(l, m, n); }
    double const* at(int l, int m, int n) const { return entries_.get() + offsetOf(l, m, n); }

private:
    static std::ptrdiff_t offsetOf(int l, int m, int n)
    {
        int const before = l * (4 * l * l - 1) / 3;  // 1 + 9 + ... + (2 l - 1)^2
        return std::ptrdiff_t{before + (m + l) * (2 * l + 1) + n + l} * tilts;
    }

    struct Release {
        void operator()(double* entries) const { releasePixelMemory(entries, entryCount * sizeof(double)); }
    };
    std::unique_ptr<double[], Release> entries_;
};

/// The table of initializeReflectance, or null.
RotationTable const* loadedRotations();

}  // namespace koImage
