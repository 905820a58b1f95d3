#include "tool/lobe.h"

#include "koImage/lighting/lobes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace koTool {

using namespace koImage;

namespace {

/// The number after the colon.
double numberOf(std::string const& name, double least, double most)
{
    std::size_t const begin = name.find(':') + 1;
    char const* const end = name.data() + name.size();
    double number = 0.0;
    auto const [stop, problem] = std::from_chars(name.data() + begin, end, number);
    if (problem != std::errc() || stop != end || !(number >= least && number <= most)) {
        char range[64];
        std::snprintf(range, sizeof range, "%g to %g", least, most);
        throw CLI::ValidationError("--lobe", name + ": the number after the colon goes from " + range);
    }
    return number;
}

}  // namespace

std::string Lobe::fileName() const
{
    std::string file = name;
    std::replace(file.begin(), file.end(), ':', '-');
    return file;
}

Lobe parseLobe(std::string const& name)
{
    if (name == "lambert")
        return {name, std::make_unique<Lambert>()};
    if (name.starts_with("phong:"))
        return {name, std::make_unique<PhongLobe>(numberOf(name, 0.0, PhongLobe::maxExponent))};
    if (name.starts_with("ggx:"))
        return {name, std::make_unique<GgxLobe>(numberOf(name, GgxLobe::minRoughness, 1.0))};
    throw CLI::ValidationError("--lobe", name + ": is none of phong:EXPONENT, ggx:ROUGHNESS and lambert");
}

}  // namespace koTool
