// A function on the sphere as its spherical-harmonics coefficients, to a degree chosen at run time.
#pragma once

#include "koImage/image/harmonics_pixel.h"

#include <cassert>
#include <cstddef>
#include <new>
#include <vector>

namespace koImage {

/// The (n + 1)^2 coefficients of an expansion to degree n, coefficient (l, m) at index l^2 + l + m, for
/// l = 0 .. n and m = -l .. l. FixedOrderSphericalHarmonics is the same with a degree known to the compiler.
///
///   start    every coefficient is zero
///   failure  a degree below 0 gives no coefficients; one whose coefficients an int cannot count throws
///            std::bad_array_new_length
template <class T>
class SphericalHarmonics {
public:
    explicit SphericalHarmonics(int order) : order_(order), coefficients_(countOf(order)) {}

    int order() const { return order_; }
    int size() const { return static_cast<int>(coefficients_.size()); }

    T& operator[](int index)
    {
        assert(index >= 0 && index < size());
        return coefficients_[static_cast<std::size_t>(index)];
    }
    T const& operator[](int index) const
    {
        assert(index >= 0 && index < size());
        return coefficients_[static_cast<std::size_t>(index)];
    }

    T& at(int l, int m) { return (*this)[l * (l + 1) + m]; }
    T const& at(int l, int m) const { return (*this)[l * (l + 1) + m]; }

private:
    static std::size_t countOf(int order)
    {
        constexpr int largest = 46339;  // 46340^2 is the largest square below 2^31
        if (order > largest)
            throw std::bad_array_new_length();
        auto const side = static_cast<std::size_t>(order < 0 ? 0 : order + 1);
        return side * side;
    }

    int order_;
    std::vector<T> coefficients_;
};

}  // namespace koImage
