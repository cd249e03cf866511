// Vorn::Counters::VlanCountersSm: the per-VLAN bridging counters of the switch.
//
// A root state machine of its own, beside CountersSm, created by the agent through
// vlanCountersSmFactory. It keeps one record per configured VLAN in the shared
// table "vlanCounterDir" and one in "vlanCounterSnapshotDir", follows the bridging
// configuration to add and remove them, adds the hardware's increments to every
// VLAN's running totals on each tick of its timer wheel, and copies a VLAN's
// totals into its snapshot record when the command line asks to clear it. Totals
// are never reset: readers show the counters since the last clear as the
// difference between the two tables.
#pragma once

#include <string>

#include "bridging/BridgingConfig.h"
#include "counters/PlatformHelper.h"
#include "pell/TimerWheel.h"
#include "tables/CounterTables.h"
#include "vorntypes/VornTypes.h"
#include "zat/Clock.h"
#include "zat/Generic.h"
#include "zat/Notifiee.h"
#include "zat/Ptr.h"

namespace Vorn::Counters {

class VlanCountersSm : public Zat::PtrInterface {
 public:
  static constexpr double kDefaultPollInterval = 2.0;

  // Follows the VLAN collection of the bridging configuration.
  class ZatBridgingConfig : public Zat::NotifieeOf<Bridging::Config> {
   public:
    ZatBridgingConfig(VlanCountersSm* owner, const Zat::Ptr<const Bridging::Config>& notifier)
        : Zat::NotifieeOf<Bridging::Config>(notifier), owner_(owner) {}
    void onAttribute(Zat::AttributeId attr, const void* key) override;
    const char* fwkType() const override {
      return "Vorn::Counters::VlanCountersSm::ZatBridgingConfig";
    }

   private:
    VlanCountersSm* owner_;
  };

  // Follows the clear requests per VLAN.
  class ZatVlanCountersCliReq : public Zat::NotifieeOf<Bridging::VlanCountersCliReq> {
   public:
    ZatVlanCountersCliReq(VlanCountersSm* owner,
                          const Zat::Ptr<const Bridging::VlanCountersCliReq>& notifier)
        : Zat::NotifieeOf<Bridging::VlanCountersCliReq>(notifier), owner_(owner) {}
    void onAttribute(Zat::AttributeId attr, const void* key) override;
    const char* fwkType() const override {
      return "Vorn::Counters::VlanCountersSm::ZatVlanCountersCliReq";
    }

   private:
    VlanCountersSm* owner_;
  };

  // Paces the polls on the timer wheel.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(VlanCountersSm* owner, const Zat::Ptr<const Pell::TimerWheel>& clock)
        : Zat::Clock::Notifiee(clock), owner_(owner) {}
    void handleTime() override;
    const char* fwkType() const override { return "Vorn::Counters::VlanCountersSm::ZatClock"; }

   private:
    VlanCountersSm* owner_;
  };

  // Creates the machine with its notifications on. Any input may be null: a null
  // input gets no reactor and counts as absent.
  static Zat::Ptr<VlanCountersSm> VlanCountersSmIs(
      const Zat::Ptr<const Bridging::Config>& bridgingConfig,
      const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
      const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
      const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
      const Zat::Ptr<const Pell::TimerWheel>& clock,
      const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper);
  ~VlanCountersSm() override;

  // --- attributes, in declaration order ---
  const Zat::Ptr<const Bridging::Config>& bridgingConfig() const { return bridgingConfig_; }
  const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq() const {
    return vlanCountersCliReq_;
  }
  const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir() const { return vlanCounterDir_; }
  const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir() const {
    return vlanCounterSnapshotDir_;
  }
  const Zat::Ptr<const Pell::TimerWheel>& clock() const { return clock_; }
  const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper() const {
    return vlanCountersHelper_;
  }
  // Seconds between polls; 0 stops polling at the next tick.
  double pollInterval() const { return pollInterval_; }
  bool initialized() const { return initialized_; }

  // --- mutators ---
  // Takes effect when the timer next fires; it never arms or disarms the timer.
  void pollIntervalIs(double seconds) { pollInterval_ = seconds; }
  // false -> true stores the flag and runs handleInitialized(); any other change
  // only stores it.
  void initializedIs(bool value);
  void bridgingConfigDel();
  void vlanCountersCliReqDel();
  void clockDel();

  // The reactors (null for a null input).
  ZatBridgingConfig* zatBridgingConfig() const { return zatBridgingConfig_.ptr(); }
  ZatVlanCountersCliReq* zatVlanCountersCliReq() const { return zatVlanCountersCliReq_.ptr(); }
  ZatClock* zatClock() const { return zatClock_.ptr(); }

  // --- handlers ---
  // Full resynchronisation, then arms the first poll at
  // now + max(helper's vlanFirstPollDelay, pollInterval) unless pollInterval is 0.
  virtual void handleInitialized();
  // Serves every configured VLAN, then removes the records of VLANs that are no
  // longer configured (for example after a restart of the agent).
  virtual void handleVlanConfig();
  // Creates the VLAN's zero records where missing and enables its hardware
  // counters, or removes its records when the VLAN is gone or its counters are
  // suppressed. Does nothing before initialization.
  // Requires: bridgingConfig() non-null once initialized.
  virtual void handleVlanConfig(Bridging::VlanId vlanId);
  // Deletes the VLAN's records from both tables; missing records are harmless.
  virtual void removeBrimCollections(Bridging::VlanId vlanId);
  // One poll: adds current minus previous hardware reading to every published
  // VLAN record and stamps it with the wheel's time. Does nothing before
  // initialization. Requires: clock() non-null when the table has records.
  virtual void updateCounters();
  // A tick of the timer: polls and re-arms at now + pollInterval.
  virtual void handleTime();
  // A clear request for the VLAN was added, changed or withdrawn.
  // Requires: initialized() when the request is present.
  virtual void handleClearCountersRequest(Bridging::VlanId vlanId);
  // Copies the VLAN's current totals into its snapshot record.
  // Requires: clock() non-null and a snapshot record for the VLAN.
  virtual void doTakeSnapshot(Bridging::VlanId vlanId);

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::VlanCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  VlanCountersSm(const Zat::Ptr<const Bridging::Config>& bridgingConfig,
                 const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
                 const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
                 const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
                 const Zat::Ptr<const Pell::TimerWheel>& clock,
                 const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper);

 private:
  // Adds the VLAN's zero record to `table` unless it has one already, so that a
  // configuration change never resets published totals.
  template <class Table>
  void addZeroRecordIfMissing(Table& table, Bridging::VlanId vlanId, const char* traceText);
  // Adds one reading's increments to a VLAN's record, which the caller then
  // publishes, stamped with the wheel time `pollTime` of the poll. Requires:
  // clock() non-null.
  void addReading(Brim::Bridging::VlanCounter& record, double pollTime);

  Zat::Ptr<const Bridging::Config> bridgingConfig_;
  Zat::Ptr<const Bridging::VlanCountersCliReq> vlanCountersCliReq_;
  Zat::Ptr<Brim::Bridging::VlanCounterDir> vlanCounterDir_;
  Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> vlanCounterSnapshotDir_;
  Zat::Ptr<const Pell::TimerWheel> clock_;
  Zat::Ptr<VornHelper::VornVlanCountersHelper> vlanCountersHelper_;
  double pollInterval_ = kDefaultPollInterval;
  bool initialized_ = false;
  // The two readings the helper fills for each VLAN of a poll, kept between
  // VLANs and polls (see counters/pollers/ScratchReading.h); not attributes.
  Zat::Ptr<VornTypes::VlanCounters> current_;
  Zat::Ptr<VornTypes::VlanCounters> previous_;

  // Declared after the inputs so that they are released first.
  Zat::Ptr<ZatBridgingConfig> zatBridgingConfig_;
  Zat::Ptr<ZatVlanCountersCliReq> zatVlanCountersCliReq_;
  Zat::Ptr<ZatClock> zatClock_;
};

}  // namespace Vorn::Counters
