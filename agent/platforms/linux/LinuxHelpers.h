// Platform helpers over the Linux kernel's network devices.
//
// Port and VLAN-interface readings come from the tick's link statistics dump,
// egress queues from the children of an `mq` root qdisc (KernelStats). What
// this platform cannot count (CPU port, ACL drops, policing classes, per-VLAN
// bridging) it declines through the interface: no ACL drop counters, VLAN
// counters never enabled, CPU port and policing operations that publish
// nothing.
//
// Readings never go backwards for an interface id while the agent runs: when
// the kernel device behind an id is replaced (deleted and created again under
// the same name) its fresh counters are added to the last reading of the old
// one. A device that vanished between the dump and the poll is answered with
// its last reading; its withdrawal follows with the link notification. The
// last kernel reading of every interface is also kept in a table
// (KeptReading), so that after an agent restart the same device's first
// reading is only what it counted since the old agent's last poll.
// Nothing here throws for kernel trouble: an exception in a poll would stop
// that poller for good.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "agent/platforms/linux/KeptReading.h"
#include "agent/platforms/linux/KernelStats.h"
#include "brim/Brim.h"
#include "vornhelper/VornHelper.h"

namespace Linux {

// Where an interface id is in the kernel now: its ifindex, 0 when nowhere.
using IfIndexOf = std::function<int(Orvo::IntfId)>;

class LinuxCountersHelper : public VornHelper::VornHelperCountersSm {
 public:
  // `ns` names the table namespace of the kept readings; "" keeps none (tests).
  static Zat::Ptr<LinuxCountersHelper> LinuxCountersHelperIs(KernelStats* stats,
                                                             IfIndexOf ifIndexOf,
                                                             const std::string& ns = "") {
    return Zat::Ptr<LinuxCountersHelper>(new LinuxCountersHelper(stats, std::move(ifIndexOf), ns));
  }

  void countersInit() override {}
  void intfCountersInit(Orvo::IntfId) override {}
  void intfCountersCleanup(Orvo::IntfId) override {}
  // No CPU port is announced on this platform, so these are never reached.
  void cpuPortCountersInit(Zat::String) override {}
  void cpuPortCountersUpdate() override {}
  bool coppClassCountersUpdate(Zat::Name) override { return false; }
  double firstPollDelay() override { return 0.0; }
  void intfCountersRead(Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                        const Zat::Ptr<VornTypes::IntfCounters>& prevCounters) override;
  void intfQueueTypeRead(Orvo::IntfId intfId,
                         const Zat::Ptr<VornTypes::IntfQueueType>& queueType) override;
  Interface::QueueCounter::IntfQueueCounter intfQueueCountersRead(
      Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>& scratch) override;
  void vlanIntfCountersRead(Orvo::IntfId intfId,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>& prevCounters) override;
  bool vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t vlanId) override;
  void vlanIntfCountersRelease(Orvo::IntfId) override {}
  bool aclDropCountersSupported() override { return false; }
  uint64_t aclDropCountRead(Orvo::IntfId) override { return 0; }

  uint64_t polls() const { return polls_; }
  // Polls answered with the last reading because the device was not in the dump.
  uint64_t staleReads() const { return staleReads_; }

 private:
  LinuxCountersHelper(KernelStats* stats, IfIndexOf ifIndexOf, const std::string& ns);

  // One interface's readings: the kernel's last values and what earlier
  // devices under the same id had counted.
  struct Memory {
    int ifIndex = 0;
    bool seen = false;
    Interface::IntfStatistics lastRaw, offset;
    Interface::EthStatistics lastRawEth, offsetEth;
    // Where this interface's kept reading sits, so that each poll's write skips
    // the look-up.
    std::optional<Brim::TableWriter<KeptReading>::Slot> keptSlot;
  };
  // The reading of `intfId` now (offset + kernel values), or the last one.
  void read(Orvo::IntfId intfId, Interface::IntfStatistics& intf, Interface::EthStatistics& eth);

  KernelStats* stats_;
  IfIndexOf ifIndexOf_;
  std::unordered_map<Orvo::IntfId, Memory> memory_;
  std::unique_ptr<Brim::TableWriter<KeptReading>> keptTable_;
  // What an earlier agent kept, until each interface's first reading uses it.
  std::unordered_map<Orvo::IntfId, KeptReading> kept_;
  uint64_t polls_ = 0;
  uint64_t staleReads_ = 0;
};

// Per-VLAN bridging counters are not kept by the kernel: never enabled.
class LinuxVlanCountersHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<LinuxVlanCountersHelper> LinuxVlanCountersHelperIs() {
    return Zat::Ptr<LinuxVlanCountersHelper>(new LinuxVlanCountersHelper());
  }
  double vlanFirstPollDelay() override { return 0.0; }
  void vlanCountersRead(Bridging::VlanId, const Zat::Ptr<VornTypes::VlanCounters>&,
                        const Zat::Ptr<VornTypes::VlanCounters>&) override {}
  bool vlanCountersEnable(Bridging::VlanId) override { return false; }

 private:
  LinuxVlanCountersHelper() = default;
};

// One queue's increment since `prev`, for counters that may wrap at 2^32
// (`wide` false) or be reset to zero (the qdisc replaced).
uint64_t queueIncrement(uint64_t cur, uint64_t prev, bool wide);

}  // namespace Linux
