#include "tools/vorn-exporter/Metrics.h"

#include <fmt/format.h>

#include <cmath>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

namespace Exporter {

namespace {

using Interface::EthStatistics;
using Interface::IntfRates;
using Interface::IntfStatistics;
using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::IntfQueueRates;
using Interface::QueueCounter::IntfQueueStat;
using Interface::QueueCounter::QueueIndex;

enum class Kind { counter, gauge };

// Writes families one after the other. A family's samples must follow its
// header without another family in between, so callers render family by
// family, walking the rows once per family.
class Writer {
 public:
  Writer(std::string& out, Format format)
      : out_(out), openMetrics_(format == Format::openMetrics) {}

  // Starts a family. `name` is the family name; a counter's samples get "_total".
  void family(std::string_view name, Kind kind, std::string_view help) {
    sampleName_.assign(name);
    if (kind == Kind::counter) sampleName_ += "_total";
    // The 0.0.4 format names a counter after its samples; OpenMetrics names the
    // family without the suffix.
    std::string_view described = openMetrics_ ? name : std::string_view(sampleName_);
    const char* type = kind == Kind::counter ? "counter" : "gauge";
    fmt::format_to(std::back_inserter(out_), "# HELP {} {}\n# TYPE {} {}\n", described, help,
                   described, type);
  }

  void sample(std::string_view labels, std::string_view extra, uint64_t value) {
    head(labels, extra);
    fmt::format_to(std::back_inserter(out_), "{}\n", value);
  }
  void sample(std::string_view labels, std::string_view extra, double value) {
    head(labels, extra);
    if (std::isnan(value)) {
      out_ += "NaN\n";
    } else if (std::isinf(value)) {
      out_ += value > 0 ? "+Inf\n" : "-Inf\n";
    } else {
      fmt::format_to(std::back_inserter(out_), "{}\n", value);
    }
  }

  void end() {
    if (openMetrics_) out_ += "# EOF\n";
  }

 private:
  void head(std::string_view labels, std::string_view extra) {
    out_ += sampleName_;
    if (!labels.empty() || !extra.empty()) {
      out_ += '{';
      out_ += labels;
      if (!labels.empty() && !extra.empty()) out_ += ',';
      out_ += extra;
      out_ += '}';
    }
    out_ += ' ';
  }

  std::string& out_;
  bool openMetrics_;
  std::string sampleName_;
};

// One sample of a family per row: the extra labels that tell the sample apart
// within the row, and how to get its value (nullopt: the row has none).
template <class T>
struct Part {
  std::string labels;
  std::function<std::optional<uint64_t>(const T&)> get;
};
template <class T>
struct Family {
  std::string name;  // after the prefix, without "_total"
  std::string help;
  std::vector<Part<T>> parts;
};
template <class T>
struct GaugePart {
  std::string labels;
  std::function<double(const T&)> get;
};
template <class T>
struct GaugeFamily {
  std::string name;
  std::string help;
  std::vector<GaugePart<T>> parts;
};

// Rows as the families walk them: the row's own labels and the value source.
template <class T>
struct Row {
  std::string labels;
  const T* value;
};

std::optional<uint64_t> maybe(Pell::MaybeU63 v) {
  if (!v.hasValue()) return std::nullopt;
  return v.value();
}

const std::vector<Family<IntfStatistics>>& statisticsFamilies() {
  using S = IntfStatistics;
  static const std::vector<Family<S>> families = {
      {"in_bytes", "Octets received.", {{"", [](const S& s) { return s.inOctets(); }}}},
      {"in_packets",
       "Packets received, by destination kind.",
       {{"cast=\"unicast\"", [](const S& s) { return s.inUcastPkts(); }},
        {"cast=\"multicast\"", [](const S& s) { return s.inMulticastPkts(); }},
        {"cast=\"broadcast\"", [](const S& s) { return s.inBroadcastPkts(); }}}},
      {"in_discarded_packets",
       "Packets received and discarded without an error.",
       {{"", [](const S& s) { return s.inDiscards(); }}}},
      {"in_errors",
       "Frames received with errors; on Ethernet ports the sum of the receive kinds of "
       "vorn_port_errors_by_type_total except symbol errors.",
       {{"", [](const S& s) { return s.inErrors(); }}}},
      {"in_unknown_protocol_packets",
       "Packets received for an unknown protocol (absent where the hardware does not count "
       "them).",
       {{"", [](const S& s) { return maybe(s.inUnknownProtos()); }}}},
      {"out_bytes", "Octets sent.", {{"", [](const S& s) { return s.outOctets(); }}}},
      {"out_packets",
       "Packets sent, by destination kind (multicast absent where the hardware does not count "
       "it).",
       {{"cast=\"unicast\"", [](const S& s) { return s.outUcastPkts(); }},
        {"cast=\"multicast\"", [](const S& s) { return maybe(s.outMulticastPkts()); }},
        {"cast=\"broadcast\"", [](const S& s) { return s.outBroadcastPkts(); }}}},
      {"out_discarded_packets",
       "Packets discarded on the way out without an error.",
       {{"", [](const S& s) { return s.outDiscards(); }}}},
      {"out_errors",
       "Frames that could not be sent because of errors; on Ethernet ports the sum of the "
       "transmit kinds of vorn_port_errors_by_type_total.",
       {{"", [](const S& s) { return s.outErrors(); }}}},
  };
  return families;
}

const std::vector<Family<EthStatistics>>& ethernetFamilies() {
  using E = EthStatistics;
  using F = EthStatistics::Field;
  auto field = [](F f) {
    return [f](const E& e) -> std::optional<uint64_t> { return e.field(static_cast<size_t>(f)); };
  };
  static const std::vector<Family<E>> families = {
      {"errors_by_type",
       "Frames with errors, by direction and kind of error.",
       {{"direction=\"in\",type=\"alignment\"", field(F::alignmentErrors)},
        {"direction=\"in\",type=\"fcs\"", field(F::fcsErrors)},
        {"direction=\"in\",type=\"frame_too_long\"", field(F::frameTooLongs)},
        {"direction=\"in\",type=\"frame_too_short\"", field(F::frameTooShorts)},
        {"direction=\"in\",type=\"internal_mac\"", field(F::internalMacReceiveErrors)},
        {"direction=\"in\",type=\"symbol\"", field(F::symbolErrors)},
        {"direction=\"out\",type=\"sqe_test\"", field(F::sqeTestErrors)},
        {"direction=\"out\",type=\"late_collision\"", field(F::lateCollisions)},
        {"direction=\"out\",type=\"excessive_collision\"", field(F::excessiveCollisions)},
        {"direction=\"out\",type=\"internal_mac\"", field(F::internalMacTransmitErrors)},
        {"direction=\"out\",type=\"carrier_sense\"", field(F::carrierSenseErrors)}}},
      {"collision_frames",
       "Frames sent after one or after several collisions.",
       {{"collisions=\"single\"", field(F::singleCollisionFrames)},
        {"collisions=\"multiple\"", field(F::multipleCollisionFrames)}}},
      {"deferred_transmissions",
       "Frames whose first transmission was deferred because the medium was busy.",
       {{"", field(F::deferredTransmissions)}}},
      {"pause_frames",
       "Pause frames received and sent.",
       {{"direction=\"in\"", field(F::inPauseFrames)},
        {"direction=\"out\"", field(F::outPauseFrames)}}},
      {"frames_by_size",
       "Frames by direction and length in octets (size is a range, not a cumulative bucket).",
       {{"direction=\"in\",size=\"64\"", field(F::inFrames64)},
        {"direction=\"in\",size=\"65-127\"", field(F::inFrames65To127)},
        {"direction=\"in\",size=\"128-255\"", field(F::inFrames128To255)},
        {"direction=\"in\",size=\"256-511\"", field(F::inFrames256To511)},
        {"direction=\"in\",size=\"512-1023\"", field(F::inFrames512To1023)},
        {"direction=\"in\",size=\"1024-1522\"", field(F::inFrames1024To1522)},
        {"direction=\"in\",size=\"1523-max\"", field(F::inFrames1523ToMax)},
        {"direction=\"out\",size=\"64\"", field(F::outFrames64)},
        {"direction=\"out\",size=\"65-127\"", field(F::outFrames65To127)},
        {"direction=\"out\",size=\"128-255\"", field(F::outFrames128To255)},
        {"direction=\"out\",size=\"256-511\"", field(F::outFrames256To511)},
        {"direction=\"out\",size=\"512-1023\"", field(F::outFrames512To1023)},
        {"direction=\"out\",size=\"1024-1522\"", field(F::outFrames1024To1522)},
        {"direction=\"out\",size=\"1523-max\"", field(F::outFrames1523ToMax)}}},
  };
  return families;
}

const std::vector<GaugeFamily<IntfRates>>& rateFamilies() {
  using R = IntfRates;
  static const std::vector<GaugeFamily<R>> families = {
      // The records hold bit rates; Prometheus wants base units.
      {"in_bytes_per_second",
       "Moving-average receive rate in octets per second (the agent's bit rate / 8).",
       {{"", [](const R& r) { return r.inBitsRate() / 8; }}}},
      {"in_packets_per_second",
       "Moving-average receive rate in packets per second.",
       {{"", [](const R& r) { return r.inPktsRate(); }}}},
      {"out_bytes_per_second",
       "Moving-average send rate in octets per second (the agent's bit rate / 8).",
       {{"", [](const R& r) { return r.outBitsRate() / 8; }}}},
      {"out_packets_per_second",
       "Moving-average send rate in packets per second.",
       {{"", [](const R& r) { return r.outPktsRate(); }}}},
  };
  return families;
}

const std::vector<Family<IntfQueueStat>>& queueFamilies() {
  using Q = IntfQueueStat;
  static const std::vector<Family<Q>> families = {
      {"tx_bytes", "Octets sent from the queue.", {{"", [](const Q& q) { return q.txOctets(); }}}},
      {"tx_packets", "Packets sent from the queue.", {{"", [](const Q& q) { return q.txPkts(); }}}},
      {"dropped_bytes",
       "Octets dropped by the queue.",
       {{"", [](const Q& q) { return q.dropOctets(); }}}},
      {"dropped_packets",
       "Packets dropped by the queue.",
       {{"", [](const Q& q) { return q.dropPkts(); }}}},
  };
  return families;
}

const std::vector<GaugeFamily<IntfQueueRates>>& queueRateFamilies() {
  using R = IntfQueueRates;
  static const std::vector<GaugeFamily<R>> families = {
      {"tx_bytes_per_second",
       "Moving-average send rate of the queue in octets per second (the bit rate / 8).",
       {{"", [](const R& r) { return r.txBitsRate() / 8; }}}},
      {"tx_packets_per_second",
       "Moving-average send rate of the queue in packets per second.",
       {{"", [](const R& r) { return r.txPktsRate(); }}}},
      {"dropped_bytes_per_second",
       "Moving-average drop rate of the queue in octets per second (the bit rate / 8).",
       {{"", [](const R& r) { return r.dropBitsRate() / 8; }}}},
      {"dropped_packets_per_second",
       "Moving-average drop rate of the queue in packets per second.",
       {{"", [](const R& r) { return r.dropPktsRate(); }}}},
  };
  return families;
}

// The counter families over `rows`, each as a counter of the running totals.
template <class T>
void counters(Writer& w, const std::string& prefix, const std::vector<Family<T>>& families,
              const std::vector<Row<T>>& rows) {
  if (rows.empty()) return;
  for (const auto& f : families) {
    w.family(prefix + f.name, Kind::counter, f.help);
    for (const auto& row : rows) {
      for (const auto& part : f.parts) {
        if (auto v = part.get(*row.value)) w.sample(row.labels, part.labels, *v);
      }
    }
  }
}

// The same families over what the last clear copied: gauges named
// <prefix>baseline_<name>, the value the counter had at the clear.
template <class T>
void baselines(Writer& w, const std::string& prefix, const std::vector<Family<T>>& families,
               const std::vector<Row<T>>& rows) {
  if (rows.empty()) return;
  for (const auto& f : families) {
    w.family(prefix + "baseline_" + f.name, Kind::gauge,
             "The value of " + prefix + f.name + "_total at the last clear.");
    for (const auto& row : rows) {
      for (const auto& part : f.parts) {
        if (auto v = part.get(*row.value)) w.sample(row.labels, part.labels, *v);
      }
    }
  }
}

template <class T>
void gauges(Writer& w, const std::string& prefix, const std::vector<GaugeFamily<T>>& families,
            const std::vector<Row<T>>& rows) {
  if (rows.empty()) return;
  for (const auto& f : families) {
    w.family(prefix + f.name, Kind::gauge, f.help);
    for (const auto& row : rows) {
      for (const auto& part : f.parts) w.sample(row.labels, part.labels, part.get(*row.value));
    }
  }
}

// A gauge with one sample per row.
template <class T, class Get>
void gauge(Writer& w, const std::string& name, const std::string& help,
           const std::vector<Row<T>>& rows, Get get) {
  if (rows.empty()) return;
  w.family(name, Kind::gauge, help);
  for (const auto& row : rows) w.sample(row.labels, "", static_cast<double>(get(*row.value)));
}

std::string intfLabel(Orvo::IntfId id) { return "interface=\"" + id.stringValue() + "\""; }

const char* queueTypeName(uint32_t type) {
  switch (type) {
    case 0:
      return "unicast";
    case 1:
      return "multicast";
    default:
      return nullptr;
  }
}

void renderPorts(Writer& w, const Readers::Snapshot& s) {
  std::vector<Row<Interface::EthIntfCounterBrim>> rows;
  for (const auto& r : s.ethCounters.rows) rows.push_back({intfLabel(r.intfId()), &r});
  // A baseline whose copied totals were never polled is the zero row the agent
  // writes when it starts serving a port: there has been no clear yet.
  std::vector<Row<Interface::EthIntfCounterBrim>> cleared;
  for (const auto& r : s.ethBaselines.rows) {
    if (r.statistics().statsUpdateTime() > 0 || r.lastClearTime() > 0) {
      cleared.push_back({intfLabel(r.intfId()), &r});
    }
  }
  auto project = [](const auto& rows, auto get) {
    using V = std::remove_cvref_t<decltype(get(*rows.front().value))>;
    std::vector<Row<V>> out;
    out.reserve(rows.size());
    for (const auto& r : rows) out.push_back({r.labels, &get(*r.value)});
    return out;
  };
  if (rows.empty() && cleared.empty()) return;
  auto stats = [](const Interface::EthIntfCounterBrim& r) -> const IntfStatistics& {
    return r.statistics();
  };
  auto eth = [](const Interface::EthIntfCounterBrim& r) -> const EthStatistics& {
    return r.ethStatistics();
  };
  auto rates = [](const Interface::EthIntfCounterBrim& r) -> const IntfRates& { return r.rates(); };
  if (!rows.empty()) {
    counters(w, "vorn_port_", statisticsFamilies(), project(rows, stats));
    counters(w, "vorn_port_", ethernetFamilies(), project(rows, eth));
    gauges(w, "vorn_port_", rateFamilies(), project(rows, rates));
    gauge(w, "vorn_port_last_update_timestamp_seconds",
          "When the agent last polled the port (seconds since 1970).", rows,
          [](const Interface::EthIntfCounterBrim& r) { return r.statistics().statsUpdateTime(); });
  }
  if (!cleared.empty()) {
    baselines(w, "vorn_port_", statisticsFamilies(), project(cleared, stats));
    baselines(w, "vorn_port_", ethernetFamilies(), project(cleared, eth));
    gauge(w, "vorn_port_last_clear_timestamp_seconds",
          "When the port's counters were last cleared (seconds since 1970): the time of the "
          "last poll before the clear, which the baseline copied.",
          cleared, [](const Interface::EthIntfCounterBrim& r) {
            return r.lastClearTime() > 0 ? r.lastClearTime() : r.statistics().statsUpdateTime();
          });
  }
}

// Queue rows flattened to one per queue, labelled interface, queue and type.
struct QueueRows {
  std::vector<Row<IntfQueueStat>> stats;
  std::vector<Row<IntfQueueRates>> rates;
  std::vector<IntfQueueStat> statStore;
  std::vector<IntfQueueRates> rateStore;
};

QueueRows flattenQueues(const std::vector<IntfQueueCounter>& records, bool withRates) {
  QueueRows out;
  size_t total = 0;
  for (const auto& r : records) total += r.intfQueueStatArray().size();
  // Rows point into the stores: reserve first so that they never move.
  out.statStore.reserve(total);
  out.rateStore.reserve(total);
  std::vector<std::string> labels;
  labels.reserve(total);
  for (const auto& r : records) {
    const std::string intf = intfLabel(r.intfId());
    const size_t count = r.intfQueueStatArray().size();
    for (size_t q = 0; q < count; ++q) {
      QueueIndex qi(static_cast<uint8_t>(q));
      out.statStore.push_back(r.intfQueueStat(qi));
      if (withRates) out.rateStore.push_back(r.intfQueueRates(qi));
      const char* type = queueTypeName(out.statStore.back().queueType());
      labels.push_back(type ? fmt::format("{},queue=\"{}\",type=\"{}\"", intf, q, type)
                            : fmt::format("{},queue=\"{}\",type=\"{}\"", intf, q,
                                          out.statStore.back().queueType()));
    }
  }
  for (size_t i = 0; i < out.statStore.size(); ++i) {
    out.stats.push_back({labels[i], &out.statStore[i]});
    if (withRates) out.rates.push_back({labels[i], &out.rateStore[i]});
  }
  return out;
}

void renderQueues(Writer& w, const Readers::Snapshot& s) {
  const auto& records = s.queueCounters.rows;
  QueueRows totals = flattenQueues(records, true);
  counters(w, "vorn_queue_", queueFamilies(), totals.stats);
  gauges(w, "vorn_queue_", queueRateFamilies(), totals.rates);
  std::vector<Row<IntfQueueCounter>> perIntf;
  for (const auto& r : records) perIntf.push_back({intfLabel(r.intfId()), &r});
  gauge(w, "vorn_queue_last_update_timestamp_seconds",
        "When the agent last polled the interface's queues (seconds since 1970).", perIntf,
        [](const IntfQueueCounter& r) { return r.lastUpdateTime(); });

  // As for ports, a baseline that was never polled is the agent's zero row.
  std::vector<IntfQueueCounter> clearedRecords;
  for (const auto& r : s.queueBaselines.rows) {
    if (r.lastUpdateTime() > 0) clearedRecords.push_back(r);
  }
  QueueRows cleared = flattenQueues(clearedRecords, false);
  baselines(w, "vorn_queue_", queueFamilies(), cleared.stats);
  std::vector<Row<IntfQueueCounter>> clearedIntf;
  for (const auto& r : clearedRecords) clearedIntf.push_back({intfLabel(r.intfId()), &r});
  gauge(w, "vorn_queue_last_clear_timestamp_seconds",
        "When the interface's queue counters were last cleared (seconds since 1970): the time "
        "of the poll the baseline copied.",
        clearedIntf, [](const IntfQueueCounter& r) { return r.lastUpdateTime(); });
}

void renderAcl(Writer& w, const Readers::Snapshot& s) {
  const auto& rows = s.aclDrops.rows;
  if (rows.empty()) return;
  w.family("vorn_acl_dropped_packets", Kind::counter,
           "Packets dropped by access lists on the interface (the hardware's count; it restarts "
           "from zero when the hardware counter is reset).");
  for (const auto& r : rows) w.sample(intfLabel(r.intfId()), "", r.dropCount());
}

void renderVlanInterfaces(Writer& w, const Readers::Snapshot& s) {
  using V = Interface::VlanIntfCounterBrim;
  std::vector<Row<IntfStatistics>> stats;
  std::vector<Row<IntfRates>> rates;
  std::vector<Row<V>> rows;
  for (const auto& r : s.vlanIntfCounters.rows) {
    std::string labels = intfLabel(r.intfId());
    stats.push_back({labels, &r.statistics()});
    rates.push_back({labels, &r.rates()});
    rows.push_back({labels, &r});
  }
  counters(w, "vorn_vlan_interface_", statisticsFamilies(), stats);
  static const std::vector<Family<V>> routed = {
      {"routed_in_bytes",
       "Octets received and routed.",
       {{"", [](const V& r) { return r.routedInOctets(); }}}},
      {"routed_in_packets",
       "Packets received and routed.",
       {{"", [](const V& r) { return r.routedInPkts(); }}}},
      {"routed_out_bytes",
       "Octets routed out of the interface.",
       {{"", [](const V& r) { return r.routedOutOctets(); }}}},
      {"routed_out_packets",
       "Packets routed out of the interface.",
       {{"", [](const V& r) { return r.routedOutPkts(); }}}},
  };
  counters(w, "vorn_vlan_interface_", routed, rows);
  gauges(w, "vorn_vlan_interface_", rateFamilies(), rates);
  gauge(w, "vorn_vlan_interface_last_update_timestamp_seconds",
        "When the agent last polled the VLAN interface (seconds since 1970).", rows,
        [](const V& r) { return r.statistics().statsUpdateTime(); });
}

void renderCpu(Writer& w, const Readers::Snapshot& s) {
  using C = Published::CpuPortCounter;
  std::vector<Row<IntfStatistics>> stats;
  std::vector<Row<C>> rows;
  for (const auto& r : s.cpuCounters.rows) {
    std::string labels = intfLabel(r.intfId);
    stats.push_back({labels, &r.statistics});
    rows.push_back({labels, &r});
  }
  counters(w, "vorn_cpu_port_", statisticsFamilies(), stats);
  gauge(w, "vorn_cpu_port_last_update_timestamp_seconds",
        "When the platform last published the CPU port's counters (seconds since 1970).", rows,
        [](const C& r) { return r.statistics.statsUpdateTime(); });
}

void renderVlans(Writer& w, const Readers::Snapshot& s) {
  using V = Brim::Bridging::VlanCounter;
  auto counter = [](V::Counter c) {
    return [c](const V& v) -> std::optional<uint64_t> { return v.counter(static_cast<size_t>(c)); };
  };
  static const std::vector<Family<V>> families = {
      {"in_bytes", "Octets received on the VLAN.", {{"", counter(V::Counter::inOctets)}}},
      {"in_packets",
       "Packets received on the VLAN, by destination kind.",
       {{"cast=\"unicast\"", counter(V::Counter::inUcastPkts)},
        {"cast=\"multicast\"", counter(V::Counter::inMcastPkts)},
        {"cast=\"broadcast\"", counter(V::Counter::inBcastPkts)}}},
      {"out_bytes", "Octets sent on the VLAN.", {{"", counter(V::Counter::outOctets)}}},
      {"out_packets",
       "Packets sent on the VLAN, by destination kind.",
       {{"cast=\"unicast\"", counter(V::Counter::outUcastPkts)},
        {"cast=\"multicast\"", counter(V::Counter::outMcastPkts)},
        {"cast=\"broadcast\"", counter(V::Counter::outBcastPkts)}}},
  };
  auto vlanLabel = [](const V& v) { return fmt::format("vlan=\"{}\"", v.vlanId()); };
  std::vector<Row<V>> rows;
  rows.reserve(s.vlanCounters.rows.size());
  for (const auto& r : s.vlanCounters.rows) rows.push_back({vlanLabel(r), &r});
  counters(w, "vorn_vlan_", families, rows);
  // Every VLAN has a snapshot record from the start; one whose time is still
  // zero was never taken.
  std::vector<Row<V>> snapshots;
  for (const auto& r : s.vlanSnapshots.rows) {
    if (r.timestamp() > 0) snapshots.push_back({vlanLabel(r), &r});
  }
  baselines(w, "vorn_vlan_", families, snapshots);
  gauge(w, "vorn_vlan_last_clear_timestamp_seconds",
        "When the VLAN's counters were last cleared (seconds since 1970).", snapshots,
        [](const V& r) { return r.timestamp(); });
}

void renderCopp(Writer& w, const Readers::Snapshot& s, const RenderOptions& options) {
  using C = Published::CoppClassCounter;
  std::vector<Row<C>> rows;
  const std::string pmap = "policy_map=\"" + escapeLabel(options.policyMap) + "\"";
  for (const auto& r : s.coppClasses.rows) {
    rows.push_back({pmap + ",class=\"" + escapeLabel(r.nameText()) + "\"", &r});
  }
  static const std::vector<Family<C>> families = {
      {"packets",
       "Packets that matched the policing class.",
       {{"", [](const C& c) { return c.pkts; }}}},
      {"bytes",
       "Octets that matched the policing class.",
       {{"", [](const C& c) { return c.octets; }}}},
      {"dropped_packets",
       "Packets the policing class dropped.",
       {{"", [](const C& c) { return c.dropPkts; }}}},
      {"dropped_bytes",
       "Octets the policing class dropped.",
       {{"", [](const C& c) { return c.dropOctets; }}}},
  };
  counters(w, "vorn_copp_class_", families, rows);
}

void renderHealth(Writer& w, const Readers::Snapshot& s, const ScrapeHealth& health) {
  const auto statuses = s.statuses();
  auto table = [](const Readers::TableStatus* t) { return "table=\"" + t->table + "\""; };
  w.family("vorn_exporter_table_up", Kind::gauge,
           "1 when the table was read in this scrape, 0 when it is missing or unusable.");
  for (const auto* t : statuses) {
    w.sample(table(t), "", uint64_t{t->state == Readers::TableState::read ? 1u : 0u});
  }
  w.family("vorn_exporter_table_unavailable", Kind::gauge,
           "1 for each table that could not be read in this scrape, with the reason: missing "
           "(not published under the namespace) or unusable (damaged header or another "
           "layout). Its series are absent from the scrape.");
  for (const auto* t : statuses) {
    if (t->state == Readers::TableState::read) continue;
    w.sample(table(t), std::string("reason=\"") + Readers::tableStateName(t->state) + "\"",
             uint64_t{1});
  }
  w.family("vorn_exporter_table_records", Kind::gauge,
           "Records read from the table in this scrape.");
  for (const auto* t : statuses) w.sample(table(t), "", t->records);
  w.family("vorn_exporter_table_damaged_slots", Kind::gauge,
           "Damaged slots skipped while reading the table in this scrape.");
  for (const auto* t : statuses) w.sample(table(t), "", t->damagedSlots);
  w.family("vorn_exporter_corruption_reports", Kind::counter,
           "Damaged slots skipped while reading the table, over every scrape since the exporter "
           "started.");
  for (const auto* t : statuses) {
    auto it = health.damagedSlotsTotal.find(t->table);
    w.sample(table(t), "", it == health.damagedSlotsTotal.end() ? uint64_t{0} : it->second);
  }
  w.family("vorn_exporter_table_newest_record_timestamp_seconds", Kind::gauge,
           "The latest time any record of the table carries (seconds since 1970); absent for "
           "tables whose records carry no time.");
  for (const auto* t : statuses) {
    if (t->newestTime > 0) w.sample(table(t), "", t->newestTime);
  }
  w.family("vorn_exporter_records_read", Kind::gauge,
           "Records read from all tables in this scrape.");
  w.sample("", "", s.recordCount());
  w.family("vorn_exporter_read_duration_seconds", Kind::gauge,
           "Time this scrape spent reading the tables.");
  w.sample("", "", health.readSeconds);
  w.family("vorn_exporter_scrapes", Kind::counter, "Scrapes served before this one.");
  w.sample("", "", health.scrapes);
  w.family("vorn_exporter_scrape_duration_seconds", Kind::gauge,
           "Time this scrape took to read the tables and render every family before this one.");
  w.sample(
      "", "",
      std::chrono::duration<double>(std::chrono::steady_clock::now() - health.started).count());
}

}  // namespace

const char* contentType(Format format) {
  return format == Format::openMetrics
             ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
             : "text/plain; version=0.0.4; charset=utf-8";
}

Format negotiate(const std::string& acceptHeader) {
  return acceptHeader.find("application/openmetrics-text") != std::string::npos
             ? Format::openMetrics
             : Format::prometheusText;
}

std::string escapeLabel(const std::string& value) {
  std::string out;
  out.reserve(value.size());
  for (char c : value) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '"':
        out += "\\\"";
        break;
      case '\n':
        out += "\\n";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void render(const Readers::Snapshot& snapshot, const ScrapeHealth& health,
            const RenderOptions& options, Format format, std::string& out) {
  Writer w(out, format);
  renderPorts(w, snapshot);
  renderCpu(w, snapshot);
  renderQueues(w, snapshot);
  renderAcl(w, snapshot);
  renderVlanInterfaces(w, snapshot);
  renderVlans(w, snapshot);
  renderCopp(w, snapshot, options);
  renderHealth(w, snapshot, health);
  w.end();
}

}  // namespace Exporter
