// Brim header checks: what is wrong with a table's header page, in words.
//
// Readers turn any finding into a corruption report; the writer tells a table of
// another layout (refused, left alone) from a damaged one. Internal to the Brim unit.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "brim/Layout.h"
#include "brim/TableCore.h"

namespace Brim::detail {

struct HeaderFindings {
  std::string foreign;              // bad magic or another major version: nothing else is read
  bool checksumOk = true;           // the fixed fields are as the creator wrote them
  std::vector<std::string> layout;  // record type, size or field layout differ from the wanted
  std::vector<std::string> damage;  // impossible geometry, object smaller than described
  bool empty() const { return foreign.empty() && checksumOk && layout.empty() && damage.empty(); }
};

// A copy of the fixed header fields at the start of a mapped table of at least
// kHeaderSize bytes; the live words are left zero.
Layout::TableHeader readFixedHeader(const unsigned char* base);

// Checks a header's fixed fields against the wanted record layout and the size of the
// object they were read from.
// With `firstLayout`, the header is expected to be of the first layout (major version
// 1, its own checksum), which a writer migrates.
HeaderFindings inspectHeader(const Layout::TableHeader& fixed, uint64_t objectSize,
                             const RecordLayout& want, bool firstLayout = false);

// The finding for live counts that no writer could have published; empty when possible.
std::string inspectCounts(const Layout::TableHeader& fixed, uint64_t liveCount, uint64_t tombCount,
                          uint64_t maxProbe);

// Joins findings with "; ".
std::string joinFindings(const std::vector<std::string>& findings);

std::string hex64(uint64_t value);

}  // namespace Brim::detail
