#include "ExporterFixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <httplib.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

namespace ExporterIt {

std::string sourceRoot() {
  // This file is tests/tools/exporter/ExporterFixture.cpp. The build names it
  // relative to the build directory, which holds tools/vorn-exporter/vorn-exporter.
  std::filesystem::path file(__FILE__);
  if (file.is_relative()) {
    std::filesystem::path build =
        std::filesystem::path(VORN_EXPORTER_BINARY).parent_path().parent_path().parent_path();
    file = build / file;
  }
  return std::filesystem::weakly_canonical(file)
      .parent_path()
      .parent_path()
      .parent_path()
      .parent_path();
}

int freeLoopbackPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;
  socklen_t len = sizeof addr;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port = ntohs(addr.sin_port);
  }
  ::close(fd);
  return port;
}

pid_t spawn(const std::string& binary, const std::vector<std::string>& args,
            const std::string& logPath) {
  return SimIt::spawnLogged(binary, args, logPath);
}

void killProcess(pid_t& pid) {
  if (pid <= 0) return;
  ::kill(pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  pid = -1;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void ExporterTest::SetUp() {
  SimIt::AgentTest::SetUp();
  char pattern[] = "/tmp/vorn-exporter-it-XXXXXX";
  ASSERT_NE(::mkdtemp(pattern), nullptr);
  dir = pattern;
}

void ExporterTest::TearDown() {
  killProcess(prometheusPid);
  killProcess(exporterPid);
  if (HasFailure()) {
    for (const char* log : {"/exporter.log", "/prometheus.log"}) {
      std::cerr << "--- " << dir << log << " ---\n" << fileText(dir + log).substr(0, 20000);
    }
  }
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  SimIt::AgentTest::TearDown();
}

void ExporterTest::startExporter() {
  const std::string log = dir + "/exporter.log";
  exporterPid = spawn(VORN_EXPORTER_BINARY, {"-n", ns, "--listen", "127.0.0.1:0"}, log);
  ASSERT_GT(exporterPid, 0);
  const std::string listening = "listening on http://127.0.0.1:";
  bool ready = SimIt::waitUntil(
      [&] {
        std::string text = fileText(log);
        auto at = text.find(listening);
        if (at == std::string::npos || text.find("/metrics", at) == std::string::npos) {
          return false;
        }
        exporterPort = std::atoi(text.c_str() + at + listening.size());
        return exporterPort > 0;
      },
      10);
  ASSERT_TRUE(ready) << "the exporter did not start: " << fileText(log);
}

void ExporterTest::startPrometheus() {
  ASSERT_GT(exporterPort, 0) << "start the exporter first";
  prometheusPort = freeLoopbackPort();
  ASSERT_GT(prometheusPort, 0);
  const std::string config = dir + "/prometheus.yml";
  std::ofstream(config) << "global:\n"
                           "  scrape_interval: 1s\n"
                           "  scrape_timeout: 1s\n"
                           "  evaluation_interval: 1s\n"
                           "rule_files:\n"
                           "  - "
                        << sourceRoot()
                        << "/deploy/prometheus/rules.yml\n"
                           "scrape_configs:\n"
                           "  - job_name: vorn\n"
                           "    static_configs:\n"
                           "      - targets: ['127.0.0.1:"
                        << exporterPort << "']\n";
  prometheusPid = spawn(
      "/usr/bin/prometheus",
      {"--config.file=" + config, "--storage.tsdb.path=" + dir + "/data",
       "--web.listen-address=127.0.0.1:" + std::to_string(prometheusPort), "--log.level=warn"},
      dir + "/prometheus.log");
  ASSERT_GT(prometheusPid, 0);
  bool ready = SimIt::waitUntil(
      [&] {
        httplib::Client client("127.0.0.1", prometheusPort);
        client.set_connection_timeout(1, 0);
        auto res = client.Get("/-/ready");
        return res && res->status == 200;
      },
      30);
  ASSERT_TRUE(ready) << "Prometheus was not ready within 30 s";
}

nlohmann::json ExporterTest::query(const std::string& expr) {
  httplib::Client client("127.0.0.1", prometheusPort);
  client.set_read_timeout(10, 0);
  auto res = client.Get("/api/v1/query", httplib::Params{{"query", expr}}, httplib::Headers{});
  if (!res || res->status != 200) {
    ADD_FAILURE() << "query " << expr
                  << " failed: " << (res ? res->body : httplib::to_string(res.error()));
    return nlohmann::json::array();
  }
  auto doc = nlohmann::json::parse(res->body);
  return doc["data"]["result"];
}

}  // namespace ExporterIt
