// The logic shared by the two policy-map-type machines of control-plane policing.
//
// CountersCoppTypeSm (static slice status) and CountersDynamicCoppTypeSm (ACL,
// "dynamic", slice status) are this template applied to a flavour. The root
// CountersSm keeps one per followed map type. A type machine follows the policy
// maps of its type and owns the class-counter machines (CountersCoppSm or
// CountersDynamicCoppSm) by policy-map name. Those children are added only from
// outside, through the generic attribute interface ("coppSmIs"), by the party that
// owns the control-plane policy; `coppPMapName` is published for that party.
//
// A flavour provides: ClassSm (the child type) and a static
// classSmIs(name, pmap, platformHelper) building one; the string constants
// kFwkType and kZatPmapTypeFwkType; the full signatures kHandleInitialized,
// kDoPrepareToDie and kHandlePolicyMap; kHandlePolicyMapTrace, the text that the
// level-7 policy-map trace writes before "<name> <direction>"; and
// kHandlePolicyMapTimed, true when handlePolicyMap also writes a binary trace
// record and runs a block timer, false when it writes the text trace only.
#pragma once

#include "qos/QosStatus.h"
#include "vornhelper/VornHelper.h"
#include "zat/Collections.h"
#include "zat/Generic.h"
#include "zat/Notifiee.h"
#include "zat/Ptr.h"
#include "zat/String.h"

namespace Vorn::Counters {

template <class Flavour>
class CoppTypeSmBase : public Zat::PtrInterface {
 public:
  using ClassSm = typename Flavour::ClassSm;
  using CoppSmCollection = Zat::ChildCollection<Zat::Name, ClassSm>;

  // Follows the policy-map collection of the type status, one policy map per change.
  class ZatPmapType : public Zat::NotifieeOf<Qos::PolicyMapTypeHwStatus> {
   public:
    ZatPmapType(CoppTypeSmBase* owner, const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType)
        : Zat::NotifieeOf<Qos::PolicyMapTypeHwStatus>(pmapType), owner_(owner) {}
    const char* fwkType() const override { return Flavour::kZatPmapTypeFwkType; }
    void onAttribute(Zat::AttributeId attr, const void* key) override;

   private:
    CoppTypeSmBase* owner_;
  };

  // The policy-map name of the system control-plane policy.
  static constexpr const char* kDefaultCoppPMapName = "copp-system-policy";

  // --- attributes, in declaration order ---
  const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType() const { return pmapType_; }
  // The map type of pmapType (control-plane policing when pmapType is absent);
  // the machine's key in the root's collection.
  Qos::MapType type() const;
  // The key under which the root keeps this machine.
  Qos::MapType fwkKey() const { return type(); }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  // The child of policy map `name`, or null.
  Zat::Ptr<ClassSm> coppSm(const Zat::Name& name) const { return coppSm_.get(name); }
  const CoppSmCollection& coppSm() const { return coppSm_; }
  // Returns the child of `name`, creating it with its notifications on when absent
  // (that makes no helper call). An existing child built with another pmap or
  // platformHelper raises Zat::ReinstantiationException and stays as it was.
  Zat::Ptr<ClassSm> coppSmIs(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                             Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
  // Marks the child a zombie and releases it; nothing happens when absent.
  void coppSmDel(Zat::Name name);
  void coppSmDelAll();
  const Zat::Name& coppPMapName() const { return coppPMapName_; }
  void coppPMapNameIs(Zat::Name name) { coppPMapName_ = std::move(name); }
  bool initialized() const { return initialized_; }
  // Only stores the flag: no handler runs.
  void initializedIs(bool value) { initialized_ = value; }

  // --- handlers ---
  // Visits every policy map of pmapType in key order. Requires: pmapType non-null.
  void handleInitialized();
  // Traces the policy map; it creates, changes and deletes nothing.
  void handlePolicyMap(const Qos::PolicyMapHwStatusKey& key);
  // Deletes every child; the inputs, coppPMapName and initialized stay.
  void doPrepareToDie();

  // --- framework operations ---
  void hasNotificationActiveIs(bool value) override;
  const char* fwkType() const override { return Flavour::kFwkType; }
  void zatDoZombieReactors(bool value) override;
  // Attributes: pmapType, type, platformHelper, coppSm (with its children),
  // coppPMapName, handlePolicyMap, doPrepareToDie, initialized, handleInitialized.
  void attributesDescribe(Zat::Describer& d) const override;
  // Operations: "coppSmIs" (name, pmap object, helper object; returns the child),
  // "coppSmDel" (name), "coppSmDelAll", "coppPMapNameIs" (name), "initializedIs"
  // (bool), "handleInitialized", "handlePolicyMap" (direction, name),
  // "doPrepareToDie".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  // Stores the inputs and runs handleInitialized() at once.
  CoppTypeSmBase(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                 Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper);
  ~CoppTypeSmBase() override;

 private:
  Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType_;
  Zat::Ptr<ZatPmapType> zatPmapType_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  CoppSmCollection coppSm_;
  Zat::Name coppPMapName_{kDefaultCoppPMapName};
  bool initialized_ = false;
};

}  // namespace Vorn::Counters
