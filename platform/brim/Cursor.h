// Brim cursor: a walk over a table's live records in slot order, for the writer's
// handlers (which may delete and write records as they go) and for readers.
//
// The walk is not a snapshot: every record returned is consistent, a key that is live
// for the whole walk is returned exactly once, and keys added or removed during the
// walk may or may not be seen. Keys never move while live, which is what makes
// deleting behind (or ahead of) the cursor safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "brim/RecordTraits.h"
#include "brim/TableCore.h"
#include "pontil/Assert.h"

namespace Brim {

template <class Record>
class Cursor {
 public:
  using Traits = RecordTraits<Record>;

  // Requires: the table outlives the cursor.
  explicit Cursor(const detail::TableCore& core) : core_(&core) {}

  // The next live record, or nullopt at the end of the table. Raises
  // Pontil::CorruptionDetectedException (or Brim::SlotBusyException) for a damaged
  // slot; the cursor has then already moved past that slot, so the caller can report
  // the damage and call next() again to carry on with the following one. A whole walk
  // that met no damage but another number of live records than the table counts
  // raises once at its end (records went missing), and the next call returns nullopt.
  std::optional<Record> next() {
    typename Traits::Buffer buffer;
    if (!next(buffer.bytes)) return std::nullopt;
    return buffer.record();
  }
  // As next(), copying the record into `out`; false at the end of the table.
  bool next(Record& out) { return next(Traits::bytes(out)); }

  // The slot of the record the last next() returned. Requires: one was returned.
  uint32_t lastSlot() const { return lastSlot_; }

  // The slot the next step starts from; slotCount() once the walk is over.
  uint32_t position() const { return position_; }
  bool atEnd() const { return position_ >= core_->slotCount(); }

 private:
  bool next(unsigned char* bytes) {
    try {
      uint64_t key = 0;
      const std::optional<uint32_t> slot = core_->nextLive(position_, bytes, key, walk_);
      if (!slot) return false;
      core_->checkRecordKey(
          *slot, key, Traits::keyBits(std::launder(reinterpret_cast<const Record*>(bytes))->key()));
      lastSlot_ = *slot;
      return true;
    } catch (const Pontil::CorruptionDetectedException&) {
      // Already reported to the caller: the end-of-walk count would only repeat it.
      walk_.damaged = true;
      throw;
    }
  }

  const detail::TableCore* core_;
  uint32_t position_ = 0;
  uint32_t lastSlot_ = 0;
  detail::WalkState walk_;
};

}  // namespace Brim
