// Fuzzes the agent's control commands: every line a client could send through
// the control socket, run against a real agent host on the simulated platform
// (real tables in shared memory, simulated time). A reply must be one line,
// "ok ..." or "error: ...", and nothing may crash.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "agent/AgentHost.h"
#include "agent/platforms/sim/SimPlatform.h"
#include "zat/Activity.h"

namespace {

std::string gNs;

void removeTables() {
  std::string cmd = "rm -f /dev/shm/" + gNs + ".*";
  if (std::system(cmd.c_str()) != 0) std::fprintf(stderr, "cannot remove %s tables\n", gNs.c_str());
}

Agent::AgentHost& host() {
  static std::unique_ptr<Agent::AgentHost> h = [] {
    gNs = "fuzzctl" + std::to_string(::getpid());
    std::atexit(removeTables);
    Zat::activityManager()->simulatedTimeIs(true, 1000.0);
    Sim::Topology t;
    t.ethPorts = 4;
    t.queuesPerPort = 2;
    t.vlanIntfs = 2;
    t.vlans = 4;
    t.pollPeriod = 0.1;
    t.vlanPollInterval = 0.1;
    t.firstPollDelay = 0.1;
    Agent::AgentConfig c;
    c.ns = gNs;
    c.pollPeriod = t.pollPeriod;
    c.vlanPollInterval = t.vlanPollInterval;
    auto agent = std::make_unique<Agent::AgentHost>(std::make_unique<Sim::SimPlatform>(t), c);
    agent->start();
    return agent;
  }();
  return *h;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Agent::AgentHost& agent = host();
  std::string input(reinterpret_cast<const char*>(data), size);
  // The socket hands the handler one line at a time, without its newline.
  size_t start = 0;
  while (start <= input.size()) {
    size_t nl = input.find('\n', start);
    std::string line =
        input.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
    if (line.size() <= 4096) {
      std::string reply = agent.command(line);
      if (reply.find('\n') != std::string::npos ||
          (reply.rfind("ok", 0) != 0 && reply.rfind("error: ", 0) != 0)) {
        std::fprintf(stderr, "bad reply to '%s': '%s'\n", line.c_str(), reply.c_str());
        std::abort();
      }
    }
    if (nl == std::string::npos) break;
    start = nl + 1;
  }
  // Let the pollers run on whatever the commands changed.
  Zat::activityManager()->advanceBy(0.05);
  return 0;
}
