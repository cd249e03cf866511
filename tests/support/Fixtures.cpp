#include "support/Fixtures.h"

#include <unistd.h>

#include <atomic>

#include "brim/SharedObject.h"
#include "zat/Activity.h"
#include "zat/Trace.h"

namespace VornTest {

// --- SimulatedTimeTest ---

void SimulatedTimeTest::SetUp() { Zat::activityManager()->simulatedTimeIs(true, kStart); }

void SimulatedTimeTest::TearDown() { Zat::activityManager()->simulatedTimeIs(false); }

double SimulatedTimeTest::now() const { return Zat::activityManager()->now(); }

void SimulatedTimeTest::advanceTo(double t) { Zat::activityManager()->advanceTo(t); }

void SimulatedTimeTest::advanceBy(double dt) { Zat::activityManager()->advanceBy(dt); }

const Zat::Ptr<Zat::Clock>& SimulatedTimeTest::clock() {
  if (!clock_) clock_ = Zat::Clock::ClockIs("testClock");
  return clock_;
}

// --- ScratchTables ---

namespace {
std::atomic<unsigned> gNextNamespace{0};
}

ScratchTables::ScratchTables()
    : ns_("t" + std::to_string(::getpid()) + "_" + std::to_string(gNextNamespace++)) {}

ScratchTables::~ScratchTables() { unlinkAll(); }

void ScratchTables::unlinkLater(const std::string& table) { tables_.push_back(table); }

void ScratchTables::unlinkAll() {
  for (const auto& table : tables_) Brim::unlinkTable(ns_, table);
  tables_.clear();
}

Zat::Ptr<Interface::AllEthIntfCounterBrim> ScratchTables::allEthIntfCounterBrimIs(
    const std::string& table, uint32_t capacity) {
  unlinkLater(table);
  return Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(ns_, table, capacity);
}

Zat::Ptr<Interface::AllVlanIntfCounterBrim> ScratchTables::allVlanIntfCounterBrimIs(
    const std::string& table, uint32_t capacity) {
  unlinkLater(table);
  return Interface::AllVlanIntfCounterBrim::AllVlanIntfCounterBrimIs(ns_, table, capacity);
}

Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> ScratchTables::allIntfQueueCountersIs(
    const std::string& table, uint32_t capacity) {
  unlinkLater(table);
  return Interface::QueueCounter::AllIntfQueueCounters::AllIntfQueueCountersIs(ns_, table,
                                                                               capacity);
}

Zat::Ptr<Brim::Interface::AllDropCounterDir> ScratchTables::allDropCounterDirIs(
    const std::string& table, uint32_t capacity) {
  unlinkLater(table);
  return Brim::Interface::AllDropCounterDir::AllDropCounterDirIs(ns_, table, capacity);
}

Zat::Ptr<Brim::Bridging::VlanCounterDir> ScratchTables::vlanCounterDirIs(const std::string& table,
                                                                         uint32_t capacity) {
  unlinkLater(table);
  return Brim::Bridging::VlanCounterDir::VlanCounterDirIs(ns_, table, capacity);
}

Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> ScratchTables::vlanCounterSnapshotDirIs(
    const std::string& table, uint32_t capacity) {
  unlinkLater(table);
  return Brim::Bridging::VlanCounterSnapshotDir::VlanCounterSnapshotDirIs(ns_, table, capacity);
}

// --- ScratchTableTest ---

void ScratchTableTest::TearDown() {
  tables.unlinkAll();
  SimulatedTimeTest::TearDown();
}

// --- TraceCapture ---

TraceCapture::TraceCapture(const std::string& module, int level) : module_(module) {
  Zat::Trace::sinkIs([this](std::string_view m, int, const std::string& text) {
    if (m == module_) lines_.push_back(text);
  });
  Zat::Trace::levelIs(module_, level);
}

TraceCapture::~TraceCapture() {
  Zat::Trace::levelIs(module_, -1);
  Zat::Trace::sinkDel();
}

}  // namespace VornTest
