// The agent's integration fixture, built into this test program as well: each
// test directory links only its own sources.
#include "agent/integration/AgentFixture.cpp"
