// vorn-sim: a simulated switch agent running the counters component in real time.
#include <fmt/core.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "nimlog/TraceFile.h"
#include "sim/CommandSocket.h"
#include "sim/SwitchAgent.h"
#include "zat/Activity.h"
#include "zat/Trace.h"

namespace {
volatile sig_atomic_t gStop = 0;
void onSignal(int) { gStop = 1; }
}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vorn-sim: a simulated switch running the counters component"};
  std::string ns = "vorn";
  std::string topologyFile;
  std::string socketPath;
  std::string tracePath;
  std::string traceLevels;
  double duration = 0;
  double statusInterval = 5;
  double pollPeriod = -1;
  bool large = false;
  app.add_option("--namespace,-n", ns, "shared-memory namespace of the tables")
      ->check([](const std::string& s) {
        if (s.empty() || s.size() > 64 ||
            s.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") != std::string::npos) {
          return std::string("namespace must be 1-64 letters, digits, '_' or '-'");
        }
        return std::string();
      });
  app.add_option("--topology,-t", topologyFile, "JSON topology file (default: embedded switch)");
  app.add_flag("--large", large, "use the large switch: 512 ports x 8 queues, 4094 VLANs");
  app.add_option("--duration,-d", duration, "seconds to run (default: until interrupted)")
      ->check(CLI::Range(0.0, 1e7));
  app.add_option("--socket,-s", socketPath, "command socket path (default: /tmp/vorn-<ns>.sock)");
  app.add_option("--status-interval", statusInterval, "seconds between status lines (0: none)")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--poll-period", pollPeriod, "counter poll period in seconds")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--nimlog", tracePath, "write the binary trace to this file");
  app.add_option("--trace", traceLevels, "text trace levels, e.g. VornCountersSm=8");
  CLI11_PARSE(app, argc, argv);
  if (socketPath.empty()) socketPath = "/tmp/vorn-" + ns + ".sock";

  try {
    Sim::Topology topology = topologyFile.empty() ? (large ? Sim::Topology::largeSwitch()
                                                           : Sim::Topology::defaultSwitch())
                                                  : Sim::Topology::fromFile(topologyFile);
    if (pollPeriod >= 0) topology.pollPeriod = pollPeriod;
    if (!traceLevels.empty()) Zat::Trace::configure(traceLevels);
    if (!tracePath.empty()) Nimlog::TraceFile::open(tracePath, 1 << 16);

    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGPIPE, SIG_IGN);

    auto agent = std::make_unique<Sim::SwitchAgent>(topology, ns);
    agent->start();
    Sim::CommandSocket socket(socketPath,
                              [&](const std::string& line) { return agent->command(line); });
    fmt::print("vorn-sim: namespace {} ports {} queues/port {} vlans {} poll {}s socket {}\n", ns,
               topology.ethPorts, topology.queuesPerPort, topology.vlans, topology.pollPeriod,
               socketPath);
    std::fflush(stdout);

    auto* am = Zat::activityManager();
    double start = am->now();
    double nextStatus = start + statusInterval;
    while (!gStop) {
      double now = am->now();
      if (duration > 0 && now - start >= duration) break;
      double slice = 0.2;
      if (duration > 0) slice = std::min(slice, start + duration - now);
      am->runFor(std::max(slice, 0.001));
      if (statusInterval > 0 && am->now() >= nextStatus) {
        fmt::print("vorn-sim: {}\n", agent->statusLine());
        std::fflush(stdout);
        nextStatus += statusInterval;
      }
    }
    fmt::print("vorn-sim: stopping; {}\n", agent->statusLine());
    agent->stop();
    Nimlog::TraceFile::close();
    return 0;
  } catch (const std::exception& e) {
    fmt::print(stderr, "vorn-sim: error: {}\n", e.what());
    return 1;
  }
}
