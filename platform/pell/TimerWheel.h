// Pell::TimerWheel: the timer source of the VLAN counters machine.
//
// A wheel is a Zat clock (its notifiees are armed with timeMinIs and fire
// handleTime) whose time() is the activity manager's time, so the same real or
// simulated driver moves every timer of the agent.
#pragma once

#include "zat/Clock.h"

namespace Pell {

class TimerWheel : public Zat::Clock {
 public:
  static Zat::Ptr<TimerWheel> TimerWheelIs(const Zat::Name& name) {
    return Zat::Ptr<TimerWheel>(new TimerWheel(name));
  }
  // Current time in seconds.
  double time() const { return now(); }
  const char* fwkType() const override { return "Pell::TimerWheel"; }

 private:
  explicit TimerWheel(const Zat::Name& name) : Zat::Clock(name) {}
};

}  // namespace Pell
