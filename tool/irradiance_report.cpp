#include "tool/irradiance_report.h"

#include <nlohmann/json.hpp>

namespace koTool {

using koImage::Float3;
using koLinear::ProjMatrix;
using Json = nlohmann::ordered_json;

namespace {

struct Harmonic {
    int degree;
    int order;
    char const* stored;
    char const* converted;
};

constexpr Harmonic harmonics[] = {{0, 0, "0.282095", "0.282095"},
                                  {1, -1, "-0.488603 y", "0.488603 y"},
                                  {1, 0, "0.488603 z", "0.488603 z"},
                                  {1, 1, "-0.488603 x", "0.488603 x"},
                                  {2, -2, "1.092548 x y", "1.092548 x y"},
                                  {2, -1, "-1.092548 y z", "1.092548 y z"},
                                  {2, 0, "0.315392 (3 z z - 1)", "0.315392 (3 z z - 1)"},
                                  {2, 1, "-1.092548 x z", "1.092548 x z"},
                                  {2, 2, "0.546274 (x x - y y)", "0.546274 (x x - y y)"}};

/// Rows and columns of the matrix: x, y, z, 1. Turning x and y over turns the sign where just one of the two
/// factors is x or y.
bool changesSign(int row, int column)
{
    return (row < 2) != (column < 2);
}

Json matrixRows(ProjMatrix const& matrix, bool convert)
{
    Json rows = Json::array();
    for (int row = 0; row < 4; ++row) {
        Json numbers = Json::array();
        for (int column = 0; column < 4; ++column)
            numbers.push_back(convert && changesSign(row, column) ? 0.0 - matrix(row, column)
                                                                  : matrix(row, column));
        rows.push_back(numbers);
    }
    return rows;
}

Json describe(koImage::IrradianceAlg const& sums, bool convert)
{
    Float3 coefficients[9];
    sums.getCoefficients(coefficients);
    koImage::Irradiance matrices;
    sums.getIrradiance(matrices);

    Json list = Json::array();
    for (std::size_t i = 0; i < 9; ++i) {
        auto const& [degree, order, stored, converted] = harmonics[i];
        Float3 const& c = coefficients[i];
        float const sign = convert && order % 2 != 0 ? -1.0f : 1.0f;
        list.push_back({{"l", degree},
                        {"m", order},
                        {"basis", convert ? converted : stored},
                        {"rgb", {sign * c.r, sign * c.g, sign * c.b}}});
    }
    return {{"oddOrderSign", convert ? "plus" : "minus (Condon-Shortley phase)"},
            {"surface", convert ? "n'Mn is the light on a surface that faces (x, y, z)"
                                : "n'Mn is the light on a surface that faces (-x, -y, z)"},
            {"coefficients", list},
            {"matrices",
             {{"red", matrixRows(matrices.red, convert)},
              {"green", matrixRows(matrices.green, convert)},
              {"blue", matrixRows(matrices.blue, convert)}}}};
}

}  // namespace

Json reportIrradiance(koImage::IrradianceAlg const& sums)
{
    return {
        {"conventions",
         {{"axes", "z up; the middle of a lat-long map looks along -y, -x is on its right"},
          {"coefficients",
           "sum of radiance / pi * basis * solid angle over the map; times pi they are those of the "
           "radiance"},
          {"matrices", "symmetric, rows and columns x, y, z, 1; n = (x, y, z, 1)"},
          {"light", "n'Mn is the radiance that a white diffuse surface sends back: light of radiance 1 from "
                    "everywhere gives 1; times pi it is the irradiance"}}},
        {"stored", describe(sums, false)},
        {"converted", describe(sums, true)}};
}

}  // namespace koTool
