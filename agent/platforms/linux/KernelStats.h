// The kernel's counters for one poll tick: one dump of every device's 64-bit
// link statistics and one dump of every queueing discipline, each taken at most
// once per tick and shared by every poller of that tick (hundreds of pollers
// fire within a few milliseconds of each other; a dump per poller would cost a
// system call each).
//
// Failures never leave here as exceptions: when a dump fails the previous one
// is served again and the failure is counted, and a device missing from the
// dump reads as null, which the helpers answer with their last reading.
#pragma once

#include <linux/if_link.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/platforms/linux/Netlink.h"

namespace Linux {

// One egress queue of an `mq` root: its child qdisc's counters.
struct QueueStat {
  uint64_t bytes = 0;
  uint64_t packets = 0;
  bool packets64 = false;  // false: packets wrap at 2^32
  uint64_t drops = 0;      // wraps at 2^32
};

class KernelStats {
 public:
  // Polls less than `reuseSeconds` after a dump are of its tick and share it.
  explicit KernelStats(double reuseSeconds = 0.05);

  // The device's statistics in this tick's dump; null when it is not in it.
  const rtnl_link_stats64* link(int ifIndex);
  // The device's egress queues (queue 0 first); null when it has no `mq` root.
  const std::vector<QueueStat>* queues(int ifIndex);
  // The next read takes a fresh dump (a device was just added).
  void invalidate();

  // The link dump of the device table, with the same socket (start-up and
  // resynchronisation). Returns 0 or an errno.
  int dumpLinks(const RtnlSocket::Visit& visit);

  uint64_t linkDumps() const { return linkDumps_; }
  uint64_t qdiscDumps() const { return qdiscDumps_; }
  uint64_t failures() const { return failures_; }
  // CPU time (user and system) spent in dumps and their parsing so far.
  double dumpCpuSeconds() const { return (linkCpuNs_ + qdiscCpuNs_) / 1e9; }
  double linkDumpCpuSeconds() const { return linkCpuNs_ / 1e9; }
  double qdiscDumpCpuSeconds() const { return qdiscCpuNs_ / 1e9; }
  uint64_t badMessages() const { return badMessages_; }
  const std::string& lastError() const { return lastError_; }

  // Serves these readings as the dump of a tick taken at `at` (tests: devices
  // that vanish or are replaced between two polls, without a kernel to do it).
  void snapshotIs(std::unordered_map<int, rtnl_link_stats64> links,
                  std::unordered_map<int, std::vector<QueueStat>> queues, double at) {
    links_ = std::move(links);
    queues_ = std::move(queues);
    linksAt_ = queuesAt_ = at;
  }

  // Builds the queue table from parsed qdisc messages (the dump's second half,
  // apart so that tests can feed it crafted messages).
  static std::unordered_map<int, std::vector<QueueStat>> queuesOf(
      const std::vector<QdiscInfo>& qdiscs);

 private:
  bool fresh(double takenAt, double now) const;
  void refreshLinks(double now);
  void refreshQueues(double now);

  RtnlSocket sock_;
  double reuse_;
  double linksAt_ = -1e300;
  double queuesAt_ = -1e300;
  std::unordered_map<int, rtnl_link_stats64> links_;
  std::unordered_map<int, std::vector<QueueStat>> queues_;
  uint64_t linkDumps_ = 0, qdiscDumps_ = 0, failures_ = 0, badMessages_ = 0;
  uint64_t linkCpuNs_ = 0, qdiscCpuNs_ = 0;
  std::string lastError_;
};

}  // namespace Linux
