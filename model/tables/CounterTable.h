// The writer side of a shared-memory counter table, as a framework object.
//
// The agent opens each table (a Brim shared-memory table under its namespace)
// and hands it to the counters machines as a counted reference. Machines look
// records up (a missing key reads as the default record), write whole records,
// or change one record in place and commit it. Damage found while reading is a
// CorruptionDetectedException from look-ups; walks hand it to
// doCorruptionDetected() and go on (or stop, as the caller asks), since a
// handler must not die because another process scribbled on shared memory.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "brim/Brim.h"
#include "pontil/Assert.h"
#include "zat/Generic.h"
#include "zat/Trace.h"

namespace Brim {

// Default capacities: generous for a large chassis.
inline constexpr uint32_t kDefaultIntfCapacity = 4096;
inline constexpr uint32_t kDefaultVlanCapacity = 4096;

template <class Record>
class CounterTable : public Zat::PtrInterface {
 public:
  using Key = typename Record::Key;

  // The table's name within its namespace ("allIntfCounters", ...).
  const std::string& tableName() const { return table_; }
  const std::string& tableNamespace() const { return ns_; }

  // The record of `key`, or the table's default record (all zero, default key)
  // when there is none. Raises Pontil::CorruptionDetectedException when the slot
  // is damaged.
  // The record is read straight into the result: records run to a kilobyte and
  // every poll reads one.
  Record counter(const Key& key) const {
    Record r;
    writer_->find(key, r);  // a miss leaves the default record
    return r;
  }
  // The record of `key`, or an all-zero record keyed `key` when there is none.
  Record counterOrEmpty(const Key& key) const {
    Record r(key);
    writer_->find(key, r);  // a miss leaves the empty record
    return r;
  }
  // Where a poller's record sits, remembered between its polls so that reading and
  // writing its one record skip the hash probe. Never wrong, only stale: a record
  // moved or deleted meanwhile is found by a full look-up, as without it.
  using Slot = std::optional<typename TableWriter<Record>::Slot>;
  // Storage for one record, left uninitialized: a poll's working copy.
  using RecordBuffer = typename Brim::RecordTraits<Record>::Buffer;
  // counterOrEmpty(key) through the poller's remembered slot, built in `buffer`: a
  // hit copies the record straight from the table, with no zeroed record first to
  // overwrite (a queue record is over a kilobyte). Valid while `buffer` lives.
  Record& counterOrEmptyIn(const Key& key, Slot& slot, RecordBuffer& buffer) const {
    if (!writer_->findAtInto(slot, key, buffer.bytes)) {
      ::new (static_cast<void*>(buffer.bytes)) Record(key);
    }
    return buffer.record();
  }
  // counterIs(record) through the poller's remembered slot.
  void counterIs(const Record& record, Slot& slot) { writer_->putAt(slot, record); }
  bool hasCounter(const Key& key) const { return writer_->contains(key); }
  // Inserts or overwrites. Raises Brim::TableFullException (nothing changed) when full.
  void counterIs(const Record& record) { writer_->put(record); }
  // Removes the record; a missing key is harmless.
  void counterDel(const Key& key) { writer_->erase(key); }
  // In-place write: the returned record is published by counterCommit(key).
  // Requires: a record of `key` exists ("BrimMap::directWrite() in no man's land").
  Record& counterDirectWrite(const Key& key) { return writer_->directWrite(key); }
  void counterCommit(const Key& key) { writer_->commit(key); }
  size_t size() const { return writer_->size(); }
  uint32_t capacity() const { return writer_->capacity(); }

  // Calls f(record) for every record in the table's own order. A damaged slot is
  // reported through doCorruptionDetected; with `stopOnCorruption` the walk ends
  // there, otherwise f receives the default record for that position and the
  // walk goes on. f may add or delete records.
  template <class F>
  void forEachCounter(F&& f, bool stopOnCorruption = false) {
    auto cursor = writer_->cursor();
    // One record, read into in place: walks cover thousands of records.
    Record r;
    for (;;) {
      const Step step = nextReported(cursor, r);
      if (step == Step::kEnd) break;
      if (step == Step::kDamaged) {
        if (stopOnCorruption) break;
        r = Record();
      }
      f(r);
    }
  }

  // Calls update(record) for every record in the table's own order and publishes
  // each one it returns true for back into the slot it came from: one checked read
  // and one write per record, no look-ups. A record changed from outside between
  // the two is looked up again, so its damage is reported as any look-up would.
  // Damage is reported through doCorruptionDetected and ends the pass, and no
  // damaged record is rewritten. update must not add or delete records.
  template <class F>
  void updateEachCounter(F&& update) {
    auto cursor = writer_->cursor();
    Record original;
    Record r;
    while (nextReported(cursor, original) == Step::kRecord) {
      const auto stamp = writer_->stampOf(cursor);
      r = original;
      if (!update(r)) continue;
      if (writer_->rewriteUnchanged(stamp, original, r)) continue;
      try {
        Record current;
        writer_->find(r.key(), current);
      } catch (const Pontil::CorruptionDetectedException& e) {
        doCorruptionDetected(e.what());
        break;
      }
      // Changed but sound: only a forged record passes its checksum, and the
      // writer's own totals replace it.
      writer_->put(r);
    }
  }

  // The corruption hook: the table was found damaged while reading. The base
  // counts the reports, keeps the last message and traces it.
  virtual void doCorruptionDetected(const std::string& message) {
    ++corruptionCount_;
    lastCorruption_ = message;
    ZAT_TRACE("Brim", 1, "corruption detected in " << ns_ << "." << table_ << ": " << message);
  }
  uint64_t corruptionCount() const { return corruptionCount_; }
  const std::string& lastCorruption() const { return lastCorruption_; }

  // Writer heartbeat, for readers that want to know the writer is alive.
  void heartbeatIs(double now) { writer_->heartbeatIs(now); }
  TableWriter<Record>& writer() { return *writer_; }

  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("table", ns_ + "." + table_);
    d.attribute("records", Zat::toText(writer_->size()));
    d.attribute("capacity", Zat::toText(writer_->capacity()));
    d.attribute("corruptionCount", Zat::toText(corruptionCount_));
  }

 protected:
  CounterTable(const std::string& ns, const std::string& table, uint32_t capacity)
      : ns_(ns), table_(table), writer_(TableWriter<Record>::open(ns, table, capacity)) {}

 private:
  enum class Step { kRecord, kEnd, kDamaged };
  // The walk's next record into `r`; damage is reported through doCorruptionDetected
  // rather than raised, and the cursor has moved past it.
  Step nextReported(Cursor<Record>& cursor, Record& r) {
    try {
      return cursor.next(r) ? Step::kRecord : Step::kEnd;
    } catch (const Pontil::CorruptionDetectedException& e) {
      doCorruptionDetected(e.what());
      return Step::kDamaged;
    }
  }

  std::string ns_;
  std::string table_;
  std::unique_ptr<TableWriter<Record>> writer_;
  uint64_t corruptionCount_ = 0;
  std::string lastCorruption_;
};

}  // namespace Brim
