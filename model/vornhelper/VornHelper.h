// The platform helpers: the counters component's only way to the forwarding chip.
//
// The agent creates one VornHelperCountersSm and one VornVlanCountersHelper for
// its chip family and hands them to the two factories. Every hardware reading,
// every preparation and release of a counter resource and every question of what
// the platform supports goes through them. The order of the virtual operations
// below is part of the interface between the component and platform layers: keep
// it, including the place the component never calls.
#pragma once

#include <cstdint>

#include "bridging/VlanId.h"
#include "interface/IntfQueueCounter.h"
#include "orvo/IntfId.h"
#include "vorntypes/VornTypes.h"
#include "zat/Generic.h"
#include "zat/String.h"

namespace VornHelper {

class VornHelperCountersSm : public Zat::PtrInterface {
 public:
  // Read by the queue poller; they stand first in the helper's data.
  // true: a queue reading is an increment since the previous reading.
  bool queueCountersClearOnRead() const { return queueCountersClearOnRead_; }
  void queueCountersClearOnReadIs(bool v) { queueCountersClearOnRead_ = v; }
  // true: queue octet counts already exclude the 20-octet per-packet overhead.
  bool queueBytesExcludeOverhead() const { return queueBytesExcludeOverhead_; }
  void queueBytesExcludeOverheadIs(bool v) { queueBytesExcludeOverhead_ = v; }

  // 1. Prepares the platform's counter machinery; called once by the root.
  virtual void countersInit() = 0;
  // 2. Prepares one Ethernet port's counters before its first poll.
  virtual void intfCountersInit(Orvo::IntfId intfId) = 0;
  // 3. Releases one Ethernet port's counter resources.
  virtual void intfCountersCleanup(Orvo::IntfId intfId) = 0;
  // 4. Prepares the CPU port counters of the port called `name`.
  virtual void cpuPortCountersInit(Zat::String name) = 0;
  // 5. Reads the CPU port counters and publishes them itself.
  virtual void cpuPortCountersUpdate() = 0;
  // 6. Refreshes the counters of one policing class present in hardware.
  virtual bool coppClassCountersUpdate(Zat::Name cmapName) = 0;
  // 7. Seconds: the first poll of a poller comes no sooner than this.
  virtual double firstPollDelay() = 0;
  // 8. Fills `newCounters` with the port's current hardware totals; `prevCounters`
  //    is the poller's previous reading, for reference only. The filled reading
  //    must keep both error-sum invariants (inErrors and outErrors equal the sums
  //    of their Ethernet error counters).
  virtual void intfCountersRead(Orvo::IntfId intfId,
                                const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                                const Zat::Ptr<VornTypes::IntfCounters>& prevCounters) = 0;
  // 9. Fills the interface's egress queue map (index 0..16 -> kind).
  virtual void intfQueueTypeRead(Orvo::IntfId intfId,
                                 const Zat::Ptr<VornTypes::IntfQueueType>& queueType) = 0;
  // 10. The raw queue reading: two interface-level counters and per-queue
  //     statistics in queue order.
  virtual Interface::QueueCounter::IntfQueueCounter intfQueueCountersRead(
      Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>& scratch) = 0;
  // 11. Fills `newCounters` with the VLAN interface's current hardware totals.
  virtual void vlanIntfCountersRead(Orvo::IntfId intfId,
                                    const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
                                    const Zat::Ptr<VornTypes::VlanIntfCounters>& prevCounters) = 0;
  // 12. Whether the VLAN interface can have counters.
  virtual bool vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t vlanId) = 0;
  // 13. Releases the VLAN interface's counter resources.
  virtual void vlanIntfCountersRelease(Orvo::IntfId intfId) = 0;
  // 14. Flushes the platform's counter caches; used by other agents, never by
  //     the counters component. Kept here so the places after it stay put.
  virtual void countersFlush() {}
  // 15. Whether interfaces get ACL drop counters.
  virtual bool aclDropCountersSupported() = 0;
  // 16. The interface's absolute ACL drop count.
  virtual uint64_t aclDropCountRead(Orvo::IntfId intfId) = 0;

  const char* fwkType() const override { return "VornHelper::VornHelperCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("queueCountersClearOnRead", Zat::toText(queueCountersClearOnRead_));
    d.attribute("queueBytesExcludeOverhead", Zat::toText(queueBytesExcludeOverhead_));
  }

 private:
  bool queueCountersClearOnRead_ = false;
  bool queueBytesExcludeOverhead_ = false;
};

class VornVlanCountersHelper : public Zat::PtrInterface {
 public:
  // 1. Seconds: the first VLAN poll comes no sooner than this.
  virtual double vlanFirstPollDelay() = 0;
  // 2. Fills `current` with the VLAN's counts now and `previous` with those of
  //    the helper's last reading for the VLAN.
  virtual void vlanCountersRead(Bridging::VlanId vlanId,
                                const Zat::Ptr<VornTypes::VlanCounters>& current,
                                const Zat::Ptr<VornTypes::VlanCounters>& previous) = 0;
  // 3. Makes sure the VLAN's hardware counters are enabled; idempotent.
  virtual bool vlanCountersEnable(Bridging::VlanId vlanId) = 0;

  const char* fwkType() const override { return "VornHelper::VornVlanCountersHelper"; }
};

}  // namespace VornHelper
