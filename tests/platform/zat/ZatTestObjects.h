// Small framework objects shared by the Zat tests: a watched object with a keyed
// attribute, reactors that follow it, and a counted object with a destructor flag.
// Every call a reactor hears is appended to a shared log so that tests can compare
// the whole sequence of deliveries at once.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "zat/Collections.h"
#include "zat/Notifiee.h"
#include "zat/Ptr.h"

namespace ZatTest {

using Log = std::vector<std::string>;

// A counted object that raises a flag when it is freed.
class Counted : public Zat::PtrInterface {
 public:
  explicit Counted(bool* freed = nullptr) : freed_(freed) {}
  ~Counted() override {
    if (freed_) *freed_ = true;
  }
  const char* fwkType() const override { return "ZatTest::Counted"; }

 private:
  bool* freed_;
};

// A watched object: `port` is a keyed attribute (int keys), `speed` another attribute.
class FakeNotifier : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kPort = "port";
  static constexpr Zat::AttributeId kSpeed = "speed";

  static Zat::Ptr<FakeNotifier> FakeNotifierIs(bool* freed = nullptr) {
    return Zat::Ptr<FakeNotifier>(new FakeNotifier(freed));
  }
  ~FakeNotifier() override {
    if (freed_) *freed_ = true;
  }

  const Zat::AttrCollection<int, int>& port() const { return port_; }
  void portIs(int key, int value) { port_.set(key, value); }
  void portDel(int key) { port_.del(key); }
  // The port collection changed as a whole: watchers hear no key.
  void portReplaced() const { notify(kPort); }
  void speedIs(int key) const { notify(kSpeed, &key); }
  size_t notifieeCount() const { return notifieeList() ? notifieeList()->size() : 0; }

  const char* fwkType() const override { return "ZatTest::FakeNotifier"; }

 private:
  explicit FakeNotifier(bool* freed) : freed_(freed), port_(this, kPort) {}
  bool* freed_;
  Zat::AttrCollection<int, int> port_;
};

// A watched object of another type, for the narrowing checks.
class OtherNotifier : public Zat::PtrInterface {
 public:
  static Zat::Ptr<OtherNotifier> OtherNotifierIs() {
    return Zat::Ptr<OtherNotifier>(new OtherNotifier());
  }
  const char* fwkType() const override { return "ZatTest::OtherNotifier"; }
};

// Follows `port` the way a generated reactor does: ignores other attributes,
// keyless calls and calls while dying; records "<name>:<key>" and then runs the
// optional action (which may delete reactors, including this one).
class PortReactor : public Zat::NotifieeOf<FakeNotifier> {
 public:
  static Zat::Ptr<PortReactor> PortReactorIs(const Zat::Ptr<const FakeNotifier>& notifier,
                                             std::string name, Log* log, bool active = true,
                                             bool* freed = nullptr) {
    Zat::Ptr<PortReactor> r(new PortReactor(notifier, std::move(name), log, freed));
    if (active) r->hasNotificationActiveIs(true);
    return r;
  }
  ~PortReactor() override {
    if (freed_) *freed_ = true;
  }

  void onAttribute(Zat::AttributeId attr, const void* key) override {
    if (attr != FakeNotifier::kPort || key == nullptr || references() < 0) return;
    int port = *static_cast<const int*>(key);
    log_->push_back(name_ + ":" + std::to_string(port));
    if (action) action(port);
  }

  const char* fwkType() const override { return "ZatTest::PortReactor"; }

  std::function<void(int)> action;

 private:
  PortReactor(const Zat::Ptr<const FakeNotifier>& notifier, std::string name, Log* log, bool* freed)
      : Zat::NotifieeOf<FakeNotifier>(notifier), name_(std::move(name)), log_(log), freed_(freed) {}
  std::string name_;
  Log* log_;
  bool* freed_;
};

// Records every call unfiltered as "<attribute>:<key>" ("-" for no key).
class RecordingReactor : public Zat::NotifieeOf<FakeNotifier> {
 public:
  static Zat::Ptr<RecordingReactor> RecordingReactorIs(const Zat::Ptr<const FakeNotifier>& notifier,
                                                       Log* log) {
    Zat::Ptr<RecordingReactor> r(new RecordingReactor(notifier, log));
    r->hasNotificationActiveIs(true);
    return r;
  }
  void onAttribute(Zat::AttributeId attr, const void* key) override {
    log_->push_back(std::string(attr) + ":" +
                    (key ? std::to_string(*static_cast<const int*>(key)) : std::string("-")));
  }

 private:
  RecordingReactor(const Zat::Ptr<const FakeNotifier>& notifier, Log* log)
      : Zat::NotifieeOf<FakeNotifier>(notifier), log_(log) {}
  Log* log_;
};

}  // namespace ZatTest
