#include "cluster_router.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

#include "cluster_slots.h"

namespace vu::store {

namespace {

constexpr std::int64_t kAskPause = 100'000;
constexpr unsigned kMostMovesAtOnce = 4;  // of one command, before it waits a little

}  // namespace

ClusterRouter::ClusterRouter(const Address& address, uv_loop_t* loop, Listener& listener)
    : RouterCore(address, loop, listener, kPartitions) {
  for (unsigned i = 0; i < kPartitions; ++i) slots_[i] = slot_of_partition(i);
  for (const Endpoint& endpoint : address.endpoints) lane_to(endpoint);
  std::snprintf(reason_.data(), reason_.size(), "no member of the cluster has answered in time");
}

Lane& ClusterRouter::lane_to(const Endpoint& place) {
  for (const auto& lane : lanes()) {
    if (lane->endpoint() == place) return *lane;
  }
  return add_lane(place);
}

void ClusterRouter::flush() noexcept {
  RouterCore::flush();
  if (!is_known_ && pending() != 0) ask();
}

// ---- Who has which slots -----------------------------------------------------------

void ClusterRouter::ask() noexcept {
  if (asked_ != nullptr || is_closed()) return;
  // One that is there already; else one after the other.
  for (std::size_t i = 0; i < lanes().size(); ++i) {
    Lane& lane = *lanes()[(next_ask_ + i) % lanes().size()];
    if (asked_ == nullptr && lane.is_up()) asked_ = &lane;
  }
  if (asked_ == nullptr) asked_ = lanes()[next_ask_ % lanes().size()].get();
  ++next_ask_;
  asked_->ask_slots();
  asked_->flush(steady_us());
  arm();
}

void ClusterRouter::ask_later() noexcept {
  if (asked_ == nullptr) set_own_time(steady_us() + kAskPause);
}

void ClusterRouter::on_slots(const redisReply* reply) noexcept {
  if (is_closed() || asked_ == nullptr) return;
  bool is_good = false;
  try {
    is_good = reply != nullptr && apply(*reply);
  } catch (const std::bad_alloc&) {
    // Another time.
  }
  if (reply != nullptr && !is_good) {
    const bool is_error = reply->type == REDIS_REPLY_ERROR;
    std::snprintf(reason_.data(), reason_.size(), "%s does not say who has which slots: %s",
                  asked_->name(), is_error ? reply->str : "some are with nobody");
  }
  asked_ = nullptr;
  if (!is_good) ask_later();
}

// False where some of the slots are with nobody.
bool ClusterRouter::apply(const redisReply& reply) {
  std::vector<SlotRange> ranges;
  if (!read_slots(reply, asked_->endpoint(), ranges)) return false;
  std::array<Lane*, kPartitions> owners = {};
  for (unsigned i = 0; i < kPartitions; ++i) {
    for (const SlotRange& range : ranges) {
      if (slots_[i] >= range.first && slots_[i] <= range.last) owners[i] = &lane_to(range.master);
    }
  }
  bool is_complete = true;
  for (unsigned i = 0; i < kPartitions; ++i) {
    Group& group = groups()[i];
    if (owners[i] == nullptr) {
      is_complete = false;
    } else if (group.lane == nullptr) {
      group.lane = owners[i];
      release(group);
    } else if (group.lane != owners[i] && !group.lane->is_up()) {
      move_unsent(group, *owners[i]);
    }
  }
  is_known_ |= is_complete;
  for (const auto& lane : lanes()) {
    const bool is_used = std::any_of(groups().begin(), groups().end(),
                                     [&](const Group& group) { return group.lane == lane.get(); });
    if (!is_used) lane->rest();
    lane->flush(steady_us());
  }
  arm();
  return is_complete;
}

// ---- Refusals and losses -----------------------------------------------------------

RouterCore::Refusal ClusterRouter::refusal_of(const redisReply& reply) const {
  if (reply.type != REDIS_REPLY_ERROR) return Refusal::kNone;
  const std::string_view error(reply.str, reply.len);
  if (error.starts_with("MOVED ")) return Refusal::kMoved;
  if (error.starts_with("ASK ")) return Refusal::kAsk;
  if (error.starts_with("TRYAGAIN ") || error.starts_with("CLUSTERDOWN ")) return Refusal::kLater;
  return RouterCore::refusal_of(reply);
}

void ClusterRouter::recover(Group& group) noexcept {
  const Refusal refusal = group.refusal;
  if (refusal == Refusal::kLater) ask_later();
  if (refusal != Refusal::kMoved && refusal != Refusal::kAsk) {
    RouterCore::recover(group);
    return;
  }
  Lane* lane = nullptr;
  try {
    Endpoint place;
    if (read_redirection(group.reason.data(), group.lane->endpoint(), place)) {
      lane = &lane_to(place);
    }
  } catch (const std::bad_alloc&) {
    // A little later.
  }
  ask_later();
  if (lane == nullptr || group.held.front().refusals > kMostMovesAtOnce) {
    if (lane != nullptr && refusal == Refusal::kMoved) group.lane = lane;
    pause(group);
  } else if (refusal == Refusal::kAsk) {
    send_asking(group, *lane);
  } else {
    group.lane = lane;
    release(group);
  }
}

void ClusterRouter::on_lost(Lane& lane, EntryList sent, const char* reason,
                            bool is_refused) noexcept {
  std::snprintf(reason_.data(), reason_.size(), "%s", reason);
  RouterCore::on_lost(lane, std::move(sent), reason, is_refused);
  if (is_closed()) return;
  if (is_refused) {
    for (Group& group : groups()) {
      if (group.lane == nullptr) fail_all(group, reason_.data());
    }
  }
  // Another member may have its slots by now.
  if (pending() != 0) ask_later();
}

}  // namespace vu::store
