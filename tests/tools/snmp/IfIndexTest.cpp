#include <gtest/gtest.h>

#include "tools/vorn-snmp-subagent/IfIndex.h"

namespace Snmp {
namespace {

uint32_t indexOf(const char* name) { return ifIndexOf(Orvo::IntfId(name)).value_or(0); }

TEST(IfIndex, FollowsTheDocumentedDecimalScheme) {
  EXPECT_EQ(indexOf("Ethernet1"), 10000u);
  EXPECT_EQ(indexOf("Ethernet3/1"), 30100u);
  EXPECT_EQ(indexOf("Ethernet3/1/2"), 30102u);
  EXPECT_EQ(indexOf("Ethernet512"), 5120000u);
  EXPECT_EQ(indexOf("Ethernet65535/99/99"), 655359999u);
  EXPECT_EQ(indexOf("Vlan1"), 1000000001u);
  EXPECT_EQ(indexOf("Vlan4094"), 1000004094u);
  EXPECT_EQ(indexOf("Cpu"), 1100000000u);
  EXPECT_EQ(indexOf("Cpu2"), 1100000002u);
  EXPECT_EQ(indexOf("Fabric7"), 1200000007u);
}

TEST(IfIndex, EthernetSubNumbersAbove99HaveNoIndex) {
  EXPECT_FALSE(ifIndexOf(Orvo::IntfId("Ethernet1/100")).has_value());
  EXPECT_FALSE(ifIndexOf(Orvo::IntfId("Ethernet1/1/100")).has_value());
  EXPECT_FALSE(ifIndexOf(Orvo::IntfId()).has_value());
}

TEST(IfIndex, EveryIndexIsAPositive31BitNumberAndOrderFollowsTheIds) {
  const char* names[] = {"Ethernet1", "Ethernet1/1", "Ethernet1/1/1", "Ethernet1/2",
                         "Ethernet2", "Ethernet10",  "Ethernet65535", "Vlan1",
                         "Vlan4094",  "Cpu",         "Cpu1",          "Fabric1"};
  uint32_t previous = 0;
  for (const char* n : names) {
    uint32_t i = indexOf(n);
    EXPECT_GT(i, previous) << n;
    EXPECT_LE(i, 2147483647u) << n;
    previous = i;
  }
}

TEST(IfIndex, IndexesMapBackToTheirInterfaces) {
  for (const char* n : {"Ethernet1", "Ethernet3/1", "Ethernet3/1/2", "Ethernet48", "Vlan10", "Cpu",
                        "Cpu3", "Fabric2"}) {
    auto back = intfIdOf(indexOf(n));
    ASSERT_TRUE(back.has_value()) << n;
    EXPECT_EQ(back->stringValue(), n);
  }
  for (uint32_t bad : {0u, 1u, 10001u, 10050u, 1000000000u, 1000004095u, 1300000000u}) {
    EXPECT_FALSE(intfIdOf(bad).has_value()) << bad;
  }
}

}  // namespace
}  // namespace Snmp
