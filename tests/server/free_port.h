// Ports of this machine for servers of a test's own.
#pragma once

#include <cstdint>

namespace vu::testing {

// A port that nobody listens on, nor on the one 10000 above it, which a member of a cluster uses
// too. It is this process' own until it ends: no test of another process gets it, and it is below
// those that the system gives to outgoing connections.
std::uint16_t free_port();

}  // namespace vu::testing
