// The agent out of file descriptors: idle clients of the control socket hold
// every descriptor it has left. It must not spin on the listening socket, must
// keep polling, and must answer again once the clients leave.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "AgentFixture.h"

namespace SimIt {
namespace {

// A client of the agent's socket, closed when dropped. Non-blocking, so that a
// full listen queue (an agent that no longer accepts) fails the connect instead
// of hanging the test.
struct Client {
  int fd = -1;
  explicit Client(const std::string& path) {
    fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
      ::close(fd);
      fd = -1;
    }
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() {
    if (fd >= 0) ::close(fd);
  }
};

// CPU seconds (user + system) the process has used so far.
double cpuSecondsOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // Fields after the command name, which is in parentheses and may hold spaces.
  std::istringstream rest(text.substr(text.rfind(')') + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  for (int i = 3; i <= 15 && rest >> field; ++i) {
    if (i == 14) utime = std::stoull(field);
    if (i == 15) stime = std::stoull(field);
  }
  return static_cast<double>(utime + stime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

TEST_F(AgentTest, OutOfDescriptorsAgentStaysIdlePollsOnAndAnswersAgainWhenClientsLeave) {
  descriptorLimit = 64;
  startAgent();
  // More idle clients than the agent has descriptors; each is accepted while
  // descriptors last, the rest are refused with a reason or wait in the queue.
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < 96; ++i) {
    clients.push_back(std::make_unique<Client>(socketPath));
    sleepFor(0.005);
  }
  ASSERT_TRUE(waitUntil(
      [&] { return fileText(logPath).find("out of file descriptors") != std::string::npos; }, 5))
      << fileText(logPath);
  // A client arriving now finds the agent exhausted; the old code spun on it.
  Client late(socketPath);
  sleepFor(0.3);
  // Clients never take the agent's last descriptors: its own work (and a
  // sanitizer's probes) still find some while the socket is full.
  size_t open = 0;
  for ([[maybe_unused]] const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(agentPid) + "/fd")) {
    ++open;
  }
  EXPECT_LE(open, static_cast<size_t>(descriptorLimit - 4));

  double before = cpuSecondsOf(agentPid);
  double pollStart = wallNow();
  sleepFor(2.0);
  double used = cpuSecondsOf(agentPid) - before;
  EXPECT_LT(used / 2.0, 0.10) << "the agent used " << used << " s of CPU in 2 s while exhausted";
  EXPECT_TRUE(waitForPortPolls(pollStart, 3)) << "polling stopped while out of descriptors";

  // The refused client was told why.
  bool toldWhy = false;
  for (const auto& c : clients) {
    char buf[256] = {};
    ssize_t n = ::recv(c->fd, buf, sizeof buf - 1, MSG_DONTWAIT);
    if (n > 0 && std::string(buf).find("out of file descriptors") != std::string::npos) {
      toldWhy = true;
    }
  }
  EXPECT_TRUE(toldWhy);

  clients.clear();
  std::string reply;
  EXPECT_TRUE(waitUntil(
      [&] {
        try {
          reply = command("status");
        } catch (const std::exception& e) {
          reply = e.what();
        }
        return reply.rfind("ok interfaces", 0) == 0;
      },
      5))
      << reply;
  // One line for the spell, not one per refused client.
  std::string log = fileText(logPath);
  size_t lines = 0;
  for (size_t at = log.find("out of file descriptors with"); at != std::string::npos;
       at = log.find("out of file descriptors with", at + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, 1u) << log;
}

}  // namespace
}  // namespace SimIt
