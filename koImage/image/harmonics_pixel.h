// The pixel of spherical-harmonics images: one fixed-order coefficient set.
#pragma once

#include "koImage/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace koImage {

/// The (N + 1)^2 coefficients of an expansion to degree N, coefficient (l, m) at index l^2 + l + m,
/// for l = 0 .. N and m = -l .. l.
///
///   layout   eight bytes that hold the degree N, then the coefficients; binding for images of such pixels
///   start    every coefficient is zero
template <class T, int N>
class KOIMAGE_EXPORT FixedOrderSphericalHarmonics {
public:
    FixedOrderSphericalHarmonics() = default;

    static constexpr int order() { return N; }
    static constexpr int size() { return (N + 1) * (N + 1); }

    T& operator[](int index) { return coefficients_[static_cast<std::size_t>(index)]; }
    T const& operator[](int index) const { return coefficients_[static_cast<std::size_t>(index)]; }

    T& at(int l, int m) { return (*this)[l * (l + 1) + m]; }
    T const& at(int l, int m) const { return (*this)[l * (l + 1) + m]; }

private:
    std::int64_t order_ = N;
    std::array<T, std::size_t{N + 1} * std::size_t{N + 1}> coefficients_{};
};

}  // namespace koImage
