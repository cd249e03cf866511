// Cost of the handler-entry instruments: a trace record with and without a trace file,
// a block timer around an empty scope next to the tick reads it is made of, and a
// plain 64-byte copy for scale.
#include "nimlog/Nimlog.h"

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

std::string scratchTracePath() {
  const char* tmp = std::getenv("TMPDIR");
  return std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/bench-nimlog-" +
         std::to_string(getpid()) + ".nimlog";
}

void BM_Memcpy64(benchmark::State& state) {
  alignas(64) unsigned char source[64] = {1, 2, 3};
  alignas(64) unsigned char target[64];
  for (auto _ : state) {
    benchmark::DoNotOptimize(source);
    std::memcpy(target, source, sizeof target);
    benchmark::DoNotOptimize(target);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Memcpy64);

// The clock read that records and timers are built on, for scale.
void BM_SteadyClockRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(Nimlog::monotonicNs());
  }
}
BENCHMARK(BM_SteadyClockRead);

// One read of the tick counter that block timers run on: a timer is two of these,
// and every poll runs two timers (the tick handler and the poll inside it).
void BM_TicksNow(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(Nimlog::ticksNow());
  }
}
BENCHMARK(BM_TicksNow);

void BM_RecordWithFileOpen(benchmark::State& state) {
  const std::string path = scratchTracePath();
  Nimlog::TraceFile::open(path, 1 << 16);
  std::uint64_t n = 0;
  for (auto _ : state) {
    NIMLOG_RECORD("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()", n, 7);
    ++n;
  }
  Nimlog::TraceFile::close();
  unlink(path.c_str());
}
BENCHMARK(BM_RecordWithFileOpen);

void BM_RecordWithoutFile(benchmark::State& state) {
  Nimlog::TraceFile::close();
  std::uint64_t n = 0;
  for (auto _ : state) {
    NIMLOG_RECORD("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()", n, 7);
    benchmark::DoNotOptimize(++n);
  }
}
BENCHMARK(BM_RecordWithoutFile);

void BM_BlockTimerScope(benchmark::State& state) {
  std::uint64_t n = 0;
  for (auto _ : state) {
    NIMLOG_BLOCK_TIMER("BM_BlockTimerScope");
    benchmark::DoNotOptimize(++n);
  }
}
BENCHMARK(BM_BlockTimerScope);

void BM_HandlerEntryWithFileOpen(benchmark::State& state) {
  const std::string path = scratchTracePath();
  Nimlog::TraceFile::open(path, 1 << 16);
  std::uint64_t n = 0;
  for (auto _ : state) {
    NIMLOG_HANDLER("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()");
    benchmark::DoNotOptimize(++n);
  }
  Nimlog::TraceFile::close();
  unlink(path.c_str());
}
BENCHMARK(BM_HandlerEntryWithFileOpen);

}  // namespace

BENCHMARK_MAIN();
