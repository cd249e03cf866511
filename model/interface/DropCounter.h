// Brim::Interface::DropCounter: the ACL drop count of one interface, one record
// per interface in the shared-memory table "intfAclDropCountersDir". The root
// adds the record when it starts serving the interface; the ACL drop poller
// overwrites dropCount with the helper's absolute count on every poll.
#pragma once

#include <cstdint>
#include <ostream>
#include <type_traits>

#include "orvo/IntfId.h"

namespace Brim::Interface {

class DropCounter {
 public:
  using Key = Orvo::IntfId;
  static constexpr const char* kTypeName = "Brim::Interface::DropCounter";

  constexpr DropCounter() = default;
  constexpr explicit DropCounter(Orvo::IntfId intfId, uint64_t dropCount = 0)
      : intfId_(intfId), dropCount_(dropCount) {}

  constexpr Key key() const { return intfId_; }

  constexpr Orvo::IntfId intfId() const { return intfId_; }
  constexpr void intfIdIs(Orvo::IntfId value) { intfId_ = value; }
  // Packets dropped by ACLs since the hardware counter was last reset.
  constexpr uint64_t dropCount() const { return dropCount_; }
  constexpr void dropCountIs(uint64_t value) { dropCount_ = value; }

  friend bool operator==(const DropCounter&, const DropCounter&) = default;

 private:
  Orvo::IntfId intfId_;
  uint64_t dropCount_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, const DropCounter& record) {
  return os << "{intfId: " << record.intfId() << ", dropCount: " << record.dropCount() << "}";
}

static_assert(sizeof(DropCounter) == 16 && alignof(DropCounter) <= 8);
static_assert(std::is_trivially_copyable_v<DropCounter>);

}  // namespace Brim::Interface
