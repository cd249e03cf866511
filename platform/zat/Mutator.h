// Zat mutator conventions shared by every `xxxIs(...)` that instantiates a child.
//
// Asking again for an existing child with equal arguments returns it unchanged;
// any differing argument is a re-instantiation error naming the attribute and
// both values. Counted references compare by identity, values by equality.
#pragma once

#include <string>

#include "zat/Exception.h"
#include "zat/Generic.h"

namespace Zat {

template <class T>
void sameOrThrowReinstantiating(const std::string& attr, const T& existing, const T& requested) {
  if (!(existing == requested)) {
    throwMutatorReinstantiating(attr, toText(existing), toText(requested));
  }
}

// Requires: p non-null; otherwise raises the null-argument error naming `argument`.
template <class T>
void requireNonNull(const T& p, const std::string& argument) {
  if (!p) throwMutatorArgNullPointerException(argument);
}

}  // namespace Zat
