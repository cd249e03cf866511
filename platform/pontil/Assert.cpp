#include "pontil/Assert.h"

namespace Pontil {

namespace {
std::string describe(const std::string& expression, const std::string& module, int line) {
  return "assertion failed: " + expression + " (" + module + ":" + std::to_string(line) + ")";
}
}  // namespace

AssertException::AssertException(std::string expression, std::string module, int line)
    : std::logic_error(describe(expression, module, line)),
      expression_(std::move(expression)),
      module_(std::move(module)),
      line_(line) {}

std::string moduleOf(const char* path) {
  std::string p = path ? path : "";
  auto slash = p.find_last_of('/');
  if (slash != std::string::npos) p = p.substr(slash + 1);
  auto dot = p.find('.');
  if (dot != std::string::npos) p = p.substr(0, dot);
  return p;
}

void debugAndThrowAssertException(const char* expression, const char* module, int line) {
  throw AssertException(expression ? expression : "", moduleOf(module), line);
}

}  // namespace Pontil
