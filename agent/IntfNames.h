// The writer of the "intfNames" table: for every interface a platform serves,
// the name the operating system knows it by, whether it is there and up, and
// its speed. Readers (vornctl, exporters, the SNMP subagent) show these beside
// the counters, whatever the platform.
//
// The table also keeps the Linux platform's id assignment: a kernel device
// name is given an `Ethernet<N>` id once, and the record keeps it after the
// device goes (present = 0), so the same name gets the same id later, also
// from a restarted agent. New names take the lowest N no record holds. When
// every slot is taken, the record of the device gone longest is reused.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "brim/Brim.h"
#include "orvo/IntfId.h"
#include "readers/PublishedTables.h"

namespace Agent {

class IntfNames {
 public:
  // Opens (or re-attaches to) "<ns>.intfNames" for `capacity` records, and
  // loads the assignments it holds.
  IntfNames(const std::string& ns, uint32_t capacity);

  // The Ethernet id of kernel name `name`: the one it had, or a new one.
  // nullopt when no id can be given (every record belongs to a present device).
  std::optional<Orvo::IntfId> ethIdFor(const std::string& name);
  // The interface is there now.
  void presentIs(Orvo::IntfId id, const std::string& name, uint64_t ifIndex, bool operUp,
                 uint64_t speedBps, double now);
  void operUpIs(Orvo::IntfId id, bool operUp, double now);
  // The interface went; its record (and so its id) stays.
  void goneIs(Orvo::IntfId id, double now);
  // Every record not in `keep` is marked gone: devices an earlier agent saw
  // may have left while no agent was running.
  template <class Set>
  void goneExcept(const Set& keep, double now) {
    for (const auto& [id, r] : records_) {
      if (r.present && !keep.count(id)) goneIs(id, now);
    }
  }

  std::optional<Published::IntfNameRecord> find(Orvo::IntfId id) const;
  size_t size() const { return records_.size(); }

 private:
  void put(const Published::IntfNameRecord& r);

  std::unique_ptr<Brim::TableWriter<Published::IntfNameRecord>> table_;
  uint32_t capacity_;
  std::map<Orvo::IntfId, Published::IntfNameRecord> records_;  // the table's contents
  std::map<std::string, Orvo::IntfId> ethIdOfName_;
};

}  // namespace Agent
