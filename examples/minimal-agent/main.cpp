// minimal-agent: the smallest agent that embeds the counters component.
//
// It builds the state objects and shared-memory tables the two roots need,
// serves one Ethernet interface and one VLAN through a helper of its own (a
// "chip" whose counters grow at a fixed rate), creates both roots through the
// exported factories, runs the real-time activity loop for a few seconds, and
// then reads back what the component published with the table reader, as
// another process would.
//
//   minimal-agent [namespace] [seconds]
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "brim/SharedObject.h"
#include "brim/TableReader.h"
#include "counters/factories.h"
#include "tables/CounterTables.h"
#include "vornhelper/VornHelper.h"
#include "zat/Activity.h"

namespace {

const Orvo::IntfId kPort("Ethernet1");
constexpr Bridging::VlanId kVlan = 10;
constexpr double kPollPeriod = 0.5;

// A chip whose counters grow linearly with the agent's clock from power-on.
double gPowerOn = 0;
uint64_t countAt(double rate) {
  return static_cast<uint64_t>((Zat::System::currentTime() - gPowerOn) * rate);
}

class MiniCountersHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<MiniCountersHelper> MiniCountersHelperIs() {
    return Zat::Ptr<MiniCountersHelper>(new MiniCountersHelper());
  }
  void countersInit() override {}
  void intfCountersInit(Orvo::IntfId) override { ++initialized; }
  // Nothing is held per port here; a real chip frees its counter resources.
  void intfCountersCleanup(Orvo::IntfId) override { --initialized; }
  void cpuPortCountersInit(Zat::String) override {}
  void cpuPortCountersUpdate() override {}
  bool coppClassCountersUpdate(Zat::Name) override { return true; }
  // The component waits at least this long before the first poll.
  double firstPollDelay() override { return 0.2; }
  void intfCountersRead(Orvo::IntfId, const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                        const Zat::Ptr<VornTypes::IntfCounters>&) override {
    ++reads;
    auto& s = newCounters->intfStats();
    s.inUcastPktsIs(countAt(1000));
    s.inOctetsIs(countAt(1000) * 512);
    s.outUcastPktsIs(countAt(800));
    s.outOctetsIs(countAt(800) * 256);
    s.statsUpdateTimeIs(Zat::System::currentTime());
    // The error sums must hold in every reading: inErrors and outErrors are the
    // sums of their Ethernet error counters.
    auto& e = newCounters->ethStats();
    e.fcsErrorsIs(countAt(2));
    e.alignmentErrorsIs(countAt(1));
    s.inErrorsIs(e.alignmentErrors() + e.fcsErrors() + e.frameTooLongs() + e.frameTooShorts() +
                 e.internalMacReceiveErrors());
    s.outErrorsIs(e.sqeTestErrors() + e.lateCollisions() + e.excessiveCollisions() +
                  e.internalMacTransmitErrors() + e.carrierSenseErrors());
  }
  void intfQueueTypeRead(Orvo::IntfId, const Zat::Ptr<VornTypes::IntfQueueType>&) override {}
  Interface::QueueCounter::IntfQueueCounter intfQueueCountersRead(
      Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>&) override {
    return Interface::QueueCounter::IntfQueueCounter(intfId);
  }
  void vlanIntfCountersRead(Orvo::IntfId, const Zat::Ptr<VornTypes::VlanIntfCounters>&,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>&) override {}
  bool vlanIntfCountersSupported(Orvo::IntfId, uint32_t) override { return false; }
  void vlanIntfCountersRelease(Orvo::IntfId) override {}
  bool aclDropCountersSupported() override { return false; }
  uint64_t aclDropCountRead(Orvo::IntfId) override { return 0; }

  int initialized = 0;
  uint64_t reads = 0;

 private:
  MiniCountersHelper() = default;
};

class MiniVlanHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<MiniVlanHelper> MiniVlanHelperIs() {
    return Zat::Ptr<MiniVlanHelper>(new MiniVlanHelper());
  }
  double vlanFirstPollDelay() override { return 0.2; }
  void vlanCountersRead(Bridging::VlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>& previous) override {
    uint64_t now = countAt(300);
    current->counterIs(0, now);
    // The component adds current minus previous: hand back what the last poll saw.
    previous->counterIs(0, last_.value_or(now));
    last_ = now;
  }
  // Called on every configuration event of a VLAN, so it must be idempotent:
  // a VLAN already counting keeps its last reading.
  bool vlanCountersEnable(Bridging::VlanId) override {
    if (!last_) last_ = countAt(300);
    return true;
  }

 private:
  MiniVlanHelper() = default;
  std::optional<uint64_t> last_;
};

}  // namespace

int main(int argc, char** argv) {
  const std::string ns = argc > 1 ? argv[1] : "minimal" + std::to_string(getpid());
  const double seconds = argc > 2 ? std::atof(argv[2]) : 3.0;
  using namespace TableNames;
  gPowerOn = Zat::System::currentTime();

  // The tables the roots write, in namespace `ns`, sized for a few interfaces.
  constexpr uint32_t kCapacity = 8;
  auto allIntfCounters =
      Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(ns, kAllIntfCounters, kCapacity);
  auto allIntfClearCounters = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(
      ns, kAllIntfClearCounters, kCapacity);
  auto queues = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      ns, kAllIntfQueueCounters, kCapacity);
  auto clearQueues = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      ns, kAllIntfClearQueueCounters, kCapacity);
  auto aclDrops = Brim::Interface::AllDropCounterDir::AllDropCounterDirIs(
      ns, kIntfAclDropCountersDir, kCapacity);
  auto vlanIntfCounters = Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(
      ns, kAllVlanIntfCounters, kCapacity);
  auto vlanCounters = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, kVlanCounterDir);
  auto vlanSnapshots =
      Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(ns, kVlanCounterSnapshotDir);

  // The agent's state objects: one served Ethernet interface, one VLAN.
  auto vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
  auto ethConfig = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
  auto ethStatus = Interface::AllEthPhyIntfStatusDir::AllEthPhyIntfStatusDirIs();
  auto cliCounterConfig = Vorn::Counters::CliConfig::CliConfigIs();
  cliCounterConfig->counterPollPeriodIs(kPollPeriod);
  auto hwCliConfig = Vorn::HwCliConfig::HwCliConfigIs();
  auto globalIntfConfig = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
  auto bridgingConfig = Bridging::Config::ConfigIs();
  auto vlanCliReq = Bridging::VlanCountersCliReq::VlanCountersCliReqIs();
  auto wheel = Pell::TimerWheel::TimerWheelIs("minimalVlanWheel");
  ethConfig->intfConfigIs(kPort);
  ethStatus->intfStatusIs(kPort);
  vcsd->intfIs(kPort, true);
  bridgingConfig->vlanConfigIs(kVlan);

  auto helper = MiniCountersHelper::MiniCountersHelperIs();
  auto vlanHelper = MiniVlanHelper::MiniVlanHelperIs();

  // Both roots through the exported factories; policing and VLAN-interface
  // inputs are left out (null), which the root accepts.
  auto root =
      countersSmFactory(vcsd, ethConfig, ethStatus, cliCounterConfig, helper, globalIntfConfig,
                        hwCliConfig, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, aclDrops,
                        queues, clearQueues, allIntfCounters, allIntfClearCounters);
  // The setters come before `initialized`: the first passes register interfaces
  // with these objects.
  root->writerConfigIs(Interface::QueueCounter::WriterConfig::Is());
  root->ethIntfCounterWriterStatusIs(Interface::EthIntfCounterWriterStatus::Is());
  root->aclDropConfigIs(Interface::AclDropConfig::Is());
  root->allVlanIntfCountersIs(vlanIntfCounters);
  root->vlanIntfCounterWriterStatusIs(Interface::VlanIntfCounterWriterStatus::Is());
  root->counterPollPeriodIs(kPollPeriod);
  root->initializedIs(true);

  auto vlanRoot = vlanCountersSmFactory(bridgingConfig, vlanCliReq, vlanCounters, vlanSnapshots,
                                        wheel, vlanHelper);
  vlanRoot->pollIntervalIs(kPollPeriod);
  vlanRoot->initializedIs(true);

  std::printf("minimal-agent: namespace %s, polling %s every %.1fs for %.1fs\n", ns.c_str(),
              kPort.stringValue().c_str(), kPollPeriod, seconds);
  Zat::activityManager()->runFor(seconds);

  // Read back as a separate reader would: map the published tables read-only.
  int status = 0;
  auto portTable = Brim::TableReader<Interface::EthIntfCounterBrim>::open(ns, kAllIntfCounters);
  auto port = portTable->find(kPort);
  if (!port || port->statistics().inUcastPkts() == 0) {
    std::printf("minimal-agent: %s was not published\n", kPort.stringValue().c_str());
    status = 1;
  } else {
    const auto& s = port->statistics();
    std::printf(
        "minimal-agent: %s inOctets %llu inUcastPkts %llu outOctets %llu outUcastPkts %llu "
        "inErrors %llu updated %.3f\n",
        kPort.stringValue().c_str(), (unsigned long long)s.inOctets(),
        (unsigned long long)s.inUcastPkts(), (unsigned long long)s.outOctets(),
        (unsigned long long)s.outUcastPkts(), (unsigned long long)s.inErrors(),
        s.statsUpdateTime());
  }
  auto vlanTable = Brim::TableReader<Brim::Bridging::VlanCounter>::open(ns, kVlanCounterDir);
  if (auto v = vlanTable->find(kVlan); v && v->counter(0) > 0) {
    std::printf("minimal-agent: vlan %u counter0 %llu\n", unsigned(kVlan),
                (unsigned long long)v->counter(0));
  } else {
    std::printf("minimal-agent: vlan %u was not published\n", unsigned(kVlan));
    status = 1;
  }
  std::printf("minimal-agent: helper reads %llu\n", (unsigned long long)helper->reads);

  // Stop: drop both roots through their zombie teardown, then remove the tables
  // (an agent that stays would leave them for readers).
  vlanRoot->zatDoZombieReactors(true);
  vlanRoot = nullptr;
  root->hasNotificationActiveIs(false);
  root->zatDoZombieReactors(true);
  root = nullptr;
  for (const char* t :
       {kAllIntfCounters, kAllIntfClearCounters, kAllIntfQueueCounters, kAllIntfClearQueueCounters,
        kIntfAclDropCountersDir, kAllVlanIntfCounters, kVlanCounterDir, kVlanCounterSnapshotDir}) {
    Brim::unlinkTable(ns, t);
  }
  return status;
}
