#include "counters/copp/CountersCoppTypeSm.h"

#include "zat/Mutator.h"

namespace Vorn::Counters {

Zat::Ptr<CountersCoppTypeSm> CountersCoppTypeSm::CountersCoppTypeSmIs(
    Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
  // Checked before construction: the constructor's walk needs the type status.
  Zat::requireNonNull(pmapType, "pmapType");
  Zat::Ptr<CountersCoppTypeSm> sm(
      new CountersCoppTypeSm(std::move(pmapType), std::move(platformHelper)));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CountersCoppTypeSm::CountersCoppTypeSm(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                                       Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : CoppTypeSmBase(std::move(pmapType), std::move(platformHelper)) {}

}  // namespace Vorn::Counters
