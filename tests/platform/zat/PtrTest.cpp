#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "ZatTestObjects.h"
#include "zat/Ptr.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

class Apple : public Counted {
 public:
  using Counted::Counted;
};
class Pear : public Counted {
 public:
  using Counted::Counted;
};

TEST(Ptr, CopyTakesAReferenceAndReleaseDropsIt) {
  bool freed = false;
  Ptr<Counted> a(new Counted(&freed));
  EXPECT_EQ(a->references(), 1);
  {
    Ptr<Counted> b(a);
    EXPECT_EQ(a->references(), 2);
    Ptr<Counted> c;
    c = b;
    EXPECT_EQ(a->references(), 3);
  }
  EXPECT_EQ(a->references(), 1);
  EXPECT_FALSE(freed);
}

TEST(Ptr, MoveTransfersTheReferenceWithoutCounting) {
  bool freed = false;
  Ptr<Counted> a(new Counted(&freed));
  Ptr<Counted> b(std::move(a));
  EXPECT_EQ(a.ptr(), nullptr);
  EXPECT_EQ(b->references(), 1);
  Ptr<Counted> c;
  c = std::move(b);
  EXPECT_EQ(b.ptr(), nullptr);
  EXPECT_EQ(c->references(), 1);
  EXPECT_FALSE(freed);
}

TEST(Ptr, LastReleaseFreesTheObject) {
  bool freed = false;
  Ptr<Counted> a(new Counted(&freed));
  Ptr<Counted> b = a;
  a = nullptr;
  EXPECT_FALSE(freed);
  b = nullptr;
  EXPECT_TRUE(freed);
}

TEST(Ptr, AssigningOverAReferenceReleasesTheOldObject) {
  bool firstFreed = false;
  bool secondFreed = false;
  Ptr<Counted> a(new Counted(&firstFreed));
  Ptr<Counted> b(new Counted(&secondFreed));
  a = b;
  EXPECT_TRUE(firstFreed);
  EXPECT_FALSE(secondFreed);
  EXPECT_EQ(b->references(), 2);
}

TEST(Ptr, SelfAssignmentKeepsTheCount) {
  bool freed = false;
  Ptr<Counted> a(new Counted(&freed));
  Ptr<Counted>& alias = a;
  a = alias;
  EXPECT_EQ(a->references(), 1);
  a = std::move(alias);
  ASSERT_NE(a.ptr(), nullptr);
  EXPECT_EQ(a->references(), 1);
  EXPECT_FALSE(freed);
}

TEST(Ptr, ConversionToABaseReferenceCounts) {
  bool freed = false;
  Ptr<Apple> apple(new Apple(&freed));
  Ptr<const Zat::PtrInterface> base(apple);
  EXPECT_EQ(apple->references(), 2);
  apple = nullptr;
  EXPECT_FALSE(freed);
  base = nullptr;
  EXPECT_TRUE(freed);
}

TEST(Ptr, PtrCastNarrowsToTheRightTypeAndYieldsNullForAnother) {
  Ptr<Counted> fruit(new Apple());
  Ptr<Apple> apple = Zat::ptr_cast<Apple>(fruit);
  Ptr<Pear> pear = Zat::ptr_cast<Pear>(fruit);
  EXPECT_EQ(apple.ptr(), fruit.ptr());
  EXPECT_EQ(pear.ptr(), nullptr);
  EXPECT_FALSE(pear);
  // The successful cast holds its own reference; the failed one holds none.
  EXPECT_EQ(fruit->references(), 2);
  EXPECT_EQ(Zat::ptr_cast<Apple>(Ptr<Counted>()).ptr(), nullptr);
}

TEST(Ptr, EqualityIsIdentityNotValue) {
  Ptr<Apple> a(new Apple());
  Ptr<Apple> sameObject = a;
  Ptr<Apple> equalLooking(new Apple());
  Ptr<Counted> asBase = a;
  EXPECT_TRUE(a == sameObject);
  EXPECT_TRUE(a == asBase);
  EXPECT_FALSE(a == equalLooking);
  EXPECT_TRUE(Ptr<Apple>() == nullptr);
  EXPECT_FALSE(a == nullptr);
}

template <class To, class From>
constexpr bool convertible = std::is_convertible_v<Ptr<From>, Ptr<To>>;

TEST(Ptr, ConvertsToBasesAndConstOnly) {
  EXPECT_TRUE((convertible<Counted, Apple>));
  EXPECT_TRUE((convertible<const Zat::PtrInterface, Apple>));
  EXPECT_TRUE((convertible<const Apple, Apple>));
}

TEST(Ptr, DoesNotConvertToUnrelatedOrDerivedTypes) {
  EXPECT_FALSE((convertible<Pear, Apple>));
  EXPECT_FALSE((convertible<Apple, Counted>));
  EXPECT_FALSE((convertible<Apple, const Apple>));
}

// The thread-safety switch is global: restore the default whatever the test does.
class ThreadSafePtr : public ::testing::Test {
 protected:
  void SetUp() override { Zat::threadSafePtrsIs(true); }
  void TearDown() override { Zat::threadSafePtrsIs(false); }
};

TEST(Ptr, ThreadSafeSwitchIsOffByDefault) { EXPECT_FALSE(Zat::threadSafePtrs()); }

TEST_F(ThreadSafePtr, TwoThreadsCopyingAndReleasingLeaveTheCountExact) {
  constexpr int kCopies = 100000;
  ASSERT_TRUE(Zat::threadSafePtrs());
  bool freed = false;
  Ptr<Counted> shared(new Counted(&freed));
  std::vector<Ptr<Counted>> kept[2];
  auto work = [&shared](std::vector<Ptr<Counted>>* out) {
    out->reserve(kCopies);
    for (int i = 0; i < kCopies; ++i) {
      Ptr<Counted> copy = shared;  // +1, released at the end of the iteration
      out->push_back(copy);        // +1, kept
    }
  };
  std::thread t1(work, &kept[0]);
  std::thread t2(work, &kept[1]);
  t1.join();
  t2.join();
  EXPECT_EQ(shared->references(), 1 + 2 * kCopies);

  std::thread r1([&kept] { kept[0].clear(); });
  std::thread r2([&kept] { kept[1].clear(); });
  r1.join();
  r2.join();
  EXPECT_EQ(shared->references(), 1);
  EXPECT_FALSE(freed);
  shared = nullptr;
  EXPECT_TRUE(freed);
}

}  // namespace
}  // namespace ZatTest
