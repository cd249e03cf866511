// Conventions shared by every counters state machine.
//
// Each handler opens with VORN_HANDLER: one binary trace record (module
// "VornCountersSm", the line and the handler's signature), a block timer that
// measures the handler, and at text trace level 8 the signature with its key.
// Decisions inside handlers trace at levels 6 and 7 with VORN_TRACE.
#pragma once

#include "nimlog/Nimlog.h"
#include "zat/Trace.h"

#define VORN_COUNTERS_MODULE "VornCountersSm"

// Handler entry without a key.
#define VORN_HANDLER(signature)                    \
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE, signature); \
  ZAT_TRACE(VORN_COUNTERS_MODULE, 8, signature)

// Handler entry with a key printed by its stream operator.
#define VORN_HANDLER_KEY(signature, key)           \
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE, signature); \
  ZAT_TRACE(VORN_COUNTERS_MODULE, 8, signature << " " << (key))

#define VORN_TRACE(level, expr) ZAT_TRACE(VORN_COUNTERS_MODULE, level, expr)
