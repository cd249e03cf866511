#include "nimlog/Decode.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "nimlog/FileFormat.h"

namespace Nimlog {

namespace {

using format::FileHeader;
using format::Record;

constexpr std::uint64_t kMaxCapacity = std::uint64_t{1} << 32;

struct Site {
  std::string module;
  std::string text;
};

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {}
  ~Reader() {
    if (fd_ >= 0) {
      ::close(fd_);
    }
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  DecodedTrace decode() {
    openFile();
    const FileHeader header = readHeader();
    checkHeader(header);
    const std::vector<std::byte> bytes = readAll(header);
    // Counters move on while a live file is read; take them from the same read as the
    // records and texts they count.
    FileHeader now;
    std::memcpy(&now, bytes.data(), sizeof now);
    DecodedTrace trace;
    trace.capacity = header.recordCapacity;
    trace.written = now.writeIndex;
    trace.textsDropped = (now.flags & format::kFlagTextsDropped) != 0;
    const std::vector<Site> sites = readSites(header, now, bytes);
    readRecords(header, now, bytes, sites, trace);
    return trace;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const { throw DecodeError(path_ + ": " + what); }

  void openFile() {
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
      fail(std::string("cannot open (") + std::strerror(errno) + ")");
    }
    struct stat st {};
    if (fstat(fd_, &st) != 0) {
      fail(std::string("cannot read (") + std::strerror(errno) + ")");
    }
    if (!S_ISREG(st.st_mode)) {
      fail("not a trace file (not a regular file)");
    }
    fileSize_ = static_cast<std::uint64_t>(st.st_size);
  }

  void readExactly(void* out, std::uint64_t size, std::uint64_t offset) const {
    auto* p = static_cast<char*>(out);
    while (size > 0) {
      const ssize_t n = pread(fd_, p, size, static_cast<off_t>(offset));
      if (n < 0 && errno == EINTR) {
        continue;
      }
      if (n < 0) {
        fail(std::string("cannot read (") + std::strerror(errno) + ")");
      }
      if (n == 0) {
        fail("damaged trace file (shorter than its header describes)");
      }
      p += n;
      size -= static_cast<std::uint64_t>(n);
      offset += static_cast<std::uint64_t>(n);
    }
  }

  FileHeader readHeader() const {
    if (fileSize_ < format::kHeaderSize) {
      fail("not a trace file (" + std::to_string(fileSize_) +
           " bytes, shorter than a trace header)");
    }
    FileHeader header;
    readExactly(&header, sizeof header, 0);
    return header;
  }

  void checkHeader(const FileHeader& h) const {
    if (std::memcmp(h.magic, format::kMagic, sizeof h.magic) != 0) {
      fail("not a trace file (bad magic number)");
    }
    if (h.version != format::kVersion) {
      fail("unsupported trace format version " + std::to_string(h.version) +
           " (this decoder reads version " + std::to_string(format::kVersion) + ")");
    }
    auto damaged = [this](const std::string& what) { fail("damaged trace header (" + what + ")"); };
    if (h.recordSize != sizeof(Record)) {
      damaged("record size " + std::to_string(h.recordSize) + ", expected " +
              std::to_string(sizeof(Record)));
    }
    if (h.headerSize != format::kHeaderSize) {
      damaged("header size " + std::to_string(h.headerSize) + ", expected " +
              std::to_string(format::kHeaderSize));
    }
    if (!std::has_single_bit(h.recordCapacity) || h.recordCapacity > kMaxCapacity) {
      damaged("record capacity " + std::to_string(h.recordCapacity) +
              " is not a power of two from 1 to 2^32");
    }
    if (h.recordsOffset != format::kHeaderSize) {
      damaged("records at byte " + std::to_string(h.recordsOffset) + ", expected " +
              std::to_string(format::kHeaderSize));
    }
    const std::uint64_t textOffset = h.recordsOffset + h.recordCapacity * sizeof(Record);
    if (h.textOffset != textOffset) {
      damaged("message table at byte " + std::to_string(h.textOffset) + ", expected " +
              std::to_string(textOffset));
    }
    if (h.textCapacity > kMaxCapacity) {
      damaged("message table of " + std::to_string(h.textCapacity) + " bytes");
    }
    const std::uint64_t size = textOffset + h.textCapacity;
    if (fileSize_ != size) {
      damaged("file is " + std::to_string(fileSize_) + " bytes, header describes " +
              std::to_string(size));
    }
  }

  std::vector<std::byte> readAll(const FileHeader& header) const {
    std::vector<std::byte> bytes(header.textOffset + header.textCapacity);
    readExactly(bytes.data(), bytes.size(), 0);
    return bytes;
  }

  std::vector<Site> readSites(const FileHeader& header, const FileHeader& now,
                              const std::vector<std::byte>& bytes) const {
    if (now.textUsed > header.textCapacity) {
      fail("damaged trace header (message table uses " + std::to_string(now.textUsed) + " of " +
           std::to_string(header.textCapacity) + " bytes)");
    }
    std::vector<Site> sites;
    const std::byte* table = bytes.data() + header.textOffset;
    std::uint64_t offset = 0;
    while (offset < now.textUsed) {
      auto damaged = [&](const std::string& what) {
        fail("damaged message table (entry " + std::to_string(sites.size()) + " at byte " +
             std::to_string(offset) + ": " + what + ")");
      };
      format::TextEntryHeader entry;
      if (now.textUsed - offset < sizeof entry) {
        damaged("runs past the end of the table");
      }
      std::memcpy(&entry, table + offset, sizeof entry);
      const std::uint64_t size = sizeof entry + entry.moduleLength + entry.textLength;
      if (now.textUsed - offset < size) {
        damaged("runs past the end of the table");
      }
      if (entry.messageId != sites.size()) {
        damaged("carries message id " + std::to_string(entry.messageId));
      }
      const char* chars = reinterpret_cast<const char*>(table + offset + sizeof entry);
      sites.push_back(Site{std::string(chars, entry.moduleLength),
                           std::string(chars + entry.moduleLength, entry.textLength)});
      offset += size;
    }
    return sites;
  }

  void readRecords(const FileHeader& header, const FileHeader& now,
                   const std::vector<std::byte>& bytes, const std::vector<Site>& sites,
                   DecodedTrace& trace) const {
    const std::uint64_t mask = header.recordCapacity - 1;
    const std::uint64_t kept = std::min(now.writeIndex, header.recordCapacity);
    const std::byte* slots = bytes.data() + header.recordsOffset;
    trace.records.reserve(kept);
    for (std::uint64_t index = now.writeIndex - kept; index != now.writeIndex; ++index) {
      Record record;
      std::memcpy(&record, slots + (index & mask) * sizeof(Record), sizeof record);
      if (record.sequence != index + 1) {
        ++trace.incomplete;
        continue;
      }
      auto damaged = [&](const std::string& what) {
        fail("damaged record (index " + std::to_string(index) + ", slot " +
             std::to_string(index & mask) + ": " + what + ")");
      };
      if (record.argc > format::kMaxArgs) {
        damaged("argument count " + std::to_string(record.argc) + " exceeds " +
                std::to_string(format::kMaxArgs));
      }
      DecodedRecord decoded;
      decoded.index = index;
      decoded.timestampNs = record.timestampNs;
      decoded.messageId = record.messageId;
      decoded.line = record.line;
      decoded.args.assign(record.args, record.args + record.argc);
      if (record.messageId < sites.size()) {
        decoded.module = sites[record.messageId].module;
        decoded.text = sites[record.messageId].text;
      } else if (trace.textsDropped) {
        // Built by appending: g++ 12 at -O3 misreports operator+ on strings (-Wrestrict).
        decoded.module.push_back('?');
        decoded.text.append("message ")
            .append(std::to_string(record.messageId))
            .append(" (text not kept: message table full)");
      } else {
        damaged("message id " + std::to_string(record.messageId) + " is not in the message table");
      }
      trace.records.push_back(std::move(decoded));
    }
  }

  const std::string path_;
  int fd_ = -1;
  std::uint64_t fileSize_ = 0;
};

}  // namespace

DecodedTrace decodeFile(const std::string& path) { return Reader(path).decode(); }

namespace {

// Texts come from the file: a damaged one must not send control characters to a terminal.
void appendPrintable(std::string& out, const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      out.append(escaped);
    } else {
      out.push_back(c);
    }
  }
}

}  // namespace

std::string formatRecord(const DecodedRecord& record) {
  char time[48];
  std::snprintf(time, sizeof time, "%" PRIu64 ".%06" PRIu64, record.timestampNs / 1'000'000'000,
                record.timestampNs % 1'000'000'000 / 1'000);
  std::string line(time);
  line.push_back(' ');
  appendPrintable(line, record.module);
  line.append(":").append(std::to_string(record.line)).append(" ");
  appendPrintable(line, record.text);
  for (const std::uint64_t arg : record.args) {
    line.append(" ").append(std::to_string(arg));
  }
  return line;
}

}  // namespace Nimlog
