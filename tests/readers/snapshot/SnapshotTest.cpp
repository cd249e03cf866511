// The one-pass snapshot every reader can take of a namespace: statuses for
// missing tables, damaged slots skipped and counted, rows sorted by key, and
// passes from several threads at once while the writer keeps writing.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "brim/Brim.h"
#include "readers/Snapshot.h"
#include "support/ShmNamespace.h"
#include "support/TableDamage.h"
#include "tables/CounterTables.h"

namespace {

using Interface::EthIntfCounterBrim;

std::atomic<unsigned> gNext{0};

EthIntfCounterBrim port(int n, uint64_t inOctets, double time) {
  EthIntfCounterBrim r(Orvo::IntfId("Ethernet" + std::to_string(n)));
  Interface::IntfStatistics s;
  s.inOctetsIs(inOctets);
  s.statsUpdateTimeIs(time);
  r.statisticsIs(s);
  return r;
}

class SnapshotTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ns = "snap" + std::to_string(::getpid()) + "_" + std::to_string(gNext++);
  }
  void TearDown() override { VornTest::removeNamespaceTables(ns); }
  std::string ns;
};

TEST_F(SnapshotTest, MissingTablesAreReportedAndReadAsEmpty) {
  Readers::Snapshot s = Readers::readSnapshot(ns);
  ASSERT_EQ(s.statuses().size(), 10u);
  for (const auto* t : s.statuses()) {
    EXPECT_EQ(t->state, Readers::TableState::missing) << t->table;
    EXPECT_NE(t->message.find("does not exist"), std::string::npos) << t->message;
    EXPECT_EQ(t->records, 0u);
  }
  EXPECT_EQ(s.recordCount(), 0u);
}

TEST_F(SnapshotTest, RowsAreSortedByKeyWithTheNewestTime) {
  auto w = Brim::TableWriter<EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters, 64);
  for (int n : {7, 2, 30, 1}) w->put(port(n, 1000u * n, 100.0 + n));
  Readers::Snapshot s = Readers::readSnapshot(ns);
  EXPECT_EQ(s.ethCounters.status.state, Readers::TableState::read);
  ASSERT_EQ(s.ethCounters.rows.size(), 4u);
  std::vector<std::string> order;
  for (const auto& r : s.ethCounters.rows) order.push_back(r.intfId().stringValue());
  EXPECT_EQ(order, (std::vector<std::string>{"Ethernet1", "Ethernet2", "Ethernet7", "Ethernet30"}));
  EXPECT_EQ(s.ethCounters.status.newestTime, 130.0);
  const auto* found = s.ethCounters.find(Orvo::IntfId("Ethernet7"));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->statistics().inOctets(), 7000u);
  EXPECT_EQ(s.ethCounters.find(Orvo::IntfId("Ethernet3")), nullptr);
  // The other tables are still missing, and say so.
  EXPECT_EQ(s.vlanCounters.status.state, Readers::TableState::missing);
}

TEST_F(SnapshotTest, DamagedSlotIsSkippedAndCountedAndTheRestIsRead) {
  auto w = Brim::TableWriter<EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters, 64);
  for (int n = 1; n <= 5; ++n) w->put(port(n, n, 1));
  VornTest::TableDamage damage(ns, TableNames::kAllIntfCounters);
  ASSERT_TRUE(damage.damage(Orvo::IntfId("Ethernet3").value()));
  Readers::Snapshot s = Readers::readSnapshot(ns);
  EXPECT_EQ(s.ethCounters.status.state, Readers::TableState::read);
  EXPECT_EQ(s.ethCounters.status.records, 4u);
  EXPECT_EQ(s.ethCounters.status.damagedSlots, 1u);
  EXPECT_NE(s.ethCounters.status.lastDamage.find("checksum"), std::string::npos)
      << s.ethCounters.status.lastDamage;
  EXPECT_EQ(s.ethCounters.find(Orvo::IntfId("Ethernet3")), nullptr);
}

TEST_F(SnapshotTest, QueueRecordWithAnImpossibleCountIsCountedAsDamage) {
  using Interface::QueueCounter::IntfQueueCounter;
  auto w = Brim::TableWriter<IntfQueueCounter>::open(ns, TableNames::kAllIntfQueueCounters, 16);
  IntfQueueCounter good(Orvo::IntfId("Ethernet1"));
  good.intfQueueStatIs(Interface::QueueCounter::QueueIndex(0),
                       Interface::QueueCounter::IntfQueueStat(0, 1, 1, 0, 0));
  w->put(good);
  IntfQueueCounter bad(Orvo::IntfId("Ethernet2"));
  // A count no agent writes: only stray writes produce it.
  const uint32_t impossible = 0xffffffffu;
  std::memcpy(static_cast<void*>(&bad.intfQueueStatArray()), &impossible, sizeof impossible);
  w->put(bad);
  Readers::Snapshot s = Readers::readSnapshot(ns);
  EXPECT_EQ(s.queueCounters.status.records, 1u);
  EXPECT_EQ(s.queueCounters.status.damagedSlots, 1u);
  EXPECT_NE(s.queueCounters.status.lastDamage.find("Ethernet2"), std::string::npos);
}

TEST_F(SnapshotTest, ConcurrentPassesWhileTheWriterWritesSeeWholeRecords) {
  auto w = Brim::TableWriter<EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters, 64);
  constexpr int kPorts = 16;
  for (int n = 1; n <= kPorts; ++n) w->put(port(n, 0, 0));
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    // Every record keeps inOctets == 1000 * time, so a torn copy shows.
    for (uint64_t i = 1; !stop.load(); ++i) {
      for (int n = 1; n <= kPorts; ++n) w->put(port(n, 1000 * i, static_cast<double>(i)));
    }
  });
  std::vector<std::thread> readers;
  std::atomic<int> bad{0}, passes{0};
  for (int t = 0; t < 4; ++t) {
    readers.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        Readers::Snapshot s = Readers::readSnapshot(ns);
        if (s.ethCounters.rows.size() != kPorts || s.ethCounters.status.damagedSlots != 0) ++bad;
        for (const auto& r : s.ethCounters.rows) {
          if (r.statistics().inOctets() !=
              static_cast<uint64_t>(1000 * r.statistics().statsUpdateTime())) {
            ++bad;
          }
        }
        ++passes;
      }
    });
  }
  for (auto& t : readers) t.join();
  stop = true;
  writer.join();
  EXPECT_EQ(passes.load(), 200);
  EXPECT_EQ(bad.load(), 0);
}

}  // namespace
