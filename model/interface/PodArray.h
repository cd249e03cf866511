// Interface::QueueCounter::PodArray: a fixed-capacity array with a 32-bit
// element count, laid out flat so that it can live inside a shared-memory record.
//
// The count is data like any other field of the record, so a damaged table can
// hold a count above the capacity. Every access checks it and raises
// Zat::SizeException (message from podArraySizeMessage) rather than read or
// write past the array; callers walking a table hand that to its corruption hook.
// Elements at or beyond the count are kept zero, so records compare bytewise.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

namespace Interface::QueueCounter {

// "PodArray::set expected size <= <capacity>, instead got <count>. Buffer is at
// address: 0x<address> with contents: <the `bytes` bytes at address, in hex>".
std::string podArraySizeMessage(size_t capacity, size_t count, const void* address, size_t bytes);
// Raises Zat::SizeException with podArraySizeMessage(...).
[[noreturn]] void throwPodArraySize(size_t capacity, size_t count, const void* address,
                                    size_t bytes);

template <class T, size_t N>
class PodArray {
  static_assert(std::is_trivially_copyable_v<T> && alignof(T) <= 8 && sizeof(T) % 8 == 0);
  static_assert(N <= UINT32_MAX);

 public:
  static constexpr size_t kCapacity = N;

  constexpr PodArray() = default;

  // The number of elements in use. Raises Zat::SizeException if the stored count
  // exceeds kCapacity.
  size_t size() const {
    checkCount();
    return count_;
  }

  // Sets the number of elements in use; elements that enter or leave the used
  // range are zeroed. Requires: count <= kCapacity; raises Zat::SizeException
  // otherwise, as it does for a stored count above kCapacity.
  void set(size_t count) {
    if (count > N) throwSize(count);
    size_t old = size();
    for (size_t i = count; i < old; ++i) elements_[i] = T();
    for (size_t i = old; i < count; ++i) elements_[i] = T();
    count_ = static_cast<uint32_t>(count);
  }

  // Element `index`, or a zero element when index >= size().
  T element(size_t index) const { return index < size() ? elements_[index] : T(); }

  // Stores element `index`, growing the count to index + 1 when needed (the
  // elements skipped are zero). Raises Zat::SizeException if index >= kCapacity.
  void elementIs(size_t index, const T& value) {
    if (index >= size()) set(index + 1);
    elements_[index] = value;
  }

  // The count as stored, unchecked: for reports about a damaged record.
  uint32_t storedCount() const { return count_; }

  // Raw access for readings that claim more entries than an array holds (a
  // helper's queue reading): the caller checks every index against its own bound
  // before use. Requires: index < N.
  T rawElement(size_t index) const { return index < N ? elements_[index] : T(); }
  // Stores a count without checking it, as a damaged or over-long reading would.
  void storedCountIs(uint32_t count) { count_ = count; }

  friend bool operator==(const PodArray&, const PodArray&) = default;

 private:
  void checkCount() const {
    if (count_ > N) throwSize(count_);
  }
  [[noreturn]] void throwSize(size_t count) const {
    throwPodArraySize(N, count, this, sizeof(*this));
  }

  uint32_t count_ = 0;
  uint32_t spare_ = 0;  // keeps the elements 8-aligned; always 0
  T elements_[N] = {};
};

// Prints "[e0, e1, ...]"; a damaged count prints as such instead of raising,
// so that a record can be shown in the report of its own damage.
template <class T, size_t N>
std::ostream& operator<<(std::ostream& os, const PodArray<T, N>& array) {
  if (array.storedCount() > N) return os << "[damaged: count " << array.storedCount() << "]";
  os << "[";
  for (size_t i = 0; i < array.storedCount(); ++i) os << (i ? ", " : "") << array.element(i);
  return os << "]";
}

}  // namespace Interface::QueueCounter
