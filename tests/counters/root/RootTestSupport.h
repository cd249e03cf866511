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
#include "support/ErrorText.h"
#include "support/RootFixture.h"
#include "support/TableDamage.h"
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

using VornTest::TableDamage;

using VornTest::assertTextOf;
using VornTest::messageOf;

}  // namespace RootTest
