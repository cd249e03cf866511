// Pontil: the assertion helpers of the platform.
//
// Internal invariants of the counters component are checked with vornAssert();
// a failure raises Pontil::AssertException, whose message names the failed
// expression, the source module and the line. Shared-memory tables that find
// themselves damaged raise Pontil::CorruptionDetectedException instead, which
// callers hand to the table's corruption hook and then carry on.
#pragma once

#include <stdexcept>
#include <string>

namespace Pontil {

// A failed internal invariant. The process is expected to stop; tests catch it.
class AssertException : public std::logic_error {
 public:
  AssertException(std::string expression, std::string module, int line);
  // The failed condition exactly as written in the source.
  const std::string& expression() const { return expression_; }
  const std::string& module() const { return module_; }
  int line() const { return line_; }

 private:
  std::string expression_;
  std::string module_;
  int line_;
};

// A shared-memory table (or another persistent structure) failed validation.
class CorruptionDetectedException : public std::runtime_error {
 public:
  explicit CorruptionDetectedException(const std::string& message) : std::runtime_error(message) {}
};

// Raises AssertException for `expression` failing at module:line.
// A debugger hook point: break here to stop at every failed assertion.
[[noreturn]] void debugAndThrowAssertException(const char* expression, const char* module,
                                               int line);

// The module name of a source path: its file name without directory and extension.
std::string moduleOf(const char* path);

}  // namespace Pontil

#define vornAssert(cond)                                                 \
  do {                                                                   \
    if (!(cond)) [[unlikely]] {                                          \
      ::Pontil::debugAndThrowAssertException(#cond, __FILE__, __LINE__); \
    }                                                                    \
  } while (0)

// Asserts with an explicit expression text, for invariants whose published text
// differs from the C++ spelling of the check.
#define vornAssertText(cond, text)                                      \
  do {                                                                  \
    if (!(cond)) [[unlikely]] {                                         \
      ::Pontil::debugAndThrowAssertException(text, __FILE__, __LINE__); \
    }                                                                   \
  } while (0)
