#include "agent/platforms/linux/KernelStats.h"

#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <time.h>

#include <cerrno>
#include <cstring>

#include "zat/Activity.h"

namespace Linux {

namespace {
uint64_t threadCpuNs() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

// Adds the CPU time of its scope to a total.
struct CpuScope {
  explicit CpuScope(uint64_t& total) : total_(total), start_(threadCpuNs()) {}
  ~CpuScope() { total_ += threadCpuNs() - start_; }
  uint64_t& total_;
  uint64_t start_;
};
}  // namespace

KernelStats::KernelStats(double reuseSeconds) : reuse_(reuseSeconds) {}

bool KernelStats::fresh(double takenAt, double now) const {
  return now >= takenAt && now - takenAt < reuse_;
}

void KernelStats::invalidate() {
  linksAt_ = -1e300;
  queuesAt_ = -1e300;
}

int KernelStats::dumpLinks(const RtnlSocket::Visit& visit) {
  ifinfomsg ifi{};
  ifi.ifi_family = AF_UNSPEC;
  return sock_.dump(RTM_GETLINK, &ifi, sizeof ifi, visit);
}

void KernelStats::refreshLinks(double now) {
  CpuScope cpu(linkCpuNs_);
  // Marked taken even when the dump fails, so a failing kernel costs one
  // attempt per tick, not one per poller.
  linksAt_ = now;
  if_stats_msg req{};
  req.family = AF_UNSPEC;
  req.filter_mask = IFLA_STATS_FILTER_BIT(IFLA_STATS_LINK_64);
  std::unordered_map<int, rtnl_link_stats64> next;
  next.reserve(links_.size() + 16);
  ++linkDumps_;
  int err = sock_.dump(RTM_GETSTATS, &req, sizeof req, [&](const nlmsghdr* m) {
    if (m->nlmsg_type != RTM_NEWSTATS) return;
    auto p = parseLinkStats(m);
    if (!p) {
      ++badMessages_;
      lastError_ = p.error;
      return;
    }
    next[p.value->ifIndex] = p.value->stats;
  });
  if (err != 0) {
    ++failures_;
    lastError_ = std::string("statistics dump: ") + std::strerror(err);
    return;  // the previous tick's statistics are served again
  }
  links_.swap(next);
}

std::unordered_map<int, std::vector<QueueStat>> KernelStats::queuesOf(
    const std::vector<QdiscInfo>& qdiscs) {
  // The mq roots first: their children are known by the parent's major number.
  std::unordered_map<int, uint32_t> mqMajor;
  for (const auto& q : qdiscs) {
    if (q.parent == TC_H_ROOT && q.kind == "mq") mqMajor[q.ifIndex] = TC_H_MAJ(q.handle);
  }
  std::unordered_map<int, std::vector<QueueStat>> out;
  for (const auto& [ifIndex, major] : mqMajor) out[ifIndex];  // an mq root with no child yet
  for (const auto& q : qdiscs) {
    auto it = mqMajor.find(q.ifIndex);
    if (it == mqMajor.end() || q.parent == TC_H_ROOT || TC_H_MAJ(q.parent) != it->second) continue;
    uint32_t minor = TC_H_MIN(q.parent);
    // Class 1 is transmit queue 0; a queue past the record's 17 cannot be
    // published and is left out rather than refused.
    if (minor == 0 || minor > 17 || !q.hasStats) continue;
    auto& v = out[q.ifIndex];
    if (v.size() < minor) v.resize(minor);
    v[minor - 1] = QueueStat{q.bytes, q.packets, q.packets64, q.drops};
  }
  return out;
}

void KernelStats::refreshQueues(double now) {
  CpuScope cpu(qdiscCpuNs_);
  queuesAt_ = now;
  tcmsg req{};
  req.tcm_family = AF_UNSPEC;
  std::vector<QdiscInfo> all;
  ++qdiscDumps_;
  int err = sock_.dump(RTM_GETQDISC, &req, sizeof req, [&](const nlmsghdr* m) {
    if (m->nlmsg_type != RTM_NEWQDISC) return;
    auto p = parseQdisc(m);
    if (!p) {
      ++badMessages_;
      lastError_ = p.error;
      return;
    }
    // Only roots and children of roots matter; skip the rest early.
    all.push_back(std::move(*p.value));
  });
  if (err != 0) {
    ++failures_;
    lastError_ = std::string("qdisc dump: ") + std::strerror(err);
    return;
  }
  queues_ = queuesOf(all);
}

const rtnl_link_stats64* KernelStats::link(int ifIndex) {
  double now = Zat::System::currentTime();
  if (!fresh(linksAt_, now)) refreshLinks(now);
  auto it = links_.find(ifIndex);
  return it == links_.end() ? nullptr : &it->second;
}

const std::vector<QueueStat>* KernelStats::queues(int ifIndex) {
  double now = Zat::System::currentTime();
  if (!fresh(queuesAt_, now)) refreshQueues(now);
  auto it = queues_.find(ifIndex);
  return it == queues_.end() ? nullptr : &it->second;
}

}  // namespace Linux
