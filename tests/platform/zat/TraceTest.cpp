#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "orvo/IntfId.h"
#include "zat/Trace.h"

namespace ZatTest {
namespace {

using Line = std::tuple<std::string, int, std::string>;

// Trace settings and the sink are global: every test starts and ends all-off
// with the default sink.
class Trace : public ::testing::Test {
 protected:
  void SetUp() override {
    Zat::Trace::reset();
    Zat::Trace::sinkIs([this](std::string_view module, int level, const std::string& text) {
      lines.emplace_back(std::string(module), level, text);
    });
  }
  void TearDown() override {
    Zat::Trace::reset();
    Zat::Trace::sinkDel();
  }
  std::string configureError(std::string_view settings) {
    try {
      Zat::Trace::configure(settings);
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    return "no error";
  }
  std::vector<Line> lines;
};

TEST_F(Trace, EverythingIsOffAfterReset) {
  Zat::Trace::levelIs("VornCountersSm", 8);
  Zat::Trace::levelIs("*", 9);
  Zat::Trace::reset();
  EXPECT_EQ(Zat::Trace::level("VornCountersSm"), -1);
  EXPECT_FALSE(Zat::Trace::enabled("VornCountersSm", 0));
  EXPECT_FALSE(Zat::Trace::enabled("Brim", 0));
}

TEST_F(Trace, EnabledLevelTracesThatLevelAndBelowOnly) {
  Zat::Trace::levelIs("VornCountersSm", 8);
  EXPECT_TRUE(Zat::Trace::enabled("VornCountersSm", 6));
  EXPECT_TRUE(Zat::Trace::enabled("VornCountersSm", 7));
  EXPECT_TRUE(Zat::Trace::enabled("VornCountersSm", 8));
  EXPECT_FALSE(Zat::Trace::enabled("VornCountersSm", 9));
  EXPECT_FALSE(Zat::Trace::enabled("Brim", 6));
}

TEST_F(Trace, NegativeLevelDisablesAModule) {
  Zat::Trace::levelIs("VornCountersSm", 8);
  Zat::Trace::levelIs("VornCountersSm", -1);
  EXPECT_FALSE(Zat::Trace::enabled("VornCountersSm", 0));
}

TEST_F(Trace, ConfigureSetsEachModule) {
  Zat::Trace::configure("VornCountersSm=8,Brim=3");
  EXPECT_EQ(Zat::Trace::level("VornCountersSm"), 8);
  EXPECT_EQ(Zat::Trace::level("Brim"), 3);
  EXPECT_TRUE(Zat::Trace::enabled("Brim", 3));
  EXPECT_FALSE(Zat::Trace::enabled("Brim", 4));
  EXPECT_EQ(Zat::Trace::level("Pell"), -1);
}

TEST_F(Trace, WildcardAppliesToModulesWithoutTheirOwnLevel) {
  Zat::Trace::configure("*=6,Brim=2");
  EXPECT_EQ(Zat::Trace::level("VornCountersSm"), 6);
  EXPECT_EQ(Zat::Trace::level("Brim"), 2);
  EXPECT_FALSE(Zat::Trace::enabled("Brim", 3));
}

TEST_F(Trace, MalformedConfigurationRaisesWithTheOffendingText) {
  EXPECT_EQ(configureError("VornCountersSm"),
            "trace setting 'VornCountersSm' is not of the form module=level");
  EXPECT_EQ(configureError("=3"), "trace setting '=3' is not of the form module=level");
  EXPECT_EQ(configureError("Brim="), "trace setting 'Brim=' is not of the form module=level");
  EXPECT_EQ(configureError("Brim=12"), "trace level '12' is not a digit 0-9");
  EXPECT_EQ(configureError("Brim=x"), "trace level 'x' is not a digit 0-9");
}

TEST_F(Trace, CapturingSinkReceivesModuleLevelAndExactText) {
  Zat::Trace::levelIs("VornCountersSm", 8);
  Orvo::IntfId intf("Ethernet3");
  ZAT_TRACE("VornCountersSm", 8,
            "void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId) " << intf);
  ZAT_TRACE("VornCountersSm", 6, " intfId: " << intf << " vlanIntf: " << false);
  ZAT_TRACE("VornCountersSm", 9, "too detailed");
  ZAT_TRACE("Brim", 1, "other module");
  EXPECT_EQ(lines, (std::vector<Line>{
                       {"VornCountersSm", 8,
                        "void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId) Ethernet3"},
                       {"VornCountersSm", 6, " intfId: Ethernet3 vlanIntf: 0"}}));
}

TEST_F(Trace, ExpressionIsNotEvaluatedWhenDisabled) {
  int evaluated = 0;
  auto costly = [&evaluated] {
    ++evaluated;
    return "value";
  };
  ZAT_TRACE("VornCountersSm", 8, costly());
  Zat::Trace::levelIs("VornCountersSm", 7);
  ZAT_TRACE("VornCountersSm", 8, costly());
  EXPECT_EQ(evaluated, 0);
  ZAT_TRACE("VornCountersSm", 7, costly());
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(lines, (std::vector<Line>{{"VornCountersSm", 7, "value"}}));
}

TEST_F(Trace, WriteGoesToTheSinkAsGiven) {
  Zat::Trace::write("Pell", 3, "wheel tick");
  EXPECT_EQ(lines, (std::vector<Line>{{"Pell", 3, "wheel tick"}}));
}

// A trace site as handlers have them: the module is fixed, the level is asked.
void traceAtSite(int level) { ZAT_TRACE("Brim", level, "site line " << level); }

TEST_F(Trace, SiteSeesEveryLevelChangeMadeAfterItLooked) {
  Zat::Trace::SiteLevel site;
  Zat::Trace::levelIs("Brim", 3);
  EXPECT_TRUE(site.enabled("Brim", 3));
  EXPECT_FALSE(site.enabled("Brim", 4));
  Zat::Trace::levelIs("Brim", 1);
  EXPECT_FALSE(site.enabled("Brim", 3));
  EXPECT_TRUE(site.enabled("Brim", 1));
  // Another module's change leaves this one's answer as it was.
  Zat::Trace::levelIs("VornCountersSm", 9);
  EXPECT_TRUE(site.enabled("Brim", 1));
  EXPECT_FALSE(site.enabled("Brim", 2));
  Zat::Trace::levelIs("Brim", -1);
  EXPECT_FALSE(site.enabled("Brim", 0));
  Zat::Trace::levelIs("*", 9);
  EXPECT_FALSE(site.enabled("Brim", 0)) << "the module's own level wins over the wildcard";
  Zat::Trace::reset();
  EXPECT_FALSE(site.enabled("Brim", 0));
  Zat::Trace::levelIs("*", 9);
  EXPECT_TRUE(site.enabled("Brim", 9));
}

TEST_F(Trace, TraceSiteWritesOnlyWhileItsModuleIsEnabled) {
  traceAtSite(2);
  Zat::Trace::levelIs("VornCountersSm", 8);
  traceAtSite(2);
  Zat::Trace::levelIs("Brim", 2);
  traceAtSite(2);
  traceAtSite(3);
  Zat::Trace::levelIs("Brim", 0);
  traceAtSite(2);
  Zat::Trace::levelIs("Brim", 3);
  traceAtSite(3);
  EXPECT_EQ(lines, (std::vector<Line>{{"Brim", 2, "site line 2"}, {"Brim", 3, "site line 3"}}));
}

}  // namespace
}  // namespace ZatTest
