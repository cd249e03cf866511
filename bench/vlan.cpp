// Cost of one VLAN counter poll: VlanCountersSm::updateCounters over 4094 VLANs
// published in a real shared-memory table, with a helper that serves readings
// from memory, reported per VLAN next to the table's in-place write alone and
// a plain copy of the 80-byte record for scale.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "bridging/BridgingConfig.h"
#include "brim/SharedObject.h"
#include "counters/vlan/VlanCountersSm.h"
#include "pell/TimerWheel.h"
#include "tables/CounterTables.h"
#include "vorntypes/VornTypes.h"

namespace {

constexpr Bridging::VlanId kVlanCount = 4094;

// Serves a growing reading per VLAN without recording anything, so that the
// measured cost is the machine's and the table's.
class MemoryVlanHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<MemoryVlanHelper> MemoryVlanHelperIs() {
    return Zat::Ptr<MemoryVlanHelper>(new MemoryVlanHelper());
  }
  double vlanFirstPollDelay() override { return 1.0; }
  void vlanCountersRead(Bridging::VlanId vlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>& previous) override {
    for (size_t i = 0; i < VornTypes::VlanCounters::kCounterCount; ++i) {
      previous->counterIs(i, tick_ * (i + 1) + vlanId);
      current->counterIs(i, (tick_ + 1) * (i + 1) + vlanId);
    }
    ++tick_;
  }
  bool vlanCountersEnable(Bridging::VlanId) override { return true; }

 private:
  MemoryVlanHelper() = default;
  uint64_t tick_ = 0;
};

std::string scratchNamespace() { return "bench" + std::to_string(getpid()); }

void unlinkScratchTables(const std::string& ns) {
  Brim::unlinkTable(ns, TableNames::kVlanCounterDir);
  Brim::unlinkTable(ns, TableNames::kVlanCounterSnapshotDir);
}

void BM_UpdateCounters4094Vlans(benchmark::State& state) {
  const std::string ns = scratchNamespace();
  unlinkScratchTables(ns);
  {
    auto config = Bridging::Config::ConfigIs();
    for (Bridging::VlanId v = 1; v <= kVlanCount; ++v) config->vlanConfigIs(v);
    auto dir = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, TableNames::kVlanCounterDir);
    auto snapshots = Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(
        ns, TableNames::kVlanCounterSnapshotDir);
    auto wheel = Pell::TimerWheel::TimerWheelIs("benchWheel");
    auto sm = Vorn::Counters::VlanCountersSm::VlanCountersSmIs(
        config, Bridging::VlanCountersCliReq::VlanCountersCliReqIs(), dir, snapshots, wheel,
        MemoryVlanHelper::MemoryVlanHelperIs());
    sm->pollIntervalIs(0.0);  // polled by hand below, no timer
    sm->initializedIs(true);
    if (dir->size() != kVlanCount) state.SkipWithError("VLAN records missing");

    for (auto _ : state) sm->updateCounters();

    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kVlanCount);
    state.counters["perVlan"] = benchmark::Counter(
        kVlanCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  }
  unlinkScratchTables(ns);
}
BENCHMARK(BM_UpdateCounters4094Vlans)->Unit(benchmark::kMicrosecond);

// The table's part of a poll: in-place write and commit of every record.
void BM_DirectWriteCommit4094Vlans(benchmark::State& state) {
  const std::string ns = scratchNamespace();
  unlinkScratchTables(ns);
  {
    auto dir = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, TableNames::kVlanCounterDir);
    for (Bridging::VlanId v = 1; v <= kVlanCount; ++v) {
      dir->vlanCounterIs(Brim::Bridging::VlanCounter(v));
    }
    uint64_t n = 0;
    for (auto _ : state) {
      for (Bridging::VlanId v = 1; v <= kVlanCount; ++v) {
        Brim::Bridging::VlanCounter& r = dir->vlanCounterDirectWrite(v);
        r.inOctetsIs(r.inOctets() + ++n);
        dir->vlanCounterCommit(v);
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kVlanCount);
    state.counters["perVlan"] = benchmark::Counter(
        kVlanCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  }
  unlinkScratchTables(ns);
}
BENCHMARK(BM_DirectWriteCommit4094Vlans)->Unit(benchmark::kMicrosecond);

// A plain copy of every record, in cache: the floor of any publication.
void BM_MemcpyRecord4094Vlans(benchmark::State& state) {
  std::vector<Brim::Bridging::VlanCounter> source(kVlanCount);
  std::vector<Brim::Bridging::VlanCounter> target(kVlanCount);
  for (Bridging::VlanId v = 0; v < kVlanCount; ++v) source[v].vlanIdIs(v + 1);
  for (auto _ : state) {
    for (size_t i = 0; i < kVlanCount; ++i) {
      benchmark::DoNotOptimize(source.data());
      std::memcpy(&target[i], &source[i], sizeof(Brim::Bridging::VlanCounter));
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kVlanCount);
  state.counters["perVlan"] = benchmark::Counter(
      kVlanCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_MemcpyRecord4094Vlans)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
