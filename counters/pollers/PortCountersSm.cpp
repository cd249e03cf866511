#include "counters/pollers/PortCountersSm.h"

#include "counters/pollers/PollPacing.h"
#include "counters/pollers/PollerTrace.h"
#include "counters/pollers/ScratchReading.h"
#include "interface/IntfRates.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Vorn::Counters {

// --- reactors ---

PortCountersSm::ZatCliCounterConfig::ZatCliCounterConfig(
    const Zat::Ptr<const Vorn::Counters::CliConfig>& notifier, PortCountersSm* owner)
    : Zat::NotifieeOf<Vorn::Counters::CliConfig>(notifier), owner_(owner) {}

void PortCountersSm::ZatCliCounterConfig::onAttribute(Zat::AttributeId attr, const void*) {
  // The period is a plain attribute of the configuration, so its change comes
  // without a key; every other attribute is someone else's business.
  if (attr != Vorn::Counters::CliConfig::kCounterPollPeriod) return;
  if (dying() || !owner_) return;
  owner_->handlePeriodPoll();
}

void PortCountersSm::ZatCliCounterConfig::notifierIs(
    const Zat::Ptr<const Zat::PtrInterface>& notifier) {
  const Zat::PtrInterface* before = notifierBase();
  Zat::NotifieeOf<Vorn::Counters::CliConfig>::notifierIs(notifier);
  if (notifierBase() == before || dying() || !owner_) return;
  // A new configuration brings its own period.
  owner_->handlePeriodPoll();
}

PortCountersSm::ZatClock::ZatClock(const Zat::Ptr<const Zat::Clock>& notifier,
                                   PortCountersSm* owner)
    : Zat::Clock::Notifiee(notifier), owner_(owner) {}

void PortCountersSm::ZatClock::handleTime() {
  if (dying() || !owner_) return;
  owner_->handleTime();
}

// --- construction ---

Zat::Ptr<PortCountersSm> PortCountersSm::PortCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
    const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
    const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters) {
  Zat::Ptr<PortCountersSm> sm(
      new PortCountersSm(vcsd, intfId, cliCounterConfig, clock, ethPhyIntfConfig, ethPhyIntfStatus,
                         platformHelper, globalIntfConfig, allIntfCounters, allIntfClearCounters));
  sm->hasNotificationActiveIs(true);
  return sm;
}

PortCountersSm::PortCountersSm(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
    const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
    const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters)
    : Vorn::VornBaseSm(vcsd),
      intfId_(intfId),
      cliCounterConfig_(cliCounterConfig),
      clock_(clock),
      ethPhyIntfConfig_(ethPhyIntfConfig),
      ethPhyIntfStatus_(ethPhyIntfStatus),
      platformHelper_(platformHelper),
      globalIntfConfig_(globalIntfConfig),
      allIntfCounters_(allIntfCounters),
      allIntfClearCounters_(allIntfClearCounters) {
  zatCliCounterConfig_ = Zat::activeReactorIs<ZatCliCounterConfig>(cliCounterConfig_, this);
  zatClock_ = Zat::activeReactorIs<ZatClock>(clock_, this);
  zatGlobalIntfConfig_ = Zat::activeReactorIs<ZatGlobalIntfConfig>(globalIntfConfig_);
}

PortCountersSm::~PortCountersSm() {
  if (zatCliCounterConfig_) zatCliCounterConfig_->ownerDel();
  if (zatClock_) zatClock_->ownerDel();
}

// --- attributes ---

void PortCountersSm::counterPollPeriodIs(const double& counterPollPeriod) {
  counterPollPeriod_ = counterPollPeriod;
}

const Zat::Ptr<VornTypes::IntfCounters>& PortCountersSm::prevCountersIs() {
  if (!prevCounters_) prevCounters_ = VornTypes::IntfCounters::IntfCountersIs();
  return prevCounters_;
}

// --- handlers ---

void PortCountersSm::handleInitialized() {
  VORN_POLLER_HANDLER("void Vorn::Counters::PortCountersSm::handleInitialized()",
                      " intfId: ", intfId_);
  vornAssert(initialized());
  prevCountersIs();
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->intfCountersInit(intfId_);
  double now = Zat::System::currentTime();
  double delay = firstTickDelay(helper->firstPollDelay(), counterPollPeriod_);
  if (zatClock_) zatClock_->timeMinIs(now + delay);
}

void PortCountersSm::handlePeriodPoll() {
  VORN_HANDLER("void Vorn::Counters::PortCountersSm::handlePeriodPoll()");
  if (!initialized() || !cliCounterConfig_) return;
  // No re-arm: the armed tick keeps its time and the new period counts from there.
  counterPollPeriodIs(cliCounterConfig_->counterPollPeriod());
}

void PortCountersSm::handleTime() {
  VORN_HANDLER("void Vorn::Counters::PortCountersSm::handleTime()");
  if (!initialized()) return;
  // Deliberate: a zero period stops this port for good. handlePeriodPoll never
  // arms the timer, so a later non-zero period does not restart the polls.
  if (counterPollPeriod_ == 0.0) return;
  updateCounters();
  // Measured from the end of the poll, so a slow poll is not caught up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + counterPollPeriod_);
}

void PortCountersSm::handleExit() {
  VORN_POLLER_HANDLER("void Vorn::Counters::PortCountersSm::handleExit()", " intfId: ", intfId_);
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->intfCountersCleanup(intfId_);
}

void PortCountersSm::updateCounters() {
  VORN_POLLER_RECORD("void Vorn::Counters::PortCountersSm::updateCounters()");
  if (!initialized()) return;
  VORN_TRACE(8, "void Vorn::Counters::PortCountersSm::updateCounters()"
                    << " intfId: " << intfId_);
  // The table and the helper are fixed at construction, so the poll works on
  // them in place rather than taking references it would give back at once.
  if (!allIntfCounters_) return;
  Interface::AllEthIntfCounterBrim& table = *allIntfCounters_;
  const Zat::Ptr<VornTypes::IntfCounters>& prev = prevCountersIs();
  const Zat::Ptr<VornTypes::IntfCounters>& newCounters = freshReading(
      newCounters_, [] { return VornTypes::IntfCounters::IntfCountersIs(); },
      [](VornTypes::IntfCounters& c) { c.reset(); });
  // Poll times come from the poller's own clock, the time base of the rates.
  double t = clock_ ? clock_->now() : Zat::System::currentTime();
  platformHelper_->intfCountersRead(intfId_, newCounters, prev);

  Interface::AllEthIntfCounterBrim::RecordBuffer entryBuffer;
  Interface::EthIntfCounterBrim& entry =
      table.counterOrEmptyIn(intfId_, countersSlot_, entryBuffer);

  // The helper promises these sums; a reading that breaks them is not published.
  const Interface::IntfStatistics& stats = newCounters->intfStats();
  const Interface::EthStatistics& eth = newCounters->ethStats();
  vornAssertText(
      stats.inErrors() == (eth.alignmentErrors() + eth.fcsErrors() + eth.frameTooLongs() +
                           eth.frameTooShorts() + eth.internalMacReceiveErrors()),
      "newCounters->intfStats().inErrors() == ( newCounters->ethStats().alignmentErrors() + "
      "newCounters->ethStats().fcsErrors() + newCounters->ethStats().frameTooLongs() + "
      "newCounters->ethStats().frameTooShorts() + "
      "newCounters->ethStats().internalMacReceiveErrors() )");
  vornAssertText(
      stats.outErrors() == (eth.sqeTestErrors() + eth.lateCollisions() + eth.excessiveCollisions() +
                            eth.internalMacTransmitErrors() + eth.carrierSenseErrors()),
      "newCounters->intfStats().outErrors() == ( newCounters->ethStats().sqeTestErrors() + "
      "newCounters->ethStats().lateCollisions() + newCounters->ethStats().excessiveCollisions() "
      "+ newCounters->ethStats().internalMacTransmitErrors() + "
      "newCounters->ethStats().carrierSenseErrors() )");

  Interface::IntfStatistics delta = stats - prev->intfStats();
  delta.statsUpdateTimeIs(t);
  Interface::LoadInterval intfInterval =
      ethPhyIntfConfig_ ? ethPhyIntfConfig_->loadInterval() : Interface::LoadInterval();
  Interface::LoadInterval globalInterval =
      globalIntfConfig_ ? globalIntfConfig_->loadInterval() : Interface::LoadInterval();
  entry.ratesIs(
      Interface::updateIntfMovingAverages(entry.rates(), delta, t, intfInterval, globalInterval));
  entry.statisticsIs(entry.statistics() + delta);
  entry.ethStatisticsIs(entry.ethStatistics() + (eth - prev->ethStats()));

  prev->intfStatsIs(stats);
  prev->ethStatsIs(eth);
  table.counterIs(entry, countersSlot_);
}

// --- framework ---

void PortCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Vorn::VornBaseSm::hasNotificationActiveIs(value);
  if (zatCliCounterConfig_) zatCliCounterConfig_->hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
  if (zatGlobalIntfConfig_) zatGlobalIntfConfig_->hasNotificationActiveIs(value);
}

void PortCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatCliCounterConfig_) zatCliCounterConfig_->zatDoZombieReactors(value);
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  if (zatGlobalIntfConfig_) zatGlobalIntfConfig_->zatDoZombieReactors(value);
  Vorn::VornBaseSm::zatDoZombieReactors(value);
}

void PortCountersSm::attributesDescribe(Zat::Describer& d) const {
  Vorn::VornBaseSm::attributesDescribe(d);
  d.attribute("intfId", Zat::toText(intfId_));
  d.attribute("cliCounterConfig", Zat::toText(cliCounterConfig_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("ethPhyIntfConfig", Zat::toText(ethPhyIntfConfig_));
  d.attribute("ethPhyIntfStatus", Zat::toText(ethPhyIntfStatus_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("globalIntfConfig", Zat::toText(globalIntfConfig_));
  d.attribute("allIntfCounters", Zat::toText(allIntfCounters_));
  d.attribute("allIntfClearCounters", Zat::toText(allIntfClearCounters_));
  d.attribute("counterPollPeriod", Zat::toText(counterPollPeriod_));
  d.attribute("prevCounters", Zat::toText(prevCounters_));
}

Zat::GenericValue PortCountersSm::genericInvoke(std::string_view operation,
                                                const Zat::GenericArgs& args) {
  auto result = Zat::invokeOperation(
      operation, args,
      {
          {"updateCounters", 0, Zat::noResult([&](const Zat::GenericArgs&) { updateCounters(); })},
          {"counterPollPeriodIs", 1, Zat::noResult([&](const Zat::GenericArgs& a) {
             counterPollPeriodIs(a[0].asDouble("counterPollPeriod"));
           })},
          {"handlePeriodPoll", 0,
           Zat::noResult([&](const Zat::GenericArgs&) { handlePeriodPoll(); })},
          {"handleTime", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleTime(); })},
          {"handleExit", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleExit(); })},
          {"prevCountersIs", 0,
           [&](const Zat::GenericArgs&) {
             return Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(prevCountersIs()));
           }},
      });
  return result ? *result : Vorn::VornBaseSm::genericInvoke(operation, args);
}

}  // namespace Vorn::Counters
