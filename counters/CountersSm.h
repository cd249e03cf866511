// Vorn::Counters::CountersSm: the root state machine of the counters component.
//
// The agent creates exactly one (countersSmFactory forwards to CountersSmIs),
// hands it every directory, configuration and shared-memory table the component
// reads or writes, supplies the registration objects through the setters and
// switches it on with initializedIs(true). From then on the root decides,
// interface by interface, which poller children exist (a port, queue and
// ACL-drop poller per served Ethernet interface, a poller per CPU port and per
// routed VLAN interface), registers the interfaces it publishes, seeds and
// removes their table rows, keeps one policing type machine per followed
// policy-map type, records clear baselines and polls a child at once on request.
//
// Sources: CountersSm.cpp (construction, framework operations, collections),
// CountersSmTracking.cpp (interface decisions), CountersSmClearing.cpp (clear
// requests and on-demand updates), CountersSmCopp.cpp (policy-map types).
#pragma once

#include <string_view>

#include "counters/PlatformHelper.h"
#include "counters/copp/CountersCoppTypeSm.h"
#include "counters/copp/CountersDynamicCoppTypeSm.h"
#include "counters/pollers/CpuPortCountersSm.h"
#include "counters/pollers/IntfAclDropCountersSm.h"
#include "counters/pollers/IntfQueueCountersSm.h"
#include "counters/pollers/PortCountersSm.h"
#include "counters/pollers/VlanIntfCountersSm.h"
#include "interface/IntfConfig.h"
#include "interface/Registrations.h"
#include "orvo/IntfId.h"
#include "qos/QosStatus.h"
#include "tables/CounterTables.h"
#include "vorn/CliConfig.h"
#include "vorn/VornBaseSm.h"
#include "vorntypes/VornTypes.h"
#include "zat/Collections.h"
#include "zat/Dir.h"
#include "zat/Notifiee.h"
#include "zat/String.h"

namespace Vorn::Counters {

class CountersSm : public Vorn::VornBaseSm {
 public:
  // --- reactors: each follows one input and calls the owner's handler ---

  // Follows the `intf`, `cpuIntf` and `vlanIntf` sets of the common data.
  class ZatReactVcsd : public Zat::OwnedReactor<CountersSm, Vorn::VornCommonSmData> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override { return "Vorn::Counters::CountersSm::ZatReactVcsd"; }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows one interface's entry of the Ethernet configuration directory.
  class ZatEthPhyIntfConfigDir
      : public Zat::OwnedReactor<CountersSm, Interface::AllEthPhyIntfConfigDir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatEthPhyIntfConfigDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows one interface's entry of the Ethernet status directory.
  class ZatEthPhyIntfStatusDir
      : public Zat::OwnedReactor<CountersSm, Interface::AllEthPhyIntfStatusDir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatEthPhyIntfStatusDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows the clear requests of the hardware command-line configuration.
  class ZatCliConfig : public Zat::OwnedReactor<CountersSm, Vorn::HwCliConfig> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override { return "Vorn::Counters::CountersSm::ZatCliConfig"; }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows the policy-map types of the static slice status.
  class ZatQosSliceHwStatus : public Zat::OwnedReactor<CountersSm, Qos::SliceHwStatus> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatQosSliceHwStatus";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows the entities of the static slice status directory, by name.
  class ZatQosSliceHwStatusDir : public Zat::OwnedReactor<CountersSm, Zat::Dir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatQosSliceHwStatusDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows the policy-map types of the ACL ("dynamic") slice status.
  class ZatQosAclSliceHwStatus : public Zat::OwnedReactor<CountersSm, Qos::AclSliceHwStatus> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatQosAclSliceHwStatus";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows the entities of the ACL slice status directory, by name.
  class ZatQosAclSliceHwStatusDir : public Zat::OwnedReactor<CountersSm, Zat::Dir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatQosAclSliceHwStatusDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows one interface's entry of the VLAN interface configuration directory.
  class ZatVlanIntfConfigDir : public Zat::OwnedReactor<CountersSm, Interface::VlanIntfConfigDir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatVlanIntfConfigDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  // Follows one interface's entry of the VLAN interface status directory.
  class ZatVlanIntfStatusDir : public Zat::OwnedReactor<CountersSm, Interface::VlanIntfStatusDir> {
   public:
    using OwnedReactor::OwnedReactor;
    const char* fwkType() const override {
      return "Vorn::Counters::CountersSm::ZatVlanIntfStatusDir";
    }
    void onAttribute(Zat::AttributeId attr, const void* key) override;
  };

  using PortCountersSmCollection = Zat::ChildCollection<Orvo::IntfId, PortCountersSm>;
  using IntfQueueCountersSmCollection = Zat::ChildCollection<Orvo::IntfId, IntfQueueCountersSm>;
  using IntfAclDropCountersSmCollection = Zat::ChildCollection<Orvo::IntfId, IntfAclDropCountersSm>;
  using CpuPortCountersSmCollection = Zat::ChildCollection<Orvo::IntfId, CpuPortCountersSm>;
  using VlanIntfCountersSmCollection = Zat::ChildCollection<Orvo::IntfId, VlanIntfCountersSm>;
  using CoppTypeSmCollection = Zat::ChildCollection<Qos::MapType, CountersCoppTypeSm>;
  using CoppDynamicTypeSmCollection = Zat::ChildCollection<Qos::MapType, CountersDynamicCoppTypeSm>;

  // Allocates the root, takes the first reference and switches its
  // notifications (its reactors) on. No handler runs: the first full passes
  // wait for initializedIs(true). Every input may be null except `vcsd`,
  // and `platformHelper` is needed once the root is initialized.
  static Zat::Ptr<CountersSm> CountersSmIs(
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
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);

  ~CountersSm() override;

  // --- attributes, in declaration order (vcsd is the base's) ---
  const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir() const {
    return ethPhyIntfConfigDir_;
  }
  const Zat::Ptr<const Interface::AllEthPhyIntfStatusDir>& ethPhyIntfStatusDir() const {
    return ethPhyIntfStatusDir_;
  }
  const Zat::Ptr<Vorn::Counters::CliConfig>& cliCounterConfig() const { return cliCounterConfig_; }
  const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper() const {
    return platformHelper_;
  }
  const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig() const {
    return globalIntfConfig_;
  }
  ZatReactVcsd* reactVcsd() const { return reactVcsd_.ptr(); }

  Zat::Ptr<PortCountersSm> portCountersSm(Orvo::IntfId intfId) const {
    return portCountersSm_.get(intfId);
  }
  const PortCountersSmCollection& portCountersSm() const { return portCountersSm_; }
  Zat::Ptr<IntfQueueCountersSm> intfQueueCountersSm(Orvo::IntfId intfId) const {
    return intfQueueCountersSm_.get(intfId);
  }
  const IntfQueueCountersSmCollection& intfQueueCountersSm() const { return intfQueueCountersSm_; }
  Zat::Ptr<IntfAclDropCountersSm> intfAclDropCountersSm(Orvo::IntfId intfId) const {
    return intfAclDropCountersSm_.get(intfId);
  }
  const IntfAclDropCountersSmCollection& intfAclDropCountersSm() const {
    return intfAclDropCountersSm_;
  }

  const Zat::Ptr<Interface::QueueCounter::WriterConfig>& writerConfig() const {
    return writerConfig_;
  }
  const Zat::Ptr<Interface::EthIntfCounterWriterStatus>& ethIntfCounterWriterStatus() const {
    return ethIntfCounterWriterStatus_;
  }
  const Zat::Ptr<Interface::AclDropConfig>& aclDropConfig() const { return aclDropConfig_; }
  const Zat::Ptr<const Vorn::HwCliConfig>& cliConfig() const { return cliConfig_; }
  const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus() const { return qosSliceHwStatus_; }
  const Zat::Ptr<Zat::Dir>& qosSliceHwStatusDir() const { return qosSliceHwStatusDir_; }
  Zat::Ptr<CountersCoppTypeSm> coppTypeSm(Qos::MapType type) const { return coppTypeSm_.get(type); }
  const CoppTypeSmCollection& coppTypeSm() const { return coppTypeSm_; }
  const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus() const {
    return qosAclSliceHwStatus_;
  }
  const Zat::Ptr<Zat::Dir>& qosAclSliceHwStatusDir() const { return qosAclSliceHwStatusDir_; }
  Zat::Ptr<CountersDynamicCoppTypeSm> coppDynamicTypeSm(Qos::MapType type) const {
    return coppDynamicTypeSm_.get(type);
  }
  const CoppDynamicTypeSmCollection& coppDynamicTypeSm() const { return coppDynamicTypeSm_; }
  Zat::Ptr<CpuPortCountersSm> cpuPortCountersSm(Orvo::IntfId intfId) const {
    return cpuPortCountersSm_.get(intfId);
  }
  const CpuPortCountersSmCollection& cpuPortCountersSm() const { return cpuPortCountersSm_; }
  const Zat::Ptr<const Interface::VlanIntfConfigDir>& vlanIntfConfigDir() const {
    return vlanIntfConfigDir_;
  }
  const Zat::Ptr<const Interface::VlanIntfStatusDir>& vlanIntfStatusDir() const {
    return vlanIntfStatusDir_;
  }
  const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters() const {
    return allVlanIntfCounters_;
  }
  const Zat::Ptr<Interface::VlanIntfCounterWriterStatus>& vlanIntfCounterWriterStatus() const {
    return vlanIntfCounterWriterStatus_;
  }
  Zat::Ptr<VlanIntfCountersSm> vlanIntfCountersSm(Orvo::IntfId intfId) const {
    return vlanIntfCountersSm_.get(intfId);
  }
  const VlanIntfCountersSmCollection& vlanIntfCountersSm() const { return vlanIntfCountersSm_; }
  const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir() const {
    return intfAclDropCountersDir_;
  }
  const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters() const {
    return allIntfQueueCounters_;
  }
  const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters() const {
    return allIntfClearQueueCounters_;
  }
  const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters() const {
    return allIntfCounters_;
  }
  const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters() const {
    return allIntfClearCounters_;
  }
  // Seconds; handed to port pollers on every evaluation of their interface and
  // to the other pollers when they are created. 0.0 until set.
  double counterPollPeriod() const { return counterPollPeriod_; }

  // The reactors of the other inputs (null for a null input).
  ZatEthPhyIntfConfigDir* zatEthPhyIntfConfigDir() const { return zatEthPhyIntfConfigDir_.ptr(); }
  ZatEthPhyIntfStatusDir* zatEthPhyIntfStatusDir() const { return zatEthPhyIntfStatusDir_.ptr(); }
  ZatCliConfig* zatCliConfig() const { return zatCliConfig_.ptr(); }
  ZatQosSliceHwStatus* zatQosSliceHwStatus() const { return zatQosSliceHwStatus_.ptr(); }
  ZatQosSliceHwStatusDir* zatQosSliceHwStatusDir() const { return zatQosSliceHwStatusDir_.ptr(); }
  ZatQosAclSliceHwStatus* zatQosAclSliceHwStatus() const { return zatQosAclSliceHwStatus_.ptr(); }
  ZatQosAclSliceHwStatusDir* zatQosAclSliceHwStatusDir() const {
    return zatQosAclSliceHwStatusDir_.ptr();
  }
  ZatVlanIntfConfigDir* zatVlanIntfConfigDir() const { return zatVlanIntfConfigDir_.ptr(); }
  ZatVlanIntfStatusDir* zatVlanIntfStatusDir() const { return zatVlanIntfStatusDir_.ptr(); }

  // --- setters of the objects the agent supplies after creation ---
  void writerConfigIs(const Zat::Ptr<Interface::QueueCounter::WriterConfig>& writerConfig) {
    writerConfig_ = writerConfig;
  }
  void ethIntfCounterWriterStatusIs(
      const Zat::Ptr<Interface::EthIntfCounterWriterStatus>& ethIntfCounterWriterStatus) {
    ethIntfCounterWriterStatus_ = ethIntfCounterWriterStatus;
  }
  void aclDropConfigIs(const Zat::Ptr<Interface::AclDropConfig>& aclDropConfig) {
    aclDropConfig_ = aclDropConfig;
  }
  void allVlanIntfCountersIs(
      const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters) {
    allVlanIntfCounters_ = allVlanIntfCounters;
  }
  void vlanIntfCounterWriterStatusIs(
      const Zat::Ptr<Interface::VlanIntfCounterWriterStatus>& vlanIntfCounterWriterStatus) {
    vlanIntfCounterWriterStatus_ = vlanIntfCounterWriterStatus;
  }
  // Stores the period only: running pollers keep theirs until their interface
  // is evaluated again (port) or they are created anew (the others).
  void counterPollPeriodIs(const double& counterPollPeriod) {
    counterPollPeriod_ = counterPollPeriod;
  }

  // --- input removal: clears the attribute and drops its reactor ---
  void ethPhyIntfConfigDirDel();
  void ethPhyIntfStatusDirDel();
  void cliConfigDel();
  void qosSliceHwStatusDirDel();
  void qosAclSliceHwStatusDirDel();
  void vlanIntfConfigDirDel();
  void vlanIntfStatusDirDel();

  // --- reactor creation ---
  Zat::Ptr<ZatReactVcsd> newReactVcsd(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd);
  Zat::Ptr<ZatQosSliceHwStatus> newQosSliceHwStatus(
      const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus);
  Zat::Ptr<ZatQosAclSliceHwStatus> newQosAclSliceHwStatus(
      const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus);

  // --- virtual operations of the root, in this slot order ---
  // Follows `vcsd` with the reactVcsd reactor; an existing reactor that already
  // follows the same object is kept. A null `vcsd` drops the reactor.
  virtual void reactVcsdIs(const Zat::Ptr<Vorn::VornCommonSmData>& vcsd);
  // Clears the followed static slice status and drops its reactor.
  virtual void qosSliceHwStatusDel();
  // The same value is a no-op; another value re-points the reactor without
  // replaying the entries already present (only later changes are handled);
  // null clears it.
  virtual void qosSliceHwStatusIs(const Zat::Ptr<Qos::SliceHwStatus>& qosSliceHwStatus);
  virtual void qosAclSliceHwStatusDel();
  virtual void qosAclSliceHwStatusIs(const Zat::Ptr<Qos::AclSliceHwStatus>& qosAclSliceHwStatus);
  // Decides whether one Ethernet interface is served: registrations, table
  // rows and the port, queue and ACL-drop pollers. Idempotent; does nothing
  // before initialization.
  virtual void handleIntf(Orvo::IntfId intfId);
  // Records the current totals of one Ethernet port (by name) or of every
  // port ("all") as their clear baselines.
  virtual void doClearCounters(Zat::String name);
  // Decides whether one CPU port is served. Does nothing before initialization.
  virtual void handleCpuIntf(Orvo::IntfId intfId);

  // --- handlers ---
  // The first full passes, after the helper's countersInit.
  // Requires: platformHelper() non-null.
  void handleInitialized() override;
  // Full passes: every key of the set, whatever its value.
  void handleIntf();
  void handleCpuIntf();
  void handleVlanIntf();
  // Decides whether one routed VLAN interface is served. Idempotent; does
  // nothing before initialization.
  void handleVlanIntf(Orvo::IntfId intfId);
  // Polls one interface's counters of one kind at once; a missing child is a
  // no-op. Types 4 and 5 are never requested of this component (fatal "0").
  void updateCounters(VornTypes::CounterType type, Orvo::IntfId intfId);
  // Slice directories: the entity last added or changed becomes the followed
  // status (one of another type clears it); a removal changes nothing.
  void handleQosSliceHwStatusDir(Zat::Name name);
  void handleQosAclSliceHwStatusDir(Zat::Name name);
  // Only the control-plane map type (0) is followed; its type machine is made
  // once and never deleted here. Requires: the matching slice status for type 0.
  void handlePolicyMapType(Qos::MapType type);
  void handlePolicyMapType();
  void handleDynamicPolicyMapType(Qos::MapType type);
  void handleDynamicPolicyMapType();

  // --- child collections ---
  // Each xxxIs returns the existing child when every argument equals the
  // child's; any differing argument raises Zat::ReinstantiationException naming
  // the collection and both values (and leaves the child as it was).
  Zat::Ptr<PortCountersSm> portCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId,
      const Zat::Ptr<const Vorn::Counters::CliConfig>& cliCounterConfig,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<const Interface::EthPhyIntfConfig>& ethPhyIntfConfig,
      const Zat::Ptr<const Interface::EthPhyIntfStatus>& ethPhyIntfStatus,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfCounters,
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);
  void portCountersSmDel(Orvo::IntfId intfId) { portCountersSm_.del(intfId); }
  void portCountersSmDelAll() { portCountersSm_.delAll(); }

  Zat::Ptr<IntfQueueCountersSm> intfQueueCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double pollInterval,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<const Interface::AllEthPhyIntfConfigDir>& ethPhyIntfConfigDir,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfQueueCounters,
      const Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters>& allIntfClearQueueCounters);
  void intfQueueCountersSmDel(Orvo::IntfId intfId) { intfQueueCountersSm_.del(intfId); }
  void intfQueueCountersSmDelAll() { intfQueueCountersSm_.delAll(); }

  // The drop record is compared by its key only: its count is the poller's to
  // change, so a served interface evaluated again still matches its child.
  Zat::Ptr<IntfAclDropCountersSm> intfAclDropCountersSmIs(
      Orvo::IntfId intfId, const Zat::Ptr<const Zat::Clock>& clock,
      const Brim::Interface::DropCounter& intfAclDropCounter,
      const Zat::Ptr<Brim::Interface::AllDropCounterDir>& intfAclDropCountersDir,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);
  void intfAclDropCountersSmDel(Orvo::IntfId intfId) { intfAclDropCountersSm_.del(intfId); }
  void intfAclDropCountersSmDelAll() { intfAclDropCountersSm_.delAll(); }

  // Requires: pmapType non-null (else Zat::NullPointerException naming "pmapType").
  // The key is the map type of pmapType.
  Zat::Ptr<CountersCoppTypeSm> coppTypeSmIs(
      const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);
  void coppTypeSmDel(Qos::MapType type) { coppTypeSm_.del(type); }
  void coppTypeSmDelAll() { coppTypeSm_.delAll(); }

  Zat::Ptr<CountersDynamicCoppTypeSm> coppDynamicTypeSmIs(
      const Zat::Ptr<const Qos::PolicyMapTypeHwStatus>& pmapType,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);
  void coppDynamicTypeSmDel(Qos::MapType type) { coppDynamicTypeSm_.del(type); }
  void coppDynamicTypeSmDelAll() { coppDynamicTypeSm_.delAll(); }

  Zat::Ptr<CpuPortCountersSm> cpuPortCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper);
  void cpuPortCountersSmDel(Orvo::IntfId intfId) { cpuPortCountersSm_.del(intfId); }
  void cpuPortCountersSmDelAll() { cpuPortCountersSm_.delAll(); }

  Zat::Ptr<VlanIntfCountersSm> vlanIntfCountersSmIs(
      const Zat::Ptr<Vorn::VornCommonSmData>& vcsd, Orvo::IntfId intfId, double counterPollPeriod,
      const Zat::Ptr<const Zat::Clock>& clock,
      const Zat::Ptr<VornHelper::VornHelperCountersSm>& platformHelper,
      const Zat::Ptr<const Interface::GlobalIntfConfig>& globalIntfConfig,
      const Zat::Ptr<const Interface::VlanIntfConfig>& vlanIntfConfig,
      const Zat::Ptr<const Interface::VlanIntfStatus>& vlanIntfStatus,
      const Zat::Ptr<Interface::AllVlanIntfCounterBrim>& allVlanIntfCounters);
  void vlanIntfCountersSmDel(Orvo::IntfId intfId) { vlanIntfCountersSm_.del(intfId); }
  void vlanIntfCountersSmDelAll() { vlanIntfCountersSm_.delAll(); }

  // --- framework ---
  void hasNotificationActiveIs(bool value) override;
  void zatDoZombieReactors(bool value) override;
  const char* fwkType() const override { return "Vorn::Counters::CountersSm"; }
  // Every attribute in declaration order, then `initialized`; the children of
  // every collection, in key order.
  void attributesDescribe(Zat::Describer& d) const override;
  // "updateCounters" (type number, interface name), "counterPollPeriodIs"
  // (double), "initializedIs" (bool), "handleInitialized", "handleIntf",
  // "handleCpuIntf", "handleVlanIntf" (interface name, or none for the full
  // pass), "doClearCounters" (name or "all"), "handlePolicyMapType",
  // "handleDynamicPolicyMapType" (map type number, or none for the full pass),
  // "coppTypeSmDel", "coppDynamicTypeSmDel" (map type number),
  // "coppTypeSmDelAll", "coppDynamicTypeSmDelAll".
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override;

 protected:
  // Stores the inputs and builds the reactors of the non-null ones, the vcsd
  // reactor last. No handler runs.
  CountersSm(
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
      const Zat::Ptr<Interface::AllEthIntfCounterBrim>& allIntfClearCounters);

 private:
  // Serving and withdrawing one Ethernet interface (handleIntf's two branches).
  void serveIntf(Orvo::IntfId intfId, const Zat::Ptr<const Interface::EthPhyIntfConfig>& config,
                 const Zat::Ptr<const Interface::EthPhyIntfStatus>& status);
  void withdrawIntf(Orvo::IntfId intfId, bool configAndStatusExist);
  // The interface's ACL drop record, or a fresh zero record (also written to
  // the table) when it has none or the table could not be read.
  Brim::Interface::DropCounter aclDropCounterFor(Orvo::IntfId intfId);

  // Declaration order is the attribute order; the destructor releases them
  // in reverse. Each reactor stands right after the input it follows.
  Zat::Ptr<const Interface::AllEthPhyIntfConfigDir> ethPhyIntfConfigDir_;
  Zat::Ptr<ZatEthPhyIntfConfigDir> zatEthPhyIntfConfigDir_;
  Zat::Ptr<const Interface::AllEthPhyIntfStatusDir> ethPhyIntfStatusDir_;
  Zat::Ptr<ZatEthPhyIntfStatusDir> zatEthPhyIntfStatusDir_;
  Zat::Ptr<Vorn::Counters::CliConfig> cliCounterConfig_;
  Zat::Ptr<VornHelper::VornHelperCountersSm> platformHelper_;
  Zat::Ptr<const Interface::GlobalIntfConfig> globalIntfConfig_;
  Zat::Ptr<ZatReactVcsd> reactVcsd_;
  PortCountersSmCollection portCountersSm_;
  IntfQueueCountersSmCollection intfQueueCountersSm_;
  IntfAclDropCountersSmCollection intfAclDropCountersSm_;
  Zat::Ptr<Interface::QueueCounter::WriterConfig> writerConfig_;
  Zat::Ptr<Interface::EthIntfCounterWriterStatus> ethIntfCounterWriterStatus_;
  Zat::Ptr<Interface::AclDropConfig> aclDropConfig_;
  Zat::Ptr<const Vorn::HwCliConfig> cliConfig_;
  Zat::Ptr<ZatCliConfig> zatCliConfig_;
  Zat::Ptr<Qos::SliceHwStatus> qosSliceHwStatus_;
  Zat::Ptr<ZatQosSliceHwStatus> zatQosSliceHwStatus_;
  Zat::Ptr<Zat::Dir> qosSliceHwStatusDir_;
  Zat::Ptr<ZatQosSliceHwStatusDir> zatQosSliceHwStatusDir_;
  CoppTypeSmCollection coppTypeSm_;
  Zat::Ptr<Qos::AclSliceHwStatus> qosAclSliceHwStatus_;
  Zat::Ptr<ZatQosAclSliceHwStatus> zatQosAclSliceHwStatus_;
  Zat::Ptr<Zat::Dir> qosAclSliceHwStatusDir_;
  Zat::Ptr<ZatQosAclSliceHwStatusDir> zatQosAclSliceHwStatusDir_;
  CoppDynamicTypeSmCollection coppDynamicTypeSm_;
  CpuPortCountersSmCollection cpuPortCountersSm_;
  Zat::Ptr<const Interface::VlanIntfConfigDir> vlanIntfConfigDir_;
  Zat::Ptr<ZatVlanIntfConfigDir> zatVlanIntfConfigDir_;
  Zat::Ptr<const Interface::VlanIntfStatusDir> vlanIntfStatusDir_;
  Zat::Ptr<ZatVlanIntfStatusDir> zatVlanIntfStatusDir_;
  Zat::Ptr<Interface::AllVlanIntfCounterBrim> allVlanIntfCounters_;
  Zat::Ptr<Interface::VlanIntfCounterWriterStatus> vlanIntfCounterWriterStatus_;
  VlanIntfCountersSmCollection vlanIntfCountersSm_;
  Zat::Ptr<Brim::Interface::AllDropCounterDir> intfAclDropCountersDir_;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfQueueCounters_;
  Zat::Ptr<Interface::QueueCounter::AllIntfQueueCounters> allIntfClearQueueCounters_;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfCounters_;
  Zat::Ptr<Interface::AllEthIntfCounterBrim> allIntfClearCounters_;
  double counterPollPeriod_ = 0.0;
};

}  // namespace Vorn::Counters
