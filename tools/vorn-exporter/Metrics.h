// The exporter's metric families: one snapshot of the agent's tables rendered
// in the Prometheus text format (0.0.4) or in OpenMetrics 1.0.0.
//
// Totals are exported as counters of the raw running totals, which a clear never
// lowers; what a clear copied (the baseline of a port or queue, the snapshot of
// a VLAN) is exported beside them as gauges, with the time of the clear, so that
// "since the last clear" is a subtraction on the dashboard. docs/metrics.md lists
// every family; keep the two in step.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "readers/Snapshot.h"

namespace Exporter {

enum class Format { prometheusText, openMetrics };

// The Content-Type header of each format.
const char* contentType(Format format);
// The format a scraper asked for in its Accept header: OpenMetrics when it
// names application/openmetrics-text, the 0.0.4 text format otherwise.
Format negotiate(const std::string& acceptHeader);

// What the exporter knows beyond the snapshot itself, for the health families.
struct ScrapeHealth {
  // When the scrape began; the duration reported runs to the health families,
  // which are rendered last.
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
  double readSeconds = 0;                             // time spent reading the tables
  uint64_t scrapes = 0;                               // scrapes served before this one
  std::map<std::string, uint64_t> damagedSlotsTotal;  // by table, since the exporter started
};

struct RenderOptions {
  // The policy-map label of the policing classes.
  std::string policyMap;
};

// Appends every family to `out`. OpenMetrics output ends with "# EOF".
void render(const Readers::Snapshot& snapshot, const ScrapeHealth& health,
            const RenderOptions& options, Format format, std::string& out);

// A label value escaped for the exposition formats (backslash, quote, newline).
std::string escapeLabel(const std::string& value);

}  // namespace Exporter
