#include "tools/vorn-snmp-subagent/MibServer.h"

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "tools/vorn-snmp-subagent/MibWalk.h"

namespace Snmp {

namespace {

// One value of a cell, before it is put into a variable binding.
struct Value {
  u_char type = ASN_NULL;
  long integer = 0;
  uint64_t wide = 0;
  std::string_view text;
};

// Fills `v` for the row; false when the row has no value in this column.
using Getter = bool (*)(const IntfRow&, Value&);

struct Column {
  uint32_t number;
  Getter get;
};

uint32_t low32(uint64_t v) { return static_cast<uint32_t>(v); }

bool integer(Value& v, u_char type, long x) {
  v.type = type;
  v.integer = x;
  return true;
}
bool counter32(Value& v, uint64_t total) { return integer(v, ASN_COUNTER, low32(total)); }
bool counterHc(Value& v, uint64_t total) {
  v.type = ASN_COUNTER64;
  v.wide = total;
  return true;
}
bool text(Value& v, std::string_view s) {
  v.type = ASN_OCTET_STR;
  v.text = s;
  return true;
}
bool optional32(Value& v, Pell::MaybeU63 c) { return c.hasValue() && counter32(v, c.value()); }
bool optional64(Value& v, Pell::MaybeU63 c) { return c.hasValue() && counterHc(v, c.value()); }

// ifSpeed saturates at its 32-bit maximum; ifHighSpeed carries larger speeds in Mb/s.
long ifSpeed(const IntfRow& r) {
  return static_cast<long>(std::min<uint64_t>(r.speedBps, UINT32_MAX));
}
long ifHighSpeed(const IntfRow& r) {
  return static_cast<long>(std::min<uint64_t>((r.speedBps + 500000) / 1000000, UINT32_MAX));
}

constexpr long kAdminUp = 1;
constexpr long kTruthTrue = 1, kTruthFalse = 2;
constexpr long kLinkTrapDisabled = 2;

// ifTable. ifMtu and the deprecated columns (ifInNUcastPkts, ifOutNUcastPkts,
// ifOutQLen, ifSpecific) are not served: the tables carry nothing for them.
const Column kIfColumns[] = {
    {1, [](const IntfRow& r, Value& v) { return integer(v, ASN_INTEGER, r.ifIndex); }},
    {2, [](const IntfRow& r, Value& v) { return text(v, r.descr); }},
    {3, [](const IntfRow& r, Value& v) { return integer(v, ASN_INTEGER, r.ifType); }},
    {5, [](const IntfRow& r, Value& v) { return integer(v, ASN_GAUGE, ifSpeed(r)); }},
    {6, [](const IntfRow&, Value& v) { return text(v, {}); }},
    {7, [](const IntfRow&, Value& v) { return integer(v, ASN_INTEGER, kAdminUp); }},
    {8, [](const IntfRow& r, Value& v) { return integer(v, ASN_INTEGER, r.operStatus); }},
    {9, [](const IntfRow& r, Value& v) { return integer(v, ASN_TIMETICKS, r.lastChange); }},
    {10, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inOctets()); }},
    {11, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inUcastPkts()); }},
    {13, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inDiscards()); }},
    {14, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inErrors()); }},
    {15, [](const IntfRow& r, Value& v) { return optional32(v, r.stats.inUnknownProtos()); }},
    {16, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.outOctets()); }},
    {17, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.outUcastPkts()); }},
    {19, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.outDiscards()); }},
    {20, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.outErrors()); }},
};

// ifXTable: every column.
const Column kIfXColumns[] = {
    {1, [](const IntfRow& r, Value& v) { return text(v, r.name); }},
    {2, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inMulticastPkts()); }},
    {3, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.inBroadcastPkts()); }},
    {4, [](const IntfRow& r, Value& v) { return optional32(v, r.stats.outMulticastPkts()); }},
    {5, [](const IntfRow& r, Value& v) { return counter32(v, r.stats.outBroadcastPkts()); }},
    {6, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.inOctets()); }},
    {7, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.inUcastPkts()); }},
    {8, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.inMulticastPkts()); }},
    {9, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.inBroadcastPkts()); }},
    {10, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.outOctets()); }},
    {11, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.outUcastPkts()); }},
    {12, [](const IntfRow& r, Value& v) { return optional64(v, r.stats.outMulticastPkts()); }},
    {13, [](const IntfRow& r, Value& v) { return counterHc(v, r.stats.outBroadcastPkts()); }},
    {14, [](const IntfRow&, Value& v) { return integer(v, ASN_INTEGER, kLinkTrapDisabled); }},
    {15, [](const IntfRow& r, Value& v) { return integer(v, ASN_GAUGE, ifHighSpeed(r)); }},
    {16, [](const IntfRow&, Value& v) { return integer(v, ASN_INTEGER, kTruthFalse); }},
    {17,
     [](const IntfRow& r, Value& v) {
       return integer(v, ASN_INTEGER, r.ifType == kIfTypeEthernet ? kTruthTrue : kTruthFalse);
     }},
    {18, [](const IntfRow&, Value& v) { return text(v, {}); }},
    {19, [](const IntfRow& r, Value& v) { return integer(v, ASN_TIMETICKS, r.discontinuity); }},
};

#define VORN_ETH32(number, field)                                                              \
  {                                                                                            \
    number, [](const IntfRow& r, Value& v) { return r.hasEth && counter32(v, r.eth.field()); } \
  }
#define VORN_ETH64(number, field)                                                              \
  {                                                                                            \
    number, [](const IntfRow& r, Value& v) { return r.hasEth && counterHc(v, r.eth.field()); } \
  }

// dot3StatsTable: the columns the Ethernet error breakdown provides.
const Column kDot3Columns[] = {
    {1, [](const IntfRow& r, Value& v) { return r.hasEth && integer(v, ASN_INTEGER, r.ifIndex); }},
    VORN_ETH32(2, alignmentErrors),
    VORN_ETH32(3, fcsErrors),
    VORN_ETH32(4, singleCollisionFrames),
    VORN_ETH32(5, multipleCollisionFrames),
    VORN_ETH32(6, sqeTestErrors),
    VORN_ETH32(7, deferredTransmissions),
    VORN_ETH32(8, lateCollisions),
    VORN_ETH32(9, excessiveCollisions),
    VORN_ETH32(10, internalMacTransmitErrors),
    VORN_ETH32(11, carrierSenseErrors),
    VORN_ETH32(13, frameTooLongs),
    VORN_ETH32(16, internalMacReceiveErrors),
    VORN_ETH32(18, symbolErrors),
};

// dot3HCStatsTable: the 64-bit forms of the error counters that have one.
const Column kDot3HcColumns[] = {
    VORN_ETH64(1, alignmentErrors),           VORN_ETH64(2, fcsErrors),
    VORN_ETH64(3, internalMacTransmitErrors), VORN_ETH64(4, frameTooLongs),
    VORN_ETH64(5, internalMacReceiveErrors),  VORN_ETH64(6, symbolErrors),
};

#undef VORN_ETH32
#undef VORN_ETH64

void setValue(netsnmp_variable_list* vb, const Value& v) {
  switch (v.type) {
    case ASN_COUNTER64: {
      struct counter64 c;
      c.high = static_cast<u_long>(v.wide >> 32);
      c.low = static_cast<u_long>(v.wide & 0xFFFFFFFFu);
      snmp_set_var_typed_value(vb, ASN_COUNTER64, &c, sizeof c);
      break;
    }
    case ASN_OCTET_STR:
      snmp_set_var_typed_value(vb, ASN_OCTET_STR, v.text.data(), v.text.size());
      break;
    default:
      snmp_set_var_typed_integer(vb, v.type, v.integer);
      break;
  }
}

}  // namespace

struct MibTable {
  const char* name;
  std::vector<oid> entry;  // <table>.1
  std::vector<uint32_t> numbers;
  std::vector<Getter> getters;
  MibServer* server;

  MibTable(const char* n, std::initializer_list<oid> table, std::span<const Column> columns,
           MibServer* s)
      : name(n), entry(table), server(s) {
    entry.push_back(1);
    for (const Column& c : columns) {
      numbers.push_back(c.number);
      getters.push_back(c.get);
    }
  }

  static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                    netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
    auto* self = static_cast<MibTable*>(handler->myvoid);
    const Sample& sample = self->server->sample();
    std::span<const oid> entry(self->entry);
    std::span<const uint32_t> numbers(self->numbers);
    Value value;
    auto has = [&](size_t c, const IntfRow& row) { return self->getters[c](row, value); };
    for (netsnmp_request_info* req = requests; req; req = req->next) {
      if (req->processed) continue;
      netsnmp_variable_list* vb = req->requestvb;
      std::span<const oid> asked(vb->name, vb->name_length);
      switch (reqinfo->mode) {
        case MODE_GET: {
          auto cell = exactCell(entry, asked, numbers, sample, has);
          if (!cell) {
            netsnmp_set_request_error(reqinfo, req, SNMP_NOSUCHINSTANCE);
            break;
          }
          setValue(vb, value);
          break;
        }
        case MODE_GETNEXT: {
          auto cell = nextCell(entry, asked, numbers, sample, has);
          // No cell after the request: the variable stays unanswered and the
          // library goes on with the next registered subtree.
          if (!cell) break;
          oid name[MAX_OID_LEN];
          std::copy(entry.begin(), entry.end(), name);
          name[entry.size()] = numbers[cell->column];
          name[entry.size() + 1] = sample.rows[cell->row].ifIndex;
          snmp_set_var_objid(vb, name, entry.size() + 2);
          setValue(vb, value);
          break;
        }
        default:
          netsnmp_set_request_error(reqinfo, req, SNMP_ERR_NOTWRITABLE);
          break;
      }
    }
    return SNMP_ERR_NOERROR;
  }
};

namespace {

MibServer* gScalarServer = nullptr;

int handleIfNumber(netsnmp_mib_handler*, netsnmp_handler_registration*,
                   netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  for (netsnmp_request_info* req = requests; req; req = req->next) {
    if (req->processed) continue;
    if (reqinfo->mode == MODE_GET) {
      long count = static_cast<long>(gScalarServer->sample().rows.size());
      snmp_set_var_typed_integer(req->requestvb, ASN_INTEGER, count);
    } else {
      netsnmp_set_request_error(reqinfo, req, SNMP_ERR_NOTWRITABLE);
    }
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

MibServer::MibServer(Sampler& sampler, MibOptions options, MibClocks clocks)
    : sampler_(sampler), options_(options), clocks_(std::move(clocks)) {}

MibServer::~MibServer() {
  if (gScalarServer == this) gScalarServer = nullptr;
}

const Sample& MibServer::sample() {
  refreshIfOld();
  return sampler_.current();
}

void MibServer::refreshIfOld() {
  double now = clocks_.monotonic();
  if (sampled_ && now - sampledAt_ < options_.maxAge) return;
  sampler_.refresh(clocks_.uptime(), clocks_.wallNow());
  sampled_ = true;
  sampledAt_ = now;
}

bool MibServer::registerAll() {
  tables_.push_back(std::make_unique<MibTable>(
      "ifTable", std::initializer_list<oid>{1, 3, 6, 1, 2, 1, 2, 2}, kIfColumns, this));
  tables_.push_back(std::make_unique<MibTable>(
      "ifXTable", std::initializer_list<oid>{1, 3, 6, 1, 2, 1, 31, 1, 1}, kIfXColumns, this));
  tables_.push_back(std::make_unique<MibTable>(
      "dot3StatsTable", std::initializer_list<oid>{1, 3, 6, 1, 2, 1, 10, 7, 2}, kDot3Columns,
      this));
  tables_.push_back(std::make_unique<MibTable>(
      "dot3HCStatsTable", std::initializer_list<oid>{1, 3, 6, 1, 2, 1, 10, 7, 11}, kDot3HcColumns,
      this));
  bool ok = true;
  for (auto& t : tables_) {
    netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
        t->name, &MibTable::handle, t->entry.data(), t->entry.size() - 1, HANDLER_CAN_RONLY);
    if (!reg) {
      snmp_log(LOG_ERR, "cannot create the registration of %s\n", t->name);
      ok = false;
      continue;
    }
    reg->handler->myvoid = t.get();
    reg->priority = options_.priority;
    if (netsnmp_register_handler(reg) != MIB_REGISTERED_OK) {
      snmp_log(LOG_ERR, "cannot register %s\n", t->name);
      ok = false;
    }
  }
  gScalarServer = this;
  static const oid kIfNumber[] = {1, 3, 6, 1, 2, 1, 2, 1};
  netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
      "ifNumber", handleIfNumber, kIfNumber, OID_LENGTH(kIfNumber), HANDLER_CAN_RONLY);
  if (reg) reg->priority = options_.priority;
  if (!reg || netsnmp_register_scalar(reg) != MIB_REGISTERED_OK) {
    snmp_log(LOG_ERR, "cannot register ifNumber\n");
    ok = false;
  }
  return ok;
}

}  // namespace Snmp
