// CountersDynamicCoppTypeSm: the control-plane-policing policy-map-type machine
// of the ACL ("dynamic") slice status.
//
// The root CountersSm creates it (coppDynamicTypeSmIs) for the map-type-0 entry
// of its Qos::AclSliceHwStatus and keeps it until the root dies. It follows the
// policy maps of that type and owns one CountersDynamicCoppSm per policy map added
// through the generic attribute interface. Logic shared with CountersCoppTypeSm
// lives in CoppTypeSmBase; this flavour's handlePolicyMap writes its text trace
// only, opened by the full signature.
#pragma once

#include "counters/copp/CoppTypeSmBase.h"
#include "counters/copp/CountersDynamicCoppSm.h"

namespace Vorn::Counters {

// What sets the dynamic type machine apart from the static one.
struct CountersDynamicCoppTypeSmFlavour {
  using ClassSm = CountersDynamicCoppSm;
  static Zat::Ptr<CountersDynamicCoppSm> classSmIs(
      Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper) {
    return CountersDynamicCoppSm::CountersDynamicCoppSmIs(std::move(name), std::move(pmap),
                                                          std::move(platformHelper));
  }
  static constexpr const char* kFwkType = "Vorn::Counters::CountersDynamicCoppTypeSm";
  static constexpr const char* kZatPmapTypeFwkType =
      "Vorn::Counters::CountersDynamicCoppTypeSm::ZatPmapType";
  static constexpr const char* kHandleInitialized =
      "void Vorn::Counters::CountersDynamicCoppTypeSm::handleInitialized()";
  static constexpr const char* kDoPrepareToDie =
      "void Vorn::Counters::CountersDynamicCoppTypeSm::doPrepareToDie()";
  static constexpr const char* kHandlePolicyMap =
      "void Vorn::Counters::CountersDynamicCoppTypeSm::handlePolicyMap(const "
      "Qos::PolicyMapHwStatusKey&)";
  // The level-7 trace is the full signature, then at once "<name> <direction>".
  static constexpr const char* kHandlePolicyMapTrace = kHandlePolicyMap;
  static constexpr bool kHandlePolicyMapTimed = false;
};

extern template class CoppTypeSmBase<CountersDynamicCoppTypeSmFlavour>;

class CountersDynamicCoppTypeSm final : public CoppTypeSmBase<CountersDynamicCoppTypeSmFlavour> {
 public:
  // Builds the machine, which walks the policy maps of pmapType at once, and
  // switches its notifications on. Requires: pmapType non-null (else
  // Zat::NullPointerException "null pointer argument: pmapType").
  static Zat::Ptr<CountersDynamicCoppTypeSm> CountersDynamicCoppTypeSmIs(
      Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);

  CountersDynamicCoppTypeSm(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                            Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
};

}  // namespace Vorn::Counters
