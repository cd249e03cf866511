// Reading a Nimlog trace file back: the records in write order with their texts.
//
// Used by the nimlog-decode tool and by tests. A file is untrusted input: every header
// field, table entry and record is checked, and damage is reported as a DecodeError
// whose message names the file and what is wrong; nothing here asserts or crashes.
// A file may be read while its process is still writing: slots being written at that
// moment are skipped and counted, never returned half-written.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "nimlog/TraceFile.h"

namespace Nimlog {

struct DecodedRecord {
  std::uint64_t index = 0;  // position in write order since the file was opened
  std::uint64_t timestampNs = 0;
  MessageId messageId = 0;
  std::string module;
  std::uint32_t line = 0;
  std::string text;
  std::vector<std::uint64_t> args;

  friend bool operator==(const DecodedRecord&, const DecodedRecord&) = default;
};

struct DecodedTrace {
  std::uint64_t capacity = 0;  // records the ring holds
  std::uint64_t written = 0;   // records ever written; the oldest were overwritten
  // Slots of the kept range that were being written (or were torn by a writer that
  // died) when the file was read; they are not in `records`.
  std::uint64_t incomplete = 0;
  // The message table filled up: some records show as unknown messages.
  bool textsDropped = false;
  std::vector<DecodedRecord> records;  // oldest first
};

// The file is missing, unreadable, not a trace file, or damaged.
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the trace file at `path`. Throws DecodeError with a one-line message.
DecodedTrace decodeFile(const std::string& path);

// One record as a line of text (without newline):
// "<seconds>.<microseconds> <module>:<line> <text>[ <arg>...]", arguments in decimal,
// control characters of module and text as \xNN.
std::string formatRecord(const DecodedRecord& record);

}  // namespace Nimlog
