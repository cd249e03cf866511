// Brim layout: the bytes of a shared-memory counter table, as every process sees them.
//
// A table is one POSIX shared-memory object: a header page, then a power-of-two
// number of 64-byte aligned slots. Writer and readers are different programs built
// at different times, so everything here is fixed-width and versioned; tests and
// repair tools use these offsets to look at (or damage) a table directly.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Brim::Layout {

inline constexpr uint64_t kMagic = 0x4C4241544D495242ULL;  // "BRIMTABL" in little-endian bytes
// A reader refuses another major version; minor versions only add meaning to spare bytes.
inline constexpr uint32_t kMajorVersion = 1;
inline constexpr uint32_t kMinorVersion = 0;
inline constexpr uint64_t kHeaderSize = 4096;  // slots start on the second page
inline constexpr size_t kTypeNameSize = 64;    // NUL-padded record type name
inline constexpr uint32_t kSlotAlign = 64;
// Sanity bound on capacity so that the object size can never overflow.
inline constexpr uint32_t kMaxCapacity = 1u << 24;

// The header page. The fields up to `fixedChecksum` are written once, before the
// table is published, and never change; the words after it are updated by the
// writer while readers watch, so they are only ever accessed as atomic words.
struct TableHeader {
  uint64_t magic;
  uint32_t majorVersion;
  uint32_t minorVersion;
  char typeName[kTypeNameSize];
  uint32_t recordSize;
  uint32_t slotSize;
  uint32_t capacity;   // most live records the table accepts
  uint32_t slotCount;  // power of two, at least twice the capacity
  uint64_t layoutHash;
  uint64_t slotsOffset;
  uint64_t totalSize;
  uint64_t fixedChecksum;  // over every byte before it
  // Live words.
  uint64_t generation;  // bumped on every writer attach
  uint64_t writerPid;   // 0 once the writer has closed the table
  uint64_t heartbeat;   // bits of a double, seconds, set by the writer when asked
  uint64_t liveCount;
  uint64_t tombCount;
  uint64_t maxProbe;  // no key sits further than this from its home slot
};
static_assert(offsetof(TableHeader, recordSize) == 80);
static_assert(offsetof(TableHeader, fixedChecksum) == 120);
static_assert(offsetof(TableHeader, maxProbe) == 168);
static_assert(sizeof(TableHeader) <= kHeaderSize);
inline constexpr size_t kFixedHeaderSize = offsetof(TableHeader, generation);

// A slot is these four words followed by the record's words.
inline constexpr uint32_t kSeqWord = 0;  // odd while the writer is changing the slot
inline constexpr uint32_t kKeyWord = 1;  // key bytes, zero-padded to 8
inline constexpr uint32_t kStateWord = 2;
inline constexpr uint32_t kChecksumWord = 3;  // over key, state and record
inline constexpr uint32_t kSlotHeaderWords = 4;

// Deleted slots become tombstones that keep their key, so that a reader probing
// past them still reaches the keys behind; a tombstone turns back into an empty
// slot only when no probe sequence can run through it any more.
inline constexpr uint64_t kEmpty = 0;
inline constexpr uint64_t kLive = 1;
inline constexpr uint64_t kTomb = 2;

struct Geometry {
  uint32_t recordSize;
  uint32_t slotSize;
  uint32_t capacity;
  uint32_t slotCount;
  uint64_t totalSize;
};

// Requires: recordSize % 8 == 0 and 1 <= capacity <= kMaxCapacity.
constexpr Geometry geometryFor(uint32_t recordSize, uint32_t capacity) {
  const uint32_t raw = kSlotHeaderWords * 8 + recordSize;
  const uint32_t slotSize = (raw + kSlotAlign - 1) / kSlotAlign * kSlotAlign;
  uint32_t slotCount = 2;
  while (slotCount < 2 * static_cast<uint64_t>(capacity)) slotCount *= 2;
  return Geometry{recordSize, slotSize, capacity, slotCount,
                  kHeaderSize + static_cast<uint64_t>(slotCount) * slotSize};
}

// A strong 64-bit finaliser: nearby keys (consecutive interface ids) land far apart.
constexpr uint64_t mix64(uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ULL;
  x ^= x >> 33;
  return x;
}

// Requires: slotMask + 1 is a power of two.
constexpr uint32_t homeSlot(uint64_t keyBits, uint32_t slotMask) {
  return static_cast<uint32_t>(mix64(keyBits)) & slotMask;
}

// How far slot `slot` is from `home` along the (wrapping) probe sequence.
constexpr uint32_t probeDistance(uint32_t home, uint32_t slot, uint32_t slotMask) {
  return (slot - home) & slotMask;
}

// Checksum of a key and a record of `words` 8-byte words. Four independent
// Fletcher-style lanes keep it position-sensitive yet cheap enough for every write
// (the compiler vectorises the lanes).
inline uint64_t recordChecksum(uint64_t keyBits, const unsigned char* record, size_t words) {
  uint64_t a[4] = {0, 0, 0, 0};
  uint64_t b[4] = {0, 0, 0, 0};
  size_t i = 0;
  for (; i + 4 <= words; i += 4) {
    for (size_t lane = 0; lane < 4; ++lane) {
      uint64_t w;
      std::memcpy(&w, record + 8 * (i + lane), 8);
      a[lane] += w;
      b[lane] += a[lane];
    }
  }
  for (; i < words; ++i) {
    uint64_t w;
    std::memcpy(&w, record + 8 * i, 8);
    a[0] += w;
    b[0] += a[0];
  }
  uint64_t h = mix64(keyBits) + words;
  h += a[0] * 0x9E3779B97F4A7C15ULL + a[1] * 0xC2B2AE3D27D4EB4FULL;
  h += a[2] * 0x165667B19E3779F9ULL + a[3] * 0xD6E8FEB86659FD93ULL;
  h += b[0] * 0xA0761D6478BD642FULL + b[1] * 0xE7037ED1A0B428DBULL;
  h += b[2] * 0x8EBC6AF09C88C6E3ULL + b[3] * 0x589965CC75374CC3ULL;
  return mix64(h);
}

// The state is folded in with an xor so that deleting a record (live to tombstone)
// rewrites two words instead of re-summing the whole record.
constexpr uint64_t stateTag(uint64_t state) { return state * 0x9E3779B97F4A7C15ULL; }

inline uint64_t slotChecksum(uint64_t keyBits, uint64_t state, const unsigned char* record,
                             size_t words) {
  return recordChecksum(keyBits, record, words) ^ stateTag(state);
}

inline uint64_t headerChecksum(const TableHeader& header) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
  return recordChecksum(kMagic, bytes, offsetof(TableHeader, fixedChecksum) / 8);
}

// Word access to shared memory. The writer stores and readers load whole 8-byte
// words atomically, so a concurrent read is never a data race (a plain memcpy
// would be) and a single word is never torn.
inline uint64_t loadWord(const uint64_t& word,
                         std::memory_order order = std::memory_order_relaxed) {
  // Loads never write, so they are safe on a read-only mapping.
  return std::atomic_ref<uint64_t>(const_cast<uint64_t&>(word)).load(order);
}
inline void storeWord(uint64_t& word, uint64_t value,
                      std::memory_order order = std::memory_order_relaxed) {
  std::atomic_ref<uint64_t>(word).store(value, order);
}
static_assert(std::atomic_ref<uint64_t>::is_always_lock_free);
static_assert(std::atomic_ref<uint64_t>::required_alignment <= 8);

}  // namespace Brim::Layout
