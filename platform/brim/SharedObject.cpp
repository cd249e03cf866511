#include "brim/SharedObject.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Brim {

namespace {

// Room is left below NAME_MAX (255) for the temporary suffix.
constexpr size_t kMaxNameLength = 200;
// POSIX shared-memory names are files in this directory on Linux; publishing
// renames the file there because shm_open itself cannot rename.
constexpr const char* kShmDir = "/dev/shm/";

void checkPart(const std::string& part, const char* what) {
  if (part.empty()) {
    throw std::invalid_argument(std::string("Brim table ") + what + " is empty");
  }
  if (part.find('/') != std::string::npos || part.find('\0') != std::string::npos) {
    throw std::invalid_argument(std::string("Brim table ") + what + " '" + part +
                                "' contains '/' or NUL");
  }
}

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

std::string tableName(const std::string& ns, const std::string& table) {
  checkPart(ns, "namespace");
  checkPart(table, "name");
  std::string name = ns + "." + table;
  if (name.size() > kMaxNameLength) {
    throw std::invalid_argument("Brim table name '" + name + "' is longer than " +
                                std::to_string(kMaxNameLength) + " characters");
  }
  return name;
}

bool unlinkTable(const std::string& ns, const std::string& table) {
  const std::string name = tableName(ns, table);
  if (shm_unlink(("/" + name).c_str()) == 0) return true;
  if (errno == ENOENT) return false;
  throwErrno("cannot unlink table " + name);
}

namespace detail {

SharedObject::SharedObject(std::string name, int fd, unsigned char* data, uint64_t size,
                           std::string tempName)
    : name_(std::move(name)), fd_(fd), data_(data), size_(size), tempName_(std::move(tempName)) {}

SharedObject::SharedObject(SharedObject&& other) noexcept
    : name_(std::move(other.name_)),
      fd_(std::exchange(other.fd_, -1)),
      data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      tempName_(std::move(other.tempName_)) {
  other.tempName_.clear();
}

SharedObject& SharedObject::operator=(SharedObject&& other) noexcept {
  if (this != &other) {
    release();
    name_ = std::move(other.name_);
    fd_ = std::exchange(other.fd_, -1);
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    tempName_ = std::move(other.tempName_);
    other.tempName_.clear();
  }
  return *this;
}

SharedObject::~SharedObject() { release(); }

void SharedObject::release() noexcept {
  if (data_ != nullptr) munmap(data_, size_);
  if (!tempName_.empty()) shm_unlink(("/" + tempName_).c_str());
  if (fd_ >= 0) close(fd_);
  data_ = nullptr;
  fd_ = -1;
  tempName_.clear();
}

std::optional<SharedObject> SharedObject::open(const std::string& name, Access access) {
  const int flags = access == Access::kReadOnly ? O_RDONLY : O_RDWR;
  const int fd = shm_open(("/" + name).c_str(), flags | O_CLOEXEC, 0);
  if (fd < 0) {
    if (errno == ENOENT) return std::nullopt;
    throwErrno("cannot open table " + name);
  }
  struct stat st {};
  if (fstat(fd, &st) != 0) {
    const int saved = errno;
    close(fd);
    errno = saved;
    throwErrno("cannot inspect table " + name);
  }
  const auto size = static_cast<uint64_t>(st.st_size);
  unsigned char* data = nullptr;
  if (size > 0) {
    const int prot = access == Access::kReadOnly ? PROT_READ : PROT_READ | PROT_WRITE;
    void* p = mmap(nullptr, size, prot, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED) {
      const int saved = errno;
      close(fd);
      errno = saved;
      throwErrno("cannot map table " + name);
    }
    data = static_cast<unsigned char*>(p);
  }
  return SharedObject(name, fd, data, size, "");
}

SharedObject SharedObject::createTemporary(const std::string& name, uint64_t size) {
  static std::atomic<uint64_t> counter{0};
  const std::string temp = name + ".tmp." + std::to_string(getpid()) + "." +
                           std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
  const int fd = shm_open(("/" + temp).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0) throwErrno("cannot create table " + name);
  // From here on the object owns the temporary name and removes it on failure.
  SharedObject object(name, fd, nullptr, 0, temp);
  // Owner-only write whatever the umask: readers in other processes map read-only.
  if (fchmod(fd, 0644) != 0) throwErrno("cannot set the mode of table " + name);
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) throwErrno("cannot size table " + name);
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (p == MAP_FAILED) throwErrno("cannot map table " + name);
  object.data_ = static_cast<unsigned char*>(p);
  object.size_ = size;
  return object;
}

bool SharedObject::publish() {
  const std::string from = kShmDir + tempName_;
  const std::string to = kShmDir + name_;
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    tempName_.clear();
    return true;
  }
  if (errno == EEXIST) {
    shm_unlink(("/" + tempName_).c_str());
    tempName_.clear();
    return false;
  }
  throwErrno("cannot publish table " + name_);
}

bool SharedObject::tryLockExclusive() {
  if (flock(fd_, LOCK_EX | LOCK_NB) == 0) return true;
  if (errno == EWOULDBLOCK) return false;
  throwErrno("cannot lock table " + name_);
}

bool SharedObject::isLinked() const {
  struct stat st {};
  if (fstat(fd_, &st) != 0) throwErrno("cannot inspect table " + name_);
  return st.st_nlink > 0;
}

}  // namespace detail
}  // namespace Brim
