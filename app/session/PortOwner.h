#pragma once

#include <cstdint>
#include <string>

namespace gk::app {

/// Who listens at a TCP port of this machine: "gk run night.csv (process 1234)". Empty when the
/// system does not tell, as of processes of other users (proc(5): /proc/net/tcp, /proc/PID/fd).
std::string ownerOfPort(std::uint16_t port);

} // namespace gk::app
