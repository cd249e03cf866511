// Records that outlive the machine: an agent restart over the same shared-memory
// tables, and tables damaged behind the writer's back.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "VlanSmFixture.h"
#include "VlanTableDamage.h"

namespace VlanTest {
namespace {

using VornTest::Calls;

const Counts kZero{};

class VlanCountersRestart : public VlanSmFixture {
 protected:
  // The VLANs of `vlans` ordered by the slot that holds them in `table`, which is
  // the order of every walk over it.
  std::vector<Bridging::VlanId> inSlotOrder(const std::string& table,
                                            const std::vector<Bridging::VlanId>& vlans) {
    TableDamage shm(ns, table);
    std::vector<std::pair<uint32_t, Bridging::VlanId>> bySlot;
    for (Bridging::VlanId v : vlans) {
      auto slot = shm.liveSlotOf(v);
      EXPECT_TRUE(slot.has_value()) << "VLAN " << v;
      if (slot) bySlot.emplace_back(*slot, v);
    }
    std::sort(bySlot.begin(), bySlot.end());
    std::vector<Bridging::VlanId> out;
    for (const auto& [slot, v] : bySlot) out.push_back(v);
    return out;
  }

  // Damages the record of `vlanId` in `table` and returns its slot.
  uint32_t damage(const std::string& table, Bridging::VlanId vlanId) {
    TableDamage shm(ns, table);
    const std::optional<uint32_t> slot = shm.liveSlotOf(vlanId);
    EXPECT_TRUE(slot.has_value());
    shm.damageRecord(*slot);
    return *slot;
  }

  static void expectChecksumReport(const std::string& message, const std::string& table,
                                   uint32_t slot) {
    const std::string head = "table " + table + ": slot " + std::to_string(slot) + " (key ";
    const std::string tail = ") fails its checksum";
    EXPECT_EQ(message.substr(0, head.size()), head) << message;
    ASSERT_GE(message.size(), tail.size());
    EXPECT_EQ(message.substr(message.size() - tail.size()), tail) << message;
  }

  const std::vector<Bridging::VlanId> kEight{1, 2, 3, 4, 5, 6, 7, 8};

  // VLANs 1..8 configured, polled at 1002 with counts(v).
  void startEightPolled() {
    for (Bridging::VlanId v : kEight) {
      config->vlanConfigIs(v);
      helper->hardware[v] = counts(v);
    }
    startSm();
    advanceTo(1002.0);
  }
};

TEST_F(VlanCountersRestart, RestartKeepsTotalsOfRemainingVlansAndRemovesDepartedOnes) {
  // First life of the agent.
  for (Bridging::VlanId v : {10, 20, 30}) {
    config->vlanConfigIs(v);
    helper->hardware[v] = counts(v);
  }
  startSm();
  advanceTo(1002.0);
  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(20, true);
  const uint64_t firstGeneration = dir->writer().generation();
  const auto hardwareMemory = helper->lastServed;

  // The agent goes away: machine and tables closed, shared memory stays.
  sm = nullptr;
  closeTables();

  // Second life: tables re-opened by name, VLAN 30 gone, VLAN 40 new.
  advanceTo(1010.0);
  openTables();
  EXPECT_GT(dir->writer().generation(), firstGeneration);
  EXPECT_EQ(records(*dir), (std::vector<VlanCounter>{record(10, counts(10), 1002.0),
                                                     record(20, counts(20), 1002.0),
                                                     record(30, counts(30), 1002.0)}));
  config = Bridging::Config::ConfigIs();
  for (Bridging::VlanId v : {10, 20, 40}) config->vlanConfigIs(v);
  cliReq = Bridging::VlanCountersCliReq::VlanCountersCliReqIs();
  helper = VornTest::FakeVlanCountersHelper::FakeVlanCountersHelperIs();
  helper->lastServed = hardwareMemory;  // the chip kept counting meanwhile
  helper->hardware[10] = plus(counts(10), counts(1));
  helper->hardware[20] = plus(counts(20), counts(2));
  helper->hardware[40] = counts(4);
  clearTraces();

  startSm();

  EXPECT_EQ(traces(7),
            (Texts{"Adding VLAN10", "Adding VLAN20", "Adding VLAN40",
                   "Adding VLAN counter brim collections",
                   "Adding VLAN counter snapshot brim collections", " Deleting VLAN30"}));
  EXPECT_EQ(helper->calls, (Calls{"vlanCountersEnable(10)", "vlanCountersEnable(20)",
                                  "vlanCountersEnable(40)", "vlanFirstPollDelay"}));
  EXPECT_EQ(records(*dir),
            (std::vector<VlanCounter>{record(10, counts(10), 1002.0),
                                      record(20, counts(20), 1002.0), record(40, kZero, 0.0)}));
  EXPECT_EQ(records(*snapshots),
            (std::vector<VlanCounter>{record(10, kZero, 0.0), record(20, counts(20), 1003.0),
                                      record(40, kZero, 0.0)}));

  advanceTo(1012.0);
  EXPECT_EQ(records(*dir),
            (std::vector<VlanCounter>{record(10, plus(counts(10), counts(1)), 1012.0),
                                      record(20, plus(counts(20), counts(2)), 1012.0),
                                      record(40, counts(4), 1012.0)}));
}

TEST_F(VlanCountersRestart, DestroyingTheMachineDeletesNoRecords) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(10);
  startSm();
  advanceTo(1002.0);

  sm = nullptr;

  EXPECT_EQ(records(*dir), std::vector<VlanCounter>{record(10, counts(10), 1002.0)});
  EXPECT_EQ(records(*snapshots), std::vector<VlanCounter>{record(10, kZero, 0.0)});
  EXPECT_EQ(wheel->armedCount(), 0u);
}

TEST_F(VlanCountersRestart, DamagedSlotEndsTheSweepAndIsReported) {
  startEightPolled();
  sm = nullptr;
  const std::vector<Bridging::VlanId> order = inSlotOrder(TableNames::kVlanCounterDir, kEight);
  ASSERT_EQ(order.size(), 8u);
  const uint32_t damagedSlot = damage(TableNames::kVlanCounterDir, order[3]);

  // None of the eight is configured any more.
  config = Bridging::Config::ConfigIs();
  config->vlanConfigIs(100);
  Zat::Trace::levelIs("Brim", 1);
  clearTraces();
  startSm();

  EXPECT_EQ(dir->corruptionCount(), 1u);
  expectChecksumReport(dir->lastCorruption(), ns + ".vlanCounterDir", damagedSlot);
  // The VLANs before the damaged slot were removed, the walk stopped there.
  Texts expected{"Adding VLAN100", "Adding VLAN counter brim collections",
                 "Adding VLAN counter snapshot brim collections"};
  for (size_t i = 0; i < 3; ++i) expected.push_back(" Deleting VLAN" + std::to_string(order[i]));
  EXPECT_EQ(traces(7), expected);
  for (size_t i = 0; i < order.size(); ++i) {
    EXPECT_EQ(dir->hasCounter(order[i]), i >= 3) << "VLAN " << order[i];
    EXPECT_EQ(snapshots->hasCounter(order[i]), i >= 3) << "VLAN " << order[i];
  }
  EXPECT_TRUE(dir->hasCounter(100));
  // The table's own hook traced the report.
  std::vector<std::string> brimLines;
  for (const auto& line : traceLines) {
    if (line.module == "Brim") brimLines.push_back(line.text);
  }
  EXPECT_EQ(brimLines, (std::vector<std::string>{"corruption detected in " + ns +
                                                 ".vlanCounterDir: " + dir->lastCorruption()}));
  // The machine is live all the same.
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(sm->zatClock()->timeMin(), 1004.0);
}

TEST_F(VlanCountersRestart, DamagedSlotEndsThePollAndIsReported) {
  startEightPolled();
  const std::vector<Bridging::VlanId> order = inSlotOrder(TableNames::kVlanCounterDir, kEight);
  ASSERT_EQ(order.size(), 8u);
  const uint32_t damagedSlot = damage(TableNames::kVlanCounterDir, order[3]);
  for (Bridging::VlanId v : kEight) helper->hardware[v] = plus(counts(v), counts(1));
  helper->clearCalls();

  advanceTo(1004.0);

  EXPECT_EQ(dir->corruptionCount(), 1u);
  expectChecksumReport(dir->lastCorruption(), ns + ".vlanCounterDir", damagedSlot);
  Calls expectedReads;
  for (size_t i = 0; i < 3; ++i) {
    expectedReads.push_back("vlanCountersRead(" + std::to_string(order[i]) + ")");
  }
  EXPECT_EQ(helper->calls, expectedReads);
  for (size_t i = 0; i < order.size(); ++i) {
    if (i == 3) continue;  // unreadable
    const Bridging::VlanId v = order[i];
    EXPECT_EQ(dir->vlanCounter(v),
              i < 3 ? record(v, plus(counts(v), counts(1)), 1004.0) : record(v, counts(v), 1002.0))
        << "VLAN " << v;
  }
  // The handler went on and re-armed the timer.
  EXPECT_EQ(sm->zatClock()->timeMin(), 1006.0);
}

// Damages a VLAN's counter record while the hardware of that VLAN is being read,
// that is after the walk has read the record and before the poll writes it.
class DamagingVlanHelper : public VornHelper::VornVlanCountersHelper {
 public:
  DamagingVlanHelper(std::string ns, Bridging::VlanId victim)
      : ns_(std::move(ns)), victim_(victim) {}
  double vlanFirstPollDelay() override { return 1.0; }
  void vlanCountersRead(Bridging::VlanId vlanId, const Zat::Ptr<VornTypes::VlanCounters>& current,
                        const Zat::Ptr<VornTypes::VlanCounters>&) override {
    reads.push_back("vlanCountersRead(" + std::to_string(vlanId) + ")");
    for (size_t i = 0; i < 8; ++i) current->counterIs(i, 1);
    if (vlanId == victim_) {
      TableDamage shm(ns_, TableNames::kVlanCounterDir);
      damagedSlot = *shm.liveSlotOf(vlanId);
      shm.damageRecord(damagedSlot);
    }
  }
  bool vlanCountersEnable(Bridging::VlanId) override { return true; }

  Calls reads;
  uint32_t damagedSlot = 0;

 private:
  std::string ns_;
  Bridging::VlanId victim_;
};

TEST_F(VlanCountersRestart, DamageFoundWhenWritingARecordEndsThePollAndIsReported) {
  startEightPolled();
  const std::vector<Bridging::VlanId> order = inSlotOrder(TableNames::kVlanCounterDir, kEight);
  ASSERT_EQ(order.size(), 8u);
  sm = nullptr;
  Zat::Ptr<DamagingVlanHelper> damaging(new DamagingVlanHelper(ns, order[3]));
  sm = VlanCountersSm::VlanCountersSmIs(config, cliReq, dir, snapshots, wheel, damaging);
  sm->pollIntervalIs(0.0);
  sm->initializedIs(true);
  advanceTo(1003.0);

  sm->updateCounters();

  Calls expectedReads;
  for (size_t i = 0; i <= 3; ++i) {
    expectedReads.push_back("vlanCountersRead(" + std::to_string(order[i]) + ")");
  }
  EXPECT_EQ(damaging->reads, expectedReads);
  EXPECT_EQ(dir->corruptionCount(), 1u);
  expectChecksumReport(dir->lastCorruption(), ns + ".vlanCounterDir", damaging->damagedSlot);
  const Counts one{1, 1, 1, 1, 1, 1, 1, 1};
  for (size_t i = 0; i < order.size(); ++i) {
    if (i == 3) continue;  // unreadable
    const Bridging::VlanId v = order[i];
    EXPECT_EQ(dir->vlanCounter(v),
              i < 3 ? record(v, plus(counts(v), one), 1003.0) : record(v, counts(v), 1002.0))
        << "VLAN " << v;
  }
}

TEST_F(VlanCountersRestart, DamagedSnapshotSlotOnClearIsReportedAndNothingIsWritten) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(10);
  startSm();
  advanceTo(1002.0);
  const uint32_t damagedSlot = damage(TableNames::kVlanCounterSnapshotDir, 10);

  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);

  EXPECT_EQ(snapshots->corruptionCount(), 1u);
  expectChecksumReport(snapshots->lastCorruption(), ns + ".vlanCounterSnapshotDir", damagedSlot);
  EXPECT_EQ(dir->corruptionCount(), 0u);
  EXPECT_EQ(dir->vlanCounter(10), record(10, counts(10), 1002.0));
}

TEST_F(VlanCountersRestart, DamagedCounterSlotOnClearIsReportedAndTheSnapshotKept) {
  config->vlanConfigIs(10);
  helper->hardware[10] = counts(10);
  startSm();
  advanceTo(1002.0);
  advanceTo(1003.0);
  cliReq->clearCountersRequestIs(10, true);
  ASSERT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(10), 1003.0));
  sm->pollIntervalIs(0.0);  // keeps the poll away from the damaged record
  const uint32_t damagedSlot = damage(TableNames::kVlanCounterDir, 10);

  advanceTo(1005.0);
  cliReq->clearCountersRequestToggle(10);

  EXPECT_EQ(dir->corruptionCount(), 1u);
  expectChecksumReport(dir->lastCorruption(), ns + ".vlanCounterDir", damagedSlot);
  EXPECT_EQ(snapshots->corruptionCount(), 0u);
  EXPECT_EQ(snapshots->vlanCounterSnapshot(10), record(10, counts(10), 1003.0));
}

}  // namespace
}  // namespace VlanTest
