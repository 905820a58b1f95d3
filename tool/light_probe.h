// Light probes as the verbs of lighting take them.
#pragma once

#include "tool/display.h"
#include "tool/files.h"

#include <string>

namespace koTool {

/// Reads a probe; a horizontal cross becomes a vertical one, face by face.
ColoursReference readLightProbe(Files& files, std::string const& file);

/// A Failure that tells what is wrong with a probe, if anything is.
void checkLightProbe(Colours const& probe, std::string const& file);

/// What messages call the file of a probe.
std::string probeName(std::string const& file);

}  // namespace koTool
