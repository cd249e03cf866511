// CountersCoppSm: class counters of one static control-plane policy map.
//
// Kept by CountersCoppTypeSm in its `coppSm` collection under the policy-map
// name; created only through the type machine's generic `coppSmIs` by the party
// that owns the control-plane policy. It follows the classes of the policy map's
// hardware status and asks the platform helper (coppClassCountersUpdate) to
// refresh each class present. Logic shared with CountersDynamicCoppSm lives in
// CoppSmBase.
#pragma once

#include "counters/copp/CoppSmBase.h"

namespace Vorn::Counters {

// The names that set the static class machine apart from the dynamic one.
struct CountersCoppSmFlavour {
  static constexpr const char* kFwkType = "Vorn::Counters::CountersCoppSm";
  static constexpr const char* kZatPmapFwkType = "Vorn::Counters::CountersCoppSm::ZatPmap";
  static constexpr const char* kHandleInitialized =
      "void Vorn::Counters::CountersCoppSm::handleInitialized()";
  static constexpr const char* kHandleClass =
      "void Vorn::Counters::CountersCoppSm::handleClass(Zat::Name)";
  // The level-7 class trace is this text, then the class name.
  static constexpr const char* kHandleClassTrace = "Vorn::Counters::CountersCoppSm::handleClass() ";
};

extern template class CoppSmBase<CountersCoppSmFlavour>;

class CountersCoppSm final : public CoppSmBase<CountersCoppSmFlavour> {
 public:
  // Builds the machine with its notifications on. A null pmap means no policy map
  // (no reactor). Makes no helper call: the walk waits for initializedIs.
  static Zat::Ptr<CountersCoppSm> CountersCoppSmIs(
      Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
      Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);

  CountersCoppSm(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                 Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
};

}  // namespace Vorn::Counters
