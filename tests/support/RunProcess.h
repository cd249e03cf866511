// Running a program from a test: to completion with its output collected, or
// waiting for and killing one started in the background.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace VornTest {

// What a finished program left.
struct ProcessResult {
  bool finished = false;  // false: it did not finish in time and was killed
  int status = 0;         // as from waitpid
  std::string out, err;
  bool exitedWith(int code) const {
    return finished && WIFEXITED(status) && WEXITSTATUS(status) == code;
  }
};

inline double steadyNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// argv for exec: the strings must outlive the call.
inline std::vector<char*> argvOf(const std::string& program, const std::vector<std::string>& args,
                                 std::vector<std::string>& storage) {
  storage.clear();
  storage.push_back(program);
  storage.insert(storage.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : storage) argv.push_back(s.data());
  argv.push_back(nullptr);
  return argv;
}

// Waits up to `seconds` for `pid`; the wait status, or nullopt when it is still running.
inline std::optional<int> waitFor(pid_t pid, double seconds) {
  const double end = steadyNow() + seconds;
  for (;;) {
    int status = 0;
    const pid_t r = ::waitpid(pid, &status, WNOHANG);
    if (r == pid) return status;
    if (r < 0 && errno != EINTR) return std::nullopt;
    if (steadyNow() >= end) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

inline void killAndReap(pid_t pid) {
  ::kill(pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

// Runs `program` (looked up in PATH when it has no '/') with `args` to completion,
// at most `timeoutSeconds`, collecting stdout and stderr. A program still running
// at the limit is killed and the test fails.
inline ProcessResult runProcess(const std::string& program, const std::vector<std::string>& args,
                                double timeoutSeconds = 10) {
  ProcessResult result;
  int outPipe[2], errPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe: " << std::strerror(errno);
    return result;
  }
  std::vector<std::string> storage;
  std::vector<char*> argv = argvOf(program, args, storage);
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
    return result;
  }
  const double end = steadyNow() + timeoutSeconds;
  bool outOpen = true, errOpen = true;
  while ((outOpen || errOpen) && steadyNow() < end) {
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
      (i == 0 ? result.out : result.err).append(buf, static_cast<size_t>(n));
    }
  }
  ::close(outPipe[0]);
  ::close(errPipe[0]);
  const std::optional<int> status = waitFor(pid, std::max(0.0, end - steadyNow()));
  if (!status) {
    killAndReap(pid);
    ADD_FAILURE() << program << " did not finish within " << timeoutSeconds << " s";
    return result;
  }
  result.finished = true;
  result.status = *status;
  return result;
}

}  // namespace VornTest
