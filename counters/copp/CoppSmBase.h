// The logic shared by the two class-counter machines of control-plane policing.
//
// CountersCoppSm (static policing) and CountersDynamicCoppSm (ACL, "dynamic"
// policing) behave alike and differ only in their names and trace texts; both are
// this template applied to a flavour that supplies those texts. A class machine
// stands for one policy map: it follows the map's classes and asks the platform
// helper to refresh the counters of every class present. Its owner, the policy-map
// type machine, keeps it under the policy-map name.
//
// A flavour provides, as string constants: kFwkType, kZatPmapFwkType, the full
// signatures kHandleInitialized and kHandleClass, and kHandleClassTrace, the text
// that the level-7 class trace writes before the class name.
#pragma once

#include "qos/QosStatus.h"
#include "vornhelper/VornHelper.h"
#include "zat/Generic.h"
#include "zat/Notifiee.h"
#include "zat/Ptr.h"
#include "zat/String.h"

namespace Vorn::Counters {

template <class Flavour>
class CoppSmBase : public Zat::PtrInterface {
 public:
  // Follows the class collection of the policy map and serves one class per change.
  class ZatPmap : public Zat::NotifieeOf<Qos::PolicyMapHwStatus> {
   public:
    ZatPmap(CoppSmBase* owner, const Zat::Ptr<const Qos::PolicyMapHwStatus>& pmap)
        : Zat::NotifieeOf<Qos::PolicyMapHwStatus>(pmap), owner_(owner) {}
    const char* fwkType() const override { return Flavour::kZatPmapFwkType; }
    void onAttribute(Zat::AttributeId attr, const void* key) override;

   private:
    CoppSmBase* owner_;
  };

  // --- attributes, in declaration order ---
  const Zat::Name& name() const { return name_; }
  // The key under which the owner keeps this machine: the policy-map name.
  const Zat::Name& fwkKey() const { return name_; }
  const Zat::Ptr<const Qos::PolicyMapHwStatus>& pmap() const { return pmap_; }
  // Drops the policy map and its reactor; no handler calls it.
  void pmapDel();
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  bool initialized() const { return initialized_; }
  // Any change, to true or back to false, stores the flag and re-runs the full walk.
  void initializedIs(bool value);

  // --- handlers ---
  // Refreshes every class of the policy map. Requires: pmap non-null.
  void handleInitialized();
  // Refreshes `cmapName` when the policy map still has it; a removed class is
  // skipped. Requires: pmap non-null.
  void handleClass(Zat::Name cmapName);

  // --- framework operations ---
  void hasNotificationActiveIs(bool value) override;
  const char* fwkType() const override { return Flavour::kFwkType; }
  void zatDoZombieReactors(bool value) override;
  // Attributes: name, pmap, platformHelper, initialized.
  void attributesDescribe(Zat::Describer& d) const override;
  // Operations: "initializedIs" (bool), "handleInitialized", "handleClass" (class
  // name), "pmapDel".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  CoppSmBase(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
             Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
  ~CoppSmBase() override;

 private:
  Zat::Name name_;
  Zat::Ptr<const Qos::PolicyMapHwStatus> pmap_;
  Zat::Ptr<ZatPmap> zatPmap_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  bool initialized_ = false;
};

}  // namespace Vorn::Counters
