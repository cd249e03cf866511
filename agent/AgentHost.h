// The agent host: builds the agent's state objects and counter tables, creates
// both counters roots through the exported factories, and serves operator
// commands. What it runs on (interfaces, helpers, platform commands) comes from
// a Platform; the host itself knows no chip.
//
// Commands are one line of text each and are answered with one line: "ok ..."
// or "error: <what was wrong>". An invalid command changes nothing.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/AgentState.h"
#include "agent/Platform.h"
#include "counters/factories.h"

namespace Agent {

struct AgentConfig {
  std::string ns = "vorn";
  double pollPeriod = 1.0;  // seconds; the root's counterPollPeriod
  double vlanPollInterval = 2.0;
};

class AgentHost {
 public:
  // Opens (or re-attaches to) the tables of the namespace and builds the state
  // the platform fills. Nothing runs until start().
  AgentHost(std::unique_ptr<Platform> platform, const AgentConfig& config);
  ~AgentHost();

  // Creates both roots through the factories, supplies the setters and sets
  // `initialized`.
  void start();
  // Drops both roots (their zombie teardown) and the helpers; tables stay.
  void stop();

  // Runs one operator command; returns the one-line reply.
  std::string command(const std::string& line);
  // "interfaces N vlans V polls P handler-time T ms cpu-per-poll-cycle C ms rss R MiB"
  // and the platform's own status, if any.
  std::string statusLine();

  Platform& platform() { return *platform_; }
  AgentState& state() { return state_; }
  const AgentConfig& config() const { return config_; }
  const std::string& tableNamespace() const { return config_.ns; }
  const Zat::Ptr<Vorn::Counters::CountersSm>& root() const { return root_; }
  const Zat::Ptr<Vorn::Counters::VlanCountersSm>& vlanRoot() const { return vlanRoot_; }

 private:
  // Re-runs the policing class walk once per poll period.
  class CoppRefresh : public Zat::Clock::Notifiee {
   public:
    CoppRefresh(const Zat::Ptr<const Zat::Clock>& clock, AgentHost* host)
        : Zat::Clock::Notifiee(clock), host_(host) {}
    void handleTime() override;

   private:
    AgentHost* host_;
  };

  void startCopp();
  std::string clearCommand(const std::vector<std::string>& words);
  std::string updateCommand(const std::vector<std::string>& words);
  std::string pollPeriodCommand(const std::vector<std::string>& words);
  std::string usage() const;

  AgentConfig config_;
  std::unique_ptr<Platform> platform_;
  AgentState state_;

  Zat::Ptr<Vorn::Counters::CountersSm> root_;
  Zat::Ptr<Vorn::Counters::VlanCountersSm> vlanRoot_;
  Zat::Ptr<Zat::PtrInterface> coppClassSm_;
  Zat::Ptr<CoppRefresh> coppRefresh_;

  // For the status line: CPU time at the previous status line.
  double lastCpuSeconds_ = 0;
  double lastStatusTime_ = 0;
};

}  // namespace Agent
