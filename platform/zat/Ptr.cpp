#include "zat/Ptr.h"

#include <algorithm>
#include <atomic>

#include "zat/Generic.h"
#include "zat/Notifiee.h"

namespace Zat {

namespace detail {
std::atomic<bool> threadSafeRefs{false};
}

void threadSafePtrsIs(bool on) { detail::threadSafeRefs.store(on, std::memory_order_relaxed); }

void PtrInterface::zeroReferencesIs(bool value) {
  if (!value) return;
  // A negative count marks the object as dying: reactors ignore calls from now on,
  // and references taken during destruction cannot bring the count back to zero.
  refs_ = -(1L << 40);
  delete this;
}

PtrInterface::~PtrInterface() { delete notifiees_; }

void PtrInterface::notifieeAdd(NotifieeConst* n) const {
  if (!notifiees_) notifiees_ = new std::vector<NotifieeConst*>();
  notifiees_->push_back(n);
}

void PtrInterface::notifieeRemove(NotifieeConst* n) const {
  if (!notifiees_) return;
  auto it = std::find(notifiees_->begin(), notifiees_->end(), n);
  if (it == notifiees_->end()) return;
  if (notifyDepth_ > 0) {
    // A delivery walk is in progress: leave a hole so its indices stay valid.
    *it = nullptr;
    notifieesDirty_ = true;
  } else {
    notifiees_->erase(it);
  }
}

void PtrInterface::notify(AttributeId attr, const void* key) const {
  if (!notifiees_ || notifiees_->empty()) return;
  // Keep ourselves alive: a handler may drop the last other reference to us.
  Ptr<const PtrInterface> self(refs_ > 0 ? this : nullptr);
  ++notifyDepth_;
  try {
    for (size_t i = 0; i < notifiees_->size(); ++i) {
      NotifieeConst* n = (*notifiees_)[i];
      if (!n || n->dying()) continue;
      Ptr<NotifieeConst> hold(n);
      n->onAttribute(attr, key);
    }
  } catch (...) {
    --notifyDepth_;
    throw;
  }
  if (--notifyDepth_ == 0 && notifieesDirty_) {
    std::erase(*notifiees_, nullptr);
    notifieesDirty_ = false;
  }
}

void PtrInterface::attributesDescribe(Describer& d) const { d.attribute("fwkType", fwkType()); }

GenericValue PtrInterface::genericInvoke(std::string_view operation, const GenericArgs&) {
  throwUnknownOperation(*this, operation);
}

// --- NotifieeConst ---

NotifieeConst::~NotifieeConst() {
  if (registered_ && notifier_) notifier_->notifieeRemove(this);
}

void NotifieeConst::hasNotificationActiveIs(bool value) {
  PtrInterface::hasNotificationActiveIs(value);
  registrationUpdate();
}

void NotifieeConst::onAttribute(AttributeId, const void*) {}

void NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier.ptr() == notifier_.ptr()) return;
  notifierBaseIs(notifier);
}

void NotifieeConst::zatDoZombieReactors(bool value) {
  if (value == zombie()) return;
  PtrInterface::zatDoZombieReactors(value);
  registrationUpdate();
}

void NotifieeConst::notifierBaseIs(const Ptr<const PtrInterface>& notifier) {
  if (registered_ && notifier_) notifier_->notifieeRemove(this);
  registered_ = false;
  notifier_ = notifier;
  registrationUpdate();
}

void NotifieeConst::registrationUpdate() {
  bool want = hasNotificationActive() && !zombie() && notifier_;
  if (want == registered_) return;
  if (want) {
    notifier_->notifieeAdd(this);
  } else {
    notifier_->notifieeRemove(this);
  }
  registered_ = want;
}

}  // namespace Zat
