// Lets what is due expire: reads never see it, but somebody has to remove it and tell of
// it. Of all clients of a store the one that holds a short lease does that.
#pragma once

#include <cstdint>
#include <string>

#include "errand.h"

namespace vu::store {

class ServerStore;

class Sweeper {
 public:
  explicit Sweeper(ServerStore& store);
  Sweeper(const Sweeper&) = delete;
  Sweeper& operator=(const Sweeper&) = delete;
  ~Sweeper() = default;

  // Asks for the lease, or sweeps, where it is time. Where the clock is stopped for tests
  // this process sweeps, lease or not, and only after the clock has moved.
  void run() noexcept;
  // Microseconds until run() has something to do; -1: never.
  std::int64_t next_due() const;
  // The clock was moved by hand: sweeps, in the order of what is issued.
  void clock_moved() noexcept;

 private:
  class Round;
  void ask_for_lease();
  void sweep();
  void on_lease(bool is_held) noexcept;
  // Microseconds until something is due; -1: nothing is, or the round failed.
  void on_swept(std::int64_t next) noexcept;

  ServerStore& store_;
  const std::string holder_;
  bool is_busy_ = false;  // a round is under way
  bool has_lease_ = false;
  bool is_wanted_ = false;      // the clock is stopped, and something is still due
  std::int64_t lease_due_ = 0;  // on the steady clock
  std::int64_t sweep_due_ = 0;
};

}  // namespace vu::store
