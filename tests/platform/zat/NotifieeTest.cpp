#include <gtest/gtest.h>

#include <stdexcept>

#include "ZatTestObjects.h"
#include "zat/Notifiee.h"

namespace ZatTest {
namespace {

using Zat::Ptr;

TEST(Notifiee, ReactorIsRegisteredOnlyWhileNotificationsAreActive) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log, /*active=*/false);
  EXPECT_FALSE(r->isRegisteredNotifiee());
  EXPECT_EQ(n->notifieeCount(), 0u);
  n->portIs(1, 10);

  r->hasNotificationActiveIs(true);
  EXPECT_TRUE(r->isRegisteredNotifiee());
  EXPECT_EQ(n->notifieeCount(), 1u);
  n->portIs(2, 20);

  r->hasNotificationActiveIs(false);
  EXPECT_FALSE(r->isRegisteredNotifiee());
  EXPECT_EQ(n->notifieeCount(), 0u);
  n->portIs(3, 30);

  EXPECT_EQ(log, (Log{"r:2"}));
}

TEST(Notifiee, OnAttributeReceivesTheAttributeIdAndTheKey) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = RecordingReactor::RecordingReactorIs(n, &log);
  n->portIs(7, 1);
  n->speedIs(3);
  n->portReplaced();
  EXPECT_EQ(log, (Log{"port:7", "speed:3", "port:-"}));
}

TEST(Notifiee, FilteringReactorIgnoresForeignAttributesAndKeylessCalls) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  n->speedIs(3);
  n->portReplaced();
  n->portIs(5, 1);
  EXPECT_EQ(log, (Log{"r:5"}));
}

TEST(Notifiee, ZombieReactorGetsNoCallsAndStaysUnregistered) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  r->zatDoZombieReactors(true);
  EXPECT_TRUE(r->zombie());
  EXPECT_TRUE(r->dying());
  EXPECT_FALSE(r->isRegisteredNotifiee());
  EXPECT_EQ(n->notifieeCount(), 0u);
  n->portIs(1, 1);

  // Switching notifications on again does not bring a zombie back.
  r->hasNotificationActiveIs(false);
  r->hasNotificationActiveIs(true);
  EXPECT_FALSE(r->isRegisteredNotifiee());
  n->portIs(2, 2);
  EXPECT_TRUE(log.empty());
}

TEST(Notifiee, HasNotificationActiveTrueTwiceIsANoOp) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  r->hasNotificationActiveIs(true);
  EXPECT_EQ(n->notifieeCount(), 1u);
  n->portIs(4, 1);
  EXPECT_EQ(log, (Log{"r:4"}));
}

TEST(Notifiee, NotifierIsWithTheSameNotifierChangesNothing) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  r->notifierIs(Ptr<const FakeNotifier>(n));
  r->notifierIs(Ptr<const Zat::PtrInterface>(n));
  EXPECT_TRUE(r->isRegisteredNotifiee());
  EXPECT_EQ(r->notifier(), n.ptr());
  EXPECT_EQ(n->notifieeCount(), 1u);
  EXPECT_TRUE(log.empty());
  n->portIs(1, 1);
  EXPECT_EQ(log, (Log{"r:1"}));
}

TEST(Notifiee, NotifierOfTheWrongTypeCountsAsNull) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto other = OtherNotifier::OtherNotifierIs();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  r->notifierIs(Ptr<const Zat::PtrInterface>(other));
  EXPECT_EQ(r->notifier(), nullptr);
  EXPECT_EQ(r->notifierBase(), nullptr);
  EXPECT_FALSE(r->isRegisteredNotifiee());
  EXPECT_EQ(n->notifieeCount(), 0u);
  EXPECT_EQ(other->references(), 1);  // no reference kept to the foreign object
  n->portIs(1, 1);
  EXPECT_TRUE(log.empty());
}

TEST(Notifiee, NotifierIsReRegistersOnTheNewNotifierAndCallsNoHandler) {
  Log log;
  auto first = FakeNotifier::FakeNotifierIs();
  auto second = FakeNotifier::FakeNotifierIs();
  second->portIs(9, 9);  // existing entries are not replayed to the reactor
  auto r = PortReactor::PortReactorIs(first, "r", &log);

  r->notifierIs(Ptr<const FakeNotifier>(second));
  EXPECT_TRUE(log.empty());
  EXPECT_TRUE(r->isRegisteredNotifiee());
  EXPECT_EQ(r->notifier(), second.ptr());
  EXPECT_EQ(first->notifieeCount(), 0u);
  EXPECT_EQ(second->notifieeCount(), 1u);
  first->portIs(1, 1);
  second->portIs(2, 2);
  EXPECT_EQ(log, (Log{"r:2"}));

  // Through the untyped virtual operation, as the framework calls it.
  Zat::NotifieeConst& untyped = *r;
  untyped.notifierIs(Ptr<const Zat::PtrInterface>(first));
  EXPECT_EQ(r->notifier(), first.ptr());
  EXPECT_EQ(first->notifieeCount(), 1u);
  EXPECT_EQ(second->notifieeCount(), 0u);
  first->portIs(3, 3);
  EXPECT_EQ(log, (Log{"r:2", "r:3"}));
}

template <class Reactor, class Arg>
constexpr bool acceptsNotifier = requires(Reactor& r, const Arg& a) {
  r.notifierIs(a);
};

TEST(Notifiee, NotifierIsAcceptsConstAndUntypedReferences) {
  EXPECT_TRUE((acceptsNotifier<PortReactor, Ptr<const FakeNotifier>>));
  EXPECT_TRUE((acceptsNotifier<PortReactor, Ptr<const Zat::PtrInterface>>));
}

TEST(Notifiee, NotifierIsAcceptsAReferenceToAMutableNotifier) {
  EXPECT_TRUE((acceptsNotifier<PortReactor, Ptr<FakeNotifier>>));
}

TEST(Notifiee, NotifierIsWhileInactiveRegistersOnlyWhenActivated) {
  Log log;
  auto first = FakeNotifier::FakeNotifierIs();
  auto second = FakeNotifier::FakeNotifierIs();
  auto r = PortReactor::PortReactorIs(first, "r", &log, /*active=*/false);
  r->notifierIs(Ptr<const FakeNotifier>(second));
  EXPECT_FALSE(r->isRegisteredNotifiee());
  EXPECT_EQ(second->notifieeCount(), 0u);
  r->hasNotificationActiveIs(true);
  EXPECT_EQ(second->notifieeCount(), 1u);
  EXPECT_EQ(first->notifieeCount(), 0u);
}

TEST(Notifiee, ReactorKeepsItsNotifierAlive) {
  bool notifierFreed = false;
  Log log;
  auto n = FakeNotifier::FakeNotifierIs(&notifierFreed);
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  EXPECT_EQ(n->references(), 2);
  n = nullptr;
  EXPECT_FALSE(notifierFreed);
  r = nullptr;
  EXPECT_TRUE(notifierFreed);
}

TEST(Notifiee, HandlerDeletingALaterNotifieeDuringDeliveryDoesNotCallIt) {
  Log log;
  bool bFreed = false;
  auto n = FakeNotifier::FakeNotifierIs();
  auto a = PortReactor::PortReactorIs(n, "a", &log);
  auto b = PortReactor::PortReactorIs(n, "b", &log, true, &bFreed);
  auto c = PortReactor::PortReactorIs(n, "c", &log);
  a->action = [&b](int) { b = nullptr; };

  n->portIs(1, 1);
  EXPECT_TRUE(bFreed);
  EXPECT_EQ(log, (Log{"a:1", "c:1"}));
  EXPECT_EQ(n->notifieeCount(), 2u);

  n->portIs(2, 2);
  EXPECT_EQ(log, (Log{"a:1", "c:1", "a:2", "c:2"}));
}

TEST(Notifiee, HandlerDeletingItselfDuringDeliveryIsFreedAfterItReturns) {
  Log log;
  bool aFreed = false;
  bool freedDuringHandler = true;
  auto n = FakeNotifier::FakeNotifierIs();
  auto a = PortReactor::PortReactorIs(n, "a", &log, true, &aFreed);
  auto b = PortReactor::PortReactorIs(n, "b", &log);
  a->action = [&](int) {
    a = nullptr;
    freedDuringHandler = aFreed;
  };

  n->portIs(1, 1);
  EXPECT_FALSE(freedDuringHandler);
  EXPECT_TRUE(aFreed);
  EXPECT_EQ(n->notifieeCount(), 1u);
  n->portIs(2, 2);
  EXPECT_EQ(log, (Log{"a:1", "b:1", "b:2"}));
}

TEST(Notifiee, HandlerDeletingAnEarlierNotifieeDoesNotSkipLaterOnes) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto a = PortReactor::PortReactorIs(n, "a", &log);
  auto b = PortReactor::PortReactorIs(n, "b", &log);
  auto c = PortReactor::PortReactorIs(n, "c", &log);
  auto d = PortReactor::PortReactorIs(n, "d", &log);
  c->action = [&a](int) { a = nullptr; };

  n->portIs(1, 1);
  n->portIs(2, 2);
  EXPECT_EQ(log, (Log{"a:1", "b:1", "c:1", "d:1", "b:2", "c:2", "d:2"}));
  EXPECT_EQ(n->notifieeCount(), 3u);
}

TEST(Notifiee, HandlerDeactivatingALaterNotifieeDuringDeliveryDoesNotCallIt) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto a = PortReactor::PortReactorIs(n, "a", &log);
  auto b = PortReactor::PortReactorIs(n, "b", &log);
  a->action = [&b](int) { b->hasNotificationActiveIs(false); };
  n->portIs(1, 1);
  EXPECT_EQ(log, (Log{"a:1"}));
  EXPECT_EQ(n->notifieeCount(), 1u);
}

TEST(Notifiee, ReactorDroppingTheLastReferenceToItsNotifierDuringDeliveryIsSafe) {
  Log log;
  bool notifierFreed = false;
  auto n = FakeNotifier::FakeNotifierIs(&notifierFreed);
  FakeNotifier* raw = n.ptr();
  auto r = PortReactor::PortReactorIs(n, "r", &log);
  r->action = [&r](int) { r->notifierIs(Ptr<const FakeNotifier>()); };
  n = nullptr;  // the reactor now holds the only reference

  raw->portIs(1, 1);
  EXPECT_EQ(log, (Log{"r:1"}));
  EXPECT_TRUE(notifierFreed);
  EXPECT_FALSE(r->isRegisteredNotifiee());
}

TEST(Notifiee, HandlerThatThrowsLeavesTheNotifierUsable) {
  Log log;
  auto n = FakeNotifier::FakeNotifierIs();
  auto a = PortReactor::PortReactorIs(n, "a", &log);
  auto b = PortReactor::PortReactorIs(n, "b", &log);
  a->action = [](int port) {
    if (port == 1) throw std::runtime_error("handler failed");
  };
  EXPECT_THROW(n->portIs(1, 1), std::runtime_error);

  // Outside a delivery, removal takes effect at once again.
  b = nullptr;
  EXPECT_EQ(n->notifieeCount(), 1u);
  n->portIs(2, 2);
  EXPECT_EQ(log, (Log{"a:1", "a:2"}));
}

}  // namespace
}  // namespace ZatTest
