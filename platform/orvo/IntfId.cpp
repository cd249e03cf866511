#include "orvo/IntfId.h"

#include <array>
#include <charconv>
#include <optional>

namespace Orvo {

namespace {

constexpr uint16_t kMaxVlan = 4094;

struct Prefix {
  std::string_view text;
  IntfId::Kind kind;
  int maxParts;       // how many '/'-separated numbers may follow
  bool numberNeeded;  // false only for the unnumbered CPU port "Cpu"
  uint16_t maxNumber;
  std::string_view outOfRange;
};

constexpr std::string_view kNumberOutOfRange = "number out of range 1..65535";
constexpr std::string_view kVlanOutOfRange = "VLAN id out of range 1..4094";

// No prefix is the start of another, so the first match is the only match.
constexpr std::array<Prefix, 4> kPrefixes{{
    {"Ethernet", IntfId::Kind::Ethernet, 3, true, 0xFFFF, kNumberOutOfRange},
    {"Vlan", IntfId::Kind::Vlan, 1, true, kMaxVlan, kVlanOutOfRange},
    {"Cpu", IntfId::Kind::Cpu, 1, false, 0xFFFF, kNumberOutOfRange},
    {"Fabric", IntfId::Kind::Fabric, 1, true, 0xFFFF, kNumberOutOfRange},
}};

constexpr uint64_t encode(IntfId::Kind kind, uint16_t p0, uint16_t p1, uint16_t p2) {
  return uint64_t{static_cast<uint8_t>(kind)} << 56 | uint64_t{p0} << 32 | uint64_t{p1} << 16 |
         uint64_t{p2};
}

[[noreturn]] void reject(std::string_view name, std::string_view reason) {
  std::string message = "invalid interface name '";
  message.append(name).append("': ").append(reason);
  throw InvalidIntfNameException(message);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads one number in 1..prefix.maxNumber from the front of `rest` and removes it.
uint16_t takeNumber(std::string_view name, const Prefix& prefix, std::string_view& rest) {
  size_t n = 0;
  while (n < rest.size() && isDigit(rest[n])) ++n;
  if (n == 0) reject(name, "missing number");
  if (rest[0] == '0' && n > 1) reject(name, "leading zero");
  // Stops once past 65535, so a long run of digits cannot overflow.
  uint32_t value = 0;
  for (size_t i = 0; i < n && value <= 0xFFFF; ++i) value = value * 10 + (rest[i] - '0');
  if (value == 0 || value > prefix.maxNumber) reject(name, prefix.outOfRange);
  rest.remove_prefix(n);
  return static_cast<uint16_t>(value);
}

uint64_t parse(std::string_view name) {
  if (name.empty()) reject(name, "empty name");
  const Prefix* prefix = nullptr;
  for (const Prefix& p : kPrefixes) {
    if (name.starts_with(p.text)) {
      prefix = &p;
      break;
    }
  }
  if (prefix == nullptr) reject(name, "unknown prefix");

  std::string_view rest = name.substr(prefix->text.size());
  std::array<uint16_t, 3> parts{};
  if (!rest.empty() || prefix->numberNeeded) {
    for (int i = 0; i < prefix->maxParts; ++i) {
      parts[i] = takeNumber(name, *prefix, rest);
      if (rest.empty() || rest[0] != '/' || i + 1 == prefix->maxParts) break;
      rest.remove_prefix(1);
    }
  }
  if (!rest.empty()) reject(name, "trailing characters");
  return encode(prefix->kind, parts[0], parts[1], parts[2]);
}

// How many numbers a parsed id of this value carries, or nullopt when no name
// parses to it (a value read from a damaged table record, for instance).
std::optional<int> canonicalPartCount(IntfId id) {
  const uint64_t v = id.value();
  if ((v >> 48 & 0xFF) != 0) return std::nullopt;
  const uint16_t p0 = id.part(0), p1 = id.part(1), p2 = id.part(2);
  switch (id.kind()) {
    case IntfId::Kind::None:
      if (v == 0) return 0;
      return std::nullopt;
    case IntfId::Kind::Ethernet:
      // Numbers start at 1, so a zero marks the end; nothing may follow it.
      if (p0 == 0 || (p1 == 0 && p2 != 0)) return std::nullopt;
      return p1 == 0 ? 1 : p2 == 0 ? 2 : 3;
    case IntfId::Kind::Vlan:
      if (p0 == 0 || p0 > kMaxVlan || p1 != 0 || p2 != 0) return std::nullopt;
      return 1;
    case IntfId::Kind::Cpu:
      if (p1 != 0 || p2 != 0) return std::nullopt;
      return p0 == 0 ? 0 : 1;
    case IntfId::Kind::Fabric:
      if (p0 == 0 || p1 != 0 || p2 != 0) return std::nullopt;
      return 1;
  }
  return std::nullopt;
}

std::string_view prefixOf(IntfId::Kind kind) {
  for (const Prefix& p : kPrefixes) {
    if (p.kind == kind) return p.text;
  }
  return {};
}

void appendNumber(std::string& out, uint64_t value, int base) {
  char buf[20];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value, base);
  (void)ec;  // 20 characters hold any 64-bit value in base 10 or 16
  out.append(buf, end);
}

}  // namespace

IntfId::IntfId(std::string_view name) : value_(parse(name)) {}

std::string IntfId::stringValue() const {
  std::string out;
  const std::optional<int> count = canonicalPartCount(*this);
  if (!count) {
    // Deliberately not a parsable name: a damaged key must not pass for a real interface.
    out = "IntfId(0x";
    appendNumber(out, value_, 16);
    out += ')';
    return out;
  }
  if (isNull()) return out;
  out.reserve(24);
  out.append(prefixOf(kind()));
  for (int i = 0; i < *count; ++i) {
    if (i > 0) out += '/';
    appendNumber(out, part(i), 10);
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const IntfId& id) { return os << id.stringValue(); }

IntfId VlanIntfId::vlanIntfId(uint16_t vlan) {
  if (vlan == 0 || vlan > kMaxVlan) {
    reject("Vlan" + std::to_string(vlan), kVlanOutOfRange);
  }
  return IntfId::fromValue(encode(IntfId::Kind::Vlan, vlan, 0, 0));
}

}  // namespace Orvo
