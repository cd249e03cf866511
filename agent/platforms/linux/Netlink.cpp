#include "agent/platforms/linux/Netlink.h"

#include <libmnl/libmnl.h>
#include <linux/gen_stats.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace Linux {

namespace {

// Calls visit(attr) for each attribute in [payload, payload + len). False when
// an attribute is shorter than its header or runs past the end: the message
// was truncated or damaged, and nothing in it can be trusted.
template <class F>
bool forEachAttr(const void* payload, size_t len, F&& visit) {
  const char* p = static_cast<const char*>(payload);
  size_t left = len;
  while (left > 0) {
    if (left < sizeof(nlattr)) return false;
    nlattr a;
    std::memcpy(&a, p, sizeof a);
    if (a.nla_len < sizeof(nlattr) || a.nla_len > left) return false;
    visit(reinterpret_cast<const nlattr*>(p));
    size_t step = MNL_ALIGN(a.nla_len);
    if (step >= left) break;
    left -= step;
    p += step;
  }
  return true;
}

const char* attrData(const nlattr* a) { return reinterpret_cast<const char*>(a) + MNL_ATTR_HDRLEN; }
size_t attrLen(const nlattr* a) {
  nlattr h;
  std::memcpy(&h, a, sizeof h);
  return h.nla_len - MNL_ATTR_HDRLEN;
}
uint16_t attrType(const nlattr* a) {
  nlattr h;
  std::memcpy(&h, a, sizeof h);
  return h.nla_type & NLA_TYPE_MASK;
}

template <class T>
bool attrValue(const nlattr* a, T& out) {
  if (attrLen(a) < sizeof(T)) return false;
  std::memcpy(&out, attrData(a), sizeof(T));
  return true;
}

std::string attrString(const nlattr* a) {
  const char* d = attrData(a);
  return std::string(d, strnlen(d, attrLen(a)));
}

// The payload after the family header, or false when the message is too short.
bool payloadOf(const nlmsghdr* nlh, size_t familyLen, const void*& family, const void*& attrs,
               size_t& attrsLen) {
  nlmsghdr h;
  std::memcpy(&h, nlh, sizeof h);
  size_t need = NLMSG_HDRLEN + NLMSG_ALIGN(familyLen);
  if (h.nlmsg_len < NLMSG_HDRLEN + familyLen) return false;
  family = reinterpret_cast<const char*>(nlh) + NLMSG_HDRLEN;
  attrs = reinterpret_cast<const char*>(nlh) + std::min<size_t>(need, h.nlmsg_len);
  attrsLen = h.nlmsg_len > need ? h.nlmsg_len - need : 0;
  return true;
}

}  // namespace

bool LinkInfo::operUp() const { return (flags & IFF_UP) && (flags & IFF_RUNNING); }

Parsed<LinkInfo> parseLink(const nlmsghdr* nlh) {
  Parsed<LinkInfo> r;
  const void *fam, *attrs;
  size_t len;
  if (!payloadOf(nlh, sizeof(ifinfomsg), fam, attrs, len)) {
    r.error = "link message shorter than its header";
    return r;
  }
  ifinfomsg ifi;
  std::memcpy(&ifi, fam, sizeof ifi);
  LinkInfo l;
  l.ifIndex = ifi.ifi_index;
  l.family = ifi.ifi_family;
  l.type = ifi.ifi_type;
  l.flags = ifi.ifi_flags;
  l.deleted = nlh->nlmsg_type == RTM_DELLINK;
  bool nestedOk = true;
  bool ok = forEachAttr(attrs, len, [&](const nlattr* a) {
    switch (attrType(a)) {
      case IFLA_IFNAME:
        l.name = attrString(a);
        break;
      case IFLA_LINK: {
        uint32_t v = 0;
        if (attrValue(a, v)) l.parentIfIndex = static_cast<int>(v);
        break;
      }
      case IFLA_LINKINFO:
        nestedOk &= forEachAttr(attrData(a), attrLen(a), [&](const nlattr* info) {
          if (attrType(info) == IFLA_INFO_KIND) {
            l.kind = attrString(info);
          } else if (attrType(info) == IFLA_INFO_DATA) {
            // The data's meaning depends on the kind, which comes first.
            nestedOk &= forEachAttr(attrData(info), attrLen(info), [&](const nlattr* d) {
              if (l.kind == "vlan" && attrType(d) == IFLA_VLAN_ID) attrValue(d, l.vlanId);
            });
          }
        });
        break;
      default:
        break;  // attributes of no use here, including ones newer than this code
    }
  });
  if (!ok || !nestedOk) {
    r.error = "link message of ifindex " + std::to_string(l.ifIndex) +
              " has an attribute running past its end";
    return r;
  }
  if (l.ifIndex <= 0) {
    r.error = "link message without a device index";
    return r;
  }
  if (l.name.empty() && !l.deleted) {
    r.error = "link message of ifindex " + std::to_string(l.ifIndex) + " has no name";
    return r;
  }
  r.value = std::move(l);
  return r;
}

Parsed<LinkStatsInfo> parseLinkStats(const nlmsghdr* nlh) {
  Parsed<LinkStatsInfo> r;
  const void *fam, *attrs;
  size_t len;
  if (!payloadOf(nlh, sizeof(if_stats_msg), fam, attrs, len)) {
    r.error = "statistics message shorter than its header";
    return r;
  }
  if_stats_msg ism;
  std::memcpy(&ism, fam, sizeof ism);
  LinkStatsInfo s;
  s.ifIndex = static_cast<int>(ism.ifindex);
  bool found = false;
  // The oldest kernels with 64-bit statistics stop after tx_compressed.
  constexpr size_t kOldest = offsetof(rtnl_link_stats64, rx_nohandler);
  bool shortStats = false;
  bool ok = forEachAttr(attrs, len, [&](const nlattr* a) {
    if (attrType(a) != IFLA_STATS_LINK_64) return;
    size_t n = attrLen(a);
    if (n < kOldest) {
      shortStats = true;
      return;
    }
    std::memcpy(&s.stats, attrData(a), std::min(n, sizeof s.stats));
    found = true;
  });
  if (!ok) {
    r.error = "statistics message of ifindex " + std::to_string(s.ifIndex) +
              " has an attribute running past its end";
  } else if (shortStats) {
    r.error = "statistics of ifindex " + std::to_string(s.ifIndex) + " are too short";
  } else if (!found) {
    r.error = "statistics message of ifindex " + std::to_string(s.ifIndex) +
              " holds no 64-bit link statistics";
  } else {
    r.value = s;
  }
  return r;
}

Parsed<QdiscInfo> parseQdisc(const nlmsghdr* nlh) {
  Parsed<QdiscInfo> r;
  const void *fam, *attrs;
  size_t len;
  if (!payloadOf(nlh, sizeof(tcmsg), fam, attrs, len)) {
    r.error = "qdisc message shorter than its header";
    return r;
  }
  tcmsg tcm;
  std::memcpy(&tcm, fam, sizeof tcm);
  QdiscInfo q;
  q.ifIndex = tcm.tcm_ifindex;
  q.handle = tcm.tcm_handle;
  q.parent = tcm.tcm_parent;
  bool nestedOk = true;
  bool ok = forEachAttr(attrs, len, [&](const nlattr* a) {
    if (attrType(a) == TCA_KIND) {
      q.kind = attrString(a);
    } else if (attrType(a) == TCA_STATS2) {
      nestedOk &= forEachAttr(attrData(a), attrLen(a), [&](const nlattr* s) {
        switch (attrType(s)) {
          case TCA_STATS_BASIC: {
            // bytes (64 bits) then packets (32 bits); the structure is padded.
            if (attrLen(s) < sizeof(uint64_t) + sizeof(uint32_t)) break;
            uint64_t bytes;
            uint32_t packets;
            std::memcpy(&bytes, attrData(s), sizeof bytes);
            std::memcpy(&packets, attrData(s) + sizeof bytes, sizeof packets);
            q.bytes = bytes;
            if (!q.packets64) q.packets = packets;
            q.hasStats = true;
            break;
          }
          case TCA_STATS_PKT64: {
            uint64_t p = 0;
            if (attrValue(s, p)) {
              q.packets = p;
              q.packets64 = true;
            }
            break;
          }
          case TCA_STATS_QUEUE: {
            gnet_stats_queue gq;
            if (attrValue(s, gq)) q.drops = gq.drops;
            break;
          }
          default:
            break;
        }
      });
    }
  });
  if (!ok || !nestedOk) {
    r.error = "qdisc message of ifindex " + std::to_string(q.ifIndex) +
              " has an attribute running past its end";
    return r;
  }
  r.value = std::move(q);
  return r;
}

// --- RtnlSocket ---

RtnlSocket::RtnlSocket(unsigned groups, int rcvbuf, bool nonBlocking) {
  nl_ = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | (nonBlocking ? SOCK_NONBLOCK : 0));
  if (!nl_) throw std::runtime_error(std::string("netlink socket: ") + std::strerror(errno));
  if (rcvbuf > 0) {
    int fd = mnl_socket_get_fd(nl_);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &rcvbuf, sizeof rcvbuf) < 0) {
      setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    }
  }
  if (!nonBlocking) {
    // A dump answers at once; a kernel that does not must not stall the loop.
    timeval tv{1, 0};
    setsockopt(mnl_socket_get_fd(nl_), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  }
  if (mnl_socket_bind(nl_, groups, MNL_SOCKET_AUTOPID) < 0) {
    std::string why = std::strerror(errno);
    mnl_socket_close(nl_);
    throw std::runtime_error("netlink bind: " + why);
  }
  portId_ = mnl_socket_get_portid(nl_);
  buf_.resize(1 << 16);
}

RtnlSocket::~RtnlSocket() {
  if (nl_) mnl_socket_close(nl_);
}

int RtnlSocket::fd() const { return mnl_socket_get_fd(nl_); }

int RtnlSocket::dump(uint16_t type, const void* header, size_t headerLen, const Visit& visit) {
  char req[256];
  nlmsghdr* nlh = mnl_nlmsg_put_header(req);
  nlh->nlmsg_type = type;
  nlh->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  nlh->nlmsg_seq = ++seq_;
  void* fam = mnl_nlmsg_put_extra_header(nlh, headerLen);
  std::memcpy(fam, header, headerLen);
  ++dumps_;
  for (;;) {
    if (mnl_socket_sendto(nl_, nlh, nlh->nlmsg_len) >= 0) break;
    if (errno != EINTR) return errno;
  }
  for (;;) {
    ssize_t n = mnl_socket_recvfrom(nl_, buf_.data(), buf_.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    size_t left = static_cast<size_t>(n);
    const nlmsghdr* m = reinterpret_cast<const nlmsghdr*>(buf_.data());
    while (mnl_nlmsg_ok(m, static_cast<int>(left))) {
      // Replies to an earlier dump that was abandoned half-way are skipped.
      if (m->nlmsg_seq == seq_ && m->nlmsg_pid == portId_) {
        if (m->nlmsg_type == NLMSG_DONE) return 0;
        if (m->nlmsg_type == NLMSG_ERROR) {
          const auto* err = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(m));
          if (m->nlmsg_len < mnl_nlmsg_size(sizeof(nlmsgerr))) return EBADMSG;
          if (err->error != 0) return -err->error;
          return 0;
        }
        if (m->nlmsg_type >= NLMSG_MIN_TYPE) visit(m);
      }
      int l = static_cast<int>(left);
      m = mnl_nlmsg_next(m, &l);
      left = static_cast<size_t>(l);
    }
  }
}

int RtnlSocket::drain(const Visit& visit) {
  for (;;) {
    ssize_t n = mnl_socket_recvfrom(nl_, buf_.data(), buf_.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) return 0;
      return errno;
    }
    if (n == 0) return 0;
    size_t left = static_cast<size_t>(n);
    const nlmsghdr* m = reinterpret_cast<const nlmsghdr*>(buf_.data());
    while (mnl_nlmsg_ok(m, static_cast<int>(left))) {
      if (m->nlmsg_type >= NLMSG_MIN_TYPE) visit(m);
      int l = static_cast<int>(left);
      m = mnl_nlmsg_next(m, &l);
      left = static_cast<size_t>(l);
    }
  }
}

}  // namespace Linux
