#include "counters/copp/CountersCoppSm.h"

namespace Vorn::Counters {

Zat::Ptr<CountersCoppSm> CountersCoppSm::CountersCoppSmIs(
    Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
    Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
  Zat::Ptr<CountersCoppSm> sm(
      new CountersCoppSm(std::move(name), std::move(pmap), std::move(platformHelper)));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CountersCoppSm::CountersCoppSm(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                               Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper)
    : CoppSmBase(std::move(name), std::move(pmap), std::move(platformHelper)) {}

}  // namespace Vorn::Counters
