#include "sim/SwitchAgent.h"

#include <dlfcn.h>
#include <sys/resource.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "nimlog/BlockTimer.h"
#include "zat/Activity.h"
#include "zat/Generic.h"

namespace Sim {

namespace {
using CountersFactory = decltype(&countersSmFactory);
using VlanFactory = decltype(&vlanCountersSmFactory);

// Finds the exported factories in the component library, as an agent does
// after loading it.
template <class F>
F factory(const char* name) {
  void* lib = dlopen("libvorncounters.so", RTLD_NOW | RTLD_GLOBAL);
  if (!lib) throw std::runtime_error(std::string("cannot load libvorncounters.so: ") + dlerror());
  void* sym = dlsym(lib, name);
  if (!sym) throw std::runtime_error(std::string("libvorncounters.so lacks ") + name);
  return reinterpret_cast<F>(sym);
}

std::vector<std::string> split(const std::string& line) {
  std::istringstream is(line);
  std::vector<std::string> words;
  for (std::string w; is >> w;) words.push_back(w);
  return words;
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

struct ChildCounter : Zat::Describer {
  std::string collection;
  size_t count = 0;
  void attribute(std::string_view, const std::string&) override {}
  void child(std::string_view c, const std::string&, const Zat::PtrInterface*) override {
    if (c == collection) ++count;
  }
};

Orvo::IntfId parseIntf(const std::string& name) {
  try {
    return Orvo::IntfId(name);
  } catch (const std::exception& e) {
    throw std::invalid_argument(e.what());
  }
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

SwitchAgent::SwitchAgent(const Topology& topology, const std::string& ns)
    : topology_(topology), ns_(ns), chip_(topology) {
  uint32_t intfCapacity =
      std::max<uint32_t>(Brim::kDefaultIntfCapacity, topology.ethPorts + topology.fabricPorts + 64);
  using namespace TableNames;
  allIntfCounters_ =
      Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(ns, kAllIntfCounters, intfCapacity);
  allIntfClearCounters_ = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(
      ns, kAllIntfClearCounters, intfCapacity);
  allIntfQueueCounters_ = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      ns, kAllIntfQueueCounters, intfCapacity);
  allIntfClearQueueCounters_ =
      Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
          ns, kAllIntfClearQueueCounters, intfCapacity);
  aclDropDir_ = Brim::Interface::AllDropCounterDir::AllDropCounterDirIs(ns, kIntfAclDropCountersDir,
                                                                        intfCapacity);
  allVlanIntfCounters_ = Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(
      ns, kAllVlanIntfCounters, intfCapacity);
  vlanCounterDir_ = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, kVlanCounterDir);
  vlanSnapshotDir_ =
      Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(ns, kVlanCounterSnapshotDir);

  // The chip has been counting since it was powered on, possibly under an
  // earlier agent of this namespace that has since stopped or been killed.
  chipState_ = Brim::TableWriter<SimChipState>::open(ns, kSimChipStateTable, 4);
  double now = Zat::System::currentTime();
  std::optional<SimChipState> state = chipState_->find(SimChipState::kKey);
  if (!state || !(state->powerOnTime <= now)) {
    state = SimChipState();
    state->powerOnTime = now;
    chipState_->put(*state);
  }
  chip_.advanceTo(state->powerOnTime);

  vcsd_ = Vorn::VornCommonSmData::VornCommonSmDataIs();
  ethConfigDir_ = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
  ethStatusDir_ = Interface::AllEthPhyIntfStatusDir::AllEthPhyIntfStatusDirIs();
  vlanIntfConfigDir_ = Interface::VlanIntfConfigDir::VlanIntfConfigDirIs();
  vlanIntfStatusDir_ = Interface::VlanIntfStatusDir::VlanIntfStatusDirIs();
  cliCounterConfig_ = Vorn::Counters::CliConfig::CliConfigIs();
  cliCounterConfig_->counterPollPeriodIs(topology.pollPeriod);
  hwCliConfig_ = Vorn::HwCliConfig::HwCliConfigIs();
  globalIntfConfig_ = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
  // Short load interval so that rates settle within a short demonstration.
  globalIntfConfig_->loadIntervalIs(Interface::LoadInterval(5.0));
  sliceStatus_ = Qos::SliceHwStatus::Is("slice0");
  sliceDir_ = Zat::Dir::DirIs("sliceHwStatus");
  aclSliceStatus_ = Qos::AclSliceHwStatus::Is("aclSlice0");
  aclSliceDir_ = Zat::Dir::DirIs("aclSliceHwStatus");
  writerConfig_ = Interface::QueueCounter::WriterConfig::Is();
  ethWriterStatus_ = Interface::EthIntfCounterWriterStatus::Is();
  aclDropConfig_ = Interface::AclDropConfig::Is();
  vlanIntfWriterStatus_ = Interface::VlanIntfCounterWriterStatus::Is();
  bridgingConfig_ = Bridging::Config::ConfigIs();
  vlanCliReq_ = Bridging::VlanCountersCliReq::VlanCountersCliReqIs();
  wheel_ = Pell::TimerWheel::TimerWheelIs("vlanCountersWheel");

  for (Orvo::IntfId id : chip_.ethPorts()) addEthIntf(id);
  for (Orvo::IntfId id : chip_.fabricPorts()) addEthIntf(id);
  for (Orvo::IntfId id : chip_.vlanIntfs()) {
    vlanIntfConfigDir_->intfConfigIs(id);
    vlanIntfStatusDir_->intfStatusIs(id);
    vcsd_->vlanIntfIs(id, true);
  }
  vcsd_->cpuIntfIs(chip_.cpuPort(), true);
  for (uint32_t v = 1; v <= topology.vlans; ++v) {
    bridgingConfig_->vlanConfigIs(static_cast<Bridging::VlanId>(v));
  }
  // The control-plane policy with its classes, in the static slice status.
  auto coppType = sliceStatus_->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto pmap =
      coppType->pmapIs(Qos::PolicyMapHwStatusKey{Qos::Direction::input, "copp-system-policy"});
  for (const auto& c : topology.coppClasses) pmap->classIs(c, true);
  sliceDir_->entityIs("slice0", sliceStatus_);
}

SwitchAgent::~SwitchAgent() { stop(); }

void SwitchAgent::addEthIntf(Orvo::IntfId id) {
  ethConfigDir_->intfConfigIs(id);
  ethStatusDir_->intfStatusIs(id);
  vcsd_->intfIs(id, true);
}

void SwitchAgent::start() {
  helper_ = SimCountersHelper::SimCountersHelperIs(&chip_, ns_);
  vlanHelper_ = SimVlanCountersHelper::SimVlanCountersHelperIs(&chip_);
  chip_.advanceTo(Zat::System::currentTime());
  auto makeRoot = factory<CountersFactory>("countersSmFactory");
  auto makeVlanRoot = factory<VlanFactory>("vlanCountersSmFactory");
  root_ =
      makeRoot(vcsd_, ethConfigDir_, ethStatusDir_, cliCounterConfig_, helper_, globalIntfConfig_,
               hwCliConfig_, sliceStatus_, sliceDir_, aclSliceStatus_, aclSliceDir_,
               vlanIntfConfigDir_, vlanIntfStatusDir_, aclDropDir_, allIntfQueueCounters_,
               allIntfClearQueueCounters_, allIntfCounters_, allIntfClearCounters_);
  root_->writerConfigIs(writerConfig_);
  root_->ethIntfCounterWriterStatusIs(ethWriterStatus_);
  root_->aclDropConfigIs(aclDropConfig_);
  root_->allVlanIntfCountersIs(allVlanIntfCounters_);
  root_->vlanIntfCounterWriterStatusIs(vlanIntfWriterStatus_);
  root_->counterPollPeriodIs(topology_.pollPeriod);
  root_->initializedIs(true);

  vlanRoot_ = makeVlanRoot(bridgingConfig_, vlanCliReq_, vlanCounterDir_, vlanSnapshotDir_, wheel_,
                           vlanHelper_);
  vlanRoot_->pollIntervalIs(topology_.vlanPollInterval);
  vlanRoot_->initializedIs(true);

  // The policing class machines are added by the party that owns the control-plane
  // policy, through the type machine's generic attribute interface.
  if (auto typeSm = root_->coppTypeSm(Qos::MapType::mapControlPlane)) {
    auto pmap = sliceStatus_->pmapType().find(Qos::MapType::mapControlPlane);
    auto policy = (*pmap)->pmap().find(
        Qos::PolicyMapHwStatusKey{Qos::Direction::input, "copp-system-policy"});
    Zat::GenericArgs args{Zat::GenericValue(std::string("copp-system-policy")),
                          Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(policy->ptr())),
                          Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(helper_.ptr()))};
    coppClassSm_ = typeSm->genericInvoke("coppSmIs", args).asObject("coppSm");
    if (coppClassSm_) {
      coppClassSm_->genericInvoke("initializedIs", {Zat::GenericValue(true)});
      // The policy owner refreshes every class once per poll period by re-running
      // the class machine's walk, as the hardware status would on each change.
      coppRefresh_ = new CoppRefresh(Zat::activityManager()->config()->clock(), this);
      coppRefresh_->hasNotificationActiveIs(true);
      if (topology_.pollPeriod > 0) {
        coppRefresh_->timeMinIs(Zat::System::currentTime() + topology_.pollPeriod);
      }
    }
  }
  lastCpuSeconds_ = cpuSeconds();
  lastStatusTime_ = Zat::System::currentTime();
}

void SwitchAgent::CoppRefresh::handleTime() {
  if (!agent_->coppClassSm_ || agent_->topology_.pollPeriod <= 0) return;
  agent_->coppClassSm_->genericInvoke("handleInitialized", {});
  timeMinIs(Zat::System::currentTime() + agent_->topology_.pollPeriod);
}

void SwitchAgent::stop() {
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
  helper_ = nullptr;
  vlanHelper_ = nullptr;
}

std::string SwitchAgent::command(const std::string& line) {
  auto words = split(line);
  if (words.empty()) return "error: empty command";
  try {
    const std::string& verb = words[0];
    if (verb == "clear") return clearCommand(words);
    if (verb == "intf") return intfCommand(words);
    if (verb == "chip") return chipCommand(words);
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
    return "error: unknown command '" + verb +
           "' (try: clear counters <intf|all>, clear vlan <id>, update <type> <intf>, "
           "intf <name> up|down|remove|add, poll-period <seconds>, chip reset|wrap <intf>, "
           "chip clear-on-read on|off, status, dump)";
  } catch (const std::exception& e) {
    return std::string("error: ") + e.what();
  }
}

std::string SwitchAgent::clearCommand(const std::vector<std::string>& words) {
  if (words.size() == 3 && words[1] == "counters") {
    if (words[2] != "all") {
      Orvo::IntfId id = parseIntf(words[2]);
      if (!Orvo::EthIntfId::isEthIntfId(id) || !chip_.hasPort(id)) {
        return "error: no Ethernet interface " + words[2];
      }
    }
    hwCliConfig_->clearCountersRequestIs(Zat::String(words[2]));
    return "ok cleared " + words[2];
  }
  if (words.size() == 3 && words[1] == "vlan") {
    const std::string& t = words[2];
    if (t.empty() || t.size() > 4 || t.find_first_not_of("0123456789") != std::string::npos) {
      return "error: '" + t + "' is not a VLAN id";
    }
    int v = std::stoi(t);
    if (v < 1 || v > 4094 || !bridgingConfig_->vlanConfig().contains(static_cast<uint16_t>(v))) {
      return "error: VLAN " + t + " is not configured";
    }
    vlanCliReq_->clearCountersRequestToggle(static_cast<Bridging::VlanId>(v));
    return "ok cleared vlan " + t;
  }
  return "error: usage: clear counters <intf|all> | clear vlan <id>";
}

std::string SwitchAgent::intfCommand(const std::vector<std::string>& words) {
  if (words.size() != 3) return "error: usage: intf <name> up|down|remove|add";
  Orvo::IntfId id = parseIntf(words[1]);
  if (!Orvo::EthIntfId::isEthIntfId(id) && !Orvo::FabricIntfId::isFabricIntfId(id)) {
    return "error: only Ethernet and fabric interfaces can be changed";
  }
  if (!chip_.hasPort(id)) return "error: no interface " + words[1];
  const std::string& what = words[2];
  if (what == "down") {
    chip_.advanceTo(Zat::System::currentTime());
    chip_.portUpIs(id, false);
    vcsd_->intfIs(id, false);
  } else if (what == "up") {
    chip_.advanceTo(Zat::System::currentTime());
    chip_.portUpIs(id, true);
    addEthIntf(id);
  } else if (what == "remove") {
    vcsd_->intfDel(id);
    ethConfigDir_->intfConfigDel(id);
    ethStatusDir_->intfStatusDel(id);
  } else if (what == "add") {
    addEthIntf(id);
  } else {
    return "error: usage: intf <name> up|down|remove|add";
  }
  return "ok " + words[1] + " " + what;
}

std::string SwitchAgent::chipCommand(const std::vector<std::string>& words) {
  if (words.size() == 3 && (words[1] == "reset" || words[1] == "wrap")) {
    Orvo::IntfId id = parseIntf(words[2]);
    if (!chip_.hasPort(id)) return "error: no interface " + words[2];
    chip_.advanceTo(Zat::System::currentTime());
    if (words[1] == "reset") {
      chip_.portCountersReset(id);
    } else {
      chip_.portCountersWrapSoon(id);
    }
    return "ok " + words[1] + " " + words[2];
  }
  if (words.size() == 3 && words[1] == "clear-on-read" && (words[2] == "on" || words[2] == "off")) {
    if (!helper_) return "error: agent not started";
    helper_->queueCountersClearOnReadIs(words[2] == "on");
    return "ok clear-on-read " + words[2];
  }
  return "error: usage: chip reset|wrap <intf> | chip clear-on-read on|off";
}

std::string SwitchAgent::updateCommand(const std::vector<std::string>& words) {
  if (words.size() != 3) return "error: usage: update <counter type 0-3|6> <intf>";
  const std::string& t = words[1];
  if (t != "0" && t != "1" && t != "2" && t != "3" && t != "6") {
    return "error: counter type must be 0 (queues), 1 (port), 2 (cpu), 3 (vlan interface) or 6 "
           "(acl drops)";
  }
  parseIntf(words[2]);
  if (!root_) return "error: agent not started";
  root_->genericInvoke("updateCounters", {Zat::GenericValue(t), Zat::GenericValue(words[2])});
  return "ok updated " + words[2];
}

std::string SwitchAgent::pollPeriodCommand(const std::vector<std::string>& words) {
  if (words.size() != 2) return "error: usage: poll-period <seconds>";
  double period = parseSeconds(words[1]);
  if (!root_) return "error: agent not started";
  // Port pollers follow the command-line configuration; new children take the root's.
  cliCounterConfig_->counterPollPeriodIs(period);
  root_->counterPollPeriodIs(period);
  return "ok poll-period " + words[1];
}

std::string SwitchAgent::statusLine() {
  uint64_t polls = (helper_ ? helper_->polls() : 0) + (vlanHelper_ ? vlanHelper_->polls() : 0);
  ChildCounter ports;
  ports.collection = "portCountersSm";
  if (root_) root_->attributesDescribe(ports);
  uint64_t handlerNs = 0;
  for (const auto& s : Nimlog::blockTimerStats()) handlerNs += s.totalNs;
  double cpu = cpuSeconds();
  double now = Zat::System::currentTime();
  // One poll cycle = one poll period's worth of the agent's CPU time.
  double elapsed = now - lastStatusTime_;
  // Too short a span (the final line right after the last one) says nothing per cycle.
  double cycles = topology_.pollPeriod > 0 && elapsed >= topology_.pollPeriod
                      ? elapsed / topology_.pollPeriod
                      : 0;
  double cpuPerCycleMs = cycles > 0 ? (cpu - lastCpuSeconds_) * 1000.0 / cycles : 0;
  lastCpuSeconds_ = cpu;
  lastPolls_ = polls;
  lastStatusTime_ = now;
  std::ostringstream os;
  os.setf(std::ios::fixed);
  os.precision(2);
  os << "interfaces " << ports.count << " vlans " << (vlanHelper_ ? vlanHelper_->enabledVlans() : 0)
     << " polls " << polls << " handler-time " << handlerNs / 1e6 << " ms"
     << " cpu-per-poll-cycle " << cpuPerCycleMs << " ms rss " << rssMiB() << " MiB";
  return os.str();
}

}  // namespace Sim
