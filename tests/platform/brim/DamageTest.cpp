// Damaged tables: bytes scribbled over the header or the slots are reported as
// corruption by readers, by the writer's look-ups and walks, and by validate(),
// and nothing crashes.
#include <unistd.h>

#include <cstdio>
#include <random>
#include <vector>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::RawTable;
using BrimTest::ScratchTable;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

// The message of the CorruptionDetectedException that `body` raises ("" if none).
template <class Body>
std::string corruptionOf(Body body) {
  try {
    body();
  } catch (const Pontil::CorruptionDetectedException& e) {
    return e.what();
  }
  return "";
}

bool mentions(const std::vector<std::string>& report, const std::string& text) {
  for (const auto& line : report) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

std::string slotText(uint32_t slot, uint64_t key) {
  char hex[19];
  std::snprintf(hex, sizeof hex, "0x%016llx", static_cast<unsigned long long>(key));
  return "slot " + std::to_string(slot) + " (key " + hex + ")";
}

std::unique_ptr<Writer> filledWriter(const ScratchTable& t, uint32_t capacity, uint64_t keys) {
  auto writer = Writer::open(t.ns(), t.table(), capacity);
  for (uint64_t k = 1; k <= keys; ++k) writer->put(CounterRecord::make(k, k));
  return writer;
}

TEST(BrimDamage, BadMagicIsReportedByReaderWriterAndValidate) {
  ScratchTable t;
  auto writer = filledWriter(t, 16, 5);
  RawTable raw(t.name());
  raw.header().magic = 0;
  EXPECT_EQ(corruptionOf([&] { Reader::open(t.ns(), t.table()); }),
            "table " + t.name() + ": bad magic number 0x0000000000000000 (not a Brim table)");
  EXPECT_TRUE(mentions(writer->validate(), "header: bad magic number 0x0000000000000000"));
  // The attached writer keeps working from the geometry it checked when it attached.
  EXPECT_EQ(writer->find(3)->values[0], 3000u);
  writer.reset();
  try {
    Writer::open(t.ns(), t.table(), 16);
    FAIL() << "attached to a table with a bad magic number";
  } catch (const Brim::LayoutMismatchException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() +
                                         " cannot be attached: bad magic number "
                                         "0x0000000000000000 (not a Brim table)");
  }
}

TEST(BrimDamage, DamagedRecordSizeIsReportedByReaderWriterAndValidate) {
  ScratchTable t;
  auto writer = filledWriter(t, 16, 5);
  RawTable raw(t.name());
  raw.header().recordSize = 999;
  EXPECT_EQ(
      corruptionOf([&] { Reader::open(t.ns(), t.table()); }),
      "table " + t.name() + ": record size is 999 bytes, expected 400; header checksum mismatch");
  const auto report = writer->validate();
  EXPECT_TRUE(mentions(report, "header: record size is 999 bytes, expected 400")) << report[0];
  EXPECT_TRUE(mentions(report, "header: checksum mismatch"));
  writer.reset();
  EXPECT_EQ(corruptionOf([&] { Writer::open(t.ns(), t.table(), 16); }),
            "table " + t.name() +
                " has a damaged header: header checksum mismatch; record size is 999 bytes, "
                "expected 400");
}

TEST(BrimDamage, ImpossibleCountsAreRefusedByReadersAndRecountedByTheWriter) {
  ScratchTable t;
  filledWriter(t, 16, 5).reset();
  RawTable raw(t.name());
  raw.header().liveCount = 17;
  EXPECT_EQ(corruptionOf([&] { Reader::open(t.ns(), t.table()); }),
            "table " + t.name() + ": impossible counts (17 live, 0 tombstones, longest probe " +
                std::to_string(raw.header().maxProbe) + ", capacity 16, 32 slots)");
  auto writer = Writer::open(t.ns(), t.table(), 16);
  EXPECT_EQ(writer->size(), 5u);
  EXPECT_EQ(Reader::open(t.ns(), t.table())->size(), 5u);
}

TEST(BrimDamage, ReaderChecksTheLiveCountOnEveryAsk) {
  ScratchTable t;
  auto writer = filledWriter(t, 16, 5);
  auto reader = Reader::open(t.ns(), t.table());
  RawTable(t.name()).header().liveCount = 1000;
  EXPECT_EQ(corruptionOf([&] { reader->size(); }),
            "table " + t.name() + ": impossible live count 1000 for capacity 16");
  EXPECT_TRUE(mentions(reader->validate(), "header: impossible counts (1000 live"));
}

TEST(BrimDamage, ObjectSmallerThanItsHeaderSaysIsRefused) {
  ScratchTable t;
  filledWriter(t, 16, 5).reset();
  const uint64_t full = Brim::Layout::kHeaderSize + 32 * 448;
  {
    RawTable raw(t.name());
    ASSERT_EQ(raw.size(), full);
  }
  const int fd = shm_open(("/" + t.name()).c_str(), O_RDWR, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, Brim::Layout::kHeaderSize + 448), 0);
  EXPECT_EQ(corruptionOf([&] { Reader::open(t.ns(), t.table()); }),
            "table " + t.name() + ": object is " + std::to_string(Brim::Layout::kHeaderSize + 448) +
                " bytes, smaller than the " + std::to_string(full) + " bytes its header describes");
  EXPECT_EQ(corruptionOf([&] { Writer::open(t.ns(), t.table(), 16); }),
            "table " + t.name() + ": object is " + std::to_string(Brim::Layout::kHeaderSize + 448) +
                " bytes, smaller than the " + std::to_string(full) + " bytes its header describes");
  ASSERT_EQ(ftruncate(fd, 100), 0);
  close(fd);
  EXPECT_EQ(corruptionOf([&] { Reader::open(t.ns(), t.table()); }),
            "table " + t.name() + ": object is 100 bytes, smaller than its header (4096 bytes)");
}

TEST(BrimDamage, ChecksumDamageIsReportedAndTheWalkCarriesOn) {
  ScratchTable t;
  auto writer = filledWriter(t, 64, 30);
  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(17);
  raw.slot(slot)[Brim::Layout::kSlotHeaderWords + 20] ^= 0x100;
  const std::string expected =
      "table " + t.name() + ": " + slotText(slot, 17) + " fails its checksum";

  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(corruptionOf([&] { reader->find(17); }), expected);
  EXPECT_EQ(corruptionOf([&] { writer->find(17); }), expected);
  EXPECT_EQ(corruptionOf([&] { writer->directWrite(17); }), expected);
  EXPECT_EQ(writer->find(16)->values[0], 16000u);
  const auto report = writer->validate();
  ASSERT_EQ(report.size(), 1u);
  EXPECT_EQ(report[0], slotText(slot, 17) + " fails its checksum");
  EXPECT_EQ(reader->validate(), report);

  // The walk raises at the damaged slot, already past it, and the caller carries on.
  for (const auto* table : {static_cast<const Brim::TableView<CounterRecord>*>(writer.get()),
                            static_cast<const Brim::TableView<CounterRecord>*>(reader.get())}) {
    std::vector<uint64_t> seen;
    std::vector<std::string> reported;
    auto cursor = table->cursor();
    for (;;) {
      try {
        std::optional<CounterRecord> record = cursor.next();
        if (!record) break;
        seen.push_back(record->id);
      } catch (const Pontil::CorruptionDetectedException& e) {
        reported.push_back(e.what());
        EXPECT_EQ(cursor.position(), slot + 1);
      }
    }
    EXPECT_EQ(seen.size(), 29u);
    EXPECT_EQ(reported, std::vector<std::string>{expected});
    // The same through forEach with a corruption hook.
    size_t visited = 0;
    std::vector<std::string> hooked;
    table->forEach(
        [&](const CounterRecord&) { ++visited; },
        [&](const Pontil::CorruptionDetectedException& e) { hooked.push_back(e.what()); });
    EXPECT_EQ(visited, 29u);
    EXPECT_EQ(hooked, std::vector<std::string>{expected});
    // Without a hook the walk ends at the damage.
    EXPECT_EQ(corruptionOf([&] { table->forEach([](const CounterRecord&) {}); }), expected);
  }
}

TEST(BrimDamage, KeyMovedOutOfItsProbeRangeIsReported) {
  ScratchTable t;
  auto writer = filledWriter(t, 64, 10);
  RawTable raw(t.name());
  const uint32_t maxProbe = static_cast<uint32_t>(raw.header().maxProbe);
  const uint32_t from = *raw.liveSlotOf(4);
  // An empty slot far from the key's home, with an empty slot after it.
  uint32_t to = (raw.home(4) + maxProbe + 20) & raw.slotMask();
  while (raw.state(to) != Brim::Layout::kEmpty) to = (to + 1) & raw.slotMask();
  std::memcpy(raw.slot(to), raw.slot(from), raw.slotSize());
  raw.slot(from)[Brim::Layout::kStateWord] = Brim::Layout::kEmpty;
  const uint32_t distance = (to - raw.home(4)) & raw.slotMask();
  const std::string what = slotText(to, 4) + " is " + std::to_string(distance) +
                           " slots from its home slot " + std::to_string(raw.home(4)) +
                           ", beyond the longest probe " + std::to_string(maxProbe);
  const std::string expected = "table " + t.name() + ": " + what;

  EXPECT_EQ(corruptionOf([&] { writer->forEach([](const CounterRecord&) {}); }), expected);
  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(corruptionOf([&] { reader->forEach([](const CounterRecord&) {}); }), expected);
  EXPECT_TRUE(mentions(writer->validate(), what));
  EXPECT_TRUE(mentions(reader->validate(), what));
  // A look-up whose probe starts at the misplaced slot trips over it too.
  const uint64_t probe = BrimTest::keysWithHome(to, raw.slotCount(), 1, 1000)[0];
  EXPECT_EQ(corruptionOf([&] { reader->find(probe); }), expected);
  EXPECT_EQ(corruptionOf([&] { writer->contains(probe); }), expected);
}

TEST(BrimDamage, KeyBehindAnEmptySlotIsReportedUnreachable) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  RawTable raw(t.name());
  const auto keys = BrimTest::keysWithHome(2, raw.slotCount(), 3);
  for (uint64_t k : keys) writer->put(CounterRecord::make(k, 1));
  raw.slot(3)[Brim::Layout::kStateWord] = Brim::Layout::kEmpty;  // the middle of the run
  const auto report = writer->validate();
  EXPECT_TRUE(mentions(report, slotText(4, keys[2]) +
                                   " is unreachable: empty slot 3 lies between it and its home "
                                   "slot 2"));
  EXPECT_TRUE(
      mentions(report, "header: counts 3 live and 0 tombstones, but the slots hold 2 and 0"));
}

TEST(BrimDamage, InvalidSlotStateIsReported) {
  ScratchTable t;
  auto writer = filledWriter(t, 16, 5);
  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(2);
  raw.slot(slot)[Brim::Layout::kStateWord] = 7;
  const std::string expected =
      "table " + t.name() + ": slot " + std::to_string(slot) + " has an invalid state 7";
  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(corruptionOf([&] { reader->find(2); }), expected);
  EXPECT_EQ(corruptionOf([&] { writer->find(2); }), expected);
  EXPECT_TRUE(
      mentions(writer->validate(), "slot " + std::to_string(slot) + " has an invalid state 7"));
}

TEST(BrimDamage, SequenceStuckOddIsReportedByWriterAndBoundedForReaders) {
  ScratchTable t;
  auto writer = filledWriter(t, 16, 5);
  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(3);
  raw.seq(slot) += 1;
  const std::string seq = std::to_string(raw.seq(slot));
  EXPECT_EQ(corruptionOf([&] { writer->find(3); }),
            "table " + t.name() + ": slot " + std::to_string(slot) +
                " has a sequence count stuck odd (" + seq + ")");
  EXPECT_TRUE(mentions(writer->validate(), "sequence count stuck odd"));
  auto reader = Reader::open(t.ns(), t.table());
  try {
    reader->find(3);
    FAIL() << "read a slot that stays mid-write";
  } catch (const Brim::SlotBusyException& e) {
    EXPECT_NE(std::string(e.what()).find("slot " + std::to_string(slot) +
                                         " could not be read consistently"),
              std::string::npos)
        << e.what();
  }
  // Other keys stay readable.
  EXPECT_EQ(reader->find(4)->values[0], 4000u);
}

TEST(BrimDamage, RestartOnAnIntactTableKeepsTotalsAfterDamageWasMended) {
  ScratchTable t;
  auto writer = filledWriter(t, 64, 30);
  uint64_t before = 0;
  writer->forEach([&](const CounterRecord& r) { before += r.values[0]; });
  {
    RawTable raw(t.name());
    uint64_t& word = raw.slot(*raw.liveSlotOf(9))[Brim::Layout::kSlotHeaderWords + 3];
    word ^= 1;
    EXPECT_FALSE(writer->validate().empty());
    word ^= 1;
  }
  EXPECT_TRUE(writer->validate().empty());
  writer.reset();
  writer = Writer::open(t.ns(), t.table(), 64);
  EXPECT_TRUE(writer->attachReport().empty());
  uint64_t after = 0;
  writer->forEach([&](const CounterRecord& r) { after += r.values[0]; });
  EXPECT_EQ(after, before);
  EXPECT_EQ(writer->size(), 30u);
}

TEST(BrimDamage, RestartKeepsTheIntactRecordsOfADamagedTable) {
  ScratchTable t;
  filledWriter(t, 64, 30).reset();
  uint32_t slot = 0;
  {
    RawTable raw(t.name());
    slot = *raw.liveSlotOf(9);
    raw.slot(slot)[Brim::Layout::kSlotHeaderWords + 3] ^= 1;
  }
  auto writer = Writer::open(t.ns(), t.table(), 64);
  EXPECT_EQ(writer->attachReport(),
            std::vector<std::string>{slotText(slot, 9) + " fails its checksum"});
  size_t intact = 0;
  writer->forEach([&](const CounterRecord& r) { intact += r.values[0] == r.id * 1000; },
                  [](const Pontil::CorruptionDetectedException&) {});
  EXPECT_EQ(intact, 29u);
}

// Random scribbles over header and slot words: every outcome is a record, a missing
// key or a corruption report, never a crash, a hang or another error.
TEST(BrimDamage, RandomScribblesNeverCrashAReaderOrTheWriter) {
  ScratchTable t;
  auto writer = filledWriter(t, 32, 25);
  RawTable raw(t.name());
  const std::vector<unsigned char> pristine(raw.bytes(), raw.bytes() + raw.size());
  std::mt19937_64 random(12345);
  const size_t words = raw.size() / 8;
  size_t reports = 0;
  for (int round = 0; round < 300; ++round) {
    std::memcpy(raw.bytes(), pristine.data(), raw.size());
    auto* all = reinterpret_cast<uint64_t*>(raw.bytes());
    for (int n = 0; n < 1 + round % 4; ++n) {
      size_t index = random() % (round % 3 == 0 ? 32 : words);  // header words, or anywhere
      const size_t inSlot = (index * 8 - Brim::Layout::kHeaderSize) % raw.slotSize();
      // Stuck sequence counts have their own test; here they would only cost time.
      if (index * 8 >= Brim::Layout::kHeaderSize && inSlot == 0) ++index;
      all[index] ^= uint64_t{1} << (random() % 64);
    }
    try {
      auto reader = Reader::open(t.ns(), t.table());
      for (uint64_t k = 1; k <= 26; ++k) {
        try {
          if (std::optional<CounterRecord> r = reader->find(k)) {
            EXPECT_EQ(r->id, k);
          }
        } catch (const Pontil::CorruptionDetectedException&) {
          ++reports;
        }
      }
      reader->forEach([](const CounterRecord&) {},
                      [&](const Pontil::CorruptionDetectedException&) { ++reports; });
      reports += reader->validate().size();
      try {
        reader->size();
      } catch (const Pontil::CorruptionDetectedException&) {
        ++reports;
      }
    } catch (const Pontil::CorruptionDetectedException&) {
      ++reports;
    }
    writer->forEach([](const CounterRecord&) {},
                    [&](const Pontil::CorruptionDetectedException&) { ++reports; });
    reports += writer->validate().size();
  }
  EXPECT_GT(reports, 300u);
  std::memcpy(raw.bytes(), pristine.data(), raw.size());
  EXPECT_TRUE(writer->validate().empty());
}

}  // namespace
