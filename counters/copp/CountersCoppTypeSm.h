// CountersCoppTypeSm: the control-plane-policing policy-map-type machine of the
// static slice status.
//
// The root CountersSm creates it (coppTypeSmIs) for the map-type-0 entry of its
// Qos::SliceHwStatus and keeps it until the root dies. It follows the policy maps
// of that type and owns one CountersCoppSm per policy map added through the
// generic attribute interface. Logic shared with CountersDynamicCoppTypeSm lives
// in CoppTypeSmBase.
#pragma once

#include "counters/copp/CoppTypeSmBase.h"
#include "counters/copp/CountersCoppSm.h"

namespace Vorn::Counters {

// What sets the static type machine apart from the dynamic one.
struct CountersCoppTypeSmFlavour {
  using ClassSm = CountersCoppSm;
  static Zat::Ptr<CountersCoppSm> classSmIs(
      Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
    return CountersCoppSm::CountersCoppSmIs(std::move(name), std::move(pmap),
                                            std::move(platformHelper));
  }
  static constexpr const char* kFwkType = "Vorn::Counters::CountersCoppTypeSm";
  static constexpr const char* kZatPmapTypeFwkType =
      "Vorn::Counters::CountersCoppTypeSm::ZatPmapType";
  static constexpr const char* kHandleInitialized =
      "void Vorn::Counters::CountersCoppTypeSm::handleInitialized()";
  static constexpr const char* kDoPrepareToDie =
      "void Vorn::Counters::CountersCoppTypeSm::doPrepareToDie()";
  static constexpr const char* kHandlePolicyMap =
      "void Vorn::Counters::CountersCoppTypeSm::handlePolicyMap(const "
      "Qos::PolicyMapHwStatusKey&)";
  // The level-7 trace is this text, then "<name> <direction>".
  static constexpr const char* kHandlePolicyMapTrace =
      "Vorn::Counters::CountersCoppTypeSm::handlePolicyMap() ";
  static constexpr bool kHandlePolicyMapTimed = true;
};

extern template class CoppTypeSmBase<CountersCoppTypeSmFlavour>;

class CountersCoppTypeSm final : public CoppTypeSmBase<CountersCoppTypeSmFlavour> {
 public:
  // Builds the machine, which walks the policy maps of pmapType at once, and
  // switches its notifications on. Requires: pmapType non-null (else
  // Zat::NullPointerException "null pointer argument: pmapType").
  static Zat::Ptr<CountersCoppTypeSm> CountersCoppTypeSmIs(
      Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);

  CountersCoppTypeSm(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                     Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
};

}  // namespace Vorn::Counters
