#include "readers/ControlClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Readers {

sockaddr_un unixSocketAddress(const std::string& path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof(addr.sun_path)) {
    throw std::runtime_error("socket path too long: " + path);
  }
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  return addr;
}

std::string namespaceProblem(const std::string& ns) {
  if (ns.empty() || ns.size() > 64 ||
      ns.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                           "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") != std::string::npos) {
    return "namespace must be 1-64 letters, digits, '_' or '-'";
  }
  return "";
}

namespace {
// Closes the descriptor on every way out.
struct Fd {
  int fd;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};
}  // namespace

std::string defaultSocketPath(const std::string& ns) { return "/tmp/vorn-" + ns + ".sock"; }

std::string sendCommand(const std::string& path, const std::string& line, double timeoutSeconds) {
  sockaddr_un addr = unixSocketAddress(path);
  Fd s{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  if (s.fd < 0) throw std::runtime_error("socket: " + std::string(std::strerror(errno)));
  if (::connect(s.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    throw std::runtime_error("cannot reach the agent at " + path + ": " + std::strerror(errno));
  }
  std::string out = line + "\n";
  for (size_t off = 0; off < out.size();) {
    ssize_t n = ::send(s.fd, out.data() + off, out.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw std::runtime_error("the agent closed the connection");
    off += static_cast<size_t>(n);
  }
  std::string reply;
  int waitMs = static_cast<int>(timeoutSeconds * 1000);
  while (reply.find('\n') == std::string::npos) {
    pollfd p{s.fd, POLLIN, 0};
    int ready = ::poll(&p, 1, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) throw std::runtime_error("no reply from the agent at " + path);
    char buf[4096];
    ssize_t n = ::recv(s.fd, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    reply.append(buf, static_cast<size_t>(n));
  }
  auto nl = reply.find('\n');
  if (nl == std::string::npos) throw std::runtime_error("the agent closed the connection");
  return reply.substr(0, nl);
}

}  // namespace Readers
