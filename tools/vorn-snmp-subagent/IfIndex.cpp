#include "tools/vorn-snmp-subagent/IfIndex.h"

namespace Snmp {

namespace {
constexpr uint32_t kEthernetSubMax = 99;
constexpr uint32_t kEthernetFirstScale = 10000;
constexpr uint32_t kEthernetSecondScale = 100;
constexpr uint32_t kSpan = 100000000u;  // each non-Ethernet kind owns one such range
}  // namespace

std::optional<uint32_t> ifIndexOf(Orvo::IntfId id) {
  const uint32_t p0 = id.part(0), p1 = id.part(1), p2 = id.part(2);
  switch (id.kind()) {
    case Orvo::IntfId::Kind::Ethernet:
      if (p0 == 0 || p1 > kEthernetSubMax || p2 > kEthernetSubMax) return std::nullopt;
      return p0 * kEthernetFirstScale + p1 * kEthernetSecondScale + p2;
    case Orvo::IntfId::Kind::Vlan:
      if (p0 == 0 || p1 != 0 || p2 != 0) return std::nullopt;
      return kVlanIfIndexBase + p0;
    case Orvo::IntfId::Kind::Cpu:
      if (p1 != 0 || p2 != 0) return std::nullopt;
      return kCpuIfIndexBase + p0;
    case Orvo::IntfId::Kind::Fabric:
      if (p0 == 0 || p1 != 0 || p2 != 0) return std::nullopt;
      return kFabricIfIndexBase + p0;
    case Orvo::IntfId::Kind::None:
      break;
  }
  return std::nullopt;
}

std::optional<Orvo::IntfId> intfIdOf(uint32_t ifIndex) {
  // Built by appending: gcc 12 at -O3 warns falsely (-Wrestrict) on
  // "literal" + std::to_string(...).
  std::string name;
  auto numbered = [&name](const char* kind, uint32_t n) {
    name = kind;
    name.append(std::to_string(n));
  };
  if (ifIndex >= kFabricIfIndexBase && ifIndex < kFabricIfIndexBase + kSpan) {
    numbered("Fabric", ifIndex - kFabricIfIndexBase);
  } else if (ifIndex >= kCpuIfIndexBase && ifIndex < kCpuIfIndexBase + kSpan) {
    uint32_t n = ifIndex - kCpuIfIndexBase;
    if (n == 0) {
      name = "Cpu";
    } else {
      numbered("Cpu", n);
    }
  } else if (ifIndex >= kVlanIfIndexBase && ifIndex < kVlanIfIndexBase + kSpan) {
    numbered("Vlan", ifIndex - kVlanIfIndexBase);
  } else if (ifIndex < kVlanIfIndexBase) {
    uint32_t a = ifIndex / kEthernetFirstScale;
    uint32_t b = ifIndex / kEthernetSecondScale % 100;
    uint32_t c = ifIndex % 100;
    if (a == 0 || (b == 0 && c != 0)) return std::nullopt;
    numbered("Ethernet", a);
    for (uint32_t sub : {b, c}) {
      if (sub == 0) continue;
      name.push_back('/');
      name.append(std::to_string(sub));
    }
  } else {
    return std::nullopt;
  }
  try {
    Orvo::IntfId id(name);
    auto back = ifIndexOf(id);
    if (!back || *back != ifIndex) return std::nullopt;
    return id;
  } catch (const Orvo::InvalidIntfNameException&) {
    return std::nullopt;
  }
}

}  // namespace Snmp
