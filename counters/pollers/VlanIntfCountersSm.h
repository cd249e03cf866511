// Vorn::Counters::VlanIntfCountersSm: the counters poller of one routed VLAN
// interface.
//
// The root machine (CountersSm) creates one per served VLAN interface, only when
// none exists, and initializes it. Initialization seeds a zero record in
// "allVlanIntfCounters" when the interface has none (existing totals survive a
// re-creation); every tick adds the hardware's counts since the previous poll to
// the running totals and folds them into the rates, like the Ethernet port
// poller but without error-sum checks and without exit work. The root also
// calls updateCounters() for an on-demand poll. The period is fixed at
// construction.
#pragma once

#include <string_view>

#include "interface/IntfConfig.h"
#include "orvo/IntfId.h"
#include "tables/CounterTables.h"
#include "vorn/VornBaseSm.h"
#include "vornhelper/VornHelper.h"
#include "vorntypes/VornTypes.h"
#include "zat/Clock.h"
#include "zat/Notifiee.h"

namespace Vorn::Counters {

class VlanIntfCountersSm : public Vorn::VornBaseSm {
 public:
  // The poll timer.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(const Zat::Ptr<const Zat::Clock>& notifier, VlanIntfCountersSm* owner);
    const char* fwkType() const override { return "Vorn::Counters::VlanIntfCountersSm::ZatClock"; }
    void handleTime() override;
    // Cut by the owner as it dies: a reactor kept alive elsewhere calls nobody.
    void ownerDel() { owner_ = nullptr; }

   private:
    VlanIntfCountersSm* owner_;
  };

  // Holds the global interface configuration; reacts to nothing.
  class ZatGlobalIntfConfig : public Zat::NotifieeOf<Interface::GlobalIntfConfig> {
   public:
    explicit ZatGlobalIntfConfig(const Zat::Ptr<const Interface::GlobalIntfConfig>& notifier)
        : Zat::NotifieeOf<Interface::GlobalIntfConfig>(notifier) {}
    const char* fwkType() const override {
      return "Vorn::Counters::VlanIntfCountersSm::ZatGlobalIntfConfig";
    }
  };

  // Creates the poller and switches its notifications on.
  static Zat::Ptr<VlanIntfCountersSm> VlanIntfCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
      const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
      const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters);

  ~VlanIntfCountersSm() override;

  // --- attributes, in declaration order ---
  Orvo::IntfId intfId() const { return intfId_; }
  // Seconds between polls, fixed at construction; 0.0 means not polled by timer.
  double counterPollPeriod() const { return counterPollPeriod_; }
  const Zat::Ptr<const Zat::Clock>& clock() const { return clock_; }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig() const {
    return globalIntfConfig_;
  }
  const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig() const {
    return vlanIntfConfig_;
  }
  const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus() const {
    return vlanIntfStatus_;
  }
  const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters() const {
    return allVlanIntfCounters_;
  }
  // The hardware values of the previous poll; null until handleInitialized.
  const Zat::Ptr<VornTypes::VlanIntfCounters>& prevCounters() const { return prevCounters_; }
  // Returns prevCounters, creating it zero-filled first when it is null.
  const Zat::Ptr<VornTypes::VlanIntfCounters>& prevCountersIs();

  // --- handlers ---
  // Seeds the interface's record when absent, marks the machine initialized
  // and arms the first tick. Requires: allVlanIntfCounters (it asserts
  // "allVlanIntfCounters()").
  void handleInitialized() override;
  // A tick: poll, then re-arm at now + period; a period of exactly 0.0 stops it.
  void handleTime();
  // One poll: adds the hardware's counts since the previous poll to the
  // interface's entry in "allVlanIntfCounters". Does nothing before
  // initialization; a helper exception passes out and nothing is published.
  void updateCounters();

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::VlanIntfCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters", "initializedIs" (bool), "handleInitialized", "handleTime",
  // "prevCountersIs".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  VlanIntfCountersSm(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
                     double counterPollPeriod, const Zat::Ptr<const Zat::Clock>& clock,
                     const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
                     const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
                     const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
                     const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
                     const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters);

 private:
  Orvo::IntfId intfId_;
  double counterPollPeriod_;
  Zat::Ptr<const Zat::Clock> clock_;
  Zat::Ptr<ZatClock> zatClock_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  Zat::Ptr<const Interface::GlobalIntfConfig> globalIntfConfig_;
  Zat::Ptr<ZatGlobalIntfConfig> zatGlobalIntfConfig_;
  Zat::Ptr<const Interface::VlanIntfConfig> vlanIntfConfig_;
  Zat::Ptr<const Interface::VlanIntfStatus> vlanIntfStatus_;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounters_;
  Zat::Ptr<VornTypes::VlanIntfCounters> prevCounters_;
  // The reading the helper fills on each poll, kept between polls (see
  // ScratchReading.h); not an attribute.
  Zat::Ptr<VornTypes::VlanIntfCounters> newCounters_;
  // Where this interface's record sits in the counter table, so that a poll's read
  // and write skip the look-up; not an attribute.
  Interface::AllVlanIntfCounterBrim::Slot countersSlot_;
};

}  // namespace Vorn::Counters
