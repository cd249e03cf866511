// Topology: the embedded shapes, JSON topology files and their error texts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "agent/platforms/sim/Topology.h"

namespace {

using Sim::Topology;
using Sim::TopologyError;

// The message of the TopologyError that parsing `text` raises ("" when none).
std::string errorOf(const std::string& text) {
  try {
    Topology::fromJsonText(text);
  } catch (const TopologyError& e) {
    return e.what();
  }
  return "";
}

TEST(Topology, DefaultSwitchHasTheEmbeddedShape) {
  Topology t = Topology::defaultSwitch();
  EXPECT_EQ(t.ethPorts, 48u);
  EXPECT_EQ(t.queuesPerPort, 8u);
  EXPECT_EQ(t.fabricPorts, 2u);
  EXPECT_EQ(t.vlanIntfs, 4u);
  EXPECT_EQ(t.vlans, 32u);
  EXPECT_EQ(t.coppClasses.size(), 4u);
  EXPECT_EQ(t.pollPeriod, 1.0);
  EXPECT_NO_THROW(t.validate());
}

TEST(Topology, LargeSwitchHas512PortsAndEveryVlan) {
  Topology t = Topology::largeSwitch();
  EXPECT_EQ(t.ethPorts, 512u);
  EXPECT_EQ(t.queuesPerPort, 8u);
  EXPECT_EQ(t.vlans, 4094u);
  EXPECT_EQ(t.pollPeriod, 1.0);
  EXPECT_NO_THROW(t.validate());
}

TEST(Topology, ParsesEveryFieldAndKeepsDefaultsForTheRest) {
  Topology t = Topology::fromJsonText(R"({
      "ethPorts": 4, "queuesPerPort": 4, "fabricPorts": 0, "vlanIntfs": 2, "vlans": 3,
      "coppClasses": ["c1", "c2"], "portSpeedBps": 1e9, "pollPeriod": 0.5,
      "vlanPollInterval": 0.25, "firstPollDelay": 0.2, "seed": 7})");
  EXPECT_EQ(t.ethPorts, 4u);
  EXPECT_EQ(t.queuesPerPort, 4u);
  EXPECT_EQ(t.fabricPorts, 0u);
  EXPECT_EQ(t.vlanIntfs, 2u);
  EXPECT_EQ(t.vlans, 3u);
  EXPECT_EQ(t.coppClasses, (std::vector<std::string>{"c1", "c2"}));
  EXPECT_EQ(t.portSpeedBps, 1e9);
  EXPECT_EQ(t.pollPeriod, 0.5);
  EXPECT_EQ(t.vlanPollInterval, 0.25);
  EXPECT_EQ(t.firstPollDelay, 0.2);
  EXPECT_EQ(t.seed, 7u);

  Topology partial = Topology::fromJsonText(R"({"ethPorts": 2})");
  EXPECT_EQ(partial.ethPorts, 2u);
  EXPECT_EQ(partial.queuesPerPort, Topology().queuesPerPort);
  EXPECT_EQ(partial.coppClasses, Topology().coppClasses);
}

TEST(Topology, AcceptsAnEmptyObjectAsTheDefaultSwitch) {
  Topology t = Topology::fromJsonText("{}");
  EXPECT_EQ(t.ethPorts, Topology().ethPorts);
  EXPECT_EQ(t.seed, Topology().seed);
}

TEST(Topology, RejectsUnknownFieldNamingIt) {
  EXPECT_EQ(errorOf(R"({"ports": 4})"), "topology: unknown field 'ports'");
  // Only the spelling of the fields above is accepted.
  EXPECT_EQ(errorOf(R"({"eth_ports": 4})"), "topology: unknown field 'eth_ports'");
}

TEST(Topology, RejectsValueOfTheWrongType) {
  EXPECT_EQ(errorOf(R"({"ethPorts": "4"})"), "topology: field 'ethPorts' must be a number");
  EXPECT_EQ(errorOf(R"({"pollPeriod": true})"), "topology: field 'pollPeriod' must be a number");
  EXPECT_EQ(errorOf(R"({"coppClasses": "c1"})"), "topology: field 'coppClasses' must be an array");
  EXPECT_EQ(errorOf(R"({"coppClasses": ["c1", 2]})"),
            "topology: 'coppClasses' entries must be strings");
}

TEST(Topology, RejectsNegativeOrFractionalCounts) {
  EXPECT_EQ(errorOf(R"({"ethPorts": -1})"),
            "topology: field 'ethPorts' must be a non-negative integer");
  EXPECT_EQ(errorOf(R"({"vlans": 1.5})"), "topology: field 'vlans' must be a non-negative integer");
}

TEST(Topology, RejectsCountTooLargeForItsFieldInsteadOfTruncating) {
  // 2^32 + 1 would read as 1 port if it were cut to 32 bits.
  EXPECT_EQ(errorOf(R"({"ethPorts": 4294967297})"), "topology: field 'ethPorts' is too large");
  // The seed takes the whole unsigned 64-bit range.
  EXPECT_EQ(Topology::fromJsonText(R"({"seed": 18446744073709551615})").seed,
            18446744073709551615ull);
}

TEST(Topology, RejectsOutOfRangeValuesWithTheirRange) {
  EXPECT_EQ(errorOf(R"({"ethPorts": 0})"), "topology: ethPorts must be 1..4000");
  EXPECT_EQ(errorOf(R"({"ethPorts": 4001})"), "topology: ethPorts must be 1..4000");
  EXPECT_EQ(errorOf(R"({"queuesPerPort": 17})"), "topology: queuesPerPort must be 0..16");
  EXPECT_EQ(errorOf(R"({"fabricPorts": 65})"), "topology: fabricPorts must be 0..64");
  EXPECT_EQ(errorOf(R"({"vlanIntfs": 4095})"), "topology: vlanIntfs must be 0..4094");
  EXPECT_EQ(errorOf(R"({"vlans": 4095})"), "topology: vlans must be 0..4094");
  EXPECT_EQ(errorOf(R"({"portSpeedBps": 0})"), "topology: portSpeedBps must be positive");
  EXPECT_EQ(errorOf(R"({"pollPeriod": -0.5})"), "topology: pollPeriod must be >= 0");
  EXPECT_EQ(errorOf(R"({"vlanPollInterval": -1})"), "topology: vlanPollInterval must be >= 0");
  EXPECT_EQ(errorOf(R"({"firstPollDelay": -1})"), "topology: firstPollDelay must be >= 0");
  EXPECT_EQ(errorOf(R"({"coppClasses": [""]})"),
            "topology: coppClasses names must be 1..47 characters");
  EXPECT_EQ(errorOf(R"({"coppClasses": [")" + std::string(48, 'c') + R"("]})"),
            "topology: coppClasses names must be 1..47 characters");
}

TEST(Topology, RejectsBadJsonWithTheParserReason) {
  EXPECT_EQ(errorOf("{"),
            "topology: not valid JSON: [json.exception.parse_error.101] parse error at line 1, "
            "column 2: syntax error while parsing object key - unexpected end of input; "
            "expected string literal");
  EXPECT_EQ(errorOf(R"({"ethPorts": })"),
            "topology: not valid JSON: [json.exception.parse_error.101] parse error at line 1, "
            "column 14: syntax error while parsing value - unexpected '}'; expected '[', '{', or "
            "a literal");
}

TEST(Topology, RejectsJsonThatIsNotAnObject) {
  EXPECT_EQ(errorOf("[1, 2]"), "topology: expected a JSON object");
  EXPECT_EQ(errorOf("4"), "topology: expected a JSON object");
}

TEST(Topology, ReadsAFileAndNamesAFileItCannotRead) {
  std::string path = "/tmp/vorn-topology-test-" + std::to_string(::getpid()) + ".json";
  {
    std::ofstream out(path);
    out << R"({"ethPorts": 3, "vlans": 2})";
  }
  Topology t = Topology::fromFile(path);
  std::remove(path.c_str());
  EXPECT_EQ(t.ethPorts, 3u);
  EXPECT_EQ(t.vlans, 2u);

  try {
    Topology::fromFile(path);
    FAIL() << "a missing file must raise";
  } catch (const TopologyError& e) {
    EXPECT_EQ(std::string(e.what()), "topology: cannot read file '" + path + "'");
  }
}

}  // namespace
