// Test support for Nimlog: a settable clock and scratch trace file paths.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "nimlog/Nimlog.h"

namespace NimlogTest {

// The time every recording thread sees; tests move it by hand.
inline std::atomic<std::uint64_t> fakeNowNs{0};
inline std::uint64_t fakeNow() noexcept { return fakeNowNs.load(std::memory_order_relaxed); }
inline void advanceNs(std::uint64_t ns) { fakeNowNs.fetch_add(ns, std::memory_order_relaxed); }

// Installs the fake clock, gives each test its own scratch directory, and leaves no
// trace file open behind it.
class NimlogFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    fakeNowNs = 1'000'000'000;
    Nimlog::timeSourceIs(&fakeNow);
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/nimlog-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    dir_ = pattern;
  }
  void TearDown() override {
    Nimlog::TraceFile::close();
    Nimlog::timeSourceIs(nullptr);
    std::filesystem::remove_all(dir_);
  }
  std::string scratch(const std::string& name) const { return (dir_ / name).string(); }

 private:
  std::filesystem::path dir_;
};

}  // namespace NimlogTest
