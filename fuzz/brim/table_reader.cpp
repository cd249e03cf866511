// Feeds arbitrary bytes to a table reader as the image of a shared-memory table: the
// bytes become the table's object, and the reader opens, counts, looks up, walks and
// validates it. Whatever the bytes, the reader must answer or report damage; it must
// never crash, hang or raise anything else.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "brim/Brim.h"

namespace {

// A small record so that a table of a few slots fits a small input; the seed corpus
// holds tables of this type written by the real writer.
struct FuzzRecord {
  using Key = uint64_t;
  static constexpr const char* kTypeName = "BrimFuzz::Record";
  uint64_t id;
  uint64_t packets;
  uint64_t octets;
  Key key() const { return id; }
};

const std::string& tableNs() {
  static const std::string ns = "fuzz" + std::to_string(getpid());
  return ns;
}

void removeTable() { Brim::unlinkTable(tableNs(), "table"); }

bool setUp() {
  // Slots stuck mid-write are reported after a few tries instead of a quarter second.
  Brim::detail::readerPatienceIs(Brim::detail::ReaderPatience{4, 0, 0});
  std::atexit(removeTable);
  return true;
}

void writeImage(const uint8_t* data, size_t size) {
  const std::string name = "/" + Brim::tableName(tableNs(), "table");
  const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) std::abort();
  size_t done = 0;
  while (done < size) {
    const ssize_t n = write(fd, data + done, size - done);
    if (n <= 0) std::abort();
    done += static_cast<size_t>(n);
  }
  close(fd);
}

void readAll(const Brim::TableReader<FuzzRecord>& reader) {
  std::vector<uint64_t> keys{0, 1, 2, 3, 4, 5, 7, 8, 100, ~uint64_t{0}};
  reader.forEach([&](const FuzzRecord& r) { keys.push_back(r.id); },
                 [](const Pontil::CorruptionDetectedException&) {});
  for (uint64_t key : keys) {
    try {
      FuzzRecord out{};
      reader.find(key, out);
      reader.contains(key);
    } catch (const Pontil::CorruptionDetectedException&) {
    }
  }
  try {
    reader.forEach([](const FuzzRecord&) {});
  } catch (const Pontil::CorruptionDetectedException&) {
  }
  for (auto call : {+[](const Brim::TableReader<FuzzRecord>& r) { (void)r.size(); },
                    +[](const Brim::TableReader<FuzzRecord>& r) { (void)r.generation(); },
                    +[](const Brim::TableReader<FuzzRecord>& r) { (void)r.writerPid(); },
                    +[](const Brim::TableReader<FuzzRecord>& r) { (void)r.heartbeat(); }}) {
    try {
      call(reader);
    } catch (const Pontil::CorruptionDetectedException&) {
    }
  }
  (void)reader.validate();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = setUp();
  (void)ready;
  writeImage(data, size);
  std::unique_ptr<Brim::TableReader<FuzzRecord>> reader;
  try {
    reader = Brim::TableReader<FuzzRecord>::open(tableNs(), "table");
  } catch (const Pontil::CorruptionDetectedException&) {
    return 0;
  }
  readAll(*reader);
  return 0;
}
