#include "pipeline.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "../clock.h"

namespace vu::store {

namespace {

// A time-out passes in no fewer steps than this.
constexpr std::int64_t kTicks = 8;

constexpr const char* kWaitedTooLong = "the subscription before it took too long";
constexpr const char* kOutOfMemory = "out of memory";

std::size_t size_of(const Commands& commands) {
  std::size_t bytes = 0;
  for (const auto& [partition, command] : commands) bytes += command.size();
  return bytes;
}

}  // namespace

void Pipeline::send(Errand& errand, unsigned partition, std::string command) {
  router_.send(partition, std::move(command), errand.only_reads(), &errand);
  errand.hold();
  in_flight_ += errand.weight();
}

void Pipeline::fail(Errand& errand, std::size_t commands, const char* reason) noexcept {
  Outcome outcome;
  outcome.kind = Outcome::Kind::kNotDone;
  outcome.reason = reason;
  for (; commands > 0; --commands) errand.finish(outcome);
}

// Sends the commands from `from` on; those for which there is no memory are not done.
void Pipeline::send_or_fail(Errand& errand, Commands& commands, std::size_t from) noexcept {
  std::size_t failed = 0;
  for (std::size_t i = from; i < commands.size(); ++i) {
    try {
      send(errand, commands[i].first, std::move(commands[i].second));
    } catch (const std::bad_alloc&) {
      ++failed;
    }
  }
  if (failed > 0) fail(errand, failed, kOutOfMemory);
}

void Pipeline::issue(Errand& errand, unsigned partition, std::string command) {
  if (queue_.empty()) return send(errand, partition, std::move(command));
  Commands commands;
  commands.emplace_back(partition, std::move(command));
  issue(errand, std::move(commands));
}

void Pipeline::issue(Errand& errand, Commands commands) {
  if (queue_.empty()) {
    send(errand, commands.front().first, std::move(commands.front().second));
    send_or_fail(errand, commands, 1);
    return;
  }
  const std::size_t count = commands.size();
  const std::size_t bytes = size_of(commands);
  Entry entry;
  entry.errand = &errand;
  entry.commands = std::move(commands);
  entry.issued = waited_us_;
  queue_.push_back(std::move(entry));
  errand.hold();
  waiting_ += count * errand.weight();
  waiting_bytes_ += bytes;
}

Barrier& Pipeline::barrier_at_end() {
  if (queue_.empty() || !queue_.back().barrier || queue_.back().barrier->is_asked) {
    Entry entry;
    entry.barrier = std::make_unique<Barrier>();
    entry.issued = waited_us_;
    queue_.push_back(std::move(entry));
  }
  return *queue_.back().barrier;
}

void Pipeline::add(std::vector<Barrier::Step> steps) {
  std::vector<Barrier::Step>& all = barrier_at_end().steps;
  all.insert(all.end(), std::make_move_iterator(steps.begin()),
             std::make_move_iterator(steps.end()));
}

bool Pipeline::is_passable(Barrier& barrier) noexcept {
  if (!barrier.is_asked) {
    if (in_flight_ > 0) return false;
    try {
      channels_.ask(barrier);
    } catch (const std::bad_alloc&) {
      return false;  // the next pump tries again
    }
  }
  return has_mark_ && barrier.mark <= last_mark_;
}

void Pipeline::send_first() noexcept {
  Entry entry = std::move(queue_.front());
  queue_.pop_front();
  const std::size_t count = entry.commands.size();
  waiting_ -= count * entry.errand->weight();
  waiting_bytes_ -= size_of(entry.commands);
  const ErrandHold hold(*entry.errand);
  if (waited_us_ - entry.issued > timeout_us_) {
    fail(*entry.errand, count, kWaitedTooLong);
  } else {
    send_or_fail(*entry.errand, entry.commands, 0);
  }
}

void Pipeline::tick() noexcept {
  const std::int64_t now = Clock::steady();
  waited_us_ += std::min(now - ticked_us_, timeout_us_ / kTicks);
  ticked_us_ = now;
}

void Pipeline::pump() noexcept {
  if (queue_.empty()) return;
  tick();
  while (!queue_.empty()) {
    const Entry& first = queue_.front();
    if (!first.barrier) {
      send_first();
      continue;
    }
    if (!is_passable(*first.barrier)) return;
    channels_.pass(*first.barrier);
    queue_.pop_front();
  }
}

bool Pipeline::on_outcome(void* ticket, const Outcome& outcome) noexcept {
  auto& errand = *static_cast<Errand*>(ticket);
  in_flight_ -= errand.weight();
  errand.finish(outcome);
  errand.release();
  return in_flight_ == 0 && !queue_.empty();
}

bool Pipeline::on_mark(std::uint64_t mark) noexcept {
  last_mark_ = mark;
  has_mark_ = true;
  return !queue_.empty();
}

void Pipeline::send_rest() noexcept {
  for (; !queue_.empty();) {
    if (queue_.front().barrier) {
      queue_.pop_front();
    } else {
      send_first();
    }
  }
}

}  // namespace vu::store
