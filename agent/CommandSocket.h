// The agent's Unix-domain command socket: one command line in, one reply line out.
//
// Served from the activity loop (no threads): the listening socket and each
// client connection are watched file descriptors. Replies are written whole;
// a client that sends garbage gets an error line, never a crash.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace Agent {

class CommandSocket {
 public:
  using Handler = std::function<std::string(const std::string& line)>;
  // Binds `path` (removing a stale socket file first). Raises std::runtime_error
  // with the reason when the socket cannot be created.
  CommandSocket(const std::string& path, Handler handler);
  ~CommandSocket();
  const std::string& path() const { return path_; }

 private:
  void accept();
  void readable(int fd);
  void closeClient(int fd);
  std::string path_;
  Handler handler_;
  int listenFd_ = -1;
  std::map<int, std::string> pending_;  // partial lines per client
};

}  // namespace Agent
