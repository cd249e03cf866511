#include "LinuxFixture.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "readers/ControlClient.h"
#include "support/RunProcess.h"
#include "support/ShmNamespace.h"

#if !defined(VORN_AGENT_BINARY)
#error "the Linux integration tests need VORN_AGENT_BINARY (set by tests/CMakeLists.txt)"
#endif

extern char** environ;

namespace LinuxIt {

namespace {
std::atomic<unsigned> gNext{0};

using VornTest::waitFor;

std::string mac(int p, char side) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "02:00:00:00:%02x:%02x", p & 0xff, side == 'a' ? 0x0a : 0x0b);
  return buf;
}
}  // namespace

bool Proc::ok() const { return finished && WIFEXITED(status) && WEXITSTATUS(status) == 0; }

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void sleepFor(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

Proc run(const std::vector<std::string>& argv, double timeout) {
  const VornTest::ProcessResult p = VornTest::runProcess(
      argv.at(0), std::vector<std::string>(argv.begin() + 1, argv.end()), timeout);
  Proc r;
  r.finished = p.finished;
  r.status = p.status;
  r.out = p.out + p.err;
  return r;
}

void LinuxAgentTest::SetUp() {
  if (::geteuid() != 0) GTEST_SKIP() << "skipped: creating network namespaces needs root";
  std::string tag = "vlt" + std::to_string(::getpid()) + "_" + std::to_string(gNext++);
  ns = tag;
  socketPath = "/tmp/vorn-" + tag + ".sock";
  logPath = "/tmp/vorn-" + tag + ".log";
  Proc r = run({"ip", "netns", "add", tag});
  ASSERT_TRUE(r.ok()) << r.out;
  netns = tag;
  // No IPv6 (no router or neighbour solicitations): the devices count our traffic only.
  r = run({"ip", "netns", "exec", netns, "sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1",
           "net.ipv6.conf.default.disable_ipv6=1"});
  ASSERT_TRUE(r.ok()) << r.out;
}

void LinuxAgentTest::TearDown() {
  if (agentPid > 0) {
    ::kill(agentPid, SIGKILL);
    waitFor(agentPid, 5);
    agentPid = -1;
  }
  if (!netns.empty()) run({"ip", "netns", "del", netns});
  if (!ns.empty()) VornTest::removeNamespaceTables(ns);
  if (!socketPath.empty()) ::unlink(socketPath.c_str());
  if (!logPath.empty()) {
    if (HasFailure()) std::cerr << "--- agent log\n" << log() << "---\n";
    ::unlink(logPath.c_str());
  }
}

void LinuxAgentTest::ip(const std::vector<std::string>& args) {
  std::vector<std::string> argv{"ip", "-n", netns};
  argv.insert(argv.end(), args.begin(), args.end());
  Proc r = run(argv);
  ASSERT_TRUE(r.ok()) << "ip " << args[0] << " " << (args.size() > 1 ? args[1] : "") << ": "
                      << r.out;
}

void LinuxAgentTest::addPair(int p, int queues, bool mq) {
  std::string a = "va" + std::to_string(p), b = "vb" + std::to_string(p);
  std::string q = std::to_string(queues);
  ip({"link", "add",  a, "address", mac(p, 'a'), "numtxqueues", q, "numrxqueues", q, "type", "veth",
      "peer", "name", b, "address", mac(p, 'b'), "numtxqueues", q, "numrxqueues", q});
  if (mq) {
    // Before the link comes up, so that every frame the device sends passes a queue.
    Proc r = run({"tc", "-n", netns, "qdisc", "add", "dev", a, "root", "handle", "1:", "mq"});
    ASSERT_TRUE(r.ok()) << r.out;
  }
  std::string net = "10." + std::to_string(p + 1);
  ip({"addr", "add", net + ".0.1/24", "dev", a});
  ip({"addr", "add", net + ".1.1/24", "dev", b});
  ip({"neigh", "add", net + ".0.2", "lladdr", mac(p, 'b'), "dev", a, "nud", "permanent"});
  ip({"neigh", "add", net + ".1.2", "lladdr", mac(p, 'a'), "dev", b, "nud", "permanent"});
  ip({"link", "set", a, "up"});
  ip({"link", "set", b, "up"});
}

void LinuxAgentTest::delPair(int p) { ip({"link", "del", "va" + std::to_string(p)}); }

int LinuxAgentTest::send(const std::string& dev, int count, size_t payload, int flows) {
  // The socket is made inside the namespace and stays in it after this thread
  // goes back to its own.
  int self = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  int target = ::open(("/run/netns/" + netns).c_str(), O_RDONLY | O_CLOEXEC);
  if (self < 0 || target < 0 || ::setns(target, CLONE_NEWNET) < 0) {
    ADD_FAILURE() << "cannot enter namespace " << netns << ": " << std::strerror(errno);
    if (self >= 0) ::close(self);
    if (target >= 0) ::close(target);
    return 0;
  }
  std::vector<int> socks;
  for (int f = 0; f < flows; ++f) {
    int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::setsockopt(s, SOL_SOCKET, SO_BINDTODEVICE, dev.c_str(), dev.size());
    sockaddr_in src{};
    src.sin_family = AF_INET;
    src.sin_port = htons(static_cast<uint16_t>(40000 + f));
    ::bind(s, reinterpret_cast<sockaddr*>(&src), sizeof src);
    socks.push_back(s);
  }
  ::setns(self, CLONE_NEWNET);
  ::close(self);
  ::close(target);
  int p = std::stoi(dev.substr(2));
  std::string dst = "10." + std::to_string(p + 1) + (dev[1] == 'a' ? ".0.2" : ".1.2");
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(9);
  ::inet_pton(AF_INET, dst.c_str(), &to.sin_addr);
  std::string data(payload, 'x');
  int sent = 0;
  for (int i = 0; i < count; ++i) {
    int s = socks[static_cast<size_t>(i) % socks.size()];
    if (::sendto(s, data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
        static_cast<ssize_t>(data.size())) {
      ++sent;
    }
    // Gentle bursts: the peer's receive backlog is not the subject here.
    if (i % 50 == 49) sleepFor(0.001);
  }
  for (int s : socks) ::close(s);
  return sent;
}

KernelStats LinuxAgentTest::sysfs(const std::string& dev) {
  // sysfs shows the devices of the namespace it was mounted in: read it from inside.
  Proc r = run({"ip", "netns", "exec", netns, "sh", "-c",
                "cd /sys/class/net/" + dev + "/statistics && grep . *"});
  KernelStats out;
  EXPECT_TRUE(r.ok()) << r.out;
  std::istringstream in(r.out);
  std::string line;
  while (std::getline(in, line)) {
    auto colon = line.find(':');
    if (colon == std::string::npos) continue;
    out[line.substr(0, colon)] = std::stoull(line.substr(colon + 1));
  }
  return out;
}

void LinuxAgentTest::startAgent(const std::vector<std::string>& extra) {
  std::vector<std::string> args{VORN_AGENT_BINARY,
                                "--platform",
                                "linux",
                                "-n",
                                ns,
                                "--socket",
                                socketPath,
                                "--poll-period",
                                std::to_string(kPollPeriod),
                                "--status-interval",
                                "0.5"};
  args.insert(args.end(), extra.begin(), extra.end());
  std::string nsPath = "/run/netns/" + netns;
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    int fd = ::open(nsPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || ::setns(fd, CLONE_NEWNET) < 0) ::_exit(126);
    int logFd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (logFd >= 0) {
      ::dup2(logFd, 1);
      ::dup2(logFd, 2);
    }
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  agentPid = pid;
  bool up = waitUntil(
      [&] {
        try {
          return Readers::sendCommand(socketPath, "status", 1).rfind("ok ", 0) == 0;
        } catch (const std::exception&) {
          return false;
        }
      },
      10);
  ASSERT_TRUE(up) << "the agent did not answer within 10 s:\n" << log();
}

bool LinuxAgentTest::stopAgent(int sig) {
  if (agentPid <= 0) return true;
  ::kill(agentPid, sig);
  auto st = waitFor(agentPid, 5);
  if (!st) {
    ::kill(agentPid, SIGKILL);
    waitFor(agentPid, 5);
  }
  agentPid = -1;
  return st.has_value();
}

std::string LinuxAgentTest::command(const std::string& line) {
  return Readers::sendCommand(socketPath, line, 5);
}

std::string LinuxAgentTest::log() const {
  std::ifstream in(logPath);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::optional<Published::IntfNameRecord> LinuxAgentTest::nameRecord(const std::string& dev) {
  for (const auto& [id, r] : rowsOf<Published::IntfNameRecord>(ns, Published::kIntfNamesTable)) {
    if (r.kernelNameText() == dev) return r;
  }
  return std::nullopt;
}

std::optional<Orvo::IntfId> LinuxAgentTest::idOf(const std::string& dev) {
  auto r = nameRecord(dev);
  if (!r) return std::nullopt;
  return r->intfId;
}

std::optional<Interface::EthIntfCounterBrim> LinuxAgentTest::row(const std::string& dev) {
  auto id = idOf(dev);
  if (!id) return std::nullopt;
  auto rows = rowsOf<Interface::EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  auto it = rows.find(*id);
  if (it == rows.end()) return std::nullopt;
  return it->second;
}

bool LinuxAgentTest::polledAfter(const std::vector<std::string>& devs, double t, double seconds) {
  return waitUntil(
      [&] {
        for (const auto& d : devs) {
          auto r = row(d);
          if (!r || !(r->statistics().statsUpdateTime() > t)) return false;
        }
        return true;
      },
      seconds);
}

}  // namespace LinuxIt
