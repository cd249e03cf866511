// The exporter's HTTP service: /metrics renders a fresh snapshot of the agent's
// tables per scrape, / a small page with the tables' health, anything else a
// plain-text error.
//
// Scrapes run on the HTTP server's worker threads, several at once. Each one
// opens and reads the tables on its own, read-only, and shares with the others
// only the counters below (atomics and one mutex-guarded map), so concurrent
// scrapes need no other coordination and never wait on the agent.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "readers/PublishedTables.h"
#include "tools/vorn-exporter/Metrics.h"

namespace httplib {
class Server;
}

namespace Exporter {

// The port the exporter listens on unless told otherwise.
inline constexpr int kDefaultPort = 9417;

struct ServiceOptions {
  std::string ns = "vorn";
  std::string policyMap = Published::kControlPlanePolicyName;
  // Limits that keep a misbehaving client from holding a worker for long.
  int readTimeoutSeconds = 5;
  int writeTimeoutSeconds = 10;
  int keepAliveTimeoutSeconds = 5;
  size_t maxRequestBodyBytes = 64 * 1024;
};

class Service {
 public:
  explicit Service(ServiceOptions options) : options_(std::move(options)) {}

  // One scrape: reads every table and renders every family. Thread-safe.
  std::string metrics(Format format);
  // The landing page: links and the tables' health, from a fresh read. Thread-safe.
  std::string indexPage();

  // Routes, error pages and limits on `server`.
  void install(httplib::Server& server);

  uint64_t scrapes() const { return scrapes_.load(std::memory_order_relaxed); }

 private:
  ServiceOptions options_;
  std::atomic<uint64_t> scrapes_{0};
  std::mutex damageMutex_;
  std::map<std::string, uint64_t> damagedSlotsTotal_;  // guarded by damageMutex_
};

}  // namespace Exporter
