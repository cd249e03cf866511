// vorn-snmp-subagent: serves the switch's interface counters over SNMP as an
// AgentX subagent of a master snmpd. It reads the agent's tables read-only,
// writes nothing, and keeps running while the master or the agent come and go.
// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on

#include <getopt.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/vorn-snmp-subagent/InterfaceSample.h"
#include "tools/vorn-snmp-subagent/MibServer.h"

namespace {

volatile sig_atomic_t gStop = 0;

void onSignal(int) { gStop = 1; }

constexpr const char* kUsage =
    "usage: vorn-snmp-subagent -n NAMESPACE [options]\n"
    "  -n, --namespace NS        the agent's table namespace (required)\n"
    "  -x, --agentx-socket ADDR  the master's AgentX address (default: the library's,\n"
    "                            /var/agentx/master); a path or unix:PATH or tcp:HOST:PORT\n"
    "      --max-age SECONDS     longest a sample of the tables answers requests (default 1)\n"
    "      --ping-interval SECS  how often the master is pinged and, when it is gone,\n"
    "                            reconnected (default 5)\n"
    "      --priority N          registration priority, lower wins (default 100)\n"
    "      --syslog              log to syslog instead of standard error\n"
    "      --debug               the library's AgentX debug output\n";

double monotonicNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

bool parseNumber(const char* text, double& out) {
  char* end = nullptr;
  out = std::strtod(text, &end);
  return end != text && *end == '\0';
}

Snmp::MibServer* gServer = nullptr;

// Refreshes the sample between walks so that a counter going back or an
// interface re-created is noticed even when nobody polls.
void onRefreshAlarm(unsigned int, void*) {
  if (gServer) gServer->refreshIfOld();
}

}  // namespace

int main(int argc, char** argv) {
  std::string ns, agentxSocket;
  double maxAge = 1.0, pingInterval = 5, priority = 100;
  bool useSyslog = false, debug = false;
  enum { kMaxAge = 1000, kPing, kPriority, kSyslog, kDebug };
  static const option kOptions[] = {{"namespace", required_argument, nullptr, 'n'},
                                    {"agentx-socket", required_argument, nullptr, 'x'},
                                    {"max-age", required_argument, nullptr, kMaxAge},
                                    {"ping-interval", required_argument, nullptr, kPing},
                                    {"priority", required_argument, nullptr, kPriority},
                                    {"syslog", no_argument, nullptr, kSyslog},
                                    {"debug", no_argument, nullptr, kDebug},
                                    {"help", no_argument, nullptr, 'h'},
                                    {nullptr, 0, nullptr, 0}};
  for (int c; (c = getopt_long(argc, argv, "n:x:h", kOptions, nullptr)) != -1;) {
    bool ok = true;
    switch (c) {
      case 'n':
        ns = optarg;
        break;
      case 'x':
        agentxSocket = optarg;
        break;
      case kMaxAge:
        ok = parseNumber(optarg, maxAge) && maxAge >= 0 && maxAge <= 3600;
        break;
      case kPing:
        ok = parseNumber(optarg, pingInterval) && pingInterval >= 1 && pingInterval <= 3600;
        break;
      case kPriority:
        ok = parseNumber(optarg, priority) && priority >= 1 && priority <= 255;
        break;
      case kSyslog:
        useSyslog = true;
        break;
      case kDebug:
        debug = true;
        break;
      case 'h':
        std::fputs(kUsage, stdout);
        return 0;
      default:
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (!ok) {
      std::fprintf(stderr, "vorn-snmp-subagent: bad value '%s' for --%s\n", optarg,
                   c == kMaxAge ? "max-age"
                   : c == kPing ? "ping-interval"
                                : "priority");
      return 2;
    }
  }
  if (ns.empty() || optind != argc) {
    std::fputs(kUsage, stderr);
    return 2;
  }

  if (useSyslog) {
    snmp_enable_calllog();
    snmp_enable_syslog_ident("vorn-snmp-subagent", LOG_DAEMON);
  } else {
    snmp_enable_stderrlog();
  }
  if (debug) {
    debug_register_tokens("agentx");
    snmp_set_do_debugging(1);
  }

  // A subagent that reads no configuration files and keeps no state on disk:
  // everything it needs is on its command line.
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  if (!agentxSocket.empty()) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET,
                          agentxSocket.c_str());
  }

  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGTERM, &sa, nullptr);
  sigaction(SIGINT, &sa, nullptr);
  signal(SIGPIPE, SIG_IGN);

  init_agent("vorn-snmp-subagent");
  // With a ping interval the library retries a master that is absent at start
  // and reconnects to one that restarted. Set after init_agent, which installs
  // the library's own default.
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                     static_cast<int>(pingInterval));

  Snmp::Sampler sampler(
      ns, [](const std::string& line) { snmp_log(LOG_WARNING, "%s\n", line.c_str()); });
  Snmp::MibClocks clocks{[] { return static_cast<uint32_t>(netsnmp_get_agent_uptime()); }, wallNow,
                         monotonicNow};
  Snmp::MibServer server(sampler, Snmp::MibOptions{maxAge, static_cast<int>(priority)}, clocks);
  gServer = &server;
  if (!server.registerAll()) {
    snmp_shutdown("vorn-snmp-subagent");
    return 1;
  }
  init_snmp("vorn-snmp-subagent");
  server.refreshIfOld();

  timeval period{};
  double refresh = maxAge > 0 ? maxAge : 1.0;
  period.tv_sec = static_cast<time_t>(refresh);
  period.tv_usec = static_cast<suseconds_t>((refresh - static_cast<double>(period.tv_sec)) * 1e6);
  snmp_alarm_register_hr(period, SA_REPEAT, onRefreshAlarm, nullptr);

  snmp_log(LOG_INFO, "vorn-snmp-subagent serving namespace %s (%zu interfaces)\n", ns.c_str(),
           sampler.current().rows.size());
  while (!gStop) agent_check_and_process(1);

  snmp_log(LOG_INFO, "vorn-snmp-subagent stopping\n");
  gServer = nullptr;
  snmp_shutdown("vorn-snmp-subagent");
  return 0;
}
