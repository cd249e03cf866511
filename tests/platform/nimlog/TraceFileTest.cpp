// Writing trace records and reading them back.
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "NimlogTestSupport.h"
#include "nimlog/Decode.h"

namespace {

using Nimlog::DecodedRecord;
using Nimlog::TraceFile;
using NimlogTest::advanceNs;

void recordPoll(std::uint64_t intf, std::uint64_t queue) {
  NIMLOG_RECORD("VornCountersSm", "void Vorn::Counters::IntfQueueCountersSm::handleTime()", intf,
                queue);
}
constexpr std::uint32_t kPollLine = __LINE__ - 3;

void recordInit() {
  NIMLOG_RECORD("VornCountersSm", "void Vorn::Counters::CountersSm::handleInitialized()");
}
constexpr std::uint32_t kInitLine = __LINE__ - 2;

void recordTick(std::uint64_t n) { NIMLOG_RECORD("VornCountersSm", "tick", n); }

void recordFromThread(std::uint64_t thread, std::uint64_t n) {
  NIMLOG_RECORD("VornCountersSm", "from thread", thread, n);
}

void recordCounting(int& evaluations) { NIMLOG_RECORD("VornCountersSm", "counted", ++evaluations); }

std::vector<std::uint64_t> argsOf(const std::vector<DecodedRecord>& records, std::size_t arg) {
  std::vector<std::uint64_t> values;
  for (const DecodedRecord& record : records) {
    values.push_back(record.args.at(arg));
  }
  return values;
}

class TraceFileTest : public NimlogTest::NimlogFixture {};

TEST_F(TraceFileTest, RecordsDecodeWithTimeModuleLineTextAndArguments) {
  const std::string path = scratch("trace");
  TraceFile::open(path, 16);
  recordInit();
  advanceNs(2'500'000);
  recordPoll(7, 3);

  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.capacity, 16u);
  EXPECT_EQ(trace.written, 2u);
  EXPECT_EQ(trace.incomplete, 0u);
  EXPECT_FALSE(trace.textsDropped);
  ASSERT_EQ(trace.records.size(), 2u);

  const DecodedRecord& init = trace.records[0];
  EXPECT_EQ(init.index, 0u);
  EXPECT_EQ(init.timestampNs, 1'000'000'000u);
  EXPECT_EQ(init.module, "VornCountersSm");
  EXPECT_EQ(init.line, kInitLine);
  EXPECT_EQ(init.text, "void Vorn::Counters::CountersSm::handleInitialized()");
  EXPECT_EQ(init.args, std::vector<std::uint64_t>{});

  const DecodedRecord& poll = trace.records[1];
  EXPECT_EQ(poll.index, 1u);
  EXPECT_EQ(poll.timestampNs, 1'002'500'000u);
  EXPECT_EQ(poll.line, kPollLine);
  EXPECT_EQ(poll.args, (std::vector<std::uint64_t>{7, 3}));
  EXPECT_EQ(Nimlog::formatRecord(poll),
            "1.002500 VornCountersSm:" + std::to_string(kPollLine) +
                " void Vorn::Counters::IntfQueueCountersSm::handleTime() 7 3");
}

TEST_F(TraceFileTest, CapacityRoundsUpToAPowerOfTwo) {
  TraceFile::open(scratch("trace"), 5);
  EXPECT_TRUE(TraceFile::isOpen());
  EXPECT_EQ(TraceFile::capacity(), 8u);
  EXPECT_EQ(TraceFile::path(), scratch("trace"));
}

TEST_F(TraceFileTest, WrapAroundKeepsTheNewestRecordsOldestFirst) {
  const std::string path = scratch("trace");
  TraceFile::open(path, 8);
  for (std::uint64_t n = 0; n < 20; ++n) {
    recordTick(n);
  }
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.written, 20u);
  EXPECT_EQ(argsOf(trace.records, 0), (std::vector<std::uint64_t>{12, 13, 14, 15, 16, 17, 18, 19}));
  ASSERT_EQ(trace.records.size(), 8u);
  EXPECT_EQ(trace.records.front().index, 12u);
  EXPECT_EQ(trace.records.back().index, 19u);
}

TEST_F(TraceFileTest, WithoutAFileRecordingDoesNothingAndSkipsItsArguments) {
  int evaluations = 0;
  recordCounting(evaluations);
  EXPECT_EQ(evaluations, 0);
  EXPECT_FALSE(TraceFile::isOpen());
  EXPECT_EQ(TraceFile::capacity(), 0u);
  EXPECT_EQ(TraceFile::path(), "");

  const std::string path = scratch("trace");
  TraceFile::open(path, 4);
  recordCounting(evaluations);
  TraceFile::close();
  recordCounting(evaluations);
  EXPECT_EQ(evaluations, 1);
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.written, 1u);
  EXPECT_EQ(argsOf(trace.records, 0), (std::vector<std::uint64_t>{1}));
}

TEST_F(TraceFileTest, ANewFileKnowsSitesRegisteredForAnEarlierOne) {
  TraceFile::open(scratch("first"), 4);
  recordInit();
  const std::string second = scratch("second");
  TraceFile::open(second, 4);
  recordInit();
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(second);
  ASSERT_EQ(trace.records.size(), 1u);
  EXPECT_EQ(trace.records[0].text, "void Vorn::Counters::CountersSm::handleInitialized()");
  EXPECT_EQ(trace.records[0].line, kInitLine);
}

TEST_F(TraceFileTest, ConcurrentWritersLoseNoRecord) {
  const std::string path = scratch("trace");
  constexpr std::uint64_t kPerThread = 20'000;
  TraceFile::open(path, 2 * kPerThread);
  auto writer = [](std::uint64_t thread) {
    for (std::uint64_t n = 0; n < kPerThread; ++n) {
      recordFromThread(thread, n);
    }
  };
  std::thread first(writer, 1);
  std::thread second(writer, 2);
  first.join();
  second.join();

  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.written, 2 * kPerThread);
  EXPECT_EQ(trace.incomplete, 0u);
  ASSERT_EQ(trace.records.size(), 2 * kPerThread);
  // Each thread's records appear once each, in the order that thread wrote them.
  std::uint64_t next[3] = {0, 0, 0};
  for (const DecodedRecord& record : trace.records) {
    const std::uint64_t thread = record.args.at(0);
    ASSERT_TRUE(thread == 1 || thread == 2);
    ASSERT_EQ(record.args.at(1), next[thread]);
    ++next[thread];
  }
  EXPECT_EQ(next[1], kPerThread);
  EXPECT_EQ(next[2], kPerThread);
}

TEST_F(TraceFileTest, FullMessageTableDecodesRecordsAsUnknownMessages) {
  const std::string path = scratch("trace");
  TraceFile::open(path, 4, 0);
  recordTick(5);
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_TRUE(trace.textsDropped);
  ASSERT_EQ(trace.records.size(), 1u);
  const DecodedRecord& record = trace.records[0];
  EXPECT_EQ(record.module, "?");
  EXPECT_EQ(record.text,
            "message " + std::to_string(record.messageId) + " (text not kept: message table full)");
  EXPECT_EQ(record.args, std::vector<std::uint64_t>{5});
}

TEST_F(TraceFileTest, ForkedChildDoesNotWriteIntoTheParentsTrace) {
  const std::string path = scratch("trace");
  TraceFile::open(path, 8);
  recordTick(1);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    recordTick(2);
    _exit(TraceFile::isOpen() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  recordTick(3);
  EXPECT_EQ(argsOf(Nimlog::decodeFile(path).records, 0), (std::vector<std::uint64_t>{1, 3}));
}

TEST_F(TraceFileTest, RejectsCapacityOutOfRangeAndStaysClosed) {
  try {
    TraceFile::open(scratch("trace"), 0);
    FAIL() << "open accepted capacity 0";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "trace file record capacity must be between 1 and 2^32, not 0");
  }
  EXPECT_FALSE(TraceFile::isOpen());
}

TEST_F(TraceFileTest, UncreatableFileRaisesErrorNamingThePath) {
  const std::string path = scratch("missing-dir/trace");
  try {
    TraceFile::open(path, 4);
    FAIL() << "open created a file in a missing directory";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "cannot create trace file '" + path + "': No such file or directory");
  }
  EXPECT_FALSE(TraceFile::isOpen());
}

}  // namespace
