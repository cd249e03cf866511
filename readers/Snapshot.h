// One pass over every table an agent publishes under a namespace, copied into
// plain records with a status per table, for readers that want everything at
// once (exporters, subagents) rather than one view at a time.
//
// Reading never fails as a whole: a table that does not exist or cannot be
// opened is reported in its status and read as empty, and a damaged slot is
// skipped and counted while the rest of the table is still read. Tables are
// opened read-only for the pass and closed after it, so the pass never writes
// shared memory and never waits on the agent beyond the tables' bounded retries.
// Separate passes share nothing: any number of threads may read at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "bridging/VlanCounter.h"
#include "interface/DropCounter.h"
#include "interface/EthIntfCounterBrim.h"
#include "interface/IntfQueueCounter.h"
#include "interface/VlanIntfCounterBrim.h"
#include "readers/PublishedTables.h"

namespace Readers {

// How far a pass got with one table.
enum class TableState {
  read,      // opened and walked; damaged slots, if any, are counted
  missing,   // no agent has published it under this namespace
  unusable,  // it exists but could not be opened (damaged header, other layout)
};

const char* tableStateName(TableState state);

struct TableStatus {
  std::string table;  // the name within the namespace ("allIntfCounters")
  TableState state = TableState::missing;
  std::string message;        // one line when the table was not read
  uint64_t records = 0;       // records copied
  uint64_t damagedSlots = 0;  // slots skipped as damaged
  std::string lastDamage;     // the message of the last damaged slot
  double newestTime = 0;      // the latest time a record carries; 0 when none does
};

// The records of one table, sorted by key, and how reading it went.
template <class Record>
struct TableRows {
  TableStatus status;
  std::vector<Record> rows;

  // The record of `key`, or null. Requires: rows sorted by key (as read).
  const Record* find(const typename Record::Key& key) const {
    auto it = std::lower_bound(
        rows.begin(), rows.end(), key,
        [](const Record& r, const typename Record::Key& k) { return r.key() < k; });
    return it != rows.end() && it->key() == key ? &*it : nullptr;
  }
};

struct Snapshot {
  std::string ns;
  TableRows<Interface::EthIntfCounterBrim> ethCounters;   // running totals
  TableRows<Interface::EthIntfCounterBrim> ethBaselines;  // what the last clear copied
  TableRows<Interface::QueueCounter::IntfQueueCounter> queueCounters;
  TableRows<Interface::QueueCounter::IntfQueueCounter> queueBaselines;
  TableRows<Brim::Interface::DropCounter> aclDrops;
  TableRows<Interface::VlanIntfCounterBrim> vlanIntfCounters;
  TableRows<Brim::Bridging::VlanCounter> vlanCounters;
  TableRows<Brim::Bridging::VlanCounter> vlanSnapshots;  // what the last clear copied
  TableRows<Published::CpuPortCounter> cpuCounters;
  TableRows<Published::CoppClassCounter> coppClasses;

  // Every table's status, in the order above.
  std::vector<const TableStatus*> statuses() const;
  uint64_t recordCount() const;
};

// Reads every table of namespace `ns` once. Never raises for a missing or
// damaged table; see the statuses.
Snapshot readSnapshot(const std::string& ns);

}  // namespace Readers
