// Vorn::VornCommonSmData: the agent's common state-machine data.
//
// The agent marks the interfaces the counters component must serve in three
// keyed sets: `intf` (Ethernet ports), `cpuIntf` (CPU ports) and `vlanIntf`
// (routed VLAN interfaces). An entry present with value true means "serve it".
// Every change of an entry notifies watchers with the set's name and the key.
#pragma once

#include "orvo/IntfId.h"
#include "zat/Collections.h"
#include "zat/Generic.h"

namespace Vorn {

class VornCommonSmData : public Zat::PtrInterface {
 public:
  using IntfSet = Zat::AttrCollection<Orvo::IntfId, bool>;
  static constexpr Zat::AttributeId kIntf = "intf";
  static constexpr Zat::AttributeId kCpuIntf = "cpuIntf";
  static constexpr Zat::AttributeId kVlanIntf = "vlanIntf";

  static Zat::Ptr<VornCommonSmData> VornCommonSmDataIs() {
    return Zat::Ptr<VornCommonSmData>(new VornCommonSmData());
  }

  const IntfSet& intf() const { return intf_; }
  void intfIs(Orvo::IntfId id, bool serve) { intf_.set(id, serve); }
  void intfDel(Orvo::IntfId id) { intf_.del(id); }

  const IntfSet& cpuIntf() const { return cpuIntf_; }
  void cpuIntfIs(Orvo::IntfId id, bool serve) { cpuIntf_.set(id, serve); }
  void cpuIntfDel(Orvo::IntfId id) { cpuIntf_.del(id); }

  const IntfSet& vlanIntf() const { return vlanIntf_; }
  void vlanIntfIs(Orvo::IntfId id, bool serve) { vlanIntf_.set(id, serve); }
  void vlanIntfDel(Orvo::IntfId id) { vlanIntf_.del(id); }

  const char* fwkType() const override { return "Vorn::VornCommonSmData"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("intf", Zat::toText(intf_.size()) + " entries");
    d.attribute("cpuIntf", Zat::toText(cpuIntf_.size()) + " entries");
    d.attribute("vlanIntf", Zat::toText(vlanIntf_.size()) + " entries");
  }

 private:
  VornCommonSmData() : intf_(this, kIntf), cpuIntf_(this, kCpuIntf), vlanIntf_(this, kVlanIntf) {}
  IntfSet intf_;
  IntfSet cpuIntf_;
  IntfSet vlanIntf_;
};

}  // namespace Vorn
