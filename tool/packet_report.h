// What is told of packet files: their types by name, and what a reader found wrong with them.
#pragma once

#include "koPacketFile/packet_reader.h"
#include "koPacketFile/report.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace koTool {

/// The name of a packet's type: as the file tells it, as it is known here, or the id of an unknown one.
std::string typeNameOf(koPacketFile::Packet const& packet);

/// Whether the type is one of an image's pixels.
bool isParcel(koPacketFile::Packet const& packet);

/// Throws a Failure where the file could not be read, or is not one of packets that can be understood.
void demandPacketFile(koPacketFile::Report const& report, std::string const& file);

/// A line for each damage, and one for those that are only counted.
std::vector<std::string> damageLines(koPacketFile::Report const& report);

/// What else there is to know; lines that would differ in their places alone are one.
std::vector<std::string> informationLines(koPacketFile::Report const& report);

/// Both as JSON.
nlohmann::ordered_json jsonOf(koPacketFile::Report const& report);

/// "a, b, c"
std::string joined(std::vector<std::string> const& names);

}  // namespace koTool
