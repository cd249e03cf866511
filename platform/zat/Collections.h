// Zat keyed collections.
//
// AttrCollection is a keyed attribute of a watched object (the `intf` set of the
// common data, the entries of a directory, the classes of a policy map): every
// change notifies the owner's notifiees with the attribute's id and the key.
// ChildCollection holds a state machine's children by key; removing a child marks
// it a zombie first so that none of its reactors runs again.
//
// Walks over a collection may be re-entered by handlers that add or remove
// entries, including the entry being visited, so the walks below never hold a
// container iterator across a call: hash walks visit a snapshot of the keys and
// skip keys removed meanwhile; ordered walks find their place again with
// upper_bound after each step.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

#include "zat/Ptr.h"

namespace Zat {

// Calls f(key) for every key of an unordered or ordered map, tolerating changes.
template <class Map, class F>
void forEachKeySafely(const Map& map, F&& f) {
  std::vector<typename Map::key_type> keys;
  keys.reserve(map.size());
  for (const auto& [k, v] : map) keys.push_back(k);
  for (const auto& k : keys) {
    if (map.find(k) != map.end()) f(k);
  }
}

// Calls f(key) in key order; after each call the walk resumes after that key.
template <class K, class V, class C, class F>
void forEachKeyOrdered(const std::map<K, V, C>& map, F&& f) {
  auto it = map.begin();
  while (it != map.end()) {
    K key = it->first;
    f(key);
    it = map.upper_bound(key);
  }
}

// A keyed attribute of `owner` that notifies on every change of an entry.
template <class K, class V, class Map = std::unordered_map<K, V>>
class AttrCollection {
 public:
  using key_type = K;
  using mapped_type = V;

  AttrCollection(const PtrInterface* owner, AttributeId attr) : owner_(owner), attr_(attr) {}

  AttributeId attributeId() const { return attr_; }
  // The entry of `key`, or null.
  const V* find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  std::optional<V> get(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? std::nullopt : std::optional<V>(it->second);
  }
  bool contains(const K& key) const { return map_.find(key) != map_.end(); }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  // How many times an entry was added, changed or removed so far. While it stays the
  // same, an entry's address from find() is still that entry's.
  uint64_t changeCount() const { return changes_; }
  const Map& map() const { return map_; }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  // Adds or changes the entry; notifies only when something changed.
  void set(const K& key, V value) {
    auto [it, inserted] = map_.try_emplace(key, value);
    if (!inserted) {
      if (it->second == value) return;
      it->second = std::move(value);
    }
    ++changes_;
    owner_->notify(attr_, &key);
  }
  // Removes the entry; notifies when it existed.
  void del(const K& key) {
    // `key` may refer into the entry being erased: notify with a copy.
    const K removed = key;
    if (map_.erase(removed) == 0) return;
    ++changes_;
    owner_->notify(attr_, &removed);
  }
  void delAll() {
    for (const auto& k : keys()) del(k);
  }
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& [k, v] : map_) out.push_back(k);
    return out;
  }
  template <class F>
  void forEachKey(F&& f) const {
    if constexpr (requires { map_.upper_bound(std::declval<K>()); }) {
      forEachKeyOrdered(map_, f);
    } else {
      forEachKeySafely(map_, f);
    }
  }

 private:
  const PtrInterface* owner_;
  AttributeId attr_;
  Map map_;
  uint64_t changes_ = 0;
};

// Children of a state machine by key, owned by counted references.
template <class K, class T, class Map = std::unordered_map<K, Ptr<T>>>
class ChildCollection {
 public:
  T* find(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : it->second.ptr();
  }
  Ptr<T> get(const K& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? Ptr<T>() : it->second;
  }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  auto begin() const { return map_.begin(); }
  auto end() const { return map_.end(); }

  void insert(const K& key, const Ptr<T>& child) { map_[key] = child; }
  // Marks the child a zombie and releases it; nothing happens if absent.
  void del(const K& key) {
    auto it = map_.find(key);
    if (it == map_.end()) return;
    Ptr<T> child = std::move(it->second);
    map_.erase(it);
    child->zatDoZombieReactors(true);
  }
  void delAll() {
    for (const auto& k : keys()) del(k);
  }
  std::vector<K> keys() const {
    std::vector<K> out;
    out.reserve(map_.size());
    for (const auto& [k, v] : map_) out.push_back(k);
    return out;
  }
  // Calls f(child) for every child present when reached; tolerates removals.
  template <class F>
  void forEachChild(F&& f) const {
    for (const auto& k : keys()) {
      if (Ptr<T> c = get(k)) f(c);
    }
  }

 private:
  Map map_;
};

}  // namespace Zat
