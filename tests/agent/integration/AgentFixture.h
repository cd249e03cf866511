// Integration fixture: runs the simulated switch agent (vorn-sim) as a real
// process on the real clock, and reads what it publishes from this process,
// through the shared-memory tables and through the reader command (vornctl).
//
// Each test gets a namespace, command socket, topology file and log of its own
// ("it<pid>_<n>"); TearDown kills an agent still running (by its pid only) and
// removes the namespace's tables, the socket and the files. Every wait is
// bounded. The tests know the traffic from a Sim::SimChip built from the same
// topology: the chip is seeded, so both sides agree on every port's rates.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <array>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "agent/platforms/sim/SimChip.h"
#include "agent/platforms/sim/Topology.h"
#include "brim/Brim.h"
#include "support/RunProcess.h"
#include "tables/CounterTables.h"

namespace SimIt {

// The poll period the agent runs with, and the scheduling slack allowed on top
// of it when the test compares the published counters with its own clock (the
// machine may be busy with other work).
inline constexpr double kPollPeriod = 0.2;
inline constexpr double kSlack = 0.25;

// What a finished child process left.
using VornTest::ProcessResult;

// Runs a program to completion, collecting its output.
using VornTest::runProcess;

// Starts `binary` with `args` in the background, its output appended to
// `logPath`, with the variables of `env` set; the child's pid, or -1 when the
// log cannot be opened.
pid_t spawnLogged(const std::string& binary, const std::vector<std::string>& args,
                  const std::string& logPath,
                  const std::vector<std::pair<std::string, std::string>>& env = {});

// Writes `t` as a topology file the agent reads with -t.
void writeTopologyFile(const std::string& path, const Sim::Topology& t);

// Seconds since the epoch, on the wall clock the agent's timestamps follow.
double wallNow();
// Sleeps for `seconds` of real time.
void sleepFor(double seconds);

// Polls `ready` every 10 ms until it holds or `seconds` have passed.
template <class Pred>
bool waitUntil(Pred ready, double seconds) {
  double end = wallNow() + seconds;
  for (;;) {
    if (ready()) return true;
    if (wallNow() >= end) return false;
    sleepFor(0.01);
  }
}

// Every record of table `table` of namespace `ns`, by key. An absent table
// reads as empty.
template <class Record>
std::map<typename Record::Key, Record> rowsOf(const std::string& ns, const std::string& table) {
  std::map<typename Record::Key, Record> out;
  std::unique_ptr<Brim::TableReader<Record>> reader;
  try {
    reader = Brim::TableReader<Record>::open(ns, table);
  } catch (const Brim::TableMissingException&) {
    return out;
  }
  reader->forEach([&](const Record& r) { out.emplace(r.key(), r); });
  return out;
}

// One record, or nullopt.
template <class Record>
std::optional<Record> rowOf(const std::string& ns, const std::string& table,
                            const typename Record::Key& key) {
  auto rows = rowsOf<Record>(ns, table);
  auto it = rows.find(key);
  if (it == rows.end()) return std::nullopt;
  return it->second;
}

class AgentTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The small switch every test runs: 4 Ethernet ports with 4 queues, 2 VLAN
  // interfaces, 4 VLANs, one policing class, polls every kPollPeriod.
  static Sim::Topology topology();

  // Starts the agent and waits (at most 10 s) until its socket answers.
  void startAgent();
  bool agentRunning();
  // Sends `sig` to the agent and waits for it (at most `seconds`); nullopt when
  // it did not exit in time (it is then killed). Otherwise its wait status.
  std::optional<int> stopAgent(int sig, double seconds = 5);

  // One command through the agent's socket; the one-line reply.
  std::string command(const std::string& line);
  // vornctl with this test's namespace and socket, then `args`.
  ProcessResult ctl(const std::vector<std::string>& args);
  // vornctl ... --json show <words>; the parsed document (fails the test when
  // the command fails).
  nlohmann::json ctlJson(const std::vector<std::string>& showWords);

  // Waits (at most `seconds`) until every Ethernet port's published statistics
  // timestamp is later than `after`: each was polled since then.
  bool waitForPortPolls(double after = 0, double seconds = 5);

  // Rates of the VLAN's eight counters, per second, from the test's chip.
  std::array<double, 8> vlanRates(uint16_t vlan) const;

  Interface::EthIntfCounterBrim portRow(const std::string& port) const;

  std::string ns, socketPath, topologyPath, logPath;
  // When non-zero, the agent starts with this many file descriptors at most.
  rlim_t descriptorLimit = 0;
  pid_t agentPid = -1;
  std::unique_ptr<Sim::SimChip> expect;  // the agent's chip, as far as traffic goes
  std::vector<Orvo::IntfId> ports;       // Ethernet1..4
};

}  // namespace SimIt
