#include <gtest/gtest.h>

#include <vector>

#include "tools/vorn-snmp-subagent/MibWalk.h"

namespace Snmp {
namespace {

using Oid = std::vector<uint64_t>;

// A table entry 1.2.3.1 with columns 1, 2 and 5 over rows 10, 20 and 30;
// column 5 has no cell in row 20.
class MibWalkTest : public ::testing::Test {
 protected:
  MibWalkTest() {
    for (uint32_t i : {10u, 20u, 30u}) {
      IntfRow r;
      r.ifIndex = i;
      sample.rows.push_back(r);
    }
  }
  std::optional<std::pair<uint32_t, uint32_t>> next(const Oid& request) {
    auto c = nextCell<uint64_t>(entry, request, columns, sample, has);
    if (!c) return std::nullopt;
    return std::make_pair(columns[c->column], sample.rows[c->row].ifIndex);
  }
  std::optional<std::pair<uint32_t, uint32_t>> exact(const Oid& request) {
    auto c = exactCell<uint64_t>(entry, request, columns, sample, has);
    if (!c) return std::nullopt;
    return std::make_pair(columns[c->column], sample.rows[c->row].ifIndex);
  }

  Oid entry{1, 2, 3, 1};
  std::vector<uint32_t> columns{1, 2, 5};
  Sample sample;
  std::function<bool(size_t, const IntfRow&)> has = [this](size_t c, const IntfRow& r) {
    return !(columns[c] == 5 && r.ifIndex == 20);
  };
};

using Cell = std::pair<uint32_t, uint32_t>;

TEST_F(MibWalkTest, GetNextBeforeTheTableStartsAtItsFirstCell) {
  EXPECT_EQ(next({1, 2}), Cell(1, 10));
  EXPECT_EQ(next({1, 2, 3}), Cell(1, 10));
  EXPECT_EQ(next({1, 2, 3, 1}), Cell(1, 10));
  EXPECT_EQ(next({1, 2, 3, 0, 99}), Cell(1, 10));
  EXPECT_EQ(next({1, 2, 3, 1, 0}), Cell(1, 10));
}

TEST_F(MibWalkTest, GetNextWalksRowsThenColumnsSkippingEmptyCells) {
  EXPECT_EQ(next({1, 2, 3, 1, 1}), Cell(1, 10));
  EXPECT_EQ(next({1, 2, 3, 1, 1, 10}), Cell(1, 20));
  EXPECT_EQ(next({1, 2, 3, 1, 1, 15}), Cell(1, 20));
  EXPECT_EQ(next({1, 2, 3, 1, 1, 30}), Cell(2, 10));
  EXPECT_EQ(next({1, 2, 3, 1, 3}), Cell(5, 10));  // a column not served
  EXPECT_EQ(next({1, 2, 3, 1, 5, 10}), Cell(5, 30));
  // Trailing sub-identifiers after an index sort after that index's cell.
  EXPECT_EQ(next({1, 2, 3, 1, 1, 10, 0}), Cell(1, 20));
  EXPECT_EQ(next({1, 2, 3, 1, 1, 9, 99}), Cell(1, 10));
}

TEST_F(MibWalkTest, GetNextPastTheLastCellFindsNothing) {
  EXPECT_FALSE(next({1, 2, 3, 1, 5, 30}));
  EXPECT_FALSE(next({1, 2, 3, 1, 5, 4294967295ull}));
  EXPECT_FALSE(next({1, 2, 3, 1, 6}));
  EXPECT_FALSE(next({1, 2, 3, 2}));
  EXPECT_FALSE(next({1, 2, 4}));
  EXPECT_EQ(next({1, 2, 3, 1, 2, 4294967295ull}), Cell(5, 10));
}

TEST_F(MibWalkTest, GetNextOfAnEmptySampleFindsNothing) {
  sample.rows.clear();
  EXPECT_FALSE(next({1, 2}));
  EXPECT_FALSE(next({1, 2, 3, 1, 1}));
}

TEST_F(MibWalkTest, GetFindsOnlyExistingCells) {
  EXPECT_EQ(exact({1, 2, 3, 1, 2, 20}), Cell(2, 20));
  EXPECT_FALSE(exact({1, 2, 3, 1, 5, 20}));
  EXPECT_FALSE(exact({1, 2, 3, 1, 3, 10}));
  EXPECT_FALSE(exact({1, 2, 3, 1, 1, 11}));
  EXPECT_FALSE(exact({1, 2, 3, 1, 1}));
  EXPECT_FALSE(exact({1, 2, 3, 1, 1, 10, 0}));
  EXPECT_FALSE(exact({1, 2, 3, 1, 1, 4294967306ull}));  // 10 + 2^32
  EXPECT_FALSE(exact({1, 2, 4, 1, 1, 10}));
}

}  // namespace
}  // namespace Snmp
