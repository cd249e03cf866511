// Costs of the shared-memory counter tables for a 400-byte record, next to a plain
// memcpy of the same record measured in the same run: writer put, find and in-place
// write with commit, and reader find. The argument is how many distinct keys the
// loop cycles through in random order: 1 stays in cache, the largest does not.
// BM_PutVersusMemcpy424 times the poll path's write of a 424-byte port record and a
// memcpy of it in alternating batches of one run (thread CPU time), and reports both
// and their ratio.
#include "brim/Brim.h"

#include <benchmark/benchmark.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

struct BenchRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimBench::CounterRecord";
  uint64_t id = 0;
  uint64_t values[49] = {};
  Key key() const { return id; }
};
static_assert(sizeof(BenchRecord) == 400);

constexpr uint32_t kMaxKeys = 1 << 16;

const std::string& benchNs() {
  static const std::string ns = "bench" + std::to_string(getpid());
  return ns;
}

std::unique_ptr<Brim::TableWriter<BenchRecord>> gWriter;
std::unique_ptr<Brim::TableReader<BenchRecord>> gReader;

Brim::TableWriter<BenchRecord>& writer() {
  if (!gWriter) {
    gWriter = Brim::TableWriter<BenchRecord>::open(benchNs(), "counters", kMaxKeys);
    BenchRecord record;
    for (uint64_t k = 0; k < kMaxKeys; ++k) {
      record.id = k;
      record.values[0] = k;
      gWriter->put(record);
    }
  }
  return *gWriter;
}

Brim::TableReader<BenchRecord>& reader() {
  writer();
  if (!gReader) gReader = Brim::TableReader<BenchRecord>::open(benchNs(), "counters");
  return *gReader;
}

// The first `count` keys in a fixed random order, so that the hardware prefetcher
// cannot hide the cost of an out-of-cache slot.
std::vector<uint64_t> keyOrder(int64_t count) {
  std::vector<uint64_t> keys(static_cast<size_t>(count));
  std::iota(keys.begin(), keys.end(), 0);
  std::shuffle(keys.begin(), keys.end(), std::mt19937_64(42));
  return keys;
}

void BM_MemcpyRecord(benchmark::State& state) {
  std::vector<BenchRecord> source(static_cast<size_t>(state.range(0)));
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  BenchRecord copy;
  size_t i = 0;
  for (auto _ : state) {
    std::memcpy(&copy, &source[keys[i]], sizeof copy);
    benchmark::DoNotOptimize(copy);
    benchmark::ClobberMemory();
    if (++i == keys.size()) i = 0;
  }
}

void BM_WriterPut(benchmark::State& state) {
  auto& table = writer();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  BenchRecord record;
  size_t i = 0;
  for (auto _ : state) {
    record.id = keys[i];
    ++record.values[1];
    table.put(record);
    if (++i == keys.size()) i = 0;
  }
}

void BM_WriterFind(benchmark::State& state) {
  auto& table = writer();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}

void BM_DirectWriteCommit(benchmark::State& state) {
  auto& table = writer();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  size_t i = 0;
  for (auto _ : state) {
    BenchRecord& record = table.directWrite(keys[i]);
    ++record.values[2];
    table.commit(keys[i]);
    if (++i == keys.size()) i = 0;
  }
}

void BM_ReaderFind(benchmark::State& state) {
  auto& table = reader();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(keys[i]));
    if (++i == keys.size()) i = 0;
  }
}

// The same look-up copying straight into the caller's record instead of an optional.
void BM_ReaderFindInto(benchmark::State& state) {
  auto& table = reader();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  BenchRecord record;
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(keys[i], record));
    benchmark::ClobberMemory();
    if (++i == keys.size()) i = 0;
  }
}

void BM_ReaderWalkPerRecord(benchmark::State& state) {
  auto& table = reader();
  uint64_t records = 0;
  for (auto _ : state) {
    table.forEach([&](const BenchRecord& record) {
      benchmark::DoNotOptimize(record);
      ++records;
    });
  }
  state.SetItemsProcessed(static_cast<int64_t>(records));
}

// The size of the agent's port counter record.
struct PortRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimBench::PortRecord";
  uint64_t id = 0;
  uint64_t values[52] = {};
  Key key() const { return id; }
};
static_assert(sizeof(PortRecord) == 424);

void BM_SlotChecksum424(benchmark::State& state) {
  PortRecord record;
  for (auto _ : state) {
    ++record.values[1];
    benchmark::DoNotOptimize(Brim::Layout::slotChecksum(
        7, Brim::Layout::kLive, reinterpret_cast<const unsigned char*>(&record), 53));
  }
}

// The poll path of a writer that keeps a handle on each of its slots.
void BM_WriterPutAt(benchmark::State& state) {
  auto& table = writer();
  const std::vector<uint64_t> keys = keyOrder(state.range(0));
  std::vector<Brim::TableWriter<BenchRecord>::Slot> slots;
  for (uint64_t key : keys) slots.push_back(*table.slotOf(key));
  BenchRecord record;
  size_t i = 0;
  for (auto _ : state) {
    record.id = keys[i];
    ++record.values[1];
    table.putAt(slots[i], record);
    if (++i == keys.size()) i = 0;
  }
}

// The checksum of the first layout, for comparison.
void BM_FirstLayoutChecksum424(benchmark::State& state) {
  PortRecord record;
  for (auto _ : state) {
    ++record.values[1];
    benchmark::DoNotOptimize(Brim::Layout::v1::slotChecksum(
        7, Brim::Layout::v1::kLive, reinterpret_cast<const unsigned char*>(&record), 53));
  }
}

// This thread's CPU time: the machine may be shared, and time spent descheduled
// belongs to neither side of the ratio.
double threadNanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void BM_PutVersusMemcpy424(benchmark::State& state) {
  const std::string ns = benchNs() + "p";
  auto table = Brim::TableWriter<PortRecord>::open(ns, "ports", 1024);
  const int64_t keyCount = state.range(0);
  std::vector<PortRecord> records(static_cast<size_t>(keyCount));
  for (int64_t k = 0; k < keyCount; ++k) {
    records[static_cast<size_t>(k)].id = static_cast<uint64_t>(k);
    table->put(records[static_cast<size_t>(k)]);
  }
  std::vector<PortRecord> copies(static_cast<size_t>(keyCount));
  const std::vector<uint64_t> keys = keyOrder(keyCount);
  constexpr int kBatch = 1024;
  double putNs = 0;
  double copyNs = 0;
  uint64_t ops = 0;
  size_t i = 0;
  for (auto _ : state) {
    const size_t start = i;
    const double t0 = threadNanoseconds();
    for (int n = 0; n < kBatch; ++n) {
      PortRecord& record = records[keys[i]];
      ++record.values[1];
      table->put(record);
      if (++i == keys.size()) i = 0;
    }
    const double t1 = threadNanoseconds();
    i = start;
    for (int n = 0; n < kBatch; ++n) {
      std::memcpy(&copies[keys[i]], &records[keys[i]], sizeof(PortRecord));
      benchmark::ClobberMemory();
      if (++i == keys.size()) i = 0;
    }
    const double t2 = threadNanoseconds();
    putNs += t1 - t0;
    copyNs += t2 - t1;
    ops += kBatch;
  }
  state.counters["put_ns"] = putNs / static_cast<double>(ops);
  state.counters["memcpy_ns"] = copyNs / static_cast<double>(ops);
  state.counters["put_per_memcpy"] = putNs / copyNs;
  state.SetItemsProcessed(static_cast<int64_t>(ops));
  table.reset();
  Brim::unlinkTable(ns, "ports");
}

#define BRIM_KEY_COUNTS Arg(1)->Arg(1024)->Arg(kMaxKeys)
BENCHMARK(BM_MemcpyRecord)->BRIM_KEY_COUNTS;
BENCHMARK(BM_WriterPut)->BRIM_KEY_COUNTS;
BENCHMARK(BM_WriterPutAt)->BRIM_KEY_COUNTS;
BENCHMARK(BM_WriterFind)->BRIM_KEY_COUNTS;
BENCHMARK(BM_DirectWriteCommit)->BRIM_KEY_COUNTS;
BENCHMARK(BM_ReaderFind)->BRIM_KEY_COUNTS;
BENCHMARK(BM_ReaderFindInto)->BRIM_KEY_COUNTS;
BENCHMARK(BM_ReaderWalkPerRecord);
BENCHMARK(BM_SlotChecksum424);
BENCHMARK(BM_FirstLayoutChecksum424);
BENCHMARK(BM_PutVersusMemcpy424)->Arg(1)->Arg(1024);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  gReader.reset();
  gWriter.reset();
  Brim::unlinkTable(benchNs(), "counters");
  return 0;
}
