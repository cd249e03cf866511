// Test fixtures shared by the counters machines' tests.
//
// SimulatedTimeTest switches the activity manager to simulated time (now starts
// at 1000.0 s) for the length of one test and gives the test a clock of its
// own, so that the deadlines armed on it are the test's alone. ScratchTables
// opens real shared-memory counter tables under a namespace of their own,
// "t<pid>_<n>", and unlinks every one of them when it is done, so tests neither
// see each other's records nor leave names behind. TraceCapture collects the
// text trace lines of one module.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tables/CounterTables.h"
#include "zat/Clock.h"

namespace VornTest {

class SimulatedTimeTest : public ::testing::Test {
 protected:
  static constexpr double kStart = 1000.0;

  void SetUp() override;
  void TearDown() override;

  double now() const;
  // Fires every deadline up to `t` in order, each at its own time, then sets now to `t`.
  void advanceTo(double t);
  void advanceBy(double dt);
  // This test's clock, created on first use.
  const Zat::Ptr<Zat::Clock>& clock();

 private:
  Zat::Ptr<Zat::Clock> clock_;
};

class ScratchTables {
 public:
  // Small tables keep the shared-memory footprint of a test run low.
  static constexpr uint32_t kCapacity = 64;

  ScratchTables();
  ~ScratchTables();
  ScratchTables(const ScratchTables&) = delete;
  ScratchTables& operator=(const ScratchTables&) = delete;

  // The namespace every table of this object lives in.
  const std::string& ns() const { return ns_; }

  Zat::Ptr<Interface::AllEthIntfCounterBrim> allEthIntfCounterBrimIs(const std::string& table,
                                                                     uint32_t capacity = kCapacity);
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounterBrimIs(
      const std::string& table, uint32_t capacity = kCapacity);
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCountersIs(
      const std::string& table, uint32_t capacity = kCapacity);
  Zat::Ptr<Brim::Interface::AllDropCounterDir> allDropCounterDirIs(const std::string& table,
                                                                   uint32_t capacity = kCapacity);
  Zat::Ptr<Brim::Bridging::VlanCounterDir> vlanCounterDirIs(const std::string& table,
                                                            uint32_t capacity = kCapacity);
  Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> vlanCounterSnapshotDirIs(
      const std::string& table, uint32_t capacity = kCapacity);

  // Marks a table opened elsewhere under ns() for removal as well.
  void unlinkLater(const std::string& table);
  // Removes the names of every table opened or marked so far. Mapped tables
  // stay usable; the destructor calls it too.
  void unlinkAll();

 private:
  std::string ns_;
  std::vector<std::string> tables_;
};

// Simulated time plus scratch tables, unlinked in TearDown.
class ScratchTableTest : public SimulatedTimeTest {
 protected:
  void TearDown() override;
  ScratchTables tables;
};

// Collects the text trace lines of `module` at levels up to `level` while alive,
// then restores the default sink and switches tracing off again.
class TraceCapture {
 public:
  explicit TraceCapture(const std::string& module, int level = 8);
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  const std::vector<std::string>& lines() const { return lines_; }
  void clear() { lines_.clear(); }

 private:
  std::string module_;
  std::vector<std::string> lines_;
};

}  // namespace VornTest
