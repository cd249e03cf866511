#include "counters/vlan/VlanCountersSm.h"

#include <algorithm>
#include <vector>

#include "counters/Conventions.h"
#include "counters/pollers/ScratchReading.h"
#include "pontil/Assert.h"
#include "vorntypes/VornTypes.h"
#include "zat/Activity.h"
#include "zat/Exception.h"

namespace Vorn::Counters {

namespace {

using Brim::Bridging::VlanCounter;

// A polling period that is not positive stops the cycle. Only 0 is meant to be
// set; a negative or NaN period is treated alike because re-arming in the past
// would make the wheel fire the machine again and again at the same instant.
bool pollingStopped(double pollInterval) { return !(pollInterval > 0.0); }

Bridging::VlanId vlanIdArg(const Zat::GenericValue& value) {
  const uint64_t vlanId = value.asUnsigned("vlanId");
  if (vlanId > UINT16_MAX) {
    throw Zat::RangeException("vlanId " + std::to_string(vlanId) + " is out of range 0..65535");
  }
  return static_cast<Bridging::VlanId>(vlanId);
}

}  // namespace

// --- reactors ---

void VlanCountersSm::ZatBridgingConfig::onAttribute(Zat::AttributeId attr, const void* key) {
  if (attr != Bridging::Config::kVlanConfig || key == nullptr || dying()) return;
  owner_->handleVlanConfig(*static_cast<const Bridging::VlanId*>(key));
}

void VlanCountersSm::ZatVlanCountersCliReq::onAttribute(Zat::AttributeId attr, const void* key) {
  if (attr != Bridging::VlanCountersCliReq::kClearCountersRequest || key == nullptr || dying()) {
    return;
  }
  owner_->handleClearCountersRequest(*static_cast<const Bridging::VlanId*>(key));
}

void VlanCountersSm::ZatClock::handleTime() {
  if (dying()) return;
  owner_->handleTime();
}

// --- construction ---

Zat::Ptr<VlanCountersSm> VlanCountersSm::VlanCountersSmIs(
    const Zat::Ptr<const Bridging::Config>& bridgingConfig,
    const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
    const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
    const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
    const Zat::Ptr<const Pell::TimerWheel>& clock,
    const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper) {
  Zat::Ptr<VlanCountersSm> sm(new VlanCountersSm(bridgingConfig, vlanCountersCliReq, vlanCounterDir,
                                                 vlanCounterSnapshotDir, clock,
                                                 vlanCountersHelper));
  sm->hasNotificationActiveIs(true);
  return sm;
}

VlanCountersSm::VlanCountersSm(
    const Zat::Ptr<const Bridging::Config>& bridgingConfig,
    const Zat::Ptr<const Bridging::VlanCountersCliReq>& vlanCountersCliReq,
    const Zat::Ptr<Brim::Bridging::VlanCounterDir>& vlanCounterDir,
    const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir>& vlanCounterSnapshotDir,
    const Zat::Ptr<const Pell::TimerWheel>& clock,
    const Zat::Ptr<VornHelper::VornVlanCountersHelper>& vlanCountersHelper)
    : bridgingConfig_(bridgingConfig),
      vlanCountersCliReq_(vlanCountersCliReq),
      vlanCounterDir_(vlanCounterDir),
      vlanCounterSnapshotDir_(vlanCounterSnapshotDir),
      clock_(clock),
      vlanCountersHelper_(vlanCountersHelper) {
  if (bridgingConfig_) {
    zatBridgingConfig_ = Zat::Ptr<ZatBridgingConfig>(new ZatBridgingConfig(this, bridgingConfig_));
    zatBridgingConfig_->hasNotificationActiveIs(true);
  }
  if (vlanCountersCliReq_) {
    zatVlanCountersCliReq_ =
        Zat::Ptr<ZatVlanCountersCliReq>(new ZatVlanCountersCliReq(this, vlanCountersCliReq_));
    zatVlanCountersCliReq_->hasNotificationActiveIs(true);
  }
  if (clock_) {
    zatClock_ = Zat::Ptr<ZatClock>(new ZatClock(this, clock_));
    zatClock_->hasNotificationActiveIs(true);
  }
}

VlanCountersSm::~VlanCountersSm() {
  // A reactor may outlive the machine when a notifier holds it during a delivery;
  // as a zombie it no longer calls back into this object.
  zatDoZombieReactors(true);
}

// --- mutators ---

void VlanCountersSm::initializedIs(bool value) {
  if (value == initialized_) return;
  // Stored first so that the per-VLAN handlers of the first full pass act.
  initialized_ = value;
  if (value) handleInitialized();
}

void VlanCountersSm::bridgingConfigDel() {
  if (zatBridgingConfig_) {
    zatBridgingConfig_->zatDoZombieReactors(true);
    zatBridgingConfig_ = nullptr;
  }
  bridgingConfig_ = nullptr;
}

void VlanCountersSm::vlanCountersCliReqDel() {
  if (zatVlanCountersCliReq_) {
    zatVlanCountersCliReq_->zatDoZombieReactors(true);
    zatVlanCountersCliReq_ = nullptr;
  }
  vlanCountersCliReq_ = nullptr;
}

void VlanCountersSm::clockDel() {
  if (zatClock_) {
    // Disarms the pending tick as well.
    zatClock_->zatDoZombieReactors(true);
    zatClock_ = nullptr;
  }
  clock_ = nullptr;
}

// --- handlers ---

void VlanCountersSm::handleInitialized() {
  VORN_HANDLER("void Vorn::Counters::VlanCountersSm::handleInitialized()");
  handleVlanConfig();
  initialized_ = true;
  if (pollingStopped(pollInterval_) || !zatClock_) return;
  const double firstPollDelay =
      vlanCountersHelper_ ? vlanCountersHelper_->vlanFirstPollDelay() : 0.0;
  zatClock_->timeMinIs(Zat::System::currentTime() + std::max(firstPollDelay, pollInterval_));
}

void VlanCountersSm::handleVlanConfig() {
  VORN_HANDLER("void Vorn::Counters::VlanCountersSm::handleVlanConfig()");
  // Held for the pass: a handler further down may drop the machine's reference.
  const Zat::Ptr<const Bridging::Config> config = bridgingConfig_;
  if (!config) return;
  // Served in VLAN order so that hardware enabling and traces follow the numbers.
  std::vector<Bridging::VlanId> vlans = config->vlanConfig().keys();
  std::sort(vlans.begin(), vlans.end());
  for (const Bridging::VlanId vlanId : vlans) handleVlanConfig(vlanId);

  // Records left from before a restart of the agent, of VLANs no longer configured.
  const Zat::Ptr<Brim::Bridging::VlanCounterDir> dir = vlanCounterDir_;
  if (!dir) return;
  dir->forEachCounter(
      [&](const VlanCounter& record) {
        if (!config->vlanConfig().contains(record.vlanId())) removeBrimCollections(record.vlanId());
      },
      /*stopOnCorruption=*/true);
}

void VlanCountersSm::handleVlanConfig(Bridging::VlanId vlanId) {
  VORN_HANDLER_KEY("void Vorn::Counters::VlanCountersSm::handleVlanConfig(Bridging::VlanId)",
                   vlanId);
  if (!initialized_) return;
  vornAssert(bridgingConfig_);
  const Bridging::VlanConfig* config = bridgingConfig_->vlanConfig().find(vlanId);
  if (config == nullptr || config->countersSuppressed) {
    removeBrimCollections(vlanId);
    return;
  }
  VORN_TRACE(6, "Adding VLAN" << vlanId);
  if (vlanCounterDir_) {
    addZeroRecordIfMissing(*vlanCounterDir_, vlanId, "Adding VLAN counter brim collections");
  }
  if (vlanCounterSnapshotDir_) {
    addZeroRecordIfMissing(*vlanCounterSnapshotDir_, vlanId,
                           "Adding VLAN counter snapshot brim collections");
  }
  // Every event for a present VLAN enables it again: the helper's enabling is
  // idempotent, and the hardware may have lost it while records survived.
  if (vlanCountersHelper_) vlanCountersHelper_->vlanCountersEnable(vlanId);
}

template <class Table>
void VlanCountersSm::addZeroRecordIfMissing(Table& table, Bridging::VlanId vlanId,
                                            const char* traceText) {
  try {
    // A missing record reads as the default record.
    if (!(table.counter(vlanId) == VlanCounter())) return;
  } catch (const Pontil::CorruptionDetectedException& e) {
    // Leaves the damaged record alone rather than guess what it held.
    table.doCorruptionDetected(e.what());
    return;
  }
  VORN_TRACE(7, traceText);
  table.counterIs(VlanCounter(vlanId));
}

void VlanCountersSm::removeBrimCollections(Bridging::VlanId vlanId) {
  VORN_TRACE(6, " Deleting VLAN" << vlanId);
  if (vlanCounterDir_) vlanCounterDir_->vlanCounterDel(vlanId);
  if (vlanCounterSnapshotDir_) vlanCounterSnapshotDir_->vlanCounterSnapshotDel(vlanId);
}

void VlanCountersSm::updateCounters() {
  VORN_HANDLER("void Vorn::Counters::VlanCountersSm::updateCounters()");
  if (!initialized_) return;
  const Zat::Ptr<Brim::Bridging::VlanCounterDir> dir = vlanCounterDir_;
  if (!dir || !vlanCountersHelper_) return;
  // One poll, one time: every record this pass writes carries the same stamp.
  const double pollTime = clock_ ? clock_->time() : 0.0;
  // Each record is read once (checked), added to and written back where it sits;
  // a damaged record ends the pass unwritten.
  dir->updateEachCounter([&](VlanCounter& record) {
    addReading(record, pollTime);
    return true;
  });
  // The snapshot table is deliberately not touched: readers subtract it.
}

void VlanCountersSm::addReading(VlanCounter& record, double pollTime) {
  vornAssert(clock_);
  const Bridging::VlanId vlanId = record.vlanId();
  const auto make = [vlanId] { return VornTypes::VlanCounters::VlanCountersIs(vlanId); };
  const auto reset = [vlanId](VornTypes::VlanCounters& c) { c.reset(vlanId); };
  const Zat::Ptr<VornTypes::VlanCounters>& current = freshReading(current_, make, reset);
  const Zat::Ptr<VornTypes::VlanCounters>& previous = freshReading(previous_, make, reset);
  // The helper is fixed at construction; updateCounters checked it is there.
  vlanCountersHelper_->vlanCountersRead(vlanId, current, previous);

  static_assert(VlanCounter::kCounterCount == VornTypes::VlanCounters::kCounterCount);
  uint64_t* totals = record.counterData();
  const uint64_t* now = current->counterData();
  const uint64_t* before = previous->counterData();
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    // Unsigned on purpose: a hardware counter that wrapped between two readings
    // still contributes its true increment modulo 2^64.
    totals[i] += now[i] - before[i];
  }
  record.timestampIs(pollTime);
}

void VlanCountersSm::handleTime() {
  VORN_HANDLER("void Vorn::Counters::VlanCountersSm::handleTime()");
  // A period of 0 ends the cycle for good: nothing re-arms the timer until the
  // machine is initialized again, so a reader sees the timestamps stop.
  if (!initialized_ || pollingStopped(pollInterval_)) return;
  updateCounters();
  // Measured after the poll, so a slow poll delays the next one rather than
  // letting ticks pile up.
  if (zatClock_) zatClock_->timeMinIs(Zat::System::currentTime() + pollInterval_);
}

void VlanCountersSm::handleClearCountersRequest(Bridging::VlanId vlanId) {
  VORN_HANDLER_KEY(
      "void Vorn::Counters::VlanCountersSm::handleClearCountersRequest(Bridging::VlanId)", vlanId);
  VORN_TRACE(7, "handleClearCountersRequest"
                    << "()"
                    << " VLAN" << vlanId);
  if (!vlanCountersCliReq_ || !vlanCountersCliReq_->clearCountersRequest().contains(vlanId)) {
    VORN_TRACE(7, "VLAN" << vlanId << " deleted");
    return;
  }
  vornAssert(initialized());
  // A request that stays present but changes its value asks for a new snapshot.
  doTakeSnapshot(vlanId);
}

void VlanCountersSm::doTakeSnapshot(Bridging::VlanId vlanId) {
  VORN_HANDLER_KEY("void Vorn::Counters::VlanCountersSm::doTakeSnapshot(Bridging::VlanId)", vlanId);
  const Zat::Ptr<Brim::Bridging::VlanCounterSnapshotDir> snapshots = vlanCounterSnapshotDir_;
  if (!snapshots) return;
  vornAssert(clock_);
  VlanCounter* snapshot;
  try {
    snapshot = &snapshots->vlanCounterSnapshotDirectWrite(vlanId);
  } catch (const Pontil::CorruptionDetectedException& e) {
    snapshots->doCorruptionDetected(e.what());
    return;
  }
  // A VLAN without a counter record reads as all zero.
  VlanCounter totals;
  if (vlanCounterDir_) {
    try {
      totals = vlanCounterDir_->vlanCounter(vlanId);
    } catch (const Pontil::CorruptionDetectedException& e) {
      // The snapshot stays uncommitted: readers keep the previous one.
      vlanCounterDir_->doCorruptionDetected(e.what());
      return;
    }
  }
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
    snapshot->counterIs(i, totals.counter(i));
  }
  // The time of the clear, not of the last poll: readers show "since" this.
  snapshot->timestampIs(clock_->time());
  snapshots->vlanCounterSnapshotCommit(vlanId);
}

// --- framework ---

void VlanCountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Zat::PtrInterface::hasNotificationActiveIs(value);
  if (zatBridgingConfig_) zatBridgingConfig_->hasNotificationActiveIs(value);
  if (zatVlanCountersCliReq_) zatVlanCountersCliReq_->hasNotificationActiveIs(value);
  if (zatClock_) zatClock_->hasNotificationActiveIs(value);
}

void VlanCountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  if (zatBridgingConfig_) zatBridgingConfig_->zatDoZombieReactors(value);
  if (zatVlanCountersCliReq_) zatVlanCountersCliReq_->zatDoZombieReactors(value);
  if (zatClock_) zatClock_->zatDoZombieReactors(value);
  Zat::PtrInterface::zatDoZombieReactors(value);
}

void VlanCountersSm::attributesDescribe(Zat::Describer& d) const {
  d.attribute("bridgingConfig", Zat::toText(bridgingConfig_));
  d.attribute("vlanCountersCliReq", Zat::toText(vlanCountersCliReq_));
  d.attribute("vlanCounterDir", Zat::toText(vlanCounterDir_));
  d.attribute("vlanCounterSnapshotDir", Zat::toText(vlanCounterSnapshotDir_));
  d.attribute("clock", Zat::toText(clock_));
  d.attribute("vlanCountersHelper", Zat::toText(vlanCountersHelper_));
  d.attribute("pollInterval", Zat::toText(pollInterval_));
  d.attribute("initialized", Zat::toText(initialized_));
}

Zat::GenericValue VlanCountersSm::genericInvoke(std::string_view operation,
                                                const Zat::GenericArgs& args) {
  if (operation == "handleVlanConfig") {
    if (args.empty()) {
      handleVlanConfig();
    } else {
      Zat::expectArgs(operation, args, 1);
      handleVlanConfig(vlanIdArg(args[0]));
    }
  } else if (operation == "updateCounters") {
    Zat::expectArgs(operation, args, 0);
    updateCounters();
  } else if (operation == "pollIntervalIs") {
    Zat::expectArgs(operation, args, 1);
    pollIntervalIs(args[0].asDouble("pollInterval"));
  } else if (operation == "initializedIs") {
    Zat::expectArgs(operation, args, 1);
    initializedIs(args[0].asBool("initialized"));
  } else if (operation == "doTakeSnapshot") {
    Zat::expectArgs(operation, args, 1);
    doTakeSnapshot(vlanIdArg(args[0]));
  } else {
    Zat::throwUnknownOperation(*this, operation);
  }
  return Zat::GenericValue();
}

}  // namespace Vorn::Counters
