// Integration fixture for the SNMP subagent: the simulated switch (through
// the agent fixture), a real snmpd as AgentX master on a loopback UDP port
// with a generated configuration and a private AgentX socket, and the
// subagent, all as real processes. Requests go through the snmp command-line
// tools with numeric OIDs.
//
// Every process is started by this fixture and killed by its pid in
// TearDown; every wait is bounded; files live in a directory of the test's own.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/integration/AgentFixture.h"

namespace SnmpIt {

inline constexpr const char* kIfNumber = "1.3.6.1.2.1.2.1.0";
inline constexpr const char* kIfTable = "1.3.6.1.2.1.2.2";
inline constexpr const char* kIfEntry = "1.3.6.1.2.1.2.2.1";
inline constexpr const char* kIfXTable = "1.3.6.1.2.1.31.1.1";
inline constexpr const char* kIfXEntry = "1.3.6.1.2.1.31.1.1.1";
inline constexpr const char* kDot3Table = "1.3.6.1.2.1.10.7.2";
inline constexpr const char* kDot3HcTable = "1.3.6.1.2.1.10.7.11";

// How long a sample of the tables answers requests in these tests: the
// agent's poll period, so a value is at most two polls old.
inline constexpr double kMaxAge = SimIt::kPollPeriod;

// (OID without the leading dot, value text) in the order the tool printed them.
using Varbinds = std::vector<std::pair<std::string, std::string>>;

// The value of `oid` as an unsigned number, or nullopt when absent or not a number.
std::optional<uint64_t> numberOf(const Varbinds& vbs, const std::string& oid);
// Starts `binary` with `args` in the background, its output appended to
// `logPath`, the SNMP library loading no MIB files and keeping its state in
// `stateDir`. The pid, or -1.
pid_t spawn(const std::string& binary, const std::vector<std::string>& args,
            const std::string& logPath, const std::string& stateDir);

// "<entry>.<column>.<ifIndex>".
std::string cell(const char* entry, int column, uint64_t ifIndex);
// The numeric sub-identifiers of an OID text.
std::vector<uint64_t> parseOid(const std::string& oid);

class SnmpTest : public SimIt::AgentTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The agent, the master and the subagent, in that order; waits until the
  // subagent serves the agent's interfaces.
  void startAll();
  void startSnmpd();
  // SIGTERM, bounded wait, then SIGKILL.
  void stopSnmpd();
  void startSubagent(const std::vector<std::string>& extraArgs = {});
  void stopSubagent();
  bool subagentRunning();

  Varbinds snmp(const std::string& tool, const std::vector<std::string>& args);
  Varbinds get(const std::vector<std::string>& oids) { return snmp("snmpget", oids); }
  Varbinds getnext(const std::vector<std::string>& oids) { return snmp("snmpgetnext", oids); }
  // The walk's variables, without the end-of-view marker a walk of the last
  // subtree ends with.
  Varbinds bulkwalk(const std::string& oid);
  // ifNumber, or nullopt when the request found no subagent answer.
  std::optional<uint64_t> ifNumber();
  // Waits (at most `seconds`) until ifNumber reads `count`.
  bool waitForIfNumber(uint64_t count, double seconds = 10);
  // Interfaces the tables hold now that the subagent serves: Ethernet (not
  // fabric), VLAN and CPU rows.
  size_t servedInTables();
  std::string subagentLogText();

  std::string dir, confPath, agentxPath, snmpdLogPath, subagentLogPath;
  int udpPort = 0;
  pid_t snmpdPid = -1, subagentPid = -1;
};

}  // namespace SnmpIt
