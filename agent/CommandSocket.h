// The agent's Unix-domain command socket: one command line in, one reply line out.
//
// Served from the activity loop (no threads): the listening socket and each
// client connection are watched file descriptors. Replies are written whole;
// a client that sends garbage gets an error line, never a crash.
//
// Clients never take the agent's last few descriptors: a client that would is
// told the agent is out of descriptors and closed, so the agent's own work
// still finds descriptors while the socket is full.
//
// Out of file descriptors altogether, a listening socket stays readable while
// every accept fails, which would spin the loop. The socket keeps one spare
// descriptor: it is given up to accept the waiting client, who is told why and
// closed, and taken back at once. If even that fails, accepting pauses for a
// second. One log line marks the start and the end of such a spell.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "zat/Clock.h"

namespace Agent {

class CommandSocket {
 public:
  using Handler = std::function<std::string(const std::string& line)>;
  // Binds `path` (removing a stale socket file first). Raises std::runtime_error
  // with the reason when the socket cannot be created.
  CommandSocket(const std::string& path, Handler handler);
  ~CommandSocket();
  const std::string& path() const { return path_; }
  // Clients connected now, and connections refused for want of descriptors.
  size_t clients() const { return pending_.size(); }
  uint64_t refusedForDescriptors() const { return refused_; }

 private:
  // Watches the listening socket again after a pause.
  class ResumeAccepting : public Zat::Clock::Notifiee {
   public:
    ResumeAccepting(const Zat::Ptr<const Zat::Clock>& clock, CommandSocket* socket)
        : Zat::Clock::Notifiee(clock), socket_(socket) {}
    void handleTime() override;

   private:
    CommandSocket* socket_;
  };

  void accept();
  void outOfDescriptors();
  void startExhaustedSpell();
  // Tells a client the agent is out of descriptors and closes it.
  void refuse(int fd);
  void watchListener();
  void readable(int fd);
  void closeClient(int fd);
  std::string path_;
  Handler handler_;
  int listenFd_ = -1;
  int spareFd_ = -1;  // held back for the out-of-descriptors refusal
  bool exhausted_ = false;
  uint64_t refused_ = 0;
  Zat::Ptr<ResumeAccepting> resume_;
  std::map<int, std::string> pending_;  // partial lines per client
};

}  // namespace Agent
