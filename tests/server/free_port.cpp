#include "free_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace vu::testing {

namespace {

// Both they and those 10000 above them are below 32768, where outgoing connections begin.
constexpr int kFirstPort = 20'000;
constexpr int kPorts = 2'700;
constexpr int kToTheBus = 10'000;

// Whoever has the abstract socket of a port's name has the port: such a name is known wherever the
// port is, and goes with its process. tests/support/free_port.py uses the same names.
bool take(int port) {
  const std::string name = "vu_mom test port " + std::to_string(port);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::ranges::copy(name, address.sun_path + 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0) return true;
  close(fd);
  return false;
}

bool is_free(int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool is_bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  close(fd);
  return is_bound;
}

}  // namespace

std::uint16_t free_port() {
  const int first = getpid() % kPorts;
  for (int i = 0; i < kPorts; ++i) {
    const int port = kFirstPort + (first + i) % kPorts;
    if (take(port) && is_free(port) && is_free(port + kToTheBus)) {
      return static_cast<std::uint16_t>(port);
    }
  }
  throw std::runtime_error("no free port");
}

}  // namespace vu::testing
