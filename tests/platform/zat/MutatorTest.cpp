#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ZatTestObjects.h"
#include "zat/Mutator.h"
#include "zat/String.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

template <class F>
std::string reinstantiationText(F&& f) {
  try {
    f();
  } catch (const Zat::ReinstantiationException& e) {
    return e.what();
  }
  return "no exception";
}

std::string objectText(const Zat::PtrInterface* p) {
  std::ostringstream os;
  os << p->fwkType() << "@" << static_cast<const void*>(p);
  return os.str();
}

TEST(Mutator, EqualValuesAreSilent) {
  EXPECT_NO_THROW(Zat::sameOrThrowReinstantiating("portCountersSm", 2.0, 2.0));
  EXPECT_NO_THROW(
      Zat::sameOrThrowReinstantiating("intfId", Zat::Name("Ethernet1"), Zat::Name("Ethernet1")));
  auto n = FakeNotifier::FakeNotifierIs();
  Ptr<FakeNotifier> same = n;
  EXPECT_NO_THROW(Zat::sameOrThrowReinstantiating("clock", n, same));
  EXPECT_NO_THROW(
      Zat::sameOrThrowReinstantiating("clock", Ptr<FakeNotifier>(), Ptr<FakeNotifier>()));
}

TEST(Mutator, DifferentDoublesRaiseReinstantiationNamingBothValues) {
  EXPECT_EQ(
      reinstantiationText([] { Zat::sameOrThrowReinstantiating("portCountersSm", 2.0, 3.0); }),
      "attribute portCountersSm reinstantiated with a different value: existing 2, requested 3");
  EXPECT_EQ(reinstantiationText(
                [] { Zat::sameOrThrowReinstantiating("intfQueueCountersSm", 0.5, 0.25); }),
            "attribute intfQueueCountersSm reinstantiated with a different value: existing 0.5, "
            "requested 0.25");
}

TEST(Mutator, DifferentPtrsRaiseEvenForObjectsOfEqualContent) {
  auto a = FakeNotifier::FakeNotifierIs();
  auto b = FakeNotifier::FakeNotifierIs();
  EXPECT_EQ(reinstantiationText([&] { Zat::sameOrThrowReinstantiating("clock", a, b); }),
            "attribute clock reinstantiated with a different value: existing " +
                objectText(a.ptr()) + ", requested " + objectText(b.ptr()));
  EXPECT_EQ(reinstantiationText(
                [&] { Zat::sameOrThrowReinstantiating("clock", Ptr<FakeNotifier>(), b); }),
            "attribute clock reinstantiated with a different value: existing null, requested " +
                objectText(b.ptr()));
}

TEST(Mutator, DifferentNamesAndFlagsRaiseWithTheirText) {
  EXPECT_EQ(reinstantiationText([] {
              Zat::sameOrThrowReinstantiating("coppSm", Zat::Name("pmapA"), Zat::Name("pmapB"));
            }),
            "attribute coppSm reinstantiated with a different value: existing pmapA, requested "
            "pmapB");
  EXPECT_EQ(reinstantiationText([] { Zat::sameOrThrowReinstantiating("enabled", true, false); }),
            "attribute enabled reinstantiated with a different value: existing true, requested "
            "false");
}

TEST(Mutator, ReinstantiationIsAFrameworkException) {
  EXPECT_THROW(Zat::throwMutatorReinstantiating("a", "1", "2"), Zat::Exception);
}

TEST(Mutator, RequireNonNullRaisesNamingTheArgument) {
  try {
    Zat::requireNonNull(Ptr<FakeNotifier>(), "pmapType");
    FAIL() << "no exception";
  } catch (const Zat::NullPointerException& e) {
    EXPECT_STREQ(e.what(), "null pointer argument: pmapType");
  }
  EXPECT_NO_THROW(Zat::requireNonNull(FakeNotifier::FakeNotifierIs(), "pmapType"));
}

TEST(Mutator, NullArgumentIsAFrameworkException) {
  EXPECT_THROW(Zat::throwMutatorArgNullPointerException("helper"), Zat::Exception);
}

}  // namespace
}  // namespace ZatTest
