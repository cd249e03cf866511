#include "zat/Generic.h"

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>

#include "zat/Dir.h"

namespace Zat {

namespace {
[[noreturn]] void wrongKind(std::string_view what, const GenericValue& v) {
  throw Exception("argument " + std::string(what) + " has the wrong kind: '" + v.text() + "'");
}
}  // namespace

bool GenericValue::asBool(std::string_view what) const {
  if (auto* b = std::get_if<bool>(&v_)) return *b;
  if (auto* s = std::get_if<std::string>(&v_)) {
    if (*s == "true" || *s == "1") return true;
    if (*s == "false" || *s == "0") return false;
  }
  wrongKind(what, *this);
}

int64_t GenericValue::asInt(std::string_view what) const {
  if (auto* i = std::get_if<int64_t>(&v_)) return *i;
  if (auto* u = std::get_if<uint64_t>(&v_); u && *u <= static_cast<uint64_t>(INT64_MAX)) {
    return static_cast<int64_t>(*u);
  }
  if (auto* s = std::get_if<std::string>(&v_)) {
    try {
      size_t used = 0;
      long long v = std::stoll(*s, &used, 10);
      if (used == s->size()) return v;
    } catch (const std::exception&) {
    }
  }
  wrongKind(what, *this);
}

uint64_t GenericValue::asUnsigned(std::string_view what) const {
  if (auto* u = std::get_if<uint64_t>(&v_)) return *u;
  if (auto* i = std::get_if<int64_t>(&v_); i && *i >= 0) return static_cast<uint64_t>(*i);
  if (auto* s = std::get_if<std::string>(&v_);
      s && !s->empty() && std::isdigit(static_cast<unsigned char>((*s)[0]))) {
    try {
      size_t used = 0;
      unsigned long long v = std::stoull(*s, &used, 10);
      if (used == s->size()) return v;
    } catch (const std::exception&) {
    }
  }
  wrongKind(what, *this);
}

double GenericValue::asDouble(std::string_view what) const {
  if (auto* d = std::get_if<double>(&v_)) return *d;
  if (auto* i = std::get_if<int64_t>(&v_)) return static_cast<double>(*i);
  if (auto* u = std::get_if<uint64_t>(&v_)) return static_cast<double>(*u);
  if (auto* s = std::get_if<std::string>(&v_)) {
    try {
      size_t used = 0;
      double v = std::stod(*s, &used);
      if (used == s->size()) return v;
    } catch (const std::exception&) {
    }
  }
  wrongKind(what, *this);
}

std::string GenericValue::asString(std::string_view what) const {
  if (auto* s = std::get_if<std::string>(&v_)) return *s;
  wrongKind(what, *this);
}

Ptr<PtrInterface> GenericValue::asObject(std::string_view what) const {
  if (auto* p = std::get_if<Ptr<PtrInterface>>(&v_)) return *p;
  if (isNone()) return Ptr<PtrInterface>();
  wrongKind(what, *this);
}

std::string GenericValue::text() const {
  return std::visit(
      [](const auto& v) -> std::string {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return "none";
        } else if constexpr (std::is_same_v<T, std::string>) {
          return v;
        } else {
          return toText(v);
        }
      },
      v_);
}

std::string toText(double v) {
  if (std::isnan(v)) return "nan";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.9g", v);
  return buf;
}

namespace {
struct CollectingDescriber : Describer {
  std::vector<std::pair<std::string, std::string>> attrs;
  std::vector<std::tuple<std::string, std::string, const PtrInterface*>> children;
  void attribute(std::string_view name, const std::string& text) override {
    attrs.emplace_back(std::string(name), text);
  }
  void child(std::string_view collection, const std::string& key, const PtrInterface* c) override {
    children.emplace_back(std::string(collection), key, c);
  }
};
}  // namespace

std::vector<std::pair<std::string, std::string>> attributesOf(const PtrInterface& object) {
  CollectingDescriber d;
  object.attributesDescribe(d);
  return d.attrs;
}

const PtrInterface* childOf(const PtrInterface& object, std::string_view collection,
                            std::string_view key) {
  CollectingDescriber d;
  object.attributesDescribe(d);
  for (const auto& [c, k, p] : d.children) {
    if (c == collection && k == key) return p;
  }
  return nullptr;
}

void dumpTree(const PtrInterface& object, std::ostream& os, int indent) {
  CollectingDescriber d;
  object.attributesDescribe(d);
  std::string pad(static_cast<size_t>(indent) * 2, ' ');
  os << pad << object.fwkType() << "\n";
  for (const auto& [name, text] : d.attrs) os << pad << "  " << name << ": " << text << "\n";
  for (const auto& [coll, key, child] : d.children) {
    os << pad << "  " << coll << "[" << key << "]:\n";
    if (child) dumpTree(*child, os, indent + 2);
  }
}

void expectArgs(std::string_view operation, const GenericArgs& args, size_t n) {
  if (args.size() != n) {
    throw Exception("operation " + std::string(operation) + " takes " + std::to_string(n) +
                    " argument(s), got " + std::to_string(args.size()));
  }
}

std::optional<GenericValue> invokeOperation(std::string_view operation, const GenericArgs& args,
                                            std::initializer_list<Operation> ops) {
  for (const Operation& op : ops) {
    if (op.name != operation) continue;
    expectArgs(operation, args, op.argCount);
    return op.run(args);
  }
  return std::nullopt;
}

void throwUnknownOperation(const PtrInterface& object, std::string_view operation) {
  throw UnknownOperationException("unknown operation '" + std::string(operation) + "' on " +
                                  object.fwkType());
}

void Dir::attributesDescribe(Describer& d) const {
  d.attribute("name", toText(name_));
  for (const auto& [name, e] : entity_) d.child("entity", name.stringValue(), e.ptr());
}

}  // namespace Zat
