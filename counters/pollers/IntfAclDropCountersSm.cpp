#include "counters/pollers/IntfAclDropCountersSm.h"

#include "counters/pollers/PollerTrace.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Vorn::Counters {

IntfAclDropCountersSm::ZatClock::ZatClock(const Zat::Ptr<const Zat::Clock>& notifier,
                                          IntfAclDropCountersSm* owner)
    : Zat::Clock::Notifiee(notifier), owner_(owner) {}

void IntfAclDropCountersSm::ZatClock::handleTime() {
  if (dying() || !owner_) return;
  owner_->handleTime();
}

Zat::Ptr<IntfAclDropCountersSm> IntfAclDropCountersSm::IntfAclDropCountersSmIs(
    Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
    const Brim::Interface::DropCounter& intfAclDropCounter,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  Zat::Ptr<IntfAclDropCountersSm> sm(new IntfAclDropCountersSm(
      intfId, clock, intfAclDropCounter, intfAclDropCountersDir, platformHelper));
  sm->hasNotificationActiveIs(true);
  return sm;
}

IntfAclDropCountersSm::IntfAclDropCountersSm(
    Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
    const Brim::Interface::DropCounter& intfAclDropCounter,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper)
    : intfId_(intfId),
      clock_(clock),
      intfAclDropCounter_(intfAclDropCounter),
      intfAclDropCountersDir_(intfAclDropCountersDir),
      platformHelper_(platformHelper) {
  zatClock_ = Zat::activeReactorIs<ZatClock>(clock_, this);
  // The root never sets initialized on this machine: it starts itself.
  handleInitialized();
}

IntfAclDropCountersSm::~IntfAclDropCountersSm() {
  if (zatClock_) zatClock_->ownerDel();
}

void IntfAclDropCountersSm::clockDel() {
  if (zatClock_) {
    zatClock_->ownerDel();
    zatClock_->hasNotificationActiveIs(false);
    zatClock_ = nullptr;
  }
  clock_ = nullptr;
}

void IntfAclDropCountersSm::handleInitialized() {
  VORN_POLLER_HANDLER("void Vorn::Counters::IntfAclDropCountersSm::handleInitialized()",
                      " intfId: ", intfId_);
  initialized_ = true;
  handleTime();
}

void IntfAclDropCountersSm::handleTime() {
  VORN_HANDLER("void Vorn::Counters::IntfAclDropCountersSm::handleTime()");
  // Deliberate: a pollInterval of 0 stops the timer until something arms it again.
  if (pollInterval_ == 0.0) return;
  updateCounters();
  // Measured from the end of the poll, so a slow poll is not caught up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + pollInterval_);
}

void IntfAclDropCountersSm::updateCounters() {
  VORN_POLLER_RECORD("void Vorn::Counters::IntfAclDropCountersSm::updateCounters()");
  if (!initialized_) {
    VORN_TRACE(7, "IntfAclDropCountersSm::Not Initialized yet");
    return;
  }
  VORN_TRACE(8, "void Vorn::Counters::IntfAclDropCountersSm::updateCounters()"
                    << " intfId: " << intfId_);
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  uint64_t dropCount = helper->aclDropCountRead(intfId_);
  Zat::Ptr<Brim::Interface::AllDropCounterDir> table = intfAclDropCountersDir_;
  if (!table) return;
  try {
    // The count is absolute: a hardware reset shows as a lower count, as it is.
    // A missing record is fatal here (the table's own assertion): the root adds
    // it before it creates this machine.
    Brim::Interface::DropCounter& record = table->counterDirectWrite(intfId_);
    record.dropCountIs(dropCount);
    table->counterCommit(intfId_);
    prevCounters_ = dropCount;
  } catch (const Pontil::CorruptionDetectedException& e) {
    table->doCorruptionDetected(e.what());
  }
}

void IntfAclDropCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Zat::PtrInterface::hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
}

void IntfAclDropCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  Zat::PtrInterface::zatDoZombieReactors(value);
}

void IntfAclDropCountersSm::attributesDescribe(Zat::Describer& d) const {
  d.attribute("intfId", Zat::toText(intfId_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("intfAclDropCounter", Zat::toText(intfAclDropCounter_));
  d.attribute("intfAclDropCountersDir", Zat::toText(intfAclDropCountersDir_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("prevCounters", Zat::toText(prevCounters_));
  d.attribute("pollInterval", Zat::toText(pollInterval_));
  d.attribute("initialized", Zat::toText(initialized_));
}

Zat::GenericValue IntfAclDropCountersSm::genericInvoke(std::string_view operation,
                                                       const Zat::GenericArgs& args) {
  auto result = Zat::invokeOperation(
      operation, args,
      {
          {"updateCounters", 0, Zat::noResult([&](const Zat::GenericArgs&) { updateCounters(); })},
          {"handleInitialized", 0,
           Zat::noResult([&](const Zat::GenericArgs&) { handleInitialized(); })},
          {"handleTime", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleTime(); })},
          {"initializedIs", 1, Zat::noResult([&](const Zat::GenericArgs& a) {
             initializedIs(a[0].asBool("initialized"));
           })},
          {"pollIntervalIs", 1, Zat::noResult([&](const Zat::GenericArgs& a) {
             pollIntervalIs(a[0].asDouble("pollInterval"));
           })},
          {"prevCountersIs", 1, Zat::noResult([&](const Zat::GenericArgs& a) {
             prevCountersIs(a[0].asUnsigned("prevCounters"));
           })},
          {"clockDel", 0, Zat::noResult([&](const Zat::GenericArgs&) { clockDel(); })},
      });
  return result ? *result : Zat::PtrInterface::genericInvoke(operation, args);
}

}  // namespace Vorn::Counters
