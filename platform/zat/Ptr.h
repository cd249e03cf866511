// Zat: the object framework the counters component is written against.
//
// Every framework object derives from PtrInterface and is held by Zat::Ptr, an
// intrusive counted reference: copying takes a reference, release drops it, and
// the last release frees the object. Objects may be watched: notifiees (reactors)
// register with an object and hear about attribute changes through notify().
// Every object also answers the generic attribute interface (Generic.h), through
// which tools list and read attributes and invoke named operations.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Zat {

// Identifies an attribute of a watched object in notifications. Names are used
// (rather than numbers) so that a reactor and its notifier need share no table.
using AttributeId = std::string_view;

class NotifieeConst;
class Describer;
class GenericValue;
using GenericArgs = std::vector<GenericValue>;

namespace detail {
extern std::atomic<bool> threadSafeRefs;
}

// Reference counts are atomic only when this global switch is on; the agent
// turns it on when objects are shared between threads. Default: off.
void threadSafePtrsIs(bool on);
inline bool threadSafePtrs() { return detail::threadSafeRefs.load(std::memory_order_relaxed); }

class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // The framework's virtual operations, in this order.
  virtual const std::vector<NotifieeConst*>* notifieeList() const { return notifiees_; }
  // Switches this object's own notifications; machines extend it to their
  // reactors and children. Base: stores the flag.
  virtual void hasNotificationActiveIs(bool value) { notificationActive_ = value; }
  // Called when the last reference is released; the base frees the object.
  virtual void zeroReferencesIs(bool value);
  virtual const char* fwkType() const { return "Zat::PtrInterface"; }
  virtual ~PtrInterface();
  // Marks the object for deletion; machines first pass the call to their reactors.
  virtual void zatDoZombieReactors(bool value) { zombie_ = value; }

  // Generic attribute interface (see Generic.h).
  virtual void attributesDescribe(Describer& d) const;
  virtual GenericValue genericInvoke(std::string_view operation, const GenericArgs& args);

  bool hasNotificationActive() const { return notificationActive_; }
  // Marked for deletion: no handler of a zombie runs again.
  bool zombie() const { return zombie_; }
  // The reference count; negative while the object is being destroyed.
  long references() const { return refs_; }
  // True while the object is being torn down or was marked for deletion.
  bool dying() const { return refs_ < 0 || zombie_; }

  // Inline: every copy and release of a reference runs one, several per poll.
  void newRef() const {
    if (threadSafePtrs()) [[unlikely]] {
      std::atomic_ref<long>(refs_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++refs_;
    }
  }
  void deleteRef() const {
    long left;
    if (threadSafePtrs()) [[unlikely]] {
      left = std::atomic_ref<long>(refs_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = --refs_;
    }
    if (left == 0) const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
  }

  // Tells every registered, active notifiee that `attr` changed. `key` points at
  // the changed entry's key (its type is fixed by the attribute), or is null for
  // a change of the attribute as a whole. Notifiees may register, unregister or
  // die during the call: the walk is by index and skips removed entries.
  void notify(AttributeId attr, const void* key = nullptr) const;

  // Used by NotifieeConst; not for general use.
  void notifieeAdd(NotifieeConst* n) const;
  void notifieeRemove(NotifieeConst* n) const;

 private:
  mutable long refs_ = 0;
  mutable std::vector<NotifieeConst*>* notifiees_ = nullptr;
  mutable int notifyDepth_ = 0;
  mutable bool notifieesDirty_ = false;
  bool notificationActive_ = false;
  bool zombie_ = false;
};

// Intrusive counted reference to a framework object.
template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) { acquire(); }
  Ptr(const Ptr& o) : p_(o.p_) { acquire(); }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& o) : p_(o.ptr()) { acquire(); }
  ~Ptr() { release(); }
  Ptr& operator=(const Ptr& o) {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) {
    Ptr().swap(*this);
    return *this;
  }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }

  template <class U>
  bool operator==(const Ptr<U>& o) const {
    return static_cast<const void*>(p_) == static_cast<const void*>(o.ptr());
  }
  bool operator==(std::nullptr_t) const { return p_ == nullptr; }

 private:
  void acquire() const {
    if (p_) static_cast<const PtrInterface*>(p_)->newRef();
  }
  void release() {
    if (p_) static_cast<const PtrInterface*>(std::exchange(p_, nullptr))->deleteRef();
  }
  T* p_ = nullptr;
};

// Type-safe downcast of a counted reference; null when `p` is of another type.
template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) {
  return Ptr<T>(dynamic_cast<T*>(p.ptr()));
}

}  // namespace Zat
