// Tables a platform publishes itself, beside the component's counter tables:
// their record types and names. The agent's platforms write them and every
// reader (vornctl, exporters, subagents) reads them, so they live here and not
// in any one platform.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Published {

// CPU port counters (the component only paces their polls; the helper writes them).
struct CpuPortCounter {
  using Key = Orvo::IntfId;
  // The type name is part of the table header; kept as first published so that
  // tables written by earlier agents still open.
  static constexpr const char* kTypeName = "Sim::CpuPortCounter";
  Orvo::IntfId intfId;
  Interface::IntfStatistics statistics;
  Key key() const { return intfId; }
  bool operator==(const CpuPortCounter&) const = default;
};

// Policing class counters. Class names are keyed by a 64-bit hash; the name
// itself is kept in the record.
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

// What a platform tells readers about one interface it serves: the name the
// operating system knows it by (a kernel device name on Linux) and whether it
// is up. Keyed by the interface id; the Linux platform also keeps its stable
// name-to-id assignment here, so a restarted agent gives a device the same id.
struct IntfNameRecord {
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Published::IntfNameRecord";
  static constexpr size_t kNameSize = 32;
  Orvo::IntfId intfId;
  char kernelName[kNameSize] = {};
  uint64_t ifIndex = 0;   // the operating system's index; 0 when not present now
  uint64_t operUp = 0;    // 1 when the link is up
  uint64_t present = 0;   // 0 once the device has gone (the id stays reserved)
  uint64_t speedBps = 0;  // 0 when unknown
  double lastChange = 0;  // when present or operUp last changed (seconds since 1970)
  Key key() const { return intfId; }
  bool operator==(const IntfNameRecord& o) const {
    return intfId == o.intfId && std::memcmp(kernelName, o.kernelName, kNameSize) == 0 &&
           ifIndex == o.ifIndex && operUp == o.operUp && present == o.present &&
           speedBps == o.speedBps && lastChange == o.lastChange;
  }
  std::string kernelNameText() const {
    return std::string(kernelName, strnlen(kernelName, kNameSize));
  }
  void kernelNameIs(const std::string& n) {
    std::memset(kernelName, 0, kNameSize);
    std::memcpy(kernelName, n.data(), std::min(n.size(), kNameSize - 1));
  }
};

inline constexpr const char* kCpuIntfCountersTable = "cpuIntfCounters";
inline constexpr const char* kCoppClassCountersTable = "coppClassCounters";
inline constexpr const char* kIntfNamesTable = "intfNames";

// The control-plane policy map whose classes the policing table holds. Its
// records carry the class name only: agents program this one policy map.
inline constexpr const char* kControlPlanePolicyName = "copp-system-policy";

}  // namespace Published
