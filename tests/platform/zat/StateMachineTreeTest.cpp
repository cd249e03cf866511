// A hand-written parent/child state machine pair shaped like the generated ones:
// each holds a reactor, the parent holds its children in a ChildCollection, and
// hasNotificationActiveIs / zatDoZombieReactors are extended to reach the whole tree.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ZatTestObjects.h"
#include "zat/Collections.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

class ChildSm : public Zat::PtrInterface {
 public:
  static Ptr<ChildSm> ChildSmIs(const Ptr<const FakeNotifier>& n, int key, Log* log) {
    Ptr<ChildSm> sm(new ChildSm(n, key, log));
    sm->hasNotificationActiveIs(true);
    return sm;
  }
  void hasNotificationActiveIs(bool value) override {
    if (value == hasNotificationActive()) return;
    Zat::PtrInterface::hasNotificationActiveIs(value);
    reactor_->hasNotificationActiveIs(value);
  }
  void zatDoZombieReactors(bool value) override {
    if (value == zombie()) return;
    reactor_->zatDoZombieReactors(value);
    Zat::PtrInterface::zatDoZombieReactors(value);
  }
  const PortReactor& reactor() const { return *reactor_; }

 private:
  ChildSm(const Ptr<const FakeNotifier>& n, int key, Log* log)
      : reactor_(PortReactor::PortReactorIs(n, "child" + std::to_string(key), log)) {}
  Ptr<PortReactor> reactor_;
};

class ParentSm : public Zat::PtrInterface {
 public:
  static Ptr<ParentSm> ParentSmIs(const Ptr<const FakeNotifier>& n, Log* log) {
    Ptr<ParentSm> sm(new ParentSm(n, log));
    sm->hasNotificationActiveIs(true);
    return sm;
  }
  Ptr<ChildSm> childSmIs(int key) {
    if (Ptr<ChildSm> existing = childSm_.get(key)) return existing;
    Ptr<ChildSm> child = ChildSm::ChildSmIs(notifier_, key, log_);
    childSm_.insert(key, child);
    return child;
  }
  // Removing a child marks it zombie before it is released.
  void childSmDel(int key) { childSm_.del(key); }
  void hasNotificationActiveIs(bool value) override {
    if (value == hasNotificationActive()) return;
    ++switches_;
    Zat::PtrInterface::hasNotificationActiveIs(value);
    reactor_->hasNotificationActiveIs(value);
    childSm_.forEachChild([value](const Ptr<ChildSm>& c) { c->hasNotificationActiveIs(value); });
  }
  void zatDoZombieReactors(bool value) override {
    if (value == zombie()) return;
    reactor_->zatDoZombieReactors(value);
    Zat::PtrInterface::zatDoZombieReactors(value);
  }
  int switches() const { return switches_; }
  const PortReactor& reactor() const { return *reactor_; }
  const Zat::ChildCollection<int, ChildSm>& childSm() const { return childSm_; }

 private:
  ParentSm(const Ptr<const FakeNotifier>& n, Log* log)
      : notifier_(n), log_(log), reactor_(PortReactor::PortReactorIs(n, "parent", log)) {}
  Ptr<const FakeNotifier> notifier_;
  Log* log_;
  Ptr<PortReactor> reactor_;
  Zat::ChildCollection<int, ChildSm> childSm_;
  int switches_ = 0;
};

class StateMachineTree : public ::testing::Test {
 protected:
  void SetUp() override {
    notifier = FakeNotifier::FakeNotifierIs();
    parent = ParentSm::ParentSmIs(notifier, &log);
    parent->childSmIs(1);
    parent->childSmIs(2);
  }
  int registeredReactors() const {
    int n = parent->reactor().isRegisteredNotifiee() ? 1 : 0;
    for (const auto& [key, child] : parent->childSm()) n += child->reactor().isRegisteredNotifiee();
    return n;
  }
  Log log;
  Ptr<FakeNotifier> notifier;
  Ptr<ParentSm> parent;
};

TEST_F(StateMachineTree, WholeTreeHearsChangesOnceLive) {
  EXPECT_EQ(registeredReactors(), 3);
  EXPECT_EQ(notifier->notifieeCount(), 3u);
  notifier->portIs(5, 1);
  ASSERT_EQ(log.size(), 3u);
  EXPECT_EQ(log[0], "parent:5");
  EXPECT_EQ(std::count(log.begin(), log.end(), "child1:5"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "child2:5"), 1);
}

TEST_F(StateMachineTree, OneCallSwitchesTheWholeSubtreeOffAndOn) {
  parent->hasNotificationActiveIs(false);
  EXPECT_EQ(registeredReactors(), 0);
  EXPECT_EQ(notifier->notifieeCount(), 0u);
  for (const auto& [key, child] : parent->childSm()) EXPECT_FALSE(child->hasNotificationActive());
  notifier->portIs(5, 1);
  EXPECT_TRUE(log.empty());

  parent->hasNotificationActiveIs(true);
  EXPECT_EQ(registeredReactors(), 3);
  for (const auto& [key, child] : parent->childSm()) EXPECT_TRUE(child->hasNotificationActive());
  notifier->portIs(6, 1);
  EXPECT_EQ(log.size(), 3u);
}

TEST_F(StateMachineTree, UnchangedStateReturnsAtOnce) {
  EXPECT_EQ(parent->switches(), 1);  // switched on by ParentSmIs
  parent->hasNotificationActiveIs(true);
  EXPECT_EQ(parent->switches(), 1);
  parent->hasNotificationActiveIs(false);
  parent->hasNotificationActiveIs(false);
  EXPECT_EQ(parent->switches(), 2);
  EXPECT_EQ(registeredReactors(), 0);
}

TEST_F(StateMachineTree, DeletedChildIsAZombieAndHearsNothing) {
  Ptr<ChildSm> kept = parent->childSm().get(1);
  parent->childSmIs(3);
  parent->childSmDel(1);
  EXPECT_EQ(parent->childSm().get(1).ptr(), nullptr);
  EXPECT_TRUE(kept->zombie());
  EXPECT_TRUE(kept->reactor().zombie());
  EXPECT_FALSE(kept->reactor().isRegisteredNotifiee());
  notifier->portIs(7, 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "child1:7"), 0);
  EXPECT_EQ(log.size(), 3u);  // parent, child2, child3
}

TEST_F(StateMachineTree, ZombieParentStopsItsOwnReactor) {
  parent->zatDoZombieReactors(true);
  EXPECT_TRUE(parent->zombie());
  EXPECT_FALSE(parent->reactor().isRegisteredNotifiee());
  notifier->portIs(8, 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "parent:8"), 0);
}

}  // namespace
}  // namespace ZatTest
