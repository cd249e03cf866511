// CountersSm: clear requests and on-demand updates. Clearing never resets a
// published total: it records the port's current totals in
// "allIntfClearCounters", and readers subtract that baseline.
#include "counters/Conventions.h"
#include "counters/CountersSm.h"
#include "pontil/Assert.h"

namespace Vorn::Counters {

void CountersSm::doClearCounters(Zat::String name) {
  VORN_HANDLER_KEY("void Vorn::Counters::CountersSm::doClearCounters(Zat::String)", name);
  if (!allIntfCounters_) return;
  if (name.stringValue() == "all") {
    // A damaged entry is reported by the table and the walk goes on with the
    // table's default entry in its place.
    allIntfCounters_->forEachCounter([this](const Interface::EthIntfCounterBrim& entry) {
      if (allIntfClearCounters_) allIntfClearCounters_->counterIs(entry);
    });
    return;
  }
  Orvo::IntfId intfId;
  try {
    intfId = Orvo::IntfId(name.stringValue());
  } catch (const Orvo::InvalidIntfNameException&) {
    return;  // Not an interface name: nothing to clear.
  }
  // Only Ethernet ports are cleared by name.
  if (!Orvo::EthIntfId::isEthIntfId(intfId)) return;
  // A port without an entry yet gets an all-zero baseline.
  const Interface::EthIntfCounterBrim entry = allIntfCounters_->counterOrEmpty(intfId);
  if (allIntfClearCounters_) allIntfClearCounters_->counterIs(entry);
}

void CountersSm::updateCounters(VornTypes::CounterType type, Orvo::IntfId intfId) {
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE,
                 "void Vorn::Counters::CountersSm::updateCounters(VornTypes::CounterType, "
                 "Orvo::IntfId)");
  VORN_TRACE(8, "updateCounters"
                    << " counter type: " << type << ", intf: " << intfId);
  // Each child is held by a counted reference for the length of its poll.
  switch (static_cast<uint32_t>(type)) {
    case 0:
      if (Zat::Ptr<IntfQueueCountersSm> child = intfQueueCountersSm_.get(intfId)) {
        child->updateCounters();
      }
      break;
    case 1:
      if (Zat::Ptr<PortCountersSm> child = portCountersSm_.get(intfId)) child->updateCounters();
      break;
    case 2:
      if (Zat::Ptr<CpuPortCountersSm> child = cpuPortCountersSm_.get(intfId)) {
        child->updateCounters();
      }
      break;
    case 3:
      if (Zat::Ptr<VlanIntfCountersSm> child = vlanIntfCountersSm_.get(intfId)) {
        child->updateCounters();
      }
      break;
    case 4:
    case 5:
      // Deliberate: these kinds are never requested of this component.
      vornAssert(0);
      break;
    case 6:
      if (Zat::Ptr<IntfAclDropCountersSm> child = intfAclDropCountersSm_.get(intfId)) {
        child->updateCounters();
      }
      break;
    default:
      break;
  }
}

}  // namespace Vorn::Counters
