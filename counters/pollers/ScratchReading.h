// Reading objects that a poller hands to the platform helper on every poll.
//
// A poll asks the helper to fill a fresh, zero-filled reading. Making one costs
// an allocation and a free per poll (two per VLAN for the VLAN machine), so the
// pollers keep the object between polls and zero it instead. That is only the
// same thing while nobody else holds the object: a helper may keep a reference
// to what it was given, and then the poller makes a new one as before. With
// thread-safe references another thread may take one at any moment, so the
// object is never reused then.
#pragma once

#include "zat/Ptr.h"

namespace Vorn::Counters {

// `kept`, zeroed by `reset`, when this poller holds the only reference to it;
// otherwise `kept` is replaced by `make()`. Returns `kept`.
template <class T, class Make, class Reset>
const Zat::Ptr<T>& freshReading(Zat::Ptr<T>& kept, Make&& make, Reset&& reset) {
  if (kept && kept->references() == 1 && !Zat::threadSafePtrs()) {
    reset(*kept);
  } else {
    kept = make();
  }
  return kept;
}

}  // namespace Vorn::Counters
