// Remapping between the three shapes, eight pixels at a time, equal to the pixel-by-pixel definition of
// remap.cpp to the bit. Private: see simd.h.
//
// A remapping has three parts, each chosen when the call is compiled:
//
//   ...Strip     what the destination looks at: the pieces of a row that have directions, and the directions
//                of eight neighbours. It is a strip of columns, whose sines are computed once for all rows;
//                what a row shares is computed once for its columns in the strip.
//   ...Places    where the source shows eight directions
//   Sampler      the bilinear samples at eight coordinates
//
// The strips also keep the cache: neighbours in both directions look at neighbours in the source, so most of
// what one row has fetched serves the next.
//
// The shapes' own operations are the definition of the first two. Whatever the vectors cannot decide (a value
// too close to the edge between two floats, a coordinate outside the image) goes through them, pixel by
// pixel.
#pragma once

#include "koImage/envmap/bilinear.h"
#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/envmap/trigonometry_v3.h"
#include "koImage/image/half_v3.h"

#if KO_SIMD_V3

#include <algorithm>
#include <array>
#include <bit>

namespace koImage::v3::remapping {

using namespace trigonometry;

struct Directions {
    __m256 x;
    __m256 y;
    __m256 z;
};

struct Coordinates {
    __m256 u;
    __m256 v;
};

inline __m256 negated(__m256 a)
{
    return _mm256_xor_ps(a, _mm256_set1_ps(-0.0f));
}

inline __m256 magnitude(__m256 a)
{
    return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), a);
}

/// yes where the mask is set, else no.
inline __m256 select(__m256 mask, __m256 yes, __m256 no)
{
    return _mm256_blendv_ps(no, yes, mask);
}

/// (a + 1) / 2, from -1 .. 1 to 0 .. 1.
inline __m256 toUnit(__m256 a)
{
    return _mm256_mul_ps(_mm256_add_ps(a, _mm256_set1_ps(1)), _mm256_set1_ps(0.5f));
}

using EightFloats = std::array<float, 8>;

inline EightFloats arrayOf(__m256 vector)
{
    EightFloats array;
    _mm256_storeu_ps(array.data(), vector);
    return array;
}

inline __m256 vectorOf(EightFloats const& array)
{
    return _mm256_loadu_ps(array.data());
}

/// The bits of a mask that are not set.
inline int unsureOf(__m256 sure)
{
    return ~_mm256_movemask_ps(sure) & 0xFF;
}

/// Calls visit(i) for every i whose bit is set.
template <class Visit>
void eachBit(int bits, Visit const& visit)
{
    for (auto rest = static_cast<unsigned>(bits); rest != 0; rest &= rest - 1)
        visit(static_cast<std::size_t>(std::countr_zero(rest)));
}

// --- what the destination looks at ---

inline constexpr int stripWidth = 256;

/// A value for each column of a strip. Eight are read from any column on.
template <class T>
using ColumnTable = std::array<T, stripWidth + 8>;

/// Columns begin .. end - 1 of an image, no more than stripWidth.
struct Columns {
    Image const& image;
    int begin;
    int end;

    float u(int x) const { return centreOf(x, image.invWidth()); }
    float v(int y) const { return centreOf(y, image.invHeight()); }
    std::size_t at(int x) const { return static_cast<std::size_t>(x - begin); }
};

class LatLongStrip {
public:
    LatLongStrip(LatLongMap const&, Columns columns) : columns_(columns)
    {
        for (int x = columns.begin; x < columns.end; ++x) {
            double const b = LatLongMap::longitude(columns.u(x));
            minusSines_[columns.at(x)] = -std::sin(b);
            minusCosines_[columns.at(x)] = -std::cos(b);
        }
    }

    /// Goes to a row and calls visit(first, last) for every piece first .. last - 1 that has directions.
    template <class Visit>
    void eachPiece(int y, Visit const& visit)
    {
        float const a = LatLongMap::latitude(columns_.v(y));
        sine_ = static_cast<float>(std::sin(double{a}));
        cosine_ = LatLongMap::cosineOfLatitude(a);
        visit(columns_.begin, columns_.end);
    }

    /// The directions of eight pixels from column x on; those beyond the piece are of no account.
    Directions directions(int x) const
    {
        std::size_t const i = columns_.at(x);
        return {scaled(&minusSines_[i]), scaled(&minusCosines_[i]), _mm256_set1_ps(sine_)};
    }

private:
    __m256 scaled(double const* values) const
    {
        __m256d const c = _mm256_set1_pd(cosine_);
        return floatsOf(_mm256_mul_pd(_mm256_loadu_pd(values), c),
                        _mm256_mul_pd(_mm256_loadu_pd(values + 4), c));
    }

    Columns columns_;
    ColumnTable<double> minusSines_ = {};  // of the longitudes
    ColumnTable<double> minusCosines_ = {};
    float sine_ = 0.0f;  // of the latitude
    float cosine_ = 0.0f;
};

class CrossStrip {
public:
    CrossStrip(CrossMap const& map, Columns columns) : map_(map), columns_(columns)
    {
        float const cells = map.horizontal() ? 4.0f : 3.0f;
        for (int x = columns.begin; x < columns.end; ++x) {
            float const cellU = columns.u(x) * cells;
            auto const cell = static_cast<std::size_t>(truncateToInt(cellU));
            places_[columns.at(x)] = cellU - static_cast<float>(cell);
            // Centres lie in 0 .. 1. Only in an image too wide for floats is the last one 1, beyond the
            // cells.
            if (cell < cellEnds_.size())
                cellEnds_[cell] = x + 1;
        }
    }

    template <class Visit>
    void eachPiece(int y, Visit const& visit)
    {
        int first = columns_.begin;
        for (int const end : cellEnds_) {
            if (first >= end)
                continue;
            float unused;
            if (map_.crossToCube(columns_.u(first), columns_.v(y), face_, unused, rowPlace_))
                visit(first, end);
            first = end;
        }
    }

    Directions directions(int x) const
    {
        __m256 const one = _mm256_set1_ps(1);
        __m256 place = _mm256_loadu_ps(&places_[columns_.at(x)]);
        if (face_ == 5)
            place = _mm256_sub_ps(one, place);
        __m256 const a = _mm256_sub_ps(_mm256_mul_ps(_mm256_set1_ps(2), place), one);
        __m256 const b = _mm256_set1_ps(2.0f * rowPlace_ - 1.0f);
        switch (face_) {
        case 0:
            return normalised({negated(one), a, b});
        case 1:
            return normalised({one, negated(a), b});
        case 2:
            return normalised({negated(a), negated(b), negated(one)});
        case 3:
            return normalised({negated(a), b, one});
        case 4:
            return normalised({negated(a), negated(one), b});
        default:
            return normalised({a, one, b});
        }
    }

private:
    /// As VectorFlt::normalize; one component is 1, so the length is not 0.
    static Directions normalised(Directions const& d)
    {
        __m256 const length = _mm256_sqrt_ps(_mm256_add_ps(
            _mm256_add_ps(_mm256_mul_ps(d.x, d.x), _mm256_mul_ps(d.y, d.y)), _mm256_mul_ps(d.z, d.z)));
        return {_mm256_div_ps(d.x, length), _mm256_div_ps(d.y, length), _mm256_div_ps(d.z, length)};
    }

    CrossMap const& map_;
    Columns columns_;
    ColumnTable<float> places_ = {};    // fu, before face 5 is turned
    std::array<int, 4> cellEnds_ = {};  // one past the last column of the strip in each column of cells
    int face_ = 0;
    float rowPlace_ = 0.0f;  // fv
};

class SphereStrip {
public:
    SphereStrip(SphereMap const& map, Columns columns) : map_(map), columns_(columns)
    {
        for (int x = columns.begin; x < columns.end; ++x)
            x_[columns.at(x)] = 2.0f * columns.u(x) - 1.0f;
    }

    template <class Visit>
    void eachPiece(int row, Visit const& visit)
    {
        v_ = columns_.v(row);
        y_ = 2.0f * v_ - 1.0f;
        auto const isOutside = [this](int column) {
            float const x = x_[columns_.at(column)];
            return std::sqrt(x * x + y_ * y_) > 1.0f;
        };
        // The radius falls towards the middle and grows from there, also when rounded: there is one piece.
        int first = columns_.begin;
        int last = columns_.end;
        while (first < last && isOutside(first))
            ++first;
        while (first < last && isOutside(last - 1))
            --last;
        if (first < last)
            visit(first, last);
    }

    Directions directions(int column) const
    {
        __m256 const x = _mm256_loadu_ps(&x_[columns_.at(column)]);
        __m256 const y = _mm256_set1_ps(y_);
        Rounded const phi =
            roundedSurely(atan2(lowDoubles(y), lowDoubles(x)), atan2(highDoubles(y), highDoubles(x)));
        __m256 const r = _mm256_sqrt_ps(_mm256_add_ps(_mm256_mul_ps(x, x), _mm256_mul_ps(y, y)));
        __m256 const theta = _mm256_mul_ps(r, _mm256_set1_ps(EnvironmentMap::pi));

        SineCosine const lowPhi = sineCosine(lowDoubles(phi.value));
        SineCosine const highPhi = sineCosine(highDoubles(phi.value));
        SineCosine const lowTheta = sineCosine(lowDoubles(theta));
        SineCosine const highTheta = sineCosine(highDoubles(theta));
        Rounded const dirX = roundedSurely(_mm256_mul_pd(lowPhi.cosine, lowTheta.sine),
                                           _mm256_mul_pd(highPhi.cosine, highTheta.sine));
        Rounded const minusDirY = roundedSurely(lowTheta.cosine, highTheta.cosine);
        Rounded const dirZ = roundedSurely(_mm256_mul_pd(lowPhi.sine, lowTheta.sine),
                                           _mm256_mul_pd(highPhi.sine, highTheta.sine));

        // At the centre phi is no number, so not sure.
        Directions directions = {dirX.value, negated(minusDirY.value), dirZ.value};
        int const unsure = unsureOf(
            _mm256_and_ps(_mm256_and_ps(phi.sure, dirX.sure), _mm256_and_ps(minusDirY.sure, dirZ.sure)));
        if (unsure != 0) [[unlikely]]
            decide(column, unsure, directions);
        return directions;
    }

private:
    /// Puts the map's own answer where a bit of `unsure` is set.
    void decide(int column, int unsure, Directions& directions) const
    {
        auto x = arrayOf(directions.x);
        auto y = arrayOf(directions.y);
        auto z = arrayOf(directions.z);
        eachBit(unsure, [&](std::size_t i) {
            koLinear::VectorFlt dir;
            map_.coordToDir(columns_.u(column + static_cast<int>(i)), v_, dir);
            x[i] = dir.x;
            y[i] = dir.y;
            z[i] = dir.z;
        });
        directions = {vectorOf(x), vectorOf(y), vectorOf(z)};
    }

    SphereMap const& map_;
    Columns columns_;
    ColumnTable<float> x_ = {};  // 2u - 1
    float v_ = 0.0f;
    float y_ = 0.0f;  // 2v - 1
};

// --- where the source shows it ---

/// Puts the map's own answer where a bit of `unsure` is set.
inline void decide(EnvironmentMap const& map, Directions const& directions, int unsure,
                   Coordinates& coordinates)
{
    auto const x = arrayOf(directions.x);
    auto const y = arrayOf(directions.y);
    auto const z = arrayOf(directions.z);
    auto u = arrayOf(coordinates.u);
    auto v = arrayOf(coordinates.v);
    eachBit(unsure, [&](std::size_t i) { map.dirToCoord({x[i], y[i], z[i]}, u[i], v[i]); });
    coordinates = {vectorOf(u), vectorOf(v)};
}

class LatLongPlaces {
public:
    explicit LatLongPlaces(LatLongMap const& map) : map_(map) {}

    Coordinates of(Directions const& d) const
    {
        __m256 const minusX = negated(d.x);
        __m256 const minusY = negated(d.y);
        Rounded const lat = roundedSurely(asin(lowDoubles(d.z)), asin(highDoubles(d.z)));
        Rounded const lon = roundedSurely(atan2(lowDoubles(minusX), lowDoubles(minusY)),
                                          atan2(highDoubles(minusX), highDoubles(minusY)));

        __m256 const pi = _mm256_set1_ps(EnvironmentMap::pi);
        Coordinates coordinates = {toUnit(_mm256_div_ps(lon.value, pi)),
                                   toUnit(_mm256_div_ps(_mm256_mul_ps(_mm256_set1_ps(2), lat.value), pi))};
        int const unsure = unsureOf(_mm256_and_ps(lat.sure, lon.sure));
        if (unsure != 0) [[unlikely]]
            decide(map_, d, unsure, coordinates);
        return coordinates;
    }

private:
    LatLongMap const& map_;
};

class SpherePlaces {
public:
    explicit SpherePlaces(SphereMap const& map) : map_(map) {}

    Coordinates of(Directions const& d) const
    {
        __m256 const rho = _mm256_sqrt_ps(_mm256_add_ps(_mm256_mul_ps(d.x, d.x), _mm256_mul_ps(d.z, d.z)));
        __m256 const minusY = negated(d.y);
        // Where rho is 0 this is no number, so not sure.
        __m256d const kLow = factor(lowDoubles(minusY), lowDoubles(rho));
        __m256d const kHigh = factor(highDoubles(minusY), highDoubles(rho));
        Rounded const u =
            shifted(_mm256_mul_pd(kLow, lowDoubles(d.x)), _mm256_mul_pd(kHigh, highDoubles(d.x)));
        Rounded const v =
            shifted(_mm256_mul_pd(kLow, lowDoubles(d.z)), _mm256_mul_pd(kHigh, highDoubles(d.z)));

        Coordinates coordinates = {u.value, v.value};
        int const unsure = unsureOf(_mm256_and_ps(u.sure, v.sure));
        if (unsure != 0) [[unlikely]]
            decide(map_, d, unsure, coordinates);
        return coordinates;
    }

private:
    static __m256d factor(__m256d minusY, __m256d rho)
    {
        return _mm256_div_pd(_mm256_mul_pd(acos(minusY), _mm256_set1_pd(0.5)),
                             _mm256_mul_pd(rho, _mm256_set1_pd(double{EnvironmentMap::pi})));
    }

    static Rounded shifted(__m256d low, __m256d high)
    {
        __m256d const half = _mm256_set1_pd(0.5);
        return roundedSurelyNearOne(_mm256_add_pd(low, half), _mm256_add_pd(high, half));
    }

    SphereMap const& map_;
};

class CrossPlaces {
public:
    explicit CrossPlaces(CrossMap const& map) : horizontal_(map.horizontal())
    {
        for (int face = 0; face < CrossMap::faceCount; ++face) {
            columns_[static_cast<std::size_t>(face)] = static_cast<float>(map.faceColumn(face));
            rows_[static_cast<std::size_t>(face)] = static_cast<float>(map.faceRow(face));
        }
    }

    /// Of directions that the other shapes give: the zero vector, a case of its own, is not among them.
    Coordinates of(Directions const& d) const
    {
        __m256 const ax = magnitude(d.x);
        __m256 const ay = magnitude(d.y);
        __m256 const az = magnitude(d.z);
        __m256 const onX =
            _mm256_and_ps(_mm256_cmp_ps(ax, ay, _CMP_GE_OQ), _mm256_cmp_ps(ax, az, _CMP_GE_OQ));
        __m256 const onY = _mm256_andnot_ps(onX, _mm256_cmp_ps(ay, az, _CMP_GE_OQ));
        __m256 const one = _mm256_set1_ps(1);
        __m256 const s = _mm256_div_ps(one, select(onX, ax, select(onY, ay, az)));

        // The largest component is not 0, so its sign bit tells the side:
        //
        //          +x   -x   +y   -y   +z   -z
        //   face    1    0    5    4    3    2
        //   p      -y    y    x   -x   -x   -x
        //   q       z    z    z    z    y   -y
        __m256 const signBit = _mm256_set1_ps(-0.0f);
        __m256 const facing = _mm256_and_ps(select(onX, d.x, select(onY, d.y, d.z)), signBit);
        __m256 const p = select(onX, _mm256_xor_ps(negated(d.y), facing),
                                select(onY, _mm256_xor_ps(d.x, facing), negated(d.x)));
        __m256 const q = select(_mm256_or_ps(onX, onY), d.z, _mm256_xor_ps(d.y, facing));
        __m256 const axis = select(onX, integers(0), select(onY, integers(4), integers(2)));
        __m256i const positive =
            _mm256_add_epi32(_mm256_srai_epi32(_mm256_castps_si256(facing), 31), _mm256_set1_epi32(1));
        __m256i const face = _mm256_add_epi32(_mm256_castps_si256(axis), positive);

        __m256 fu = toUnit(_mm256_mul_ps(p, s));
        __m256 fv = toUnit(_mm256_mul_ps(q, s));
        __m256 const turned = _mm256_castsi256_ps(_mm256_cmpeq_epi32(face, _mm256_set1_epi32(5)));
        fu = select(turned, _mm256_sub_ps(one, fu), fu);
        fv = select(turned, _mm256_sub_ps(one, fv), fv);
        __m256 const u = _mm256_add_ps(_mm256_permutevar8x32_ps(_mm256_load_ps(columns_.data()), face), fu);
        __m256 const v = _mm256_add_ps(_mm256_permutevar8x32_ps(_mm256_load_ps(rows_.data()), face), fv);
        __m256 const three = _mm256_set1_ps(3);
        __m256 const quarter = _mm256_set1_ps(0.25f);
        if (horizontal_)
            return {_mm256_mul_ps(u, quarter), _mm256_div_ps(v, three)};
        return {_mm256_div_ps(u, three), _mm256_mul_ps(v, quarter)};
    }

private:
    static __m256 integers(int value) { return _mm256_castsi256_ps(_mm256_set1_epi32(value)); }

    bool horizontal_;
    alignas(32) std::array<float, 8> columns_ = {};
    alignas(32) std::array<float, 8> rows_ = {};
};

// --- what it looks like there ---

/// The pixels that eight coordinates fall between, along one axis: see neighboursOf.
struct EightNeighbours {
    EightNeighbours(__m256 coordinate, int size, bool wrap)
    {
        __m256 const position = _mm256_mul_ps(_mm256_set1_ps(static_cast<float>(size)),
                                              _mm256_mul_ps(coordinate, _mm256_set1_ps(insideScale)));
        near = _mm256_cvttps_epi32(position);
        t = _mm256_sub_ps(position, _mm256_cvtepi32_ps(near));

        __m256i const last = _mm256_set1_epi32(size - 1);
        far = _mm256_blendv_epi8(_mm256_add_epi32(near, _mm256_set1_epi32(1)),
                                 wrap ? _mm256_setzero_si256() : last, _mm256_cmpeq_epi32(near, last));
        // As unsigned numbers: negative ones are large.
        inside = _mm256_cmpeq_epi32(_mm256_min_epu32(near, last), near);
    }

    __m256i near;
    __m256i far;     // where inside
    __m256i inside;  // whether near is in the image
    __m256 t;
};

/// Eight blends, each of four pixels: their indices, and the weights of those on the near and on the far
/// side.
struct EightBlends {
    alignas(32) std::array<std::int32_t, 8> index00, index10, index01, index11;
    __m256 nearX, farX, nearY, farY;
};

/// Floats as the pixel type keeps them.
template <class Pixel>
__m256 kept(__m256 values)
{
    if constexpr (std::is_same_v<Pixel, Half4>)
        return quietFloatsOf(halvesOf(values));
    return values;
}

/// Halves round after each product and after the sum.
template <class Pixel>
__m256 blend(__m256 near, __m256 far, __m256 nearWeight, __m256 farWeight)
{
    return kept<Pixel>(_mm256_add_ps(kept<Pixel>(_mm256_mul_ps(nearWeight, near)),
                                     kept<Pixel>(_mm256_mul_ps(farWeight, far))));
}

// Two pixels in a register, four floats each. Of Float3 the fourth is of no account: it is read from the
// pixel that follows, and written where only the next one will be.

template <class Pixel>
__m256 loadTwo(Pixel const* pixels, std::int32_t first, std::int32_t second)
{
    return _mm256_loadu2_m128(&pixels[second].r, &pixels[first].r);
}

inline __m256 loadTwo(Half4 const* pixels, std::int32_t first, std::int32_t second)
{
    return quietFloatsOf(
        _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(pixels + first)),
                           _mm_loadl_epi64(reinterpret_cast<__m128i const*>(pixels + second))));
}

inline void storeTwo(Float4* out, __m256 two, bool)
{
    _mm256_storeu_ps(&out->r, two);
}

inline void storeTwo(Float3* out, __m256 two, bool last)
{
    _mm_storeu_ps(&out[0].r, _mm256_castps256_ps128(two));
    __m128 const second = _mm256_extractf128_ps(two, 1);
    if (last) {
        _mm_storel_pi(reinterpret_cast<__m64*>(&out[1].r), second);
        _mm_store_ss(&out[1].b, _mm_movehl_ps(second, second));
    } else {
        _mm_storeu_ps(&out[1].r, second);
    }
}

inline void storeTwo(Half4* out, __m256 two, bool)
{
    // They are halves already.
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_cvtps_ph(two, _MM_FROUND_TO_NEAREST_INT));
}

/// Writes eight pixels.
template <class Pixel>
void writeEight(Pixel const* pixels, EightBlends const& blends, Pixel* out)
{
    for (int i = 0; i < 8; i += 2) {
        auto const at = static_cast<std::size_t>(i);
        auto const load = [&](std::array<std::int32_t, 8> const& index) {
            return loadTwo(pixels, index[at], index[at + 1]);
        };
        __m256i const lanes = _mm256_set_epi32(i + 1, i + 1, i + 1, i + 1, i, i, i, i);
        auto const weight = [lanes](__m256 weights) { return _mm256_permutevar8x32_ps(weights, lanes); };

        __m256 const nearX = weight(blends.nearX);
        __m256 const farX = weight(blends.farX);
        __m256 const near = blend<Pixel>(load(blends.index00), load(blends.index10), nearX, farX);
        __m256 const far = blend<Pixel>(load(blends.index01), load(blends.index11), nearX, farX);
        storeTwo(out + at, blend<Pixel>(near, far, weight(blends.nearY), weight(blends.farY)), i == 6);
    }
}

inline void writeEight(float const* pixels, EightBlends const& blends, float* out)
{
    auto const gather = [pixels](std::array<std::int32_t, 8> const& index) {
        return _mm256_i32gather_ps(pixels, _mm256_load_si256(reinterpret_cast<__m256i const*>(index.data())),
                                   4);
    };
    __m256 const near =
        blend<float>(gather(blends.index00), gather(blends.index10), blends.nearX, blends.farX);
    __m256 const far =
        blend<float>(gather(blends.index01), gather(blends.index11), blends.nearX, blends.farX);
    _mm256_storeu_ps(out, blend<float>(near, far, blends.nearY, blends.farY));
}

/// Bilinear samples of an image whose sizes describe its pixels.
template <class Pixel>
class Sampler {
public:
    explicit Sampler(TypedImage<Pixel> const& image) : image_(image) {}

    /// The samples at the first `count` of eight coordinates.
    void sample(Coordinates const& at, int count, Pixel* out) const
    {
        EightNeighbours const x(at.u, image_.width(), image_.wrapHorizontal());
        EightNeighbours const y(at.v, image_.height(), image_.wrapVertical());
        __m256i const width = _mm256_set1_epi32(image_.width());
        __m256i const nearRow = _mm256_mullo_epi32(y.near, width);
        __m256i const farRow = _mm256_mullo_epi32(y.far, width);
        __m256i const index00 = _mm256_add_epi32(nearRow, x.near);
        __m256i const index10 = _mm256_add_epi32(nearRow, x.far);
        __m256i const index01 = _mm256_add_epi32(farRow, x.near);
        __m256i const index11 = _mm256_add_epi32(farRow, x.far);

        __m256i readable = _mm256_and_si256(x.inside, y.inside);
        if constexpr (std::is_same_v<Pixel, Float3>) {
            // Nothing follows the last pixel.
            __m256i const largest =
                _mm256_max_epi32(_mm256_max_epi32(index00, index10), _mm256_max_epi32(index01, index11));
            readable = _mm256_and_si256(
                readable, _mm256_cmpgt_epi32(_mm256_set1_epi32(image_.pixelCount() - 1), largest));
        }
        int const wanted = (1 << count) - 1;
        if ((_mm256_movemask_ps(_mm256_castsi256_ps(readable)) & wanted) != wanted) [[unlikely]] {
            sampleEach(at, count, out);
            return;
        }

        // Those beyond count may be anywhere: pixel 0 is there to be read.
        EightBlends blends;
        keep(blends.index00, _mm256_and_si256(index00, readable));
        keep(blends.index10, _mm256_and_si256(index10, readable));
        keep(blends.index01, _mm256_and_si256(index01, readable));
        keep(blends.index11, _mm256_and_si256(index11, readable));
        __m256 const one = _mm256_set1_ps(1);
        blends.nearX = kept<Pixel>(_mm256_sub_ps(one, x.t));
        blends.farX = kept<Pixel>(x.t);
        blends.nearY = _mm256_sub_ps(one, y.t);
        blends.farY = y.t;
        if (count == 8) {
            writeEight(image_.pixels(), blends, out);
        } else {
            std::array<Pixel, 8> pixels;
            writeEight(image_.pixels(), blends, pixels.data());
            std::copy_n(pixels.data(), count, out);
        }
    }

private:
    static void keep(std::array<std::int32_t, 8>& array, __m256i values)
    {
        _mm256_store_si256(reinterpret_cast<__m256i*>(array.data()), values);
    }

    void sampleEach(Coordinates const& at, int count, Pixel* out) const
    {
        auto const u = arrayOf(at.u);
        auto const v = arrayOf(at.v);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
            sampleBilinear(image_, u[i], v[i], out[i]);
    }

    TypedImage<Pixel> const& image_;
};

// --- strip by strip ---

template <class Strip, class Places, class Pixel>
void remapStrip(Strip strip, Columns columns, Places const& places, Sampler<Pixel> const& sampler,
                TypedImage<Pixel>& to)
{
    for (int y = 0; y < to.height(); ++y) {
        Pixel* const row = to.pixels() + pixelOffset(0, y, to.width());
        int done = columns.begin;
        strip.eachPiece(y, [&](int first, int last) {
            std::fill(row + done, row + first, Pixel{});
            for (int x = first; x < last; x += 8)
                sampler.sample(places.of(strip.directions(x)), std::min(last - x, 8), row + x);
            done = last;
        });
        std::fill(row + done, row + columns.end, Pixel{});
    }
}

inline LatLongStrip stripOf(LatLongMap const& map, Columns columns)
{
    return {map, columns};
}
inline CrossStrip stripOf(CrossMap const& map, Columns columns)
{
    return {map, columns};
}
inline SphereStrip stripOf(SphereMap const& map, Columns columns)
{
    return {map, columns};
}

inline LatLongPlaces placesOf(LatLongMap const& map)
{
    return LatLongPlaces(map);
}
inline CrossPlaces placesOf(CrossMap const& map)
{
    return CrossPlaces(map);
}
inline SpherePlaces placesOf(SphereMap const& map)
{
    return SpherePlaces(map);
}

/// Calls visit with the map as the shape that it is; returns false for any other.
template <class Visit>
bool asShape(EnvironmentMap const& map, Visit const& visit)
{
    auto const is = [&](auto const* shape) {
        if (shape != nullptr)
            visit(*shape);
        return shape != nullptr;
    };
    return is(dynamic_cast<LatLongMap const*>(&map)) || is(dynamic_cast<CrossMap const*>(&map)) ||
           is(dynamic_cast<SphereMap const*>(&map));
}

/// Remaps between two of the three shapes, images whose sizes describe their pixels and that share none.
/// Returns false, nothing done, for other shapes.
template <class Pixel>
bool remapPixels(EnvironmentMap const& source, TypedImage<Pixel> const& from,
                 EnvironmentMap const& destination, TypedImage<Pixel>& to)
{
    bool done = false;
    asShape(destination, [&](auto const& toShape) {
        done = asShape(source, [&](auto const& fromShape) {
            auto const places = placesOf(fromShape);
            Sampler<Pixel> const sampler(from);
            for (int begin = 0, end = 0; begin < to.width(); begin = end) {
                end = begin + std::min(to.width() - begin, stripWidth);
                remapStrip(stripOf(toShape, {to, begin, end}), {to, begin, end}, places, sampler, to);
            }
        });
    });
    return done;
}

}  // namespace koImage::v3::remapping

#endif
