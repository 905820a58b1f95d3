#include "tool/nearest.h"

#include <algorithm>
#include <cstddef>

namespace koTool {

namespace {

/// The least number of changes that make b of a, when no letter is changed twice.
std::size_t editDistance(std::string const& a, std::string const& b)
{
    // distances[i][j] is that of the first i letters of a and the first j of b.
    std::vector<std::vector<std::size_t>> distances(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            auto& distance = distances[i][j];
            if (i == 0 || j == 0) {
                distance = i + j;
                continue;
            }
            std::size_t const replaced = distances[i - 1][j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0);
            distance = std::min({distances[i - 1][j] + 1, distances[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                distance = std::min(distance, distances[i - 2][j - 2] + 1);
        }
    }
    return distances[a.size()][b.size()];
}

}  // namespace

std::string nearestName(std::string const& typed, std::vector<std::string> const& names)
{
    std::string nearest;
    std::size_t least = typed.size() / 2 + 1;
    for (std::string const& name : names) {
        std::size_t const distance = editDistance(typed, name);
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

}  // namespace koTool
