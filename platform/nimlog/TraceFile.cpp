#include "nimlog/TraceFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>

#include "nimlog/MessageTable.h"

namespace Nimlog {

namespace detail {
std::atomic<Ring*> activeRing{nullptr};
}

namespace {

struct OpenFile {
  std::string path;
  int fd = -1;
  std::byte* base = nullptr;
  std::size_t size = 0;
  format::FileHeader* header = nullptr;
  detail::Ring ring{};
};

// Everything below is guarded by the lock. The objects are never destroyed so that
// records and registrations made while statics are torn down at exit stay safe.
struct State {
  std::mutex lock;
  MessageTable messages;
  OpenFile* current = nullptr;
  // The parent's file as a forked child inherited it: the child must not write into it.
  OpenFile* inherited = nullptr;
};

State& state() {
  static State* const instance = new State;
  return *instance;
}

void release(OpenFile* file) noexcept {
  if (file == nullptr) {
    return;
  }
  if (file->base != nullptr) {
    munmap(file->base, file->size);
  }
  if (file->fd >= 0) {
    ::close(file->fd);
  }
  delete file;
}

// Holding the lock across fork() keeps the child from inheriting it locked by a thread
// that does not exist there.
void lockBeforeFork() noexcept { state().lock.lock(); }
void unlockInParent() noexcept { state().lock.unlock(); }

// A forked child shares the parent's mapping; records from both would interleave in
// one ring. The child stops recording until it opens a file of its own.
void detachInForkedChild() noexcept {
  State& s = state();
  s.lock.unlock();
  detail::activeRing.store(nullptr, std::memory_order_relaxed);
  if (s.current != nullptr) {
    s.inherited = s.current;
    s.current = nullptr;
  }
}

[[noreturn]] void throwSystemError(int error, const std::string& what, const std::string& path) {
  throw std::system_error(error, std::generic_category(),
                          "cannot " + what + " trace file '" + path + "'");
}

// Unpublishes and frees the open file. Requires: the lock is held.
void closeLocked(State& s) noexcept {
  detail::activeRing.store(nullptr, std::memory_order_release);
  release(s.current);
  s.current = nullptr;
  release(s.inherited);
  s.inherited = nullptr;
}

}  // namespace

void TraceFile::open(const std::string& path, std::uint64_t recordCapacity,
                     std::uint64_t textCapacity) {
  if (recordCapacity == 0 || recordCapacity > (std::uint64_t{1} << 32)) {
    throw std::invalid_argument("trace file record capacity must be between 1 and 2^32, not " +
                                std::to_string(recordCapacity));
  }
  if (textCapacity > (std::uint64_t{1} << 32)) {
    throw std::invalid_argument("trace file text capacity must be at most 2^32 bytes, not " +
                                std::to_string(textCapacity));
  }
  static std::once_flag atforkOnce;
  std::call_once(atforkOnce,
                 [] { pthread_atfork(lockBeforeFork, unlockInParent, detachInForkedChild); });

  State& s = state();
  std::lock_guard guard(s.lock);
  closeLocked(s);

  const std::uint64_t capacity = std::bit_ceil(recordCapacity);
  const std::uint64_t recordsOffset = format::kHeaderSize;
  const std::uint64_t textOffset = recordsOffset + capacity * sizeof(format::Record);
  const std::uint64_t size = textOffset + textCapacity;

  // Freed (unmapped, closed) on every way out until it is published below.
  std::unique_ptr<OpenFile, void (*)(OpenFile*) noexcept> file(new OpenFile, &release);
  file->path = path;
  file->size = size;
  file->fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file->fd < 0) {
    const int error = errno;
    throwSystemError(error, "create", path);
  }
  // Reserve the blocks now: a full disk must fail here, not as a fault in a handler.
  if (const int error = posix_fallocate(file->fd, 0, static_cast<off_t>(size)); error != 0) {
    throwSystemError(error, "size", path);
  }
  // MAP_POPULATE so that the first lap does not take page faults on the recording path.
  void* base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, file->fd, 0);
  if (base == MAP_FAILED) {
    const int error = errno;
    throwSystemError(error, "map", path);
  }
  file->base = static_cast<std::byte*>(base);
  file->header = new (file->base) format::FileHeader{};
  format::FileHeader& header = *file->header;
  std::memcpy(header.magic, format::kMagic, sizeof header.magic);
  header.version = format::kVersion;
  header.recordSize = sizeof(format::Record);
  header.headerSize = format::kHeaderSize;
  header.recordCapacity = capacity;
  header.recordsOffset = recordsOffset;
  header.textOffset = textOffset;
  header.textCapacity = textCapacity;
  header.pid = static_cast<std::uint32_t>(getpid());
  file->ring.slots = reinterpret_cast<format::Record*>(file->base + recordsOffset);
  file->ring.mask = capacity - 1;
  file->ring.writeIndex = &header.writeIndex;

  const auto& sites = s.messages.sites();
  for (std::uint32_t id = 0; id < sites.size(); ++id) {
    appendTextEntry(file->base, header, id, sites[id]);
  }
  s.current = file.release();
  detail::activeRing.store(&s.current->ring, std::memory_order_release);
}

void TraceFile::close() noexcept {
  State& s = state();
  std::lock_guard guard(s.lock);
  closeLocked(s);
}

bool TraceFile::isOpen() noexcept {
  return detail::activeRing.load(std::memory_order_acquire) != nullptr;
}

std::uint64_t TraceFile::capacity() noexcept {
  const detail::Ring* ring = detail::activeRing.load(std::memory_order_acquire);
  return ring != nullptr ? ring->mask + 1 : 0;
}

std::string TraceFile::path() {
  State& s = state();
  std::lock_guard guard(s.lock);
  return s.current != nullptr ? s.current->path : std::string();
}

MessageId registerMessage(const char* module, std::uint32_t line, const char* text) {
  State& s = state();
  std::lock_guard guard(s.lock);
  const MessageId id = s.messages.add(module, line, text);
  if (s.current != nullptr) {
    appendTextEntry(s.current->base, *s.current->header, id, s.messages.sites()[id]);
  }
  return id;
}

namespace detail {

void writeRecord(Ring& ring, std::uint64_t timestampNs, MessageId id, std::uint32_t line,
                 std::uint32_t argc, std::uint64_t a0, std::uint64_t a1, std::uint64_t a2,
                 std::uint64_t a3) noexcept {
  const std::uint64_t index =
      std::atomic_ref<std::uint64_t>(*ring.writeIndex).fetch_add(1, std::memory_order_relaxed);
  format::Record& slot = ring.slots[index & ring.mask];
  // Word-wise relaxed stores: a writer a full lap ahead may share this slot, and the
  // decoder tells the torn result apart by its sequence.
  auto put = [](std::uint64_t& word, std::uint64_t value) {
    std::atomic_ref<std::uint64_t>(word).store(value, std::memory_order_relaxed);
  };
  put(slot.timestampNs, timestampNs);
  put(slot.args[0], a0);
  put(slot.args[1], a1);
  put(slot.args[2], a2);
  put(slot.args[3], a3);
  std::atomic_ref<std::uint32_t>(slot.messageId).store(id, std::memory_order_relaxed);
  std::atomic_ref<std::uint32_t>(slot.line).store(line, std::memory_order_relaxed);
  std::atomic_ref<std::uint32_t>(slot.argc).store(argc, std::memory_order_relaxed);
  std::atomic_ref<std::uint64_t>(slot.sequence).store(index + 1, std::memory_order_release);
}

}  // namespace detail
}  // namespace Nimlog
