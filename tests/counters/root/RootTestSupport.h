// Shared pieces of the root machine's tests: a root whose overridable handlers
// log instead of acting, a platform helper that logs into the same call log, a
// way to damage a table slot behind the writer's back, and small exception
// helpers.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "brim/Layout.h"
#include "brim/SharedObject.h"
#include "counters/CountersSm.h"
#include "pontil/Assert.h"
#include "support/RootFixture.h"
#include "zat/Activity.h"
#include "zat/Trace.h"

namespace RootTest {

using Calls = std::vector<std::string>;

// A root whose virtual per-key handlers only log: shows who calls them, and in
// which order, without the work behind them.
class LoggingRoot : public Vorn::Counters::CountersSm {
 public:
  template <class... Args>
  explicit LoggingRoot(Calls* log, const Args&... args) : CountersSm(args...), log_(log) {}

  using CountersSm::handleCpuIntf;
  using CountersSm::handleIntf;

  void handleIntf(Orvo::IntfId intfId) override {
    log_->push_back("handleIntf(" + intfId.stringValue() + ")");
  }
  void doClearCounters(Zat::String name) override {
    log_->push_back("doClearCounters(" + name.stringValue() + ")");
  }
  void handleCpuIntf(Orvo::IntfId intfId) override {
    log_->push_back("handleCpuIntf(" + intfId.stringValue() + ")");
  }

  // Builds one from the fixture's inputs, as CountersSmIs does.
  static Zat::Ptr<LoggingRoot> LoggingRootIs(Calls* log, const VornTest::RootInputs& in) {
    Zat::Ptr<LoggingRoot> root = in.apply([log](const auto&... args) {
      return Zat::Ptr<LoggingRoot>(new LoggingRoot(log, args...));
    });
    root->hasNotificationActiveIs(true);
    return root;
  }

 private:
  Calls* log_;
};

// A platform helper that appends its calls to a shared log.
class LoggingHelper : public VornHelper::VornHelperCountersSm {
 public:
  static Zat::Ptr<LoggingHelper> LoggingHelperIs(Calls* log) {
    return Zat::Ptr<LoggingHelper>(new LoggingHelper(log));
  }
  void countersInit() override { log_->push_back("countersInit"); }
  void intfCountersInit(Orvo::IntfId id) override { log("intfCountersInit", id); }
  void intfCountersCleanup(Orvo::IntfId id) override { log("intfCountersCleanup", id); }
  void cpuPortCountersInit(Zat::String name) override {
    log_->push_back("cpuPortCountersInit(" + name.stringValue() + ")");
  }
  void cpuPortCountersUpdate() override { log_->push_back("cpuPortCountersUpdate"); }
  bool coppClassCountersUpdate(Zat::Name) override { return true; }
  double firstPollDelay() override { return 1.0; }
  void intfCountersRead(Orvo::IntfId id, const Zat::Ptr<VornTypes::IntfCounters>&,
                        const Zat::Ptr<VornTypes::IntfCounters>&) override {
    log("intfCountersRead", id);
  }
  void intfQueueTypeRead(Orvo::IntfId, const Zat::Ptr<VornTypes::IntfQueueType>&) override {}
  Interface::QueueCounter::IntfQueueCounter intfQueueCountersRead(
      Orvo::IntfId id, const Zat::Ptr<VornTypes::IntfQueueCounters>&) override {
    return Interface::QueueCounter::IntfQueueCounter(id);
  }
  void vlanIntfCountersRead(Orvo::IntfId, const Zat::Ptr<VornTypes::VlanIntfCounters>&,
                            const Zat::Ptr<VornTypes::VlanIntfCounters>&) override {}
  bool vlanIntfCountersSupported(Orvo::IntfId, uint32_t) override { return true; }
  void vlanIntfCountersRelease(Orvo::IntfId id) override { log("vlanIntfCountersRelease", id); }
  bool aclDropCountersSupported() override { return false; }
  uint64_t aclDropCountRead(Orvo::IntfId) override { return 0; }

 private:
  explicit LoggingHelper(Calls* log) : log_(log) {}
  void log(const char* op, Orvo::IntfId id) {
    log_->push_back(std::string(op) + "(" + id.stringValue() + ")");
  }
  Calls* log_;
};

// Appends the counters module's text trace lines (up to `level`) to a log
// while alive; "<level> <text>" when `withLevel`.
class TraceToLog {
 public:
  TraceToLog(Calls* log, int level, bool withLevel = false) {
    Zat::Trace::sinkIs([log, withLevel](std::string_view module, int lvl, const std::string& text) {
      if (module != "VornCountersSm") return;
      log->push_back(withLevel ? std::to_string(lvl) + " " + text : text);
    });
    Zat::Trace::levelIs("VornCountersSm", level);
  }
  ~TraceToLog() {
    Zat::Trace::levelIs("VornCountersSm", -1);
    Zat::Trace::sinkDel();
  }
  TraceToLog(const TraceToLog&) = delete;
  TraceToLog& operator=(const TraceToLog&) = delete;
};

// A second, read-write mapping of a table's shared memory, to damage the slot
// of a key the way a stray write from another process would.
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
    if (p == MAP_FAILED) throw std::runtime_error("cannot map " + path_);
    base_ = static_cast<unsigned char*>(p);
  }
  ~TableDamage() {
    ::munmap(base_, size_);
    ::close(fd_);
  }
  TableDamage(const TableDamage&) = delete;
  TableDamage& operator=(const TableDamage&) = delete;

  // Flips bits of the second record word of the key's live slot, leaving the
  // checksum stale. Returns false when the key has no live slot.
  bool damage(Orvo::IntfId key) {
    const auto& header = *reinterpret_cast<const Brim::Layout::TableHeader*>(base_);
    for (uint32_t slot = 0; slot < header.slotCount; ++slot) {
      uint64_t* w = reinterpret_cast<uint64_t*>(base_ + header.slotsOffset +
                                                static_cast<uint64_t>(slot) * header.slotSize);
      if (Brim::Layout::loadWord(w[Brim::Layout::kStateWord]) == Brim::Layout::kLive &&
          Brim::Layout::loadWord(w[Brim::Layout::kKeyWord]) == key.value()) {
        uint64_t& word = w[Brim::Layout::kSlotHeaderWords + 1];
        Brim::Layout::storeWord(word, Brim::Layout::loadWord(word) ^ 0x5a5a5a5aULL);
        return true;
      }
    }
    return false;
  }

 private:
  std::string path_;
  int fd_ = -1;
  size_t size_ = 0;
  unsigned char* base_ = nullptr;
};

// The expression text of the fatal assertion `f` raises; "" when none.
inline std::string assertTextOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Pontil::AssertException& e) {
    return e.expression();
  }
  return "";
}

// The message of the exception of type E that `f` raises; "" when none.
template <class E>
std::string messageOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

}  // namespace RootTest
