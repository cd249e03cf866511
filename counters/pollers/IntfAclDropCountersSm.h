// Vorn::Counters::IntfAclDropCountersSm: publishes the ACL drop count of one
// interface.
//
// The root machine (CountersSm) creates one per served Ethernet interface when
// the platform supports ACL drop counters, after making sure the interface has
// a record in "intfAclDropCountersDir". The machine initializes itself in its
// constructor (so it polls at once) and then, every pollInterval, overwrites the
// record's dropCount with the helper's absolute count. The root also calls
// updateCounters() for an on-demand poll. Deletion leaves the record in place.
#pragma once

#include <cstdint>
#include <string_view>

#include "interface/DropCounter.h"
#include "orvo/IntfId.h"
#include "tables/CounterTables.h"
#include "vornhelper/VornHelper.h"
#include "zat/Clock.h"
#include "zat/Ptr.h"

namespace Vorn::Counters {

class IntfAclDropCountersSm : public Zat::PtrInterface {
 public:
  // The poll timer.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(const Zat::Ptr<const Zat::Clock>& notifier, IntfAclDropCountersSm* owner);
    const char* fwkType() const override {
      return "Vorn::Counters::IntfAclDropCountersSm::ZatClock";
    }
    void handleTime() override;
    // Cut by the owner as it dies: a reactor kept alive elsewhere calls nobody.
    void ownerDel() { owner_ = nullptr; }

   private:
    IntfAclDropCountersSm* owner_;
  };

  // Creates the machine (which polls once while it is constructed) and switches
  // its notifications on.
  static Zat::Ptr<IntfAclDropCountersSm> IntfAclDropCountersSmIs(
      Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
      const Brim::Interface::DropCounter& intfAclDropCounter,
      const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);

  ~IntfAclDropCountersSm() override;

  // --- attributes, in declaration order ---
  Orvo::IntfId intfId() const { return intfId_; }
  const Zat::Ptr<const Zat::Clock>& clock() const { return clock_; }
  // Drops the clock and its timer: no tick comes any more.
  void clockDel();
  // The record the root found or added for the interface, kept as given.
  const Brim::Interface::DropCounter& intfAclDropCounter() const { return intfAclDropCounter_; }
  const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir() const {
    return intfAclDropCountersDir_;
  }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  // The last published count; 0 at start.
  uint64_t prevCounters() const { return prevCounters_; }
  void prevCountersIs(uint64_t prevCounters) { prevCounters_ = prevCounters; }
  // Seconds between polls; 2.0 at start; 0 stops polling.
  double pollInterval() const { return pollInterval_; }
  void pollIntervalIs(double pollInterval) { pollInterval_ = pollInterval; }
  bool initialized() const { return initialized_; }
  // Stores the flag only: the constructor has already initialized the machine.
  void initializedIs(bool initialized) { initialized_ = initialized; }

  // --- handlers ---
  // Marks the machine initialized and runs a tick at once.
  void handleInitialized();
  // A tick: poll, then re-arm at now + pollInterval; a pollInterval of 0 stops
  // it. It does not test initialized (updateCounters does).
  void handleTime();
  // One poll: writes the helper's absolute count into the interface's record.
  // Before initialization it only traces. Table damage goes to the table's
  // doCorruptionDetected; a missing record is fatal (the table's assertion);
  // a helper exception passes out.
  void updateCounters();

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::IntfAclDropCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters", "handleInitialized", "handleTime", "initializedIs" (bool),
  // "pollIntervalIs" (double), "prevCountersIs" (unsigned), "clockDel".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  // As its last step calls handleInitialized(), so a new machine polls at once.
  IntfAclDropCountersSm(Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
                        const Brim::Interface::DropCounter& intfAclDropCounter,
                        const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
                        const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);

 private:
  Orvo::IntfId intfId_;
  Zat::Ptr<const Zat::Clock> clock_;
  Zat::Ptr<ZatClock> zatClock_;
  Brim::Interface::DropCounter intfAclDropCounter_;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> intfAclDropCountersDir_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  uint64_t prevCounters_ = 0;
  double pollInterval_ = 2.0;
  bool initialized_ = false;
};

}  // namespace Vorn::Counters
