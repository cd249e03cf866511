// Reading the arguments of the policing machines' generic operations.
//
// The party that owns the control-plane policy reaches CountersCoppTypeSm and
// CountersCoppSm (and their dynamic flavours) only through the generic attribute
// interface, so objects arrive as plain framework references and directions as
// text or numbers. These helpers narrow them and name the argument on failure.
#pragma once

#include <string>
#include <string_view>

#include "qos/QosStatus.h"
#include "zat/Exception.h"
#include "zat/Generic.h"
#include "zat/Ptr.h"

namespace Vorn::Counters::CoppGeneric {

// The object of `value` narrowed to T; none and null give null. Raises
// Zat::Exception naming `what` when the object is of another type, so that a
// mistaken argument is not taken for an absent one.
template <class T>
Zat::Ptr<T> objectArg(const Zat::GenericValue& value, std::string_view what, const char* typeName) {
  Zat::Ptr<Zat::PtrInterface> object = value.asObject(what);
  Zat::Ptr<T> narrowed = Zat::ptr_cast<T>(object);
  if (object && !narrowed) {
    throw Zat::Exception("argument " + std::string(what) + " is not a " + typeName + ": " +
                         object->fwkType());
  }
  return narrowed;
}

// A direction given by name ("input", "output") or by number (0, 1).
inline Qos::Direction directionArg(const Zat::GenericValue& value, std::string_view what) {
  if (const auto* text = std::get_if<std::string>(&value.variant())) {
    if (*text == "input") return Qos::Direction::input;
    if (*text == "output") return Qos::Direction::output;
  }
  const auto* number = std::get_if<int64_t>(&value.variant());
  const auto* unsignedNumber = std::get_if<uint64_t>(&value.variant());
  uint64_t n = number && *number >= 0 ? static_cast<uint64_t>(*number)
               : unsignedNumber       ? *unsignedNumber
                                      : 2;
  if (n == 0) return Qos::Direction::input;
  if (n == 1) return Qos::Direction::output;
  throw Zat::Exception("argument " + std::string(what) + " is not a direction: '" + value.text() +
                       "'");
}

}  // namespace Vorn::Counters::CoppGeneric
