// VornTypes: scratch objects exchanged between the counters machines and the
// platform helper.
//
// A poller creates a reading object, hands it to the helper to fill, and keeps
// the previous one to form per-poll differences. The queue poller also owns an
// IntfQueueCounters object that only the helper reads and writes (its memory of
// previous raw queue values between polls).
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <ostream>
#include <vector>

#include "bridging/VlanId.h"
#include "interface/EthStatistics.h"
#include "interface/IntfQueueCounter.h"
#include "interface/IntfStatistics.h"
#include "zat/Generic.h"

namespace VornTypes {

// Kind of counter in an on-demand update request. Only the numeric values are
// part of the interface: 4 and 5 are never requested of this component.
enum class CounterType : uint32_t {
  egressQueue = 0,
  ethPort = 1,
  cpuPort = 2,
  vlanIntf = 3,
  ingressQueue = 4,
  fabricPort = 5,
  aclDrop = 6,
};
std::ostream& operator<<(std::ostream& os, CounterType t);

// Kind of an egress queue.
enum class QueueType : uint32_t { unicast = 0, multicast = 1 };
std::ostream& operator<<(std::ostream& os, QueueType t);

// One Ethernet port reading: generic and Ethernet-specific counters.
class IntfCounters : public Zat::PtrInterface {
 public:
  // A new, zero-filled reading.
  static Zat::Ptr<IntfCounters> IntfCountersIs() {
    return Zat::Ptr<IntfCounters>(new IntfCounters());
  }

  const Interface::IntfStatistics& intfStats() const { return intfStats_; }
  Interface::IntfStatistics& intfStats() { return intfStats_; }
  void intfStatsIs(const Interface::IntfStatistics& s) { intfStats_ = s; }
  const Interface::EthStatistics& ethStats() const { return ethStats_; }
  Interface::EthStatistics& ethStats() { return ethStats_; }
  void ethStatsIs(const Interface::EthStatistics& s) { ethStats_ = s; }
  // Back to the state IntfCountersIs() gives, so that a poller can hand the
  // same object to the helper on every poll.
  void reset() {
    intfStats_ = Interface::IntfStatistics();
    ethStats_ = Interface::EthStatistics();
  }

  const char* fwkType() const override { return "VornTypes::IntfCounters"; }

 private:
  IntfCounters() = default;
  Interface::IntfStatistics intfStats_;
  Interface::EthStatistics ethStats_;
};

// One VLAN interface reading: generic counters and four routed-traffic counters.
class VlanIntfCounters : public Zat::PtrInterface {
 public:
  static constexpr size_t kExtraCount = 4;
  static Zat::Ptr<VlanIntfCounters> VlanIntfCountersIs() {
    return Zat::Ptr<VlanIntfCounters>(new VlanIntfCounters());
  }

  const Interface::IntfStatistics& statistics() const { return statistics_; }
  Interface::IntfStatistics& statistics() { return statistics_; }
  void statisticsIs(const Interface::IntfStatistics& s) { statistics_ = s; }
  // The four extra counters, in the order of Interface::VlanIntfCounterBrim's.
  uint64_t extra(size_t i) const { return extra_.at(i); }
  void extraIs(size_t i, uint64_t v) { extra_.at(i) = v; }
  // Back to the state VlanIntfCountersIs() gives.
  void reset() {
    statistics_ = Interface::IntfStatistics();
    extra_ = {};
  }

  const char* fwkType() const override { return "VornTypes::VlanIntfCounters"; }

 private:
  VlanIntfCounters() = default;
  Interface::IntfStatistics statistics_;
  std::array<uint64_t, kExtraCount> extra_{};
};

// The helper's memory of one interface's previous raw queue values.
class IntfQueueCounters : public Zat::PtrInterface {
 public:
  static Zat::Ptr<IntfQueueCounters> IntfQueueCountersIs() {
    return Zat::Ptr<IntfQueueCounters>(new IntfQueueCounters());
  }
  // Free for the helper's use; never read by the counters machines.
  std::vector<Interface::QueueCounter::IntfQueueStat> previous;
  uint64_t previousAggregate0 = 0;
  uint64_t previousAggregate1 = 0;

  const char* fwkType() const override { return "VornTypes::IntfQueueCounters"; }

 private:
  IntfQueueCounters() = default;
};

// The egress queues of one interface: queue index -> queue kind.
class IntfQueueType : public Zat::PtrInterface {
 public:
  static Zat::Ptr<IntfQueueType> IntfQueueTypeIs() {
    return Zat::Ptr<IntfQueueType>(new IntfQueueType());
  }
  const std::map<uint8_t, QueueType>& queueType() const { return queueType_; }
  void queueTypeIs(uint8_t index, QueueType type) { queueType_[index] = type; }

  const char* fwkType() const override { return "VornTypes::IntfQueueType"; }

 private:
  IntfQueueType() = default;
  std::map<uint8_t, QueueType> queueType_;
};

// One VLAN's eight counters, in the order of Brim::Bridging::VlanCounter's.
class VlanCounters : public Zat::PtrInterface {
 public:
  static constexpr size_t kCounterCount = 8;
  static Zat::Ptr<VlanCounters> VlanCountersIs(Bridging::VlanId vlanId) {
    return Zat::Ptr<VlanCounters>(new VlanCounters(vlanId));
  }
  Bridging::VlanId vlanId() const { return vlanId_; }
  uint64_t counter(size_t i) const { return counters_.at(i); }
  void counterIs(size_t i, uint64_t v) { counters_.at(i) = v; }
  // The counters in order, unchecked, for loops that visit all of them.
  const uint64_t* counterData() const { return counters_.data(); }
  // Back to the state VlanCountersIs(vlanId) gives.
  void reset(Bridging::VlanId vlanId) {
    vlanId_ = vlanId;
    counters_ = {};
  }

  const char* fwkType() const override { return "VornTypes::VlanCounters"; }

 private:
  explicit VlanCounters(Bridging::VlanId vlanId) : vlanId_(vlanId) {}
  Bridging::VlanId vlanId_;
  std::array<uint64_t, kCounterCount> counters_{};
};

}  // namespace VornTypes
