#include "agent/AgentState.h"

namespace Agent {

AgentState::AgentState(const std::string& tableNs, uint32_t intfCapacity, double pollPeriod)
    : ns(tableNs) {
  using namespace TableNames;
  allIntfCounters =
      Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(ns, kAllIntfCounters, intfCapacity);
  allIntfClearCounters = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(
      ns, kAllIntfClearCounters, intfCapacity);
  allIntfQueueCounters = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      ns, kAllIntfQueueCounters, intfCapacity);
  allIntfClearQueueCounters = Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(
      ns, kAllIntfClearQueueCounters, intfCapacity);
  aclDropDir = Brim::Interface::AllDropCounterDir::AllDropCounterDirIs(ns, kIntfAclDropCountersDir,
                                                                       intfCapacity);
  allVlanIntfCounters = Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(
      ns, kAllVlanIntfCounters, intfCapacity);
  vlanCounterDir = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, kVlanCounterDir);
  vlanSnapshotDir =
      Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(ns, kVlanCounterSnapshotDir);

  vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
  ethConfigDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
  ethStatusDir = Interface::AllEthPhyIntfStatusDir::AllEthPhyIntfStatusDirIs();
  vlanIntfConfigDir = Interface::VlanIntfConfigDir::VlanIntfConfigDirIs();
  vlanIntfStatusDir = Interface::VlanIntfStatusDir::VlanIntfStatusDirIs();
  cliCounterConfig = Vorn::Counters::CliConfig::CliConfigIs();
  cliCounterConfig->counterPollPeriodIs(pollPeriod);
  hwCliConfig = Vorn::HwCliConfig::HwCliConfigIs();
  globalIntfConfig = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
  // Short load interval so that rates settle within a short look at the switch.
  globalIntfConfig->loadIntervalIs(Interface::LoadInterval(5.0));
  sliceStatus = Qos::SliceHwStatus::Is("slice0");
  sliceDir = Zat::Dir::DirIs("sliceHwStatus");
  aclSliceStatus = Qos::AclSliceHwStatus::Is("aclSlice0");
  aclSliceDir = Zat::Dir::DirIs("aclSliceHwStatus");
  writerConfig = Interface::QueueCounter::WriterConfig::Is();
  ethWriterStatus = Interface::EthIntfCounterWriterStatus::Is();
  aclDropConfig = Interface::AclDropConfig::Is();
  vlanIntfWriterStatus = Interface::VlanIntfCounterWriterStatus::Is();
  bridgingConfig = Bridging::Config::ConfigIs();
  vlanCliReq = Bridging::VlanCountersCliReq::VlanCountersCliReqIs();
  wheel = Pell::TimerWheel::TimerWheelIs("vlanCountersWheel");
}

void AgentState::ethIntfAdd(Orvo::IntfId id) {
  ethConfigDir->intfConfigIs(id);
  ethStatusDir->intfStatusIs(id);
  vcsd->intfIs(id, true);
}

void AgentState::ethIntfServedIs(Orvo::IntfId id, bool served) { vcsd->intfIs(id, served); }

void AgentState::ethIntfRemove(Orvo::IntfId id) {
  vcsd->intfDel(id);
  ethConfigDir->intfConfigDel(id);
  ethStatusDir->intfStatusDel(id);
}

bool AgentState::ethIntfKnown(Orvo::IntfId id) const {
  return static_cast<bool>(ethConfigDir->intfConfig(id));
}

void AgentState::vlanIntfAdd(Orvo::IntfId id) {
  vlanIntfConfigDir->intfConfigIs(id);
  vlanIntfStatusDir->intfStatusIs(id);
  vcsd->vlanIntfIs(id, true);
}

void AgentState::vlanIntfRemove(Orvo::IntfId id) {
  vcsd->vlanIntfDel(id);
  vlanIntfConfigDir->intfConfigDel(id);
  vlanIntfStatusDir->intfStatusDel(id);
}

}  // namespace Agent
