// Fuzzes topology files: any bytes either parse into a valid topology that the
// simulated chip accepts, or are refused with a TopologyError naming the field.
#include "agent/platforms/sim/Topology.h"

#include <cstdint>
#include <string>

#include "agent/platforms/sim/SimChip.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  Sim::Topology t;
  try {
    t = Sim::Topology::fromJsonText(text);
  } catch (const Sim::TopologyError&) {
    return 0;
  }
  // Anything accepted must build a chip (keep the fuzzer's memory bounded).
  if (t.ethPorts <= 256 && t.vlans <= 256 && t.vlanIntfs <= 256) Sim::SimChip chip(t);
  return 0;
}
