// Rendering a snapshot: counters of the raw totals, baselines only once a clear
// happened, absent families and a health line for a missing table, and the two
// exposition formats.
#include <gtest/gtest.h>

#include <string>

#include "tools/vorn-exporter/Metrics.h"

namespace {

using Interface::EthIntfCounterBrim;

EthIntfCounterBrim port(const char* name, uint64_t inOctets, double time) {
  EthIntfCounterBrim r{Orvo::IntfId(name)};
  Interface::IntfStatistics s;
  s.inOctetsIs(inOctets);
  s.inErrorsIs(3);
  s.statsUpdateTimeIs(time);
  r.statisticsIs(s);
  Interface::EthStatistics e;
  e.fcsErrorsIs(2);
  e.alignmentErrorsIs(1);
  r.ethStatisticsIs(e);
  Interface::IntfRates rates;
  rates.inBitsRateIs(8000);
  r.ratesIs(rates);
  return r;
}

// A snapshot whose tables were all read, empty unless filled.
Readers::Snapshot readSnapshot() {
  Readers::Snapshot s;
  s.ns = "t";
  s.ethCounters.status = {"allIntfCounters", Readers::TableState::read, "", 0, 0, "", 0};
  s.ethBaselines.status = {"allIntfClearCounters", Readers::TableState::read, "", 0, 0, "", 0};
  s.queueCounters.status.table = "allIntfQueueCounters";
  s.queueBaselines.status.table = "allIntfClearQueueCounters";
  s.aclDrops.status.table = "intfAclDropCountersDir";
  s.vlanIntfCounters.status.table = "allVlanIntfCounters";
  s.vlanCounters.status.table = "vlanCounterDir";
  s.vlanSnapshots.status.table = "vlanCounterSnapshotDir";
  s.cpuCounters.status.table = "cpuIntfCounters";
  s.coppClasses.status.table = "coppClassCounters";
  for (auto* t : {&s.queueCounters.status, &s.queueBaselines.status, &s.aclDrops.status,
                  &s.vlanIntfCounters.status, &s.vlanCounters.status, &s.vlanSnapshots.status,
                  &s.cpuCounters.status, &s.coppClasses.status}) {
    t->state = Readers::TableState::read;
  }
  return s;
}

std::string text(const Readers::Snapshot& s,
                 Exporter::Format format = Exporter::Format::prometheusText) {
  std::string out;
  Exporter::render(s, Exporter::ScrapeHealth{}, Exporter::RenderOptions{"copp-system-policy"},
                   format, out);
  return out;
}

bool has(const std::string& text, const std::string& line) {
  return text.find("\n" + line + "\n") != std::string::npos || text.rfind(line + "\n", 0) == 0;
}

TEST(ExporterMetrics, TotalsAreCountersOfTheRawRunningTotals) {
  auto s = readSnapshot();
  s.ethCounters.rows = {port("Ethernet1", 5000, 10)};
  // A baseline the agent wrote as a zero row: no clear has happened.
  s.ethBaselines.rows = {EthIntfCounterBrim(Orvo::IntfId("Ethernet1"))};
  std::string out = text(s);
  EXPECT_TRUE(has(out, "# TYPE vorn_port_in_bytes_total counter")) << out;
  EXPECT_TRUE(has(out, "vorn_port_in_bytes_total{interface=\"Ethernet1\"} 5000"));
  EXPECT_TRUE(has(out, "vorn_port_in_errors_total{interface=\"Ethernet1\"} 3"));
  EXPECT_TRUE(has(out,
                  "vorn_port_errors_by_type_total{interface=\"Ethernet1\",direction=\"in\","
                  "type=\"fcs\"} 2"));
  EXPECT_TRUE(has(out, "vorn_port_in_bytes_per_second{interface=\"Ethernet1\"} 1000"));
  EXPECT_TRUE(has(out, "vorn_port_last_update_timestamp_seconds{interface=\"Ethernet1\"} 10"));
  EXPECT_EQ(out.find("vorn_port_baseline_"), std::string::npos);
  EXPECT_EQ(out.find("vorn_port_last_clear_timestamp_seconds"), std::string::npos);
}

TEST(ExporterMetrics, AClearShowsAsBaselineBesideTotalsThatDoNotGoBack) {
  auto s = readSnapshot();
  s.ethCounters.rows = {port("Ethernet1", 9000, 20)};
  s.ethBaselines.rows = {port("Ethernet1", 7000, 15)};
  std::string out = text(s);
  EXPECT_TRUE(has(out, "vorn_port_in_bytes_total{interface=\"Ethernet1\"} 9000"));
  EXPECT_TRUE(has(out, "# TYPE vorn_port_baseline_in_bytes gauge"));
  EXPECT_TRUE(has(out, "vorn_port_baseline_in_bytes{interface=\"Ethernet1\"} 7000"));
  EXPECT_TRUE(has(out, "vorn_port_last_clear_timestamp_seconds{interface=\"Ethernet1\"} 15"));
}

TEST(ExporterMetrics, VlanSnapshotsAppearOnceTaken) {
  auto s = readSnapshot();
  Brim::Bridging::VlanCounter v10(10), v20(20);
  v10.inOctetsIs(100);
  v20.inOctetsIs(200);
  s.vlanCounters.rows = {v10, v20};
  Brim::Bridging::VlanCounter snap10(10), snap20(20);
  snap10.inOctetsIs(40);
  snap10.timestampIs(99);
  s.vlanSnapshots.rows = {snap10, snap20};
  std::string out = text(s);
  EXPECT_TRUE(has(out, "vorn_vlan_in_bytes_total{vlan=\"20\"} 200"));
  EXPECT_TRUE(has(out, "vorn_vlan_baseline_in_bytes{vlan=\"10\"} 40"));
  EXPECT_EQ(out.find("vorn_vlan_baseline_in_bytes{vlan=\"20\"}"), std::string::npos);
  EXPECT_TRUE(has(out, "vorn_vlan_last_clear_timestamp_seconds{vlan=\"10\"} 99"));
}

TEST(ExporterMetrics, QueuesCarryQueueAndTypeLabels) {
  using namespace Interface::QueueCounter;
  auto s = readSnapshot();
  IntfQueueCounter q(Orvo::IntfId("Ethernet2"));
  q.intfQueueStatIs(QueueIndex(0), IntfQueueStat(0, 100, 10, 0, 0));
  q.intfQueueStatIs(QueueIndex(1), IntfQueueStat(1, 200, 20, 30, 3));
  s.queueCounters.rows = {q};
  std::string out = text(s);
  EXPECT_TRUE(has(out,
                  "vorn_queue_tx_bytes_total{interface=\"Ethernet2\",queue=\"0\","
                  "type=\"unicast\"} 100"));
  EXPECT_TRUE(has(out,
                  "vorn_queue_dropped_packets_total{interface=\"Ethernet2\",queue=\"1\","
                  "type=\"multicast\"} 3"));
}

TEST(ExporterMetrics, PolicingClassesCarryPolicyMapAndEscapedClassLabels) {
  auto s = readSnapshot();
  Published::CoppClassCounter c;
  const char name[] = "odd\"class\\";
  std::copy(name, name + sizeof name - 1, c.name);
  c.nameHash = Published::CoppClassCounter::hashOf(c.nameText());
  c.pkts = 7;
  s.coppClasses.rows = {c};
  std::string out = text(s);
  EXPECT_TRUE(has(out,
                  "vorn_copp_class_packets_total{policy_map=\"copp-system-policy\","
                  "class=\"odd\\\"class\\\\\"} 7"))
      << out;
}

TEST(ExporterMetrics, MissingTableLeavesItsSeriesOutAndSaysWhy) {
  auto s = readSnapshot();
  s.ethCounters.status.state = Readers::TableState::missing;
  s.vlanCounters.status.state = Readers::TableState::unusable;
  s.aclDrops.status.records = 4;
  s.aclDrops.status.damagedSlots = 1;
  std::string out = text(s);
  EXPECT_EQ(out.find("vorn_port_in_bytes_total"), std::string::npos);
  EXPECT_TRUE(has(out, "vorn_exporter_table_up{table=\"allIntfCounters\"} 0"));
  EXPECT_TRUE(has(out, "vorn_exporter_table_up{table=\"allIntfClearCounters\"} 1"));
  EXPECT_TRUE(
      has(out, "vorn_exporter_table_unavailable{table=\"allIntfCounters\",reason=\"missing\"} 1"));
  EXPECT_TRUE(
      has(out, "vorn_exporter_table_unavailable{table=\"vlanCounterDir\",reason=\"unusable\"} 1"));
  EXPECT_TRUE(has(out, "vorn_exporter_table_damaged_slots{table=\"intfAclDropCountersDir\"} 1"));
  EXPECT_TRUE(has(out, "vorn_exporter_records_read 4"));
}

TEST(ExporterMetrics, OpenMetricsNamesCounterFamiliesWithoutTotalAndEnds) {
  auto s = readSnapshot();
  s.ethCounters.rows = {port("Ethernet1", 5000, 10)};
  std::string out = text(s, Exporter::Format::openMetrics);
  EXPECT_TRUE(has(out, "# TYPE vorn_port_in_bytes counter"));
  EXPECT_TRUE(has(out, "vorn_port_in_bytes_total{interface=\"Ethernet1\"} 5000"));
  ASSERT_GE(out.size(), 6u);
  EXPECT_EQ(out.substr(out.size() - 6), "# EOF\n");
  EXPECT_EQ(text(s).find("# EOF"), std::string::npos);
}

TEST(ExporterMetrics, NegotiatesOpenMetricsOnlyWhenAsked) {
  EXPECT_EQ(Exporter::negotiate(""), Exporter::Format::prometheusText);
  EXPECT_EQ(Exporter::negotiate("text/plain;version=0.0.4;q=0.5,*/*;q=0.1"),
            Exporter::Format::prometheusText);
  EXPECT_EQ(Exporter::negotiate("application/openmetrics-text;version=1.0.0,text/plain;q=0.5"),
            Exporter::Format::openMetrics);
  EXPECT_NE(std::string(Exporter::contentType(Exporter::Format::openMetrics))
                .find("application/openmetrics-text; version=1.0.0"),
            std::string::npos);
  EXPECT_NE(
      std::string(Exporter::contentType(Exporter::Format::prometheusText)).find("version=0.0.4"),
      std::string::npos);
}

}  // namespace
