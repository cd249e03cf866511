// Nimlog: the fast binary trace and the handler block timers, in one include.
//
// Every handler of the counters component opens with
//   NIMLOG_HANDLER("VornCountersSm", "void Vorn::Counters::PortCountersSm::handleTime()");
// which writes a trace record for the site (when a trace file is open) and measures the
// rest of the handler under the signature's name.
#pragma once

#include "nimlog/BlockTimer.h"
#include "nimlog/Clock.h"
#include "nimlog/TraceFile.h"

// Block timer plus trace record for a handler's entry. `module` and `signature` are
// string constants; up to four integer arguments go into the record. The record reads
// the trace clock only while a trace file is open: the timer runs on ticks, which
// are no time of day. A statement: it declares local names, so use it once per scope.
#define NIMLOG_HANDLER(module, signature, ...) \
  NIMLOG_BLOCK_TIMER(signature);               \
  NIMLOG_RECORD(module, signature __VA_OPT__(, ) __VA_ARGS__)
