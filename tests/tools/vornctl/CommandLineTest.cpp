// The reader's command line as a user meets it: help on every command with
// examples, the old global-option spellings, and one-line errors.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <string>

#ifndef VORNCTL_BINARY
#error "needs VORNCTL_BINARY (set by tests/CMakeLists.txt)"
#endif

namespace {

struct CtlRun {
  int status = -1;
  std::string out;  // standard output and standard error together
};

CtlRun run(const std::string& args) {
  CtlRun r;
  std::string cmd = std::string(VORNCTL_BINARY) + " " + args + " 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  std::array<char, 4096> buf{};
  size_t n;
  while ((n = fread(buf.data(), 1, buf.size(), p)) > 0) r.out.append(buf.data(), n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

TEST(VornctlCommandLine, EveryCommandHasHelpWithExamples) {
  for (const char* sub : {"", "show ", "watch ", "clear ", "update ", "completion "}) {
    CtlRun r = run(std::string(sub) + "--help");
    EXPECT_EQ(r.status, 0) << sub << r.out;
    EXPECT_NE(r.out.find("Examples:"), std::string::npos) << sub << r.out;
    EXPECT_NE(r.out.find("vornctl "), std::string::npos) << sub << r.out;
  }
}

TEST(VornctlCommandLine, UnknownCommandIsOneLine) {
  CtlRun r = run("frobnicate");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out,
            "vornctl: unknown command 'frobnicate' (show, watch, clear, update, completion)\n");
}

TEST(VornctlCommandLine, BadViewWordsGiveTheUsage) {
  CtlRun r = run("-n vornctl-cli-test show interfaces");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out.rfind("vornctl: usage: show interfaces counters", 0), 0u) << r.out;
}

TEST(VornctlCommandLine, GlobalOptionsWorkBeforeAndAfterTheCommand) {
  // No agent runs in this namespace: both spellings reach the table look-up.
  const std::string missing =
      "vornctl: table vornctl-cli-test.allIntfCounters does not exist (is the agent running "
      "with -n vornctl-cli-test?)\n";
  EXPECT_EQ(run("-n vornctl-cli-test --json show interfaces counters").out, missing);
  EXPECT_EQ(run("show --json -n vornctl-cli-test interfaces counters").out, missing);
  // The watch options still work before the command, as they did as global options.
  EXPECT_EQ(run("-n vornctl-cli-test --count 1 watch show interfaces counters").out, missing);
  EXPECT_EQ(run("-n vornctl-cli-test watch --count 1 --interval 0.5 show interfaces counters").out,
            missing);
}

TEST(VornctlCommandLine, CompletionScriptIsPrinted) {
  CtlRun r = run("completion bash");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("complete -F _vornctl vornctl"), std::string::npos);
  EXPECT_EQ(run("completion fish").out, "vornctl: completion: only bash is supported\n");
}

}  // namespace
