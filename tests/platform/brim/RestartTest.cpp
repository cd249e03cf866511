// Writer restarts: records survive, the generation moves on, another layout or a
// second writer is refused, and a writer killed mid-write leaves a repairable table.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::RawTable;
using BrimTest::ScratchTable;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

TEST(BrimRestart, ReopenedWriterKeepsRecordsAndBumpsGeneration) {
  ScratchTable t;
  {
    auto writer = Writer::open(t.ns(), t.table(), 32);
    for (uint64_t k = 1; k <= 20; ++k) writer->put(CounterRecord::make(k, k));
    writer->erase(5);
    EXPECT_EQ(writer->generation(), 1u);
  }
  auto writer = Writer::open(t.ns(), t.table(), 32);
  EXPECT_EQ(writer->generation(), 2u);
  EXPECT_EQ(writer->size(), 19u);
  EXPECT_FALSE(writer->contains(5));
  for (uint64_t k = 1; k <= 20; ++k) {
    if (k != 5) {
      EXPECT_EQ(writer->find(k)->values[3], k * 1000 + 3);
    }
  }
  EXPECT_TRUE(writer->attachReport().empty());
  EXPECT_TRUE(writer->validate().empty());
  writer->put(CounterRecord::make(5, 50));
  EXPECT_EQ(writer->size(), 20u);
  auto reader = Reader::open(t.ns(), t.table());
  EXPECT_EQ(reader->generation(), 2u);
}

TEST(BrimRestart, ReopenWithAnotherCapacityKeepsTheTablesCapacity) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8)->put(CounterRecord::make(1, 1));
  auto writer = Writer::open(t.ns(), t.table(), 1000);
  EXPECT_EQ(writer->capacity(), 8u);
  EXPECT_TRUE(writer->contains(1));
}

TEST(BrimRestart, AnotherRecordSizeIsRefusedWithClearMessage) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8)->put(CounterRecord::make(1, 1));
  try {
    TableWriter<BrimTest::GrownCounterRecord>::open(t.ns(), t.table(), 8);
    FAIL() << "attached a writer of another record size";
  } catch (const Brim::LayoutMismatchException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() +
                                         " holds records of another layout: record size is 400 "
                                         "bytes, expected 408");
  }
  // The table is left as it was.
  auto writer = Writer::open(t.ns(), t.table(), 8);
  EXPECT_EQ(writer->find(1)->values[0], 1000u);
}

TEST(BrimRestart, AnotherRecordTypeIsRefusedWithClearMessage) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8)->put(CounterRecord::make(1, 1));
  try {
    TableWriter<BrimTest::OtherRecord>::open(t.ns(), t.table(), 8);
    FAIL() << "attached a writer of another record type";
  } catch (const Brim::LayoutMismatchException& e) {
    EXPECT_EQ(std::string(e.what()),
              "table " + t.name() +
                  " holds records of another layout: record type is 'BrimTest::CounterRecord', "
                  "expected 'BrimTest::OtherRecord'");
  }
  EXPECT_THROW(TableReader<BrimTest::OtherRecord>::open(t.ns(), t.table()),
               Pontil::CorruptionDetectedException);
}

TEST(BrimRestart, AnotherFieldLayoutIsRefusedWithClearMessage) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8)->put(CounterRecord::make(1, 1));
  try {
    TableWriter<BrimTest::RelaidCounterRecord>::open(t.ns(), t.table(), 8);
    FAIL() << "attached a writer of another field layout";
  } catch (const Brim::LayoutMismatchException& e) {
    EXPECT_EQ(std::string(e.what()),
              "table " + t.name() +
                  " holds records of another layout: record field layout hash is "
                  "0x0000000000000000, expected 0x0000000000001234");
  }
}

TEST(BrimRestart, AnotherMajorVersionIsRefused) {
  ScratchTable t;
  Writer::open(t.ns(), t.table(), 8);
  RawTable(t.name()).header().majorVersion = Brim::Layout::kMajorVersion + 1;
  try {
    Writer::open(t.ns(), t.table(), 8);
    FAIL() << "attached to a table of another major version";
  } catch (const Brim::LayoutMismatchException& e) {
    EXPECT_EQ(std::string(e.what()), "table " + t.name() +
                                         " cannot be attached: layout version 3.0, this build "
                                         "reads major version 2");
  }
}

TEST(BrimRestart, SecondWriterInTheSameProcessIsRefused) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  try {
    Writer::open(t.ns(), t.table(), 8);
    FAIL() << "a second writer attached";
  } catch (const Brim::WriterBusyException& e) {
    EXPECT_EQ(std::string(e.what()),
              "table " + t.name() + " already has a writer (pid " + std::to_string(getpid()) + ")");
  }
  writer.reset();
  EXPECT_NO_THROW(Writer::open(t.ns(), t.table(), 8));
}

TEST(BrimRestart, SecondWriterInAnotherProcessIsRefused) {
  ScratchTable t;
  auto writer = Writer::open(t.ns(), t.table(), 8);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    int code = 1;
    try {
      Writer::open(t.ns(), t.table(), 8);
    } catch (const Brim::WriterBusyException&) {
      code = 0;
    } catch (...) {
      code = 2;
    }
    _exit(code);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the second writer attached, 2: it failed otherwise";
}

TEST(BrimRestart, InterruptedWriteOfAnIntactRecordIsEvenedOnReattach) {
  ScratchTable t;
  uint64_t generation = 0;
  {
    auto writer = Writer::open(t.ns(), t.table(), 8);
    writer->put(CounterRecord::make(1, 1));
    writer->put(CounterRecord::make(2, 2));
    generation = writer->generation();
  }
  {
    RawTable raw(t.name());
    const uint32_t slot = *raw.liveSlotOf(1);
    raw.seq(slot) += 1;  // a writer that died right after raising the count
  }
  auto writer = Writer::open(t.ns(), t.table(), 8);
  EXPECT_EQ(writer->generation(), generation + 1);
  ASSERT_EQ(writer->attachReport().size(), 1u);
  EXPECT_NE(writer->attachReport()[0].find("sequence count was evened"), std::string::npos)
      << writer->attachReport()[0];
  EXPECT_EQ(writer->find(1)->values[0], 1000u);
  EXPECT_EQ(writer->size(), 2u);
  EXPECT_TRUE(writer->validate().empty());
  EXPECT_EQ(Reader::open(t.ns(), t.table())->find(1)->values[0], 1000u);
}

TEST(BrimRestart, TornRecordIsDroppedOnReattach) {
  ScratchTable t;
  {
    auto writer = Writer::open(t.ns(), t.table(), 8);
    writer->put(CounterRecord::make(1, 1));
    writer->put(CounterRecord::make(2, 2));
  }
  {
    RawTable raw(t.name());
    const uint32_t slot = *raw.liveSlotOf(1);
    raw.seq(slot) += 1;
    raw.slot(slot)[Brim::Layout::kSlotHeaderWords + 10] = 123456;  // half of a newer record
  }
  auto writer = Writer::open(t.ns(), t.table(), 8);
  ASSERT_EQ(writer->attachReport().size(), 1u);
  EXPECT_NE(writer->attachReport()[0].find("torn record, which was dropped"), std::string::npos)
      << writer->attachReport()[0];
  EXPECT_FALSE(writer->contains(1));
  EXPECT_EQ(writer->size(), 1u);
  EXPECT_EQ(writer->find(2)->values[0], 2000u);
  EXPECT_TRUE(writer->validate().empty());
  writer->put(CounterRecord::make(1, 7));
  EXPECT_EQ(writer->find(1)->values[0], 7000u);
}

TEST(BrimRestart, WriterKilledWhileWritingLeavesARepairableTable) {
  ScratchTable t;
  {
    auto writer = Writer::open(t.ns(), t.table(), 64);
    for (uint64_t k = 1; k <= 40; ++k) writer->put(CounterRecord::make(k, 0));
  }
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(ready[0]);
    auto writer = Writer::open(t.ns(), t.table(), 64);
    const char go = 'g';
    if (write(ready[1], &go, 1) != 1) _exit(3);
    for (uint64_t i = 1;; ++i) writer->put(CounterRecord::make(1 + i % 40, i));
  }
  close(ready[1]);
  char go = 0;
  ASSERT_EQ(read(ready[0], &go, 1), 1);
  close(ready[0]);
  // Let it write for a moment, then kill it wherever it is.
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
  while (std::chrono::steady_clock::now() < until) {
  }
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));

  auto writer = Writer::open(t.ns(), t.table(), 64);
  EXPECT_EQ(writer->generation(), 3u);
  EXPECT_TRUE(writer->validate().empty());
  // Every key is there and whole, except one whose torn write may have been dropped.
  EXPECT_GE(writer->size(), 39u);
  size_t whole = 0;
  writer->forEach([&](const CounterRecord& record) {
    EXPECT_TRUE(record.sealed()) << "key " << record.id;
    ++whole;
  });
  EXPECT_EQ(whole, writer->size());
}

}  // namespace
