#include "brim/TableCore.h"

#include <sched.h>
#include <time.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "brim/Exceptions.h"
#include "brim/HeaderCheck.h"

namespace Brim::detail {

using Layout::TableHeader;

namespace {

// Retry budget of a reader facing a slot mid-write: spin briefly (a write takes tens
// of nanoseconds), then yield (the writer may share our core), then sleep (the writer
// may be descheduled); about a quarter of a second in all before giving up.
constexpr uint32_t kSpinAttempts = 64;
constexpr uint32_t kYieldAttempts = 1000;
constexpr uint32_t kSleepAttempts = 250;
constexpr long kSleepNanoseconds = 1000 * 1000;

void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

TableCore::TableCore(SharedObject object, std::string name, const TableHeader& fixed, bool writer)
    : object_(std::move(object)),
      name_(std::move(name)),
      fixed_(fixed),
      base_(object_.data()),
      slotMask_(fixed.slotCount - 1),
      recordWords_(fixed.recordSize / 8),
      writer_(writer) {}

TableCore::~TableCore() = default;

std::unique_ptr<TableCore> TableCore::openReader(const std::string& name,
                                                 const RecordLayout& layout) {
  std::optional<SharedObject> object = SharedObject::open(name, SharedObject::Access::kReadOnly);
  if (!object) throw TableMissingException("table " + name + " does not exist");
  if (object->size() < Layout::kHeaderSize) {
    throw Pontil::CorruptionDetectedException(
        "table " + name + ": object is " + std::to_string(object->size()) +
        " bytes, smaller than its header (" + std::to_string(Layout::kHeaderSize) + " bytes)");
  }
  const TableHeader fixed = readFixedHeader(object->data());
  const HeaderFindings findings = inspectHeader(fixed, object->size(), layout);
  std::vector<std::string> problems;
  if (!findings.foreign.empty()) problems.push_back(findings.foreign);
  problems.insert(problems.end(), findings.layout.begin(), findings.layout.end());
  if (!findings.checksumOk) problems.push_back("header checksum mismatch");
  problems.insert(problems.end(), findings.damage.begin(), findings.damage.end());
  if (problems.empty()) {
    const auto* header = reinterpret_cast<const TableHeader*>(object->data());
    std::string counts =
        inspectCounts(fixed, Layout::loadWord(header->liveCount, std::memory_order_acquire),
                      Layout::loadWord(header->tombCount), Layout::loadWord(header->maxProbe));
    if (!counts.empty()) problems.push_back(std::move(counts));
  }
  if (!problems.empty()) {
    throw Pontil::CorruptionDetectedException("table " + name + ": " + joinFindings(problems));
  }
  return std::unique_ptr<TableCore>(new TableCore(std::move(*object), name, fixed, false));
}

uint64_t TableCore::size() const {
  if (writer_) return liveCount_;
  const uint64_t live = headerLoad(offsetof(TableHeader, liveCount));
  if (live > fixed_.capacity) {
    corruption("impossible live count " + std::to_string(live) + " for capacity " +
               std::to_string(fixed_.capacity));
  }
  return live;
}

double TableCore::heartbeat() const {
  return std::bit_cast<double>(headerLoad(offsetof(TableHeader, heartbeat)));
}

void TableCore::corruption(const std::string& what) const {
  throw Pontil::CorruptionDetectedException("table " + name_ + ": " + what);
}

std::string TableCore::describeSlot(uint32_t slot, uint64_t key) const {
  return "slot " + std::to_string(slot) + " (key " + hex64(key) + ")";
}

void TableCore::slotBusy(uint32_t slot, uint64_t seq, uint32_t attempt) const {
  if (writer_) {
    // Only this process writes the table and it is not inside a write now.
    corruption("slot " + std::to_string(slot) + " has a sequence count stuck odd (" +
               std::to_string(seq) + ")");
  }
  if (attempt < kSpinAttempts) {
    cpuRelax();
  } else if (attempt < kSpinAttempts + kYieldAttempts) {
    sched_yield();
  } else if (attempt < kSpinAttempts + kYieldAttempts + kSleepAttempts) {
    const timespec pause{0, kSleepNanoseconds};
    nanosleep(&pause, nullptr);
  } else {
    throw SlotBusyException("table " + name_ + ": slot " + std::to_string(slot) +
                            " could not be read consistently in " + std::to_string(attempt + 1) +
                            " attempts (sequence count " + std::to_string(seq) +
                            "); its writer may have stopped in the middle of writing it");
  }
}

void TableCore::placementFailed(uint32_t slot, uint64_t key, uint32_t distance) const {
  // The writer publishes a longer probe before placing a key that needs it, so a
  // fresh look at the bound settles whether this is a new key or a misplaced one.
  const uint32_t limit = probeLimit();
  if (distance <= limit) return;
  corruption(describeSlot(slot, key) + " is " + std::to_string(distance) +
             " slots from its home slot " + std::to_string(homeOf(key)) +
             ", beyond the longest probe " + std::to_string(limit));
}

namespace {

// Keeps a validation report to a readable, bounded length.
class Report {
 public:
  explicit Report(std::vector<std::string>& lines) : lines_(lines) {}
  ~Report() {
    if (dropped_ > 0) lines_.push_back("... and " + std::to_string(dropped_) + " more problems");
  }
  void add(std::string line) {
    if (lines_.size() < kMaxLines) {
      lines_.push_back(std::move(line));
    } else {
      ++dropped_;
    }
  }

 private:
  static constexpr size_t kMaxLines = 100;
  std::vector<std::string>& lines_;
  uint64_t dropped_ = 0;
};

}  // namespace

std::vector<std::string> TableCore::validate() const {
  std::vector<std::string> lines;
  validateHeader(lines);
  validateSlots(lines);
  return lines;
}

void TableCore::validateHeader(std::vector<std::string>& lines) const {
  Report report(lines);
  const TableHeader now = readFixedHeader(base_);
  const RecordLayout opened{
      std::string(fixed_.typeName, strnlen(fixed_.typeName, sizeof fixed_.typeName)),
      fixed_.recordSize, fixed_.layoutHash};
  const HeaderFindings findings = inspectHeader(now, object_.size(), opened);
  if (!findings.foreign.empty()) report.add("header: " + findings.foreign);
  for (const auto& finding : findings.layout) report.add("header: " + finding);
  if (!findings.checksumOk) report.add("header: checksum mismatch");
  for (const auto& finding : findings.damage) report.add("header: " + finding);
  const std::string counts = inspectCounts(fixed_, headerLoad(offsetof(TableHeader, liveCount)),
                                           headerLoad(offsetof(TableHeader, tombCount)),
                                           headerLoad(offsetof(TableHeader, maxProbe)));
  if (!counts.empty()) report.add("header: " + counts);
}

void TableCore::validateSlots(std::vector<std::string>& lines) const {
  Report report(lines);
  std::vector<unsigned char> payload(recordWords_ * 8);
  const uint32_t limit = probeLimit();
  uint64_t live = 0;
  uint64_t tomb = 0;
  // Live keys with their slots, to find a key that is live twice.
  std::vector<std::pair<uint64_t, uint32_t>> liveKeys;
  for (uint32_t slot = 0; slot < fixed_.slotCount; ++slot) {
    SlotImage image;
    uint64_t seq = 0;
    try {
      seq = Layout::loadWord(slotWords(slot)[Layout::kSeqWord], std::memory_order_acquire);
      image = readSlot(slot, payload.data(), [](uint64_t, uint64_t state) {
        return state == Layout::kLive || state == Layout::kTomb;
      });
    } catch (const Pontil::CorruptionDetectedException& e) {
      report.add(e.what());
      continue;
    }
    const std::string where = describeSlot(slot, image.key);
    if (image.state == Layout::kEmpty) continue;
    if (image.state != Layout::kLive && image.state != Layout::kTomb) {
      report.add("slot " + std::to_string(slot) + " has an invalid state " +
                 std::to_string(image.state));
      continue;
    }
    if (image.state == Layout::kLive) {
      ++live;
      if (writer_) liveKeys.emplace_back(image.key, slot);
    } else {
      ++tomb;
    }
    const uint64_t expected =
        Layout::slotChecksum(image.key, image.state, payload.data(), recordWords_);
    if (expected != image.checksum) report.add(where + " fails its checksum");
    const uint32_t home = homeOf(image.key);
    const uint32_t distance = Layout::probeDistance(home, slot, slotMask_);
    if (distance > limit) {
      report.add(where + " is " + std::to_string(distance) + " slots from its home slot " +
                 std::to_string(home) + ", beyond the longest probe " + std::to_string(limit));
      continue;
    }
    // Every slot between the home slot and this one must be in use, or a probe for
    // this key stops short of it.
    for (uint32_t d = 0; d < distance; ++d) {
      const uint32_t between = (home + d) & slotMask_;
      if (Layout::loadWord(slotWords(between)[Layout::kStateWord]) != Layout::kEmpty) continue;
      // A reader may have raced with a delete of this key that emptied the path.
      const bool unchanged = writer_ || Layout::loadWord(slotWords(slot)[Layout::kSeqWord],
                                                         std::memory_order_acquire) == seq;
      if (unchanged) {
        report.add(where + " is unreachable: empty slot " + std::to_string(between) +
                   " lies between it and its home slot " + std::to_string(home));
      }
      break;
    }
  }
  // Only the writer's table stands still: a reader may meet a key before and after
  // it was deleted and inserted again, and the counts move under it.
  if (!writer_) return;
  std::sort(liveKeys.begin(), liveKeys.end());
  for (size_t i = 1; i < liveKeys.size(); ++i) {
    if (liveKeys[i].first == liveKeys[i - 1].first) {
      report.add("key " + hex64(liveKeys[i].first) + " is live in slots " +
                 std::to_string(liveKeys[i - 1].second) + " and " +
                 std::to_string(liveKeys[i].second));
    }
  }
  const uint64_t liveHeader = headerLoad(offsetof(TableHeader, liveCount));
  const uint64_t tombHeader = headerLoad(offsetof(TableHeader, tombCount));
  if (liveHeader != live || tombHeader != tomb) {
    report.add("header: counts " + std::to_string(liveHeader) + " live and " +
               std::to_string(tombHeader) + " tombstones, but the slots hold " +
               std::to_string(live) + " and " + std::to_string(tomb));
  }
}

}  // namespace Brim::detail
