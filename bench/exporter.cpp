// Cost of one exporter scrape of the large switch (512 Ethernet and 2 fabric
// ports with 8 queues each, 16 VLAN interfaces, 4094 VLANs, 4 policing classes),
// next to the time to read the same records from the same tables in the same
// run. The tables are built here through the tables' writers, with every
// counter non-zero and half the ports and VLANs cleared, so that the scrape
// renders every family and its baselines.
//
// Google Benchmark reports CPU time per iteration: the exporter's CPU per
// scrape is BM_Scrape's; BM_ReadSnapshot is the reading alone.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "brim/Brim.h"
#include "readers/Snapshot.h"
#include "tables/CounterTables.h"
#include "tools/vorn-exporter/Metrics.h"
#include "tools/vorn-exporter/Service.h"

namespace {

using Interface::EthIntfCounterBrim;
using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueRates;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;

constexpr int kEthPorts = 512, kFabricPorts = 2, kQueues = 8, kVlanIntfs = 16, kVlans = 4094;

const std::string& benchNs() {
  static const std::string ns = "benchexp" + std::to_string(getpid());
  return ns;
}

void removeNamespace() {
  DIR* dir = ::opendir("/dev/shm");
  if (!dir) return;
  std::vector<std::string> names;
  while (dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name.rfind(benchNs() + ".", 0) == 0) names.push_back(name);
  }
  ::closedir(dir);
  for (const auto& n : names) ::unlink(("/dev/shm/" + n).c_str());
}

// The writers stay open for the whole run, as the agent's do.
struct LargeSwitch {
  std::unique_ptr<Brim::TableWriter<EthIntfCounterBrim>> eth, ethClear;
  std::unique_ptr<Brim::TableWriter<IntfQueueCounter>> queues, queueClear;
  std::unique_ptr<Brim::TableWriter<Brim::Interface::DropCounter>> acl;
  std::unique_ptr<Brim::TableWriter<Interface::VlanIntfCounterBrim>> vlanIntf;
  std::unique_ptr<Brim::TableWriter<Brim::Bridging::VlanCounter>> vlans, vlanSnaps;
  std::unique_ptr<Brim::TableWriter<Published::CpuPortCounter>> cpu;
  std::unique_ptr<Brim::TableWriter<Published::CoppClassCounter>> copp;

  LargeSwitch() {
    const std::string& ns = benchNs();
    using namespace TableNames;
    eth = Brim::TableWriter<EthIntfCounterBrim>::open(ns, kAllIntfCounters, 4096);
    ethClear = Brim::TableWriter<EthIntfCounterBrim>::open(ns, kAllIntfClearCounters, 4096);
    queues = Brim::TableWriter<IntfQueueCounter>::open(ns, kAllIntfQueueCounters, 4096);
    queueClear = Brim::TableWriter<IntfQueueCounter>::open(ns, kAllIntfClearQueueCounters, 4096);
    acl = Brim::TableWriter<Brim::Interface::DropCounter>::open(ns, kIntfAclDropCountersDir, 4096);
    vlanIntf =
        Brim::TableWriter<Interface::VlanIntfCounterBrim>::open(ns, kAllVlanIntfCounters, 4096);
    vlans = Brim::TableWriter<Brim::Bridging::VlanCounter>::open(ns, kVlanCounterDir, 4096);
    vlanSnaps =
        Brim::TableWriter<Brim::Bridging::VlanCounter>::open(ns, kVlanCounterSnapshotDir, 4096);
    cpu = Brim::TableWriter<Published::CpuPortCounter>::open(ns, Published::kCpuIntfCountersTable,
                                                             16);
    copp = Brim::TableWriter<Published::CoppClassCounter>::open(
        ns, Published::kCoppClassCountersTable, 256);
    std::vector<Orvo::IntfId> ports;
    for (int p = 1; p <= kEthPorts; ++p)
      ports.push_back(Orvo::IntfId("Ethernet" + std::to_string(p)));
    for (int p = 1; p <= kFabricPorts; ++p)
      ports.push_back(Orvo::IntfId("Fabric" + std::to_string(p)));
    uint64_t n = 1;
    for (Orvo::IntfId id : ports) {
      EthIntfCounterBrim r(id);
      Interface::IntfStatistics s;
      s.inOctetsIs(123456789 * n);
      s.inUcastPktsIs(98765 * n);
      s.inMulticastPktsIs(4321 * n);
      s.inBroadcastPktsIs(321 * n);
      s.outOctetsIs(223456789 * n);
      s.outUcastPktsIs(88765 * n);
      s.outMulticastPktsIs(Pell::MaybeU63(3321 * n));
      s.inErrorsIs(7 * n);
      s.statsUpdateTimeIs(1.7e9 + n);
      r.statisticsIs(s);
      Interface::EthStatistics e;
      for (size_t f = 0; f < Interface::EthStatistics::kFieldCount; ++f) e.fieldIs(f, n * (f + 1));
      r.ethStatisticsIs(e);
      r.ratesIs(Interface::IntfRates(1.23e9, 1.1e6, 2.34e9, 2.2e6));
      eth->put(r);
      // Half the ports were cleared; the others hold the zero row of a new port.
      ethClear->put(n % 2 ? r : EthIntfCounterBrim(id));
      IntfQueueCounter q(id);
      for (int i = 0; i < kQueues; ++i) {
        q.intfQueueStatIs(QueueIndex(static_cast<uint8_t>(i)),
                          IntfQueueStat(i < 4 ? 0 : 1, 1000 * n, 10 * n, 3 * n, n));
        q.intfQueueRatesIs(QueueIndex(static_cast<uint8_t>(i)), IntfQueueRates(1e8, 1e4, 1e3, 1));
      }
      q.lastUpdateTimeIs(1.7e9 + n);
      queues->put(q);
      queueClear->put(n % 2 ? q : IntfQueueCounter(id));
      acl->put(Brim::Interface::DropCounter(id, 5 * n));
      ++n;
    }
    for (int v = 1; v <= kVlanIntfs; ++v) {
      Interface::VlanIntfCounterBrim r(Orvo::IntfId("Vlan" + std::to_string(v)));
      Interface::IntfStatistics s;
      s.inOctetsIs(1000 * v);
      r.statisticsIs(s);
      vlanIntf->put(r);
    }
    for (int v = 1; v <= kVlans; ++v) {
      Brim::Bridging::VlanCounter c(static_cast<::Bridging::VlanId>(v));
      for (size_t i = 0; i < Brim::Bridging::VlanCounter::kCounterCount; ++i)
        c.counterIs(i, v * (i + 1));
      c.timestampIs(1.7e9 + v);
      vlans->put(c);
      Brim::Bridging::VlanCounter snap(static_cast<::Bridging::VlanId>(v));
      if (v % 2) snap = c;
      vlanSnaps->put(snap);
    }
    Published::CpuPortCounter c;
    c.intfId = Orvo::IntfId("Cpu");
    cpu->put(c);
    for (const char* name :
         {"copp-system-bgp", "copp-system-arp", "copp-system-lldp", "copp-system-default"}) {
      Published::CoppClassCounter k;
      k.nameHash = Published::CoppClassCounter::hashOf(name);
      std::copy(name, name + std::strlen(name), k.name);
      k.pkts = 1000;
      copp->put(k);
    }
  }
  ~LargeSwitch() { removeNamespace(); }
};

LargeSwitch& largeSwitch() {
  static LargeSwitch s;
  return s;
}

void BM_ReadSnapshot(benchmark::State& state) {
  largeSwitch();
  uint64_t records = 0;
  for (auto _ : state) {
    Readers::Snapshot s = Readers::readSnapshot(benchNs());
    records = s.recordCount();
    benchmark::DoNotOptimize(records);
  }
  state.counters["records"] = static_cast<double>(records);
}
BENCHMARK(BM_ReadSnapshot)->Unit(benchmark::kMillisecond);

void BM_RenderOnly(benchmark::State& state) {
  largeSwitch();
  Readers::Snapshot s = Readers::readSnapshot(benchNs());
  size_t bytes = 0;
  for (auto _ : state) {
    std::string out;
    out.reserve(8 << 20);
    Exporter::render(s, Exporter::ScrapeHealth{}, Exporter::RenderOptions{"copp-system-policy"},
                     Exporter::Format::prometheusText, out);
    bytes = out.size();
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_RenderOnly)->Unit(benchmark::kMillisecond);

void BM_Scrape(benchmark::State& state) {
  largeSwitch();
  Exporter::ServiceOptions options;
  options.ns = benchNs();
  Exporter::Service service(options);
  size_t bytes = 0;
  for (auto _ : state) {
    std::string text = service.metrics(Exporter::Format::prometheusText);
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_Scrape)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  removeNamespace();
  return 0;
}
