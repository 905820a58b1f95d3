// Directions and 4 x 4 matrices, as far as images and lighting need them.
#pragma once

#include <array>
#include <cassert>
#include <cmath>
#include <cstddef>

namespace koLinear {

/// The tolerance below which a float counts as nothing.
inline constexpr float epsilonTolFlt = 1e-6f;

/// Three floats: a direction or a point.
struct VectorFlt {
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;

    constexpr VectorFlt() = default;
    constexpr VectorFlt(float vx, float vy, float vz) : x(vx), y(vy), z(vz) {}

    /// Gives the vector the length 1.
    ///
    ///   numbers   single precision: each component divided by sqrt((x * x + y * y) + z * z). Nothing is
    ///             scaled beforehand: where the squares overflow, finite components become 0; NaN spreads.
    ///   shape     a vector whose length comes out as 0 stays: zero, or so short that its squares vanish
    void normalize()
    {
        float const length = std::sqrt((x * x + y * y) + z * z);
        if (length == 0.0f)
            return;
        x /= length;
        y /= length;
        z /= length;
    }

    friend constexpr bool operator==(VectorFlt const&, VectorFlt const&) = default;
};

/// 4 x 4 doubles, stored row by row: element (row, column) is data()[4 * row + column].
class ProjMatrix {
public:
    /// That multiple of the identity: 0.0 makes every element 0.
    explicit constexpr ProjMatrix(double diagonal)
        : elements_{diagonal, 0, 0, 0, 0, diagonal, 0, 0, 0, 0, diagonal, 0, 0, 0, 0, diagonal}
    {
    }

    constexpr double& operator()(int row, int column) { return elements_[index(row, column)]; }
    constexpr double operator()(int row, int column) const { return elements_[index(row, column)]; }

    constexpr double* data() { return elements_.data(); }
    constexpr double const* data() const { return elements_.data(); }

    friend constexpr bool operator==(ProjMatrix const&, ProjMatrix const&) = default;

private:
    static constexpr std::size_t index(int row, int column)
    {
        assert(row >= 0 && row < 4 && column >= 0 && column < 4);
        return 4 * static_cast<std::size_t>(row) + static_cast<std::size_t>(column);
    }

    std::array<double, 16> elements_;
};

}  // namespace koLinear
