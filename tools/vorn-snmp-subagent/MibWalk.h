// Where a GET or GETNEXT lands in a conceptual table of the subagent: the
// cells (column, ifIndex) of one MIB table, with rows in ascending ifIndex and
// columns in ascending number, compared as OIDs <entry>.<column>.<ifIndex>.
//
// Kept apart from the agent library so that the ordering rules (a request
// between two rows, past the last column, with trailing sub-identifiers or an
// index beyond 2^32) are tested without an SNMP agent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "tools/vorn-snmp-subagent/InterfaceSample.h"

namespace Snmp {

struct Cell {
  size_t column = 0;  // position in the table's column list
  size_t row = 0;     // position in the sample's rows
};

// The first cell at column position `c` or later, starting in column c at the
// first row whose ifIndex is at least `minIndex`.
template <class Has>
std::optional<Cell> firstFrom(std::span<const uint32_t> columns, size_t c, uint64_t minIndex,
                              const Sample& sample, Has&& has) {
  for (; c < columns.size(); ++c, minIndex = 0) {
    for (size_t r = sample.lowerBound(minIndex); r < sample.rows.size(); ++r) {
      if (has(c, sample.rows[r])) return Cell{c, r};
    }
  }
  return std::nullopt;
}

// The cell `request` names exactly, or nullopt. `columns` ascending;
// has(columnPosition, row) tells whether that cell holds a value.
template <class Oid, class Has>
std::optional<Cell> exactCell(std::span<const Oid> entry, std::span<const Oid> request,
                              std::span<const uint32_t> columns, const Sample& sample, Has&& has) {
  if (request.size() != entry.size() + 2) return std::nullopt;
  for (size_t i = 0; i < entry.size(); ++i) {
    if (request[i] != entry[i]) return std::nullopt;
  }
  const uint64_t column = request[entry.size()], index = request[entry.size() + 1];
  size_t c = 0;
  while (c < columns.size() && columns[c] < column) ++c;
  if (c == columns.size() || columns[c] != column || index > UINT32_MAX) return std::nullopt;
  size_t r = sample.lowerBound(index);
  if (r == sample.rows.size() || sample.rows[r].ifIndex != index) return std::nullopt;
  if (!has(c, sample.rows[r])) return std::nullopt;
  return Cell{c, r};
}

// The first cell whose OID is greater than `request`, or nullopt when the
// request is at or past the table's last cell (the walk goes on elsewhere).
template <class Oid, class Has>
std::optional<Cell> nextCell(std::span<const Oid> entry, std::span<const Oid> request,
                             std::span<const uint32_t> columns, const Sample& sample, Has&& has) {
  // Compare the request with the entry's OID over their common length.
  size_t common = std::min(entry.size(), request.size());
  for (size_t i = 0; i < common; ++i) {
    if (request[i] < entry[i]) return firstFrom(columns, 0, 0, sample, has);
    if (request[i] > entry[i]) return std::nullopt;
  }
  if (request.size() <= entry.size()) return firstFrom(columns, 0, 0, sample, has);
  const uint64_t column = request[entry.size()];
  size_t c = 0;
  while (c < columns.size() && columns[c] < column) ++c;
  if (c == columns.size()) return std::nullopt;
  if (columns[c] != column || request.size() == entry.size() + 1) {
    // Before the column's first row (or between columns): start that column.
    return firstFrom(columns, c, 0, sample, has);
  }
  // <column>.<index>[...]: the next row has a greater index; an index equal
  // to a row's is at or after that row's own cell.
  const uint64_t index = request[entry.size() + 1];
  return firstFrom(columns, c, index + 1, sample, has);
}

}  // namespace Snmp
