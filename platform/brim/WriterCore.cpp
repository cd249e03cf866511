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

std::string busyMessage(const std::string& name, const SharedObject& object) {
  std::string message = "table " + name + " already has a writer";
  if (object.size() >= Layout::kHeaderSize) {
    const auto* header = reinterpret_cast<const TableHeader*>(object.data());
    const uint64_t pid = Layout::loadWord(header->writerPid);
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
    : TableCore(std::move(object), std::move(name), fixed, true) {}

WriterCore::~WriterCore() {
  // Tells readers that nobody keeps this table up to date any more.
  Layout::storeWord(headerWord(offsetof(TableHeader, writerPid)), 0, std::memory_order_release);
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
    if (std::optional<SharedObject> existing =
            SharedObject::open(name, SharedObject::Access::kReadWrite)) {
      if (!existing->tryLockExclusive()) throw WriterBusyException(busyMessage(name, *existing));
      // Unlinked between our open and our lock: whoever unlinked it wants a new table.
      if (!existing->isLinked()) continue;
      return attach(std::move(*existing), name, layout);
    }
    const TableHeader fixed = freshHeader(layout, capacity);
    SharedObject object = SharedObject::createTemporary(name, fixed.totalSize);
    // Locked before it is visible, so no second writer can slip in after publication.
    if (!object.tryLockExclusive()) {
      throw std::runtime_error("table " + name + ": cannot lock the table being created");
    }
    std::unique_ptr<WriterCore> core = create(std::move(object), name, fixed);
    if (core->object_.publish()) return core;
    // Another writer published the table first: attach to theirs (or find it busy).
  }
  throw std::runtime_error("table " + name +
                           " kept being created and removed by others while opening it");
}

std::unique_ptr<WriterCore> WriterCore::create(SharedObject object, const std::string& name,
                                               const TableHeader& fixed) {
  std::memcpy(object.data(), &fixed, Layout::kFixedHeaderSize);
  std::unique_ptr<WriterCore> core(new WriterCore(std::move(object), name, fixed));
  Layout::storeWord(core->headerWord(offsetof(TableHeader, generation)), 1);
  Layout::storeWord(core->headerWord(offsetof(TableHeader, writerPid)),
                    static_cast<uint64_t>(getpid()));
  return core;
}

std::unique_ptr<WriterCore> WriterCore::attach(SharedObject object, const std::string& name,
                                               const RecordLayout& layout) {
  if (object.size() < Layout::kHeaderSize) {
    throw Pontil::CorruptionDetectedException(
        "table " + name + ": object is " + std::to_string(object.size()) +
        " bytes, smaller than its header (" + std::to_string(Layout::kHeaderSize) + " bytes)");
  }
  const TableHeader fixed = readFixedHeader(object.data());
  const HeaderFindings findings = inspectHeader(fixed, object.size(), layout);
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
  std::unique_ptr<WriterCore> core(new WriterCore(std::move(object), name, fixed));
  core->repairAndRecount();
  uint64_t& generation = core->headerWord(offsetof(TableHeader, generation));
  Layout::storeWord(generation, Layout::loadWord(generation) + 1, std::memory_order_release);
  Layout::storeWord(core->headerWord(offsetof(TableHeader, writerPid)),
                    static_cast<uint64_t>(getpid()), std::memory_order_release);
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
    const bool intact = !used || Layout::slotChecksum(key, state, bytes, recordWords_) == checksum;
    if (seq & 1) {
      // The previous writer died inside a write. Key and state are single words and
      // so either old or new, but the record may be half of each: such a record was
      // never written by anyone, so it is dropped rather than published.
      if (!intact) {
        state = Layout::kTomb;
        Layout::storeWord(w[Layout::kStateWord], state);
        Layout::storeWord(w[Layout::kChecksumWord],
                          Layout::slotChecksum(key, state, bytes, recordWords_));
        attachReport_.push_back(describeSlot(slot, key) +
                                ": a write interrupted by the previous writer left a torn "
                                "record, which was dropped");
      } else {
        attachReport_.push_back(describeSlot(slot, key) +
                                ": the previous writer stopped inside a write that left the "
                                "record intact; its sequence count was evened");
      }
      Layout::storeWord(w[Layout::kSeqWord], seq + 1, std::memory_order_release);
    } else if (!intact) {
      // Damage of unknown origin is left for validation and the corruption hook.
      attachReport_.push_back(describeSlot(slot, key) + " fails its checksum");
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
  Layout::storeWord(headerWord(offsetof(TableHeader, maxProbe)), maxProbe_,
                    std::memory_order_release);
  publishCounts();
}

void WriterCore::writeSlot(uint32_t slot, uint64_t key, uint64_t state, uint64_t checksum,
                           const unsigned char* record) {
  uint64_t* w = slotWords(slot);
  // An odd count here can only be damage; this write leaves it even again.
  const uint64_t seq = Layout::loadWord(w[Layout::kSeqWord]) & ~uint64_t{1};
  Layout::storeWord(w[Layout::kSeqWord], seq + 1);
  // Keeps the odd count ahead of every word below for a reader that sees any of them.
  std::atomic_thread_fence(std::memory_order_release);
  Layout::storeWord(w[Layout::kKeyWord], key);
  Layout::storeWord(w[Layout::kStateWord], state);
  Layout::storeWord(w[Layout::kChecksumWord], checksum);
  if (record != nullptr) {
    uint64_t* words = w + Layout::kSlotHeaderWords;
    for (uint32_t i = 0; i < recordWords_; ++i) {
      uint64_t value;
      std::memcpy(&value, record + 8 * i, 8);
      Layout::storeWord(words[i], value);
    }
  }
  Layout::storeWord(w[Layout::kSeqWord], seq + 2, std::memory_order_release);
}

void WriterCore::publishCounts() {
  Layout::storeWord(headerWord(offsetof(TableHeader, liveCount)), liveCount_,
                    std::memory_order_release);
  Layout::storeWord(headerWord(offsetof(TableHeader, tombCount)), tombCount_,
                    std::memory_order_release);
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
        writeSlot(slot, key, Layout::kLive,
                  Layout::slotChecksum(key, Layout::kLive, record, recordWords_), record);
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
  if (freeDistance > maxProbe_) {
    // Published before the key lands there, so a reader that meets the key also
    // sees a probe bound that reaches it.
    maxProbe_ = freeDistance;
    Layout::storeWord(headerWord(offsetof(TableHeader, maxProbe)), maxProbe_,
                      std::memory_order_release);
  }
  writeSlot(*freeSlot, key, Layout::kLive,
            Layout::slotChecksum(key, Layout::kLive, record, recordWords_), record);
  ++liveCount_;
  if (reusesTomb) --tombCount_;
  publishCounts();
}

bool WriterCore::erase(uint64_t key) {
  const uint32_t home = homeOf(key);
  for (uint32_t distance = 0; distance <= maxProbe_; ++distance) {
    const uint32_t slot = (home + distance) & slotMask_;
    const uint64_t state = ownWord(slot, Layout::kStateWord);
    if (state == Layout::kEmpty) return false;
    if (state != Layout::kLive || ownWord(slot, Layout::kKeyWord) != key) continue;
    // The tombstone keeps key and record, so only the state and checksum change.
    const uint64_t checksum = ownWord(slot, Layout::kChecksumWord) ^
                              Layout::stateTag(Layout::kLive) ^ Layout::stateTag(Layout::kTomb);
    writeSlot(slot, key, Layout::kTomb, checksum, nullptr);
    --liveCount_;
    ++tombCount_;
    trimTombstones(slot);
    publishCounts();
    return true;
  }
  return false;
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
    writeSlot(current, ownWord(current, Layout::kKeyWord), Layout::kEmpty, 0, nullptr);
    --tombCount_;
    current = (current - 1) & slotMask_;
  }
}

bool WriterCore::rewrite(uint32_t slot, uint64_t key, const unsigned char* record) {
  if (slot > slotMask_ || ownWord(slot, Layout::kStateWord) != Layout::kLive ||
      ownWord(slot, Layout::kKeyWord) != key) {
    return false;
  }
  writeSlot(slot, key, Layout::kLive,
            Layout::slotChecksum(key, Layout::kLive, record, recordWords_), record);
  return true;
}

void WriterCore::heartbeatIs(double seconds) {
  Layout::storeWord(headerWord(offsetof(TableHeader, heartbeat)), std::bit_cast<uint64_t>(seconds),
                    std::memory_order_release);
}

}  // namespace Brim::detail
