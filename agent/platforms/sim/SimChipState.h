// The simulated chip's own kept state, in a table beside the counter tables.
#pragma once

#include <cstdint>

namespace Sim {

// When the simulated chip was powered on. A forwarding chip keeps counting
// while its agent restarts, so a restarted agent reads the chip on from this
// time instead of from zero: counters the component publishes as the hardware
// reports them (queue totals, ACL drops) then never go back across a restart.
struct SimChipState {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "Sim::SimChipState";
  static constexpr Key kKey = 1;  // the table's only record
  uint64_t id = kKey;
  double powerOnTime = 0;
  Key key() const { return id; }
  bool operator==(const SimChipState&) const = default;
};

inline constexpr const char* kSimChipStateTable = "simChipState";

}  // namespace Sim
