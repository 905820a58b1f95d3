// The basis at a direction of view, as every picture of a reflection map interpolates it. Private.
#pragma once

#include "koImage/image/pixel_types.h"

#include <array>

namespace koImage {

/// Y_lm at index l^2 + l + m.
using ViewBasis = std::array<double, HarmonicsPixel::size()>;

/// For a map of that size; see computeSpecularMap.
ViewBasis viewBasis(double const* view, int width, int height);

/// How many of them have a degree up to `order`: none below 0, all from 10 on.
int termsTo(int order);

/// The light that a pixel sends there: the first `terms` terms, negative sums as 0, times scale.
Float3 lightAlong(HarmonicsPixel const& pixel, ViewBasis const& basis, int terms, double scale);

}  // namespace koImage
