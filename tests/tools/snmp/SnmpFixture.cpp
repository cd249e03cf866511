#include "SnmpFixture.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "readers/PublishedTables.h"

#ifndef VORN_SNMP_SUBAGENT_BINARY
#error "the SNMP tests need VORN_SNMP_SUBAGENT_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace SnmpIt {

namespace {

constexpr const char* kSnmpd = "/usr/sbin/snmpd";
constexpr const char* kCommunity = "vorntest";

int freeUdpPort() {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  int port = 0;
  if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
    port = ntohs(addr.sin_port);
  }
  if (fd >= 0) ::close(fd);
  return port;
}

}  // namespace

// Starts `binary` with `args`, its output appended to `logPath`, with the
// SNMP library told to load no MIB files and keep its state in `stateDir`
// (apart from the configuration: snmpd saves its state as "snmpd.conf").
pid_t spawn(const std::string& binary, const std::vector<std::string>& args,
            const std::string& logPath, const std::string& stateDir) {
  return SimIt::spawnLogged(
      binary, args, logPath,
      {{"MIBS", ""}, {"MIBDIRS", stateDir}, {"SNMP_PERSISTENT_DIR", stateDir}});
}

namespace {

bool running(pid_t& pid) {
  if (pid <= 0) return false;
  int status = 0;
  if (::waitpid(pid, &status, WNOHANG) == pid) {
    pid = -1;
    return false;
  }
  return true;
}

// SIGTERM, up to `seconds` for the exit, then SIGKILL. The wait status when
// the process exited by itself in time.
std::optional<int> stop(pid_t& pid, double seconds) {
  if (pid <= 0) return std::nullopt;
  ::kill(pid, SIGTERM);
  std::optional<int> result;
  bool gone = SimIt::waitUntil(
      [&] {
        int status = 0;
        pid_t r = ::waitpid(pid, &status, WNOHANG);
        if (r == pid) result = status;
        return r != 0;
      },
      seconds);
  if (!gone) {
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
  }
  pid = -1;
  return result;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace

std::optional<uint64_t> numberOf(const Varbinds& vbs, const std::string& oid) {
  for (const auto& [o, v] : vbs) {
    if (o != oid) continue;
    if (v.empty() || v.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    return std::stoull(v);
  }
  return std::nullopt;
}

std::string cell(const char* entry, int column, uint64_t ifIndex) {
  return std::string(entry) + "." + std::to_string(column) + "." + std::to_string(ifIndex);
}

std::vector<uint64_t> parseOid(const std::string& oid) {
  std::vector<uint64_t> out;
  std::stringstream ss(oid);
  std::string part;
  while (std::getline(ss, part, '.')) {
    if (!part.empty()) out.push_back(std::stoull(part));
  }
  return out;
}

void SnmpTest::SetUp() {
  AgentTest::SetUp();
  for (const char* tool : {kSnmpd, "/usr/bin/snmpget", "/usr/bin/snmpbulkwalk"}) {
    if (::access(tool, X_OK) != 0) GTEST_SKIP() << tool << " is not installed (Debian snmpd, snmp)";
  }
  // Faster ports than the shared small switch, so that octet totals pass
  // 2^32 within seconds; everything else as the agent fixture has it.
  Sim::Topology t = topology();
  t.portSpeedBps = 1e12;
  SimIt::writeTopologyFile(topologyPath, t);
  expect = std::make_unique<Sim::SimChip>(t);
  dir = "/tmp/vorn-snmp-" + ns;
  std::filesystem::create_directories(dir + "/state");
  confPath = dir + "/snmpd.conf";
  agentxPath = dir + "/agentx.sock";
  snmpdLogPath = dir + "/snmpd.log";
  subagentLogPath = dir + "/subagent.log";
  udpPort = freeUdpPort();
  ASSERT_GT(udpPort, 0) << "no free UDP port on the loopback";
  std::ofstream(confPath) << "agentaddress udp:127.0.0.1:" << udpPort << "\n"
                          << "master agentx\n"
                          << "agentXSocket " << agentxPath << "\n"
                          << "agentXPerms 0600 0700\n"
                          << "rocommunity " << kCommunity << " 127.0.0.1\n"
                          << "dontLogTCPWrappersConnects yes\n";
}

void SnmpTest::TearDown() {
  // The subagent stops cleanly on SIGTERM (a sanitizer's exit report would
  // show here as a non-zero status).
  bool wasRunning = subagentRunning();
  std::optional<int> status = stop(subagentPid, 5);
  if (wasRunning) {
    EXPECT_TRUE(status && WIFEXITED(*status) && WEXITSTATUS(*status) == 0)
        << "the subagent did not exit cleanly on SIGTERM";
  }
  stop(snmpdPid, 3);
  if (HasFailure()) {
    std::cerr << "--- subagent log ---\n"
              << fileText(subagentLogPath) << "--- snmpd log ---\n"
              << fileText(snmpdLogPath) << "--- end ---\n";
  }
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  AgentTest::TearDown();
}

void SnmpTest::startSnmpd() {
  ASSERT_LT(snmpdPid, 0) << "snmpd is already running";
  // Only the AgentX master and the access control the community needs: no
  // host MIB modules, so every object served comes from the subagent.
  snmpdPid = spawn(kSnmpd, {"-f", "-Lo", "-C", "-c", confPath, "-I", "agentx,vacm_conf"},
                   snmpdLogPath, dir + "/state");
  ASSERT_GT(snmpdPid, 0) << "cannot start " << kSnmpd;
  bool ready = SimIt::waitUntil(
      [&] {
        struct stat st {};
        return !running(snmpdPid) || ::stat(agentxPath.c_str(), &st) == 0;
      },
      10);
  ASSERT_TRUE(running(snmpdPid)) << "snmpd exited at start-up:\n" << fileText(snmpdLogPath);
  ASSERT_TRUE(ready) << "snmpd made no AgentX socket within 10 s";
}

void SnmpTest::stopSnmpd() { stop(snmpdPid, 5); }

void SnmpTest::startSubagent(const std::vector<std::string>& extraArgs) {
  ASSERT_LT(subagentPid, 0) << "the subagent is already running";
  std::vector<std::string> args = {
      "-n", ns, "-x", agentxPath, "--max-age", std::to_string(kMaxAge), "--ping-interval", "1"};
  args.insert(args.end(), extraArgs.begin(), extraArgs.end());
  subagentPid = spawn(VORN_SNMP_SUBAGENT_BINARY, args, subagentLogPath, dir + "/state");
  ASSERT_GT(subagentPid, 0) << "cannot start the subagent";
}

void SnmpTest::stopSubagent() { stop(subagentPid, 5); }

bool SnmpTest::subagentRunning() { return running(subagentPid); }

void SnmpTest::startAll() {
  ASSERT_NO_FATAL_FAILURE(startAgent());
  ASSERT_TRUE(waitForPortPolls()) << "the agent published no polls";
  ASSERT_NO_FATAL_FAILURE(startSnmpd());
  ASSERT_NO_FATAL_FAILURE(startSubagent());
  size_t served = servedInTables();
  ASSERT_TRUE(waitForIfNumber(served)) << "the subagent never served " << served << " interfaces";
}

Varbinds SnmpTest::snmp(const std::string& tool, const std::vector<std::string>& args) {
  std::vector<std::string> all = {"-m",  "",    "-v2c", "-c", kCommunity, "-On", "-OQ",
                                  "-Ot", "-Oe", "-t",   "1",  "-r",       "1"};
  all.insert(all.end(), args.begin(), args.end());
  all.push_back("127.0.0.1:" + std::to_string(udpPort));
  // The agent address goes before the OIDs.
  std::rotate(all.end() - 1 - static_cast<long>(args.size()), all.end() - 1, all.end());
  if (tool == "snmpbulkwalk") all.insert(all.begin(), "-Cc");
  SimIt::ProcessResult r = SimIt::runProcess("/usr/bin/" + tool, all, 20);
  Varbinds out;
  std::stringstream ss(r.out);
  std::string line;
  while (std::getline(ss, line)) {
    if (line.empty() || line[0] != '.') continue;
    auto eq = line.find(" = ");
    if (eq == std::string::npos) continue;
    std::string value = line.substr(eq + 3);
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
      value = value.substr(1, value.size() - 2);
    }
    out.emplace_back(line.substr(1, eq - 1), value);
  }
  return out;
}

Varbinds SnmpTest::bulkwalk(const std::string& oid) {
  Varbinds vbs = snmp("snmpbulkwalk", {oid});
  std::erase_if(vbs, [](const auto& vb) { return vb.second.find("No more variables") == 0; });
  return vbs;
}

std::optional<uint64_t> SnmpTest::ifNumber() { return numberOf(get({kIfNumber}), kIfNumber); }

bool SnmpTest::waitForIfNumber(uint64_t count, double seconds) {
  return SimIt::waitUntil([&] { return ifNumber() == count; }, seconds);
}

size_t SnmpTest::servedInTables() {
  // Fabric ports share the Ethernet table but are internal links: not served.
  size_t ethernet = 0;
  for (const auto& [id, row] :
       SimIt::rowsOf<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters)) {
    ethernet += Orvo::EthIntfId::isEthIntfId(id);
  }
  return ethernet +
         SimIt::rowsOf<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters)
             .size() +
         SimIt::rowsOf<Published::CpuPortCounter>(ns, Published::kCpuIntfCountersTable).size();
}

std::string SnmpTest::subagentLogText() { return fileText(subagentLogPath); }

}  // namespace SnmpIt
