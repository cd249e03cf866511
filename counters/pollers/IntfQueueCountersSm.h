// Vorn::Counters::IntfQueueCountersSm: the egress queue counters of one
// Ethernet interface.
//
// The root machine (CountersSm) creates one per served Ethernet interface when
// the queue table is given. At initialization it asks the platform helper for
// the interface's queues and publishes an all-zero record in
// "allIntfQueueCounters" (and in "allIntfClearQueueCounters"); every tick it
// turns the helper's reading into per-queue totals and moving-average rates.
// Readings are either running hardware totals or, when the helper says
// queueCountersClearOnRead, increments since the previous reading. The root
// also calls updateCounters() for an on-demand poll.
#pragma once

#include <string_view>

#include "counters/pollers/KeptEntry.h"
#include "interface/IntfConfig.h"
#include "orvo/IntfId.h"
#include "tables/CounterTables.h"
#include "vorn/VornBaseSm.h"
#include "vornhelper/VornHelper.h"
#include "vorntypes/VornTypes.h"
#include "zat/Clock.h"

namespace Vorn::Counters {

class IntfQueueCountersSm : public Vorn::VornBaseSm {
 public:
  // The poll timer.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(const Zat::Ptr<const Zat::Clock>& notifier, IntfQueueCountersSm* owner);
    const char* fwkType() const override { return "Vorn::Counters::IntfQueueCountersSm::ZatClock"; }
    void handleTime() override;
    // Cut by the owner as it dies: a reactor kept alive elsewhere calls nobody.
    void ownerDel() { owner_ = nullptr; }

   private:
    IntfQueueCountersSm* owner_;
  };

  // Creates the poller and switches its notifications on. A timer reactor is
  // created only for a non-null clock.
  static Zat::Ptr<IntfQueueCountersSm> IntfQueueCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters);

  ~IntfQueueCountersSm() override;

  // --- attributes, in declaration order ---
  Orvo::IntfId intfId() const { return intfId_; }
  // Seconds between polls, fixed at construction; 0 stops polling.
  double pollInterval() const { return pollInterval_; }
  const Zat::Ptr<const Zat::Clock>& clock() const { return clock_; }
  // Drops the clock and its timer: no tick comes any more.
  void clockDel();
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig() const {
    return globalIntfConfig_;
  }
  const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir() const {
    return ethPhyIntfConfigDir_;
  }
  // The helper's memory of previous raw queue values; this machine never reads
  // it. Null until first needed.
  const Zat::Ptr<VornTypes::IntfQueueCounters>& prevCounters() const { return prevCounters_; }
  // Returns prevCounters, creating an empty one first when it is null.
  const Zat::Ptr<VornTypes::IntfQueueCounters>& prevCountersIs();
  void prevCountersDel() { prevCounters_ = nullptr; }
  const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters() const {
    return allIntfQueueCounters_;
  }
  // May be null: then no baseline record is seeded.
  const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters() const {
    return allIntfClearQueueCounters_;
  }

  // --- handlers ---
  // Seeds the interface's record, then arms the first tick.
  // Requires: initialized() (it asserts "initialized()").
  void handleInitialized() override;
  // Publishes an all-zero record with the helper's queue map when the
  // interface has none yet; an existing record (even one from an earlier run)
  // is kept. Raises Zat::RangeException for a queue index above 16.
  void addQueues();
  // One poll. Does nothing before initialization. Requires: allIntfQueueCounters.
  // Raises Zat::RangeException for a reading of more than 17 queues; a helper
  // exception passes out. Either way nothing of that poll is published.
  void updateCounters();
  // A tick: poll, then re-arm at now + pollInterval; a pollInterval of 0 stops it.
  void handleTime();

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::IntfQueueCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters", "addQueues", "initializedIs" (bool), "handleInitialized",
  // "handleTime", "prevCountersIs", "prevCountersDel", "clockDel".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  IntfQueueCountersSm(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters);

 private:
  Orvo::IntfId intfId_;
  double pollInterval_;
  Zat::Ptr<const Zat::Clock> clock_;
  Zat::Ptr<ZatClock> zatClock_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  Zat::Ptr<const Interface::GlobalIntfConfig> globalIntfConfig_;
  Zat::Ptr<const Interface::AllEthPhyIntfConfigDir> ethPhyIntfConfigDir_;
  Zat::Ptr<VornTypes::IntfQueueCounters> prevCounters_;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCounters_;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfClearQueueCounters_;
  // Where this interface's record sits in the counter table, so that a poll's read
  // and write skip the look-up; not an attribute.
  Interface::QueueCounter::AllIntfQueueCounters::Slot countersSlot_;
  // This interface's entry of ethPhyIntfConfigDir_, for its load interval.
  KeptEntry<Zat::AttrCollection<Orvo::IntfId, Zat::Ptr<Interface::EthPhyIntfConfig>>>
      intfConfigEntry_;
};

}  // namespace Vorn::Counters
