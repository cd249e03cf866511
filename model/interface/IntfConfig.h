// Interface configuration and status objects the counters component reads.
//
// The agent keeps one configuration and one status object per Ethernet port and
// per routed VLAN interface, in directories keyed by interface. The counters
// machines follow the directories (an interface's entry appearing, changing or
// going away) and read each port's load interval for its rates.
#pragma once

#include "interface/LoadInterval.h"
#include "orvo/IntfId.h"
#include "zat/Collections.h"
#include "zat/Generic.h"

namespace Interface {

// Configuration of one interface: its counter load interval (unset = global).
class IntfConfigBase : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kLoadInterval = "loadInterval";
  const Orvo::IntfId& intfId() const { return intfId_; }
  LoadInterval loadInterval() const { return loadInterval_; }
  void loadIntervalIs(LoadInterval li) {
    if (li == loadInterval_) return;
    loadInterval_ = li;
    notify(kLoadInterval);
  }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("intfId", Zat::toText(intfId_));
    d.attribute("loadInterval", Zat::toText(loadInterval_.seconds()));
  }

 protected:
  explicit IntfConfigBase(Orvo::IntfId id) : intfId_(id) {}

 private:
  Orvo::IntfId intfId_;
  LoadInterval loadInterval_;
};

// Status of one interface: whether the link is up.
class IntfStatusBase : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kOperUp = "operUp";
  const Orvo::IntfId& intfId() const { return intfId_; }
  bool operUp() const { return operUp_; }
  void operUpIs(bool up) {
    if (up == operUp_) return;
    operUp_ = up;
    notify(kOperUp);
  }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("intfId", Zat::toText(intfId_));
    d.attribute("operUp", Zat::toText(operUp_));
  }

 protected:
  explicit IntfStatusBase(Orvo::IntfId id) : intfId_(id) {}

 private:
  Orvo::IntfId intfId_;
  bool operUp_ = true;
};

#define VORN_INTF_OBJECT(Class, Base)                                                            \
  class Class : public Base {                                                                    \
   public:                                                                                       \
    static Zat::Ptr<Class> Class##Is(Orvo::IntfId id) { return Zat::Ptr<Class>(new Class(id)); } \
    const char* fwkType() const override { return "Interface::" #Class; }                        \
                                                                                                 \
   private:                                                                                      \
    explicit Class(Orvo::IntfId id) : Base(id) {}                                                \
  };

VORN_INTF_OBJECT(EthPhyIntfConfig, IntfConfigBase)
VORN_INTF_OBJECT(EthPhyIntfStatus, IntfStatusBase)
VORN_INTF_OBJECT(VlanIntfConfig, IntfConfigBase)
VORN_INTF_OBJECT(VlanIntfStatus, IntfStatusBase)
#undef VORN_INTF_OBJECT

// A directory of per-interface objects, keyed by interface. Adding, replacing
// or removing an interface's entry notifies watchers with the directory's entry
// attribute ("intfConfig" or "intfStatus") and the interface id.
#define VORN_INTF_DIR(Dir, Entry, accessor)                                                        \
  class Dir : public Zat::PtrInterface {                                                           \
   public:                                                                                         \
    static constexpr Zat::AttributeId kEntry = #accessor;                                          \
    static Zat::Ptr<Dir> Dir##Is() { return Zat::Ptr<Dir>(new Dir()); }                            \
    /* The entry of `id`, or null. */                                                              \
    Zat::Ptr<const Entry> accessor(Orvo::IntfId id) const {                                        \
      const Zat::Ptr<Entry>* e = entries_.find(id);                                                \
      return e ? Zat::Ptr<const Entry>(*e) : Zat::Ptr<const Entry>();                              \
    }                                                                                              \
    Zat::Ptr<Entry> accessor##Mutable(Orvo::IntfId id) const {                                     \
      const Zat::Ptr<Entry>* e = entries_.find(id);                                                \
      return e ? *e : Zat::Ptr<Entry>();                                                           \
    }                                                                                              \
    /* Creates the entry when absent and returns it. */                                            \
    Zat::Ptr<Entry> accessor##Is(Orvo::IntfId id) {                                                \
      if (auto e = accessor##Mutable(id)) return e;                                                \
      auto e = Entry::Entry##Is(id);                                                               \
      entries_.set(id, e);                                                                         \
      return e;                                                                                    \
    }                                                                                              \
    void accessor##Del(Orvo::IntfId id) { entries_.del(id); }                                      \
    const Zat::AttrCollection<Orvo::IntfId, Zat::Ptr<Entry>>& entries() const { return entries_; } \
    const char* fwkType() const override { return "Interface::" #Dir; }                            \
    void attributesDescribe(Zat::Describer& d) const override {                                    \
      for (const auto& [id, e] : entries_) d.child(#accessor, id.stringValue(), e.ptr());          \
    }                                                                                              \
                                                                                                   \
   private:                                                                                        \
    Dir() : entries_(this, kEntry) {}                                                              \
    Zat::AttrCollection<Orvo::IntfId, Zat::Ptr<Entry>> entries_;                                   \
  };

VORN_INTF_DIR(AllEthPhyIntfConfigDir, EthPhyIntfConfig, intfConfig)
VORN_INTF_DIR(AllEthPhyIntfStatusDir, EthPhyIntfStatus, intfStatus)
VORN_INTF_DIR(VlanIntfConfigDir, VlanIntfConfig, intfConfig)
VORN_INTF_DIR(VlanIntfStatusDir, VlanIntfStatus, intfStatus)
#undef VORN_INTF_DIR

// Global interface configuration: the load interval of interfaces without their own.
class GlobalIntfConfig : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kLoadInterval = "loadInterval";
  static Zat::Ptr<GlobalIntfConfig> GlobalIntfConfigIs() {
    return Zat::Ptr<GlobalIntfConfig>(new GlobalIntfConfig());
  }
  LoadInterval loadInterval() const { return loadInterval_; }
  void loadIntervalIs(LoadInterval li) {
    if (li == loadInterval_) return;
    loadInterval_ = li;
    notify(kLoadInterval);
  }
  const char* fwkType() const override { return "Interface::GlobalIntfConfig"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("loadInterval", Zat::toText(loadInterval_.seconds()));
  }

 private:
  GlobalIntfConfig() = default;
  LoadInterval loadInterval_ = LoadInterval(LoadInterval::kDefaultSeconds);
};

}  // namespace Interface
