#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "ZatTestObjects.h"
#include "pell/TimerWheel.h"
#include "zat/Activity.h"
#include "zat/Clock.h"
#include "zat/Generic.h"

namespace ZatTest {
namespace {

using Zat::Clock;
using Zat::Ptr;

// A clock notifiee that records "<name>@<time>" when it fires, then runs its action.
class Timer : public Clock::Notifiee {
 public:
  static Ptr<Timer> TimerIs(const Ptr<const Clock>& clock, std::string name, Log* log) {
    Ptr<Timer> t(new Timer(clock, std::move(name), log));
    t->hasNotificationActiveIs(true);
    return t;
  }
  void handleTime() override {
    log_->push_back(name_ + "@" + Zat::toText(Zat::System::currentTime()));
    if (action) action();
  }
  std::function<void()> action;

 private:
  Timer(const Ptr<const Clock>& clock, std::string name, Log* log)
      : Clock::Notifiee(clock), name_(std::move(name)), log_(log) {}
  std::string name_;
  Log* log_;
};

class SimulatedClock : public ::testing::Test {
 protected:
  void SetUp() override { am->simulatedTimeIs(true, 1000.0); }
  void TearDown() override { am->simulatedTimeIs(false); }
  Zat::ActivityManager* am = Zat::activityManager();
  Ptr<Clock> clock = Clock::ClockIs("testClock");
  Log log;
};

TEST_F(SimulatedClock, StartsAtTheGivenTime) {
  EXPECT_TRUE(am->simulatedTime());
  EXPECT_EQ(Zat::System::currentTime(), 1000.0);
  EXPECT_EQ(clock->now(), 1000.0);
}

TEST_F(SimulatedClock, NotifieesFireAtTheirDeadlinesInDeadlineOrder) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  auto c = Timer::TimerIs(clock, "c", &log);
  a->timeMinIs(1003.0);
  b->timeMinIs(1001.0);
  c->timeMinIs(1002.5);
  EXPECT_EQ(clock->armedCount(), 3u);
  EXPECT_EQ(clock->nextDeadline(), 1001.0);
  am->advanceTo(1010.0);
  EXPECT_EQ(log, (Log{"b@1001", "c@1002.5", "a@1003"}));
  EXPECT_EQ(clock->armedCount(), 0u);
  EXPECT_EQ(a->timeMin(), Clock::kNever);
}

TEST_F(SimulatedClock, TiesFireInArmingOrder) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  auto c = Timer::TimerIs(clock, "c", &log);
  c->timeMinIs(1005.0);
  a->timeMinIs(1005.0);
  b->timeMinIs(1005.0);
  c->timeMinIs(1005.0);  // re-arming moves c behind the others
  am->advanceTo(1005.0);
  EXPECT_EQ(log, (Log{"a@1005", "b@1005", "c@1005"}));
}

TEST_F(SimulatedClock, CurrentTimeInsideTheHandlerIsTheDeadline) {
  auto t = Timer::TimerIs(clock, "t", &log);
  double seen = 0;
  double seenByClock = 0;
  t->action = [&] {
    seen = Zat::System::currentTime();
    seenByClock = clock->now();
  };
  t->timeMinIs(1002.25);
  am->advanceTo(1009.0);
  EXPECT_EQ(seen, 1002.25);
  EXPECT_EQ(seenByClock, 1002.25);
}

TEST_F(SimulatedClock, AfterAdvanceToNowIsTheTarget) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1001.0);
  am->advanceTo(1004.5);
  EXPECT_EQ(Zat::System::currentTime(), 1004.5);
  am->advanceBy(0.5);
  EXPECT_EQ(Zat::System::currentTime(), 1005.0);
  am->advanceTo(1005.0);
  EXPECT_EQ(Zat::System::currentTime(), 1005.0);
  EXPECT_EQ(log, (Log{"t@1001"}));
}

TEST_F(SimulatedClock, DeadlineAtTheTargetFiresButOneAfterItWaits) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  a->timeMinIs(1002.0);
  b->timeMinIs(1002.001);
  am->advanceTo(1002.0);
  EXPECT_EQ(log, (Log{"a@1002"}));
  EXPECT_EQ(b->timeMin(), 1002.001);
}

TEST_F(SimulatedClock, HandlerThatReArmsItselfFiresRepeatedlyWithinOneAdvance) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->action = [&] { t->timeMinIs(Zat::System::currentTime() + 1.0); };
  t->timeMinIs(1001.0);
  am->advanceTo(1004.5);
  EXPECT_EQ(log, (Log{"t@1001", "t@1002", "t@1003", "t@1004"}));
  EXPECT_EQ(t->timeMin(), 1005.0);
  EXPECT_EQ(Zat::System::currentTime(), 1004.5);
}

TEST_F(SimulatedClock, HandlerThatCancelsAnotherPendingTimerPreventsIt) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  a->action = [&] { b->timeMinIs(Clock::kNever); };
  a->timeMinIs(1001.0);
  b->timeMinIs(1002.0);
  am->advanceTo(1010.0);
  EXPECT_EQ(log, (Log{"a@1001"}));
  EXPECT_EQ(b->timeMin(), Clock::kNever);
  EXPECT_EQ(clock->armedCount(), 0u);
}

TEST_F(SimulatedClock, HandlerArmingAnEarlierTimerFiresItBeforeLaterOnes) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  auto c = Timer::TimerIs(clock, "c", &log);
  a->action = [&] { b->timeMinIs(1002.0); };
  a->timeMinIs(1001.0);
  c->timeMinIs(1003.0);
  am->advanceTo(1010.0);
  EXPECT_EQ(log, (Log{"a@1001", "b@1002", "c@1003"}));
}

TEST_F(SimulatedClock, DeadlineInThePastFiresAtTheNextStepWithoutMovingTimeBack) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(990.0);
  am->advanceTo(1000.0);
  EXPECT_EQ(log, (Log{"t@1000"}));
}

TEST_F(SimulatedClock, DeactivatedNotifieeDoesNotFireAndFiresWhenReactivated) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1002.0);
  t->hasNotificationActiveIs(false);
  EXPECT_EQ(clock->armedCount(), 0u);
  am->advanceTo(1005.0);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(t->timeMin(), 1002.0);  // the deadline is kept, only suspended

  t->hasNotificationActiveIs(true);
  am->advanceTo(1006.0);
  EXPECT_EQ(log, (Log{"t@1005"}));

  t->timeMinIs(1008.0);
  t->hasNotificationActiveIs(false);
  t->hasNotificationActiveIs(true);
  am->advanceTo(1010.0);
  EXPECT_EQ(log, (Log{"t@1005", "t@1008"}));
}

TEST_F(SimulatedClock, ZombieNotifieeDoesNotFire) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1002.0);
  t->zatDoZombieReactors(true);
  EXPECT_EQ(clock->armedCount(), 0u);
  am->advanceTo(1005.0);
  EXPECT_TRUE(log.empty());
}

TEST_F(SimulatedClock, FreedNotifieeIsUnscheduled) {
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1002.0);
  t = nullptr;
  EXPECT_EQ(clock->armedCount(), 0u);
  am->advanceTo(1005.0);
  EXPECT_TRUE(log.empty());
}

TEST_F(SimulatedClock, HandlerFreeingAnotherArmedNotifieePreventsIt) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  a->action = [&] { b = nullptr; };
  a->timeMinIs(1001.0);
  b->timeMinIs(1001.0);
  am->advanceTo(1002.0);
  EXPECT_EQ(log, (Log{"a@1001"}));
}

TEST_F(SimulatedClock, NotifierIsMovesAnArmedNotifieeToTheNewClock) {
  auto other = Clock::ClockIs("otherClock");
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1002.0);
  t->notifierIs(Ptr<const Zat::PtrInterface>(other));
  EXPECT_EQ(clock->armedCount(), 0u);
  EXPECT_EQ(other->armedCount(), 1u);
  am->advanceTo(1003.0);
  EXPECT_EQ(log, (Log{"t@1002"}));
}

TEST_F(SimulatedClock, TypedNotifierIsThroughTheBaseMovesAnArmedNotifieeToo) {
  auto other = Clock::ClockIs("otherClock");
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(1002.0);
  Zat::NotifieeOf<Clock>& typed = *t;
  typed.notifierIs(Ptr<const Clock>(other));
  EXPECT_EQ(clock->armedCount(), 0u);
  EXPECT_EQ(other->armedCount(), 1u);
}

TEST_F(SimulatedClock, FireDueFiresOnlyWhatIsDueNow) {
  auto a = Timer::TimerIs(clock, "a", &log);
  auto b = Timer::TimerIs(clock, "b", &log);
  a->timeMinIs(1000.0);
  b->timeMinIs(1001.0);
  EXPECT_EQ(am->fireDue(), 1u);
  EXPECT_EQ(log, (Log{"a@1000"}));
  EXPECT_EQ(am->nextDeadline(), 1001.0);
}

TEST_F(SimulatedClock, TimerWheelAndClockInterleaveInGlobalDeadlineOrder) {
  auto wheel = Pell::TimerWheel::TimerWheelIs("vlanWheel");
  auto c1 = Timer::TimerIs(clock, "c1", &log);
  auto c3 = Timer::TimerIs(clock, "c3", &log);
  auto c5 = Timer::TimerIs(clock, "c5", &log);
  auto w2 = Timer::TimerIs(wheel, "w2", &log);
  auto w4 = Timer::TimerIs(wheel, "w4", &log);
  auto w5 = Timer::TimerIs(wheel, "w5", &log);
  double wheelTime = 0;
  w2->action = [&] { wheelTime = wheel->time(); };
  w4->timeMinIs(1004.0);
  c3->timeMinIs(1003.0);
  w2->timeMinIs(1002.0);
  c1->timeMinIs(1001.0);
  w5->timeMinIs(1005.0);  // ties across clocks fire in arming order too
  c5->timeMinIs(1005.0);
  am->advanceTo(1010.0);
  EXPECT_EQ(log, (Log{"c1@1001", "w2@1002", "c3@1003", "w4@1004", "w5@1005", "c5@1005"}));
  EXPECT_EQ(wheelTime, 1002.0);
  EXPECT_STREQ(wheel->fwkType(), "Pell::TimerWheel");
}

TEST_F(SimulatedClock, ActivityManagerHandsOutOneFrameworkClock) {
  Ptr<Clock> c = am->config()->clock();
  ASSERT_TRUE(c);
  EXPECT_EQ(c, am->config()->clock());
  EXPECT_EQ(c->name(), Zat::Name("activityClock"));
  auto t = Timer::TimerIs(c, "t", &log);
  t->timeMinIs(1001.0);
  am->advanceTo(1001.0);
  EXPECT_EQ(log, (Log{"t@1001"}));
}

TEST(ActivityManager, AdvanceToRequiresSimulatedTime) {
  auto* am = Zat::activityManager();
  ASSERT_FALSE(am->simulatedTime());
  try {
    am->advanceTo(0.0);
    FAIL() << "no exception";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "ActivityManager::advanceTo requires simulated time");
  }
}

TEST_F(SimulatedClock, RunForUnderSimulatedTimeIsRefusedLikeAdvanceTo) {
  EXPECT_THROW(am->runFor(0.01), std::logic_error);
}

// The only tests that use real time: kept short, with generous bounds.
TEST(RealTimeLoop, RunForFiresATimerArmedAheadAndReturnsAfterTheDuration) {
  auto* am = Zat::activityManager();
  ASSERT_FALSE(am->simulatedTime());
  auto clock = Clock::ClockIs("realClock");
  Log log;
  auto t = Timer::TimerIs(clock, "t", &log);
  double firedAt = 0;
  t->action = [&] { firedAt = Zat::System::currentTime(); };
  double start = am->now();
  double deadline = start + 0.05;
  t->timeMinIs(deadline);
  am->runFor(0.2);
  double end = am->now();
  EXPECT_EQ(log.size(), 1u);
  EXPECT_GE(firedAt, deadline);
  EXPECT_LT(firedAt, deadline + 0.15);
  EXPECT_GE(end, start + 0.2);
  EXPECT_LT(end, start + 2.0);
}

TEST(RealTimeLoop, StopFromAHandlerEndsTheLoopEarly) {
  auto* am = Zat::activityManager();
  auto clock = Clock::ClockIs("realClock");
  Log log;
  auto t = Timer::TimerIs(clock, "t", &log);
  t->action = [am] { am->stop(); };
  double start = am->now();
  t->timeMinIs(start + 0.02);
  am->runFor(2.0);
  EXPECT_EQ(log.size(), 1u);
  EXPECT_LT(am->now(), start + 1.0);
}

// An idle switch must not pay for wake-ups it has no use for: the loop sleeps
// until its next deadline, however far, and then until the end of its run.
TEST(RealTimeLoop, IdleLoopSleepsUntilItsNextDeadlineOnly) {
  auto* am = Zat::activityManager();
  auto clock = Clock::ClockIs("realClock");
  Log log;
  auto t = Timer::TimerIs(clock, "t", &log);
  t->timeMinIs(am->now() + 0.6);
  const uint64_t before = am->waits();
  am->runFor(0.75);
  EXPECT_EQ(log.size(), 1u);
  // One wait for the timer and one for the end; an early return of the system's
  // wait (a signal) may add one.
  EXPECT_GE(am->waits() - before, 2u);
  EXPECT_LE(am->waits() - before, 3u);
}

// The loop does not wake to look at stop(): another thread stops it by making one
// of the loop's fds readable, whose callback calls stop().
TEST(RealTimeLoop, StopThroughAnFdFromAnotherThreadEndsTheLoopAtOnce) {
  auto* am = Zat::activityManager();
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  int callbacks = 0;
  am->fdIs(fds[0], [&] {
    char byte;
    ASSERT_EQ(::read(fds[0], &byte, 1), 1);
    ++callbacks;
    am->stop();
  });
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(::write(fds[1], "s", 1), 1);
  });
  const auto start = std::chrono::steady_clock::now();
  am->runFor(30.0);
  const double ran =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  stopper.join();
  am->fdDel(fds[0]);
  ::close(fds[0]);
  ::close(fds[1]);
  EXPECT_EQ(callbacks, 1);
  EXPECT_GE(ran, 0.04);
  EXPECT_LT(ran, 5.0);
}

// The loop thread extrapolates real time from its last clock read; what it sees
// must keep pace with the monotonic clock across re-reads and never step back.
TEST(RealTimeLoop, LoopThreadTimeKeepsPaceWithTheMonotonicClockAndNeverGoesBack) {
  auto* am = Zat::activityManager();
  auto clock = Clock::ClockIs("realClock");
  Log log;
  auto t = Timer::TimerIs(clock, "t", &log);
  double worstLag = 0;
  bool wentBack = false;
  size_t reads = 0;
  t->action = [&] {
    using Steady = std::chrono::steady_clock;
    // A starting pair read close together, so that the two time bases line up.
    Steady::time_point steady0;
    double zat0 = 0;
    do {
      steady0 = Steady::now();
      zat0 = Zat::System::currentTime();
    } while (Steady::now() - steady0 > std::chrono::microseconds(2));
    double last = zat0;
    // 20 ms: several times the span after which the loop reads the clock again.
    while (Steady::now() - steady0 < std::chrono::milliseconds(20)) {
      const double before = std::chrono::duration<double>(Steady::now() - steady0).count();
      const double zat = Zat::System::currentTime() - zat0;
      const double after = std::chrono::duration<double>(Steady::now() - steady0).count();
      if (zat + zat0 < last) wentBack = true;
      last = zat + zat0;
      // Inside the bracket of the two monotonic reads, give or take a few microseconds.
      worstLag = std::max({worstLag, before - zat, zat - after});
      ++reads;
    }
    am->stop();
  };
  t->timeMinIs(am->now() + 0.01);
  am->runFor(2.0);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_GT(reads, 100u);
  EXPECT_FALSE(wentBack);
  EXPECT_LT(worstLag, 20e-6);
  // Off the loop, time is read from the clock as ever.
  const double a = am->now();
  const double b = am->now();
  EXPECT_LE(a, b);
}

}  // namespace
}  // namespace ZatTest
