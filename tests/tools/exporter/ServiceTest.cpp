// The exporter's HTTP service in this process, on a loopback port: routes,
// error pages for bad input, and many scrapes at once on the worker threads
// while the tables are being written (the ThreadSanitizer build runs these).
#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "brim/Brim.h"
#include "support/ShmNamespace.h"
#include "support/TableDamage.h"
#include "tables/CounterTables.h"
#include "tools/vorn-exporter/Service.h"

namespace {

using Interface::EthIntfCounterBrim;

std::atomic<unsigned> gNext{0};
constexpr int kPorts = 16;

EthIntfCounterBrim port(int n, uint64_t step) {
  EthIntfCounterBrim r(Orvo::IntfId("Ethernet" + std::to_string(n)));
  Interface::IntfStatistics s;
  s.inOctetsIs(1000 * step);
  s.statsUpdateTimeIs(static_cast<double>(step));
  r.statisticsIs(s);
  return r;
}

// Sends `request` as it is on a new connection and returns the response that
// came back (empty when the server closed the connection or 10 s passed: on a
// loaded machine a connection beyond the listen backlog waits for the kernel's
// retransmitted handshake, which takes seconds).
std::string rawExchange(int port, const std::string& request) {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return "";
  timeval tv{10, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(static_cast<uint16_t>(port));
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string reply;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
    size_t sent = 0;
    while (sent < request.size()) {
      ssize_t n = ::send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
      if (n <= 0) break;
      sent += static_cast<size_t>(n);
    }
    // The connection stays open for keep-alive, so a response ends where its
    // Content-Length says.
    char buf[4096];
    for (;;) {
      ssize_t n = ::recv(fd, buf, sizeof buf, 0);
      if (n <= 0) break;
      reply.append(buf, static_cast<size_t>(n));
      auto end = reply.find("\r\n\r\n");
      if (end == std::string::npos) continue;
      auto at = reply.find("Content-Length: ");
      size_t length = at < end ? std::stoul(reply.substr(at + 16)) : 0;
      if (reply.size() >= end + 4 + length) break;
    }
  }
  ::close(fd);
  return reply;
}

// A GET over rawExchange: the status (0 when nothing came back) and the body.
// The concurrent tests use this rather than the library's client, whose
// precompiled code ThreadSanitizer cannot see into.
std::pair<int, std::string> rawGet(int port, const std::string& path) {
  std::string reply = rawExchange(
      port, "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
  if (reply.rfind("HTTP/1.1 ", 0) != 0) return {0, ""};
  auto end = reply.find("\r\n\r\n");
  return {std::stoi(reply.substr(9, 3)), end == std::string::npos ? "" : reply.substr(end + 4)};
}

class ServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ns = "svc" + std::to_string(::getpid()) + "_" + std::to_string(gNext++);
    writer = Brim::TableWriter<EthIntfCounterBrim>::open(ns, TableNames::kAllIntfCounters, 64);
    for (int n = 1; n <= kPorts; ++n) writer->put(port(n, 1));
    Exporter::ServiceOptions options;
    options.ns = ns;
    options.readTimeoutSeconds = 2;
    service = std::make_unique<Exporter::Service>(options);
    server.new_task_queue = [] { return new httplib::ThreadPool(4); };
    service->install(server);
    httpPort = server.bind_to_any_port("127.0.0.1");
    ASSERT_GT(httpPort, 0);
    listener = std::thread([this] { server.listen_after_bind(); });
  }
  void TearDown() override {
    server.stop();
    if (listener.joinable()) listener.join();
    writer.reset();
    VornTest::removeNamespaceTables(ns);
  }

  httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) {
    httplib::Client client("127.0.0.1", httpPort);
    client.set_read_timeout(10, 0);
    return client.Get(path.c_str(), headers);
  }

  std::string ns;
  std::unique_ptr<Brim::TableWriter<EthIntfCounterBrim>> writer;
  std::unique_ptr<Exporter::Service> service;
  httplib::Server server;
  int httpPort = 0;
  std::thread listener;
};

TEST_F(ServiceTest, MetricsAreServedInTheTextFormatByDefault) {
  auto res = get("/metrics");
  ASSERT_TRUE(res) << httplib::to_string(res.error());
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->get_header_value("Content-Type"), "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_NE(res->body.find("vorn_port_in_bytes_total{interface=\"Ethernet16\"} 1000\n"),
            std::string::npos);
  // Tables this namespace lacks are reported, not an error.
  EXPECT_NE(res->body.find("vorn_exporter_table_unavailable{table=\"vlanCounterDir\","
                           "reason=\"missing\"} 1\n"),
            std::string::npos);
}

TEST_F(ServiceTest, OpenMetricsWhenTheScraperAsksForIt) {
  auto res = get("/metrics", {{"Accept",
                               "application/openmetrics-text;version=1.0.0,"
                               "text/plain;version=0.0.4;q=0.5"}});
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->get_header_value("Content-Type"),
            "application/openmetrics-text; version=1.0.0; charset=utf-8");
  ASSERT_GE(res->body.size(), 6u);
  EXPECT_EQ(res->body.substr(res->body.size() - 6), "# EOF\n");
}

TEST_F(ServiceTest, IndexPageLinksMetricsAndShowsTableHealth) {
  auto res = get("/");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_NE(res->get_header_value("Content-Type").find("text/html"), std::string::npos);
  EXPECT_NE(res->body.find("<a href=\"/metrics\">"), std::string::npos);
  EXPECT_NE(res->body.find("<td>allIntfCounters</td><td>read</td><td>16</td><td>0</td>"),
            std::string::npos)
      << res->body;
  EXPECT_NE(res->body.find("<td>vlanCounterDir</td><td>missing</td>"), std::string::npos);
}

TEST_F(ServiceTest, DamagedSlotIsSkippedAndCountedAcrossScrapes) {
  VornTest::TableDamage damage(ns, TableNames::kAllIntfCounters);
  ASSERT_TRUE(damage.damage(Orvo::IntfId("Ethernet3").value()));
  ASSERT_TRUE(get("/metrics"));
  auto res = get("/metrics");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->body.find("interface=\"Ethernet3\""), std::string::npos);
  EXPECT_NE(res->body.find("vorn_port_in_bytes_total{interface=\"Ethernet4\"} 1000\n"),
            std::string::npos);
  EXPECT_NE(res->body.find("vorn_exporter_table_damaged_slots{table=\"allIntfCounters\"} 1\n"),
            std::string::npos);
  // Two scrapes, one damaged slot each.
  EXPECT_NE(res->body.find("vorn_exporter_corruption_reports_total{table=\"allIntfCounters\"} 2\n"),
            std::string::npos);
  EXPECT_NE(res->body.find("vorn_exporter_table_records{table=\"allIntfCounters\"} 15\n"),
            std::string::npos);
}

TEST_F(ServiceTest, UnknownPathIsAPlainNotFound) {
  auto res = get("/nothing-here");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 404);
  EXPECT_EQ(res->body, "404 not found (/nothing-here; try /metrics)\n");
}

TEST_F(ServiceTest, MalformedRequestIsABadRequestAndServingGoesOn) {
  std::string reply = rawExchange(httpPort, "THIS IS NOT HTTP\r\n\r\n");
  EXPECT_EQ(reply.rfind("HTTP/1.1 400", 0), 0u) << reply;
  reply = rawExchange(httpPort, "GET /metrics HTTP/9.9\r\nHost: x\r\n\r\n");
  EXPECT_EQ(reply.rfind("HTTP/1.1 400", 0), 0u) << reply;
  auto res = get("/metrics");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
}

TEST_F(ServiceTest, VeryLongHeaderIsRefusedAndServingGoesOn) {
  std::string request =
      "GET /metrics HTTP/1.1\r\nHost: x\r\nX-Long: " + std::string(200000, 'a') + "\r\n\r\n";
  std::string reply = rawExchange(httpPort, request);
  EXPECT_EQ(reply.rfind("HTTP/1.1 400", 0), 0u) << reply.substr(0, 200);
  std::string longUri = "GET /" + std::string(100000, 'b') + " HTTP/1.1\r\nHost: x\r\n\r\n";
  reply = rawExchange(httpPort, longUri);
  EXPECT_EQ(reply.rfind("HTTP/1.1 414", 0), 0u) << reply.substr(0, 200);
  auto res = get("/metrics");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
}

TEST_F(ServiceTest, ManyConcurrentClientsAreAllServed) {
  constexpr int kClients = 48;
  std::atomic<int> ok{0};
  std::vector<std::thread> clients;
  for (int i = 0; i < kClients; ++i) {
    clients.emplace_back([&, i] {
      auto [status, body] = rawGet(httpPort, i % 3 == 0 ? "/" : "/metrics");
      if (status == 200 && !body.empty()) ++ok;
    });
  }
  for (auto& t : clients) t.join();
  EXPECT_EQ(ok.load(), kClients);
  // Idle connections that send nothing are timed out, not served forever.
  EXPECT_EQ(rawExchange(httpPort, ""), "");
}

TEST_F(ServiceTest, ConcurrentScrapesWhileTheAgentWritesAreEachWhole) {
  std::atomic<bool> stop{false};
  std::thread agent([&] {
    for (uint64_t step = 2; !stop.load(); ++step) {
      for (int n = 1; n <= kPorts; ++n) writer->put(port(n, step));
    }
  });
  constexpr int kThreads = 4, kScrapes = 10;
  std::atomic<int> whole{0};
  std::vector<std::thread> scrapers;
  for (int t = 0; t < kThreads; ++t) {
    scrapers.emplace_back([&] {
      uint64_t lastSeen = 0;
      for (int i = 0; i < kScrapes; ++i) {
        auto [status, body] = rawGet(httpPort, "/metrics");
        if (status != 200) continue;
        const std::string key = "vorn_port_in_bytes_total{interface=\"Ethernet5\"} ";
        auto at = body.find(key);
        if (at == std::string::npos) continue;
        uint64_t value = std::stoull(body.substr(at + key.size()));
        bool allPorts = true;
        for (int n = 1; n <= kPorts; ++n) {
          allPorts &= body.find("vorn_port_in_bytes_total{interface=\"Ethernet" +
                                std::to_string(n) + "\"} ") != std::string::npos;
        }
        // Totals seen by one scraper never go back, and every port is there.
        if (allPorts && value >= lastSeen && value % 1000 == 0) ++whole;
        lastSeen = value;
      }
    });
  }
  for (auto& t : scrapers) t.join();
  stop = true;
  agent.join();
  EXPECT_EQ(whole.load(), kThreads * kScrapes);
  EXPECT_EQ(service->scrapes(), static_cast<uint64_t>(kThreads * kScrapes));
}

}  // namespace
