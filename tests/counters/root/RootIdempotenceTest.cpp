// Property: interface tracking keeps the wanted state after every change, and
// evaluating an interface again changes nothing. Random sequences (fixed seeds)
// of set, configuration and status changes drive the root through its
// reactors; after each step every per-interface handler is called twice and
// the whole observable state is compared, and the invariants of tracking are
// checked against the inputs.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <sstream>

#include "counters/root/RootTestSupport.h"

namespace {

using Orvo::IntfId;

const std::vector<IntfId> kEthIds{IntfId("Ethernet1"), IntfId("Ethernet2"), IntfId("Ethernet3"),
                                  IntfId("Ethernet4")};
const std::vector<IntfId> kCpuIds{IntfId("Cpu"), IntfId("Cpu1")};
// Ethernet4 stands for a key of the VLAN set that is no VLAN interface.
const std::vector<IntfId> kVlanSetIds{IntfId("Vlan10"), IntfId("Vlan20"), IntfId("Vlan30"),
                                      IntfId("Ethernet4")};
const IntfId kRefusedVlan("Vlan30");

class RootIdempotence : public VornTest::RootFixture {
 protected:
  template <class T>
  static std::string text(const Zat::Ptr<T>& p) {
    return p ? Zat::toText(p) : "-";
  }
  template <class T>
  static std::string text(const std::optional<T>& v) {
    return v ? Zat::toText(*v) : "-";
  }

  // Everything tracking may change, as text.
  std::string snapshot() const {
    std::ostringstream os;
    std::set<IntfId> ids(kEthIds.begin(), kEthIds.end());
    ids.insert(kCpuIds.begin(), kCpuIds.end());
    ids.insert(kVlanSetIds.begin(), kVlanSetIds.end());
    for (IntfId id : ids) {
      os << id << ": port " << text(root->portCountersSm(id)) << " queue "
         << text(root->intfQueueCountersSm(id)) << " acl " << text(root->intfAclDropCountersSm(id))
         << " cpu " << text(root->cpuPortCountersSm(id)) << " vlan "
         << text(root->vlanIntfCountersSm(id)) << " wc " << text(set.writerConfig->intf(id))
         << " adc " << text(set.aclDropConfig->intf(id)) << " ews "
         << text(set.ethIntfCounterWriterStatus->intf(id)) << " vws "
         << text(set.vlanIntfCounterWriterStatus->intf(id));
      if (auto port = root->portCountersSm(id)) os << " period " << port->counterPollPeriod();
      if (in.allIntfCounters->hasCounter(id)) os << " row " << in.allIntfCounters->counter(id);
      if (in.allIntfClearCounters->hasCounter(id)) {
        os << " clear " << in.allIntfClearCounters->counter(id);
      }
      if (in.intfAclDropCountersDir->hasCounter(id)) {
        os << " drop " << in.intfAclDropCountersDir->counter(id);
      }
      if (in.allIntfQueueCounters->hasCounter(id)) os << " queueRow";
      if (set.allVlanIntfCounters->hasCounter(id)) {
        os << " vrow " << set.allVlanIntfCounters->counter(id);
      }
      os << "\n";
    }
    return os.str();
  }

  // One random change of the inputs; the root hears it through its reactors.
  std::string step(std::mt19937& rng) {
    auto pick = [&](const std::vector<IntfId>& ids) {
      return ids[std::uniform_int_distribution<size_t>(0, ids.size() - 1)(rng)];
    };
    const int kind = std::uniform_int_distribution<int>(0, 7)(rng);
    const int value = std::uniform_int_distribution<int>(0, 2)(rng);  // 0 false, 1 true, 2 del
    std::ostringstream what;
    switch (kind) {
      case 0:
      case 1: {
        IntfId id = pick(kEthIds);
        what << "intf " << id << " " << value;
        if (value == 2) {
          in.vcsd->intfDel(id);
        } else {
          in.vcsd->intfIs(id, value == 1);
        }
        break;
      }
      case 2: {
        IntfId id = pick(kEthIds);
        what << "ethConfig " << id;
        if (in.ethPhyIntfConfigDir->intfConfig(id)) {
          in.ethPhyIntfConfigDir->intfConfigDel(id);
        } else {
          in.ethPhyIntfConfigDir->intfConfigIs(id);
        }
        break;
      }
      case 3: {
        IntfId id = pick(kEthIds);
        what << "ethStatus " << id;
        if (in.ethPhyIntfStatusDir->intfStatus(id)) {
          in.ethPhyIntfStatusDir->intfStatusDel(id);
        } else {
          in.ethPhyIntfStatusDir->intfStatusIs(id);
        }
        break;
      }
      case 4: {
        IntfId id = pick(kCpuIds);
        what << "cpuIntf " << id << " " << value;
        if (value == 2) {
          in.vcsd->cpuIntfDel(id);
        } else {
          in.vcsd->cpuIntfIs(id, value == 1);
        }
        break;
      }
      case 5: {
        IntfId id = pick(kVlanSetIds);
        what << "vlanIntf " << id << " " << value;
        if (value == 2) {
          in.vcsd->vlanIntfDel(id);
        } else {
          in.vcsd->vlanIntfIs(id, value == 1);
        }
        break;
      }
      case 6: {
        IntfId id = pick(kVlanSetIds);
        what << "vlanConfig " << id;
        if (in.vlanIntfConfigDir->intfConfig(id)) {
          in.vlanIntfConfigDir->intfConfigDel(id);
        } else {
          in.vlanIntfConfigDir->intfConfigIs(id);
        }
        break;
      }
      default: {
        IntfId id = pick(kVlanSetIds);
        what << "vlanStatus " << id;
        if (in.vlanIntfStatusDir->intfStatus(id)) {
          in.vlanIntfStatusDir->intfStatusDel(id);
        } else {
          in.vlanIntfStatusDir->intfStatusIs(id);
        }
        break;
      }
    }
    return what.str();
  }

  static bool wanted(const Vorn::VornCommonSmData::IntfSet& s, IntfId id) {
    const bool* v = s.find(id);
    return v && *v;
  }

  // The tracking invariants, given the inputs and the row history.
  void checkInvariants(const std::string& where) {
    for (IntfId id : kEthIds) {
      SCOPED_TRACE(where + " " + id.stringValue());
      const bool objects =
          in.ethPhyIntfConfigDir->intfConfig(id) && in.ethPhyIntfStatusDir->intfStatus(id);
      const bool served = wanted(in.vcsd->intf(), id) && objects;
      if (served) {
        rowExpected_[id] = true;
        if (aclSupported_) aclRowExpected_.insert(id);
      } else if (!objects) {
        rowExpected_[id] = false;
      }
      EXPECT_EQ(root->portCountersSm(id) != nullptr, served);
      EXPECT_EQ(root->intfQueueCountersSm(id) != nullptr, served);
      EXPECT_EQ(root->intfAclDropCountersSm(id) != nullptr, served && aclSupported_);
      EXPECT_EQ(set.writerConfig->contains(id), served);
      EXPECT_EQ(set.aclDropConfig->intf(id), std::optional<bool>(served));
      EXPECT_EQ(in.allIntfCounters->hasCounter(id), rowExpected_[id]);
      EXPECT_EQ(in.allIntfClearCounters->hasCounter(id), rowExpected_[id]);
      EXPECT_EQ(set.ethIntfCounterWriterStatus->intf(id),
                rowExpected_[id] ? std::optional<bool>(true) : std::nullopt);
      EXPECT_EQ(in.intfAclDropCountersDir->hasCounter(id), aclRowExpected_.count(id) == 1);
      if (served) {
        EXPECT_EQ(helper().count("intfCountersInit(" + id.stringValue() + ")") -
                      helper().count("intfCountersCleanup(" + id.stringValue() + ")"),
                  1u);
      }
    }
    for (IntfId id : kCpuIds) {
      SCOPED_TRACE(where + " " + id.stringValue());
      EXPECT_EQ(root->cpuPortCountersSm(id) != nullptr, wanted(in.vcsd->cpuIntf(), id));
    }
    for (IntfId id : kVlanSetIds) {
      SCOPED_TRACE(where + " " + id.stringValue());
      const bool served = Orvo::VlanIntfId::isVlanIntfId(id) && wanted(in.vcsd->vlanIntf(), id) &&
                          in.vlanIntfConfigDir->intfConfig(id) &&
                          in.vlanIntfStatusDir->intfStatus(id) &&
                          !(refuseVlan_ && id == kRefusedVlan);
      EXPECT_EQ(root->vlanIntfCountersSm(id) != nullptr, served);
      EXPECT_EQ(set.vlanIntfCounterWriterStatus->contains(id), served);
      if (Orvo::VlanIntfId::isVlanIntfId(id)) {
        EXPECT_EQ(set.allVlanIntfCounters->hasCounter(id), served);
      }
    }
  }

  // Calls `handler` twice: neither call changes anything, and neither asks the
  // helper more than its yes-or-no questions.
  void checkTwice(const std::string& where, const std::function<void()>& handler) {
    const std::string before = snapshot();
    const size_t mark = helper().calls.size();
    handler();
    const std::string once = snapshot();
    handler();
    const std::string twice = snapshot();
    EXPECT_EQ(once, before) << where;
    EXPECT_EQ(twice, once) << where;
    for (size_t i = mark; i < helper().calls.size(); ++i) {
      const std::string& call = helper().calls[i];
      EXPECT_TRUE(call == "aclDropCountersSupported" ||
                  call.rfind("vlanIntfCountersSupported(", 0) == 0)
          << where << ": " << call;
    }
  }

  void runSequence(unsigned seed, int steps) {
    std::mt19937 rng(seed);
    aclSupported_ = seed % 2 == 0;
    refuseVlan_ = seed % 3 == 0;
    helper().aclSupported = aclSupported_;
    if (refuseVlan_) helper().vlanIntfRefused.insert(kRefusedVlan);
    initializedRootIs();
    // The first evaluation of every Ethernet id registers it as not served.
    for (IntfId id : kEthIds) root->handleIntf(id);
    for (int i = 0; i < steps; ++i) {
      const std::string where =
          "seed " + std::to_string(seed) + " step " + std::to_string(i) + " (" + step(rng) + ")";
      checkInvariants(where);
      for (IntfId id : kEthIds) checkTwice(where + " handleIntf", [&] { root->handleIntf(id); });
      for (IntfId id : kCpuIds) {
        checkTwice(where + " handleCpuIntf", [&] { root->handleCpuIntf(id); });
      }
      for (IntfId id : kVlanSetIds) {
        checkTwice(where + " handleVlanIntf", [&] { root->handleVlanIntf(id); });
      }
      if (HasFailure()) return;
    }
    // The full passes change nothing either.
    checkTwice("full passes", [&] {
      root->handleIntf();
      root->handleCpuIntf();
      root->handleVlanIntf();
    });
  }

  bool aclSupported_ = true;
  bool refuseVlan_ = false;
  std::map<IntfId, bool> rowExpected_;
  std::set<IntfId> aclRowExpected_;
};

// Each seed is its own fixture instance: fresh inputs, tables and root.
class RootIdempotenceSeeded : public RootIdempotence,
                              public ::testing::WithParamInterface<unsigned> {};

TEST_P(RootIdempotenceSeeded, EvaluatingAnInterfaceAgainChangesNothingAndTheInvariantsHold) {
  runSequence(GetParam(), 60);
}

INSTANTIATE_TEST_SUITE_P(FixedSeeds, RootIdempotenceSeeded, ::testing::Range(1u, 31u));

}  // namespace
