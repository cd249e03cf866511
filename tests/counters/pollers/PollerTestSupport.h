// Small helpers shared by the poller tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "pontil/Assert.h"
#include "support/ErrorText.h"
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

}  // namespace VornTest
