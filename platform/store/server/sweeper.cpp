#include "sweeper.h"

#include <hiredis/hiredis.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <random>
#include <utility>

#include "protocol.h"
#include "server_store.h"

namespace vu::store {

namespace {

constexpr std::uint32_t kLeaseMilliseconds = 3000;
constexpr std::int64_t kLeaseEvery = 1'000'000;  // microseconds
constexpr std::int64_t kSweepEvery = 100'000;
constexpr std::int64_t kSweepAgain = 1'000;  // where one round was not enough
constexpr std::uint32_t kMostAtOnce = 256;

std::string make_holder() {
  std::random_device random;
  return std::to_string(getpid()) + "-" + std::to_string(random()) + "-" + std::to_string(random());
}

}  // namespace

// A command to each of the servers' parts, and the earliest of what they reply. Has all its
// outcomes before the sweeper goes.
class Sweeper::Round final : public Errand {
 public:
  Round(Sweeper& sweeper, std::size_t parts, bool is_lease)
      : Errand(false), sweeper_(sweeper), parts_left_(parts), is_lease_(is_lease) {}

  void finish(const Outcome& outcome) noexcept override {
    const bool is_integer =
        outcome.kind == Outcome::Kind::kReply && outcome.reply->type == REDIS_REPLY_INTEGER;
    if (is_integer && outcome.reply->integer >= 0) {
      const std::int64_t reply = outcome.reply->integer;
      earliest_ = earliest_ < 0 ? reply : std::min(earliest_, reply);
    }
    if (--parts_left_ > 0) return;
    sweeper_.is_busy_ = false;
    if (is_lease_) {
      sweeper_.on_lease(earliest_ == 1);
    } else {
      sweeper_.on_swept(earliest_);
    }
  }

 private:
  Sweeper& sweeper_;
  std::size_t parts_left_;
  const bool is_lease_;
  std::int64_t earliest_ = -1;
};

Sweeper::Sweeper(ServerStore& store) : store_(store), holder_(make_holder()) {}

void Sweeper::ask_for_lease() {
  // One for the whole store, wherever its parts are.
  Round& round = *new Round(*this, 1, true);
  const ErrandHold hold(round);
  store_.issue(round, 0, encode_lease(store_.place(), 0, holder_, kLeaseMilliseconds));
  is_busy_ = true;
}

void Sweeper::sweep() {
  const Place& place = store_.place();
  Commands commands;
  if (!store_.is_spread()) {
    commands.emplace_back(0, encode_sweep(place, -1, kMostAtOnce));
  } else {
    for (unsigned partition = 0; partition < kPartitions; ++partition) {
      commands.emplace_back(partition,
                            encode_sweep(place, static_cast<int>(partition), kMostAtOnce));
    }
  }
  Round& round = *new Round(*this, commands.size(), false);
  const ErrandHold hold(round);
  is_busy_ = true;  // before it is issued: parts for which there is no memory end at once
  try {
    store_.issue(round, std::move(commands));
  } catch (...) {
    is_busy_ = false;
    throw;
  }
}

void Sweeper::run() noexcept {
  if (next_due() != 0) return;
  if (store_.clock().stopped()) return clock_moved();
  const std::int64_t now = Clock::steady();
  try {
    if (now >= lease_due_) {
      lease_due_ = now + kLeaseEvery;
      ask_for_lease();
    } else {
      sweep_due_ = now + kSweepEvery;
      sweep();
    }
  } catch (const std::bad_alloc&) {
    // At the next time.
  }
}

std::int64_t Sweeper::next_due() const {
  if (store_.clock().stopped()) return is_wanted_ ? 0 : -1;
  if (is_busy_) return -1;
  const std::int64_t due = has_lease_ ? std::min(lease_due_, sweep_due_) : lease_due_;
  return std::max<std::int64_t>(due - Clock::steady(), 0);
}

void Sweeper::clock_moved() noexcept {
  try {
    sweep();
    is_wanted_ = false;
  } catch (const std::bad_alloc&) {
    is_wanted_ = true;
  }
}

void Sweeper::on_lease(bool is_held) noexcept {
  if (is_held && !has_lease_) sweep_due_ = 0;
  has_lease_ = is_held;
  store_.wake();
}

void Sweeper::on_swept(std::int64_t next) noexcept {
  if (next == 0) is_wanted_ = true;
  sweep_due_ =
      Clock::steady() + (next < 0 ? kSweepEvery : std::clamp(next, kSweepAgain, kSweepEvery));
  store_.wake();
}

}  // namespace vu::store
