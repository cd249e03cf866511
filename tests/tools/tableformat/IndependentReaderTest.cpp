// The standalone Python reader, written from docs/table-format.md alone, against
// the real thing: the simulated switch publishes its port table, the agent is
// frozen (SIGSTOP) so that nothing moves while both readers look, and the Python
// reader must agree with vornctl on every port and counter vornctl shows (and with
// the C++ table reader on the rest). Damaging a slot or the header must make the
// Python reader refuse the table with a one-line "damaged" message.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "TableTestSupport.h"
#include "brim/Brim.h"
#include "brim/Layout.h"
#include "tables/CounterTables.h"

#if !defined(VORN_SIM_BINARY) || !defined(VORNCTL_BINARY)
#error "these tests need VORN_SIM_BINARY and VORNCTL_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace {

using Json = nlohmann::json;
using Port = Interface::EthIntfCounterBrim;
using TableTest::Outcome;
using TableTest::run;

int gNextTest = 0;

class IndependentReader : public ::testing::Test {
 protected:
  void SetUp() override {
    ns = "tf" + std::to_string(::getpid()) + "_" + std::to_string(gNextTest++);
    socketPath = "/tmp/vorn-" + ns + ".sock";
    logPath = "/tmp/vorn-" + ns + ".log";
    TableTest::removeNamespace(ns);
  }

  void TearDown() override {
    stopAgent();
    if (HasFailure()) {
      std::cerr << "--- agent log ---\n" << run("cat", {logPath}).out << "--- end ---\n";
    }
    TableTest::removeNamespace(ns);
    ::unlink(socketPath.c_str());
    ::unlink(logPath.c_str());
  }

  // Starts the simulated switch and waits until every port has been polled once.
  void startAgent() {
    const std::string poll = "0.3";
    std::vector<std::string> storage{
        VORN_SIM_BINARY,     "-n", ns, "--socket", socketPath, "--poll-period", poll,
        "--status-interval", "0"};
    std::vector<char*> argv;
    for (auto& s : storage) argv.push_back(s.data());
    argv.push_back(nullptr);
    const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(log, 0);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::dup2(log, STDOUT_FILENO);
      ::dup2(log, STDERR_FILENO);
      ::execv(VORN_SIM_BINARY, argv.data());
      ::_exit(127);
    }
    ::close(log);
    ASSERT_GT(pid, 0);
    agentPid = pid;
    ASSERT_TRUE(waitFor([&] { return everyPortPolledAfter(0); }, 20))
        << "the agent did not publish polled port counters within 20 s";
  }

  void stopAgent() {
    if (agentPid <= 0) return;
    ::kill(agentPid, SIGKILL);
    int status = 0;
    while (::waitpid(agentPid, &status, 0) < 0 && errno == EINTR) {
    }
    agentPid = -1;
  }

  template <class Pred>
  static bool waitFor(Pred ready, double seconds) {
    const double end = TableTest::nowSeconds() + seconds;
    while (!ready()) {
      if (TableTest::nowSeconds() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
  }

  // Every record of the table; nullopt when it is not there yet or a slot was caught
  // mid-write (the caller asks again).
  std::optional<std::map<Orvo::IntfId, Port>> tryRows(const std::string& table) {
    std::map<Orvo::IntfId, Port> rows;
    try {
      auto reader = Brim::TableReader<Port>::open(ns, table);
      reader->forEach([&](const Port& r) { rows.emplace(r.key(), r); });
    } catch (const std::exception&) {
      return std::nullopt;
    }
    return rows;
  }
  std::map<Orvo::IntfId, Port> tableRows(const std::string& table) {
    return tryRows(table).value_or(std::map<Orvo::IntfId, Port>{});
  }

  bool everyPortPolledAfter(double time) {
    const auto rows = tableRows(TableNames::kAllIntfCounters);
    if (rows.empty()) return false;
    for (const auto& [id, r] : rows) {
      if (!(r.statistics().statsUpdateTime() > time)) return false;
    }
    return true;
  }

  Outcome python(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args{TableTest::pythonReaderPath(), "-n", ns};
    args.insert(args.end(), extra.begin(), extra.end());
    return run("python3", args);
  }

  Json pythonJson() {
    const Outcome o = python();
    EXPECT_TRUE(o.exitedWith(0)) << o.err;
    return Json::parse(o.out);
  }

  Json vornctlJson(const std::vector<std::string>& showWords) {
    std::vector<std::string> args{"-n", ns, "--json", "show"};
    args.insert(args.end(), showWords.begin(), showWords.end());
    const Outcome o = run(VORNCTL_BINARY, args);
    EXPECT_TRUE(o.exitedWith(0)) << o.err;
    return Json::parse(o.out);
  }

  // Stops the agent where no slot is left mid-write: a stop that lands inside a
  // write (rare: a write takes nanoseconds) is undone and tried again.
  void freeze() {
    for (int attempt = 0; attempt < 20; ++attempt) {
      ASSERT_EQ(::kill(agentPid, SIGSTOP), 0);
      const auto totals = tryRows(TableNames::kAllIntfCounters);
      if (totals && !totals->empty() && tryRows(TableNames::kAllIntfClearCounters)) return;
      ASSERT_EQ(::kill(agentPid, SIGCONT), 0);
      std::this_thread::sleep_for(std::chrono::milliseconds(37));
    }
    FAIL() << "could not stop the agent outside a write";
  }

  // Freezes the agent, then checks that the two readers agree on every port.
  void expectAgreement() {
    freeze();
    const Json py = pythonJson();
    const Json counters = vornctlJson({"interfaces", "counters"});
    const Json errors = vornctlJson({"interfaces", "counters", "errors"});
    const auto totals = tableRows(TableNames::kAllIntfCounters);
    const auto bases = tableRows(TableNames::kAllIntfClearCounters);
    ASSERT_EQ(::kill(agentPid, SIGCONT), 0);

    ASSERT_TRUE(py.is_array());
    ASSERT_EQ(py.size(), counters.size());
    ASSERT_EQ(py.size(), errors.size());
    ASSERT_EQ(py.size(), totals.size());
    ASSERT_GT(py.size(), 0u);
    size_t compared = 0;
    auto row = totals.begin();
    for (size_t i = 0; i < py.size(); ++i, ++row) {
      const Json& p = py[i];
      const std::string port = counters[i]["interface"];
      SCOPED_TRACE(port);
      ASSERT_EQ(p["interface"], port);
      ASSERT_EQ(errors[i]["interface"], port);
      ASSERT_EQ(row->first.stringValue(), port);
      for (const auto& view : {counters[i], errors[i]}) {
        for (const auto& [field, value] : view.items()) {
          if (field == "kernelName" || field == "interface") continue;
          ASSERT_TRUE(p.contains(field)) << field;
          EXPECT_EQ(p[field], value) << field;
          ++compared;
        }
      }
      // The counters vornctl leaves out, against the C++ reader.
      const auto baseIt = bases.find(row->first);
      const Port base = baseIt == bases.end() ? Port(row->first) : baseIt->second;
      const auto s = row->second.statistics() - base.statistics();
      EXPECT_EQ(p["inDiscards"], s.inDiscards());
      EXPECT_EQ(p["outDiscards"], s.outDiscards());
      EXPECT_EQ(p["inBitsRate"], row->second.rates().inBitsRate());
      EXPECT_EQ(p["outPktsRate"], row->second.rates().outPktsRate());
      EXPECT_EQ(p["outPauseFrames"], row->second.ethStatistics().outPauseFrames() -
                                         base.ethStatistics().outPauseFrames());
    }
    EXPECT_GE(compared, py.size() * 16);
  }

  std::string ns, socketPath, logPath;
  pid_t agentPid = -1;
};

TEST_F(IndependentReader, AgreesWithVornctlOnEveryPortAndCounter) {
  startAgent();
  expectAgreement();
}

TEST_F(IndependentReader, SubtractsTheClearBaselineAsVornctlDoes) {
  startAgent();
  const Outcome cleared =
      run(VORNCTL_BINARY, {"-n", ns, "-s", socketPath, "clear", "counters", "Ethernet2"});
  ASSERT_TRUE(cleared.exitedWith(0)) << cleared.out << cleared.err;
  ASSERT_TRUE(waitFor(
      [&] { return tableRows(TableNames::kAllIntfClearCounters).count(Orvo::IntfId("Ethernet2")); },
      10));
  // A poll after the clear, so that the cleared port counts up from its baseline.
  const double clearedAt =
      tableRows(TableNames::kAllIntfCounters).at(Orvo::IntfId("Ethernet2")).lastClearTime();
  ASSERT_TRUE(waitFor([&] { return everyPortPolledAfter(clearedAt); }, 10));
  expectAgreement();
  // The baseline really was subtracted: the raw totals are larger.
  freeze();
  const Outcome raw = python({"--no-baseline"});
  const Json shown = pythonJson();
  ASSERT_TRUE(raw.exitedWith(0)) << raw.err;
  const Json totals = Json::parse(raw.out);
  for (size_t i = 0; i < totals.size(); ++i) {
    if (totals[i]["interface"] != "Ethernet2") continue;
    EXPECT_GT(totals[i]["inOctets"].get<uint64_t>(), shown[i]["inOctets"].get<uint64_t>());
  }
}

TEST_F(IndependentReader, ReportsADamagedSlotOrHeaderAndNeverPrintsIt) {
  startAgent();
  // The writer gone, the table stays as it left it.
  stopAgent();
  const Outcome clean = python();
  ASSERT_TRUE(clean.exitedWith(0)) << clean.err;
  const std::string name = ns + "." + TableNames::kAllIntfCounters;
  TableTest::RawBytes raw(name);
  const auto& header = *reinterpret_cast<const Brim::Layout::TableHeader*>(raw.bytes());
  const uint64_t ethernet3 = Orvo::IntfId("Ethernet3").value();
  std::optional<size_t> slot;
  for (uint32_t i = 0; i < header.slotCount && !slot; ++i) {
    const size_t at = Brim::Layout::kHeaderSize + static_cast<size_t>(i) * header.slotSize;
    if (raw.word(at + 8 * Brim::Layout::kStateWord) == Brim::Layout::kLive &&
        raw.word(at + 8 * Brim::Layout::kKeyWord) == ethernet3) {
      slot = at;
    }
  }
  ASSERT_TRUE(slot.has_value());

  struct Damage {
    const char* what;
    size_t bit;
    size_t width;
    const char* finding;
  };
  const size_t slotBit = *slot * 8;
  const size_t record = slotBit + 64 * Brim::Layout::kSlotHeaderWords;
  const std::vector<Damage> damages{
      {"an in-octets bit", record + 64 * 1 + 5, 1, "fails its checksum"},
      {"two out-errors bits", record + 64 * 13 + 63, 2, "fails its checksum"},
      {"the last record bit", record + 64 * 53 - 1, 1, "fails its checksum"},
      {"a state bit", slotBit + 64 * Brim::Layout::kStateWord + 17, 1, "invalid state"},
      {"a checksum bit", slotBit + 64 * Brim::Layout::kChecksumWord, 1, "fails its checksum"},
      {"a key bit", slotBit + 64 * Brim::Layout::kKeyWord + 33, 1, "slot"},
      {"a capacity bit", 88 * 8 + 2, 1, "header checksum mismatch"},
      {"a magic bit", 3, 1, "bad magic number"},
      {"a version bit", 8 * 8 + 1, 1, "layout version"},
      {"a live count bit", 160 * 8 + 40, 1, "impossible counts"},
      {"a generation bit", 136 * 8 + 7, 1, "live words fail their checksum"},
  };
  for (const Damage& d : damages) {
    SCOPED_TRACE(d.what);
    raw.flip(d.bit, d.width);
    const Outcome o = python();
    raw.flip(d.bit, d.width);
    EXPECT_TRUE(o.exitedWith(1)) << o.out << o.err;
    EXPECT_TRUE(o.out.empty()) << o.out;
    EXPECT_NE(o.err.find("damaged"), std::string::npos) << o.err;
    EXPECT_NE(o.err.find(d.finding), std::string::npos) << o.err;
    EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
  }
  // A sequence count left odd is a write that never finished: the reader waits its
  // bounded budget, then gives up.
  raw.flip(slotBit);
  const Outcome stuck = python();
  raw.flip(slotBit);
  EXPECT_TRUE(stuck.exitedWith(1)) << stuck.out << stuck.err;
  EXPECT_NE(stuck.err.find("could not be read consistently"), std::string::npos) << stuck.err;

  const Outcome restored = python();
  ASSERT_TRUE(restored.exitedWith(0)) << restored.err;
  EXPECT_EQ(restored.out, clean.out);
}

}  // namespace

namespace {

// A table the writer has churned: keys that share a home slot, a tombstone left
// between them, baselines for some ports (one with an absent optional counter).
TEST(IndependentReaderOnWriterTable, FollowsProbesPastTombstonesAndSubtractsBaselines) {
  const std::string ns = "tw" + std::to_string(::getpid());
  TableTest::removeNamespace(ns);
  // Declared before the writers, so it removes the tables after they have closed.
  struct Cleanup {
    std::string ns;
    ~Cleanup() { TableTest::removeNamespace(ns); }
  } cleanup{ns};
  auto totals = Brim::TableWriter<Port>::open(ns, TableNames::kAllIntfCounters, 8);
  auto clears = Brim::TableWriter<Port>::open(ns, TableNames::kAllIntfClearCounters, 8);
  const uint32_t mask = totals->capacity() * 2 - 1;
  // Two ports with one home slot: the second sits behind the first.
  std::map<uint32_t, std::string> byHome;
  std::string first, second;
  for (int n = 1; second.empty(); ++n) {
    const std::string name = "Ethernet" + std::to_string(n);
    const uint32_t home = Brim::Layout::homeSlot(Orvo::IntfId(name).value(), mask);
    if (byHome.count(home)) {
      first = byHome[home];
      second = name;
    }
    byHome.emplace(home, name);
  }
  auto record = [](const std::string& name, uint64_t seed, bool mcastPresent) {
    Port r{Orvo::IntfId(name)};
    Interface::IntfStatistics s;
    s.inOctetsIs(seed * 1000 + 1);
    s.inUcastPktsIs(seed * 1000 + 2);
    s.inDiscardsIs(seed * 1000 + 3);
    s.outOctetsIs(seed * 1000 + 4);
    s.outMulticastPktsIs(mcastPresent ? Pell::MaybeU63(seed * 1000 + 5) : Pell::MaybeU63());
    s.outErrorsIs(seed * 1000 + 6);
    s.statsUpdateTimeIs(1.7e9 + static_cast<double>(seed) / 8);
    r.statisticsIs(s);
    Interface::EthStatistics e;
    e.fcsErrorsIs(seed * 1000 + 7);
    r.ethStatisticsIs(e);
    return r;
  };
  const std::vector<std::string> kept{first, second, "Ethernet40/1", "Ethernet40/2/3",
                                      "Cpu", "Vlan7"};
  for (size_t i = 0; i < kept.size(); ++i) totals->put(record(kept[i], i + 10, true));
  totals->put(record("Fabric3", 99, true));
  totals->erase(Orvo::IntfId(first));  // a tombstone in front of `second`
  totals->erase(Orvo::IntfId("Fabric3"));
  clears->put(record(second, 3, true));
  clears->put(record("Ethernet40/1", 2, false));

  const Outcome o = run("python3", {TableTest::pythonReaderPath(), "-n", ns});
  ASSERT_TRUE(o.exitedWith(0)) << o.err;
  const Json py = Json::parse(o.out);
  TableTest::RawBytes raw(ns + "." + TableNames::kAllIntfCounters);
  size_t tombstones = 0;
  for (uint32_t i = 0; i <= mask; ++i) {
    const size_t slotSize = raw.word(80) >> 32;  // the 32-bit field after the record size
    const size_t at = Brim::Layout::kHeaderSize + i * slotSize;
    tombstones += raw.word(at + 8 * Brim::Layout::kStateWord) == Brim::Layout::kTomb;
  }
  EXPECT_GE(tombstones, 1u);

  std::map<Orvo::IntfId, Port> rows;
  Brim::TableReader<Port>::open(ns, TableNames::kAllIntfCounters)->forEach([&](const Port& r) {
    rows.emplace(r.key(), r);
  });
  ASSERT_EQ(py.size(), rows.size());
  ASSERT_EQ(rows.size(), kept.size() - 1);
  auto row = rows.begin();
  for (size_t i = 0; i < py.size(); ++i, ++row) {
    const Json& p = py[i];
    SCOPED_TRACE(row->first.stringValue());
    EXPECT_EQ(p["interface"], row->first.stringValue());
    const auto base = clears->find(row->first).value_or(Port(row->first));
    const auto s = row->second.statistics() - base.statistics();
    EXPECT_EQ(p["inOctets"], s.inOctets());
    EXPECT_EQ(p["inUcastPkts"], s.inUcastPkts());
    EXPECT_EQ(p["inDiscards"], s.inDiscards());
    EXPECT_EQ(p["outOctets"], s.outOctets());
    EXPECT_EQ(p["outErrors"], s.outErrors());
    EXPECT_EQ(p["outMulticastPktsPresent"], s.outMulticastPkts().hasValue());
    EXPECT_EQ(p["outMulticastPkts"],
              s.outMulticastPkts().hasValue() ? s.outMulticastPkts().value() : 0);
    EXPECT_EQ(p["fcsErrors"],
              row->second.ethStatistics().fcsErrors() - base.ethStatistics().fcsErrors());
    EXPECT_EQ(p["updated"], row->second.statistics().statsUpdateTime());
  }
}

}  // namespace
