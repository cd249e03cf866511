#include "zat/Trace.h"

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <stdexcept>

namespace Zat::Trace {

namespace {
struct State {
  std::mutex mutex;
  std::map<std::string, int, std::less<>> levels;
  int wildcard = -1;
  Sink sink;
  bool envRead = false;
};
State& state() {
  static State s;
  return s;
}
// Fast path: nothing enabled anywhere means no lock and no map look-up.
std::atomic<bool> gAnyEnabled{false};
std::atomic<bool> gEnvChecked{false};

void recomputeAny(State& s) {
  bool any = s.wildcard >= 0;
  for (const auto& [m, l] : s.levels) any = any || l >= 0;
  gAnyEnabled.store(any, std::memory_order_relaxed);
  detail::levelGeneration.fetch_add(1, std::memory_order_release);
  detail::allQuiet.store(!any && gEnvChecked.load(), std::memory_order_relaxed);
}

void readEnvironmentOnce() {
  if (gEnvChecked.exchange(true)) return;
  if (const char* env = std::getenv("ZAT_TRACE")) {
    try {
      configure(env);
    } catch (const std::exception& e) {
      std::cerr << "ZAT_TRACE ignored: " << e.what() << "\n";
    }
  }
  State& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  recomputeAny(s);
}
}  // namespace

void levelIs(std::string_view module, int lvl) {
  gEnvChecked.store(true);
  State& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  if (module == "*") {
    s.wildcard = lvl;
  } else {
    s.levels[std::string(module)] = lvl;
  }
  recomputeAny(s);
}

int level(std::string_view module) {
  State& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  auto it = s.levels.find(module);
  return it != s.levels.end() ? it->second : s.wildcard;
}

void reset() {
  gEnvChecked.store(true);
  State& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.levels.clear();
  s.wildcard = -1;
  recomputeAny(s);
}

void configure(std::string_view settings) {
  size_t pos = 0;
  while (pos < settings.size()) {
    size_t comma = settings.find(',', pos);
    std::string_view item =
        settings.substr(pos, comma == std::string_view::npos ? settings.npos : comma - pos);
    pos = comma == std::string_view::npos ? settings.size() : comma + 1;
    if (item.empty()) continue;
    size_t eq = item.find('=');
    if (eq == std::string_view::npos || eq == 0 || eq + 1 >= item.size()) {
      throw std::invalid_argument("trace setting '" + std::string(item) +
                                  "' is not of the form module=level");
    }
    std::string lvlText(item.substr(eq + 1));
    if (lvlText.size() != 1 || lvlText[0] < '0' || lvlText[0] > '9') {
      throw std::invalid_argument("trace level '" + lvlText + "' is not a digit 0-9");
    }
    levelIs(item.substr(0, eq), lvlText[0] - '0');
  }
}

namespace detail {
std::atomic<bool> allQuiet{false};
std::atomic<std::uint64_t> levelGeneration{1};

int currentLevel(std::string_view module) {
  if (!gEnvChecked.load(std::memory_order_relaxed)) readEnvironmentOnce();
  if (!gAnyEnabled.load(std::memory_order_relaxed)) return -1;
  return level(module);
}
}  // namespace detail

void sinkIs(Sink sink) {
  State& s = state();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.sink = std::move(sink);
}

void sinkDel() { sinkIs(nullptr); }

void write(std::string_view module, int lvl, const std::string& text) {
  State& s = state();
  Sink sink;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    sink = s.sink;
  }
  if (sink) {
    sink(module, lvl, text);
  } else {
    std::cerr << module << "/" << lvl << ": " << text << "\n";
  }
}

}  // namespace Zat::Trace
