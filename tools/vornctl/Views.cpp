#include "tools/vornctl/Views.h"

#include <algorithm>
#include <map>

#include "brim/Brim.h"
#include "readers/PublishedTables.h"
#include "readers/TableAccess.h"
#include "tables/CounterTables.h"
#include "tools/vornctl/Format.h"

namespace Ctl {

namespace {

using Json = nlohmann::json;

using Readers::openTable;
using Readers::readAll;

// Tables group digits and show dates with ages; the JSON keeps raw numbers.
std::string num(uint64_t v) { return groupThousands(v); }
std::string rate(double v) { return groupThousands(v, 1); }
std::string when(double t, double now) { return timeText(t, now); }

Orvo::IntfId filterIntf(const std::string& filter) {
  try {
    return Orvo::IntfId(filter);
  } catch (const std::exception& e) {
    throw ViewError(e.what());
  }
}

// The names the platform published (kernel device names on Linux), by id; an
// agent that publishes none (an older one) leaves every name empty.
std::map<Orvo::IntfId, Published::IntfNameRecord> namesOf(const std::string& ns) {
  std::map<Orvo::IntfId, Published::IntfNameRecord> out;
  std::unique_ptr<Brim::TableReader<Published::IntfNameRecord>> table;
  try {
    table = Readers::openOptionalTable<Published::IntfNameRecord>(ns, Published::kIntfNamesTable);
  } catch (const Readers::ReadError&) {
    return out;  // a damaged name table costs the names, not the counters
  }
  if (!table) return out;
  try {
    for (const auto& r : readAll(*table, Published::kIntfNamesTable)) out[r.intfId] = r;
  } catch (const Readers::ReadError&) {
    out.clear();
  }
  return out;
}

std::string kernelNameOf(const std::map<Orvo::IntfId, Published::IntfNameRecord>& names,
                         Orvo::IntfId id) {
  auto it = names.find(id);
  return it == names.end() ? "" : it->second.kernelNameText();
}

bool keep(const std::string& filter, Orvo::IntfId id) {
  return filter.empty() || filterIntf(filter) == id;
}

// A filter may also be a kernel name the platform published: its id then.
std::string resolveFilter(const std::string& ns, const std::string& filter) {
  if (filter.empty()) return filter;
  try {
    Orvo::IntfId id(filter);
    (void)id;
    return filter;
  } catch (const std::exception&) {
  }
  for (const auto& [id, r] : namesOf(ns)) {
    if (r.kernelNameText() == filter) return id.stringValue();
  }
  return filter;
}

void requireFound(const std::string& filter, const View& v, const std::string& kind) {
  if (!filter.empty() && v.empty()) throw ViewError("no " + kind + " " + filter);
}

View ethView(const std::string& ns, const std::string& what, const std::string& filter,
             Output output) {
  auto totals = openTable<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  auto clears = openTable<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfClearCounters);
  View v(output);
  const double now = wallClockNow();
  if (what == "interfaces") {
    v.header = {"Port",      "InOctets",     "InUcastPkts",  "InMcastPkts", "InBcastPkts",
                "OutOctets", "OutUcastPkts", "OutMcastPkts", "OutBcastPkts"};
  } else if (what == "errors") {
    v.header = {"Port", "FCS", "Align", "Symbol", "Rx", "LateCol", "ExcessCol", "Tx"};
  } else {
    v.header = {"Port", "InMbps", "InKpps", "OutMbps", "OutKpps", "Updated"};
  }
  Readers::Baselines<Interface::EthIntfCounterBrim> baselines(clears.get(),
                                                              TableNames::kAllIntfClearCounters);
  // Kernel names appear in the JSON only.
  const auto names = v.wantsJson ? namesOf(ns) : decltype(namesOf(ns)){};
  for (const auto& r : readAll(*totals, TableNames::kAllIntfCounters)) {
    if (!keep(filter, r.intfId())) continue;
    const auto& base = baselines.of(r.intfId());
    // Readers subtract the baseline the last clear wrote.
    auto s = r.statistics() - base.statistics();
    auto e = r.ethStatistics() - base.ethStatistics();
    std::string port = r.intfId().stringValue();
    if (!v.wantsJson) {
      if (what == "interfaces") {
        uint64_t outMcast = s.outMulticastPkts().hasValue() ? s.outMulticastPkts().value() : 0;
        v.rows.push_back({port, num(s.inOctets()), num(s.inUcastPkts()), num(s.inMulticastPkts()),
                          num(s.inBroadcastPkts()), num(s.outOctets()), num(s.outUcastPkts()),
                          num(outMcast), num(s.outBroadcastPkts())});
      } else if (what == "errors") {
        v.rows.push_back({port, num(e.fcsErrors()), num(e.alignmentErrors()), num(e.symbolErrors()),
                          num(s.inErrors()), num(e.lateCollisions()), num(e.excessiveCollisions()),
                          num(s.outErrors())});
      } else {
        const auto& rt = r.rates();
        v.rows.push_back({port, rate(rt.inBitsRate() / 1e6), rate(rt.inPktsRate() / 1e3),
                          rate(rt.outBitsRate() / 1e6), rate(rt.outPktsRate() / 1e3),
                          when(rt.lastUpdateTime(), now)});
      }
      continue;
    }
    Json j{{"interface", port}, {"kernelName", kernelNameOf(names, r.intfId())}};
    if (what == "interfaces") {
      uint64_t outMcast = s.outMulticastPkts().hasValue() ? s.outMulticastPkts().value() : 0;
      j["inOctets"] = s.inOctets();
      j["inUcastPkts"] = s.inUcastPkts();
      j["inMulticastPkts"] = s.inMulticastPkts();
      j["inBroadcastPkts"] = s.inBroadcastPkts();
      j["outOctets"] = s.outOctets();
      j["outUcastPkts"] = s.outUcastPkts();
      j["outMulticastPkts"] = outMcast;
      j["outBroadcastPkts"] = s.outBroadcastPkts();
      j["updated"] = r.statistics().statsUpdateTime();
    } else if (what == "errors") {
      j["fcsErrors"] = e.fcsErrors();
      j["alignmentErrors"] = e.alignmentErrors();
      j["symbolErrors"] = e.symbolErrors();
      j["inErrors"] = s.inErrors();
      j["lateCollisions"] = e.lateCollisions();
      j["excessiveCollisions"] = e.excessiveCollisions();
      j["outErrors"] = s.outErrors();
    } else {
      const auto& rt = r.rates();
      j["inBitsRate"] = rt.inBitsRate();
      j["inPktsRate"] = rt.inPktsRate();
      j["outBitsRate"] = rt.outBitsRate();
      j["outPktsRate"] = rt.outPktsRate();
      j["updated"] = rt.lastUpdateTime();
    }
    v.json.push_back(j);
  }
  requireFound(filter, v, "interface");
  return v;
}

View queueView(const std::string& ns, const std::string& filter, Output output) {
  using Interface::QueueCounter::IntfQueueCounter;
  using Interface::QueueCounter::QueueIndex;
  auto totals = openTable<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  std::unique_ptr<Brim::TableReader<IntfQueueCounter>> clears;
  try {
    clears =
        Readers::openOptionalTable<IntfQueueCounter>(ns, TableNames::kAllIntfClearQueueCounters);
  } catch (const Readers::ReadError&) {
    // A damaged baseline table reads as no clear yet; the totals are still shown.
  }
  View v(output);
  v.header = {"Port", "Queue", "TxOctets", "TxPkts", "DropOctets", "DropPkts", "TxMbps"};
  Readers::Baselines<IntfQueueCounter> baselines(clears.get(),
                                                 TableNames::kAllIntfClearQueueCounters);
  for (const auto& r : readAll(*totals, TableNames::kAllIntfQueueCounters)) {
    if (!keep(filter, r.intfId())) continue;
    const auto& base = baselines.of(r.intfId());
    Json queues = Json::array();
    try {
      uint32_t count = r.intfQueueStatArray().size();
      for (uint32_t q = 0; q < count; ++q) {
        QueueIndex qi(static_cast<uint8_t>(q));
        auto s = r.intfQueueStat(qi);
        auto b = q < base.intfQueueStatArray().size() ? base.intfQueueStat(qi)
                                                      : Interface::QueueCounter::IntfQueueStat();
        auto rt = r.intfQueueRates(qi);
        if (!v.wantsJson) {
          v.rows.push_back({r.intfId().stringValue(), std::to_string(q),
                            num(s.txOctets() - b.txOctets()), num(s.txPkts() - b.txPkts()),
                            num(s.dropOctets() - b.dropOctets()), num(s.dropPkts() - b.dropPkts()),
                            rate(rt.txBitsRate() / 1e6)});
          continue;
        }
        queues.push_back({{"queue", q},
                          {"txOctets", s.txOctets() - b.txOctets()},
                          {"txPkts", s.txPkts() - b.txPkts()},
                          {"dropOctets", s.dropOctets() - b.dropOctets()},
                          {"dropPkts", s.dropPkts() - b.dropPkts()},
                          {"txBitsRate", rt.txBitsRate()}});
      }
    } catch (const std::exception& e) {
      throw ViewError("queue record of " + r.intfId().stringValue() + " is damaged: " + e.what());
    }
    if (v.wantsJson) {
      v.json.push_back({{"interface", r.intfId().stringValue()}, {"queues", queues}});
    }
  }
  requireFound(filter, v, "interface");
  return v;
}

View aclView(const std::string& ns, const std::string& filter, Output output) {
  auto table = openTable<Brim::Interface::DropCounter>(ns, TableNames::kIntfAclDropCountersDir);
  View v(output);
  v.header = {"Port", "AclDrops"};
  for (const auto& r : readAll(*table, TableNames::kIntfAclDropCountersDir)) {
    if (!keep(filter, r.intfId())) continue;
    if (!v.wantsJson) {
      v.rows.push_back({r.intfId().stringValue(), num(r.dropCount())});
      continue;
    }
    v.json.push_back({{"interface", r.intfId().stringValue()}, {"aclDrops", r.dropCount()}});
  }
  requireFound(filter, v, "interface");
  return v;
}

View vlanIntfView(const std::string& ns, const std::string& filter, Output output) {
  auto table = openTable<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
  View v(output);
  v.header = {"Interface",    "InOctets",     "InUcastPkts",  "OutOctets",
              "OutUcastPkts", "RoutedInPkts", "RoutedOutPkts"};
  for (const auto& r : readAll(*table, TableNames::kAllVlanIntfCounters)) {
    if (!keep(filter, r.intfId())) continue;
    const auto& s = r.statistics();
    if (!v.wantsJson) {
      v.rows.push_back({r.intfId().stringValue(), num(s.inOctets()), num(s.inUcastPkts()),
                        num(s.outOctets()), num(s.outUcastPkts()), num(r.routedInPkts()),
                        num(r.routedOutPkts())});
      continue;
    }
    v.json.push_back({{"interface", r.intfId().stringValue()},
                      {"inOctets", s.inOctets()},
                      {"inUcastPkts", s.inUcastPkts()},
                      {"outOctets", s.outOctets()},
                      {"outUcastPkts", s.outUcastPkts()},
                      {"routedInPkts", r.routedInPkts()},
                      {"routedOutPkts", r.routedOutPkts()}});
  }
  requireFound(filter, v, "VLAN interface");
  return v;
}

View vlanView(const std::string& ns, const std::string& filter, Output output) {
  using Brim::Bridging::VlanCounter;
  auto totals = openTable<VlanCounter>(ns, TableNames::kVlanCounterDir);
  auto snaps = openTable<VlanCounter>(ns, TableNames::kVlanCounterSnapshotDir);
  int only = -1;
  if (!filter.empty()) {
    if (filter.size() > 4 || filter.find_first_not_of("0123456789") != std::string::npos ||
        std::stoi(filter) < 1 || std::stoi(filter) > 4094) {
      throw ViewError("'" + filter + "' is not a VLAN id (1-4094)");
    }
    only = std::stoi(filter);
  }
  View v(output);
  const double now = wallClockNow();
  v.header = {"Vlan"};
  for (size_t i = 0; i < VlanCounter::kCounterCount; ++i)
    v.header.push_back(VlanCounter::counterName(i));
  v.header.push_back("ClearedAt");
  Readers::Baselines<VlanCounter> snapshots(snaps.get(), TableNames::kVlanCounterSnapshotDir);
  for (const auto& r : readAll(*totals, TableNames::kVlanCounterDir)) {
    if (only >= 0 && r.vlanId() != only) continue;
    const auto& snap = snapshots.of(r.vlanId());
    // Counters since the last clear: totals minus the snapshot.
    if (!v.wantsJson) {
      std::vector<std::string>& row = v.rows.emplace_back();
      row.reserve(VlanCounter::kCounterCount + 2);
      row.push_back(std::to_string(r.vlanId()));
      for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
        row.push_back(num(r.counter(i) - snap.counter(i)));
      }
      row.push_back(when(snap.timestamp(), now));
      continue;
    }
    Json j{{"vlan", r.vlanId()}};
    for (size_t i = 0; i < VlanCounter::kCounterCount; ++i) {
      j[VlanCounter::counterName(i)] = r.counter(i) - snap.counter(i);
    }
    j["clearedAt"] = snap.timestamp();
    v.json.push_back(std::move(j));
  }
  requireFound(filter, v, "VLAN");
  return v;
}

View namesView(const std::string& ns, const std::string& filter, Output output) {
  auto table = openTable<Published::IntfNameRecord>(ns, Published::kIntfNamesTable);
  View v(output);
  v.header = {"Port", "Name", "Oper", "Speed", "Present", "IfIndex"};
  for (const auto& r : readAll(*table, Published::kIntfNamesTable)) {
    if (!keep(filter, r.intfId)) continue;
    std::string speed = r.speedBps == 0                   ? "-"
                        : r.speedBps % 1000000000ull == 0 ? num(r.speedBps / 1000000000ull) + "G"
                                                          : num(r.speedBps / 1000000ull) + "M";
    if (!v.wantsJson) {
      v.rows.push_back({r.intfId.stringValue(), r.kernelNameText(), r.operUp ? "up" : "down", speed,
                        r.present ? "yes" : "no", r.ifIndex ? num(r.ifIndex) : "-"});
      continue;
    }
    v.json.push_back({{"interface", r.intfId.stringValue()},
                      {"kernelName", r.kernelNameText()},
                      {"operUp", r.operUp != 0},
                      {"speedBps", r.speedBps},
                      {"present", r.present != 0},
                      {"ifIndex", r.ifIndex},
                      {"lastChange", r.lastChange}});
  }
  requireFound(filter, v, "interface");
  return v;
}

View cpuView(const std::string& ns, Output output) {
  auto table = openTable<Published::CpuPortCounter>(ns, Published::kCpuIntfCountersTable);
  View v(output);
  v.header = {"Port", "InOctets", "InUcastPkts", "OutOctets", "OutUcastPkts"};
  for (const auto& r : readAll(*table, Published::kCpuIntfCountersTable)) {
    const auto& s = r.statistics;
    if (!v.wantsJson) {
      v.rows.push_back({r.intfId.stringValue(), num(s.inOctets()), num(s.inUcastPkts()),
                        num(s.outOctets()), num(s.outUcastPkts())});
      continue;
    }
    v.json.push_back({{"interface", r.intfId.stringValue()},
                      {"inOctets", s.inOctets()},
                      {"inUcastPkts", s.inUcastPkts()},
                      {"outOctets", s.outOctets()},
                      {"outUcastPkts", s.outUcastPkts()}});
  }
  return v;
}

View coppView(const std::string& ns, Output output) {
  auto table = openTable<Published::CoppClassCounter>(ns, Published::kCoppClassCountersTable);
  View v(output);
  v.header = {"Class", "Pkts", "Octets", "DropPkts", "DropOctets"};
  auto all = readAll(*table, Published::kCoppClassCountersTable);
  std::sort(all.begin(), all.end(),
            [](const auto& a, const auto& b) { return a.nameText() < b.nameText(); });
  for (const auto& r : all) {
    if (!v.wantsJson) {
      v.rows.push_back(
          {r.nameText(), num(r.pkts), num(r.octets), num(r.dropPkts), num(r.dropOctets)});
      continue;
    }
    v.json.push_back({{"class", r.nameText()},
                      {"pkts", r.pkts},
                      {"octets", r.octets},
                      {"dropPkts", r.dropPkts},
                      {"dropOctets", r.dropOctets}});
  }
  return v;
}

}  // namespace

namespace {
// Characters a cell shows: UTF-8 continuation bytes take no column of their own
// (a kernel name may hold any bytes).
size_t shownWidth(const std::string& cell) {
  return static_cast<size_t>(std::count_if(cell.begin(), cell.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
  }));
}

// Pads `cell` to `width` columns, left- or right-aligned.
void appendPadded(std::string& out, const std::string& cell, size_t width, bool left) {
  const size_t shown = shownWidth(cell);
  const size_t pad = width > shown ? width - shown : 0;
  if (!left) out.append(pad, ' ');
  out += cell;
  if (left) out.append(pad, ' ');
}
}  // namespace

std::string View::text() const {
  std::vector<size_t> width(header.size(), 0);
  for (size_t i = 0; i < header.size(); ++i) width[i] = shownWidth(header[i]);
  size_t lineSize = 0;
  for (const auto& r : rows) {
    for (size_t i = 0; i < r.size() && i < width.size(); ++i)
      width[i] = std::max(width[i], shownWidth(r[i]));
  }
  for (size_t w : width) lineSize += w + 2;
  // One buffer for the whole table: the large switch has thousands of rows.
  std::string out;
  out.reserve(lineSize * (rows.size() + 1));
  auto line = [&](const std::vector<std::string>& cells) {
    for (size_t i = 0; i < cells.size(); ++i) {
      const size_t w = i < width.size() ? width[i] : 0;
      if (i > 0) out += "  ";
      appendPadded(out, cells[i], w, i == 0);
    }
    out += '\n';
  };
  line(header);
  for (const auto& r : rows) line(r);
  return out;
}

View render(const std::string& ns, const std::string& what, const std::string& given,
            Output output) {
  const std::string filter = resolveFilter(ns, given);
  if (what == "names") return namesView(ns, filter, output);
  if (what == "interfaces" || what == "errors" || what == "rates") {
    return ethView(ns, what, filter, output);
  }
  if (what == "queues") return queueView(ns, filter, output);
  if (what == "acl-drops") return aclView(ns, filter, output);
  if (what == "vlan") return vlanView(ns, filter, output);
  if (what == "vlan-interface") return vlanIntfView(ns, filter, output);
  if (what == "cpu") return cpuView(ns, output);
  if (what == "copp") return coppView(ns, output);
  throw ViewError("unknown view '" + what + "'");
}

}  // namespace Ctl
