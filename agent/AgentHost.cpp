#include "agent/AgentHost.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "agent/CommandWords.h"
#include "nimlog/BlockTimer.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Agent {

namespace {
using CountersFactory = decltype(&countersSmFactory);
using VlanFactory = decltype(&vlanCountersSmFactory);

// Finds the exported factories in the component library, as an agent does
// after loading it.
// The library is opened by its SONAME: an already loaded copy is found by that
// name without a path search (a search from inside a sanitizer's dlopen
// interceptor would not see the program's RUNPATH).
#ifndef VORN_COUNTERS_LIBRARY
#define VORN_COUNTERS_LIBRARY "libvorncounters.so"
#endif
template <class F>
F factory(const char* name) {
  void* lib = dlopen(VORN_COUNTERS_LIBRARY, RTLD_NOW | RTLD_GLOBAL);
  if (!lib) {
    throw std::runtime_error(std::string("cannot load " VORN_COUNTERS_LIBRARY ": ") + dlerror());
  }
  void* sym = dlsym(lib, name);
  if (!sym) throw std::runtime_error(std::string(VORN_COUNTERS_LIBRARY " lacks ") + name);
  return reinterpret_cast<F>(sym);
}

double cpuSeconds() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
         (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

double rssMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1048576.0);
}

double parseSeconds(const std::string& text) {
  size_t used = 0;
  double v = 0;
  try {
    v = std::stod(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used != text.size() || !(v >= 0) || v > 86400) {
    throw std::invalid_argument("'" + text + "' is not a number of seconds in 0..86400");
  }
  return v;
}
}  // namespace

AgentHost::AgentHost(std::unique_ptr<Platform> platform, const AgentConfig& config)
    : config_(config),
      platform_(std::move(platform)),
      state_(config.ns, platform_->intfCapacity(), config.pollPeriod) {
  platform_->populate(state_);
}

AgentHost::~AgentHost() { stop(); }

void AgentHost::start() {
  auto helper = platform_->countersHelper();
  auto vlanHelper = platform_->vlanHelper();
  auto makeRoot = factory<CountersFactory>("countersSmFactory");
  auto makeVlanRoot = factory<VlanFactory>("vlanCountersSmFactory");
  AgentState& s = state_;
  root_ = makeRoot(s.vcsd, s.ethConfigDir, s.ethStatusDir, s.cliCounterConfig, helper,
                   s.globalIntfConfig, s.hwCliConfig, s.sliceStatus, s.sliceDir, s.aclSliceStatus,
                   s.aclSliceDir, s.vlanIntfConfigDir, s.vlanIntfStatusDir, s.aclDropDir,
                   s.allIntfQueueCounters, s.allIntfClearQueueCounters, s.allIntfCounters,
                   s.allIntfClearCounters);
  root_->writerConfigIs(s.writerConfig);
  root_->ethIntfCounterWriterStatusIs(s.ethWriterStatus);
  root_->aclDropConfigIs(s.aclDropConfig);
  root_->allVlanIntfCountersIs(s.allVlanIntfCounters);
  root_->vlanIntfCounterWriterStatusIs(s.vlanIntfWriterStatus);
  root_->counterPollPeriodIs(config_.pollPeriod);
  root_->initializedIs(true);

  vlanRoot_ = makeVlanRoot(s.bridgingConfig, s.vlanCliReq, s.vlanCounterDir, s.vlanSnapshotDir,
                           s.wheel, vlanHelper);
  vlanRoot_->pollIntervalIs(config_.vlanPollInterval);
  vlanRoot_->initializedIs(true);

  startCopp();
  platform_->started();
  lastCpuSeconds_ = cpuSeconds();
  lastStatusTime_ = Zat::System::currentTime();
}

// The policing class machines are added by the party that owns the control-plane
// policy, through the type machine's generic attribute interface.
void AgentHost::startCopp() {
  auto typeSm = root_->coppTypeSm(Qos::MapType::mapControlPlane);
  if (!typeSm) return;
  auto pmapType = state_.sliceStatus->pmapType().find(Qos::MapType::mapControlPlane);
  if (!pmapType) return;
  auto policy =
      (*pmapType)->pmap().find(Qos::PolicyMapHwStatusKey{Qos::Direction::input, kCoppPolicyName});
  if (!policy) return;
  Zat::GenericArgs args{
      Zat::GenericValue(std::string(kCoppPolicyName)),
      Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(policy->ptr())),
      Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(platform_->countersHelper().ptr()))};
  coppClassSm_ = typeSm->genericInvoke("coppSmIs", args).asObject("coppSm");
  if (!coppClassSm_) return;
  coppClassSm_->genericInvoke("initializedIs", {Zat::GenericValue(true)});
  // The policy owner refreshes every class once per poll period by re-running
  // the class machine's walk, as the hardware status would on each change.
  coppRefresh_ = new CoppRefresh(Zat::activityManager()->config()->clock(), this);
  coppRefresh_->hasNotificationActiveIs(true);
  if (config_.pollPeriod > 0) {
    coppRefresh_->timeMinIs(Zat::System::currentTime() + config_.pollPeriod);
  }
}

void AgentHost::CoppRefresh::handleTime() {
  if (!host_->coppClassSm_ || host_->config_.pollPeriod <= 0) return;
  host_->coppClassSm_->genericInvoke("handleInitialized", {});
  timeMinIs(Zat::System::currentTime() + host_->config_.pollPeriod);
}

void AgentHost::stop() {
  if (coppRefresh_) {
    coppRefresh_->timeMinIs(Zat::Clock::kNever);
    coppRefresh_ = nullptr;
  }
  coppClassSm_ = nullptr;
  if (vlanRoot_) {
    vlanRoot_->zatDoZombieReactors(true);
    vlanRoot_ = nullptr;
  }
  if (root_) {
    root_->hasNotificationActiveIs(false);
    root_->zatDoZombieReactors(true);
    root_ = nullptr;
  }
  if (platform_) platform_->stopped();
}

std::string AgentHost::usage() const {
  std::string intf = platform_->intfCommandUsage();
  std::string other = platform_->otherCommandUsage();
  return "clear counters <intf|all>, clear vlan <id>, update <type> <intf>, " +
         (intf.empty() ? "" : intf + ", ") + "poll-period <seconds>, " +
         (other.empty() ? "" : other + ", ") + "status, dump";
}

std::string AgentHost::command(const std::string& line) {
  auto words = splitWords(line);
  if (words.empty()) return "error: empty command";
  try {
    const std::string& verb = words[0];
    if (verb == "clear") return clearCommand(words);
    if (verb == "update") return updateCommand(words);
    if (verb == "poll-period") return pollPeriodCommand(words);
    if (verb == "status") return "ok " + statusLine();
    if (verb == "dump" && words.size() == 1) {
      if (!root_) return "error: agent not started";
      std::ostringstream os;
      Zat::dumpTree(*root_, os);
      if (vlanRoot_) Zat::dumpTree(*vlanRoot_, os);
      std::string tree = os.str();
      for (auto& c : tree) {
        if (c == '\n') c = '\x1f';  // one reply line; the client turns these back into newlines
      }
      return "ok " + tree;
    }
    if (auto reply = platform_->command(words)) return *reply;
    return "error: unknown command '" + verb + "' (try: " + usage() + ")";
  } catch (const std::exception& e) {
    return std::string("error: ") + e.what();
  }
}

std::string AgentHost::clearCommand(const std::vector<std::string>& words) {
  if (words.size() == 3 && words[1] == "counters") {
    if (words[2] != "all") {
      Orvo::IntfId id = parseIntfName(words[2]);
      if (!Orvo::EthIntfId::isEthIntfId(id) || !platform_->hasEthIntf(id)) {
        return "error: no Ethernet interface " + words[2];
      }
    }
    state_.hwCliConfig->clearCountersRequestIs(Zat::String(words[2]));
    return "ok cleared " + words[2];
  }
  if (words.size() == 3 && words[1] == "vlan") {
    const std::string& t = words[2];
    if (t.empty() || t.size() > 4 || t.find_first_not_of("0123456789") != std::string::npos) {
      return "error: '" + t + "' is not a VLAN id";
    }
    int v = std::stoi(t);
    if (v < 1 || v > 4094 ||
        !state_.bridgingConfig->vlanConfig().contains(static_cast<uint16_t>(v))) {
      return "error: VLAN " + t + " is not configured";
    }
    state_.vlanCliReq->clearCountersRequestToggle(static_cast<Bridging::VlanId>(v));
    return "ok cleared vlan " + t;
  }
  return "error: usage: clear counters <intf|all> | clear vlan <id>";
}

std::string AgentHost::updateCommand(const std::vector<std::string>& words) {
  if (words.size() != 3) return "error: usage: update <counter type 0-3|6> <intf>";
  const std::string& t = words[1];
  if (t != "0" && t != "1" && t != "2" && t != "3" && t != "6") {
    return "error: counter type must be 0 (queues), 1 (port), 2 (cpu), 3 (vlan interface) or 6 "
           "(acl drops)";
  }
  parseIntfName(words[2]);
  if (!root_) return "error: agent not started";
  root_->genericInvoke("updateCounters", {Zat::GenericValue(t), Zat::GenericValue(words[2])});
  return "ok updated " + words[2];
}

std::string AgentHost::pollPeriodCommand(const std::vector<std::string>& words) {
  if (words.size() != 2) return "error: usage: poll-period <seconds>";
  double period = parseSeconds(words[1]);
  if (!root_) return "error: agent not started";
  // Port pollers follow the command-line configuration; new children take the root's.
  state_.cliCounterConfig->counterPollPeriodIs(period);
  root_->counterPollPeriodIs(period);
  return "ok poll-period " + words[1];
}

std::string AgentHost::statusLine() {
  uint64_t polls = platform_->polls();
  // Counted straight from the collection: describing the root would render every
  // attribute of every poller as text, once per status line.
  const size_t ports = root_ ? root_->portCountersSm().size() : 0;
  uint64_t handlerNs = 0;
  for (const auto& s : Nimlog::blockTimerStats()) handlerNs += s.totalNs;
  double cpu = cpuSeconds();
  double now = Zat::System::currentTime();
  // One poll cycle = one poll period's worth of the agent's CPU time.
  double elapsed = now - lastStatusTime_;
  // Too short a span (the final line right after the last one) says nothing per cycle.
  double cycles =
      config_.pollPeriod > 0 && elapsed >= config_.pollPeriod ? elapsed / config_.pollPeriod : 0;
  double cpuPerCycleMs = cycles > 0 ? (cpu - lastCpuSeconds_) * 1000.0 / cycles : 0;
  lastCpuSeconds_ = cpu;
  lastStatusTime_ = now;
  std::ostringstream os;
  os.setf(std::ios::fixed);
  os.precision(2);
  os << "interfaces " << ports << " vlans " << platform_->enabledVlans() << " polls " << polls
     << " handler-time " << handlerNs / 1e6 << " ms"
     << " cpu-per-poll-cycle " << cpuPerCycleMs << " ms rss " << rssMiB() << " MiB";
  std::string extra = platform_->statusText();
  if (!extra.empty()) os << " " << extra;
  return os.str();
}

}  // namespace Agent
