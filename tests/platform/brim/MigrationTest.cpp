// A table that an agent of the first layout left behind (a real image written by that
// library, kept under data/) is carried over by the next writer: every record and the
// generation survive, a record that fails the old checksum is dropped with a report,
// and a writer of the old layout that still holds the table keeps it.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::RawTable;
using BrimTest::ScratchTable;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

// Records 1..12 of CounterRecord::make(k, k), 4 and 9 deleted, 7 changed in place
// (values[3] = 777), written by three writer attaches, capacity 16.
constexpr const char* kImage = "first-layout-counters.table";

std::vector<unsigned char> firstLayoutImage() {
  std::vector<std::filesystem::path> candidates{std::filesystem::path(__FILE__).parent_path() /
                                                "data" / kImage};
  // Relative source paths are relative to the build tree: look in its ancestors.
  for (auto dir = std::filesystem::current_path(); !dir.empty(); dir = dir.parent_path()) {
    candidates.push_back(dir / "tests/platform/brim/data" / kImage);
    if (dir == dir.parent_path()) break;
  }
  for (const auto& path : candidates) {
    std::ifstream in(path, std::ios::binary);
    if (in) return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
  }
  throw std::runtime_error(std::string("cannot find test image ") + kImage);
}

// Puts the image in place as table `t`, as the old agent left it.
void install(const ScratchTable& t, const std::vector<unsigned char>& image) {
  const int fd = shm_open(("/" + t.name()).c_str(), O_RDWR | O_CREAT | O_EXCL, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, image.data(), image.size()), static_cast<ssize_t>(image.size()));
  close(fd);
}

CounterRecord expectedRecord(uint64_t k) {
  CounterRecord record = CounterRecord::make(k, k);
  if (k == 7) {
    record.values[3] = 777;
    record.sealIt();
  }
  return record;
}

TEST(BrimMigration, FirstLayoutTableIsCarriedOverWithEveryRecord) {
  ScratchTable t;
  const std::vector<unsigned char> image = firstLayoutImage();
  install(t, image);
  // A reader of this build does not guess at the old layout.
  try {
    Reader::open(t.ns(), t.table());
    FAIL() << "read a table of the first layout";
  } catch (const Pontil::CorruptionDetectedException& e) {
    EXPECT_EQ(std::string(e.what()),
              "table " + t.name() + ": layout version 1.0, this build reads major version 2");
  }
  auto writer = Writer::open(t.ns(), t.table(), 16);
  EXPECT_EQ(
      writer->attachReport(),
      std::vector<std::string>{"migrated from layout version 1.0: kept 10 records, dropped 0"});
  EXPECT_EQ(writer->generation(), 4u);
  EXPECT_EQ(writer->capacity(), 16u);
  EXPECT_EQ(writer->size(), 10u);
  EXPECT_TRUE(writer->validate().empty());
  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(reader->generation(), 4u);
  for (uint64_t k = 1; k <= 12; ++k) {
    const std::optional<CounterRecord> found = reader->find(k);
    if (k == 4 || k == 9) {
      EXPECT_FALSE(found.has_value()) << k;
    } else {
      ASSERT_TRUE(found.has_value()) << k;
      const CounterRecord want = expectedRecord(k);
      EXPECT_EQ(std::memcmp(&*found, &want, sizeof want), 0) << k;
    }
  }
  // The next writer just attaches.
  writer.reset();
  writer = Writer::open(t.ns(), t.table(), 16);
  EXPECT_TRUE(writer->attachReport().empty());
  EXPECT_EQ(writer->generation(), 5u);
}

TEST(BrimMigration, RecordFailingTheOldChecksumIsDroppedWithAReport) {
  ScratchTable t;
  std::vector<unsigned char> image = firstLayoutImage();
  const auto& fixed = *reinterpret_cast<const Brim::Layout::TableHeader*>(image.data());
  uint32_t damagedSlot = 0;
  for (uint32_t slot = 0; slot < fixed.slotCount; ++slot) {
    auto* w = reinterpret_cast<uint64_t*>(image.data() + fixed.slotsOffset +
                                          static_cast<size_t>(slot) * fixed.slotSize);
    if (w[Brim::Layout::kStateWord] == Brim::Layout::v1::kLive && w[Brim::Layout::kKeyWord] == 5) {
      w[Brim::Layout::kSlotHeaderWords + 10] ^= 1;
      damagedSlot = slot;
    }
  }
  install(t, image);
  auto writer = Writer::open(t.ns(), t.table(), 16);
  char key[19];
  std::snprintf(key, sizeof key, "0x%016llx", 5ULL);
  EXPECT_EQ(
      writer->attachReport(),
      (std::vector<std::string>{"migrated from layout version 1.0: kept 9 records, dropped 1",
                                "slot " + std::to_string(damagedSlot) + " (key " + key +
                                    ") of the old table fails its checksum and was dropped"}));
  EXPECT_FALSE(writer->contains(5));
  EXPECT_EQ(writer->find(6)->values[0], 6000u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimMigration, FirstLayoutWriterStillHoldingTheTableKeepsIt) {
  ScratchTable t;
  const std::vector<unsigned char> image = firstLayoutImage();
  install(t, image);
  // Writers of the first layout lock the table object itself.
  const int fd = shm_open(("/" + t.name()).c_str(), O_RDWR, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  try {
    Writer::open(t.ns(), t.table(), 16);
    FAIL() << "migrated a table whose old writer still runs";
  } catch (const Brim::WriterBusyException& e) {
    EXPECT_EQ(std::string(e.what(), 0, std::string(e.what()).find(" (pid")),
              "table " + t.name() + " already has a writer");
  }
  close(fd);
  EXPECT_EQ(RawTable(t.name()).header().majorVersion, 1u);
  auto writer = Writer::open(t.ns(), t.table(), 16);
  EXPECT_EQ(writer->size(), 10u);
}

}  // namespace
