#include "AgentFixture.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "readers/ControlClient.h"
#include "support/ShmNamespace.h"

#if !defined(VORN_SIM_BINARY) || !defined(VORNCTL_BINARY)
#error "the integration tests need VORN_SIM_BINARY and VORNCTL_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace SimIt {

namespace {

std::atomic<unsigned> gNextTest{0};

using VornTest::argvOf;
using VornTest::killAndReap;
using VornTest::waitFor;

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void sleepFor(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

Sim::Topology AgentTest::topology() {
  Sim::Topology t;
  t.ethPorts = 4;
  t.queuesPerPort = 4;
  t.fabricPorts = 0;
  t.vlanIntfs = 2;
  t.vlans = 4;
  t.coppClasses = {"copp-system-bgp"};
  t.pollPeriod = kPollPeriod;
  t.vlanPollInterval = kPollPeriod;
  t.firstPollDelay = kPollPeriod;
  return t;
}

pid_t spawnLogged(const std::string& binary, const std::vector<std::string>& args,
                  const std::string& logPath,
                  const std::vector<std::pair<std::string, std::string>>& env) {
  std::vector<std::string> storage{binary};
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : storage) argv.push_back(a.data());
  argv.push_back(nullptr);
  int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (log < 0) return -1;
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    for (const auto& [name, value] : env) ::setenv(name.c_str(), value.c_str(), 1);
    ::execv(binary.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(log);
  return pid;
}

void writeTopologyFile(const std::string& path, const Sim::Topology& t) {
  std::ofstream(path) << nlohmann::json{
      {"ethPorts", t.ethPorts},
      {"queuesPerPort", t.queuesPerPort},
      {"fabricPorts", t.fabricPorts},
      {"vlanIntfs", t.vlanIntfs},
      {"vlans", t.vlans},
      {"coppClasses", t.coppClasses},
      {"portSpeedBps", t.portSpeedBps},
      {"firstPollDelay", t.firstPollDelay},
      {"vlanPollInterval",
       t.vlanPollInterval}}.dump();
}

void AgentTest::SetUp() {
  ns = "it" + std::to_string(::getpid()) + "_" + std::to_string(gNextTest++);
  socketPath = "/tmp/vorn-" + ns + ".sock";
  topologyPath = "/tmp/vorn-" + ns + ".json";
  logPath = "/tmp/vorn-" + ns + ".log";
  Sim::Topology t = topology();
  writeTopologyFile(topologyPath, t);
  expect = std::make_unique<Sim::SimChip>(t);
  ports = expect->ethPorts();
}

void AgentTest::TearDown() {
  if (agentPid > 0) {
    killAndReap(agentPid);
    agentPid = -1;
  }
  if (HasFailure()) {
    std::cerr << "--- agent log " << logPath << " ---\n" << fileText(logPath) << "--- end ---\n";
  }
  VornTest::removeNamespaceTables(ns);
  ::unlink(socketPath.c_str());
  ::unlink(topologyPath.c_str());
  ::unlink(logPath.c_str());
}

void AgentTest::startAgent() {
  ASSERT_LT(agentPid, 0) << "an agent is already running";
  std::vector<std::string> storage;
  std::vector<char*> argv =
      argvOf(VORN_SIM_BINARY,
             {"-n", ns, "--socket", socketPath, "--poll-period", std::to_string(kPollPeriod), "-t",
              topologyPath, "--status-interval", "0"},
             storage);
  int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  ASSERT_GE(log, 0) << "cannot open " << logPath;
  pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(log, STDOUT_FILENO);
    ::dup2(log, STDERR_FILENO);
    if (descriptorLimit > 0) {
      rlimit lim{descriptorLimit, descriptorLimit};
      ::setrlimit(RLIMIT_NOFILE, &lim);
    }
    ::execv(VORN_SIM_BINARY, argv.data());
    ::_exit(127);
  }
  ::close(log);
  ASSERT_GT(pid, 0) << "fork: " << std::strerror(errno);
  agentPid = pid;
  bool ready = waitUntil(
      [&] {
        if (!agentRunning()) return true;  // reported below
        try {
          return Readers::sendCommand(socketPath, "status", 1).rfind("ok ", 0) == 0;
        } catch (const std::exception&) {
          return false;
        }
      },
      10);
  ASSERT_TRUE(agentRunning()) << "the agent exited at start-up";
  ASSERT_TRUE(ready) << "the agent's socket did not answer within 10 s";
}

bool AgentTest::agentRunning() {
  if (agentPid <= 0) return false;
  int status = 0;
  if (::waitpid(agentPid, &status, WNOHANG) == agentPid) {
    agentPid = -1;
    return false;
  }
  return true;
}

std::optional<int> AgentTest::stopAgent(int sig, double seconds) {
  if (agentPid <= 0) return std::nullopt;
  ::kill(agentPid, sig);
  std::optional<int> status = waitFor(agentPid, seconds);
  if (!status) killAndReap(agentPid);
  agentPid = -1;
  return status;
}

std::string AgentTest::command(const std::string& line) {
  return Readers::sendCommand(socketPath, line, 5);
}

ProcessResult AgentTest::ctl(const std::vector<std::string>& args) {
  std::vector<std::string> all = {"-n", ns, "-s", socketPath};
  all.insert(all.end(), args.begin(), args.end());
  return runProcess(VORNCTL_BINARY, all);
}

nlohmann::json AgentTest::ctlJson(const std::vector<std::string>& showWords) {
  std::vector<std::string> args = {"--json", "show"};
  args.insert(args.end(), showWords.begin(), showWords.end());
  ProcessResult r = ctl(args);
  EXPECT_TRUE(r.exitedWith(0)) << "vornctl failed: " << r.err;
  try {
    return nlohmann::json::parse(r.out);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "vornctl printed no JSON: " << e.what() << "\n" << r.out;
    return nlohmann::json();
  }
}

bool AgentTest::waitForPortPolls(double after, double seconds) {
  return waitUntil(
      [&] {
        auto rows = rowsOf<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
        for (Orvo::IntfId id : ports) {
          auto it = rows.find(id);
          if (it == rows.end() || !(it->second.statistics().statsUpdateTime() > after)) {
            return false;
          }
        }
        return true;
      },
      seconds);
}

std::array<double, 8> AgentTest::vlanRates(uint16_t vlan) const {
  // The chip is linear in its active time: the count over a long span gives
  // the rate to better than a millionth.
  Sim::SimChip chip(topology());
  constexpr double kSpan = 1e6;
  chip.advanceTo(0);
  chip.advanceTo(kSpan);
  auto counts = chip.vlanReading(vlan);
  std::array<double, 8> rates{};
  for (size_t i = 0; i < 8; ++i) rates[i] = static_cast<double>(counts[i]) / kSpan;
  return rates;
}

Interface::EthIntfCounterBrim AgentTest::portRow(const std::string& port) const {
  auto row =
      rowOf<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters, Orvo::IntfId(port));
  EXPECT_TRUE(row.has_value()) << "no row for " << port;
  return row.value_or(Interface::EthIntfCounterBrim(Orvo::IntfId(port)));
}

}  // namespace SimIt
