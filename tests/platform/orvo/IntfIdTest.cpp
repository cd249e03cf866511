#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "orvo/IntfId.h"

namespace Orvo {
namespace {

using Kind = IntfId::Kind;

std::string errorText(std::string_view name) {
  try {
    IntfId id(name);
    return "no error, parsed as " + id.stringValue();
  } catch (const InvalidIntfNameException& e) {
    return e.what();
  }
}

TEST(IntfId, DefaultIsNullAndPrintsEmpty) {
  IntfId id;
  EXPECT_TRUE(id.isNull());
  EXPECT_EQ(id.value(), 0u);
  EXPECT_EQ(id.kind(), Kind::None);
  EXPECT_EQ(id.stringValue(), "");
}

TEST(IntfId, ParsesEthernetWithOneTwoOrThreeNumbers) {
  IntfId one("Ethernet3");
  EXPECT_EQ(one.kind(), Kind::Ethernet);
  EXPECT_EQ(one.part(0), 3);
  EXPECT_EQ(one.part(1), 0);
  EXPECT_EQ(one.part(2), 0);
  EXPECT_EQ(one.value(), 0x0100'0003'0000'0000ull);

  IntfId two("Ethernet3/1");
  EXPECT_EQ(two.kind(), Kind::Ethernet);
  EXPECT_EQ(two.part(0), 3);
  EXPECT_EQ(two.part(1), 1);
  EXPECT_EQ(two.part(2), 0);

  IntfId three("Ethernet65535/2/65535");
  EXPECT_EQ(three.kind(), Kind::Ethernet);
  EXPECT_EQ(three.part(0), 65535);
  EXPECT_EQ(three.part(1), 2);
  EXPECT_EQ(three.part(2), 65535);
  EXPECT_EQ(three.value(), 0x0100'FFFF'0002'FFFFull);
}

TEST(IntfId, ParsesVlanCpuAndFabric) {
  IntfId vlan("Vlan4094");
  EXPECT_EQ(vlan.kind(), Kind::Vlan);
  EXPECT_EQ(vlan.part(0), 4094);
  EXPECT_EQ(vlan.value(), 0x0200'0FFE'0000'0000ull);
  EXPECT_EQ(IntfId("Vlan1").part(0), 1);

  IntfId cpu("Cpu");
  EXPECT_EQ(cpu.kind(), Kind::Cpu);
  EXPECT_EQ(cpu.part(0), 0);
  EXPECT_FALSE(cpu.isNull());

  IntfId cpu2("Cpu2");
  EXPECT_EQ(cpu2.kind(), Kind::Cpu);
  EXPECT_EQ(cpu2.part(0), 2);
  EXPECT_NE(cpu, cpu2);

  IntfId fabric("Fabric7");
  EXPECT_EQ(fabric.kind(), Kind::Fabric);
  EXPECT_EQ(fabric.part(0), 7);
}

TEST(IntfId, ConstructsFromEveryStringForm) {
  const std::string name = "Ethernet5/1";
  IntfId fromView{std::string_view(name)};
  IntfId fromString = name;
  IntfId fromChars = "Ethernet5/1";
  EXPECT_EQ(fromView, fromString);
  EXPECT_EQ(fromView, fromChars);
}

TEST(IntfId, StringValueRoundTripsToCanonicalName) {
  const std::vector<std::string> names = {
      "Ethernet1", "Ethernet48", "Ethernet3/1", "Ethernet3/1/4", "Ethernet65535/65535/65535",
      "Vlan1",     "Vlan10",     "Vlan4094",    "Cpu",           "Cpu1",
      "Cpu65535",  "Fabric1",    "Fabric65535"};
  for (const std::string& name : names) {
    IntfId id(name);
    EXPECT_EQ(id.stringValue(), name);
    EXPECT_EQ(IntfId(id.stringValue()), id) << name;
  }
}

TEST(IntfId, FromValueOfValueIsTheSameId) {
  for (const char* name : {"Ethernet3/1/4", "Vlan10", "Cpu", "Cpu3", "Fabric2", "Ethernet9"}) {
    IntfId id(name);
    EXPECT_EQ(IntfId::fromValue(id.value()), id) << name;
    EXPECT_EQ(IntfId::fromValue(id.value()).stringValue(), name);
  }
  EXPECT_EQ(IntfId::fromValue(0), IntfId());
}

TEST(IntfId, ValueNoNameParsesToPrintsAsHex) {
  // Lane without port, VLAN 4095, a reserved byte, an unknown kind, a numbered null.
  EXPECT_EQ(IntfId::fromValue(0x0100'0003'0000'0001ull).stringValue(), "IntfId(0x100000300000001)");
  EXPECT_EQ(IntfId::fromValue(0x0200'0FFF'0000'0000ull).stringValue(), "IntfId(0x2000fff00000000)");
  EXPECT_EQ(IntfId::fromValue(0x0101'0003'0000'0000ull).stringValue(), "IntfId(0x101000300000000)");
  EXPECT_EQ(IntfId::fromValue(0x0900'0001'0000'0000ull).stringValue(), "IntfId(0x900000100000000)");
  EXPECT_EQ(IntfId::fromValue(0x0000'0001'0000'0000ull).stringValue(), "IntfId(0x100000000)");
  EXPECT_EQ(IntfId::fromValue(0x0400'0000'0000'0000ull).stringValue(), "IntfId(0x400000000000000)");
}

TEST(IntfId, OrdersByKindThenNumbersNumerically) {
  const std::vector<IntfId> expected = {"Ethernet2",   "Ethernet3",  "Ethernet3/1", "Ethernet3/1/1",
                                        "Ethernet3/2", "Ethernet10", "Vlan2",       "Vlan10",
                                        "Cpu",         "Cpu1",       "Fabric1",     "Fabric3"};
  std::vector<IntfId> ids = expected;
  std::reverse(ids.begin(), ids.end());
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(ids, expected);
  EXPECT_LT(IntfId(), IntfId("Ethernet1"));
  EXPECT_EQ(IntfId("Ethernet3") <=> IntfId("Ethernet3"), std::strong_ordering::equal);
}

TEST(IntfId, ServesAsOrderedMapKey) {
  std::map<IntfId, int> byId;
  byId["Ethernet10"] = 10;
  byId["Ethernet2"] = 2;
  byId["Vlan5"] = 5;
  byId[IntfId("Ethernet2")] += 100;
  ASSERT_EQ(byId.size(), 3u);
  std::vector<std::string> order;
  for (const auto& [id, n] : byId) order.push_back(id.stringValue() + "=" + std::to_string(n));
  EXPECT_EQ(order, (std::vector<std::string>{"Ethernet2=102", "Ethernet10=10", "Vlan5=5"}));
}

TEST(IntfId, ServesAsHashMapKey) {
  std::unordered_map<IntfId, std::string> names;
  for (int port = 1; port <= 64; ++port) {
    const std::string name = "Ethernet" + std::to_string(port) + "/1";
    names[IntfId(name)] = name;
  }
  names[IntfId("Vlan10")] = "Vlan10";
  ASSERT_EQ(names.size(), 65u);
  EXPECT_EQ(names.at(IntfId("Ethernet17/1")), "Ethernet17/1");
  EXPECT_EQ(names.at(IntfId("Vlan10")), "Vlan10");
  EXPECT_EQ(names.count(IntfId("Ethernet17")), 0u);
}

TEST(IntfId, EqualIdsHashEquallyAndNeighboursHashApart) {
  std::hash<IntfId> hash;
  EXPECT_EQ(hash(IntfId("Ethernet4/2")), hash(IntfId::fromValue(IntfId("Ethernet4/2").value())));
  std::unordered_set<size_t> hashes;
  for (int port = 1; port <= 256; ++port) {
    hashes.insert(hash(IntfId("Ethernet" + std::to_string(port))));
  }
  EXPECT_EQ(hashes.size(), 256u);
}

TEST(IntfId, KindTestsTellKindsApart) {
  const IntfId eth("Ethernet1/1"), vlan("Vlan100"), cpu("Cpu"), fabric("Fabric2"), none;
  EXPECT_TRUE(EthIntfId::isEthIntfId(eth));
  EXPECT_FALSE(EthIntfId::isEthIntfId(vlan));
  EXPECT_FALSE(EthIntfId::isEthIntfId(cpu));
  EXPECT_FALSE(EthIntfId::isEthIntfId(fabric));
  EXPECT_FALSE(EthIntfId::isEthIntfId(none));

  EXPECT_TRUE(VlanIntfId::isVlanIntfId(vlan));
  EXPECT_FALSE(VlanIntfId::isVlanIntfId(eth));
  EXPECT_FALSE(VlanIntfId::isVlanIntfId(cpu));
  EXPECT_FALSE(VlanIntfId::isVlanIntfId(fabric));
  EXPECT_FALSE(VlanIntfId::isVlanIntfId(none));
  EXPECT_EQ(VlanIntfId::vlanId(vlan), 100);

  EXPECT_TRUE(FabricIntfId::isFabricIntfId(fabric));
  EXPECT_FALSE(FabricIntfId::isFabricIntfId(eth));
  EXPECT_FALSE(FabricIntfId::isFabricIntfId(vlan));
  EXPECT_FALSE(FabricIntfId::isFabricIntfId(cpu));
  EXPECT_FALSE(FabricIntfId::isFabricIntfId(none));
}

TEST(IntfId, VlanIntfIdBuildsTheParsedVlanInterface) {
  EXPECT_EQ(VlanIntfId::vlanIntfId(1), IntfId("Vlan1"));
  EXPECT_EQ(VlanIntfId::vlanIntfId(4094), IntfId("Vlan4094"));
  EXPECT_EQ(VlanIntfId::vlanId(VlanIntfId::vlanIntfId(42)), 42);
  EXPECT_EQ(VlanIntfId::vlanIntfId(42).stringValue(), "Vlan42");
}

TEST(IntfId, VlanIntfIdRejectsVlanOutOfRange) {
  auto text = [](uint16_t vlan) -> std::string {
    try {
      VlanIntfId::vlanIntfId(vlan);
      return "no error";
    } catch (const InvalidIntfNameException& e) {
      return e.what();
    }
  };
  EXPECT_EQ(text(0), "invalid interface name 'Vlan0': VLAN id out of range 1..4094");
  EXPECT_EQ(text(4095), "invalid interface name 'Vlan4095': VLAN id out of range 1..4094");
}

TEST(IntfId, RejectsMalformedNameWithClearMessage) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "empty name"},
      {"Gig1", "unknown prefix"},
      {"ethernet3", "unknown prefix"},
      {"vlan10", "unknown prefix"},
      {"cpu", "unknown prefix"},
      {"fabric1", "unknown prefix"},
      {"Eth3", "unknown prefix"},
      {" Ethernet3", "unknown prefix"},
      {"Ethernet", "missing number"},
      {"Vlan", "missing number"},
      {"Fabric", "missing number"},
      {"Ethernet3/", "missing number"},
      {"Ethernet/3", "missing number"},
      {"Ethernet3//1", "missing number"},
      {"Ethernet-3", "missing number"},
      {"Ethernet+3", "missing number"},
      {"Ethernet 3", "missing number"},
      {"Cpux", "missing number"},
      {"Ethernet0", "number out of range 1..65535"},
      {"Ethernet3/0", "number out of range 1..65535"},
      {"Ethernet99999", "number out of range 1..65535"},
      {"Ethernet65536", "number out of range 1..65535"},
      {"Ethernet123456789012345678901234567890", "number out of range 1..65535"},
      {"Cpu0", "number out of range 1..65535"},
      {"Fabric0", "number out of range 1..65535"},
      {"Vlan0", "VLAN id out of range 1..4094"},
      {"Vlan99999", "VLAN id out of range 1..4094"},
      {"Vlan4095", "VLAN id out of range 1..4094"},
      {"Vlan65535", "VLAN id out of range 1..4094"},
      {"Ethernet03", "leading zero"},
      {"Ethernet3/01", "leading zero"},
      {"Ethernet00", "leading zero"},
      {"Ethernet3x", "trailing characters"},
      {"Ethernet3 ", "trailing characters"},
      {"Ethernet1/2/3/4", "trailing characters"},
      {"Vlan10/1", "trailing characters"},
      {"Cpu1/1", "trailing characters"},
      {"Fabric1a", "trailing characters"},
  };
  for (const auto& [name, reason] : cases) {
    EXPECT_EQ(errorText(name), "invalid interface name '" + name + "': " + reason);
  }
}

TEST(IntfId, MalformedNameIsAnInvalidArgument) {
  EXPECT_THROW(IntfId("Ethernet0"), std::invalid_argument);
}

TEST(IntfId, PrintsCanonicalNameOnStream) {
  std::ostringstream os;
  os << IntfId("Ethernet3/1") << ' ' << IntfId("Vlan10") << ' ' << IntfId("Cpu") << ' '
     << IntfId("Fabric2") << ' ' << '[' << IntfId() << ']';
  EXPECT_EQ(os.str(), "Ethernet3/1 Vlan10 Cpu Fabric2 []");
}

}  // namespace
}  // namespace Orvo
