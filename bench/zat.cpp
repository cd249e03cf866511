// Costs of the object framework on the poll path: counted references, one
// notification delivered to a reactor, and a timer armed and fired on simulated
// time. A virtual call and a 64-byte memcpy run in the same program as baselines,
// so the figures can be read as multiples of them on whatever machine runs this.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "pell/TimerWheel.h"
#include "zat/Activity.h"
#include "zat/Clock.h"
#include "zat/Collections.h"
#include "zat/Notifiee.h"
#include "zat/Ptr.h"
#include "zat/Trace.h"

// --- Baselines ---

// Outside the anonymous namespace so that the compiler cannot prove CountingHandler
// is the only implementation and turn the baseline into a direct call.
namespace ZatBench {
class Handler {
 public:
  virtual ~Handler() = default;
  virtual void handle(int key) = 0;
};

class CountingHandler : public Handler {
 public:
  void handle(int key) override { sum += key; }
  long sum = 0;
};
}  // namespace ZatBench

namespace {

using Zat::Ptr;
using ZatBench::CountingHandler;
using ZatBench::Handler;

void BM_Baseline_VirtualCall(benchmark::State& state) {
  CountingHandler h;
  Handler* p = &h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(p);  // hides the dynamic type so the call stays virtual
    p->handle(1);
  }
  benchmark::DoNotOptimize(h.sum);
}
BENCHMARK(BM_Baseline_VirtualCall);

void BM_Baseline_Memcpy64(benchmark::State& state) {
  alignas(64) char src[64] = {1};
  alignas(64) char dst[64];
  for (auto _ : state) {
    benchmark::DoNotOptimize(src);
    std::memcpy(dst, src, sizeof dst);
    benchmark::DoNotOptimize(dst);
  }
}
BENCHMARK(BM_Baseline_Memcpy64);

// --- Counted references ---

class Object : public Zat::PtrInterface {};

// Argument: 1 with the thread-safe (atomic) reference counts switched on.
void BM_PtrCopyRelease(benchmark::State& state) {
  Zat::threadSafePtrsIs(state.range(0) != 0);
  Ptr<Object> p(new Object());
  for (auto _ : state) {
    Ptr<Object> copy(p);
    benchmark::DoNotOptimize(copy);
  }
  Zat::threadSafePtrsIs(false);
}
BENCHMARK(BM_PtrCopyRelease)->ArgName("threadSafe")->Arg(0)->Arg(1);

void BM_PtrCreateAndFree(benchmark::State& state) {
  for (auto _ : state) {
    Ptr<Object> p(new Object());
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_PtrCreateAndFree);

// --- Notifications ---

class Notifier : public Zat::PtrInterface {
 public:
  static constexpr Zat::AttributeId kIntf = "intf";
  Notifier() : intf_(this, kIntf) {}
  void intfIs(int key, int value) { intf_.set(key, value); }

 private:
  Zat::AttrCollection<int, int> intf_;
};

class Reactor : public Zat::NotifieeOf<Notifier> {
 public:
  explicit Reactor(const Ptr<const Notifier>& n) : Zat::NotifieeOf<Notifier>(n) {}
  void onAttribute(Zat::AttributeId attr, const void* key) override {
    if (attr != Notifier::kIntf || key == nullptr || references() < 0) return;
    sum += *static_cast<const int*>(key);
  }
  long sum = 0;
};

// Argument: the number of reactors registered on the notifier.
void BM_NotifyReactors(benchmark::State& state) {
  Ptr<Notifier> n(new Notifier());
  std::vector<Ptr<Reactor>> reactors;
  for (int i = 0; i < state.range(0); ++i) {
    reactors.emplace_back(new Reactor(n));
    reactors.back()->hasNotificationActiveIs(true);
  }
  int key = 7;
  for (auto _ : state) n->notify(Notifier::kIntf, &key);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_NotifyReactors)->ArgName("reactors")->Arg(1)->Arg(8);

// A keyed attribute change end to end: hash map update plus delivery to one reactor.
void BM_AttrCollectionSetNotifiesReactor(benchmark::State& state) {
  Ptr<Notifier> n(new Notifier());
  Ptr<Reactor> r(new Reactor(n));
  r->hasNotificationActiveIs(true);
  int value = 0;
  for (auto _ : state) n->intfIs(3, ++value);
  benchmark::DoNotOptimize(r->sum);
}
BENCHMARK(BM_AttrCollectionSetNotifiesReactor);

// --- Timers on simulated time ---

class Timer : public Zat::Clock::Notifiee {
 public:
  explicit Timer(const Ptr<const Zat::Clock>& clock) : Zat::Clock::Notifiee(clock) {}
  void handleTime() override { ++fired; }
  long fired = 0;
};

// Arms one timer one second ahead and advances to it. Argument: other timers kept
// armed far in the future (a busy agent has one per poller).
template <class ClockT>
void armAndFire(benchmark::State& state, const Ptr<ClockT>& clock) {
  auto* am = Zat::activityManager();
  am->simulatedTimeIs(true, 1000.0);
  std::vector<Ptr<Timer>> idle;
  for (int i = 0; i < state.range(0); ++i) {
    idle.emplace_back(new Timer(clock));
    idle.back()->hasNotificationActiveIs(true);
    idle.back()->timeMinIs(1e12 + i);
  }
  Ptr<Timer> t(new Timer(clock));
  t->hasNotificationActiveIs(true);
  double now = 1000.0;
  for (auto _ : state) {
    now += 1.0;
    t->timeMinIs(now);
    am->advanceTo(now);
  }
  if (t->fired != static_cast<long>(state.iterations())) state.SkipWithError("timer missed");
  idle.clear();
  am->simulatedTimeIs(false);
}

void BM_ClockArmAndFire(benchmark::State& state) {
  armAndFire(state, Zat::Clock::ClockIs("benchClock"));
}
BENCHMARK(BM_ClockArmAndFire)->ArgName("otherArmed")->Arg(0)->Arg(1000);

void BM_TimerWheelArmAndFire(benchmark::State& state) {
  armAndFire(state, Pell::TimerWheel::TimerWheelIs("benchWheel"));
}
BENCHMARK(BM_TimerWheelArmAndFire)->ArgName("otherArmed")->Arg(0)->Arg(1000);

// Re-arming an armed timer without firing it (the cost of moving a deadline).
void BM_ClockReArm(benchmark::State& state) {
  auto clock = Zat::Clock::ClockIs("benchClock");
  Ptr<Timer> t(new Timer(clock));
  t->hasNotificationActiveIs(true);
  double when = 1e12;
  for (auto _ : state) t->timeMinIs(when += 1.0);
  t->timeMinIs(Zat::Clock::kNever);
}
BENCHMARK(BM_ClockReArm);

// --- Text trace, switched off (every handler pays this) ---

void BM_TraceDisabled(benchmark::State& state) {
  Zat::Trace::reset();
  int i = 0;
  for (auto _ : state) {
    ZAT_TRACE("VornCountersSm", 8, "handleIntf " << ++i);
    benchmark::DoNotOptimize(i);
  }
}
BENCHMARK(BM_TraceDisabled);

// The same site while another module is traced (say the tables' damage reports):
// every handler's site asks again, and must not pay a locked look-up for it.
void BM_TraceSiteWhileAnotherModuleIsTraced(benchmark::State& state) {
  Zat::Trace::reset();
  Zat::Trace::levelIs("Brim", 1);
  int i = 0;
  for (auto _ : state) {
    ZAT_TRACE("VornCountersSm", 8, "handleIntf " << ++i);
    benchmark::DoNotOptimize(i);
  }
  Zat::Trace::reset();
}
BENCHMARK(BM_TraceSiteWhileAnotherModuleIsTraced);

}  // namespace

BENCHMARK_MAIN();
