// A second, read-write mapping of a shared-memory table, for tests that damage
// a slot the way a stray write from another process would.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "brim/Brim.h"
#include "brim/Layout.h"
#include "support/RawTableBytes.h"

namespace VornTest {

class TableDamage {
 public:
  TableDamage(const std::string& ns, const std::string& table)
      : bytes_(Brim::tableName(ns, table)) {}

  const Brim::Layout::TableHeader& header() const {
    return *reinterpret_cast<const Brim::Layout::TableHeader*>(bytes_.bytes());
  }

  // The slot holding the key (its 64-bit encoding) live, if any.
  std::optional<uint32_t> liveSlotOf(uint64_t key) const {
    for (uint32_t slot = 0; slot < header().slotCount; ++slot) {
      const uint64_t* w = words(slot);
      if (Brim::Layout::loadWord(w[Brim::Layout::kStateWord]) == Brim::Layout::kLive &&
          Brim::Layout::loadWord(w[Brim::Layout::kKeyWord]) == key) {
        return slot;
      }
    }
    return std::nullopt;
  }

  // Flips bits of the record's second word, leaving the checksum stale.
  void damageRecord(uint32_t slot) {
    uint64_t& word = words(slot)[Brim::Layout::kSlotHeaderWords + 1];
    Brim::Layout::storeWord(word, Brim::Layout::loadWord(word) ^ 0x5a5a5a5aULL);
  }

  // Damages the live slot of `key`; false when the key has no live slot.
  bool damage(uint64_t key) {
    auto slot = liveSlotOf(key);
    if (!slot) return false;
    damageRecord(*slot);
    return true;
  }

 private:
  uint64_t* words(uint32_t slot) const {
    return reinterpret_cast<uint64_t*>(bytes_.bytes() + header().slotsOffset +
                                       static_cast<uint64_t>(slot) * header().slotSize);
  }

  RawTableBytes bytes_;
};

}  // namespace VornTest
