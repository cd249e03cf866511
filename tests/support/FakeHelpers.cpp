#include "support/FakeHelpers.h"

#include "zat/Activity.h"

namespace VornTest {

namespace {
Calls startingWith(const Calls& calls, const std::string& prefix) {
  Calls out;
  for (const auto& c : calls) {
    if (c.rfind(prefix, 0) == 0) out.push_back(c);
  }
  return out;
}
}  // namespace

Calls FakeCountersHelper::callsStartingWith(const std::string& prefix) const {
  return startingWith(calls, prefix);
}

void FakeCountersHelper::record(const std::string& op, const std::string& call) {
  calls.push_back(call);
  callTimes.push_back(Zat::System::currentTime());
  if (!failOperation.empty() && failOperation == op) throw FakeHelperError(op + " failed");
}

FakeCountersHelper::PortReading FakeCountersHelper::consistentReading(uint64_t octets,
                                                                      uint64_t pkts,
                                                                      uint64_t rxErrors,
                                                                      uint64_t txErrors) {
  PortReading r;
  r.intfStats.inOctetsIs(octets);
  r.intfStats.inUcastPktsIs(pkts);
  r.intfStats.outOctetsIs(octets / 2);
  r.intfStats.outUcastPktsIs(pkts / 2);
  r.ethStats.fcsErrorsIs(rxErrors);
  r.ethStats.lateCollisionsIs(txErrors);
  r.intfStats.inErrorsIs(rxErrors);
  r.intfStats.outErrorsIs(txErrors);
  return r;
}

void FakeCountersHelper::countersInit() { record("countersInit", "countersInit"); }

void FakeCountersHelper::intfCountersInit(Orvo::IntfId intfId) {
  record("intfCountersInit", "intfCountersInit(" + intfId.stringValue() + ")");
}

void FakeCountersHelper::intfCountersCleanup(Orvo::IntfId intfId) {
  record("intfCountersCleanup", "intfCountersCleanup(" + intfId.stringValue() + ")");
}

void FakeCountersHelper::cpuPortCountersInit(Zat::String name) {
  record("cpuPortCountersInit", "cpuPortCountersInit(" + name.stringValue() + ")");
}

void FakeCountersHelper::cpuPortCountersUpdate() {
  record("cpuPortCountersUpdate", "cpuPortCountersUpdate");
}

bool FakeCountersHelper::coppClassCountersUpdate(Zat::Name cmapName) {
  record("coppClassCountersUpdate", "coppClassCountersUpdate(" + cmapName.stringValue() + ")");
  return true;
}

double FakeCountersHelper::firstPollDelay() {
  record("firstPollDelay", "firstPollDelay");
  return firstPollDelayValue;
}

void FakeCountersHelper::intfCountersRead(Orvo::IntfId intfId,
                                          const Zat::Ptr<VornTypes::IntfCounters>& newCounters,
                                          const Zat::Ptr<VornTypes::IntfCounters>&) {
  record("intfCountersRead", "intfCountersRead(" + intfId.stringValue() + ")");
  if (onIntfCountersRead) onIntfCountersRead(newCounters);
  auto it = portReadings.find(intfId);
  if (it == portReadings.end()) return;
  newCounters->intfStatsIs(it->second.intfStats);
  newCounters->ethStatsIs(it->second.ethStats);
}

void FakeCountersHelper::intfQueueTypeRead(Orvo::IntfId intfId,
                                           const Zat::Ptr<VornTypes::IntfQueueType>& queueType) {
  record("intfQueueTypeRead", "intfQueueTypeRead(" + intfId.stringValue() + ")");
  auto it = queueTypes.find(intfId);
  if (it == queueTypes.end()) return;
  for (const auto& [index, type] : it->second) queueType->queueTypeIs(index, type);
}

Interface::QueueCounter::IntfQueueCounter FakeCountersHelper::intfQueueCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::IntfQueueCounters>&) {
  record("intfQueueCountersRead", "intfQueueCountersRead(" + intfId.stringValue() + ")");
  auto it = queueReadings.find(intfId);
  if (it == queueReadings.end()) return Interface::QueueCounter::IntfQueueCounter(intfId);
  return it->second;
}

void FakeCountersHelper::vlanIntfCountersRead(
    Orvo::IntfId intfId, const Zat::Ptr<VornTypes::VlanIntfCounters>& newCounters,
    const Zat::Ptr<VornTypes::VlanIntfCounters>&) {
  record("vlanIntfCountersRead", "vlanIntfCountersRead(" + intfId.stringValue() + ")");
  auto it = vlanIntfReadings.find(intfId);
  if (it == vlanIntfReadings.end()) return;
  newCounters->statisticsIs(it->second.statistics);
  for (size_t i = 0; i < 4; ++i) newCounters->extraIs(i, it->second.extra[i]);
}

bool FakeCountersHelper::vlanIntfCountersSupported(Orvo::IntfId intfId, uint32_t vlanId) {
  record("vlanIntfCountersSupported",
         "vlanIntfCountersSupported(" + intfId.stringValue() + "," + std::to_string(vlanId) + ")");
  return vlanIntfRefused.count(intfId) == 0;
}

void FakeCountersHelper::vlanIntfCountersRelease(Orvo::IntfId intfId) {
  record("vlanIntfCountersRelease", "vlanIntfCountersRelease(" + intfId.stringValue() + ")");
}

bool FakeCountersHelper::aclDropCountersSupported() {
  record("aclDropCountersSupported", "aclDropCountersSupported");
  return aclSupported;
}

uint64_t FakeCountersHelper::aclDropCountRead(Orvo::IntfId intfId) {
  record("aclDropCountRead", "aclDropCountRead(" + intfId.stringValue() + ")");
  auto it = aclDropCounts.find(intfId);
  return it == aclDropCounts.end() ? 0 : it->second;
}

// --- FakeVlanCountersHelper ---

Calls FakeVlanCountersHelper::callsStartingWith(const std::string& prefix) const {
  return startingWith(calls, prefix);
}

void FakeVlanCountersHelper::record(const std::string& op, const std::string& call) {
  calls.push_back(call);
  callTimes.push_back(Zat::System::currentTime());
  if (!failOperation.empty() && failOperation == op) throw FakeHelperError(op + " failed");
}

double FakeVlanCountersHelper::vlanFirstPollDelay() {
  record("vlanFirstPollDelay", "vlanFirstPollDelay");
  return firstPollDelayValue;
}

void FakeVlanCountersHelper::vlanCountersRead(Bridging::VlanId vlanId,
                                              const Zat::Ptr<VornTypes::VlanCounters>& current,
                                              const Zat::Ptr<VornTypes::VlanCounters>& previous) {
  record("vlanCountersRead", "vlanCountersRead(" + std::to_string(vlanId) + ")");
  if (onVlanCountersRead) onVlanCountersRead(vlanId, current, previous);
  std::array<uint64_t, 8> now{};
  if (auto it = hardware.find(vlanId); it != hardware.end()) now = it->second;
  std::array<uint64_t, 8> before = lastServed[vlanId];
  for (size_t i = 0; i < 8; ++i) {
    current->counterIs(i, now[i]);
    previous->counterIs(i, before[i]);
  }
  lastServed[vlanId] = now;
}

bool FakeVlanCountersHelper::vlanCountersEnable(Bridging::VlanId vlanId) {
  record("vlanCountersEnable", "vlanCountersEnable(" + std::to_string(vlanId) + ")");
  return true;
}

}  // namespace VornTest
