// Brim shared objects: naming, creating, publishing, locking and mapping the POSIX
// shared-memory object behind one table. Used by the table core; the agent and
// tools only see tableName() and unlinkTable().
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Brim {

// The table's name "<ns>.<table>"; its POSIX shared-memory name is "/" followed by it.
// Requires: ns and table non-empty, without '/' or NUL, together at most 200
// characters; otherwise raises std::invalid_argument naming the problem.
std::string tableName(const std::string& ns, const std::string& table);

// Removes the table's name (and its writer lock object) so that the next writer
// creates it afresh; processes that have it mapped keep their mapping. Returns false
// when there was no such table.
// Requires: valid names as for tableName().
bool unlinkTable(const std::string& ns, const std::string& table);

namespace detail {

// One mapped shared-memory object. Move-only; unmaps and closes on destruction
// (which also drops a writer lock), and removes a temporary that was never published.
class SharedObject {
 public:
  enum class Access { kReadOnly, kReadWrite };

  // Opens and maps the published object of table `name` (as from tableName()).
  // Returns nullopt when there is none; raises std::system_error on other failures.
  static std::optional<SharedObject> open(const std::string& name, Access access);
  // Creates a zero-filled object of `size` bytes under a private temporary name,
  // mode 0644 whatever the umask, mapped read-write.
  static SharedObject createTemporary(const std::string& name, uint64_t size);

  SharedObject(SharedObject&& other) noexcept;
  SharedObject& operator=(SharedObject&& other) noexcept;
  SharedObject(const SharedObject&) = delete;
  SharedObject& operator=(const SharedObject&) = delete;
  ~SharedObject();

  // Moves a temporary object to its table name, atomically and only if that name is
  // free, so a reader never maps a half-built table and two racing creators cannot
  // replace each other. Returns false (and removes the temporary) when it is taken.
  bool publish();
  // As publish(), but takes the name over from the table already there: readers that
  // have the old object mapped keep it, new ones map this one.
  void publishReplacing();
  // Takes an exclusive flock on the object itself without waiting. Only tables of the
  // first layout were locked this way; a writer of that layout may still hold one.
  bool tryLockExclusive();
  // False once the object's name has been removed (by unlinkTable) since it was opened.
  bool isLinked() const;

  unsigned char* data() const { return data_; }
  uint64_t size() const { return size_; }

 private:
  SharedObject(std::string name, int fd, unsigned char* data, uint64_t size, std::string tempName);
  void release() noexcept;

  std::string name_;
  int fd_ = -1;
  unsigned char* data_ = nullptr;
  uint64_t size_ = 0;
  std::string tempName_;  // set until a temporary object is published
};

// The writer lock of one table: a separate shared-memory object "<name>.writer-lock",
// mode 0600, that only the writer's user can open. The table object itself is
// readable by everyone, and any process that can open a file can flock it, so a lock
// on the table would let an unprivileged reader keep the agent from starting.
// Move-only; the kernel drops the lock when the holder exits, however it exits.
class WriterLock {
 public:
  // Takes the lock of table `name` without waiting, creating its object if needed.
  // Returns nullopt when another process holds it. Raises std::system_error when the
  // object cannot be made or locked, and std::runtime_error when an object of that
  // name belongs to another user or is open to others and cannot be replaced.
  static std::optional<WriterLock> tryTake(const std::string& name);

  WriterLock(WriterLock&& other) noexcept;
  WriterLock& operator=(WriterLock&& other) noexcept;
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;
  ~WriterLock();

  // The shared-memory name of the lock object of table `name`.
  static std::string objectName(const std::string& name);

 private:
  explicit WriterLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace detail
}  // namespace Brim
