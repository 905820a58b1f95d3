// Irradiance as a sub-packet, inside whatever packet is open: three arrays of 16 doubles, the matrices of
// red, green and blue, row by row.
#pragma once

#include "koImage/export.h"
#include "koImage/lighting/irradiance.h"
#include "koPacketFile/read_context.h"
#include "koPacketFile/write_context.h"

namespace koImage::packetFile {

/// Writes the sub-packet. Every bit of the matrices is kept.
KOIMAGE_EXPORT void writeIrradiance(ioWriteContext& context, Irradiance const& irradiance);

/// Reads the sub-packet.
///
///   failure   in the context; the matrices that come after it stay as they are
KOIMAGE_EXPORT void readIrradiance(ioReadContext& context, Irradiance& irradiance);

}  // namespace koImage::packetFile
