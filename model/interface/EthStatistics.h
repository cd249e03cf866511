// Interface::EthStatistics: the Ethernet-specific counters of one port.
//
// Like IntfStatistics it serves as hardware reading, per-poll difference and
// published running total (the ethStatistics of EthIntfCounterBrim). Every field
// is an unsigned 64-bit counter, so the record is also indexed by field number:
// the reader tool prints it from fieldName()/field() without knowing the names.
//
// The receive-error counters alignmentErrors .. internalMacReceiveErrors add up
// to IntfStatistics::inErrors and the transmit-error counters sqeTestErrors ..
// carrierSenseErrors to IntfStatistics::outErrors; the port poller checks both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <type_traits>

// The fields in layout order.
#define VORN_ETH_STATISTICS_FIELDS(X) \
  X(alignmentErrors)                  \
  X(fcsErrors)                        \
  X(frameTooLongs)                    \
  X(frameTooShorts)                   \
  X(internalMacReceiveErrors)         \
  X(symbolErrors)                     \
  X(sqeTestErrors)                    \
  X(lateCollisions)                   \
  X(excessiveCollisions)              \
  X(internalMacTransmitErrors)        \
  X(carrierSenseErrors)               \
  X(deferredTransmissions)            \
  X(singleCollisionFrames)            \
  X(multipleCollisionFrames)          \
  X(inPauseFrames)                    \
  X(outPauseFrames)                   \
  X(inFrames64)                       \
  X(inFrames65To127)                  \
  X(inFrames128To255)                 \
  X(inFrames256To511)                 \
  X(inFrames512To1023)                \
  X(inFrames1024To1522)               \
  X(inFrames1523ToMax)                \
  X(outFrames64)                      \
  X(outFrames65To127)                 \
  X(outFrames128To255)                \
  X(outFrames256To511)                \
  X(outFrames512To1023)               \
  X(outFrames1024To1522)              \
  X(outFrames1523ToMax)

namespace Interface {

class EthStatistics {
 public:
  // Field numbers, in layout order.
  enum class Field : size_t {
#define VORN_ENUM(name) name,
    VORN_ETH_STATISTICS_FIELDS(VORN_ENUM)
#undef VORN_ENUM
  };
#define VORN_COUNT(name) +1
  static constexpr size_t kFieldCount = 0 VORN_ETH_STATISTICS_FIELDS(VORN_COUNT);
#undef VORN_COUNT

  constexpr EthStatistics() = default;

#define VORN_ACCESSORS(name)                                             \
  constexpr uint64_t name() const { return fields_[slot(Field::name)]; } \
  constexpr void name##Is(uint64_t value) { fields_[slot(Field::name)] = value; }
  VORN_ETH_STATISTICS_FIELDS(VORN_ACCESSORS)
#undef VORN_ACCESSORS

  // Indexed access. Requires: index < kFieldCount.
  static const char* fieldName(size_t index);
  uint64_t field(size_t index) const;
  void fieldIs(size_t index, uint64_t value);

  friend bool operator==(const EthStatistics&, const EthStatistics&) = default;
  // Every poll runs both operators, so they work on the field array directly.
  friend EthStatistics operator-(const EthStatistics& a, const EthStatistics& b);
  friend EthStatistics operator+(const EthStatistics& a, const EthStatistics& b);

 private:
  static constexpr size_t slot(Field f) { return static_cast<size_t>(f); }

  uint64_t fields_[kFieldCount] = {};
};

// Field by field a - b and a + b, modulo 2^64 (no wrap or reset detection).
EthStatistics operator-(const EthStatistics& a, const EthStatistics& b);
EthStatistics operator+(const EthStatistics& a, const EthStatistics& b);

std::ostream& operator<<(std::ostream& os, const EthStatistics& stats);

static_assert(sizeof(EthStatistics) == 8 * EthStatistics::kFieldCount);
static_assert(alignof(EthStatistics) <= 8);
static_assert(std::is_trivially_copyable_v<EthStatistics>);

}  // namespace Interface
