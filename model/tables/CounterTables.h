// The counter tables the component writes, by record type.
//
//   Interface::AllEthIntfCounterBrim        "allIntfCounters", "allIntfClearCounters"
//   Interface::AllVlanIntfCounterBrim       "allVlanIntfCounters"
//   Interface::QueueCounter::AllIntfQueueCounters  "allIntfQueueCounters",
//   "allIntfClearQueueCounters" Brim::Interface::AllDropCounterDir      "intfAclDropCountersDir"
//   Brim::Bridging::VlanCounterDir          "vlanCounterDir"
//   Brim::Bridging::VlanCounterSnapshotDir  "vlanCounterSnapshotDir"
#pragma once

#include "bridging/VlanCounter.h"
#include "interface/DropCounter.h"
#include "interface/EthIntfCounterBrim.h"
#include "interface/IntfQueueCounter.h"
#include "interface/VlanIntfCounterBrim.h"
#include "tables/CounterTable.h"

namespace TableNames {
inline constexpr const char* kAllIntfCounters = "allIntfCounters";
inline constexpr const char* kAllIntfClearCounters = "allIntfClearCounters";
inline constexpr const char* kAllIntfQueueCounters = "allIntfQueueCounters";
inline constexpr const char* kAllIntfClearQueueCounters = "allIntfClearQueueCounters";
inline constexpr const char* kIntfAclDropCountersDir = "intfAclDropCountersDir";
inline constexpr const char* kAllVlanIntfCounters = "allVlanIntfCounters";
inline constexpr const char* kVlanCounterDir = "vlanCounterDir";
inline constexpr const char* kVlanCounterSnapshotDir = "vlanCounterSnapshotDir";
}  // namespace TableNames

#define VORN_COUNTER_TABLE(Class, Record, TypeName, DefaultCapacity)                    \
  class Class : public ::Brim::CounterTable<Record> {                                   \
   public:                                                                              \
    static ::Zat::Ptr<Class> Class##Is(const std::string& ns, const std::string& table, \
                                       uint32_t capacity = DefaultCapacity) {           \
      return ::Zat::Ptr<Class>(new Class(ns, table, capacity));                         \
    }                                                                                   \
    const char* fwkType() const override { return TypeName; }                           \
                                                                                        \
   protected:                                                                           \
    Class(const std::string& ns, const std::string& table, uint32_t capacity)           \
        : ::Brim::CounterTable<Record>(ns, table, capacity) {}                          \
  };

namespace Interface {
VORN_COUNTER_TABLE(AllEthIntfCounterBrim, EthIntfCounterBrim, "Interface::AllEthIntfCounterBrim",
                   ::Brim::kDefaultIntfCapacity)
VORN_COUNTER_TABLE(AllVlanIntfCounterBrim, VlanIntfCounterBrim, "Interface::AllVlanIntfCounterBrim",
                   ::Brim::kDefaultIntfCapacity)
namespace QueueCounter {
class AllIntfQueueCounters : public ::Brim::CounterTable<IntfQueueCounter> {
 public:
  static ::Zat::Ptr<AllIntfQueueCounters> AllIntfQueueCountersIs(
      const std::string& ns, const std::string& table,
      uint32_t capacity = ::Brim::kDefaultIntfCapacity) {
    return ::Zat::Ptr<AllIntfQueueCounters>(new AllIntfQueueCounters(ns, table, capacity));
  }
  IntfQueueCounter intfQueueCounter(Orvo::IntfId id) const { return counter(id); }
  void intfQueueCounterIs(const IntfQueueCounter& r) { counterIs(r); }
  void intfQueueCounterDel(Orvo::IntfId id) { counterDel(id); }
  const char* fwkType() const override { return "Interface::QueueCounter::AllIntfQueueCounters"; }

 private:
  AllIntfQueueCounters(const std::string& ns, const std::string& table, uint32_t capacity)
      : ::Brim::CounterTable<IntfQueueCounter>(ns, table, capacity) {}
};
}  // namespace QueueCounter
}  // namespace Interface

namespace Brim {
namespace Interface {
VORN_COUNTER_TABLE(AllDropCounterDir, DropCounter, "Brim::Interface::AllDropCounterDir",
                   ::Brim::kDefaultIntfCapacity)
}  // namespace Interface

namespace Bridging {
// The VLAN tables name their operations after the record ("vlanCounter...").
#define VORN_VLAN_TABLE(Class, prefix, TypeName)                                             \
  class Class : public ::Brim::CounterTable<VlanCounter> {                                   \
   public:                                                                                   \
    static ::Zat::Ptr<Class> Class##Is(const std::string& ns, const std::string& table,      \
                                       uint32_t capacity = ::Brim::kDefaultVlanCapacity) {   \
      return ::Zat::Ptr<Class>(new Class(ns, table, capacity));                              \
    }                                                                                        \
    VlanCounter prefix(::Bridging::VlanId v) const { return counter(v); }                    \
    void prefix##Is(const VlanCounter& r) { counterIs(r); }                                  \
    void prefix##Del(::Bridging::VlanId v) { counterDel(v); }                                \
    VlanCounter& prefix##DirectWrite(::Bridging::VlanId v) { return counterDirectWrite(v); } \
    void prefix##Commit(::Bridging::VlanId v) { counterCommit(v); }                          \
    const char* fwkType() const override { return TypeName; }                                \
                                                                                             \
   private:                                                                                  \
    Class(const std::string& ns, const std::string& table, uint32_t capacity)                \
        : ::Brim::CounterTable<VlanCounter>(ns, table, capacity) {}                          \
  };
VORN_VLAN_TABLE(VlanCounterDir, vlanCounter, "Brim::Bridging::VlanCounterDir")
VORN_VLAN_TABLE(VlanCounterSnapshotDir, vlanCounterSnapshot,
                "Brim::Bridging::VlanCounterSnapshotDir")
#undef VORN_VLAN_TABLE
}  // namespace Bridging
}  // namespace Brim

#undef VORN_COUNTER_TABLE
