// Policy-map-type discovery through the root: the root follows a slice status
// (directly and through a directory of slice entities) and keeps one type machine
// for the control-plane-policing map type. Runs for the static source
// (qosSliceHwStatus, coppTypeSm) and the dynamic one (qosAclSliceHwStatus,
// coppDynamicTypeSm).
#include <gtest/gtest.h>

#include "CoppTestSupport.h"
#include "counters/CountersSm.h"
#include "vorn/VornCommonSmData.h"
#include "zat/Dir.h"
#include "zat/Exception.h"

namespace CoppTest {
namespace {

using Vorn::Counters::CountersSm;

struct StaticSource {
  using Slice = Qos::SliceHwStatus;
  using OtherSlice = Qos::AclSliceHwStatus;
  using TypeSm = Vorn::Counters::CountersCoppTypeSm;
  static Zat::Ptr<CountersSm> rootIs(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd,
                                     const Zat::Ptr<Helper>& helper, const Zat::Ptr<Slice>& slice,
                                     const Zat::Ptr<Zat::Dir>& dir) {
    return CountersSm::CountersSmIs(vcsd, nullptr, nullptr, nullptr, helper, nullptr, nullptr,
                                    slice, dir, nullptr, nullptr, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr);
  }
  static Zat::Ptr<TypeSm> typeSm(const CountersSm& root, Qos::MapType type) {
    return root.coppTypeSm(type);
  }
  static size_t typeSmCount(const CountersSm& root) { return root.coppTypeSm().size(); }
  static Zat::Ptr<Slice> followed(const CountersSm& root) { return root.qosSliceHwStatus(); }
};

struct DynamicSource {
  using Slice = Qos::AclSliceHwStatus;
  using OtherSlice = Qos::SliceHwStatus;
  using TypeSm = Vorn::Counters::CountersDynamicCoppTypeSm;
  static Zat::Ptr<CountersSm> rootIs(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd,
                                     const Zat::Ptr<Helper>& helper, const Zat::Ptr<Slice>& slice,
                                     const Zat::Ptr<Zat::Dir>& dir) {
    return CountersSm::CountersSmIs(vcsd, nullptr, nullptr, nullptr, helper, nullptr, nullptr,
                                    nullptr, nullptr, slice, dir, nullptr, nullptr, nullptr,
                                    nullptr, nullptr, nullptr, nullptr);
  }
  static Zat::Ptr<TypeSm> typeSm(const CountersSm& root, Qos::MapType type) {
    return root.coppDynamicTypeSm(type);
  }
  static size_t typeSmCount(const CountersSm& root) { return root.coppDynamicTypeSm().size(); }
  static Zat::Ptr<Slice> followed(const CountersSm& root) { return root.qosAclSliceHwStatus(); }
};

using Sources = ::testing::Types<StaticSource, DynamicSource>;

struct SourceNames {
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, StaticSource> ? "Static" : "Dynamic";
  }
};

template <class S>
class CoppDiscovery : public CoppFixture<StaticCopp> {
 protected:
  using Slice = typename S::Slice;

  void SetUp() override {
    CoppFixture<StaticCopp>::SetUp();
    vcsd = Vorn::VornCommonSmData::VornCommonSmDataIs();
    slice = Slice::Is("slice0");
    dir = Zat::Dir::DirIs("sliceDir");
  }
  void TearDown() override {
    root = nullptr;
    CoppFixture<StaticCopp>::TearDown();
  }
  void makeRoot(bool initialized = true) {
    root = S::rootIs(vcsd, helper, slice, dir);
    if (initialized) root->initializedIs(true);
  }
  Zat::Ptr<typename S::TypeSm> typeSm() const {
    return S::typeSm(*root, Qos::MapType::mapControlPlane);
  }

  Zat::Ptr<Vorn::VornCommonSmData> vcsd;
  Zat::Ptr<Slice> slice;
  Zat::Ptr<Zat::Dir> dir;
  Zat::Ptr<CountersSm> root;
};

TYPED_TEST_SUITE(CoppDiscovery, Sources, SourceNames);

TYPED_TEST(CoppDiscovery, MapTypeOneEntryCreatesNoTypeMachine) {
  this->makeRoot();
  this->slice->pmapTypeIs(Qos::MapType::mapQos);
  this->slice->pmapTypeIs(Qos::MapType::mapPdp);
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 0u);
  EXPECT_EQ(TypeParam::typeSm(*this->root, Qos::MapType::mapQos).ptr(), nullptr);

  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 1u);
  ASSERT_TRUE(this->typeSm());
  EXPECT_EQ(this->typeSm()->pmapType().ptr(), entry.ptr());
  EXPECT_EQ(this->typeSm()->platformHelper().ptr(), this->helper.ptr());
}

TYPED_TEST(CoppDiscovery, InitialWalkMakesOneTypeMachineWithDefaults) {
  this->slice->pmapTypeIs(Qos::MapType::mapQos);
  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  this->makeRoot(false);
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 0u);
  this->root->initializedIs(true);
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 1u);
  auto sm = this->typeSm();
  ASSERT_TRUE(sm);
  EXPECT_EQ(sm->pmapType().ptr(), entry.ptr());
  EXPECT_EQ(sm->type(), Qos::MapType::mapControlPlane);
  EXPECT_EQ(sm->coppPMapName(), Zat::Name("copp-system-policy"));
  EXPECT_FALSE(sm->initialized());
  EXPECT_TRUE(sm->coppSm().empty());
  EXPECT_TRUE(sm->hasNotificationActive());
}

TYPED_TEST(CoppDiscovery, RemovedEntryKeepsTheTypeMachineAndReAddingItKeepsTheSameObject) {
  this->makeRoot();
  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto sm = this->typeSm();
  ASSERT_TRUE(sm);
  this->slice->pmapTypeDel(Qos::MapType::mapControlPlane);
  EXPECT_EQ(this->typeSm().ptr(), sm.ptr());
  EXPECT_FALSE(sm->zombie());
  this->slice->pmapTypeEntryIs(entry);
  EXPECT_EQ(this->typeSm().ptr(), sm.ptr());
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 1u);
}

TYPED_TEST(CoppDiscovery, ReAddingAnotherTypeStatusIsAReinstantiationError) {
  this->makeRoot();
  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto sm = this->typeSm();
  this->slice->pmapTypeDel(Qos::MapType::mapControlPlane);
  EXPECT_THROW(this->slice->pmapTypeIs(Qos::MapType::mapControlPlane),
               Zat::ReinstantiationException);
  EXPECT_EQ(this->typeSm().ptr(), sm.ptr());
  EXPECT_EQ(sm->pmapType().ptr(), entry.ptr());
}

TYPED_TEST(CoppDiscovery, RemovedSliceEntityIsStillFollowedAndAnyNewEntityReplacesIt) {
  this->makeRoot();
  this->dir->entityIs("slice0", this->slice);
  EXPECT_EQ(TypeParam::followed(*this->root).ptr(), this->slice.ptr());
  this->dir->entityDel("slice0");
  EXPECT_EQ(TypeParam::followed(*this->root).ptr(), this->slice.ptr());

  auto other = TypeParam::Slice::Is("slice7");
  this->dir->entityIs("any-name", other);
  EXPECT_EQ(TypeParam::followed(*this->root).ptr(), other.ptr());
  // The new status is followed from now on; the old one no longer is.
  this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 0u);
  auto entry = other->pmapTypeIs(Qos::MapType::mapControlPlane);
  ASSERT_TRUE(this->typeSm());
  EXPECT_EQ(this->typeSm()->pmapType().ptr(), entry.ptr());
}

TYPED_TEST(CoppDiscovery, NewlyFollowedStatusIsNotReplayed) {
  this->makeRoot();
  auto other = TypeParam::Slice::Is("slice7");
  other->pmapTypeIs(Qos::MapType::mapControlPlane);
  this->dir->entityIs("slice7", other);
  EXPECT_EQ(TypeParam::followed(*this->root).ptr(), other.ptr());
  EXPECT_EQ(TypeParam::typeSmCount(*this->root), 0u);
}

TYPED_TEST(CoppDiscovery, SliceEntityOfTheOtherSourceClearsTheFollowedStatus) {
  this->makeRoot();
  this->dir->entityIs("wrong", TypeParam::OtherSlice::Is("wrong"));
  EXPECT_EQ(TypeParam::followed(*this->root).ptr(), nullptr);
}

TYPED_TEST(CoppDiscovery, TypeMachineFollowsItsPolicyMapsUnderTheRoot) {
  this->makeRoot();
  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto sm = this->typeSm();
  ASSERT_TRUE(sm);
  auto pmap = entry->pmapIs(inputKey("copp-system-policy"));
  pmap->classIs("copp-system-bgp", true);
  pmap->classIs("copp-system-arp", true);
  auto child = sm->coppSmIs("copp-system-policy", pmap, this->helper);
  this->helper->clearCalls();
  child->initializedIs(true);
  EXPECT_EQ(sorted(this->helper->calls), (Calls{"coppClassCountersUpdate(copp-system-arp)",
                                                "coppClassCountersUpdate(copp-system-bgp)"}));
}

TYPED_TEST(CoppDiscovery, EndToEndFromTheDirectoryToTheHelperThroughTheGenericInterface) {
  // The root starts with only the directory; the slice arrives as its entity.
  this->root = TypeParam::rootIs(this->vcsd, this->helper, nullptr, this->dir);
  this->root->initializedIs(true);
  this->helper->clearCalls();
  this->dir->entityIs("slice0", this->slice);
  ASSERT_EQ(TypeParam::followed(*this->root), this->slice);
  EXPECT_FALSE(this->typeSm());

  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto sm = this->typeSm();
  ASSERT_TRUE(sm);
  auto pmap = entry->pmapIs(inputKey("copp-system-policy"));
  pmap->classIs("copp-system-bgp", true);
  pmap->classIs("copp-system-arp", true);

  // The party that owns the control-plane policy adds the class machine.
  Zat::PtrInterface& typeSmGeneric = *sm;
  auto child =
      typeSmGeneric
          .genericInvoke("coppSmIs",
                         {Zat::GenericValue(std::string("copp-system-policy")),
                          Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(pmap.ptr())),
                          Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(this->helper.ptr()))})
          .asObject("coppSm");
  ASSERT_TRUE(child);
  EXPECT_EQ(this->helper->calls, Calls{});
  child->genericInvoke("initializedIs", {Zat::GenericValue(true)});
  EXPECT_EQ(sorted(this->helper->calls), (Calls{"coppClassCountersUpdate(copp-system-arp)",
                                                "coppClassCountersUpdate(copp-system-bgp)"}));

  // Each later class change reaches the helper once, for present classes only.
  this->helper->clearCalls();
  pmap->classIs("copp-system-lldp", true);
  EXPECT_EQ(this->helper->calls, Calls{"coppClassCountersUpdate(copp-system-lldp)"});
  this->helper->clearCalls();
  pmap->classDel("copp-system-bgp");
  EXPECT_EQ(this->helper->calls, Calls{});
}

TYPED_TEST(CoppDiscovery, DoPrepareToDieOnTheRootsTypeMachineEmptiesItsChildren) {
  this->makeRoot();
  auto entry = this->slice->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto sm = this->typeSm();
  ASSERT_TRUE(sm);
  for (const char* name : {"p1", "p2", "p3"}) {
    sm->coppSmIs(name, entry->pmapIs(inputKey(name)), this->helper);
  }
  EXPECT_EQ(sm->coppSm().size(), 3u);
  static_cast<Zat::PtrInterface&>(*sm).genericInvoke("doPrepareToDie", {});
  EXPECT_TRUE(sm->coppSm().empty());
  EXPECT_EQ(this->typeSm().ptr(), sm.ptr());
}

}  // namespace
}  // namespace CoppTest
