// Records, scratch table names and a raw read-write view of a table's bytes for the
// Brim tests. The raw view is how the tests play a writer killed mid-write or a
// stray process scribbling over the table.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

#include "brim/Brim.h"
#include "brim/Layout.h"

namespace BrimTest {

// A 400-byte counter record that carries its own checksum, so that a test can tell
// a torn copy from a whole one without trusting the table.
struct CounterRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimTest::CounterRecord";
  static constexpr size_t kValues = 48;

  uint64_t id = 0;
  uint64_t values[kValues] = {};
  uint64_t seal = 0;

  Key key() const { return id; }

  uint64_t computeSeal() const {
    uint64_t h = Brim::Layout::mix64(id ^ 0x5eed);
    for (uint64_t v : values) h = Brim::Layout::mix64(h ^ v);
    return h;
  }
  void sealIt() { seal = computeSeal(); }
  bool sealed() const { return seal == computeSeal(); }

  // A record whose values all derive from `generation`.
  static CounterRecord make(uint64_t id, uint64_t generation) {
    CounterRecord record;
    record.id = id;
    for (size_t i = 0; i < kValues; ++i) record.values[i] = generation * 1000 + i;
    record.sealIt();
    return record;
  }
};
static_assert(sizeof(CounterRecord) == 400);

// The same type name with another size: what a writer built from an older record
// definition would meet.
struct GrownCounterRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimTest::CounterRecord";
  uint64_t id = 0;
  uint64_t values[50] = {};
  Key key() const { return id; }
};

// The same type name and size with a declared field layout: a field was renamed or
// moved without changing the size.
struct RelaidCounterRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimTest::CounterRecord";
  static constexpr uint64_t kLayoutHash = 0x1234;
  uint64_t id = 0;
  uint64_t values[49] = {};
  Key key() const { return id; }
};
static_assert(sizeof(RelaidCounterRecord) == 400);

struct OtherRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimTest::OtherRecord";
  uint64_t id = 0;
  uint64_t values[49] = {};
  Key key() const { return id; }
};
static_assert(sizeof(OtherRecord) == 400);

// A VLAN-style record: a 16-bit key padded into the first word.
struct VlanRecord {
  using Key = uint16_t;
  static constexpr const char* kTypeName = "BrimTest::VlanRecord";
  uint16_t vlanId = 0;
  uint16_t pad16 = 0;
  uint32_t pad32 = 0;
  uint64_t packets = 0;
  Key key() const { return vlanId; }
};
static_assert(sizeof(VlanRecord) == 16);

// A per-test table name "t<pid>_<test>.counters", unlinked when the test ends.
class ScratchTable {
 public:
  ScratchTable() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    ns_ = "t" + std::to_string(getpid()) + "_" + info->name();
    Brim::unlinkTable(ns_, table_);
  }
  ~ScratchTable() { Brim::unlinkTable(ns_, table_); }
  ScratchTable(const ScratchTable&) = delete;
  ScratchTable& operator=(const ScratchTable&) = delete;

  const std::string& ns() const { return ns_; }
  const std::string& table() const { return table_; }
  std::string name() const { return ns_ + "." + table_; }

 private:
  std::string ns_;
  std::string table_ = "counters";
};

// A read-write mapping of a table's bytes, independent of the Brim code.
class RawTable {
 public:
  explicit RawTable(const std::string& name) : name_(name) {
    fd_ = shm_open(("/" + name).c_str(), O_RDWR, 0);
    if (fd_ < 0) throw std::runtime_error("RawTable: cannot open " + name);
    struct stat st {};
    fstat(fd_, &st);
    size_ = static_cast<size_t>(st.st_size);
    void* p = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p == MAP_FAILED) throw std::runtime_error("RawTable: cannot map " + name);
    base_ = static_cast<unsigned char*>(p);
    slotCount_ = header().slotCount;
    slotSize_ = header().slotSize;
  }
  ~RawTable() {
    munmap(base_, size_);
    close(fd_);
  }
  RawTable(const RawTable&) = delete;
  RawTable& operator=(const RawTable&) = delete;

  Brim::Layout::TableHeader& header() {
    return *reinterpret_cast<Brim::Layout::TableHeader*>(base_);
  }
  unsigned char* bytes() { return base_; }
  size_t size() const { return size_; }
  uint32_t slotCount() const { return slotCount_; }
  uint32_t slotSize() const { return slotSize_; }
  uint32_t slotMask() const { return slotCount_ - 1; }

  uint64_t* slot(uint32_t index) {
    return reinterpret_cast<uint64_t*>(base_ + Brim::Layout::kHeaderSize +
                                       static_cast<size_t>(index) * slotSize_);
  }
  uint64_t state(uint32_t index) { return slot(index)[Brim::Layout::kStateWord]; }
  uint64_t key(uint32_t index) { return slot(index)[Brim::Layout::kKeyWord]; }
  uint64_t& seq(uint32_t index) { return slot(index)[Brim::Layout::kSeqWord]; }
  uint32_t home(uint64_t keyBits) const { return Brim::Layout::homeSlot(keyBits, slotCount_ - 1); }

  // Makes the slot look like one that was never used: what a damage that wiped a
  // record out perfectly would leave.
  void makeBlank(uint32_t index) {
    std::memset(slot(index) + 1, 0, slotSize_ - 8);
    slot(index)[Brim::Layout::kStateWord] = Brim::Layout::kEmpty;
    slot(index)[Brim::Layout::kChecksumWord] = Brim::Layout::emptyChecksum();
  }

  // The slot holding `keyBits` live, if any.
  std::optional<uint32_t> liveSlotOf(uint64_t keyBits) {
    for (uint32_t i = 0; i < slotCount_; ++i) {
      if (state(i) == Brim::Layout::kLive && key(i) == keyBits) return i;
    }
    return std::nullopt;
  }

 private:
  std::string name_;
  int fd_ = -1;
  unsigned char* base_ = nullptr;
  size_t size_ = 0;
  uint32_t slotCount_ = 0;
  uint32_t slotSize_ = 0;
};

// Lowers the reader's patience with slots stuck mid-write for the life of the object,
// so that tests feeding many damaged images do not wait a quarter second for each.
class QuickReaders {
 public:
  QuickReaders() : saved_(Brim::detail::readerPatience()) {
    Brim::detail::readerPatienceIs(Brim::detail::ReaderPatience{4, 0, 0});
  }
  ~QuickReaders() { Brim::detail::readerPatienceIs(saved_); }
  QuickReaders(const QuickReaders&) = delete;
  QuickReaders& operator=(const QuickReaders&) = delete;

 private:
  Brim::detail::ReaderPatience saved_;
};

// Flips `width` neighbouring bits starting at bit `bit` of `bytes` (bit 0 is the
// lowest bit of the first byte, so the run may cross a byte or word boundary).
inline void flipBits(unsigned char* bytes, size_t bit, size_t width) {
  for (size_t b = bit; b < bit + width; ++b)
    bytes[b / 8] ^= static_cast<unsigned char>(1u << (b % 8));
}

// Keys 1, 2, ... that share one home slot in a table of `slotCount` slots.
inline std::vector<uint64_t> keysWithHome(uint32_t home, uint32_t slotCount, size_t count,
                                          uint64_t start = 1) {
  std::vector<uint64_t> keys;
  for (uint64_t k = start; keys.size() < count; ++k) {
    if (Brim::Layout::homeSlot(k, slotCount - 1) == home) keys.push_back(k);
  }
  return keys;
}

}  // namespace BrimTest
