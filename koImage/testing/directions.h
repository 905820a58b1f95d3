// Directions for tests of environment maps, and references in long double.
#pragma once

#include "koBase/linear.h"
#include "koImage/testing/test_images.h"

#include <cmath>
#include <vector>

namespace koImage::testing {

struct LongVector {
    long double x;
    long double y;
    long double z;
};

inline long double distance(LongVector const& a, koLinear::VectorFlt const& b)
{
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

/// The constants of the shapes: floats, not the numbers.
inline constexpr long double longPi = 3.1415927f;

/// A float of 0 to 1, in steps of 2^-24.
inline float randomUnit(Random& random)
{
    return static_cast<float>(random() >> 8) * 0x1p-24f;
}

/// Unit vectors: the axes and diagonals with zeros of both signs, some very close to an axis or to a plane,
/// and random ones.
inline std::vector<koLinear::VectorFlt> unitVectors(int randomCount, std::uint32_t seed)
{
    std::vector<koLinear::VectorFlt> vectors;
    float const steps[] = {-1.0f, -1e-4f, -1e-30f, -0.0f, 0.0f, 1e-30f, 1e-4f, 1.0f};
    for (float const x : steps)
        for (float const y : steps)
            for (float const z : steps)
                if (std::abs(x) == 1 || std::abs(y) == 1 || std::abs(z) == 1)
                    vectors.emplace_back(x, y, z);

    Random random(seed);
    auto const component = [&random] { return 2.0f * randomUnit(random) - 1.0f; };
    while (static_cast<int>(vectors.size()) < randomCount) {
        koLinear::VectorFlt const v(component(), component(), component());
        if (v.x * v.x + v.y * v.y + v.z * v.z <= 1.0f && std::abs(v.x) > 0.01f)
            vectors.push_back(v);
    }
    for (koLinear::VectorFlt& v : vectors)
        v.normalize();
    return vectors;
}

/// Coordinates inside, on the edges and outside of a map, and such that are no place at all.
inline std::vector<float> coordinates(int randomCount, std::uint32_t seed)
{
    float const infinity = std::numeric_limits<float>::infinity();
    std::vector<float> values = {
        0.0f,     -0.0f,   0.5f,     1.0f,      0.99999994f,   1.0000001f,  0.25f,      0.75f, 1.0f / 3,
        2.0f / 3, -0.1f,   -1.0f,    1.5f,      1e-30f,        1e9f,        -2.1e9f,    3e38f, -3e38f,
        1e-45f,   -1e-45f, infinity, -infinity, std::nanf(""), 0.49999997f, 0.50000006f};
    Random random(seed);
    for (int i = 0; i < randomCount; ++i)
        values.push_back(randomUnit(random));
    return values;
}

/// The bits of a float, every NaN alike.
inline std::uint32_t plainBits(float value)
{
    return std::isnan(value) ? 0x7FC00000u : std::bit_cast<std::uint32_t>(value);
}

}  // namespace koImage::testing
