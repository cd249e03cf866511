// The IF-MIB and EtherLike-MIB objects the subagent serves, registered with
// the agent library as read-only handlers over the Sampler's rows:
//
//   ifNumber          1.3.6.1.2.1.2.1.0
//   ifTable           1.3.6.1.2.1.2.2
//   ifXTable          1.3.6.1.2.1.31.1.1
//   dot3StatsTable    1.3.6.1.2.1.10.7.2   (Ethernet ports only)
//   dot3HCStatsTable  1.3.6.1.2.1.10.7.11  (Ethernet ports only)
//
// Each handler answers GET and GETNEXT itself from a sorted sample (the
// library turns GETBULK into GETNEXT repetitions), so a walk costs a binary
// search per variable and never a table read: the tables are read at most
// once per `maxAge` seconds, on the first request after the sample got old,
// and by a background refresh on the same period so that discontinuities are
// noticed between walks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "tools/vorn-snmp-subagent/InterfaceSample.h"

namespace Snmp {

struct MibOptions {
  double maxAge = 1.0;  // seconds a sample answers requests
  int priority = 100;   // lower than the default 127, so these rows win over a host's own
};

// The clocks the server needs; the program passes the real ones.
struct MibClocks {
  std::function<uint32_t()> uptime;   // hundredths of a second since the agent started
  std::function<double()> wallNow;    // seconds since 1970
  std::function<double()> monotonic;  // seconds, for the sample's age
};

struct MibTable;

class MibServer {
 public:
  MibServer(Sampler& sampler, MibOptions options, MibClocks clocks);
  ~MibServer();
  MibServer(const MibServer&) = delete;
  MibServer& operator=(const MibServer&) = delete;

  // Registers every object above; false when the library refused one (logged).
  bool registerAll();
  // The current sample, read afresh when it is older than maxAge.
  const Sample& sample();
  // Reads the tables now unless the sample is younger than maxAge.
  void refreshIfOld();

 private:
  Sampler& sampler_;
  MibOptions options_;
  MibClocks clocks_;
  double sampledAt_ = 0;
  bool sampled_ = false;
  std::vector<std::unique_ptr<MibTable>> tables_;
};

}  // namespace Snmp
