// promtool check metrics on what the exporter serves for the embedded default
// switch and for the large one (512 ports x 8 queues, 4094 VLANs).
#include <gtest/gtest.h>

#include <fstream>

#include "ExporterFixture.h"

namespace {

using ExporterIt::ExporterTest;

class PromtoolMetrics : public ExporterTest {
 protected:
  // Runs vorn-sim on this test's namespace with `extra` arguments and waits
  // (at most 60 s) until the exporter reads `ports` ports and every table.
  void runSwitch(const std::vector<std::string>& extra, size_t ports) {
    std::vector<std::string> args = {"-n", ns, "--socket", socketPath, "--status-interval", "0"};
    args.insert(args.end(), extra.begin(), extra.end());
    agentPid = ExporterIt::spawn(VORN_SIM_BINARY, args, dir + "/agent.log");
    ASSERT_GT(agentPid, 0);
    const std::string portsLine =
        "vorn_exporter_table_records{table=\"allIntfCounters\"} " + std::to_string(ports) + "\n";
    bool ready = SimIt::waitUntil(
        [&] {
          auto r = SimIt::runProcess(VORN_EXPORTER_BINARY, {"-n", ns, "--once"}, 30);
          return r.exitedWith(0) && r.out.find(portsLine) != std::string::npos &&
                 r.out.find("vorn_exporter_table_up{table=\"coppClassCounters\"} 1\n") !=
                     std::string::npos &&
                 r.out.find("vorn_exporter_table_unavailable{") == std::string::npos;
        },
        60);
    ASSERT_TRUE(ready) << ExporterIt::fileText(dir + "/agent.log");
  }

  // One scrape, checked by promtool; the text.
  std::string checkedScrape() {
    auto r = SimIt::runProcess(VORN_EXPORTER_BINARY, {"-n", ns, "--once"}, 30);
    EXPECT_TRUE(r.exitedWith(0)) << r.err;
    const std::string file = dir + "/scrape.prom";
    std::ofstream(file) << r.out;
    auto check = SimIt::runProcess("/bin/sh", {"-c", "/usr/bin/promtool check metrics < " + file});
    EXPECT_TRUE(check.exitedWith(0)) << check.out << check.err;
    return r.out;
  }
};

TEST_F(PromtoolMetrics, DefaultSwitchScrapePassesPromtool) {
  ASSERT_NO_FATAL_FAILURE(runSwitch({}, 50));  // 48 Ethernet and 2 fabric ports
  std::string text = checkedScrape();
  EXPECT_NE(text.find("vorn_queue_tx_bytes_total{interface=\"Ethernet48\",queue=\"7\","),
            std::string::npos);
  EXPECT_NE(text.find("vorn_vlan_in_bytes_total{vlan=\"32\"} "), std::string::npos);
  EXPECT_NE(text.find("vorn_copp_class_packets_total{policy_map=\"copp-system-policy\","
                      "class=\"copp-system-bgp\"} "),
            std::string::npos);
}

TEST_F(PromtoolMetrics, LargeSwitchScrapePassesPromtool) {
  ASSERT_NO_FATAL_FAILURE(runSwitch({"--large"}, 514));  // and 2 fabric ports
  std::string text = checkedScrape();
  EXPECT_NE(text.find("vorn_queue_dropped_packets_total{interface=\"Ethernet512\",queue=\"7\","),
            std::string::npos);
  EXPECT_NE(text.find("vorn_vlan_out_bytes_total{vlan=\"4094\"} "), std::string::npos);
}

}  // namespace
