// Where the lighting pipeline tells which stage it has finished.
#pragma once

#include "koImage/export.h"

namespace koImage {

/// Takes the label of a stage, or null; see checkpoint.
using CheckpointObserver = void (*)(char const* label);

/// Called at the end of each stage of the lighting pipeline, with its name: "spherical harmonics setup",
/// "irradiance", "lighting coeffs", "brdf sampling", "brdf coeffs", "order analysis", "convolution",
/// "create shrm", "warped shrm", "view-dependent texture". Does nothing by itself: a place for a breakpoint,
/// or for an observer that takes times.
KOIMAGE_EXPORT void checkpoint(char const* label);

/// Hands every later label to `observer`, on the thread that reaches the stage; null hands them to nobody, as
/// at the start. Returns the observer so far.
KOIMAGE_EXPORT CheckpointObserver observeCheckpoints(CheckpointObserver observer);

}  // namespace koImage
