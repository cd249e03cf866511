#include "nimlog/BlockTimer.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

namespace Nimlog {

namespace {

struct Registry {
  std::mutex lock;
  // Sorted by name so that readers get a stable order; cells never move or die.
  std::map<std::string, std::unique_ptr<BlockTimerCell>, std::less<>> cells;
};

// Never destroyed: handlers of objects torn down at exit still stop their timers.
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

}  // namespace

BlockTimerStats BlockTimerCell::stats() const {
  BlockTimerStats result{name_, shared_.count.load(std::memory_order_relaxed),
                         shared_.totalNs.load(std::memory_order_relaxed),
                         shared_.maxNs.load(std::memory_order_relaxed)};
  if (!ownedResetPending_.load(std::memory_order_acquire)) {
    result.count += owned_.count.load(std::memory_order_relaxed);
    result.totalNs += owned_.totalNs.load(std::memory_order_relaxed);
    result.maxNs = std::max(result.maxNs, owned_.maxNs.load(std::memory_order_relaxed));
  }
  return result;
}

void BlockTimerCell::reset() noexcept {
  shared_.count.store(0, std::memory_order_relaxed);
  shared_.totalNs.store(0, std::memory_order_relaxed);
  shared_.maxNs.store(0, std::memory_order_relaxed);
  ownedResetPending_.store(true, std::memory_order_release);
}

BlockTimerCell& blockTimerCell(const char* name) {
  Registry& r = registry();
  const std::string key = name != nullptr ? name : "";
  std::lock_guard guard(r.lock);
  auto it = r.cells.find(key);
  if (it == r.cells.end()) {
    it = r.cells.emplace(key, std::make_unique<BlockTimerCell>(key)).first;
  }
  return *it->second;
}

std::vector<BlockTimerStats> blockTimerStats() {
  Registry& r = registry();
  std::lock_guard guard(r.lock);
  std::vector<BlockTimerStats> result;
  result.reserve(r.cells.size());
  for (const auto& [name, cell] : r.cells) {
    result.push_back(cell->stats());
  }
  return result;
}

std::optional<BlockTimerStats> blockTimerStatsOf(const std::string& name) {
  Registry& r = registry();
  std::lock_guard guard(r.lock);
  const auto it = r.cells.find(name);
  if (it == r.cells.end()) {
    return std::nullopt;
  }
  return it->second->stats();
}

void blockTimerStatsReset() noexcept {
  Registry& r = registry();
  std::lock_guard guard(r.lock);
  for (auto& [name, cell] : r.cells) {
    cell->reset();
  }
}

}  // namespace Nimlog
