// CommandSocket: one line in, one line out, served from the activity loop; the
// client side, sendCommand, as the reader command uses it.
//
// The server runs in the real-time activity loop on the test's thread, in short
// slices, while a client thread talks to it; every wait is bounded.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>

#include "agent/CommandSocket.h"
#include "readers/ControlClient.h"
#include "zat/Activity.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string uniquePath(const std::string& what) {
  static int n = 0;
  return "/tmp/vorn-cs-" + std::to_string(::getpid()) + "-" + std::to_string(n++) + "-" + what +
         ".sock";
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

// A client that speaks raw bytes: connects, sends `data`, and reads until
// `lines` reply lines arrived or, with `lines` 0, until the server hangs up (at
// most 3 s either way). With `read` false it hangs up at once after sending.
struct RawReply {
  std::string text;
  bool closedByServer = false;
};
RawReply rawExchange(const std::string& path, const std::string& data, size_t lines,
                     bool read = true) {
  RawReply out;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    throw std::runtime_error("connect failed");
  }
  size_t off = 0;
  while (off < data.size()) {
    ssize_t n = ::send(fd, data.data() + off, data.size() - off, MSG_NOSIGNAL);
    if (n <= 0) break;
    off += static_cast<size_t>(n);
  }
  auto deadline = Clock::now() + std::chrono::seconds(3);
  while (read && Clock::now() < deadline) {
    if (static_cast<size_t>(std::count(out.text.begin(), out.text.end(), '\n')) >= lines &&
        lines > 0) {
      break;
    }
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    char buf[4096];
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) {
      out.closedByServer = true;
      break;
    }
    out.text.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

class CommandSocketTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(Zat::activityManager()->simulatedTime());
    path = uniquePath("server");
  }
  void TearDown() override { ::unlink(path.c_str()); }

  void serve() {
    socket = std::make_unique<Agent::CommandSocket>(path, [this](const std::string& line) {
      seen.push_back(line);
      return "ok " + line;
    });
  }

  // Runs `client` on a thread while the activity loop serves the socket, in
  // slices of 10 ms, for at most 5 s. Returns the client's result, or the text
  // of what it raised prefixed with "raised: ".
  std::string withClient(std::function<std::string()> client) {
    std::atomic<bool> done{false};
    std::string result;
    std::thread t([&] {
      try {
        result = client();
      } catch (const std::exception& e) {
        result = std::string("raised: ") + e.what();
      }
      done = true;
    });
    auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!done && Clock::now() < deadline) Zat::activityManager()->runFor(0.01);
    t.join();
    // Let the server see a client's hang-up, so no connection stays behind.
    Zat::activityManager()->runFor(0.02);
    return result;
  }

  std::string path;
  std::vector<std::string> seen;
  std::unique_ptr<Agent::CommandSocket> socket;
};

TEST_F(CommandSocketTest, RoundTripsOneLine) {
  serve();
  EXPECT_EQ(socket->path(), path);
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "status", 2); }), "ok status");
  EXPECT_EQ(seen, (std::vector<std::string>{"status"}));
}

TEST_F(CommandSocketTest, ServesClientsOneAfterAnother) {
  serve();
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "clear counters all", 2); }),
            "ok clear counters all");
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "dump", 2); }), "ok dump");
  EXPECT_EQ(seen, (std::vector<std::string>{"clear counters all", "dump"}));
}

TEST_F(CommandSocketTest, DropsTheCarriageReturnOfALine) {
  serve();
  EXPECT_EQ(withClient([&] { return rawExchange(path, "status\r\n", 1).text; }), "ok status\n");
  EXPECT_EQ(seen, (std::vector<std::string>{"status"}));
}

TEST_F(CommandSocketTest, AnswersEveryLineOfOneWriteInOrder) {
  serve();
  EXPECT_EQ(withClient([&] { return rawExchange(path, "a\nb c\n\n", 3).text; }),
            "ok a\nok b c\nok \n");
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b c", ""}));
}

TEST_F(CommandSocketTest, ServesALineOfExactly4096Bytes) {
  serve();
  std::string line(4096, 'x');
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, line, 2); }), "ok " + line);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].size(), 4096u);
}

TEST_F(CommandSocketTest, RefusesALongerLineThatArrivesWhole) {
  serve();
  std::string line(5000, 'x');
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, line, 2); }),
            "error: command longer than 4096 bytes");
  EXPECT_TRUE(seen.empty());
  // The server goes on serving others.
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "status", 2); }), "ok status");
}

TEST_F(CommandSocketTest, RefusesAnEndlessLineAndHangsUp) {
  serve();
  RawReply reply;
  withClient([&] {
    reply = rawExchange(path, std::string(6000, 'y'), 0);
    return std::string();
  });
  EXPECT_EQ(reply.text, "error: command longer than 4096 bytes\n");
  EXPECT_TRUE(reply.closedByServer);
  EXPECT_TRUE(seen.empty());
}

TEST_F(CommandSocketTest, ClientThatHangsUpEarlyDoesNotDisturbTheServer) {
  serve();
  withClient([&] {
    rawExchange(path, "half a comm", 0, false);  // no newline, then hangs up
    return std::string();
  });
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "status", 2); }), "ok status");
}

TEST_F(CommandSocketTest, ReplacesAStaleSocketFileAndRemovesItsOwnOnClose) {
  { std::ofstream(path) << "stale"; }
  serve();
  EXPECT_EQ(withClient([&] { return Readers::sendCommand(path, "x", 2); }), "ok x");
  socket.reset();
  EXPECT_FALSE(exists(path));
}

TEST_F(CommandSocketTest, NamesThePathItCannotListenOn) {
  std::string bad = "/nonexistent-dir-" + std::to_string(::getpid()) + "/agent.sock";
  try {
    Agent::CommandSocket s(bad, [](const std::string&) { return std::string(); });
    FAIL() << "binding in a missing directory must raise";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "cannot listen on " + bad + ": No such file or directory");
  }
}

TEST_F(CommandSocketTest, RefusesAPathTooLongForASocket) {
  std::string tooLong = "/tmp/" + std::string(200, 'p');
  try {
    Agent::CommandSocket s(tooLong, [](const std::string&) { return std::string(); });
    FAIL() << "an over-long path must raise";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "socket path too long: " + tooLong);
  }
}

TEST_F(CommandSocketTest, SendCommandNamesAnAgentItCannotReach) {
  try {
    Readers::sendCommand(path, "status", 1);
    FAIL() << "no agent listens there";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()),
              "cannot reach the agent at " + path + ": No such file or directory");
  }
}

TEST_F(CommandSocketTest, SendCommandGivesUpOnAnAgentThatDoesNotAnswer) {
  serve();  // listening, but the activity loop never runs: nobody answers
  auto start = Clock::now();
  try {
    Readers::sendCommand(path, "status", 0.2);
    FAIL() << "no reply must raise";
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), "no reply from the agent at " + path);
  }
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

}  // namespace
