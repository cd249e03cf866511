// The agent's state objects: what the host builds once and hands to both
// counters roots, and what a platform fills in (interfaces, VLANs, policies)
// and keeps current (interfaces coming, going, changing state).
#pragma once

#include <string>

#include "bridging/BridgingConfig.h"
#include "interface/IntfConfig.h"
#include "interface/Registrations.h"
#include "pell/TimerWheel.h"
#include "qos/QosStatus.h"
#include "tables/CounterTables.h"
#include "vorn/CliConfig.h"
#include "vorn/VornCommonSmData.h"
#include "zat/Dir.h"

namespace Agent {

// The control-plane policy a platform programs, when it has one.
inline constexpr const char* kCoppPolicyName = "copp-system-policy";

struct AgentState {
  // Opens (or re-attaches to) the counter tables of namespace `ns`, sized for
  // `intfCapacity` interfaces, and builds empty state objects.
  AgentState(const std::string& ns, uint32_t intfCapacity, double pollPeriod);

  // An Ethernet-like interface (Ethernet or fabric) becomes served: it gets
  // configuration and status and is marked in the common data's interface set.
  void ethIntfAdd(Orvo::IntfId id);
  // Marks it not to be served (link down keeps its rows; the component decides).
  void ethIntfServedIs(Orvo::IntfId id, bool served);
  // The interface is gone: unmarked, configuration and status removed.
  void ethIntfRemove(Orvo::IntfId id);
  bool ethIntfKnown(Orvo::IntfId id) const;

  void vlanIntfAdd(Orvo::IntfId id);
  void vlanIntfRemove(Orvo::IntfId id);

  std::string ns;
  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<Interface::AllEthPhyIntfConfigDir> ethConfigDir;
  Zat::Ptr<Interface::AllEthPhyIntfStatusDir> ethStatusDir;
  Zat::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfigDir;
  Zat::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir;
  Zat::Ptr<Vorn::Counters::CliConfig> cliCounterConfig;
  Zat::Ptr<Vorn::HwCliConfig> hwCliConfig;
  Zat::Ptr<Interface::GlobalIntfConfig> globalIntfConfig;
  Zat::Ptr<Qos::SliceHwStatus> sliceStatus;
  Zat::Ptr<Zat::Dir> sliceDir;
  Zat::Ptr<Qos::AclSliceHwStatus> aclSliceStatus;
  Zat::Ptr<Zat::Dir> aclSliceDir;
  Zat::Ptr<Interface::QueueCounter::WriterConfig> writerConfig;
  Zat::Ptr<Interface::EthIntfCounterWriterStatus> ethWriterStatus;
  Zat::Ptr<Interface::AclDropConfig> aclDropConfig;
  Zat::Ptr<Interface::VlanIntfCounterWriterStatus> vlanIntfWriterStatus;
  Zat::Ptr<Bridging::Config> bridgingConfig;
  Zat::Ptr<Bridging::VlanCountersCliReq> vlanCliReq;
  Zat::Ptr<Pell::TimerWheel> wheel;

  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfCounters, allIntfClearCounters;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCounters,
      allIntfClearQueueCounters;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> aclDropDir;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounters;
  Zat::Ptr<Brim::Bridging::VlanCounterDir> vlanCounterDir;
  Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> vlanSnapshotDir;
};

}  // namespace Agent
