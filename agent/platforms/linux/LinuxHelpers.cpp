#include "agent/platforms/linux/LinuxHelpers.h"

#include <algorithm>

#include "agent/platforms/linux/StatsMapping.h"
#include "zat/Activity.h"

namespace Linux {

LinuxCountersHelper::LinuxCountersHelper(KernelStats* stats, IfIndexOf ifIndexOf,
                                         const std::string& ns)
    : stats_(stats), ifIndexOf_(std::move(ifIndexOf)) {
  if (!ns.empty()) {
    keptTable_ = Brim::TableWriter<KeptReading>::open(ns, kKeptReadingsTable, 4096);
    keptTable_->forEach([&](const KeptReading& r) { kept_[r.intfId] = r; });
  }
  // Queue readings are increments since the poller's previous reading, so that
  // a device replaced under the same name adds to its queue totals instead of
  // starting them again; qdisc byte counts are frame lengths, without preamble
  // and gap.
  queueCountersClearOnReadIs(true);
  queueBytesExcludeOverheadIs(true);
}

void LinuxCountersHelper::read(Orvo::IntfId intfId, Interface::IntfStatistics& intf,
                               Interface::EthStatistics& eth) {
  ++polls_;
  Memory& m = memory_[intfId];
  int ifIndex = ifIndexOf_(intfId);
  const rtnl_link_stats64* k = ifIndex > 0 ? stats_->link(ifIndex) : nullptr;
  if (k) {
    Interface::IntfStatistics raw;
    Interface::EthStatistics rawEth;
    mapLinkStats(*k, raw, rawEth);
    if (m.seen && m.ifIndex != ifIndex) {
      // Another device now stands behind this id, counting from zero.
      m.offset = m.offset + m.lastRaw;
      m.offsetEth = m.offsetEth + m.lastRawEth;
    } else if (!m.seen) {
      auto kept = kept_.find(intfId);
      if (kept != kept_.end()) {
        if (kept->second.ifIndex == static_cast<uint64_t>(ifIndex)) {
          // The device an earlier agent polled last: what it had counted by
          // then is in the published totals already.
          m.offset = Interface::IntfStatistics() - kept->second.raw;
          m.offsetEth = Interface::EthStatistics() - kept->second.rawEth;
        }
        kept_.erase(kept);
      }
    }
    m.ifIndex = ifIndex;
    m.seen = true;
    m.lastRaw = raw;
    m.lastRawEth = rawEth;
    if (keptTable_) {
      KeptReading r;
      r.intfId = intfId;
      r.ifIndex = static_cast<uint64_t>(ifIndex);
      r.raw = raw;
      r.rawEth = rawEth;
      try {
        keptTable_->putAt(m.keptSlot, r);
      } catch (const std::exception&) {
        // A full or damaged table costs the exact restart, not the poll.
      }
    }
  } else {
    ++staleReads_;
  }
  intf = m.offset + m.lastRaw;
  eth = m.offsetEth + m.lastRawEth;
  intf.statsUpdateTimeIs(Zat::System::currentTime());
}

void LinuxCountersHelper::intfCountersRead(Orvo::IntfId intfId,
                                           const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                                           const Zat::Ptr<VornTypes::IntfCounters>&) {
  read(intfId, newCounters->intfStats(), newCounters->ethStats());
}

void LinuxCountersHelper::vlanIntfCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
    const Zat::Ptr<VornTypes::VlanIntfCounters>&) {
  Interface::EthStatistics unused;
  read(intfId, newCounters->statistics(), unused);
  // Routed counts are not kept apart from the device's own: left zero.
}

bool LinuxCountersHelper::vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t) {
  return ifIndexOf_(intfId) > 0;
}

void LinuxCountersHelper::intfQueueTypeRead(Orvo::IntfId intfId,
                                            const Zat::Ptr<VornTypes::IntfQueueType>& queueType) {
  int ifIndex = ifIndexOf_(intfId);
  const std::vector<QueueStat>* qs = ifIndex > 0 ? stats_->queues(ifIndex) : nullptr;
  if (!qs) return;  // no mq root: no egress queues to show
  for (size_t q = 0; q < qs->size(); ++q) {
    queueType->queueTypeIs(static_cast<uint8_t>(q), VornTypes::QueueType::unicast);
  }
}

uint64_t queueIncrement(uint64_t cur, uint64_t prev, bool wide) {
  if (cur >= prev) return cur - prev;
  // A 32-bit counter that was in its upper half wrapped; anything else fell
  // back to zero (the qdisc was replaced) and counted `cur` since.
  if (!wide && prev <= 0xffffffffull && prev >= 0x80000000ull) {
    return (cur + 0x100000000ull - prev) & 0xffffffffull;
  }
  return cur;
}

Interface::QueueCounter::IntfQueueCounter LinuxCountersHelper::intfQueueCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>& scratch) {
  using Interface::QueueCounter::IntfQueueStat;
  using Interface::QueueCounter::QueueIndex;
  ++polls_;
  Interface::QueueCounter::IntfQueueCounter reading(intfId);
  int ifIndex = ifIndexOf_(intfId);
  const std::vector<QueueStat>* qs = ifIndex > 0 ? stats_->queues(ifIndex) : nullptr;
  if (!qs) return reading;  // nothing counted since: the totals stay
  // The scratch remembers which device its previous values came from; a new
  // device starts from zero.
  std::vector<IntfQueueStat>& previous = scratch->previous;
  if (scratch->previousAggregate1 != static_cast<uint64_t>(ifIndex)) previous.clear();
  size_t n = std::min<size_t>(qs->size(), Interface::QueueCounter::IntfQueueCounter::kMaxQueues);
  for (size_t q = 0; q < n; ++q) {
    const QueueStat& c = (*qs)[q];
    const IntfQueueStat prev = q < previous.size() ? previous[q] : IntfQueueStat();
    // Drop octets are not counted by the kernel's queue statistics.
    IntfQueueStat inc(0, queueIncrement(c.bytes, prev.txOctets(), true),
                      queueIncrement(c.packets, prev.txPkts(), c.packets64), 0,
                      queueIncrement(c.drops, prev.dropPkts(), false));
    reading.intfQueueStatIs(QueueIndex(static_cast<uint8_t>(q)), inc);
    // Kept in place: the scratch's storage serves every poll of the interface.
    const IntfQueueStat now(0, c.bytes, c.packets, 0, c.drops);
    if (q < previous.size()) {
      previous[q] = now;
    } else {
      previous.push_back(now);
    }
  }
  previous.resize(n);
  scratch->previousAggregate1 = static_cast<uint64_t>(ifIndex);
  return reading;
}

}  // namespace Linux
