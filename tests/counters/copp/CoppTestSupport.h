// Shared set-up for the policing machines' tests: the two flavours (static and
// dynamic) as typed-test parameters, QoS status builders, a fake helper whose calls
// are logged, and a capturing text-trace sink that can also act on a line (to
// change collections from inside a handler).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "counters/copp/CountersCoppSm.h"
#include "counters/copp/CountersCoppTypeSm.h"
#include "counters/copp/CountersDynamicCoppSm.h"
#include "counters/copp/CountersDynamicCoppTypeSm.h"
#include "nimlog/BlockTimer.h"
#include "support/FakeHelpers.h"
#include "zat/Activity.h"
#include "zat/Trace.h"

namespace CoppTest {

using Calls = VornTest::Calls;
using Lines = std::vector<std::string>;
using Helper = VornHelper::VornHelperCountersSm;

struct StaticCopp {
  using TypeSm = Vorn::Counters::CountersCoppTypeSm;
  using ClassSm = Vorn::Counters::CountersCoppSm;
  static Zat::Ptr<TypeSm> typeSmIs(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                                   Zat::Ptr<Helper> helper) {
    return TypeSm::CountersCoppTypeSmIs(std::move(pmapType), std::move(helper));
  }
  static Zat::Ptr<ClassSm> classSmIs(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                                     Zat::Ptr<Helper> helper) {
    return ClassSm::CountersCoppSmIs(std::move(name), std::move(pmap), std::move(helper));
  }
  static constexpr const char* kTypeSmName = "CountersCoppTypeSm";
  static constexpr const char* kClassSmName = "CountersCoppSm";
  // The level-7 line of handlePolicyMap for "<name> <direction>".
  static std::string policyMapLine(const std::string& nameAndDirection) {
    return "7 Vorn::Counters::CountersCoppTypeSm::handlePolicyMap() " + nameAndDirection;
  }
  // The level-7 line of handleClass.
  static std::string classLine(const std::string& cmapName) {
    return "7 Vorn::Counters::CountersCoppSm::handleClass() " + cmapName;
  }
};

struct DynamicCopp {
  using TypeSm = Vorn::Counters::CountersDynamicCoppTypeSm;
  using ClassSm = Vorn::Counters::CountersDynamicCoppSm;
  static Zat::Ptr<TypeSm> typeSmIs(Zat::Ptr<const Qos::PolicyMapTypeHwStatus> pmapType,
                                   Zat::Ptr<Helper> helper) {
    return TypeSm::CountersDynamicCoppTypeSmIs(std::move(pmapType), std::move(helper));
  }
  static Zat::Ptr<ClassSm> classSmIs(Zat::Name name, Zat::Ptr<const Qos::PolicyMapHwStatus> pmap,
                                     Zat::Ptr<Helper> helper) {
    return ClassSm::CountersDynamicCoppSmIs(std::move(name), std::move(pmap), std::move(helper));
  }
  static constexpr const char* kTypeSmName = "CountersDynamicCoppTypeSm";
  static constexpr const char* kClassSmName = "CountersDynamicCoppSm";
  // The full signature runs straight into the name: no space between them.
  static std::string policyMapLine(const std::string& nameAndDirection) {
    return "7 void Vorn::Counters::CountersDynamicCoppTypeSm::handlePolicyMap(const "
           "Qos::PolicyMapHwStatusKey&)" +
           nameAndDirection;
  }
  static std::string classLine(const std::string& cmapName) {
    return "7 Vorn::Counters::CountersDynamicCoppSm::handleClass() " + cmapName;
  }
};

using Flavours = ::testing::Types<StaticCopp, DynamicCopp>;

struct FlavourNames {
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, StaticCopp> ? "Static" : "Dynamic";
  }
};

// The signature that names a handler's block timer and its level-8 entry line.
inline std::string signature(const char* machine, const std::string& handler) {
  return std::string("void Vorn::Counters::") + machine + "::" + handler;
}

// How often the block timer `name` has run so far (0 when it never ran).
inline uint64_t timerCount(const std::string& name) {
  auto stats = Nimlog::blockTimerStatsOf(name);
  return stats ? stats->count : 0;
}

// The calls of `helper`, sorted: classes are walked in hash order.
inline Calls sorted(Calls calls) {
  std::sort(calls.begin(), calls.end());
  return calls;
}

inline Qos::PolicyMapHwStatusKey pmapKey(Qos::Direction direction, std::string name) {
  Qos::PolicyMapHwStatusKey key;
  key.direction = direction;
  key.pmapName = std::move(name);
  return key;
}

inline Qos::PolicyMapHwStatusKey inputKey(std::string name) {
  return pmapKey(Qos::Direction::input, std::move(name));
}

// Simulated time (the fake helper stamps its calls with it), a fresh fake helper,
// and the text trace of "VornCountersSm" captured line by line.
template <class F>
class CoppFixture : public ::testing::Test {
 protected:
  using TypeSm = typename F::TypeSm;
  using ClassSm = typename F::ClassSm;

  void SetUp() override {
    Zat::activityManager()->simulatedTimeIs(true, 1000.0);
    helper = VornTest::FakeCountersHelper::FakeCountersHelperIs();
    Zat::Trace::reset();
    Zat::Trace::sinkIs([this](std::string_view module, int level, const std::string& text) {
      if (module != "VornCountersSm") return;
      lines.push_back(std::to_string(level) + " " + text);
      // Copied: the action may replace itself.
      if (auto action = onLine) action(text);
    });
  }
  void TearDown() override {
    Zat::Trace::sinkDel();
    Zat::Trace::reset();
    Zat::activityManager()->simulatedTimeIs(false);
  }

  // Captures the component's text trace up to `level`.
  void traceLevelIs(int level) { Zat::Trace::levelIs("VornCountersSm", level); }

  Zat::Ptr<VornTest::FakeCountersHelper> helper;
  Lines lines;
  std::function<void(const std::string&)> onLine;
};

}  // namespace CoppTest
