#include "support/RootFixture.h"

namespace VornTest {

void RootInputs::allOptionalNull() {
  ethPhyIntfConfigDir = nullptr;
  ethPhyIntfStatusDir = nullptr;
  cliCounterConfig = nullptr;
  globalIntfConfig = nullptr;
  cliConfig = nullptr;
  qosSliceHwStatus = nullptr;
  qosSliceHwStatusDir = nullptr;
  qosAclSliceHwStatus = nullptr;
  qosAclSliceHwStatusDir = nullptr;
  vlanIntfConfigDir = nullptr;
  vlanIntfStatusDir = nullptr;
  intfAclDropCountersDir = nullptr;
  allIntfQueueCounters = nullptr;
  allIntfClearQueueCounters = nullptr;
  allIntfCounters = nullptr;
  allIntfClearCounters = nullptr;
}

void RootSetInputs::supply(Vorn::Counters::CountersSm& root) const {
  if (writerConfig) root.writerConfigIs(writerConfig);
  if (ethIntfCounterWriterStatus) root.ethIntfCounterWriterStatusIs(ethIntfCounterWriterStatus);
  if (aclDropConfig) root.aclDropConfigIs(aclDropConfig);
  if (allVlanIntfCounters) root.allVlanIntfCountersIs(allVlanIntfCounters);
  if (vlanIntfCounterWriterStatus) root.vlanIntfCounterWriterStatusIs(vlanIntfCounterWriterStatus);
}

void RootFixture::SetUp() {
  ScratchTableTest::SetUp();
  in.vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
  in.ethPhyIntfConfigDir = Interface::AllEthPhyIntfConfigDir::AllEthPhyIntfConfigDirIs();
  in.ethPhyIntfStatusDir = Interface::AllEthPhyIntfStatusDir::AllEthPhyIntfStatusDirIs();
  in.cliCounterConfig = Vorn::Counters::CliConfig::CliConfigIs();
  in.platformHelper = FakeCountersHelper::FakeCountersHelperIs();
  in.globalIntfConfig = Interface::GlobalIntfConfig::GlobalIntfConfigIs();
  in.cliConfig = Vorn::HwCliConfig::HwCliConfigIs();
  in.qosSliceHwStatus = Qos::SliceHwStatus::Is("slice0");
  in.qosSliceHwStatusDir = Zat::Dir::DirIs("sliceHwStatus");
  in.qosAclSliceHwStatus = Qos::AclSliceHwStatus::Is("aclSlice0");
  in.qosAclSliceHwStatusDir = Zat::Dir::DirIs("aclSliceHwStatus");
  in.vlanIntfConfigDir = Interface::VlanIntfConfigDir::VlanIntfConfigDirIs();
  in.vlanIntfStatusDir = Interface::VlanIntfStatusDir::VlanIntfStatusDirIs();
  in.intfAclDropCountersDir = tables.allDropCounterDirIs(TableNames::kIntfAclDropCountersDir);
  in.allIntfQueueCounters = tables.allIntfQueueCountersIs(TableNames::kAllIntfQueueCounters);
  in.allIntfClearQueueCounters =
      tables.allIntfQueueCountersIs(TableNames::kAllIntfClearQueueCounters);
  in.allIntfCounters = tables.allEthIntfCounterBrimIs(TableNames::kAllIntfCounters);
  in.allIntfClearCounters = tables.allEthIntfCounterBrimIs(TableNames::kAllIntfClearCounters);

  set.writerConfig = Interface::QueueCounter::WriterConfig::Is();
  set.ethIntfCounterWriterStatus = Interface::EthIntfCounterWriterStatus::Is();
  set.aclDropConfig = Interface::AclDropConfig::Is();
  set.allVlanIntfCounters = tables.allVlanIntfCounterBrimIs(TableNames::kAllVlanIntfCounters);
  set.vlanIntfCounterWriterStatus = Interface::VlanIntfCounterWriterStatus::Is();
}

void RootFixture::TearDown() {
  // The root and its pollers hold the tables and arm the framework clock.
  root = nullptr;
  in = RootInputs();
  set = RootSetInputs();
  ScratchTableTest::TearDown();
}

Zat::Ptr<Vorn::Counters::CountersSm> RootFixture::rootIs() {
  root = in.apply(
      [](const auto&... args) { return Vorn::Counters::CountersSm::CountersSmIs(args...); });
  set.supply(*root);
  return root;
}

Zat::Ptr<Vorn::Counters::CountersSm> RootFixture::initializedRootIs() {
  rootIs();
  root->initializedIs(true);
  return root;
}

void RootFixture::ethObjectsIs(Orvo::IntfId intfId) {
  in.ethPhyIntfConfigDir->intfConfigIs(intfId);
  in.ethPhyIntfStatusDir->intfStatusIs(intfId);
}

void RootFixture::ethServedIs(Orvo::IntfId intfId) {
  ethObjectsIs(intfId);
  in.vcsd->intfIs(intfId, true);
}

void RootFixture::vlanObjectsIs(Orvo::IntfId intfId) {
  in.vlanIntfConfigDir->intfConfigIs(intfId);
  in.vlanIntfStatusDir->intfStatusIs(intfId);
}

void RootFixture::vlanServedIs(Orvo::IntfId intfId) {
  vlanObjectsIs(intfId);
  in.vcsd->vlanIntfIs(intfId, true);
}

}  // namespace VornTest
