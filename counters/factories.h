// The two exported entry points through which the agent creates the counters
// component's root state machines. Both are C-linkage symbols so that an agent
// can find them with dlsym() after loading libvorncounters.so.
#pragma once

#include "counters/CountersSm.h"
#include "counters/vlan/VlanCountersSm.h"

// The factories return counted references: only C++ agents call them, and C
// linkage only fixes the symbol names that dlsym() looks up. Clang warns about
// a C++ return type under C linkage; that is the intent here.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

extern "C" {

// Creates the root counters machine; forwards its 18 arguments unchanged.
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
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);

// Creates the VLAN counters machine.
Zat::Ptr<Vorn::Counters::VlanCountersSm> vlanCountersSmFactory(
    const Zat::Ptr<const Bridging::Config>& bridgingConfig,
    const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
    const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
    const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
    const Zat::Ptr<const Pell::TimerWheel>& clock,
    const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper);

}  // extern "C"

#if defined(__clang__)
#pragma clang diagnostic pop
#endif
