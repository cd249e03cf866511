// Zat generic attribute interface.
//
// Every framework object can describe itself (its attributes as text, its child
// objects by collection and key) and perform named operations given generic
// arguments. The simulator's tree dump, the reader tools and other agents use it
// to inspect a running machine and to reach operations that have no reactor, such
// as an on-demand counter update or adding a policing class machine.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "zat/Exception.h"
#include "zat/Ptr.h"

namespace Zat {

// One generic argument or result.
class GenericValue {
 public:
  using Variant =
      std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Ptr<PtrInterface>>;
  GenericValue() = default;
  GenericValue(bool v) : v_(v) {}
  GenericValue(int v) : v_(int64_t{v}) {}
  GenericValue(int64_t v) : v_(v) {}
  GenericValue(uint64_t v) : v_(v) {}
  GenericValue(double v) : v_(v) {}
  GenericValue(const char* v) : v_(std::string(v)) {}
  GenericValue(std::string v) : v_(std::move(v)) {}
  GenericValue(Ptr<PtrInterface> v) : v_(std::move(v)) {}

  const Variant& variant() const { return v_; }
  bool isNone() const { return std::holds_alternative<std::monostate>(v_); }
  // Conversions raise Zat::Exception naming `what` when the value is of another kind.
  bool asBool(std::string_view what) const;
  int64_t asInt(std::string_view what) const;
  uint64_t asUnsigned(std::string_view what) const;
  double asDouble(std::string_view what) const;
  std::string asString(std::string_view what) const;
  Ptr<PtrInterface> asObject(std::string_view what) const;
  std::string text() const;

 private:
  Variant v_;
};

// Receives an object's self-description.
class Describer {
 public:
  virtual ~Describer() = default;
  virtual void attribute(std::string_view name, const std::string& text) = 0;
  // A child object in collection `collection` under `key`.
  virtual void child(std::string_view collection, const std::string& key,
                     const PtrInterface* child) = 0;
};

// Text form of attribute values.
template <class T>
std::string toText(const T& value) {
  std::ostringstream os;
  os << value;
  return os.str();
}
inline std::string toText(bool v) { return v ? "true" : "false"; }
std::string toText(double v);
template <class T>
std::string toText(const Ptr<T>& p) {
  if (!p) return "null";
  std::ostringstream os;
  os << static_cast<const PtrInterface*>(p.ptr())->fwkType() << "@"
     << static_cast<const void*>(p.ptr());
  return os.str();
}

// All attributes of `object` as (name, text) pairs, in its declaration order.
std::vector<std::pair<std::string, std::string>> attributesOf(const PtrInterface& object);
// The child `key` of `collection` of `object`, or null.
const PtrInterface* childOf(const PtrInterface& object, std::string_view collection,
                            std::string_view key);
// Writes `object` and its children recursively, indented, one attribute per line.
void dumpTree(const PtrInterface& object, std::ostream& os, int indent = 0);

// One named operation of an object's generic interface: its argument count and
// what it runs. Objects list theirs and hand them to invokeOperation().
struct Operation {
  std::string_view name;
  size_t argCount;
  std::function<GenericValue(const GenericArgs&)> run;
};
// Runs the entry of `ops` called `operation` after checking its argument count;
// nullopt when `ops` has no such entry (the caller then asks its base class).
std::optional<GenericValue> invokeOperation(std::string_view operation, const GenericArgs& args,
                                            std::initializer_list<Operation> ops);
// Adapts a call without a result to an Operation's `run`.
template <class F>
std::function<GenericValue(const GenericArgs&)> noResult(F f) {
  return [f](const GenericArgs& a) {
    f(a);
    return GenericValue();
  };
}

// Requires: args.size() == n; otherwise raises Zat::Exception naming the operation.
void expectArgs(std::string_view operation, const GenericArgs& args, size_t n);
// Raises UnknownOperationException("unknown operation '<op>' on <type>").
[[noreturn]] void throwUnknownOperation(const PtrInterface& object, std::string_view operation);

}  // namespace Zat
