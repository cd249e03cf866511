// Reading damaged, foreign and half-written trace files.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>

#include "NimlogTestSupport.h"
#include "nimlog/Decode.h"
#include "nimlog/FileFormat.h"

namespace {

using Nimlog::TraceFile;
using Nimlog::format::FileHeader;
using Nimlog::format::Record;

void recordSample(std::uint64_t value) { NIMLOG_RECORD("VornCountersSm", "sample", value); }

class DecodeTest : public NimlogTest::NimlogFixture {
 protected:
  // A closed trace file holding `records` samples, in a ring of 4.
  std::string writeTrace(int records) {
    const std::string path = scratch("trace");
    TraceFile::open(path, 4);
    for (int n = 0; n < records; ++n) {
      recordSample(static_cast<std::uint64_t>(n));
    }
    TraceFile::close();
    return path;
  }

  template <typename T>
  void patch(const std::string& path, std::uint64_t offset, T value) {
    const int fd = ::open(path.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(pwrite(fd, &value, sizeof value, static_cast<off_t>(offset)),
              static_cast<ssize_t>(sizeof value));
    ::close(fd);
  }

  static std::uint64_t slotOffset(std::uint64_t slot) {
    return Nimlog::format::kHeaderSize + slot * sizeof(Record);
  }

  // The message of the DecodeError that decoding `path` raises, or "" if it decodes.
  static std::string decodeErrorOf(const std::string& path) {
    try {
      Nimlog::decodeFile(path);
    } catch (const Nimlog::DecodeError& error) {
      return error.what();
    }
    return "";
  }
};

TEST_F(DecodeTest, MissingFileGivesClearError) {
  const std::string path = scratch("absent");
  EXPECT_EQ(decodeErrorOf(path), path + ": cannot open (No such file or directory)");
}

TEST_F(DecodeTest, DirectoryIsNotATraceFile) {
  const std::string path = scratch("");
  EXPECT_EQ(decodeErrorOf(path), path + ": not a trace file (not a regular file)");
}

TEST_F(DecodeTest, FileShorterThanAHeaderIsNotATraceFile) {
  const std::string path = scratch("short");
  std::ofstream(path) << "hello";
  EXPECT_EQ(decodeErrorOf(path),
            path + ": not a trace file (5 bytes, shorter than a trace header)");
}

TEST_F(DecodeTest, ForeignFileIsRejectedByItsMagicNumber) {
  const std::string path = scratch("zeros");
  std::ofstream(path).close();
  std::filesystem::resize_file(path, 8192);
  EXPECT_EQ(decodeErrorOf(path), path + ": not a trace file (bad magic number)");
}

TEST_F(DecodeTest, OtherFormatVersionIsRejected) {
  const std::string path = writeTrace(1);
  patch<std::uint32_t>(path, offsetof(FileHeader, version), 2);
  EXPECT_EQ(decodeErrorOf(path),
            path + ": unsupported trace format version 2 (this decoder reads version 1)");
}

TEST_F(DecodeTest, CapacityThatIsNotAPowerOfTwoIsDamage) {
  const std::string path = writeTrace(1);
  patch<std::uint64_t>(path, offsetof(FileHeader, recordCapacity), 6);
  EXPECT_EQ(
      decodeErrorOf(path),
      path + ": damaged trace header (record capacity 6 is not a power of two from 1 to 2^32)");
}

TEST_F(DecodeTest, HugeCapacityIsDamageNotAnOverflow) {
  const std::string path = writeTrace(1);
  patch<std::uint64_t>(path, offsetof(FileHeader, recordCapacity), std::uint64_t{1} << 60);
  EXPECT_EQ(decodeErrorOf(path), path +
                                     ": damaged trace header (record capacity 1152921504606846976 "
                                     "is not a power of two from 1 to 2^32)");
}

TEST_F(DecodeTest, TruncatedFileIsDamage) {
  const std::string path = writeTrace(1);
  const std::uintmax_t size = std::filesystem::file_size(path);
  std::filesystem::resize_file(path, size - 100);
  EXPECT_EQ(decodeErrorOf(path), path + ": damaged trace header (file is " +
                                     std::to_string(size - 100) + " bytes, header describes " +
                                     std::to_string(size) + ")");
}

TEST_F(DecodeTest, MessageTableLargerThanItsSpaceIsDamage) {
  const std::string path = writeTrace(1);
  patch<std::uint64_t>(path, offsetof(FileHeader, textUsed), TraceFile::kDefaultTextCapacity + 1);
  EXPECT_EQ(decodeErrorOf(path), path +
                                     ": damaged trace header (message table uses 1048577 of "
                                     "1048576 bytes)");
}

TEST_F(DecodeTest, MessageTableEntryWithWrongIdIsDamage) {
  const std::string path = writeTrace(1);
  const std::uint64_t table = slotOffset(4);
  patch<std::uint32_t>(path, table, 77);
  EXPECT_EQ(decodeErrorOf(path),
            path + ": damaged message table (entry 0 at byte 0: carries message id 77)");
}

TEST_F(DecodeTest, MessageTableEntryRunningPastTheTableIsDamage) {
  const std::string path = writeTrace(1);
  const std::uint64_t table = slotOffset(4);
  patch<std::uint16_t>(path, table + offsetof(Nimlog::format::TextEntryHeader, textLength), 60000);
  EXPECT_EQ(decodeErrorOf(path),
            path + ": damaged message table (entry 0 at byte 0: runs past the end of the table)");
}

TEST_F(DecodeTest, RecordWithUnknownMessageIdIsDamage) {
  const std::string path = writeTrace(2);
  patch<std::uint32_t>(path, slotOffset(1) + offsetof(Record, messageId), 99'999);
  EXPECT_EQ(decodeErrorOf(path), path +
                                     ": damaged record (index 1, slot 1: message id 99999 is "
                                     "not in the message table)");
}

TEST_F(DecodeTest, RecordWithTooManyArgumentsIsDamage) {
  const std::string path = writeTrace(6);
  // Index 4 went into slot 0 on the second lap.
  patch<std::uint32_t>(path, slotOffset(0) + offsetof(Record, argc), 9);
  EXPECT_EQ(decodeErrorOf(path),
            path + ": damaged record (index 4, slot 0: argument count 9 exceeds 4)");
}

TEST_F(DecodeTest, SlotStillBeingWrittenIsSkippedAndCounted) {
  const std::string path = writeTrace(3);
  // A writer that took index 1 and has not published it yet leaves the old sequence.
  patch<std::uint64_t>(path, slotOffset(1) + offsetof(Record, sequence), 0);
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.incomplete, 1u);
  ASSERT_EQ(trace.records.size(), 2u);
  EXPECT_EQ(trace.records[0].args, std::vector<std::uint64_t>{0});
  EXPECT_EQ(trace.records[1].args, std::vector<std::uint64_t>{2});
}

TEST_F(DecodeTest, EmptyTraceDecodesToNoRecords) {
  const std::string path = writeTrace(0);
  const Nimlog::DecodedTrace trace = Nimlog::decodeFile(path);
  EXPECT_EQ(trace.written, 0u);
  EXPECT_TRUE(trace.records.empty());
}

TEST(FormatRecord, PrintsSecondsMicrosecondsModuleLineTextAndArguments) {
  Nimlog::DecodedRecord record;
  record.timestampNs = 12'000'345'678;
  record.module = "VornCountersSm";
  record.line = 42;
  record.text = "void Vorn::Counters::PortCountersSm::handleTime()";
  EXPECT_EQ(Nimlog::formatRecord(record),
            "12.000345 VornCountersSm:42 void Vorn::Counters::PortCountersSm::handleTime()");
  record.args = {0, 18446744073709551615u};
  EXPECT_EQ(Nimlog::formatRecord(record),
            "12.000345 VornCountersSm:42 void Vorn::Counters::PortCountersSm::handleTime() 0 "
            "18446744073709551615");
}

TEST(FormatRecord, EscapesControlCharactersOfDamagedTexts) {
  Nimlog::DecodedRecord record;
  record.timestampNs = 5'000'000;
  record.module = "Vorn\x1b[2J";
  record.line = 7;
  record.text = "line\nbreak";
  EXPECT_EQ(Nimlog::formatRecord(record), "0.005000 Vorn\\x1b[2J:7 line\\x0abreak");
}

}  // namespace
