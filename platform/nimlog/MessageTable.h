// The message table: every message site this process has registered, and its copy in a
// trace file. Used by TraceFile (writer) only; the decoder reads the file's copy.
//
// Not thread-safe by itself: TraceFile calls it under its lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nimlog/FileFormat.h"

namespace Nimlog {

struct MessageSite {
  std::string module;
  std::uint32_t line;
  std::string text;
};

class MessageTable {
 public:
  // Adds a site, returns its id (ids count up from 0). Texts are cut to 65535 bytes so
  // that their lengths fit the file's 16-bit length fields.
  std::uint32_t add(const char* module, std::uint32_t line, const char* text);
  const std::vector<MessageSite>& sites() const { return sites_; }

 private:
  std::vector<MessageSite> sites_;
};

// Appends the site with id `id` to the message table of the file mapped at `base`.
// Entries must be appended in id order, so once one does not fit, the table is marked
// as having dropped texts and nothing more is appended.
// Requires: header belongs to the mapping at `base`; entries 0..id-1 were appended before.
void appendTextEntry(std::byte* base, format::FileHeader& header, std::uint32_t id,
                     const MessageSite& site) noexcept;

}  // namespace Nimlog
