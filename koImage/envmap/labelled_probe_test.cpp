#include "koImage/envmap/labelled_probe.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"
#include "koImage/image/factory.h"
#include "koImage/testing/test_images.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace koImage {

namespace {

using koLinear::VectorFlt;
using testing::imageOf;
using testing::ImageRef;
using testing::Size;

using MapRef = ko::Reference<EnvironmentMap>;

constexpr Float3 black = {0, 0, 0};

/// A map of its shape with an image of Float3 to draw into.
struct Drawn {
    MapRef map;
    ImageRef<Float3> image;

    Drawn(EnvironmentMap* shape, Size size) : map(shape), image(imageOf<Float3>(size))
    {
        map->setImage(image.get());
        drawLabelledProbe(*map);
    }

    Float3 at(int x, int y) const { return image->pixels()[pixelOffset(x, y, image->width())]; }

    /// The pixel that shows a direction.
    Float3 towards(VectorFlt const& direction) const
    {
        float u = 0.0f;
        float v = 0.0f;
        map->dirToCoord(direction, u, v);
        return at(std::min(static_cast<int>(u * static_cast<float>(image->width())), image->width() - 1),
                  std::min(static_cast<int>(v * static_cast<float>(image->height())), image->height() - 1));
    }
};

/// Every shape with about as many pixels on a face.
std::vector<Drawn> everyShape(int faceSize)
{
    int const n = faceSize;
    std::vector<Drawn> shapes;
    shapes.emplace_back(new LatLongMap(4 * n, 2 * n), Size{4 * n, 2 * n});
    shapes.emplace_back(new SphereMap(4 * n), Size{4 * n, 4 * n});
    shapes.emplace_back(new CrossMap(n, false), Size{3 * n, 4 * n});
    shapes.emplace_back(new CrossMap(n, true), Size{4 * n, 3 * n});
    return shapes;
}

VectorFlt const axes[] = {{-1, 0, 0}, {1, 0, 0}, {0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}};

TEST(LabelledProbe, HasTheColourOfTheFaceAtEachAxis)
{
    for (int face = 0; face < 6; ++face)
        EXPECT_EQ(labelledProbeFaces[face], labelledProbe(axes[face])) << face;
}

TEST(LabelledProbe, HasColoursThatNoExchangeOfChannelsTurnsIntoEachOther)
{
    for (int i = 0; i < 6; ++i) {
        auto const [r, g, b] = labelledProbeFaces[i];
        for (Float3 const& exchanged :
             {Float3{r, b, g}, Float3{g, r, b}, Float3{g, b, r}, Float3{b, r, g}, Float3{b, g, r}}) {
            for (int j = 0; j < 6; ++j) {
                auto const& other = labelledProbeFaces[j];
                float const apart = std::abs(exchanged.r - other.r) + std::abs(exchanged.g - other.g) +
                                    std::abs(exchanged.b - other.b);
                EXPECT_GT(apart, 0.04f) << i << " and " << j;
            }
        }
    }
}

TEST(LabelledProbe, HasASunOfFourDegreesInItsDirection)
{
    EXPECT_EQ(labelledProbeSunlight, labelledProbe(labelledProbeSun));

    // Turned away from the sun towards a direction across it: (3, -2, 0) is perpendicular to (-8, -12, 9).
    double const across[] = {3 / std::sqrt(13.0), -2 / std::sqrt(13.0), 0.0};
    auto const awayBy = [&](double degrees) {
        double const c = std::cos(degrees * std::acos(-1.0) / 180);
        double const s = std::sin(degrees * std::acos(-1.0) / 180);
        return VectorFlt(static_cast<float>(c * -8 / 17 + s * across[0]),
                         static_cast<float>(c * -12 / 17 + s * across[1]), static_cast<float>(c * 9 / 17));
    };
    EXPECT_EQ(labelledProbeSunlight, labelledProbe(awayBy(3.99)));
    EXPECT_EQ(labelledProbeFaces[4], labelledProbe(awayBy(4.01)));
    EXPECT_EQ(labelledProbeSunlight, labelledProbe(awayBy(-3.99)));
    EXPECT_EQ(labelledProbeFaces[4], labelledProbe(awayBy(-4.01)));
}

TEST(LabelledProbe, TakesTheFaceByXBeforeYBeforeZAtTheEdges)
{
    EXPECT_EQ(labelledProbeFaces[1], labelledProbe({1, 1, 1}));
    EXPECT_EQ(labelledProbeFaces[0], labelledProbe({-1, -1, -1}));
    EXPECT_EQ(labelledProbeFaces[5], labelledProbe({0, 1, 1}));
    EXPECT_EQ(labelledProbeFaces[4], labelledProbe({0, -1, -1}));
}

TEST(LabelledProbe, IsBlackWithoutADirection)
{
    float const nan = std::nanf("");
    EXPECT_EQ(black, labelledProbe({0, 0, 0}));
    EXPECT_EQ(black, labelledProbe({nan, nan, nan}));
}

TEST(DrawLabelledProbe, ShowsEachFaceAndTheSunWhereTheShapeHasTheirDirections)
{
    for (auto const& drawn : everyShape(32)) {
        SCOPED_TRACE(drawn.image->width());
        EXPECT_EQ(labelledProbeSunlight, drawn.towards(labelledProbeSun));
        bool const disc = drawn.map->mapType() == EnvironmentMapType::Sphere;
        for (int face = 0; face < 6; ++face) {
            // A disc has +y all along its rim and gives the middle for it: look at a corner of the face.
            VectorFlt const direction =
                disc && face == 5 ? VectorFlt(0.4923660f, 0.7177406f, 0.4923660f) : axes[face];
            EXPECT_EQ(labelledProbeFaces[face], drawn.towards(direction)) << face;
        }
    }
}

TEST(DrawLabelledProbe, ShowsTheSunInEverySizeFrom64By32On)
{
    for (int height = 32; height <= 80; ++height) {
        Drawn const drawn(new LatLongMap(2 * height, height), Size{2 * height, height});
        EXPECT_EQ(labelledProbeSunlight, drawn.towards(labelledProbeSun)) << height;
    }
}

TEST(DrawLabelledProbe, MakesPixelsWithoutADirectionBlack)
{
    Drawn const cross(new CrossMap(16, false), Size{48, 64});
    EXPECT_EQ(black, cross.at(0, 0));
    EXPECT_EQ(black, cross.at(47, 63));
    Drawn const disc(new SphereMap(64), Size{64, 64});
    EXPECT_EQ(black, disc.at(0, 0));
    EXPECT_EQ(labelledProbeFaces[5], disc.at(32, 0));
}

TEST(DrawLabelledProbe, LeavesOtherPixelTypesAndMapsWithoutPixelsAlone)
{
    MapRef const map(new LatLongMap(4, 2));
    drawLabelledProbe(*map);

    auto const image = testing::randomImage<Float4>({4, 2}, 1);
    ko::Reference<Image> const before(image->clone());
    map->setImage(image.get());
    drawLabelledProbe(*map);
    EXPECT_TRUE(testing::samePixels(*before, *image));

    for (Size const size : testing::hostileSizes) {
        if (std::int64_t{size.width} * size.height > 65536)
            continue;
        auto const odd = imageOf<Float3>(size);
        map->setImage(odd.get());
        drawLabelledProbe(*map);
    }
}

TEST(DrawLabelledProbe, StopsAtTheEndOfAnArrayThatHoldsOnlyItsFirstRow)
{
    // 65537 x 65536 pixels modulo 2^32 are 65536.
    auto const image = imageOf<Float3>({65537, 65536});
    MapRef const map(new LatLongMap(65537, 65536));
    map->setImage(image.get());
    drawLabelledProbe(*map);
    EXPECT_EQ(labelledProbeFaces[2], image->pixels()[65535]);
}

// --- The names, as they are read

using Rows = std::vector<std::string>;

/// A name of two letters and the line below, the upper row first.
Rows nameOf(char sign, char letter)
{
    Rows const minus = {"     ", "     ", "     ", "#####", "     ", "     ", "     "};
    Rows const plus = {"     ", "  #  ", "  #  ", "#####", "  #  ", "  #  ", "     "};
    Rows const x = {"     ", "     ", "#   #", " # # ", "  #  ", " # # ", "#   #"};
    Rows const y = {"     ", "     ", "#   #", "#   #", " ####", "    #", " ### "};
    Rows const z = {"     ", "     ", "#####", "   # ", "  #  ", " #   ", "#####"};

    Rows name;
    for (std::size_t row = 0; row < 7; ++row)
        name.push_back((sign == '-' ? minus : plus)[row] + " " +
                       (letter == 'x'   ? x
                        : letter == 'y' ? y
                                        : z)[row]);
    name.emplace_back("           ");
    name.emplace_back("###########");
    return name;
}

// With faces of 44 pixels, each dot of a name is 2 x 2 pixels.
constexpr int face = 44;

/// The name in the cell of a cross, as it stands there: the cell `right` of the left and `up` from the
/// bottom.
Rows nameInCell(Drawn const& cross, int right, int up, bool turned)
{
    Rows rows;
    for (int row = 0; row < 9; ++row) {
        std::string text;
        for (int column = 0; column < 11; ++column) {
            int const x = 11 + 2 * column;
            int const y = 30 - 2 * row;
            Float3 const pixel = turned ? cross.at(face * right + face - 1 - x, face * up + face - 1 - y)
                                        : cross.at(face * right + x, face * up + y);
            text += pixel == black ? '#' : ' ';
        }
        rows.push_back(text);
    }
    return rows;
}

TEST(DrawLabelledProbe, WritesTheNamesUprightInAVerticalCrossAndThatOfPlusYTurned)
{
    Drawn const cross(new CrossMap(face, false), Size{3 * face, 4 * face});
    EXPECT_EQ(nameOf('+', 'z'), nameInCell(cross, 1, 3, false));
    EXPECT_EQ(nameOf('+', 'x'), nameInCell(cross, 0, 2, false));
    EXPECT_EQ(nameOf('-', 'y'), nameInCell(cross, 1, 2, false));
    EXPECT_EQ(nameOf('-', 'x'), nameInCell(cross, 2, 2, false));
    EXPECT_EQ(nameOf('-', 'z'), nameInCell(cross, 1, 1, false));
    EXPECT_EQ(nameOf('+', 'y'), nameInCell(cross, 1, 0, true));
}

TEST(DrawLabelledProbe, WritesTheNamesUprightInAHorizontalCrossAndThatOfPlusYTurned)
{
    Drawn const cross(new CrossMap(face, true), Size{4 * face, 3 * face});
    EXPECT_EQ(nameOf('-', 'x'), nameInCell(cross, 2, 2, false));
    EXPECT_EQ(nameOf('+', 'y'), nameInCell(cross, 0, 1, true));
    EXPECT_EQ(nameOf('-', 'z'), nameInCell(cross, 1, 1, false));
    EXPECT_EQ(nameOf('-', 'y'), nameInCell(cross, 2, 1, false));
    EXPECT_EQ(nameOf('+', 'z'), nameInCell(cross, 3, 1, false));
    EXPECT_EQ(nameOf('+', 'x'), nameInCell(cross, 2, 0, false));
}

/// Black pixels in a rectangle.
int blackIn(Drawn const& drawn, int x0, int y0, int x1, int y1)
{
    int count = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            count += drawn.at(x, y) == black ? 1 : 0;
    return count;
}

// The minus of "-y" has fewer dots than the y, and the line is below both.
TEST(DrawLabelledProbe, WritesTheNameOfTheMiddleReadableInLatLongMapsAndMirroredInSphereMaps)
{
    Drawn const latLong(new LatLongMap(400, 200), Size{400, 200});
    int const left = blackIn(latLong, 160, 90, 200, 120);
    int const right = blackIn(latLong, 200, 90, 240, 120);
    EXPECT_GT(left, 0);
    EXPECT_GT(right, 3 * left / 2);
    EXPECT_GT(blackIn(latLong, 160, 70, 240, 85), 0);
    EXPECT_EQ(blackIn(latLong, 160, 120, 240, 140), 0);

    Drawn const sphere(new SphereMap(400), Size{400, 400});
    int const mirroredLeft = blackIn(sphere, 160, 190, 200, 230);
    int const mirroredRight = blackIn(sphere, 200, 190, 240, 230);
    EXPECT_GT(mirroredRight, 0);
    EXPECT_GT(mirroredLeft, 3 * mirroredRight / 2);
}

}  // namespace

}  // namespace koImage
