// What a platform gives the agent host: the interfaces and their events, the
// two platform helpers the counters roots poll through, and its own control
// commands. The host owns the state objects, the tables, both roots, the loop,
// the control socket and the status line; a platform never reaches into them
// beyond the AgentState it is handed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/AgentState.h"
#include "vornhelper/VornHelper.h"

namespace Agent {

class Platform {
 public:
  virtual ~Platform() = default;
  virtual std::string name() const = 0;
  // Most interfaces the counter tables must hold.
  virtual uint32_t intfCapacity() const = 0;

  // Fills the freshly built state: interfaces, VLANs, policing policies.
  virtual void populate(AgentState& state) = 0;
  // The helpers handed to the two roots; created on the first call.
  virtual Zat::Ptr<VornHelper::VornHelperCountersSm> countersHelper() = 0;
  virtual Zat::Ptr<VornHelper::VornVlanCountersHelper> vlanHelper() = 0;
  // Both roots exist and are initialized (a platform may start watching for
  // interface events now).
  virtual void started() {}
  // The roots are gone: stop watching and drop the helpers.
  virtual void stopped() = 0;

  // One control command of this platform, already split into words; nullopt
  // when the verb is not this platform's.
  virtual std::optional<std::string> command(const std::vector<std::string>& words) {
    (void)words;
    return std::nullopt;
  }
  // This platform's commands for the usage hint: those that change interfaces
  // and the others, each "" or a comma-separated list.
  virtual std::string intfCommandUsage() const { return ""; }
  virtual std::string otherCommandUsage() const { return ""; }
  // Whether `id` is an Ethernet interface this platform serves (clears name one).
  virtual bool hasEthIntf(Orvo::IntfId id) const = 0;

  // Helper polls so far (every family) and VLANs enabled, for the status line.
  virtual uint64_t polls() const = 0;
  virtual size_t enabledVlans() const = 0;
  // Extra status text, e.g. the families this platform does not support; "" for none.
  virtual std::string statusText() const { return ""; }
};

}  // namespace Agent
