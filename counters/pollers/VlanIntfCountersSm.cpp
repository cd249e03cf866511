#include "counters/pollers/VlanIntfCountersSm.h"

#include "counters/pollers/PollPacing.h"
#include "counters/pollers/PollerTrace.h"
#include "counters/pollers/ScratchReading.h"
#include "interface/IntfRates.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Vorn::Counters {

VlanIntfCountersSm::ZatClock::ZatClock(const Zat::Ptr<const Zat::Clock>& notifier,
                                       VlanIntfCountersSm* owner)
    : Zat::Clock::Notifiee(notifier), owner_(owner) {}

void VlanIntfCountersSm::ZatClock::handleTime() {
  if (dying() || !owner_) return;
  owner_->handleTime();
}

Zat::Ptr<VlanIntfCountersSm> VlanIntfCountersSm::VlanIntfCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
    const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters) {
  Zat::Ptr<VlanIntfCountersSm> sm(new VlanIntfCountersSm(
      vcsd, intfId, counterPollPeriod, clock, platformHelper, globalIntfConfig, vlanIntfConfig,
      vlanIntfStatus, allVlanIntfCounters));
  sm->hasNotificationActiveIs(true);
  return sm;
}

VlanIntfCountersSm::VlanIntfCountersSm(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
    const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters)
    : Vorn::VornBaseSm(vcsd),
      intfId_(intfId),
      counterPollPeriod_(counterPollPeriod),
      clock_(clock),
      platformHelper_(platformHelper),
      globalIntfConfig_(globalIntfConfig),
      vlanIntfConfig_(vlanIntfConfig),
      vlanIntfStatus_(vlanIntfStatus),
      allVlanIntfCounters_(allVlanIntfCounters) {
  zatClock_ = Zat::activeReactorIs<ZatClock>(clock_, this);
  zatGlobalIntfConfig_ = Zat::activeReactorIs<ZatGlobalIntfConfig>(globalIntfConfig_);
}

VlanIntfCountersSm::~VlanIntfCountersSm() {
  if (zatClock_) zatClock_->ownerDel();
}

const Zat::Ptr<VornTypes::VlanIntfCounters>& VlanIntfCountersSm::prevCountersIs() {
  if (!prevCounters_) prevCounters_ = VornTypes::VlanIntfCounters::VlanIntfCountersIs();
  return prevCounters_;
}

void VlanIntfCountersSm::handleInitialized() {
  VORN_HANDLER("void Vorn::Counters::VlanIntfCountersSm::handleInitialized()");
  vornAssert(allVlanIntfCounters());
  prevCountersIs();
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> table = allVlanIntfCounters_;
  Interface::VlanIntfCounterBrim entry;
  try {
    entry = table->counter(intfId_);
  } catch (const Pontil::CorruptionDetectedException& e) {
    table->doCorruptionDetected(e.what());
    entry = Interface::VlanIntfCounterBrim();
  }
  // Only an interface without an entry gets a zero one: totals survive a
  // re-creation of this machine.
  if (entry == Interface::VlanIntfCounterBrim()) {
    table->counterIs(Interface::VlanIntfCounterBrim(intfId_));
  }
  // This machine marks itself initialized, so a direct call also leaves it
  // live. When the framework's flag change brought us here the flag is already
  // set; otherwise setting it runs this handler again, which arms the timer.
  if (!initialized()) {
    initializedIs(true);
    return;
  }
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  double now = Zat::System::currentTime();
  // The helper's minimum applies to the first tick only, deliberately.
  double delay = firstTickDelay(helper->firstPollDelay(), counterPollPeriod_);
  if (zatClock_) zatClock_->timeMinIs(now + delay);
}

// Without a trace record and without an initialized test, by design: the tick
// only paces updateCounters, which makes both.
void VlanIntfCountersSm::handleTime() {
  // Deliberate: a zero period stops the timer for good; the interface is then
  // polled only on request.
  if (counterPollPeriod_ == 0.0) return;
  updateCounters();
  // Measured from the end of the poll, so a slow poll is not caught up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + counterPollPeriod_);
}

void VlanIntfCountersSm::updateCounters() {
  VORN_POLLER_RECORD("void Vorn::Counters::VlanIntfCountersSm::updateCounters()");
  if (!initialized()) return;
  VORN_TRACE(8, "void Vorn::Counters::VlanIntfCountersSm::updateCounters()"
                    << " " << intfId_);
  // The table and the helper are fixed at construction, so the poll works on
  // them in place rather than taking references it would give back at once.
  if (!allVlanIntfCounters_) return;
  Interface::AllVlanIntfCounterBrim& table = *allVlanIntfCounters_;
  Interface::AllVlanIntfCounterBrim::RecordBuffer entryBuffer;
  Interface::VlanIntfCounterBrim& entry =
      table.counterOrEmptyIn(intfId_, countersSlot_, entryBuffer);

  const Zat::Ptr<VornTypes::VlanIntfCounters>& prev = prevCountersIs();
  const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters = freshReading(
      newCounters_, [] { return VornTypes::VlanIntfCounters::VlanIntfCountersIs(); },
      [](VornTypes::VlanIntfCounters& c) { c.reset(); });
  platformHelper_->vlanIntfCountersRead(intfId_, newCounters, prev);

  // As for Ethernet ports, the difference carries the poll time, so the
  // published statistics time is the later of the previous one and this poll.
  double t = clock_ ? clock_->now() : Zat::System::currentTime();
  Interface::IntfStatistics delta = newCounters->statistics() - prev->statistics();
  delta.statsUpdateTimeIs(t);
  entry.statisticsIs(entry.statistics() + delta);
  for (size_t i = 0; i < Interface::VlanIntfCounterBrim::kExtraCounterCount; ++i) {
    entry.extraCounterIs(i, entry.extraCounter(i) + newCounters->extra(i) - prev->extra(i));
  }
  Interface::LoadInterval intfInterval =
      vlanIntfConfig_ ? vlanIntfConfig_->loadInterval() : Interface::LoadInterval();
  Interface::LoadInterval globalInterval =
      globalIntfConfig_ ? globalIntfConfig_->loadInterval() : Interface::LoadInterval();
  entry.ratesIs(
      Interface::updateIntfMovingAverages(entry.rates(), delta, t, intfInterval, globalInterval));

  prev->statisticsIs(newCounters->statistics());
  for (size_t i = 0; i < VornTypes::VlanIntfCounters::kExtraCount; ++i) {
    prev->extraIs(i, newCounters->extra(i));
  }
  table.counterIs(entry, countersSlot_);
}

void VlanIntfCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Vorn::VornBaseSm::hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
  if (zatGlobalIntfConfig_) zatGlobalIntfConfig_->hasNotificationActiveIs(value);
}

void VlanIntfCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  if (zatGlobalIntfConfig_) zatGlobalIntfConfig_->zatDoZombieReactors(value);
  Vorn::VornBaseSm::zatDoZombieReactors(value);
}

void VlanIntfCountersSm::attributesDescribe(Zat::Describer& d) const {
  Vorn::VornBaseSm::attributesDescribe(d);
  d.attribute("intfId", Zat::toText(intfId_));
  d.attribute("counterPollPeriod", Zat::toText(counterPollPeriod_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("globalIntfConfig", Zat::toText(globalIntfConfig_));
  d.attribute("vlanIntfConfig", Zat::toText(vlanIntfConfig_));
  d.attribute("vlanIntfStatus", Zat::toText(vlanIntfStatus_));
  d.attribute("allVlanIntfCounters", Zat::toText(allVlanIntfCounters_));
  d.attribute("prevCounters", Zat::toText(prevCounters_));
}

Zat::GenericValue VlanIntfCountersSm::genericInvoke(std::string_view operation,
                                                    const Zat::GenericArgs& args) {
  auto result = Zat::invokeOperation(
      operation, args,
      {
          {"updateCounters", 0, Zat::noResult([&](const Zat::GenericArgs&) { updateCounters(); })},
          {"handleTime", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleTime(); })},
          {"prevCountersIs", 0,
           [&](const Zat::GenericArgs&) {
             return Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(prevCountersIs()));
           }},
      });
  return result ? *result : Vorn::VornBaseSm::genericInvoke(operation, args);
}

}  // namespace Vorn::Counters
