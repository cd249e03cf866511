// What the SNMP subagent serves, read from the agent's shared-memory tables:
// one row per interface with the running totals, the interface's attributes
// and the time of its last counter discontinuity.
//
// The Sampler opens the tables read-only through the shared reader layer and
// keeps them open; it reopens a table the agent replaced (a new shared-memory
// object under the same name) and drops one that disappeared. Every read of
// the tables builds a fresh Sample. Totals are the raw running totals: clear
// baselines are a reader-side view and never touch what SNMP reports.
//
// A table that is missing or damaged contributes no rows; its state changes
// (missing, damaged, readable again) are reported through the log callback,
// one line per change, never once per read.
//
// Discontinuities: each row remembers the totals it last showed. When a total
// goes back (as a signed 64-bit difference, so a modular wrap past 2^64 is
// not one), when the row's table was replaced or its writer re-attached, or
// when a row comes back after it was absent, the row's discontinuity time
// moves to the current uptime. Rows present at the first read start at 0, and
// every row starts at 0 again when the uptime goes back (the master restarted).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "interface/EthStatistics.h"
#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Snmp {

// IANA interface types the subagent reports.
inline constexpr uint32_t kIfTypeOther = 1;
inline constexpr uint32_t kIfTypeEthernet = 6;
inline constexpr uint32_t kIfTypeL3IpVlan = 136;

// IF-MIB operational states used here.
inline constexpr uint32_t kOperUp = 1;
inline constexpr uint32_t kOperDown = 2;
inline constexpr uint32_t kOperNotPresent = 6;

struct IntfRow {
  uint32_t ifIndex = 0;
  Orvo::IntfId id;
  std::string name;   // the interface's name
  std::string descr;  // the name, with the operating system's name when it differs
  uint32_t ifType = kIfTypeOther;
  uint64_t speedBps = 0;  // 0 when the platform does not say
  uint32_t operStatus = kOperUp;
  uint32_t lastChange = 0;  // uptime (hundredths) of the last state change
  Interface::IntfStatistics stats;
  bool hasEth = false;  // Ethernet ports carry the error breakdown below
  Interface::EthStatistics eth;
  uint32_t discontinuity = 0;  // uptime (hundredths) of the last counter discontinuity
};

struct Sample {
  std::vector<IntfRow> rows;  // ascending ifIndex
  // The row of `ifIndex`, or null.
  const IntfRow* find(uint32_t ifIndex) const;
  // The position of the first row whose ifIndex is at least `ifIndex`.
  size_t lowerBound(uint64_t ifIndex) const;
};

// One table as the sampler reads it; defined in the source file.
template <class Record>
class TableSource;

class Sampler {
 public:
  using Log = std::function<void(const std::string&)>;

  Sampler(const std::string& ns, Log log);
  ~Sampler();
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;

  // Reads every table once and makes the result current. `uptime` is the
  // agent's uptime in hundredths of a second, `wallNow` seconds since 1970
  // (the platform stamps interface changes on that clock).
  const Sample& refresh(uint32_t uptime, double wallNow);
  const Sample& current() const { return sample_; }
  // How many refreshes ran (for tests and the status log).
  uint64_t refreshCount() const { return refreshCount_; }

 private:
  struct Track {
    Interface::IntfStatistics stats;
    Interface::EthStatistics eth;
    uint64_t sourceIdentity = 0;
    uint32_t discontinuity = 0;
    uint32_t firstSeen = 0;
  };
  void settle(IntfRow& row, uint64_t sourceIdentity, uint32_t uptime,
              std::unordered_map<uint32_t, Track>& next);
  bool admit(Orvo::IntfId id, Orvo::IntfId::Kind kind, uint32_t& ifIndex);

  std::string ns_;
  Log log_;
  std::unique_ptr<struct SamplerSources> sources_;
  std::unordered_map<uint32_t, Track> tracks_;
  std::unordered_set<uint64_t> unservable_;  // ids already reported as having no ifIndex
  Sample sample_;
  bool first_ = true;
  uint32_t lastUptime_ = 0;
  uint64_t refreshCount_ = 0;
};

}  // namespace Snmp
