// Removes every shared-memory object of a namespace ("/dev/shm/<ns>.*"): tests
// that create tables, or run an agent that does, call it when they finish.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace VornTest {

inline void removeNamespaceTables(const std::string& ns) {
  DIR* dir = ::opendir("/dev/shm");
  if (!dir) return;
  std::vector<std::string> names;
  while (dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name.rfind(ns + ".", 0) == 0) names.push_back(name);
  }
  ::closedir(dir);
  for (const auto& n : names) ::unlink(("/dev/shm/" + n).c_str());
}

}  // namespace VornTest
