// The policing machines' generic attribute interface: the only way the party that
// owns the control-plane policy fills `coppSm`, names its policy map, sets
// `initialized` and tears the children down. Each test runs for both flavours.
#include <gtest/gtest.h>

#include "CoppTestSupport.h"
#include "zat/Exception.h"
#include "zat/Generic.h"

namespace CoppTest {
namespace {

template <class F>
class CoppGeneric : public CoppFixture<F> {
 protected:
  void SetUp() override {
    CoppFixture<F>::SetUp();
    status = Qos::PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(Qos::MapType::mapControlPlane);
    pmap = status->pmapIs(inputKey("copp-system-policy"));
    pmap->classIs("copp-system-bgp", true);
    pmap->classIs("copp-system-arp", true);
    sm = F::typeSmIs(status, this->helper);
  }
  Zat::GenericValue invoke(std::string_view op, const Zat::GenericArgs& args) {
    return static_cast<Zat::PtrInterface&>(*sm).genericInvoke(op, args);
  }
  static Zat::GenericValue object(const Zat::Ptr<Zat::PtrInterface>& p) {
    return Zat::GenericValue(p);
  }
  std::string errorOf(std::string_view op, const Zat::GenericArgs& args) {
    try {
      invoke(op, args);
    } catch (const Zat::Exception& e) {
      return e.what();
    }
    return "no error";
  }

  Zat::Ptr<Qos::PolicyMapTypeHwStatus> status;
  Zat::Ptr<Qos::PolicyMapHwStatus> pmap;
  Zat::Ptr<typename F::TypeSm> sm;
};

TYPED_TEST_SUITE(CoppGeneric, Flavours, FlavourNames);

TYPED_TEST(CoppGeneric, CoppSmIsAddsTheChildAndReturnsIt) {
  Zat::GenericValue result = this->invoke(
      "coppSmIs", {"copp-system-policy", this->object(this->pmap), this->object(this->helper)});
  auto child = this->sm->coppSm("copp-system-policy");
  ASSERT_TRUE(child);
  EXPECT_EQ(result.asObject("result").ptr(), static_cast<Zat::PtrInterface*>(child.ptr()));
  EXPECT_EQ(child->pmap().ptr(), this->pmap.ptr());
  EXPECT_EQ(child->platformHelper().ptr(), this->helper.ptr());
  // Asked again with the same inputs: the same child.
  Zat::GenericValue again = this->invoke(
      "coppSmIs", {"copp-system-policy", this->object(this->pmap), this->object(this->helper)});
  EXPECT_EQ(again.asObject("result").ptr(), result.asObject("result").ptr());
  EXPECT_TRUE(this->helper->calls.empty());
}

TYPED_TEST(CoppGeneric, CoppSmIsWithOtherInputsIsAReinstantiationError) {
  this->invoke("coppSmIs",
               {"copp-system-policy", this->object(this->pmap), this->object(this->helper)});
  auto otherPmap = Qos::PolicyMapHwStatus::PolicyMapHwStatusIs(inputKey("copp-system-policy"));
  EXPECT_THROW(this->invoke("coppSmIs", {"copp-system-policy", this->object(otherPmap),
                                         this->object(this->helper)}),
               Zat::ReinstantiationException);
  EXPECT_EQ(this->sm->coppSm("copp-system-policy")->pmap().ptr(), this->pmap.ptr());
}

TYPED_TEST(CoppGeneric, CoppSmIsAcceptsAbsentObjectsAndRefusesObjectsOfAnotherType) {
  this->invoke("coppSmIs", {"empty", Zat::GenericValue(), Zat::GenericValue()});
  ASSERT_TRUE(this->sm->coppSm("empty"));
  EXPECT_EQ(this->sm->coppSm("empty")->pmap().ptr(), nullptr);
  EXPECT_EQ(this->sm->coppSm("empty")->platformHelper().ptr(), nullptr);

  EXPECT_EQ(
      this->errorOf("coppSmIs", {"bad", this->object(this->status), this->object(this->helper)}),
      "argument pmap is not a Qos::PolicyMapHwStatus: Qos::PolicyMapTypeHwStatus");
  EXPECT_EQ(this->errorOf("coppSmIs", {"bad", this->object(this->pmap), this->object(this->pmap)}),
            "argument platformHelper is not a VornHelper::VornHelperCountersSm: "
            "Qos::PolicyMapHwStatus");
  EXPECT_EQ(this->sm->coppSm("bad").ptr(), nullptr);
  EXPECT_EQ(this->errorOf("coppSmIs", {"bad"}), "operation coppSmIs takes 3 argument(s), got 1");
}

TYPED_TEST(CoppGeneric, InitializedChildRefreshesEveryClassOnce) {
  Zat::GenericValue child = this->invoke(
      "coppSmIs", {"copp-system-policy", this->object(this->pmap), this->object(this->helper)});
  child.asObject("child")->genericInvoke("initializedIs", {true});
  EXPECT_EQ(sorted(this->helper->calls), (Calls{"coppClassCountersUpdate(copp-system-arp)",
                                                "coppClassCountersUpdate(copp-system-bgp)"}));
}

TYPED_TEST(CoppGeneric, CoppSmDelAndCoppSmDelAllRemoveChildren) {
  for (const char* name : {"p1", "p2", "p3"}) {
    this->invoke("coppSmIs", {name, this->object(this->pmap), this->object(this->helper)});
  }
  auto p1 = this->sm->coppSm("p1");
  this->invoke("coppSmDel", {"p1"});
  EXPECT_EQ(this->sm->coppSm("p1").ptr(), nullptr);
  EXPECT_TRUE(p1->zombie());
  EXPECT_EQ(this->sm->coppSm().size(), 2u);
  this->invoke("coppSmDelAll", {});
  EXPECT_TRUE(this->sm->coppSm().empty());
}

TYPED_TEST(CoppGeneric, DoPrepareToDieEmptiesCoppSm) {
  for (const char* name : {"p1", "p2", "p3"}) {
    this->invoke("coppSmIs", {name, this->object(this->pmap), this->object(this->helper)});
  }
  this->invoke("doPrepareToDie", {});
  EXPECT_TRUE(this->sm->coppSm().empty());
}

TYPED_TEST(CoppGeneric, CoppPMapNameIsAndInitializedIsSetTheAttributes) {
  this->invoke("coppPMapNameIs", {"copp-custom-policy"});
  EXPECT_EQ(this->sm->coppPMapName(), Zat::Name("copp-custom-policy"));
  this->traceLevelIs(9);
  this->invoke("initializedIs", {true});
  EXPECT_TRUE(this->sm->initialized());
  EXPECT_TRUE(this->lines.empty());
  this->invoke("initializedIs", {"false"});
  EXPECT_FALSE(this->sm->initialized());
}

TYPED_TEST(CoppGeneric, HandleInitializedAndHandlePolicyMapTrace) {
  this->traceLevelIs(8);
  this->invoke("handleInitialized", {});
  this->invoke("handlePolicyMap", {"output", "p9"});
  this->invoke("handlePolicyMap", {0, "p8"});
  EXPECT_EQ(this->lines,
            (Lines{"8 " + signature(TypeParam::kTypeSmName, "handleInitialized()"),
                   TypeParam::policyMapLine("copp-system-policy input"),
                   TypeParam::policyMapLine("p9 output"), TypeParam::policyMapLine("p8 input")}));
}

TYPED_TEST(CoppGeneric, HandlePolicyMapRefusesAnUnknownDirection) {
  EXPECT_EQ(this->errorOf("handlePolicyMap", {"sideways", "p1"}),
            "argument direction is not a direction: 'sideways'");
  EXPECT_EQ(this->errorOf("handlePolicyMap", {2, "p1"}),
            "argument direction is not a direction: '2'");
}

TYPED_TEST(CoppGeneric, UnknownOperationNamesTheMachine) {
  EXPECT_EQ(this->errorOf("updateCounters", {}),
            std::string("unknown operation 'updateCounters' on Vorn::Counters::") +
                TypeParam::kTypeSmName);
}

}  // namespace
}  // namespace CoppTest
