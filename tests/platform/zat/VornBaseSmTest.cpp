#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "ZatTestObjects.h"
#include "orvo/IntfId.h"
#include "vorn/VornBaseSm.h"
#include "vorn/VornCommonSmData.h"

namespace ZatTest {
namespace {

using Vorn::VornCommonSmData;
using Zat::Ptr;

class CountingSm : public Vorn::VornBaseSm {
 public:
  explicit CountingSm(const Ptr<VornCommonSmData>& vcsd) : Vorn::VornBaseSm(vcsd) {}
  void handleInitialized() override {
    ++runs;
    sawInitialized = initialized();
    // Machines such as the root set the flag again from inside this handler.
    if (reenter) initializedIs(true);
  }
  int runs = 0;
  bool sawInitialized = false;
  bool reenter = false;
};

class VornBaseSm : public ::testing::Test {
 protected:
  Ptr<VornCommonSmData> vcsd = VornCommonSmData::VornCommonSmDataIs();
  Ptr<CountingSm> sm = Ptr<CountingSm>(new CountingSm(vcsd));
};

TEST_F(VornBaseSm, StartsUninitializedHoldingItsCommonData) {
  EXPECT_FALSE(sm->initialized());
  EXPECT_EQ(sm->vcsd(), vcsd);
  EXPECT_EQ(vcsd->references(), 2);
  EXPECT_EQ(sm->runs, 0);
}

TEST_F(VornBaseSm, InitializedTrueRunsHandleInitializedOnceWithTheFlagAlreadySet) {
  sm->initializedIs(true);
  EXPECT_EQ(sm->runs, 1);
  EXPECT_TRUE(sm->sawInitialized);
  EXPECT_TRUE(sm->initialized());
}

TEST_F(VornBaseSm, RepeatedInitializedTrueIsANoOp) {
  sm->initializedIs(true);
  sm->initializedIs(true);
  EXPECT_EQ(sm->runs, 1);
}

TEST_F(VornBaseSm, HandleInitializedThatSetsInitializedAgainRunsOnce) {
  sm->reenter = true;
  sm->initializedIs(true);
  EXPECT_EQ(sm->runs, 1);
  EXPECT_TRUE(sm->initialized());
}

TEST_F(VornBaseSm, InitializedFalseRunsNothing) {
  sm->initializedIs(false);
  EXPECT_EQ(sm->runs, 0);
  sm->initializedIs(true);
  sm->initializedIs(false);
  EXPECT_EQ(sm->runs, 1);
  EXPECT_FALSE(sm->initialized());
}

// Going back to false and then true again is a new change from false to true, so
// handleInitialized runs a second time (a second full pass).
TEST_F(VornBaseSm, InitializedTrueAfterFalseRunsHandleInitializedAgain) {
  sm->initializedIs(true);
  sm->initializedIs(false);
  sm->initializedIs(true);
  EXPECT_EQ(sm->runs, 2);
}

TEST_F(VornBaseSm, NullCommonDataIsAllowed) {
  CountingSm bare{Ptr<VornCommonSmData>()};
  EXPECT_FALSE(bare.vcsd());
  bare.initializedIs(true);
  EXPECT_EQ(bare.runs, 1);
}

TEST_F(VornBaseSm, DescribesItsAttributes) {
  sm->initializedIs(true);
  auto attrs = Zat::attributesOf(*sm);
  ASSERT_EQ(attrs.size(), 2u);
  EXPECT_EQ(attrs[0].first, "vcsd");
  EXPECT_EQ(attrs[0].second, Zat::toText(vcsd));
  EXPECT_EQ(attrs[1], (std::pair<std::string, std::string>{"initialized", "true"}));
}

// Follows one of the common data's interface sets, as the root's reactor does.
class IntfSetReactor : public Zat::NotifieeOf<VornCommonSmData> {
 public:
  static Ptr<IntfSetReactor> IntfSetReactorIs(const Ptr<const VornCommonSmData>& vcsd,
                                              Zat::AttributeId followed, Log* log) {
    Ptr<IntfSetReactor> r(new IntfSetReactor(vcsd, followed, log));
    r->hasNotificationActiveIs(true);
    return r;
  }
  void onAttribute(Zat::AttributeId attr, const void* key) override {
    if (attr != followed_ || key == nullptr || references() < 0) return;
    const auto& intf = *static_cast<const Orvo::IntfId*>(key);
    log_->push_back(std::string(attr) + ":" + intf.stringValue());
  }

 private:
  IntfSetReactor(const Ptr<const VornCommonSmData>& vcsd, Zat::AttributeId followed, Log* log)
      : Zat::NotifieeOf<VornCommonSmData>(vcsd), followed_(followed), log_(log) {}
  Zat::AttributeId followed_;
  Log* log_;
};

TEST(VornCommonSmData, EachSetNotifiesItsOwnAttributeWithTheInterfaceKey) {
  Log log;
  auto vcsd = VornCommonSmData::VornCommonSmDataIs();
  auto intf = IntfSetReactor::IntfSetReactorIs(vcsd, VornCommonSmData::kIntf, &log);
  auto cpu = IntfSetReactor::IntfSetReactorIs(vcsd, VornCommonSmData::kCpuIntf, &log);
  auto vlan = IntfSetReactor::IntfSetReactorIs(vcsd, VornCommonSmData::kVlanIntf, &log);
  vcsd->intfIs(Orvo::IntfId("Ethernet3"), true);
  vcsd->cpuIntfIs(Orvo::IntfId("Cpu"), true);
  vcsd->vlanIntfIs(Orvo::IntfId("Vlan10"), true);
  vcsd->intfIs(Orvo::IntfId("Ethernet3"), true);  // unchanged: silent
  vcsd->intfIs(Orvo::IntfId("Ethernet3"), false);
  vcsd->intfDel(Orvo::IntfId("Ethernet3"));
  vcsd->cpuIntfDel(Orvo::IntfId("Cpu"));
  vcsd->vlanIntfDel(Orvo::IntfId("Vlan10"));
  EXPECT_EQ(log, (Log{"intf:Ethernet3", "cpuIntf:Cpu", "vlanIntf:Vlan10", "intf:Ethernet3",
                      "intf:Ethernet3", "cpuIntf:Cpu", "vlanIntf:Vlan10"}));
}

TEST(VornCommonSmData, EntryPresentAndTrueMeansServe) {
  auto vcsd = VornCommonSmData::VornCommonSmDataIs();
  vcsd->intfIs(Orvo::IntfId("Ethernet1"), true);
  vcsd->intfIs(Orvo::IntfId("Ethernet2"), false);
  EXPECT_EQ(vcsd->intf().get(Orvo::IntfId("Ethernet1")), true);
  EXPECT_EQ(vcsd->intf().get(Orvo::IntfId("Ethernet2")), false);
  EXPECT_FALSE(vcsd->intf().contains(Orvo::IntfId("Ethernet3")));
  EXPECT_EQ(Zat::attributesOf(*vcsd),
            (std::vector<std::pair<std::string, std::string>>{
                {"intf", "2 entries"}, {"cpuIntf", "0 entries"}, {"vlanIntf", "0 entries"}}));
}

}  // namespace
}  // namespace ZatTest
