// CountersSm: discovery of the control-plane-policing policy-map types in the
// static and ACL ("dynamic") slice statuses. One type machine per source is
// kept for map type 0 and lives until the root dies.
#include "counters/Conventions.h"
#include "counters/CountersSm.h"
#include "pontil/Assert.h"

namespace Vorn::Counters {

namespace {
// The control-plane-policing map type; every other type is ignored by design.
constexpr Qos::MapType kCoppMapType = static_cast<Qos::MapType>(0);
}  // namespace

// --- slice directories ---

void CountersSm::handleQosSliceHwStatusDir(Zat::Name name) {
  // Deliberately nothing is cleared when an entity goes away: the root keeps
  // following the status it has.
  if (!qosSliceHwStatusDir_ || !qosSliceHwStatusDir_->entityPtr(name)) return;
  // Whichever slice entity changed last is followed; one of another type clears it.
  qosSliceHwStatusIs(Zat::ptr_cast<Qos::SliceHwStatus>(qosSliceHwStatusDir_->entityPtr(name)));
}

void CountersSm::handleQosAclSliceHwStatusDir(Zat::Name name) {
  if (!qosAclSliceHwStatusDir_ || !qosAclSliceHwStatusDir_->entityPtr(name)) return;
  qosAclSliceHwStatusIs(
      Zat::ptr_cast<Qos::AclSliceHwStatus>(qosAclSliceHwStatusDir_->entityPtr(name)));
}

// --- policy-map types ---

void CountersSm::handlePolicyMapType(Qos::MapType type) {
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE,
                 "void Vorn::Counters::CountersSm::handlePolicyMapType(Qos::MapType)");
  VORN_TRACE(7, "void Vorn::Counters::CountersSm::handlePolicyMapType(Qos::MapType)"
                    << " type: " << type);
  if (type != kCoppMapType) return;
  vornAssertText(qosSliceHwStatus_, "qosSliceHwStatus()");
  // A type machine made earlier stays when its entry disappears.
  const Zat::Ptr<Qos::PolicyMapTypeHwStatus>* entry = qosSliceHwStatus_->pmapType().find(type);
  if (!entry) return;
  coppTypeSmIs(*entry, platformHelper_);
}

void CountersSm::handlePolicyMapType() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handlePolicyMapType()");
  if (!qosSliceHwStatus_) return;
  // Keep the status alive for the walk: a handler may re-point the root.
  Zat::Ptr<Qos::SliceHwStatus> status = qosSliceHwStatus_;
  status->pmapType().forEachKey([this](const Qos::MapType& type) { handlePolicyMapType(type); });
}

void CountersSm::handleDynamicPolicyMapType(Qos::MapType type) {
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE,
                 "void Vorn::Counters::CountersSm::handleDynamicPolicyMapType(Qos::MapType)");
  VORN_TRACE(7, "void Vorn::Counters::CountersSm::handleDynamicPolicyMapType(Qos::MapType)"
                    << " type: " << type);
  if (type != kCoppMapType) return;
  vornAssertText(qosAclSliceHwStatus_, "qosAclSliceHwStatus()");
  const Zat::Ptr<Qos::PolicyMapTypeHwStatus>* entry = qosAclSliceHwStatus_->pmapType().find(type);
  if (!entry) return;
  coppDynamicTypeSmIs(*entry, platformHelper_);
}

void CountersSm::handleDynamicPolicyMapType() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handleDynamicPolicyMapType()");
  if (!qosAclSliceHwStatus_) return;
  Zat::Ptr<Qos::AclSliceHwStatus> status = qosAclSliceHwStatus_;
  status->pmapType().forEachKey(
      [this](const Qos::MapType& type) { handleDynamicPolicyMapType(type); });
}

}  // namespace Vorn::Counters
