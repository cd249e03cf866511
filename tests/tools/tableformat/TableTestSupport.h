// Support for the tests that read the port table from outside the C++ library:
// running a program to completion with its output, a raw read-write mapping of a
// table's bytes to damage it with, and the clean-up of a test's namespace.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/RawTableBytes.h"
#include "support/RunProcess.h"
#include "support/ShmNamespace.h"

namespace TableTest {

// Seconds on a steady clock, for deadlines.
inline double nowSeconds() { return VornTest::steadyNow(); }

// What a finished program left, and running one to completion.
using Outcome = VornTest::ProcessResult;
inline Outcome run(const std::string& program, const std::vector<std::string>& args,
                   double timeoutSeconds = 20) {
  return VornTest::runProcess(program, args, timeoutSeconds);
}

// Removes every shared-memory object of namespace `ns` (tables and writer locks).
inline void removeNamespace(const std::string& ns) { VornTest::removeNamespaceTables(ns); }

// The standalone Python reader, found from this file's place in the source tree.
// The build may name this file relative to its build directory (two levels above
// the test executable), so a relative name is resolved from there; failing that,
// the directories above the executable are searched.
inline std::string pythonReaderPath() {
  namespace fs = std::filesystem;
  const fs::path script = fs::path("tools") / "table-reader-py" / "vorn_table_reader.py";
  const fs::path exe = fs::read_symlink("/proc/self/exe");
  fs::path here = fs::path(__FILE__).parent_path();
  if (here.is_relative()) here = exe.parent_path().parent_path() / here;
  const fs::path fromSource = (here / ".." / ".." / ".." / script).lexically_normal();
  if (fs::exists(fromSource)) return fromSource.string();
  for (fs::path dir = exe.parent_path(); !dir.empty() && dir != dir.root_path();
       dir = dir.parent_path()) {
    if (fs::exists(dir / script)) return (dir / script).string();
  }
  return fromSource.string();
}

// A read-write mapping of one table object's bytes, independent of the table code.
using RawBytes = VornTest::RawTableBytes;

}  // namespace TableTest
