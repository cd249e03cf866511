#include <gtest/gtest.h>

#include "counters/pollers/CpuPortCountersSm.h"
#include "counters/pollers/PollerTestSupport.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"
#include "zat/Generic.h"

namespace {

using Vorn::Counters::CpuPortCountersSm;
using VornTest::Calls;
using VornTest::FakeCountersHelper;

const Orvo::IntfId kCpu("Cpu");

class CpuPortCountersSmTest : public VornTest::SimulatedTimeTest {
 protected:
  void SetUp() override {
    SimulatedTimeTest::SetUp();
    vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    helper = FakeCountersHelper::FakeCountersHelperIs();
  }
  void TearDown() override {
    sm = nullptr;
    SimulatedTimeTest::TearDown();
  }
  Zat::Ptr<CpuPortCountersSm> makeSm(double period) {
    return CpuPortCountersSm::CpuPortCountersSmIs(vcsd, kCpu, period, clock(), helper);
  }

  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<FakeCountersHelper> helper;
  Zat::Ptr<CpuPortCountersSm> sm;
};

TEST_F(CpuPortCountersSmTest, InitializationPreparesPortByNameAndArmsFirstTick) {
  helper->firstPollDelayValue = 1.0;
  sm = makeSm(2.0);
  sm->initializedIs(true);
  EXPECT_EQ(helper->calls, (Calls{"cpuPortCountersInit(Cpu)", "firstPollDelay"}));
  EXPECT_EQ(clock()->nextDeadline(), 1002.0);
}

TEST_F(CpuPortCountersSmTest, ZeroPeriodTicksOnceAtHelperMinimumAndNeverPollsByTimer) {
  helper->firstPollDelayValue = 1.5;
  sm = makeSm(0.0);
  sm->initializedIs(true);
  EXPECT_EQ(clock()->nextDeadline(), 1001.5);
  advanceTo(1001.5);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("cpuPortCountersUpdate"), 0u);

  // An on-demand request still polls.
  sm->updateCounters();
  EXPECT_EQ(VornTest::timesOf(*helper, "cpuPortCountersUpdate"), (std::vector<double>{1100.0}));
}

TEST_F(CpuPortCountersSmTest, HelperMinimumLongerThanPeriodDelaysOnlyFirstPoll) {
  helper->firstPollDelayValue = 5.0;
  sm = makeSm(2.0);
  sm->initializedIs(true);
  advanceTo(1010.0);
  EXPECT_EQ(VornTest::timesOf(*helper, "cpuPortCountersUpdate"),
            (std::vector<double>{1005.0, 1007.0, 1009.0}));
  EXPECT_EQ(clock()->nextDeadline(), 1011.0);
}

TEST_F(CpuPortCountersSmTest, HandlersBeforeInitializedDoNothing) {
  sm = makeSm(2.0);
  sm->updateCounters();
  sm->handleTime();
  advanceTo(1100.0);
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_EQ(clock()->armedCount(), 0u);
}

TEST_F(CpuPortCountersSmTest, HandleInitializedAssertsInitialized) {
  sm = makeSm(2.0);
  EXPECT_EQ(VornTest::assertTextOf([&] { sm->handleInitialized(); }), "initialized()");
}

TEST_F(CpuPortCountersSmTest, HelperExceptionPassesOut) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  helper->failOperation = "cpuPortCountersUpdate";
  EXPECT_EQ(VornTest::messageOf<VornTest::FakeHelperError>([&] { sm->updateCounters(); }),
            "cpuPortCountersUpdate failed");
}

TEST_F(CpuPortCountersSmTest, NotificationsOffStopsTimer) {
  sm = makeSm(2.0);
  sm->initializedIs(true);
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("cpuPortCountersUpdate"), 0u);
}

TEST_F(CpuPortCountersSmTest, TracesInitializationWithInterface) {
  VornTest::TraceCapture trace("VornCountersSm", 8);
  sm = makeSm(2.0);
  sm->initializedIs(true);
  ASSERT_FALSE(trace.lines().empty());
  EXPECT_EQ(trace.lines().front(),
            "void Vorn::Counters::CpuPortCountersSm::handleInitialized() intf: Cpu");
}

TEST_F(CpuPortCountersSmTest, AccessorsAndGenericOperations) {
  sm = makeSm(2.5);
  EXPECT_EQ(sm->intfId(), kCpu);
  EXPECT_EQ(sm->counterPollPeriod(), 2.5);
  EXPECT_EQ(sm->clock(), clock());
  EXPECT_EQ(sm->platformHelper(), helper);
  sm->genericInvoke("initializedIs", {true});
  sm->genericInvoke("updateCounters", {});
  EXPECT_EQ(helper->count("cpuPortCountersUpdate"), 1u);
  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*sm)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"vcsd", "initialized", "intfId", "counterPollPeriod",
                                             "clock", "platformHelper"}));
}

}  // namespace
