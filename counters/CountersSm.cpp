// CountersSm: construction, reactors, input setters, child collections and the
// framework operations of the root machine.
#include "counters/CountersSm.h"

#include <map>
#include <string>

#include "counters/Conventions.h"
#include "pontil/Assert.h"
#include "zat/Generic.h"
#include "zat/Mutator.h"

namespace Vorn::Counters {

namespace {

// Counted references match by identity, whatever their constness.
template <class A, class B>
void sameObjectOrThrow(const std::string& collection, const Zat::Ptr<A>& existing,
                       const Zat::Ptr<B>& requested) {
  if (!(existing == requested)) {
    Zat::throwMutatorReinstantiating(collection, Zat::toText(existing), Zat::toText(requested));
  }
}

// Lists the children of `collection` in key order, so a dump reads the same every time.
template <class Collection, class KeyText>
void describeChildren(Zat::Describer& d, std::string_view name, const Collection& collection,
                      KeyText keyText) {
  d.attribute(name, Zat::toText(collection.size()) + " entries");
  std::map<std::string, const Zat::PtrInterface*> ordered;
  for (const auto& [key, child] : collection) ordered.emplace(keyText(key), child.ptr());
  for (const auto& [key, child] : ordered) d.child(name, key, child);
}

std::string intfText(const Orvo::IntfId& id) { return id.stringValue(); }
std::string mapTypeText(const Qos::MapType& type) { return Zat::toText(type); }

template <class R>
void zombieReactor(const Zat::Ptr<R>& reactor, bool value) {
  if (reactor) reactor->zatDoZombieReactors(value);
}

template <class R>
void activate(const Zat::Ptr<R>& reactor, bool value) {
  if (reactor) reactor->hasNotificationActiveIs(value);
}

// Unregisters a reactor and releases it; a reactor still held by a delivery in
// progress hears nothing more and calls nobody.
template <class R>
void dropReactor(Zat::Ptr<R>& reactor) {
  if (!reactor) return;
  reactor->ownerDel();
  reactor->zatDoZombieReactors(true);
  reactor = nullptr;
}

Qos::MapType mapTypeArg(const Zat::GenericValue& v) {
  return static_cast<Qos::MapType>(v.asUnsigned("type"));
}

}  // namespace

// --- reactors ---

void CountersSm::ZatReactVcsd::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!key || dying() || !owner()) return;
  const auto& intfId = *static_cast<const Orvo::IntfId*>(key);
  if (attr == Vorn::VornCommonSmData::kIntf) {
    owner()->handleIntf(intfId);
  } else if (attr == Vorn::VornCommonSmData::kCpuIntf) {
    owner()->handleCpuIntf(intfId);
  } else if (attr == Vorn::VornCommonSmData::kVlanIntf) {
    owner()->handleVlanIntf(intfId);
  }
}

void CountersSm::ZatEthPhyIntfConfigDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Interface::AllEthPhyIntfConfigDir::kEntry)) return;
  owner()->handleIntf(*static_cast<const Orvo::IntfId*>(key));
}

void CountersSm::ZatEthPhyIntfStatusDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Interface::AllEthPhyIntfStatusDir::kEntry)) return;
  owner()->handleIntf(*static_cast<const Orvo::IntfId*>(key));
}

void CountersSm::ZatCliConfig::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Vorn::HwCliConfig::kClearCountersRequest)) return;
  // The handler gets its own copy: the request attribute may change under it.
  owner()->doClearCounters(*static_cast<const Zat::String*>(key));
}

void CountersSm::ZatQosSliceHwStatus::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Qos::SliceHwStatus::kPmapType)) return;
  owner()->handlePolicyMapType(*static_cast<const Qos::MapType*>(key));
}

void CountersSm::ZatQosSliceHwStatusDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Zat::Dir::kEntity)) return;
  owner()->handleQosSliceHwStatusDir(*static_cast<const Zat::Name*>(key));
}

void CountersSm::ZatQosAclSliceHwStatus::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Qos::AclSliceHwStatus::kPmapType)) return;
  owner()->handleDynamicPolicyMapType(*static_cast<const Qos::MapType*>(key));
}

void CountersSm::ZatQosAclSliceHwStatusDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Zat::Dir::kEntity)) return;
  owner()->handleQosAclSliceHwStatusDir(*static_cast<const Zat::Name*>(key));
}

void CountersSm::ZatVlanIntfConfigDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Interface::VlanIntfConfigDir::kEntry)) return;
  owner()->handleVlanIntf(*static_cast<const Orvo::IntfId*>(key));
}

void CountersSm::ZatVlanIntfStatusDir::onAttribute(Zat::AttributeId attr, const void* key) {
  if (!follows(attr, key, Interface::VlanIntfStatusDir::kEntry)) return;
  owner()->handleVlanIntf(*static_cast<const Orvo::IntfId*>(key));
}

// --- construction ---

Zat::Ptr<CountersSm> CountersSm::CountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<const Interface::AllEthPhyIntfStatusDir>& ethPhyIntfStatusDir,
    const Zat::Ptr<Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Vorn::HwCliConfig>& cliConfig,
    const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosSliceHwStatusDir,
    const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosAclSliceHwStatusDir,
    const Zat::Ptr<const Interface::VlanIntfConfigDir>& vlanIntfConfigDir,
    const Zat::Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters) {
  Zat::Ptr<CountersSm> sm(new CountersSm(
      vcsd, ethPhyIntfConfigDir, ethPhyIntfStatusDir, cliCounterConfig, platformHelper,
      globalIntfConfig, cliConfig, qosSliceHwStatus, qosSliceHwStatusDir, qosAclSliceHwStatus,
      qosAclSliceHwStatusDir, vlanIntfConfigDir, vlanIntfStatusDir, intfAclDropCountersDir,
      allIntfQueueCounters, allIntfClearQueueCounters, allIntfCounters, allIntfClearCounters));
  sm->hasNotificationActiveIs(true);
  return sm;
}

CountersSm::CountersSm(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<const Interface::AllEthPhyIntfStatusDir>& ethPhyIntfStatusDir,
    const Zat::Ptr<Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Vorn::HwCliConfig>& cliConfig,
    const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosSliceHwStatusDir,
    const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus,
    const Zat::Ptr<Zat::Dir>& qosAclSliceHwStatusDir,
    const Zat::Ptr<const Interface::VlanIntfConfigDir>& vlanIntfConfigDir,
    const Zat::Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters)
    : Vorn::VornBaseSm(vcsd),
      ethPhyIntfConfigDir_(ethPhyIntfConfigDir),
      ethPhyIntfStatusDir_(ethPhyIntfStatusDir),
      cliCounterConfig_(cliCounterConfig),
      platformHelper_(platformHelper),
      globalIntfConfig_(globalIntfConfig),
      cliConfig_(cliConfig),
      qosSliceHwStatus_(qosSliceHwStatus),
      qosSliceHwStatusDir_(qosSliceHwStatusDir),
      qosAclSliceHwStatus_(qosAclSliceHwStatus),
      qosAclSliceHwStatusDir_(qosAclSliceHwStatusDir),
      vlanIntfConfigDir_(vlanIntfConfigDir),
      vlanIntfStatusDir_(vlanIntfStatusDir),
      intfAclDropCountersDir_(intfAclDropCountersDir),
      allIntfQueueCounters_(allIntfQueueCounters),
      allIntfClearQueueCounters_(allIntfClearQueueCounters),
      allIntfCounters_(allIntfCounters),
      allIntfClearCounters_(allIntfClearCounters) {
  // Reactors in attribute order, each switched on as soon as it exists.
  zatEthPhyIntfConfigDir_ =
      Zat::activeReactorIs<ZatEthPhyIntfConfigDir>(ethPhyIntfConfigDir_, this);
  zatEthPhyIntfStatusDir_ =
      Zat::activeReactorIs<ZatEthPhyIntfStatusDir>(ethPhyIntfStatusDir_, this);
  zatCliConfig_ = Zat::activeReactorIs<ZatCliConfig>(cliConfig_, this);
  if (qosSliceHwStatus_) zatQosSliceHwStatus_ = newQosSliceHwStatus(qosSliceHwStatus_);
  zatQosSliceHwStatusDir_ =
      Zat::activeReactorIs<ZatQosSliceHwStatusDir>(qosSliceHwStatusDir_, this);
  if (qosAclSliceHwStatus_) zatQosAclSliceHwStatus_ = newQosAclSliceHwStatus(qosAclSliceHwStatus_);
  zatQosAclSliceHwStatusDir_ =
      Zat::activeReactorIs<ZatQosAclSliceHwStatusDir>(qosAclSliceHwStatusDir_, this);
  zatVlanIntfConfigDir_ = Zat::activeReactorIs<ZatVlanIntfConfigDir>(vlanIntfConfigDir_, this);
  zatVlanIntfStatusDir_ = Zat::activeReactorIs<ZatVlanIntfStatusDir>(vlanIntfStatusDir_, this);
  // Last, so that no interface set change reaches a half-built root.
  reactVcsdIs(vcsd);
}

CountersSm::~CountersSm() {
  // Reverse attribute order; collections are emptied (children marked zombies)
  // before their storage goes, and inputs go with their reactors. The virtual
  // setters are called by name: a derived machine is already gone here.
  allIntfClearCounters_ = nullptr;
  allIntfCounters_ = nullptr;
  allIntfClearQueueCounters_ = nullptr;
  allIntfQueueCounters_ = nullptr;
  intfAclDropCountersDir_ = nullptr;
  vlanIntfCountersSmDelAll();
  vlanIntfCounterWriterStatus_ = nullptr;
  allVlanIntfCounters_ = nullptr;
  vlanIntfStatusDirDel();
  vlanIntfConfigDirDel();
  cpuPortCountersSmDelAll();
  coppDynamicTypeSmDelAll();
  qosAclSliceHwStatusDirDel();
  CountersSm::qosAclSliceHwStatusDel();
  coppTypeSmDelAll();
  qosSliceHwStatusDirDel();
  CountersSm::qosSliceHwStatusDel();
  cliConfigDel();
  aclDropConfig_ = nullptr;
  ethIntfCounterWriterStatus_ = nullptr;
  writerConfig_ = nullptr;
  intfAclDropCountersSmDelAll();
  intfQueueCountersSmDelAll();
  portCountersSmDelAll();
  dropReactor(reactVcsd_);
  globalIntfConfig_ = nullptr;
  platformHelper_ = nullptr;
  cliCounterConfig_ = nullptr;
  ethPhyIntfStatusDirDel();
  ethPhyIntfConfigDirDel();
}

// --- input removal ---

void CountersSm::ethPhyIntfConfigDirDel() {
  dropReactor(zatEthPhyIntfConfigDir_);
  ethPhyIntfConfigDir_ = nullptr;
}

void CountersSm::ethPhyIntfStatusDirDel() {
  dropReactor(zatEthPhyIntfStatusDir_);
  ethPhyIntfStatusDir_ = nullptr;
}

void CountersSm::cliConfigDel() {
  dropReactor(zatCliConfig_);
  cliConfig_ = nullptr;
}

void CountersSm::qosSliceHwStatusDirDel() {
  dropReactor(zatQosSliceHwStatusDir_);
  qosSliceHwStatusDir_ = nullptr;
}

void CountersSm::qosAclSliceHwStatusDirDel() {
  dropReactor(zatQosAclSliceHwStatusDir_);
  qosAclSliceHwStatusDir_ = nullptr;
}

void CountersSm::vlanIntfConfigDirDel() {
  dropReactor(zatVlanIntfConfigDir_);
  vlanIntfConfigDir_ = nullptr;
}

void CountersSm::vlanIntfStatusDirDel() {
  dropReactor(zatVlanIntfStatusDir_);
  vlanIntfStatusDir_ = nullptr;
}

// --- reactive inputs ---

Zat::Ptr<CountersSm::ZatReactVcsd> CountersSm::newReactVcsd(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd) {
  Zat::Ptr<ZatReactVcsd> reactor(new ZatReactVcsd(vcsd, this));
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

Zat::Ptr<CountersSm::ZatQosSliceHwStatus> CountersSm::newQosSliceHwStatus(
    const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus) {
  Zat::Ptr<ZatQosSliceHwStatus> reactor(new ZatQosSliceHwStatus(qosSliceHwStatus, this));
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

Zat::Ptr<CountersSm::ZatQosAclSliceHwStatus> CountersSm::newQosAclSliceHwStatus(
    const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus) {
  Zat::Ptr<ZatQosAclSliceHwStatus> reactor(new ZatQosAclSliceHwStatus(qosAclSliceHwStatus, this));
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

void CountersSm::reactVcsdIs(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd) {
  if (reactVcsd_ && reactVcsd_->notifier() == vcsd.ptr()) return;
  dropReactor(reactVcsd_);
  if (vcsd) reactVcsd_ = newReactVcsd(vcsd);
}

void CountersSm::qosSliceHwStatusDel() {
  dropReactor(zatQosSliceHwStatus_);
  qosSliceHwStatus_ = nullptr;
}

void CountersSm::qosSliceHwStatusIs(const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus) {
  if (qosSliceHwStatus_ == qosSliceHwStatus) return;
  if (!qosSliceHwStatus) {
    qosSliceHwStatusDel();
    return;
  }
  qosSliceHwStatus_ = qosSliceHwStatus;
  if (zatQosSliceHwStatus_) {
    zatQosSliceHwStatus_->notifierIs(Zat::Ptr<const Qos::SliceHwStatus>(qosSliceHwStatus));
  } else {
    zatQosSliceHwStatus_ = newQosSliceHwStatus(qosSliceHwStatus);
  }
}

void CountersSm::qosAclSliceHwStatusDel() {
  dropReactor(zatQosAclSliceHwStatus_);
  qosAclSliceHwStatus_ = nullptr;
}

void CountersSm::qosAclSliceHwStatusIs(const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus) {
  if (qosAclSliceHwStatus_ == qosAclSliceHwStatus) return;
  if (!qosAclSliceHwStatus) {
    qosAclSliceHwStatusDel();
    return;
  }
  qosAclSliceHwStatus_ = qosAclSliceHwStatus;
  if (zatQosAclSliceHwStatus_) {
    zatQosAclSliceHwStatus_->notifierIs(Zat::Ptr<const Qos::AclSliceHwStatus>(qosAclSliceHwStatus));
  } else {
    zatQosAclSliceHwStatus_ = newQosAclSliceHwStatus(qosAclSliceHwStatus);
  }
}

// --- child collections ---

Zat::Ptr<PortCountersSm> CountersSm::portCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
    const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
    const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
    const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters) {
  // The period is not an argument: the caller sets it with counterPollPeriodIs.
  if (Zat::Ptr<PortCountersSm> existing = portCountersSm_.get(intfId)) {
    const std::string attr = "portCountersSm";
    sameObjectOrThrow(attr, existing->vcsd(), vcsd);
    sameObjectOrThrow(attr, existing->cliCounterConfig(), cliCounterConfig);
    sameObjectOrThrow(attr, existing->clock(), clock);
    sameObjectOrThrow(attr, existing->ethPhyIntfConfig(), ethPhyIntfConfig);
    sameObjectOrThrow(attr, existing->ethPhyIntfStatus(), ethPhyIntfStatus);
    sameObjectOrThrow(attr, existing->platformHelper(), platformHelper);
    sameObjectOrThrow(attr, existing->globalIntfConfig(), globalIntfConfig);
    sameObjectOrThrow(attr, existing->allIntfCounters(), allIntfCounters);
    sameObjectOrThrow(attr, existing->allIntfClearCounters(), allIntfClearCounters);
    return existing;
  }
  Zat::Ptr<PortCountersSm> child = PortCountersSm::PortCountersSmIs(
      vcsd, intfId, cliCounterConfig, clock, ethPhyIntfConfig, ethPhyIntfStatus, platformHelper,
      globalIntfConfig, allIntfCounters, allIntfClearCounters);
  portCountersSm_.insert(intfId, child);
  return child;
}

Zat::Ptr<IntfQueueCountersSm> CountersSm::intfQueueCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
    const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters) {
  if (Zat::Ptr<IntfQueueCountersSm> existing = intfQueueCountersSm_.get(intfId)) {
    const std::string attr = "intfQueueCountersSm";
    sameObjectOrThrow(attr, existing->vcsd(), vcsd);
    Zat::sameOrThrowReinstantiating(attr, existing->pollInterval(), pollInterval);
    sameObjectOrThrow(attr, existing->clock(), clock);
    sameObjectOrThrow(attr, existing->platformHelper(), platformHelper);
    sameObjectOrThrow(attr, existing->globalIntfConfig(), globalIntfConfig);
    sameObjectOrThrow(attr, existing->ethPhyIntfConfigDir(), ethPhyIntfConfigDir);
    sameObjectOrThrow(attr, existing->allIntfQueueCounters(), allIntfQueueCounters);
    sameObjectOrThrow(attr, existing->allIntfClearQueueCounters(), allIntfClearQueueCounters);
    return existing;
  }
  Zat::Ptr<IntfQueueCountersSm> child = IntfQueueCountersSm::IntfQueueCountersSmIs(
      vcsd, intfId, pollInterval, clock, platformHelper, globalIntfConfig, ethPhyIntfConfigDir,
      allIntfQueueCounters, allIntfClearQueueCounters);
  intfQueueCountersSm_.insert(intfId, child);
  return child;
}

Zat::Ptr<IntfAclDropCountersSm> CountersSm::intfAclDropCountersSmIs(
    Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
    const Brim::Interface::DropCounter& intfAclDropCounter,
    const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  if (Zat::Ptr<IntfAclDropCountersSm> existing = intfAclDropCountersSm_.get(intfId)) {
    const std::string attr = "intfAclDropCountersSm";
    sameObjectOrThrow(attr, existing->clock(), clock);
    // The poller rewrites the count on every poll, so only the key identifies the record.
    Zat::sameOrThrowReinstantiating(attr, existing->intfAclDropCounter().key(),
                                    intfAclDropCounter.key());
    sameObjectOrThrow(attr, existing->intfAclDropCountersDir(), intfAclDropCountersDir);
    sameObjectOrThrow(attr, existing->platformHelper(), platformHelper);
    return existing;
  }
  Zat::Ptr<IntfAclDropCountersSm> child = IntfAclDropCountersSm::IntfAclDropCountersSmIs(
      intfId, clock, intfAclDropCounter, intfAclDropCountersDir, platformHelper);
  intfAclDropCountersSm_.insert(intfId, child);
  return child;
}

Zat::Ptr<CountersCoppTypeSm> CountersSm::coppTypeSmIs(
    const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  Zat::requireNonNull(pmapType, "pmapType");
  const Qos::MapType type = pmapType->type();
  if (Zat::Ptr<CountersCoppTypeSm> existing = coppTypeSm_.get(type)) {
    sameObjectOrThrow("coppTypeSm", existing->pmapType(), pmapType);
    sameObjectOrThrow("coppTypeSm", existing->platformHelper(), platformHelper);
    return existing;
  }
  Zat::Ptr<CountersCoppTypeSm> child =
      CountersCoppTypeSm::CountersCoppTypeSmIs(pmapType, platformHelper);
  coppTypeSm_.insert(type, child);
  return child;
}

Zat::Ptr<CountersDynamicCoppTypeSm> CountersSm::coppDynamicTypeSmIs(
    const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  Zat::requireNonNull(pmapType, "pmapType");
  const Qos::MapType type = pmapType->type();
  if (Zat::Ptr<CountersDynamicCoppTypeSm> existing = coppDynamicTypeSm_.get(type)) {
    sameObjectOrThrow("coppDynamicTypeSm", existing->pmapType(), pmapType);
    sameObjectOrThrow("coppDynamicTypeSm", existing->platformHelper(), platformHelper);
    return existing;
  }
  Zat::Ptr<CountersDynamicCoppTypeSm> child =
      CountersDynamicCoppTypeSm::CountersDynamicCoppTypeSmIs(pmapType, platformHelper);
  coppDynamicTypeSm_.insert(type, child);
  return child;
}

Zat::Ptr<CpuPortCountersSm> CountersSm::cpuPortCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper) {
  if (Zat::Ptr<CpuPortCountersSm> existing = cpuPortCountersSm_.get(intfId)) {
    const std::string attr = "cpuPortCountersSm";
    sameObjectOrThrow(attr, existing->vcsd(), vcsd);
    Zat::sameOrThrowReinstantiating(attr, existing->counterPollPeriod(), counterPollPeriod);
    sameObjectOrThrow(attr, existing->clock(), clock);
    sameObjectOrThrow(attr, existing->platformHelper(), platformHelper);
    return existing;
  }
  Zat::Ptr<CpuPortCountersSm> child = CpuPortCountersSm::CpuPortCountersSmIs(
      vcsd, intfId, counterPollPeriod, clock, platformHelper);
  cpuPortCountersSm_.insert(intfId, child);
  return child;
}

Zat::Ptr<VlanIntfCountersSm> CountersSm::vlanIntfCountersSmIs(
    const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
    const Zat::Ptr<const Zat::Clock>& clock,
    const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
    const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
    const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
    const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters) {
  if (Zat::Ptr<VlanIntfCountersSm> existing = vlanIntfCountersSm_.get(intfId)) {
    const std::string attr = "vlanIntfCountersSm";
    sameObjectOrThrow(attr, existing->vcsd(), vcsd);
    Zat::sameOrThrowReinstantiating(attr, existing->counterPollPeriod(), counterPollPeriod);
    sameObjectOrThrow(attr, existing->clock(), clock);
    sameObjectOrThrow(attr, existing->platformHelper(), platformHelper);
    sameObjectOrThrow(attr, existing->globalIntfConfig(), globalIntfConfig);
    sameObjectOrThrow(attr, existing->vlanIntfConfig(), vlanIntfConfig);
    sameObjectOrThrow(attr, existing->vlanIntfStatus(), vlanIntfStatus);
    sameObjectOrThrow(attr, existing->allVlanIntfCounters(), allVlanIntfCounters);
    return existing;
  }
  Zat::Ptr<VlanIntfCountersSm> child = VlanIntfCountersSm::VlanIntfCountersSmIs(
      vcsd, intfId, counterPollPeriod, clock, platformHelper, globalIntfConfig, vlanIntfConfig,
      vlanIntfStatus, allVlanIntfCounters);
  vlanIntfCountersSm_.insert(intfId, child);
  return child;
}

// --- initialization ---

void CountersSm::handleInitialized() {
  VORN_HANDLER("void Vorn::Counters::CountersSm::handleInitialized()");
  vornAssertText(platformHelper_, "platformHelper()");
  // The platform prepares its counter machinery before any child exists.
  Zat::Ptr<VornHelper::VornHelperCountersSm> helper = platformHelper_;
  helper->countersInit();
  initializedIs(true);
  // Ethernet ports (with their queue and ACL-drop pollers) first, then the
  // policing types, then CPU ports, then VLAN interfaces.
  handleIntf();
  handlePolicyMapType();
  handleDynamicPolicyMapType();
  handleCpuIntf();
  handleVlanIntf();
}

// --- framework ---

void CountersSm::hasNotificationActiveIs(bool value) {
  if (value == hasNotificationActive()) return;
  Vorn::VornBaseSm::hasNotificationActiveIs(value);
  auto children = [value](const auto& collection) {
    collection.forEachChild([value](const auto& child) { child->hasNotificationActiveIs(value); });
  };
  activate(zatEthPhyIntfConfigDir_, value);
  activate(zatEthPhyIntfStatusDir_, value);
  activate(reactVcsd_, value);
  children(portCountersSm_);
  children(intfQueueCountersSm_);
  children(intfAclDropCountersSm_);
  activate(zatCliConfig_, value);
  activate(zatQosSliceHwStatus_, value);
  activate(zatQosSliceHwStatusDir_, value);
  children(coppTypeSm_);
  activate(zatQosAclSliceHwStatus_, value);
  activate(zatQosAclSliceHwStatusDir_, value);
  children(coppDynamicTypeSm_);
  children(cpuPortCountersSm_);
  activate(zatVlanIntfConfigDir_, value);
  activate(zatVlanIntfStatusDir_, value);
  children(vlanIntfCountersSm_);
}

void CountersSm::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  // Children are not visited: they die when their collections are emptied.
  zombieReactor(zatEthPhyIntfConfigDir_, value);
  zombieReactor(zatEthPhyIntfStatusDir_, value);
  zombieReactor(reactVcsd_, value);
  zombieReactor(zatCliConfig_, value);
  zombieReactor(zatQosSliceHwStatus_, value);
  zombieReactor(zatQosSliceHwStatusDir_, value);
  zombieReactor(zatQosAclSliceHwStatus_, value);
  zombieReactor(zatQosAclSliceHwStatusDir_, value);
  zombieReactor(zatVlanIntfConfigDir_, value);
  zombieReactor(zatVlanIntfStatusDir_, value);
  Vorn::VornBaseSm::zatDoZombieReactors(value);
}

void CountersSm::attributesDescribe(Zat::Describer& d) const {
  d.attribute("vcsd", Zat::toText(vcsd()));
  d.attribute("ethPhyIntfConfigDir", Zat::toText(ethPhyIntfConfigDir_));
  d.attribute("ethPhyIntfStatusDir", Zat::toText(ethPhyIntfStatusDir_));
  d.attribute("cliCounterConfig", Zat::toText(cliCounterConfig_));
  d.attribute("platformHelper", Zat::toText(platformHelper_));
  d.attribute("globalIntfConfig", Zat::toText(globalIntfConfig_));
  d.attribute("reactVcsd", Zat::toText(reactVcsd_));
  describeChildren(d, "portCountersSm", portCountersSm_, intfText);
  describeChildren(d, "intfQueueCountersSm", intfQueueCountersSm_, intfText);
  describeChildren(d, "intfAclDropCountersSm", intfAclDropCountersSm_, intfText);
  d.attribute("writerConfig", Zat::toText(writerConfig_));
  d.attribute("ethIntfCounterWriterStatus", Zat::toText(ethIntfCounterWriterStatus_));
  d.attribute("aclDropConfig", Zat::toText(aclDropConfig_));
  d.attribute("cliConfig", Zat::toText(cliConfig_));
  d.attribute("qosSliceHwStatus", Zat::toText(qosSliceHwStatus_));
  d.attribute("qosSliceHwStatusDir", Zat::toText(qosSliceHwStatusDir_));
  describeChildren(d, "coppTypeSm", coppTypeSm_, mapTypeText);
  d.attribute("qosAclSliceHwStatus", Zat::toText(qosAclSliceHwStatus_));
  d.attribute("qosAclSliceHwStatusDir", Zat::toText(qosAclSliceHwStatusDir_));
  describeChildren(d, "coppDynamicTypeSm", coppDynamicTypeSm_, mapTypeText);
  describeChildren(d, "cpuPortCountersSm", cpuPortCountersSm_, intfText);
  d.attribute("vlanIntfConfigDir", Zat::toText(vlanIntfConfigDir_));
  d.attribute("vlanIntfStatusDir", Zat::toText(vlanIntfStatusDir_));
  d.attribute("allVlanIntfCounters", Zat::toText(allVlanIntfCounters_));
  d.attribute("vlanIntfCounterWriterStatus", Zat::toText(vlanIntfCounterWriterStatus_));
  describeChildren(d, "vlanIntfCountersSm", vlanIntfCountersSm_, intfText);
  d.attribute("intfAclDropCountersDir", Zat::toText(intfAclDropCountersDir_));
  d.attribute("allIntfQueueCounters", Zat::toText(allIntfQueueCounters_));
  d.attribute("allIntfClearQueueCounters", Zat::toText(allIntfClearQueueCounters_));
  d.attribute("allIntfCounters", Zat::toText(allIntfCounters_));
  d.attribute("allIntfClearCounters", Zat::toText(allIntfClearCounters_));
  d.attribute("counterPollPeriod", Zat::toText(counterPollPeriod_));
  d.attribute("initialized", Zat::toText(initialized()));
}

Zat::GenericValue CountersSm::genericInvoke(std::string_view operation,
                                            const Zat::GenericArgs& args) {
  // Operations that take an interface, or none for the full pass.
  auto intfOperation = [&](auto perIntf, auto fullPass) {
    if (args.empty()) {
      (this->*fullPass)();
    } else {
      Zat::expectArgs(operation, args, 1);
      (this->*perIntf)(Orvo::IntfId(args[0].asString("intfId")));
    }
  };
  auto mapTypeOperation = [&](auto perType, auto fullPass) {
    if (args.empty()) {
      (this->*fullPass)();
    } else {
      Zat::expectArgs(operation, args, 1);
      (this->*perType)(mapTypeArg(args[0]));
    }
  };
  using IntfHandler = void (CountersSm::*)(Orvo::IntfId);
  using FullPass = void (CountersSm::*)();
  using TypeHandler = void (CountersSm::*)(Qos::MapType);

  if (operation == "updateCounters") {
    Zat::expectArgs(operation, args, 2);
    updateCounters(static_cast<VornTypes::CounterType>(args[0].asUnsigned("type")),
                   Orvo::IntfId(args[1].asString("intfId")));
  } else if (operation == "counterPollPeriodIs") {
    Zat::expectArgs(operation, args, 1);
    counterPollPeriodIs(args[0].asDouble("counterPollPeriod"));
  } else if (operation == "initializedIs") {
    Zat::expectArgs(operation, args, 1);
    initializedIs(args[0].asBool("initialized"));
  } else if (operation == "handleInitialized") {
    Zat::expectArgs(operation, args, 0);
    handleInitialized();
  } else if (operation == "handleIntf") {
    intfOperation(static_cast<IntfHandler>(&CountersSm::handleIntf),
                  static_cast<FullPass>(&CountersSm::handleIntf));
  } else if (operation == "handleCpuIntf") {
    intfOperation(static_cast<IntfHandler>(&CountersSm::handleCpuIntf),
                  static_cast<FullPass>(&CountersSm::handleCpuIntf));
  } else if (operation == "handleVlanIntf") {
    intfOperation(static_cast<IntfHandler>(&CountersSm::handleVlanIntf),
                  static_cast<FullPass>(&CountersSm::handleVlanIntf));
  } else if (operation == "doClearCounters") {
    Zat::expectArgs(operation, args, 1);
    doClearCounters(Zat::String(args[0].asString("name")));
  } else if (operation == "handlePolicyMapType") {
    mapTypeOperation(static_cast<TypeHandler>(&CountersSm::handlePolicyMapType),
                     static_cast<FullPass>(&CountersSm::handlePolicyMapType));
  } else if (operation == "handleDynamicPolicyMapType") {
    mapTypeOperation(static_cast<TypeHandler>(&CountersSm::handleDynamicPolicyMapType),
                     static_cast<FullPass>(&CountersSm::handleDynamicPolicyMapType));
  } else if (operation == "coppTypeSmDel") {
    Zat::expectArgs(operation, args, 1);
    coppTypeSmDel(mapTypeArg(args[0]));
  } else if (operation == "coppTypeSmDelAll") {
    Zat::expectArgs(operation, args, 0);
    coppTypeSmDelAll();
  } else if (operation == "coppDynamicTypeSmDel") {
    Zat::expectArgs(operation, args, 1);
    coppDynamicTypeSmDel(mapTypeArg(args[0]));
  } else if (operation == "coppDynamicTypeSmDelAll") {
    Zat::expectArgs(operation, args, 0);
    coppDynamicTypeSmDelAll();
  } else {
    return Vorn::VornBaseSm::genericInvoke(operation, args);
  }
  return Zat::GenericValue();
}

}  // namespace Vorn::Counters
