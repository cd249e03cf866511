#include "counters/pollers/IntfQueueCountersSm.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>

#include "counters/pollers/PollPacing.h"
#include "counters/pollers/PollerTrace.h"
#include "interface/MovingAverage.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Vorn::Counters {

using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueRates;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;

namespace {

// The hardware counts the Ethernet preamble and inter-frame gap with every
// packet; the published octets exclude them.
constexpr uint64_t kOverheadOctetsPerPacket = 20;

// `octets` less the per-packet overhead, in signed 64 bits and never below 0:
// a reading with more packets than octets can carry must not wrap.
uint64_t withoutOverhead(uint64_t octets, uint64_t pkts) {
  auto octetsLeft = static_cast<int64_t>(octets - kOverheadOctetsPerPacket * pkts);
  return octetsLeft < 0 ? 0 : static_cast<uint64_t>(octetsLeft);
}

// now - before in signed 64 bits, 0 when negative: a counter that went back
// (a hardware reset) contributes nothing to the rates.
int64_t increment(uint64_t now, uint64_t before) {
  auto d = static_cast<int64_t>(now - before);
  return d < 0 ? 0 : d;
}

}  // namespace

// --- reactor ---

IntfQueueCountersSm::ZatClock::ZatClock(const Zat::Ptr<const Zat::Clock>& notifier,
                                        IntfQueueCountersSm* owner)
    : Zat::Clock::Notifiee(notifier), owner_(owner) {}

void IntfQueueCountersSm::ZatClock::handleTime() {
  if (dying() || !owner_) return;
  owner_->handleTime();
}

// --- construction ---

Zat::Ptr<IntfQueueCountersSm> IntfQueueCountersSm::IntfQueueCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters) {
  Zat::Ptr<IntfQueueCountersSm> sm(new IntfQueueCountersSm(
      vcsd, intfId, pollInterval, clock, platformHelper, globalIntfConfig, ethPhyIntfConfigDir,
      allIntfQueueCounters, allIntfClearQueueCounters));
  sm->hasNotificationActiveIs(true);
  return sm;
}

IntfQueueCountersSm::IntfQueueCountersSm(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters)
    : Vorn::VornBaseSm(vcsd),
      intfId_(intfId),
      pollInterval_(pollInterval),
      clock_(clock),
      platformHelper_(platformHelper),
      globalIntfConfig_(globalIntfConfig),
      ethPhyIntfConfigDir_(ethPhyIntfConfigDir),
      allIntfQueueCounters_(allIntfQueueCounters),
      allIntfClearQueueCounters_(allIntfClearQueueCounters) {
  zatClock_ = Zat::activeReactorIs<ZatClock>(clock_, this);
}

IntfQueueCountersSm::~IntfQueueCountersSm() {
  if (zatClock_) zatClock_->ownerDel();
}

// --- attributes ---

void IntfQueueCountersSm::clockDel() {
  if (zatClock_) {
    zatClock_->ownerDel();
    zatClock_->hasNotificationActiveIs(false);
    zatClock_ = nullptr;
  }
  clock_ = nullptr;
}

const Zat::Ptr<VornTypes::IntfQueueCounters>& IntfQueueCountersSm::prevCountersIs() {
  if (!prevCounters_) prevCounters_ = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  return prevCounters_;
}

// --- handlers ---

void IntfQueueCountersSm::handleInitialized() {
  VORN_POLLER_HANDLER("void Vorn::Counters::IntfQueueCountersSm::handleInitialized()",
                      " intfId: ", intfId_);
  addQueues();
  vornAssert(initialized());
  prevCountersIs();
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  double now = Zat::System::currentTime();
  // The helper's minimum applies to the first tick only, deliberately.
  double delay = firstTickDelay(helper->firstPollDelay(), pollInterval_);
  if (zatClock_) zatClock_->timeMinIs(now + delay);
}

void IntfQueueCountersSm::addQueues() {
  VORN_POLLER_HANDLER("void Vorn::Counters::IntfQueueCountersSm::addQueues()",
                      " intfId: ", intfId_);
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> table = allIntfQueueCounters_;
  if (!table) return;
  // Queues are added once: a record left by an earlier run keeps its totals.
  if (table->hasCounter(intfId_)) return;
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  Zat::Ptr<VornTypes::IntfQueueType> queueType = VornTypes::IntfQueueType::IntfQueueTypeIs();
  helper->intfQueueTypeRead(intfId_, queueType);

  IntfQueueCounter record(intfId_);
  for (const auto& [index, type] : queueType->queueType()) {
    QueueIndex q(index);  // raises the range error for an index above 16
    record.intfQueueStatIs(q, IntfQueueStat(static_cast<uint32_t>(type), 0, 0, 0, 0));
    record.intfQueueRatesIs(q, IntfQueueRates());
  }
  table->intfQueueCounterIs(record);
  if (allIntfClearQueueCounters_) allIntfClearQueueCounters_->intfQueueCounterIs(record);
}

void IntfQueueCountersSm::updateCounters() {
  VORN_POLLER_RECORD("void Vorn::Counters::IntfQueueCountersSm::updateCounters()");
  if (!initialized()) return;
  VORN_TRACE(8, "void Vorn::Counters::IntfQueueCountersSm::updateCounters()"
                    << " intfId: " << intfId_);
  vornAssert(allIntfQueueCounters());
  // The table and the helper are fixed at construction, so the poll works on
  // them in place rather than taking references it would give back at once.
  Interface::QueueCounter::AllIntfQueueCounters& table = *allIntfQueueCounters_;
  VornHelper::VornHelperCountersSm& helper = *platformHelper_;
  IntfQueueCounter reading = helper.intfQueueCountersRead(intfId_, prevCountersIs());

  Interface::QueueCounter::AllIntfQueueCounters::RecordBuffer copyBuffer;
  IntfQueueCounter& copy = table.counterOrEmptyIn(intfId_, countersSlot_, copyBuffer);
  double prevTime = copy.lastUpdateTime();
  bool clearOnRead = helper.queueCountersClearOnRead();
  double now = Zat::System::currentTime();
  copy.lastUpdateTimeIs(now);

  if (clearOnRead) {
    copy.intfAggregate0Is(copy.intfAggregate0() + reading.intfAggregate0());
    copy.intfAggregate1Is(copy.intfAggregate1() + reading.intfAggregate1());
  } else {
    copy.intfAggregate0Is(reading.intfAggregate0());
    copy.intfAggregate1Is(reading.intfAggregate1());
  }

  uint32_t entries = reading.intfQueueStatArray().storedCount();
  if (entries > 0) {
    // Fabric interfaces publish totals only; their rates stay as addQueues left them.
    bool fabric = Orvo::FabricIntfId::isFabricIntfId(intfId_);
    bool excludeOverhead = helper.queueBytesExcludeOverhead();
    Interface::LoadInterval globalInterval =
        globalIntfConfig_ ? globalIntfConfig_->loadInterval() : Interface::LoadInterval();
    Interface::LoadInterval intfInterval;
    if (ethPhyIntfConfigDir_) {
      const auto* config = intfConfigEntry_.find(ethPhyIntfConfigDir_->entries(), intfId_);
      if (config && *config) intfInterval = (*config)->loadInterval();
    }
    // Every queue shares the poll's elapsed time and intervals, hence its weight.
    const double elapsed = now - prevTime;
    const std::optional<double> weight =
        fabric ? std::nullopt
               : Interface::movingAverageWeight(elapsed, Interface::LoadInterval::effectiveSeconds(
                                                             intfInterval, globalInterval));

    for (uint32_t i = 0; i < entries; ++i) {
      QueueIndex q(i);  // raises the range error at 17: nothing is published
      // The reading's count is data like any other field: a count above 17 gets
      // through the first 17 queues and fails on the index check above.
      IntfQueueStat n = reading.intfQueueStatArray().rawElement(i);
      uint64_t txOctets = n.txOctets();
      uint64_t txPkts = n.txPkts();
      uint64_t dropOctets = n.dropOctets();
      uint64_t dropPkts = n.dropPkts();
      if (!excludeOverhead) {
        txOctets = withoutOverhead(txOctets, txPkts);
        dropOctets = withoutOverhead(dropOctets, dropPkts);
      }

      IntfQueueStat p = copy.intfQueueStat(q);
      IntfQueueStat total = p;  // keeps the queue's type and spare word
      int64_t d[4] = {0, 0, 0, 0};
      if (clearOnRead) {
        total.txOctetsIs(p.txOctets() + txOctets);
        total.txPktsIs(p.txPkts() + txPkts);
        total.dropOctetsIs(p.dropOctets() + dropOctets);
        total.dropPktsIs(p.dropPkts() + dropPkts);
        d[0] = static_cast<int64_t>(txOctets);
        d[1] = static_cast<int64_t>(txPkts);
        d[2] = static_cast<int64_t>(dropOctets);
        d[3] = static_cast<int64_t>(dropPkts);
      } else {
        total.txOctetsIs(txOctets);
        total.txPktsIs(txPkts);
        total.dropOctetsIs(dropOctets);
        total.dropPktsIs(dropPkts);
        if (!fabric) {
          d[0] = increment(txOctets, p.txOctets());
          d[1] = increment(txPkts, p.txPkts());
          d[2] = increment(dropOctets, p.dropOctets());
          d[3] = increment(dropPkts, p.dropPkts());
        }
      }
      copy.intfQueueStatIs(q, total);
      if (fabric) continue;

      IntfQueueRates rates = copy.intfQueueRates(q);
      Interface::QueueCounter::updateIntfQueueMovingAverages(
          rates, elapsed, weight, static_cast<double>(d[0]), static_cast<double>(d[1]),
          static_cast<double>(d[2]), static_cast<double>(d[3]));
      copy.intfQueueRatesIs(q, rates);
    }
  }
  // Polling never writes the clear table: baselines belong to clearing.
  table.counterIs(copy, countersSlot_);
}

void IntfQueueCountersSm::handleTime() {
  VORN_HANDLER("void Vorn::Counters::IntfQueueCountersSm::handleTime()");
  // Deliberate: a pollInterval of 0 stops the timer until something arms it again.
  if (!initialized() || pollInterval_ == 0.0) return;
  updateCounters();
  // Measured from the end of the poll, so a slow poll is not caught up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + pollInterval_);
}

// --- framework ---

void IntfQueueCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Vorn::VornBaseSm::hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
}

void IntfQueueCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  Vorn::VornBaseSm::zatDoZombieReactors(value);
}

void IntfQueueCountersSm::attributesDescribe(Zat::Describer& d) const {
  Vorn::VornBaseSm::attributesDescribe(d);
  d.attribute("intfId", Zat::toText(intfId_));
  d.attribute("pollInterval", Zat::toText(pollInterval_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("globalIntfConfig", Zat::toText(globalIntfConfig_));
  d.attribute("ethPhyIntfConfigDir", Zat::toText(ethPhyIntfConfigDir_));
  d.attribute("prevCounters", Zat::toText(prevCounters_));
  d.attribute("allIntfQueueCounters", Zat::toText(allIntfQueueCounters_));
  d.attribute("allIntfClearQueueCounters", Zat::toText(allIntfClearQueueCounters_));
}

Zat::GenericValue IntfQueueCountersSm::genericInvoke(std::string_view operation,
                                                     const Zat::GenericArgs& args) {
  auto result = Zat::invokeOperation(
      operation, args,
      {
          {"updateCounters", 0, Zat::noResult([&](const Zat::GenericArgs&) { updateCounters(); })},
          {"addQueues", 0, Zat::noResult([&](const Zat::GenericArgs&) { addQueues(); })},
          {"handleTime", 0, Zat::noResult([&](const Zat::GenericArgs&) { handleTime(); })},
          {"prevCountersIs", 0,
           [&](const Zat::GenericArgs&) {
             return Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(prevCountersIs()));
           }},
          {"prevCountersDel", 0,
           Zat::noResult([&](const Zat::GenericArgs&) { prevCountersDel(); })},
          {"clockDel", 0, Zat::noResult([&](const Zat::GenericArgs&) { clockDel(); })},
      });
  return result ? *result : Vorn::VornBaseSm::genericInvoke(operation, args);
}

}  // namespace Vorn::Counters
