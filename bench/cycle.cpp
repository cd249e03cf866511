// Cost of one whole poll cycle of the component: every poller of every family
// fires once, through the real state machines and real shared-memory tables,
// driven by the simulated clock (one poll period forward, every timer fires).
//
// Scales: 64, 512 and 4096 Ethernet ports with 8 egress queues each and ACL drop
// counters, plus 512 VLAN interfaces and 4094 VLANs. The whole cycle is built
// through the two exported factories, as an agent does; each family is also
// measured alone, its pollers built the way the root builds them. Every figure
// stands next to a plain in-cache copy of every record that the same cycle
// publishes, measured in the same run, and the 4096-port figures are given as a
// multiple of the 512-port ones to show how the cycle grows. Each figure also says
// how much of a poll is the handler timers' tick reads, which every handler makes.
//
// The platform helpers serve readings made from per-interface numbers prepared
// before the clock starts, with a few stores per call and no bookkeeping, so
// that the figures are the component's and the tables'. BM_HelperOnly shows
// what the helpers' serving costs for a 512-port cycle.
#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bridging/BridgingConfig.h"
#include "brim/SharedObject.h"
#include "counters/factories.h"
#include "counters/pollers/IntfAclDropCountersSm.h"
#include "counters/pollers/IntfQueueCountersSm.h"
#include "counters/pollers/PortCountersSm.h"
#include "counters/pollers/VlanIntfCountersSm.h"
#include "counters/vlan/VlanCountersSm.h"
#include "nimlog/Ticks.h"
#include "pell/TimerWheel.h"
#include "tables/CounterTables.h"
#include "zat/Activity.h"

namespace {

using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;

constexpr double kPeriod = 2.0;
constexpr int kQueuesPerPort = 8;
constexpr int kVlanIntfs = 512;
constexpr Bridging::VlanId kVlans = 4094;
constexpr uint32_t kTableCapacity = 4096;

// --- time ---

double threadCpuNs() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// CPU nanoseconds of one read of the tick counter that handler timers run on, the
// least of several timed batches.
double tickReadNs() {
  double best = 1e300;
  for (int batch = 0; batch < 15; ++batch) {
    constexpr int kReads = 20000;
    const double start = threadCpuNs();
    for (int i = 0; i < kReads; ++i) benchmark::DoNotOptimize(Nimlog::ticksNow());
    best = std::min(best, (threadCpuNs() - start) / kReads);
  }
  return best;
}

// Every handler runs a block timer, two tick reads. A tick of a port, queue or ACL
// poller runs two handlers (the tick and the poll inside it), a VLAN interface's one
// (its tick handler has no instruments), and the VLAN machine two per pass.
constexpr size_t kTickReadsPerTimer = 2;
constexpr size_t kTimersPerPortPoll = 2;
constexpr size_t kTimersPerVlanIntfPoll = 1;
constexpr size_t kTimersPerVlanPass = 2;

// Simulated time for the length of one benchmark: the pollers' clocks only move
// when the benchmark advances them.
class SimulatedTime {
 public:
  SimulatedTime() { Zat::activityManager()->simulatedTimeIs(true, 1000.0); }
  ~SimulatedTime() { Zat::activityManager()->simulatedTimeIs(false); }
  SimulatedTime(const SimulatedTime&) = delete;
  SimulatedTime& operator=(const SimulatedTime&) = delete;
};

void advanceOnePeriod() { Zat::activityManager()->advanceBy(kPeriod); }

// --- interfaces ---

Orvo::IntfId ethId(int i) { return Orvo::IntfId("Ethernet" + std::to_string(i + 1)); }
Orvo::IntfId vlanIntfId(int i) {
  return Orvo::VlanIntfId::vlanIntfId(static_cast<uint16_t>(i + 1));
}
// "Ethernet<n>" and "Vlan<n>" carry n in their first part.
size_t slotOf(Orvo::IntfId id) { return id.part(0) - 1; }

// --- helpers ---

// Serves every reading from a per-interface rate prepared up front, scaled by
// the cycle number, so that every poll sees counters grow.
class PrecomputedHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<PrecomputedHelper> PrecomputedHelperIs(int interfaces) {
    return Zat::Ptr<PrecomputedHelper>(new PrecomputedHelper(interfaces));
  }
  void cycleIs(uint64_t cycle) { cycle_ = cycle; }

  void countersInit() override {}
  void intfCountersInit(Orvo::IntfId) override {}
  void intfCountersCleanup(Orvo::IntfId) override {}
  void cpuPortCountersInit(Zat::String) override {}
  void cpuPortCountersUpdate() override {}
  bool coppClassCountersUpdate(Zat::Name) override { return true; }
  double firstPollDelay() override { return 1.0; }
  void intfCountersRead(Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                        const Zat::Ptr<VornTypes::IntfCounters>&) override {
    const uint64_t k = cycle_ * rate_[slotOf(intfId)];
    auto& s = newCounters->intfStats();
    s.inOctetsIs(1500 * k);
    s.inUcastPktsIs(k);
    s.inMulticastPktsIs(k / 16);
    s.outOctetsIs(700 * k);
    s.outUcastPktsIs(k);
    s.outMulticastPktsIs(Pell::MaybeU63(k / 2));
    auto& e = newCounters->ethStats();
    e.fcsErrorsIs(k / 64);
    e.lateCollisionsIs(k / 128);
    e.inFrames1024To1522Is(k);
    e.outFrames1024To1522Is(k);
    s.inErrorsIs(k / 64);
    s.outErrorsIs(k / 128);
  }
  void intfQueueTypeRead(Orvo::IntfId,
                         const Zat::Ptr<VornTypes::IntfQueueType>& queueType) override {
    for (int q = 0; q < kQueuesPerPort; ++q) {
      queueType->queueTypeIs(static_cast<uint8_t>(q), q < kQueuesPerPort / 2
                                                          ? VornTypes::QueueType::unicast
                                                          : VornTypes::QueueType::multicast);
    }
  }
  IntfQueueCounter intfQueueCountersRead(Orvo::IntfId intfId,
                                         const Zat::Ptr<VornTypes::IntfQueueCounters>&) override {
    const uint64_t k = cycle_ * rate_[slotOf(intfId)];
    IntfQueueCounter r = queueTemplate_;
    r.intfIdIs(intfId);
    r.intfAggregate0Is(k);
    r.intfAggregate1Is(2 * k);
    auto& stats = r.intfQueueStatArray();
    for (int q = 0; q < kQueuesPerPort; ++q) {
      const uint64_t pkts = k * (q + 1);
      stats.elementIs(q, IntfQueueStat(0, 1500 * pkts, pkts, 64 * (pkts / 32), pkts / 32));
    }
    return r;
  }
  void vlanIntfCountersRead(Orvo::IntfId intfId,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>&) override {
    const uint64_t k = cycle_ * rate_[slotOf(intfId)];
    auto& s = newCounters->statistics();
    s.inOctetsIs(1000 * k);
    s.inUcastPktsIs(k);
    s.outOctetsIs(900 * k);
    s.outUcastPktsIs(k);
    for (size_t i = 0; i < VornTypes::VlanIntfCounters::kExtraCount; ++i) {
      newCounters->extraIs(i, k * (i + 1));
    }
  }
  bool vlanIntfCountersSupported(Orvo::IntfId, uint32_t) override { return true; }
  void vlanIntfCountersRelease(Orvo::IntfId) override {}
  bool aclDropCountersSupported() override { return aclSupported_; }
  uint64_t aclDropCountRead(Orvo::IntfId intfId) override { return cycle_ * rate_[slotOf(intfId)]; }

  void aclSupportedIs(bool value) { aclSupported_ = value; }

 private:
  explicit PrecomputedHelper(int interfaces) {
    for (int i = 0; i < interfaces; ++i) rate_.push_back(1000 + 37 * static_cast<uint64_t>(i));
    for (int q = 0; q < kQueuesPerPort; ++q) {
      queueTemplate_.intfQueueStatIs(QueueIndex(q), IntfQueueStat());
    }
  }
  std::vector<uint64_t> rate_;
  IntfQueueCounter queueTemplate_;
  uint64_t cycle_ = 1;
  bool aclSupported_ = true;
};

class PrecomputedVlanHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<PrecomputedVlanHelper> PrecomputedVlanHelperIs() {
    return Zat::Ptr<PrecomputedVlanHelper>(new PrecomputedVlanHelper());
  }
  void cycleIs(uint64_t cycle) { cycle_ = cycle; }

  double vlanFirstPollDelay() override { return 1.0; }
  void vlanCountersRead(Bridging::VlanId vlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>& previous) override {
    const uint64_t rate = rate_[vlanId];
    for (size_t i = 0; i < VornTypes::VlanCounters::kCounterCount; ++i) {
      previous->counterIs(i, cycle_ * rate * (i + 1));
      current->counterIs(i, (cycle_ + 1) * rate * (i + 1));
    }
  }
  bool vlanCountersEnable(Bridging::VlanId) override { return true; }

 private:
  PrecomputedVlanHelper() {
    for (uint32_t v = 0; v <= kVlans; ++v) rate_[v] = 500 + 11 * v;
  }
  uint64_t rate_[kVlans + 1];
  uint64_t cycle_ = 1;
};

// --- tables ---

// Tables of one benchmark, under a namespace of its own, unlinked at the end.
class Tables {
 public:
  Tables() : ns_("cycle" + std::to_string(::getpid()) + "_" + std::to_string(next_++)) {}
  ~Tables() {
    for (const auto& t : names_) Brim::unlinkTable(ns_, t);
  }
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  template <class Table>
  Zat::Ptr<Table> open(const std::string& name) {
    names_.push_back(name);
    Brim::unlinkTable(ns_, name);
    return openAs<Table>(name);
  }

 private:
  template <class Table>
  Zat::Ptr<Table> openAs(const std::string& name);

  static inline int next_ = 0;
  std::string ns_;
  std::vector<std::string> names_;
};

template <>
Zat::Ptr<Interface::AllEthIntfCounterBrim> Tables::openAs(const std::string& name) {
  return Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(ns_, name, kTableCapacity);
}
template <>
Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> Tables::openAs(const std::string& name) {
  return Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(ns_, name,
                                                                               kTableCapacity);
}
template <>
Zat::Ptr<Brim::Interface::AllDropCounterDir> Tables::openAs(const std::string& name) {
  return Brim::Interface::AllDropCounterDir::AllDropCounterDirIs(ns_, name, kTableCapacity);
}
template <>
Zat::Ptr<Interface::AllVlanIntfCounterBrim> Tables::openAs(const std::string& name) {
  return Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(ns_, name, kTableCapacity);
}
template <>
Zat::Ptr<Brim::Bridging::VlanCounterDir> Tables::openAs(const std::string& name) {
  return Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns_, name);
}
template <>
Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> Tables::openAs(const std::string& name) {
  return Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(ns_, name);
}

// --- the memcpy floor ---

// Copies `count` records one by one, in cache, as the floor of publishing them.
class RecordCopies {
 public:
  template <class Record>
  void add(size_t count) {
    const size_t bytes = count * sizeof(Record);
    runs_.push_back(Run{std::vector<unsigned char>(bytes, 0x5a), std::vector<unsigned char>(bytes),
                        sizeof(Record), count});
  }

  void copyAll() {
    for (Run& run : runs_) {
      for (size_t i = 0; i < run.count; ++i) {
        benchmark::DoNotOptimize(run.source.data());
        std::memcpy(run.target.data() + i * run.size, run.source.data() + i * run.size, run.size);
        benchmark::ClobberMemory();
      }
    }
  }

  // CPU nanoseconds of one copyAll(), the least of several timed batches.
  double nanoseconds() {
    copyAll();
    double best = 1e300;
    for (int batch = 0; batch < 15; ++batch) {
      constexpr int kRounds = 20;
      const double start = threadCpuNs();
      for (int r = 0; r < kRounds; ++r) copyAll();
      best = std::min(best, (threadCpuNs() - start) / kRounds);
    }
    return best;
  }

 private:
  struct Run {
    std::vector<unsigned char> source;
    std::vector<unsigned char> target;
    size_t size;
    size_t count;
  };
  std::vector<Run> runs_;
};

// --- reporting ---

// Cycle CPU nanoseconds by benchmark family and port count, for the growth figures.
std::map<std::string, double>& cycleNs() {
  static std::map<std::string, double> figures;
  return figures;
}

// Runs one cycle per iteration and reports the cycle, the cost per poll, the ratio
// to `copies` and what the cycle's `timers` handler timers spend reading the tick
// counter (measured in the same run); `key` names the figure for the growth ratios.
template <class BeforeCycle>
void runCycles(benchmark::State& state, const std::string& key, size_t polls, size_t timers,
               RecordCopies& copies, BeforeCycle&& beforeCycle) {
  uint64_t cycle = 2;
  const double start = threadCpuNs();
  for (auto _ : state) {
    beforeCycle(cycle++);
    advanceOnePeriod();
  }
  const double perCycle = (threadCpuNs() - start) / static_cast<double>(state.iterations());
  const double memcpyNs = copies.nanoseconds();
  cycleNs()[key] = perCycle;
  state.counters["cycle_us"] = perCycle / 1e3;
  state.counters["per_poll_ns"] = perCycle / static_cast<double>(polls);
  state.counters["memcpy_us"] = memcpyNs / 1e3;
  state.counters["x_memcpy"] = perCycle / memcpyNs;
  state.counters["tick_reads_ns_per_poll"] =
      static_cast<double>(kTickReadsPerTimer * timers) * tickReadNs() / static_cast<double>(polls);
  const auto slash = key.rfind('/');
  if (key.substr(slash + 1) == "4096") {
    const auto base = cycleNs().find(key.substr(0, slash) + "/512");
    if (base != cycleNs().end()) state.counters["x_512_ports"] = perCycle / base->second;
  }
}

// --- one family alone ---

void BM_PortFamily(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  SimulatedTime time;
  Tables tables;
  {
    auto table = tables.open<Interface::AllEthIntfCounterBrim>(TableNames::kAllIntfCounters);
    auto helper = PrecomputedHelper::PrecomputedHelperIs(ports);
    auto vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    auto cli = Vorn::Counters::CliConfig::CliConfigIs();
    cli->counterPollPeriodIs(kPeriod);
    auto global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    const Zat::Ptr<const Zat::Clock> clock = Zat::activityManager()->config()->clock();
    std::vector<Zat::Ptr<Vorn::Counters::PortCountersSm>> pollers;
    for (int i = 0; i < ports; ++i) {
      const Orvo::IntfId id = ethId(i);
      table->counterIs(Interface::EthIntfCounterBrim(id));
      auto sm = Vorn::Counters::PortCountersSm::PortCountersSmIs(
          vcsd, id, cli, clock, Interface::EthPhyIntfConfig::EthPhyIntfConfigIs(id),
          Interface::EthPhyIntfStatus::EthPhyIntfStatusIs(id), helper, global, table, nullptr);
      sm->counterPollPeriodIs(kPeriod);
      sm->initializedIs(true);
      pollers.push_back(sm);
    }
    advanceOnePeriod();  // the first ticks
    RecordCopies copies;
    copies.add<Interface::EthIntfCounterBrim>(ports);
    runCycles(state, "port/" + std::to_string(ports), ports, kTimersPerPortPoll * ports, copies,
              [&](uint64_t c) { helper->cycleIs(c); });
    for (auto& sm : pollers) sm->zatDoZombieReactors(true);
  }
}
BENCHMARK(BM_PortFamily)->Arg(64)->Arg(512)->Arg(4096)->Unit(benchmark::kMicrosecond);

void BM_QueueFamily8Queues(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  SimulatedTime time;
  Tables tables;
  {
    auto table = tables.open<Interface::QueueCounter::AllIntfQueueCounters>(
        TableNames::kAllIntfQueueCounters);
    auto clearTable = tables.open<Interface::QueueCounter::AllIntfQueueCounters>(
        TableNames::kAllIntfClearQueueCounters);
    auto helper = PrecomputedHelper::PrecomputedHelperIs(ports);
    auto vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    auto global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    auto configDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
    const Zat::Ptr<const Zat::Clock> clock = Zat::activityManager()->config()->clock();
    std::vector<Zat::Ptr<Vorn::Counters::IntfQueueCountersSm>> pollers;
    for (int i = 0; i < ports; ++i) configDir->intfConfigIs(ethId(i));
    for (int i = 0; i < ports; ++i) {
      auto sm = Vorn::Counters::IntfQueueCountersSm::IntfQueueCountersSmIs(
          vcsd, ethId(i), kPeriod, clock, helper, global, configDir, table, clearTable);
      sm->initializedIs(true);
      pollers.push_back(sm);
    }
    advanceOnePeriod();
    RecordCopies copies;
    copies.add<IntfQueueCounter>(ports);
    runCycles(state, "queue/" + std::to_string(ports), ports, kTimersPerPortPoll * ports, copies,
              [&](uint64_t c) { helper->cycleIs(c); });
    for (auto& sm : pollers) sm->zatDoZombieReactors(true);
  }
}
BENCHMARK(BM_QueueFamily8Queues)->Arg(64)->Arg(512)->Arg(4096)->Unit(benchmark::kMicrosecond);

void BM_AclFamily(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  SimulatedTime time;
  Tables tables;
  {
    auto table =
        tables.open<Brim::Interface::AllDropCounterDir>(TableNames::kIntfAclDropCountersDir);
    auto helper = PrecomputedHelper::PrecomputedHelperIs(ports);
    const Zat::Ptr<const Zat::Clock> clock = Zat::activityManager()->config()->clock();
    std::vector<Zat::Ptr<Vorn::Counters::IntfAclDropCountersSm>> pollers;
    for (int i = 0; i < ports; ++i) {
      const Brim::Interface::DropCounter record(ethId(i));
      table->counterIs(record);
      // Polls once as it is built, then every 2 seconds (its own default period).
      pollers.push_back(Vorn::Counters::IntfAclDropCountersSm::IntfAclDropCountersSmIs(
          ethId(i), clock, record, table, helper));
    }
    RecordCopies copies;
    copies.add<Brim::Interface::DropCounter>(ports);
    runCycles(state, "acl/" + std::to_string(ports), ports, kTimersPerPortPoll * ports, copies,
              [&](uint64_t c) { helper->cycleIs(c); });
    for (auto& sm : pollers) sm->zatDoZombieReactors(true);
  }
}
BENCHMARK(BM_AclFamily)->Arg(64)->Arg(512)->Arg(4096)->Unit(benchmark::kMicrosecond);

void BM_VlanIntfFamily(benchmark::State& state) {
  const int intfs = static_cast<int>(state.range(0));
  SimulatedTime time;
  Tables tables;
  {
    auto table = tables.open<Interface::AllVlanIntfCounterBrim>(TableNames::kAllVlanIntfCounters);
    auto helper = PrecomputedHelper::PrecomputedHelperIs(intfs);
    auto vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    auto global = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
    const Zat::Ptr<const Zat::Clock> clock = Zat::activityManager()->config()->clock();
    std::vector<Zat::Ptr<Vorn::Counters::VlanIntfCountersSm>> pollers;
    for (int i = 0; i < intfs; ++i) {
      const Orvo::IntfId id = vlanIntfId(i);
      auto sm = Vorn::Counters::VlanIntfCountersSm::VlanIntfCountersSmIs(
          vcsd, id, kPeriod, clock, helper, global, Interface::VlanIntfConfig::VlanIntfConfigIs(id),
          Interface::VlanIntfStatus::VlanIntfStatusIs(id), table);
      sm->initializedIs(true);
      pollers.push_back(sm);
    }
    advanceOnePeriod();
    RecordCopies copies;
    copies.add<Interface::VlanIntfCounterBrim>(intfs);
    runCycles(state, "vlan-intf/" + std::to_string(intfs), intfs, kTimersPerVlanIntfPoll * intfs,
              copies, [&](uint64_t c) { helper->cycleIs(c); });
    for (auto& sm : pollers) sm->zatDoZombieReactors(true);
  }
}
BENCHMARK(BM_VlanIntfFamily)->Arg(kVlanIntfs)->Unit(benchmark::kMicrosecond);

void BM_VlanFamily(benchmark::State& state) {
  SimulatedTime time;
  Tables tables;
  {
    auto config = Bridging::Config::ConfigIs();
    for (Bridging::VlanId v = 1; v <= kVlans; ++v) config->vlanConfigIs(v);
    auto helper = PrecomputedVlanHelper::PrecomputedVlanHelperIs();
    auto sm = vlanCountersSmFactory(
        config, Bridging::VlanCountersCliReq::VlanCountersCliReqIs(),
        tables.open<Brim::Bridging::VlanCounterDir>(TableNames::kVlanCounterDir),
        tables.open<Brim::Bridging::VlanCounterSnapshotDir>(TableNames::kVlanCounterSnapshotDir),
        Pell::TimerWheel::TimerWheelIs("cycleWheel"), helper);
    sm->pollIntervalIs(kPeriod);
    sm->initializedIs(true);
    advanceOnePeriod();
    RecordCopies copies;
    copies.add<Brim::Bridging::VlanCounter>(kVlans);
    runCycles(state, "vlan", kVlans, kTimersPerVlanPass, copies,
              [&](uint64_t c) { helper->cycleIs(c); });
    sm->zatDoZombieReactors(true);
  }
}
BENCHMARK(BM_VlanFamily)->Unit(benchmark::kMicrosecond);

// --- the whole component ---

// Runs cycles with the caches emptied before each one: between two polls a second
// apart the agent's data leaves the caches, which is what a live switch pays. Only
// the cycle is timed.
template <class BeforeCycle>
void runColdCycles(benchmark::State& state, const std::string& key, size_t polls,
                   BeforeCycle&& beforeCycle) {
  // Written through before every cycle: well past the per-core caches.
  std::vector<uint64_t> evictor(4 << 20);  // 32 MiB
  uint64_t cycle = 2;
  double cycleNsTotal = 0;
  for (auto _ : state) {
    for (size_t i = 0; i < evictor.size(); i += 8) evictor[i] += cycle;
    benchmark::ClobberMemory();
    beforeCycle(cycle++);
    const double start = threadCpuNs();
    advanceOnePeriod();
    cycleNsTotal += threadCpuNs() - start;
  }
  const double perCycle = cycleNsTotal / static_cast<double>(state.iterations());
  state.counters["cycle_us"] = perCycle / 1e3;
  state.counters["per_poll_ns"] = perCycle / static_cast<double>(polls);
  const auto hot = cycleNs().find(key);
  if (hot != cycleNs().end()) state.counters["x_in_cache"] = perCycle / hot->second;
}

void wholeCycle(benchmark::State& state, bool cold) {
  const int ports = static_cast<int>(state.range(0));
  SimulatedTime time;
  Tables tables;
  {
    auto vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    auto ethConfigDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
    auto ethStatusDir = Interface::AllEthPhyIntfStatusDir::AllEthPhyIntfStatusDirIs();
    auto vlanIntfConfigDir = Interface::VlanIntfConfigDir::VlanIntfConfigDirIs();
    auto vlanIntfStatusDir = Interface::VlanIntfStatusDir::VlanIntfStatusDirIs();
    auto cli = Vorn::Counters::CliConfig::CliConfigIs();
    cli->counterPollPeriodIs(kPeriod);
    auto helper = PrecomputedHelper::PrecomputedHelperIs(std::max(ports, kVlanIntfs));
    auto vlanHelper = PrecomputedVlanHelper::PrecomputedVlanHelperIs();
    auto bridging = Bridging::Config::ConfigIs();
    for (int i = 0; i < ports; ++i) {
      ethConfigDir->intfConfigIs(ethId(i));
      ethStatusDir->intfStatusIs(ethId(i));
      vcsd->intfIs(ethId(i), true);
    }
    for (int i = 0; i < kVlanIntfs; ++i) {
      vlanIntfConfigDir->intfConfigIs(vlanIntfId(i));
      vlanIntfStatusDir->intfStatusIs(vlanIntfId(i));
      vcsd->vlanIntfIs(vlanIntfId(i), true);
    }
    for (Bridging::VlanId v = 1; v <= kVlans; ++v) bridging->vlanConfigIs(v);

    auto root = countersSmFactory(
        vcsd, ethConfigDir, ethStatusDir, cli, helper,
        Interface::GlobalIntfConfig::GlobalIntfConfigIs(), Vorn::HwCliConfig::HwCliConfigIs(),
        Qos::SliceHwStatus::Is("slice0"), Zat::Dir::DirIs("sliceHwStatus"),
        Qos::AclSliceHwStatus::Is("aclSlice0"), Zat::Dir::DirIs("aclSliceHwStatus"),
        vlanIntfConfigDir, vlanIntfStatusDir,
        tables.open<Brim::Interface::AllDropCounterDir>(TableNames::kIntfAclDropCountersDir),
        tables.open<Interface::QueueCounter::AllIntfQueueCounters>(
            TableNames::kAllIntfQueueCounters),
        tables.open<Interface::QueueCounter::AllIntfQueueCounters>(
            TableNames::kAllIntfClearQueueCounters),
        tables.open<Interface::AllEthIntfCounterBrim>(TableNames::kAllIntfCounters),
        tables.open<Interface::AllEthIntfCounterBrim>(TableNames::kAllIntfClearCounters));
    root->writerConfigIs(Interface::QueueCounter::WriterConfig::Is());
    root->ethIntfCounterWriterStatusIs(Interface::EthIntfCounterWriterStatus::Is());
    root->aclDropConfigIs(Interface::AclDropConfig::Is());
    root->allVlanIntfCountersIs(
        tables.open<Interface::AllVlanIntfCounterBrim>(TableNames::kAllVlanIntfCounters));
    root->vlanIntfCounterWriterStatusIs(Interface::VlanIntfCounterWriterStatus::Is());
    root->counterPollPeriodIs(kPeriod);
    root->initializedIs(true);

    auto vlanRoot = vlanCountersSmFactory(
        bridging, Bridging::VlanCountersCliReq::VlanCountersCliReqIs(),
        tables.open<Brim::Bridging::VlanCounterDir>(TableNames::kVlanCounterDir),
        tables.open<Brim::Bridging::VlanCounterSnapshotDir>(TableNames::kVlanCounterSnapshotDir),
        Pell::TimerWheel::TimerWheelIs("cycleWheel"), vlanHelper);
    vlanRoot->pollIntervalIs(kPeriod);
    vlanRoot->initializedIs(true);
    if (root->portCountersSm().size() != static_cast<size_t>(ports) ||
        root->intfQueueCountersSm().size() != static_cast<size_t>(ports) ||
        root->intfAclDropCountersSm().size() != static_cast<size_t>(ports) ||
        root->vlanIntfCountersSm().size() != static_cast<size_t>(kVlanIntfs)) {
      state.SkipWithError("the root did not build every poller");
    }
    advanceOnePeriod();

    const auto beforeCycle = [&](uint64_t c) {
      helper->cycleIs(c);
      vlanHelper->cycleIs(c);
    };
    const std::string key = "whole/" + std::to_string(ports);
    const size_t polls = 3 * static_cast<size_t>(ports) + kVlanIntfs + kVlans;
    if (cold) {
      runColdCycles(state, key, polls, beforeCycle);
    } else {
      RecordCopies copies;
      copies.add<Interface::EthIntfCounterBrim>(ports);
      copies.add<IntfQueueCounter>(ports);
      copies.add<Brim::Interface::DropCounter>(ports);
      copies.add<Interface::VlanIntfCounterBrim>(kVlanIntfs);
      copies.add<Brim::Bridging::VlanCounter>(kVlans);
      const size_t timers = 3 * kTimersPerPortPoll * static_cast<size_t>(ports) +
                            kTimersPerVlanIntfPoll * kVlanIntfs + kTimersPerVlanPass;
      runCycles(state, key, polls, timers, copies, beforeCycle);
    }
    vlanRoot->zatDoZombieReactors(true);
    root->hasNotificationActiveIs(false);
    root->zatDoZombieReactors(true);
  }
}
void BM_WholeCycle(benchmark::State& state) { wholeCycle(state, false); }
BENCHMARK(BM_WholeCycle)->Arg(64)->Arg(512)->Arg(4096)->Unit(benchmark::kMicrosecond);

// The 512-port cycle as a switch polling once a second meets it: caches emptied
// first. x_in_cache compares it with BM_WholeCycle/512 of the same run.
void BM_WholeCycleCold(benchmark::State& state) { wholeCycle(state, true); }
BENCHMARK(BM_WholeCycleCold)->Arg(512)->Unit(benchmark::kMicrosecond);

// What the helpers' serving alone costs in a 512-port cycle: every reading the
// pollers ask for, with no poller around it.
void BM_HelperOnly(benchmark::State& state) {
  constexpr int kPorts = 512;
  auto helper = PrecomputedHelper::PrecomputedHelperIs(kPorts);
  auto vlanHelper = PrecomputedVlanHelper::PrecomputedVlanHelperIs();
  auto port = VornTypes::IntfCounters::IntfCountersIs();
  auto vlanIntf = VornTypes::VlanIntfCounters::VlanIntfCountersIs();
  auto scratch = VornTypes::IntfQueueCounters::IntfQueueCountersIs();
  auto current = VornTypes::VlanCounters::VlanCountersIs(1);
  auto previous = VornTypes::VlanCounters::VlanCountersIs(1);
  std::vector<Orvo::IntfId> eth;
  std::vector<Orvo::IntfId> vlan;
  for (int i = 0; i < kPorts; ++i) eth.push_back(ethId(i));
  for (int i = 0; i < kVlanIntfs; ++i) vlan.push_back(vlanIntfId(i));
  uint64_t cycle = 2;
  for (auto _ : state) {
    helper->cycleIs(cycle);
    vlanHelper->cycleIs(cycle++);
    for (const auto id : eth) {
      helper->intfCountersRead(id, port, port);
      benchmark::DoNotOptimize(helper->intfQueueCountersRead(id, scratch));
      benchmark::DoNotOptimize(helper->aclDropCountRead(id));
    }
    for (const auto id : vlan) helper->vlanIntfCountersRead(id, vlanIntf, vlanIntf);
    for (Bridging::VlanId v = 1; v <= kVlans; ++v)
      vlanHelper->vlanCountersRead(v, current, previous);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_HelperOnly)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
