// Brim table view: the read side shared by TableWriter<Record> and TableReader<Record>:
// look-up, size, walks and validation of one shared-memory table.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "brim/Cursor.h"
#include "brim/RecordTraits.h"
#include "brim/TableCore.h"
#include "pontil/Assert.h"

namespace Brim {

template <class Record>
class TableView {
 public:
  using Key = typename Record::Key;
  using Traits = RecordTraits<Record>;

  TableView(const TableView&) = delete;
  TableView& operator=(const TableView&) = delete;
  virtual ~TableView() = default;

  // The record stored under `key`, or nullopt. Raises Pontil::CorruptionDetectedException
  // for a damaged slot on the key's probe path (bad placement, checksum, stuck sequence).
  std::optional<Record> find(const Key& key) const {
    typename Traits::Buffer buffer;
    if (!findInto(key, buffer.bytes)) return std::nullopt;
    return buffer.record();
  }
  // As find(), copying the record straight into `out` (no further copy): true when
  // found; a miss leaves `out` unchanged, damage leaves it unspecified.
  bool find(const Key& key, Record& out) const {
    return findInto(key, Traits::bytes(out)).has_value();
  }
  bool contains(const Key& key) const {
    return core_->lookup(Traits::keyBits(key), nullptr).has_value();
  }

  // Live records. A reader raises Pontil::CorruptionDetectedException for a count no
  // writer could have published or for damaged live header words.
  size_t size() const { return core_->size(); }
  // The most records the table accepts (fixed when it was created).
  uint32_t capacity() const { return core_->capacity(); }
  // Bumped each time a writer attaches; a reader that sees it change knows the
  // writer restarted. A reader raises as size() does.
  uint64_t generation() const { return core_->generation(); }
  // "<ns>.<table>".
  const std::string& name() const { return core_->name(); }

  // A walk in slot order. Requires: the table outlives the cursor.
  Cursor<Record> cursor() const { return Cursor<Record>(*core_); }

  // Calls visit(record) for every live record (the reference is valid during the call
  // only); damage ends the walk with Pontil::CorruptionDetectedException, and so does
  // a walk that met fewer or more live records than the table counts.
  template <class Visit>
  void forEach(Visit&& visit) const {
    Cursor<Record> walk = cursor();
    typename Traits::Buffer buffer;
    while (walk.next(buffer.record())) visit(std::as_const(buffer.record()));
  }
  // Calls visit(record) for every live record, and onCorruption(exception) for each
  // damaged slot (or damage reported by visit itself), then goes on with the next slot.
  template <class Visit, class OnCorruption>
  void forEach(Visit&& visit, OnCorruption&& onCorruption) const {
    Cursor<Record> walk = cursor();
    typename Traits::Buffer buffer;
    for (;;) {
      try {
        if (!walk.next(buffer.record())) return;
        visit(std::as_const(buffer.record()));
      } catch (const Pontil::CorruptionDetectedException& e) {
        onCorruption(e);
      }
    }
  }

  // One line per damage found in the header and slots; empty when the table is sound.
  std::vector<std::string> validate() const { return core_->validate(); }

 protected:
  explicit TableView(std::unique_ptr<detail::TableCore> core) : core_(std::move(core)) {}

  // Looks the key up, copying its record into `bytes`; the slot on a hit.
  std::optional<uint32_t> findInto(const Key& key, unsigned char* bytes) const {
    const uint64_t bits = Traits::keyBits(key);
    const std::optional<uint32_t> slot = core_->lookup(bits, bytes);
    if (slot) checkRecordKey(*slot, bits, bytes);
    return slot;
  }

  // A record read from `slot` of key `bits` carries that key in its own fields too.
  void checkRecordKey(uint32_t slot, uint64_t bits, const unsigned char* bytes) const {
    core_->checkRecordKey(
        slot, bits, Traits::keyBits(std::launder(reinterpret_cast<const Record*>(bytes))->key()));
  }

  std::unique_ptr<detail::TableCore> core_;
};

}  // namespace Brim
