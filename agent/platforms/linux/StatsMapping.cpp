#include "agent/platforms/linux/StatsMapping.h"

#include <algorithm>

namespace Linux {

void mapLinkStats(const rtnl_link_stats64& k, Interface::IntfStatistics& s) {
  // The kernel counts received multicast but not broadcast; a driver that counts
  // more multicast than packets is clipped so the three packet counts still add
  // up to rx_packets.
  uint64_t inMcast = std::min<uint64_t>(k.multicast, k.rx_packets);
  s.inOctetsIs(k.rx_bytes);
  s.inUcastPktsIs(k.rx_packets - inMcast);
  s.inMulticastPktsIs(inMcast);
  s.inBroadcastPktsIs(0);
  // As /proc/net/dev's "drop": missed packets are folded into the drops.
  s.inDiscardsIs(k.rx_dropped + k.rx_missed_errors);
  s.outOctetsIs(k.tx_bytes);
  // Transmitted packets are not split by destination kind.
  s.outUcastPktsIs(k.tx_packets);
  s.outMulticastPktsIs(Pell::MaybeU63(0));
  s.outBroadcastPktsIs(0);
  s.outDiscardsIs(k.tx_dropped);
  uint64_t knownRx = k.rx_frame_errors + k.rx_crc_errors + k.rx_length_errors;
  s.inErrorsIs(std::max<uint64_t>(k.rx_errors, knownRx));
  s.inUnknownProtosIs(Pell::MaybeU63(0));
  uint64_t knownTx =
      k.tx_heartbeat_errors + k.tx_window_errors + k.tx_aborted_errors + k.tx_carrier_errors;
  s.outErrorsIs(std::max<uint64_t>(k.tx_errors, knownTx));
}

void mapLinkStats(const rtnl_link_stats64& k, Interface::IntfStatistics& s,
                  Interface::EthStatistics& e) {
  mapLinkStats(k, s);
  e = Interface::EthStatistics();
  // Receive errors: the IEEE 802.3 counters the kernel's fields stand for.
  e.alignmentErrorsIs(k.rx_frame_errors);
  e.fcsErrorsIs(k.rx_crc_errors);
  // rx_length_errors counts frames of a wrong length either way; it cannot be
  // split into too long and too short.
  e.frameTooLongsIs(k.rx_length_errors);
  e.frameTooShortsIs(0);
  // The rest of rx_errors (FIFO overruns, over errors, driver-specific kinds).
  e.internalMacReceiveErrorsIs(s.inErrors() -
                               (k.rx_frame_errors + k.rx_crc_errors + k.rx_length_errors));
  // Transmit errors.
  e.sqeTestErrorsIs(k.tx_heartbeat_errors);
  e.lateCollisionsIs(k.tx_window_errors);
  e.excessiveCollisionsIs(k.tx_aborted_errors);
  e.carrierSenseErrorsIs(k.tx_carrier_errors);
  e.internalMacTransmitErrorsIs(s.outErrors() - (k.tx_heartbeat_errors + k.tx_window_errors +
                                                 k.tx_aborted_errors + k.tx_carrier_errors));
}

}  // namespace Linux
