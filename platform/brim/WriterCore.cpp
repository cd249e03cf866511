#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "brim/Exceptions.h"
#include "brim/HeaderCheck.h"
#include "brim/TableCore.h"

namespace Brim::detail {

using Layout::TableHeader;

namespace {

// Opening races only with another process creating or unlinking the same table;
// a handful of rounds settles any real race.
constexpr int kOpenRounds = 8;

std::string busyMessage(const std::string& name) {
  std::string message = "table " + name + " already has a writer";
  std::optional<SharedObject> object;
  try {
    object = SharedObject::open(name, SharedObject::Access::kReadOnly);
  } catch (const std::exception&) {
    // The pid is a courtesy; without it the message still says what matters.
  }
  if (object && object->size() >= Layout::kHeaderSize) {
    // A writer of the first layout keeps its pid one word earlier.
    const bool first = readFixedHeader(object->data()).majorVersion == Layout::v1::kMajorVersion;
    const size_t offset =
        first ? Layout::kFixedHeaderSize + offsetof(Layout::v1::LiveWords, writerPid)
              : offsetof(TableHeader, writerPid);
    const uint64_t pid =
        Layout::loadWord(*reinterpret_cast<const uint64_t*>(object->data() + offset));
    if (pid != 0) message += " (pid " + std::to_string(pid) + ")";
  }
  return message;
}

TableHeader freshHeader(const RecordLayout& layout, uint32_t capacity) {
  const Layout::Geometry geometry = Layout::geometryFor(layout.recordSize, capacity);
  TableHeader fixed;
  std::memset(&fixed, 0, sizeof fixed);
  fixed.magic = Layout::kMagic;
  fixed.majorVersion = Layout::kMajorVersion;
  fixed.minorVersion = Layout::kMinorVersion;
  std::memcpy(fixed.typeName, layout.typeName.data(), layout.typeName.size());
  fixed.recordSize = geometry.recordSize;
  fixed.slotSize = geometry.slotSize;
  fixed.capacity = geometry.capacity;
  fixed.slotCount = geometry.slotCount;
  fixed.layoutHash = layout.layoutHash;
  fixed.slotsOffset = Layout::kHeaderSize;
  fixed.totalSize = geometry.totalSize;
  fixed.fixedChecksum = Layout::headerChecksum(fixed);
  return fixed;
}

}  // namespace

WriterCore::WriterCore(SharedObject object, std::string name, const TableHeader& fixed)
    : TableCore(std::move(object), std::move(name), fixed, true),
      blank_(static_cast<size_t>(fixed.recordSize), 0) {}

WriterCore::~WriterCore() {
  // Tells readers that nobody keeps this table up to date any more.
  writerPid_ = 0;
  publishCounts();
}

std::unique_ptr<WriterCore> WriterCore::open(const std::string& name, const RecordLayout& layout,
                                             uint32_t capacity) {
  if (capacity < 1 || capacity > Layout::kMaxCapacity) {
    throw std::invalid_argument("table " + name + ": capacity " + std::to_string(capacity) +
                                " is not within 1.." + std::to_string(Layout::kMaxCapacity));
  }
  if (layout.typeName.empty() || layout.typeName.size() >= Layout::kTypeNameSize ||
      layout.recordSize == 0 || layout.recordSize % 8 != 0) {
    throw std::invalid_argument("table " + name + ": record type '" + layout.typeName + "' of " +
                                std::to_string(layout.recordSize) + " bytes cannot be stored");
  }
  for (int round = 0; round < kOpenRounds; ++round) {
    std::optional<WriterLock> lock = WriterLock::tryTake(name);
    if (!lock) throw WriterBusyException(busyMessage(name));
    if (std::optional<SharedObject> existing =
            SharedObject::open(name, SharedObject::Access::kReadWrite)) {
      return attach(std::move(*lock), std::move(*existing), name, layout);
    }
    const TableHeader fixed = freshHeader(layout, capacity);
    std::unique_ptr<WriterCore> core =
        create(SharedObject::createTemporary(name, fixed.totalSize), name, fixed);
    core->lock_ = std::move(lock);
    if (core->object_.publish()) return core;
    // Published meanwhile by a writer that does not take this lock (one of the first
    // layout): attach to it, or find it busy.
  }
  throw std::runtime_error("table " + name +
                           " kept being created and removed by others while opening it");
}

std::unique_ptr<WriterCore> WriterCore::create(SharedObject object, const std::string& name,
                                               const TableHeader& fixed) {
  std::memcpy(object.data(), &fixed, Layout::kFixedHeaderSize);
  std::unique_ptr<WriterCore> core(new WriterCore(std::move(object), name, fixed));
  core->formatSlots();
  core->generation_ = 1;
  core->writerPid_ = static_cast<uint64_t>(getpid());
  core->publishCounts();
  return core;
}

void WriterCore::formatSlots() {
  // The object starts zero-filled; an empty slot is blank but for state and checksum.
  for (uint32_t slot = 0; slot < fixed_.slotCount; ++slot) {
    uint64_t* w = slotWords(slot);
    Layout::storeWord(w[Layout::kStateWord], Layout::kEmpty);
    Layout::storeWord(w[Layout::kChecksumWord], Layout::emptyChecksum());
  }
}

std::unique_ptr<WriterCore> WriterCore::attach(WriterLock lock, SharedObject object,
                                               const std::string& name,
                                               const RecordLayout& layout) {
  if (object.size() < Layout::kHeaderSize) {
    throw Pontil::CorruptionDetectedException(
        "table " + name + ": object is " + std::to_string(object.size()) +
        " bytes, smaller than its header (" + std::to_string(Layout::kHeaderSize) + " bytes)");
  }
  const TableHeader fixed = readFixedHeader(object.data());
  const bool first =
      fixed.magic == Layout::kMagic && fixed.majorVersion == Layout::v1::kMajorVersion;
  const HeaderFindings findings = inspectHeader(fixed, object.size(), layout, first);
  if (!findings.foreign.empty()) {
    throw LayoutMismatchException("table " + name + " cannot be attached: " + findings.foreign);
  }
  if (!findings.checksumOk) {
    std::vector<std::string> problems{"header checksum mismatch"};
    problems.insert(problems.end(), findings.layout.begin(), findings.layout.end());
    problems.insert(problems.end(), findings.damage.begin(), findings.damage.end());
    throw Pontil::CorruptionDetectedException("table " + name +
                                              " has a damaged header: " + joinFindings(problems));
  }
  if (!findings.layout.empty()) {
    throw LayoutMismatchException(
        "table " + name + " holds records of another layout: " + joinFindings(findings.layout));
  }
  if (!findings.damage.empty()) {
    throw Pontil::CorruptionDetectedException("table " + name + ": " +
                                              joinFindings(findings.damage));
  }
  if (first) return migrate(std::move(lock), std::move(object), name, layout);
  std::unique_ptr<WriterCore> core(new WriterCore(std::move(object), name, fixed));
  core->lock_ = std::move(lock);
  // The live words may be damaged; only the generation is carried over from them.
  const uint64_t generation = Layout::loadWord(core->headerWord(offsetof(TableHeader, generation)));
  const uint64_t changes = Layout::loadWord(core->headerWord(offsetof(TableHeader, changeCount)));
  core->repairAndRecount();
  core->generation_ = generation + 1;
  // Past anything a reader may have seen, and even: no change is under way.
  core->changeCount_ = (changes | 1) + 1;
  core->writerPid_ = static_cast<uint64_t>(getpid());
  core->heartbeat_ = Layout::loadWord(core->headerWord(offsetof(TableHeader, heartbeat)));
  core->publishCounts();
  return core;
}

std::unique_ptr<WriterCore> WriterCore::migrate(WriterLock lock, SharedObject old,
                                                const std::string& name,
                                                const RecordLayout& layout) {
  // Writers of the first layout locked the table object itself.
  if (!old.tryLockExclusive()) throw WriterBusyException(busyMessage(name));
  const TableHeader oldFixed = readFixedHeader(old.data());
  const TableHeader fixed = freshHeader(layout, oldFixed.capacity);
  std::unique_ptr<WriterCore> core =
      create(SharedObject::createTemporary(name, fixed.totalSize), name, fixed);
  core->lock_ = std::move(lock);

  // The old writer is gone (we hold its lock), so plain word loads see its last state.
  Layout::v1::LiveWords oldLive;
  std::memcpy(&oldLive, old.data() + Layout::kFixedHeaderSize, sizeof oldLive);
  const uint32_t words = oldFixed.recordSize / 8;
  std::vector<uint64_t> record(words);
  const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
  uint64_t kept = 0;
  std::vector<std::string> dropped;
  for (uint32_t slot = 0; slot < oldFixed.slotCount; ++slot) {
    const auto* w = reinterpret_cast<const uint64_t*>(
        old.data() + oldFixed.slotsOffset + static_cast<uint64_t>(slot) * oldFixed.slotSize);
    const uint64_t key = Layout::loadWord(w[Layout::kKeyWord]);
    const uint64_t state = Layout::loadWord(w[Layout::kStateWord]);
    if (state != Layout::v1::kLive) continue;  // tombstones need not survive a rebuild
    for (uint32_t i = 0; i < words; ++i)
      record[i] = Layout::loadWord(w[Layout::kSlotHeaderWords + i]);
    if (Layout::v1::slotChecksum(key, state, bytes, words) !=
        Layout::loadWord(w[Layout::kChecksumWord])) {
      dropped.push_back(core->describeSlot(slot, key) +
                        " of the old table fails its checksum and was dropped");
      continue;
    }
    try {
      core->put(key, bytes);
      ++kept;
    } catch (const TableFullException&) {
      dropped.push_back(core->describeSlot(slot, key) +
                        " of the old table did not fit and was dropped");
    }
  }
  core->generation_ = oldLive.generation + 1;
  core->publishCounts();
  core->attachReport_.push_back(
      "migrated from layout version 1." + std::to_string(oldFixed.minorVersion) + ": kept " +
      std::to_string(kept) + " records, dropped " + std::to_string(dropped.size()));
  core->attachReport_.insert(core->attachReport_.end(), dropped.begin(), dropped.end());
  // Readers that mapped the old table keep it; everyone opening the name from now on
  // gets the new one, whole.
  core->object_.publishReplacing();
  return core;
}

void WriterCore::repairAndRecount() {
  std::vector<uint64_t> payload(recordWords_);
  const auto* bytes = reinterpret_cast<const unsigned char*>(payload.data());
  liveCount_ = 0;
  tombCount_ = 0;
  maxProbe_ = 0;
  for (uint32_t slot = 0; slot < fixed_.slotCount; ++slot) {
    uint64_t* w = slotWords(slot);
    const uint64_t seq = Layout::loadWord(w[Layout::kSeqWord]);
    const uint64_t key = Layout::loadWord(w[Layout::kKeyWord]);
    uint64_t state = Layout::loadWord(w[Layout::kStateWord]);
    const uint64_t checksum = Layout::loadWord(w[Layout::kChecksumWord]);
    for (uint32_t i = 0; i < recordWords_; ++i) {
      payload[i] = Layout::loadWord(w[Layout::kSlotHeaderWords + i]);
    }
    const bool used = state == Layout::kLive || state == Layout::kTomb;
    const bool intact =
        used ? Layout::slotChecksum(key, state, bytes, recordWords_) == checksum
             : state != Layout::kEmpty ||
                   (key == 0 && checksum == Layout::emptyChecksum() &&
                    std::all_of(payload.begin(), payload.end(), [](uint64_t v) { return v == 0; }));
    if (seq & 1) {
      // The previous writer died inside a write. Key and state are single words and
      // so either old or new, but the record may be half of each: such a record was
      // never written by anyone, so it is dropped rather than published.
      if (!intact) {
        if (used) {
          state = Layout::kTomb;
          Layout::storeWord(w[Layout::kStateWord], state);
          Layout::storeWord(w[Layout::kChecksumWord],
                            Layout::slotChecksum(key, state, bytes, recordWords_));
          attachReport_.push_back(describeSlot(slot, key) +
                                  ": a write interrupted by the previous writer left a torn "
                                  "record, which was dropped");
        } else {
          // An emptying cut short: finish it.
          for (uint32_t i = 0; i < recordWords_; ++i) {
            Layout::storeWord(w[Layout::kSlotHeaderWords + i], 0);
          }
          Layout::storeWord(w[Layout::kKeyWord], 0);
          Layout::storeWord(w[Layout::kChecksumWord], Layout::emptyChecksum());
          attachReport_.push_back(describeSlot(slot, key) +
                                  ": an interrupted emptying by the previous writer was finished");
        }
      } else {
        attachReport_.push_back(describeSlot(slot, key) +
                                ": the previous writer stopped inside a write that left the "
                                "record intact; its sequence count was evened");
      }
      Layout::storeWord(w[Layout::kSeqWord], seq + 1, std::memory_order_release);
    } else if (!intact) {
      // Damage of unknown origin is left for validation and the corruption hook.
      attachReport_.push_back(describeSlot(slot, key) +
                              (used ? " fails its checksum" : " is marked empty but is not blank"));
    }
    if (state == Layout::kLive) ++liveCount_;
    if (state == Layout::kTomb) ++tombCount_;
    if (state == Layout::kLive || state == Layout::kTomb) {
      maxProbe_ = std::max(maxProbe_, Layout::probeDistance(homeOf(key), slot, slotMask_));
    } else if (state != Layout::kEmpty) {
      attachReport_.push_back("slot " + std::to_string(slot) + " has an invalid state " +
                              std::to_string(state));
    }
  }
}

namespace {
// Runs `body` on the slot's words between the two steps of its sequence count.
template <class Body>
void underSequence(uint64_t* w, Body&& body) {
  // An odd count here can only be damage; this write leaves it even again.
  const uint64_t seq = Layout::loadWord(w[Layout::kSeqWord]) & ~uint64_t{1};
  Layout::storeWord(w[Layout::kSeqWord], seq + 1);
  // Keeps the odd count ahead of every word below for a reader that sees any of them.
  std::atomic_thread_fence(std::memory_order_release);
  body();
  Layout::storeWord(w[Layout::kSeqWord], seq + 2, std::memory_order_release);
}
}  // namespace

void WriterCore::writeSlot(uint32_t slot, uint64_t key, uint64_t state, uint64_t checksum,
                           const unsigned char* record) {
  uint64_t* w = slotWords(slot);
  underSequence(w, [&] {
    Layout::storeWord(w[Layout::kKeyWord], key);
    Layout::storeWord(w[Layout::kStateWord], state);
    Layout::storeWord(w[Layout::kChecksumWord], checksum);
    if (record != nullptr) {
      Layout::storeRecordWords(w + Layout::kSlotHeaderWords, record, recordWords_);
    }
  });
}

void WriterCore::writeLiveSlot(uint32_t slot, uint64_t key, const unsigned char* record) {
#if defined(__SANITIZE_THREAD__)
  // Word by word, so the tool sees the race the sequence count resolves as intended.
  writeSlot(slot, key, Layout::kLive,
            Layout::slotChecksum(key, Layout::kLive, record, recordWords_), record);
#else
  uint64_t* w = slotWords(slot);
  underSequence(w, [&] {
    Layout::storeWord(w[Layout::kKeyWord], key);
    Layout::storeWord(w[Layout::kStateWord], Layout::kLive);
    // The record is copied while its checksum is computed: one pass over it.
    auto* copyTo = reinterpret_cast<unsigned char*>(w + Layout::kSlotHeaderWords);
    Layout::storeWord(w[Layout::kChecksumWord],
                      Layout::slotChecksum(key, Layout::kLive, record, recordWords_, copyTo));
  });
#endif
}

void WriterCore::publishCounts() {
  const uint64_t words[Layout::kLiveWords] = {generation_, writerPid_, heartbeat_,  liveCount_,
                                              tombCount_,  maxProbe_,  changeCount_};
  uint64_t& seqWord = headerWord(offsetof(TableHeader, liveSeq));
  // As for a slot: an odd count is damage or a killed writer, and this write evens it.
  const uint64_t seq = Layout::loadWord(seqWord) & ~uint64_t{1};
  Layout::storeWord(seqWord, seq + 1);
  std::atomic_thread_fence(std::memory_order_release);
  for (size_t i = 0; i < Layout::kLiveWords; ++i) {
    Layout::storeWord(headerWord(Layout::kLiveWordsOffset + 8 * i), words[i]);
  }
  Layout::storeWord(headerWord(offsetof(TableHeader, liveChecksum)), Layout::liveChecksum(words));
  Layout::storeWord(seqWord, seq + 2, std::memory_order_release);
}

void WriterCore::beginLivenessChange() {
  ++changeCount_;
  publishCounts();
}

void WriterCore::endLivenessChange() {
  ++changeCount_;
  publishCounts();
}

void WriterCore::ownRecord(uint32_t slot, uint64_t* out) const {
  const uint64_t* words = slotWords(slot) + Layout::kSlotHeaderWords;
  for (uint32_t i = 0; i < recordWords_; ++i) out[i] = Layout::loadWord(words[i]);
}

void WriterCore::put(uint64_t key, const unsigned char* record) {
  const uint32_t home = homeOf(key);
  std::optional<uint32_t> freeSlot;
  uint32_t freeDistance = 0;
  for (uint32_t distance = 0; distance <= slotMask_; ++distance) {
    const uint32_t slot = (home + distance) & slotMask_;
    const uint64_t state = ownWord(slot, Layout::kStateWord);
    if (state == Layout::kLive) {
      if (ownWord(slot, Layout::kKeyWord) == key) {
        writeLiveSlot(slot, key, record);
        return;
      }
    } else if (state == Layout::kEmpty || state == Layout::kTomb) {
      if (!freeSlot) {
        freeSlot = slot;
        freeDistance = distance;
      }
      if (state == Layout::kEmpty) break;
    }
    // A slot in an invalid state is damage: it is neither reused nor taken as the end.
    if (freeSlot && distance >= maxProbe_) break;  // the key cannot sit any further
  }
  if (liveCount_ >= fixed_.capacity) {
    throw TableFullException("table " + name_ + " is full (" + std::to_string(fixed_.capacity) +
                             " records)");
  }
  if (!freeSlot) corruption("no free slot for a new key, every slot is in use or damaged");
  const bool reusesTomb = ownWord(*freeSlot, Layout::kStateWord) == Layout::kTomb;
  // Published before the key lands there, so a reader that meets the key also sees a
  // probe bound that reaches it, and a walk under way knows not to count.
  maxProbe_ = std::max(maxProbe_, freeDistance);
  beginLivenessChange();
  writeLiveSlot(*freeSlot, key, record);
  ++liveCount_;
  if (reusesTomb) --tombCount_;
  endLivenessChange();
}

bool WriterCore::erase(uint64_t key) {
  const uint32_t home = homeOf(key);
  for (uint32_t distance = 0; distance <= maxProbe_; ++distance) {
    const uint32_t slot = (home + distance) & slotMask_;
    const uint64_t state = ownWord(slot, Layout::kStateWord);
    if (state == Layout::kEmpty) return false;
    if (state != Layout::kLive || ownWord(slot, Layout::kKeyWord) != key) continue;
    // The tombstone keeps key and record, so only the state and checksum change.
    std::vector<uint64_t> record(recordWords_);
    ownRecord(slot, record.data());
    const uint64_t checksum = Layout::slotChecksum(
        key, Layout::kTomb, reinterpret_cast<const unsigned char*>(record.data()), recordWords_);
    beginLivenessChange();
    writeSlot(slot, key, Layout::kTomb, checksum, nullptr);
    --liveCount_;
    ++tombCount_;
    trimTombstones(slot);
    endLivenessChange();
    return true;
  }
  return false;
}

void WriterCore::writeBlank(uint32_t slot) {
  writeSlot(slot, 0, Layout::kEmpty, Layout::emptyChecksum(), blank_.data());
}

void WriterCore::trimTombstones(uint32_t slot) {
  // A tombstone followed by an empty slot lies on no live key's probe path (such a
  // path runs through its successor too), so it can become empty even while readers
  // probe; doing so walks back over the run of tombstones before it. Without this,
  // churn would slowly fill the table with tombstones and lengthen every probe.
  if (ownWord((slot + 1) & slotMask_, Layout::kStateWord) != Layout::kEmpty) return;
  uint32_t current = slot;
  for (uint32_t n = 0; n <= slotMask_; ++n) {
    if (ownWord(current, Layout::kStateWord) != Layout::kTomb) break;
    writeBlank(current);
    --tombCount_;
    current = (current - 1) & slotMask_;
  }
}

bool WriterCore::rewrite(uint32_t slot, uint64_t key, const unsigned char* record) {
  if (slot > slotMask_ || ownWord(slot, Layout::kStateWord) != Layout::kLive ||
      ownWord(slot, Layout::kKeyWord) != key) {
    return false;
  }
  writeLiveSlot(slot, key, record);
  return true;
}

bool WriterCore::rewriteUnchanged(const SlotStamp& stamp, uint64_t key,
                                  const unsigned char* expected, const unsigned char* record) {
  const uint32_t slot = stamp.slot;
  if (slot > slotMask_ || ownWord(slot, Layout::kSeqWord) != stamp.seq ||
      ownWord(slot, Layout::kChecksumWord) != stamp.checksum) {
    return false;
  }
  const uint64_t* w = slotWords(slot) + Layout::kSlotHeaderWords;
  for (uint32_t i = 0; i < recordWords_; ++i) {
    uint64_t want;
    std::memcpy(&want, expected + 8 * static_cast<size_t>(i), sizeof want);
    if (Layout::loadWord(w[i]) != want) return false;
  }
  return rewrite(slot, key, record);
}

void WriterCore::heartbeatIs(double seconds) {
  heartbeat_ = std::bit_cast<uint64_t>(seconds);
  publishCounts();
}

}  // namespace Brim::detail
