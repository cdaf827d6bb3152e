// Commands to servers and their outcomes, whatever happens to connections in between.
//
// A router hides which server has which objects, that connections break and come back,
// that a server has forgotten the library of functions, and that a master has moved.
// Everything happens on one thread at a time, under the caller's lock, uv callbacks
// included; nothing is told from inside a call of the router but close(). It is not to be
// destroyed from inside its listener's functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "address.h"

struct redisReply;
struct uv_loop_s;

namespace vu::store {

// All objects are spread over this many partitions, each in one hash slot of a cluster.
inline constexpr unsigned kPartitions = 64;

// What came of a command.
struct Outcome {
  enum class Kind {
    kReply,    // `reply` is the server's, an error perhaps, but none that says "not done"
    kNotDone,  // it was not carried out, `reason` says why
    kUnknown   // it was sent and its reply was lost: nobody knows
  };

  Kind kind = Kind::kReply;
  const redisReply* reply = nullptr;  // until the call returns
  const char* reason = nullptr;
};

class Router {
 public:
  // Told on the loop's thread, each ticket exactly once. Outcomes of commands to one
  // partition come in the order in which they were sent.
  class Listener {
   public:
    virtual void on_outcome(void* ticket, const Outcome& outcome) noexcept = 0;
    // The next flush has something to do: a connection is up, a deadline has passed.
    virtual void on_router_wake() noexcept = 0;

   protected:
    ~Listener() = default;
  };

  virtual ~Router() = default;

  // Takes a command, complete in the protocol's bytes; it leaves with the next flush. One
  // that `only_reads` may be repeated where a connection broke; any other never is, but
  // where the server says that it was not carried out. Throws std::bad_alloc with nothing
  // taken.
  virtual void send(unsigned partition, std::string command, bool only_reads, void* ticket) = 0;

  // Commands taken and without an outcome, and the bytes of those not yet sent.
  virtual std::size_t pending() const = 0;
  virtual std::size_t unsent_bytes() const = 0;

  // How many connections were lost and are back, since the beginning.
  virtual std::uint64_t reconnects() const = 0;

  // Whether each partition may be on another server, so that a command must keep to one.
  virtual bool is_spread() const = 0;

  // Sends what was taken: one write for each server.
  virtual void flush() noexcept = 0;

  // Sends what it can without waiting, then closes. Everything pending has an outcome
  // before this returns.
  virtual void close() noexcept = 0;
};

std::unique_ptr<Router> make_router(const Address& address, uv_loop_s* loop,
                                    Router::Listener& listener);

}  // namespace vu::store
