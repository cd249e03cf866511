// Interface tracking: which pollers exist per Ethernet interface, CPU port and
// VLAN interface, and what the root registers and seeds for them.
#include <gtest/gtest.h>

#include "counters/root/RootTestSupport.h"

namespace {

using Orvo::IntfId;
using RootTest::Calls;

const IntfId kEth1("Ethernet1");
const IntfId kEth2("Ethernet2");
const IntfId kCpu("Cpu");
const IntfId kVlan10("Vlan10");
const IntfId kVlan20("Vlan20");

class RootTracking : public VornTest::RootFixture {
 protected:
  // A row with non-zero totals, as a poller would have published.
  static Interface::EthIntfCounterBrim rowWithOctets(IntfId id, uint64_t octets) {
    Interface::EthIntfCounterBrim row(id);
    Interface::IntfStatistics stats;
    stats.inOctetsIs(octets);
    row.statisticsIs(stats);
    return row;
  }
  bool hasEthChildren(IntfId id) const {
    return root->portCountersSm(id) || root->intfQueueCountersSm(id) ||
           root->intfAclDropCountersSm(id);
  }
};

// --- serving an Ethernet interface ---

TEST_F(RootTracking, ServedEthernetInterfaceGetsRowsRegistrationsAndThreePollers) {
  ethServedIs(kEth1);
  root = initializedRootIs();
  auto port = root->portCountersSm(kEth1);
  auto queue = root->intfQueueCountersSm(kEth1);
  auto acl = root->intfAclDropCountersSm(kEth1);
  ASSERT_TRUE(port && queue && acl);
  EXPECT_TRUE(port->initialized());
  EXPECT_TRUE(queue->initialized());
  EXPECT_EQ(port->intfId(), kEth1);
  EXPECT_EQ(port->ethPhyIntfConfig(), in.ethPhyIntfConfigDir->intfConfig(kEth1));
  EXPECT_EQ(port->ethPhyIntfStatus(), in.ethPhyIntfStatusDir->intfStatus(kEth1));
  EXPECT_EQ(port->clock(), Zat::activityManager()->config()->clock());
  EXPECT_EQ(port->cliCounterConfig(), in.cliCounterConfig);
  EXPECT_EQ(port->allIntfCounters(), in.allIntfCounters);
  EXPECT_EQ(port->allIntfClearCounters(), in.allIntfClearCounters);
  EXPECT_EQ(queue->ethPhyIntfConfigDir(), in.ethPhyIntfConfigDir);
  EXPECT_EQ(queue->allIntfQueueCounters(), in.allIntfQueueCounters);
  EXPECT_EQ(acl->intfAclDropCountersDir(), in.intfAclDropCountersDir);
  EXPECT_EQ(acl->intfAclDropCounter(), Brim::Interface::DropCounter(kEth1));

  EXPECT_EQ(set.writerConfig->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(set.aclDropConfig->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(kEth1), std::optional<bool>(true));
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), Interface::EthIntfCounterBrim(kEth1));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), Interface::EthIntfCounterBrim(kEth1));
  EXPECT_TRUE(in.intfAclDropCountersDir->hasCounter(kEth1));
  EXPECT_EQ(in.intfAclDropCountersDir->counter(kEth1).intfId(), kEth1);
}

TEST_F(RootTracking, ServingTracesTheNewAclDropRowOnlyWhenItIsAdded) {
  ethServedIs(kEth1);
  in.intfAclDropCountersDir->counterIs(Brim::Interface::DropCounter(kEth2, 9));
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 6);
    initializedRootIs();
    ethServedIs(kEth2);
  }
  EXPECT_EQ(trace, Calls{" Adding Brim entry acldrop for Ethernet1"});
  // An existing row is handed to the poller as it is.
  EXPECT_EQ(root->intfAclDropCountersSm(kEth2)->intfAclDropCounter(),
            Brim::Interface::DropCounter(kEth2, 9));
}

TEST_F(RootTracking, ADamagedAclDropRowIsReportedAndTreatedAsMissing) {
  ethObjectsIs(kEth1);
  in.intfAclDropCountersDir->counterIs(Brim::Interface::DropCounter(kEth1, 5));
  initializedRootIs();
  RootTest::TableDamage shm(tables.ns(), TableNames::kIntfAclDropCountersDir);
  ASSERT_TRUE(shm.damage(kEth1.value()));
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 6);
    in.vcsd->intfIs(kEth1, true);
  }
  EXPECT_EQ(in.intfAclDropCountersDir->corruptionCount(), 1u);
  EXPECT_FALSE(in.intfAclDropCountersDir->lastCorruption().empty());
  EXPECT_EQ(trace, Calls{" Adding Brim entry acldrop for Ethernet1"});
  // The handler went on: the row was written afresh and every poller exists.
  auto acl = root->intfAclDropCountersSm(kEth1);
  ASSERT_NE(acl, nullptr);
  EXPECT_EQ(acl->intfAclDropCounter(), Brim::Interface::DropCounter(kEth1));
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(in.intfAclDropCountersDir->counter(kEth1).intfId(), kEth1);
}

TEST_F(RootTracking, WithoutAclSupportNoAclRowOrPollerIsMade) {
  helper().aclSupported = false;
  ethServedIs(kEth1);
  initializedRootIs();
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  EXPECT_NE(root->intfQueueCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->intfAclDropCountersSm(kEth1), nullptr);
  EXPECT_FALSE(in.intfAclDropCountersDir->hasCounter(kEth1));
  // The registration does not depend on the platform's answer.
  EXPECT_EQ(set.aclDropConfig->intf(kEth1), std::optional<bool>(true));
}

TEST_F(RootTracking, InterfaceWithoutStatusOrConfigGetsNoChildren) {
  in.ethPhyIntfConfigDir->intfConfigIs(kEth1);
  in.vcsd->intfIs(kEth1, true);
  in.ethPhyIntfStatusDir->intfStatusIs(kEth2);
  in.vcsd->intfIs(kEth2, true);
  initializedRootIs();
  for (IntfId id : {kEth1, kEth2}) {
    EXPECT_FALSE(hasEthChildren(id)) << id;
    EXPECT_FALSE(in.allIntfCounters->hasCounter(id)) << id;
    EXPECT_FALSE(set.writerConfig->contains(id)) << id;
    EXPECT_FALSE(set.ethIntfCounterWriterStatus->contains(id)) << id;
    EXPECT_EQ(set.aclDropConfig->intf(id), std::optional<bool>(false)) << id;
  }
  EXPECT_EQ(helper().count("intfCountersInit"), 0u);
}

TEST_F(RootTracking, LosingItsStatusDeletesTheChildrenAndRemovesTheRows) {
  ethServedIs(kEth1);
  initializedRootIs();
  in.allIntfCounters->counterIs(rowWithOctets(kEth1, 500));
  auto port = root->portCountersSm(kEth1);
  helper().clearCalls();
  in.ethPhyIntfStatusDir->intfStatusDel(kEth1);
  EXPECT_FALSE(hasEthChildren(kEth1));
  EXPECT_TRUE(port->zombie());
  EXPECT_EQ(helper().calls, (Calls{"intfCountersCleanup(Ethernet1)"}));
  EXPECT_FALSE(in.allIntfCounters->hasCounter(kEth1));
  EXPECT_FALSE(in.allIntfClearCounters->hasCounter(kEth1));
  EXPECT_FALSE(set.ethIntfCounterWriterStatus->contains(kEth1));
  EXPECT_FALSE(set.writerConfig->contains(kEth1));
  EXPECT_EQ(set.aclDropConfig->intf(kEth1), std::optional<bool>(false));
  // The ACL drop row is the hardware's absolute count: it stays.
  EXPECT_TRUE(in.intfAclDropCountersDir->hasCounter(kEth1));
}

TEST_F(RootTracking, LosingItsConfigDeletesTheChildrenAndRemovesTheRows) {
  ethServedIs(kEth1);
  initializedRootIs();
  in.ethPhyIntfConfigDir->intfConfigDel(kEth1);
  EXPECT_FALSE(hasEthChildren(kEth1));
  EXPECT_FALSE(in.allIntfCounters->hasCounter(kEth1));
  EXPECT_FALSE(in.allIntfClearCounters->hasCounter(kEth1));
  EXPECT_FALSE(set.ethIntfCounterWriterStatus->contains(kEth1));
}

TEST_F(RootTracking, LeavingTheSetWithConfigAndStatusKeepsRowsAndWriterStatus) {
  ethServedIs(kEth1);
  ethServedIs(kEth2);
  initializedRootIs();
  in.allIntfCounters->counterIs(rowWithOctets(kEth1, 500));
  in.allIntfClearCounters->counterIs(rowWithOctets(kEth1, 100));
  helper().clearCalls();
  in.vcsd->intfDel(kEth1);
  in.vcsd->intfIs(kEth2, false);
  for (IntfId id : {kEth1, kEth2}) {
    EXPECT_FALSE(hasEthChildren(id)) << id;
    EXPECT_TRUE(in.allIntfCounters->hasCounter(id)) << id;
    EXPECT_TRUE(in.allIntfClearCounters->hasCounter(id)) << id;
    EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(id), std::optional<bool>(true)) << id;
    EXPECT_EQ(set.aclDropConfig->intf(id), std::optional<bool>(false)) << id;
    EXPECT_FALSE(set.writerConfig->contains(id)) << id;
  }
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), rowWithOctets(kEth1, 500));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), rowWithOctets(kEth1, 100));
  EXPECT_EQ(helper().calls,
            (Calls{"intfCountersCleanup(Ethernet1)", "intfCountersCleanup(Ethernet2)"}));
  // Back in the set, the interface resumes from its kept totals.
  in.vcsd->intfIs(kEth1, true);
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), rowWithOctets(kEth1, 500));
}

TEST_F(RootTracking, ReEvaluationKeepsTheRowsAndUpdatesThePortPeriod) {
  // Without queue pollers a period change does not trip the queue re-request.
  in.allIntfQueueCounters = nullptr;
  ethServedIs(kEth1);
  initializedRootIs();
  auto port = root->portCountersSm(kEth1);
  auto acl = root->intfAclDropCountersSm(kEth1);
  in.allIntfCounters->counterIs(rowWithOctets(kEth1, 500));
  in.allIntfClearCounters->counterIs(rowWithOctets(kEth1, 100));
  // The ACL poller has published a count since it was made.
  in.intfAclDropCountersDir->counterIs(Brim::Interface::DropCounter(kEth1, 42));
  root->counterPollPeriodIs(7.0);
  EXPECT_EQ(port->counterPollPeriod(), 0.0);
  root->handleIntf(kEth1);
  EXPECT_EQ(root->portCountersSm(kEth1), port);
  EXPECT_EQ(root->intfAclDropCountersSm(kEth1), acl);
  EXPECT_EQ(port->counterPollPeriod(), 7.0);
  EXPECT_EQ(in.allIntfCounters->counter(kEth1), rowWithOctets(kEth1, 500));
  EXPECT_EQ(in.allIntfClearCounters->counter(kEth1), rowWithOctets(kEth1, 100));
  EXPECT_EQ(in.intfAclDropCountersDir->counter(kEth1), Brim::Interface::DropCounter(kEth1, 42));
  EXPECT_EQ(helper().count("intfCountersInit"), 1u);
}

TEST_F(RootTracking, QueueAndCpuPollersReRequestedAfterAPeriodChangeRaiseDeliberately) {
  ethServedIs(kEth1);
  in.vcsd->cpuIntfIs(kCpu, true);
  initializedRootIs();
  auto port = root->portCountersSm(kEth1);
  auto queue = root->intfQueueCountersSm(kEth1);
  auto cpu = root->cpuPortCountersSm(kCpu);
  root->counterPollPeriodIs(5.0);
  EXPECT_EQ(RootTest::messageOf<Zat::ReinstantiationException>([&] { root->handleIntf(kEth1); }),
            "attribute intfQueueCountersSm reinstantiated with a different value: existing 0, "
            "requested 5");
  EXPECT_EQ(RootTest::messageOf<Zat::ReinstantiationException>([&] { root->handleCpuIntf(kCpu); }),
            "attribute cpuPortCountersSm reinstantiated with a different value: existing 0, "
            "requested 5");
  // The port poller took the new period before the queue poller was requested;
  // the other children are left as they were.
  EXPECT_EQ(port->counterPollPeriod(), 5.0);
  EXPECT_EQ(root->intfQueueCountersSm(kEth1), queue);
  EXPECT_EQ(queue->pollInterval(), 0.0);
  EXPECT_EQ(root->cpuPortCountersSm(kCpu), cpu);
  EXPECT_EQ(cpu->counterPollPeriod(), 0.0);
  // Deleting the child first is the way to a new period.
  root->intfQueueCountersSmDel(kEth1);
  root->cpuPortCountersSmDel(kCpu);
  root->handleIntf(kEth1);
  root->handleCpuIntf(kCpu);
  EXPECT_EQ(root->intfQueueCountersSm(kEth1)->pollInterval(), 5.0);
  EXPECT_EQ(root->cpuPortCountersSm(kCpu)->counterPollPeriod(), 5.0);
}

TEST_F(RootTracking, ChildCollectionsReturnTheExistingChildOrRaiseNamingBothValues) {
  ethServedIs(kEth1);
  initializedRootIs();
  auto clock = Zat::Ptr<const Zat::Clock>(Zat::activityManager()->config()->clock());
  auto port = root->portCountersSm(kEth1);
  auto config = in.ethPhyIntfConfigDir->intfConfig(kEth1);
  auto status = in.ethPhyIntfStatusDir->intfStatus(kEth1);
  auto helperPtr = Zat::Ptr<VornHelper::VornHelperCountersSm>(in.platformHelper);
  EXPECT_EQ(
      root->portCountersSmIs(in.vcsd, kEth1, in.cliCounterConfig, clock, config, status, helperPtr,
                             in.globalIntfConfig, in.allIntfCounters, in.allIntfClearCounters),
      port);
  auto otherTable = tables.allEthIntfCounterBrimIs("otherCounters");
  const std::string message = RootTest::messageOf<Zat::ReinstantiationException>([&] {
    root->portCountersSmIs(in.vcsd, kEth1, in.cliCounterConfig, clock, config, status, helperPtr,
                           in.globalIntfConfig, otherTable, in.allIntfClearCounters);
  });
  EXPECT_EQ(message, "attribute portCountersSm reinstantiated with a different value: existing " +
                         Zat::toText(in.allIntfCounters) + ", requested " +
                         Zat::toText(otherTable));
  EXPECT_EQ(root->portCountersSm(kEth1), port);
  EXPECT_EQ(port->allIntfCounters(), in.allIntfCounters);

  // The ACL drop record is matched by its key; its count is the poller's.
  auto acl = root->intfAclDropCountersSm(kEth1);
  EXPECT_EQ(root->intfAclDropCountersSmIs(kEth1, clock, Brim::Interface::DropCounter(kEth1, 99),
                                          in.intfAclDropCountersDir, helperPtr),
            acl);
  EXPECT_EQ(RootTest::messageOf<Zat::ReinstantiationException>([&] {
              root->intfAclDropCountersSmIs(kEth1, clock, Brim::Interface::DropCounter(kEth2),
                                            in.intfAclDropCountersDir, helperPtr);
            }),
            "attribute intfAclDropCountersSm reinstantiated with a different value: existing "
            "Ethernet1, requested Ethernet2");

  auto vlanHelper = VornTest::FakeCountersHelper::FakeCountersHelperIs();
  root->cpuPortCountersSmIs(in.vcsd, kCpu, 1.0, clock, helperPtr);
  EXPECT_EQ(RootTest::messageOf<Zat::ReinstantiationException>([&] {
              root->cpuPortCountersSmIs(in.vcsd, kCpu, 1.0, clock,
                                        Zat::Ptr<VornHelper::VornHelperCountersSm>(vlanHelper));
            }),
            "attribute cpuPortCountersSm reinstantiated with a different value: existing " +
                Zat::toText(helperPtr) + ", requested " + Zat::toText(vlanHelper));
  root->portCountersSmDel(kEth1);
  EXPECT_EQ(root->portCountersSm(kEth1), nullptr);
  EXPECT_TRUE(port->zombie());
  root->portCountersSmDel(kEth1);  // absent: nothing happens
  root->intfAclDropCountersSmDelAll();
  EXPECT_EQ(root->intfAclDropCountersSm().size(), 0u);
}

TEST_F(RootTracking, WithoutTheQueueTableAServedInterfaceGetsNoQueuePoller) {
  in.allIntfQueueCounters = nullptr;
  ethServedIs(kEth1);
  initializedRootIs();
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  EXPECT_NE(root->intfAclDropCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->intfQueueCountersSm(kEth1), nullptr);
  EXPECT_EQ(helper().count("intfQueueTypeRead"), 0u);
}

TEST_F(RootTracking, WithoutTheCounterTableNoRowsAreSeededAndTheWriterStatusIsUntouched) {
  in.allIntfCounters = nullptr;
  in.allIntfClearCounters = nullptr;
  ethServedIs(kEth1);
  initializedRootIs();
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(set.ethIntfCounterWriterStatus->size(), 0u);
  EXPECT_EQ(set.writerConfig->intf(kEth1), std::optional<bool>(true));
  set.ethIntfCounterWriterStatus->intfIs(kEth1, true);
  in.ethPhyIntfStatusDir->intfStatusDel(kEth1);
  EXPECT_EQ(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(kEth1), std::optional<bool>(true));
}

TEST_F(RootTracking, TheEthernetDecisionIsTracedWithItsInterface) {
  ethServedIs(kEth1);
  initializedRootIs();
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 8, true);
    root->handleIntf(kEth1);
  }
  ASSERT_FALSE(trace.empty());
  EXPECT_EQ(trace.front(), "8 void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId) Ethernet1");
}

// --- CPU ports ---

TEST_F(RootTracking, CpuPortFlaggedFalseLosesItsPollerAndNothingElseChanges) {
  ethServedIs(kEth1);
  in.vcsd->cpuIntfIs(kCpu, true);
  initializedRootIs();
  auto cpu = root->cpuPortCountersSm(kCpu);
  ASSERT_NE(cpu, nullptr);
  EXPECT_TRUE(cpu->initialized());
  EXPECT_EQ(cpu->platformHelper(), in.platformHelper);
  EXPECT_EQ(helper().count("cpuPortCountersInit(Cpu)"), 1u);
  const size_t rows = in.allIntfCounters->size();
  const size_t writerEntries = set.ethIntfCounterWriterStatus->size();
  helper().clearCalls();
  in.vcsd->cpuIntfIs(kCpu, false);
  EXPECT_EQ(root->cpuPortCountersSm(kCpu), nullptr);
  EXPECT_TRUE(cpu->zombie());
  EXPECT_EQ(helper().calls, Calls{});
  EXPECT_EQ(in.allIntfCounters->size(), rows);
  EXPECT_EQ(set.ethIntfCounterWriterStatus->size(), writerEntries);
  EXPECT_EQ(set.vlanIntfCounterWriterStatus->size(), 0u);
  EXPECT_NE(root->portCountersSm(kEth1), nullptr);
  // Removing the entry altogether is the same.
  in.vcsd->cpuIntfIs(kCpu, true);
  EXPECT_NE(root->cpuPortCountersSm(kCpu), nullptr);
  in.vcsd->cpuIntfDel(kCpu);
  EXPECT_EQ(root->cpuPortCountersSm(kCpu), nullptr);
}

// --- VLAN interfaces ---

TEST_F(RootTracking, ServedVlanInterfaceGetsAPollerAndAWriterStatusEntry) {
  vlanServedIs(kVlan10);
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 7);
    initializedRootIs();
  }
  auto vlan = root->vlanIntfCountersSm(kVlan10);
  ASSERT_NE(vlan, nullptr);
  EXPECT_TRUE(vlan->initialized());
  EXPECT_EQ(vlan->vlanIntfConfig(), in.vlanIntfConfigDir->intfConfig(kVlan10));
  EXPECT_EQ(vlan->vlanIntfStatus(), in.vlanIntfStatusDir->intfStatus(kVlan10));
  EXPECT_EQ(vlan->allVlanIntfCounters(), set.allVlanIntfCounters);
  EXPECT_EQ(set.vlanIntfCounterWriterStatus->intf(kVlan10), std::optional<bool>(true));
  EXPECT_EQ(helper().count("vlanIntfCountersSupported(Vlan10,10)"), 1u);
  EXPECT_EQ(trace, (Calls{"void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId) "
                          "Initializing counter state machine for VLAN interfaceVlan10"}));
}

TEST_F(RootTracking, AServedVlanInterfaceIsNotRequestedAgain) {
  vlanServedIs(kVlan10);
  initializedRootIs();
  auto vlan = root->vlanIntfCountersSm(kVlan10);
  root->counterPollPeriodIs(9.0);
  root->handleVlanIntf(kVlan10);
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), vlan);
  EXPECT_EQ(vlan->counterPollPeriod(), 0.0);
}

TEST_F(RootTracking, WithdrawnVlanInterfaceIsReleasedThenDeletedAndItsRowRemoved) {
  vlanServedIs(kVlan10);
  initializedRootIs();
  ASSERT_TRUE(set.allVlanIntfCounters->hasCounter(kVlan10));
  auto vlan = root->vlanIntfCountersSm(kVlan10);
  helper().clearCalls();
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 7);
    in.vcsd->vlanIntfIs(kVlan10, false);
  }
  EXPECT_EQ(trace, (Calls{"void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId) "
                          "Deleting counter state machine vlanIntf: Vlan10"}));
  EXPECT_EQ(helper().calls, Calls{"vlanIntfCountersRelease(Vlan10)"});
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), nullptr);
  EXPECT_TRUE(vlan->zombie());
  EXPECT_FALSE(set.vlanIntfCounterWriterStatus->contains(kVlan10));
  EXPECT_FALSE(set.allVlanIntfCounters->hasCounter(kVlan10));
  // Withdrawing again finds no child and does nothing.
  helper().clearCalls();
  in.vlanIntfStatusDir->intfStatusDel(kVlan10);
  EXPECT_EQ(helper().calls, Calls{});
}

TEST_F(RootTracking, VlanInterfaceLosingItsStatusIsWithdrawn) {
  vlanServedIs(kVlan10);
  initializedRootIs();
  in.vlanIntfStatusDir->intfStatusDel(kVlan10);
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), nullptr);
  EXPECT_EQ(helper().count("vlanIntfCountersRelease(Vlan10)"), 1u);
  in.vlanIntfStatusDir->intfStatusIs(kVlan10);
  EXPECT_NE(root->vlanIntfCountersSm(kVlan10), nullptr);
  in.vlanIntfConfigDir->intfConfigDel(kVlan10);
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), nullptr);
}

TEST_F(RootTracking, VlanInterfaceDeclinedByThePlatformGetsNoPollerAndNoWriterStatus) {
  helper().vlanIntfRefused.insert(kVlan20);
  vlanServedIs(kVlan10);
  vlanServedIs(kVlan20);
  initializedRootIs();
  EXPECT_NE(root->vlanIntfCountersSm(kVlan10), nullptr);
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan20), nullptr);
  EXPECT_FALSE(set.vlanIntfCounterWriterStatus->contains(kVlan20));
  EXPECT_FALSE(set.allVlanIntfCounters->hasCounter(kVlan20));
  // A refusal leaves an existing poller as it is.
  helper().vlanIntfRefused.insert(kVlan10);
  auto vlan = root->vlanIntfCountersSm(kVlan10);
  root->handleVlanIntf(kVlan10);
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), vlan);
  EXPECT_TRUE(set.vlanIntfCounterWriterStatus->contains(kVlan10));
}

TEST_F(RootTracking, ANonVlanKeyInTheVlanSetIsIgnored) {
  ethObjectsIs(kEth1);
  in.vlanIntfConfigDir->intfConfigIs(kEth1);
  in.vlanIntfStatusDir->intfStatusIs(kEth1);
  initializedRootIs();
  helper().clearCalls();
  in.vcsd->vlanIntfIs(kEth1, true);
  EXPECT_EQ(root->vlanIntfCountersSm(kEth1), nullptr);
  EXPECT_EQ(root->portCountersSm(kEth1), nullptr);
  EXPECT_EQ(helper().calls, Calls{});
  EXPECT_EQ(set.vlanIntfCounterWriterStatus->size(), 0u);
}

TEST_F(RootTracking, VlanInterfacesWaitForTheirCounterTable) {
  set.allVlanIntfCounters = nullptr;
  vlanServedIs(kVlan10);
  initializedRootIs();
  EXPECT_EQ(root->vlanIntfCountersSm(kVlan10), nullptr);
  EXPECT_EQ(helper().count("vlanIntfCountersSupported"), 0u);
  auto table = tables.allVlanIntfCounterBrimIs("lateVlanIntfCounters");
  root->allVlanIntfCountersIs(table);
  root->handleVlanIntf(kVlan10);
  EXPECT_NE(root->vlanIntfCountersSm(kVlan10), nullptr);
}

}  // namespace
