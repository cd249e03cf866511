// The component's version, exported so an agent can log what it loaded.
extern "C" const char* vornCountersVersion() { return "vorn-counters 0.1"; }
