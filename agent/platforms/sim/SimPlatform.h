// The simulated platform: a seeded simulated chip shaped by a Topology, its two
// platform helpers, and its commands ("intf <name> up|down|remove|add", "chip
// reset|wrap <intf>", "chip clear-on-read on|off").
#pragma once

#include <memory>

#include "agent/IntfNames.h"
#include "agent/Platform.h"
#include "agent/platforms/sim/SimChip.h"
#include "agent/platforms/sim/SimChipState.h"
#include "agent/platforms/sim/SimHelpers.h"
#include "agent/platforms/sim/Topology.h"
#include "brim/Brim.h"

namespace Sim {

class SimPlatform : public Agent::Platform {
 public:
  explicit SimPlatform(const Topology& topology);

  std::string name() const override { return "sim"; }
  uint32_t intfCapacity() const override;
  void populate(Agent::AgentState& state) override;
  Zat::Ptr<VornHelper::VornHelperCountersSm> countersHelper() override;
  Zat::Ptr<VornHelper::VornVlanCountersHelper> vlanHelper() override;
  void stopped() override;
  std::optional<std::string> command(const std::vector<std::string>& words) override;
  std::string intfCommandUsage() const override { return "intf <name> up|down|remove|add"; }
  std::string otherCommandUsage() const override {
    return "chip reset|wrap <intf>, chip clear-on-read on|off";
  }
  bool hasEthIntf(Orvo::IntfId id) const override { return chip_.hasPort(id); }
  uint64_t polls() const override;
  size_t enabledVlans() const override { return vlanHelper_ ? vlanHelper_->enabledVlans() : 0; }

  const Topology& topology() const { return topology_; }
  SimChip& chip() { return chip_; }

 private:
  std::string intfCommand(const std::vector<std::string>& words);
  std::string chipCommand(const std::vector<std::string>& words);
  void namePresentIs(Orvo::IntfId id);

  Topology topology_;
  SimChip chip_;
  Agent::AgentState* state_ = nullptr;
  // The chip's power-on time, kept beside the tables so that it outlives the agent.
  std::unique_ptr<Brim::TableWriter<SimChipState>> chipState_;
  // Every port under its own name, for readers that show names, status and speed.
  std::unique_ptr<Agent::IntfNames> names_;
  Zat::Ptr<SimCountersHelper> helper_;
  Zat::Ptr<SimVlanCountersHelper> vlanHelper_;
};

}  // namespace Sim
