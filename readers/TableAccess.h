// Opening and reading the agent's tables from a reader process, with every
// failure turned into one user-facing line (missing table, damaged table).
// Tables are mapped read-only; nothing here ever writes shared memory.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "brim/Brim.h"

namespace Readers {

// A one-line, user-facing error (missing table, damaged table, unknown interface).
class ReadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A table that does not exist, as distinct from one that cannot be read.
class TableAbsent : public ReadError {
 public:
  using ReadError::ReadError;
};

template <class Record>
std::unique_ptr<Brim::TableReader<Record>> openTable(const std::string& ns,
                                                     const std::string& table) {
  try {
    return Brim::TableReader<Record>::open(ns, table);
  } catch (const Brim::TableMissingException&) {
    throw TableAbsent("table " + ns + "." + table +
                      " does not exist (is the agent running with -n " + ns + "?)");
  } catch (const Pontil::CorruptionDetectedException& e) {
    throw ReadError("table " + ns + "." + table + " is damaged: " + e.what());
  } catch (const std::exception& e) {
    throw ReadError("table " + ns + "." + table + ": " + e.what());
  }
}

// The table, or null when it does not exist (optional tables such as baselines).
template <class Record>
std::unique_ptr<Brim::TableReader<Record>> openOptionalTable(const std::string& ns,
                                                             const std::string& table) {
  try {
    return openTable<Record>(ns, table);
  } catch (const TableAbsent&) {
    return nullptr;
  }
}

// All records of a table in one pass, sorted by key; a damaged table is a
// one-line error naming `what`.
template <class Record>
std::vector<Record> readAll(const Brim::TableReader<Record>& table, const std::string& what) {
  std::vector<Record> walked;
  try {
    // Sized once: a port record is over 400 bytes, and every regrowth copies them all.
    // The count comes from shared memory, so it only sizes up to a bound: a forged
    // header must not make the reader allocate gigabytes before the walk finds it out.
    constexpr size_t kReserveAtMost = 1 << 16;
    walked.reserve(std::min(table.size(), kReserveAtMost));
    table.forEach([&](const Record& r) { walked.push_back(r); });
  } catch (const Pontil::CorruptionDetectedException& e) {
    throw ReadError("table " + what + " is damaged: " + e.what());
  }
  // Sorted by position rather than by moving records about: each record is then
  // copied once more, where a sort of the records themselves swaps them many times.
  std::vector<uint32_t> order(walked.size());
  for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](uint32_t a, uint32_t b) { return walked[a].key() < walked[b].key(); });
  std::vector<Record> out;
  out.reserve(walked.size());
  for (const uint32_t i : order) out.push_back(walked[i]);
  return out;
}

// The baseline record of `key`, or a zero record when there is none.
template <class Record>
Record baselineOf(const Brim::TableReader<Record>* table, const typename Record::Key& key) {
  if (!table) return Record();
  try {
    auto r = table->find(key);
    return r ? *r : Record();
  } catch (const Pontil::CorruptionDetectedException& e) {
    throw ReadError(std::string("baseline table is damaged: ") + e.what());
  }
}

// Every baseline (or snapshot) record of a table, read in one pass, for
// look-ups while walking the totals: no per-row probe of shared memory.
template <class Record>
class Baselines {
 public:
  // `table` may be null (no clear yet): every look-up then reads as zero.
  Baselines(const Brim::TableReader<Record>* table, const std::string& what) {
    if (table) rows_ = readAll(*table, what);
  }
  // The baseline of `key`, or a zero record when there is none.
  const Record& of(const typename Record::Key& key) const {
    auto it = std::lower_bound(
        rows_.begin(), rows_.end(), key,
        [](const Record& r, const typename Record::Key& k) { return r.key() < k; });
    return it != rows_.end() && !(key < it->key()) ? *it : zero_;
  }

 private:
  std::vector<Record> rows_;  // sorted by key
  Record zero_{};
};

}  // namespace Readers
