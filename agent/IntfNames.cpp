#include "agent/IntfNames.h"

#include <limits>

namespace Agent {

IntfNames::IntfNames(const std::string& ns, uint32_t capacity)
    : table_(Brim::TableWriter<Published::IntfNameRecord>::open(ns, Published::kIntfNamesTable,
                                                                capacity)),
      capacity_(capacity) {
  table_->forEach([&](const Published::IntfNameRecord& r) {
    records_[r.intfId] = r;
    if (Orvo::EthIntfId::isEthIntfId(r.intfId) && !r.kernelNameText().empty()) {
      ethIdOfName_[r.kernelNameText()] = r.intfId;
    }
  });
}

void IntfNames::put(const Published::IntfNameRecord& r) {
  records_[r.intfId] = r;
  table_->put(r);
}

std::optional<Orvo::IntfId> IntfNames::ethIdFor(const std::string& name) {
  if (auto it = ethIdOfName_.find(name); it != ethIdOfName_.end()) return it->second;
  if (name.empty() || name.size() >= Published::IntfNameRecord::kNameSize) return std::nullopt;
  if (records_.size() >= capacity_) {
    // Reuse the record of the device gone longest.
    const Published::IntfNameRecord* oldest = nullptr;
    for (const auto& [id, r] : records_) {
      if (r.present || !Orvo::EthIntfId::isEthIntfId(id)) continue;
      if (!oldest || r.lastChange < oldest->lastChange) oldest = &r;
    }
    if (!oldest) return std::nullopt;
    Orvo::IntfId freed = oldest->intfId;
    ethIdOfName_.erase(oldest->kernelNameText());
    table_->erase(freed);
    records_.erase(freed);
  }
  // The lowest number no record holds; records hold Ethernet<N> ids only.
  uint32_t n = 1;
  for (const auto& [id, r] : records_) {
    if (!Orvo::EthIntfId::isEthIntfId(id) || id.part(1) != 0) continue;
    if (id.part(0) == n) {
      ++n;
    } else if (id.part(0) > n) {
      break;
    }
  }
  if (n > std::numeric_limits<uint16_t>::max()) return std::nullopt;
  Orvo::IntfId id("Ethernet" + std::to_string(n));
  Published::IntfNameRecord r;
  r.intfId = id;
  r.kernelNameIs(name);
  put(r);
  ethIdOfName_[name] = id;
  return id;
}

void IntfNames::presentIs(Orvo::IntfId id, const std::string& name, uint64_t ifIndex, bool operUp,
                          uint64_t speedBps, double now) {
  Published::IntfNameRecord r;
  if (auto it = records_.find(id); it != records_.end()) r = it->second;
  bool changed = !r.present || (r.operUp != 0) != operUp;
  r.intfId = id;
  r.kernelNameIs(name);
  r.ifIndex = ifIndex;
  r.operUp = operUp ? 1 : 0;
  r.present = 1;
  r.speedBps = speedBps;
  if (changed) r.lastChange = now;
  if (records_.size() >= capacity_ && !records_.count(id)) return;  // full: shown without a name
  put(r);
}

void IntfNames::operUpIs(Orvo::IntfId id, bool operUp, double now) {
  auto it = records_.find(id);
  if (it == records_.end() || (it->second.operUp != 0) == operUp) return;
  Published::IntfNameRecord r = it->second;
  r.operUp = operUp ? 1 : 0;
  r.lastChange = now;
  put(r);
}

void IntfNames::goneIs(Orvo::IntfId id, double now) {
  auto it = records_.find(id);
  if (it == records_.end() || !it->second.present) return;
  Published::IntfNameRecord r = it->second;
  r.present = 0;
  r.operUp = 0;
  r.ifIndex = 0;
  r.lastChange = now;
  put(r);
}

std::optional<Published::IntfNameRecord> IntfNames::find(Orvo::IntfId id) const {
  auto it = records_.find(id);
  if (it == records_.end()) return std::nullopt;
  return it->second;
}

}  // namespace Agent
