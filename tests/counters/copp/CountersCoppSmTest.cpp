// Class-counter machines (CountersCoppSm and CountersDynamicCoppSm): each test runs
// for both flavours.
#include <gtest/gtest.h>

#include "CoppTestSupport.h"
#include "pontil/Assert.h"
#include "zat/Generic.h"

namespace CoppTest {
namespace {

template <class F>
class CoppClassSm : public CoppFixture<F> {
 protected:
  void SetUp() override {
    CoppFixture<F>::SetUp();
    pmap = Qos::PolicyMapHwStatus::PolicyMapHwStatusIs(inputKey("copp-system-policy"));
    pmap->classIs("copp-system-bgp", true);
    pmap->classIs("copp-system-arp", true);
  }
  Zat::Ptr<typename F::ClassSm> makeSm() {
    return F::classSmIs("copp-system-policy", pmap, this->helper);
  }
  static std::string call(const std::string& cmapName) {
    return "coppClassCountersUpdate(" + cmapName + ")";
  }

  Zat::Ptr<Qos::PolicyMapHwStatus> pmap;
};

TYPED_TEST_SUITE(CoppClassSm, Flavours, FlavourNames);

TYPED_TEST(CoppClassSm, ConstructionMakesNoHelperCall) {
  auto sm = this->makeSm();
  EXPECT_TRUE(this->helper->calls.empty());
  EXPECT_EQ(sm->name(), Zat::Name("copp-system-policy"));
  EXPECT_EQ(sm->fwkKey(), Zat::Name("copp-system-policy"));
  EXPECT_EQ(sm->pmap().ptr(), this->pmap.ptr());
  EXPECT_EQ(sm->platformHelper().ptr(), this->helper.ptr());
  EXPECT_FALSE(sm->initialized());
  EXPECT_TRUE(sm->hasNotificationActive());
}

TYPED_TEST(CoppClassSm, InitializedTrueThenFalseRefreshesEachClassOnEveryChange) {
  auto sm = this->makeSm();
  sm->initializedIs(true);
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sorted(this->helper->calls),
            (Calls{this->call("copp-system-arp"), this->call("copp-system-bgp")}));

  this->helper->clearCalls();
  sm->initializedIs(false);
  EXPECT_FALSE(sm->initialized());
  EXPECT_EQ(sorted(this->helper->calls),
            (Calls{this->call("copp-system-arp"), this->call("copp-system-bgp")}));
}

TYPED_TEST(CoppClassSm, UnchangedInitializedRunsNothing) {
  auto sm = this->makeSm();
  sm->initializedIs(false);
  EXPECT_TRUE(this->helper->calls.empty());
  sm->initializedIs(true);
  this->helper->clearCalls();
  sm->initializedIs(true);
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, RemovedClassIsHandledWithoutHelperCall) {
  auto sm = this->makeSm();
  sm->initializedIs(true);
  this->helper->clearCalls();
  this->traceLevelIs(7);
  this->pmap->classDel("copp-system-bgp");
  EXPECT_EQ(this->lines, (Lines{TypeParam::classLine("copp-system-bgp")}));
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, AddedOrChangedClassIsRefreshedOnce) {
  auto sm = this->makeSm();
  sm->initializedIs(true);
  this->helper->clearCalls();
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-lldp")}));
  this->pmap->classIs("copp-system-lldp", false);
  EXPECT_EQ(this->helper->calls,
            (Calls{this->call("copp-system-lldp"), this->call("copp-system-lldp")}));
}

TYPED_TEST(CoppClassSm, ClassChangeIsServedBeforeInitializedToo) {
  // The class handler has no initialized gate: a class programmed before the
  // policy owner initializes the machine is refreshed at once.
  auto sm = this->makeSm();
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-lldp")}));
}

TYPED_TEST(CoppClassSm, HandleClassTracesShortNameAndClassAtLevel7) {
  auto sm = this->makeSm();
  this->traceLevelIs(9);
  sm->handleClass("copp-system-arp");
  EXPECT_EQ(this->lines, (Lines{TypeParam::classLine("copp-system-arp")}));
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-arp")}));
  this->lines.clear();
  this->traceLevelIs(6);
  sm->handleClass("copp-system-arp");
  EXPECT_TRUE(this->lines.empty());
}

TYPED_TEST(CoppClassSm, HandleInitializedTracesSignatureAtLevel8ThenEachClass) {
  auto sm = this->makeSm();
  this->traceLevelIs(8);
  sm->initializedIs(true);
  ASSERT_EQ(this->lines.size(), 3u);
  EXPECT_EQ(this->lines[0], "8 " + signature(TypeParam::kClassSmName, "handleInitialized()"));
  EXPECT_EQ(
      sorted({this->lines[1], this->lines[2]}),
      (Lines{TypeParam::classLine("copp-system-arp"), TypeParam::classLine("copp-system-bgp")}));
}

TYPED_TEST(CoppClassSm, HandlersRunUnderTheirBlockTimers) {
  auto sm = this->makeSm();
  const std::string classTimer = signature(TypeParam::kClassSmName, "handleClass(Zat::Name)");
  const std::string initTimer = signature(TypeParam::kClassSmName, "handleInitialized()");
  const uint64_t classBefore = timerCount(classTimer);
  const uint64_t initBefore = timerCount(initTimer);
  sm->initializedIs(true);
  EXPECT_EQ(timerCount(initTimer), initBefore + 1);
  EXPECT_EQ(timerCount(classTimer), classBefore + 2);
}

TYPED_TEST(CoppClassSm, WalkSkipsAClassRemovedByAnEarlierCall) {
  auto sm = this->makeSm();
  this->traceLevelIs(7);
  std::string first;
  this->onLine = [&](const std::string& text) {
    this->onLine = nullptr;
    // The first class visited removes the other one.
    first = text.substr(text.rfind(' ') + 1);
    this->pmap->classDel(first == "copp-system-arp" ? "copp-system-bgp" : "copp-system-arp");
  };
  sm->initializedIs(true);
  const std::string other = first == "copp-system-arp" ? "copp-system-bgp" : "copp-system-arp";
  EXPECT_EQ(this->helper->calls, (Calls{this->call(first)}));
  // The removal itself was handled (and skipped) once; the walk did not revisit it.
  EXPECT_EQ(this->lines, (Lines{TypeParam::classLine(first), TypeParam::classLine(other)}));
}

TYPED_TEST(CoppClassSm, ClassAddedDuringTheWalkIsRefreshedExactlyOnce) {
  auto sm = this->makeSm();
  this->traceLevelIs(7);
  this->onLine = [&](const std::string&) {
    this->onLine = nullptr;
    this->pmap->classIs("copp-system-lldp", true);
  };
  sm->initializedIs(true);
  EXPECT_EQ(sorted(this->helper->calls),
            (Calls{this->call("copp-system-arp"), this->call("copp-system-bgp"),
                   this->call("copp-system-lldp")}));
}

TYPED_TEST(CoppClassSm, OtherAttributesAndKeylessNotificationsAreIgnored) {
  auto sm = this->makeSm();
  this->traceLevelIs(9);
  this->pmap->notify(Qos::PolicyMapHwStatus::kClass);
  Zat::Name key("copp-system-arp");
  this->pmap->notify("key", &key);
  EXPECT_TRUE(this->lines.empty());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, NotificationsSwitchedOffStopClassHandling) {
  auto sm = this->makeSm();
  sm->hasNotificationActiveIs(false);
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_TRUE(this->helper->calls.empty());
  sm->hasNotificationActiveIs(true);
  this->pmap->classIs("copp-system-lacp", true);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-lacp")}));
}

TYPED_TEST(CoppClassSm, ZombieHearsNoClassChanges) {
  auto sm = this->makeSm();
  sm->zatDoZombieReactors(true);
  EXPECT_TRUE(sm->zombie());
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, ReleasedMachineStopsFollowingThePolicyMap) {
  auto sm = this->makeSm();
  sm = nullptr;
  EXPECT_EQ(this->pmap->notifieeList() ? this->pmap->notifieeList()->size() : 0u, 0u);
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, PmapDelDropsThePolicyMapAndItsReactor) {
  auto sm = this->makeSm();
  sm->pmapDel();
  EXPECT_EQ(sm->pmap().ptr(), nullptr);
  this->pmap->classIs("copp-system-lldp", true);
  EXPECT_TRUE(this->helper->calls.empty());
  try {
    sm->handleClass("copp-system-lldp");
    FAIL() << "handleClass without a policy map must assert";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "pmap()");
  }
}

TYPED_TEST(CoppClassSm, NullPolicyMapMeansNoReactorAndTheWalkAsserts) {
  auto sm = TypeParam::classSmIs("copp-system-policy", nullptr, this->helper);
  EXPECT_EQ(sm->pmap().ptr(), nullptr);
  try {
    sm->initializedIs(true);
    FAIL() << "the walk without a policy map must assert";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "pmap()");
  }
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppClassSm, HelperFailurePropagatesOutOfTheHandler) {
  auto sm = this->makeSm();
  this->helper->failOperation = "coppClassCountersUpdate";
  EXPECT_THROW(sm->handleClass("copp-system-arp"), VornTest::FakeHelperError);
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-arp")}));
}

TYPED_TEST(CoppClassSm, DescribesItsAttributesInDeclarationOrder) {
  auto sm = this->makeSm();
  sm->initializedIs(true);
  EXPECT_EQ(std::string(sm->fwkType()), std::string("Vorn::Counters::") + TypeParam::kClassSmName);
  using Attrs = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(Zat::attributesOf(*sm), (Attrs{{"name", "copp-system-policy"},
                                           {"pmap", Zat::toText(this->pmap)},
                                           {"platformHelper", Zat::toText(this->helper)},
                                           {"initialized", "true"}}));
}

TYPED_TEST(CoppClassSm, GenericInitializedIsRunsTheWalk) {
  auto sm = this->makeSm();
  Zat::PtrInterface& generic = *sm;
  EXPECT_TRUE(generic.genericInvoke("initializedIs", {true}).isNone());
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(this->helper->calls.size(), 2u);
  generic.genericInvoke("initializedIs", {"false"});
  EXPECT_FALSE(sm->initialized());
  EXPECT_EQ(this->helper->calls.size(), 4u);
}

TYPED_TEST(CoppClassSm, GenericHandleClassAndHandleInitialized) {
  auto sm = this->makeSm();
  Zat::PtrInterface& generic = *sm;
  generic.genericInvoke("handleClass", {"copp-system-bgp"});
  EXPECT_EQ(this->helper->calls, (Calls{this->call("copp-system-bgp")}));
  generic.genericInvoke("handleClass", {"copp-system-gone"});
  EXPECT_EQ(this->helper->calls.size(), 1u);
  generic.genericInvoke("handleInitialized", {});
  EXPECT_EQ(this->helper->calls.size(), 3u);
  EXPECT_FALSE(sm->initialized());
}

TYPED_TEST(CoppClassSm, GenericPmapDel) {
  auto sm = this->makeSm();
  Zat::PtrInterface& generic = *sm;
  generic.genericInvoke("pmapDel", {});
  EXPECT_EQ(sm->pmap().ptr(), nullptr);
}

TYPED_TEST(CoppClassSm, GenericRejectsUnknownOperationsAndWrongArgumentCounts) {
  auto sm = this->makeSm();
  Zat::PtrInterface& generic = *sm;
  try {
    generic.genericInvoke("coppSmIs", {});
    FAIL();
  } catch (const Zat::UnknownOperationException& e) {
    EXPECT_EQ(
        std::string(e.what()),
        std::string("unknown operation 'coppSmIs' on Vorn::Counters::") + TypeParam::kClassSmName);
  }
  try {
    generic.genericInvoke("handleClass", {});
    FAIL();
  } catch (const Zat::Exception& e) {
    EXPECT_EQ(std::string(e.what()), "operation handleClass takes 1 argument(s), got 0");
  }
  EXPECT_TRUE(this->helper->calls.empty());
}

}  // namespace
}  // namespace CoppTest
