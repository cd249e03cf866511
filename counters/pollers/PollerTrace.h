// Handler entry tracing of the interface counter pollers.
//
// Like VORN_HANDLER, but the text line at level 8 carries a labelled key
// ("<signature> intfId: Ethernet3"), which is how the pollers' entries read in
// the text trace. A statement that declares locals: use it once per scope.
#pragma once

#include "counters/Conventions.h"

#define VORN_POLLER_HANDLER(signature, label, key) \
  NIMLOG_HANDLER(VORN_COUNTERS_MODULE, signature); \
  VORN_TRACE(8, signature << label << (key))

// The binary record and block timer only, for handlers whose text line is
// written later (after their initialized test) or not at all.
#define VORN_POLLER_RECORD(signature) NIMLOG_HANDLER(VORN_COUNTERS_MODULE, signature)
