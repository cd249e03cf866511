#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "ZatTestObjects.h"
#include "zat/Collections.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

TEST(AttrCollection, NotifiesAddChangeAndRemoveWithTheKey) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = RecordingReactor::RecordingReactorIs(n, &log);
  n->portIs(4, 40);
  n->portIs(4, 41);
  n->portDel(4);
  EXPECT_EQ(log, (Log{"port:4", "port:4", "port:4"}));
  EXPECT_FALSE(n->port().contains(4));
}

TEST(AttrCollection, SettingAnEqualValueOrRemovingAnAbsentKeyIsSilent) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  n->portIs(4, 40);
  auto r = RecordingReactor::RecordingReactorIs(n, &log);
  n->portIs(4, 40);
  n->portDel(5);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(n->port().get(4), 40);
}

TEST(AttrCollection, ChangeCountMovesOnEveryAddChangeAndRemovalOnly) {
  auto n = FakeNotifier::FakeNotifierIs();
  EXPECT_EQ(n->port().changeCount(), 0u);
  n->portIs(4, 40);
  EXPECT_EQ(n->port().changeCount(), 1u);
  n->portIs(4, 41);
  EXPECT_EQ(n->port().changeCount(), 2u);
  n->portIs(4, 41);  // equal value: nothing changed
  n->portDel(5);     // absent key: nothing changed
  EXPECT_EQ(n->port().changeCount(), 2u);
  n->portDel(4);
  EXPECT_EQ(n->port().changeCount(), 3u);
}

TEST(AttrCollection, ValueIsVisibleToTheReactorWhenItIsNotified) {
  auto n = FakeNotifier::FakeNotifierIs();
  Log log;
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  std::vector<std::optional<int>> seen;
  r->action = [&](int port) { seen.push_back(n->port().get(port)); };
  n->portIs(1, 10);
  n->portIs(1, 11);
  n->portDel(1);
  EXPECT_EQ(seen, (std::vector<std::optional<int>>{10, 11, std::nullopt}));
}

TEST(AttrCollection, LookUpsFindPresentEntriesOnly) {
  auto n = FakeNotifier::FakeNotifierIs();
  n->portIs(1, 10);
  ASSERT_NE(n->port().find(1), nullptr);
  EXPECT_EQ(*n->port().find(1), 10);
  EXPECT_EQ(n->port().find(2), nullptr);
  EXPECT_EQ(n->port().get(2), std::nullopt);
  EXPECT_EQ(n->port().size(), 1u);
  EXPECT_EQ(n->port().attributeId(), FakeNotifier::kPort);
}

TEST(AttrCollection, DelAllNotifiesEveryKeyOnce) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = RecordingReactor::RecordingReactorIs(n, &log);
  Zat::AttrCollection<int, int> coll(n.ptr(), FakeNotifier::kPort);
  for (int k = 1; k <= 3; ++k) coll.set(k, k);
  log.clear();
  coll.delAll();
  EXPECT_TRUE(coll.empty());
  std::sort(log.begin(), log.end());
  EXPECT_EQ(log, (Log{"port:1", "port:2", "port:3"}));
}

// Walks `coll`; at each key removes that key and, when `removeOther` picks one,
// another not-yet-visited key. Checks that every key is either visited exactly once
// or was removed before the walk reached it.
template <class Coll>
void checkWalkSurvivesRemovals(Coll& coll, const std::vector<int>& all) {
  std::vector<int> visited;
  std::set<int> removedUnvisited;
  coll.forEachKey([&](int k) {
    visited.push_back(k);
    coll.del(k);
    // Remove the largest key that has not been visited yet (if any).
    int other = -1;
    for (const auto& [key, value] : coll.map()) {
      if (std::find(visited.begin(), visited.end(), key) == visited.end()) {
        other = std::max(other, key);
      }
    }
    if (other >= 0 && k % 2 == 0) {
      coll.del(other);
      removedUnvisited.insert(other);
    }
  });
  std::set<int> visitedSet(visited.begin(), visited.end());
  EXPECT_EQ(visitedSet.size(), visited.size()) << "a key was visited twice";
  for (int k : removedUnvisited) EXPECT_EQ(visitedSet.count(k), 0u) << k;
  std::set<int> covered = visitedSet;
  covered.insert(removedUnvisited.begin(), removedUnvisited.end());
  EXPECT_EQ(covered, std::set<int>(all.begin(), all.end()));
  EXPECT_FALSE(removedUnvisited.empty());
  EXPECT_TRUE(coll.empty());
}

TEST(AttrCollection, HashWalkSurvivesRemovalOfCurrentAndOtherEntries) {
  auto owner = FakeNotifier::FakeNotifierIs();
  Zat::AttrCollection<int, int> coll(owner.ptr(), "hashed");
  std::vector<int> all;
  for (int k = 0; k < 40; ++k) {
    coll.set(k, k);
    all.push_back(k);
  }
  checkWalkSurvivesRemovals(coll, all);
}

TEST(AttrCollection, OrderedWalkSurvivesRemovalOfCurrentAndOtherEntries) {
  auto owner = FakeNotifier::FakeNotifierIs();
  Zat::AttrCollection<int, int, std::map<int, int>> coll(owner.ptr(), "ordered");
  std::vector<int> all;
  for (int k = 0; k < 40; ++k) {
    coll.set(k, k);
    all.push_back(k);
  }
  checkWalkSurvivesRemovals(coll, all);
}

TEST(AttrCollection, OrderedWalkVisitsKeysInOrderSkippingRemovedOnes) {
  auto owner = FakeNotifier::FakeNotifierIs();
  Zat::AttrCollection<int, int, std::map<int, int>> coll(owner.ptr(), "ordered");
  for (int k = 1; k <= 10; ++k) coll.set(k, k);
  std::vector<int> visited;
  coll.forEachKey([&](int k) {
    visited.push_back(k);
    coll.del(k);
    if (k % 3 == 1) coll.del(k + 1);
  });
  EXPECT_EQ(visited, (std::vector<int>{1, 3, 4, 6, 7, 9, 10}));
}

TEST(AttrCollection, OrderedWalkVisitsAKeyAddedAheadOfIt) {
  auto owner = FakeNotifier::FakeNotifierIs();
  Zat::AttrCollection<int, int, std::map<int, int>> coll(owner.ptr(), "ordered");
  coll.set(1, 1);
  coll.set(5, 5);
  std::vector<int> visited;
  coll.forEachKey([&](int k) {
    visited.push_back(k);
    if (k == 1) {
      coll.set(3, 3);
      coll.set(0, 0);  // behind the walk: not visited
    }
  });
  EXPECT_EQ(visited, (std::vector<int>{1, 3, 5}));
}

TEST(AttrCollection, WalkNotifiesRemovalsMadeDuringIt) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  n->portIs(1, 1);
  n->portIs(2, 2);
  auto r = RecordingReactor::RecordingReactorIs(n, &log);
  n->port().forEachKey([&](int k) { n->portDel(k); });
  std::sort(log.begin(), log.end());
  EXPECT_EQ(log, (Log{"port:1", "port:2"}));
  EXPECT_TRUE(n->port().empty());
}

class Child : public Counted {
 public:
  using Counted::Counted;
};

TEST(ChildCollection, DelMarksTheChildZombieAndReleasesIt) {
  bool freed = false;
  Zat::ChildCollection<int, Child> children;
  Ptr<Child> kept(new Child(&freed));
  children.insert(7, kept);
  EXPECT_EQ(kept->references(), 2);
  EXPECT_EQ(children.find(7), kept.ptr());

  children.del(7);
  EXPECT_TRUE(kept->zombie());
  EXPECT_EQ(children.find(7), nullptr);
  EXPECT_TRUE(children.empty());
  EXPECT_EQ(kept->references(), 1);
  kept = nullptr;
  EXPECT_TRUE(freed);
}

TEST(ChildCollection, DelOfAnAbsentKeyDoesNothing) {
  Zat::ChildCollection<int, Child> children;
  Ptr<Child> c(new Child());
  children.insert(1, c);
  children.del(2);
  EXPECT_EQ(children.size(), 1u);
  EXPECT_FALSE(c->zombie());
}

TEST(ChildCollection, DelAllMarksEveryChildZombieAndFreesThem) {
  bool freed[3] = {false, false, false};
  Zat::ChildCollection<int, Child> children;
  std::vector<Ptr<Child>> kept;
  for (int k = 0; k < 3; ++k) {
    kept.emplace_back(new Child(&freed[k]));
    children.insert(k, kept.back());
  }
  children.delAll();
  EXPECT_TRUE(children.empty());
  for (const auto& c : kept) EXPECT_TRUE(c->zombie());
  kept.clear();
  EXPECT_TRUE(freed[0] && freed[1] && freed[2]);
}

TEST(ChildCollection, ForEachChildToleratesRemovalsDuringTheWalk) {
  Zat::ChildCollection<int, Child> children;
  for (int k = 0; k < 6; ++k) children.insert(k, Ptr<Child>(new Child()));
  std::set<int> removedUnvisited;
  int visits = 0;
  children.forEachChild([&](const Ptr<Child>& c) {
    ++visits;
    EXPECT_FALSE(c->zombie());
    // Remove every child not yet removed, including the current one.
    for (int k : children.keys()) {
      if (children.find(k) != c.ptr()) removedUnvisited.insert(k);
      children.del(k);
    }
  });
  EXPECT_EQ(visits, 1);
  EXPECT_EQ(removedUnvisited.size(), 5u);
  EXPECT_TRUE(children.empty());
}

TEST(ChildCollection, GetReturnsACountedReferenceOrNull) {
  Zat::ChildCollection<int, Child> children;
  Ptr<Child> c(new Child());
  children.insert(1, c);
  EXPECT_EQ(children.get(1), c);
  EXPECT_EQ(c->references(), 2);
  EXPECT_EQ(children.get(2).ptr(), nullptr);
}

}  // namespace
}  // namespace ZatTest
