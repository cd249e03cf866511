#include "agent/platforms/sim/SimChip.h"

#include <random>
#include <stdexcept>

namespace Sim {

namespace {
// Port counter layout.
enum : size_t {
  kInOctets,
  kInUcast,
  kInMcast,
  kInBcast,
  kInDiscards,
  kOutOctets,
  kOutUcast,
  kOutMcast,
  kOutBcast,
  kOutDiscards,
  kFcsErrors,
  kAlignmentErrors,
  kLateCollisions,
  kExcessiveCollisions,
  kAclDrops,
  kFirstQueue,  // then 4 per queue: txOctets, txPkts, dropOctets, dropPkts
};
// VLAN interfaces keep four routed-traffic counters after the port counters.
constexpr size_t kVlanIntfExtra = kFirstQueue;
constexpr double kQueueOverheadOctets = 20.0;
// Packet-size mix: 40% 64 octets, 30% 512, 30% 1500.
constexpr double kAvgPacketBytes = 0.4 * 64 + 0.3 * 512 + 0.3 * 1500;
// Per packet of a direction: octets, then the unicast, multicast and broadcast
// shares. Ports and VLANs derive their first four counters of each direction so.
constexpr double kTrafficShares[4] = {kAvgPacketBytes, 0.90, 0.08, 0.02};

RateCounter rc(double rate) { return RateCounter{rate, 0}; }
}  // namespace

SimChip::SimChip(const Topology& topology) : topology_(topology) {
  topology_.validate();
  std::mt19937_64 rng(topology_.seed);
  std::uniform_real_distribution<double> share(0.01, 0.30);
  auto makePort = [&](size_t queues, double speed, bool extras) {
    Port p;
    p.queues = queues;
    double inShare = share(rng), outShare = share(rng);
    p.traffic.avgPacketBytes = kAvgPacketBytes;
    p.traffic.inPps = speed * inShare / (8 * kAvgPacketBytes);
    p.traffic.outPps = speed * outShare / (8 * kAvgPacketBytes);
    double in = p.traffic.inPps, out = p.traffic.outPps;
    p.counters = {rc(in * kTrafficShares[0]),
                  rc(in * kTrafficShares[1]),
                  rc(in * kTrafficShares[2]),
                  rc(in * kTrafficShares[3]),
                  rc(in * 1e-4),
                  rc(out * kTrafficShares[0]),
                  rc(out * kTrafficShares[1]),
                  rc(out * kTrafficShares[2]),
                  rc(out * kTrafficShares[3]),
                  rc(out * 1e-4),
                  rc(in * 1e-6),
                  rc(in * 2e-7),
                  rc(out * 1e-7),
                  rc(out * 5e-8),
                  rc(in * 5e-5)};
    // Queue q carries a weight of (q+1) of the port's transmit traffic.
    double weights = queues * (queues + 1) / 2.0;
    for (size_t q = 0; q < queues; ++q) {
      double pps = out * (q + 1) / weights;
      p.counters.push_back(rc(pps * (kAvgPacketBytes + kQueueOverheadOctets)));
      p.counters.push_back(rc(pps));
      p.counters.push_back(rc(pps * 1e-3 * (kAvgPacketBytes + kQueueOverheadOctets)));
      p.counters.push_back(rc(pps * 1e-3));
    }
    if (extras) {
      p.counters.push_back(rc(in * kAvgPacketBytes * 0.5));
      p.counters.push_back(rc(in * 0.5));
      p.counters.push_back(rc(out * kAvgPacketBytes * 0.5));
      p.counters.push_back(rc(out * 0.5));
    }
    return p;
  };
  for (uint32_t i = 1; i <= topology_.ethPorts; ++i) {
    Orvo::IntfId id("Ethernet" + std::to_string(i));
    ethPorts_.push_back(id);
    ports_[id] = makePort(topology_.queuesPerPort, topology_.portSpeedBps, false);
  }
  for (uint32_t i = 1; i <= topology_.fabricPorts; ++i) {
    Orvo::IntfId id("Fabric" + std::to_string(i));
    fabricPorts_.push_back(id);
    ports_[id] = makePort(topology_.queuesPerPort, topology_.portSpeedBps * 4, false);
  }
  for (uint32_t i = 1; i <= topology_.vlanIntfs; ++i) {
    Orvo::IntfId id = Orvo::VlanIntfId::vlanIntfId(static_cast<uint16_t>(i));
    vlanIntfs_.push_back(id);
    ports_[id] = makePort(0, topology_.portSpeedBps / 10, true);
  }
  ports_[cpuPort()] = makePort(0, 1e8, false);
  vlans_.resize(topology_.vlans + 1);
  for (uint32_t v = 1; v <= topology_.vlans; ++v) {
    // Made as a port, so that the random draws of later objects stay the same.
    Port p = makePort(0, topology_.portSpeedBps / 20, false);
    vlans_[v] = VlanTraffic{p.traffic.inPps, p.traffic.outPps};
  }
  for (const auto& c : topology_.coppClasses) coppClasses_[c] = makePort(0, 1e6, false);
}

void SimChip::advanceTo(double t) {
  if (!started_) {
    started_ = true;
    start_ = now_ = t;
    return;
  }
  if (t > now_) now_ = t;
}

SimChip::Port& SimChip::port(Orvo::IntfId id) {
  auto it = ports_.find(id);
  if (it == ports_.end()) throw std::invalid_argument("no such port: " + id.stringValue());
  return it->second;
}

const SimChip::Port& SimChip::port(Orvo::IntfId id) const {
  return const_cast<SimChip*>(this)->port(id);
}

void SimChip::portUpIs(Orvo::IntfId id, bool up) {
  Port& p = port(id);
  if (up == p.up) return;
  if (up) {
    p.downSeconds += now_ - p.downSince;
  } else {
    p.downSince = now_;
  }
  p.up = up;
}
bool SimChip::portUp(Orvo::IntfId id) const { return port(id).up; }
PortTraffic SimChip::traffic(Orvo::IntfId id) const { return port(id).traffic; }

void SimChip::portCountersReset(Orvo::IntfId id) {
  Port& p = port(id);
  for (auto& c : p.counters)
    c.offset = uint64_t{0} - static_cast<uint64_t>(c.rate * activeSeconds(p));
}

void SimChip::portCountersWrapSoon(Orvo::IntfId id, uint64_t below) {
  Port& p = port(id);
  for (auto& c : p.counters) {
    c.offset = (uint64_t{0} - below) - static_cast<uint64_t>(c.rate * activeSeconds(p));
  }
}

void SimChip::portReading(Orvo::IntfId id, Interface::IntfStatistics& s,
                          Interface::EthStatistics& e) const {
  const Port& p = port(id);
  const double active = activeSeconds(p);
  auto v = [&](size_t i) { return p.counters[i].value(active); };
  s = Interface::IntfStatistics();
  s.inOctetsIs(v(kInOctets));
  s.inUcastPktsIs(v(kInUcast));
  s.inMulticastPktsIs(v(kInMcast));
  s.inBroadcastPktsIs(v(kInBcast));
  s.inDiscardsIs(v(kInDiscards));
  s.outOctetsIs(v(kOutOctets));
  s.outUcastPktsIs(v(kOutUcast));
  s.outMulticastPktsIs(Pell::MaybeU63(v(kOutMcast)));
  s.outBroadcastPktsIs(v(kOutBcast));
  s.outDiscardsIs(v(kOutDiscards));
  s.inUnknownProtosIs(Pell::MaybeU63(0));
  e = Interface::EthStatistics();
  e.fcsErrorsIs(v(kFcsErrors));
  e.alignmentErrorsIs(v(kAlignmentErrors));
  e.lateCollisionsIs(v(kLateCollisions));
  e.excessiveCollisionsIs(v(kExcessiveCollisions));
  // The error sums are kept exactly, as the counters machines check them.
  s.inErrorsIs(e.alignmentErrors() + e.fcsErrors() + e.frameTooLongs() + e.frameTooShorts() +
               e.internalMacReceiveErrors());
  s.outErrorsIs(e.sqeTestErrors() + e.lateCollisions() + e.excessiveCollisions() +
                e.internalMacTransmitErrors() + e.carrierSenseErrors());
  uint64_t inPkts = v(kInUcast) + v(kInMcast) + v(kInBcast);
  uint64_t outPkts = v(kOutUcast) + v(kOutMcast) + v(kOutBcast);
  e.inFrames64Is(inPkts / 10 * 4);
  e.inFrames512To1023Is(inPkts / 10 * 3);
  e.inFrames1024To1522Is(inPkts / 10 * 3);
  e.outFrames64Is(outPkts / 10 * 4);
  e.outFrames512To1023Is(outPkts / 10 * 3);
  e.outFrames1024To1522Is(outPkts / 10 * 3);
  s.statsUpdateTimeIs(now_);
}

std::vector<Interface::QueueCounter::IntfQueueStat> SimChip::queueReading(Orvo::IntfId id) const {
  std::vector<Interface::QueueCounter::IntfQueueStat> out;
  queueReadingInto(id, out);
  return out;
}

void SimChip::queueReadingInto(Orvo::IntfId id,
                               std::vector<Interface::QueueCounter::IntfQueueStat>& out) const {
  const Port& p = port(id);
  out.clear();
  const double active = activeSeconds(p);
  auto v = [&](size_t i) { return p.counters[i].value(active); };
  // The queue count is kept, not derived from the counter count: VLAN
  // interfaces keep other counters after the port counters.
  for (size_t q = 0; q < p.queues; ++q) {
    size_t b = kFirstQueue + 4 * q;
    out.emplace_back(0, v(b), v(b + 1), v(b + 2), v(b + 3));
  }
}

uint64_t SimChip::aclDropCount(Orvo::IntfId id) const { return counter(port(id), kAclDrops); }

void SimChip::vlanIntfReading(Orvo::IntfId id, Interface::IntfStatistics& stats,
                              std::array<uint64_t, 4>& extra) const {
  Interface::EthStatistics unused;
  portReading(id, stats, unused);
  const Port& p = port(id);
  for (size_t i = 0; i < 4; ++i) extra[i] = counter(p, kVlanIntfExtra + i);
}

std::array<uint64_t, 8> SimChip::vlanReading(uint16_t vlan) const {
  return vlanReadingAt(vlan, vlanActiveSeconds());
}

std::array<uint64_t, 8> SimChip::vlanReadingAt(uint16_t vlan, double active) const {
  std::array<uint64_t, 8> out{};
  if (vlan == 0 || vlan >= vlans_.size()) return out;
  const VlanTraffic& v = vlans_[vlan];
  for (size_t i = 0; i < 4; ++i) {
    out[i] = rc(v.inPps * kTrafficShares[i]).value(active);
    out[4 + i] = rc(v.outPps * kTrafficShares[i]).value(active);
  }
  return out;
}

Interface::IntfStatistics SimChip::cpuReading() const {
  Interface::IntfStatistics s;
  Interface::EthStatistics e;
  portReading(cpuPort(), s, e);
  return s;
}

SimChip::ClassCounts SimChip::coppClassReading(const std::string& cmap) const {
  auto it = coppClasses_.find(cmap);
  if (it == coppClasses_.end()) return {0, 0, 0, 0};
  const Port& p = it->second;
  return {counter(p, kInUcast), counter(p, kInOctets), counter(p, kInDiscards),
          counter(p, kInDiscards) * 100};
}

}  // namespace Sim
