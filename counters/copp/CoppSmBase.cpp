// The class-counter logic shared by CountersCoppSm and CountersDynamicCoppSm.
#include "counters/copp/CoppSmBase.h"

#include "counters/Conventions.h"
#include "counters/copp/CountersCoppSm.h"
#include "counters/copp/CountersDynamicCoppSm.h"
#include "pontil/Assert.h"

namespace Vorn::Counters {

template <class Flavour>
void CoppSmBase<Flavour>::ZatPmap::onAttribute(Zat::AttributeId attr, const void* key) {
  // A keyless call replaces the collection as a whole; the walk of
  // handleInitialized, not a per-class call, serves that.
  if (attr != Qos::PolicyMapHwStatus::kClass || key == nullptr || dying()) return;
  owner_->handleClass(*static_cast<const Zat::Name*>(key));
}

template <class Flavour>
CoppSmBase<Flavour>::CoppSmBase(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                                Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : name_(std::move(name)), pmap_(std::move(pmap)), platformHelper_(std::move(platformHelper)) {
  if (pmap_) {
    zatPmap_ = Zat::Ptr<ZatPmap>(new ZatPmap(this, pmap_));
    zatPmap_->hasNotificationActiveIs(true);
  }
}

template <class Flavour>
CoppSmBase<Flavour>::~CoppSmBase() {
  // The reactor may outlive us while a delivery holds it; it must not call back.
  if (zatPmap_) zatPmap_->zatDoZombieReactors(true);
}

template <class Flavour>
void CoppSmBase<Flavour>::pmapDel() {
  if (zatPmap_) {
    zatPmap_->zatDoZombieReactors(true);
    zatPmap_ = nullptr;
  }
  pmap_ = nullptr;
}

template <class Flavour>
void CoppSmBase<Flavour>::initializedIs(bool value) {
  if (value == initialized_) return;
  initialized_ = value;
  // Deliberately on both edges: setting the flag back to false refreshes every
  // class once more, which the policy owner uses to force a refresh.
  handleInitialized();
}

template <class Flavour>
void CoppSmBase<Flavour>::handleInitialized() {
  VORN_HANDLER(Flavour::kHandleInitialized);
  vornAssert(pmap());
  // Held locally: a handler may drop our reference to the policy map mid-walk.
  Zat::Ptr<const Qos::PolicyMapHwStatus> pmap = pmap_;
  // Classes may be added or removed by the calls below, so the walk visits a
  // snapshot of the names and skips the ones removed meanwhile.
  pmap->classStatus().forEachKey([this](const Zat::Name& cmapName) { handleClass(cmapName); });
}

template <class Flavour>
void CoppSmBase<Flavour>::handleClass(Zat::Name cmapName) {
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE, Flavour::kHandleClass);
  VORN_TRACE(7, Flavour::kHandleClassTrace << cmapName);
  vornAssert(pmap());
  // A class notified after its removal has nothing left to count.
  if (!pmap_->classStatus().contains(cmapName)) return;
  // Without a helper there is nothing to refresh through.
  if (!platformHelper_) return;
  platformHelper_->coppClassCountersUpdate(cmapName);
}

template <class Flavour>
void CoppSmBase<Flavour>::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Zat::PtrInterface::hasNotificationActiveIs(value);
  if (zatPmap_) zatPmap_->hasNotificationActiveIs(value);
}

template <class Flavour>
void CoppSmBase<Flavour>::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatPmap_) zatPmap_->zatDoZombieReactors(value);
  Zat::PtrInterface::zatDoZombieReactors(value);
}

template <class Flavour>
void CoppSmBase<Flavour>::attributesDescribe(Zat::Describer& d) const {
  d.attribute("name", Zat::toText(name_));
  d.attribute("pmap", Zat::toText(pmap_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("initialized", Zat::toText(initialized_));
}

template <class Flavour>
Zat::GenericValue CoppSmBase<Flavour>::genericInvoke(std::string_view operation,
                                                     const Zat::GenericArgs& args) {
  if (operation == "initializedIs") {
    Zat::expectArgs(operation, args, 1);
    initializedIs(args[0].asBool("initialized"));
  } else if (operation == "handleInitialized") {
    Zat::expectArgs(operation, args, 0);
    handleInitialized();
  } else if (operation == "handleClass") {
    Zat::expectArgs(operation, args, 1);
    handleClass(Zat::Name(args[0].asString("cmapName")));
  } else if (operation == "pmapDel") {
    Zat::expectArgs(operation, args, 0);
    pmapDel();
  } else {
    Zat::throwUnknownOperation(*this, operation);
  }
  return Zat::GenericValue();
}

template class CoppSmBase<CountersCoppSmFlavour>;
template class CoppSmBase<CountersDynamicCoppSmFlavour>;

}  // namespace Vorn::Counters
