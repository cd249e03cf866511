// Brim table core: the untyped engine behind TableWriter<Record> and TableReader<Record>.
//
// It works on keys as 64-bit patterns and records as runs of 8-byte words, so the
// probing, sequence protocol, damage checks and repair exist once for every record
// type. The typed headers are thin; nothing outside the Brim unit should need this.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "brim/Layout.h"
#include "brim/SharedObject.h"

namespace Brim::detail {

// What a table stores, as its record type describes itself.
struct RecordLayout {
  std::string typeName;
  uint32_t recordSize;
  uint64_t layoutHash;
};

// A consistent view of a slot's control words; the record words go to a caller's buffer.
struct SlotImage {
  uint64_t key;
  uint64_t state;
  uint64_t checksum;
  bool payloadRead;
  Layout::Lanes lanes{};  // of the record words read, when payloadRead
};

// The header's live words, as the writer last published them.
struct LiveWords {
  uint64_t generation;
  uint64_t writerPid;
  uint64_t heartbeat;
  uint64_t liveCount;
  uint64_t tombCount;
  uint64_t maxProbe;
  uint64_t changeCount;
};
static_assert(sizeof(LiveWords) == 8 * Layout::kLiveWords);

// What a walk keeps to compare the live slots it met with the count the header
// promises: only a whole walk, with no damage reported on the way and no change of
// which slots are live in the meantime, can tell that records have gone missing.
struct WalkState {
  bool started = false;
  bool comparable = false;  // started at slot 0 with a readable, settled change count
  bool damaged = false;     // some step reported damage, which the caller already knows
  bool finished = false;
  uint64_t changeCount = 0;
  uint64_t liveSeen = 0;
  // The probe bound, read once per walk: a key met beyond it makes placementFailed()
  // look at the header afresh before it reports anything.
  uint32_t limit = 0;
  bool haveLimit = false;
};

class TableCore {
 public:
  // Opens the published table `name` read-only. Raises TableMissingException when it
  // does not exist and Pontil::CorruptionDetectedException when its header is damaged,
  // of another layout than `layout`, or describes more bytes than the object has.
  static std::unique_ptr<TableCore> openReader(const std::string& name, const RecordLayout& layout);

  TableCore(const TableCore&) = delete;
  TableCore& operator=(const TableCore&) = delete;
  virtual ~TableCore();

  const std::string& name() const { return name_; }
  uint32_t capacity() const { return fixed_.capacity; }
  uint32_t slotCount() const { return fixed_.slotCount; }
  uint32_t recordWords() const { return recordWords_; }

  // Live records. A reader raises CorruptionDetectedException for an impossible count
  // or live header words that fail their checksum; so do the three below.
  uint64_t size() const;
  uint64_t generation() const;
  uint64_t writerPid() const;
  double heartbeat() const;

  // The live header words, read with the sequence protocol and checked against their
  // checksum. Raises CorruptionDetectedException (SlotBusyException when they stay
  // mid-write) on damage.
  LiveWords liveWords() const;

  // Looks `key` up and returns its slot. With a `payload` buffer of recordWords() * 8
  // bytes (the caller's record itself), also copies the record there and checks its
  // checksum. Raises CorruptionDetectedException (or its SlotBusyException) for a
  // damaged slot met on the probe path, so a damaged table is reported, not misread.
  std::optional<uint32_t> lookup(uint64_t key, unsigned char* payload) const;

  // The record of `key` read straight from `slot` into `payload` (checksum checked)
  // when that slot holds the key live; false, with `payload` unspecified, when it
  // holds anything else. For callers that remember where a key sat: no probe.
  bool readAt(uint32_t slot, uint64_t key, unsigned char* payload) const;

  // Finds the first live slot at or after `position`, copies its record to `payload`
  // and its key to `key`, and returns the slot. `position` moves past every slot read
  // before any check can raise, so a caller that catches the damage report of one slot
  // carries on with the next. At the end of a whole walk, raises once if the walk met
  // another number of live slots than the header counts.
  std::optional<uint32_t> nextLive(uint32_t& position, unsigned char* payload, uint64_t& key,
                                   WalkState& walk) const;

  // Every damage in the header and slots that can be seen, one line each; empty when
  // the table is sound. Bounded work; never raises for damage and never asserts.
  std::vector<std::string> validate() const;

  // Raises CorruptionDetectedException("table <name>: <what>").
  [[noreturn]] void corruption(const std::string& what) const;
  // A record read from `slot` carries the slot's key (`slotKey`) in its own fields
  // too (`recordKey`); raises the corruption report when it does not.
  void checkRecordKey(uint32_t slot, uint64_t slotKey, uint64_t recordKey) const {
    if (recordKey != slotKey) [[unlikely]] {
      corruption("slot " + std::to_string(slot) +
                 " holds a record whose key differs from the slot's key");
    }
  }

 protected:
  TableCore(SharedObject object, std::string name, const Layout::TableHeader& fixed, bool writer);

  uint64_t* slotWords(uint32_t slot) const {
    return reinterpret_cast<uint64_t*>(base_ + fixed_.slotsOffset +
                                       static_cast<uint64_t>(slot) * fixed_.slotSize);
  }
  uint64_t& headerWord(size_t offset) const { return *reinterpret_cast<uint64_t*>(base_ + offset); }
  uint64_t headerLoad(size_t offset) const {
    return Layout::loadWord(headerWord(offset), std::memory_order_acquire);
  }
  uint32_t homeOf(uint64_t key) const { return Layout::homeSlot(key, slotMask_); }

  // The longest probe distance to search. Readers take it from the checked live
  // header words (bounded, since those may be damaged); the writer keeps its own.
  uint32_t probeLimit() const;
  // Reads the live words once; "" when they are sound, else what is wrong.
  std::string tryLiveWords(LiveWords& out) const;
  // The walk's start and end bookkeeping, out of line: they read the header.
  void startWalk(WalkState& walk, uint32_t position) const;
  void finishWalk(WalkState& walk) const;
  // A miss looked past the slots between the key's home and `distance`: one of them
  // may be the key's own slot with a damaged key, so each must pass its checksum.
  void checkPassedSlots(uint64_t key, uint32_t distance) const;

  // Reads slot `slot` with the sequence protocol; copies the record words to `payload`
  // when `wantPayload(key, state)` says so.
  template <class WantPayload>
  SlotImage readSlot(uint32_t slot, unsigned char* payload, WantPayload wantPayload) const;
  // Called when a read attempt found the slot mid-write: backs off, and raises once the
  // retry budget is spent (at once for the writer, whose own slots are never mid-write).
  void slotBusy(uint32_t slot, uint64_t seq, uint32_t attempt) const;

  // Damage checks of a slot image met at `slot`; each raises CorruptionDetectedException.
  void checkState(uint32_t slot, const SlotImage& image) const;
  // An empty slot is blank: key zero and the blank slot's checksum.
  void checkBlank(uint32_t slot, const SlotImage& image) const;
  void checkPlacement(uint32_t slot, uint64_t key, uint32_t limit) const;
  void placementFailed(uint32_t slot, uint64_t key, uint32_t distance) const;
  void checkPayload(uint32_t slot, const SlotImage& image, const unsigned char* payload) const;

  std::string describeSlot(uint32_t slot, uint64_t key) const;
  void validateHeader(std::vector<std::string>& report) const;
  void validateSlots(std::vector<std::string>& report) const;

  SharedObject object_;
  std::string name_;
  Layout::TableHeader fixed_;  // validated copy of the fixed header fields; never re-read
  unsigned char* base_;
  uint32_t slotMask_;
  uint32_t recordWords_;
  bool writer_;
  // The writer's own bookkeeping, authoritative for it and published to the header.
  uint32_t liveCount_ = 0;
  uint32_t tombCount_ = 0;
  uint32_t maxProbe_ = 0;
  uint64_t changeCount_ = 0;
  uint64_t generation_ = 0;
  uint64_t writerPid_ = 0;
  uint64_t heartbeat_ = 0;
};

// How long a reader waits for a slot or the live header words to settle before it
// reports them stuck. The default suits a live writer; tests and the fuzz target that
// feed deliberately stuck images lower it so that each read stays quick.
struct ReaderPatience {
  uint32_t spins;
  uint32_t yields;
  uint32_t sleeps;
};
ReaderPatience readerPatience();
void readerPatienceIs(const ReaderPatience& patience);

template <class WantPayload>
SlotImage TableCore::readSlot(uint32_t slot, unsigned char* payload,
                              WantPayload wantPayload) const {
  const uint64_t* w = slotWords(slot);
  for (uint32_t attempt = 0;; ++attempt) {
    const uint64_t s1 = Layout::loadWord(w[Layout::kSeqWord], std::memory_order_acquire);
    if ((s1 & 1) == 0) {
      // The checksum shares the cache line of key and state: an empty slot is
      // checked against it for free.
      SlotImage image{Layout::loadWord(w[Layout::kKeyWord]),
                      Layout::loadWord(w[Layout::kStateWord]),
                      Layout::loadWord(w[Layout::kChecksumWord]), false};
      if (payload != nullptr && wantPayload(image.key, image.state)) {
        image.lanes =
            Layout::loadRecordWordsWithLanes(payload, w + Layout::kSlotHeaderWords, recordWords_);
        image.payloadRead = true;
      }
      // Orders the loads above before the re-check: if any of them saw a newer write,
      // the re-check sees the odd or advanced count that preceded it.
      std::atomic_thread_fence(std::memory_order_acquire);
      if (Layout::loadWord(w[Layout::kSeqWord]) == s1) return image;
    }
    slotBusy(slot, s1, attempt);
  }
}

inline uint32_t TableCore::probeLimit() const {
  if (writer_) return maxProbe_;
  const uint64_t published = liveWords().maxProbe;
  return published < slotMask_ ? static_cast<uint32_t>(published) : slotMask_;
}

inline std::optional<uint32_t> TableCore::lookup(uint64_t key, unsigned char* payload) const {
  const uint32_t home = homeOf(key);
  // Most keys sit in their home slot: the bound (a header read for a reader) is only
  // fetched once the probe has to look further, or to place a key met on the way.
  std::optional<uint32_t> limit;
  const auto limitNow = [&] {
    if (!limit) limit = probeLimit();
    return *limit;
  };
  for (uint32_t distance = 0; distance == 0 || distance <= limitNow(); ++distance) {
    const uint32_t slot = (home + distance) & slotMask_;
    const SlotImage image = readSlot(slot, payload, [key](uint64_t k, uint64_t state) {
      return k == key && state == Layout::kLive;
    });
    if (image.state == Layout::kEmpty) {
      checkBlank(slot, image);
      if (distance > 0) checkPassedSlots(key, distance);
      return std::nullopt;
    }
    checkState(slot, image);
    if (homeOf(image.key) != slot) checkPlacement(slot, image.key, limitNow());
    if (image.key == key && image.state == Layout::kLive) {
      if (payload != nullptr) checkPayload(slot, image, payload);
      return slot;
    }
  }
  checkPassedSlots(key, limitNow() + 1);
  return std::nullopt;
}

inline bool TableCore::readAt(uint32_t slot, uint64_t key, unsigned char* payload) const {
  if (slot > slotMask_) return false;
  const SlotImage image = readSlot(slot, payload, [key](uint64_t k, uint64_t state) {
    return k == key && state == Layout::kLive;
  });
  if (!image.payloadRead) return false;
  checkPayload(slot, image, payload);
  return true;
}

inline std::optional<uint32_t> TableCore::nextLive(uint32_t& position, unsigned char* payload,
                                                   uint64_t& key, WalkState& walk) const {
  if (!walk.started) startWalk(walk, position);
  while (position < fixed_.slotCount) {
    const uint32_t slot = position++;
    const SlotImage image =
        readSlot(slot, payload, [](uint64_t, uint64_t state) { return state == Layout::kLive; });
    if (image.state == Layout::kEmpty) {
      checkBlank(slot, image);
      continue;
    }
    if (image.state == Layout::kTomb) continue;
    checkState(slot, image);
    ++walk.liveSeen;
    if (homeOf(image.key) != slot) {
      if (!walk.haveLimit) {
        walk.limit = probeLimit();
        walk.haveLimit = true;
      }
      checkPlacement(slot, image.key, walk.limit);
    }
    checkPayload(slot, image, payload);
    key = image.key;
    return slot;
  }
  if (!walk.finished) finishWalk(walk);
  return std::nullopt;
}

inline void TableCore::checkState(uint32_t slot, const SlotImage& image) const {
  if (image.state != Layout::kLive && image.state != Layout::kTomb && image.state != Layout::kEmpty)
      [[unlikely]] {
    corruption("slot " + std::to_string(slot) + " has an invalid state " +
               std::to_string(image.state));
  }
}

inline void TableCore::checkBlank(uint32_t slot, const SlotImage& image) const {
  if (image.key != 0 || image.checksum != Layout::emptyChecksum()) [[unlikely]] {
    corruption(describeSlot(slot, image.key) + " is marked empty but is not blank");
  }
}

inline void TableCore::checkPlacement(uint32_t slot, uint64_t key, uint32_t limit) const {
  const uint32_t distance = Layout::probeDistance(homeOf(key), slot, slotMask_);
  if (distance > limit) [[unlikely]] {
    placementFailed(slot, key, distance);
  }
}

inline void TableCore::checkPayload(uint32_t slot, const SlotImage& image,
                                    const unsigned char* payload) const {
  // The lanes come with the read; only a caller's own payload needs a pass of its own.
  const uint64_t expected =
      image.payloadRead ? Layout::slotChecksum(image.key, image.state, image.lanes)
                        : Layout::slotChecksum(image.key, image.state, payload, recordWords_);
  if (expected != image.checksum) [[unlikely]] {
    corruption(describeSlot(slot, image.key) + " fails its checksum");
  }
}

// Owns the writer lock of one table and is the only code that changes it.
class WriterCore : public TableCore {
 public:
  // Creates the table, or attaches to an existing one of the same layout: bumps its
  // generation, repairs slots left mid-write by a killed writer, recounts. Raises
  // WriterBusyException, LayoutMismatchException, or CorruptionDetectedException for
  // a damaged header.
  static std::unique_ptr<WriterCore> open(const std::string& name, const RecordLayout& layout,
                                          uint32_t capacity);
  ~WriterCore() override;

  // Inserts or overwrites. Raises TableFullException, changing nothing, for a new key
  // when the table holds capacity() records.
  void put(uint64_t key, const unsigned char* record);
  bool erase(uint64_t key);
  // Publishes `record` into `slot` if that slot still holds `key` live; false otherwise.
  bool rewrite(uint32_t slot, uint64_t key, const unsigned char* record);

  // The words of a slot that any change to it moves: the writer's own changes bump
  // the sequence count, and anything else that alters key, state or record leaves
  // the checksum or the record words different from what was read.
  struct SlotStamp {
    uint32_t slot = 0;
    uint64_t seq = 0;
    uint64_t checksum = 0;
  };
  SlotStamp stampOf(uint32_t slot) const {
    return {slot, ownWord(slot, Layout::kSeqWord), ownWord(slot, Layout::kChecksumWord)};
  }
  // As rewrite(stamp.slot, key, record), only while the slot still holds `key` live
  // with the stamp's words and exactly the record words `expected`; false, changing
  // nothing, otherwise.
  bool rewriteUnchanged(const SlotStamp& stamp, uint64_t key, const unsigned char* expected,
                        const unsigned char* record);
  void heartbeatIs(double seconds);
  // What attaching repaired or found, one line each; empty for a fresh or clean table.
  const std::vector<std::string>& attachReport() const { return attachReport_; }

 private:
  WriterCore(SharedObject object, std::string name, const Layout::TableHeader& fixed);

  static std::unique_ptr<WriterCore> create(SharedObject object, const std::string& name,
                                            const Layout::TableHeader& fixed);
  static std::unique_ptr<WriterCore> attach(WriterLock lock, SharedObject object,
                                            const std::string& name, const RecordLayout& layout);
  // Formats every slot of a new table as blank and empty.
  void formatSlots();
  void repairAndRecount();

  // The writer reads its own slots directly: nobody else writes them.
  uint64_t ownWord(uint32_t slot, uint32_t word) const {
    return Layout::loadWord(slotWords(slot)[word]);
  }
  // Rewrites a slot with the sequence protocol; a null `record` keeps the record words.
  void writeSlot(uint32_t slot, uint64_t key, uint64_t state, uint64_t checksum,
                 const unsigned char* record);
  // Writes a live record, computing its checksum while copying it.
  void writeLiveSlot(uint32_t slot, uint64_t key, const unsigned char* record);
  // Publishes the live words under the header's sequence count.
  void publishCounts();
  // Marks the start and the end of a change of which slots are live (see WalkState).
  void beginLivenessChange();
  void endLivenessChange();
  void trimTombstones(uint32_t slot);
  void writeBlank(uint32_t slot);
  // Copies the slot's record words into `out` (recordWords() words).
  void ownRecord(uint32_t slot, uint64_t* out) const;
  static std::unique_ptr<WriterCore> migrate(WriterLock lock, SharedObject old,
                                             const std::string& name, const RecordLayout& layout);

  std::vector<std::string> attachReport_;
  std::vector<unsigned char> blank_;  // a zero record, for emptied slots
  std::optional<WriterLock> lock_;
};

}  // namespace Brim::detail
