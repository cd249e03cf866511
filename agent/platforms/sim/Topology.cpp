#include "agent/platforms/sim/Topology.h"

#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

namespace Sim {

Topology Topology::largeSwitch() {
  Topology t;
  t.ethPorts = 512;
  t.queuesPerPort = 8;
  t.vlans = 4094;
  t.vlanIntfs = 16;
  t.pollPeriod = 1.0;
  t.vlanPollInterval = 1.0;
  return t;
}

void Topology::validate() const {
  auto fail = [](const std::string& what) { throw TopologyError("topology: " + what); };
  if (ethPorts < 1 || ethPorts > 4000) fail("ethPorts must be 1..4000");
  if (queuesPerPort > 16) fail("queuesPerPort must be 0..16");
  if (fabricPorts > 64) fail("fabricPorts must be 0..64");
  if (vlanIntfs > 4094) fail("vlanIntfs must be 0..4094");
  if (vlans > 4094) fail("vlans must be 0..4094");
  if (!(portSpeedBps > 0)) fail("portSpeedBps must be positive");
  if (!(pollPeriod >= 0)) fail("pollPeriod must be >= 0");
  if (!(vlanPollInterval >= 0)) fail("vlanPollInterval must be >= 0");
  if (!(firstPollDelay >= 0)) fail("firstPollDelay must be >= 0");
  for (const auto& c : coppClasses) {
    if (c.empty() || c.size() > 47) fail("coppClasses names must be 1..47 characters");
  }
}

Topology Topology::fromJsonText(const std::string& text) {
  nlohmann::json j;
  try {
    j = nlohmann::json::parse(text);
  } catch (const nlohmann::json::exception& e) {
    throw TopologyError(std::string("topology: not valid JSON: ") + e.what());
  }
  if (!j.is_object()) throw TopologyError("topology: expected a JSON object");
  Topology t;
  for (auto it = j.begin(); it != j.end(); ++it) {
    const std::string& k = it.key();
    const auto& v = it.value();
    auto num = [&](auto& field) {
      if (!v.is_number()) throw TopologyError("topology: field '" + k + "' must be a number");
      using Field = std::decay_t<decltype(field)>;
      if constexpr (std::is_integral_v<Field>) {
        // JSON parses every non-negative integer as unsigned; anything else
        // (negative, fractional) is refused here, and a value that does not fit
        // the field is refused rather than silently truncated.
        if (!v.is_number_unsigned()) {
          throw TopologyError("topology: field '" + k + "' must be a non-negative integer");
        }
        if (v.get<uint64_t>() > std::numeric_limits<Field>::max()) {
          throw TopologyError("topology: field '" + k + "' is too large");
        }
      }
      field = v.get<Field>();
    };
    if (k == "ethPorts")
      num(t.ethPorts);
    else if (k == "queuesPerPort")
      num(t.queuesPerPort);
    else if (k == "fabricPorts")
      num(t.fabricPorts);
    else if (k == "vlanIntfs")
      num(t.vlanIntfs);
    else if (k == "vlans")
      num(t.vlans);
    else if (k == "portSpeedBps")
      num(t.portSpeedBps);
    else if (k == "pollPeriod")
      num(t.pollPeriod);
    else if (k == "vlanPollInterval")
      num(t.vlanPollInterval);
    else if (k == "firstPollDelay")
      num(t.firstPollDelay);
    else if (k == "seed")
      num(t.seed);
    else if (k == "coppClasses") {
      if (!v.is_array()) throw TopologyError("topology: field 'coppClasses' must be an array");
      t.coppClasses.clear();
      for (const auto& c : v) {
        if (!c.is_string()) throw TopologyError("topology: 'coppClasses' entries must be strings");
        t.coppClasses.push_back(c.get<std::string>());
      }
    } else {
      throw TopologyError("topology: unknown field '" + k + "'");
    }
  }
  t.validate();
  return t;
}

Topology Topology::fromFile(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw TopologyError("topology: cannot read file '" + path + "'");
  std::stringstream ss;
  ss << in.rdbuf();
  return fromJsonText(ss.str());
}

}  // namespace Sim
