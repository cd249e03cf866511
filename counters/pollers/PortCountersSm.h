// Vorn::Counters::PortCountersSm: the counters poller of one Ethernet port.
//
// The root machine (CountersSm) creates one per served Ethernet interface, sets
// its poll period and initializes it. On every tick the poller reads the port's
// hardware totals through the platform helper, forms the difference against the
// previous reading, adds it to the port's running totals in "allIntfCounters"
// and folds it into the port's rates. The root also calls updateCounters() for
// an on-demand poll and handleExit() just before it deletes the poller.
#pragma once

#include <string_view>

#include "interface/IntfConfig.h"
#include "orvo/IntfId.h"
#include "tables/CounterTables.h"
#include "vorn/CliConfig.h"
#include "vorn/VornBaseSm.h"
#include "vornhelper/VornHelper.h"
#include "vorntypes/VornTypes.h"
#include "zat/Clock.h"
#include "zat/Notifiee.h"

namespace Vorn::Counters {

class PortCountersSm : public Vorn::VornBaseSm {
 public:
  // Follows the counter configuration: its poll period becomes this port's period.
  class ZatCliCounterConfig : public Zat::NotifieeOf<Vorn::Counters::CliConfig> {
   public:
    ZatCliCounterConfig(const Zat::Ptr<const Vorn::Counters::CliConfig>& notifier,
                        PortCountersSm* owner);
    const char* fwkType() const override {
      return "Vorn::Counters::PortCountersSm::ZatCliCounterConfig";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
    void notifierIs(const Zat::Ptr<const Zat::PtrInterface>& notifier) override;
    // Cut by the owner as it dies: a reactor kept alive elsewhere calls nobody.
    void ownerDel() { owner_ = nullptr; }

   private:
    PortCountersSm* owner_;
  };

  // The poll timer.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(const Zat::Ptr<const Zat::Clock>& notifier, PortCountersSm* owner);
    const char* fwkType() const override { return "Vorn::Counters::PortCountersSm::ZatClock"; }
    void handleTime() override;
    void ownerDel() { owner_ = nullptr; }

   private:
    PortCountersSm* owner_;
  };

  // Holds the global interface configuration; reacts to nothing.
  class ZatGlobalIntfConfig : public Zat::NotifieeOf<Interface::GlobalIntfConfig> {
   public:
    explicit ZatGlobalIntfConfig(const Zat::Ptr<const Interface::GlobalIntfConfig>& notifier)
        : Zat::NotifieeOf<Interface::GlobalIntfConfig>(notifier) {}
    const char* fwkType() const override {
      return "Vorn::Counters::PortCountersSm::ZatGlobalIntfConfig";
    }
  };

  // Creates the poller and switches its notifications on. Null inputs are
  // allowed and get no reactor.
  static Zat::Ptr<PortCountersSm> PortCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
      const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
      const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);

  ~PortCountersSm() override;

  // --- attributes, in declaration order ---
  Orvo::IntfId intfId() const { return intfId_; }
  const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig() const {
    return cliCounterConfig_;
  }
  const Zat::Ptr<const Zat::Clock>& clock() const { return clock_; }
  const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig() const {
    return ethPhyIntfConfig_;
  }
  const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus() const {
    return ethPhyIntfStatus_;
  }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig() const {
    return globalIntfConfig_;
  }
  const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters() const {
    return allIntfCounters_;
  }
  const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters() const {
    return allIntfClearCounters_;
  }
  // Seconds between polls; 0.0 (the start value) means the port is not polled.
  double counterPollPeriod() const { return counterPollPeriod_; }
  // Stores the period only: it neither polls nor arms the timer, so a new
  // period takes effect at the next tick.
  void counterPollPeriodIs(const double& counterPollPeriod);
  // The hardware values of the previous poll; null until handleInitialized.
  const Zat::Ptr<VornTypes::IntfCounters>& prevCounters() const { return prevCounters_; }
  // Returns prevCounters, creating it zero-filled first when it is null.
  const Zat::Ptr<VornTypes::IntfCounters>& prevCountersIs();

  // --- handlers ---
  // Tells the helper about the port and arms the first tick.
  // Requires: initialized() (it asserts "initialized()").
  void handleInitialized() override;
  // The counter configuration's period changed: adopt it (no re-arm).
  void handlePeriodPoll();
  // A tick: poll, then re-arm at now + period. A period of exactly 0.0 stops
  // the cycle for good.
  void handleTime();
  // Called by the parent just before it deletes this poller: releases the
  // port's hardware counter resources. Removes nothing from the tables.
  void handleExit();
  // One poll: adds the hardware's counts since the previous poll to the port's
  // entry in "allIntfCounters". Does nothing before initialization or without
  // the table. Raises Pontil::AssertException when the helper's reading breaks
  // an error-sum invariant; a helper exception passes out. Either way nothing
  // of that poll is published.
  void updateCounters();

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::PortCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters", "counterPollPeriodIs" (double), "initializedIs" (bool),
  // "handleInitialized", "handlePeriodPoll", "handleTime", "handleExit", "prevCountersIs".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  PortCountersSm(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
                 const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
                 const Zat::Ptr<const Zat::Clock>& clock,
                 const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
                 const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
                 const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
                 const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
                 const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
                 const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);

 private:
  Orvo::IntfId intfId_;
  Zat::Ptr<const Vorn::Counters::CliConfig> cliCounterConfig_;
  Zat::Ptr<ZatCliCounterConfig> zatCliCounterConfig_;
  Zat::Ptr<const Zat::Clock> clock_;
  Zat::Ptr<ZatClock> zatClock_;
  Zat::Ptr<const Interface::EthPhyIntfConfig> ethPhyIntfConfig_;
  Zat::Ptr<const Interface::EthPhyIntfStatus> ethPhyIntfStatus_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  Zat::Ptr<const Interface::GlobalIntfConfig> globalIntfConfig_;
  Zat::Ptr<ZatGlobalIntfConfig> zatGlobalIntfConfig_;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfCounters_;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfClearCounters_;
  double counterPollPeriod_ = 0.0;
  Zat::Ptr<VornTypes::IntfCounters> prevCounters_;
  // The reading the helper fills on each poll, kept between polls (see
  // ScratchReading.h); not an attribute.
  Zat::Ptr<VornTypes::IntfCounters> newCounters_;
  // Where this port's record sits in the counter table, so that a poll's read and
  // write skip the look-up; not an attribute.
  Interface::AllEthIntfCounterBrim::Slot countersSlot_;
};

}  // namespace Vorn::Counters
