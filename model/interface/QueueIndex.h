// Interface::QueueCounter::QueueIndex: the number of one egress queue of an
// interface, 0 to 16, as used to index the per-queue arrays of IntfQueueCounter.
//
// The bound is checked on construction and on every change, so an index from
// the platform helper (its queue map or a reading with too many entries) can
// never reach a record: it raises Zat::RangeException instead.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

namespace Interface::QueueCounter {

class QueueIndex {
 public:
  static constexpr uint8_t kMin = 0;
  static constexpr uint8_t kMax = 16;

  constexpr QueueIndex() = default;
  // Requires: value <= kMax; raises Zat::RangeException otherwise.
  constexpr explicit QueueIndex(uint64_t value) { valueIs(value); }

  constexpr uint8_t value() const { return value_; }
  // Requires: value <= kMax; raises Zat::RangeException otherwise (and keeps the old value).
  constexpr void valueIs(uint64_t value) {
    if (value > kMax) throwOutOfRange();
    value_ = static_cast<uint8_t>(value);
  }

  friend constexpr bool operator==(QueueIndex, QueueIndex) = default;
  friend constexpr std::strong_ordering operator<=>(QueueIndex, QueueIndex) = default;

 private:
  [[noreturn]] static void throwOutOfRange();

  uint8_t value_ = kMin;
};

inline std::ostream& operator<<(std::ostream& os, QueueIndex q) {
  return os << static_cast<unsigned>(q.value());
}

}  // namespace Interface::QueueCounter
