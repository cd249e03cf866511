// A second, read-write mapping of a shared-memory table, for tests that damage
// a slot the way a stray write from another process would.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "brim/Brim.h"
#include "brim/Layout.h"

namespace VornTest {

class TableDamage {
 public:
  TableDamage(const std::string& ns, const std::string& table)
      : path_("/dev/shm/" + Brim::tableName(ns, table)) {
    fd_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0) throw std::runtime_error("cannot open " + path_);
    struct stat st {};
    ::fstat(fd_, &st);
    size_ = static_cast<size_t>(st.st_size);
    void* p = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p == MAP_FAILED) {
      ::close(fd_);
      throw std::runtime_error("cannot map " + path_);
    }
    base_ = static_cast<unsigned char*>(p);
  }
  ~TableDamage() {
    ::munmap(base_, size_);
    ::close(fd_);
  }
  TableDamage(const TableDamage&) = delete;
  TableDamage& operator=(const TableDamage&) = delete;

  const Brim::Layout::TableHeader& header() const {
    return *reinterpret_cast<const Brim::Layout::TableHeader*>(base_);
  }

  // The slot holding the key (its 64-bit encoding) live, if any.
  std::optional<uint32_t> liveSlotOf(uint64_t key) const {
    for (uint32_t slot = 0; slot < header().slotCount; ++slot) {
      const uint64_t* w = words(slot);
      if (Brim::Layout::loadWord(w[Brim::Layout::kStateWord]) == Brim::Layout::kLive &&
          Brim::Layout::loadWord(w[Brim::Layout::kKeyWord]) == key) {
        return slot;
      }
    }
    return std::nullopt;
  }

  // Flips bits of the record's second word, leaving the checksum stale.
  void damageRecord(uint32_t slot) {
    uint64_t& word = words(slot)[Brim::Layout::kSlotHeaderWords + 1];
    Brim::Layout::storeWord(word, Brim::Layout::loadWord(word) ^ 0x5a5a5a5aULL);
  }

  // Damages the live slot of `key`; false when the key has no live slot.
  bool damage(uint64_t key) {
    auto slot = liveSlotOf(key);
    if (!slot) return false;
    damageRecord(*slot);
    return true;
  }

 private:
  uint64_t* words(uint32_t slot) const {
    return reinterpret_cast<uint64_t*>(base_ + header().slotsOffset +
                                       static_cast<uint64_t>(slot) * header().slotSize);
  }

  std::string path_;
  int fd_ = -1;
  size_t size_ = 0;
  unsigned char* base_ = nullptr;
};

}  // namespace VornTest
