#include "proxy.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

namespace vu::testing {

namespace {

sockaddr_un address_of(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof(address.sun_path) - 1));
  return address;
}

bool send_all(int to, const char* bytes, std::size_t size) {
  while (size != 0) {
    const ssize_t sent = send(to, bytes, size, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

}  // namespace

Proxy::Proxy(const std::string& server)
    : socket_(directory_.path() + "/proxy.sock"),
      server_(server),
      listener_(socket(AF_UNIX, SOCK_STREAM, 0)) {
  const sockaddr_un address = address_of(socket_);
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      listen(listener_, 16) != 0) {
    throw std::runtime_error("no socket for the proxy");
  }
  thread_ = std::thread([this] { accept_all(); });
}

Proxy::~Proxy() {
  is_ending_ = true;
  thread_.join();
  while (serving_ != 0) sleep_ms(1);
  close(listener_);
}

void Proxy::harm(Harm harm, std::size_t after) {
  left_ = after;
  harm_ = harm;
}

void Proxy::accept_all() {
  while (!is_ending_) {
    pollfd waiting = {listener_, POLLIN, 0};
    if (poll(&waiting, 1, 20) != 1) continue;
    const int client = accept(listener_, nullptr, nullptr);
    if (client < 0) continue;
    ++connections_;
    ++serving_;
    std::thread([this, client] {
      serve(client);
      --serving_;
    }).detach();
  }
}

void Proxy::serve(int client) {
  const int server = socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = address_of(server_);
  bool is_open = connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  while (is_open && !is_ending_) {
    if (harm_ == Harm::kBlackHole) {
      sleep_ms(5);
      continue;
    }
    std::array<pollfd, 2> waiting = {{{client, POLLIN, 0}, {server, POLLIN, 0}}};
    if (poll(waiting.data(), waiting.size(), 20) <= 0) continue;
    if (harm_ == Harm::kBlackHole) continue;
    if (waiting[0].revents != 0) is_open = pass(client, server, false);
    if (is_open && waiting[1].revents != 0) is_open = pass(server, client, true);
  }
  close(client);
  close(server);
}

bool Proxy::pass(int from, int to, bool is_reply) {
  std::array<char, 65536> buffer = {};
  const ssize_t size = recv(from, buffer.data(), buffer.size(), 0);
  if (size <= 0) return false;
  auto got = static_cast<std::size_t>(size);
  const Harm harm = harm_;
  if (!is_reply || harm == Harm::kNone) return send_all(to, buffer.data(), got);
  if (harm == Harm::kTrickle) {
    for (std::size_t i = 0; i < got && !is_ending_; ++i) {
      if (!send_all(to, buffer.data() + i, 1)) return false;
      sleep_ms(1);
    }
    return true;
  }
  const std::size_t good = std::min<std::size_t>(left_, got);
  left_ -= good;
  if (!send_all(to, buffer.data(), good)) return false;
  if (good == got) return true;
  if (harm == Harm::kReset) return false;
  std::fill(buffer.begin(), buffer.end(), '\xa5');
  return send_all(to, buffer.data(), got - good);
}

}  // namespace vu::testing
