// Integration fixture for the Linux platform: a network namespace of the
// test's own with veth pairs in it, the agent running inside it as a real
// process (`vorn-agent --platform linux`), real UDP traffic sent from sockets
// opened inside the namespace, and the kernel's own statistics read from
// sysfs inside the namespace for comparison.
//
// Every test gets a unique namespace, table namespace, socket and log
// ("vlt<pid>_<n>"); TearDown kills the agent (by its pid), deletes the
// network namespace (and with it every device) and removes the tables. Every
// wait is bounded. The tests need root; without it they say why and skip.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "brim/Brim.h"
#include "orvo/IntfId.h"
#include "readers/PublishedTables.h"
#include "tables/CounterTables.h"

namespace LinuxIt {

inline constexpr double kPollPeriod = 0.2;

struct Proc {
  bool finished = false;
  int status = 0;
  std::string out;
  bool ok() const;
};
// Runs argv (argv[0] looked up on PATH) to completion, at most `timeout` s;
// `out` holds its standard output followed by its standard error.
Proc run(const std::vector<std::string>& argv, double timeout = 10);

double wallNow();
void sleepFor(double seconds);
template <class Pred>
bool waitUntil(Pred ready, double seconds) {
  double end = wallNow() + seconds;
  for (;;) {
    if (ready()) return true;
    if (wallNow() >= end) return false;
    sleepFor(0.02);
  }
}

template <class Record>
std::map<typename Record::Key, Record> rowsOf(const std::string& ns, const std::string& table) {
  std::map<typename Record::Key, Record> out;
  try {
    auto reader = Brim::TableReader<Record>::open(ns, table);
    reader->forEach([&](const Record& r) { out.emplace(r.key(), r); });
  } catch (const Brim::TableMissingException&) {
  }
  return out;
}

// The kernel's statistics files of one device, by file name (rx_packets, ...).
using KernelStats = std::map<std::string, uint64_t>;

class LinuxAgentTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // `ip -n <netns> args...`; fails the test when it fails.
  void ip(const std::vector<std::string>& args);
  // A veth pair va<p>/vb<p> with `queues` transmit queues each (an mq root on
  // va<p> when `mq`), both up, addressed so that UDP sent on either side
  // leaves through it and arrives at the peer (a permanent neighbour entry for
  // an address nobody holds: the peer receives and drops at the IP layer).
  void addPair(int p, int queues = 1, bool mq = false);
  void delPair(int p);
  // `count` UDP datagrams of `payload` bytes out of `dev` (va<p> or vb<p>),
  // from `flows` source ports in turn; returns how many were sent.
  int send(const std::string& dev, int count, size_t payload = 200, int flows = 1);
  KernelStats sysfs(const std::string& dev);

  void startAgent(const std::vector<std::string>& extra = {});
  // Sends `sig` and waits for the agent; true when it exited within 5 s.
  bool stopAgent(int sig);
  std::string command(const std::string& line);
  std::string log() const;

  // The id the agent gave kernel name `dev`, or nullopt.
  std::optional<Orvo::IntfId> idOf(const std::string& dev);
  std::optional<Published::IntfNameRecord> nameRecord(const std::string& dev);
  std::optional<Interface::EthIntfCounterBrim> row(const std::string& dev);
  // Waits until every device in `devs` has a published row polled after `t`.
  bool polledAfter(const std::vector<std::string>& devs, double t, double seconds = 5);

  std::string netns, ns, socketPath, logPath;
  pid_t agentPid = -1;
};

}  // namespace LinuxIt
