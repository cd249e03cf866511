// A fixture that builds the counters root (CountersSm) on simulated time with
// real scratch shared-memory tables and a fake platform helper.
//
// SetUp creates every input the root can take: the common data, the four
// interface directories, both command-line configurations, the QoS slice
// statuses and their directories, the five shared-memory tables and the
// registration objects. A test may null any of them before calling rootIs(),
// which builds the root from what is left, supplies the registration objects
// through the setters and returns it (not yet initialized). TearDown drops the
// root before the tables are unlinked.
#pragma once

#include <string>
#include <utility>

#include "counters/CountersSm.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"

namespace VornTest {

// The eighteen constructor inputs of the root, in argument order.
struct RootInputs {
  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<Interface::AllEthPhyIntfConfigDir> ethPhyIntfConfigDir;
  Zat::Ptr<Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir;
  Zat::Ptr<Vorn::Counters::CliConfig> cliCounterConfig;
  Zat::Ptr<FakeCountersHelper> platformHelper;
  Zat::Ptr<Interface::GlobalIntfConfig> globalIntfConfig;
  Zat::Ptr<Vorn::HwCliConfig> cliConfig;
  Zat::Ptr<Qos::SliceHwStatus> qosSliceHwStatus;
  Zat::Ptr<Zat::Dir> qosSliceHwStatusDir;
  Zat::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus;
  Zat::Ptr<Zat::Dir> qosAclSliceHwStatusDir;
  Zat::Ptr<Interface::VlanIntfConfigDir> vlanIntfConfigDir;
  Zat::Ptr<Interface::VlanIntfStatusDir> vlanIntfStatusDir;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> intfAclDropCountersDir;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCounters;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfClearQueueCounters;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfCounters;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfClearCounters;

  // Calls f with the eighteen inputs in the constructor's argument order, each
  // converted to the type the constructor takes.
  template <class F>
  auto apply(F&& f) const {
    return f(vcsd, Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>(ethPhyIntfConfigDir),
             Zat::Ptr<const Interface::AllEthPhyIntfStatusDir>(ethPhyIntfStatusDir),
             cliCounterConfig, Zat::Ptr<VornHelper::VornHelperCountersSm>(platformHelper),
             Zat::Ptr<const Interface::GlobalIntfConfig>(globalIntfConfig),
             Zat::Ptr<const Vorn::HwCliConfig>(cliConfig), qosSliceHwStatus, qosSliceHwStatusDir,
             qosAclSliceHwStatus, qosAclSliceHwStatusDir,
             Zat::Ptr<const Interface::VlanIntfConfigDir>(vlanIntfConfigDir),
             Zat::Ptr<const Interface::VlanIntfStatusDir>(vlanIntfStatusDir),
             intfAclDropCountersDir, allIntfQueueCounters, allIntfClearQueueCounters,
             allIntfCounters, allIntfClearCounters);
  }
  // Every input null except the common data.
  void allOptionalNull();
};

// The objects the agent supplies through the root's setters after creation.
struct RootSetInputs {
  Zat::Ptr<Interface::QueueCounter::WriterConfig> writerConfig;
  Zat::Ptr<Interface::EthIntfCounterWriterStatus> ethIntfCounterWriterStatus;
  Zat::Ptr<Interface::AclDropConfig> aclDropConfig;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounters;
  Zat::Ptr<Interface::VlanIntfCounterWriterStatus> vlanIntfCounterWriterStatus;

  // Hands every non-null object to `root`.
  void supply(Vorn::Counters::CountersSm& root) const;
};

class RootFixture : public ScratchTableTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Builds the root from `in` and supplies `set`; stores it in `root`.
  Zat::Ptr<Vorn::Counters::CountersSm> rootIs();
  // Builds, supplies and initializes the root.
  Zat::Ptr<Vorn::Counters::CountersSm> initializedRootIs();

  // Gives the Ethernet interface a configuration and a status entry.
  void ethObjectsIs(Orvo::IntfId intfId);
  // Configuration and status entries plus `intf` true: the interface is served.
  void ethServedIs(Orvo::IntfId intfId);
  // Gives the VLAN interface a configuration and a status entry.
  void vlanObjectsIs(Orvo::IntfId intfId);
  void vlanServedIs(Orvo::IntfId intfId);

  // The helper, typed as the fake.
  FakeCountersHelper& helper() { return *in.platformHelper; }

  RootInputs in;
  RootSetInputs set;
  Zat::Ptr<Vorn::Counters::CountersSm> root;
};

}  // namespace VornTest
