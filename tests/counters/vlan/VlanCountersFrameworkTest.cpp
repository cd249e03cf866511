// The machine as a framework object: reactors, notifications, zombies, mutators
// and the generic attribute interface.
#include <gtest/gtest.h>

#include "VlanSmFixture.h"
#include "zat/Generic.h"

namespace VlanTest {
namespace {

using VornTest::Calls;

const Counts kZero{};

class VlanCountersFramework : public VlanSmFixture {};

TEST_F(VlanCountersFramework, ConstructionStoresInputsWithDefaultsAndDoesNoWork) {
  config->vlanConfigIs(10);
  makeSm();

  EXPECT_EQ(sm->bridgingConfig(), config);
  EXPECT_EQ(sm->vlanCountersCliReq(), cliReq);
  EXPECT_EQ(sm->vlanCounterDir(), dir);
  EXPECT_EQ(sm->vlanCounterSnapshotDir(), snapshots);
  EXPECT_EQ(sm->clock(), wheel);
  EXPECT_EQ(sm->vlanCountersHelper(), helper);
  EXPECT_EQ(sm->pollInterval(), 2.0);
  EXPECT_FALSE(sm->initialized());
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_EQ(std::string(sm->fwkType()), "Vorn::Counters::VlanCountersSm");
  EXPECT_EQ(dir->size(), 0u);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(wheel->armedCount(), 0u);
}

TEST_F(VlanCountersFramework, ReactorsExistOnlyForNonNullInputsAndAreActive) {
  makeSm();
  ASSERT_NE(sm->zatBridgingConfig(), nullptr);
  ASSERT_NE(sm->zatVlanCountersCliReq(), nullptr);
  ASSERT_NE(sm->zatClock(), nullptr);
  EXPECT_TRUE(sm->zatBridgingConfig()->isRegisteredNotifiee());
  EXPECT_TRUE(sm->zatVlanCountersCliReq()->isRegisteredNotifiee());
  EXPECT_TRUE(sm->zatClock()->hasNotificationActive());

  auto bare = VlanCountersSm::VlanCountersSmIs(nullptr, nullptr, dir, snapshots, nullptr, helper);
  EXPECT_EQ(bare->zatBridgingConfig(), nullptr);
  EXPECT_EQ(bare->zatVlanCountersCliReq(), nullptr);
  EXPECT_EQ(bare->zatClock(), nullptr);
  // Without a wheel no timer is armed, and initialization still succeeds.
  bare->initializedIs(true);
  EXPECT_TRUE(bare->initialized());
  EXPECT_EQ(wheel->armedCount(), 0u);
}

TEST_F(VlanCountersFramework, AttributesAreDescribedInDeclarationOrder) {
  makeSm();
  sm->pollIntervalIs(0.5);
  const auto attrs = Zat::attributesOf(*sm);
  std::vector<std::string> names;
  for (const auto& [name, text] : attrs) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"bridgingConfig", "vlanCountersCliReq",
                                             "vlanCounterDir", "vlanCounterSnapshotDir", "clock",
                                             "vlanCountersHelper", "pollInterval", "initialized"}));
  EXPECT_EQ(attrs[0].second, Zat::toText(config));
  EXPECT_EQ(attrs[4].second, Zat::toText(wheel));
  EXPECT_EQ(attrs[6].second, Zat::toText(0.5));
  EXPECT_EQ(attrs[7].second, "false");

  auto bare =
      VlanCountersSm::VlanCountersSmIs(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(Zat::attributesOf(*bare)[0].second, "null");
}

TEST_F(VlanCountersFramework, GenericOperationsReachTheMachine) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(3);
  makeSm();

  sm->genericInvoke("pollIntervalIs", {4.0});
  EXPECT_EQ(sm->pollInterval(), 4.0);
  sm->genericInvoke("initializedIs", {true});
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->zatClock()->timeMin(), 1004.0);
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(10, kZero, 0.0)});

  advanceTo(1001.0);
  sm->genericInvoke("updateCounters", {});
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(3), 1001.0));
  advanceTo(1001.5);
  sm->genericInvoke("doTakeSnapshot", {10});
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(3), 1001.5));

  config->vlanConfigIs(11);
  dir->vlanCounterDel(11);
  sm->genericInvoke("handleVlanConfig", {"11"});
  EXPECT_EQ(dir->vlanCounter(11), record(11, kZero, 0.0));
}

TEST_F(VlanCountersFramework, GenericInterfaceRejectsUnknownOperationsAndBadArguments) {
  makeSm();
  try {
    sm->genericInvoke("handleTime", {});
    FAIL() << "expected an error";
  } catch (const Zat::UnknownOperationException& e) {
    EXPECT_STREQ(e.what(), "unknown operation 'handleTime' on Vorn::Counters::VlanCountersSm");
  }
  try {
    sm->genericInvoke("updateCounters", {1});
    FAIL() << "expected an error";
  } catch (const Zat::Exception& e) {
    EXPECT_STREQ(e.what(), "operation updateCounters takes 0 argument(s), got 1");
  }
  try {
    sm->genericInvoke("doTakeSnapshot", {70000});
    FAIL() << "expected an error";
  } catch (const Zat::RangeException& e) {
    EXPECT_STREQ(e.what(), "vlanId 70000 is out of range 0..65535");
  }
}

TEST_F(VlanCountersFramework, RepeatedInitializationIsANoOpAndFalseOnlyStoresTheFlag) {
  config->vlanConfigIs(10);
  startSm();
  helper->clearCalls();
  clearTraces();

  sm->initializedIs(true);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(traces(8), Texts{});

  sm->initializedIs(false);
  EXPECT_FALSE(sm->initialized());
  // Not initialized: the armed tick neither polls nor re-arms.
  advanceTo(1002.0);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(wheel->armedCount(), 0u);

  // Initializing again runs the first pass again and arms a new first tick.
  sm->initializedIs(true);
  EXPECT_EQ(helper->calls, (Calls{"vlanCountersEnable(10)", "vlanFirstPollDelay"}));
  EXPECT_EQ(sm->zatClock()->timeMin(), 1004.0);
}

TEST_F(VlanCountersFramework, ReactorsIgnoreOtherAttributesAndKeylessChanges) {
  startSm();
  helper->clearCalls();
  clearTraces();
  const Bridging::VlanId key = 10;

  config->notify("otherAttribute", &key);
  config->notify(Bridging::Config::kVlanConfig);
  cliReq->notify("otherAttribute", &key);
  cliReq->notify(Bridging::VlanCountersCliReq::kClearCountersRequest);

  EXPECT_EQ(traces(8), Texts{});
  EXPECT_EQ(dir->size(), 0u);
}

TEST_F(VlanCountersFramework, NotificationsOffSilenceReactorsAndTimerUntilSwitchedOn) {
  config->vlanConfigIs(10);
  startSm();
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(sm->zatBridgingConfig()->hasNotificationActive());
  EXPECT_FALSE(sm->zatVlanCountersCliReq()->hasNotificationActive());
  EXPECT_FALSE(sm->zatClock()->hasNotificationActive());
  helper->clearCalls();

  config->vlanConfigIs(20);
  advanceTo(1003.0);
  EXPECT_FALSE(dir->hasCounter(20));
  EXPECT_TRUE(helper->calls.empty());

  // Switching on again resumes the timer where it was armed.
  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(sm->zatBridgingConfig()->isRegisteredNotifiee());
  advanceTo(1003.0);
  EXPECT_EQ(helper->calls, Calls{"vlanCountersRead(10)"});
  config->vlanConfigIs(30);
  EXPECT_TRUE(dir->hasCounter(30));
}

TEST_F(VlanCountersFramework, ZombieMachineRunsNoHandlerAgain) {
  config->vlanConfigIs(10);
  startSm();
  helper->clearCalls();
  clearTraces();

  sm->zatDoZombieReactors(true);
  EXPECT_TRUE(sm->zombie());
  EXPECT_TRUE(sm->zatBridgingConfig()->zombie());
  EXPECT_TRUE(sm->zatVlanCountersCliReq()->zombie());
  EXPECT_TRUE(sm->zatClock()->zombie());
  EXPECT_EQ(wheel->armedCount(), 0u);

  config->vlanConfigIs(20);
  config->vlanConfigDel(10);
  cliReq->clearCountersRequestIs(10, true);
  advanceTo(1010.0);

  EXPECT_EQ(traces(8), Texts{});
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(10, kZero, 0.0)});
}

TEST_F(VlanCountersFramework, DeletingInputsDropsTheirReactors) {
  config->vlanConfigIs(10);
  startSm();
  helper->clearCalls();

  sm->bridgingConfigDel();
  EXPECT_EQ(sm->bridgingConfig(), nullptr);
  EXPECT_EQ(sm->zatBridgingConfig(), nullptr);
  EXPECT_EQ(config->notifieeList()->size(), 0u);
  config->vlanConfigIs(20);
  EXPECT_FALSE(dir->hasCounter(20));

  sm->vlanCountersCliReqDel();
  EXPECT_EQ(sm->vlanCountersCliReq(), nullptr);
  EXPECT_EQ(sm->zatVlanCountersCliReq(), nullptr);
  cliReq->clearCountersRequestIs(10, true);
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, kZero, 0.0));

  sm->clockDel();
  EXPECT_EQ(sm->clock(), nullptr);
  EXPECT_EQ(sm->zatClock(), nullptr);
  EXPECT_EQ(wheel->armedCount(), 0u);
  advanceTo(1010.0);
  EXPECT_TRUE(helper->calls.empty());
}

}  // namespace
}  // namespace VlanTest
