// vorn-agent: the agent host running the counters component in real time on a
// platform: `sim` (a simulated chip, the default) or `linux` (the kernel's
// network devices). Built also as vorn-sim, which is vorn-agent on the
// simulated platform; the program's name prefixes every line it prints.
#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

#include "agent/AgentHost.h"
#include "agent/CommandSocket.h"
#include "nimlog/TraceFile.h"
#include "readers/ControlClient.h"
#include "zat/Activity.h"
#include "zat/Trace.h"
#ifdef VORN_WITH_SIM
#include "agent/platforms/sim/SimPlatform.h"
#endif
#ifdef VORN_WITH_LINUX
#include "agent/platforms/linux/LinuxPlatform.h"
#endif

namespace {
volatile sig_atomic_t gStop = 0;
// The write end of a pipe the loop watches: the loop sleeps until its next
// deadline, so a stop signal must wake it.
int gWakeFd = -1;
void onSignal(int) {
  gStop = 1;
  const int saved = errno;
  if (gWakeFd >= 0) {
    // A full pipe already wakes the loop: a failed write loses nothing.
    [[maybe_unused]] const ssize_t written = ::write(gWakeFd, "s", 1);
  }
  errno = saved;
}

std::string programName(const char* argv0) {
  std::string n = argv0 ? argv0 : "vorn-agent";
  auto slash = n.rfind('/');
  return slash == std::string::npos ? n : n.substr(slash + 1);
}

std::string defaultPlatform() {
#ifdef VORN_WITH_SIM
  return "sim";
#else
  return "linux";
#endif
}
}  // namespace

int main(int argc, char** argv) {
  const std::string prog = programName(argv[0]);
  CLI::App app{prog + ": the counters component on a simulated chip or on Linux network devices"};
  std::string platformName = defaultPlatform();
  std::string ns = "vorn";
  std::string socketPath;
  std::string tracePath;
  std::string traceLevels;
  double duration = 0;
  double statusInterval = 5;
  double pollPeriod = -1;
  double vlanPollInterval = -1;
  app.add_option("--platform,-p", platformName,
                 "platform: sim or linux (default: " + defaultPlatform() + ")")
      ->check(CLI::IsMember({"sim", "linux"}));
  app.add_option("--namespace,-n", ns, "shared-memory namespace of the tables")
      ->check(Readers::namespaceProblem);
  app.add_option("--duration,-d", duration, "seconds to run (default: until interrupted)")
      ->check(CLI::Range(0.0, 1e7));
  app.add_option("--socket,-s", socketPath, "command socket path (default: /tmp/vorn-<ns>.sock)");
  app.add_option("--status-interval", statusInterval, "seconds between status lines (0: none)")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--poll-period", pollPeriod, "counter poll period in seconds")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--vlan-poll-interval", vlanPollInterval, "VLAN counter poll interval in seconds")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--nimlog", tracePath, "write the binary trace to this file");
  app.add_option("--trace", traceLevels, "text trace levels, e.g. VornCountersSm=8");

  auto* simOpts = app.add_option_group("sim", "simulated platform");
  std::string topologyFile;
  bool large = false;
  simOpts->add_option("--topology,-t", topologyFile,
                      "JSON topology file (default: embedded switch)");
  simOpts->add_flag("--large", large, "use the large switch: 512 ports x 8 queues, 4094 VLANs");
#ifdef VORN_WITH_LINUX
  auto* linuxOpts = app.add_option_group("linux", "Linux platform");
  Linux::LinuxOptions linuxOptions;
  Linux::addOptions(*linuxOpts, linuxOptions);
#endif
  if (prog == "vorn-sim") {
    // vorn-sim is the simulated switch and nothing else.
    app.get_option("--platform")->check(CLI::IsMember({"sim"}));
  }
  CLI11_PARSE(app, argc, argv);
  if (socketPath.empty()) socketPath = Readers::defaultSocketPath(ns);

  try {
    if (!traceLevels.empty()) Zat::Trace::configure(traceLevels);
    if (!tracePath.empty()) Nimlog::TraceFile::open(tracePath, 1 << 16);

    Agent::AgentConfig config;
    config.ns = ns;
    std::unique_ptr<Agent::Platform> platform;
    std::string banner;
    if (platformName == "sim") {
#ifdef VORN_WITH_SIM
      Sim::Topology topology = topologyFile.empty() ? (large ? Sim::Topology::largeSwitch()
                                                             : Sim::Topology::defaultSwitch())
                                                    : Sim::Topology::fromFile(topologyFile);
      if (pollPeriod >= 0) topology.pollPeriod = pollPeriod;
      config.pollPeriod = topology.pollPeriod;
      config.vlanPollInterval = topology.vlanPollInterval;
      banner = fmt::format("ports {} queues/port {} vlans {} poll {}s", topology.ethPorts,
                           topology.queuesPerPort, topology.vlans, topology.pollPeriod);
      platform = std::make_unique<Sim::SimPlatform>(topology);
#else
      throw std::runtime_error("this build has no simulated platform");
#endif
    } else {
#ifdef VORN_WITH_LINUX
      if (!topologyFile.empty() || large) {
        throw std::runtime_error("--topology and --large are options of the simulated platform");
      }
      if (pollPeriod >= 0) config.pollPeriod = pollPeriod;
      banner = fmt::format("platform linux poll {}s", config.pollPeriod);
      linuxOptions.pollPeriod = config.pollPeriod;
      platform = Linux::makePlatform(linuxOptions);
#else
      throw std::runtime_error("this build has no Linux platform");
#endif
    }
    if (vlanPollInterval >= 0) config.vlanPollInterval = vlanPollInterval;

    int wakePipe[2];
    if (::pipe2(wakePipe, O_CLOEXEC | O_NONBLOCK) != 0) {
      throw std::runtime_error(std::string("cannot make the stop pipe: ") + std::strerror(errno));
    }
    gWakeFd = wakePipe[1];
    Zat::activityManager()->fdIs(wakePipe[0], [fd = wakePipe[0]] {
      char drained[16];
      while (::read(fd, drained, sizeof drained) > 0) {
      }
      Zat::activityManager()->stop();
    });
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGPIPE, SIG_IGN);

    auto agent = std::make_unique<Agent::AgentHost>(std::move(platform), config);
    agent->start();
    Agent::CommandSocket socket(socketPath,
                                [&](const std::string& line) { return agent->command(line); });
    fmt::print("{}: namespace {} {} socket {}\n", prog, ns, banner, socketPath);
    std::fflush(stdout);

    auto* am = Zat::activityManager();
    double start = am->now();
    double nextStatus = start + statusInterval;
    while (!gStop) {
      double now = am->now();
      if (duration > 0 && now - start >= duration) break;
      // The loop runs until the next status line or the end; a signal stops it.
      double slice = Zat::Clock::kNever;
      if (duration > 0) slice = std::min(slice, start + duration - now);
      if (statusInterval > 0) slice = std::min(slice, nextStatus - now);
      am->runFor(std::max(slice, 0.001));
      if (statusInterval > 0 && am->now() >= nextStatus) {
        fmt::print("{}: {}\n", prog, agent->statusLine());
        std::fflush(stdout);
        nextStatus += statusInterval;
      }
    }
    fmt::print("{}: stopping; {}\n", prog, agent->statusLine());
    agent->stop();
    Nimlog::TraceFile::close();
    return 0;
  } catch (const std::exception& e) {
    fmt::print(stderr, "{}: error: {}\n", prog, e.what());
    return 1;
  }
}
