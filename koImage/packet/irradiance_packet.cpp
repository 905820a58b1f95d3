#include "koImage/packet/irradiance_packet.h"

namespace koImage::packetFile {

namespace {

constexpr std::size_t matrixElements = 16;

}  // namespace

void writeIrradiance(ioWriteContext& context, Irradiance const& irradiance)
{
    context.startSubPacket();
    for (auto const* const matrix : {&irradiance.red, &irradiance.green, &irradiance.blue})
        context.writeDoubles(matrix->data(), matrixElements);
    context.endSubPacket();
}

void readIrradiance(ioReadContext& context, Irradiance& irradiance)
{
    context.startSubPacket();
    for (auto* const matrix : {&irradiance.red, &irradiance.green, &irradiance.blue})
        context.readDoubles(matrix->data(), matrixElements);
    context.endSubPacket();
}

}  // namespace koImage::packetFile
