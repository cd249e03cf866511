#include "tools/vorn-snmp-subagent/InterfaceSample.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "readers/PublishedTables.h"
#include "readers/TableAccess.h"
#include "tables/CounterTables.h"
#include "tools/vorn-snmp-subagent/IfIndex.h"

namespace Snmp {

const IntfRow* Sample::find(uint32_t ifIndex) const {
  size_t i = lowerBound(ifIndex);
  return i < rows.size() && rows[i].ifIndex == ifIndex ? &rows[i] : nullptr;
}

size_t Sample::lowerBound(uint64_t ifIndex) const {
  auto it = std::lower_bound(rows.begin(), rows.end(), ifIndex,
                             [](const IntfRow& r, uint64_t x) { return r.ifIndex < x; });
  return static_cast<size_t>(it - rows.begin());
}

// One table of the namespace, kept open between reads. It notices a table
// that was replaced under the same name (the agent started afresh) by the
// identity of the shared-memory object, and a writer that re-attached by the
// table's generation; both change identity(), which the rows compare.
template <class Record>
class TableSource {
 public:
  TableSource(const std::string& ns, std::string table, const Sampler::Log& log)
      : ns_(ns), table_(std::move(table)), path_("/dev/shm/" + ns + "." + table_), log_(log) {}

  // Calls visit(record) for every readable record and returns true, or returns
  // false when the table is missing or cannot be read at all.
  template <class Visit>
  bool read(Visit&& visit) {
    struct stat st {};
    if (::stat(path_.c_str(), &st) != 0) {
      reader_.reset();
      report(State::kAbsent,
             "table " + ns_ + "." + table_ + " does not exist; its rows are absent");
      return false;
    }
    if (reader_ && (st.st_ino != ino_ || st.st_dev != dev_)) reader_.reset();
    if (!reader_) {
      try {
        reader_ = Readers::openTable<Record>(ns_, table_);
        ino_ = st.st_ino;
        dev_ = st.st_dev;
        ++opens_;
      } catch (const Readers::TableAbsent& e) {
        report(State::kAbsent, e.what());
        return false;
      } catch (const std::exception& e) {
        report(State::kDamaged, std::string(e.what()) + "; its rows are absent");
        return false;
      }
    }
    std::string damage;
    size_t damaged = 0;
    try {
      reader_->forEach(visit, [&](const Pontil::CorruptionDetectedException& e) {
        if (damaged++ == 0) damage = e.what();
      });
    } catch (const std::exception& e) {
      reader_.reset();
      report(State::kDamaged, "table " + ns_ + "." + table_ + " is damaged: " + e.what());
      return false;
    }
    if (damaged > 0) {
      report(State::kSlotsDamaged, "table " + ns_ + "." + table_ + " has " +
                                       std::to_string(damaged) +
                                       " damaged record(s), left out: " + damage);
    } else {
      report(State::kGood, "table " + ns_ + "." + table_ + " is readable");
    }
    return true;
  }

  uint64_t identity() const {
    if (!reader_) return 0;
    return (opens_ << 40) ^ (static_cast<uint64_t>(ino_) << 20) ^ reader_->generation();
  }

 private:
  enum class State { kUnknown, kGood, kAbsent, kDamaged, kSlotsDamaged };

  // Logs only changes of state, so a table that stays missing costs one line.
  void report(State state, const std::string& message) {
    if (state == state_) return;
    bool quietStart = state_ == State::kUnknown && state == State::kGood;
    state_ = state;
    if (!quietStart) log_(message);
  }

  std::string ns_, table_, path_;
  const Sampler::Log& log_;
  std::unique_ptr<Brim::TableReader<Record>> reader_;
  ino_t ino_ = 0;
  dev_t dev_ = 0;
  uint64_t opens_ = 0;
  State state_ = State::kUnknown;
};

struct SamplerSources {
  SamplerSources(const std::string& ns, const Sampler::Log& log)
      : eth(ns, TableNames::kAllIntfCounters, log),
        vlan(ns, TableNames::kAllVlanIntfCounters, log),
        cpu(ns, Published::kCpuIntfCountersTable, log),
        names(ns, Published::kIntfNamesTable, log) {}
  TableSource<Interface::EthIntfCounterBrim> eth;
  TableSource<Interface::VlanIntfCounterBrim> vlan;
  TableSource<Published::CpuPortCounter> cpu;
  TableSource<Published::IntfNameRecord> names;
};

namespace {

// True when any counter the row serves is lower than before, read as a signed
// 64-bit difference so that a total wrapping past 2^64 counts as growth.
bool wentBack(const Interface::IntfStatistics& before, const Interface::IntfStatistics& now) {
  for (size_t i = 0; i < Interface::IntfStatistics::kCounterCount; ++i) {
    auto a = before.counter(i), b = now.counter(i);
    if (a && b && static_cast<int64_t>(*b - *a) < 0) return true;
  }
  return false;
}

bool wentBack(const Interface::EthStatistics& before, const Interface::EthStatistics& now) {
  for (size_t i = 0; i < Interface::EthStatistics::kFieldCount; ++i) {
    if (static_cast<int64_t>(now.field(i) - before.field(i)) < 0) return true;
  }
  return false;
}

}  // namespace

Sampler::Sampler(const std::string& ns, Log log)
    : ns_(ns), log_(std::move(log)), sources_(std::make_unique<SamplerSources>(ns_, log_)) {}

Sampler::~Sampler() = default;

bool Sampler::admit(Orvo::IntfId id, Orvo::IntfId::Kind kind, uint32_t& ifIndex) {
  if (id.kind() != kind) return false;
  auto index = ifIndexOf(id);
  if (!index) {
    if (unservable_.insert(id.value()).second) {
      log_("interface " + id.stringValue() + " has no ifIndex in the numbering scheme; not served");
    }
    return false;
  }
  ifIndex = *index;
  return true;
}

void Sampler::settle(IntfRow& row, uint64_t sourceIdentity, uint32_t uptime,
                     std::unordered_map<uint32_t, Track>& next) {
  Track track;
  auto it = tracks_.find(row.ifIndex);
  if (it == tracks_.end()) {
    // A row seen for the first time: created since the subagent started
    // (or re-created after it was gone), unless this is the first read.
    track.discontinuity = first_ ? 0 : uptime;
    track.firstSeen = first_ ? 0 : uptime;
  } else {
    track = it->second;
    if (track.sourceIdentity != sourceIdentity || wentBack(track.stats, row.stats) ||
        (row.hasEth && wentBack(track.eth, row.eth))) {
      track.discontinuity = uptime;
    }
  }
  track.stats = row.stats;
  track.eth = row.eth;
  track.sourceIdentity = sourceIdentity;
  row.discontinuity = track.discontinuity;
  row.lastChange = track.firstSeen;
  next[row.ifIndex] = track;
}

const Sample& Sampler::refresh(uint32_t uptime, double wallNow) {
  if (uptime < lastUptime_) {
    // The library follows the master's sysUpTime; going back means the master
    // re-initialized, and times before that no longer mean anything: as for a
    // fresh start, no row has had a discontinuity or a change since.
    for (auto& [index, track] : tracks_) {
      track.discontinuity = 0;
      track.firstSeen = 0;
    }
  }
  lastUptime_ = uptime;
  std::vector<IntfRow> rows;
  std::vector<uint64_t> identities;
  uint32_t ifIndex = 0;

  sources_->eth.read([&](const Interface::EthIntfCounterBrim& r) {
    if (!admit(r.intfId(), Orvo::IntfId::Kind::Ethernet, ifIndex)) return;
    IntfRow row;
    row.ifIndex = ifIndex;
    row.id = r.intfId();
    row.ifType = kIfTypeEthernet;
    row.stats = r.statistics();
    row.hasEth = true;
    row.eth = r.ethStatistics();
    rows.push_back(std::move(row));
  });
  identities.resize(rows.size(), sources_->eth.identity());

  sources_->vlan.read([&](const Interface::VlanIntfCounterBrim& r) {
    if (!admit(r.intfId(), Orvo::IntfId::Kind::Vlan, ifIndex)) return;
    IntfRow row;
    row.ifIndex = ifIndex;
    row.id = r.intfId();
    row.ifType = kIfTypeL3IpVlan;
    row.stats = r.statistics();
    rows.push_back(std::move(row));
  });
  identities.resize(rows.size(), sources_->vlan.identity());

  sources_->cpu.read([&](const Published::CpuPortCounter& r) {
    if (!admit(r.intfId, Orvo::IntfId::Kind::Cpu, ifIndex)) return;
    IntfRow row;
    row.ifIndex = ifIndex;
    row.id = r.intfId;
    row.ifType = kIfTypeOther;
    row.stats = r.statistics;
    rows.push_back(std::move(row));
  });
  identities.resize(rows.size(), sources_->cpu.identity());

  // What the platform says about each interface, when it publishes that.
  std::unordered_map<uint64_t, Published::IntfNameRecord> names;
  sources_->names.read(
      [&](const Published::IntfNameRecord& r) { names.emplace(r.intfId.value(), r); });

  std::unordered_map<uint32_t, Track> next;
  next.reserve(rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    IntfRow& row = rows[i];
    row.name = row.id.stringValue();
    row.descr = row.name;
    settle(row, identities[i], uptime, next);
    auto n = names.find(row.id.value());
    if (n == names.end()) continue;
    const Published::IntfNameRecord& info = n->second;
    std::string osName = info.kernelNameText();
    if (!osName.empty() && osName != row.name) row.descr = row.name + " (" + osName + ")";
    row.speedBps = info.speedBps;
    row.operStatus = !info.present ? kOperNotPresent : info.operUp ? kOperUp : kOperDown;
    if (info.lastChange > 0) {
      // The platform stamps changes on the wall clock; IF-MIB wants the uptime
      // at the change, and 0 for a change before the subagent started.
      double ago = std::max(0.0, wallNow - info.lastChange) * 100.0;
      row.lastChange = ago >= uptime ? 0 : uptime - static_cast<uint32_t>(std::floor(ago));
    }
  }
  // Rows gone from the tables lose their history: if they come back, their
  // counters start a new series.
  tracks_ = std::move(next);

  std::sort(rows.begin(), rows.end(),
            [](const IntfRow& a, const IntfRow& b) { return a.ifIndex < b.ifIndex; });
  // Two tables naming one interface cannot both be served; keep the first.
  rows.erase(std::unique(rows.begin(), rows.end(),
                         [](const IntfRow& a, const IntfRow& b) { return a.ifIndex == b.ifIndex; }),
             rows.end());
  sample_.rows = std::move(rows);
  first_ = false;
  ++refreshCount_;
  return sample_;
}

}  // namespace Snmp
