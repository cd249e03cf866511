// vornctl: reads the counters a running agent publishes, from another process.
//
//   vornctl [-n ns] [--json] show interfaces counters [errors|rates|queues|acl-drops] [intf]
//   vornctl [-n ns] [--json] show interfaces names [intf]
//   vornctl [-n ns] [--json] show vlan counters [vlan]
//   vornctl [-n ns] [--json] show vlan-interface counters [intf]
//   vornctl [-n ns] [--json] show cpu counters | show copp counters
//   vornctl [-n ns] watch [--interval s] [--count n] show ...
//   vornctl [-n ns] clear counters <intf|all> | clear vlan <id> | update <type> <intf>
//   vornctl completion bash
#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <thread>

#include "readers/ControlClient.h"
#include "tools/vornctl/Completion.h"
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
  Ctl::View v = Ctl::render(ns, r.what, r.filter, json ? Ctl::Output::kJson : Ctl::Output::kText);
  return json ? v.json.dump(2) + "\n" : v.text();
}

std::string joined(const std::string& verb, const std::vector<std::string>& words) {
  std::string line = verb;
  for (const auto& w : words) line += " " + w;
  return line;
}

const char* kShowHelp = R"(Views:
  show interfaces counters [intf]            octets and packets per port since the last clear
  show interfaces counters errors [intf]     error counters per port
  show interfaces counters rates [intf]      moving-average rates and when they were updated
  show interfaces counters queues [intf]     egress queue counters
  show interfaces counters acl-drops [intf]  ACL drop counts
  show vlan counters [vlan]                  per-VLAN counters since the last clear
  show vlan-interface counters [intf]        routed VLAN interface counters
  show cpu counters | show copp counters     CPU port and policing class counters

Tables group digits (1,234,567) and show times as dates with ages; --json
prints the raw numbers (times in seconds since 1970).

Examples:
  vornctl show interfaces counters
  vornctl -n lab1 show interfaces counters rates Ethernet1
  vornctl --json show vlan counters 10
)";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"vornctl: show the counters a running agent publishes, ask it for clears"};
  app.footer(R"(Run vornctl <command> --help for the words each command takes.

Examples:
  vornctl show interfaces counters
  vornctl -n lab1 --json show vlan counters
  vornctl watch --interval 2 show interfaces counters rates
  vornctl clear counters Ethernet1
  source <(vornctl completion bash))");
  std::string ns = "vorn";
  std::string socketPath;
  bool json = false;
  double interval = 1.0;
  int count = 0;
  app.add_option("--namespace,-n", ns, "shared-memory namespace of the agent (default: vorn)");
  app.add_option("--socket,-s", socketPath, "agent command socket (default: /tmp/vorn-<ns>.sock)");
  app.add_flag("--json", json, "print JSON (raw numbers) instead of a table");
  // Kept before the command for scripts written when they were global options;
  // documented under watch.
  auto* compat = app.add_option_group("");
  compat->add_option("--interval", interval)->check(CLI::Range(0.1, 3600.0));
  compat->add_option("--count", count)->check(CLI::Range(0, 1000000));

  std::vector<std::string> showWords, watchWords, clearWords, updateWords, completionWords;
  auto* show = app.add_subcommand("show", "print one view of the published counters");
  show->add_option("view", showWords,
                   "interfaces counters [errors|rates|queues|acl-drops] "
                   "[intf] | vlan counters [vlan] | vlan-interface counters "
                   "[intf] | cpu counters | copp counters")
      ->required();
  show->footer(kShowHelp);

  auto* watch = app.add_subcommand("watch", "print a view again and again");
  watch->add_option("--interval", interval, "seconds between refreshes (default: 1)")
      ->check(CLI::Range(0.1, 3600.0));
  watch->add_option("--count", count, "number of refreshes (default 0: until interrupted)")
      ->check(CLI::Range(0, 1000000));
  watch->add_option("command", watchWords, "show ... (as for the show command)")->required();
  watch->footer(R"(On a terminal the view is redrawn in place; piped, each refresh is appended.

Examples:
  vornctl watch show interfaces counters rates
  vornctl watch --interval 2 --count 5 show vlan counters 10)");

  auto* clear = app.add_subcommand("clear", "ask the agent to clear counters");
  clear->add_option("what", clearWords, "counters <intf|all> | vlan <id>")->required();
  clear->footer(R"(Clearing keeps the totals: the agent copies them into a baseline and the
views show totals minus baseline. The agent replies with one line.

Examples:
  vornctl clear counters Ethernet1
  vornctl clear counters all
  vornctl clear vlan 10)");

  auto* update = app.add_subcommand("update", "ask the agent to poll one interface now");
  update->add_option("what", updateWords, "<counter type> <intf>")->required();
  update->footer(R"(Counter types: 0 egress queues, 1 Ethernet port, 2 CPU port, 3 VLAN
interface, 6 ACL drops.

Examples:
  vornctl update 1 Ethernet1
  vornctl update 0 Ethernet3)");

  auto* completion = app.add_subcommand("completion", "print a shell completion script");
  completion->add_option("shell", completionWords, "bash (the only shell supported)")->required();
  completion->footer(R"(The script is generated from this command's own definition.

Examples:
  source <(vornctl completion bash)
  vornctl completion bash > /etc/bash_completion.d/vornctl)");

  // Options given after the command (vornctl show --json ...) still reach the
  // global ones.
  for (auto* sub : {show, watch, clear, update, completion}) sub->fallthrough();
  app.require_subcommand(0, 1);
  app.allow_extras();
  CLI11_PARSE(app, argc, argv);
  if (socketPath.empty()) socketPath = Readers::defaultSocketPath(ns);

  try {
    if (show->parsed()) {
      fmt::print("{}", renderOnce(ns, parseShow(showWords), json));
      return 0;
    }
    if (watch->parsed()) {
      if (watchWords.empty() || watchWords[0] != "show") {
        throw Ctl::ViewError("usage: watch show ...");
      }
      ShowRequest r = parseShow(std::vector<std::string>(watchWords.begin() + 1, watchWords.end()));
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
    if (clear->parsed() || update->parsed()) {
      std::string line =
          clear->parsed() ? joined("clear", clearWords) : joined("update", updateWords);
      std::string reply = Readers::sendCommand(socketPath, line);
      if (reply.rfind("ok", 0) == 0) {
        fmt::print("{}\n", reply);
        return 0;
      }
      fmt::print(stderr, "vornctl: {}\n", reply);
      return 1;
    }
    if (completion->parsed()) {
      if (completionWords != std::vector<std::string>{"bash"}) {
        throw Ctl::ViewError("completion: only bash is supported");
      }
      fmt::print("{}", Ctl::bashCompletion(app));
      return 0;
    }
    auto extras = app.remaining();
    if (!extras.empty()) {
      throw Ctl::ViewError("unknown command '" + extras[0] +
                           "' (show, watch, clear, update, completion)");
    }
    fmt::print(stderr, "{}", app.help());
    return 1;
  } catch (const std::exception& e) {
    fmt::print(stderr, "vornctl: {}\n", e.what());
    return 1;
  }
}
