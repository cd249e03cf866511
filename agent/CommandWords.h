// Small parsers shared by the host's and the platforms' control commands.
#pragma once

#include <string>
#include <vector>

#include "orvo/IntfId.h"

namespace Agent {

// The whitespace-separated words of a command line.
std::vector<std::string> splitWords(const std::string& line);
// An interface id from its name; raises std::invalid_argument with the id
// library's reason when the name is not one.
Orvo::IntfId parseIntfName(const std::string& name);

}  // namespace Agent
