// The simulated switch's shape: ports, queues, VLANs, policing classes, traffic.
//
// The agent program builds its state objects from a Topology: the embedded
// default (48 Ethernet ports with 8 queues, a CPU port, 4 VLAN interfaces, 32
// VLANs, a policing policy with a few classes), a large one for scale runs, or
// a small JSON topology file.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace Sim {

class TopologyError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Topology {
  uint32_t ethPorts = 48;
  uint32_t queuesPerPort = 8;  // at most 16
  uint32_t fabricPorts = 2;
  uint32_t vlanIntfs = 4;  // Vlan1 .. VlanN as routed interfaces
  uint32_t vlans = 32;     // bridging VLANs 1 .. N
  std::vector<std::string> coppClasses = {"copp-system-bgp", "copp-system-arp", "copp-system-lldp",
                                          "copp-system-default"};
  double portSpeedBps = 10e9;
  double pollPeriod = 1.0;  // seconds; the root's counterPollPeriod
  double vlanPollInterval = 2.0;
  double firstPollDelay = 1.0;  // the helper's minimum first-poll delay
  uint64_t seed = 1;

  static Topology defaultSwitch() { return Topology(); }
  // 512 ports x 8 queues, 4094 VLANs, 1 s poll.
  static Topology largeSwitch();
  // Parses a JSON object with any of the fields above, spelled as above
  // (e.g. {"ethPorts": 4}); unknown fields or bad values raise TopologyError
  // naming the field.
  static Topology fromJsonText(const std::string& text);
  static Topology fromFile(const std::string& path);
  // Requires nothing; raises TopologyError when a value is out of range.
  void validate() const;
};

}  // namespace Sim
