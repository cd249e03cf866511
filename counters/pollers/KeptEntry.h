// A poller's own entry of a keyed collection, looked up again only after the
// collection changed.
//
// The queue poller reads its interface's configuration from the whole directory on
// every poll. A hash look-up there is a division and a chain of dependent loads,
// each a cache miss when a second-long idle left the cache cold. Any add, change or
// removal in the collection moves its change count, and until then the entry found
// last is still where it was.
#pragma once

#include <cstdint>

namespace Vorn::Counters {

template <class Collection>
class KeptEntry {
 public:
  using Key = typename Collection::key_type;
  using Value = typename Collection::mapped_type;

  // collection.find(key), from the last answer while nothing in `collection` changed.
  // Requires: the caller holds `collection` alive for as long as it uses this, and
  // asks for one key only.
  const Value* find(const Collection& collection, const Key& key) {
    if (&collection != collection_ || collection.changeCount() != changes_) {
      collection_ = &collection;
      changes_ = collection.changeCount();
      entry_ = collection.find(key);
    }
    return entry_;
  }

 private:
  const Collection* collection_ = nullptr;
  uint64_t changes_ = 0;
  const Value* entry_ = nullptr;
};

}  // namespace Vorn::Counters
