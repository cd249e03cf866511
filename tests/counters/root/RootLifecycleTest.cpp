// The root's construction, initialization order, notifications, zombie
// teardown, destruction and generic attribute interface.
#include <gtest/gtest.h>

#include <algorithm>

#include "counters/root/RootTestSupport.h"
#include "zat/Generic.h"

namespace {

using RootTest::Calls;
using Vorn::Counters::CountersSm;

// Notifiees registered with `object` right now.
size_t registeredCount(const Zat::PtrInterface& object) {
  const auto* list = object.notifieeList();
  if (!list) return 0;
  return static_cast<size_t>(
      std::count_if(list->begin(), list->end(), [](auto* n) { return n != nullptr; }));
}

class RootLifecycle : public VornTest::RootFixture {};

TEST_F(RootLifecycle, NewRootHasEveryReactorAndNoHandlerHasRun) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  rootIs();
  EXPECT_FALSE(root->initialized());
  EXPECT_TRUE(root->hasNotificationActive());
  EXPECT_NE(root->reactVcsd(), nullptr);
  EXPECT_NE(root->zatEthPhyIntfConfigDir(), nullptr);
  EXPECT_NE(root->zatEthPhyIntfStatusDir(), nullptr);
  EXPECT_NE(root->zatCliConfig(), nullptr);
  EXPECT_NE(root->zatQosSliceHwStatus(), nullptr);
  EXPECT_NE(root->zatQosSliceHwStatusDir(), nullptr);
  EXPECT_NE(root->zatQosAclSliceHwStatus(), nullptr);
  EXPECT_NE(root->zatQosAclSliceHwStatusDir(), nullptr);
  EXPECT_NE(root->zatVlanIntfConfigDir(), nullptr);
  EXPECT_NE(root->zatVlanIntfStatusDir(), nullptr);
  EXPECT_TRUE(root->reactVcsd()->isRegisteredNotifiee());
  EXPECT_TRUE(root->zatVlanIntfStatusDir()->isRegisteredNotifiee());
  // Construction does no work: no helper call, no child, no row.
  EXPECT_EQ(helper().calls, Calls{});
  EXPECT_EQ(root->portCountersSm().size(), 0u);
  EXPECT_EQ(in.allIntfCounters->size(), 0u);
  EXPECT_EQ(root->counterPollPeriod(), 0.0);
  EXPECT_EQ(root->writerConfig(), set.writerConfig);
  EXPECT_EQ(root->vlanIntfCounterWriterStatus(), set.vlanIntfCounterWriterStatus);
}

TEST_F(RootLifecycle, SetAttributesAreNullUntilTheAgentSuppliesThem) {
  root = in.apply([](const auto&... args) { return CountersSm::CountersSmIs(args...); });
  EXPECT_EQ(root->writerConfig(), nullptr);
  EXPECT_EQ(root->ethIntfCounterWriterStatus(), nullptr);
  EXPECT_EQ(root->aclDropConfig(), nullptr);
  EXPECT_EQ(root->allVlanIntfCounters(), nullptr);
  EXPECT_EQ(root->vlanIntfCounterWriterStatus(), nullptr);
  EXPECT_EQ(root->counterPollPeriod(), 0.0);
  set.supply(*root);
  root->counterPollPeriodIs(3.5);
  EXPECT_EQ(root->writerConfig(), set.writerConfig);
  EXPECT_EQ(root->ethIntfCounterWriterStatus(), set.ethIntfCounterWriterStatus);
  EXPECT_EQ(root->aclDropConfig(), set.aclDropConfig);
  EXPECT_EQ(root->allVlanIntfCounters(), set.allVlanIntfCounters);
  EXPECT_EQ(root->vlanIntfCounterWriterStatus(), set.vlanIntfCounterWriterStatus);
  EXPECT_EQ(root->counterPollPeriod(), 3.5);
}

TEST_F(RootLifecycle, EveryInputNullLeavesOnlyTheVcsdReactorAndInitializationRunsAllFivePasses) {
  Calls log;
  in.allOptionalNull();
  in.vcsd->intfIs(Orvo::IntfId("Ethernet1"), true);
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  in.vcsd->vlanIntfIs(Orvo::IntfId("Vlan10"), true);
  auto loggingHelper = RootTest::LoggingHelper::LoggingHelperIs(&log);
  auto logging = in.apply([&](const auto& vcsd, const auto& a2, const auto& a3, const auto& a4,
                              const auto&, const auto&... rest) {
    Zat::Ptr<RootTest::LoggingRoot> r(new RootTest::LoggingRoot(
        &log, vcsd, a2, a3, a4, Zat::Ptr<VornHelper::VornHelperCountersSm>(loggingHelper),
        rest...));
    r->hasNotificationActiveIs(true);
    return r;
  });
  EXPECT_NE(logging->reactVcsd(), nullptr);
  EXPECT_EQ(logging->zatEthPhyIntfConfigDir(), nullptr);
  EXPECT_EQ(logging->zatEthPhyIntfStatusDir(), nullptr);
  EXPECT_EQ(logging->zatCliConfig(), nullptr);
  EXPECT_EQ(logging->zatQosSliceHwStatus(), nullptr);
  EXPECT_EQ(logging->zatQosSliceHwStatusDir(), nullptr);
  EXPECT_EQ(logging->zatQosAclSliceHwStatus(), nullptr);
  EXPECT_EQ(logging->zatQosAclSliceHwStatusDir(), nullptr);
  EXPECT_EQ(logging->zatVlanIntfConfigDir(), nullptr);
  EXPECT_EQ(logging->zatVlanIntfStatusDir(), nullptr);
  {
    RootTest::TraceToLog trace(&log, 8);
    logging->initializedIs(true);
  }
  EXPECT_EQ(log, (Calls{
                     "void Vorn::Counters::CountersSm::handleInitialized()",
                     "countersInit",
                     "void Vorn::Counters::CountersSm::handleIntf()",
                     "handleIntf(Ethernet1)",
                     "void Vorn::Counters::CountersSm::handlePolicyMapType()",
                     "void Vorn::Counters::CountersSm::handleDynamicPolicyMapType()",
                     "void Vorn::Counters::CountersSm::handleCpuIntf()",
                     "handleCpuIntf(Cpu)",
                     "void Vorn::Counters::CountersSm::handleVlanIntf()",
                     "void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId) Vlan10",
                 }));
  EXPECT_TRUE(logging->initialized());
  EXPECT_EQ(logging->vlanIntfCountersSm().size(), 0u);
}

TEST_F(RootLifecycle, InitializationCallsCountersInitOnceBeforeAnyChildExists) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  initializedRootIs();
  ASSERT_FALSE(helper().calls.empty());
  EXPECT_EQ(helper().calls.front(), "countersInit");
  EXPECT_EQ(helper().count("countersInit"), 1u);
  // Ethernet ports come before CPU ports.
  const auto& calls = helper().calls;
  auto port = std::find(calls.begin(), calls.end(), "intfCountersInit(Ethernet1)");
  auto cpu = std::find(calls.begin(), calls.end(), "cpuPortCountersInit(Cpu)");
  ASSERT_NE(port, calls.end());
  ASSERT_NE(cpu, calls.end());
  EXPECT_LT(port, cpu);
  // A second initializedIs(true) is a no-op.
  root->initializedIs(true);
  EXPECT_EQ(helper().count("countersInit"), 1u);
}

TEST_F(RootLifecycle, PerKeyHandlersWaitForInitializationAndTheFullPassCatchesUp) {
  rootIs();
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  vlanServedIs(Orvo::IntfId("Vlan10"));
  EXPECT_EQ(root->portCountersSm().size(), 0u);
  EXPECT_EQ(root->cpuPortCountersSm().size(), 0u);
  EXPECT_EQ(root->vlanIntfCountersSm().size(), 0u);
  EXPECT_EQ(helper().calls, Calls{});
  root->initializedIs(true);
  EXPECT_NE(root->portCountersSm(Orvo::IntfId("Ethernet1")), nullptr);
  EXPECT_NE(root->cpuPortCountersSm(Orvo::IntfId("Cpu")), nullptr);
  EXPECT_NE(root->vlanIntfCountersSm(Orvo::IntfId("Vlan10")), nullptr);
}

TEST_F(RootLifecycle, ChildrenCreatedBeforeThePeriodIsSetReceiveZero) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  vlanServedIs(Orvo::IntfId("Vlan10"));
  initializedRootIs();
  EXPECT_EQ(root->counterPollPeriod(), 0.0);
  EXPECT_EQ(root->portCountersSm(Orvo::IntfId("Ethernet1"))->counterPollPeriod(), 0.0);
  EXPECT_EQ(root->intfQueueCountersSm(Orvo::IntfId("Ethernet1"))->pollInterval(), 0.0);
  EXPECT_EQ(root->cpuPortCountersSm(Orvo::IntfId("Cpu"))->counterPollPeriod(), 0.0);
  EXPECT_EQ(root->vlanIntfCountersSm(Orvo::IntfId("Vlan10"))->counterPollPeriod(), 0.0);
}

TEST_F(RootLifecycle, NotificationsSwitchTheWholeTreeAndASecondEqualCallChangesNothing) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  initializedRootIs();
  auto port = root->portCountersSm(Orvo::IntfId("Ethernet1"));
  auto cpu = root->cpuPortCountersSm(Orvo::IntfId("Cpu"));
  ASSERT_TRUE(port && cpu);
  EXPECT_EQ(registeredCount(*in.vcsd), 1u);
  EXPECT_EQ(registeredCount(*in.ethPhyIntfConfigDir), 1u);

  root->hasNotificationActiveIs(true);
  EXPECT_EQ(registeredCount(*in.vcsd), 1u);
  EXPECT_EQ(registeredCount(*in.ethPhyIntfConfigDir), 1u);
  EXPECT_TRUE(port->hasNotificationActive());

  root->hasNotificationActiveIs(false);
  EXPECT_FALSE(root->hasNotificationActive());
  EXPECT_EQ(registeredCount(*in.vcsd), 0u);
  EXPECT_EQ(registeredCount(*in.ethPhyIntfConfigDir), 0u);
  EXPECT_EQ(registeredCount(*in.cliConfig), 0u);
  EXPECT_EQ(registeredCount(*in.qosSliceHwStatusDir), 0u);
  EXPECT_EQ(registeredCount(*in.vlanIntfStatusDir), 0u);
  EXPECT_FALSE(port->hasNotificationActive());
  EXPECT_FALSE(cpu->hasNotificationActive());
  // Switched off, the root hears no interface change.
  in.vcsd->intfIs(Orvo::IntfId("Ethernet1"), false);
  EXPECT_NE(root->portCountersSm(Orvo::IntfId("Ethernet1")), nullptr);

  root->hasNotificationActiveIs(false);
  EXPECT_EQ(registeredCount(*in.vcsd), 0u);

  root->hasNotificationActiveIs(true);
  EXPECT_EQ(registeredCount(*in.vcsd), 1u);
  EXPECT_EQ(registeredCount(*in.vlanIntfStatusDir), 1u);
  EXPECT_TRUE(port->hasNotificationActive());
  EXPECT_TRUE(cpu->hasNotificationActive());
}

TEST_F(RootLifecycle, ZombieTeardownSilencesTheTenReactorsButLeavesTheChildren) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  initializedRootIs();
  auto port = root->portCountersSm(Orvo::IntfId("Ethernet1"));
  root->zatDoZombieReactors(true);
  EXPECT_TRUE(root->zombie());
  for (const Zat::NotifieeConst* reactor : std::vector<const Zat::NotifieeConst*>{
           root->zatEthPhyIntfConfigDir(), root->zatEthPhyIntfStatusDir(), root->reactVcsd(),
           root->zatCliConfig(), root->zatQosSliceHwStatus(), root->zatQosSliceHwStatusDir(),
           root->zatQosAclSliceHwStatus(), root->zatQosAclSliceHwStatusDir(),
           root->zatVlanIntfConfigDir(), root->zatVlanIntfStatusDir()}) {
    ASSERT_NE(reactor, nullptr);
    EXPECT_TRUE(reactor->zombie());
    EXPECT_FALSE(reactor->isRegisteredNotifiee());
  }
  // Children are not visited: they die when their collections are emptied.
  EXPECT_FALSE(port->zombie());
  EXPECT_EQ(root->portCountersSm(Orvo::IntfId("Ethernet1")), port);
  // No handler runs for a zombie.
  Interface::EthIntfCounterBrim totals(Orvo::IntfId("Ethernet1"));
  Interface::IntfStatistics stats;
  stats.inOctetsIs(77);
  totals.statisticsIs(stats);
  in.allIntfCounters->counterIs(totals);
  in.vcsd->intfIs(Orvo::IntfId("Ethernet1"), false);
  ethServedIs(Orvo::IntfId("Ethernet2"));
  in.cliConfig->clearCountersRequestIs("all");
  EXPECT_EQ(root->portCountersSm().size(), 1u);
  EXPECT_EQ(root->portCountersSm(Orvo::IntfId("Ethernet2")), nullptr);
  EXPECT_EQ(in.allIntfClearCounters->counter(Orvo::IntfId("Ethernet1")),
            Interface::EthIntfCounterBrim(Orvo::IntfId("Ethernet1")));
  EXPECT_EQ(set.aclDropConfig->intf(Orvo::IntfId("Ethernet1")), std::optional<bool>(true));
  // A second call returns at once.
  root->zatDoZombieReactors(true);
  EXPECT_TRUE(root->zombie());
}

TEST_F(RootLifecycle, DestructionEmptiesEveryCollectionAndUnregistersEveryReactor) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  vlanServedIs(Orvo::IntfId("Vlan10"));
  in.qosSliceHwStatus->pmapTypeIs(Qos::MapType::mapControlPlane);
  initializedRootIs();
  Zat::Ptr<Zat::PtrInterface> port = root->portCountersSm(Orvo::IntfId("Ethernet1"));
  Zat::Ptr<Zat::PtrInterface> queue = root->intfQueueCountersSm(Orvo::IntfId("Ethernet1"));
  Zat::Ptr<Zat::PtrInterface> acl = root->intfAclDropCountersSm(Orvo::IntfId("Ethernet1"));
  Zat::Ptr<Zat::PtrInterface> cpu = root->cpuPortCountersSm(Orvo::IntfId("Cpu"));
  Zat::Ptr<Zat::PtrInterface> vlan = root->vlanIntfCountersSm(Orvo::IntfId("Vlan10"));
  Zat::Ptr<Zat::PtrInterface> copp = root->coppTypeSm(Qos::MapType::mapControlPlane);
  ASSERT_TRUE(port && queue && acl && cpu && vlan && copp);
  helper().clearCalls();
  root = nullptr;
  for (const Zat::PtrInterface* child :
       {port.ptr(), queue.ptr(), acl.ptr(), cpu.ptr(), vlan.ptr(), copp.ptr()}) {
    EXPECT_TRUE(child->zombie()) << child->fwkType();
    EXPECT_EQ(child->references(), 1) << child->fwkType();
  }
  for (const Zat::PtrInterface* notifier : std::vector<const Zat::PtrInterface*>{
           in.vcsd.ptr(), in.ethPhyIntfConfigDir.ptr(), in.ethPhyIntfStatusDir.ptr(),
           in.cliConfig.ptr(), in.qosSliceHwStatus.ptr(), in.qosSliceHwStatusDir.ptr(),
           in.qosAclSliceHwStatus.ptr(), in.qosAclSliceHwStatusDir.ptr(),
           in.vlanIntfConfigDir.ptr(), in.vlanIntfStatusDir.ptr()}) {
    EXPECT_EQ(registeredCount(*notifier), 0u) << notifier->fwkType();
  }
  // Teardown is not an exit: the helper is told nothing and rows stay.
  EXPECT_EQ(helper().calls, Calls{});
  EXPECT_TRUE(in.allIntfCounters->hasCounter(Orvo::IntfId("Ethernet1")));
}

TEST_F(RootLifecycle, ReactVcsdIsKeepsAReactorFollowingTheSameObject) {
  rootIs();
  auto* first = root->reactVcsd();
  root->reactVcsdIs(in.vcsd);
  EXPECT_EQ(root->reactVcsd(), first);
  EXPECT_EQ(registeredCount(*in.vcsd), 1u);
  auto other = Vorn::VornCommonSmData::VornCommonSmDataIs();
  root->reactVcsdIs(other);
  EXPECT_NE(root->reactVcsd(), nullptr);
  EXPECT_EQ(root->reactVcsd()->notifier(), other.ptr());
  EXPECT_EQ(registeredCount(*in.vcsd), 0u);
  EXPECT_EQ(registeredCount(*other), 1u);
}

TEST_F(RootLifecycle, InputRemovalDropsTheReactor) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  initializedRootIs();
  root->cliConfigDel();
  EXPECT_EQ(root->cliConfig(), nullptr);
  EXPECT_EQ(root->zatCliConfig(), nullptr);
  EXPECT_EQ(registeredCount(*in.cliConfig), 0u);
  in.cliConfig->clearCountersRequestIs("all");
  EXPECT_EQ(in.allIntfClearCounters->counter(Orvo::IntfId("Ethernet1")),
            Interface::EthIntfCounterBrim(Orvo::IntfId("Ethernet1")));

  root->ethPhyIntfStatusDirDel();
  EXPECT_EQ(root->zatEthPhyIntfStatusDir(), nullptr);
  EXPECT_EQ(registeredCount(*in.ethPhyIntfStatusDir), 0u);
  // A missing directory reads as "no entry": the next evaluation withdraws.
  root->handleIntf(Orvo::IntfId("Ethernet1"));
  EXPECT_EQ(root->portCountersSm(Orvo::IntfId("Ethernet1")), nullptr);

  root->ethPhyIntfConfigDirDel();
  root->qosSliceHwStatusDirDel();
  root->qosAclSliceHwStatusDirDel();
  root->vlanIntfConfigDirDel();
  root->vlanIntfStatusDirDel();
  root->qosSliceHwStatusDel();
  root->qosAclSliceHwStatusDel();
  EXPECT_EQ(root->zatEthPhyIntfConfigDir(), nullptr);
  EXPECT_EQ(root->zatQosSliceHwStatusDir(), nullptr);
  EXPECT_EQ(root->zatQosAclSliceHwStatusDir(), nullptr);
  EXPECT_EQ(root->zatVlanIntfConfigDir(), nullptr);
  EXPECT_EQ(root->zatVlanIntfStatusDir(), nullptr);
  EXPECT_EQ(root->zatQosSliceHwStatus(), nullptr);
  EXPECT_EQ(root->zatQosAclSliceHwStatus(), nullptr);
  EXPECT_EQ(root->qosSliceHwStatus(), nullptr);
  EXPECT_EQ(registeredCount(*in.vlanIntfConfigDir), 0u);
  EXPECT_EQ(registeredCount(*in.qosAclSliceHwStatus), 0u);
  EXPECT_NE(root->reactVcsd(), nullptr);
}

TEST_F(RootLifecycle, ADerivedHandleIntfIsWhatTheReactorsCall) {
  Calls log;
  auto logging = RootTest::LoggingRoot::LoggingRootIs(&log, in);
  set.supply(*logging);
  logging->initializedIs(true);
  log.clear();
  ethServedIs(Orvo::IntfId("Ethernet2"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  in.ethPhyIntfStatusDir->intfStatusDel(Orvo::IntfId("Ethernet2"));
  in.cliConfig->clearCountersRequestIs("Ethernet2");
  EXPECT_EQ(log,
            (Calls{"handleIntf(Ethernet2)", "handleIntf(Ethernet2)", "handleIntf(Ethernet2)",
                   "handleCpuIntf(Cpu)", "handleIntf(Ethernet2)", "doClearCounters(Ethernet2)"}));
  // The replacement did the work instead of the root's own handler.
  EXPECT_EQ(logging->portCountersSm().size(), 0u);
  EXPECT_EQ(logging->cpuPortCountersSm().size(), 0u);
  // The generic interface reaches the replacement too.
  log.clear();
  logging->genericInvoke("handleIntf", {"Ethernet7"});
  EXPECT_EQ(log, Calls{"handleIntf(Ethernet7)"});
}

TEST_F(RootLifecycle, ReactorsIgnoreOtherAttributesAndKeylessChanges) {
  ethServedIs(Orvo::IntfId("Ethernet1"));
  initializedRootIs();
  helper().clearCalls();
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 8);
    in.vcsd->notify("somethingElse", nullptr);
    in.vcsd->notify(Vorn::VornCommonSmData::kIntf, nullptr);
    in.ethPhyIntfConfigDir->notify("loadInterval", nullptr);
    in.cliConfig->notify(Vorn::HwCliConfig::kClearCountersRequest, nullptr);
    in.qosSliceHwStatusDir->notify(Zat::Dir::kEntity, nullptr);
  }
  EXPECT_EQ(trace, Calls{});
  EXPECT_EQ(helper().calls, Calls{});
}

TEST_F(RootLifecycle, AttributesAreDescribedInDeclarationOrderWithTheirChildren) {
  ethServedIs(Orvo::IntfId("Ethernet2"));
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  vlanServedIs(Orvo::IntfId("Vlan10"));
  in.qosSliceHwStatus->pmapTypeIs(Qos::MapType::mapControlPlane);
  in.qosAclSliceHwStatus->pmapTypeIs(Qos::MapType::mapControlPlane);
  initializedRootIs();
  root->counterPollPeriodIs(0.0);
  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*root)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"vcsd",
                                             "ethPhyIntfConfigDir",
                                             "ethPhyIntfStatusDir",
                                             "cliCounterConfig",
                                             "platformHelper",
                                             "globalIntfConfig",
                                             "reactVcsd",
                                             "portCountersSm",
                                             "intfQueueCountersSm",
                                             "intfAclDropCountersSm",
                                             "writerConfig",
                                             "ethIntfCounterWriterStatus",
                                             "aclDropConfig",
                                             "cliConfig",
                                             "qosSliceHwStatus",
                                             "qosSliceHwStatusDir",
                                             "coppTypeSm",
                                             "qosAclSliceHwStatus",
                                             "qosAclSliceHwStatusDir",
                                             "coppDynamicTypeSm",
                                             "cpuPortCountersSm",
                                             "vlanIntfConfigDir",
                                             "vlanIntfStatusDir",
                                             "allVlanIntfCounters",
                                             "vlanIntfCounterWriterStatus",
                                             "vlanIntfCountersSm",
                                             "intfAclDropCountersDir",
                                             "allIntfQueueCounters",
                                             "allIntfClearQueueCounters",
                                             "allIntfCounters",
                                             "allIntfClearCounters",
                                             "counterPollPeriod",
                                             "initialized"}));
  auto attrs = Zat::attributesOf(*root);
  EXPECT_EQ(attrs[7].second, "2 entries");
  EXPECT_EQ(attrs[31].second, "0");
  EXPECT_EQ(attrs[32].second, "true");
  EXPECT_EQ(Zat::childOf(*root, "portCountersSm", "Ethernet1"),
            root->portCountersSm(Orvo::IntfId("Ethernet1")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "portCountersSm", "Ethernet2"),
            root->portCountersSm(Orvo::IntfId("Ethernet2")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "intfQueueCountersSm", "Ethernet1"),
            root->intfQueueCountersSm(Orvo::IntfId("Ethernet1")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "intfAclDropCountersSm", "Ethernet2"),
            root->intfAclDropCountersSm(Orvo::IntfId("Ethernet2")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "cpuPortCountersSm", "Cpu"),
            root->cpuPortCountersSm(Orvo::IntfId("Cpu")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "vlanIntfCountersSm", "Vlan10"),
            root->vlanIntfCountersSm(Orvo::IntfId("Vlan10")).ptr());
  EXPECT_EQ(Zat::childOf(*root, "coppTypeSm", "mapControlPlane"),
            root->coppTypeSm(Qos::MapType::mapControlPlane).ptr());
  EXPECT_EQ(Zat::childOf(*root, "coppDynamicTypeSm", "mapControlPlane"),
            root->coppDynamicTypeSm(Qos::MapType::mapControlPlane).ptr());
  EXPECT_EQ(std::string(root->fwkType()), "Vorn::Counters::CountersSm");
}

TEST_F(RootLifecycle, GenericOperationsReachTheNamedHandlers) {
  // Without queue pollers a period change may be followed by a re-evaluation.
  in.allIntfQueueCounters = nullptr;
  ethServedIs(Orvo::IntfId("Ethernet1"));
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  rootIs();
  root->genericInvoke("initializedIs", {true});
  EXPECT_TRUE(root->initialized());
  root->genericInvoke("counterPollPeriodIs", {2.5});
  EXPECT_EQ(root->counterPollPeriod(), 2.5);
  root->genericInvoke("handleIntf", {"Ethernet1"});
  EXPECT_EQ(root->portCountersSm(Orvo::IntfId("Ethernet1"))->counterPollPeriod(), 2.5);
  in.vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), false);
  root->genericInvoke("handleCpuIntf", {});
  EXPECT_EQ(root->cpuPortCountersSm().size(), 0u);
  in.qosSliceHwStatus->pmapTypeIs(Qos::MapType::mapControlPlane);
  ASSERT_NE(root->coppTypeSm(Qos::MapType::mapControlPlane), nullptr);
  root->genericInvoke("coppTypeSmDel", {0});
  EXPECT_EQ(root->coppTypeSm(Qos::MapType::mapControlPlane), nullptr);
  root->genericInvoke("handlePolicyMapType", {});
  EXPECT_NE(root->coppTypeSm(Qos::MapType::mapControlPlane), nullptr);
  root->genericInvoke("coppTypeSmDelAll", {});
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  EXPECT_EQ(RootTest::messageOf<Zat::UnknownOperationException>(
                [&] { root->genericInvoke("noSuchOperation", {}); }),
            "unknown operation 'noSuchOperation' on Vorn::Counters::CountersSm");
  EXPECT_EQ(
      RootTest::messageOf<Zat::Exception>([&] { root->genericInvoke("updateCounters", {1}); }),
      "operation updateCounters takes 2 argument(s), got 1");
}

}  // namespace

namespace {

class RootRequirements : public VornTest::RootFixture {};

TEST_F(RootRequirements, InitializationNeedsThePlatformHelper) {
  in.platformHelper = nullptr;
  rootIs();
  EXPECT_EQ(RootTest::assertTextOf([&] { root->initializedIs(true); }), "platformHelper()");
}

TEST_F(RootRequirements, SeedingRowsNeedsTheEthernetWriterStatus) {
  set.ethIntfCounterWriterStatus = nullptr;
  ethServedIs(Orvo::IntfId("Ethernet1"));
  rootIs();
  EXPECT_EQ(RootTest::assertTextOf([&] { root->initializedIs(true); }),
            "ethIntfCounterWriterStatus()");
}

TEST_F(RootRequirements, ServingAVlanInterfaceNeedsTheVlanWriterStatus) {
  set.vlanIntfCounterWriterStatus = nullptr;
  vlanServedIs(Orvo::IntfId("Vlan10"));
  rootIs();
  EXPECT_EQ(RootTest::assertTextOf([&] { root->initializedIs(true); }),
            "vlanIntfCounterWriterStatus()");
}

TEST_F(RootRequirements, TheControlPlaneTypeHandlerNeedsItsSliceStatus) {
  in.qosSliceHwStatus = nullptr;
  in.qosAclSliceHwStatus = nullptr;
  initializedRootIs();
  EXPECT_EQ(RootTest::assertTextOf(
                [&] { root->handlePolicyMapType(Qos::MapType::mapControlPlane); }),
            "qosSliceHwStatus()");
  EXPECT_EQ(RootTest::assertTextOf(
                [&] { root->handleDynamicPolicyMapType(Qos::MapType::mapControlPlane); }),
            "qosAclSliceHwStatus()");
  // Other map types return before the status is needed.
  EXPECT_EQ(RootTest::assertTextOf([&] { root->handlePolicyMapType(Qos::MapType::mapQos); }), "");
}

}  // namespace
