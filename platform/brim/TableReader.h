// Brim table reader: a read-only view of a shared-memory counter table from another
// process (the reader command, exporters, tests).
//
// A reader maps the table read-only, takes no lock and cannot disturb the writer. It
// trusts nothing it reads: the header is checked on open, the writer's live header
// words are checked on every use, every index is bounded, every record's checksum is
// verified (and, on a miss, those of the slots the look-up passed, one of which may
// be the key's own with a damaged key), a whole walk compares the live records it met
// with the header's count, and a slot that stays mid-write is reported rather than
// waited on forever. Damage raises Pontil::CorruptionDetectedException.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "brim/Exceptions.h"
#include "brim/SharedObject.h"
#include "brim/TableView.h"

namespace Brim {

template <class Record>
class TableReader : public TableView<Record> {
 public:
  using Traits = RecordTraits<Record>;

  // Maps table "<ns>.<table>" read-only. Raises TableMissingException when it does
  // not exist, Pontil::CorruptionDetectedException when its header is damaged, holds
  // another record layout, counts the impossible, or describes more bytes than exist.
  // Requires: valid names (see tableName()).
  static std::unique_ptr<TableReader> open(const std::string& ns, const std::string& table) {
    return std::unique_ptr<TableReader>(
        new TableReader(detail::TableCore::openReader(tableName(ns, table), Traits::layout())));
  }

  // The process id of the attached writer; 0 once it has closed the table. A writer
  // killed outright leaves its pid here: compare heartbeats to tell. Raises
  // Pontil::CorruptionDetectedException when the live header words are damaged.
  uint64_t writerPid() const { return this->core_->writerPid(); }
  // The last heartbeat the writer published (0 until it publishes one). Raises as
  // writerPid() does.
  double heartbeat() const { return this->core_->heartbeat(); }

 private:
  explicit TableReader(std::unique_ptr<detail::TableCore> core)
      : TableView<Record>(std::move(core)) {}
};

}  // namespace Brim
