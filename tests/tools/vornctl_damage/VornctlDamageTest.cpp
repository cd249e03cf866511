// Damage to a real port table, seen through the real reader command: bits of one
// live slot and of the header are flipped one run at a time (and put back after
// each), and `vornctl show interfaces counters` must then refuse the table with a
// one-line "damaged" message: it must never print a changed counter.
//
// The tables are written here with the table writer (which stays attached, as the
// agent would) in a namespace of this test's own; the baseline table that vornctl
// requires exists and is empty. Each flip costs one vornctl run, so the coverage is
// bounded to keep the test well under a minute on a busy two-core machine:
//
//  - every bit, and every run of two neighbouring bits, of the slot's key, state and
//    checksum words and of the first four and the last four record words (a run
//    that starts at a word's last bit also takes the next word's first bit);
//  - in each of the 45 record words between those, 16 single bits and 16 runs of two
//    drawn with a fixed seed (the same bits on every run of the test);
//  - every bit and every run of two of the header's fixed fields (bytes 0 to 127,
//    magic to the header checksum);
//  - every bit and every run of two of the slot's sequence count, which is no data:
//    there vornctl must either report damage or print exactly the undamaged output
//    (a count left odd looks like a write in progress and is reported once the
//    reader's patience runs out).
#include <algorithm>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

#include "brim/Brim.h"
#include "brim/Layout.h"
#include "tables/CounterTables.h"
#include "tools/tableformat/TableTestSupport.h"

#if !defined(VORNCTL_BINARY)
#error "this test needs VORNCTL_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace {

using Port = Interface::EthIntfCounterBrim;
using Writer = Brim::TableWriter<Port>;
namespace Layout = Brim::Layout;

constexpr size_t kRecordWords = sizeof(Port) / 8;
constexpr size_t kFullRecordWordsEachEnd = 4;
constexpr size_t kSampledBitsPerWord = 16;

// A record whose every counter is non-zero and different from the others, so that
// any misread shows.
Port portRecord(const std::string& name, uint64_t seed) {
  Port r{Orvo::IntfId(name)};
  Interface::IntfStatistics s;
  uint64_t v = seed * 1000003;
  s.inOctetsIs(v += 7919);
  s.inUcastPktsIs(v += 7919);
  s.inMulticastPktsIs(v += 7919);
  s.inBroadcastPktsIs(v += 7919);
  s.inDiscardsIs(v += 7919);
  s.outOctetsIs(v += 7919);
  s.outUcastPktsIs(v += 7919);
  s.outMulticastPktsIs(Pell::MaybeU63(v += 7919));
  s.outBroadcastPktsIs(v += 7919);
  s.outDiscardsIs(v += 7919);
  s.inErrorsIs(v += 7919);
  s.inUnknownProtosIs(Pell::MaybeU63(v += 7919));
  s.outErrorsIs(v += 7919);
  s.statsUpdateTimeIs(1.7e9 + static_cast<double>(seed));
  r.statisticsIs(s);
  r.ratesIs(Interface::IntfRates(1e6 * seed, 2e3 * seed, 3e6 * seed, 4e3 * seed));
  Interface::EthStatistics e;
  for (size_t i = 0; i < Interface::EthStatistics::kFieldCount; ++i) e.fieldIs(i, v += 104729);
  r.ethStatisticsIs(e);
  r.lastClearTimeIs(1.6e9 + static_cast<double>(seed));
  return r;
}

// The message is one line, even when a flip turns a byte of the quoted type
// name into a line break (':' is 0x3a, a line feed 0x0a): the reader escapes it.
bool oneLine(const std::string& err) {
  return std::count(err.begin(), err.end(), '\n') == 1 && err.back() == '\n';
}

// One run of flipped bits, counted from the first bit of the table object.
struct FlipRun {
  size_t bit;
  size_t width;
  bool mustReport;  // false: damage or the undamaged output are both right
  std::string where;
};

class VornctlDamage : public ::testing::Test {
 protected:
  void SetUp() override {
    ns = "vd" + std::to_string(::getpid());
    TableTest::removeNamespace(ns);
  }
  void TearDown() override {
    totals.reset();
    clears.reset();
    TableTest::removeNamespace(ns);
  }

  TableTest::Outcome show() {
    return TableTest::run(VORNCTL_BINARY, {"-n", ns, "show", "interfaces", "counters"});
  }

  std::string ns;
  std::unique_ptr<Writer> totals, clears;
};

std::string describe(const std::string& where, size_t bitInArea, size_t width) {
  std::ostringstream os;
  os << where << " bit " << bitInArea << (width == 2 ? " and the next" : "");
  return os.str();
}

// Every single bit and run of two in `words` words starting at byte `offset`.
void everyRun(std::vector<FlipRun>& runs, size_t offset, size_t words, bool mustReport,
              const std::string& where) {
  for (size_t width : {1, 2}) {
    for (size_t b = 0; b < 64 * words; ++b) {
      runs.push_back({offset * 8 + b, width, mustReport, describe(where, b, width)});
    }
  }
}

TEST_F(VornctlDamage, EveryFlipOfOneOrTwoNeighbouringBitsIsReportedNeverShown) {
  totals = Writer::open(ns, TableNames::kAllIntfCounters, 8);
  clears = Writer::open(ns, TableNames::kAllIntfClearCounters, 8);
  const std::vector<std::string> names{"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4/1",
                                       "Ethernet4/2"};
  for (size_t i = 0; i < names.size(); ++i) totals->put(portRecord(names[i], i + 1));

  const TableTest::Outcome clean = show();
  ASSERT_TRUE(clean.exitedWith(0)) << clean.err;
  for (const auto& name : names) ASSERT_NE(clean.out.find(name), std::string::npos) << clean.out;

  TableTest::RawBytes raw(ns + "." + TableNames::kAllIntfCounters);
  const auto& header = *reinterpret_cast<const Layout::TableHeader*>(raw.bytes());
  const uint64_t key = Orvo::IntfId("Ethernet3").value();
  size_t slot = 0;
  for (uint32_t i = 0; i < header.slotCount && slot == 0; ++i) {
    const size_t at = Layout::kHeaderSize + static_cast<size_t>(i) * header.slotSize;
    if (raw.word(at + 8 * Layout::kStateWord) == Layout::kLive &&
        raw.word(at + 8 * Layout::kKeyWord) == key) {
      slot = at;
    }
  }
  ASSERT_NE(slot, 0u) << "no live slot holds Ethernet3";

  std::vector<FlipRun> runs;
  everyRun(runs, slot, 1, false, "sequence count");
  everyRun(runs, slot + 8, Layout::kSlotHeaderWords - 1, true, "key, state and checksum words");
  const size_t record = slot + 8 * Layout::kSlotHeaderWords;
  everyRun(runs, record, kFullRecordWordsEachEnd, true, "first record words");
  const size_t tail = kRecordWords - kFullRecordWordsEachEnd;
  everyRun(runs, record + 8 * tail, kFullRecordWordsEachEnd, true, "last record words");
  std::mt19937_64 random(20261122);
  for (size_t w = kFullRecordWordsEachEnd; w < tail; ++w) {
    for (size_t width : {1, 2}) {
      std::set<size_t> bits;
      while (bits.size() < kSampledBitsPerWord) bits.insert(random() % 64);
      for (size_t b : bits) {
        runs.push_back({(record + 8 * w) * 8 + b, width, true,
                        describe("record word " + std::to_string(w), b, width)});
      }
    }
  }
  everyRun(runs, 0, Layout::kFixedHeaderSize / 8, true, "header fixed fields");

  size_t reported = 0;
  std::vector<std::string> failures;
  const double started = TableTest::nowSeconds();
  for (const FlipRun& run : runs) {
    raw.flip(run.bit, run.width);
    const TableTest::Outcome o = show();
    raw.flip(run.bit, run.width);
    const bool damaged = o.exitedWith(1) && o.out.empty() &&
                         o.err.find("damaged") != std::string::npos && oneLine(o.err);
    const bool unchanged = o.exitedWith(0) && o.out == clean.out;
    if (damaged) ++reported;
    if (damaged || (!run.mustReport && unchanged)) continue;
    if (failures.size() < 20) {
      failures.push_back(run.where + ": exit " + std::to_string(o.status) + ", stdout '" + o.out +
                         "', stderr '" + o.err + "'");
    }
  }
  const double took = TableTest::nowSeconds() - started;
  std::ostringstream all;
  for (const auto& f : failures) all << f << "\n";
  EXPECT_TRUE(failures.empty()) << all.str();
  RecordProperty("runs", static_cast<int>(runs.size()));
  std::cout << runs.size() << " damaged images, " << reported << " reported as damaged, in " << took
            << " s\n";

  // Every flip was put back: the table reads as before.
  const TableTest::Outcome after = show();
  ASSERT_TRUE(after.exitedWith(0)) << after.err;
  EXPECT_EQ(after.out, clean.out);
}

}  // namespace
