// The Prometheus files under deploy/prometheus/ are valid and their rules do
// what their unit tests say, as promtool judges them.
#include <gtest/gtest.h>

#include "ExporterFixture.h"

namespace {

using ExporterIt::sourceRoot;

TEST(DeployPrometheus, RulesPassPromtoolCheck) {
  auto r = SimIt::runProcess("/usr/bin/promtool",
                             {"check", "rules", sourceRoot() + "/deploy/prometheus/rules.yml"}, 30);
  EXPECT_TRUE(r.exitedWith(0)) << r.out << r.err;
}

TEST(DeployPrometheus, RuleUnitTestsPass) {
  auto r =
      SimIt::runProcess("/usr/bin/promtool",
                        {"test", "rules", sourceRoot() + "/deploy/prometheus/rules_test.yml"}, 30);
  EXPECT_TRUE(r.exitedWith(0)) << r.out << r.err;
}

TEST(DeployPrometheus, ScrapeConfigExamplePassesPromtoolCheck) {
  auto r = SimIt::runProcess(
      "/usr/bin/promtool", {"check", "config", sourceRoot() + "/deploy/prometheus/prometheus.yml"},
      30);
  EXPECT_TRUE(r.exitedWith(0)) << r.out << r.err;
}

}  // namespace
