// Every small damage is reported: each bit, and each pair of neighbouring bits, of a
// live slot and of the header, flipped one at a time on a real table, is reported
// by the reader calls the reader command makes (find and forEach), and none of them
// ever hands out an altered record. Also: records wiped out whole are caught by the
// count a whole walk compares, and the live header words are checked.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <vector>

#include "BrimTestSupport.h"
#include "interface/EthIntfCounterBrim.h"
#include "support/ErrorText.h"
#include "tables/CounterTables.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::RawTable;
using BrimTest::ScratchTable;

template <class Record>
uint64_t keyBitsOf(const Record& record) {
  return Brim::RecordTraits<Record>::keyBits(record.key());
}

template <class Record>
bool sameBytes(const Record& a, const Record& b) {
  return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

// Port counters as the agent publishes them: every word a plausible, distinct value.
Interface::EthIntfCounterBrim portRecord(int port) {
  Interface::EthIntfCounterBrim record(Orvo::IntfId("Ethernet" + std::to_string(port)));
  auto* words = reinterpret_cast<unsigned char*>(&record);
  for (size_t w = 1; w < sizeof record / 8; ++w) {
    const uint64_t value = static_cast<uint64_t>(port) * 1000003u + w * 7919u;
    std::memcpy(words + 8 * w, &value, 8);
  }
  return record;
}

std::vector<Interface::EthIntfCounterBrim> portRecords(int count) {
  std::vector<Interface::EthIntfCounterBrim> records;
  for (int port = 1; port <= count; ++port) records.push_back(portRecord(port));
  return records;
}

std::vector<CounterRecord> counterRecords(int count) {
  std::vector<CounterRecord> records;
  for (int k = 1; k <= count; ++k) records.push_back(CounterRecord::make(k, k));
  return records;
}

// What the reader calls made of one damaged image.
struct Outcome {
  bool findReported = false;  // find() of the damaged key raised
  bool walkReported = false;  // the walk reported damage
  int altered = 0;            // records handed out that differ from the written ones
  int missing = 0;            // keys not found, or not walked, without a report
};

template <class Record>
Outcome readEverything(const TableReader<Record>& reader, const std::vector<Record>& records,
                       uint64_t damagedKey) {
  Outcome outcome;
  std::map<uint64_t, const Record*> byKey;
  for (const Record& r : records) byKey[keyBitsOf(r)] = &r;
  for (const Record& original : records) {
    const bool damaged = keyBitsOf(original) == damagedKey;
    try {
      std::optional<Record> found = reader.find(original.key());
      if (!found) {
        ++outcome.missing;
      } else if (!sameBytes(*found, original)) {
        ++outcome.altered;
      }
    } catch (const Pontil::CorruptionDetectedException&) {
      if (damaged) outcome.findReported = true;
    }
  }
  std::map<uint64_t, int> walked;
  reader.forEach(
      [&](const Record& r) {
        auto it = byKey.find(keyBitsOf(r));
        if (it == byKey.end() || !sameBytes(r, *it->second)) ++outcome.altered;
        ++walked[keyBitsOf(r)];
      },
      [&](const Pontil::CorruptionDetectedException&) { outcome.walkReported = true; });
  if (!outcome.walkReported) {
    for (const Record& r : records) {
      if (walked[keyBitsOf(r)] != 1) ++outcome.missing;
    }
  }
  return outcome;
}

// Flips every bit, then every pair of neighbouring bits, of the key, state, checksum
// and record words of one live slot, restoring each before the next.
template <class Record>
void flipEveryBitOfALiveSlot(const std::vector<Record>& records, size_t victim) {
  ScratchTable t;
  auto writer = TableWriter<Record>::open(t.ns(), t.table(), 64);
  for (const Record& r : records) writer->put(r);
  RawTable raw(t.name());
  const uint64_t key = keyBitsOf(records[victim]);
  const uint32_t slot = *raw.liveSlotOf(key);
  auto* first = reinterpret_cast<unsigned char*>(raw.slot(slot) + Brim::Layout::kKeyWord);
  const size_t bits = 8 * (3 * 8 + sizeof(Record));
  auto reader = TableReader<Record>::open(t.ns(), t.table());
  BrimTest::QuickReaders quick;
  size_t tried = 0;
  std::vector<std::string> silent;
  for (size_t width : {1u, 2u}) {
    for (size_t bit = 0; bit + width <= bits; ++bit) {
      BrimTest::flipBits(first, bit, width);
      const Outcome outcome = readEverything(*reader, records, key);
      BrimTest::flipBits(first, bit, width);
      ++tried;
      if (!outcome.findReported || !outcome.walkReported || outcome.altered > 0 ||
          outcome.missing > 0) {
        silent.push_back("bits " + std::to_string(bit) + ".." + std::to_string(bit + width - 1) +
                         " of slot word " + std::to_string(1 + bit / 64) +
                         (outcome.findReported ? "" : ": find did not report") +
                         (outcome.walkReported ? "" : ": the walk did not report") +
                         (outcome.altered ? ": altered record handed out" : "") +
                         (outcome.missing ? ": record missing" : ""));
      }
    }
  }
  EXPECT_EQ(tried, 2 * bits - 1);
  EXPECT_TRUE(silent.empty()) << silent.size() << " flips not reported, first: " << silent[0];
  EXPECT_TRUE(writer->validate().empty());
  EXPECT_TRUE(sameBytes(*reader->find(records[victim].key()), records[victim]));
}

TEST(BrimIntegrity, EveryFlippedBitAndBitPairOfALivePortCounterSlotIsReported) {
  flipEveryBitOfALiveSlot(portRecords(30), 16);
}

TEST(BrimIntegrity, EveryFlippedBitAndBitPairOfALiveCounterSlotIsReported) {
  flipEveryBitOfALiveSlot(counterRecords(30), 4);
}

// Every bit and pair of the fixed header fields: the reader refuses to open the table.
TEST(BrimIntegrity, EveryFlippedBitAndBitPairOfTheFixedHeaderIsReported) {
  ScratchTable t;
  const auto records = portRecords(20);
  auto writer = TableWriter<Interface::EthIntfCounterBrim>::open(t.ns(), t.table(), 32);
  for (const auto& r : records) writer->put(r);
  RawTable raw(t.name());
  const size_t bits = 8 * Brim::Layout::kFixedHeaderSize;
  std::vector<std::string> silent;
  for (size_t width : {1u, 2u}) {
    for (size_t bit = 0; bit + width <= bits; ++bit) {
      BrimTest::flipBits(raw.bytes(), bit, width);
      try {
        TableReader<Interface::EthIntfCounterBrim>::open(t.ns(), t.table());
        silent.push_back("bits " + std::to_string(bit) + ".." + std::to_string(bit + width - 1));
      } catch (const Pontil::CorruptionDetectedException&) {
      }
      BrimTest::flipBits(raw.bytes(), bit, width);
    }
  }
  EXPECT_TRUE(silent.empty()) << silent.size() << " header flips opened, first: " << silent[0];
  EXPECT_TRUE(
      TableReader<Interface::EthIntfCounterBrim>::open(t.ns(), t.table())->validate().empty());
}

// The live header words (counts, probe bound, generation, pid, heartbeat) and their
// checksum: a flip is reported on open, or (for the sequence count, which carries no
// value) changes nothing that a reader hands out.
TEST(BrimIntegrity, EveryFlippedBitOfTheLiveHeaderWordsIsReportedOrHarmless) {
  ScratchTable t;
  const auto records = portRecords(20);
  auto writer = TableWriter<Interface::EthIntfCounterBrim>::open(t.ns(), t.table(), 32);
  for (const auto& r : records) writer->put(r);
  writer->heartbeatIs(12.5);
  RawTable raw(t.name());
  BrimTest::QuickReaders quick;
  const size_t from = 8 * offsetof(Brim::Layout::TableHeader, liveSeq);
  const size_t to = 8 * (offsetof(Brim::Layout::TableHeader, liveChecksum) + 8);
  size_t reported = 0;
  std::vector<std::string> silent;
  for (size_t width : {1u, 2u}) {
    for (size_t bit = from; bit + width <= to; ++bit) {
      BrimTest::flipBits(raw.bytes(), bit, width);
      try {
        auto reader = TableReader<Interface::EthIntfCounterBrim>::open(t.ns(), t.table());
        const Outcome outcome = readEverything(*reader, records, 0);
        const bool seqOnly = bit + width <= 8 * offsetof(Brim::Layout::TableHeader, generation);
        if (!seqOnly || outcome.altered || outcome.missing || outcome.walkReported ||
            reader->size() != records.size() || reader->heartbeat() != 12.5 ||
            reader->generation() != 1) {
          silent.push_back("bits " + std::to_string(bit) + ".." + std::to_string(bit + width - 1));
        }
      } catch (const Pontil::CorruptionDetectedException&) {
        ++reported;
      }
      BrimTest::flipBits(raw.bytes(), bit, width);
    }
  }
  EXPECT_TRUE(silent.empty()) << silent.size() << " flips passed, first: " << silent[0];
  EXPECT_GT(reported, 2 * (to - from) - 2 * 64);
}

// The checksum itself, away from any table: random slots of 1 to 130 record words
// (past the point where the rotations start again), every bit and neighbouring pair
// of key, state, checksum and record words.
TEST(BrimIntegrity, ChecksumChangesForEveryBitAndBitPairOfRandomSlots) {
  std::mt19937_64 random(2024);
  size_t tried = 0;
  size_t missed = 0;
  for (size_t words = 1; words <= 130; words += (words < 70 ? 1 : 15)) {
    for (int sample = 0; sample < 2; ++sample) {
      // key, state, checksum, record: in the order they lie in a slot.
      std::vector<uint64_t> slot(3 + words);
      for (uint64_t& w : slot) w = random();
      if (sample == 0) slot[1] = Brim::Layout::kLive;
      const auto check = [&] {
        return Brim::Layout::slotChecksum(slot[0], slot[1],
                                          reinterpret_cast<const unsigned char*>(&slot[3]), words);
      };
      slot[2] = check();
      auto* bytes = reinterpret_cast<unsigned char*>(slot.data());
      for (size_t width : {1u, 2u}) {
        for (size_t bit = 0; bit + width <= 64 * slot.size(); ++bit) {
          BrimTest::flipBits(bytes, bit, width);
          if (check() == slot[2]) ++missed;
          BrimTest::flipBits(bytes, bit, width);
          ++tried;
        }
      }
    }
  }
  EXPECT_EQ(missed, 0u) << "of " << tried;
  EXPECT_GT(tried, 800000u);
}

// A writer copies its record while checksumming it: for every record length (short
// last blocks included) the copy is exact, nothing past it is touched, and the
// checksum is the one a reader computes.
TEST(BrimIntegrity, ChecksumWhileCopyingGivesTheSameChecksumAndAnExactCopy) {
  std::mt19937_64 random(77);
  for (size_t words = 1; words <= 70; ++words) {
    std::vector<uint64_t> record(words);
    for (uint64_t& w : record) w = random();
    const uint64_t guard = 0x5a5a5a5a5a5a5a5aULL;
    std::vector<uint64_t> copy(words + 8, guard);
    const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
    const uint64_t copied = Brim::Layout::slotChecksum(
        42, Brim::Layout::kLive, bytes, words, reinterpret_cast<unsigned char*>(copy.data()));
    EXPECT_EQ(copied, Brim::Layout::slotChecksum(42, Brim::Layout::kLive, bytes, words))
        << words << " words";
    EXPECT_TRUE(std::equal(record.begin(), record.end(), copy.begin())) << words << " words";
    for (size_t i = words; i < copy.size(); ++i) EXPECT_EQ(copy[i], guard) << words << " words";
  }
}

#if defined(BRIM_HAVE_WIDE_LANES)
// The wide lanes must be the very same checksum: writers and readers on different
// machines (or one without the wide instructions) share the tables.
TEST(BrimIntegrity, WideLanesGiveThePortableLanesForEveryLengthAndCopyExactly) {
  if (!Brim::Layout::wideLanesAvailable()) GTEST_SKIP() << "skipped: no AVX-512VL on this CPU";
  std::mt19937_64 random(91);
  // Past three turns of the seven-block rotation cycle and the longest record, the
  // queue record of 159 words.
  for (size_t words = 0; words <= 180; ++words) {
    std::vector<uint64_t> record(words);
    for (uint64_t& w : record) w = random();
    const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
    const Brim::Layout::Lanes portable = Brim::Layout::wordLanesPortable(bytes, words);
    const uint64_t guard = 0xa5a5a5a5a5a5a5a5ULL;
    std::vector<uint64_t> copy(words + 8, guard);
    const Brim::Layout::Lanes wide =
        Brim::Layout::wordLanesWide(bytes, words, reinterpret_cast<unsigned char*>(copy.data()));
    EXPECT_EQ(wide.rotated, portable.rotated) << words << " words";
    EXPECT_EQ(wide.added, portable.added) << words << " words";
    EXPECT_TRUE(std::equal(record.begin(), record.end(), copy.begin())) << words << " words";
    for (size_t i = words; i < copy.size(); ++i) EXPECT_EQ(copy[i], guard) << words << " words";
  }
}

// The tables' own processor probe must agree with the compiler's, which also checks
// that the kernel saves the wide registers.
// Sums that wrap and words with every bit set: the wide lanes weigh their sums at the
// end rather than block by block, which must agree modulo 2^64 all the same.
TEST(BrimIntegrity, WideLanesAgreeWithThePortableLanesOnSaturatedWords) {
  if (!Brim::Layout::wideLanesAvailable()) GTEST_SKIP() << "skipped: no AVX-512VL on this CPU";
  for (const uint64_t fill : {~uint64_t{0}, uint64_t{1} << 63, uint64_t{0x8000000000000001}}) {
    for (size_t words = 1; words <= 160; ++words) {
      const std::vector<uint64_t> record(words, fill);
      const auto* bytes = reinterpret_cast<const unsigned char*>(record.data());
      const Brim::Layout::Lanes wide = Brim::Layout::wordLanesWide(bytes, words);
      const Brim::Layout::Lanes portable = Brim::Layout::wordLanesPortable(bytes, words);
      EXPECT_EQ(wide.rotated, portable.rotated) << words << " words of " << fill;
      EXPECT_EQ(wide.added, portable.added) << words << " words of " << fill;
    }
  }
}

TEST(BrimIntegrity, WideLanesProbeAgreesWithTheCompilersFeatureProbe) {
  __builtin_cpu_init();
  const bool compilers =
      __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0;
  EXPECT_EQ(Brim::Layout::wideLanesAvailable(), compilers);
}

TEST(BrimIntegrity, WideLanesNeverTouchTheBytesAfterTheRecord) {
  if (!Brim::Layout::wideLanesAvailable()) GTEST_SKIP() << "skipped: no AVX-512VL on this CPU";
  // A record that ends where the mapping ends: any read past it would fault.
  const long page = sysconf(_SC_PAGESIZE);
  void* area = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(area, MAP_FAILED);
  ASSERT_EQ(mprotect(static_cast<char*>(area) + page, page, PROT_NONE), 0);
  for (size_t words = 1; words <= 13; ++words) {
    auto* record = static_cast<unsigned char*>(area) + page - 8 * words;
    for (size_t i = 0; i < 8 * words; ++i) record[i] = static_cast<unsigned char>(i * 7 + words);
    const Brim::Layout::Lanes wide = Brim::Layout::wordLanesWide(record, words);
    const Brim::Layout::Lanes portable = Brim::Layout::wordLanesPortable(record, words);
    EXPECT_EQ(wide.rotated, portable.rotated) << words << " words";
    EXPECT_EQ(wide.added, portable.added) << words << " words";
  }
  munmap(area, 2 * page);
}
#endif

TEST(BrimIntegrity, RecordWipedOutWholeIsReportedByAWholeWalk) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 64);
  for (uint64_t k = 1; k <= 30; ++k) writer->put(CounterRecord::make(k, k));
  RawTable raw(t.name());
  raw.makeBlank(*raw.liveSlotOf(12));
  const std::string expected =
      "table " + t.name() + ": a walk met 29 live slots, but the header counts 30";
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  try {
    reader->forEach([](const CounterRecord&) {});
    FAIL() << "a walk missed a record without a report";
  } catch (const Pontil::CorruptionDetectedException& e) {
    EXPECT_EQ(std::string(e.what()), expected);
  }
  // The writer's walks hand it to the corruption hook and go on; so does a reader's.
  for (const auto* table : {static_cast<const Brim::TableView<CounterRecord>*>(writer.get()),
                            static_cast<const Brim::TableView<CounterRecord>*>(reader.get())}) {
    size_t visited = 0;
    std::vector<std::string> hooked;
    table->forEach(
        [&](const CounterRecord&) { ++visited; },
        [&](const Pontil::CorruptionDetectedException& e) { hooked.push_back(e.what()); });
    EXPECT_EQ(visited, 29u);
    EXPECT_EQ(hooked, std::vector<std::string>{expected});
  }
}

// The agent's own table object: its walk hands the missing record to the corruption
// hook and goes on.
TEST(BrimIntegrity, AgentTableWalkReportsAWipedOutRecordToItsCorruptionHook) {
  ScratchTable t;
  auto table = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(t.ns(), t.table(), 64);
  for (int port = 1; port <= 10; ++port) table->counterIs(portRecord(port));
  RawTable raw(t.name());
  raw.makeBlank(*raw.liveSlotOf(Orvo::IntfId("Ethernet4").value()));
  int walked = 0;
  table->forEachCounter([&](const Interface::EthIntfCounterBrim& r) {
    if (!r.intfId().isNull()) ++walked;
  });
  EXPECT_EQ(walked, 9);
  EXPECT_EQ(table->corruptionCount(), 1u);
  EXPECT_EQ(table->lastCorruption(),
            "table " + t.name() + ": a walk met 9 live slots, but the header counts 10");
}

// The agent's in-place pass: every record read once, changed and written back where
// it sits; damage from outside between the read and the write is never overwritten.
uint64_t recordWord(const Interface::EthIntfCounterBrim& r, size_t w) {
  uint64_t value;
  std::memcpy(&value, reinterpret_cast<const unsigned char*>(&r) + 8 * w, 8);
  return value;
}

void recordWordIs(Interface::EthIntfCounterBrim& r, size_t w, uint64_t value) {
  std::memcpy(reinterpret_cast<unsigned char*>(&r) + 8 * w, &value, 8);
}

TEST(BrimIntegrity, AgentTableInPlacePassWritesEveryRecordItChanges) {
  ScratchTable t;
  auto table = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(t.ns(), t.table(), 64);
  for (int port = 1; port <= 10; ++port) table->counterIs(portRecord(port));
  int visited = 0;
  table->updateEachCounter([&](Interface::EthIntfCounterBrim& r) {
    ++visited;
    if (r.intfId() == Orvo::IntfId("Ethernet3")) return false;  // left as it is
    recordWordIs(r, 5, recordWord(r, 5) + 1);
    return true;
  });
  EXPECT_EQ(visited, 10);
  auto reader = TableReader<Interface::EthIntfCounterBrim>::open(t.ns(), t.table());
  for (int port = 1; port <= 10; ++port) {
    const Interface::EthIntfCounterBrim want = portRecord(port);
    const auto got = reader->find(want.intfId());
    ASSERT_TRUE(got.has_value()) << port;
    EXPECT_EQ(recordWord(*got, 5), recordWord(want, 5) + (port == 3 ? 0 : 1)) << port;
  }
  EXPECT_EQ(table->corruptionCount(), 0u);
  EXPECT_TRUE(reader->validate().empty());
}

TEST(BrimIntegrity, AgentTableInPlacePassReportsDamageDoneDuringItAndStops) {
  ScratchTable t;
  auto table = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(t.ns(), t.table(), 64);
  for (int port = 1; port <= 10; ++port) table->counterIs(portRecord(port));
  RawTable raw(t.name());
  int visited = 0;
  uint32_t damagedSlot = 0;
  table->updateEachCounter([&](Interface::EthIntfCounterBrim& r) {
    if (++visited == 4) {
      damagedSlot = *raw.liveSlotOf(r.intfId().value());
      raw.slot(damagedSlot)[Brim::Layout::kSlotHeaderWords + 7] ^= 0x10;
    }
    recordWordIs(r, 5, 0);
    return true;
  });
  EXPECT_EQ(visited, 4);
  EXPECT_EQ(table->corruptionCount(), 1u);
  EXPECT_EQ(
      table->lastCorruption(),
      "table " + t.name() + ": slot " + std::to_string(damagedSlot) + " (key " +
          [&] {
            char key[32];
            std::snprintf(key, sizeof key, "0x%016llx",
                          static_cast<unsigned long long>(raw.key(damagedSlot)));
            return std::string(key);
          }() +
          ") fails its checksum");
  // The damaged record was not overwritten: it still fails its checksum.
  EXPECT_FALSE(table->writer().validate().empty());
}

TEST(BrimIntegrity, AgentTableInPlacePassReplacesARecordForgedDuringIt) {
  ScratchTable t;
  auto table = Interface::AllEthIntfCounterBrim::AllEthIntfCounterBrimIs(t.ns(), t.table(), 64);
  for (int port = 1; port <= 5; ++port) table->counterIs(portRecord(port));
  RawTable raw(t.name());
  const size_t words = sizeof(Interface::EthIntfCounterBrim) / 8;
  int visited = 0;
  table->updateEachCounter([&](Interface::EthIntfCounterBrim& r) {
    if (++visited == 2) {
      // Another process rewrites the record with a valid checksum.
      const uint32_t slot = *raw.liveSlotOf(r.intfId().value());
      uint64_t* w = raw.slot(slot);
      w[Brim::Layout::kSlotHeaderWords + 5] = 999;
      w[Brim::Layout::kChecksumWord] = Brim::Layout::slotChecksum(
          w[Brim::Layout::kKeyWord], w[Brim::Layout::kStateWord],
          reinterpret_cast<const unsigned char*>(w + Brim::Layout::kSlotHeaderWords), words);
    }
    recordWordIs(r, 5, 7);
    return true;
  });
  EXPECT_EQ(visited, 5);
  EXPECT_EQ(table->corruptionCount(), 0u);
  auto reader = TableReader<Interface::EthIntfCounterBrim>::open(t.ns(), t.table());
  for (int port = 1; port <= 5; ++port) {
    const auto got = reader->find(Orvo::IntfId("Ethernet" + std::to_string(port)));
    ASSERT_TRUE(got.has_value());
    EXPECT_EQ(recordWord(*got, 5), 7u) << port;
  }
  EXPECT_TRUE(reader->validate().empty());
}

// A forger who names another key inside a record and makes its checksum match
// still cannot have the slot hand that record out: every way of reading the slot
// compares the record's own key with the slot's.
TEST(BrimIntegrity, RecordNamingAnotherKeyThanItsSlotIsReportedByEveryRead) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 64);
  for (uint64_t k = 1; k <= 4; ++k) writer->put(CounterRecord::make(k, k));
  std::optional<TableWriter<CounterRecord>::Slot> remembered;
  CounterRecord out;
  ASSERT_TRUE(writer->findAt(remembered, 3, out));

  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(keyBitsOf(CounterRecord::make(3, 3)));
  uint64_t* w = raw.slot(slot);
  w[Brim::Layout::kSlotHeaderWords] = 2;  // the record's own id now names key 2
  w[Brim::Layout::kChecksumWord] = Brim::Layout::slotChecksum(
      w[Brim::Layout::kKeyWord], w[Brim::Layout::kStateWord],
      reinterpret_cast<const unsigned char*>(w + Brim::Layout::kSlotHeaderWords),
      sizeof(CounterRecord) / 8);
  const std::string expected = "table " + t.name() + ": slot " + std::to_string(slot) +
                               " holds a record whose key differs from the slot's key";

  using Pontil::CorruptionDetectedException;
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  EXPECT_EQ(VornTest::messageOf<CorruptionDetectedException>([&] { (void)reader->find(3); }),
            expected);
  EXPECT_EQ(VornTest::messageOf<CorruptionDetectedException>(
                [&] { (void)writer->findAt(remembered, 3, out); }),
            expected);
  EXPECT_EQ(VornTest::messageOf<CorruptionDetectedException>([&] {
              auto cursor = reader->cursor();
              while (cursor.next()) {
              }
            }),
            expected);
  // The key the record names is still read from its own slot, unaltered.
  const std::optional<CounterRecord> two = reader->find(2);
  ASSERT_TRUE(two.has_value());
  EXPECT_TRUE(sameBytes(*two, CounterRecord::make(2, 2)));
}

TEST(BrimIntegrity, WalksDuringInsertsAndDeletesDoNotCountFalsely) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 64);
  for (uint64_t k = 1; k <= 30; ++k) writer->put(CounterRecord::make(k, k));
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  // Records come and go between the steps of a walk: no count is compared.
  auto cursor = reader->cursor();
  size_t seen = 0;
  uint64_t next = 31;
  while (cursor.next()) {
    ++seen;
    writer->erase(next - 30);
    writer->put(CounterRecord::make(next++, 1));
  }
  EXPECT_GT(seen, 10u);
  // And a writer's walk that deletes as it goes.
  size_t walked = 0;
  writer->forEach([&](const CounterRecord& r) {
    ++walked;
    if (r.id % 2 == 0) writer->erase(r.id);
  });
  EXPECT_GT(walked, 10u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimIntegrity, DamagedProbeBoundIsReportedByReaders) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 64);
  for (uint64_t k = 1; k <= 60; ++k) writer->put(CounterRecord::make(k, k));
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  RawTable raw(t.name());
  ASSERT_GT(raw.header().maxProbe, 0u);
  raw.header().maxProbe = 0;  // keys away from their home slot would no longer be found
  const std::string expected = "table " + t.name() + ": header live words fail their checksum";
  size_t reported = 0;
  for (uint64_t k = 1; k <= 60; ++k) {
    try {
      EXPECT_EQ(reader->find(k)->values[0], k * 1000);
    } catch (const Pontil::CorruptionDetectedException& e) {
      EXPECT_EQ(std::string(e.what()), expected);
      ++reported;
    }
  }
  EXPECT_GT(reported, 0u);
  try {
    TableReader<CounterRecord>::open(t.ns(), t.table());
    FAIL() << "opened a table whose live header words are damaged";
  } catch (const Pontil::CorruptionDetectedException& e) {
    EXPECT_EQ(std::string(e.what()), expected);
  }
  // The writer's next publication mends them.
  writer->put(CounterRecord::make(61, 61));
  EXPECT_EQ(TableReader<CounterRecord>::open(t.ns(), t.table())->size(), 61u);
}

TEST(BrimIntegrity, ZeroedSlotIsReportedAndNotTakenForAnEmptyOne) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 16);
  for (uint64_t k = 1; k <= 10; ++k) writer->put(CounterRecord::make(k, k));
  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(7);
  std::memset(raw.slot(slot) + 1, 0, raw.slotSize() - 8);
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  EXPECT_THROW(reader->find(7), Pontil::CorruptionDetectedException);
  EXPECT_THROW(reader->forEach([](const CounterRecord&) {}), Pontil::CorruptionDetectedException);
  // An emptied slot that still holds a key is reported too.
  raw.makeBlank(slot);
  raw.slot(slot)[Brim::Layout::kKeyWord] = 7;
  EXPECT_THROW(reader->find(7), Pontil::CorruptionDetectedException);
}

}  // namespace
