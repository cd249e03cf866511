// vorn-exporter: serves the agent's counters to Prometheus. Every scrape of
// /metrics opens the namespace's tables read-only, reads them once and renders
// every family; / shows the tables' health.
#include <fmt/core.h>
#include <httplib.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <thread>

#include "readers/ControlClient.h"
#include "tools/vorn-exporter/Service.h"

namespace {

// "host:port", "[v6]:port" or ":port"; an empty host is the loopback address,
// so that nothing is served beyond this host unless asked for.
bool parseListen(const std::string& text, std::string& host, int& port) {
  auto colon = text.rfind(':');
  if (colon == std::string::npos) return false;
  host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  if (host.empty()) host = "127.0.0.1";
  const std::string p = text.substr(colon + 1);
  if (p.empty() || p.size() > 5 || p.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  port = std::stoi(p);
  return port <= 65535;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vorn-exporter: the agent's counters for Prometheus"};
  Exporter::ServiceOptions options;
  std::string listen = fmt::format("127.0.0.1:{}", Exporter::kDefaultPort);
  int threads = 4;
  bool once = false;
  bool openMetrics = false;
  app.add_option("--namespace,-n", options.ns, "shared-memory namespace of the agent's tables")
      ->check(Readers::namespaceProblem);
  app.add_option("--listen,-l", listen,
                 fmt::format("address to serve on, host:port (default 127.0.0.1:{}; port 0 picks "
                             "a free port)",
                             Exporter::kDefaultPort));
  app.add_option("--threads", threads, "HTTP worker threads (default 4)")->check(CLI::Range(1, 64));
  app.add_option("--policy-map", options.policyMap,
                 "policy_map label of the policing classes (default: the control-plane policy)");
  app.add_flag("--once", once, "print one scrape on standard output and exit");
  app.add_flag("--openmetrics", openMetrics, "with --once: OpenMetrics instead of the text format");
  CLI11_PARSE(app, argc, argv);

  Exporter::Service service(options);
  if (once) {
    const std::string text = service.metrics(openMetrics ? Exporter::Format::openMetrics
                                                         : Exporter::Format::prometheusText);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
  }

  std::string host;
  int port = 0;
  if (!parseListen(listen, host, port)) {
    fmt::print(stderr, "vorn-exporter: error: --listen '{}' is not host:port\n", listen);
    return 1;
  }

  // Signals are taken by one thread with sigwait, so that stopping the server
  // happens outside a signal handler; every other thread inherits the mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  httplib::Server server;
  server.new_task_queue = [threads] {
    return new httplib::ThreadPool(static_cast<size_t>(threads));
  };
  service.install(server);
  if (port == 0) {
    port = server.bind_to_any_port(host);
    if (port < 0) {
      fmt::print(stderr, "vorn-exporter: error: cannot listen on {}\n", listen);
      return 1;
    }
  } else if (!server.bind_to_port(host, port)) {
    fmt::print(stderr,
               "vorn-exporter: error: cannot listen on {} (in use, or not an address of "
               "this host?)\n",
               listen);
    return 1;
  }
  std::thread stopper([&] {
    int sig = 0;
    sigwait(&stopSignals, &sig);
    server.stop();
  });
  fmt::print("vorn-exporter: namespace {} listening on http://{}:{}/metrics\n", options.ns,
             host.find(':') != std::string::npos ? "[" + host + "]" : host, port);
  std::fflush(stdout);
  const bool ok = server.listen_after_bind();
  // The server stops only through the stopper; if it failed on its own, wake
  // the stopper so that it can be joined.
  if (stopper.joinable()) {
    if (!ok) pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
  }
  fmt::print("vorn-exporter: stopped after {} scrapes\n", service.scrapes());
  return ok ? 0 : 1;
}
