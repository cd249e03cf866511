// Texts of the errors a call raises, for tests that compare them exactly.
#pragma once

#include <functional>
#include <string>

#include "pontil/Assert.h"

namespace VornTest {

// The expression text of the fatal assertion `f` raises; "" when it raises none.
inline std::string assertTextOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const Pontil::AssertException& e) {
    return e.expression();
  }
  return "";
}

// The message of the exception of type E that `f` raises; "" when it raises none.
template <class E>
std::string messageOf(const std::function<void()>& f) {
  try {
    f();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

}  // namespace VornTest
