// QoS hardware status objects the policing counters follow.
//
// A slice status (static: SliceHwStatus; ACL or "dynamic": AclSliceHwStatus)
// lists, per policy-map type, the policy maps programmed in hardware; each
// policy map lists its classes. The agent publishes slice status objects as
// entities of a directory. Map type 0 is the control-plane-policing type.
#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <unordered_map>

#include "zat/Collections.h"
#include "zat/Generic.h"
#include "zat/String.h"

namespace Qos {

enum class MapType : uint32_t { mapControlPlane = 0, mapQos = 1, mapPdp = 2 };
std::ostream& operator<<(std::ostream& os, MapType t);

enum class Direction : uint32_t { input = 0, output = 1 };
std::ostream& operator<<(std::ostream& os, Direction d);

// Identifies a policy map within its type: direction and name.
struct PolicyMapHwStatusKey {
  Direction direction = Direction::input;
  std::string pmapName;

  bool operator<(const PolicyMapHwStatusKey& o) const {
    if (direction != o.direction) return direction < o.direction;
    return pmapName < o.pmapName;
  }
  bool operator==(const PolicyMapHwStatusKey& o) const = default;
};
std::ostream& operator<<(std::ostream& os, const PolicyMapHwStatusKey& k);

// One policy map in hardware: its classes by class-map name.
class PolicyMapHwStatus : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kClass = "class";
  static Zat::Ptr<PolicyMapHwStatus> PolicyMapHwStatusIs(const PolicyMapHwStatusKey& key) {
    return Zat::Ptr<PolicyMapHwStatus>(new PolicyMapHwStatus(key));
  }
  const PolicyMapHwStatusKey& key() const { return key_; }
  // Classes present in hardware; the value says whether the class is programmed.
  const Zat::AttrCollection<Zat::Name, bool>& classStatus() const { return class_; }
  void classIs(const Zat::Name& cmap, bool programmed) { class_.set(cmap, programmed); }
  void classDel(const Zat::Name& cmap) { class_.del(cmap); }

  const char* fwkType() const override { return "Qos::PolicyMapHwStatus"; }
  void attributesDescribe(Zat::Describer& d) const override;

 private:
  explicit PolicyMapHwStatus(PolicyMapHwStatusKey key)
      : key_(std::move(key)), class_(this, kClass) {}
  PolicyMapHwStatusKey key_;
  Zat::AttrCollection<Zat::Name, bool> class_;
};

// The policy maps of one map type, ordered by key.
class PolicyMapTypeHwStatus : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kPmap = "pmap";
  using PmapCollection =
      Zat::AttrCollection<PolicyMapHwStatusKey, Zat::Ptr<PolicyMapHwStatus>,
                          std::map<PolicyMapHwStatusKey, Zat::Ptr<PolicyMapHwStatus>>>;
  static Zat::Ptr<PolicyMapTypeHwStatus> PolicyMapTypeHwStatusIs(MapType type) {
    return Zat::Ptr<PolicyMapTypeHwStatus>(new PolicyMapTypeHwStatus(type));
  }
  MapType type() const { return type_; }
  const PmapCollection& pmap() const { return pmap_; }
  Zat::Ptr<PolicyMapHwStatus> pmapIs(const PolicyMapHwStatusKey& key) {
    if (const auto* p = pmap_.find(key)) return *p;
    auto p = PolicyMapHwStatus::PolicyMapHwStatusIs(key);
    pmap_.set(key, p);
    return p;
  }
  void pmapDel(const PolicyMapHwStatusKey& key) { pmap_.del(key); }

  const char* fwkType() const override { return "Qos::PolicyMapTypeHwStatus"; }
  void attributesDescribe(Zat::Describer& d) const override;

 private:
  explicit PolicyMapTypeHwStatus(MapType type) : type_(type), pmap_(this, kPmap) {}
  MapType type_;
  PmapCollection pmap_;
};

// A slice's policy-map types by map type. The static and ACL flavours differ
// only in type, so a directory entity of one cannot pass for the other.
template <class Tag>
class SliceHwStatusOf : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kPmapType = "pmapType";
  static Zat::Ptr<SliceHwStatusOf> Is(const Zat::Name& name) {
    return Zat::Ptr<SliceHwStatusOf>(new SliceHwStatusOf(name));
  }
  const Zat::Name& name() const { return name_; }
  const Zat::AttrCollection<MapType, Zat::Ptr<PolicyMapTypeHwStatus>>& pmapType() const {
    return pmapType_;
  }
  Zat::Ptr<PolicyMapTypeHwStatus> pmapTypeIs(MapType type) {
    if (const auto* p = pmapType_.find(type)) return *p;
    auto p = PolicyMapTypeHwStatus::PolicyMapTypeHwStatusIs(type);
    pmapType_.set(type, p);
    return p;
  }
  // Publishes an existing type status under its own map type, replacing the
  // entry there: how the agent puts back a type it withdrew. Requires: non-null.
  void pmapTypeEntryIs(const Zat::Ptr<PolicyMapTypeHwStatus>& entry) {
    pmapType_.set(entry->type(), entry);
  }
  void pmapTypeDel(MapType type) { pmapType_.del(type); }

  const char* fwkType() const override { return Tag::kType; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("name", Zat::toText(name_));
    for (const auto& [t, p] : pmapType_) d.child("pmapType", Zat::toText(t), p.ptr());
  }

 private:
  explicit SliceHwStatusOf(Zat::Name name) : name_(std::move(name)), pmapType_(this, kPmapType) {}
  Zat::Name name_;
  Zat::AttrCollection<MapType, Zat::Ptr<PolicyMapTypeHwStatus>> pmapType_;
};

struct SliceHwStatusTag {
  static constexpr const char* kType = "Qos::SliceHwStatus";
};
struct AclSliceHwStatusTag {
  static constexpr const char* kType = "Qos::AclSliceHwStatus";
};
using SliceHwStatus = SliceHwStatusOf<SliceHwStatusTag>;
using AclSliceHwStatus = SliceHwStatusOf<AclSliceHwStatusTag>;

}  // namespace Qos
