// Fake platform helpers for the counters machines' tests.
//
// Each records every call (name and arguments, as text, with the simulated time)
// in order, and serves programmable readings: readings that are never all zero,
// inconsistent error sums, queue readings with too many entries, counters going
// backwards, and a thrown exception on demand.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "vornhelper/VornHelper.h"

namespace VornTest {

using Calls = std::vector<std::string>;

// Raised by a fake when told to fail an operation.
class FakeHelperError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class FakeCountersHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<FakeCountersHelper> FakeCountersHelperIs() {
    return Zat::Ptr<FakeCountersHelper>(new FakeCountersHelper());
  }

  // --- what the fake serves ---
  double firstPollDelayValue = 1.0;
  bool aclSupported = true;
  // VLAN interfaces refused by vlanIntfCountersSupported (all others accepted).
  std::set<Orvo::IntfId> vlanIntfRefused;
  struct PortReading {
    Interface::IntfStatistics intfStats;
    Interface::EthStatistics ethStats;
  };
  std::map<Orvo::IntfId, PortReading> portReadings;
  std::map<Orvo::IntfId, std::map<uint8_t, VornTypes::QueueType>> queueTypes;
  std::map<Orvo::IntfId, Interface::QueueCounter::IntfQueueCounter> queueReadings;
  struct VlanIntfReading {
    Interface::IntfStatistics statistics;
    uint64_t extra[4] = {0, 0, 0, 0};
  };
  std::map<Orvo::IntfId, VlanIntfReading> vlanIntfReadings;
  std::map<Orvo::IntfId, uint64_t> aclDropCounts;
  // Name of an operation that raises FakeHelperError when called.
  std::string failOperation;
  // Called with the reading object as intfCountersRead receives it, before the
  // fake fills it (to look at it, or keep a reference to it).
  std::function<void(const Zat::Ptr<VornTypes::IntfCounters>&)> onIntfCountersRead;

  // --- what the fake saw ---
  Calls calls;
  std::vector<double> callTimes;
  // Calls whose text starts with `prefix`.
  Calls callsStartingWith(const std::string& prefix) const;
  size_t count(const std::string& prefix) const { return callsStartingWith(prefix).size(); }
  void clearCalls() {
    calls.clear();
    callTimes.clear();
  }

  // A port reading whose error sums hold: inErrors/outErrors are recomputed
  // from the Ethernet error counters.
  static PortReading consistentReading(uint64_t octets, uint64_t pkts, uint64_t rxErrors = 0,
                                       uint64_t txErrors = 0);

  void countersInit() override;
  void intfCountersInit(Orvo::IntfId intfId) override;
  void intfCountersCleanup(Orvo::IntfId intfId) override;
  void cpuPortCountersInit(Zat::String name) override;
  void cpuPortCountersUpdate() override;
  bool coppClassCountersUpdate(Zat::Name cmapName) override;
  double firstPollDelay() override;
  void intfCountersRead(Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                        const Zat::Ptr<VornTypes::IntfCounters>& prevCounters) override;
  void intfQueueTypeRead(Orvo::IntfId intfId,
                         const Zat::Ptr<VornTypes::IntfQueueType>& queueType) override;
  Interface::QueueCounter::IntfQueueCounter intfQueueCountersRead(
      Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>& scratch) override;
  void vlanIntfCountersRead(Orvo::IntfId intfId,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>& prevCounters) override;
  bool vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t vlanId) override;
  void vlanIntfCountersRelease(Orvo::IntfId intfId) override;
  bool aclDropCountersSupported() override;
  uint64_t aclDropCountRead(Orvo::IntfId intfId) override;

 private:
  FakeCountersHelper() = default;
  void record(const std::string& op, const std::string& call);
};

class FakeVlanCountersHelper : public VornHelper::VornVlanCountersHelper {
 public:
  static Zat::Ptr<FakeVlanCountersHelper> FakeVlanCountersHelperIs() {
    return Zat::Ptr<FakeVlanCountersHelper>(new FakeVlanCountersHelper());
  }

  double firstPollDelayValue = 1.0;
  // Per VLAN, the hardware counts now; the fake remembers what it served last
  // time and hands that back as `previous` (zero at first).
  std::map<Bridging::VlanId, std::array<uint64_t, 8>> hardware;
  std::map<Bridging::VlanId, std::array<uint64_t, 8>> lastServed;
  std::string failOperation;
  // Called with both reading objects as vlanCountersRead receives them, before
  // the fake fills them.
  std::function<void(Bridging::VlanId, const Zat::Ptr<VornTypes::VlanCounters>&,
                     const Zat::Ptr<VornTypes::VlanCounters>&)>
      onVlanCountersRead;

  Calls calls;
  std::vector<double> callTimes;
  Calls callsStartingWith(const std::string& prefix) const;
  size_t count(const std::string& prefix) const { return callsStartingWith(prefix).size(); }
  void clearCalls() {
    calls.clear();
    callTimes.clear();
  }

  double vlanFirstPollDelay() override;
  void vlanCountersRead(Bridging::VlanId vlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>& previous) override;
  bool vlanCountersEnable(Bridging::VlanId vlanId) override;

 private:
  FakeVlanCountersHelper() = default;
  void record(const std::string& op, const std::string& call);
};

}  // namespace VornTest
