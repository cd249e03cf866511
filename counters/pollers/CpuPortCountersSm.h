// Vorn::Counters::CpuPortCountersSm: paces the counter polls of one CPU port.
//
// The root machine (CountersSm) creates one per served CPU interface. Unlike the
// Ethernet port poller it computes nothing: the platform helper reads the CPU
// port's counters and publishes them itself on cpuPortCountersUpdate(). The
// root also calls updateCounters() for an on-demand poll. The period is fixed at
// construction; there is no exit work (the helper is not told of deletion).
#pragma once

#include <string_view>

#include "orvo/IntfId.h"
#include "vorn/VornBaseSm.h"
#include "vornhelper/VornHelper.h"
#include "zat/Clock.h"

namespace Vorn::Counters {

class CpuPortCountersSm : public Vorn::VornBaseSm {
 public:
  // The poll timer.
  class ZatClock : public Zat::Clock::Notifiee {
   public:
    ZatClock(const Zat::Ptr<const Zat::Clock>& notifier, CpuPortCountersSm* owner);
    const char* fwkType() const override { return "Vorn::Counters::CpuPortCountersSm::ZatClock"; }
    void handleTime() override;
    // Cut by the owner as it dies: a reactor kept alive elsewhere calls nobody.
    void ownerDel() { owner_ = nullptr; }

   private:
    CpuPortCountersSm* owner_;
  };

  // Creates the poller and switches its notifications on.
  static Zat::Ptr<CpuPortCountersSm> CpuPortCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);

  ~CpuPortCountersSm() override;

  // --- attributes, in declaration order ---
  Orvo::IntfId intfId() const { return intfId_; }
  // Seconds between polls, fixed at construction; 0.0 means not polled by timer.
  double counterPollPeriod() const { return counterPollPeriod_; }
  const Zat::Ptr<const Zat::Clock>& clock() const { return clock_; }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }

  // --- handlers ---
  // Tells the helper about the CPU port and arms the first tick.
  // Requires: initialized() (it asserts "initialized()").
  void handleInitialized() override;
  // A tick: poll, then re-arm at now + period; a period of exactly 0.0 stops it.
  void handleTime();
  // One poll: the helper reads and publishes the CPU port counters. Does
  // nothing before initialization; a helper exception passes out.
  void updateCounters();

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::CpuPortCountersSm"; }
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters", "initializedIs" (bool), "handleInitialized", "handleTime".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  CpuPortCountersSm(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
                    double counterPollPeriod, const Zat::Ptr<const Zat::Clock>& clock,
                    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);

 private:
  Orvo::IntfId intfId_;
  double counterPollPeriod_;
  Zat::Ptr<const Zat::Clock> clock_;
  Zat::Ptr<ZatClock> zatClock_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
};

}  // namespace Vorn::Counters
