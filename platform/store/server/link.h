// A connection to the server that is wanted, kept up: found, made, logged in to, and made
// again after a pause whenever it ends.
//
// As with Connection, nothing is told from inside a call, and it must not be destroyed
// from inside its owner's functions.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "address.h"
#include "connection.h"

namespace vu::store {

class Link final : Connection::Owner {
 public:
  class Owner {
   public:
    // Logged in: what is written now is answered by on_reply, in order.
    virtual void on_up() noexcept = 0;
    virtual void on_reply(const redisReply& reply) noexcept = 0;
    virtual void on_writable() noexcept = 0;
    // The connection ended or could not be made; the next one is on its way. Refused:
    // trying again will not help before somebody changes something, such as the password.
    virtual void on_down(const char* reason, bool is_refused) noexcept = 0;

   protected:
    ~Owner() = default;
  };

  enum class Use { kCommands, kEvents };

  // To `endpoint`, or where the address names Sentinels to the master that they know. For
  // events, any member of a cluster will do.
  // Throws std::bad_alloc.
  Link(const Address& address, const Endpoint& endpoint, Use use, uv_loop_t* loop, Owner& owner);

  // Where it is not being kept up already.
  void open() noexcept;
  // For good, or until open().
  void close() noexcept;
  // Gives the connection up and begins with the next one; on_down is not told.
  void drop() noexcept;

  bool is_open() const { return state_ != State::kIdle; }
  bool is_up() const { return state_ == State::kUp; }
  bool has_more() const { return connection_.has_more(); }
  std::size_t write(const iovec* parts, std::size_t count) noexcept {
    return connection_.write(parts, count);
  }
  void set_reading(bool reading) noexcept { connection_.set_reading(reading); }

  // How often it was lost and is back.
  std::uint64_t reconnects() const { return reconnects_; }

  // For people: the path, or host and port.
  const std::string& name() const { return name_; }

 private:
  // What is said to a server before it is used; each has one reply.
  enum class Step { kFindMaster, kLogin, kDatabase, kRole, kLibrary, kPing };

  struct Talk {
    std::string bytes;
    std::vector<Step> steps;
    std::size_t first_bytes = 0;  // said at once; the others when these have their replies
    std::size_t first_steps = 0;
    void add(Step step, const std::vector<std::string_view>& words);
    // Nothing where both are empty.
    void add_login(const std::string& user, const std::string& password);
  };

  enum class State { kIdle, kWaiting, kFinding, kConnecting, kUp };

  void on_connected() noexcept override;
  void on_reply(const redisReply& reply) noexcept override;
  void on_writable() noexcept override;
  void on_closed(const char* reason) noexcept override;

  void on_time() noexcept;
  void begin() noexcept;
  void wait() noexcept;
  void go_to(const redisReply& reply) noexcept;
  void end_finding(const char* said, bool is_refused) noexcept;
  void talk() noexcept;
  bool check(Step step, const redisReply& reply) noexcept;
  bool ask_next_sentinel() noexcept;
  void end(const char* reason, bool is_refused) noexcept;
  void explain(const char* what, const char* reason) noexcept;

  Owner& owner_;
  Connection connection_;
  UvTimer timer_;  // of a pause, or until a connection has to be up
  const std::int64_t connect_timeout_us_;
  const bool uses_sentinels_;
  std::vector<Endpoint> sentinels_;
  std::size_t sentinel_ = 0;         // the one to ask next
  std::size_t sentinels_asked_ = 0;  // in vain, in this attempt
  bool has_sentinel_said_ = false;   // why reason_ is what it is
  std::string master_;
  Endpoint endpoint_;
  std::string name_;
  std::vector<std::pair<Endpoint, std::string>> others_;  // as good as endpoint_
  std::size_t next_other_ = 0;
  Talk to_sentinel_;
  Talk to_server_;
  State state_ = State::kIdle;
  std::int64_t due_us_ = 0;  // when it has to be up
  bool is_second_look_ = false;
  bool is_talking_ = false;
  std::size_t said_ = 0;      // bytes of the talk
  std::size_t answered_ = 0;  // steps of it
  unsigned failures_ = 0;     // since a connection has lasted
  std::int64_t up_us_ = 0;
  bool was_lost_ = false;  // while it was up
  std::uint64_t reconnects_ = 0;
  std::uint32_t random_;
  std::array<char, 320> reason_ = {};
};

}  // namespace vu::store
