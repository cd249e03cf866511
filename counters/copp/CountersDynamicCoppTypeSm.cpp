#include "counters/copp/CountersDynamicCoppTypeSm.h"

#include "zat/Mutator.h"

namespace Vorn::Counters {

Zat::Ptr<CountersDynamicCoppTypeSm> CountersDynamicCoppTypeSm::CountersDynamicCoppTypeSmIs(
    Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
  // Checked before construction: the constructor's walk needs the type status.
  Zat::requireNonNull(pmapType, "pmapType");
  Zat::Ptr<CountersDynamicCoppTypeSm> sm(
      new CountersDynamicCoppTypeSm(std::move(pmapType), std::move(platformHelper)));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CountersDynamicCoppTypeSm::CountersDynamicCoppTypeSm(
    Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : CoppTypeSmBase(std::move(pmapType), std::move(platformHelper)) {}

}  // namespace Vorn::Counters
