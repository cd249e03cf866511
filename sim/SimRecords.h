// Records the simulated platform helper publishes itself: CPU port counters and
// policing class counters (the counters component only paces those polls).
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Sim {

struct CpuPortCounter {
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Sim::CpuPortCounter";
  Orvo::IntfId intfId;
  Interface::IntfStatistics statistics;
  Key key() const { return intfId; }
  bool operator==(const CpuPortCounter&) const = default;
};

// Class names are keyed by a 64-bit hash; the name itself is kept in the record.
struct CoppClassCounter {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "Sim::CoppClassCounter";
  static constexpr size_t kNameSize = 48;
  uint64_t nameHash = 0;
  char name[kNameSize] = {};
  uint64_t pkts = 0, octets = 0, dropPkts = 0, dropOctets = 0;
  double timestamp = 0;
  Key key() const { return nameHash; }
  bool operator==(const CoppClassCounter& o) const {
    return nameHash == o.nameHash && std::memcmp(name, o.name, kNameSize) == 0 && pkts == o.pkts &&
           octets == o.octets && dropPkts == o.dropPkts && dropOctets == o.dropOctets &&
           timestamp == o.timestamp;
  }
  static uint64_t hashOf(const std::string& n) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char c : n) h = (h ^ c) * 1099511628211ull;
    return h;
  }
  std::string nameText() const { return std::string(name, strnlen(name, kNameSize)); }
};

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

inline constexpr const char* kCpuIntfCountersTable = "cpuIntfCounters";
inline constexpr const char* kSimChipStateTable = "simChipState";
inline constexpr const char* kCoppClassCountersTable = "coppClassCounters";

}  // namespace Sim
