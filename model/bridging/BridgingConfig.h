// Bridging configuration objects the VLAN counters machine follows.
//
// Bridging::Config lists the configured VLANs; a VLAN whose entry has
// `countersSuppressed` set gets no counters. Bridging::VlanCountersCliReq holds
// clear requests: the presence of a VLAN's key is the request, and changing its
// value asks again.
#pragma once

#include <ostream>

#include "bridging/VlanId.h"
#include "zat/Collections.h"
#include "zat/Generic.h"

namespace Bridging {

struct VlanConfig {
  VlanId vlanId = 0;
  bool countersSuppressed = false;
  bool operator==(const VlanConfig&) const = default;
};
inline std::ostream& operator<<(std::ostream& os, const VlanConfig& c) {
  return os << "vlan " << c.vlanId << (c.countersSuppressed ? " (counters suppressed)" : "");
}

class Config : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kVlanConfig = "vlanConfig";
  static Zat::Ptr<Config> ConfigIs() { return Zat::Ptr<Config>(new Config()); }

  const Zat::AttrCollection<VlanId, VlanConfig>& vlanConfig() const { return vlanConfig_; }
  void vlanConfigIs(VlanId vlan, bool countersSuppressed = false) {
    vlanConfig_.set(vlan, VlanConfig{vlan, countersSuppressed});
  }
  void vlanConfigDel(VlanId vlan) { vlanConfig_.del(vlan); }

  const char* fwkType() const override { return "Bridging::Config"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("vlanConfig", Zat::toText(vlanConfig_.size()) + " VLANs");
  }

 private:
  Config() : vlanConfig_(this, kVlanConfig) {}
  Zat::AttrCollection<VlanId, VlanConfig> vlanConfig_;
};

class VlanCountersCliReq : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kClearCountersRequest = "clearCountersRequest";
  static Zat::Ptr<VlanCountersCliReq> VlanCountersCliReqIs() {
    return Zat::Ptr<VlanCountersCliReq>(new VlanCountersCliReq());
  }

  const Zat::AttrCollection<VlanId, bool>& clearCountersRequest() const {
    return clearCountersRequest_;
  }
  void clearCountersRequestIs(VlanId vlan, bool value) { clearCountersRequest_.set(vlan, value); }
  // Asks again for a VLAN whose request is still present, by flipping its value.
  void clearCountersRequestToggle(VlanId vlan) {
    const bool* v = clearCountersRequest_.find(vlan);
    clearCountersRequest_.set(vlan, v ? !*v : true);
  }
  void clearCountersRequestDel(VlanId vlan) { clearCountersRequest_.del(vlan); }

  const char* fwkType() const override { return "Bridging::VlanCountersCliReq"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("clearCountersRequest", Zat::toText(clearCountersRequest_.size()) + " requests");
  }

 private:
  VlanCountersCliReq() : clearCountersRequest_(this, kClearCountersRequest) {}
  Zat::AttrCollection<VlanId, bool> clearCountersRequest_;
};

}  // namespace Bridging
