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

// "/" + name, the form shm_open takes. Appending (rather than "/" + a temporary)
// also keeps an optimising compiler's overlap warning about std::string quiet.
std::string shmPath(const std::string& name) {
  std::string path(1, '/');
  path += name;
  return path;
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
  // The lock goes too: a writer that still holds it keeps it, and the next writer,
  // which creates the table afresh, takes a fresh one.
  if (shm_unlink(shmPath(detail::WriterLock::objectName(name)).c_str()) != 0 && errno != ENOENT) {
    throwErrno("cannot unlink the writer lock of table " + name);
  }
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

void SharedObject::publishReplacing() {
  const std::string from = kShmDir + tempName_;
  const std::string to = kShmDir + name_;
  if (rename(from.c_str(), to.c_str()) != 0) throwErrno("cannot publish table " + name_);
  tempName_.clear();
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

std::string WriterLock::objectName(const std::string& name) { return name + ".writer-lock"; }

WriterLock::WriterLock(WriterLock&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

WriterLock& WriterLock::operator=(WriterLock&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

WriterLock::~WriterLock() {
  if (fd_ >= 0) close(fd_);
}

std::optional<WriterLock> WriterLock::tryTake(const std::string& name) {
  const std::string object = shmPath(objectName(name));
  const std::string path = kShmDir + objectName(name);
  // Each round settles one race with another writer creating or replacing the object.
  for (int round = 0; round < 8; ++round) {
    int fd = shm_open(object.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) {
      // The umask may have taken bits away, never added any; make it exact anyway.
      if (fchmod(fd, 0600) != 0) {
        const int saved = errno;
        close(fd);
        errno = saved;
        throwErrno("cannot set the mode of the writer lock of table " + name);
      }
    } else if (errno == EEXIST) {
      fd = shm_open(object.c_str(), O_RDWR | O_CLOEXEC, 0);
      if (fd < 0) {
        if (errno == ENOENT) continue;
        if (errno != EACCES) throwErrno("cannot open the writer lock of table " + name);
      }
    } else {
      throwErrno("cannot create the writer lock of table " + name);
    }
    struct stat st {};
    if (fd >= 0 && fstat(fd, &st) != 0) {
      const int saved = errno;
      close(fd);
      errno = saved;
      throwErrno("cannot inspect the writer lock of table " + name);
    }
    if (fd < 0 || st.st_uid != geteuid() || (st.st_mode & 077) != 0) {
      // Planted by someone else, or opened up since: whoever can open it could hold
      // it. The directory is sticky, so only its owner or a privileged writer can
      // remove it; then the next round makes our own.
      if (fd >= 0) close(fd);
      if (shm_unlink(object.c_str()) != 0 && errno != ENOENT) {
        throw std::runtime_error("table " + name + ": its writer lock " + path +
                                 " belongs to another user or is open to others, and cannot "
                                 "be replaced: " +
                                 std::generic_category().message(errno));
      }
      continue;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int saved = errno;
      close(fd);
      if (saved == EWOULDBLOCK) return std::nullopt;
      errno = saved;
      throwErrno("cannot lock table " + name);
    }
    // Removed (by unlinkTable) or replaced between our open and our lock: that lock
    // no longer guards the table, so start over.
    struct stat now {};
    if (stat(path.c_str(), &now) != 0 || now.st_ino != st.st_ino || now.st_dev != st.st_dev) {
      close(fd);
      continue;
    }
    return WriterLock(fd);
  }
  throw std::runtime_error("table " + name +
                           ": its writer lock kept being replaced by others while taking it");
}

}  // namespace detail
}  // namespace Brim
