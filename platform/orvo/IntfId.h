// Orvo: network identifier types shared by the agent and the counters component.
//
// An IntfId names one interface ("Ethernet3", "Ethernet3/1", "Vlan10", "Cpu",
// "Fabric1") in 64 bits, so it can be the key of hash maps, ordered maps and the
// fixed-size key field of shared-memory table records. The layout of the 64 bits:
// kind in bits 56..63, then up to three 16-bit numbers (module, port, lane) in
// bits 32..47, 16..31 and 0..15; bits 48..55 are zero. Numbers start at 1, so a
// zero part means "absent": "Ethernet3" < "Ethernet3/1" < "Ethernet3/2" < "Ethernet4".
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Orvo {

// Raised for a name that is not a well-formed interface name; never a wrong id.
class InvalidIntfNameException : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

class IntfId {
 public:
  enum class Kind : uint8_t { None = 0, Ethernet = 1, Vlan = 2, Cpu = 3, Fabric = 4 };

  constexpr IntfId() = default;
  // Parses an interface name. Requires: a well-formed name; otherwise raises
  // InvalidIntfNameException("invalid interface name '<name>': <reason>").
  explicit IntfId(std::string_view name);
  IntfId(const char* name) : IntfId(std::string_view(name)) {}
  IntfId(const std::string& name) : IntfId(std::string_view(name)) {}

  // The id whose 64-bit encoding is `value` (as stored in a table record).
  static constexpr IntfId fromValue(uint64_t value) {
    IntfId id;
    id.value_ = value;
    return id;
  }
  constexpr uint64_t value() const { return value_; }
  constexpr Kind kind() const { return static_cast<Kind>(value_ >> 56); }
  // The numbers after the kind's prefix: part(0) is the first, 0 when absent.
  constexpr uint16_t part(int i) const { return static_cast<uint16_t>(value_ >> (16 * (2 - i))); }
  constexpr bool isNull() const { return value_ == 0; }

  // The canonical name, which parses back to the same id; "" for the null id.
  // A value no name parses to (from a damaged record) prints as "IntfId(0x<hex>)".
  std::string stringValue() const;

  friend constexpr bool operator==(IntfId a, IntfId b) = default;
  friend constexpr std::strong_ordering operator<=>(IntfId a, IntfId b) {
    return a.value_ <=> b.value_;
  }

 private:
  uint64_t value_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IntfId& id);

struct EthIntfId {
  static constexpr bool isEthIntfId(IntfId id) { return id.kind() == IntfId::Kind::Ethernet; }
};

struct VlanIntfId {
  static constexpr bool isVlanIntfId(IntfId id) { return id.kind() == IntfId::Kind::Vlan; }
  // Requires: isVlanIntfId(id).
  static constexpr uint16_t vlanId(IntfId id) { return id.part(0); }
  // The VLAN interface of VLAN `vlan`. Requires: 1 <= vlan <= 4094; otherwise
  // raises InvalidIntfNameException as parsing "Vlan<vlan>" would.
  static IntfId vlanIntfId(uint16_t vlan);
};

struct FabricIntfId {
  static constexpr bool isFabricIntfId(IntfId id) { return id.kind() == IntfId::Kind::Fabric; }
};

}  // namespace Orvo

template <>
struct std::hash<Orvo::IntfId> {
  size_t operator()(const Orvo::IntfId& id) const noexcept {
    // Mix so that consecutive port numbers spread over a hash table.
    uint64_t x = id.value() * 0x9E3779B97F4A7C15ull;
    return static_cast<size_t>(x ^ (x >> 29));
  }
};
