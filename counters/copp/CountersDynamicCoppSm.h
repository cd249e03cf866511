// CountersDynamicCoppSm: class counters of one dynamic (ACL) control-plane policy map.
//
// Kept by CountersDynamicCoppTypeSm in its `coppSm` collection under the policy-map
// name; created only through the type machine's generic `coppSmIs` by the party
// that owns the control-plane policy. It follows the classes of the policy map's
// hardware status and asks the platform helper (coppClassCountersUpdate) to
// refresh each class present. Logic shared with CountersCoppSm lives in
// CoppSmBase.
#pragma once

#include "counters/copp/CoppSmBase.h"

namespace Vorn::Counters {

// The names that set the dynamic class machine apart from the static one.
struct CountersDynamicCoppSmFlavour {
  static constexpr const char* kFwkType = "Vorn::Counters::CountersDynamicCoppSm";
  static constexpr const char* kZatPmapFwkType = "Vorn::Counters::CountersDynamicCoppSm::ZatPmap";
  static constexpr const char* kHandleInitialized =
      "void Vorn::Counters::CountersDynamicCoppSm::handleInitialized()";
  static constexpr const char* kHandleClass =
      "void Vorn::Counters::CountersDynamicCoppSm::handleClass(Zat::Name)";
  // The level-7 class trace is this text, then the class name.
  static constexpr const char* kHandleClassTrace =
      "Vorn::Counters::CountersDynamicCoppSm::handleClass() ";
};

extern template class CoppSmBase<CountersDynamicCoppSmFlavour>;

class CountersDynamicCoppSm final : public CoppSmBase<CountersDynamicCoppSmFlavour> {
 public:
  // Builds the machine with its notifications on. A null pmap means no policy map
  // (no reactor). Makes no helper call: the walk waits for initializedIs.
  static Zat::Ptr<CountersDynamicCoppSm> CountersDynamicCoppSmIs(
      Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);

  CountersDynamicCoppSm(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                        Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
};

}  // namespace Vorn::Counters
