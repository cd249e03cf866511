// rtnetlink for the Linux platform: parsers of the three message kinds it reads
// (links, per-device 64-bit statistics, queueing disciplines) and a small
// socket over libmnl for dumps and link notifications.
//
// The parsers are pure functions of one message, so they can be tried on
// crafted buffers: a message that is too short, or whose attributes run past
// its end, is refused with a reason; attributes they do not know are skipped,
// so newer kernels that add attributes keep working.
//
// The socket never throws once open: every failure of a dump or a read comes
// back as an errno value, because the callers poll counters from timer
// handlers, where an exception would stop that poller for good.
#pragma once

#include <linux/if_link.h>
#include <linux/netlink.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

struct mnl_socket;

namespace Linux {

// One network device as a link message describes it.
struct LinkInfo {
  int ifIndex = 0;
  uint8_t family = 0;  // AF_UNSPEC for a device; AF_BRIDGE messages describe bridge ports
  std::string name;
  uint16_t type = 0;      // ARPHRD_*
  uint32_t flags = 0;     // IFF_*
  int parentIfIndex = 0;  // IFLA_LINK: the lower device of a VLAN device; 0 when none
  std::string kind;       // IFLA_INFO_KIND ("veth", "vlan", ...); "" when the device has none
  uint16_t vlanId = 0;    // IFLA_VLAN_ID of a "vlan" device; 0 otherwise
  bool deleted = false;   // an RTM_DELLINK message
  // Administratively up and with a carrier.
  bool operUp() const;
};

// A queueing discipline of one device, with the statistics the poll needs.
struct QdiscInfo {
  int ifIndex = 0;
  uint32_t handle = 0;
  uint32_t parent = 0;
  std::string kind;
  bool hasStats = false;  // TCA_STATS2 with basic statistics was present
  uint64_t bytes = 0;
  uint64_t packets = 0;
  bool packets64 = false;  // packets came from the 64-bit attribute
  uint32_t drops = 0;      // the kernel keeps queue drops in 32 bits
};

// Parse results: the record, or the reason the message was refused.
template <class T>
struct Parsed {
  std::optional<T> value;
  std::string error;
  explicit operator bool() const { return value.has_value(); }
};

// RTM_NEWLINK / RTM_DELLINK.
Parsed<LinkInfo> parseLink(const nlmsghdr* nlh);
// RTM_NEWSTATS with IFLA_STATS_LINK_64: the device's index and its statistics.
// Fields a shorter (older) structure lacks read as zero.
struct LinkStatsInfo {
  int ifIndex = 0;
  rtnl_link_stats64 stats{};
};
Parsed<LinkStatsInfo> parseLinkStats(const nlmsghdr* nlh);
// RTM_NEWQDISC.
Parsed<QdiscInfo> parseQdisc(const nlmsghdr* nlh);

// A NETLINK_ROUTE socket. Requires: used from one thread.
class RtnlSocket {
 public:
  // Opens and binds the socket to `groups` (RTMGRP_* bits; 0 for a dump-only
  // socket). A positive `rcvbuf` sets the receive buffer (forced past the
  // system limit when the process may). Raises std::runtime_error when the
  // socket cannot be opened: that only happens at start-up.
  explicit RtnlSocket(unsigned groups = 0, int rcvbuf = 0, bool nonBlocking = false);
  ~RtnlSocket();
  RtnlSocket(const RtnlSocket&) = delete;
  RtnlSocket& operator=(const RtnlSocket&) = delete;

  int fd() const;

  using Visit = std::function<void(const nlmsghdr*)>;
  // Sends a dump request of `type` whose family header is `header` and hands
  // every reply message to `visit`. Returns 0, or the errno of the failure
  // (EINTR is retried; a reply that stops for a second is EAGAIN; a dump the
  // kernel marked interrupted still counts as done, the next one corrects it).
  int dump(uint16_t type, const void* header, size_t headerLen, const Visit& visit);
  // Reads every notification queued on a non-blocking socket. Returns 0 once
  // the queue is empty, ENOBUFS when the kernel dropped notifications (the
  // caller must resynchronise), or another errno.
  int drain(const Visit& visit);

  // Dumps sent so far (for the status line and the one-dump-per-tick check).
  uint64_t dumps() const { return dumps_; }

 private:
  mnl_socket* nl_ = nullptr;
  unsigned portId_ = 0;
  uint32_t seq_ = 0;
  uint64_t dumps_ = 0;
  std::string buf_;
};

}  // namespace Linux
