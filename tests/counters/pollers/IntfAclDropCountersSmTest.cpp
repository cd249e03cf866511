#include <gtest/gtest.h>

#include "counters/pollers/IntfAclDropCountersSm.h"
#include "counters/pollers/PollerTestSupport.h"
#include "support/FakeHelpers.h"
#include "support/Fixtures.h"
#include "zat/Generic.h"

namespace {

using Brim::Interface::DropCounter;
using Vorn::Counters::IntfAclDropCountersSm;
using VornTest::Calls;
using VornTest::FakeCountersHelper;

const Orvo::IntfId kIntf("Ethernet1");

class IntfAclDropCountersSmTest : public VornTest::ScratchTableTest {
 protected:
  void SetUp() override {
    ScratchTableTest::SetUp();
    helper = FakeCountersHelper::FakeCountersHelperIs();
    drops = tables.allDropCounterDirIs("intfAclDropCountersDir");
  }
  void TearDown() override {
    sm = nullptr;
    ScratchTableTest::TearDown();
  }
  // As the root does: make sure the interface has a record, then create the machine.
  Zat::Ptr<IntfAclDropCountersSm> makeSm(bool withRecord = true) {
    if (withRecord) drops->counterIs(DropCounter(kIntf, 0));
    return IntfAclDropCountersSm::IntfAclDropCountersSmIs(kIntf, clock(), DropCounter(kIntf, 0),
                                                          drops, helper);
  }
  uint64_t publishedCount() const { return drops->counter(kIntf).dropCount(); }

  Zat::Ptr<FakeCountersHelper> helper;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> drops;
  Zat::Ptr<IntfAclDropCountersSm> sm;
};

TEST_F(IntfAclDropCountersSmTest, PublishesDuringConstructionThenEveryPollInterval) {
  helper->aclDropCounts[kIntf] = 7;
  sm = makeSm();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(publishedCount(), 7u);
  EXPECT_EQ(sm->prevCounters(), 7u);
  EXPECT_EQ(clock()->nextDeadline(), 1002.0);

  helper->aclDropCounts[kIntf] = 12;
  advanceTo(1002.0);
  EXPECT_EQ(publishedCount(), 12u);
  helper->aclDropCounts[kIntf] = 30;
  advanceTo(1005.0);
  EXPECT_EQ(publishedCount(), 30u);
  EXPECT_EQ(VornTest::timesOf(*helper, "aclDropCountRead"),
            (std::vector<double>{1000.0, 1002.0, 1004.0}));
  EXPECT_EQ(helper->calls, (Calls{"aclDropCountRead(Ethernet1)", "aclDropCountRead(Ethernet1)",
                                  "aclDropCountRead(Ethernet1)"}));
  EXPECT_EQ(clock()->nextDeadline(), 1006.0);
}

TEST_F(IntfAclDropCountersSmTest, ZeroPollIntervalPollsNothingIncludingAtInitialization) {
  sm = makeSm();
  helper->clearCalls();
  sm->pollIntervalIs(0.0);
  advanceTo(1002.0);
  EXPECT_EQ(clock()->armedCount(), 0u);
  // Initializing again with a zero interval polls nothing either.
  sm->handleInitialized();
  advanceTo(1100.0);
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_EQ(clock()->armedCount(), 0u);
}

TEST_F(IntfAclDropCountersSmTest, LowerCountAfterHardwareResetIsPublishedAsIs) {
  helper->aclDropCounts[kIntf] = 5000;
  sm = makeSm();
  EXPECT_EQ(publishedCount(), 5000u);
  helper->aclDropCounts[kIntf] = 3;
  advanceTo(1002.0);
  EXPECT_EQ(publishedCount(), 3u);
  EXPECT_EQ(sm->prevCounters(), 3u);
}

TEST_F(IntfAclDropCountersSmTest, UninitializedPollOnlyTraces) {
  sm = makeSm();
  helper->clearCalls();
  sm->initializedIs(false);
  VornTest::TraceCapture trace("VornCountersSm", 7);
  helper->aclDropCounts[kIntf] = 99;
  sm->updateCounters();
  EXPECT_EQ(trace.lines(),
            (std::vector<std::string>{"IntfAclDropCountersSm::Not Initialized yet"}));
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_EQ(publishedCount(), 0u);

  // The tick itself does not test initialized; it still re-arms.
  advanceTo(1002.0);
  EXPECT_EQ(helper->calls, Calls{});
  EXPECT_EQ(clock()->nextDeadline(), 1004.0);
}

TEST_F(IntfAclDropCountersSmTest, MissingRecordIsFatal) {
  EXPECT_EQ(VornTest::assertTextOf([&] { sm = makeSm(false); }),
            "BrimMap::directWrite() in no man's land");
  EXPECT_EQ(sm, nullptr);
  EXPECT_FALSE(drops->hasCounter(kIntf));
}

TEST_F(IntfAclDropCountersSmTest, HelperExceptionPassesOutAndNothingIsPublished) {
  helper->aclDropCounts[kIntf] = 7;
  sm = makeSm();
  helper->aclDropCounts[kIntf] = 8;
  helper->failOperation = "aclDropCountRead";
  EXPECT_EQ(VornTest::messageOf<VornTest::FakeHelperError>([&] { sm->updateCounters(); }),
            "aclDropCountRead failed");
  EXPECT_EQ(publishedCount(), 7u);
  EXPECT_EQ(sm->prevCounters(), 7u);
}

TEST_F(IntfAclDropCountersSmTest, WithoutClockPollsOnceAtConstructionOnly) {
  drops->counterIs(DropCounter(kIntf, 0));
  helper->aclDropCounts[kIntf] = 4;
  sm = IntfAclDropCountersSm::IntfAclDropCountersSmIs(kIntf, nullptr, DropCounter(kIntf, 0), drops,
                                                      helper);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("aclDropCountRead"), 1u);
  EXPECT_EQ(publishedCount(), 4u);
}

TEST_F(IntfAclDropCountersSmTest, NotificationsOffStopsTimer) {
  sm = makeSm();
  sm->hasNotificationActiveIs(false);
  EXPECT_EQ(clock()->armedCount(), 0u);
  advanceTo(1100.0);
  EXPECT_EQ(helper->count("aclDropCountRead"), 1u);
}

TEST_F(IntfAclDropCountersSmTest, DeletionLeavesRecordInPlace) {
  helper->aclDropCounts[kIntf] = 7;
  sm = makeSm();
  sm->zatDoZombieReactors(true);
  sm = nullptr;
  EXPECT_EQ(clock()->armedCount(), 0u);
  EXPECT_EQ(publishedCount(), 7u);
}

TEST_F(IntfAclDropCountersSmTest, AccessorsMutatorsAndGenericOperations) {
  helper->aclDropCounts[kIntf] = 7;
  sm = makeSm();
  EXPECT_EQ(sm->intfId(), kIntf);
  EXPECT_EQ(sm->clock(), clock());
  EXPECT_EQ(sm->intfAclDropCounter(), DropCounter(kIntf, 0));
  EXPECT_EQ(sm->intfAclDropCountersDir(), drops);
  EXPECT_EQ(sm->platformHelper(), helper);
  EXPECT_EQ(sm->pollInterval(), 2.0);

  sm->genericInvoke("pollIntervalIs", {5.0});
  EXPECT_EQ(sm->pollInterval(), 5.0);
  sm->genericInvoke("prevCountersIs", {uint64_t{3}});
  EXPECT_EQ(sm->prevCounters(), 3u);
  helper->aclDropCounts[kIntf] = 9;
  sm->genericInvoke("updateCounters", {});
  EXPECT_EQ(publishedCount(), 9u);
  sm->genericInvoke("clockDel", {});
  EXPECT_EQ(sm->clock(), nullptr);
  EXPECT_EQ(clock()->armedCount(), 0u);

  std::vector<std::string> names;
  for (const auto& [name, text] : Zat::attributesOf(*sm)) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"intfId", "clock", "intfAclDropCounter",
                                             "intfAclDropCountersDir", "platformHelper",
                                             "prevCounters", "pollInterval", "initialized"}));
}

}  // namespace
