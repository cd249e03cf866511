#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "pontil/Assert.h"

namespace Pontil {
namespace {

TEST(VornAssert, FailedConditionRaisesWithExpressionModuleAndLine) {
  int expectedLine = 0;
  try {
    expectedLine = __LINE__ + 1;
    vornAssert(1 == 2);
    FAIL() << "no exception";
  } catch (const AssertException& e) {
    EXPECT_EQ(e.expression(), "1 == 2");
    EXPECT_EQ(e.module(), "AssertTest");
    EXPECT_EQ(e.line(), expectedLine);
    EXPECT_EQ(std::string(e.what()),
              "assertion failed: 1 == 2 (AssertTest:" + std::to_string(expectedLine) + ")");
  }
}

TEST(VornAssert, PassingConditionIsEvaluatedOnceAndDoesNothing) {
  int evaluations = 0;
  EXPECT_NO_THROW(vornAssert(++evaluations == 1));
  EXPECT_EQ(evaluations, 1);
}

TEST(VornAssert, ExpressionTextIsTheConditionAsWritten) {
  unsigned errors = 5;
  unsigned total = 3;
  try {
    vornAssert(errors <= total && total != 0);
    FAIL() << "no exception";
  } catch (const AssertException& e) {
    EXPECT_EQ(e.expression(), "errors <= total && total != 0");
  }
}

TEST(VornAssertText, FailedConditionCarriesTheGivenText) {
  int expectedLine = 0;
  int queueIndex = 18;
  try {
    expectedLine = __LINE__ + 1;
    vornAssertText(queueIndex < 16, "queue index within bounds");
    FAIL() << "no exception";
  } catch (const AssertException& e) {
    EXPECT_EQ(e.expression(), "queue index within bounds");
    EXPECT_EQ(e.module(), "AssertTest");
    EXPECT_EQ(e.line(), expectedLine);
    EXPECT_EQ(std::string(e.what()), "assertion failed: queue index within bounds (AssertTest:" +
                                         std::to_string(expectedLine) + ")");
  }
  EXPECT_NO_THROW(vornAssertText(queueIndex > 16, "never shown"));
}

TEST(VornAssert, AssertExceptionIsALogicError) {
  EXPECT_THROW(vornAssert(false), std::logic_error);
}

TEST(DebugAndThrowAssertException, ReducesThePathToTheModuleName) {
  try {
    debugAndThrowAssertException("a < b", "/src/counters/pollers/PortCountersSm.cpp", 42);
    FAIL() << "no exception";
  } catch (const AssertException& e) {
    EXPECT_EQ(e.module(), "PortCountersSm");
    EXPECT_STREQ(e.what(), "assertion failed: a < b (PortCountersSm:42)");
  }
}

TEST(ModuleOf, KeepsTheFileNameWithoutDirectoryOrExtension) {
  EXPECT_EQ(moduleOf("counters/CountersSm.cpp"), "CountersSm");
  EXPECT_EQ(moduleOf("CountersSm.h"), "CountersSm");
  EXPECT_EQ(moduleOf("/abs/path/NoExtension"), "NoExtension");
  EXPECT_EQ(moduleOf(nullptr), "");
}

TEST(CorruptionDetectedException, CarriesItsMessage) {
  try {
    throw CorruptionDetectedException("table allIntfCounters: bad magic");
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "table allIntfCounters: bad magic");
  }
}

}  // namespace
}  // namespace Pontil
