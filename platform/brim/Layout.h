// Brim layout: the bytes of a shared-memory counter table, as every process sees them.
//
// A table is one POSIX shared-memory object: a header page, then a power-of-two
// number of 64-byte aligned slots. Writer and readers are different programs built
// at different times, so everything here is fixed-width and versioned; tests and
// repair tools use these offsets to look at (or damage) a table directly.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace Brim::Layout {

inline constexpr uint64_t kMagic = 0x4C4241544D495242ULL;  // "BRIMTABL" in little-endian bytes
// A reader refuses another major version; minor versions only add meaning to spare bytes.
// Major 2 brought the slot checksum that cannot miss a flipped bit, self-checking empty
// slots and the checksummed live header words; a writer migrates a major 1 table.
inline constexpr uint32_t kMajorVersion = 2;
inline constexpr uint32_t kMinorVersion = 0;
inline constexpr uint64_t kHeaderSize = 4096;  // slots start on the second page
inline constexpr size_t kTypeNameSize = 64;    // NUL-padded record type name
inline constexpr uint32_t kSlotAlign = 64;
// Sanity bound on capacity so that the object size can never overflow.
inline constexpr uint32_t kMaxCapacity = 1u << 24;

// The header page. The fields up to `fixedChecksum` are written once, before the
// table is published, and never change. The live words after them are rewritten by
// the writer while readers watch, so they sit under their own sequence count and
// checksum, exactly like a slot: a reader trusts none of them unless both agree.
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
  uint64_t liveSeq;     // odd while the writer rewrites the words below
  uint64_t generation;  // bumped on every writer attach
  uint64_t writerPid;   // 0 once the writer has closed the table
  uint64_t heartbeat;   // bits of a double, seconds, set by the writer when asked
  uint64_t liveCount;
  uint64_t tombCount;
  uint64_t maxProbe;      // no key sits further than this from its home slot
  uint64_t changeCount;   // odd while a slot turns live or stops being live
  uint64_t liveChecksum;  // over generation .. changeCount
};
static_assert(offsetof(TableHeader, recordSize) == 80);
static_assert(offsetof(TableHeader, fixedChecksum) == 120);
static_assert(offsetof(TableHeader, liveSeq) == 128);
static_assert(offsetof(TableHeader, liveChecksum) == 192);
static_assert(sizeof(TableHeader) <= kHeaderSize);
inline constexpr size_t kFixedHeaderSize = offsetof(TableHeader, liveSeq);
inline constexpr size_t kLiveWordsOffset = offsetof(TableHeader, generation);
inline constexpr size_t kLiveWords = 7;  // generation .. changeCount
static_assert(offsetof(TableHeader, liveChecksum) == kLiveWordsOffset + 8 * kLiveWords);

// A slot is these four words followed by the record's words.
inline constexpr uint32_t kSeqWord = 0;  // odd while the writer is changing the slot
inline constexpr uint32_t kKeyWord = 1;  // key bytes, zero-padded to 8
inline constexpr uint32_t kStateWord = 2;
inline constexpr uint32_t kChecksumWord = 3;  // over key, state and record
inline constexpr uint32_t kSlotHeaderWords = 4;

// Deleted slots become tombstones that keep their key, so that a reader probing
// past them still reaches the keys behind; a tombstone turns back into an empty
// slot only when no probe sequence can run through it any more.
//
// The states are far apart (dozens of bits) and none is zero, so no small damage
// turns one state into another and a zeroed run of bytes is an invalid state: a
// live record cannot silently become empty or deleted.
inline constexpr uint64_t kEmpty = 0xf2a74de452e6b439ULL;
inline constexpr uint64_t kLive = 0x6513270e269e0d37ULL;
inline constexpr uint64_t kTomb = 0x0c5c7fd0a6a3a451ULL;

static_assert(std::popcount(kEmpty ^ kLive) >= 16 && std::popcount(kEmpty ^ kTomb) >= 16 &&
              std::popcount(kLive ^ kTomb) >= 16 && std::popcount(kEmpty) >= 16 &&
              std::popcount(kLive) >= 16 && std::popcount(kTomb) >= 16);

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

// Checksums. Two lanes over the words, combined with a plain xor:
//
//  - the rotation lane xors every word rotated by its own amount r, which runs
//    2, 3, ..., 57 and then starts again (key and state use 60 and 61). A change of
//    one bit, or of two neighbouring bits (also across a word boundary), changes it.
//  - the additive lane sums the words times odd weights that depend on the position.
//    It sees what the rotation lane cannot (the same bit flipped in two words r apart)
//    but loses carries out of bit 63 on its own.
//
// Why their xor misses no flip of one or two neighbouring bits: a change whose lowest
// bit is b moves the additive lane by an odd multiple of 2^b, so the xor of its old
// and new value has lowest bit b, while the rotation lane changes only bits b + r and
// b + r + 1 (modulo 64), never b because r is neither 0 nor 63. Across a word
// boundary (bit 63 of one word, bit 0 of the next) the additive change is odd and the
// rotation lane changes bits r - 1 and r' with r >= 2, r' >= 2, never bit 0. The
// same argument covers a checksum word damaged together with its neighbour (state
// bit 63: the computed value moves by bits 60 and 63, the stored one by bit 0; record
// bit 0: the computed value moves in bit 0, the stored one in bit 63). The test that
// flips every bit and every pair of a real slot checks all of it.
//
// Both lanes run over pairs of words with one rotation per pair, so the loop is
// plain adds, shifts and xors that the compiler keeps in vector registers.
struct Lanes {
  uint64_t rotated;
  uint64_t added;
};

inline constexpr uint64_t kEvenWeight = 0x6513270e269e0d37ULL;   // odd
inline constexpr uint64_t kOddWeight = 0xd23f0824128b2f33ULL;    // odd
inline constexpr uint64_t kKeyWeight = 0x1818e811892f902bULL;    // odd
inline constexpr uint64_t kStateWeight = 0x9531985d5d9dc9f9ULL;  // odd
inline constexpr int kKeyRotation = 60;
inline constexpr int kStateRotation = 61;

constexpr uint64_t rotl64(uint64_t x, int r) { return std::rotl(x, r); }

// Two words side by side; plain adds, shifts and xors on it map to one vector
// instruction each where the machine has them (and to two scalar ones where not).
using WordPair = uint64_t __attribute__((vector_size(16)));

template <int R>
inline WordPair rotlPair(WordPair v) {
  return (v << R) | (v >> (64 - R));
}

// One block of eight words (rotation 2 + k + 8 * turn for word k) into the lanes;
// with `copyTo`, the words are also stored there (`copyWords` of them).
inline void laneBlock(const unsigned char* bytes, int turn, WordPair& x, WordPair& a, WordPair& b,
                      unsigned char* copyTo = nullptr, size_t copyWords = 8) {
  WordPair v[4];
  std::memcpy(v, bytes, sizeof v);
  if (copyTo != nullptr) std::memcpy(copyTo, v, 8 * copyWords);
  // Four steps of a += v; b += a, summed up front so that the block costs two
  // dependent adds instead of eight: b gains 4a + 4v0 + 3v1 + 2v2 + v3.
  const WordPair sum = (v[0] + v[1]) + (v[2] + v[3]);
  const WordPair weighted = ((v[0] << 2) + (v[1] << 1)) + ((v[1] + (v[2] << 1)) + v[3]);
  b += (a << 2) + weighted;
  a += sum;
  const WordPair y = rotlPair<2>(v[0]) ^ rotlPair<4>(v[1]) ^ rotlPair<6>(v[2]) ^ rotlPair<8>(v[3]);
  const int r = 8 * turn;
  x ^= r == 0 ? y : (y << r) | (y >> (64 - r));
}

// The lanes over `words` 8-byte words at `bytes` (any alignment). With `copyTo`,
// the words are copied there in the same pass, so a writer reads its record once.
// Runs on any machine; wordLanes() below picks a wider version where there is one.
inline Lanes wordLanesPortable(const unsigned char* bytes, size_t words,
                               unsigned char* copyTo = nullptr) {
  WordPair x = {0, 0};
  WordPair a = {0, 0};
  WordPair b = {0, 0};
  int turn = 0;  // block number modulo 7
  size_t i = 0;
  for (; i + 8 <= words; i += 8) {
    laneBlock(bytes + 8 * i, turn, x, a, b, copyTo == nullptr ? nullptr : copyTo + 8 * i);
    if (++turn == 7) turn = 0;
  }
  if (i < words) {
    // A short last block is padded with zero words, which change neither lane's sum
    // nor its xor and keep every weight odd.
    unsigned char tail[64] = {};
    std::memcpy(tail, bytes + 8 * i, 8 * (words - i));
    laneBlock(tail, turn, x, a, b, copyTo == nullptr ? nullptr : copyTo + 8 * i, words - i);
  }
  // Odd words take one more bit of rotation; a + 2b weighs each word by an odd number.
  return Lanes{x[0] ^ rotl64(x[1], 1),
               kEvenWeight * (a[0] + 2 * b[0]) + kOddWeight * (a[1] + 2 * b[1])};
}

#if defined(__x86_64__)
#define BRIM_HAVE_WIDE_LANES 1
// The same lanes four words at a time, with the one-instruction rotations and masked
// loads of AVX-512 (on 256-bit registers, which keep the core at its full clock).
// Each pair lane above is the sum (or xor) of two of these quad lanes, words 4k and
// 4k + 2 for the even one, and every step is linear in the words, so the quad lanes
// fold into exactly the pair lanes: the same checksum in fewer, wider instructions.
//
// Linearity also lets the per-block work shrink further than the pair lanes': a
// block's rotations are one variable rotation per word (its own amount plus the
// block's turn) instead of a fixed one and a turn rotation, and the in-block weights
// of the additive lane are applied once at the end to the sums they weigh.
class WideLanes {
 public:
  using Quad = uint64_t __attribute__((vector_size(32)));

  // One block of eight words, as two quads.
  __attribute__((target("avx2,avx512f,avx512vl"), always_inline)) void add(__m256i q0, __m256i q1) {
    const Quad v0 = reinterpret_cast<Quad>(q0);
    b_ += a_;  // b gains the sum of every earlier block, once per block
    a_ += v0 + reinterpret_cast<Quad>(q1);
    firstHalves_ += v0;
    const __m256i rotated =
        _mm256_xor_si256(_mm256_rolv_epi64(q0, reinterpret_cast<__m256i>(turn0_)),
                         _mm256_rolv_epi64(q1, reinterpret_cast<__m256i>(turn1_)));
    x_ ^= reinterpret_cast<Quad>(rotated);
    if (++turn_ == 7) {
      turn_ = 0;
      turn0_ = kFirstTurn;
      turn1_ = kSecondTurn;
    } else {
      turn0_ += 8;
      turn1_ += 8;
    }
  }

  __attribute__((target("avx2,avx512f,avx512vl"), always_inline)) Lanes lanes() const {
    // The pair lanes' b gains, per block, four times the sum before it plus its own
    // words weighted (4, 4, 3, 3) in the first quad and (2, 2, 1, 1) in the second:
    // 2 * first + 2 * all in the low half of a quad, 2 * first + all in the high half.
    const Quad upper = {0, 0, ~uint64_t{0}, ~uint64_t{0}};
    const Quad b = (b_ << 2) + (firstHalves_ << 1) + (a_ << 1) - (a_ & upper);
    const uint64_t x0 = x_[0] ^ x_[2], x1 = x_[1] ^ x_[3];
    const uint64_t a0 = a_[0] + a_[2], a1 = a_[1] + a_[3];
    const uint64_t b0 = b[0] + b[2], b1 = b[1] + b[3];
    return Lanes{x0 ^ rotl64(x1, 1), kEvenWeight * (a0 + 2 * b0) + kOddWeight * (a1 + 2 * b1)};
  }

 private:
  // Rotations of a block's words 0..3 and 4..7 in turn 0; each turn adds 8.
  static constexpr Quad kFirstTurn = {2, 2, 4, 4};
  static constexpr Quad kSecondTurn = {6, 6, 8, 8};

  Quad x_ = {0, 0, 0, 0};
  Quad turn0_ = kFirstTurn;
  Quad turn1_ = kSecondTurn;
  Quad a_ = {0, 0, 0, 0};            // sum of every word so far
  Quad b_ = {0, 0, 0, 0};            // sum of a_ before each block
  Quad firstHalves_ = {0, 0, 0, 0};  // sum of each block's first quad
  int turn_ = 0;                     // block number modulo 7
};

// Hidden: each library calls its own copy directly rather than through the PLT.
__attribute__((target("avx2,avx512f,avx512vl"), visibility("hidden"))) inline Lanes wordLanesWide(
    const unsigned char* bytes, size_t words, unsigned char* copyTo = nullptr) {
  WideLanes lanes;
  size_t i = 0;
  // Whole blocks, in two loops so that the one that reads only does not test for
  // the copy on every block.
  if (copyTo == nullptr) {
    for (; i + 8 <= words; i += 8) {
      lanes.add(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 8 * i)),
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 8 * i + 32)));
    }
  } else {
    for (; i + 8 <= words; i += 8) {
      const __m256i q0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 8 * i));
      const __m256i q1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + 8 * i + 32));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(copyTo + 8 * i), q0);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(copyTo + 8 * i + 32), q1);
      lanes.add(q0, q1);
    }
  }
  if (i < words) {
    // A short last block: masked loads read only its words and pad with zero words,
    // which change neither lane's sum nor its xor; masked stores copy only its words.
    // Masked-off words are never touched, even past the end of a page.
    const unsigned rest = static_cast<unsigned>(words - i);
    const auto low = static_cast<__mmask8>(rest >= 4 ? 0xf : (1u << rest) - 1);
    const auto high = static_cast<__mmask8>(rest <= 4 ? 0 : (1u << (rest - 4)) - 1);
    const __m256i q0 = _mm256_maskz_loadu_epi64(low, bytes + 8 * i);
    const __m256i q1 = _mm256_maskz_loadu_epi64(high, bytes + 8 * i + 32);
    if (copyTo != nullptr) {
      _mm256_mask_storeu_epi64(copyTo + 8 * i, low, q0);
      _mm256_mask_storeu_epi64(copyTo + 8 * i + 32, high, q1);
    }
    lanes.add(q0, q1);
  }
  return lanes.lanes();
}

// Whether the processor has AVX-512 F and VL and the kernel saves their registers.
// Asked of the processor directly, on first use: the compiler's own feature probe runs
// in every program and library that uses it at load time and asks many questions, each
// of which costs a trap in a virtual machine, so a short-lived reader paid for it on
// every start.
inline bool wideLanesAvailable() {
  static const bool available = [] {
    constexpr unsigned kOsXsave = 1u << 27;   // leaf 1, ecx
    constexpr unsigned kAvx512F = 1u << 16;   // leaf 7, ebx
    constexpr unsigned kAvx512Vl = 1u << 31;  // leaf 7, ebx
    constexpr unsigned kAvx512State = 0xe6;   // XCR0: SSE, AVX, opmask, both ZMM halves
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    // One compiler's header declares the result signed, the other's unsigned.
    if (static_cast<unsigned>(__get_cpuid_max(0, nullptr)) < 7) return false;
    __cpuid(1, eax, ebx, ecx, edx);
    if ((ecx & kOsXsave) == 0) return false;
    unsigned xcr0 = 0, xcr0High = 0;
    __asm__("xgetbv" : "=a"(xcr0), "=d"(xcr0High) : "c"(0));
    if ((xcr0 & kAvx512State) != kAvx512State) return false;
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    return (ebx & kAvx512F) != 0 && (ebx & kAvx512Vl) != 0;
  }();
  return available;
}
#endif

// The wide lanes wherever they run, for records of any length: even a short record
// written word by word just before, whose wide loads wait for those stores to drain,
// costs less than on the portable lanes.
inline Lanes wordLanes(const unsigned char* bytes, size_t words, unsigned char* copyTo = nullptr) {
#if defined(BRIM_HAVE_WIDE_LANES)
  if (wideLanesAvailable()) {
    return wordLanesWide(bytes, words, copyTo);
  }
#endif
  return wordLanesPortable(bytes, words, copyTo);
}

// Checksum of a slot: its key, state word and record of `words` 8-byte words.
// With `copyTo`, the record is copied there in the same pass.
inline uint64_t slotChecksum(uint64_t keyBits, uint64_t state, const Lanes& lanes) {
  const uint64_t rotated =
      lanes.rotated ^ rotl64(keyBits, kKeyRotation) ^ rotl64(state, kStateRotation);
  const uint64_t added = lanes.added + keyBits * kKeyWeight + state * kStateWeight;
  return rotated ^ added;
}
inline uint64_t slotChecksum(uint64_t keyBits, uint64_t state, const unsigned char* record,
                             size_t words, unsigned char* copyTo = nullptr) {
  return slotChecksum(keyBits, state, wordLanes(record, words, copyTo));
}

// What an empty slot holds besides its state: key, checksum and record all zero
// except the checksum, which is that of the blank slot, so an all-zero slot is not
// mistaken for an empty one.
constexpr uint64_t emptyChecksum() {
  return rotl64(kEmpty, kStateRotation) ^ (kEmpty * kStateWeight);
}

inline uint64_t headerChecksum(const TableHeader& header) {
  const Lanes lanes = wordLanes(reinterpret_cast<const unsigned char*>(&header),
                                offsetof(TableHeader, fixedChecksum) / 8);
  return lanes.rotated ^ lanes.added ^ kMagic;
}

// The live words' checksum; the seed keeps a zeroed block from checking out.
inline constexpr uint64_t kLiveSeed = 0x36f675cc81e74ef5ULL;
inline uint64_t liveChecksum(const uint64_t* liveWords) {
  const Lanes lanes = wordLanes(reinterpret_cast<const unsigned char*>(liveWords), kLiveWords);
  return lanes.rotated ^ lanes.added ^ kLiveSeed;
}

// The first layout, kept so that a writer can check and carry over the records of a
// table that an older agent left behind. Nothing else reads or writes it.
namespace v1 {

inline constexpr uint32_t kMajorVersion = 1;
inline constexpr uint64_t kEmpty = 0;
inline constexpr uint64_t kLive = 1;
inline constexpr uint64_t kTomb = 2;

// The fixed fields are those of the current header; the live words differ.
struct LiveWords {
  uint64_t generation;  // offset 128
  uint64_t writerPid;
  uint64_t heartbeat;
  uint64_t liveCount;
  uint64_t tombCount;
  uint64_t maxProbe;
};

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

constexpr uint64_t stateTag(uint64_t state) { return state * 0x9E3779B97F4A7C15ULL; }

inline uint64_t slotChecksum(uint64_t keyBits, uint64_t state, const unsigned char* record,
                             size_t words) {
  return recordChecksum(keyBits, record, words) ^ stateTag(state);
}

inline uint64_t headerChecksum(const TableHeader& header) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&header);
  return recordChecksum(kMagic, bytes, offsetof(TableHeader, fixedChecksum) / 8);
}

}  // namespace v1

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
// Copies a record's words into a slot between the two steps of its sequence count.
// A reader that overlaps the copy sees an odd or changed count and a failing checksum
// and retries, so the words need no per-word atomicity: the bulk copy runs at memcpy
// speed. Under ThreadSanitizer, where a reader thread of the same process races with
// the copy by design, each word is stored atomically so that only real races report.
inline void storeRecordWords(uint64_t* slotRecord, const unsigned char* record, size_t words) {
#if defined(__SANITIZE_THREAD__)
  for (size_t i = 0; i < words; ++i) {
    uint64_t value;
    std::memcpy(&value, record + 8 * i, 8);
    storeWord(slotRecord[i], value);
  }
#else
  std::memcpy(slotRecord, record, 8 * words);
#endif
}
// Copies a slot's record words out, between the two loads of its sequence count. A
// copy that overlapped a write is thrown away by the re-check of the count (and a
// torn word would fail the checksum anyway), so the words are copied as a block.
// Under ThreadSanitizer each word is loaded atomically, as storeRecordWords does.
inline void loadRecordWords(unsigned char* out, const uint64_t* slotRecord, size_t words) {
#if defined(__SANITIZE_THREAD__)
  for (size_t i = 0; i < words; ++i) {
    const uint64_t value = loadWord(slotRecord[i]);
    std::memcpy(out + 8 * i, &value, 8);
  }
#else
  std::memcpy(out, slotRecord, 8 * words);
#endif
}
// As loadRecordWords, also returning the lanes of the words copied: a reader checks
// the record's checksum without a second pass over it. The lanes are of the very
// words copied, so a copy torn by a concurrent write fails its checksum as before.
inline Lanes loadRecordWordsWithLanes(unsigned char* out, const uint64_t* slotRecord,
                                      size_t words) {
#if defined(__SANITIZE_THREAD__)
  loadRecordWords(out, slotRecord, words);
  return wordLanes(out, words);
#else
  return wordLanes(reinterpret_cast<const unsigned char*>(slotRecord), words, out);
#endif
}
static_assert(std::atomic_ref<uint64_t>::is_always_lock_free);
static_assert(std::atomic_ref<uint64_t>::required_alignment <= 8);

}  // namespace Brim::Layout
