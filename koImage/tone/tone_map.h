// Tone mapping: colours of any range made displayable by exposure, gamma and saturation.
//
// A pixel goes through these steps, each rounded to single precision:
//
//   1  every channel times 2^exposure; what is below 0 becomes 0
//   2  every channel to the power 1 / gamma
//   3  luminance  Y = (0.2125 * r + 0.7154 * g) + 0.0721 * b
//   4  where Y > epsilonTolFlt: every channel c becomes (c * (1 / Y))^saturation * Y, elsewhere it stays
//
// Nothing is clamped above: values beyond 1 stay beyond 1. A saturation of 0 gives greys of value Y.
//
// Powers are those of the C library, powf for three channels and pow, rounded to float, for four. A run of
// pixels gives the bits of its pixels mapped one by one; on x86-64-v3 it costs about a third of what they do
// (three channels) or a fifth (four), and a gamma or saturation of 1 costs no powers.
#pragma once

#include "koImage/export.h"
#include "koImage/image/image.h"
#include "koImage/image/pixel_types.h"

#include <span>

namespace koImage {

/// What a user sets.
struct ToneControls {
    float gamma = 1.0f;       ///< of the display: values are raised to 1 / gamma
    float exposure = 0.0f;    ///< stops: values are multiplied by 2^exposure
    float saturation = 1.0f;  ///< exponent of each channel's ratio to the luminance
};

class KOIMAGE_EXPORT ToneMap {
public:
    ToneMap() = default;

    /// Takes the controls, unchecked: a gamma of 0 gives the power infinity.
    void calculate(ToneControls const& controls);

    /// Maps one pixel.
    void apply(FloatPixel3<float>& pixel) const;

    /// Maps one pixel, alpha like the colours: exposed, raised, divided by the luminance. Whoever needs alpha
    /// saves it and puts it back. That is what applications rely on.
    void apply(FloatPixel4<float>& pixel) const;

    /// Maps the pixels of a run, each as apply maps one.
    void apply(std::span<FloatPixel3<float>> pixels) const;
    void apply(std::span<FloatPixel4<float>> pixels) const;

    /// Does nothing, on purpose: applications map the pixels that they show, and rely on images staying as
    /// they are.
    void apply(Image& image) const;

    float invGamma() const { return invGamma_; }
    float exposureScale() const { return exposureScale_; }
    float saturation() const { return saturation_; }

private:
    float invGamma_ = 1.0f;
    // 0 is the default of the exposure in stops, on purpose not its scale: until the controls are calculated
    // the map makes everything black.
    float exposureScale_ = 0.0f;
    float saturation_ = 1.0f;
};

}  // namespace koImage
