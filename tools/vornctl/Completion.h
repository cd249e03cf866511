// Shell completion for vornctl, generated from the command's own CLI
// definition: subcommands and their options come from the CLI11 app, so a new
// option completes without touching a script. The words of a view (the CLI
// library sees them as one free-form positional) come from the view grammar
// below, which parseShow() accepts.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace Ctl {

// "show" view words: first the family, then "counters", then for interfaces an
// optional detail.
inline constexpr const char* kShowFamilies = "interfaces vlan vlan-interface cpu copp";
inline constexpr const char* kShowDetails = "errors rates queues acl-drops";

// A bash script defining and registering the completion function for `app`.
std::string bashCompletion(const CLI::App& app);

}  // namespace Ctl
