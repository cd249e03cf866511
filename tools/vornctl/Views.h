// The reader command's views: each opens the agent's tables read-only, reads
// them, and renders a table or a JSON document. Totals are shown minus the
// clear baseline (interfaces) or the snapshot (VLANs), as a switch shows them.
#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "readers/TableAccess.h"

namespace Ctl {

// A one-line, user-facing error (missing table, damaged table, unknown interface).
using ViewError = Readers::ReadError;

// What a view is rendered for: a table for people or JSON for programs. Only
// the one asked for is built, so a large table costs one pass and no JSON.
enum class Output { kText, kJson };

// A rendered view: the header with rows for the text table, or the data as JSON.
struct View {
  explicit View(Output output) : wantsJson(output == Output::kJson) {}
  bool wantsJson;
  std::vector<std::string> header;
  std::vector<std::vector<std::string>> rows;     // filled for Output::kText
  nlohmann::json json = nlohmann::json::array();  // filled for Output::kJson
  bool empty() const { return wantsJson ? json.empty() : rows.empty(); }
  std::string text() const;
};

// `what` is one of: "interfaces", "errors", "rates", "queues", "acl-drops", "names",
// "vlan", "vlan-interface", "cpu", "copp". `filter` limits to one interface or VLAN
// ("" = all); an interface may also be given by the kernel name its platform published.
View render(const std::string& ns, const std::string& what, const std::string& filter,
            Output output);

}  // namespace Ctl
