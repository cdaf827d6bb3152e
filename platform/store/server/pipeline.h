// The commands of a process to one store in the order in which they were issued, with
// barriers between them.
//
// A command leaves at once, unless a barrier is before it. A barrier is passed when all
// before it has its outcome and the channels have caught up: so a subscription hears
// exactly the changes that this process causes between its begin and its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "channels.h"
#include "errand.h"
#include "router.h"

namespace vu::store {

class Pipeline {
 public:
  // What has waited for longer than `timeout_us` behind a barrier is not sent any more.
  Pipeline(Router& router, Channels& channels, std::int64_t timeout_us)
      : router_(router), channels_(channels), timeout_us_(timeout_us) {}
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;
  ~Pipeline() = default;

  // Take on an errand, which the caller holds: its one command, or all of them. Where memory is
  // short they throw std::bad_alloc with nothing taken; several that are on their way in part go on
  // with an outcome of their own for the rest.
  void issue(Errand& errand, unsigned partition, std::string command);
  void issue(Errand& errand, Commands commands);

  // Adds steps to the barrier at the end of what was issued. Throws std::bad_alloc.
  void add(std::vector<Barrier::Step> steps);

  // Sends what may leave, and asks for what a barrier waits for.
  void pump() noexcept;

  // The outcome of a command, and of a barrier. True where pump() has something to do.
  bool on_outcome(void* ticket, const Outcome& outcome) noexcept;
  bool on_mark(std::uint64_t mark) noexcept;

  // Sends everything, barriers or not.
  void send_rest() noexcept;

  // Requests without an outcome, each command counted by its weight, and the bytes of those that
  // have not left.
  std::size_t pending() const { return in_flight_ + waiting_; }
  std::size_t unsent_bytes() const { return router_.unsent_bytes() + waiting_bytes_; }

 private:
  // One thing in the queue: an errand with its commands, or a barrier.
  struct Entry {
    Errand* errand = nullptr;  // held
    Commands commands;
    std::int64_t issued = 0;  // in waited_us_
    std::unique_ptr<Barrier> barrier;
  };

  void tick() noexcept;
  void send(Errand& errand, unsigned partition, std::string command);
  void send_or_fail(Errand& errand, Commands& commands, std::size_t from) noexcept;
  void send_first() noexcept;
  void fail(Errand& errand, std::size_t commands, const char* reason) noexcept;
  Barrier& barrier_at_end();
  bool is_passable(Barrier& barrier) noexcept;

  Router& router_;
  Channels& channels_;
  const std::int64_t timeout_us_;
  // Time that has passed for what waits. Whoever drives the loop may be away from it for
  // long, which is nothing that the server is late with.
  std::int64_t waited_us_ = 0;
  std::int64_t ticked_us_ = 0;  // when it was counted last, on the steady clock
  std::deque<Entry> queue_;     // begins with a barrier
  std::size_t in_flight_ = 0;
  std::size_t waiting_ = 0;
  std::size_t waiting_bytes_ = 0;
  std::uint64_t last_mark_ = 0;
  bool has_mark_ = false;  // any at all
};

}  // namespace vu::store
