// Policy-map-type discovery on the root: the slice status inputs, their
// directories and the two collections of policing type machines.
#include <gtest/gtest.h>

#include "counters/root/RootTestSupport.h"

namespace {

using Qos::MapType;
using RootTest::Calls;

class RootCopp : public VornTest::RootFixture {};

TEST_F(RootCopp, InitializationMakesATypeMachineForTheControlPlaneTypeOfEachSource) {
  auto staticType = in.qosSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  auto dynamicType = in.qosAclSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  in.qosSliceHwStatus->pmapTypeIs(MapType::mapQos);
  rootIs();
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  root->initializedIs(true);
  auto copp = root->coppTypeSm(MapType::mapControlPlane);
  auto dynamicCopp = root->coppDynamicTypeSm(MapType::mapControlPlane);
  ASSERT_NE(copp, nullptr);
  ASSERT_NE(dynamicCopp, nullptr);
  EXPECT_EQ(copp->pmapType(), staticType);
  EXPECT_EQ(copp->platformHelper(), in.platformHelper);
  EXPECT_EQ(dynamicCopp->pmapType(), dynamicType);
  EXPECT_EQ(root->coppTypeSm().size(), 1u);
  EXPECT_EQ(root->coppDynamicTypeSm().size(), 1u);
}

TEST_F(RootCopp, ANewTypeMachineStartsWithTheSystemPolicyNameAndNoChildren) {
  initializedRootIs();
  in.qosSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  in.qosAclSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  auto copp = root->coppTypeSm(MapType::mapControlPlane);
  ASSERT_NE(copp, nullptr);
  EXPECT_EQ(copp->coppPMapName(), Zat::Name("copp-system-policy"));
  EXPECT_FALSE(copp->initialized());
  EXPECT_EQ(copp->coppSm().size(), 0u);
  EXPECT_TRUE(copp->hasNotificationActive());
  EXPECT_EQ(copp->type(), MapType::mapControlPlane);
  auto dynamicCopp = root->coppDynamicTypeSm(MapType::mapControlPlane);
  ASSERT_NE(dynamicCopp, nullptr);
  EXPECT_EQ(dynamicCopp->coppPMapName(), Zat::Name("copp-system-policy"));
  EXPECT_FALSE(dynamicCopp->initialized());
  EXPECT_EQ(dynamicCopp->coppSm().size(), 0u);
}

TEST_F(RootCopp, OtherMapTypesCreateNoTypeMachine) {
  initializedRootIs();
  in.qosSliceHwStatus->pmapTypeIs(MapType::mapQos);
  in.qosSliceHwStatus->pmapTypeIs(MapType::mapPdp);
  in.qosAclSliceHwStatus->pmapTypeIs(MapType::mapQos);
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  EXPECT_EQ(root->coppDynamicTypeSm().size(), 0u);
  root->handlePolicyMapType();
  root->handleDynamicPolicyMapType();
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  EXPECT_EQ(root->coppDynamicTypeSm().size(), 0u);
}

TEST_F(RootCopp, EachPolicyMapTypeChangeIsTracedWithItsType) {
  initializedRootIs();
  Calls trace;
  {
    RootTest::TraceToLog capture(&trace, 7, true);
    in.qosSliceHwStatus->pmapTypeIs(MapType::mapQos);
    in.qosAclSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  }
  EXPECT_EQ(trace,
            (Calls{"7 void Vorn::Counters::CountersSm::handlePolicyMapType(Qos::MapType) type: "
                   "mapQos",
                   "7 void Vorn::Counters::CountersSm::handleDynamicPolicyMapType(Qos::MapType) "
                   "type: mapControlPlane"}));
}

TEST_F(RootCopp, RemovingTheEntryLeavesTheTypeMachineAndTheSameInputsKeepTheSameObject) {
  auto pmapType = in.qosSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  initializedRootIs();
  auto copp = root->coppTypeSm(MapType::mapControlPlane);
  ASSERT_NE(copp, nullptr);
  in.qosSliceHwStatus->pmapTypeDel(MapType::mapControlPlane);
  EXPECT_EQ(root->coppTypeSm(MapType::mapControlPlane), copp);
  EXPECT_FALSE(copp->zombie());
  root->handlePolicyMapType(MapType::mapControlPlane);
  EXPECT_EQ(root->coppTypeSm(MapType::mapControlPlane), copp);
  // Requested again with the same type status and helper: the same machine.
  EXPECT_EQ(root->coppTypeSmIs(pmapType, in.platformHelper), copp);
  EXPECT_EQ(root->coppTypeSm().size(), 1u);
}

TEST_F(RootCopp, ANewTypeStatusObjectForAnExistingTypeMachineIsAReinstantiationError) {
  auto first = in.qosSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  initializedRootIs();
  auto copp = root->coppTypeSm(MapType::mapControlPlane);
  in.qosSliceHwStatus->pmapTypeDel(MapType::mapControlPlane);
  // The status makes a new object when the type is added again; the machine
  // made for the first one is kept, so the request raises.
  const std::string message = RootTest::messageOf<Zat::ReinstantiationException>(
      [&] { in.qosSliceHwStatus->pmapTypeIs(MapType::mapControlPlane); });
  auto second = in.qosSliceHwStatus->pmapType().find(MapType::mapControlPlane);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(message, "attribute coppTypeSm reinstantiated with a different value: existing " +
                         Zat::toText(first) + ", requested " + Zat::toText(*second));
  EXPECT_EQ(root->coppTypeSm(MapType::mapControlPlane), copp);
  EXPECT_EQ(copp->pmapType(), first);
}

TEST_F(RootCopp, TypeMachineRequestsCheckTheirArguments) {
  initializedRootIs();
  EXPECT_EQ(RootTest::messageOf<Zat::NullPointerException>(
                [&] { root->coppTypeSmIs(nullptr, in.platformHelper); }),
            "null pointer argument: pmapType");
  EXPECT_EQ(RootTest::messageOf<Zat::NullPointerException>(
                [&] { root->coppDynamicTypeSmIs(nullptr, in.platformHelper); }),
            "null pointer argument: pmapType");
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  auto pmapType = in.qosAclSliceHwStatus->pmapTypeIs(MapType::mapControlPlane);
  auto dynamicCopp = root->coppDynamicTypeSm(MapType::mapControlPlane);
  ASSERT_NE(dynamicCopp, nullptr);
  auto otherHelper = VornTest::FakeCountersHelper::FakeCountersHelperIs();
  EXPECT_EQ(RootTest::messageOf<Zat::ReinstantiationException>(
                [&] { root->coppDynamicTypeSmIs(pmapType, otherHelper); }),
            "attribute coppDynamicTypeSm reinstantiated with a different value: existing " +
                Zat::toText(in.platformHelper) + ", requested " + Zat::toText(otherHelper));
  // A type status of another map type is kept under its own key.
  auto qosType = Qos::PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(MapType::mapQos);
  auto qosMachine = root->coppTypeSmIs(qosType, in.platformHelper);
  EXPECT_EQ(root->coppTypeSm(MapType::mapQos), qosMachine);
  root->coppDynamicTypeSmDelAll();
  EXPECT_EQ(root->coppDynamicTypeSm().size(), 0u);
  EXPECT_TRUE(dynamicCopp->zombie());
}

TEST_F(RootCopp, RemovingTheSliceEntityKeepsTheFollowedStatus) {
  in.qosSliceHwStatus = nullptr;
  in.qosAclSliceHwStatus = nullptr;
  initializedRootIs();
  auto slice = Qos::SliceHwStatus::Is("slice1");
  in.qosSliceHwStatusDir->entityIs("slice1", slice);
  EXPECT_EQ(root->qosSliceHwStatus(), slice);
  ASSERT_NE(root->zatQosSliceHwStatus(), nullptr);
  in.qosSliceHwStatusDir->entityDel("slice1");
  EXPECT_EQ(root->qosSliceHwStatus(), slice);
  // Still followed: its control-plane type makes a type machine.
  slice->pmapTypeIs(MapType::mapControlPlane);
  EXPECT_NE(root->coppTypeSm(MapType::mapControlPlane), nullptr);
}

TEST_F(RootCopp, AnotherSliceEntityWithAnyNameReplacesTheFollowedStatusWithoutReplay) {
  initializedRootIs();
  auto first = in.qosSliceHwStatus;
  auto other = Qos::SliceHwStatus::Is("zzz");
  other->pmapTypeIs(MapType::mapControlPlane);
  in.qosSliceHwStatusDir->entityIs("anything", other);
  EXPECT_EQ(root->qosSliceHwStatus(), other);
  // Entries already present are not replayed.
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  // The old status is no longer heard.
  first->pmapTypeIs(MapType::mapControlPlane);
  EXPECT_EQ(root->coppTypeSm().size(), 0u);
  // Setting the same value again is a no-op.
  auto* reactor = root->zatQosSliceHwStatus();
  root->qosSliceHwStatusIs(other);
  EXPECT_EQ(root->zatQosSliceHwStatus(), reactor);
  // Later changes of the new status are handled.
  other->pmapTypeDel(MapType::mapControlPlane);
  other->pmapTypeIs(MapType::mapControlPlane);
  EXPECT_NE(root->coppTypeSm(MapType::mapControlPlane), nullptr);
}

TEST_F(RootCopp, ASliceEntityOfTheWrongTypeClearsTheFollowedStatus) {
  initializedRootIs();
  in.qosSliceHwStatusDir->entityIs("acl", Qos::AclSliceHwStatus::Is("acl"));
  EXPECT_EQ(root->qosSliceHwStatus(), nullptr);
  EXPECT_EQ(root->zatQosSliceHwStatus(), nullptr);
  in.qosAclSliceHwStatusDir->entityIs("static", Qos::SliceHwStatus::Is("static"));
  EXPECT_EQ(root->qosAclSliceHwStatus(), nullptr);
  // The ACL directory follows ACL slice entities.
  auto acl = Qos::AclSliceHwStatus::Is("acl2");
  in.qosAclSliceHwStatusDir->entityIs("acl2", acl);
  EXPECT_EQ(root->qosAclSliceHwStatus(), acl);
  acl->pmapTypeIs(MapType::mapControlPlane);
  EXPECT_NE(root->coppDynamicTypeSm(MapType::mapControlPlane), nullptr);
}

TEST_F(RootCopp, SliceDirectoryChangesAreFollowedBeforeInitializationToo) {
  rootIs();
  auto slice = Qos::SliceHwStatus::Is("early");
  in.qosSliceHwStatusDir->entityIs("early", slice);
  EXPECT_EQ(root->qosSliceHwStatus(), slice);
}

}  // namespace
