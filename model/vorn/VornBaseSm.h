// Vorn::VornBaseSm: base of the root and the per-interface counter machines.
//
// Holds the common data (`vcsd`) and the `initialized` flag. Setting the flag
// from false to true runs handleInitialized() once; machines also set it from
// inside their own handleInitialized(), so a repeated true is a no-op.
#pragma once

#include "vorn/VornCommonSmData.h"
#include "zat/Generic.h"

namespace Vorn {

class VornBaseSm : public Zat::PtrInterface {
 public:
  explicit VornBaseSm(const Zat::Ptr<VornCommonSmData>& vcsd) : vcsd_(vcsd) {}

  const Zat::Ptr<VornCommonSmData>& vcsd() const { return vcsd_; }
  bool initialized() const { return initialized_; }
  // false -> true stores the flag, then runs handleInitialized(); any other
  // change only stores it.
  void initializedIs(bool value) {
    if (value == initialized_) return;
    initialized_ = value;
    if (value) handleInitialized();
  }
  virtual void handleInitialized() {}

  const char* fwkType() const override { return "Vorn::VornBaseSm"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("vcsd", Zat::toText(vcsd_));
    d.attribute("initialized", Zat::toText(initialized_));
  }
  // "initializedIs" (bool) and "handleInitialized", shared by every machine.
  Zat::GenericValue genericInvoke(std::string_view operation,
                                  const Zat::GenericArgs& args) override {
    auto r = Zat::invokeOperation(
        operation, args,
        {{"initializedIs", 1, Zat::noResult([this](const Zat::GenericArgs& a) {
            initializedIs(a[0].asBool("initialized"));
          })},
         {"handleInitialized", 0,
          Zat::noResult([this](const Zat::GenericArgs&) { handleInitialized(); })}});
    return r ? *r : Zat::PtrInterface::genericInvoke(operation, args);
  }

 private:
  Zat::Ptr<VornCommonSmData> vcsd_;
  bool initialized_ = false;
};

}  // namespace Vorn
