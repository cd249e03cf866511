// CountersSm: interface tracking. Every decision recomputes the wanted state of
// one interface from the sets and directories, so the handlers may run for any
// key at any time after initialization and running one twice changes nothing.
#include "counters/Conventions.h"
#include "counters/CountersSm.h"
#include "pontil/Assert.h"
#include "zat/Activity.h"

namespace Vorn::Counters {

namespace {

// Present and true in the set: the interface is to be served.
bool wanted(const Vorn::VornCommonSmData::IntfSet& set, Orvo::IntfId intfId) {
  const bool* value = set.find(intfId);
  return value && *value;
}

// The framework clock, fetched afresh for each child that is created.
Zat::Ptr<const Zat::Clock> frameworkClock() { return Zat::activityManager()->config()->clock(); }

}  // namespace

// --- full passes ---

void CountersSm::handleIntf() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handleIntf()");
  if (!vcsd()) return;
  vcsd()->intf().forEachKey([this](const Orvo::IntfId& intfId) { handleIntf(intfId); });
}

void CountersSm::handleCpuIntf() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handleCpuIntf()");
  if (!vcsd()) return;
  vcsd()->cpuIntf().forEachKey([this](const Orvo::IntfId& intfId) { handleCpuIntf(intfId); });
}

void CountersSm::handleVlanIntf() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handleVlanIntf()");
  if (!vcsd()) return;
  vcsd()->vlanIntf().forEachKey([this](const Orvo::IntfId& intfId) { handleVlanIntf(intfId); });
}

// --- Ethernet interfaces ---

void CountersSm::handleIntf(Orvo::IntfId intfId) {
  if (!initialized()) return;
  VORN_HANDLER_KEY("void Vorn::Counters::CountersSm::handleIntf(Orvo::IntfId)", intfId);
  Zat::Ptr<const Interface::EthPhyIntfStatus> status =
      ethPhyIntfStatusDir_ ? ethPhyIntfStatusDir_->intfStatus(intfId) : nullptr;
  Zat::Ptr<const Interface::EthPhyIntfConfig> config =
      ethPhyIntfConfigDir_ ? ethPhyIntfConfigDir_->intfConfig(intfId) : nullptr;
  const bool inSet = vcsd() && wanted(vcsd()->intf(), intfId);
  if (inSet && status && config) {
    serveIntf(intfId, config, status);
  } else {
    withdrawIntf(intfId, status && config);
  }
}

void CountersSm::serveIntf(Orvo::IntfId intfId,
                           const Zat::Ptr<const Interface::EthPhyIntfConfig>& config,
                           const Zat::Ptr<const Interface::EthPhyIntfStatus>& status) {
  if (writerConfig_) writerConfig_->intfIs(intfId, true);
  if (aclDropConfig_) aclDropConfig_->intfIs(intfId, true);
  if (allIntfCounters_) {
    // Existing rows are never overwritten, so counters survive a re-evaluation.
    if (!allIntfCounters_->hasCounter(intfId)) {
      const Interface::EthIntfCounterBrim zeroRow(intfId);
      allIntfCounters_->counterIs(zeroRow);
      if (allIntfClearCounters_) allIntfClearCounters_->counterIs(zeroRow);
    }
    vornAssertText(ethIntfCounterWriterStatus_, "ethIntfCounterWriterStatus()");
    ethIntfCounterWriterStatus_->intfIs(intfId, true);
  }

  const Zat::Ptr<const Zat::Clock> clock = frameworkClock();
  Zat::Ptr<PortCountersSm> port =
      portCountersSmIs(vcsd(), intfId, cliCounterConfig_, clock, config, status, platformHelper_,
                       globalIntfConfig_, allIntfCounters_, allIntfClearCounters_);
  // The port poller takes the root's current period on every evaluation.
  port->counterPollPeriodIs(counterPollPeriod_);
  port->initializedIs(true);

  if (allIntfQueueCounters_) {
    // Deliberate and kept: requested again with the current period, so after a
    // period change this raises the re-instantiation error unless the child was
    // deleted first (the port poller is exempt: its period is set after creation).
    Zat::Ptr<IntfQueueCountersSm> queues = intfQueueCountersSmIs(
        vcsd(), intfId, counterPollPeriod_, clock, platformHelper_, globalIntfConfig_,
        ethPhyIntfConfigDir_, allIntfQueueCounters_, allIntfClearQueueCounters_);
    queues->initializedIs(true);
  }

  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  if (!helper->aclDropCountersSupported()) return;
  // The ACL drop poller publishes into this table; without it there is nothing to poll.
  if (!intfAclDropCountersDir_) return;
  const Brim::Interface::DropCounter record = aclDropCounterFor(intfId);
  // The ACL drop poller initializes itself when it is built.
  intfAclDropCountersSmIs(intfId, clock, record, intfAclDropCountersDir_, platformHelper_);
}

Brim::Interface::DropCounter CountersSm::aclDropCounterFor(Orvo::IntfId intfId) {
  Brim::Interface::DropCounter record;
  try {
    record = intfAclDropCountersDir_->counter(intfId);
  } catch (const Pontil::CorruptionDetectedException& e) {
    // Another process damaged the table: report it and go on as without a record.
    intfAclDropCountersDir_->doCorruptionDetected(e.what());
    record = Brim::Interface::DropCounter();
  }
  if (record == Brim::Interface::DropCounter()) {
    VORN_TRACE(6, " Adding Brim entry acldrop for " << intfId);
    record = Brim::Interface::DropCounter(intfId);
    intfAclDropCountersDir_->counterIs(record);
  }
  return record;
}

void CountersSm::withdrawIntf(Orvo::IntfId intfId, bool configAndStatusExist) {
  if (writerConfig_ && writerConfig_->contains(intfId)) writerConfig_->intfDel(intfId);
  // Kept with value false, unlike the queue writer configuration: readers of
  // the ACL drop configuration tell a withdrawn interface from an unknown one.
  if (aclDropConfig_) aclDropConfig_->intfIs(intfId, false);
  // An interface only dropped from the set (its config and status remain)
  // keeps its rows and writer-status entry, so its totals survive its return.
  if (allIntfCounters_ && !configAndStatusExist) {
    vornAssertText(ethIntfCounterWriterStatus_, "ethIntfCounterWriterStatus()");
    ethIntfCounterWriterStatus_->intfDel(intfId);
    allIntfCounters_->counterDel(intfId);
    if (allIntfClearCounters_) allIntfClearCounters_->counterDel(intfId);
  }
  if (Zat::Ptr<PortCountersSm> port = portCountersSm_.get(intfId)) port->handleExit();
  portCountersSmDel(intfId);
  intfQueueCountersSmDel(intfId);
  // The ACL drop row stays: its count is the hardware's absolute value.
  intfAclDropCountersSmDel(intfId);
}

// --- CPU ports ---

void CountersSm::handleCpuIntf(Orvo::IntfId intfId) {
  if (!initialized()) return;
  VORN_HANDLER_KEY("void Vorn::Counters::CountersSm::handleCpuIntf(Orvo::IntfId)", intfId);
  if (vcsd() && wanted(vcsd()->cpuIntf(), intfId)) {
    // Deliberate and kept, as for the queue poller: requested again with the
    // current period, so a changed period raises unless the child was deleted first.
    Zat::Ptr<CpuPortCountersSm> cpu =
        cpuPortCountersSmIs(vcsd(), intfId, counterPollPeriod_, frameworkClock(), platformHelper_);
    cpu->initializedIs(true);
  } else {
    cpuPortCountersSmDel(intfId);
  }
}

// --- VLAN interfaces ---

void CountersSm::handleVlanIntf(Orvo::IntfId intfId) {
  if (!initialized()) return;
  VORN_HANDLER_KEY("void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId)", intfId);
  if (!Orvo::VlanIntfId::isVlanIntfId(intfId)) return;
  Zat::Ptr<const Interface::VlanIntfConfig> config =
      vlanIntfConfigDir_ ? vlanIntfConfigDir_->intfConfig(intfId) : nullptr;
  Zat::Ptr<const Interface::VlanIntfStatus> status =
      vlanIntfStatusDir_ ? vlanIntfStatusDir_->intfStatus(intfId) : nullptr;
  const bool inSet = vcsd() && wanted(vcsd()->vlanIntf(), intfId);

  if (inSet && config && status && allVlanIntfCounters_) {
    VORN_TRACE(7, "void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId)"
                      << " Initializing counter state machine for VLAN interface" << intfId);
    Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
    const uint32_t vlanId = Orvo::VlanIntfId::vlanId(intfId);
    // A refusal changes nothing, not even an existing child.
    if (!helper->vlanIntfCountersSupported(intfId, vlanId)) return;
    // Unlike Ethernet ports the child is made only when absent, never requested again.
    if (vlanIntfCountersSm_.find(intfId)) return;
    Zat::Ptr<VlanIntfCountersSm> child =
        vlanIntfCountersSmIs(vcsd(), intfId, counterPollPeriod_, frameworkClock(), platformHelper_,
                             globalIntfConfig_, config, status, allVlanIntfCounters_);
    child->initializedIs(true);
    vornAssertText(vlanIntfCounterWriterStatus_, "vlanIntfCounterWriterStatus()");
    vlanIntfCounterWriterStatus_->intfIs(intfId, true);
    return;
  }

  if (!vlanIntfCountersSm_.find(intfId)) return;
  VORN_TRACE(7, "void Vorn::Counters::CountersSm::handleVlanIntf(Orvo::IntfId)"
                    << " Deleting counter state machine"
                    << " vlanIntf: " << intfId);
  vornAssertText(vlanIntfCounterWriterStatus_, "vlanIntfCounterWriterStatus()");
  vlanIntfCounterWriterStatus_->intfDel(intfId);
  // Released after readers stop looking for it and before the poller goes.
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->vlanIntfCountersRelease(intfId);
  vlanIntfCountersSmDel(intfId);
  if (allVlanIntfCounters_) allVlanIntfCounters_->counterDel(intfId);
}

}  // namespace Vorn::Counters
