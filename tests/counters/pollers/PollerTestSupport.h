// Small helpers shared by the poller tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "pontil/Assert.h"
#include "support/FakeHelpers.h"

namespace VornTest {

// The simulated times of the fake's calls whose text starts with `prefix`, in order.
inline std::vector<double> timesOf(const FakeCountersHelper& helper, const std::string& prefix) {
  std::vector<double> out;
  for (size_t i = 0; i < helper.calls.size(); ++i) {
    if (helper.calls[i].rfind(prefix, 0) == 0) out.push_back(helper.callTimes[i]);
  }
  return out;
}

// The expression text of the assertion `f` raises; "" when it raises none.
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
