// Block timers: per-name count, total and maximum, and the handler entry macro.
#include <stdexcept>
#include <thread>
#include <vector>

#include "NimlogTestSupport.h"
#include "nimlog/Decode.h"

namespace {

using Nimlog::BlockTimerStats;
using NimlogTest::advanceNs;

void timedWork(std::uint64_t ns) {
  NIMLOG_BLOCK_TIMER("timedWork");
  advanceNs(ns);
}

void timedWorkElsewhere(std::uint64_t ns) {
  NIMLOG_BLOCK_TIMER("timedWork");
  advanceNs(ns);
}

void timedThrow(std::uint64_t ns) {
  NIMLOG_BLOCK_TIMER("timedThrow");
  advanceNs(ns);
  throw std::runtime_error("handler failed");
}

void handleTime() {
  NIMLOG_HANDLER("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()");
  advanceNs(40);
}
constexpr std::uint32_t kHandleTimeLine = __LINE__ - 3;

void handleIntf(std::uint64_t intf) {
  NIMLOG_HANDLER("VornCountersSm", "void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId)",
                 intf);
  advanceNs(10);
}

class BlockTimerTest : public NimlogTest::NimlogFixture {
 protected:
  void SetUp() override {
    NimlogFixture::SetUp();
    Nimlog::blockTimerStatsReset();
  }
};

TEST_F(BlockTimerTest, AccumulatesCountTotalAndMaximum) {
  timedWork(100);
  timedWork(300);
  timedWork(200);
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedWork"), (BlockTimerStats{"timedWork", 3, 600, 300}));
}

TEST_F(BlockTimerTest, SitesWithTheSameNameShareTheirStatistics) {
  timedWork(100);
  timedWorkElsewhere(500);
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedWork"), (BlockTimerStats{"timedWork", 2, 600, 500}));
}

TEST_F(BlockTimerTest, ScopeLeftByAnExceptionIsStillMeasured) {
  EXPECT_THROW(timedThrow(70), std::runtime_error);
  EXPECT_THROW(timedThrow(30), std::runtime_error);
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedThrow"), (BlockTimerStats{"timedThrow", 2, 100, 70}));
}

TEST_F(BlockTimerTest, UnusedNameHasNoStatistics) {
  EXPECT_EQ(Nimlog::blockTimerStatsOf("neverRun"), std::nullopt);
}

TEST_F(BlockTimerTest, ListsEveryNameInNameOrderAndResetZeroesThem) {
  timedWork(100);
  EXPECT_THROW(timedThrow(30), std::runtime_error);
  std::vector<BlockTimerStats> stats = Nimlog::blockTimerStats();
  // Other tests of this program may have registered more names; look at ours in order.
  std::erase_if(stats, [](const BlockTimerStats& s) {
    return s.name != "timedWork" && s.name != "timedThrow";
  });
  EXPECT_EQ(stats,
            (std::vector<BlockTimerStats>{{"timedThrow", 1, 30, 30}, {"timedWork", 1, 100, 100}}));

  Nimlog::blockTimerStatsReset();
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedWork"), (BlockTimerStats{"timedWork", 0, 0, 0}));
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedThrow"), (BlockTimerStats{"timedThrow", 0, 0, 0}));
  timedWork(5);
  EXPECT_EQ(Nimlog::blockTimerStatsOf("timedWork"), (BlockTimerStats{"timedWork", 1, 5, 5}));
}

TEST(BlockTimerCellTest, OwnerAndOtherThreadsAddUpExactly) {
  Nimlog::BlockTimerCell cell("shared");
  cell.add(10);  // this thread becomes the owner
  std::vector<std::thread> others;
  for (int t = 0; t < 4; ++t) {
    others.emplace_back([&cell, t] {
      for (int i = 0; i < 10000; ++i) cell.add(1);
      cell.add(static_cast<std::uint64_t>(500 + t));
    });
  }
  for (int i = 0; i < 10000; ++i) cell.add(2);  // the owner keeps adding meanwhile
  for (std::thread& t : others) t.join();
  EXPECT_EQ(cell.stats(),
            (BlockTimerStats{"shared", 1 + 10000 + 4 * 10001,
                             10 + 2 * 10000 + 4 * 10000 + 500 + 501 + 502 + 503, 503}));
}

TEST(BlockTimerCellTest, ResetFromAnotherThreadClearsTheOwnersFiguresForGood) {
  Nimlog::BlockTimerCell cell("owned");
  cell.add(100);
  cell.add(300);
  std::thread([&cell] { cell.reset(); }).join();
  EXPECT_EQ(cell.stats(), (BlockTimerStats{"owned", 0, 0, 0}));
  cell.add(7);
  EXPECT_EQ(cell.stats(), (BlockTimerStats{"owned", 1, 7, 7}));
  std::thread([&cell] { cell.add(9); }).join();
  EXPECT_EQ(cell.stats(), (BlockTimerStats{"owned", 2, 16, 9}));
  cell.reset();
  EXPECT_EQ(cell.stats(), (BlockTimerStats{"owned", 0, 0, 0}));
  cell.add(1);
  EXPECT_EQ(cell.stats(), (BlockTimerStats{"owned", 1, 1, 1}));
}

TEST_F(BlockTimerTest, HandlerMacroRecordsEntryAndTimesTheHandler) {
  const std::string path = scratch("trace");
  Nimlog::TraceFile::open(path, 8);
  handleTime();
  handleIntf(1001);

  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  ASSERT_EQ(trace.records.size(), 2u);
  EXPECT_EQ(Nimlog::formatRecord(trace.records[0]),
            "1.000000 VornCountersSm:" + std::to_string(kHandleTimeLine) +
                " void Vorn::Counters::PortCountersSm::handleTime()");
  EXPECT_EQ(trace.records[1].text, "void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId)");
  EXPECT_EQ(trace.records[1].timestampNs, 1'000'000'040u);
  EXPECT_EQ(trace.records[1].args, std::vector<std::uint64_t>{1001});
  EXPECT_EQ(Nimlog::blockTimerStatsOf("void Vorn::Counters::PortCountersSm::handleTime()"),
            (BlockTimerStats{"void Vorn::Counters::PortCountersSm::handleTime()", 1, 40, 40}));
}

TEST_F(BlockTimerTest, HandlerIsTimedWhileNoTraceFileIsOpen) {
  handleTime();
  handleTime();
  EXPECT_EQ(Nimlog::blockTimerStatsOf("void Vorn::Counters::PortCountersSm::handleTime()"),
            (BlockTimerStats{"void Vorn::Counters::PortCountersSm::handleTime()", 2, 80, 40}));
}

}  // namespace
