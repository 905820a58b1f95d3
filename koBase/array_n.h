// Arrays of several dimensions whose sizes are known at run time.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace koUtil {

/// An array of N dimensions that owns its elements, the last index running fastest. Not copied; moved, it
/// leaves an array without elements.
///
///   shape     a negative dimension counts as 0; an array with such a dimension has no elements
///   elements  undefined until written where T is trivial, else default-constructed
///   indices   0 to dimension - 1, the caller's duty; asserted in debug builds
///   failure   a count of elements, or a stride, that no memory could hold throws
///             std::bad_array_new_length; lack of memory throws std::bad_alloc
///   cost      an access takes N - 1 multiplications; data() and stride() serve inner loops
template <std::size_t N, class T>
class ArrayN {
    static_assert(N > 0);

public:
    template <std::convertible_to<int>... Dimensions>
    requires(sizeof...(Dimensions) == N) explicit ArrayN(Dimensions... dimensions)
        : dimensions_{dimensions...}
    {
        std::int64_t elements = 1;
        for (std::size_t n = N; n-- > 0;) {
            dimensions_[n] = std::max(dimensions_[n], 0);
            strides_[n] = elements;
            elements = product(elements, dimensions_[n]);
        }
        data_ = std::make_unique_for_overwrite<T[]>(static_cast<std::size_t>(elements));
    }

    ArrayN(ArrayN&& other) noexcept
        : dimensions_(std::exchange(other.dimensions_, {})),
          strides_(other.strides_),
          data_(std::move(other.data_))
    {
    }

    ArrayN& operator=(ArrayN&& other) noexcept
    {
        dimensions_ = std::exchange(other.dimensions_, {});
        strides_ = other.strides_;
        data_ = std::move(other.data_);
        return *this;
    }

    template <std::convertible_to<int>... Indices>
    T& operator()(Indices... indices)
    {
        static_assert(sizeof...(Indices) == N);
        return data_[offset({indices...})];
    }

    template <std::convertible_to<int>... Indices>
    T const& operator()(Indices... indices) const
    {
        static_assert(sizeof...(Indices) == N);
        return data_[offset({indices...})];
    }

    /// Dimension n, 0 to N - 1.
    int dimension(int n) const { return dimensions_[static_cast<std::size_t>(n)]; }

    /// How many elements apart two neighbours along dimension n lie; 1 for the last.
    std::int64_t stride(int n) const { return strides_[static_cast<std::size_t>(n)]; }

    /// How many elements there are.
    std::int64_t size() const { return dimensions_[0] * strides_[0]; }

    T* data() { return data_.get(); }
    T const* data() const { return data_.get(); }

    void fill(T const& value) { std::fill_n(data(), size(), value); }

private:
    static std::int64_t product(std::int64_t elements, int dimension)
    {
        constexpr std::int64_t most = std::numeric_limits<std::ptrdiff_t>::max() / std::int64_t{sizeof(T)};
        if (dimension > 0 && elements > most / dimension)
            throw std::bad_array_new_length();
        return elements * dimension;
    }

    std::size_t offset(std::array<int, N> const& indices) const
    {
        for (std::size_t n = 0; n < N; ++n)
            assert(indices[n] >= 0 && indices[n] < dimensions_[n]);

        std::int64_t sum = indices[N - 1];
        for (std::size_t n = 0; n + 1 < N; ++n)
            sum += indices[n] * strides_[n];
        return static_cast<std::size_t>(sum);
    }

    std::array<int, N> dimensions_;
    std::array<std::int64_t, N> strides_;
    std::unique_ptr<T[]> data_;
};

}  // namespace koUtil
