// Cost of one poll of the Ethernet port, egress queue (16 queues) and VLAN
// interface pollers, each publishing into a real shared-memory table, next to
// plain copies of the records they publish for scale.
//
// The helper here serves readings that grow on every call, so every poll forms
// non-zero differences and rates, and records nothing, so that the figures are
// the poller's and the table's alone.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "brim/SharedObject.h"
#include "counters/pollers/IntfQueueCountersSm.h"
#include "counters/pollers/PortCountersSm.h"
#include "counters/pollers/VlanIntfCountersSm.h"
#include "zat/Clock.h"

namespace {

using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;

const Orvo::IntfId kEth("Ethernet1");
const Orvo::IntfId kVlan("Vlan10");
constexpr int kQueues = 16;

class ServingHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<ServingHelper> ServingHelperIs() { return new ServingHelper(); }

  void countersInit() override {}
  void intfCountersInit(Orvo::IntfId) override {}
  void intfCountersCleanup(Orvo::IntfId) override {}
  void cpuPortCountersInit(Zat::String) override {}
  void cpuPortCountersUpdate() override {}
  bool coppClassCountersUpdate(Zat::Name) override { return true; }
  double firstPollDelay() override { return 1.0; }
  void intfCountersRead(Orvo::IntfId, const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                        const Zat::Ptr<VornTypes::IntfCounters>&) override {
    ++tick_;
    auto& s = newCounters->intfStats();
    s.inOctetsIs(1500 * tick_);
    s.inUcastPktsIs(tick_);
    s.outOctetsIs(700 * tick_);
    s.outUcastPktsIs(tick_);
    s.outMulticastPktsIs(Pell::MaybeU63(tick_ / 2));
    auto& e = newCounters->ethStats();
    e.fcsErrorsIs(tick_ / 8);
    e.lateCollisionsIs(tick_ / 16);
    e.inFrames1024To1522Is(tick_);
    s.inErrorsIs(tick_ / 8);
    s.outErrorsIs(tick_ / 16);
  }
  void intfQueueTypeRead(Orvo::IntfId,
                         const Zat::Ptr<VornTypes::IntfQueueType>& queueType) override {
    for (int q = 0; q < kQueues; ++q) {
      queueType->queueTypeIs(static_cast<uint8_t>(q), q < 8 ? VornTypes::QueueType::unicast
                                                            : VornTypes::QueueType::multicast);
    }
  }
  IntfQueueCounter intfQueueCountersRead(Orvo::IntfId intfId,
                                         const Zat::Ptr<VornTypes::IntfQueueCounters>&) override {
    ++tick_;
    IntfQueueCounter r(intfId);
    r.intfAggregate0Is(tick_);
    r.intfAggregate1Is(2 * tick_);
    for (int q = 0; q < kQueues; ++q) {
      uint64_t pkts = tick_ * (q + 1);
      r.intfQueueStatIs(QueueIndex(q),
                        IntfQueueStat(0, 1500 * pkts, pkts, 64 * (pkts / 32), pkts / 32));
    }
    return r;
  }
  void vlanIntfCountersRead(Orvo::IntfId, const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>&) override {
    ++tick_;
    auto& s = newCounters->statistics();
    s.inOctetsIs(1000 * tick_);
    s.inUcastPktsIs(tick_);
    s.outOctetsIs(900 * tick_);
    s.outUcastPktsIs(tick_);
    for (size_t i = 0; i < VornTypes::VlanIntfCounters::kExtraCount; ++i) {
      newCounters->extraIs(i, tick_ * (i + 1));
    }
  }
  bool vlanIntfCountersSupported(Orvo::IntfId, uint32_t) override { return true; }
  void vlanIntfCountersRelease(Orvo::IntfId) override {}
  bool aclDropCountersSupported() override { return true; }
  uint64_t aclDropCountRead(Orvo::IntfId) override { return tick_; }

 private:
  ServingHelper() = default;
  uint64_t tick_ = 0;
};

// A namespace of this run's own; its tables are unlinked when the run ends.
class BenchTables {
 public:
  BenchTables() : ns_("bench" + std::to_string(::getpid())) {}
  ~BenchTables() {
    for (const auto& t : names_) Brim::unlinkTable(ns_, t);
  }
  const std::string& ns() const { return ns_; }
  const std::string& remember(const std::string& table) { return names_.emplace_back(table); }

 private:
  std::string ns_;
  std::vector<std::string> names_;
};

BenchTables& benchTables() {
  static BenchTables tables;
  return tables;
}

void BM_PortCountersSmUpdateCounters(benchmark::State& state) {
  auto& t = benchTables();
  auto counters = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(
      t.ns(), t.remember("allIntfCounters"), 64);
  auto helper = ServingHelper::ServingHelperIs();
  auto clock = Zat::Clock::ClockIs("benchClock");
  auto sm = Vorn::Counters::PortCountersSm::PortCountersSmIs(
      Vorn::VornCommonSmData::VornCommonSmDataIs(), kEth, Vorn::Counters::CliConfig::CliConfigIs(),
      clock, Interface::EthPhyIntfConfig::EthPhyIntfConfigIs(kEth), nullptr, helper,
      Interface::GlobalIntfConfig::GlobalIntfConfigIs(), counters, nullptr);
  sm->counterPollPeriodIs(2.0);
  sm->initializedIs(true);
  for (auto _ : state) sm->updateCounters();
  benchmark::DoNotOptimize(counters->counter(kEth));
  sm->zatDoZombieReactors(true);
}
BENCHMARK(BM_PortCountersSmUpdateCounters);

void BM_IntfQueueCountersSmUpdateCounters16Queues(benchmark::State& state) {
  auto& t = benchTables();
  auto queues = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      t.ns(), t.remember("allIntfQueueCounters"), 64);
  auto helper = ServingHelper::ServingHelperIs();
  auto clock = Zat::Clock::ClockIs("benchClock");
  auto configDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
  configDir->intfConfigIs(kEth);
  auto sm = Vorn::Counters::IntfQueueCountersSm::IntfQueueCountersSmIs(
      Vorn::VornCommonSmData::VornCommonSmDataIs(), kEth, 2.0, clock, helper,
      Interface::GlobalIntfConfig::GlobalIntfConfigIs(), configDir, queues, nullptr);
  sm->initializedIs(true);
  for (auto _ : state) sm->updateCounters();
  benchmark::DoNotOptimize(queues->intfQueueCounter(kEth));
  sm->zatDoZombieReactors(true);
}
BENCHMARK(BM_IntfQueueCountersSmUpdateCounters16Queues);

void BM_VlanIntfCountersSmUpdateCounters(benchmark::State& state) {
  auto& t = benchTables();
  auto counters = Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(
      t.ns(), t.remember("allVlanIntfCounters"), 64);
  auto helper = ServingHelper::ServingHelperIs();
  auto clock = Zat::Clock::ClockIs("benchClock");
  auto sm = Vorn::Counters::VlanIntfCountersSm::VlanIntfCountersSmIs(
      Vorn::VornCommonSmData::VornCommonSmDataIs(), kVlan, 2.0, clock, helper,
      Interface::GlobalIntfConfig::GlobalIntfConfigIs(),
      Interface::VlanIntfConfig::VlanIntfConfigIs(kVlan), nullptr, counters);
  sm->initializedIs(true);
  for (auto _ : state) sm->updateCounters();
  benchmark::DoNotOptimize(counters->counter(kVlan));
  sm->zatDoZombieReactors(true);
}
BENCHMARK(BM_VlanIntfCountersSmUpdateCounters);

// A plain in-cache copy of each published record, for scale.
template <class Record>
void BM_MemcpyRecord(benchmark::State& state) {
  Record source;
  Record target;
  state.SetLabel(std::to_string(sizeof(Record)) + " bytes");
  for (auto _ : state) {
    benchmark::DoNotOptimize(&source);
    std::memcpy(static_cast<void*>(&target), &source, sizeof target);
    benchmark::DoNotOptimize(&target);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_MemcpyRecord<Interface::EthIntfCounterBrim>);
BENCHMARK(BM_MemcpyRecord<IntfQueueCounter>);
BENCHMARK(BM_MemcpyRecord<Interface::VlanIntfCounterBrim>);

// The table write alone, to tell the poller's arithmetic from the publication.
void BM_AllEthIntfCounterBrimCounterIs(benchmark::State& state) {
  auto& t = benchTables();
  auto counters = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(
      t.ns(), t.remember("allIntfCountersWrite"), 64);
  Interface::EthIntfCounterBrim record(kEth);
  for (auto _ : state) {
    counters->counterIs(record);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_AllEthIntfCounterBrimCounterIs);

}  // namespace

BENCHMARK_MAIN();
