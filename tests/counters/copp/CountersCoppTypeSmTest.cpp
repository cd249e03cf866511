// Policy-map-type machines (CountersCoppTypeSm and CountersDynamicCoppTypeSm):
// each test runs for both flavours.
#include <gtest/gtest.h>

#include "CoppTestSupport.h"
#include "pontil/Assert.h"
#include "zat/Exception.h"
#include "zat/Generic.h"

namespace CoppTest {
namespace {

template <class F>
class CoppTypeSm : public CoppFixture<F> {
 protected:
  void SetUp() override {
    CoppFixture<F>::SetUp();
    status = Qos::PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(Qos::MapType::mapControlPlane);
  }
  Zat::Ptr<typename F::TypeSm> makeSm() { return F::typeSmIs(status, this->helper); }
  Zat::Ptr<Qos::PolicyMapHwStatus> pmapWithClasses(const std::string& name,
                                                   std::vector<std::string> classes) {
    auto pmap = Qos::PolicyMapHwStatus::PolicyMapHwStatusIs(inputKey(name));
    for (const auto& c : classes) pmap->classIs(Zat::Name(c), true);
    return pmap;
  }
  static std::string call(const std::string& cmapName) {
    return "coppClassCountersUpdate(" + cmapName + ")";
  }
  static std::string line8(const std::string& handler) {
    return "8 " + signature(F::kTypeSmName, handler);
  }

  Zat::Ptr<Qos::PolicyMapTypeHwStatus> status;
};

TYPED_TEST_SUITE(CoppTypeSm, Flavours, FlavourNames);

TYPED_TEST(CoppTypeSm, NewMachineHasDefaultPolicyNameNotInitializedAndNoChildren) {
  auto sm = this->makeSm();
  EXPECT_EQ(sm->coppPMapName(), Zat::Name("copp-system-policy"));
  EXPECT_FALSE(sm->initialized());
  EXPECT_TRUE(sm->coppSm().empty());
  EXPECT_EQ(sm->coppSm("copp-system-policy").ptr(), nullptr);
  EXPECT_EQ(sm->pmapType().ptr(), this->status.ptr());
  EXPECT_EQ(sm->platformHelper().ptr(), this->helper.ptr());
  EXPECT_EQ(sm->type(), Qos::MapType::mapControlPlane);
  EXPECT_EQ(sm->fwkKey(), Qos::MapType::mapControlPlane);
  EXPECT_TRUE(sm->hasNotificationActive());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, TypeIsTheMapTypeOfTheStatus) {
  auto qos = Qos::PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(Qos::MapType::mapQos);
  EXPECT_EQ(TypeParam::typeSmIs(qos, this->helper)->type(), Qos::MapType::mapQos);
}

TYPED_TEST(CoppTypeSm, NullPmapTypeIsANullArgumentError) {
  try {
    TypeParam::typeSmIs(nullptr, this->helper);
    FAIL() << "a null pmapType must be refused";
  } catch (const Zat::NullPointerException& e) {
    EXPECT_EQ(std::string(e.what()), "null pointer argument: pmapType");
  }
}

TYPED_TEST(CoppTypeSm, ConstructionWalksPolicyMapsInKeyOrder) {
  this->status->pmapIs(pmapKey(Qos::Direction::output, "a"));
  this->status->pmapIs(inputKey("z"));
  this->status->pmapIs(inputKey("b"));
  this->traceLevelIs(8);
  auto sm = this->makeSm();
  EXPECT_EQ(this->lines,
            (Lines{this->line8("handleInitialized()"), TypeParam::policyMapLine("b input"),
                   TypeParam::policyMapLine("z input"), TypeParam::policyMapLine("a output")}));
  EXPECT_FALSE(sm->initialized());
}

TYPED_TEST(CoppTypeSm, HandlePolicyMapTraceIsExactAtLevel7AndSilentBelow) {
  auto sm = this->makeSm();
  this->traceLevelIs(9);
  sm->handlePolicyMap(pmapKey(Qos::Direction::output, "copp-system-policy"));
  EXPECT_EQ(this->lines, (Lines{TypeParam::policyMapLine("copp-system-policy output")}));
  this->lines.clear();
  this->traceLevelIs(6);
  sm->handlePolicyMap(inputKey("copp-system-policy"));
  EXPECT_TRUE(this->lines.empty());
}

TYPED_TEST(CoppTypeSm, OnlyTheStaticHandlePolicyMapRunsABlockTimer) {
  auto sm = this->makeSm();
  const std::string timer =
      signature(TypeParam::kTypeSmName, "handlePolicyMap(const Qos::PolicyMapHwStatusKey&)");
  const uint64_t before = timerCount(timer);
  sm->handlePolicyMap(inputKey("copp-system-policy"));
  const uint64_t expected = std::is_same_v<TypeParam, StaticCopp> ? before + 1 : before;
  EXPECT_EQ(timerCount(timer), expected);
}

TYPED_TEST(CoppTypeSm, MachineOfAnotherMapTypeSkipsThePolicyMapsInItsWalk) {
  auto qos = Qos::PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(Qos::MapType::mapQos);
  qos->pmapIs(inputKey("qos-policy"));
  this->traceLevelIs(8);
  auto sm = TypeParam::typeSmIs(qos, this->helper);
  EXPECT_EQ(this->lines, (Lines{this->line8("handleInitialized()")}));
  this->lines.clear();
  sm->handleInitialized();
  EXPECT_EQ(this->lines, (Lines{this->line8("handleInitialized()")}));
}

TYPED_TEST(CoppTypeSm, PolicyMapAddedOrRemovedIsHandledAndNothingElseChanges) {
  auto sm = this->makeSm();
  this->traceLevelIs(7);
  this->status->pmapIs(pmapKey(Qos::Direction::output, "p1"));
  this->status->pmapDel(pmapKey(Qos::Direction::output, "p1"));
  EXPECT_EQ(this->lines,
            (Lines{TypeParam::policyMapLine("p1 output"), TypeParam::policyMapLine("p1 output")}));
  EXPECT_TRUE(sm->coppSm().empty());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, OtherAttributesAndKeylessNotificationsAreIgnored) {
  auto sm = this->makeSm();
  this->traceLevelIs(9);
  this->status->notify(Qos::PolicyMapTypeHwStatus::kPmap);
  Qos::PolicyMapHwStatusKey key = inputKey("p1");
  this->status->notify("type", &key);
  EXPECT_TRUE(this->lines.empty());
}

TYPED_TEST(CoppTypeSm, InitializedIsOnlyStoresTheFlag) {
  this->status->pmapIs(inputKey("p1"));
  auto sm = this->makeSm();
  auto child = sm->coppSmIs("p1", this->pmapWithClasses("p1", {"c1"}), this->helper);
  this->traceLevelIs(9);
  sm->initializedIs(true);
  EXPECT_TRUE(sm->initialized());
  sm->initializedIs(false);
  EXPECT_FALSE(sm->initialized());
  EXPECT_TRUE(this->lines.empty());
  EXPECT_FALSE(child->initialized());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, WalkFindsItsPlaceAgainWhenAHandlerChangesThePolicyMaps) {
  this->status->pmapIs(inputKey("a"));
  this->status->pmapIs(inputKey("b"));
  this->status->pmapIs(inputKey("d"));
  this->traceLevelIs(7);
  this->onLine = [&](const std::string&) {
    this->onLine = nullptr;
    // While "a" is handled: "b" goes and "c" comes; each change is handled at once.
    this->status->pmapDel(inputKey("b"));
    this->status->pmapIs(inputKey("c"));
  };
  auto sm = this->makeSm();
  EXPECT_EQ(this->lines,
            (Lines{TypeParam::policyMapLine("a input"), TypeParam::policyMapLine("b input"),
                   TypeParam::policyMapLine("c input"), TypeParam::policyMapLine("c input"),
                   TypeParam::policyMapLine("d input")}));
}

TYPED_TEST(CoppTypeSm, WalkSurvivesRemovalOfThePolicyMapBeingVisited) {
  this->status->pmapIs(inputKey("a"));
  this->status->pmapIs(inputKey("b"));
  auto sm = this->makeSm();
  this->traceLevelIs(7);
  this->onLine = [&](const std::string&) {
    this->onLine = nullptr;
    this->status->pmapDel(inputKey("a"));
  };
  sm->handleInitialized();
  EXPECT_EQ(this->lines,
            (Lines{TypeParam::policyMapLine("a input"), TypeParam::policyMapLine("a input"),
                   TypeParam::policyMapLine("b input")}));
}

TYPED_TEST(CoppTypeSm, CoppSmIsWithSameInputsReturnsTheSameChild) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1", "c2"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  ASSERT_TRUE(child);
  EXPECT_EQ(std::string(child->fwkType()),
            std::string("Vorn::Counters::") + TypeParam::kClassSmName);
  EXPECT_EQ(child->name(), Zat::Name("p1"));
  EXPECT_TRUE(child->hasNotificationActive());
  EXPECT_FALSE(child->initialized());
  EXPECT_EQ(sm->coppSmIs("p1", pmap, this->helper).ptr(), child.ptr());
  EXPECT_EQ(sm->coppSm("p1").ptr(), child.ptr());
  EXPECT_EQ(sm->coppSm().size(), 1u);
  // Creating a child makes no helper call.
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, CoppSmIsWithAnotherPolicyMapIsAReinstantiationError) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  auto otherPmap = this->pmapWithClasses("p1", {"c1"});
  try {
    sm->coppSmIs("p1", otherPmap, this->helper);
    FAIL() << "another pmap under the same name must be refused";
  } catch (const Zat::ReinstantiationException& e) {
    EXPECT_EQ(std::string(e.what()),
              "attribute coppSm reinstantiated with a different value: existing " +
                  Zat::toText(pmap) + ", requested " + Zat::toText(otherPmap));
  }
  EXPECT_EQ(sm->coppSm("p1").ptr(), child.ptr());
  EXPECT_EQ(child->pmap().ptr(), pmap.ptr());
  EXPECT_EQ(sm->coppSm().size(), 1u);
}

TYPED_TEST(CoppTypeSm, CoppSmIsWithAnotherHelperIsAReinstantiationError) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  auto otherHelper = VornTest::FakeCountersHelper::FakeCountersHelperIs();
  try {
    sm->coppSmIs("p1", pmap, otherHelper);
    FAIL() << "another helper under the same name must be refused";
  } catch (const Zat::ReinstantiationException& e) {
    EXPECT_EQ(std::string(e.what()),
              "attribute coppSm reinstantiated with a different value: existing " +
                  Zat::toText(this->helper) + ", requested " + Zat::toText(otherHelper));
  }
  EXPECT_EQ(sm->coppSm("p1").ptr(), child.ptr());
  EXPECT_EQ(child->platformHelper().ptr(), this->helper.ptr());
}

TYPED_TEST(CoppTypeSm, CoppSmDelRemovesOneChildAndIgnoresAbsentNames) {
  auto sm = this->makeSm();
  auto p1 = sm->coppSmIs("p1", this->pmapWithClasses("p1", {"c1"}), this->helper);
  auto p2 = sm->coppSmIs("p2", this->pmapWithClasses("p2", {"c1"}), this->helper);
  sm->coppSmDel("p1");
  sm->coppSmDel("absent");
  EXPECT_EQ(sm->coppSm("p1").ptr(), nullptr);
  EXPECT_EQ(sm->coppSm("p2").ptr(), p2.ptr());
  EXPECT_TRUE(p1->zombie());
  EXPECT_FALSE(p2->zombie());
  sm->coppSmDelAll();
  EXPECT_TRUE(sm->coppSm().empty());
  EXPECT_TRUE(p2->zombie());
}

TYPED_TEST(CoppTypeSm, ChildrenRefreshTheirClassesThroughTheHelper) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1", "c2"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  child->initializedIs(true);
  EXPECT_EQ(sorted(this->helper->calls), (Calls{this->call("c1"), this->call("c2")}));
  this->helper->clearCalls();
  pmap->classIs("c3", true);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("c3")}));
}

TYPED_TEST(CoppTypeSm, DoPrepareToDieWithThreeChildrenLeavesCoppSmEmpty) {
  auto sm = this->makeSm();
  std::vector<Zat::Ptr<Qos::PolicyMapHwStatus>> pmaps;
  std::vector<Zat::Ptr<typename TypeParam::ClassSm>> children;
  for (const char* name : {"p1", "p2", "p3"}) {
    pmaps.push_back(this->pmapWithClasses(name, {"c1"}));
    children.push_back(sm->coppSmIs(name, pmaps.back(), this->helper));
  }
  sm->coppPMapNameIs("p2");
  sm->initializedIs(true);
  this->traceLevelIs(8);
  sm->doPrepareToDie();
  EXPECT_EQ(this->lines, (Lines{this->line8("doPrepareToDie()")}));
  EXPECT_TRUE(sm->coppSm().empty());
  for (const auto& child : children) EXPECT_TRUE(child->zombie());
  // Everything but the children stays.
  EXPECT_EQ(sm->pmapType().ptr(), this->status.ptr());
  EXPECT_EQ(sm->platformHelper().ptr(), this->helper.ptr());
  EXPECT_EQ(sm->coppPMapName(), Zat::Name("p2"));
  EXPECT_TRUE(sm->initialized());
  // The deleted children no longer follow their policy maps.
  for (const auto& pmap : pmaps) pmap->classIs("c9", true);
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, DoPrepareToDieRunsUnderItsBlockTimer) {
  auto sm = this->makeSm();
  const std::string timer = signature(TypeParam::kTypeSmName, "doPrepareToDie()");
  const uint64_t before = timerCount(timer);
  sm->doPrepareToDie();
  EXPECT_EQ(timerCount(timer), before + 1);
}

TYPED_TEST(CoppTypeSm, ReleasingTheMachineDeletesItsChildrenAndStopsFollowing) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  sm = nullptr;
  EXPECT_TRUE(child->zombie());
  EXPECT_EQ(this->status->notifieeList() ? this->status->notifieeList()->size() : 0u, 0u);
  this->traceLevelIs(9);
  this->status->pmapIs(inputKey("p2"));
  pmap->classIs("c2", true);
  EXPECT_TRUE(this->lines.empty());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppTypeSm, NotificationsSwitchTheWholeSubtree) {
  auto sm = this->makeSm();
  auto pmap = this->pmapWithClasses("p1", {"c1"});
  auto child = sm->coppSmIs("p1", pmap, this->helper);
  this->traceLevelIs(7);
  sm->hasNotificationActiveIs(false);
  EXPECT_FALSE(child->hasNotificationActive());
  this->status->pmapIs(inputKey("p2"));
  pmap->classIs("c2", true);
  EXPECT_TRUE(this->lines.empty());
  EXPECT_TRUE(this->helper->calls.empty());

  sm->hasNotificationActiveIs(true);
  EXPECT_TRUE(child->hasNotificationActive());
  this->status->pmapIs(inputKey("p3"));
  pmap->classIs("c3", true);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("c3")}));
  EXPECT_EQ(this->lines, (Lines{TypeParam::policyMapLine("p3 input"), TypeParam::classLine("c3")}));
}

TYPED_TEST(CoppTypeSm, ZombieHearsNoPolicyMapChanges) {
  auto sm = this->makeSm();
  sm->zatDoZombieReactors(true);
  EXPECT_TRUE(sm->zombie());
  this->traceLevelIs(9);
  this->status->pmapIs(inputKey("p1"));
  EXPECT_TRUE(this->lines.empty());
}

TYPED_TEST(CoppTypeSm, DescribesAttributesAndChildrenInDeclarationOrder) {
  auto sm = this->makeSm();
  auto p2 = sm->coppSmIs("p2", this->pmapWithClasses("p2", {"c1"}), this->helper);
  auto p1 = sm->coppSmIs("p1", this->pmapWithClasses("p1", {"c1"}), this->helper);
  EXPECT_EQ(std::string(sm->fwkType()), std::string("Vorn::Counters::") + TypeParam::kTypeSmName);
  using Attrs = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(Zat::attributesOf(*sm), (Attrs{{"pmapType", Zat::toText(this->status)},
                                           {"type", "mapControlPlane"},
                                           {"platformHelper", Zat::toText(this->helper)},
                                           {"coppSm", "2"},
                                           {"coppPMapName", "copp-system-policy"},
                                           {"handlePolicyMap", "operation"},
                                           {"doPrepareToDie", "operation"},
                                           {"initialized", "false"},
                                           {"handleInitialized", "operation"}}));
  EXPECT_EQ(Zat::childOf(*sm, "coppSm", "p1"), p1.ptr());
  EXPECT_EQ(Zat::childOf(*sm, "coppSm", "p2"), p2.ptr());
  EXPECT_EQ(Zat::childOf(*sm, "coppSm", "p3"), nullptr);
}

}  // namespace
}  // namespace CoppTest
