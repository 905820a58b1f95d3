#include "koImage/image/half.h"

namespace koImage {

namespace {

constexpr std::uint32_t widen(std::uint32_t h)
{
    std::uint32_t const sign = (h & 0x8000u) << 16;
    std::uint32_t const exponent = (h >> 10) & 0x1Fu;
    std::uint32_t const significand = h & 0x3FFu;

    if (exponent == 31)
        return sign | 0x7F800000u | (significand << 13);
    if (exponent != 0)
        return sign | ((exponent + 112) << 23) | (significand << 13);
    if (significand == 0)
        return sign;

    // A subnormal half is a normal float: shift its leading bit up to the hidden place.
    auto const shift = static_cast<std::uint32_t>(std::countl_zero(significand)) - 21;
    return sign | ((113 - shift) << 23) | (((significand << shift) & 0x3FFu) << 13);
}

constexpr std::array<std::uint32_t, 65536> makeToFloat()
{
    std::array<std::uint32_t, 65536> table{};
    for (std::uint32_t h = 0; h < table.size(); ++h)
        table[h] = widen(h);
    return table;
}

constexpr std::array<std::uint16_t, 512> makeELut()
{
    std::array<std::uint16_t, 512> table{};
    for (int k = 0; k < 512; ++k) {
        int const sign = k & 0x100;
        int const exponent = (k & 0xFF) - 112;
        // Half exponent 30 is left out as well: rounding could overflow it.
        if (exponent > 0 && exponent < 30)
            table[static_cast<std::size_t>(k)] = static_cast<std::uint16_t>((sign << 7) | (exponent << 10));
    }
    return table;
}

constexpr std::uint16_t infinityWord = 0x7C00;

}  // namespace

// Made at compile time, so that the static initialisers of other files may convert.
constinit std::array<std::uint32_t, 65536> const half::_toFloat = makeToFloat();
constinit std::array<std::uint16_t, 512> const half::_eLut = makeELut();

int half::convert(int floatBits)
{
    auto const i = static_cast<std::uint32_t>(floatBits);
    std::uint32_t const sign = (i >> 16) & 0x8000u;
    int exponent = static_cast<int>((i >> 23) & 0xFFu) - 112;
    std::uint32_t significand = i & 0x7FFFFFu;

    auto const word = [](std::uint32_t bits) { return static_cast<std::int16_t>(bits); };

    // Subnormal or zero.
    if (exponent <= 0) {
        if (exponent < -10)
            return 0;  // +0 for a negative input too: stored files depend on it
        significand = (significand | 0x800000u) >> (1 - exponent);
        if (significand & 0x1000u)
            significand += 0x2000u;
        return word(sign | (significand >> 13));
    }

    // Infinity or NaN; a NaN keeps a bit.
    if (exponent == 143) {
        if (significand == 0)
            return word(sign | infinityWord);
        significand >>= 13;
        return word(sign | infinityWord | significand | (significand == 0 ? 1u : 0u));
    }

    // Normal: round half away from zero.
    if (significand & 0x1000u) {
        significand += 0x2000u;
        if (significand & 0x800000u) {
            significand = 0;
            ++exponent;
        }
    }
    if (exponent > 30) {
        overflow();
        return word(sign | infinityWord);
    }
    return word(sign | (static_cast<std::uint32_t>(exponent) << 10) | (significand >> 13));
}

float half::overflow()
{
    // Volatile, so that the squares are formed when the program runs and raise the flag.
    float volatile f = 1e10f;
    for (int i = 0; i < 10; ++i)
        f = f * f;
    return f;
}

}  // namespace koImage
