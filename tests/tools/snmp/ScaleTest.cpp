// The cost of a full bulk walk of ifXTable on the large simulated switch (512
// Ethernet ports): the subagent's CPU per walk, next to the time this process
// takes to read the same records directly. A measurement, not a check: it is
// disabled by default and run by hand with --gtest_also_run_disabled_tests.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <sstream>

#include "SnmpFixture.h"
#include "readers/PublishedTables.h"
#include "tools/vorn-snmp-subagent/InterfaceSample.h"

namespace SnmpIt {
namespace {

// CPU time of `pid` in seconds, from the scheduler's nanosecond account.
double cpuSeconds(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/schedstat");
  double ns = 0;
  in >> ns;
  return ns / 1e9;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

using ScaleTest = SnmpTest;

TEST_F(ScaleTest, DISABLED_LargeSwitchBulkWalkOfIfXTableCpu) {
  Sim::Topology large = Sim::Topology::largeSwitch();
  std::ofstream(topologyPath) << nlohmann::json{
      {"ethPorts", large.ethPorts},
      {"queuesPerPort", large.queuesPerPort},
      {"vlans", large.vlans},
      {"vlanIntfs", large.vlanIntfs}}.dump();
  // The agent at its own 1 s poll period, as the large switch runs.
  agentPid = spawn(VORN_SIM_BINARY,
                   {"-n", ns, "--socket", socketPath, "-t", topologyPath, "--status-interval", "0"},
                   logPath, dir + "/state");
  ASSERT_GT(agentPid, 0);
  size_t served = 0;
  ASSERT_TRUE(SimIt::waitUntil(
      [&] {
        served = servedInTables();
        return served >= 512 + 16;
      },
      30));
  ASSERT_NO_FATAL_FAILURE(startSnmpd());
  ASSERT_NO_FATAL_FAILURE(startSubagent({"--max-age", "1"}));
  ASSERT_TRUE(SimIt::waitUntil(
      [&] {
        served = servedInTables();
        return ifNumber() == served;
      },
      15))
      << "ifNumber " << ifNumber().value_or(0) << ", tables " << servedInTables();
  std::cout << "served interfaces: " << served << "\n";

  for (int repetitions : {10, 50}) {
    const int kWalks = 5;
    size_t cells = 0;
    double cpu0 = cpuSeconds(subagentPid), t0 = now();
    for (int i = 0; i < kWalks; ++i) {
      cells = snmp("snmpbulkwalk", {"-Cr" + std::to_string(repetitions), kIfXTable}).size() - 1;
    }
    double cpu = (cpuSeconds(subagentPid) - cpu0) / kWalks, wall = (now() - t0) / kWalks;
    std::cout << "bulk walk of ifXTable, -Cr" << repetitions << ": " << cells << " cells, "
              << "subagent CPU " << cpu * 1e3 << " ms per walk ("
              << cpu * 1e6 / static_cast<double>(cells) << " us per cell), wall " << wall * 1e3
              << " ms per walk\n";
  }

  // The table read row by row, every column in one GETBULK, as table-oriented
  // pollers read it: the master then forwards one AgentX request per
  // repetition carrying all 19 columns.
  {
    const int kWalks = 5, kRepetitions = 25;
    size_t cells = 0;
    double cpu0 = cpuSeconds(subagentPid), t0 = now();
    for (int i = 0; i < kWalks; ++i) {
      cells = 0;
      uint64_t after = 0;
      for (bool more = true; more;) {
        std::vector<std::string> args = {"-Cn0", "-Cr" + std::to_string(kRepetitions)};
        for (int column = 1; column <= 19; ++column) {
          args.push_back(std::string(kIfXEntry) + "." + std::to_string(column) +
                         (after ? "." + std::to_string(after) : ""));
        }
        Varbinds vbs = snmp("snmpbulkget", args);
        more = false;
        const std::string names = std::string(kIfXEntry) + ".1.";
        for (const auto& [oid, value] : vbs) {
          if (oid.rfind(std::string(kIfXEntry) + ".", 0) != 0) continue;
          ++cells;
          if (oid.rfind(names, 0) == 0) {
            after = std::stoull(oid.substr(names.size()));
            more = true;
          }
        }
      }
    }
    double cpu = (cpuSeconds(subagentPid) - cpu0) / kWalks, wall = (now() - t0) / kWalks;
    std::cout << "row-wise GETBULK walk of ifXTable (19 columns, -Cr" << kRepetitions << "): about "
              << cells << " cells, subagent CPU " << cpu * 1e3 << " ms per walk, wall "
              << wall * 1e3 << " ms per walk\n";
  }

  // The same records read directly, as the subagent's sampler reads them and
  // as a plain walk of the three tables.
  Snmp::Sampler sampler(ns, [](const std::string&) {});
  sampler.refresh(0, 0);
  const int kReads = 50;
  double t0 = now();
  for (int i = 0; i < kReads; ++i) sampler.refresh(static_cast<uint32_t>(i + 1), 0);
  double sampleTime = (now() - t0) / kReads;
  auto eth =
      Brim::TableReader<Interface::EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters);
  auto vlan =
      Brim::TableReader<Interface::VlanIntfCounterBrim>::open(ns, TableNames::kAllVlanIntfCounters);
  auto cpu =
      Brim::TableReader<Published::CpuPortCounter>::open(ns, Published::kCpuIntfCountersTable);
  uint64_t sum = 0;
  t0 = now();
  for (int i = 0; i < kReads; ++i) {
    eth->forEach([&](const auto& r) { sum += r.statistics().inOctets(); });
    vlan->forEach([&](const auto& r) { sum += r.statistics().inOctets(); });
    cpu->forEach([&](const auto& r) { sum += r.statistics.inOctets(); });
  }
  double readTime = (now() - t0) / kReads;
  std::cout << "direct read of the same " << sampler.current().rows.size()
            << " records: " << readTime * 1e3
            << " ms; the subagent's sample of them: " << sampleTime * 1e3 << " ms (checksum "
            << (sum & 0xFF) << ")\n";
}

}  // namespace
}  // namespace SnmpIt
