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
constexpr long kSleepNanoseconds = 1000 * 1000;

std::atomic<uint32_t> gSpins{64};
std::atomic<uint32_t> gYields{1000};
std::atomic<uint32_t> gSleeps{250};

void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

ReaderPatience readerPatience() {
  return ReaderPatience{gSpins.load(std::memory_order_relaxed),
                        gYields.load(std::memory_order_relaxed),
                        gSleeps.load(std::memory_order_relaxed)};
}

void readerPatienceIs(const ReaderPatience& patience) {
  gSpins.store(patience.spins, std::memory_order_relaxed);
  gYields.store(patience.yields, std::memory_order_relaxed);
  gSleeps.store(patience.sleeps, std::memory_order_relaxed);
}

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
  std::unique_ptr<TableCore> core;
  if (problems.empty()) {
    core.reset(new TableCore(std::move(*object), name, fixed, false));
    LiveWords live{};
    const std::string unsound = core->tryLiveWords(live);
    // Impossible counts say more than a checksum mismatch, so they win.
    std::string counts = inspectCounts(fixed, live.liveCount, live.tombCount, live.maxProbe);
    if (!counts.empty()) {
      problems.push_back(std::move(counts));
    } else if (!unsound.empty()) {
      problems.push_back(unsound);
    }
  }
  if (!problems.empty()) {
    throw Pontil::CorruptionDetectedException("table " + name + ": " + joinFindings(problems));
  }
  return core;
}

std::string TableCore::tryLiveWords(LiveWords& out) const {
  const uint64_t* seq = &headerWord(offsetof(TableHeader, liveSeq));
  const uint64_t* words = &headerWord(Layout::kLiveWordsOffset);
  const uint64_t* checksum = &headerWord(offsetof(TableHeader, liveChecksum));
  uint64_t copy[Layout::kLiveWords + 1];
  const ReaderPatience patience = readerPatience();
  const uint32_t attempts = patience.spins + patience.yields + patience.sleeps + 1;
  uint64_t s1 = 0;
  for (uint32_t attempt = 0; attempt < attempts; ++attempt) {
    s1 = Layout::loadWord(*seq, std::memory_order_acquire);
    if ((s1 & 1) == 0) {
      for (size_t i = 0; i < Layout::kLiveWords; ++i) copy[i] = Layout::loadWord(words[i]);
      copy[Layout::kLiveWords] = Layout::loadWord(*checksum);
      std::atomic_thread_fence(std::memory_order_acquire);
      if (Layout::loadWord(*seq) == s1) {
        std::memcpy(&out, copy, sizeof out);
        if (Layout::liveChecksum(copy) != copy[Layout::kLiveWords]) {
          return "header live words fail their checksum";
        }
        return "";
      }
    }
    if (attempt < patience.spins) {
      cpuRelax();
    } else if (attempt < patience.spins + patience.yields) {
      sched_yield();
    } else {
      const timespec pause{0, kSleepNanoseconds};
      nanosleep(&pause, nullptr);
    }
  }
  std::memset(&out, 0, sizeof out);
  return "header live words could not be read consistently (sequence count " + std::to_string(s1) +
         ")";
}

LiveWords TableCore::liveWords() const {
  LiveWords live{};
  if (writer_) {
    // The writer's own words are authoritative; the header is only their copy.
    live.liveCount = liveCount_;
    live.tombCount = tombCount_;
    live.maxProbe = maxProbe_;
    live.changeCount = changeCount_;
    live.generation = generation_;
    live.writerPid = writerPid_;
    live.heartbeat = heartbeat_;
    return live;
  }
  const std::string unsound = tryLiveWords(live);
  if (unsound.find("consistently") != std::string::npos) {
    throw SlotBusyException("table " + name_ + ": " + unsound);
  }
  if (!unsound.empty()) corruption(unsound);
  return live;
}

uint64_t TableCore::generation() const { return liveWords().generation; }

uint64_t TableCore::writerPid() const { return liveWords().writerPid; }

void TableCore::startWalk(WalkState& walk, uint32_t position) const {
  walk.started = true;
  if (position != 0) return;
  // Settled first, so a damaged header cannot stop the walk from moving on.
  const LiveWords live = liveWords();
  walk.changeCount = live.changeCount;
  walk.comparable = (live.changeCount & 1) == 0;
}

void TableCore::finishWalk(WalkState& walk) const {
  walk.finished = true;
  if (!walk.comparable || walk.damaged) return;
  const LiveWords live = liveWords();
  if (live.changeCount != walk.changeCount) return;  // records came or went meanwhile
  if (live.liveCount != walk.liveSeen) {
    corruption("a walk met " + std::to_string(walk.liveSeen) +
               " live slots, but the header counts " + std::to_string(live.liveCount));
  }
}

void TableCore::checkPassedSlots(uint64_t key, uint32_t distance) const {
  std::vector<unsigned char> payload(recordWords_ * 8);
  const uint32_t home = homeOf(key);
  for (uint32_t d = 0; d < distance && d <= slotMask_; ++d) {
    const uint32_t slot = (home + d) & slotMask_;
    const SlotImage image = readSlot(slot, payload.data(), [](uint64_t, uint64_t state) {
      return state == Layout::kLive || state == Layout::kTomb;
    });
    if (image.state == Layout::kEmpty) {
      checkBlank(slot, image);
      return;  // the writer emptied the rest of the path meanwhile
    }
    checkState(slot, image);
    checkPayload(slot, image, payload.data());
  }
}

uint64_t TableCore::size() const {
  if (writer_) return liveCount_;
  LiveWords words{};
  const std::string unsound = tryLiveWords(words);
  const uint64_t live = words.liveCount;
  if (live > fixed_.capacity) {
    corruption("impossible live count " + std::to_string(live) + " for capacity " +
               std::to_string(fixed_.capacity));
  }
  if (!unsound.empty()) corruption(unsound);
  return live;
}

double TableCore::heartbeat() const { return std::bit_cast<double>(liveWords().heartbeat); }

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
  const ReaderPatience patience = readerPatience();
  if (attempt < patience.spins) {
    cpuRelax();
  } else if (attempt < patience.spins + patience.yields) {
    sched_yield();
  } else if (attempt < patience.spins + patience.yields + patience.sleeps) {
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
  LiveWords live{};
  const std::string unsound = tryLiveWords(live);
  const std::string counts = inspectCounts(fixed_, live.liveCount, live.tombCount, live.maxProbe);
  if (!counts.empty()) report.add("header: " + counts);
  if (!unsound.empty()) report.add("header: " + unsound);
}

void TableCore::validateSlots(std::vector<std::string>& lines) const {
  Report report(lines);
  std::vector<unsigned char> payload(recordWords_ * 8);
  uint32_t limit = slotMask_;  // with damaged live words, nothing counts as misplaced
  if (writer_) {
    limit = maxProbe_;
  } else if (LiveWords live{}; tryLiveWords(live).empty() && live.maxProbe < slotMask_) {
    limit = static_cast<uint32_t>(live.maxProbe);
  }
  uint64_t live = 0;
  uint64_t tomb = 0;
  // Live keys with their slots, to find a key that is live twice.
  std::vector<std::pair<uint64_t, uint32_t>> liveKeys;
  for (uint32_t slot = 0; slot < fixed_.slotCount; ++slot) {
    SlotImage image;
    uint64_t seq = 0;
    try {
      seq = Layout::loadWord(slotWords(slot)[Layout::kSeqWord], std::memory_order_acquire);
      image = readSlot(slot, payload.data(), [](uint64_t, uint64_t) { return true; });
    } catch (const Pontil::CorruptionDetectedException& e) {
      report.add(e.what());
      continue;
    }
    const std::string where = describeSlot(slot, image.key);
    if (image.state == Layout::kEmpty) {
      const bool blank =
          image.key == 0 && image.checksum == Layout::emptyChecksum() &&
          std::all_of(payload.begin(), payload.end(), [](unsigned char byte) { return byte == 0; });
      if (!blank) report.add(where + " is marked empty but is not blank");
      continue;
    }
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
  const uint64_t liveHeader = liveCount_;
  const uint64_t tombHeader = tombCount_;
  if (liveHeader != live || tombHeader != tomb) {
    report.add("header: counts " + std::to_string(liveHeader) + " live and " +
               std::to_string(tombHeader) + " tombstones, but the slots hold " +
               std::to_string(live) + " and " + std::to_string(tomb));
  }
}

}  // namespace Brim::detail
