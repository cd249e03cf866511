#include "counters/factories.h"

extern "C" {

Zat::Ptr<Vorn::Counters::CountersSm> countersSmFactory(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<const Interface::AllEthPhyIntfStatusDir>& ethPhyIntfStatusDir,
    const Zat::Ptr<Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Vorn::HwCliConfig>& cliConfig,
    const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosSliceHwStatusDir,
    const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosAclSliceHwStatusDir,
    const Zat::Ptr<const Interface::VlanIntfConfigDir>& vlanIntfConfigDir,
    const Zat::Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters) {
  return Vorn::Counters::CountersSm::CountersSmIs(
      vcsd, ethPhyIntfConfigDir, ethPhyIntfStatusDir, cliCounterConfig, platformHelper,
      globalIntfConfig, cliConfig, qosSliceHwStatus, qosSliceHwStatusDir, qosAclSliceHwStatus,
      qosAclSliceHwStatusDir, vlanIntfConfigDir, vlanIntfStatusDir, intfAclDropCountersDir,
      allIntfQueueCounters, allIntfClearQueueCounters, allIntfCounters, allIntfClearCounters);
}

Zat::Ptr<Vorn::Counters::VlanCountersSm> vlanCountersSmFactory(
    const Zat::Ptr<const Bridging::Config>& bridgingConfig,
    const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
    const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
    const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
    const Zat::Ptr<const Pell::TimerWheel>& clock,
    const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper) {
  return Vorn::Counters::VlanCountersSm::VlanCountersSmIs(bridgingConfig, vlanCountersCliReq,
                                                          vlanCounterDir, vlanCounterSnapshotDir,
                                                          clock, vlanCountersHelper);
}

}  // extern "C"
