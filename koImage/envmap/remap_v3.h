// Remapping between the three shapes, eight pixels at a time, equal to the pixel-by-pixel definition of
// remap.cpp to the bit. Private: see simd.h.
//
// A remapping has three parts, each chosen when the call is compiled:
//
//   ...Rows      what the destination's rows look at: pieces of a row that have directions, and the
//                directions of eight neighbours. What a row or a column shares is computed once.
//   ...Places    where the source shows eight directions
//   Sampler      the bilinear samples at eight coordinates
//
// The shapes' own operations are the definition of the first two. Whatever the vectors cannot decide (a value
// too close to the edge between two floats, a coordinate outside the image) goes through them, pixel by
// pixel.
#pragma once

#include "koImage/envmap/arcs_v3.h"
#include "koImage/envmap/bilinear.h"
#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/image/half_v3.h"

#if KO_SIMD_V3

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

namespace koImage::v3 {

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

/// Calls visit(i) for every i whose bit is set.
template <class Visit>
void eachBit(int bits, Visit const& visit)
{
    for (auto rest = static_cast<unsigned>(bits); rest != 0; rest &= rest - 1)
        visit(std::countr_zero(rest));
}

// --- what the destination looks at ---

// Tables are read in eights from any column on: they are this much longer than the row.
inline constexpr std::size_t tableSlack = 8;

template <class T>
std::vector<T> columnTable(Image const& image)
{
    return std::vector<T>(static_cast<std::size_t>(image.width()) + tableSlack);
}

class LatLongRows {
public:
    LatLongRows(LatLongMap const&, Image const& image)
        : image_(image),
          minusSines_(columnTable<double>(image)),
          minusCosines_(columnTable<double>(image))
    {
        for (int x = 0; x < image.width(); ++x) {
            double const b = LatLongMap::longitude(centreOf(x, image.invWidth()));
            minusSines_[static_cast<std::size_t>(x)] = -std::sin(b);
            minusCosines_[static_cast<std::size_t>(x)] = -std::cos(b);
        }
    }

    /// Goes to a row and calls visit(first, last) for every piece of it that has directions.
    template <class Visit>
    void pieces(int y, Visit const& visit)
    {
        float const a = LatLongMap::latitude(centreOf(y, image_.invHeight()));
        sine_ = static_cast<float>(std::sin(double{a}));
        cosine_ = LatLongMap::cosineOfLatitude(a);
        visit(0, image_.width());
    }

    /// The directions of the pixels from column x on; any beyond the piece are of no account.
    Directions at(int x) const
    {
        return {scaled(&minusSines_[static_cast<std::size_t>(x)]),
                scaled(&minusCosines_[static_cast<std::size_t>(x)]), _mm256_set1_ps(sine_)};
    }

private:
    __m256 scaled(double const* values) const
    {
        __m256d const c = _mm256_set1_pd(cosine_);
        return floatsOf(_mm256_mul_pd(_mm256_loadu_pd(values), c),
                        _mm256_mul_pd(_mm256_loadu_pd(values + 4), c));
    }

    Image const& image_;
    std::vector<double> minusSines_;
    std::vector<double> minusCosines_;
    float sine_ = 0.0f;
    float cosine_ = 0.0f;
};

class CrossRows {
public:
    CrossRows(CrossMap const& map, Image const& image)
        : map_(map),
          image_(image),
          placesU_(columnTable<float>(image))
    {
        float const columns = map.horizontal() ? 4.0f : 3.0f;
        for (int x = 0; x < image.width(); ++x) {
            float const cellU = centreOf(x, image.invWidth()) * columns;
            auto const column = static_cast<std::size_t>(truncateToInt(cellU));
            placesU_[static_cast<std::size_t>(x)] = cellU - static_cast<float>(column);
            // Centres lie in 0 .. 1, and that of the last column may round to 1.
            if (column < maxColumns)
                ends_[column] = x + 1;
        }
    }

    template <class Visit>
    void pieces(int y, Visit const& visit)
    {
        float const v = centreOf(y, image_.invHeight());
        int first = 0;
        for (int const end : ends_) {
            if (end > first) {
                float unused;
                if (map_.crossToCube(centreOf(first, image_.invWidth()), v, face_, unused, placeV_))
                    visit(first, end);
                first = end;
            }
        }
    }

    Directions at(int x) const
    {
        __m256 const one = _mm256_set1_ps(1);
        __m256 const two = _mm256_set1_ps(2);
        __m256 place = _mm256_loadu_ps(&placesU_[static_cast<std::size_t>(x)]);
        if (face_ == 5)
            place = _mm256_sub_ps(one, place);
        __m256 const a = _mm256_sub_ps(_mm256_mul_ps(two, place), one);
        __m256 const b = _mm256_set1_ps(2.0f * placeV_ - 1.0f);
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
    static constexpr std::size_t maxColumns = 4;

    /// As VectorFlt::normalize; one component is 1, so the length is not 0.
    static Directions normalised(Directions const& d)
    {
        __m256 const length = _mm256_sqrt_ps(_mm256_add_ps(
            _mm256_add_ps(_mm256_mul_ps(d.x, d.x), _mm256_mul_ps(d.y, d.y)), _mm256_mul_ps(d.z, d.z)));
        return {_mm256_div_ps(d.x, length), _mm256_div_ps(d.y, length), _mm256_div_ps(d.z, length)};
    }

    CrossMap const& map_;
    Image const& image_;
    std::vector<float> placesU_;             // fu of every column, before face 5 is turned
    std::array<int, maxColumns> ends_ = {};  // one past the last column of pixels in each column of cells
    int face_ = 0;
    float placeV_ = 0.0f;
};

class SphereRows {
public:
    SphereRows(SphereMap const& map, Image const& image) : map_(map), image_(image) {}

    template <class Visit>
    void pieces(int y, Visit const& visit)
    {
        v_ = centreOf(y, image_.invHeight());
        // The disc is convex: one piece, found from both ends.
        int first = 0;
        int last = image_.width();
        while (first < last && !hasDirection(first))
            ++first;
        while (first < last && !hasDirection(last - 1))
            --last;
        if (first < last)
            visit(first, last);
    }

    Directions at(int x) const
    {
        alignas(32) std::array<std::array<float, 8>, 3> d;
        for (std::size_t i = 0; i < 8; ++i) {
            koLinear::VectorFlt dir;
            map_.coordToDir(centreOf(x + static_cast<int>(i), image_.invWidth()), v_, dir);
            d[0][i] = dir.x;
            d[1][i] = dir.y;
            d[2][i] = dir.z;
        }
        return {_mm256_load_ps(d[0].data()), _mm256_load_ps(d[1].data()), _mm256_load_ps(d[2].data())};
    }

private:
    bool hasDirection(int column) const
    {
        float const x = 2.0f * centreOf(column, image_.invWidth()) - 1.0f;
        float const y = 2.0f * v_ - 1.0f;
        return std::sqrt(x * x + y * y) <= 1.0f;
    }

    SphereMap const& map_;
    Image const& image_;
    float v_ = 0.0f;
};

// --- where the source shows it ---

/// Puts the map's own answer where a bit of `unsure` is set.
inline void decide(EnvironmentMap const& map, Directions const& directions, int unsure,
                   Coordinates& coordinates)
{
    alignas(32) std::array<float, 8> x, y, z, u, v;
    _mm256_store_ps(x.data(), directions.x);
    _mm256_store_ps(y.data(), directions.y);
    _mm256_store_ps(z.data(), directions.z);
    _mm256_store_ps(u.data(), coordinates.u);
    _mm256_store_ps(v.data(), coordinates.v);
    eachBit(unsure, [&](int bit) {
        auto const i = static_cast<std::size_t>(bit);
        map.dirToCoord({x[i], y[i], z[i]}, u[i], v[i]);
    });
    coordinates = {_mm256_load_ps(u.data()), _mm256_load_ps(v.data())};
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

        __m256 const pi = _mm256_set1_ps(3.1415927f);
        Coordinates coordinates = {toUnit(_mm256_div_ps(lon.value, pi)),
                                   toUnit(_mm256_div_ps(_mm256_mul_ps(_mm256_set1_ps(2), lat.value), pi))};
        int const sure = _mm256_movemask_ps(_mm256_and_ps(lat.sure, lon.sure));
        if (sure != 0xFF) [[unlikely]]
            decide(map_, d, ~sure & 0xFF, coordinates);
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
        // Where rho is 0 this is no number: not sure.
        __m256d const kLow = factor(lowDoubles(minusY), lowDoubles(rho));
        __m256d const kHigh = factor(highDoubles(minusY), highDoubles(rho));
        Rounded const u =
            shifted(_mm256_mul_pd(kLow, lowDoubles(d.x)), _mm256_mul_pd(kHigh, highDoubles(d.x)));
        Rounded const v =
            shifted(_mm256_mul_pd(kLow, lowDoubles(d.z)), _mm256_mul_pd(kHigh, highDoubles(d.z)));

        Coordinates coordinates = {u.value, v.value};
        int const sure = _mm256_movemask_ps(_mm256_and_ps(u.sure, v.sure));
        if (sure != 0xFF) [[unlikely]]
            decide(map_, d, ~sure & 0xFF, coordinates);
        return coordinates;
    }

private:
    static __m256d factor(__m256d minusY, __m256d rho)
    {
        return _mm256_div_pd(_mm256_mul_pd(acos(minusY), _mm256_set1_pd(0.5)),
                             _mm256_mul_pd(rho, _mm256_set1_pd(double{3.1415927f})));
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

    /// Of unit vectors: the case of the zero vector is left out.
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

        // p: -y towards +x, else y; x towards +y, else -x; -x. q: z; z; y towards +z, else -y. Faces count
        // from the negative side of each axis, but for y.
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
    alignas(32) std::array<float, 8> nearX, farX, nearY, farY;
};

inline __m128 blend(__m128 near, __m128 far, __m128 nearWeight, __m128 farWeight)
{
    return _mm_add_ps(_mm_mul_ps(nearWeight, near), _mm_mul_ps(farWeight, far));
}

/// Four floats from a pixel on. Of Float3 the fourth is of no account: the first of the next pixel.
template <class Pixel>
__m128 loadFour(Pixel const* pixels, std::int32_t index)
{
    return _mm_loadu_ps(&pixels[index].r);
}

template <class Pixel>
__m128 blended(Pixel const* pixels, EightBlends const& blends, std::size_t i)
{
    __m128 const nearX = _mm_set1_ps(blends.nearX[i]);
    __m128 const farX = _mm_set1_ps(blends.farX[i]);
    __m128 const near =
        blend(loadFour(pixels, blends.index00[i]), loadFour(pixels, blends.index10[i]), nearX, farX);
    __m128 const far =
        blend(loadFour(pixels, blends.index01[i]), loadFour(pixels, blends.index11[i]), nearX, farX);
    return blend(near, far, _mm_set1_ps(blends.nearY[i]), _mm_set1_ps(blends.farY[i]));
}

inline void write(Float4 const* pixels, EightBlends const& blends, std::size_t count, Float4* out)
{
    for (std::size_t i = 0; i < count; ++i)
        _mm_storeu_ps(&out[i].r, blended(pixels, blends, i));
}

inline void write(Float3 const* pixels, EightBlends const& blends, std::size_t count, Float3* out)
{
    for (std::size_t i = 0; i < count; ++i) {
        __m128 const pixel = blended(pixels, blends, i);
        _mm_storel_pi(reinterpret_cast<__m64*>(&out[i].r), pixel);
        _mm_store_ss(&out[i].b, _mm_movehl_ps(pixel, pixel));
    }
}

inline void write(float const* pixels, EightBlends const& blends, std::size_t count, float* out)
{
    auto const gather = [pixels](std::array<std::int32_t, 8> const& index) {
        return _mm256_i32gather_ps(pixels, _mm256_load_si256(reinterpret_cast<__m256i const*>(index.data())),
                                   4);
    };
    auto const blendEight = [](__m256 near, __m256 far, std::array<float, 8> const& nearWeight,
                               std::array<float, 8> const& farWeight) {
        return _mm256_add_ps(_mm256_mul_ps(_mm256_load_ps(nearWeight.data()), near),
                             _mm256_mul_ps(_mm256_load_ps(farWeight.data()), far));
    };
    __m256 const near = blendEight(gather(blends.index00), gather(blends.index10), blends.nearX, blends.farX);
    __m256 const far = blendEight(gather(blends.index01), gather(blends.index11), blends.nearX, blends.farX);
    alignas(32) std::array<float, 8> samples;
    _mm256_store_ps(samples.data(), blendEight(near, far, blends.nearY, blends.farY));
    std::copy_n(samples.data(), count, out);
}

/// Two pixels side by side, of four halves each.
inline __m128i pair(Half4 const& first, Half4 const& second)
{
    return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<__m128i const*>(&first)),
                              _mm_loadl_epi64(reinterpret_cast<__m128i const*>(&second)));
}

inline __m256 sideBySide(float first, float second)
{
    return _mm256_set_m128(_mm_set1_ps(second), _mm_set1_ps(first));
}

/// The sum of a pair, each product and the sum not yet rounded.
inline __m128 blendPair(__m128i halves, __m256 weights)
{
    __m256 const products = quietFloatsOf(halvesOf(_mm256_mul_ps(weights, quietFloatsOf(halves))));
    return _mm_add_ps(_mm256_castps256_ps128(products), _mm256_extractf128_ps(products, 1));
}

inline void write(Half4 const* pixels, EightBlends const& blends, std::size_t count, Half4* out)
{
    for (std::size_t i = 0; i < count; ++i) {
        __m256 const weightsX = sideBySide(blends.nearX[i], blends.farX[i]);
        __m128 const near = blendPair(pair(pixels[blends.index00[i]], pixels[blends.index10[i]]), weightsX);
        __m128 const far = blendPair(pair(pixels[blends.index01[i]], pixels[blends.index11[i]]), weightsX);
        __m128 const sum =
            blendPair(halvesOf(_mm256_set_m128(far, near)), sideBySide(blends.nearY[i], blends.farY[i]));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(&out[i]), halvesOf(_mm256_castps128_ps256(sum)));
    }
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
        std::array const index = {_mm256_add_epi32(nearRow, x.near), _mm256_add_epi32(nearRow, x.far),
                                  _mm256_add_epi32(farRow, x.near), _mm256_add_epi32(farRow, x.far)};

        __m256i readable = _mm256_and_si256(x.inside, y.inside);
        if constexpr (std::is_same_v<Pixel, Float3>) {
            // Nothing follows the last pixel.
            __m256i const largest =
                _mm256_max_epi32(_mm256_max_epi32(index[0], index[1]), _mm256_max_epi32(index[2], index[3]));
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
        keep(blends.index00, _mm256_and_si256(index[0], readable));
        keep(blends.index10, _mm256_and_si256(index[1], readable));
        keep(blends.index01, _mm256_and_si256(index[2], readable));
        keep(blends.index11, _mm256_and_si256(index[3], readable));
        __m256 const one = _mm256_set1_ps(1);
        keep(blends.nearX, rowWeight(_mm256_sub_ps(one, x.t)));
        keep(blends.farX, rowWeight(x.t));
        keep(blends.nearY, _mm256_sub_ps(one, y.t));
        keep(blends.farY, y.t);
        write(image_.pixels(), blends, static_cast<std::size_t>(count), out);
    }

private:
    static void keep(std::array<std::int32_t, 8>& array, __m256i values)
    {
        _mm256_store_si256(reinterpret_cast<__m256i*>(array.data()), values);
    }
    static void keep(std::array<float, 8>& array, __m256 values) { _mm256_store_ps(array.data(), values); }

    static __m256 rowWeight(__m256 weight)
    {
        if constexpr (std::is_same_v<Pixel, Half4>)
            return quietFloatsOf(halvesOf(weight));
        return weight;
    }

    void sampleEach(Coordinates const& at, int count, Pixel* out) const
    {
        alignas(32) std::array<float, 8> u, v;
        keep(u, at.u);
        keep(v, at.v);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
            sampleBilinear(image_, u[i], v[i], out[i]);
    }

    TypedImage<Pixel> const& image_;
};

// --- all of it ---

template <class Rows, class Places, class Pixel>
void remapRows(Rows rows, Places const& places, TypedImage<Pixel> const& from, TypedImage<Pixel>& to)
{
    Sampler<Pixel> const sampler(from);
    for (int y = 0; y < to.height(); ++y) {
        Pixel* const row = to.pixels() + pixelOffset(0, y, to.width());
        int done = 0;
        rows.pieces(y, [&](int first, int last) {
            std::fill(row + done, row + first, Pixel{});
            for (int x = first; x < last; x += 8)
                sampler.sample(places.of(rows.at(x)), std::min(last - x, 8), row + x);
            done = last;
        });
        std::fill(row + done, row + to.width(), Pixel{});
    }
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

inline LatLongRows rowsOf(LatLongMap const& map, Image const& image)
{
    return {map, image};
}
inline CrossRows rowsOf(CrossMap const& map, Image const& image)
{
    return {map, image};
}
inline SphereRows rowsOf(SphereMap const& map, Image const& image)
{
    return {map, image};
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

/// Remaps between two of the three shapes, images whose sizes describe their pixels and that share none.
/// Returns false, nothing done, for other shapes.
template <class Pixel>
bool remapPixels(EnvironmentMap const& source, TypedImage<Pixel> const& from,
                 EnvironmentMap const& destination, TypedImage<Pixel>& to)
{
    bool done = false;
    asShape(destination, [&](auto const& toShape) {
        done = asShape(source, [&](auto const& fromShape) {
            remapRows(rowsOf(toShape, to), placesOf(fromShape), from, to);
        });
    });
    return done;
}

}  // namespace koImage::v3

#endif
