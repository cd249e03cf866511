// Single-process behaviour of a table: insert, overwrite, delete, full table,
// tombstones, walks, in-place writes, and what a reader of the same table sees.
#include <sys/stat.h>

#include <map>
#include <set>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::RawTable;
using BrimTest::ScratchTable;
using BrimTest::VlanRecord;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

TEST(BrimTableWriter, PutThenFindReturnsTheRecord) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(7, 3));
  const std::optional<CounterRecord> found = writer->find(7);
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->id, 7u);
  EXPECT_EQ(found->values[5], 3005u);
  EXPECT_TRUE(found->sealed());
  EXPECT_TRUE(writer->contains(7));
  EXPECT_EQ(writer->size(), 1u);
  EXPECT_EQ(writer->capacity(), 16u);
  EXPECT_EQ(writer->name(), t.name());
}

TEST(BrimTableWriter, FindOfAbsentKeyIsEmpty) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  EXPECT_FALSE(writer->find(2).has_value());
  EXPECT_FALSE(writer->contains(2));
}

TEST(BrimTableWriter, FindIntoARecordCopiesOnAHitAndLeavesItAloneOnAMiss) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(7, 3));
  auto reader = Reader::open(t.ns(), t.table());
  CounterRecord out = CounterRecord::make(99, 99);
  EXPECT_FALSE(reader->find(8, out));
  EXPECT_EQ(out.id, 99u);
  EXPECT_EQ(out.values[0], 99000u);
  EXPECT_TRUE(reader->find(7, out));
  EXPECT_EQ(out.id, 7u);
  EXPECT_EQ(out.values[0], 3000u);
  CounterRecord again;
  EXPECT_TRUE(writer->find(7, again));
  EXPECT_EQ(again.values[4], 3004u);
}

TEST(BrimTableWriter, PutOfAnExistingKeyOverwritesInPlace) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(7, 1));
  writer->put(CounterRecord::make(7, 2));
  EXPECT_EQ(writer->size(), 1u);
  EXPECT_EQ(writer->find(7)->values[0], 2000u);
}

TEST(BrimTableWriter, EraseRemovesTheRecordAndSaysWhetherItWasThere) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  writer->put(CounterRecord::make(2, 2));
  EXPECT_TRUE(writer->erase(1));
  EXPECT_FALSE(writer->erase(1));
  EXPECT_FALSE(writer->erase(99));
  EXPECT_FALSE(writer->contains(1));
  EXPECT_TRUE(writer->contains(2));
  EXPECT_EQ(writer->size(), 1u);
}

TEST(BrimTableWriter, FullTableRaisesAndChangesNothing) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 4);
  for (uint64_t k = 1; k <= 4; ++k) writer->put(CounterRecord::make(k, k));
  try {
    writer->put(CounterRecord::make(5, 5));
    FAIL() << "a fifth key fitted into a table of four";
  } catch (const Brim::TableFullException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() + " is full (4 records)");
  }
  EXPECT_EQ(writer->size(), 4u);
  EXPECT_FALSE(writer->contains(5));
  for (uint64_t k = 1; k <= 4; ++k) EXPECT_EQ(writer->find(k)->values[0], k * 1000);
  EXPECT_TRUE(writer->validate().empty());
  // Overwriting a key that is present still works in a full table.
  writer->put(CounterRecord::make(3, 30));
  EXPECT_EQ(writer->find(3)->values[0], 30000u);
  // And a delete makes room again.
  EXPECT_TRUE(writer->erase(2));
  writer->put(CounterRecord::make(5, 5));
  EXPECT_EQ(writer->size(), 4u);
}

TEST(BrimTableWriter, DeletedKeyCanBeInsertedAgain) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  writer->put(CounterRecord::make(4, 1));
  EXPECT_TRUE(writer->erase(4));
  writer->put(CounterRecord::make(4, 2));
  EXPECT_EQ(writer->find(4)->values[0], 2000u);
  EXPECT_EQ(writer->size(), 1u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimTableWriter, SlotsArePowerOfTwoAtLeastTwiceTheCapacity) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 5);
  RawTable raw(t.name());
  EXPECT_EQ(raw.header().capacity, 5u);
  EXPECT_EQ(raw.header().slotCount, 16u);
  EXPECT_EQ(raw.header().slotSize, 448u);  // 32 control bytes + 400, rounded to 64
  EXPECT_EQ(raw.size(), Brim::Layout::kHeaderSize + 16u * 448u);
}

TEST(BrimTableWriter, TombstoneIsReusedByTheNextNewKeyOnItsProbePath) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  RawTable raw(t.name());
  const auto keys = BrimTest::keysWithHome(3, raw.slotCount(), 4);
  for (int i = 0; i < 3; ++i) writer->put(CounterRecord::make(keys[i], i));
  ASSERT_EQ(raw.key(4), keys[1]);
  EXPECT_TRUE(writer->erase(keys[1]));
  // The next slot is still live, so the tombstone stays and the key behind it is found.
  EXPECT_EQ(raw.state(4), Brim::Layout::kTomb);
  EXPECT_EQ(raw.header().tombCount, 1u);
  EXPECT_TRUE(writer->contains(keys[2]));
  writer->put(CounterRecord::make(keys[3], 9));
  EXPECT_EQ(raw.state(4), Brim::Layout::kLive);
  EXPECT_EQ(raw.key(4), keys[3]);
  EXPECT_EQ(raw.header().tombCount, 0u);
  EXPECT_EQ(raw.header().liveCount, 3u);
  EXPECT_EQ(writer->find(keys[3])->values[0], 9000u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimTableWriter, TombstonesBeforeAnEmptySlotBecomeEmpty) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  RawTable raw(t.name());
  const auto keys = BrimTest::keysWithHome(10, raw.slotCount(), 3);
  for (int i = 0; i < 3; ++i) writer->put(CounterRecord::make(keys[i], i));
  EXPECT_TRUE(writer->erase(keys[1]));
  EXPECT_EQ(raw.state(11), Brim::Layout::kTomb);
  // Deleting the last of the run empties it and the tombstone before it.
  EXPECT_TRUE(writer->erase(keys[2]));
  EXPECT_EQ(raw.state(12), Brim::Layout::kEmpty);
  EXPECT_EQ(raw.state(11), Brim::Layout::kEmpty);
  EXPECT_EQ(raw.state(10), Brim::Layout::kLive);
  EXPECT_EQ(raw.header().tombCount, 0u);
  EXPECT_TRUE(writer->contains(keys[0]));
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimTableWriter, WalkVisitsEveryLiveRecordOnceInSlotOrder) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 64);
  RawTable raw(t.name());
  std::set<uint64_t> expected;
  for (uint64_t k = 1; k <= 50; ++k) {
    writer->put(CounterRecord::make(k, k));
    expected.insert(k);
  }
  writer->erase(10);
  expected.erase(10);
  std::vector<uint64_t> seen;
  auto cursor = writer->cursor();
  uint32_t lastSlot = 0;
  while (std::optional<CounterRecord> record = cursor.next()) {
    const uint32_t slot = *raw.liveSlotOf(record->id);
    EXPECT_TRUE(seen.empty() || slot > lastSlot) << "slot order broken at key " << record->id;
    EXPECT_EQ(cursor.position(), slot + 1);
    lastSlot = slot;
    seen.push_back(record->id);
  }
  EXPECT_TRUE(cursor.atEnd());
  EXPECT_EQ(std::set<uint64_t>(seen.begin(), seen.end()), expected);
  EXPECT_EQ(seen.size(), expected.size());
}

TEST(BrimTableWriter, WalkToleratesDeletesAndInsertsDuringTheWalk) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 256);
  // Even keys stay for the whole walk; odd keys are deleted, some re-inserted.
  for (uint64_t k = 1; k <= 200; ++k) writer->put(CounterRecord::make(k, k));
  std::map<uint64_t, int> seen;
  uint64_t nextNew = 1000;
  writer->forEach([&](const CounterRecord& record) {
    ++seen[record.id];
    if (record.id < 1000 && record.id % 2 == 1) {
      EXPECT_TRUE(writer->erase(record.id));
    }
    // Delete an odd key somewhere else in the table, and add a new one.
    const uint64_t other = (record.id * 7) % 200 | 1;
    writer->erase(other);
    if (nextNew < 1050) writer->put(CounterRecord::make(nextNew++, 1));
  });
  for (uint64_t k = 2; k <= 200; k += 2) EXPECT_EQ(seen[k], 1) << "key " << k;
  for (const auto& [key, count] : seen) EXPECT_EQ(count, 1) << "key " << key;
  for (uint64_t k = 1; k <= 200; k += 2) EXPECT_FALSE(writer->contains(k));
  EXPECT_EQ(writer->size(), 100u + 50u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimTableWriter, DirectWriteIsInvisibleUntilCommit) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(5, 1));
  auto reader = Reader::open(t.ns(), t.table());
  CounterRecord& record = writer->directWrite(5);
  EXPECT_EQ(record.values[0], 1000u);
  record.values[0] = 42;
  record.sealIt();
  EXPECT_EQ(reader->find(5)->values[0], 1000u);
  EXPECT_EQ(writer->find(5)->values[0], 1000u);
  writer->commit(5);
  EXPECT_EQ(reader->find(5)->values[0], 42u);
  EXPECT_TRUE(reader->find(5)->sealed());
  // The copy stays tied to the key: edit and commit again.
  record.values[0] = 43;
  writer->commit(5);
  EXPECT_EQ(reader->find(5)->values[0], 43u);
  EXPECT_TRUE(writer->validate().empty());
}

TEST(BrimTableWriter, DirectWriteOfAMissingKeyAssertsNoMansLand) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  try {
    writer->directWrite(2);
    FAIL() << "directWrite of a missing key returned";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "BrimMap::directWrite() in no man's land");
  }
}

TEST(BrimTableWriter, CommitOfAnotherKeyAsserts) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  writer->put(CounterRecord::make(2, 2));
  writer->directWrite(1).values[0] = 77;
  try {
    writer->commit(2);
    FAIL() << "commit of a key other than the staged one returned";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "BrimMap::commit() of a key not given to directWrite()");
  }
  EXPECT_EQ(writer->find(2)->values[0], 2000u);
  EXPECT_EQ(writer->find(1)->values[0], 1000u);
}

TEST(BrimTableWriter, CommitAfterTheKeyWasErasedAsserts) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  writer->directWrite(1).values[0] = 77;
  writer->erase(1);
  EXPECT_THROW(writer->commit(1), Pontil::AssertException);
  EXPECT_FALSE(writer->contains(1));
}

TEST(BrimTableWriter, CommitOfACopyWhoseKeyWasChangedAsserts) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(1, 1));
  writer->directWrite(1).id = 9;
  try {
    writer->commit(1);
    FAIL() << "commit published a record under another key";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "BrimMap::commit() of a record whose key was changed");
  }
  EXPECT_FALSE(writer->contains(9));
}

TEST(BrimTableWriter, DirectWriteAndCommitDuringAWalkUpdateEveryRecord) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 64);
  for (uint64_t k = 1; k <= 40; ++k) writer->put(CounterRecord::make(k, 1));
  writer->forEach([&](const CounterRecord& record) {
    CounterRecord& staged = writer->directWrite(record.id);
    staged.values[1] += 5;
    staged.sealIt();
    writer->commit(record.id);
  });
  for (uint64_t k = 1; k <= 40; ++k) {
    EXPECT_EQ(writer->find(k)->values[1], 1006u);
    EXPECT_TRUE(writer->find(k)->sealed());
  }
}

TEST(BrimTableWriter, ReaderSeesRecordsGenerationWriterAndHeartbeat) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  writer->put(CounterRecord::make(3, 3));
  writer->heartbeatIs(12.5);
  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(reader->size(), 1u);
  EXPECT_EQ(reader->capacity(), 16u);
  EXPECT_EQ(reader->generation(), 1u);
  EXPECT_EQ(reader->writerPid(), static_cast<uint64_t>(getpid()));
  EXPECT_EQ(reader->heartbeat(), 12.5);
  EXPECT_EQ(reader->find(3)->values[2], 3002u);
  EXPECT_FALSE(reader->contains(4));
  writer.reset();
  EXPECT_EQ(reader->writerPid(), 0u);
  // Records stay readable after the writer closed.
  EXPECT_EQ(reader->find(3)->values[2], 3002u);
}

TEST(BrimTableWriter, ReaderOfAMissingTableRaisesTableMissing) {
  ScratchTable t;
  try {
    Reader::open(t.ns(), t.table());
    FAIL() << "opened a table that does not exist";
  } catch (const Brim::TableMissingException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() + " does not exist");
  }
}

TEST(BrimTableWriter, TableIsPublishedOwnerWritableOnly) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 16);
  struct stat st {};
  ASSERT_EQ(stat(("/dev/shm/" + t.name()).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
}

TEST(BrimTableWriter, MalformedNamesAreRejected) {
  EXPECT_THROW(Brim::tableName("", "x"), std::invalid_argument);
  EXPECT_THROW(Brim::tableName("a/b", "x"), std::invalid_argument);
  EXPECT_THROW(Brim::tableName("a", ""), std::invalid_argument);
  EXPECT_THROW(Brim::tableName("a", std::string(300, 'x')), std::invalid_argument);
  EXPECT_EQ(Brim::tableName("agent", "allIntfCounters"), "agent.allIntfCounters");
}

TEST(BrimTableWriter, UnlinkRemovesTheTableOnce) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 4)->put(CounterRecord::make(1, 1));
  EXPECT_TRUE(Brim::unlinkTable(t.ns(), t.table()));
  EXPECT_FALSE(Brim::unlinkTable(t.ns(), t.table()));
  EXPECT_THROW(Reader::open(t.ns(), t.table()), Brim::TableMissingException);
}

TEST(BrimTableWriter, NarrowKeysArePaddedAndWork) {
  ScratchTable t;
  auto writer = TableWriter<VlanRecord>::open(t.ns(), t.table(), 4094);
  for (uint16_t vlan = 1; vlan <= 4094; ++vlan) {
    writer->put(VlanRecord{vlan, 0, 0, uint64_t{vlan} * 3});
  }
  auto reader = TableReader<VlanRecord>::open(t.ns(), t.table());
  EXPECT_EQ(reader->size(), 4094u);
  EXPECT_EQ(reader->find(100)->packets, 300u);
  EXPECT_FALSE(reader->contains(4095));
  size_t walked = 0;
  reader->forEach([&](const VlanRecord& r) {
    EXPECT_EQ(r.packets, uint64_t{r.vlanId} * 3);
    ++walked;
  });
  EXPECT_EQ(walked, 4094u);
  EXPECT_TRUE(reader->validate().empty());
}

TEST(BrimTableWriter, ChurnDoesNotFillTheTableWithTombstones) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 32);
  RawTable raw(t.name());
  for (uint64_t round = 0; round < 200; ++round) {
    for (uint64_t k = 0; k < 32; ++k) writer->put(CounterRecord::make(round * 32 + k, 1));
    for (uint64_t k = 0; k < 32; ++k) EXPECT_TRUE(writer->erase(round * 32 + k));
  }
  EXPECT_EQ(writer->size(), 0u);
  EXPECT_EQ(raw.header().tombCount, 0u);
  EXPECT_TRUE(writer->validate().empty());
}

}  // namespace

namespace {

using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::ScratchTable;

TEST(BrimTableWriter, PutAtAHandlePublishesLikePutAndSurvivesDeletion) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  for (uint64_t k = 1; k <= 6; ++k) writer->put(CounterRecord::make(k, k));
  EXPECT_FALSE(writer->slotOf(99).has_value());
  auto handle = writer->slotOf(5);
  ASSERT_TRUE(handle.has_value());
  EXPECT_EQ(handle->key(), 5u);
  auto reader = Brim::TableReader<CounterRecord>::open(t.ns(), t.table());
  writer->putAt(*handle, CounterRecord::make(5, 50));
  EXPECT_EQ(reader->find(5)->values[0], 50000u);
  EXPECT_EQ(writer->size(), 6u);
  // Deleted, its slot taken over by other keys: the handle falls back to a put.
  writer->erase(5);
  for (uint64_t k = 7; k <= 8; ++k) writer->put(CounterRecord::make(k, k));
  writer->putAt(*handle, CounterRecord::make(5, 51));
  EXPECT_EQ(reader->find(5)->values[0], 51000u);
  writer->putAt(*handle, CounterRecord::make(5, 52));
  EXPECT_EQ(reader->find(5)->values[0], 52000u);
  EXPECT_EQ(writer->size(), 8u);
  for (uint64_t k = 1; k <= 8; ++k) {
    if (k != 5) {
      EXPECT_EQ(reader->find(k)->values[0], k * 1000) << k;
    }
  }
  EXPECT_TRUE(writer->validate().empty());
  EXPECT_TRUE(reader->validate().empty());
}

TEST(BrimTableWriter, PutAtWithAnotherKeysRecordIsFatal) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  writer->put(CounterRecord::make(1, 1));
  auto handle = writer->slotOf(1);
  ASSERT_TRUE(handle.has_value());
  try {
    writer->putAt(*handle, CounterRecord::make(2, 2));
    FAIL() << "published another key's record through a handle";
  } catch (const Pontil::AssertException& e) {
    EXPECT_EQ(e.expression(), "BrimMap::putAt() of a record for another key");
  }
  EXPECT_FALSE(writer->contains(2));
}

TEST(BrimTableWriter, FindAtReadsThroughTheHandleAndFollowsAMovedKey) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  for (uint64_t k = 1; k <= 6; ++k) writer->put(CounterRecord::make(k, k));
  std::optional<TableWriter<CounterRecord>::Slot> handle;
  CounterRecord out;
  // An empty handle looks the key up and then points at its slot.
  ASSERT_TRUE(writer->findAt(handle, 5, out));
  EXPECT_EQ(out.values[0], 5000u);
  ASSERT_TRUE(handle.has_value());
  EXPECT_EQ(handle->key(), 5u);
  writer->put(CounterRecord::make(5, 50));
  ASSERT_TRUE(writer->findAt(handle, 5, out));
  EXPECT_EQ(out.values[0], 50000u);
  // Deleted and inserted again after other keys took its slot: the stale handle
  // finds the record where it is now.
  writer->erase(5);
  for (uint64_t k = 7; k <= 8; ++k) writer->put(CounterRecord::make(k, k));
  writer->put(CounterRecord::make(5, 55));
  ASSERT_TRUE(writer->findAt(handle, 5, out));
  EXPECT_EQ(out.values[0], 55000u);
  ASSERT_TRUE(handle.has_value());
  // A handle of another key is never used for this one.
  std::optional<TableWriter<CounterRecord>::Slot> other = writer->slotOf(1);
  ASSERT_TRUE(writer->findAt(other, 2, out));
  EXPECT_EQ(out.id, 2u);
  EXPECT_EQ(other->key(), 2u);
  // A miss empties the handle and leaves the record as it was.
  writer->erase(5);
  out = CounterRecord::make(9, 9);
  EXPECT_FALSE(writer->findAt(handle, 5, out));
  EXPECT_FALSE(handle.has_value());
  EXPECT_EQ(out.id, 9u);
}

TEST(BrimTableWriter, FindAtReportsADamagedSlotBehindTheHandle) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  writer->put(CounterRecord::make(3, 3));
  std::optional<TableWriter<CounterRecord>::Slot> handle = writer->slotOf(3);
  ASSERT_TRUE(handle.has_value());
  RawTable raw(t.name());
  const uint32_t slot = *raw.liveSlotOf(3);
  raw.slot(slot)[Brim::Layout::kSlotHeaderWords + 4] ^= 0x40;
  CounterRecord out;
  try {
    writer->findAt(handle, 3, out);
    FAIL() << "read a damaged record through its handle";
  } catch (const Pontil::CorruptionDetectedException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() + ": slot " + std::to_string(slot) +
                                         " (key 0x0000000000000003) fails its checksum");
  }
}

TEST(BrimTableWriter, PutAtAnOptionalHandleFillsItOnFirstUse) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  std::optional<TableWriter<CounterRecord>::Slot> handle;
  writer->putAt(handle, CounterRecord::make(4, 1));
  ASSERT_TRUE(handle.has_value());
  EXPECT_EQ(handle->key(), 4u);
  EXPECT_EQ(reader->find(4)->values[0], 1000u);
  writer->putAt(handle, CounterRecord::make(4, 2));
  EXPECT_EQ(reader->find(4)->values[0], 2000u);
  // A record of another key goes in by key, and the handle follows it.
  writer->putAt(handle, CounterRecord::make(6, 3));
  EXPECT_EQ(handle->key(), 6u);
  EXPECT_EQ(reader->find(6)->values[0], 3000u);
  EXPECT_EQ(reader->find(4)->values[0], 2000u);
  EXPECT_EQ(writer->size(), 2u);
  EXPECT_TRUE(reader->validate().empty());
}

TEST(BrimTableWriter, RewriteUnchangedPublishesOnlyOverWhatWasRead) {
  ScratchTable t;
  auto writer = TableWriter<CounterRecord>::open(t.ns(), t.table(), 8);
  for (uint64_t k = 1; k <= 3; ++k) writer->put(CounterRecord::make(k, k));
  auto reader = TableReader<CounterRecord>::open(t.ns(), t.table());
  RawTable raw(t.name());

  auto cursor = writer->cursor();
  CounterRecord original;
  ASSERT_TRUE(cursor.next(original));
  const auto stamp = writer->stampOf(cursor);
  EXPECT_EQ(stamp.slot, *raw.liveSlotOf(original.id));
  CounterRecord changed = CounterRecord::make(original.id, 70);
  EXPECT_TRUE(writer->rewriteUnchanged(stamp, original, changed));
  EXPECT_EQ(reader->find(original.id)->values[0], 70000u);
  // The same stamp is stale now: the writer's own write moved the sequence count.
  EXPECT_FALSE(writer->rewriteUnchanged(stamp, original, CounterRecord::make(original.id, 71)));
  EXPECT_EQ(reader->find(original.id)->values[0], 70000u);

  // A record word changed from outside after the read: nothing is written.
  CounterRecord second;
  ASSERT_TRUE(cursor.next(second));
  const auto secondStamp = writer->stampOf(cursor);
  raw.slot(secondStamp.slot)[Brim::Layout::kSlotHeaderWords + 2] ^= 1;
  EXPECT_FALSE(writer->rewriteUnchanged(secondStamp, second, CounterRecord::make(second.id, 80)));
  EXPECT_NE(raw.slot(secondStamp.slot)[Brim::Layout::kSlotHeaderWords + 1], 80000u);

  // A checksum word changed from outside: nothing is written either.
  CounterRecord third;
  ASSERT_TRUE(cursor.next(third));
  const auto thirdStamp = writer->stampOf(cursor);
  raw.slot(thirdStamp.slot)[Brim::Layout::kChecksumWord] ^= 1;
  EXPECT_FALSE(writer->rewriteUnchanged(thirdStamp, third, CounterRecord::make(third.id, 90)));
  EXPECT_NE(raw.slot(thirdStamp.slot)[Brim::Layout::kSlotHeaderWords + 1], 90000u);
}

}  // namespace
