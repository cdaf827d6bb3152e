#include "connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

namespace vu::store {

namespace {

constexpr const char* kNoMemory = "out of memory";

// One piece for the parser, which moves what is left of its buffer after each kilobyte.
constexpr std::size_t kPiece = std::size_t{4} * 1024;
constexpr std::size_t kReading = 16 * kPiece;
// How much one turn of the loop reads from one server, so that others have theirs.
constexpr std::size_t kMostPerTurn = std::size_t{1} << 20;
// The parser keeps its buffer; one that has held more than this is replaced.
constexpr std::size_t kLargeBuffer = std::size_t{1} << 20;
constexpr std::int64_t kWriteErrorDelay = 10'000;

void set_option(int fd, int level, int option, int value) {
  static_cast<void>(setsockopt(fd, level, option, &value, sizeof(value)));  // good to have
}

}  // namespace

struct Connection::Resolution {
  uv_getaddrinfo_t request;
  Connection* connection;  // null: nobody waits for it any more
};

Connection::Connection(uv_loop_t* loop, Owner& owner)
    : loop_(loop),
      owner_(owner),
      failure_timer_(
          loop,
          [](void* self) {
            auto& connection = *static_cast<Connection*>(self);
            connection.fail(connection.reason_.data());
          },
          this) {}

// ---- Connecting --------------------------------------------------------------------

void Connection::open(const Endpoint& endpoint) noexcept {
  has_more_ = false;
  is_reading_ = true;
  is_write_blocked_ = false;
  if (!endpoint.path.empty()) {
    state_ = State::kConnecting;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (endpoint.path.size() >= sizeof(address.sun_path)) {
      fail_later("the path of the socket is too long");
      return;
    }
    std::memcpy(address.sun_path, endpoint.path.data(), endpoint.path.size());
    begin(reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return;
  }
  try {
    addresses_.clear();
    next_address_ = 0;
    resolve(endpoint);
  } catch (const std::bad_alloc&) {
    fail_later(kNoMemory);
  }
}

void Connection::resolve(const Endpoint& endpoint) {
  sockaddr_storage numeric = {};
  auto& v4 = reinterpret_cast<sockaddr_in&>(numeric);
  auto& v6 = reinterpret_cast<sockaddr_in6&>(numeric);
  if (inet_pton(AF_INET, endpoint.host.c_str(), &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    v4.sin_port = htons(endpoint.port);
  } else if (inet_pton(AF_INET6, endpoint.host.c_str(), &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(endpoint.port);
  }
  if (numeric.ss_family != 0) {
    addresses_.push_back(numeric);
    state_ = State::kConnecting;
    try_next();
    return;
  }
  auto resolution = std::make_unique<Resolution>();
  resolution->connection = this;
  resolution->request.data = resolution.get();
  addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  const int status = uv_getaddrinfo(
      loop_, &resolution->request,
      [](uv_getaddrinfo_t* request, int result, addrinfo* found) {
        const std::unique_ptr<Resolution> done(static_cast<Resolution*>(request->data));
        if (done->connection != nullptr) done->connection->on_resolved(result, found);
        uv_freeaddrinfo(found);
      },
      endpoint.host.c_str(), std::to_string(endpoint.port).c_str(), &hints);
  if (status != 0) {
    fail_later(uv_strerror(status));
    return;
  }
  state_ = State::kResolving;
  resolution_ = resolution.release();
}

void Connection::on_resolved(int status, const addrinfo* found) noexcept {
  resolution_ = nullptr;
  if (status != 0) {
    fail(uv_strerror(status));
    return;
  }
  try {
    for (; found != nullptr; found = found->ai_next) {
      if (found->ai_addrlen > sizeof(sockaddr_storage)) continue;
      std::memcpy(&addresses_.emplace_back(), found->ai_addr, found->ai_addrlen);
    }
  } catch (const std::bad_alloc&) {
    fail(kNoMemory);
    return;
  }
  state_ = State::kConnecting;
  try_next();
}

// Begins with the next of the addresses that the host has.
void Connection::try_next() noexcept {
  if (next_address_ == addresses_.size()) {
    fail_later(reason_[0] != '\0' ? reason_.data() : "the host has no address");
    return;
  }
  const sockaddr_storage& address = addresses_[next_address_++];
  const std::size_t length =
      address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  begin(reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(length));
}

bool Connection::begin(const sockaddr* address, socklen_t length) noexcept {
  const bool is_last = address->sa_family == AF_UNIX || next_address_ == addresses_.size();
  const auto refuse = [&](int error) {
    release_socket();
    if (is_last) {
      fail_later(std::strerror(error));
    } else {
      try_next();
    }
    return false;
  };
  fd_ = socket(address->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return refuse(errno);
  if (address->sa_family != AF_UNIX) {
    set_option(fd_, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd_, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd_, IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set_option(fd_, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set_option(fd_, IPPROTO_TCP, TCP_KEEPCNT, 6);
  }
  // Where it is made at once, the loop says so as well.
  if (connect(fd_, address, length) != 0 && errno != EINPROGRESS) return refuse(errno);
  poll_ = new (std::nothrow) uv_poll_t;
  if (poll_ == nullptr) return refuse(ENOMEM);
  const int status = uv_poll_init(loop_, poll_, fd_);
  if (status != 0) {
    delete poll_;
    poll_ = nullptr;
    return refuse(-status);
  }
  poll_->data = this;
  if (!watch(UV_WRITABLE)) return refuse(ENOMEM);
  return true;
}

bool Connection::watch(int events) noexcept {
  if (events == polled_) return true;
  polled_ = events;
  if (events == 0) return uv_poll_stop(poll_) == 0;
  return uv_poll_start(poll_, events, [](uv_poll_t* handle, int status, int ready) {
           static_cast<Connection*>(handle->data)->on_event(status, ready);
         }) == 0;
}

void Connection::finish_connecting() noexcept {
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) {
    release_socket();
    std::snprintf(reason_.data(), reason_.size(), "%s", std::strerror(error));
    try_next();
    return;
  }
  memory_.forget();
  reader_ = memory_.make_reader();
  if (reader_ == nullptr) {
    fail(kNoMemory);
    return;
  }
  fed_ = 0;
  state_ = State::kConnected;
  if (!watch(is_reading_ ? UV_READABLE : 0)) {
    fail(kNoMemory);
    return;
  }
  owner_.on_connected();
}

// ---- Ending ------------------------------------------------------------------------

void Connection::release_socket() noexcept {
  if (poll_ != nullptr) {
    uv_poll_stop(poll_);
    uv_close(reinterpret_cast<uv_handle_t*>(poll_),
             [](uv_handle_t* handle) { delete reinterpret_cast<uv_poll_t*>(handle); });
    poll_ = nullptr;
    polled_ = 0;
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

void Connection::close() noexcept {
  ++generation_;
  state_ = State::kClosed;
  failure_timer_.stop();
  if (resolution_ != nullptr) {
    resolution_->connection = nullptr;
    uv_cancel(reinterpret_cast<uv_req_t*>(&resolution_->request));
    resolution_ = nullptr;
  }
  release_socket();
  if (reader_ != nullptr) redisReaderFree(reader_);
  reader_ = nullptr;
  reason_[0] = '\0';
}

void Connection::fail(const char* reason) noexcept {
  std::array<char, 160> kept = {};  // the reason may be the parser's
  std::snprintf(kept.data(), kept.size(), "%s", reason);
  close();
  owner_.on_closed(kept.data());
}

void Connection::fail_later(const char* reason) noexcept {
  if (reason != reason_.data()) std::snprintf(reason_.data(), reason_.size(), "%s", reason);
  state_ = State::kFailing;
  failure_timer_.start(0);
}

// ---- Bytes -------------------------------------------------------------------------

void Connection::on_event(int status, int events) noexcept {
  if (state_ == State::kConnecting) {
    finish_connecting();
    return;
  }
  if (state_ != State::kConnected) return;
  const std::uint64_t generation = generation_;
  if (status != 0) polled_ = 0;  // uv has stopped: there is an error, perhaps behind replies
  if (status != 0 || (events & (UV_READABLE | UV_DISCONNECT)) != 0) drain();
  if (generation != generation_) return;
  if (status != 0 && !watch(UV_READABLE)) {
    fail(kNoMemory);
    return;
  }
  if ((events & UV_WRITABLE) != 0 && is_write_blocked_) {
    is_write_blocked_ = false;
    watch(is_reading_ ? UV_READABLE : 0);
    owner_.on_writable();
  }
}

std::size_t Connection::write(const iovec* parts, std::size_t count) noexcept {
  std::size_t size = 0;
  for (std::size_t i = 0; i < count; ++i) size += parts[i].iov_len;
  msghdr message = {};
  message.msg_iov = const_cast<iovec*>(parts);
  message.msg_iovlen = count;
  ssize_t taken = 0;
  do {
    taken = sendmsg(fd_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (taken < 0 && errno == EINTR);
  if (taken < 0 && errno != EAGAIN && errno != ENOBUFS && errno != ENOMEM) {
    // Replies may wait to be read in front of the end, which reading finds; else this tells.
    std::snprintf(reason_.data(), reason_.size(), "%s", std::strerror(errno));
    failure_timer_.start(kWriteErrorDelay);
    return 0;
  }
  const auto written = taken < 0 ? std::size_t{0} : static_cast<std::size_t>(taken);
  if (written < size) {
    is_write_blocked_ = true;
    if (!watch((is_reading_ ? UV_READABLE : 0) | UV_WRITABLE)) {
      std::snprintf(reason_.data(), reason_.size(), "%s", kNoMemory);
      failure_timer_.start(0);
    }
  }
  return written;
}

void Connection::set_reading(bool reading) noexcept {
  if (is_reading_ == reading) return;
  is_reading_ = reading;
  if (state_ == State::kConnected) {
    watch((reading ? UV_READABLE : 0) | (is_write_blocked_ ? UV_WRITABLE : 0));
  }
}

void Connection::drain() noexcept {
  std::array<char, kReading> buffer;  // NOLINT: filled by the kernel
  std::size_t total = 0;
  const std::uint64_t generation = generation_;
  has_more_ = false;
  for (;;) {
    const ssize_t size = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno == EAGAIN) return;
    if (size < 0) {
      fail(std::strerror(errno));
      return;
    }
    if (size == 0) {
      fail("the server closed the connection");
      return;
    }
    const auto got = static_cast<std::size_t>(size);
    for (std::size_t at = 0; at < got; at += kPiece) {
      if (!feed(buffer.data() + at, std::min(kPiece, got - at))) return;
    }
    // A full buffer means that there may be more; else the next turn finds it.
    if (got < buffer.size()) return;
    total += got;
    if (total >= kMostPerTurn) {
      has_more_ = true;
      return;
    }
    if (generation != generation_ || !is_reading_) return;
  }
}

// False where the connection has ended.
bool Connection::feed(const char* bytes, std::size_t size) noexcept {
  const std::uint64_t generation = generation_;
  redisReader* const reader = reader_;
  if (redisReaderFeed(reader, bytes, size) != REDIS_OK) {
    fail(reader->errstr);
    return false;
  }
  fed_ += size;
  for (;;) {
    void* parsed = nullptr;
    if (redisReaderGetReply(reader, &parsed) != REDIS_OK) {
      fail(reader->errstr);
      return false;
    }
    if (parsed == nullptr) break;
    owner_.on_reply(*static_cast<const redisReply*>(parsed));
    memory_.forget();
    if (generation != generation_) return false;
  }
  const bool is_between_replies = reader->pos == reader->len && reader->ridx < 0;
  if (is_between_replies) {
    if (fed_ > kLargeBuffer) {
      redisReader* const fresh = memory_.make_reader();
      if (fresh != nullptr) {
        redisReaderFree(reader);
        reader_ = fresh;
      }
    }
    fed_ = 0;
  }
  return true;
}

}  // namespace vu::store
