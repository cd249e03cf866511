#include "readers/Snapshot.h"

#include <cmath>
#include <exception>
#include <memory>

#include "brim/Brim.h"
#include "tables/CounterTables.h"

namespace Readers {

namespace {

using Interface::QueueCounter::IntfQueueCounter;

double timeOf(const Interface::EthIntfCounterBrim& r) { return r.statistics().statsUpdateTime(); }
double timeOf(const IntfQueueCounter& r) { return r.lastUpdateTime(); }
double timeOf(const Brim::Interface::DropCounter&) { return 0; }
double timeOf(const Interface::VlanIntfCounterBrim& r) { return r.statistics().statsUpdateTime(); }
double timeOf(const Brim::Bridging::VlanCounter& r) { return r.timestamp(); }
double timeOf(const Published::CpuPortCounter& r) { return r.statistics.statsUpdateTime(); }
double timeOf(const Published::CoppClassCounter& r) { return r.timestamp; }

// A record that passed its slot's checksum can still be impossible: a queue
// count beyond the array was written by something other than the agent.
// Returns the damage, or an empty string for a usable record.
template <class Record>
std::string recordDamage(const Record&) {
  return {};
}
std::string recordDamage(const IntfQueueCounter& r) {
  try {
    r.intfQueueStatArray().size();
    r.intfQueueRatesArray().size();
  } catch (const std::exception& e) {
    return "queue record of " + r.intfId().stringValue() + ": " + e.what();
  }
  return {};
}

template <class Record>
void readTable(const std::string& ns, const char* table, TableRows<Record>& out) {
  out.status.table = table;
  std::unique_ptr<Brim::TableReader<Record>> reader;
  try {
    reader = Brim::TableReader<Record>::open(ns, table);
  } catch (const Brim::TableMissingException&) {
    out.status.state = TableState::missing;
    out.status.message = "table " + ns + "." + table + " does not exist";
    return;
  } catch (const std::exception& e) {
    out.status.state = TableState::unusable;
    out.status.message = "table " + ns + "." + table + " cannot be opened: " + e.what();
    return;
  }
  out.status.state = TableState::read;
  auto damaged = [&](const std::string& what) {
    ++out.status.damagedSlots;
    out.status.lastDamage = what;
  };
  out.rows.reserve(reader->size() < reader->capacity() ? reader->size() : reader->capacity());
  reader->forEach(
      [&](const Record& r) {
        std::string damage = recordDamage(r);
        if (!damage.empty()) {
          damaged(damage);
          return;
        }
        out.rows.push_back(r);
        const double t = timeOf(r);
        if (std::isfinite(t) && t > out.status.newestTime) out.status.newestTime = t;
      },
      [&](const Pontil::CorruptionDetectedException& e) { damaged(e.what()); });
  // Slot order follows key hashes; readers present rows by key.
  std::sort(out.rows.begin(), out.rows.end(),
            [](const Record& a, const Record& b) { return a.key() < b.key(); });
  out.status.records = out.rows.size();
}

}  // namespace

const char* tableStateName(TableState state) {
  switch (state) {
    case TableState::read:
      return "read";
    case TableState::missing:
      return "missing";
    case TableState::unusable:
      return "unusable";
  }
  return "unknown";
}

std::vector<const TableStatus*> Snapshot::statuses() const {
  return {&ethCounters.status,    &ethBaselines.status,  &queueCounters.status,
          &queueBaselines.status, &aclDrops.status,      &vlanIntfCounters.status,
          &vlanCounters.status,   &vlanSnapshots.status, &cpuCounters.status,
          &coppClasses.status};
}

uint64_t Snapshot::recordCount() const {
  uint64_t n = 0;
  for (const TableStatus* s : statuses()) n += s->records;
  return n;
}

Snapshot readSnapshot(const std::string& ns) {
  Snapshot s;
  s.ns = ns;
  readTable(ns, TableNames::kAllIntfCounters, s.ethCounters);
  readTable(ns, TableNames::kAllIntfClearCounters, s.ethBaselines);
  readTable(ns, TableNames::kAllIntfQueueCounters, s.queueCounters);
  readTable(ns, TableNames::kAllIntfClearQueueCounters, s.queueBaselines);
  readTable(ns, TableNames::kIntfAclDropCountersDir, s.aclDrops);
  readTable(ns, TableNames::kAllVlanIntfCounters, s.vlanIntfCounters);
  readTable(ns, TableNames::kVlanCounterDir, s.vlanCounters);
  readTable(ns, TableNames::kVlanCounterSnapshotDir, s.vlanSnapshots);
  readTable(ns, Published::kCpuIntfCountersTable, s.cpuCounters);
  readTable(ns, Published::kCoppClassCountersTable, s.coppClasses);
  return s;
}

}  // namespace Readers
