#include "counters/copp/CountersDynamicCoppSm.h"

namespace Vorn::Counters {

Zat::Ptr<CountersDynamicCoppSm> CountersDynamicCoppSm::CountersDynamicCoppSmIs(
    Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
  Zat::Ptr<CountersDynamicCoppSm> sm(
      new CountersDynamicCoppSm(std::move(name), std::move(pmap), std::move(platformHelper)));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CountersDynamicCoppSm::CountersDynamicCoppSm(
    Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : CoppSmBase(std::move(name), std::move(pmap), std::move(platformHelper)) {}

}  // namespace Vorn::Counters
