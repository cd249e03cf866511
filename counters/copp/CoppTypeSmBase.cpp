// The policy-map-type logic shared by CountersCoppTypeSm and
// CountersDynamicCoppTypeSm.
#include "counters/copp/CoppTypeSmBase.h"

#include <algorithm>

#include "counters/Conventions.h"
#include "counters/copp/CoppGenericArgs.h"
#include "counters/copp/CountersCoppTypeSm.h"
#include "counters/copp/CountersDynamicCoppTypeSm.h"
#include "pontil/Assert.h"
#include "zat/Mutator.h"

namespace Vorn::Counters {

template <class Flavour>
void CoppTypeSmBase<Flavour>::ZatPmapType::onAttribute(Zat::AttributeId attr, const void* key) {
  if (attr != Qos::PolicyMapTypeHwStatus::kPmap || key == nullptr || dying()) return;
  owner_->handlePolicyMap(*static_cast<const Qos::PolicyMapHwStatusKey*>(key));
}

template <class Flavour>
CoppTypeSmBase<Flavour>::CoppTypeSmBase(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                                        Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : pmapType_(std::move(pmapType)), platformHelper_(std::move(platformHelper)) {
  if (pmapType_) {
    zatPmapType_ = Zat::Ptr<ZatPmapType>(new ZatPmapType(this, pmapType_));
    zatPmapType_->hasNotificationActiveIs(true);
  }
  // Unlike the class machines, a type machine starts its walk on construction;
  // `initialized` stays false until the policy owner sets it.
  handleInitialized();
}

template <class Flavour>
CoppTypeSmBase<Flavour>::~CoppTypeSmBase() {
  coppSmDelAll();
  // The reactor may outlive us while a delivery holds it; it must not call back.
  if (zatPmapType_) zatPmapType_->zatDoZombieReactors(true);
}

template <class Flavour>
Qos::MapType CoppTypeSmBase<Flavour>::type() const {
  return pmapType_ ? pmapType_->type() : Qos::MapType::mapControlPlane;
}

template <class Flavour>
Zat::Ptr<typename CoppTypeSmBase<Flavour>::ClassSm> CoppTypeSmBase<Flavour>::coppSmIs(
    Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
  if (Zat::Ptr<ClassSm> existing = coppSm_.get(name)) {
    // The error names the collection, as the root's collections do, with the
    // differing input's two values.
    Zat::sameOrThrowReinstantiating("coppSm", existing->pmap(), pmap);
    Zat::sameOrThrowReinstantiating("coppSm", existing->platformHelper(), platformHelper);
    return existing;
  }
  Zat::Ptr<ClassSm> child = Flavour::classSmIs(name, std::move(pmap), std::move(platformHelper));
  coppSm_.insert(name, child);
  return child;
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::coppSmDel(Zat::Name name) {
  coppSm_.del(name);
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::coppSmDelAll() {
  coppSm_.delAll();
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::handleInitialized() {
  VORN_HANDLER(Flavour::kHandleInitialized);
  vornAssert(pmapType());
  // Held locally: the walk must survive a handler dropping our reference.
  Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType = pmapType_;
  // Policy maps may be added or removed by the calls below, so the walk finds its
  // place again by key after each one instead of keeping an iterator.
  pmapType->pmap().forEachKey([this](const Qos::PolicyMapHwStatusKey& key) {
    // Only the control-plane-policing type is served; a machine built on another
    // type status keeps quiet.
    if (!pmapType_ || pmapType_->type() == Qos::MapType::mapControlPlane) handlePolicyMap(key);
  });
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::handlePolicyMap(const Qos::PolicyMapHwStatusKey& key) {
  // Trace only: the class machines are added from outside by the policy owner.
  if constexpr (Flavour::kHandlePolicyMapTimed) {
    NIMLOG_HANDLER(VORN_COUNTERS_MODULE, Flavour::kHandlePolicyMap);
    VORN_TRACE(7, Flavour::kHandlePolicyMapTrace << key.pmapName << " " << key.direction);
  } else {
    VORN_TRACE(7, Flavour::kHandlePolicyMapTrace << key.pmapName << " " << key.direction);
  }
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::doPrepareToDie() {
  VORN_HANDLER(Flavour::kDoPrepareToDie);
  // keys() is a snapshot and coppSmDel ignores names already gone, so deleting
  // the entry being visited (or any other) cannot upset the walk.
  for (const Zat::Name& name : coppSm_.keys()) coppSmDel(name);
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Zat::PtrInterface::hasNotificationActiveIs(value);
  if (zatPmapType_) zatPmapType_->hasNotificationActiveIs(value);
  coppSm_.forEachChild(
      [value](const Zat::Ptr<ClassSm>& child) { child->hasNotificationActiveIs(value); });
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatPmapType_) zatPmapType_->zatDoZombieReactors(value);
  Zat::PtrInterface::zatDoZombieReactors(value);
}

template <class Flavour>
void CoppTypeSmBase<Flavour>::attributesDescribe(Zat::Describer& d) const {
  d.attribute("pmapType", Zat::toText(pmapType_));
  d.attribute("type", Zat::toText(type()));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("coppSm", std::to_string(coppSm_.size()));
  // By name, so that dumps of the same tree compare equal.
  std::vector<Zat::Name> names = coppSm_.keys();
  std::sort(names.begin(), names.end());
  for (const Zat::Name& name : names) d.child("coppSm", name.stringValue(), coppSm_.find(name));
  d.attribute("coppPMapName", Zat::toText(coppPMapName_));
  d.attribute("handlePolicyMap", "operation");
  d.attribute("doPrepareToDie", "operation");
  d.attribute("initialized", Zat::toText(initialized_));
  d.attribute("handleInitialized", "operation");
}

template <class Flavour>
Zat::GenericValue CoppTypeSmBase<Flavour>::genericInvoke(std::string_view operation,
                                                         const Zat::GenericArgs& args) {
  if (operation == "coppSmIs") {
    Zat::expectArgs(operation, args, 3);
    Zat::Ptr<ClassSm> child = coppSmIs(
        Zat::Name(args[0].asString("name")),
        CoppGeneric::objectArg<Qos::PolicyMapHwStatus>(args[1], "pmap", "Qos::PolicyMapHwStatus"),
        CoppGeneric::objectArg<VornHelper::VornHelperCountersSm>(
            args[2], "platformHelper", "VornHelper::VornHelperCountersSm"));
    return Zat::GenericValue(Zat::Ptr<Zat::PtrInterface>(child.ptr()));
  }
  if (operation == "coppSmDel") {
    Zat::expectArgs(operation, args, 1);
    coppSmDel(Zat::Name(args[0].asString("name")));
  } else if (operation == "coppSmDelAll") {
    Zat::expectArgs(operation, args, 0);
    coppSmDelAll();
  } else if (operation == "coppPMapNameIs") {
    Zat::expectArgs(operation, args, 1);
    coppPMapNameIs(Zat::Name(args[0].asString("coppPMapName")));
  } else if (operation == "initializedIs") {
    Zat::expectArgs(operation, args, 1);
    initializedIs(args[0].asBool("initialized"));
  } else if (operation == "handleInitialized") {
    Zat::expectArgs(operation, args, 0);
    handleInitialized();
  } else if (operation == "handlePolicyMap") {
    Zat::expectArgs(operation, args, 2);
    Qos::PolicyMapHwStatusKey key;
    key.direction = CoppGeneric::directionArg(args[0], "direction");
    key.pmapName = args[1].asString("pmapName");
    handlePolicyMap(key);
  } else if (operation == "doPrepareToDie") {
    Zat::expectArgs(operation, args, 0);
    doPrepareToDie();
  } else {
    Zat::throwUnknownOperation(*this, operation);
  }
  return Zat::GenericValue();
}

template class CoppTypeSmBase<CountersCoppTypeSmFlavour>;
template class CoppTypeSmBase<CountersDynamicCoppTypeSmFlavour>;

}  // namespace Vorn::Counters
