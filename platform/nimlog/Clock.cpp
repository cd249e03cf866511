#include "nimlog/Clock.h"

namespace Nimlog {

namespace detail {
std::atomic<TimeSource> timeSource{nullptr};
}

void timeSourceIs(TimeSource source) noexcept {
  detail::timeSource.store(source, std::memory_order_relaxed);
}

}  // namespace Nimlog
