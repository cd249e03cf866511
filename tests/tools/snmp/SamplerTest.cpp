#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Fixtures.h"
#include "tables/CounterTables.h"
#include "tools/vorn-snmp-subagent/IfIndex.h"
#include "tools/vorn-snmp-subagent/InterfaceSample.h"

namespace Snmp {
namespace {

class SamplerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    eth = tables.allEthIntfCounterBrimIs(TableNames::kAllIntfCounters);
    tables.unlinkLater(TableNames::kAllVlanIntfCounters);
  }
  void put(const char* name, uint64_t inOctets) {
    Interface::EthIntfCounterBrim r{Orvo::IntfId(name)};
    Interface::IntfStatistics s;
    s.inOctetsIs(inOctets);
    r.statisticsIs(s);
    eth->counterIs(r);
  }
  const IntfRow* row(const char* name) {
    return sampler.current().find(*ifIndexOf(Orvo::IntfId(name)));
  }

  VornTest::ScratchTables tables;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> eth;
  std::vector<std::string> log;
  Sampler sampler{tables.ns(), [this](const std::string& l) { log.push_back(l); }};
};

TEST_F(SamplerTest, RowsPresentAtTheFirstReadStartWithoutDiscontinuity) {
  put("Ethernet1", 100);
  sampler.refresh(500, 0);
  ASSERT_NE(row("Ethernet1"), nullptr);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 0u);
  EXPECT_EQ(row("Ethernet1")->stats.inOctets(), 100u);
  EXPECT_EQ(row("Ethernet1")->ifType, kIfTypeEthernet);
  EXPECT_TRUE(row("Ethernet1")->hasEth);
  EXPECT_EQ(row("Ethernet1")->name, "Ethernet1");
}

TEST_F(SamplerTest, ATotalGoingBackMovesTheDiscontinuityAndAWrapPast64BitsDoesNot) {
  put("Ethernet1", 100);
  put("Ethernet2", ~uint64_t{0} - 5);
  sampler.refresh(100, 0);
  put("Ethernet1", 50);
  put("Ethernet2", 7);  // wrapped past 2^64: a growth of 13
  sampler.refresh(200, 0);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 200u);
  EXPECT_EQ(row("Ethernet2")->discontinuity, 0u);
  put("Ethernet1", 60);
  sampler.refresh(300, 0);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 200u);
}

TEST_F(SamplerTest, ARowThatCameBackOrAppearedLaterStartsANewSeries) {
  put("Ethernet1", 100);
  sampler.refresh(100, 0);
  eth->counterDel(Orvo::IntfId("Ethernet1"));
  sampler.refresh(200, 0);
  EXPECT_EQ(row("Ethernet1"), nullptr);
  put("Ethernet1", 500);  // higher than before: only its absence tells
  put("Ethernet2", 1);
  sampler.refresh(300, 0);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 300u);
  EXPECT_EQ(row("Ethernet2")->discontinuity, 300u);
  EXPECT_EQ(row("Ethernet2")->lastChange, 300u);
}

TEST_F(SamplerTest, AWriterReattachingOrATableReplacedMovesEveryRowsDiscontinuity) {
  put("Ethernet1", 100);
  sampler.refresh(100, 0);
  // The same table, a new writer: the generation changes.
  eth = nullptr;
  eth = tables.allEthIntfCounterBrimIs(TableNames::kAllIntfCounters);
  sampler.refresh(200, 0);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 200u);
  // A new table under the same name.
  eth = nullptr;
  Brim::unlinkTable(tables.ns(), TableNames::kAllIntfCounters);
  eth = tables.allEthIntfCounterBrimIs(TableNames::kAllIntfCounters);
  put("Ethernet1", 100);
  sampler.refresh(300, 0);
  ASSERT_NE(row("Ethernet1"), nullptr);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 300u);
}

TEST_F(SamplerTest, AMasterRestartResetsDiscontinuityTimesToZero) {
  put("Ethernet1", 100);
  sampler.refresh(100, 0);
  put("Ethernet1", 50);
  sampler.refresh(200, 0);
  ASSERT_EQ(row("Ethernet1")->discontinuity, 200u);
  sampler.refresh(30, 0);  // the master's uptime started again
  EXPECT_EQ(row("Ethernet1")->discontinuity, 0u);
  EXPECT_EQ(row("Ethernet1")->lastChange, 0u);
  put("Ethernet1", 10);
  sampler.refresh(40, 0);
  EXPECT_EQ(row("Ethernet1")->discontinuity, 40u);
}

TEST_F(SamplerTest, AMissingTableIsLoggedOnceAndAReturningOneOnceMore) {
  sampler.refresh(100, 0);
  sampler.refresh(200, 0);
  size_t missing = 0;
  for (const auto& l : log) {
    if (l.find("allVlanIntfCounters does not exist") != std::string::npos) ++missing;
  }
  EXPECT_EQ(missing, 1u);
  auto vlan = tables.allVlanIntfCounterBrimIs(TableNames::kAllVlanIntfCounters);
  vlan->counterIs(Interface::VlanIntfCounterBrim(Orvo::IntfId("Vlan5")));
  log.clear();
  sampler.refresh(300, 0);
  sampler.refresh(400, 0);
  ASSERT_NE(row("Vlan5"), nullptr);
  EXPECT_EQ(row("Vlan5")->ifType, kIfTypeL3IpVlan);
  EXPECT_EQ(log.size(), 1u);
}

TEST_F(SamplerTest, InterfacesWithoutAnIndexAreLeftOutAndReportedOnce) {
  put("Ethernet1/100", 1);
  put("Ethernet1", 1);
  sampler.refresh(100, 0);
  sampler.refresh(200, 0);
  EXPECT_EQ(sampler.current().rows.size(), 1u);
  size_t reported = 0;
  for (const auto& l : log) reported += l.find("Ethernet1/100") != std::string::npos;
  EXPECT_EQ(reported, 1u);
}

}  // namespace
}  // namespace Snmp
