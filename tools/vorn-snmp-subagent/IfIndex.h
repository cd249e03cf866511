// The SNMP interface index of every interface the subagent serves.
//
// An ifIndex must be a positive 31-bit number that stays the same for an
// interface across restarts of the agent and of the subagent, so it is a pure
// function of the interface id, written in decimal so that an operator can
// read the interface back from it:
//
//   Ethernet a[/b[/c]]   a * 10000 + b * 100 + c        (b, c <= 99; 0 when absent)
//   Vlan v               1000000000 + v
//   Cpu[n]               1100000000 + n                 (n = 0 for "Cpu")
//   Fabric n             1200000000 + n
//
// Ethernet3 is 30000, Ethernet3/1 is 30100, Ethernet3/1/2 is 30102, Vlan10 is
// 1000000010. The order of the indexes is the order of the ids. An Ethernet id
// whose second or third number exceeds 99 has no index and is not served.
#pragma once

#include <cstdint>
#include <optional>

#include "orvo/IntfId.h"

namespace Snmp {

inline constexpr uint32_t kVlanIfIndexBase = 1000000000u;
inline constexpr uint32_t kCpuIfIndexBase = 1100000000u;
inline constexpr uint32_t kFabricIfIndexBase = 1200000000u;

// The interface's ifIndex, or nullopt when the scheme above gives it none.
std::optional<uint32_t> ifIndexOf(Orvo::IntfId id);
// The interface with that ifIndex, or nullopt when no id maps to it.
std::optional<Orvo::IntfId> intfIdOf(uint32_t ifIndex);

}  // namespace Snmp
