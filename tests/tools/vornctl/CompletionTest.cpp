#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "tools/vornctl/Completion.h"

namespace {

std::unique_ptr<CLI::App> sampleApp() {
  auto owned = std::make_unique<CLI::App>("sample");
  CLI::App& app = *owned;
  static std::string ns;
  static bool json = false;
  static double interval = 1;
  static std::vector<std::string> words;
  app.add_option("--namespace,-n", ns, "namespace");
  app.add_flag("--json", json, "json");
  app.add_option_group("")->add_option("--legacy", interval);
  auto* watch = app.add_subcommand("watch", "repeat");
  watch->add_option("--interval", interval, "seconds");
  watch->add_option("command", words, "show ...");
  app.add_subcommand("show", "print")->add_option("view", words, "view");
  return owned;
}

TEST(Completion, ListsSubcommandsAndOptionsFromTheDefinition) {
  std::string script = Ctl::bashCompletion(*sampleApp());
  EXPECT_NE(script.find("\"watch show -h --help -n --namespace --json\""), std::string::npos)
      << script;
  EXPECT_NE(script.find("    watch) opts=\"-h --help --interval\" ;;"), std::string::npos)
      << script;
  // Options that take a value make the completer skip the word after them.
  // (hidden ones too, since old scripts still give them).
  EXPECT_NE(script.find("case \" --interval --legacy --namespace -n \" in"), std::string::npos)
      << script;
  // Hidden options are never offered.
  EXPECT_EQ(script.find("--legacy --namespace -n \" in"), script.find("--legacy"));
  EXPECT_NE(script.find("complete -F _vornctl vornctl"), std::string::npos);
}

TEST(Completion, ScriptIsValidBash) {
  std::string path = ::testing::TempDir() + "vornctl-completion.bash";
  std::ofstream(path) << Ctl::bashCompletion(*sampleApp());
  EXPECT_EQ(std::system(("bash -n " + path).c_str()), 0);
  std::remove(path.c_str());
}

}  // namespace
