#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ZatTestObjects.h"
#include "zat/Dir.h"
#include "zat/Generic.h"

namespace ZatTest {
namespace {

using Zat::GenericValue;
using Zat::Ptr;
using Attrs = std::vector<std::pair<std::string, std::string>>;

// A machine-like object with two attributes and one generic operation.
class Adder : public Zat::PtrInterface {
 public:
  const char* fwkType() const override { return "ZatTest::Adder"; }
  void attributesDescribe(Zat::Describer& d) const override {
    d.attribute("total", Zat::toText(total_));
    d.attribute("period", Zat::toText(period_));
  }
  GenericValue genericInvoke(std::string_view op, const Zat::GenericArgs& args) override {
    if (op == "add") {
      Zat::expectArgs(op, args, 2);
      total_ += args[0].asInt("a") + args[1].asInt("b");
      return GenericValue(total_);
    }
    return Zat::PtrInterface::genericInvoke(op, args);
  }

 private:
  int64_t total_ = 0;
  double period_ = 30.0;
};

template <class F>
std::string errorText(F&& f) {
  try {
    f();
  } catch (const Zat::Exception& e) {
    return e.what();
  }
  return "no exception";
}

TEST(Generic, AttributesOfListsAttributesInDeclarationOrder) {
  Adder adder;
  EXPECT_EQ(Zat::attributesOf(adder), (Attrs{{"total", "0"}, {"period", "30"}}));
  auto n = FakeNotifier::FakeNotifierIs();
  EXPECT_EQ(Zat::attributesOf(*n), (Attrs{{"fwkType", "ZatTest::FakeNotifier"}}));
}

TEST(Generic, DumpTreeWritesObjectsAndChildrenIndented) {
  auto root = Zat::Dir::DirIs("root");
  auto inner = Zat::Dir::DirIs("inner");
  root->entityIs("slice", Ptr<Zat::PtrInterface>(inner));
  inner->entityIs("n", Ptr<Zat::PtrInterface>(FakeNotifier::FakeNotifierIs()));
  std::ostringstream os;
  Zat::dumpTree(*root, os);
  EXPECT_EQ(os.str(),
            "Zat::Dir\n"
            "  name: root\n"
            "  entity[slice]:\n"
            "    Zat::Dir\n"
            "      name: inner\n"
            "      entity[n]:\n"
            "        ZatTest::FakeNotifier\n"
            "          fwkType: ZatTest::FakeNotifier\n");
}

TEST(Generic, ChildOfFindsAChildByCollectionAndKey) {
  auto root = Zat::Dir::DirIs("root");
  auto n = FakeNotifier::FakeNotifierIs();
  root->entityIs("a", Ptr<Zat::PtrInterface>(n));
  EXPECT_EQ(Zat::childOf(*root, "entity", "a"), n.ptr());
  EXPECT_EQ(Zat::childOf(*root, "entity", "b"), nullptr);
  EXPECT_EQ(Zat::childOf(*root, "other", "a"), nullptr);
}

TEST(Generic, InvokeRunsAKnownOperation) {
  Adder adder;
  GenericValue r = adder.genericInvoke("add", {GenericValue(2), GenericValue("3")});
  EXPECT_EQ(r.asInt("result"), 5);
  EXPECT_EQ(Zat::attributesOf(adder)[0], (std::pair<std::string, std::string>{"total", "5"}));
}

TEST(Generic, InvokeOfAnUnknownOperationRaisesNamingOpAndType) {
  Adder adder;
  try {
    adder.genericInvoke("updateCounters", {});
    FAIL() << "no exception";
  } catch (const Zat::UnknownOperationException& e) {
    EXPECT_STREQ(e.what(), "unknown operation 'updateCounters' on ZatTest::Adder");
  }
  auto n = FakeNotifier::FakeNotifierIs();
  EXPECT_EQ(errorText([&] { n->genericInvoke("coppSmIs", {}); }),
            "unknown operation 'coppSmIs' on ZatTest::FakeNotifier");
}

TEST(Generic, InvokeWithTheWrongArgumentCountRaises) {
  Adder adder;
  EXPECT_EQ(errorText([&] { adder.genericInvoke("add", {GenericValue(1)}); }),
            "operation add takes 2 argument(s), got 1");
}

TEST(GenericValue, TextConvertsToNumbers) {
  EXPECT_EQ(GenericValue("2.5").asDouble("period"), 2.5);
  EXPECT_EQ(GenericValue("12").asInt("count"), 12);
  EXPECT_EQ(GenericValue("-12").asInt("count"), -12);
  EXPECT_EQ(GenericValue("12").asUnsigned("count"), 12u);
  EXPECT_TRUE(GenericValue("true").asBool("flag"));
  EXPECT_FALSE(GenericValue("0").asBool("flag"));
}

TEST(GenericValue, NumbersConvertAcrossKinds) {
  EXPECT_EQ(GenericValue(3).asDouble("period"), 3.0);
  EXPECT_EQ(GenericValue(uint64_t{7}).asInt("count"), 7);
  EXPECT_EQ(GenericValue(int64_t{7}).asUnsigned("count"), 7u);
  EXPECT_TRUE(GenericValue(true).asBool("flag"));
}

TEST(GenericValue, BadTextRaisesNamingTheArgumentAndValue) {
  EXPECT_EQ(errorText([] { GenericValue("abc").asDouble("period"); }),
            "argument period has the wrong kind: 'abc'");
  EXPECT_EQ(errorText([] { GenericValue("2.5s").asDouble("period"); }),
            "argument period has the wrong kind: '2.5s'");
  EXPECT_EQ(errorText([] { GenericValue("12x").asInt("count"); }),
            "argument count has the wrong kind: '12x'");
  EXPECT_EQ(errorText([] { GenericValue("-1").asUnsigned("count"); }),
            "argument count has the wrong kind: '-1'");
  EXPECT_EQ(errorText([] { GenericValue(int64_t{-1}).asUnsigned("count"); }),
            "argument count has the wrong kind: '-1'");
  EXPECT_EQ(errorText([] { GenericValue("yes").asBool("flag"); }),
            "argument flag has the wrong kind: 'yes'");
  EXPECT_EQ(errorText([] { GenericValue(5).asString("name"); }),
            "argument name has the wrong kind: '5'");
  EXPECT_EQ(errorText([] { GenericValue(2.5).asObject("sm"); }),
            "argument sm has the wrong kind: '2.5'");
}

TEST(GenericValue, UnsignedRejectsNegativeTextWithLeadingSpace) {
  EXPECT_EQ(errorText([] { GenericValue(" -1").asUnsigned("count"); }),
            "argument count has the wrong kind: ' -1'");
}

TEST(GenericValue, IntRejectsUnsignedValuesAboveItsRange) {
  EXPECT_EQ(errorText([] { GenericValue(uint64_t{1} << 63).asInt("count"); }),
            "argument count has the wrong kind: '9223372036854775808'");
}

TEST(GenericValue, NoneIsANullObjectAndPrintsAsNone) {
  GenericValue none;
  EXPECT_TRUE(none.isNone());
  EXPECT_EQ(none.asObject("sm").ptr(), nullptr);
  EXPECT_EQ(none.text(), "none");
}

TEST(GenericValue, ObjectRoundTripsAsTheSameReference) {
  auto n = FakeNotifier::FakeNotifierIs();
  GenericValue v{Ptr<Zat::PtrInterface>(n)};
  EXPECT_EQ(v.asObject("sm"), n);
  EXPECT_EQ(n->references(), 2);
}

TEST(GenericValue, TextOfEachKind) {
  EXPECT_EQ(GenericValue(true).text(), "true");
  EXPECT_EQ(GenericValue(-4).text(), "-4");
  EXPECT_EQ(GenericValue(uint64_t{18446744073709551615ULL}).text(), "18446744073709551615");
  EXPECT_EQ(GenericValue(2.5).text(), "2.5");
  EXPECT_EQ(GenericValue("Ethernet3").text(), "Ethernet3");
  EXPECT_EQ(GenericValue(Ptr<Zat::PtrInterface>()).text(), "null");
}

TEST(GenericValue, DoubleTextKeepsNineSignificantDigits) {
  EXPECT_EQ(Zat::toText(30.0), "30");
  EXPECT_EQ(Zat::toText(0.1), "0.1");
  EXPECT_EQ(Zat::toText(1000.000001), "1000");
  EXPECT_EQ(Zat::toText(1.0 / 3.0), "0.333333333");
}

}  // namespace
}  // namespace ZatTest
