#include <gtest/gtest.h>

#include "counters/pollers/KeptEntry.h"
#include "zat/Collections.h"
#include "zat/Ptr.h"

namespace Vorn::Counters {
namespace {

// A bare owner for collections: nobody follows it, so changes notify no one.
class Owner : public Zat::PtrInterface {
 public:
  static Zat::Ptr<Owner> OwnerIs() { return Zat::Ptr<Owner>(new Owner()); }
  Zat::AttrCollection<int, int> entries{this, "entries"};
  const char* fwkType() const override { return "KeptEntryTest::Owner"; }
};

TEST(KeptEntry, FindsTheEntryAndFollowsItsChanges) {
  auto owner = Owner::OwnerIs();
  auto& entries = owner->entries;
  KeptEntry<Zat::AttrCollection<int, int>> kept;
  EXPECT_EQ(kept.find(entries, 4), nullptr);
  entries.set(4, 40);
  ASSERT_NE(kept.find(entries, 4), nullptr);
  EXPECT_EQ(*kept.find(entries, 4), 40);
  entries.set(4, 41);
  EXPECT_EQ(*kept.find(entries, 4), 41);
  entries.del(4);
  EXPECT_EQ(kept.find(entries, 4), nullptr);
  entries.set(4, 42);
  ASSERT_NE(kept.find(entries, 4), nullptr);
  EXPECT_EQ(*kept.find(entries, 4), 42);
}

TEST(KeptEntry, StaysRightWhileOtherKeysComeAndGoAndTheMapRehashes) {
  auto owner = Owner::OwnerIs();
  auto& entries = owner->entries;
  entries.set(4, 40);
  KeptEntry<Zat::AttrCollection<int, int>> kept;
  ASSERT_NE(kept.find(entries, 4), nullptr);
  for (int k = 100; k < 1100; ++k) entries.set(k, k);
  ASSERT_NE(kept.find(entries, 4), nullptr);
  EXPECT_EQ(*kept.find(entries, 4), 40);
  for (int k = 100; k < 1100; ++k) entries.del(k);
  EXPECT_EQ(*kept.find(entries, 4), 40);
}

TEST(KeptEntry, AnotherCollectionIsLookedUpAfresh) {
  auto first = Owner::OwnerIs();
  auto second = Owner::OwnerIs();
  first->entries.set(4, 40);
  second->entries.set(4, 50);
  KeptEntry<Zat::AttrCollection<int, int>> kept;
  EXPECT_EQ(*kept.find(first->entries, 4), 40);
  // Same change count, other collection.
  EXPECT_EQ(*kept.find(second->entries, 4), 50);
}

}  // namespace
}  // namespace Vorn::Counters
