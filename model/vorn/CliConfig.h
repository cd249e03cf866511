// Command-line configuration objects the counters component follows.
//
// Vorn::Counters::CliConfig carries the configured counter poll period; port
// pollers follow it. Vorn::HwCliConfig carries clear requests: each request
// names one interface or "all" and is delivered to watchers as the key of the
// "clearCountersRequest" attribute, so clearing the same port twice notifies twice.
#pragma once

#include "zat/Generic.h"
#include "zat/String.h"

namespace Vorn {

namespace Counters {

class CliConfig : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kCounterPollPeriod = "counterPollPeriod";
  static Zat::Ptr<CliConfig> CliConfigIs() { return Zat::Ptr<CliConfig>(new CliConfig()); }

  // Seconds between polls; 0 stops polling.
  double counterPollPeriod() const { return counterPollPeriod_; }
  void counterPollPeriodIs(double seconds) {
    if (seconds == counterPollPeriod_) return;
    counterPollPeriod_ = seconds;
    notify(kCounterPollPeriod);
  }
  const char* fwkType() const override { return "Vorn::Counters::CliConfig"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("counterPollPeriod", Zat::toText(counterPollPeriod_));
  }

 private:
  CliConfig() = default;
  double counterPollPeriod_ = 0.0;
};

}  // namespace Counters

class HwCliConfig : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kClearCountersRequest = "clearCountersRequest";
  static Zat::Ptr<HwCliConfig> HwCliConfigIs() { return Zat::Ptr<HwCliConfig>(new HwCliConfig()); }

  // The last request: an interface name or "all"; empty before the first.
  const Zat::String& clearCountersRequest() const { return clearCountersRequest_; }
  // Records a request and notifies watchers with it as the key, every time.
  void clearCountersRequestIs(const Zat::String& request) {
    clearCountersRequest_ = request;
    notify(kClearCountersRequest, &clearCountersRequest_);
  }
  const char* fwkType() const override { return "Vorn::HwCliConfig"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("clearCountersRequest", Zat::toText(clearCountersRequest_));
  }

 private:
  HwCliConfig() = default;
  Zat::String clearCountersRequest_;
};

}  // namespace Vorn
