// Nimlog trace file: the process's fast binary trace.
//
// Handlers of the counters component open with NIMLOG_RECORD (usually through
// NIMLOG_HANDLER): one fixed-size record (time, message id, line, up to four integer
// arguments) written into a ring buffer in a memory-mapped file. Writing takes one
// atomic increment and a 64-byte store: no lock, no allocation, no system call. The
// texts a record refers to (source module, line, message text) are interned once per
// message site and kept in the same file, so that nimlog-decode can print the trace.
//
// Tracing is off until the agent opens a file; while off, a record costs one load and
// a branch, and its arguments are not evaluated.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "nimlog/Clock.h"
#include "nimlog/FileFormat.h"

namespace Nimlog {

// Identifies a message site (module, line, text) within this process and its trace files.
using MessageId = std::uint32_t;

class TraceFile {
 public:
  static constexpr std::uint64_t kDefaultTextCapacity = 1u << 20;

  // Creates (or truncates) the file at `path` and starts recording into it. A file
  // that is already open is closed first, also when the new one cannot be created.
  // The ring keeps the newest records; its capacity is `recordCapacity` rounded up to a
  // power of two. `textCapacity` bytes hold the message table; records of sites that no
  // longer fit decode as unknown messages.
  // Requires: 1 <= recordCapacity <= 2^32; textCapacity <= 2^32; no other thread is
  // recording while a previous file is closed.
  // Throws std::system_error naming the path when the file cannot be created, sized or
  // mapped; std::invalid_argument, changing nothing, for a capacity out of range.
  static void open(const std::string& path, std::uint64_t recordCapacity,
                   std::uint64_t textCapacity = kDefaultTextCapacity);

  // Stops recording and unmaps the file, which keeps everything written so far.
  // Does nothing when no file is open.
  // Requires: no other thread is recording (a record in flight would write into the
  // unmapped ring).
  static void close() noexcept;

  static bool isOpen() noexcept;
  // The ring's capacity in records (after rounding), or 0 when no file is open.
  static std::uint64_t capacity() noexcept;
  // The path of the open file, or "" when none is open.
  static std::string path();
};

// Interns a message site and returns its id; the same site may be registered more than
// once and gets a new id each time (NIMLOG_RECORD registers each site once). Writes the
// site's texts into the open file's message table. Takes a lock and allocates: call it
// once per site, never per record. Texts longer than 65535 bytes are cut.
MessageId registerMessage(const char* module, std::uint32_t line, const char* text);

namespace detail {

// The open file as the recording path sees it; immutable while published.
struct Ring {
  format::Record* slots;
  std::uint64_t mask;
  std::uint64_t* writeIndex;
};

// Null while tracing is off.
extern std::atomic<Ring*> activeRing;

void writeRecord(Ring& ring, std::uint64_t timestampNs, MessageId id, std::uint32_t line,
                 std::uint32_t argc, std::uint64_t a0, std::uint64_t a1, std::uint64_t a2,
                 std::uint64_t a3) noexcept;

template <typename... Args>
inline void record(Ring& ring, std::uint64_t timestampNs, MessageId id, std::uint32_t line,
                   Args... args) noexcept {
  static_assert(sizeof...(Args) <= format::kMaxArgs, "a trace record holds at most 4 arguments");
  const std::uint64_t values[format::kMaxArgs] = {static_cast<std::uint64_t>(args)...};
  writeRecord(ring, timestampNs, id, line, sizeof...(Args), values[0], values[1], values[2],
              values[3]);
}

}  // namespace detail
}  // namespace Nimlog

// Writes one trace record for this site when a trace file is open:
//   NIMLOG_RECORD("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()");
//   NIMLOG_RECORD("VornCountersSm", "queue index out of range", queue, count);
// `module` and `text` are string constants (they are read once, when the site first
// records); up to four integer or enum arguments follow, stored as 64-bit unsigned
// values and evaluated, like the record's time, only while a file is open.
#define NIMLOG_RECORD(module, text, ...)                                                         \
  do {                                                                                           \
    if (::Nimlog::detail::Ring* nimlogRing_ =                                                    \
            ::Nimlog::detail::activeRing.load(std::memory_order_acquire)) {                      \
      static const ::Nimlog::MessageId nimlogId_ =                                               \
          ::Nimlog::registerMessage(module, __LINE__, text);                                     \
      ::Nimlog::detail::record(*nimlogRing_, ::Nimlog::nowNs(), nimlogId_,                       \
                               static_cast<std::uint32_t>(__LINE__) __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                                            \
  } while (0)
