#include "agent/platforms/sim/SimHelpers.h"

#include <algorithm>

#include "zat/Activity.h"

namespace Sim {

namespace {
// The chip moves with the agent's clock: every reading first catches it up.
void catchUp(SimChip* chip) { chip->advanceTo(Zat::System::currentTime()); }
}  // namespace

Zat::Ptr<SimCountersHelper> SimCountersHelper::SimCountersHelperIs(SimChip* chip,
                                                                   const std::string& ns) {
  return Zat::Ptr<SimCountersHelper>(new SimCountersHelper(chip, ns));
}

SimCountersHelper::SimCountersHelper(SimChip* chip, const std::string& ns)
    : chip_(chip),
      cpuTable_(Brim::TableWriter<Published::CpuPortCounter>::open(
          ns, Published::kCpuIntfCountersTable, 16)),
      coppTable_(Brim::TableWriter<Published::CoppClassCounter>::open(
          ns, Published::kCoppClassCountersTable, 256)) {}

void SimCountersHelper::countersInit() { catchUp(chip_); }

void SimCountersHelper::intfCountersInit(Orvo::IntfId intfId) { initialized_.insert(intfId); }

void SimCountersHelper::intfCountersCleanup(Orvo::IntfId intfId) { initialized_.erase(intfId); }

void SimCountersHelper::cpuPortCountersInit(Zat::String name) {
  cpuPorts_.insert(Orvo::IntfId(name.stringValue()));
}

void SimCountersHelper::cpuPortCountersUpdate() {
  catchUp(chip_);
  ++polls_;
  for (Orvo::IntfId id : cpuPorts_) {
    Published::CpuPortCounter r;
    r.intfId = id;
    r.statistics = chip_->cpuReading();
    cpuTable_->put(r);
  }
}

bool SimCountersHelper::coppClassCountersUpdate(Zat::Name cmapName) {
  catchUp(chip_);
  ++polls_;
  const std::string& name = cmapName.stringValue();
  auto counts = chip_->coppClassReading(name);
  Published::CoppClassCounter r;
  r.nameHash = Published::CoppClassCounter::hashOf(name);
  std::copy_n(name.data(), std::min(name.size(), Published::CoppClassCounter::kNameSize - 1),
              r.name);
  r.pkts = counts.pkts;
  r.octets = counts.octets;
  r.dropPkts = counts.dropPkts;
  r.dropOctets = counts.dropOctets;
  r.timestamp = chip_->now();
  coppTable_->put(r);
  return true;
}

double SimCountersHelper::firstPollDelay() { return chip_->topology().firstPollDelay; }

void SimCountersHelper::intfCountersRead(Orvo::IntfId intfId,
                                         const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                                         const Zat::Ptr<VornTypes::IntfCounters>&) {
  catchUp(chip_);
  ++polls_;
  chip_->portReading(intfId, newCounters->intfStats(), newCounters->ethStats());
}

void SimCountersHelper::intfQueueTypeRead(Orvo::IntfId intfId,
                                          const Zat::Ptr<VornTypes::IntfQueueType>& queueType) {
  size_t queues = chip_->queueReading(intfId).size();
  // The upper half of a port's queues carry multicast.
  for (size_t q = 0; q < queues; ++q) {
    queueType->queueTypeIs(static_cast<uint8_t>(q), q < (queues + 1) / 2
                                                        ? VornTypes::QueueType::unicast
                                                        : VornTypes::QueueType::multicast);
  }
}

Interface::QueueCounter::IntfQueueCounter SimCountersHelper::intfQueueCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>& scratch) {
  catchUp(chip_);
  ++polls_;
  std::vector<Interface::QueueCounter::IntfQueueStat>& now = queueScratch_;
  chip_->queueReadingInto(intfId, now);
  Interface::QueueCounter::IntfQueueCounter reading(intfId);
  for (size_t q = 0; q < now.size(); ++q) {
    auto stat = now[q];
    if (queueCountersClearOnRead()) {
      // Clear-on-read hardware: hand out what was counted since the last read.
      Interface::QueueCounter::IntfQueueStat prev;
      if (q < scratch->previous.size()) prev = scratch->previous[q];
      stat = Interface::QueueCounter::IntfQueueStat(
          0, now[q].txOctets() - prev.txOctets(), now[q].txPkts() - prev.txPkts(),
          now[q].dropOctets() - prev.dropOctets(), now[q].dropPkts() - prev.dropPkts());
    }
    reading.intfQueueStatIs(Interface::QueueCounter::QueueIndex(static_cast<uint8_t>(q)), stat);
  }
  scratch->previous.assign(now.begin(), now.end());
  return reading;
}

void SimCountersHelper::vlanIntfCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
    const Zat::Ptr<VornTypes::VlanIntfCounters>&) {
  catchUp(chip_);
  ++polls_;
  std::array<uint64_t, 4> extra{};
  chip_->vlanIntfReading(intfId, newCounters->statistics(), extra);
  for (size_t i = 0; i < 4; ++i) newCounters->extraIs(i, extra[i]);
}

bool SimCountersHelper::vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t) {
  return chip_->hasPort(intfId);
}

void SimCountersHelper::vlanIntfCountersRelease(Orvo::IntfId) {}

bool SimCountersHelper::aclDropCountersSupported() { return true; }

uint64_t SimCountersHelper::aclDropCountRead(Orvo::IntfId intfId) {
  catchUp(chip_);
  ++polls_;
  return chip_->hasPort(intfId) ? chip_->aclDropCount(intfId) : 0;
}

// --- SimVlanCountersHelper ---

double SimVlanCountersHelper::vlanFirstPollDelay() { return chip_->topology().firstPollDelay; }

void SimVlanCountersHelper::vlanCountersRead(Bridging::VlanId vlanId,
                                             const Zat::Ptr<VornTypes::VlanCounters>& current,
                                             const Zat::Ptr<VornTypes::VlanCounters>& previous) {
  catchUp(chip_);
  ++polls_;
  const double active = chip_->vlanActiveSeconds();
  const size_t v = vlanId & 0xfff;
  if (lastActive_[v] == kNotEnabled) {
    ++enabledCount_;
    lastActive_[v] = active;
  }
  const auto now = chip_->vlanReadingAt(vlanId, active);
  const auto last = chip_->vlanReadingAt(vlanId, lastActive_[v]);
  for (size_t i = 0; i < 8; ++i) {
    current->counterIs(i, now[i]);
    previous->counterIs(i, last[i]);
  }
  lastActive_[v] = active;
}

bool SimVlanCountersHelper::vlanCountersEnable(Bridging::VlanId vlanId) {
  catchUp(chip_);
  // Idempotent: a VLAN already counting keeps its last reading.
  const size_t v = vlanId & 0xfff;
  if (lastActive_[v] == kNotEnabled) {
    ++enabledCount_;
    lastActive_[v] = chip_->vlanActiveSeconds();
  }
  return true;
}

}  // namespace Sim
