// Runs the simulated agent, vorn-exporter and, for the tests that need one, a
// real Prometheus server, all as processes on loopback.
//
// Every process writes to a log in the test's own directory, every wait is
// bounded, and TearDown kills whatever is still running by its pid and removes
// the directory (Prometheus's storage with it) before the agent fixture cleans
// up the namespace.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/integration/AgentFixture.h"

#ifndef VORN_EXPORTER_BINARY
#error "the exporter tests need VORN_EXPORTER_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace ExporterIt {

// The repository's root, found from this file's place in it.
std::string sourceRoot();
// A TCP port on 127.0.0.1 that nothing listens on now.
int freeLoopbackPort();
// Starts `binary` with `args`, its output going to `logPath`; the pid.
pid_t spawn(const std::string& binary, const std::vector<std::string>& args,
            const std::string& logPath);
// SIGKILL and reap; nothing when pid <= 0.
void killProcess(pid_t& pid);
std::string fileText(const std::string& path);

class ExporterTest : public SimIt::AgentTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Starts vorn-exporter on a free loopback port for this test's namespace and
  // waits (at most 10 s) until it says where it listens.
  void startExporter();
  // Starts Prometheus scraping the exporter every second, with the deploy rules
  // loaded, and waits (at most 30 s) until it is ready.
  void startPrometheus();
  // An instant query through Prometheus's HTTP API; the "result" array (fails
  // the test when the query fails).
  nlohmann::json query(const std::string& expr);

  std::string dir;  // this test's scratch directory
  pid_t exporterPid = -1, prometheusPid = -1;
  int exporterPort = 0, prometheusPort = 0;
};

}  // namespace ExporterIt
