// The Linux platform: serves the network devices of the kernel (of the
// network namespace the agent runs in) through rtnetlink.
//
// Interfaces come from a link dump at start and from link notifications after
// that. An Ethernet-like device (any device of hardware type Ethernet that is
// not an 802.1Q device) becomes `Ethernet<N>`, its number kept for its name in
// the "intfNames" table across agent restarts; an 802.1Q device `<dev>.<vid>`
// becomes `Vlan<vid>`. A device that goes is withdrawn; link up and down
// change its status. Devices of other types, and names the scheme cannot
// place, are skipped with one line on stderr each.
//
// A lost notification burst (ENOBUFS on the notification socket) is repaired
// with a fresh dump compared against what is served. The CPU port, ACL drops,
// policing classes and per-VLAN bridging counters are not supported here; the
// status text says so.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>

#include "agent/IntfNames.h"
#include "agent/Platform.h"
#include "agent/platforms/linux/KernelStats.h"
#include "agent/platforms/linux/LinuxHelpers.h"
#include "agent/platforms/linux/Netlink.h"

namespace Linux {

struct LinuxOptions {
  // Comma-separated shell patterns of kernel names to serve; "" serves every
  // supported device (the loopback device never is: it is not Ethernet-like).
  std::string intfFilter;
  // Receive buffer of the notification socket in bytes; 0 keeps the default.
  int netlinkRcvbuf = 0;
  // The agent's poll period (seconds): polls less than a quarter of it apart
  // (at most 0.25 s) share one statistics dump. Set by the program, not an option.
  double pollPeriod = 0.2;
};

void addOptions(CLI::Option_group& group, LinuxOptions& options);
std::unique_ptr<Agent::Platform> makePlatform(const LinuxOptions& options);

// Whether kernel name `name` passes the filter `patterns` (see LinuxOptions).
bool nameSelected(const std::string& patterns, const std::string& name);

class LinuxPlatform : public Agent::Platform {
 public:
  explicit LinuxPlatform(const LinuxOptions& options);
  ~LinuxPlatform() override;

  std::string name() const override { return "linux"; }
  uint32_t intfCapacity() const override { return 4096; }
  void populate(Agent::AgentState& state) override;
  Zat::Ptr<VornHelper::VornHelperCountersSm> countersHelper() override;
  Zat::Ptr<VornHelper::VornVlanCountersHelper> vlanHelper() override;
  void started() override;
  void stopped() override;
  std::optional<std::string> command(const std::vector<std::string>& words) override;
  std::string otherCommandUsage() const override { return "linux resync"; }
  bool hasEthIntf(Orvo::IntfId id) const override;
  uint64_t polls() const override { return helper_ ? helper_->polls() : 0; }
  size_t enabledVlans() const override { return 0; }
  std::string statusText() const override;

  // Applies one link message (a notification or a dump entry).
  void linkIs(const LinkInfo& link);
  // Compares a fresh link dump with what is served: adds, changes, withdraws.
  void resync();

 private:
  struct Served {
    Orvo::IntfId id;
    std::string name;
    bool vlan = false;
    bool operUp = false;
  };
  void withdraw(int ifIndex);
  void onNotification();
  void note(const std::string& text);
  void skip(const LinkInfo& link, const std::string& why);
  int ifIndexOf(Orvo::IntfId id) const;

  LinuxOptions options_;
  Agent::AgentState* state_ = nullptr;
  std::unique_ptr<Agent::IntfNames> names_;
  std::unique_ptr<RtnlSocket> notify_;
  std::unique_ptr<KernelStats> stats_;
  Zat::Ptr<LinuxCountersHelper> helper_;
  Zat::Ptr<LinuxVlanCountersHelper> vlanHelper_;
  bool watching_ = false;

  std::map<int, Served> served_;                     // by ifindex
  std::unordered_map<Orvo::IntfId, int> ifIndexOf_;  // served ids
  std::map<int, std::string> skipped_;               // ifindex -> name, reported once
  uint64_t resyncs_ = 0;
  uint64_t notifications_ = 0;
  uint64_t badMessages_ = 0;
};

}  // namespace Linux
