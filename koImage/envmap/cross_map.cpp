#include "koImage/envmap/cross_map.h"

#include "koImage/image/copy.h"
#include "koImage/image/flip.h"
#include "koImage/image/numeric.h"

#include <cmath>
#include <optional>

namespace koImage {

namespace {

// Where the faces 0 to 5 stand along the side of four cells, and along that of three.
constexpr std::int32_t alongFour[CrossMap::faceCount] = {2, 2, 1, 3, 2, 0};
constexpr std::int32_t alongThree[CrossMap::faceCount] = {2, 0, 1, 1, 1, 1};

/// The face that stands in its cell turned by 180 degrees.
constexpr int turnedFace = 5;

bool isFace(int face)
{
    return face >= 0 && face < CrossMap::faceCount;
}

void turn(Image& face)
{
    imageFlipVertical(face);
    imageFlipHorizontal(face);
}

struct Block {
    int x;
    int y;
    int width;
    int height;
};

/// What copyFace copies of an image of that cross.
std::optional<Block> blockOf(CrossMap const& map, Image const& image, int face)
{
    int const four = map.horizontal() ? image.width() : image.height();
    int const three = map.horizontal() ? image.height() : image.width();
    if (!isFace(face) || four % 4 != 0 || three % 3 != 0)
        return std::nullopt;

    // The width comes from the side of four also where that is the height: see the header.
    int const width = four / 4;
    int const height = three / 3;
    return Block{width * map.faceColumn(face), height * map.faceRow(face), width, height};
}

}  // namespace

CrossMap::CrossMap(int width, int height, bool horizontal)
    : EnvironmentMap(EnvironmentMapType::Cross),
      horizontal_(horizontal)
{
    setupOffset();
    computeOmegaFactor(width, height);
}

void CrossMap::setupOffset()
{
    faceColumn_ = horizontal_ ? alongFour : alongThree;
    faceRow_ = horizontal_ ? alongThree : alongFour;
}

void CrossMap::computeOmegaFactor(int width, int height)
{
    omegaFactor_ = (twoPi / static_cast<float>(height)) * (twoPi / static_cast<float>(width)) / 6.0f * 0.5f;
}

bool CrossMap::crossToCube(float u, float v, int& face, float& fu, float& fv) const
{
    face = -1;
    float const cellU = u * (horizontal_ ? 4.0f : 3.0f);
    float const cellV = v * (horizontal_ ? 3.0f : 4.0f);
    std::int32_t const column = truncateToInt(cellU);
    std::int32_t const row = truncateToInt(cellV);
    fu = cellU - static_cast<float>(column);
    fv = cellV - static_cast<float>(row);

    for (int i = 0; i < faceCount && face < 0; ++i)
        if (faceColumn_[i] == column && faceRow_[i] == row)
            face = i;
    if (face == turnedFace) {
        fu = 1.0f - fu;
        fv = 1.0f - fv;
    }
    return face >= 0;
}

void CrossMap::cubeToCross(float fu, float fv, int face, float& u, float& v) const
{
    if (!isFace(face))
        return;
    if (face == turnedFace) {
        fu = 1.0f - fu;
        fv = 1.0f - fv;
    }
    float const cellU = static_cast<float>(faceColumn_[face]) + fu;
    float const cellV = static_cast<float>(faceRow_[face]) + fv;
    u = horizontal_ ? cellU * 0.25f : cellU / 3.0f;
    v = horizontal_ ? cellV / 3.0f : cellV * 0.25f;
}

bool CrossMap::isValidCoord(float u, float v) const
{
    int face;
    float fu;
    float fv;
    return crossToCube(u, v, face, fu, fv);
}

bool CrossMap::coordToDir(float u, float v, koLinear::VectorFlt& dir) const
{
    return EnvironmentMap::coordToDir(u, v, dir);
}

bool CrossMap::coordToDir(float u, float v, koLinear::VectorFlt& dir, float& weight, bool wantWeight) const
{
    int face;
    float fu;
    float fv;
    if (!crossToCube(u, v, face, fu, fv)) {
        weight = 0.0f;
        return false;
    }

    float const a = 2.0f * fu - 1.0f;
    float const b = 2.0f * fv - 1.0f;
    koLinear::VectorFlt const directions[faceCount] = {{-1.0f, a, b}, {1.0f, -a, b},  {-a, -b, -1.0f},
                                                       {-a, b, 1.0f}, {-a, -1.0f, b}, {a, 1.0f, b}};
    dir = directions[face];
    dir.normalize();
    if (wantWeight) {
        double const r = std::sqrt(a * a + b * b);
        double const secant = 1.0 / std::cos(std::atan(r));
        weight = static_cast<float>(double{omegaFactor_} / (secant * secant));
    }
    return true;
}

void CrossMap::dirToCoord(koLinear::VectorFlt const& dir, float& u, float& v) const
{
    auto const [x, y, z] = dir;
    float const ax = std::abs(x);
    float const ay = std::abs(y);
    float const az = std::abs(z);

    // s brings the face to distance 1; p and q run along it, from -1 to 1 after that.
    int face;
    float s;
    float p;
    float q;
    if (ax >= ay && ax >= az) {
        if (x == 0.0f) {
            u = 0.0f;
            v = 0.0f;
            return;
        }
        s = 1.0f / ax;
        face = x > 0.0f ? 1 : 0;
        p = x > 0.0f ? -y : y;
        q = z;
    } else if (ay >= az) {
        s = 1.0f / ay;
        face = y > 0.0f ? 5 : 4;
        p = y > 0.0f ? x : -x;
        q = z;
    } else {
        s = 1.0f / az;
        face = z > 0.0f ? 3 : 2;
        p = -x;
        q = z > 0.0f ? y : -y;
    }
    cubeToCross((p * s + 1.0f) * 0.5f, (q * s + 1.0f) * 0.5f, face, u, v);
}

void CrossMap::copyFace(Image const& cross, Image& face, int faceIndex) const
{
    auto const block = blockOf(*this, cross, faceIndex);
    if (!block)
        return;
    face.resize(block->width, block->height);
    imageCopyOut(cross, face, block->x, block->y);
    if (faceIndex == turnedFace)
        turn(face);
}

void CrossMap::pasteFace(Image const& face, int faceIndex)
{
    if (image() == nullptr)
        return;
    auto const block = blockOf(*this, *image(), faceIndex);
    if (!block)
        return;
    if (faceIndex != turnedFace) {
        imageCopyIn(face, *image(), block->x, block->y);
        return;
    }
    ko::Reference<Image> const turned(face.clone());
    turn(*turned);
    imageCopyIn(*turned, *image(), block->x, block->y);
}

}  // namespace koImage
