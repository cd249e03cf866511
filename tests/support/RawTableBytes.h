// A read-write mapping of one shared-memory object's bytes ("/dev/shm/<name>"),
// independent of the table code: tests damage tables through it.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace VornTest {

class RawTableBytes {
 public:
  explicit RawTableBytes(const std::string& name) {
    fd_ = ::shm_open(("/" + name).c_str(), O_RDWR, 0);
    if (fd_ < 0) throw std::runtime_error("cannot open table " + name);
    struct stat st {};
    ::fstat(fd_, &st);
    size_ = static_cast<size_t>(st.st_size);
    void* p = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p == MAP_FAILED) {
      ::close(fd_);
      throw std::runtime_error("cannot map table " + name);
    }
    base_ = static_cast<unsigned char*>(p);
  }
  ~RawTableBytes() {
    ::munmap(base_, size_);
    ::close(fd_);
  }
  RawTableBytes(const RawTableBytes&) = delete;
  RawTableBytes& operator=(const RawTableBytes&) = delete;

  // The mapped bytes; the mapping is writable whatever the wrapper's constness.
  unsigned char* bytes() const { return base_; }
  size_t size() const { return size_; }
  uint64_t word(size_t offset) const {
    uint64_t w;
    std::memcpy(&w, base_ + offset, 8);
    return w;
  }
  // Flips `width` neighbouring bits from bit `bit` (bit 0 is the lowest bit of byte 0).
  void flip(size_t bit, size_t width = 1) {
    for (size_t b = bit; b < bit + width; ++b)
      base_[b / 8] ^= static_cast<unsigned char>(1u << (b % 8));
  }

 private:
  int fd_ = -1;
  unsigned char* base_ = nullptr;
  size_t size_ = 0;
};

}  // namespace VornTest
