#include "agent/CommandWords.h"

#include <sstream>
#include <stdexcept>

namespace Agent {

std::vector<std::string> splitWords(const std::string& line) {
  std::istringstream is(line);
  std::vector<std::string> words;
  for (std::string w; is >> w;) words.push_back(w);
  return words;
}

Orvo::IntfId parseIntfName(const std::string& name) {
  try {
    return Orvo::IntfId(name);
  } catch (const std::exception& e) {
    throw std::invalid_argument(e.what());
  }
}

}  // namespace Agent
