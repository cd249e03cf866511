// Thousands of seeded random damages of realistic tables (port counters as the agent
// writes them, with deleted ports among them): bit flips, zeroed runs, garbage runs
// and a truncated object. Readers never crash or hang, and almost never hand out a
// wrong record or lose one without saying so.
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <random>
#include <vector>

#include "BrimTestSupport.h"
#include "interface/EthIntfCounterBrim.h"

namespace {

using Brim::TableReader;
using Brim::TableWriter;
using BrimTest::RawTable;
using BrimTest::ScratchTable;
using Port = Interface::EthIntfCounterBrim;

constexpr int kImagesPerKind = 1000;
constexpr int kPorts = 48;
constexpr int kDeletedPorts = 8;

enum Kind { kFlips, kZeroedRun, kGarbageRun, kTruncation, kKinds };
const char* const kKindNames[kKinds] = {"bit flips", "zeroed runs", "garbage runs", "truncation"};

struct Tally {
  uint64_t images[kKinds] = {};
  uint64_t silent[kKinds] = {};    // a wrong or missing record without any report
  uint64_t reported[kKinds] = {};  // at least one call reported damage
  uint64_t other = 0;              // an exception that is not a corruption report
};

Port portRecord(int port, uint64_t seed) {
  Port record(Orvo::IntfId("Ethernet" + std::to_string(port)));
  auto* bytes = reinterpret_cast<unsigned char*>(&record);
  std::mt19937_64 values(seed * 1000 + static_cast<uint64_t>(port));
  for (size_t w = 1; w < sizeof record / 8; ++w) {
    const uint64_t value = values() >> (w % 40);  // counters of every magnitude
    std::memcpy(bytes + 8 * w, &value, 8);
  }
  return record;
}

uint64_t keyOf(const Port& record) { return record.key().value(); }

// Reads every port through the reader API the way the reader command does; true when
// some call handed out a wrong record or lost one without any call reporting damage.
bool readSilentlyWrong(const ScratchTable& t, const std::map<uint64_t, Port>& live,
                       const std::vector<Port>& deleted, bool& reported) {
  std::unique_ptr<TableReader<Port>> reader;
  try {
    reader = TableReader<Port>::open(t.ns(), t.table());
  } catch (const Pontil::CorruptionDetectedException&) {
    reported = true;
    return false;
  }
  bool wrong = false;
  const auto check = [&](const Port& original, const std::optional<Port>& found, bool present) {
    if (present) {
      wrong |= !found || std::memcmp(&*found, &original, sizeof original) != 0;
    } else {
      wrong |= found.has_value();
    }
  };
  bool findsReported = false;
  for (const auto& [key, original] : live) {
    try {
      check(original, reader->find(original.key()), true);
    } catch (const Pontil::CorruptionDetectedException&) {
      findsReported = true;
    }
  }
  for (const Port& gone : deleted) {
    try {
      check(gone, reader->find(gone.key()), false);
    } catch (const Pontil::CorruptionDetectedException&) {
      findsReported = true;
    }
  }
  bool walkReported = false;
  std::map<uint64_t, int> walked;
  reader->forEach(
      [&](const Port& r) {
        auto it = live.find(keyOf(r));
        if (it == live.end() || std::memcmp(&r, &it->second, sizeof r) != 0) wrong = true;
        ++walked[keyOf(r)];
      },
      [&](const Pontil::CorruptionDetectedException&) { walkReported = true; });
  if (!walkReported) {
    for (const auto& [key, original] : live) wrong |= walked[key] != 1;
  }
  try {
    wrong |= reader->size() != live.size();
  } catch (const Pontil::CorruptionDetectedException&) {
    walkReported = true;
  }
  reported = findsReported || walkReported;
  return wrong && !reported;
}

// The damage loop, run in a child process so that a crash or a hang cannot pass.
Tally damageMany(const ScratchTable& t) {
  Tally tally;
  std::map<uint64_t, Port> live;
  std::vector<Port> deleted;
  {
    auto writer = TableWriter<Port>::open(t.ns(), t.table(), 64);
    for (int port = 1; port <= kPorts; ++port) writer->put(portRecord(port, 1));
    for (int port = 1; port <= kPorts; ++port) writer->put(portRecord(port, 2));  // a poll
    for (int port = 3; port <= kPorts; port += kPorts / kDeletedPorts) {
      writer->erase(Orvo::IntfId("Ethernet" + std::to_string(port)));
      deleted.push_back(portRecord(port, 2));
    }
    writer->forEach([&](const Port& r) { live.emplace(keyOf(r), r); });
  }
  BrimTest::QuickReaders quick;
  const std::string path = "/" + t.name();
  std::vector<unsigned char> pristine;
  {
    RawTable raw(t.name());
    pristine.assign(raw.bytes(), raw.bytes() + raw.size());
  }
  std::mt19937_64 random(20240917);
  for (int kind = 0; kind < kKinds; ++kind) {
    for (int image = 0; image < kImagesPerKind; ++image) {
      const int fd = shm_open(path.c_str(), O_RDWR, 0);
      if (fd < 0 || ftruncate(fd, static_cast<off_t>(pristine.size())) != 0) std::abort();
      {
        RawTable raw(t.name());
        std::memcpy(raw.bytes(), pristine.data(), pristine.size());
        unsigned char* bytes = raw.bytes();
        const size_t size = raw.size();
        switch (kind) {
          case kFlips: {
            const int flips = 1 + static_cast<int>(random() % 8);
            for (int f = 0; f < flips; ++f) {
              const size_t bit = random() % (8 * size);
              bytes[bit / 8] ^= static_cast<unsigned char>(1u << (bit % 8));
            }
            break;
          }
          case kZeroedRun:
          case kGarbageRun: {
            const size_t length = 1 + random() % 600;
            const size_t start = random() % (size - length);
            for (size_t i = start; i < start + length; ++i) {
              bytes[i] = kind == kZeroedRun ? 0 : static_cast<unsigned char>(random());
            }
            break;
          }
          case kTruncation:
            break;
        }
      }
      if (kind == kTruncation &&
          ftruncate(fd, static_cast<off_t>(random() % pristine.size())) != 0) {
        std::abort();
      }
      close(fd);
      bool reported = false;
      try {
        if (readSilentlyWrong(t, live, deleted, reported)) ++tally.silent[kind];
      } catch (...) {
        ++tally.other;
      }
      ++tally.images[kind];
      if (reported) ++tally.reported[kind];
    }
  }
  return tally;
}

TEST(BrimRandomDamage, ReadersOfRandomlyDamagedTablesNeverCrashHangOrLieSilently) {
  ScratchTable t;
  int pipeFds[2];
  ASSERT_EQ(pipe(pipeFds), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(pipeFds[0]);
    const Tally tally = damageMany(t);
    const ssize_t n = write(pipeFds[1], &tally, sizeof tally);
    _exit(n == static_cast<ssize_t>(sizeof tally) ? 0 : 3);
  }
  close(pipeFds[1]);
  Tally tally;
  pollfd p{pipeFds[0], POLLIN, 0};
  const bool answered = poll(&p, 1, 240 * 1000) == 1 && read(pipeFds[0], &tally, sizeof tally) ==
                                                            static_cast<ssize_t>(sizeof tally);
  if (!answered) kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  close(pipeFds[0]);
  ASSERT_TRUE(answered) << "the damaged-table readers crashed or hung (status " << status << ")";
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  uint64_t images = 0;
  uint64_t silent = 0;
  for (int kind = 0; kind < kKinds; ++kind) {
    images += tally.images[kind];
    silent += tally.silent[kind];
    std::printf("%-13s %5llu images, %5llu reported, %llu silently wrong or missing\n",
                kKindNames[kind], static_cast<unsigned long long>(tally.images[kind]),
                static_cast<unsigned long long>(tally.reported[kind]),
                static_cast<unsigned long long>(tally.silent[kind]));
  }
  const double share = static_cast<double>(silent) / static_cast<double>(images);
  std::printf("silently wrong or missing: %llu of %llu images (%.4f%%)\n",
              static_cast<unsigned long long>(silent), static_cast<unsigned long long>(images),
              100.0 * share);
  EXPECT_EQ(tally.other, 0u);
  EXPECT_EQ(images, static_cast<uint64_t>(kKinds * kImagesPerKind));
  EXPECT_LT(share, 0.001);
  // The damage mostly lands where it matters: the harness itself is not idle.
  EXPECT_GT(tally.reported[kZeroedRun], kImagesPerKind / 2u);
  EXPECT_GT(tally.reported[kTruncation], kImagesPerKind * 9u / 10u);
}

}  // namespace
