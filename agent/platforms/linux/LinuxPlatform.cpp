#include "agent/platforms/linux/LinuxPlatform.h"

#include <fmt/core.h>
#include <fnmatch.h>
#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "zat/Activity.h"

namespace Linux {

namespace {

// Link speed in bits per second from the driver; 0 when it does not say.
uint64_t speedOf(const std::string& name) {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  ethtool_cmd cmd{};
  cmd.cmd = ETHTOOL_GSET;
  ifreq ifr{};
  std::strncpy(ifr.ifr_name, name.c_str(), IFNAMSIZ - 1);
  ifr.ifr_data = reinterpret_cast<char*>(&cmd);
  uint64_t speed = 0;
  if (::ioctl(fd, SIOCETHTOOL, &ifr) == 0) {
    uint32_t mbps = ethtool_cmd_speed(&cmd);
    if (mbps != 0 && mbps != static_cast<uint32_t>(SPEED_UNKNOWN)) speed = mbps * 1000000ull;
  }
  ::close(fd);
  return speed;
}

}  // namespace

bool nameSelected(const std::string& patterns, const std::string& name) {
  if (patterns.empty()) return true;
  std::stringstream ss(patterns);
  std::string p;
  while (std::getline(ss, p, ',')) {
    if (!p.empty() && ::fnmatch(p.c_str(), name.c_str(), 0) == 0) return true;
  }
  return false;
}

void addOptions(CLI::Option_group& group, LinuxOptions& options) {
  group.add_option("--intf-filter", options.intfFilter,
                   "kernel device names to serve: comma-separated shell patterns, e.g. "
                   "'veth*,eth0' (default: every Ethernet-like device)");
  group
      .add_option("--netlink-rcvbuf", options.netlinkRcvbuf,
                  "receive buffer of the link notification socket in bytes (default: the "
                  "system's)")
      ->check(CLI::Range(0, 1 << 30));
}

std::unique_ptr<Agent::Platform> makePlatform(const LinuxOptions& options) {
  return std::make_unique<LinuxPlatform>(options);
}

LinuxPlatform::LinuxPlatform(const LinuxOptions& options)
    : options_(options),
      // Subscribed before the first dump, so that no change between the two is lost.
      notify_(std::make_unique<RtnlSocket>(RTMGRP_LINK, options.netlinkRcvbuf, true)),
      // Pollers of one tick fire within milliseconds of each other, but a busy
      // machine can stretch a tick; a quarter period still never reaches the next.
      stats_(std::make_unique<KernelStats>(
          options.pollPeriod > 0 ? std::min(0.25, options.pollPeriod / 4) : 0.05)) {}

LinuxPlatform::~LinuxPlatform() { stopped(); }

void LinuxPlatform::note(const std::string& text) {
  fmt::print(stderr, "linux: {}\n", text);
  std::fflush(stderr);
}

void LinuxPlatform::skip(const LinkInfo& link, const std::string& why) {
  auto it = skipped_.find(link.ifIndex);
  if (it != skipped_.end() && it->second == link.name) return;
  skipped_[link.ifIndex] = link.name;
  note("skipped " + link.name + " (ifindex " + std::to_string(link.ifIndex) + "): " + why);
}

int LinuxPlatform::ifIndexOf(Orvo::IntfId id) const {
  auto it = ifIndexOf_.find(id);
  return it == ifIndexOf_.end() ? 0 : it->second;
}

bool LinuxPlatform::hasEthIntf(Orvo::IntfId id) const {
  return Orvo::EthIntfId::isEthIntfId(id) && ifIndexOf_.count(id);
}

void LinuxPlatform::populate(Agent::AgentState& state) {
  state_ = &state;
  names_ = std::make_unique<Agent::IntfNames>(state.ns, intfCapacity());
  resync();
  std::set<Orvo::IntfId> present;
  for (const auto& [ifIndex, s] : served_) present.insert(s.id);
  names_->goneExcept(present, Zat::System::currentTime());
}

Zat::Ptr<VornHelper::VornHelperCountersSm> LinuxPlatform::countersHelper() {
  if (!helper_) {
    helper_ = LinuxCountersHelper::LinuxCountersHelperIs(
        stats_.get(), [this](Orvo::IntfId id) { return ifIndexOf(id); }, state_->ns);
  }
  return helper_;
}

Zat::Ptr<VornHelper::VornVlanCountersHelper> LinuxPlatform::vlanHelper() {
  if (!vlanHelper_) vlanHelper_ = LinuxVlanCountersHelper::LinuxVlanCountersHelperIs();
  return vlanHelper_;
}

void LinuxPlatform::started() {
  Zat::activityManager()->fdIs(notify_->fd(), [this] { onNotification(); });
  watching_ = true;
  onNotification();  // what changed while the roots were being built
}

void LinuxPlatform::stopped() {
  if (watching_) {
    Zat::activityManager()->fdDel(notify_->fd());
    watching_ = false;
  }
  helper_ = nullptr;
  vlanHelper_ = nullptr;
}

void LinuxPlatform::linkIs(const LinkInfo& l) {
  // Bridge-port messages share the group but describe the port's role, not the device.
  if (l.family != AF_UNSPEC) return;
  if (l.deleted) {
    withdraw(l.ifIndex);
    skipped_.erase(l.ifIndex);
    return;
  }
  double now = Zat::System::currentTime();
  auto it = served_.find(l.ifIndex);
  if (it != served_.end() && it->second.name != l.name) {
    // Renamed: the old name's interface goes, the new name is placed afresh.
    withdraw(l.ifIndex);
    it = served_.end();
  }
  bool up = l.operUp();
  if (it != served_.end()) {
    Served& s = it->second;
    if (s.operUp == up) return;
    s.operUp = up;
    if (s.vlan) {
      if (auto st = state_->vlanIntfStatusDir->intfStatusMutable(s.id)) st->operUpIs(up);
    } else {
      if (auto st = state_->ethStatusDir->intfStatusMutable(s.id)) st->operUpIs(up);
    }
    names_->operUpIs(s.id, up, now);
    return;
  }
  if (l.type == ARPHRD_LOOPBACK || !nameSelected(options_.intfFilter, l.name)) return;
  if (l.type != ARPHRD_ETHER) {
    skip(l, "device type " + std::to_string(l.type) + " is not Ethernet-like");
    return;
  }
  Orvo::IntfId id;
  bool vlan = l.kind == "vlan";
  if (vlan) {
    if (l.vlanId < 1 || l.vlanId > 4094) {
      skip(l, "VLAN id " + std::to_string(l.vlanId) + " is outside 1-4094");
      return;
    }
    id = Orvo::VlanIntfId::vlanIntfId(l.vlanId);
    auto other = ifIndexOf_.find(id);
    if (other != ifIndexOf_.end() && other->second != l.ifIndex) {
      skip(l, id.stringValue() + " is already served for " + served_[other->second].name);
      return;
    }
  } else {
    auto e = names_->ethIdFor(l.name);
    if (!e) {
      skip(l, "no Ethernet<N> id is free (the intfNames table is full of present devices)");
      return;
    }
    id = *e;
    auto other = ifIndexOf_.find(id);
    if (other != ifIndexOf_.end() && other->second != l.ifIndex) {
      // A new device under a served name whose removal was not seen: it takes
      // the id over, and its counters continue the old device's.
      served_.erase(other->second);
    }
  }
  skipped_.erase(l.ifIndex);
  served_[l.ifIndex] = Served{id, l.name, vlan, up};
  ifIndexOf_[id] = l.ifIndex;
  stats_->invalidate();
  names_->presentIs(id, l.name, static_cast<uint64_t>(l.ifIndex), up, speedOf(l.name), now);
  if (vlan) {
    state_->vlanIntfStatusDir->intfStatusIs(id)->operUpIs(up);
    state_->vlanIntfAdd(id);
  } else {
    state_->ethStatusDir->intfStatusIs(id)->operUpIs(up);
    state_->ethIntfAdd(id);
  }
}

void LinuxPlatform::withdraw(int ifIndex) {
  auto it = served_.find(ifIndex);
  if (it == served_.end()) return;
  Served s = it->second;
  served_.erase(it);
  auto id = ifIndexOf_.find(s.id);
  if (id != ifIndexOf_.end() && id->second == ifIndex) ifIndexOf_.erase(id);
  names_->goneIs(s.id, Zat::System::currentTime());
  if (s.vlan) {
    state_->vlanIntfRemove(s.id);
  } else {
    state_->ethIntfRemove(s.id);
  }
}

void LinuxPlatform::resync() {
  std::vector<LinkInfo> links;
  int err = 0;
  // A dump interrupted by a signal or by a burst of changes is simply taken again.
  for (int attempt = 0; attempt < 3; ++attempt) {
    links.clear();
    err = stats_->dumpLinks([&](const nlmsghdr* m) {
      if (m->nlmsg_type != RTM_NEWLINK) return;
      auto p = parseLink(m);
      if (!p) {
        ++badMessages_;
        note("ignored a link message: " + p.error);
        return;
      }
      links.push_back(std::move(*p.value));
    });
    if (err == 0) break;
  }
  if (err != 0) {
    note(std::string("link dump failed: ") + std::strerror(err) + "; keeping what is served");
    return;
  }
  ++resyncs_;
  std::set<int> seen;
  for (const auto& l : links) {
    if (l.family == AF_UNSPEC) seen.insert(l.ifIndex);
  }
  std::vector<int> gone;
  for (const auto& [ifIndex, s] : served_) {
    if (!seen.count(ifIndex)) gone.push_back(ifIndex);
  }
  for (int ifIndex : gone) withdraw(ifIndex);
  std::erase_if(skipped_, [&](const auto& kv) { return !seen.count(kv.first); });
  for (const auto& l : links) linkIs(l);
}

void LinuxPlatform::onNotification() {
  // Bounded: what is left stays readable and comes back on the next loop turn.
  for (int round = 0; round < 4; ++round) {
    int err = 0;
    try {
      err = notify_->drain([&](const nlmsghdr* m) {
        if (m->nlmsg_type != RTM_NEWLINK && m->nlmsg_type != RTM_DELLINK) return;
        ++notifications_;
        auto p = parseLink(m);
        if (!p) {
          ++badMessages_;
          note("ignored a link notification: " + p.error);
          return;
        }
        linkIs(*p.value);
      });
    } catch (const std::exception& e) {
      note(std::string("link notification not applied: ") + e.what());
      return;
    }
    if (err == 0) return;
    if (err == ENOBUFS) {
      note("link notifications were lost (receive buffer full): resynchronising with a dump");
      resync();
      continue;
    }
    note(std::string("link notifications: ") + std::strerror(err));
    return;
  }
}

std::optional<std::string> LinuxPlatform::command(const std::vector<std::string>& words) {
  if (words[0] != "linux") return std::nullopt;
  if (words.size() == 2 && words[1] == "resync") {
    resync();
    return "ok resync links " + std::to_string(served_.size());
  }
  return "error: usage: linux resync";
}

std::string LinuxPlatform::statusText() const {
  return fmt::format(
      "linux links {} skipped {} notifications {} resyncs {} link-dumps {} qdisc-dumps {} "
      "dump-cpu {:.2f} ms (links {:.2f} qdiscs {:.2f}) dump-failures {} bad-messages {} "
      "stale-reads {} unsupported: "
      "cpu-port,acl-drops,policing,vlan-bridging-counters",
      served_.size(), skipped_.size(), notifications_, resyncs_, stats_->linkDumps(),
      stats_->qdiscDumps(), stats_->dumpCpuSeconds() * 1e3, stats_->linkDumpCpuSeconds() * 1e3,
      stats_->qdiscDumpCpuSeconds() * 1e3, stats_->failures(), badMessages_ + stats_->badMessages(),
      helper_ ? helper_->staleReads() : 0);
}

}  // namespace Linux
