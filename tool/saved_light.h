// What a run of `koimage light` has computed, to go on from. In a packet file it is one packet
// "koimage.light":
//
//   sub-packet  lighting, as docs/packet-format.md tells
//   bytes       name of the probe
//   int         number of lobes, and for each a sub-packet:
//                 bytes name, int key in the lighting, reference to the image of its map,
//                 int light order (-1: beyond all), 3 doubles: energy, part of it that is held, milliseconds
//   int         number of stages, and for each a sub-packet:
//                 bytes name, 1 double: milliseconds
#pragma once

#include "koImage/lighting/image_based_lighting.h"
#include "koPacketFile/read_context.h"
#include "koPacketFile/write_context.h"
#include "tool/stopwatch.h"

#include <optional>
#include <string>
#include <vector>

namespace koTool {

/// What the analysis of a lobe's coefficients found, for its red channel: ready lobes are grey.
struct Analysis {
    double energy = 0.0;            ///< of the lobe: the integral of its square
    double captured = 0.0;          ///< the part of it that the coefficients hold
    std::optional<int> lightOrder;  ///< degrees of light that hold 97 %; none where all of them hold less
};

/// A lobe whose specular map has been computed.
struct SavedLobe {
    std::string name;                   ///< as the user types it: "phong:20"
    int key = 0;                        ///< of its map in the lighting
    ko::Reference<koImage::Image> map;  ///< null where a file has lost it
    Analysis analysis;
    double milliseconds = 0.0;
};

struct SavedLight {
    std::string probe;  ///< what the user called it
    koImage::ImageBasedLighting lighting;
    std::vector<SavedLobe> lobes;
    std::vector<Stopwatch::Stage> stages;  ///< of the run that computed it

    static constexpr char const* packetType = "koimage.light";

    void write(ioWriteContext& out) const;

    /// Reads what write() wrote. What stands behind a failure, which is told by the context, is missing.
    void read(ioReadContext& in);
};

}  // namespace koTool
