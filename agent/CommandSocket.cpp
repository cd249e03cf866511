#include "agent/CommandSocket.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "readers/ControlClient.h"
#include "zat/Activity.h"

namespace Agent {

namespace {
constexpr size_t kMaxLine = 4096;
// Descriptors clients may never take: the agent's own work (a platform's
// netlink socket, a table opened on restart, a sanitizer's probe pipe) must
// still find some when the socket is full of clients.
constexpr rlim_t kReservedDescriptors = 8;

// The lowest descriptor number a client may not hold. Descriptors are handed
// out lowest first, so a client given one at or above it means at most the
// reserve is left free.
int clientDescriptorCeiling() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return INT32_MAX;
  rlim_t reserve = std::min(kReservedDescriptors, limit.rlim_cur / 4);
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur - reserve, INT32_MAX));
}

void writeAll(int fd, const std::string& data) {
  size_t off = 0;
  while (off < data.size()) {
    ssize_t n = ::send(fd, data.data() + off, data.size() - off, MSG_NOSIGNAL);
    if (n <= 0) {
      if (n < 0 && errno == EINTR) continue;
      return;  // the client went away; nothing of ours is lost
    }
    off += static_cast<size_t>(n);
  }
}
}  // namespace

CommandSocket::CommandSocket(const std::string& path, Handler handler)
    : path_(path), handler_(std::move(handler)) {
  sockaddr_un addr = Readers::unixSocketAddress(path);
  listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (listenFd_ < 0) throw std::runtime_error("socket: " + std::string(std::strerror(errno)));
  ::unlink(path.c_str());
  if (::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0 ||
      ::listen(listenFd_, 16) < 0) {
    std::string why = std::strerror(errno);
    ::close(listenFd_);
    throw std::runtime_error("cannot listen on " + path + ": " + why);
  }
  spareFd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  watchListener();
}

void CommandSocket::watchListener() {
  Zat::activityManager()->fdIs(listenFd_, [this] { accept(); });
}

void CommandSocket::ResumeAccepting::handleTime() { socket_->watchListener(); }

CommandSocket::~CommandSocket() {
  for (const auto& [fd, buf] : pending_) {
    Zat::activityManager()->fdDel(fd);
    ::close(fd);
  }
  if (resume_) {
    resume_->timeMinIs(Zat::Clock::kNever);
    resume_ = nullptr;
  }
  Zat::activityManager()->fdDel(listenFd_);
  ::close(listenFd_);
  if (spareFd_ >= 0) ::close(spareFd_);
  ::unlink(path_.c_str());
}

void CommandSocket::accept() {
  int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (fd < 0) {
    if (errno == EMFILE || errno == ENFILE) outOfDescriptors();
    return;
  }
  if (fd >= clientDescriptorCeiling()) {
    // Taking this client would leave the agent only its reserve; each queued
    // client is taken off the queue this way, so the socket does not stay ready.
    startExhaustedSpell();
    refuse(fd);
    return;
  }
  if (exhausted_) {
    exhausted_ = false;
    std::fprintf(stderr, "control socket %s: accepting connections again (%zu clients)\n",
                 path_.c_str(), pending_.size() + 1);
  }
  if (spareFd_ < 0) spareFd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  pending_[fd] = "";
  Zat::activityManager()->fdIs(fd, [this, fd] { readable(fd); });
}

void CommandSocket::startExhaustedSpell() {
  if (exhausted_) return;
  exhausted_ = true;
  std::fprintf(stderr,
               "control socket %s: out of file descriptors with %zu clients connected; "
               "refusing new connections until some close\n",
               path_.c_str(), pending_.size());
}

void CommandSocket::refuse(int fd) {
  ++refused_;
  writeAll(fd, "error: the agent is out of file descriptors; try again later\n");
  ::close(fd);
}

void CommandSocket::outOfDescriptors() {
  startExhaustedSpell();
  if (spareFd_ >= 0) {
    // Give the spare up for a moment to take the waiting client off the queue,
    // so the listening socket stops being readable.
    ::close(spareFd_);
    spareFd_ = -1;
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) refuse(fd);
    spareFd_ = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd >= 0 && spareFd_ >= 0) return;
  }
  // No spare to work with: stop watching the socket for a while instead of
  // spinning on it.
  Zat::activityManager()->fdDel(listenFd_);
  if (!resume_) {
    resume_ = new ResumeAccepting(Zat::activityManager()->config()->clock(), this);
    resume_->hasNotificationActiveIs(true);
  }
  resume_->timeMinIs(Zat::System::currentTime() + 1.0);
}

void CommandSocket::closeClient(int fd) {
  Zat::activityManager()->fdDel(fd);
  pending_.erase(fd);
  ::close(fd);
}

void CommandSocket::readable(int fd) {
  char buf[1024];
  ssize_t n = ::recv(fd, buf, sizeof buf, 0);
  if (n <= 0) {
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    closeClient(fd);
    return;
  }
  std::string& pending = pending_[fd];
  pending.append(buf, static_cast<size_t>(n));
  size_t nl;
  while ((nl = pending.find('\n')) != std::string::npos) {
    // A long line can arrive whole in one read; it is refused like one still
    // being sent, whatever the read sizes were.
    if (nl > kMaxLine) {
      writeAll(fd, "error: command longer than 4096 bytes\n");
      closeClient(fd);
      return;
    }
    std::string line = pending.substr(0, nl);
    pending.erase(0, nl + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    writeAll(fd, handler_(line) + "\n");
  }
  if (pending.size() > kMaxLine) {
    writeAll(fd, "error: command longer than 4096 bytes\n");
    closeClient(fd);
  }
}

}  // namespace Agent
