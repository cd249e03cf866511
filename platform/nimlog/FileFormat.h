// The layout of a Nimlog trace file, shared by the writer in the traced process and by
// the decoder that turns a file into text.
//
// A file is: one header page, then a ring of fixed 64-byte records, then the message
// table (the texts that records refer to by id). All integers are in the writing
// machine's byte order; the magic number tells a reader when that is not its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Nimlog::format {

inline constexpr char kMagic[8] = {'N', 'I', 'M', 'L', 'O', 'G', '\0', '\x01'};
inline constexpr std::uint32_t kVersion = 1;
inline constexpr std::uint32_t kMaxArgs = 4;
inline constexpr std::uint64_t kHeaderSize = 4096;
inline constexpr std::uint32_t kFlagTextsDropped = 1;  // the message table filled up

struct FileHeader {
  char magic[8];
  std::uint32_t version;
  std::uint32_t recordSize;
  std::uint64_t headerSize;
  std::uint64_t recordCapacity;  // a power of two, so that a slot is a mask away
  std::uint64_t recordsOffset;
  std::uint64_t textOffset;
  std::uint64_t textCapacity;  // bytes reserved for the message table
  std::uint32_t flags;         // kFlagTextsDropped
  std::uint32_t pid;           // the writing process, for whoever collects traces
  // On its own cache line: every record bumps it, nothing else changes after open.
  alignas(64) std::uint64_t writeIndex;  // records ever written; the next record's index
  // Message table fill level. textUsed is published (release) after the entry bytes,
  // so a reader that sees it sees whole entries.
  alignas(64) std::uint64_t textUsed;
  std::uint64_t textCount;
};
static_assert(sizeof(FileHeader) <= kHeaderSize);

// One trace record. `sequence` is written last (release) as index + 1, so a reader can
// tell a finished slot from one still being written, torn, or left by an earlier lap.
struct Record {
  std::uint64_t timestampNs;
  std::uint64_t sequence;
  std::uint32_t messageId;
  std::uint32_t line;
  std::uint32_t argc;
  std::uint32_t reserved;
  std::uint64_t args[kMaxArgs];
};
static_assert(sizeof(Record) == 64);

// A message table entry, packed byte after byte in id order (id 0 first):
// this header, then moduleLength bytes of module name, then textLength bytes of text.
struct TextEntryHeader {
  std::uint32_t messageId;
  std::uint32_t line;
  std::uint16_t moduleLength;
  std::uint16_t textLength;
};
static_assert(sizeof(TextEntryHeader) == 12);

}  // namespace Nimlog::format
