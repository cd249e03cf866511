// Zat notifiees: the base of every reactor.
//
// A reactor follows one watched object (its notifier). While its notifications
// are active it is registered with the notifier and hears onAttribute() for every
// attribute change. Reactors of the counters component are nested classes of
// their state machine (CountersSm::ZatCliConfig, ...) holding a back pointer to
// the owner; they filter the attributes they follow and call the owner's handler.
#pragma once

#include <type_traits>
#include <utility>

#include "zat/Ptr.h"

namespace Zat {

class NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;
  ~NotifieeConst() override;

  const char* fwkType() const override { return "Zat::NotifieeConst"; }
  // Registers with (true) or unregisters from (false) the current notifier.
  void hasNotificationActiveIs(bool value) override;

  // Reactor operations, in this order.
  // An attribute of the notifier changed; `key` is null for a whole-collection change.
  virtual void onAttribute(AttributeId attr, const void* key);
  // Follows `notifier` instead of the current one. Narrowing to the watched type
  // is done by the typed subclass; an equal notifier changes nothing.
  virtual void notifierIs(const Ptr<const PtrInterface>& notifier);
  void zatDoZombieReactors(bool value) override;

  const PtrInterface* notifierBase() const { return notifier_.ptr(); }
  // True while registered with the notifier (active and a notifier is set).
  bool isRegisteredNotifiee() const { return registered_; }

 protected:
  void notifierBaseIs(const Ptr<const PtrInterface>& notifier);
  void registrationUpdate();

 private:
  Ptr<const PtrInterface> notifier_;
  bool registered_ = false;
};

// A notifiee of a notifier of type T.
template <class T>
class NotifieeOf : public NotifieeConst {
 public:
  using Notifier = T;
  NotifieeOf() = default;
  explicit NotifieeOf(const Ptr<const T>& notifier) { notifierBaseIs(notifier); }

  const T* notifier() const { return static_cast<const T*>(notifierBase()); }
  Ptr<const T> notifierPtr() const { return Ptr<const T>(notifier()); }

  // A notifier of the wrong type counts as null.
  void notifierIs(const Ptr<const PtrInterface>& n) override {
    const T* narrowed = dynamic_cast<const T*>(n.ptr());
    if (narrowed == notifier()) return;
    notifierBaseIs(Ptr<const PtrInterface>(narrowed));
  }
  // Forwards to the virtual overload so that subclasses (clock notifiees move
  // their deadline) see every change of notifier.
  template <class U>
  requires std::is_convertible_v<U*, const T*>
  void notifierIs(const Ptr<U>& n) {
    this->notifierIs(Ptr<const PtrInterface>(static_cast<const PtrInterface*>(n.ptr())));
  }
};

// A reactor owned by a state machine: follows a notifier of type T and calls
// handlers of its owner. The owner cuts the back pointer as it dies, so a
// reactor that something else still holds calls nobody.
template <class Owner, class T>
class OwnedReactor : public NotifieeOf<T> {
 public:
  OwnedReactor(const Ptr<const T>& notifier, Owner* owner)
      : NotifieeOf<T>(notifier), owner_(owner) {}
  void ownerDel() { owner_ = nullptr; }

 protected:
  Owner* owner() const { return owner_; }
  // Whether a change of `attr` with `key` is one this reactor follows and may deliver.
  bool follows(AttributeId attr, const void* key, AttributeId followed) const {
    return attr == followed && key && !this->dying() && owner_;
  }

 private:
  Owner* owner_;
};

// Creates reactor R on `input` (with the owner's further arguments) and switches
// its notifications on; null when the input is null, as a missing input has no reactor.
template <class R, class In, class... Args>
Ptr<R> activeReactorIs(const In& input, Args&&... args) {
  if (!input) return Ptr<R>();
  Ptr<R> reactor(new R(input, std::forward<Args>(args)...));
  reactor->hasNotificationActiveIs(true);
  return reactor;
}

}  // namespace Zat
