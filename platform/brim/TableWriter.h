// Brim table writer: the one process (the agent) that owns a shared-memory counter
// table and writes its records, while any number of reader processes look on.
//
// The writer never waits for readers: each change is published with a per-slot
// sequence count that readers check, so the poll path costs a copy and a checksum.
// Records survive a writer restart: a new writer attaches to the existing table.
// Requires of callers: one thread at a time per writer object.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "brim/Exceptions.h"
#include "brim/SharedObject.h"
#include "brim/TableView.h"
#include "pontil/Assert.h"

namespace Brim {

template <class Record>
class TableWriter : public TableView<Record> {
 public:
  using Key = typename Record::Key;
  using Traits = RecordTraits<Record>;

  // Creates table "<ns>.<table>" for `capacity` records, or attaches to an existing
  // one of the same record layout, keeping its records (with the capacity it was
  // created with), bumping its generation and repairing slots that a writer killed
  // mid-write left behind (see attachReport()). A table of the first layout is
  // rebuilt in the current one, keeping every record that passes the old checksum,
  // and replaces the old object under the same name. Raises WriterBusyException when
  // another process writes the table, LayoutMismatchException when it holds another
  // record layout, Pontil::CorruptionDetectedException when its header is damaged.
  // Requires: valid names (see tableName()) and 1 <= capacity <= 2^24.
  static std::unique_ptr<TableWriter> open(const std::string& ns, const std::string& table,
                                           uint32_t capacity) {
    return std::unique_ptr<TableWriter>(new TableWriter(
        detail::WriterCore::open(tableName(ns, table), Traits::layout(), capacity)));
  }

  // Inserts the record, or overwrites the one with the same key. Raises
  // TableFullException, changing nothing, for a new key when size() == capacity().
  void put(const Record& record) {
    writer_->put(Traits::keyBits(record.key()), Traits::bytes(record));
  }

  // Where a live key's record sits, for a writer that publishes the same keys over and
  // over: putAt() with it skips the look-up. A handle is never wrong, only stale: once
  // its key is deleted (and maybe inserted again elsewhere), putAt() notices and
  // falls back to put().
  class Slot {
   public:
    const Key& key() const { return key_; }

   private:
    friend class TableWriter;
    Slot(const Key& key, uint32_t slot) : key_(key), slot_(slot) {}
    Key key_;
    uint32_t slot_;
  };

  // The handle of the key's slot, or nullopt when the key is not live.
  std::optional<Slot> slotOf(const Key& key) const {
    const std::optional<uint32_t> slot = this->core_->lookup(Traits::keyBits(key), nullptr);
    if (!slot) return std::nullopt;
    return Slot(key, *slot);
  }

  // As find(key, out), reading straight from the handle's slot while it still holds
  // the key live. Otherwise a full look-up, which points the handle at the key's slot
  // (or empties it on a miss). `slot` must be empty or a handle of `key`.
  bool findAt(std::optional<Slot>& slot, const Key& key, Record& out) const {
    return findAtInto(slot, key, Traits::bytes(out));
  }
  // As findAt(), into the bytes of a record; after a miss they are unspecified.
  bool findAtInto(std::optional<Slot>& slot, const Key& key, unsigned char* bytes) const {
    const uint64_t bits = Traits::keyBits(key);
    if (slot && Traits::keyBits(slot->key_) == bits &&
        this->core_->readAt(slot->slot_, bits, bytes)) {
      this->checkRecordKey(slot->slot_, bits, bytes);
      return true;
    }
    const std::optional<uint32_t> at = this->findInto(key, bytes);
    if (at) {
      slot = Slot(key, *at);
    } else {
      slot.reset();
    }
    return at.has_value();
  }

  // As put(record), straight into the handle's slot while it still holds the key live;
  // otherwise a full put() that also points the handle at the key's new slot.
  // Requires: record.key() is the handle's key; otherwise the fatal assertion
  // "BrimMap::putAt() of a record for another key".
  void putAt(Slot& slot, const Record& record) {
    const uint64_t bits = Traits::keyBits(record.key());
    vornAssertText(bits == Traits::keyBits(slot.key_),
                   "BrimMap::putAt() of a record for another key");
    // rewrite() checks that the slot holds this very key live: that is all a stale
    // handle can get wrong.
    if (writer_->rewrite(slot.slot_, bits, Traits::bytes(record))) return;
    writer_->put(bits, Traits::bytes(record));
    slot.slot_ = this->core_->lookup(bits, nullptr).value_or(0);
  }

  // As putAt() when `slot` holds a handle of the record's key, otherwise put() and a
  // handle for next time.
  void putAt(std::optional<Slot>& slot, const Record& record) {
    if (slot && Traits::keyBits(slot->key_) == Traits::keyBits(record.key())) {
      putAt(*slot, record);
      return;
    }
    put(record);
    slot = slotOf(record.key());
  }

  // What the cursor's last next() saw of the slot it read, for rewriteUnchanged().
  using ReadStamp = detail::WriterCore::SlotStamp;
  ReadStamp stampOf(const Cursor<Record>& cursor) const {
    return writer_->stampOf(cursor.lastSlot());
  }

  // Publishes `record` into the stamped slot while that slot still holds exactly
  // `original`, the record read with the stamp: a pass that reads, changes and writes
  // back every record skips the look-ups. False, changing nothing, when anything in
  // the slot changed since; only damage from outside does that, and a look-up of the
  // key then reports it.
  bool rewriteUnchanged(const ReadStamp& stamp, const Record& original, const Record& record) {
    return writer_->rewriteUnchanged(stamp, Traits::keyBits(record.key()), Traits::bytes(original),
                                     Traits::bytes(record));
  }

  // Removes the key's record; false when there was none.
  bool erase(const Key& key) {
    const uint64_t bits = Traits::keyBits(key);
    if (staged_ && stagingKey_ == bits) staged_ = false;
    return writer_->erase(bits);
  }

  // A private copy of the key's live record to change in place and then publish with
  // commit(key); readers never see the change before the commit. The copy stays tied
  // to the key (edit and commit again) until the next directWrite() or erase(key).
  // Requires: the key is live; otherwise the fatal assertion
  // "BrimMap::directWrite() in no man's land". A damaged slot raises
  // Pontil::CorruptionDetectedException.
  Record& directWrite(const Key& key) {
    staged_ = false;
    const std::optional<uint32_t> slot = this->findInto(key, staging_.bytes);
    vornAssertText(slot.has_value(), "BrimMap::directWrite() in no man's land");
    staged_ = true;
    stagingKey_ = Traits::keyBits(key);
    stagingSlot_ = *slot;
    return staging_.record();
  }

  // Publishes the copy that directWrite(key) handed out.
  // Requires: directWrite(key) was the last directWrite, the copy's key is unchanged,
  // and the key is still live; otherwise a fatal assertion.
  void commit(const Key& key) {
    const uint64_t bits = Traits::keyBits(key);
    vornAssertText(staged_ && stagingKey_ == bits,
                   "BrimMap::commit() of a key not given to directWrite()");
    vornAssertText(Traits::keyBits(staging_.record().key()) == bits,
                   "BrimMap::commit() of a record whose key was changed");
    const bool published = writer_->rewrite(stagingSlot_, bits, staging_.bytes);
    vornAssertText(published, "BrimMap::commit() in no man's land");
  }

  // Publishes the writer's liveness (seconds, on whatever clock the agent uses).
  void heartbeatIs(double seconds) { writer_->heartbeatIs(seconds); }

  // What attaching repaired or found, one line each; empty for a new or clean table.
  const std::vector<std::string>& attachReport() const { return writer_->attachReport(); }

 private:
  explicit TableWriter(std::unique_ptr<detail::WriterCore> core)
      : TableView<Record>(nullptr), writer_(core.get()) {
    this->core_ = std::move(core);
  }

  detail::WriterCore* writer_;  // the view's core, with its writing side
  // The private copy handed out by directWrite(); the slot's shared bytes are only
  // ever written through the sequence protocol.
  typename Traits::Buffer staging_;
  bool staged_ = false;
  uint64_t stagingKey_ = 0;
  uint32_t stagingSlot_ = 0;
};

}  // namespace Brim
