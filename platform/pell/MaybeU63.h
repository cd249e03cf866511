// Pell::MaybeU63: an optional unsigned 63-bit counter packed into 8 bytes.
//
// Counter records carry counters that some chips do not provide. The top bit
// marks presence, so the value fits the record's fixed 8-byte slot and records
// stay trivially copyable for the shared-memory tables.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>

namespace Pell {

class MaybeU63 {
 public:
  static constexpr uint64_t kValueMask = (uint64_t{1} << 63) - 1;

  constexpr MaybeU63() = default;
  // A present value; bits above 63 are dropped.
  constexpr explicit MaybeU63(uint64_t value) : bits_(kPresent | (value & kValueMask)) {}
  static constexpr MaybeU63 absent() { return MaybeU63(); }

  constexpr bool hasValue() const { return (bits_ & kPresent) != 0; }
  // Requires: hasValue(); an absent counter reads 0.
  constexpr uint64_t value() const { return bits_ & kValueMask; }
  constexpr std::optional<uint64_t> optional() const {
    return hasValue() ? std::optional<uint64_t>(value()) : std::nullopt;
  }
  constexpr uint64_t raw() const { return bits_; }

  friend constexpr bool operator==(MaybeU63 a, MaybeU63 b) { return a.bits_ == b.bits_; }

 private:
  static constexpr uint64_t kPresent = uint64_t{1} << 63;
  uint64_t bits_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, MaybeU63 m) {
  if (m.hasValue()) return os << m.value();
  return os << "-";
}

}  // namespace Pell
