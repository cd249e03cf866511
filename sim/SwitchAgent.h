// The simulated switch agent: builds the agent's state objects for a topology,
// creates both counters roots through the exported factories, and serves
// operator commands.
//
// Commands are one line of text each and are answered with one line: "ok ..."
// or "error: <what was wrong>". An invalid command changes nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bridging/BridgingConfig.h"
#include "counters/factories.h"
#include "interface/IntfConfig.h"
#include "interface/Registrations.h"
#include "pell/TimerWheel.h"
#include "qos/QosStatus.h"
#include "sim/SimChip.h"
#include "sim/SimHelpers.h"
#include "tables/CounterTables.h"
#include "vorn/CliConfig.h"
#include "vorn/VornCommonSmData.h"
#include "zat/Dir.h"

namespace Sim {

class SwitchAgent {
 public:
  // Opens (or re-attaches to) the tables of namespace `ns` and builds the state.
  // Nothing runs until start().
  SwitchAgent(const Topology& topology, const std::string& ns);
  ~SwitchAgent();

  // Creates both roots through the factories, supplies the setters and sets
  // `initialized`.
  void start();
  // Drops both roots (their zombie teardown) and the helpers; tables stay.
  void stop();

  // Runs one operator command; returns the one-line reply.
  std::string command(const std::string& line);
  // "interfaces N polls P handler-time T ms cpu-per-poll-cycle C ms rss R MiB".
  std::string statusLine();

  const Topology& topology() const { return topology_; }
  SimChip& chip() { return chip_; }
  const std::string& tableNamespace() const { return ns_; }
  const Zat::Ptr<Vorn::Counters::CountersSm>& root() const { return root_; }
  const Zat::Ptr<Vorn::Counters::VlanCountersSm>& vlanRoot() const { return vlanRoot_; }

 private:
  // Re-runs the policing class walk once per poll period.
  class CoppRefresh : public Zat::Clock::Notifiee {
   public:
    CoppRefresh(const Zat::Ptr<const Zat::Clock>& clock, SwitchAgent* agent)
        : Zat::Clock::Notifiee(clock), agent_(agent) {}
    void handleTime() override;

   private:
    SwitchAgent* agent_;
  };

  std::string clearCommand(const std::vector<std::string>& words);
  std::string intfCommand(const std::vector<std::string>& words);
  std::string chipCommand(const std::vector<std::string>& words);
  std::string updateCommand(const std::vector<std::string>& words);
  std::string pollPeriodCommand(const std::vector<std::string>& words);
  void addEthIntf(Orvo::IntfId id);

  Topology topology_;
  std::string ns_;
  SimChip chip_;

  Zat::Ptr<Vorn::VornCommonSmData> vcsd_;
  Zat::Ptr<Interface::AllEthPhyIntfConfigDir> ethConfigDir_;
  Zat::Ptr<Interface::AllEthPhyIntfStatusDir> ethStatusDir_;
  Zat::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfigDir_;
  Zat::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
  Zat::Ptr<Vorn::Counters::CliConfig> cliCounterConfig_;
  Zat::Ptr<Vorn::HwCliConfig> hwCliConfig_;
  Zat::Ptr<Interface::GlobalIntfConfig> globalIntfConfig_;
  Zat::Ptr<Qos::SliceHwStatus> sliceStatus_;
  Zat::Ptr<Zat::Dir> sliceDir_;
  Zat::Ptr<Qos::AclSliceHwStatus> aclSliceStatus_;
  Zat::Ptr<Zat::Dir> aclSliceDir_;
  Zat::Ptr<Interface::QueueCounter::WriterConfig> writerConfig_;
  Zat::Ptr<Interface::EthIntfCounterWriterStatus> ethWriterStatus_;
  Zat::Ptr<Interface::AclDropConfig> aclDropConfig_;
  Zat::Ptr<Interface::VlanIntfCounterWriterStatus> vlanIntfWriterStatus_;
  Zat::Ptr<Bridging::Config> bridgingConfig_;
  Zat::Ptr<Bridging::VlanCountersCliReq> vlanCliReq_;
  Zat::Ptr<Pell::TimerWheel> wheel_;

  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfCounters_, allIntfClearCounters_;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCounters_,
      allIntfClearQueueCounters_;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> aclDropDir_;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounters_;
  Zat::Ptr<Brim::Bridging::VlanCounterDir> vlanCounterDir_;
  Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> vlanSnapshotDir_;

  // The chip's power-on time, kept beside the tables so that it outlives the agent.
  std::unique_ptr<Brim::TableWriter<SimChipState>> chipState_;

  Zat::Ptr<SimCountersHelper> helper_;
  Zat::Ptr<SimVlanCountersHelper> vlanHelper_;
  Zat::Ptr<Vorn::Counters::CountersSm> root_;
  Zat::Ptr<Vorn::Counters::VlanCountersSm> vlanRoot_;
  Zat::Ptr<Zat::PtrInterface> coppClassSm_;
  Zat::Ptr<CoppRefresh> coppRefresh_;

  // For the status line: CPU time and polls at the previous status line.
  double lastCpuSeconds_ = 0;
  uint64_t lastPolls_ = 0;
  double lastStatusTime_ = 0;
};

}  // namespace Sim
