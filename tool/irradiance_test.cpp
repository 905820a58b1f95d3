#include "tool/testing/command.h"

#include <gmock/gmock.h>

namespace koTool::testing {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;

/// A lat-long map of 64 x 32 pixels, black but for the columns and rows given: row 0 is the bottom.
std::string litColumns(int firstColumn, int lastColumn, int firstRow, int lastRow)
{
    std::vector<float> channels;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 64; ++x) {
            bool const lit = x >= firstColumn && x < lastColumn && y >= firstRow && y < lastRow;
            channels.insert(channels.end(), {lit ? 1.0f : 0.0f, 0.0f, lit ? 0.5f : 0.0f});
        }
    return pfm(64, 32, channels);
}

json irradiance(std::string const& file)
{
    auto const outcome = koimage({"irradiance", file});
    EXPECT_EQ(0, outcome.exitCode) << outcome.err;
    return json::parse(outcome.out);
}

/// n'Mn for the normal (x, y, z), of one channel.
double light(json const& matrix, double x, double y, double z)
{
    double const n[4] = {x, y, z, 1.0};
    double sum = 0.0;
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 4; ++column)
            sum += n[row] * matrix[row][column].get<double>() * n[column];
    return sum;
}

TEST(Irradiance, OfConstantLightIsOneOnEverySurface)
{
    Folder const folder;
    writeFile(folder / "p.pfm", pfm(200, 100, std::vector<float>(200 * 100 * 3, 1.0f)));
    json const report = irradiance(folder / "p.pfm");
    for (char const* const convention : {"stored", "converted"})
        for (char const* const channel : {"red", "green", "blue"}) {
            json const& matrix = report[convention]["matrices"][channel];
            EXPECT_NEAR(1.0, light(matrix, 1, 0, 0), 2e-4);
            EXPECT_NEAR(1.0, light(matrix, 0, -0.6, 0.8), 2e-4);
        }
}

// Light from around -x, the right of the map's middle: a surface that faces it gets most.
TEST(Irradiance, ConvertedMatricesLightTheSurfaceThatFacesTheLightStoredOnesTheOpposite)
{
    Folder const folder;
    writeFile(folder / "p.pfm", litColumns(44, 52, 12, 20));
    json const report = irradiance(folder / "p.pfm");
    json const& converted = report["converted"]["matrices"]["red"];
    json const& stored = report["stored"]["matrices"]["red"];
    EXPECT_GT(light(converted, -1, 0, 0), 10 * std::abs(light(converted, 1, 0, 0)));
    for (auto const& [x, y, z] : {std::array{-1.0, 0.0, 0.0}, {0.6, 0.8, 0.0}, {0.48, -0.6, 0.64}})
        EXPECT_NEAR(light(converted, x, y, z), light(stored, -x, -y, z), 1e-12);
}

TEST(Irradiance, NamesTheBasisAndTheSignsOfItsCoefficients)
{
    Folder const folder;
    writeFile(folder / "p.pfm", litColumns(40, 50, 16, 24));
    json const report = irradiance(folder / "p.pfm");
    json const& stored = report["stored"]["coefficients"];
    json const& converted = report["converted"]["coefficients"];
    ASSERT_EQ(9u, stored.size());
    for (std::size_t i = 0; i < 9; ++i) {
        bool const odd = stored[i]["m"].get<int>() % 2 != 0;
        EXPECT_EQ(stored[i]["basis"].get<std::string>().starts_with('-'), odd);
        EXPECT_FALSE(converted[i]["basis"].get<std::string>().starts_with('-'));
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_EQ((odd ? -1.0 : 1.0) * stored[i]["rgb"][c].get<double>(), converted[i]["rgb"][c]);
        EXPECT_NEAR(stored[i]["rgb"][0].get<double>() / 2, stored[i]["rgb"][2], 1e-6);
    }
    // Light from -x: times x, it is negative, and positive with the sign of odd orders.
    EXPECT_GT(stored[3]["rgb"][0], 0.0);
    EXPECT_LT(converted[3]["rgb"][0], 0.0);
    EXPECT_GT(stored[2]["rgb"][0], 0.0) << "from above";
    EXPECT_THAT(report["conventions"]["light"], HasSubstr("radiance"));
    EXPECT_THAT(report["stored"]["surface"], HasSubstr("(-x, -y, z)"));
}

TEST(Irradiance, DrawsTheLightOnEveryNormal)
{
    Folder const folder;
    writeFile(folder / "p.pfm", litColumns(44, 52, 20, 26));
    auto const outcome =
        koimage({"irradiance", folder / "p.pfm", "--map", folder / "m.exr", "--ball", folder / "b.exr"});
    ASSERT_EQ(0, outcome.exitCode) << outcome.err;
    json const matrix = json::parse(outcome.out)["converted"]["matrices"]["red"];

    // The column of -x is at three quarters, its row of z = 0 in the middle.
    auto const map = colours(folder / "m.exr");
    ASSERT_EQ(200, map->width());
    ASSERT_EQ(100, map->height());
    EXPECT_NEAR(light(matrix, -1, 0, 0), map->pixels()[50 * 200 + 150].r, 0.02 * light(matrix, -1, 0, 0));
    EXPECT_GT(map->pixels()[70 * 200 + 150].r, map->pixels()[30 * 200 + 150].r) << "it comes from above";

    // The ball shows +x on the right, so its left is lit; its corners are outside.
    auto const ball = colours(folder / "b.exr");
    ASSERT_EQ(200, ball->width());
    ASSERT_EQ(200, ball->height());
    EXPECT_GT(ball->pixels()[100 * 200 + 40].r, 2 * ball->pixels()[100 * 200 + 160].r);
    EXPECT_EQ(0.0f, ball->pixels()[0].r);
    EXPECT_EQ("sphere", info(folder / "b.exr")["shape"]);
}

TEST(Irradiance, FailsForPicturesOfOtherProportions)
{
    Folder const folder;
    writeFile(folder / "p.ppm", ppm(5, 2, std::vector<int>(30, 7)));
    auto const outcome = koimage({"irradiance", folder / "p.ppm"});
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_THAT(outcome.err, HasSubstr("5 x 2 pixels are no environment map"));
}

}  // namespace
}  // namespace koTool::testing
