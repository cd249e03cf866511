#include "agent/platforms/sim/SimPlatform.h"

#include <algorithm>
#include <optional>

#include "agent/CommandWords.h"
#include "zat/Activity.h"

namespace Sim {

SimPlatform::SimPlatform(const Topology& topology) : topology_(topology), chip_(topology) {}

uint32_t SimPlatform::intfCapacity() const {
  // Every interface the tables can hold comes from the chip; a table holds at
  // least twice as many slots, all formatted (and so resident) at creation, so
  // the tables are sized to the chip with room to spare, not to a fixed maximum.
  // A table that already exists keeps the capacity it was created with.
  return topology_.ethPorts + topology_.fabricPorts + topology_.vlanIntfs + 64;
}

void SimPlatform::populate(Agent::AgentState& state) {
  state_ = &state;
  // The chip has been counting since it was powered on, possibly under an
  // earlier agent of this namespace that has since stopped or been killed.
  chipState_ = Brim::TableWriter<SimChipState>::open(state.ns, kSimChipStateTable, 4);
  double now = Zat::System::currentTime();
  std::optional<SimChipState> kept = chipState_->find(SimChipState::kKey);
  if (!kept || !(kept->powerOnTime <= now)) {
    kept = SimChipState();
    kept->powerOnTime = now;
    chipState_->put(*kept);
  }
  chip_.advanceTo(kept->powerOnTime);

  names_ = std::make_unique<Agent::IntfNames>(state.ns, intfCapacity());
  for (Orvo::IntfId id : chip_.ethPorts()) {
    state.ethIntfAdd(id);
    namePresentIs(id);
  }
  for (Orvo::IntfId id : chip_.fabricPorts()) {
    state.ethIntfAdd(id);
    namePresentIs(id);
  }
  for (Orvo::IntfId id : chip_.vlanIntfs()) state.vlanIntfAdd(id);
  state.vcsd->cpuIntfIs(chip_.cpuPort(), true);
  for (uint32_t v = 1; v <= topology_.vlans; ++v) {
    state.bridgingConfig->vlanConfigIs(static_cast<Bridging::VlanId>(v));
  }
  // The control-plane policy with its classes, in the static slice status.
  auto coppType = state.sliceStatus->pmapTypeIs(Qos::MapType::mapControlPlane);
  auto pmap =
      coppType->pmapIs(Qos::PolicyMapHwStatusKey{Qos::Direction::input, Agent::kCoppPolicyName});
  for (const auto& c : topology_.coppClasses) pmap->classIs(c, true);
  state.sliceDir->entityIs("slice0", state.sliceStatus);
}

Zat::Ptr<VornHelper::VornHelperCountersSm> SimPlatform::countersHelper() {
  if (!helper_) {
    helper_ = SimCountersHelper::SimCountersHelperIs(&chip_, state_->ns);
    chip_.advanceTo(Zat::System::currentTime());
  }
  return helper_;
}

Zat::Ptr<VornHelper::VornVlanCountersHelper> SimPlatform::vlanHelper() {
  if (!vlanHelper_) vlanHelper_ = SimVlanCountersHelper::SimVlanCountersHelperIs(&chip_);
  return vlanHelper_;
}

void SimPlatform::namePresentIs(Orvo::IntfId id) {
  names_->presentIs(id, id.stringValue(), 0, chip_.portUp(id),
                    static_cast<uint64_t>(topology_.portSpeedBps), Zat::System::currentTime());
}

void SimPlatform::stopped() {
  helper_ = nullptr;
  vlanHelper_ = nullptr;
}

uint64_t SimPlatform::polls() const {
  return (helper_ ? helper_->polls() : 0) + (vlanHelper_ ? vlanHelper_->polls() : 0);
}

std::optional<std::string> SimPlatform::command(const std::vector<std::string>& words) {
  if (words[0] == "intf") return intfCommand(words);
  if (words[0] == "chip") return chipCommand(words);
  return std::nullopt;
}

std::string SimPlatform::intfCommand(const std::vector<std::string>& words) {
  if (words.size() != 3) return "error: usage: intf <name> up|down|remove|add";
  Orvo::IntfId id = Agent::parseIntfName(words[1]);
  if (!Orvo::EthIntfId::isEthIntfId(id) && !Orvo::FabricIntfId::isFabricIntfId(id)) {
    return "error: only Ethernet and fabric interfaces can be changed";
  }
  if (!chip_.hasPort(id)) return "error: no interface " + words[1];
  const std::string& what = words[2];
  if (what == "down") {
    chip_.advanceTo(Zat::System::currentTime());
    chip_.portUpIs(id, false);
    state_->ethIntfServedIs(id, false);
    names_->operUpIs(id, false, Zat::System::currentTime());
  } else if (what == "up") {
    chip_.advanceTo(Zat::System::currentTime());
    chip_.portUpIs(id, true);
    state_->ethIntfAdd(id);
    namePresentIs(id);
  } else if (what == "remove") {
    state_->ethIntfRemove(id);
    names_->goneIs(id, Zat::System::currentTime());
  } else if (what == "add") {
    state_->ethIntfAdd(id);
    namePresentIs(id);
  } else {
    return "error: usage: intf <name> up|down|remove|add";
  }
  return "ok " + words[1] + " " + what;
}

std::string SimPlatform::chipCommand(const std::vector<std::string>& words) {
  if (words.size() == 3 && (words[1] == "reset" || words[1] == "wrap")) {
    Orvo::IntfId id = Agent::parseIntfName(words[2]);
    if (!chip_.hasPort(id)) return "error: no interface " + words[2];
    chip_.advanceTo(Zat::System::currentTime());
    if (words[1] == "reset") {
      chip_.portCountersReset(id);
    } else {
      chip_.portCountersWrapSoon(id);
    }
    return "ok " + words[1] + " " + words[2];
  }
  if (words.size() == 3 && words[1] == "clear-on-read" && (words[2] == "on" || words[2] == "off")) {
    if (!helper_) return "error: agent not started";
    helper_->queueCountersClearOnReadIs(words[2] == "on");
    return "ok clear-on-read " + words[2];
  }
  return "error: usage: chip reset|wrap <intf> | chip clear-on-read on|off";
}

}  // namespace Sim
