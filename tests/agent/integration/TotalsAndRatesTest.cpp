// The agent on the real clock publishes totals that grow as the simulated
// traffic says, and rates that converge to that traffic over the load interval.
#include <cmath>

#include "AgentFixture.h"
#include "agent/platforms/sim/SimChipState.h"

namespace SimIt {
namespace {

using Interface::EthIntfCounterBrim;
using Interface::QueueCounter::IntfQueueCounter;
using Interface::QueueCounter::QueueIndex;

// The agent's short load interval (set by the simulated switch for demonstrations).
constexpr double kLoadInterval = 5.0;
// The ACL drop poller keeps its own default interval.
constexpr double kAclPollInterval = 2.0;

// `count`, published for a poll at `published` seconds, against a chip that has
// counted `rate` per second since `powerOn`. The reading is taken a moment after
// the poll's timestamp; 20 ms covers a handler being preempted in between.
void expectCountAt(const std::string& what, uint64_t count, double rate, double powerOn,
                   double published) {
  EXPECT_NEAR(static_cast<double>(count), rate * (published - powerOn), rate * 0.02 + 2) << what;
}

// Growth between two reads of the test's clock `wallSpan` apart: each read sees
// the last poll, at most one poll period (plus scheduling slack) old.
void expectGrowthWithinPollPeriod(const std::string& what, uint64_t before, uint64_t after,
                                  double rate, double wallSpan, double period) {
  double grown = static_cast<double>(after - before);
  EXPECT_GE(grown, rate * (wallSpan - period - kSlack) - 2) << what;
  EXPECT_LE(grown, rate * (wallSpan + period + kSlack) + 2) << what;
}

class TotalsAndRatesTest : public AgentTest {
 protected:
  double powerOnTime() {
    auto state = rowOf<Sim::SimChipState>(ns, Sim::kSimChipStateTable, Sim::SimChipState::kKey);
    EXPECT_TRUE(state.has_value()) << "the agent publishes its chip's power-on time";
    return state ? state->powerOnTime : 0;
  }
};

TEST_F(TotalsAndRatesTest, PortTotalsGrowAsTheSimulatedTrafficSays) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5)) << "no port was polled within 5 s";
  double powerOn = powerOnTime();

  auto first = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  double wall1 = wallNow();
  sleepFor(2.0);
  auto second = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
  double wall2 = wallNow();

  ASSERT_EQ(second.size(), ports.size());
  for (Orvo::IntfId id : ports) {
    const std::string port = id.stringValue();
    SCOPED_TRACE(port);
    auto tr = expect->traffic(id);
    const auto& a = first.at(id).statistics();
    const auto& b = second.at(id).statistics();
    // The published timestamp is the poll's, at most one period behind.
    EXPECT_GT(b.statsUpdateTime(), a.statsUpdateTime());
    EXPECT_LE(b.statsUpdateTime(), wall2 + 0.05);
    EXPECT_GE(b.statsUpdateTime(), wall2 - kPollPeriod - kSlack);

    struct Counter {
      const char* name;
      uint64_t a, b;
      double rate;
    } counters[] = {
        {"inOctets", a.inOctets(), b.inOctets(), tr.inPps * tr.avgPacketBytes},
        {"inUcastPkts", a.inUcastPkts(), b.inUcastPkts(), tr.inPps * 0.90},
        {"inMulticastPkts", a.inMulticastPkts(), b.inMulticastPkts(), tr.inPps * 0.08},
        {"outOctets", a.outOctets(), b.outOctets(), tr.outPps * tr.avgPacketBytes},
        {"outUcastPkts", a.outUcastPkts(), b.outUcastPkts(), tr.outPps * 0.90},
        {"outBroadcastPkts", a.outBroadcastPkts(), b.outBroadcastPkts(), tr.outPps * 0.02},
    };
    for (const auto& c : counters) {
      // Running totals: everything the chip counted since it was powered on.
      expectCountAt(port + " " + c.name, c.b, c.rate, powerOn, b.statsUpdateTime());
      // Between two polls: the rate times the time between them.
      EXPECT_NEAR(static_cast<double>(c.b - c.a),
                  c.rate * (b.statsUpdateTime() - a.statsUpdateTime()), c.rate * 0.04 + 2)
          << c.name;
      // Seen from this process's clock: within a poll period.
      expectGrowthWithinPollPeriod(port + " " + c.name, c.a, c.b, c.rate, wall2 - wall1,
                                   kPollPeriod);
    }
    // Error counters grow too, and their sums hold in the published totals.
    const auto& e = second.at(id).ethStatistics();
    EXPECT_EQ(b.inErrors(), e.alignmentErrors() + e.fcsErrors() + e.frameTooLongs() +
                                e.frameTooShorts() + e.internalMacReceiveErrors());
    EXPECT_EQ(b.outErrors(), e.sqeTestErrors() + e.lateCollisions() + e.excessiveCollisions() +
                                 e.internalMacTransmitErrors() + e.carrierSenseErrors());
  }
}

TEST_F(TotalsAndRatesTest, QueueAclVlanAndVlanInterfaceTotalsGrowAsTrafficSays) {
  startAgent();
  ASSERT_TRUE(waitForPortPolls(0, 5));
  ASSERT_TRUE(waitUntil(
      [&] {
        auto v = rowsOf<Brim::Bridging::VlanCounter>(ns, TableNames::kVlanCounterDir);
        return v.size() == 4 && v.begin()->second.timestamp() > 0;
      },
      5));
  double powerOn = powerOnTime();

  auto q1 = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  auto v1 = rowsOf<Brim::Bridging::VlanCounter>(ns, TableNames::kVlanCounterDir);
  auto vi1 = rowsOf<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
  sleepFor(2.0);
  auto q2 = rowsOf<IntfQueueCounter>(ns, TableNames::kAllIntfQueueCounters);
  auto v2 = rowsOf<Brim::Bridging::VlanCounter>(ns, TableNames::kVlanCounterDir);
  auto vi2 = rowsOf<Interface::VlanIntfCounterBrim>(ns, TableNames::kAllVlanIntfCounters);
  auto acl = rowsOf<Brim::Interface::DropCounter>(ns, TableNames::kIntfAclDropCountersDir);
  double wall = wallNow();

  // Egress queues: all queues together carry the port's transmit traffic; the
  // published octets leave out the 20 octets of line overhead per packet.
  ASSERT_EQ(q2.size(), ports.size());
  for (Orvo::IntfId id : ports) {
    SCOPED_TRACE(id.stringValue());
    auto tr = expect->traffic(id);
    const IntfQueueCounter& a = q1.at(id);
    const IntfQueueCounter& b = q2.at(id);
    ASSERT_EQ(b.intfQueueStatArray().storedCount(), 4u);
    double pkts = 0, octets = 0, totalPkts = 0;
    for (uint8_t q = 0; q < 4; ++q) {
      pkts += static_cast<double>(b.intfQueueStat(QueueIndex(q)).txPkts() -
                                  a.intfQueueStat(QueueIndex(q)).txPkts());
      octets += static_cast<double>(b.intfQueueStat(QueueIndex(q)).txOctets() -
                                    a.intfQueueStat(QueueIndex(q)).txOctets());
      totalPkts += static_cast<double>(b.intfQueueStat(QueueIndex(q)).txPkts());
    }
    double span = b.lastUpdateTime() - a.lastUpdateTime();
    EXPECT_GT(span, 1.0);
    EXPECT_NEAR(pkts, tr.outPps * span, tr.outPps * 0.04 + 8);
    EXPECT_NEAR(octets, pkts * tr.avgPacketBytes, 4 * (tr.avgPacketBytes + 20) + 8);
    expectCountAt("queue packets", static_cast<uint64_t>(totalPkts), tr.outPps, powerOn,
                  b.lastUpdateTime());

    // ACL drops: the chip's absolute count, polled on the poller's own interval.
    ASSERT_TRUE(acl.count(id));
    double aclRate = tr.inPps * 5e-5;
    double count = static_cast<double>(acl.at(id).dropCount());
    EXPECT_LE(count, aclRate * (wall - powerOn) + 2);
    EXPECT_GE(count, aclRate * (wall - powerOn - kAclPollInterval - kSlack) - 2);
  }

  // VLANs: each counter grows by its rate times the time between the polls.
  ASSERT_EQ(v2.size(), 4u);
  for (uint16_t vlan = 1; vlan <= 4; ++vlan) {
    SCOPED_TRACE("VLAN " + std::to_string(vlan));
    auto rates = vlanRates(vlan);
    const auto& a = v1.at(vlan);
    const auto& b = v2.at(vlan);
    double span = b.timestamp() - a.timestamp();
    EXPECT_GT(span, 1.0);
    for (size_t i = 0; i < Brim::Bridging::VlanCounter::kCounterCount; ++i) {
      EXPECT_NEAR(static_cast<double>(b.counter(i) - a.counter(i)), rates[i] * span,
                  rates[i] * 0.04 + 2)
          << Brim::Bridging::VlanCounter::counterName(i);
    }
  }

  // Routed VLAN interfaces: totals of everything the chip counted.
  ASSERT_EQ(vi2.size(), 2u);
  for (Orvo::IntfId id : expect->vlanIntfs()) {
    SCOPED_TRACE(id.stringValue());
    auto tr = expect->traffic(id);
    const auto& a = vi1.at(id).statistics();
    const auto& b = vi2.at(id).statistics();
    double rate = tr.inPps * tr.avgPacketBytes;
    expectCountAt("inOctets", b.inOctets(), rate, powerOn, b.statsUpdateTime());
    EXPECT_NEAR(static_cast<double>(b.inOctets() - a.inOctets()),
                rate * (b.statsUpdateTime() - a.statsUpdateTime()), rate * 0.04 + 2);
  }
}

TEST_F(TotalsAndRatesTest, RatesMatchTheConfiguredTrafficFromTheSecondPollOn) {
  startAgent();
  // A port's first poll only starts its rate clock; from the second poll on the
  // moving average holds the traffic's rate (the first sample counts in full).
  ASSERT_TRUE(waitUntil(
      [&] {
        for (const auto& [id, row] : rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters)) {
          if (row.rates().sampleCount() == 0) return false;
        }
        return true;
      },
      5));

  for (double wait : {0.0, 1.0, 2.0}) {
    sleepFor(wait);
    auto rows = rowsOf<EthIntfCounterBrim>(ns, TableNames::kAllIntfCounters);
    for (Orvo::IntfId id : ports) {
      SCOPED_TRACE(id.stringValue());
      auto tr = expect->traffic(id);
      const auto& r = rows.at(id).rates();
      struct {
        const char* name;
        double value, target;
      } checks[] = {
          {"inBitsRate", r.inBitsRate(), 8 * tr.inPps * tr.avgPacketBytes},
          {"inPktsRate", r.inPktsRate(), tr.inPps},
          {"outBitsRate", r.outBitsRate(), 8 * tr.outPps * tr.avgPacketBytes},
          {"outPktsRate", r.outPktsRate(), tr.outPps},
      };
      for (const auto& c : checks) {
        // Polls land a few milliseconds late under load; whole counts round down.
        EXPECT_NEAR(c.value, c.target, c.target * 0.05) << c.name;
      }
    }
  }

  // The reader command shows the same rates.
  auto shown = ctlJson({"interfaces", "counters", "rates", "Ethernet1"});
  ASSERT_TRUE(shown.is_array());
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0]["interface"], "Ethernet1");
  auto tr = expect->traffic(Orvo::IntfId("Ethernet1"));
  EXPECT_NEAR(shown[0]["inBitsRate"].get<double>(), 8 * tr.inPps * tr.avgPacketBytes,
              8 * tr.inPps * tr.avgPacketBytes * 0.05);
}

}  // namespace
}  // namespace SimIt
