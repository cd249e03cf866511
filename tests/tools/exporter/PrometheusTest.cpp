// End to end with a real Prometheus server: the agent, the exporter and
// Prometheus run as processes on loopback, Prometheus scrapes every second, and
// the test asks Prometheus's HTTP API what it stored.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <mutex>
#include <thread>
#include <vector>

#include "ExporterFixture.h"

namespace {

using ExporterIt::ExporterTest;
using SimIt::kPollPeriod;
using SimIt::kSlack;

// Every value the agent published for one port's input octets, with the time
// of the poll that published it, seen by sampling the table far more often
// than it is polled.
class TableHistory {
 public:
  TableHistory(std::string ns, Orvo::IntfId port) : ns_(std::move(ns)), port_(port) {
    thread_ = std::thread([this] {
      while (!stop_.load()) {
        auto row =
            SimIt::rowOf<Interface::EthIntfCounterBrim>(ns_, TableNames::kAllIntfCounters, port_);
        if (row) {
          std::lock_guard<std::mutex> lock(mutex_);
          if (seen_.empty() || seen_.back().second != row->statistics().inOctets()) {
            seen_.emplace_back(row->statistics().statsUpdateTime(), row->statistics().inOctets());
          }
        }
        SimIt::sleepFor(0.01);
      }
    });
  }
  ~TableHistory() {
    stop_ = true;
    thread_.join();
  }
  // The poll time of the value, or NaN when the table never held it.
  double pollTimeOf(uint64_t value) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [t, v] : seen_) {
      if (v == value) return t;
    }
    return std::nan("");
  }

 private:
  std::string ns_;
  Orvo::IntfId port_;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  std::vector<std::pair<double, uint64_t>> seen_;
  std::thread thread_;
};

double valueOf(const nlohmann::json& sample) {
  return std::stod(sample["value"][1].get<std::string>());
}

TEST_F(ExporterTest, PrometheusStoresTheTableValuesRatesAndClearsWithoutGoingBack) {
  ASSERT_NO_FATAL_FAILURE(startAgent());
  ASSERT_TRUE(waitForPortPolls());
  TableHistory history(ns, Orvo::IntfId("Ethernet1"));
  ASSERT_NO_FATAL_FAILURE(startExporter());
  ASSERT_NO_FATAL_FAILURE(startPrometheus());
  const std::string series = "vorn_port_in_bytes_total{interface=\"Ethernet1\"}";

  // Six scrapes stored.
  bool stored = SimIt::waitUntil(
      [&] {
        auto r = query("count_over_time(" + series + "[1m])");
        return !r.empty() && valueOf(r[0]) >= 6;
      },
      30);
  ASSERT_TRUE(stored) << "Prometheus did not store six scrapes within 30 s";

  // Each stored sample is a value the table held at the time of the scrape,
  // give or take one poll.
  auto raw = query(series + "[1m]");
  ASSERT_EQ(raw.size(), 1u);
  const auto& values = raw[0]["values"];
  ASSERT_GE(values.size(), 6u);
  for (const auto& v : values) {
    const double scrapeTime = v[0].get<double>();
    const uint64_t stored = std::stoull(v[1].get<std::string>());
    const double polled = history.pollTimeOf(stored);
    ASSERT_FALSE(std::isnan(polled)) << "Prometheus stored " << stored << " at " << scrapeTime
                                     << ", a value the table never held";
    EXPECT_LE(polled, scrapeTime + kSlack);
    EXPECT_GE(polled, scrapeTime - kPollPeriod - kSlack);
  }

  // rate() over the totals is the simulated traffic.
  auto traffic = expect->traffic(Orvo::IntfId("Ethernet1"));
  const double expected = traffic.inPps * traffic.avgPacketBytes;
  auto rate = query("rate(" + series + "[5s])");
  ASSERT_EQ(rate.size(), 1u);
  EXPECT_GT(valueOf(rate[0]), 0);
  EXPECT_NEAR(valueOf(rate[0]), expected, 0.15 * expected);
  // The deploy rules are loaded and evaluated on the exporter's series. (Their
  // one-minute window is not full yet, so only the sign is known here; their
  // values are checked by their promtool unit tests.)
  bool recorded = SimIt::waitUntil(
      [&] {
        auto bits = query("interface:vorn_port_in_bits:rate1m{interface=\"Ethernet1\"}");
        return !bits.empty() && valueOf(bits[0]) > 0;
      },
      10);
  EXPECT_TRUE(recorded);

  // No clear yet: no baseline.
  const std::string baseline = "vorn_port_baseline_in_bytes{interface=\"Ethernet1\"}";
  EXPECT_TRUE(query(baseline).empty());
  const double beforeClear = valueOf(query(series)[0]);

  ASSERT_EQ(command("clear counters Ethernet1").rfind("ok", 0), 0u);
  const double clearedAt = SimIt::wallNow();
  bool baselineStored =
      SimIt::waitUntil([&] { return !query("count_over_time(" + baseline + "[1m])").empty(); }, 15);
  ASSERT_TRUE(baselineStored) << "no baseline stored within 15 s of the clear";
  // Two more scrapes after the baseline first showed.
  SimIt::sleepFor(2.2);

  auto base = query(baseline);
  ASSERT_EQ(base.size(), 1u);
  EXPECT_GE(valueOf(base[0]), beforeClear);
  auto after = query(series);
  ASSERT_EQ(after.size(), 1u);
  EXPECT_GE(valueOf(after[0]), valueOf(base[0]));
  // The totals never went back across the clear.
  auto resets = query("resets(" + series + "[2m])");
  ASSERT_EQ(resets.size(), 1u);
  EXPECT_EQ(valueOf(resets[0]), 0);
  auto clearTime = query("vorn_port_last_clear_timestamp_seconds{interface=\"Ethernet1\"}");
  ASSERT_EQ(clearTime.size(), 1u);
  EXPECT_NEAR(valueOf(clearTime[0]), clearedAt, kPollPeriod + 2 * kSlack);
  // The since-clear rule now subtracts the baseline: far below the totals.
  auto sinceClear = query("interface:vorn_port_in_bytes:since_clear{interface=\"Ethernet1\"}");
  ASSERT_EQ(sinceClear.size(), 1u);
  EXPECT_LT(valueOf(sinceClear[0]), beforeClear);
  // Health as Prometheus sees it: every table read, nothing damaged.
  EXPECT_TRUE(query("vorn_exporter_table_up == 0").empty());
  EXPECT_TRUE(query("vorn_exporter_table_damaged_slots > 0").empty());
  EXPECT_EQ(valueOf(query("up{job=\"vorn\"}")[0]), 1);
}

}  // namespace
