// One writer process rewriting records as fast as it can while two reader processes
// look them up and walk the table: no reader ever sees a torn record.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <vector>

#include "BrimTestSupport.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::CounterRecord;
using BrimTest::ScratchTable;
using Clock = std::chrono::steady_clock;
using Writer = TableWriter<CounterRecord>;
using Reader = TableReader<CounterRecord>;

constexpr auto kRunTime = std::chrono::seconds(3);
constexpr uint64_t kStableKeys = 48;  // never deleted: every walk must see each once
constexpr uint64_t kChurnKeys = 16;   // deleted and inserted again all the time
constexpr uint32_t kCapacity = 128;

struct WriterResult {
  uint64_t writes = 0;
  uint64_t failures = 0;
};

struct ReaderResult {
  uint64_t finds = 0;
  uint64_t walks = 0;
  uint64_t recordsChecked = 0;
  uint64_t torn = 0;           // a record whose own seal does not match its values
  uint64_t corruption = 0;     // the table reported damage
  uint64_t busy = 0;           // a slot could not be read within the retry budget
  uint64_t stableMissing = 0;  // a stable key not found, or not seen by a walk
  uint64_t stableTwice = 0;    // a stable key seen twice in one walk
  uint64_t failures = 0;       // anything else went wrong
};

template <class Result>
void sendAndExit(int fd, const Result& result) {
  const ssize_t n = write(fd, &result, sizeof result);
  _exit(n == static_cast<ssize_t>(sizeof result) ? 0 : 3);
}

void runWriter(const ScratchTable& t, int readyFd, int resultFd) {
  WriterResult result;
  try {
    auto writer = Writer::open(t.ns(), t.table(), kCapacity);
    const char go = 'g';
    if (write(readyFd, &go, 1) != 1) _exit(4);
    const auto end = Clock::now() + kRunTime;
    for (uint64_t i = 1;; ++i) {
      if ((i & 1023) == 0 && Clock::now() >= end) break;
      const uint64_t key = i % (kStableKeys + kChurnKeys);
      if (key >= kStableKeys && i % 3 == 0) {
        writer->erase(key);
        writer->put(CounterRecord::make(key, i));
      } else if (i % 2 == 0 && writer->contains(key)) {
        CounterRecord& record = writer->directWrite(key);
        for (uint64_t& v : record.values) v += i;
        record.sealIt();
        writer->commit(key);
      } else {
        writer->put(CounterRecord::make(key, i));
      }
      ++result.writes;
    }
  } catch (...) {
    ++result.failures;
  }
  sendAndExit(resultFd, result);
}

void checkRecord(const CounterRecord& record, ReaderResult& result) {
  ++result.recordsChecked;
  if (!record.sealed()) ++result.torn;
}

void runReader(const ScratchTable& t, unsigned seed, int resultFd) {
  ReaderResult result;
  try {
    auto reader = Reader::open(t.ns(), t.table());
    std::mt19937 random(seed);
    const auto end = Clock::now() + kRunTime;
    while (Clock::now() < end) {
      try {
        for (int i = 0; i < 200; ++i) {
          const uint64_t key = random() % (kStableKeys + kChurnKeys);
          std::optional<CounterRecord> record = reader->find(key);
          ++result.finds;
          if (record) {
            checkRecord(*record, result);
            if (record->id != key) ++result.torn;
          } else if (key < kStableKeys) {
            ++result.stableMissing;
          }
        }
        std::vector<int> seen(kStableKeys + kChurnKeys, 0);
        reader->forEach([&](const CounterRecord& record) {
          checkRecord(record, result);
          if (record.id < seen.size()) ++seen[record.id];
        });
        ++result.walks;
        for (uint64_t k = 0; k < kStableKeys; ++k) {
          if (seen[k] == 0) ++result.stableMissing;
          if (seen[k] > 1) ++result.stableTwice;
        }
      } catch (const Brim::SlotBusyException&) {
        ++result.busy;
      } catch (const Pontil::CorruptionDetectedException&) {
        ++result.corruption;
      }
    }
  } catch (...) {
    ++result.failures;
  }
  sendAndExit(resultFd, result);
}

// Reads one result from `fd`, giving up after `timeout`.
template <class Result>
bool receive(int fd, Result& result, std::chrono::milliseconds timeout) {
  pollfd p{fd, POLLIN, 0};
  if (poll(&p, 1, static_cast<int>(timeout.count())) != 1) return false;
  return read(fd, &result, sizeof result) == static_cast<ssize_t>(sizeof result);
}

TEST(BrimMultiProcess, ReadersNeverSeeATornRecordWhileTheWriterRewritesFlatOut) {
  ScratchTable t;
  {
    auto writer = Writer::open(t.ns(), t.table(), kCapacity);
    for (uint64_t k = 0; k < kStableKeys + kChurnKeys; ++k) {
      writer->put(CounterRecord::make(k, 0));
    }
  }
  int ready[2];
  int writerPipe[2];
  int readerPipe[2][2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(writerPipe), 0);
  ASSERT_EQ(pipe(readerPipe[0]), 0);
  ASSERT_EQ(pipe(readerPipe[1]), 0);

  std::vector<pid_t> children;
  const pid_t writerPid = fork();
  ASSERT_GE(writerPid, 0);
  if (writerPid == 0) runWriter(t, ready[1], writerPipe[1]);
  children.push_back(writerPid);
  char go = 0;
  pollfd p{ready[0], POLLIN, 0};
  ASSERT_EQ(poll(&p, 1, 10000), 1) << "the writer did not attach";
  ASSERT_EQ(read(ready[0], &go, 1), 1);
  for (unsigned r = 0; r < 2; ++r) {
    const pid_t readerPid = fork();
    ASSERT_GE(readerPid, 0);
    if (readerPid == 0) runReader(t, 17 + r, readerPipe[r][1]);
    children.push_back(readerPid);
  }

  const auto limit = std::chrono::milliseconds(30000);
  WriterResult written;
  ReaderResult readers[2];
  const bool gotWriter = receive(writerPipe[0], written, limit);
  const bool gotReader0 = receive(readerPipe[0][0], readers[0], limit);
  const bool gotReader1 = receive(readerPipe[1][0], readers[1], limit);
  for (pid_t child : children) {
    if (!(gotWriter && gotReader0 && gotReader1)) kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child " << child;
  }
  for (int fd : {ready[0], ready[1], writerPipe[0], writerPipe[1], readerPipe[0][0],
                 readerPipe[0][1], readerPipe[1][0], readerPipe[1][1]}) {
    close(fd);
  }
  ASSERT_TRUE(gotWriter && gotReader0 && gotReader1) << "a child did not report in time";

  EXPECT_EQ(written.failures, 0u);
  EXPECT_GT(written.writes, 100000u);
  for (const ReaderResult& r : readers) {
    EXPECT_EQ(r.failures, 0u);
    EXPECT_EQ(r.torn, 0u);
    EXPECT_EQ(r.corruption, 0u);
    EXPECT_EQ(r.busy, 0u);
    EXPECT_EQ(r.stableMissing, 0u);
    EXPECT_EQ(r.stableTwice, 0u);
    EXPECT_GT(r.finds, 10000u);
    EXPECT_GT(r.walks, 100u);
    EXPECT_GT(r.recordsChecked, 100000u);
  }
  std::printf("writer: %llu writes; readers: %llu + %llu records checked in %llu + %llu walks\n",
              static_cast<unsigned long long>(written.writes),
              static_cast<unsigned long long>(readers[0].recordsChecked),
              static_cast<unsigned long long>(readers[1].recordsChecked),
              static_cast<unsigned long long>(readers[0].walks),
              static_cast<unsigned long long>(readers[1].walks));

  auto writer = Writer::open(t.ns(), t.table(), kCapacity);
  EXPECT_TRUE(writer->validate().empty());
  EXPECT_EQ(writer->size(), kStableKeys + kChurnKeys);
}

}  // namespace
