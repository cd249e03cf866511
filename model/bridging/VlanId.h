// Bridging::VlanId: the number of a bridging VLAN (1..4094 in use), the key of
// the VLAN configuration and of the VLAN counter tables.
#pragma once

#include <cstdint>

namespace Bridging {

using VlanId = uint16_t;

}  // namespace Bridging
