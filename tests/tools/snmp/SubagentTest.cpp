// The subagent end to end: the simulated switch, a real snmpd as AgentX
// master and the subagent, read with the snmp command-line tools.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "SnmpFixture.h"
#include "readers/PublishedTables.h"
#include "tools/vorn-snmp-subagent/IfIndex.h"

namespace SnmpIt {
namespace {

using SimIt::sleepFor;
using SimIt::waitUntil;

uint64_t ifIndex(const std::string& name) { return *Snmp::ifIndexOf(Orvo::IntfId(name)); }

// Rows of a walk, by the ifIndex of each cell of `column`.
std::map<uint64_t, std::string> columnOf(const Varbinds& vbs, const char* entry, int column) {
  std::map<uint64_t, std::string> out;
  std::string prefix = std::string(entry) + "." + std::to_string(column) + ".";
  for (const auto& [oid, value] : vbs) {
    if (oid.rfind(prefix, 0) == 0) out[std::stoull(oid.substr(prefix.size()))] = value;
  }
  return out;
}

bool strictlyIncreasing(const Varbinds& vbs) {
  for (size_t i = 1; i < vbs.size(); ++i) {
    if (!(parseOid(vbs[i - 1].first) < parseOid(vbs[i].first))) return false;
  }
  return true;
}

using SubagentTest = SnmpTest;

TEST_F(SubagentTest, BulkWalkOfIfXTableReturnsOneRowPerServedInterface) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  Varbinds walk = bulkwalk(kIfXTable);
  EXPECT_TRUE(strictlyIncreasing(walk));
  auto names = columnOf(walk, kIfXEntry, 1);
  // Ethernet1..4, Vlan1..2 and the CPU port, under their documented indexes.
  std::map<uint64_t, std::string> want;
  for (auto id : ports) want[*Snmp::ifIndexOf(id)] = id.stringValue();
  want[ifIndex("Vlan1")] = "Vlan1";
  want[ifIndex("Vlan2")] = "Vlan2";
  want[ifIndex("Cpu")] = "Cpu";
  EXPECT_EQ(names, want);
  EXPECT_EQ(servedInTables(), want.size());
  // Every served column has exactly one cell per row.
  for (int column = 1; column <= 19; ++column) {
    EXPECT_EQ(columnOf(walk, kIfXEntry, column).size(), want.size()) << "column " << column;
  }
  EXPECT_EQ(ifNumber(), want.size());
  // ifTable agrees on the rows and types: Ethernet 6, VLAN 136, CPU other.
  Varbinds ifTable = bulkwalk(kIfTable);
  EXPECT_TRUE(strictlyIncreasing(ifTable));
  auto types = columnOf(ifTable, kIfEntry, 3);
  EXPECT_EQ(types[ifIndex("Ethernet1")], "6");
  EXPECT_EQ(types[ifIndex("Vlan2")], "136");
  EXPECT_EQ(types[ifIndex("Cpu")], "1");
  EXPECT_EQ(columnOf(ifTable, kIfEntry, 1).size(), want.size());
  // The Ethernet error breakdown serves the Ethernet ports only.
  Varbinds dot3 = bulkwalk(kDot3Table);
  EXPECT_EQ(columnOf(dot3, "1.3.6.1.2.1.10.7.2.1", 3).size(), ports.size());
  Varbinds dot3hc = bulkwalk(kDot3HcTable);
  EXPECT_EQ(columnOf(dot3hc, "1.3.6.1.2.1.10.7.11.1", 2).size(), ports.size());
}

TEST_F(SubagentTest, HcInOctetsEqualsTheTableTotalWithinOnePollAndGrows) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  const Orvo::IntfId port = ports[0];
  const std::string oid = cell(kIfXEntry, 6, *Snmp::ifIndexOf(port));
  // What the table held just before and just after the request bounds what
  // SNMP may answer: a sample is at most kMaxAge old and the table moves by
  // one poll's traffic at a time.
  uint64_t before = portRow(port.stringValue()).statistics().inOctets();
  auto snmpValue = numberOf(get({oid}), oid);
  uint64_t after = portRow(port.stringValue()).statistics().inOctets();
  ASSERT_TRUE(snmpValue.has_value());
  auto t = expect->traffic(port);
  double perPoll = t.inPps * t.avgPacketBytes * (SimIt::kPollPeriod + SimIt::kSlack);
  EXPECT_LE(*snmpValue, after);
  EXPECT_GE(static_cast<double>(*snmpValue), static_cast<double>(before) - 2 * perPoll);
  // The value the table holds now is served once the sample is renewed.
  bool equal = waitUntil(
      [&] {
        uint64_t table = portRow(port.stringValue()).statistics().inOctets();
        auto v = numberOf(get({oid}), oid);
        return v && *v == table;
      },
      5);
  EXPECT_TRUE(equal) << "ifHCInOctets never equalled the table's total";
  sleepFor(1.0);
  auto later = numberOf(get({oid}), oid);
  ASSERT_TRUE(later.has_value());
  EXPECT_GT(*later, *snmpValue);
}

TEST_F(SubagentTest, ClearingCountersMovesNoSnmpCounterBack) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  Varbinds before = bulkwalk(kIfXTable);
  Varbinds ifBefore = bulkwalk(kIfTable);
  ASSERT_EQ(command("clear counters all").rfind("ok", 0), 0u);
  // Let the clear land and the sample renew.
  sleepFor(3 * SimIt::kPollPeriod + kMaxAge);
  Varbinds after = bulkwalk(kIfXTable);
  Varbinds ifAfter = bulkwalk(kIfTable);
  int compared = 0;
  for (int column = 6; column <= 13; ++column) {
    auto a = columnOf(before, kIfXEntry, column), b = columnOf(after, kIfXEntry, column);
    for (const auto& [index, value] : a) {
      ASSERT_TRUE(b.count(index)) << "row " << index << " vanished";
      EXPECT_GE(std::stoull(b[index]), std::stoull(value))
          << "column " << column << " row " << index;
      ++compared;
    }
  }
  // The 32-bit packet, discard and error counters move far slower than
  // 2^31 between the walks, so modulo 2^32 they only grew too.
  for (int column : {11, 13, 14, 17, 19, 20}) {
    auto a = columnOf(ifBefore, kIfEntry, column), b = columnOf(ifAfter, kIfEntry, column);
    for (const auto& [index, value] : a) {
      uint32_t grew = static_cast<uint32_t>(std::stoull(b[index]) - std::stoull(value));
      EXPECT_LT(grew, 1u << 31) << "column " << column << " row " << index << " went back";
    }
  }
  EXPECT_GT(compared, 40);
  // Nor is a clear a discontinuity.
  EXPECT_EQ(columnOf(before, kIfXEntry, 19), columnOf(after, kIfXEntry, 19));
}

TEST_F(SubagentTest, RemovedAndAddedInterfaceMovesItsDiscontinuityTimeForward) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  const uint64_t index = ifIndex("Ethernet2");
  const std::string disc = cell(kIfXEntry, 19, index);
  const std::string other = cell(kIfXEntry, 19, ifIndex("Ethernet3"));
  Varbinds first = get({disc, other});
  auto before = numberOf(first, disc);
  ASSERT_TRUE(before.has_value());
  ASSERT_EQ(command("intf Ethernet2 remove").rfind("ok", 0), 0u);
  EXPECT_TRUE(waitUntil([&] { return !numberOf(get({disc}), disc).has_value(); }, 5))
      << "the removed interface stayed in ifXTable";
  ASSERT_EQ(command("intf Ethernet2 add").rfind("ok", 0), 0u);
  EXPECT_TRUE(waitUntil([&] { return numberOf(get({disc}), disc).has_value(); }, 5))
      << "the re-added interface did not come back";
  Varbinds second = get({disc, other});
  auto after = numberOf(second, disc);
  ASSERT_TRUE(after.has_value());
  EXPECT_GT(*after, *before);
  EXPECT_EQ(numberOf(second, other), numberOf(first, other));
}

TEST_F(SubagentTest, ThirtyTwoBitCountersAreTheLowBitsAndWrapPastTwoToThe32) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  // The fastest port's received octets pass 2^32 within seconds.
  Orvo::IntfId port = ports[0];
  for (auto id : ports) {
    if (expect->traffic(id).inPps > expect->traffic(port).inPps) port = id;
  }
  const uint64_t index = *Snmp::ifIndexOf(port);
  const std::string hc = cell(kIfXEntry, 6, index), low = cell(kIfEntry, 10, index);
  const std::string disc = cell(kIfXEntry, 19, index);
  uint64_t previousLow = 0;
  bool wrapped = false;
  std::optional<uint64_t> discBefore;
  waitUntil(
      [&] {
        // One request: both values come from one sample.
        Varbinds vbs = get({hc, low, disc});
        auto h = numberOf(vbs, hc), l = numberOf(vbs, low);
        if (!h || !l) return false;
        EXPECT_EQ(*l, *h & 0xFFFFFFFFu);
        if (!discBefore) discBefore = numberOf(vbs, disc);
        if (*h >= (uint64_t{1} << 32) && *l < previousLow) wrapped = true;
        previousLow = *l;
        return wrapped;
      },
      30);
  EXPECT_TRUE(wrapped) << "ifInOctets of " << port << " never wrapped past 2^32";
  // A 32-bit wrap is no discontinuity: the 64-bit total only grew.
  EXPECT_EQ(numberOf(get({disc}), disc), discBefore);
}

TEST_F(SubagentTest, HardwareCounterWrapIsServedModuloTwoToThe64) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  const uint64_t index = ifIndex("Ethernet4");
  const std::string hc = cell(kIfXEntry, 6, index), low = cell(kIfEntry, 10, index);
  ASSERT_EQ(command("chip wrap Ethernet4").rfind("ok", 0), 0u);
  sleepFor(3 * SimIt::kPollPeriod + kMaxAge);
  // Whatever the published total is after the hardware wrapped, SNMP serves
  // it raw and the 32-bit form is its low half.
  uint64_t table = portRow("Ethernet4").statistics().inOctets();
  Varbinds vbs = get({hc, low});
  auto h = numberOf(vbs, hc), l = numberOf(vbs, low);
  ASSERT_TRUE(h && l);
  EXPECT_EQ(*l, *h & 0xFFFFFFFFu);
  uint64_t ahead = table - *h;  // modulo 2^64: at most a few polls of traffic
  EXPECT_LT(ahead, uint64_t{1} << 40);
}

TEST_F(SubagentTest, SubagentStartedBeforeSnmpdConnectsWhenTheMasterAppears) {
  ASSERT_NO_FATAL_FAILURE(startAgent());
  ASSERT_TRUE(waitForPortPolls());
  ASSERT_NO_FATAL_FAILURE(startSubagent());
  sleepFor(1.5);
  EXPECT_TRUE(subagentRunning()) << "the subagent gave up without a master";
  ASSERT_NO_FATAL_FAILURE(startSnmpd());
  EXPECT_TRUE(waitForIfNumber(servedInTables(), 15)) << "the subagent never connected";
}

TEST_F(SubagentTest, SnmpdRestartedWhileTheSubagentRunsIsReconnectedByItself) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  stopSnmpd();
  sleepFor(1.5);
  EXPECT_TRUE(subagentRunning()) << "the subagent died with its master";
  ASSERT_NO_FATAL_FAILURE(startSnmpd());
  EXPECT_TRUE(waitForIfNumber(servedInTables(), 15)) << "the subagent never reconnected";
  EXPECT_EQ(columnOf(bulkwalk(kIfXTable), kIfXEntry, 1).size(), servedInTables());
}

TEST_F(SubagentTest, MissingTablesServeNoRowsWithOneLogLineAndRowsAppearWithTheAgent) {
  ASSERT_NO_FATAL_FAILURE(startSnmpd());
  ASSERT_NO_FATAL_FAILURE(startSubagent());
  ASSERT_TRUE(waitForIfNumber(0)) << "the subagent did not answer without tables";
  EXPECT_TRUE(bulkwalk(kIfXTable).empty());
  sleepFor(4 * kMaxAge);
  EXPECT_TRUE(bulkwalk(kIfTable).empty());
  std::string log = subagentLogText();
  size_t lines = 0;
  for (size_t at = 0; (at = log.find(".allIntfCounters does not exist", at)) != std::string::npos;
       ++at) {
    ++lines;
  }
  EXPECT_EQ(lines, 1u) << log;
  EXPECT_TRUE(subagentRunning());
  ASSERT_NO_FATAL_FAILURE(startAgent());
  EXPECT_TRUE(waitUntil([&] { return ifNumber() == servedInTables() && servedInTables() > 0; }, 10))
      << "rows did not appear once the agent published its tables";
}

TEST_F(SubagentTest, DamagedTableServesNoRowsWithOneLogLineAndTheRestGoesOn) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  // Replace the VLAN interface table by garbage under the same name (the
  // agent keeps writing its own, now nameless, copy).
  const std::string shm = "/" + ns + "." + TableNames::kAllVlanIntfCounters;
  ASSERT_EQ(::shm_unlink(shm.c_str()), 0);
  {
    std::ofstream garbage("/dev/shm" + shm, std::ios::binary);
    std::string bytes(8192, '\xA5');
    garbage.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  EXPECT_TRUE(waitForIfNumber(ports.size() + 1)) << "VLAN rows stayed after their table broke";
  Varbinds walk = bulkwalk(kIfXTable);
  EXPECT_EQ(columnOf(walk, kIfXEntry, 1).size(), ports.size() + 1);
  EXPECT_FALSE(columnOf(walk, kIfXEntry, 1).count(ifIndex("Vlan1")));
  sleepFor(4 * kMaxAge);
  std::string log = subagentLogText();
  size_t lines = 0;
  for (size_t at = 0; (at = log.find("allVlanIntfCounters is damaged", at)) != std::string::npos;
       ++at) {
    ++lines;
  }
  EXPECT_EQ(lines, 1u) << log;
  EXPECT_TRUE(subagentRunning());
}

TEST_F(SubagentTest, GetNextAndGetBulkPastTheEndOfEveryTable) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  const uint64_t last = ifIndex("Cpu");
  const uint64_t lastEth = ifIndex("Ethernet4");
  struct Case {
    std::string asked;
    std::string beyond;  // the answer must not lie inside this table
  };
  std::vector<Case> cases = {
      {cell(kIfEntry, 20, last), kIfTable},
      {std::string(kIfEntry) + ".21", kIfTable},
      {cell(kIfXEntry, 19, last), kIfXTable},
      {cell(kIfXEntry, 19, 4294967294u), kIfXTable},
      {"1.3.6.1.2.1.10.7.2.1.18." + std::to_string(lastEth), kDot3Table},
      {"1.3.6.1.2.1.10.7.11.1.6." + std::to_string(lastEth), kDot3HcTable},
  };
  for (const auto& c : cases) {
    Varbinds vbs = getnext({c.asked});
    ASSERT_EQ(vbs.size(), 1u) << c.asked;
    // Either the next table's first object or, past everything, the end of the view.
    if (vbs[0].second.find("No more variables") == 0) continue;
    EXPECT_NE(vbs[0].first.rfind(c.beyond + ".", 0), 0u)
        << "GETNEXT of " << c.asked << " answered " << vbs[0].first;
    EXPECT_GT(parseOid(vbs[0].first), parseOid(c.asked));
  }
  // Past the very last object the subagent serves: end of the MIB view.
  Varbinds end = getnext({"1.3.6.1.2.1.31.1.1.1.19." + std::to_string(last)});
  ASSERT_EQ(end.size(), 1u);
  EXPECT_NE(end[0].second.find("No more variables"), std::string::npos) << end[0].second;
  // GETBULK from the last cell of ifXTable finds the end of the view at once;
  // from the last cell of ifTable it goes on into the next tables, in order.
  Varbinds atEnd = snmp("snmpbulkget", {"-Cn0", "-Cr5", cell(kIfXEntry, 19, last)});
  ASSERT_FALSE(atEnd.empty());
  for (const auto& [oid, value] : atEnd) {
    EXPECT_EQ(value.find("No more variables"), 0u) << oid << " = " << value;
  }
  Varbinds onward = snmp("snmpbulkget", {"-Cn0", "-Cr5", cell(kIfEntry, 20, last)});
  ASSERT_EQ(onward.size(), 5u);
  EXPECT_GT(parseOid(onward[0].first), parseOid(cell(kIfEntry, 20, last)));
  EXPECT_EQ(onward[0].first.rfind(std::string(kIfTable) + ".", 0), std::string::npos);
  EXPECT_TRUE(strictlyIncreasing(onward));
  EXPECT_TRUE(subagentRunning());
}

TEST_F(SubagentTest, RequestsForIndexesThatDoNotExistFindNoSuchInstance) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  std::vector<std::string> asked = {
      cell(kIfXEntry, 6, 10001),
      cell(kIfXEntry, 6, 0),
      cell(kIfXEntry, 6, 2147483647),
      cell(kIfEntry, 10, ifIndex("Vlan3")),
      cell(kIfEntry, 4, ifIndex("Ethernet1")),  // ifMtu is not served
      "1.3.6.1.2.1.10.7.2.1.3." + std::to_string(ifIndex("Vlan1")),
      cell(kIfXEntry, 6, ifIndex("Ethernet1")) + ".7",
  };
  Varbinds vbs = get(asked);
  ASSERT_EQ(vbs.size(), asked.size());
  for (const auto& [oid, value] : vbs) {
    EXPECT_NE(value.find("No Such"), std::string::npos) << oid << " = " << value;
  }
  EXPECT_TRUE(subagentRunning());
}

TEST_F(SubagentTest, WalkWhileInterfacesComeAndGoStaysOrderedAndServesOnlyRealRows) {
  ASSERT_NO_FATAL_FAILURE(startAll());
  std::atomic<bool> done{false};
  std::atomic<int> toggles{0};
  std::thread churn([&] {
    bool present = true;
    while (!done) {
      command(std::string("intf Ethernet2 ") + (present ? "remove" : "add"));
      present = !present;
      ++toggles;
      sleepFor(0.15);
    }
    if (!present) command("intf Ethernet2 add");
  });
  std::set<uint64_t> allowed;
  for (auto id : ports) allowed.insert(*Snmp::ifIndexOf(id));
  for (auto name : {"Vlan1", "Vlan2", "Cpu"}) allowed.insert(ifIndex(name));
  int walks = 0;
  for (double end = SimIt::wallNow() + 3; SimIt::wallNow() < end; ++walks) {
    Varbinds walk = bulkwalk(kIfXTable);
    EXPECT_TRUE(strictlyIncreasing(walk));
    EXPECT_GE(walk.size(), 6u * 19);
    for (const auto& [index, name] : columnOf(walk, kIfXEntry, 1)) {
      EXPECT_TRUE(allowed.count(index)) << "unknown row " << index << " " << name;
    }
  }
  done = true;
  churn.join();
  EXPECT_GT(toggles.load(), 6);
  EXPECT_GT(walks, 3);
  EXPECT_TRUE(subagentRunning());
  EXPECT_TRUE(waitForIfNumber(servedInTables()));
}

}  // namespace
}  // namespace SnmpIt
