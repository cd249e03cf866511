#include "tools/vorn-exporter/Service.h"

#include <fmt/format.h>
#include <httplib.h>

#include <chrono>
#include <exception>

#include "readers/Snapshot.h"

namespace Exporter {

namespace {

std::string htmlEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

const char* reasonPhrase(int status) {
  switch (status) {
    case 400:
      return "bad request";
    case 404:
      return "not found";
    case 405:
      return "method not allowed";
    case 413:
      return "request too large";
    case 414:
      return "request URI too long";
    case 431:
      return "request header fields too large";
    case 500:
      return "internal error";
    default:
      return "error";
  }
}

}  // namespace

std::string Service::metrics(Format format) {
  ScrapeHealth health;
  const uint64_t served = scrapes_.fetch_add(1, std::memory_order_relaxed);
  Readers::Snapshot snapshot = Readers::readSnapshot(options_.ns);
  health.readSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - health.started).count();
  health.scrapes = served;
  {
    std::lock_guard<std::mutex> lock(damageMutex_);
    for (const auto* t : snapshot.statuses()) {
      health.damagedSlotsTotal[t->table] = damagedSlotsTotal_[t->table] += t->damagedSlots;
    }
  }
  std::string out;
  // Roughly what a scrape of the snapshot takes, so the text grows in place.
  out.reserve(4096 + snapshot.recordCount() * 1024);
  render(snapshot, health, RenderOptions{options_.policyMap}, format, out);
  return out;
}

std::string Service::indexPage() {
  Readers::Snapshot snapshot = Readers::readSnapshot(options_.ns);
  std::string rows;
  for (const auto* t : snapshot.statuses()) {
    rows += fmt::format(
        "<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>\n", htmlEscape(t->table),
        Readers::tableStateName(t->state), t->records, t->damagedSlots,
        htmlEscape(t->state == Readers::TableState::read ? t->lastDamage : t->message));
  }
  return fmt::format(
      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>vorn-exporter</title></head>\n"
      "<body><h1>vorn-exporter</h1>\n"
      "<p>Counters of the agent's namespace <code>{}</code>, scraped {} times since start.</p>\n"
      "<p><a href=\"/metrics\">Metrics</a></p>\n"
      "<h2>Tables</h2>\n<table border=\"1\">\n"
      "<tr><th>table</th><th>state</th><th>records</th><th>damaged slots</th><th>note</th></tr>\n"
      "{}</table>\n</body></html>\n",
      htmlEscape(options_.ns), scrapes(), rows);
}

void Service::install(httplib::Server& server) {
  server.set_read_timeout(options_.readTimeoutSeconds, 0);
  server.set_write_timeout(options_.writeTimeoutSeconds, 0);
  server.set_keep_alive_timeout(options_.keepAliveTimeoutSeconds);
  server.set_payload_max_length(options_.maxRequestBodyBytes);

  server.Get("/metrics", [this](const httplib::Request& req, httplib::Response& res) {
    const Format format = negotiate(req.get_header_value("Accept"));
    res.set_content(metrics(format), contentType(format));
  });
  server.Get("/", [this](const httplib::Request&, httplib::Response& res) {
    res.set_content(indexPage(), "text/html; charset=utf-8");
  });
  // Every error gets a one-line plain-text body naming what was wrong.
  server.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
    if (!res.body.empty()) return;
    std::string what = res.status == 404 ? fmt::format(" ({}; try /metrics)", req.path) : "";
    res.set_content(fmt::format("{} {}{}\n", res.status, reasonPhrase(res.status), what),
                    "text/plain; charset=utf-8");
  });
  server.set_exception_handler(
      [](const httplib::Request&, httplib::Response& res, std::exception_ptr ep) {
        std::string what = "unknown error";
        try {
          if (ep) std::rethrow_exception(ep);
        } catch (const std::exception& e) {
          what = e.what();
        } catch (...) {
        }
        res.status = 500;
        res.set_content("500 internal error: " + what + "\n", "text/plain; charset=utf-8");
      });
}

}  // namespace Exporter
