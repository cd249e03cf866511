#include "counters/pollers/CpuPortCountersSm.h"

#include "counters/pollers/PollPacing.h"
#include "counters/pollers/PollerTrace.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Vorn::Counters {

CpuPortCountersSm::ZatClock::ZatClock(const Zat::Ptr<const Zat::Clock>& notifier,
                                      CpuPortCountersSm* owner)
    : Zat::Clock::Notifiee(notifier), owner_(owner) {}

void CpuPortCountersSm::ZatClock::handleTime() {
  if (dying() || !owner_) return;
  owner_->handleTime();
}

Zat::Ptr<CpuPortCountersSm> CpuPortCountersSm::CpuPortCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  Zat::Ptr<CpuPortCountersSm> sm(
      new CpuPortCountersSm(vcsd, intfId, counterPollPeriod, clock, platformHelper));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CpuPortCountersSm::CpuPortCountersSm(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper)
    : Vorn::VornBaseSm(vcsd),
      intfId_(intfId),
      counterPollPeriod_(counterPollPeriod),
      clock_(clock),
      platformHelper_(platformHelper) {
  zatClock_ = Zat::activeReactorIs<ZatClock>(clock_, this);
}

CpuPortCountersSm::~CpuPortCountersSm() {
  if (zatClock_) zatClock_->ownerDel();
}

void CpuPortCountersSm::handleInitialized() {
  VORN_POLLER_HANDLER("void Vorn::Counters::CpuPortCountersSm::handleInitialized()",
                      " intf: ", intfId_);
  vornAssert(initialized());
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->cpuPortCountersInit(Zat::String(intfId_.stringValue()));
  double now = Zat::System::currentTime();
  double delay = firstTickDelay(helper->firstPollDelay(), counterPollPeriod_);
  if (zatClock_) zatClock_->timeMinIs(now + delay);
}

void CpuPortCountersSm::handleTime() {
  VORN_HANDLER("void Vorn::Counters::CpuPortCountersSm::handleTime()");
  if (!initialized()) return;
  // Deliberate: a zero period stops the timer for good; the port is then
  // polled only on request.
  if (counterPollPeriod_ == 0.0) return;
  updateCounters();
  // Measured from the end of the poll, so a slow poll is not caught up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + counterPollPeriod_);
}

void CpuPortCountersSm::updateCounters() {
  VORN_HANDLER("void Vorn::Counters::CpuPortCountersSm::updateCounters()");
  if (!initialized()) return;
  // The helper reads and publishes the CPU port counters itself.
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->cpuPortCountersUpdate();
}

void CpuPortCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Vorn::VornBaseSm::hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
}

void CpuPortCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  Vorn::VornBaseSm::zatDoZombieReactors(value);
}

void CpuPortCountersSm::attributesDescribe(Zat::Describer& d) const {
  Vorn::VornBaseSm::attributesDescribe(d);
  d.attribute("intfId", Zat::toText(intfId_));
  d.attribute("counterPollPeriod", Zat::toText(counterPollPeriod_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
}

Zat::GenericValue CpuPortCountersSm::genericInvoke(std::string_view operation,
                                                   const Zat::GenericArgs& args) {
  auto result = Zat::invokeOperation(
      operation, args,
      {
          {"updateCounters", 0, Zat::noResult([&](const Zat::GenericArgs&) { updateCounters(); })},
          {"handleTime", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleTime(); })},
      });
  return result ? *result : Vorn::VornBaseSm::genericInvoke(operation, args);
}

}  // namespace Vorn::Counters
