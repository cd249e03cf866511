// Platform helpers over the simulated chip.
//
// They honour the duties the counters component relies on: a minimum first-poll
// delay, readings whose error sums hold, idempotent VLAN enabling, release of
// per-interface resources, and self-published CPU port and policing class
// counters (in tables of their own, so readers can show them too).
#pragma once

#include <map>
#include <memory>
#include <set>
#include <vector>

#include "agent/platforms/sim/SimChip.h"
#include "brim/Brim.h"
#include "readers/PublishedTables.h"
#include "vornhelper/VornHelper.h"

namespace Sim {

class SimCountersHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<SimCountersHelper> SimCountersHelperIs(SimChip* chip, const std::string& ns);

  void countersInit() override;
  void intfCountersInit(Orvo::IntfId intfId) override;
  void intfCountersCleanup(Orvo::IntfId intfId) override;
  void cpuPortCountersInit(Zat::String name) override;
  void cpuPortCountersUpdate() override;
  bool coppClassCountersUpdate(Zat::Name cmapName) override;
  double firstPollDelay() override;
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
  void vlanIntfCountersRelease(Orvo::IntfId intfId) override;
  bool aclDropCountersSupported() override;
  uint64_t aclDropCountRead(Orvo::IntfId intfId) override;

  // Counts for the status line.
  uint64_t polls() const { return polls_; }
  size_t initializedPorts() const { return initialized_.size(); }

 private:
  SimCountersHelper(SimChip* chip, const std::string& ns);
  SimChip* chip_;
  std::unique_ptr<Brim::TableWriter<Published::CpuPortCounter>> cpuTable_;
  std::unique_ptr<Brim::TableWriter<Published::CoppClassCounter>> coppTable_;
  std::set<Orvo::IntfId> initialized_;
  std::set<Orvo::IntfId> cpuPorts_;
  // The chip's queue reading of the current poll; its storage serves every poll.
  std::vector<Interface::QueueCounter::IntfQueueStat> queueScratch_;
  uint64_t polls_ = 0;
};

class SimVlanCountersHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<SimVlanCountersHelper> SimVlanCountersHelperIs(SimChip* chip) {
    return Zat::Ptr<SimVlanCountersHelper>(new SimVlanCountersHelper(chip));
  }
  double vlanFirstPollDelay() override;
  void vlanCountersRead(Bridging::VlanId vlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>& previous) override;
  bool vlanCountersEnable(Bridging::VlanId vlanId) override;
  uint64_t polls() const { return polls_; }
  size_t enabledVlans() const { return enabledCount_; }

 private:
  explicit SimVlanCountersHelper(SimChip* chip) : chip_(chip), lastActive_(4096, kNotEnabled) {}
  SimChip* chip_;
  // When each VLAN was read last, as the chip's counting time, indexed by VLAN
  // number; the chip gives that reading again from the time alone, so eight bytes
  // per VLAN stand for the whole reading, and for whether the VLAN counts at all
  // (kNotEnabled). Enabling a VLAN starts it at the current count.
  static constexpr double kNotEnabled = -1.0;
  std::vector<double> lastActive_;
  size_t enabledCount_ = 0;
  uint64_t polls_ = 0;
};

}  // namespace Sim
