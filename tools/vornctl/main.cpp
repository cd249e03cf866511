// vornctl: reads the counters a running agent publishes, from another process.
//
//   vornctl [-n ns] [--json] show interfaces counters [errors|rates|queues|acl-drops] [intf]
//   vornctl [-n ns] [--json] show interfaces names [intf]
//   vornctl [-n ns] [--json] show vlan counters [vlan]
//   vornctl [-n ns] [--json] show vlan-interface counters [intf]
//   vornctl [-n ns] [--json] show cpu counters | show copp counters
//   vornctl [-n ns] watch [--interval s] [--count n] show ...
//   vornctl [-n ns] clear counters <intf|all> | clear vlan <id> | update <type> <intf>
#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <thread>

#include "readers/ControlClient.h"
#include "tools/vornctl/Views.h"

namespace {

struct ShowRequest {
  std::string what;
  std::string filter;
};

// Parses the words after "show"; raises Ctl::ViewError with a usage hint.
ShowRequest parseShow(const std::vector<std::string>& w) {
  auto usage = [] {
    return Ctl::ViewError(
        "usage: show interfaces counters [errors|rates|queues|acl-drops] [intf] | show interfaces "
        "names [intf] | show vlan counters [vlan] | show vlan-interface counters [intf] | show cpu "
        "counters | show copp counters");
  };
  ShowRequest r;
  if (w.size() >= 2 && w[0] == "interfaces" && w[1] == "names") {
    if (w.size() > 3) throw usage();
    r.what = "names";
    if (w.size() == 3) r.filter = w[2];
    return r;
  }
  if (w.size() < 2 || w[1] != "counters") throw usage();
  size_t next = 2;
  if (w[0] == "interfaces") {
    r.what = "interfaces";
    if (w.size() > 2 &&
        (w[2] == "errors" || w[2] == "rates" || w[2] == "queues" || w[2] == "acl-drops")) {
      r.what = w[2];
      next = 3;
    }
  } else if (w[0] == "vlan" || w[0] == "vlan-interface" || w[0] == "cpu" || w[0] == "copp") {
    r.what = w[0];
  } else {
    throw usage();
  }
  if (w.size() > next + 1) throw usage();
  if (w.size() == next + 1) {
    if (r.what == "cpu" || r.what == "copp") throw usage();
    r.filter = w[next];
  }
  return r;
}

std::string renderOnce(const std::string& ns, const ShowRequest& r, bool json) {
  Ctl::View v = Ctl::render(ns, r.what, r.filter);
  return json ? v.json.dump(2) + "\n" : v.text();
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vornctl: show the counters a running agent publishes"};
  std::string ns = "vorn";
  std::string socketPath;
  bool json = false;
  double interval = 1.0;
  int count = 0;
  std::vector<std::string> words;
  app.add_option("--namespace,-n", ns, "shared-memory namespace of the agent");
  app.add_option("--socket,-s", socketPath, "agent command socket (default: /tmp/vorn-<ns>.sock)");
  app.add_flag("--json", json, "print JSON instead of a table");
  app.add_option("--interval", interval, "watch: seconds between refreshes")
      ->check(CLI::Range(0.1, 3600.0));
  app.add_option("--count", count, "watch: number of refreshes (0: until interrupted)")
      ->check(CLI::Range(0, 1000000));
  app.add_option("command", words, "show ... | watch show ... | clear ... | update ...")
      ->required();
  CLI11_PARSE(app, argc, argv);
  if (socketPath.empty()) socketPath = Readers::defaultSocketPath(ns);

  try {
    const std::string verb = words[0];
    std::vector<std::string> rest(words.begin() + 1, words.end());
    if (verb == "show") {
      fmt::print("{}", renderOnce(ns, parseShow(rest), json));
      return 0;
    }
    if (verb == "watch") {
      if (rest.empty() || rest[0] != "show") throw Ctl::ViewError("usage: watch show ...");
      ShowRequest r = parseShow(std::vector<std::string>(rest.begin() + 1, rest.end()));
      bool tty = isatty(STDOUT_FILENO);
      for (int i = 0; count == 0 || i < count; ++i) {
        std::string body = renderOnce(ns, r, json);
        // Refresh in place on a terminal; append when piped.
        if (tty) fmt::print("\x1b[H\x1b[2J");
        fmt::print("vornctl watch ({}): every {}s\n{}", ns, interval, body);
        std::fflush(stdout);
        if (count != 0 && i + 1 == count) break;
        std::this_thread::sleep_for(std::chrono::duration<double>(interval));
      }
      return 0;
    }
    if (verb == "clear" || verb == "update") {
      std::string line;
      for (const auto& w : words) line += (line.empty() ? "" : " ") + w;
      std::string reply = Readers::sendCommand(socketPath, line);
      if (reply.rfind("ok", 0) == 0) {
        fmt::print("{}\n", reply);
        return 0;
      }
      fmt::print(stderr, "vornctl: {}\n", reply);
      return 1;
    }
    throw Ctl::ViewError("unknown command '" + verb + "' (show, watch, clear, update)");
  } catch (const std::exception& e) {
    fmt::print(stderr, "vornctl: {}\n", e.what());
    return 1;
  }
}
