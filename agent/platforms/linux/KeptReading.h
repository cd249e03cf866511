// The Linux helper's last kernel reading of each interface, kept in a table
// beside the counter tables so that it outlives the agent.
//
// The kernel keeps counting while the agent restarts. A restarted agent's
// pollers start from a zero previous reading and add their first reading to
// the published totals whole; with the kept reading the helper hands out only
// what the same device counted since the old agent's last poll, so the totals
// continue exactly instead of counting the device's history twice.
#pragma once

#include <cstdint>

#include "interface/EthStatistics.h"
#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Linux {

struct KeptReading {
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Linux::KeptReading";
  Orvo::IntfId intfId;
  uint64_t ifIndex = 0;  // the device the reading came from
  Interface::IntfStatistics raw;
  Interface::EthStatistics rawEth;
  Key key() const { return intfId; }
  bool operator==(const KeptReading&) const = default;
};

inline constexpr const char* kKeptReadingsTable = "linuxKeptReadings";

}  // namespace Linux
