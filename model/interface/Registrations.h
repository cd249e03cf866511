// Registration objects: which interfaces' counters this component publishes.
//
// Other processes read these to learn which interfaces have queue counters
// (WriterConfig), ACL drop counters (AclDropConfig) and published Ethernet or
// VLAN interface counters (the two writer statuses). Each is a notifying set of
// interfaces with a boolean; the counters root adds and removes entries.
#pragma once

#include <map>
#include <optional>

#include "orvo/IntfId.h"
#include "zat/Collections.h"
#include "zat/Generic.h"

namespace Interface {

// A notifying set of interfaces, each with a boolean, ordered by interface.
template <class Tag>
class IntfRegistration : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kIntf = "intf";
  static Zat::Ptr<IntfRegistration> Is() {
    return Zat::Ptr<IntfRegistration>(new IntfRegistration());
  }

  // The entry of `id`, absent when the interface is not listed.
  std::optional<bool> intf(Orvo::IntfId id) const { return intf_.get(id); }
  bool contains(Orvo::IntfId id) const { return intf_.contains(id); }
  void intfIs(Orvo::IntfId id, bool value) { intf_.set(id, value); }
  void intfDel(Orvo::IntfId id) { intf_.del(id); }
  size_t size() const { return intf_.size(); }
  const Zat::AttrCollection<Orvo::IntfId, bool, std::map<Orvo::IntfId, bool>>& entries() const {
    return intf_;
  }

  const char* fwkType() const override { return Tag::kType; }
  void attributesDescribe(Zat::Describer& d) const override {
    for (const auto& [id, v] : intf_) d.attribute(id.stringValue(), Zat::toText(v));
  }

 private:
  IntfRegistration() : intf_(this, kIntf) {}
  Zat::AttrCollection<Orvo::IntfId, bool, std::map<Orvo::IntfId, bool>> intf_;
};

struct EthIntfCounterWriterStatusTag {
  static constexpr const char* kType = "Interface::EthIntfCounterWriterStatus";
};
struct VlanIntfCounterWriterStatusTag {
  static constexpr const char* kType = "Interface::VlanIntfCounterWriterStatus";
};
struct AclDropConfigTag {
  static constexpr const char* kType = "Interface::AclDropConfig";
};
struct WriterConfigTag {
  static constexpr const char* kType = "Interface::QueueCounter::WriterConfig";
};

using EthIntfCounterWriterStatus = IntfRegistration<EthIntfCounterWriterStatusTag>;
using VlanIntfCounterWriterStatus = IntfRegistration<VlanIntfCounterWriterStatusTag>;
using AclDropConfig = IntfRegistration<AclDropConfigTag>;

namespace QueueCounter {
using WriterConfig = IntfRegistration<WriterConfigTag>;
}  // namespace QueueCounter

}  // namespace Interface
