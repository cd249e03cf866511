// Support for the tests that read the port table from outside the C++ library:
// running a program to completion with its output, a raw read-write mapping of a
// table's bytes to damage it with, and the clean-up of a test's namespace.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace TableTest {

inline double nowSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// What a finished program left.
struct Outcome {
  bool finished = false;  // false: killed after the time limit
  int status = 0;         // as from waitpid
  std::string out, err;
  bool exitedWith(int code) const {
    return finished && WIFEXITED(status) && WEXITSTATUS(status) == code;
  }
};

// Runs `program` (looked up in PATH when it has no '/') with `args` to completion,
// at most `timeoutSeconds`, collecting stdout and stderr.
inline Outcome run(const std::string& program, const std::vector<std::string>& args,
                   double timeoutSeconds = 20) {
  Outcome outcome;
  int outPipe[2], errPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe: " << std::strerror(errno);
    return outcome;
  }
  std::vector<std::string> storage{program};
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : storage) argv.push_back(s.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(outPipe[1], STDOUT_FILENO);
    ::dup2(errPipe[1], STDERR_FILENO);
    ::execvp(program.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  if (pid < 0) {
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    ADD_FAILURE() << "fork: " << std::strerror(errno);
    return outcome;
  }
  const double end = nowSeconds() + timeoutSeconds;
  bool outOpen = true, errOpen = true;
  while ((outOpen || errOpen) && nowSeconds() < end) {
    pollfd p[2] = {{outOpen ? outPipe[0] : -1, POLLIN, 0}, {errOpen ? errPipe[0] : -1, POLLIN, 0}};
    if (::poll(p, 2, 50) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (!(p[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      char buf[8192];
      const ssize_t n = ::read(p[i].fd, buf, sizeof buf);
      if (n <= 0) {
        (i == 0 ? outOpen : errOpen) = false;
        continue;
      }
      (i == 0 ? outcome.out : outcome.err).append(buf, static_cast<size_t>(n));
    }
  }
  ::close(outPipe[0]);
  ::close(errPipe[0]);
  if (outOpen || errOpen) ::kill(pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (outOpen || errOpen) {
    ADD_FAILURE() << program << " did not finish within " << timeoutSeconds << " s";
    return outcome;
  }
  outcome.finished = true;
  outcome.status = status;
  return outcome;
}

// Removes every shared-memory object of namespace `ns` (tables and writer locks).
inline void removeNamespace(const std::string& ns) {
  DIR* dir = ::opendir("/dev/shm");
  if (!dir) return;
  std::vector<std::string> names;
  while (dirent* e = ::readdir(dir)) {
    const std::string name = e->d_name;
    if (name.rfind(ns + ".", 0) == 0) names.push_back(name);
  }
  ::closedir(dir);
  for (const auto& n : names) ::unlink(("/dev/shm/" + n).c_str());
}

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
class RawBytes {
 public:
  explicit RawBytes(const std::string& name) {
    fd_ = ::shm_open(("/" + name).c_str(), O_RDWR, 0);
    if (fd_ < 0) throw std::runtime_error("cannot open table " + name);
    struct stat st {};
    ::fstat(fd_, &st);
    size_ = static_cast<size_t>(st.st_size);
    void* p = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p == MAP_FAILED) {
      ::close(fd_);
      throw std::runtime_error("cannot map table " + name);
    }
    base_ = static_cast<unsigned char*>(p);
  }
  ~RawBytes() {
    ::munmap(base_, size_);
    ::close(fd_);
  }
  RawBytes(const RawBytes&) = delete;
  RawBytes& operator=(const RawBytes&) = delete;

  unsigned char* bytes() { return base_; }
  size_t size() const { return size_; }
  uint64_t word(size_t offset) const {
    uint64_t w;
    std::memcpy(&w, base_ + offset, 8);
    return w;
  }
  // Flips `width` neighbouring bits from bit `bit` (bit 0 is the lowest bit of byte 0).
  void flip(size_t bit, size_t width = 1) {
    for (size_t b = bit; b < bit + width; ++b)
      base_[b / 8] ^= static_cast<unsigned char>(1u << (b % 8));
  }

 private:
  int fd_ = -1;
  unsigned char* base_ = nullptr;
  size_t size_ = 0;
};

}  // namespace TableTest
