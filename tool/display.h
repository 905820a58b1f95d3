// Linear light as a screen shows it: one exposure for all pictures of a run, so that they can be compared.
#pragma once

#include "koBase/reference_count.h"
#include "koImage/image/typed_image.h"
#include "koImage/tone/tone_map.h"

namespace koTool {

using Colours = koImage::TypedImage<koImage::Float3>;
using ColoursReference = ko::Reference<Colours>;

class Display {
public:
    /// Shows radiance `white` as white, and what is brighter as well.
    explicit Display(float white);

    /// As a photographer would expose it: a white surface in the brightest light is nearly white.
    ///
    ///   diffuse   what white surfaces send back
    static Display forSurfaces(Colours const& diffuse);

    /// Stops by which light is multiplied.
    float exposure() const { return exposure_; }

    /// Radiance cut off at white. Where several samples make a pixel, each is cut off before: a sun of one
    /// sample must not make the pixel a sun.
    koImage::Float3 clip(koImage::Float3 const& radiance) const;

    /// Levels of the screen, 0 to 1.
    koImage::Float3 levels(koImage::Float3 const& radiance) const;

    /// The levels of a whole image.
    ColoursReference levels(Colours const& image) const;

private:
    float white_;
    float exposure_;
    koImage::ToneMap tone_;
};

/// A new image of that size, its pixels undefined.
ColoursReference newColours(int width, int height);

}  // namespace koTool
