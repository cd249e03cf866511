// A simulated forwarding chip with deterministic, seeded traffic.
//
// Every counter is a pure function of the time a port has been carrying
// traffic: value = floor(rate x activeSeconds) + offset (mod 2^64). That keeps
// readings exact and repeatable, lets tests predict totals from the rates, and
// makes the awkward cases one-liners: a reset moves the offset so the value
// drops to zero, a wrap moves it to just below 2^64.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "agent/platforms/sim/Topology.h"
#include "interface/EthStatistics.h"
#include "interface/IntfQueueCounter.h"
#include "interface/IntfStatistics.h"
#include "orvo/IntfId.h"

namespace Sim {

// One counter driven by a rate (units per second of active time).
struct RateCounter {
  double rate = 0.0;
  uint64_t offset = 0;
  uint64_t value(double activeSeconds) const {
    return static_cast<uint64_t>(rate * activeSeconds) + offset;
  }
};

struct PortTraffic {
  double inPps = 0, outPps = 0;  // packets per second
  double avgPacketBytes = 0;
};

class SimChip {
 public:
  explicit SimChip(const Topology& topology);

  const Topology& topology() const { return topology_; }
  // Moves the chip's time to `t` (seconds); ports that are up accumulate traffic.
  void advanceTo(double t);
  double now() const { return now_; }

  const std::vector<Orvo::IntfId>& ethPorts() const { return ethPorts_; }
  const std::vector<Orvo::IntfId>& fabricPorts() const { return fabricPorts_; }
  const std::vector<Orvo::IntfId>& vlanIntfs() const { return vlanIntfs_; }
  Orvo::IntfId cpuPort() const { return Orvo::IntfId("Cpu"); }
  bool hasPort(Orvo::IntfId id) const { return ports_.count(id) != 0; }

  void portUpIs(Orvo::IntfId id, bool up);
  bool portUp(Orvo::IntfId id) const;
  // Hardware reset of a port's counters: every counter falls back to zero.
  void portCountersReset(Orvo::IntfId id);
  // Moves every counter of a port to `below` short of 2^64, so it wraps soon.
  void portCountersWrapSoon(Orvo::IntfId id, uint64_t below = 1000000);
  // Nominal traffic of a port, for tests that compare rates.
  PortTraffic traffic(Orvo::IntfId id) const;

  // Current raw readings. The error sums always hold.
  void portReading(Orvo::IntfId id, Interface::IntfStatistics& stats,
                   Interface::EthStatistics& eth) const;
  // Raw absolute queue totals (octets include 20 octets of line overhead per packet).
  std::vector<Interface::QueueCounter::IntfQueueStat> queueReading(Orvo::IntfId id) const;
  // As queueReading(id), into `out`, whose storage a poller reuses from poll to poll.
  void queueReadingInto(Orvo::IntfId id,
                        std::vector<Interface::QueueCounter::IntfQueueStat>& out) const;
  uint64_t aclDropCount(Orvo::IntfId id) const;
  void vlanIntfReading(Orvo::IntfId id, Interface::IntfStatistics& stats,
                       std::array<uint64_t, 4>& extra) const;
  std::array<uint64_t, 8> vlanReading(uint16_t vlan) const;
  // What vlanReading(vlan) gave, or will give, when the chip had been counting
  // for `activeSeconds`: VLAN counters are a function of that time alone.
  std::array<uint64_t, 8> vlanReadingAt(uint16_t vlan, double activeSeconds) const;
  // How long the chip has been counting, the time base of vlanReadingAt().
  double vlanActiveSeconds() const { return started_ ? now_ - start_ : 0.0; }
  Interface::IntfStatistics cpuReading() const;
  struct ClassCounts {
    uint64_t pkts, octets, dropPkts, dropOctets;
  };
  ClassCounts coppClassReading(const std::string& cmap) const;

 private:
  struct Port {
    PortTraffic traffic;
    bool up = true;
    // Seconds spent down before the current state, and when the port went down.
    double downSeconds = 0;
    double downSince = 0;
    size_t queues = 0;  // egress queues; their counters follow the port counters
    // Index i of the counters below: see SimChip.cpp's counter layout.
    std::vector<RateCounter> counters;
  };
  Port& port(Orvo::IntfId id);
  const Port& port(Orvo::IntfId id) const;
  // Seconds the port has carried traffic, computed on demand so that moving the
  // chip's time costs nothing however many ports and VLANs it has.
  double activeSeconds(const Port& p) const {
    if (!started_) return 0;
    return (now_ - start_) - p.downSeconds - (p.up ? 0.0 : now_ - p.downSince);
  }
  uint64_t counter(const Port& p, size_t i) const { return p.counters[i].value(activeSeconds(p)); }

  Topology topology_;
  double now_ = 0;
  bool started_ = false;
  double start_ = 0;
  std::vector<Orvo::IntfId> ethPorts_, fabricPorts_, vlanIntfs_;
  // Readings look a port up by id and a VLAN by number, and nothing else: a
  // reading never walks other ports or VLANs, so the simulator costs little
  // beside the component it drives.
  std::unordered_map<Orvo::IntfId, Port> ports_;  // Ethernet, fabric, VLAN interfaces, CPU
  // VLANs never go down or reset, and each of their eight counters is a fixed
  // share of the VLAN's receive or transmit packet rate, so a VLAN keeps just those
  // two rates: a whole VLAN poll cycle then walks a 64 KiB array, which a 1 s
  // period finds cold each time.
  struct VlanTraffic {
    double inPps = 0.0;
    double outPps = 0.0;
  };
  std::vector<VlanTraffic> vlans_;  // indexed by VLAN number; 0 carries nothing
  std::map<std::string, Port> coppClasses_;
};

}  // namespace Sim
