// Brim: the errors of the shared-memory counter tables.
//
// The agent's table owners and the reader tools catch these by type: a full table
// or a busy writer is an operating condition, a layout mismatch is a deployment
// error, and damage found in a table is a Pontil::CorruptionDetectedException that
// the table's owner hands to its corruption hook before carrying on.
#pragma once

#include <stdexcept>
#include <string>

#include "pontil/Assert.h"

namespace Brim {

// An existing table holds records of another layout (type, size, version) than the
// one the writer was built for. The table is left as it is.
class LayoutMismatchException : public std::runtime_error {
 public:
  explicit LayoutMismatchException(const std::string& message);
  ~LayoutMismatchException() override;
};

// Another process holds the table's writer lock.
class WriterBusyException : public std::runtime_error {
 public:
  explicit WriterBusyException(const std::string& message);
  ~WriterBusyException() override;
};

// A new key does not fit: the table already holds `capacity` records.
class TableFullException : public std::runtime_error {
 public:
  explicit TableFullException(const std::string& message);
  ~TableFullException() override;
};

// A reader asked for a table that no writer has published.
class TableMissingException : public std::runtime_error {
 public:
  explicit TableMissingException(const std::string& message);
  ~TableMissingException() override;
};

// A reader could not get a consistent copy of a slot within its retry budget: the
// writer is stuck in the middle of a write or was killed there. It is a kind of
// damage as far as the reader can tell, so it is caught with the corruption errors.
class SlotBusyException : public Pontil::CorruptionDetectedException {
 public:
  explicit SlotBusyException(const std::string& message);
  ~SlotBusyException() override;
};

}  // namespace Brim
