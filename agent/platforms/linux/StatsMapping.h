// How the kernel's 64-bit link statistics become the counter records: one
// function, so the port and VLAN-interface helpers, the tests and the
// documentation's field table all mean the same mapping.
//
// Both error sums hold by construction: inErrors is the larger of the kernel's
// rx_errors and the sum of the receive-error kinds it breaks out, and what the
// breakdown does not explain goes to internalMacReceiveErrors (likewise for
// transmit). With a consistent driver inErrors equals rx_errors exactly.
// Counters the kernel does not keep stay zero.
#pragma once

#include <linux/if_link.h>

#include "interface/EthStatistics.h"
#include "interface/IntfStatistics.h"

namespace Linux {

// Fills `intf` and `eth` (all counters; the update time is left alone).
void mapLinkStats(const rtnl_link_stats64& k, Interface::IntfStatistics& intf,
                  Interface::EthStatistics& eth);
// The generic counters alone, as a VLAN interface reports them.
void mapLinkStats(const rtnl_link_stats64& k, Interface::IntfStatistics& intf);

}  // namespace Linux
