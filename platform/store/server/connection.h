// One socket to one server: connecting, writing without waiting, and replies.
//
// Used on the thread that drives the loop, or by another one under the caller's lock while
// that thread waits. Nothing is told from inside a call of the connection. It must not be
// destroyed from inside its owner's functions; close() may be called there.
#pragma once

#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "address.h"
#include "reply_memory.h"
#include "uv_timer.h"

struct redisReader;
struct redisReply;

namespace vu::store {

class Connection {
 public:
  class Owner {
   public:
    virtual void on_connected() noexcept = 0;
    virtual void on_reply(const redisReply& reply) noexcept = 0;
    // What write() left over can go on.
    virtual void on_writable() noexcept = 0;
    // It could not be made or it broke; it is closed. Not told for close().
    virtual void on_closed(const char* reason) noexcept = 0;

   protected:
    ~Owner() = default;
  };

  Connection(uv_loop_t* loop, Owner& owner);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { close(); }

  // Requires: closed. The owner sees to it that it does not take too long.
  void open(const Endpoint& endpoint) noexcept;
  void close() noexcept;

  // How many bytes it took; fewer than there are: on_writable follows. Requires: connected.
  std::size_t write(const iovec* parts, std::size_t count) noexcept;

  // While not reading, what arrives stays in the kernel.
  void set_reading(bool reading) noexcept;

  // Whether the last reading left something behind for the next turn.
  bool has_more() const { return has_more_; }

 private:
  struct Resolution;

  void resolve(const Endpoint& endpoint);
  void on_resolved(int status, const struct addrinfo* found) noexcept;
  void try_next() noexcept;
  bool begin(const sockaddr* address, socklen_t length) noexcept;
  bool watch(int events) noexcept;
  void on_event(int status, int events) noexcept;
  void finish_connecting() noexcept;
  void on_connected() noexcept;
  void drain() noexcept;
  bool feed(const char* bytes, std::size_t size) noexcept;
  void release_socket() noexcept;
  void fail(const char* reason) noexcept;
  void fail_later(const char* reason) noexcept;

  enum class State { kClosed, kResolving, kConnecting, kConnected, kFailing };

  uv_loop_t* const loop_;
  Owner& owner_;
  UvTimer failure_timer_;
  State state_ = State::kClosed;
  std::uint64_t generation_ = 0;  // counts closings: what is told may close
  int fd_ = -1;
  uv_poll_t* poll_ = nullptr;
  int polled_ = 0;
  Resolution* resolution_ = nullptr;
  std::vector<sockaddr_storage> addresses_;
  std::size_t next_address_ = 0;
  ReplyMemory memory_;
  redisReader* reader_ = nullptr;
  std::size_t fed_ = 0;
  bool is_reading_ = true;
  bool is_write_blocked_ = false;
  bool has_more_ = false;
  std::array<char, 160> reason_ = {};
};

}  // namespace vu::store
