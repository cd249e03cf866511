// Fixture of the VLAN counters machine's tests: simulated time starting at
// 1000 s, a timer wheel, real scratch shared-memory tables under a namespace of
// their own ("t<pid>_<n>", removed again afterwards), the bridging objects, the
// fake VLAN helper, and a sink that captures the machine's text trace.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "bridging/BridgingConfig.h"
#include "brim/SharedObject.h"
#include "counters/vlan/VlanCountersSm.h"
#include "pell/TimerWheel.h"
#include "support/FakeHelpers.h"
#include "tables/CounterTables.h"
#include "zat/Activity.h"
#include "zat/Trace.h"

namespace VlanTest {

using Brim::Bridging::VlanCounter;
using Counts = std::array<uint64_t, 8>;
using Texts = std::vector<std::string>;
using Vorn::Counters::VlanCountersSm;

inline constexpr double kStart = 1000.0;

// A record as the tables should hold it.
inline VlanCounter record(Bridging::VlanId vlanId, const Counts& counts, double timestamp) {
  VlanCounter r(vlanId);
  for (size_t i = 0; i < counts.size(); ++i) r.counterIs(i, counts[i]);
  r.timestampIs(timestamp);
  return r;
}

// Eight distinct, non-zero counts derived from `base`.
inline Counts counts(uint64_t base) {
  Counts c;
  for (size_t i = 0; i < c.size(); ++i) c[i] = base * (i + 1) + i;
  return c;
}

inline Counts plus(const Counts& a, const Counts& b) {
  Counts c;
  for (size_t i = 0; i < c.size(); ++i) c[i] = a[i] + b[i];
  return c;
}

struct TraceLine {
  std::string module;
  int level;
  std::string text;
};

class VlanSmFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    Zat::activityManager()->simulatedTimeIs(true, kStart);
    static int sequence = 0;
    ns = "t" + std::to_string(getpid()) + "_" + std::to_string(++sequence);
    openTables();
    wheel = Pell::TimerWheel::TimerWheelIs("vlanCountersWheel");
    config = Bridging::Config::ConfigIs();
    cliReq = Bridging::VlanCountersCliReq::VlanCountersCliReqIs();
    helper = VornTest::FakeVlanCountersHelper::FakeVlanCountersHelperIs();
    Zat::Trace::reset();
    Zat::Trace::sinkIs([this](std::string_view module, int level, const std::string& text) {
      traceLines.push_back(TraceLine{std::string(module), level, text});
    });
    Zat::Trace::levelIs("VornCountersSm", 8);
  }

  void TearDown() override {
    sm = nullptr;
    closeTables();
    wheel = nullptr;
    Brim::unlinkTable(ns, TableNames::kVlanCounterDir);
    Brim::unlinkTable(ns, TableNames::kVlanCounterSnapshotDir);
    Zat::Trace::reset();
    Zat::Trace::sinkDel();
    Zat::activityManager()->simulatedTimeIs(false);
  }

  // Opens (or re-opens, keeping their records) both tables of the namespace.
  void openTables() {
    dir = Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns, TableNames::kVlanCounterDir);
    snapshots = Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(
        ns, TableNames::kVlanCounterSnapshotDir);
  }
  // Drops the fixture's references; the writer lock goes with the last one.
  void closeTables() {
    dir = nullptr;
    snapshots = nullptr;
  }

  Zat::Ptr<VlanCountersSm> makeSm() {
    sm = VlanCountersSm::VlanCountersSmIs(config, cliReq, dir, snapshots, wheel, helper);
    return sm;
  }
  // Creates the machine and initializes it at the current time.
  Zat::Ptr<VlanCountersSm> startSm() {
    makeSm();
    sm->initializedIs(true);
    return sm;
  }

  static void advanceTo(double t) { Zat::activityManager()->advanceTo(t); }
  static double now() { return Zat::System::currentTime(); }

  // Texts of the machine's trace lines at `maxLevel` or below, in order.
  Texts traces(int maxLevel = 7) const {
    Texts out;
    for (const auto& line : traceLines) {
      if (line.module == "VornCountersSm" && line.level <= maxLevel) out.push_back(line.text);
    }
    return out;
  }
  void clearTraces() { traceLines.clear(); }

  // The records of a table, in VLAN order.
  template <class Table>
  static std::vector<VlanCounter> records(Table& table) {
    std::vector<VlanCounter> out;
    table.forEachCounter([&](const VlanCounter& r) { out.push_back(r); });
    std::sort(out.begin(), out.end(),
              [](const VlanCounter& a, const VlanCounter& b) { return a.vlanId() < b.vlanId(); });
    return out;
  }

  std::string ns;
  Zat::Ptr<Brim::Bridging::VlanCounterDir> dir;
  Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> snapshots;
  Zat::Ptr<Pell::TimerWheel> wheel;
  Zat::Ptr<Bridging::Config> config;
  Zat::Ptr<Bridging::VlanCountersCliReq> cliReq;
  Zat::Ptr<VornTest::FakeVlanCountersHelper> helper;
  Zat::Ptr<VlanCountersSm> sm;
  std::vector<TraceLine> traceLines;
};

}  // namespace VlanTest
