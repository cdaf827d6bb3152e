#include "router_core.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <string_view>
#include <utility>

#include "protocol.h"

namespace vu::store {

namespace {

constexpr const char* kClosed = "the store was closed";
constexpr std::int64_t kPause = 50'000;
constexpr std::string_view kAsking = "*1\r\n$6\r\nASKING\r\n";
constexpr unsigned kMostLoads = 2;  // of the library for one command

std::string_view error_of(const redisReply& reply) {
  return reply.type == REDIS_REPLY_ERROR ? std::string_view(reply.str, reply.len)
                                         : std::string_view();
}

template <std::size_t N>
bool begins_with_one_of(std::string_view text, const std::array<std::string_view, N>& words) {
  return std::any_of(words.begin(), words.end(),
                     [&](std::string_view word) { return text.starts_with(word); });
}

// Errors that a server finds before it begins.
constexpr std::array<std::string_view, 8> kNotBegun = {"OOM ",         "NOPERM ",   "NOAUTH ",
                                                       "MISCONF ",     "READONLY ", "NOREPLICAS ",
                                                       "CLUSTERDOWN ", "CROSSSLOT "};
// Those that pass.
constexpr std::array<std::string_view, 3> kPassing = {"LOADING ", "MASTERDOWN ", "BUSY "};

}  // namespace

RouterCore::RouterCore(const Address& address, uv_loop_t* loop, Listener& listener,
                       std::size_t groups)
    : address_(address),
      loop_(loop),
      listener_(listener),
      groups_(groups),
      timer_(
          loop, [](void* self) { static_cast<RouterCore*>(self)->on_time(); }, this) {}

Lane& RouterCore::add_lane(const Endpoint& endpoint) {
  lanes_.push_back(
      std::make_unique<Lane>(address_, endpoint, loop_, static_cast<Lane::Owner&>(*this)));
  return *lanes_.back();
}

// ---- Taking and sending ------------------------------------------------------------

void RouterCore::send(unsigned partition, std::string command, bool only_reads, void* ticket) {
  auto entry = std::make_unique<Entry>();
  entry->command = std::move(command);
  entry->ticket = ticket;
  entry->partition = partition;
  entry->only_reads = only_reads;
  taken_bytes_ += entry->command.size();
  taken_.push_back(std::move(entry));
  ++pending_;
}

std::size_t RouterCore::unsent_bytes() const {
  std::size_t bytes = taken_bytes_;
  for (const auto& lane : lanes_) bytes += lane->unsent_bytes();
  for (const Group& group : groups_) bytes += group.later_bytes;
  return bytes;
}

std::uint64_t RouterCore::reconnects() const {
  std::uint64_t count = 0;
  for (const auto& lane : lanes_) count += lane->reconnects();
  return count;
}

void RouterCore::route(std::unique_ptr<Entry> entry) noexcept {
  Group& group = group_of(*entry);
  if (group.is_held()) {
    group.later_bytes += entry->command.size();
    group.later.push_back(std::move(entry));
  } else {
    ++group.on_lane;
    group.lane->add(std::move(entry));
  }
}

void RouterCore::flush() noexcept {
  if (taken_.empty() || is_closed_) return;
  const std::int64_t now_us = steady_us();
  while (!taken_.empty()) {
    std::unique_ptr<Entry> entry = taken_.pop_front();
    entry->deadline_us = now_us + address_.command_timeout_us;
    route(std::move(entry));
  }
  taken_bytes_ = 0;
  for (const auto& lane : lanes_) lane->flush(now_us);
  arm();
}

void RouterCore::on_drained(Lane&) noexcept { listener_.on_router_wake(); }

// ---- Telling -----------------------------------------------------------------------

void RouterCore::tell(std::unique_ptr<Entry> entry, const Outcome& outcome) noexcept {
  void* const ticket = entry->ticket;
  keep_text(std::move(entry->command));
  entry.reset();
  --pending_;
  listener_.on_outcome(ticket, outcome);
}

void RouterCore::tell_not_done(std::unique_ptr<Entry> entry, const char* reason) noexcept {
  tell(std::move(entry), {Outcome::Kind::kNotDone, nullptr, reason});
}

void RouterCore::tell_not_done(EntryList& entries, const char* reason) noexcept {
  while (!entries.empty()) tell_not_done(entries.pop_front(), reason);
}

// Of a command that was sent. A read leaves nothing behind that one would have to know.
void RouterCore::tell_unanswered(std::unique_ptr<Entry> entry, const char* reason) noexcept {
  const auto kind = entry->only_reads ? Outcome::Kind::kNotDone : Outcome::Kind::kUnknown;
  tell(std::move(entry), {kind, nullptr, reason});
}

// ---- Replies and refusals ----------------------------------------------------------

RouterCore::Refusal RouterCore::refusal_of(const redisReply& reply) const {
  const std::string_view error = error_of(reply);
  if (error.empty()) return Refusal::kNone;
  if (says_function_is_missing(reply)) return Refusal::kFunctions;
  if (begins_with_one_of(error, kPassing)) return Refusal::kLater;
  const bool moves = address_.kind == Address::Kind::kSentinel;
  return moves && error.starts_with("READONLY ") ? Refusal::kReadOnly : Refusal::kNone;
}

void RouterCore::on_answer(Lane&, std::unique_ptr<Entry> entry, const redisReply& reply) noexcept {
  Group& group = group_of(*entry);
  --group.on_lane;
  const Refusal refusal = refusal_of(reply);
  if (refusal != Refusal::kNone) {
    if (group.refusal == Refusal::kNone) {
      group.refusal = refusal;
      std::snprintf(group.reason.data(), group.reason.size(), "%s", reply.str);
    }
    if (entry->refusals < UINT8_MAX) ++entry->refusals;
    hold(group, std::move(entry));
  } else if (!group.held.empty() && entry->only_reads && !entry->is_asking) {
    hold(group, std::move(entry));
  } else {
    if (!entry->is_asking) fail_held(group);  // else they would be carried out behind this one
    const bool has_begun = !begins_with_one_of(error_of(reply), kNotBegun);
    tell(std::move(entry), has_begun ? Outcome{Outcome::Kind::kReply, &reply, nullptr}
                                     : Outcome{Outcome::Kind::kNotDone, nullptr, reply.str});
  }
  settle(group);
}

// To be called whenever something of a group has come back.
void RouterCore::settle(Group& group) noexcept {
  if (group.on_lane != 0 || is_closed_) return;
  const bool was_asking = std::exchange(group.is_asking, false);
  if (group.refusal != Refusal::kNone && !group.held.empty()) {
    if (group.again_us == 0) recover(group);
  } else if (was_asking || !group.held.empty()) {
    release(group);
  }
}

void RouterCore::hold(Group& group, std::unique_ptr<Entry> entry) noexcept {
  if (!group.is_held()) {
    const std::size_t before = group.lane->unsent_bytes();
    group.on_lane -= group.lane->take_unsent(
        [&](const Entry& other) { return &group_of(other) == &group; }, group.later);
    group.later_bytes = before - group.lane->unsent_bytes();
  }
  entry->is_repeat = true;
  if (entry->is_asking) {  // it was the first of all
    entry->is_asking = false;
    entry->command.erase(0, kAsking.size());
    group.held.push_front(std::move(entry));
  } else {
    group.held.push_back(std::move(entry));
  }
}

void RouterCore::recover(Group& group) noexcept {
  switch (group.refusal) {
    case Refusal::kNone:
      break;
    case Refusal::kFunctions:
      if (group.held.front().refusals > kMostLoads) {
        const char* const error = group.lane->library_error();
        const bool is_told = error[0] != '\0';
        std::array<char, 400> reason = {};
        std::snprintf(reason.data(), reason.size(), "%s%s%s", group.reason.data(),
                      is_told ? "; its functions cannot be loaded: " : "", error);
        EntryList failed;
        failed.append(group.held);
        release(group);
        tell_not_done(failed, reason.data());
        return;
      }
      if (group.lane->is_up()) group.lane->add_library();
      break;
    case Refusal::kReadOnly:
      if (group.lane->is_up()) {
        group.lane->give_up(group.reason.data());
        return;
      }
      break;
    case Refusal::kLater:
      pause(group);
      return;
    case Refusal::kMoved:
    case Refusal::kAsk:
      break;
  }
  release(group);
}

void RouterCore::pause(Group& group) noexcept {
  group.again_us = steady_us() + kPause;
  arm();
}

// Sends the first of what is held to a server that has it before it owns the slot.
void RouterCore::send_asking(Group& group, Lane& lane) noexcept {
  std::unique_ptr<Entry> entry = group.held.pop_front();
  group.refusal = Refusal::kNone;
  try {
    entry->command.insert(0, kAsking);
  } catch (const std::bad_alloc&) {
    tell_not_done(std::move(entry), "out of memory");
    release(group);
    return;
  }
  entry->is_asking = true;
  group.is_asking = true;
  ++group.on_lane;
  lane.add(std::move(entry));
  lane.flush(steady_us());
  arm();
}

void RouterCore::move_unsent(Group& group, Lane& to) noexcept {
  EntryList moved;
  if (group.lane != nullptr && !group.is_held()) {
    group.on_lane -= group.lane->take_unsent(
        [&](const Entry& other) { return &group_of(other) == &group; }, moved);
  }
  group.lane = &to;
  while (!moved.empty()) route(moved.pop_front());
}

// Sends again what was held, and what has come since.
void RouterCore::release(Group& group) noexcept {
  group.refusal = Refusal::kNone;
  group.again_us = 0;
  group.later_bytes = 0;
  EntryList all;
  all.append(group.held);
  all.append(group.later);
  while (!all.empty()) route(all.pop_front());
  if (group.lane != nullptr) group.lane->flush(steady_us());
  arm();
}

void RouterCore::fail_all(Group& group, const char* reason) noexcept {
  EntryList all;
  all.append(group.held);
  all.append(group.later);
  group.later_bytes = 0;
  group.again_us = 0;
  group.refusal = Refusal::kNone;
  tell_not_done(all, reason);
}

void RouterCore::fail_held(Group& group) noexcept {
  if (group.held.empty()) return;
  const std::array<char, 160> reason = group.reason;
  EntryList held;
  held.append(group.held);
  if (!is_closed_) release(group);
  tell_not_done(held, reason.data());
}

// ---- Losing ------------------------------------------------------------------------

// Reads at the end are repeated, as they cannot see more than they would have seen; one in
// front of a write that was perhaps carried out might.
void RouterCore::on_lost(Lane& lane, EntryList sent, const char* reason, bool is_refused) noexcept {
  std::array<char, 320> text = {};  // the lane may find another reason meanwhile
  std::snprintf(text.data(), text.size(), "%s", reason);
  const std::int64_t now_us = steady_us();
  EntryList again;
  EntryList unsent;
  EntryList all;
  while (!sent.empty()) {
    std::unique_ptr<Entry> entry = sent.pop_front();
    Group& group = group_of(*entry);
    --group.on_lane;
    if (!entry->only_reads) ++group.lost_writes;
    all.push_back(std::move(entry));
  }
  while (!all.empty()) {
    std::unique_ptr<Entry> entry = all.pop_front();
    Group& group = group_of(*entry);
    const bool is_last = group.lost_writes == 0 && entry->only_reads;
    if (!entry->only_reads) --group.lost_writes;
    if (!is_last || is_refused || is_closed_ || entry->deadline_us <= now_us) {
      if (!entry->is_asking) fail_held(group);  // else what is held came behind it
      tell_unanswered(std::move(entry), text.data());
    } else if (!group.held.empty()) {
      hold(group, std::move(entry));
    } else {
      entry->is_repeat = true;
      ++group.on_lane;
      again.push_back(std::move(entry));
    }
  }
  if (is_closed_) {
    tell_not_done(again, text.data());
    return;
  }
  lane.add_in_front(again);
  if (is_refused) {
    lane.take_unsent(
        [&](const Entry& entry) {
          --group_of(entry).on_lane;
          return true;
        },
        unsent);
    tell_not_done(unsent, text.data());
  }
  for (Group& group : groups_) settle(group);
  arm();
}

void RouterCore::close() noexcept {
  if (is_closed_) return;
  flush();
  is_closed_ = true;
  timer_.stop();
  EntryList unsent;
  for (const auto& lane : lanes_) {
    EntryList sent;
    lane->close(sent, unsent);
    while (!sent.empty()) {
      std::unique_ptr<Entry> entry = sent.pop_front();
      fail_held(group_of(*entry));
      tell_unanswered(std::move(entry), kClosed);
    }
  }
  for (Group& group : groups_) {
    tell_not_done(group.held, kClosed);
    tell_not_done(group.later, kClosed);
  }
  tell_not_done(unsent, kClosed);
  tell_not_done(taken_, kClosed);
}

// ---- Time --------------------------------------------------------------------------

std::int64_t RouterCore::due_us() const {
  std::int64_t due = INT64_MAX;
  for (const auto& lane : lanes_) due = std::min(due, lane->due_us());
  for (const Group& group : groups_) {
    if (!group.held.empty()) due = std::min(due, group.held.front().deadline_us);
    if (!group.later.empty()) due = std::min(due, group.later.front().deadline_us);
    if (group.again_us != 0) due = std::min(due, group.again_us);
  }
  return own_us_ != 0 ? std::min(due, own_us_) : due;
}

void RouterCore::set_own_time(std::int64_t us) noexcept {
  own_us_ = us;
  if (us != 0) arm();
}

// Most often there is nothing to do: what comes later is due later.
void RouterCore::arm() noexcept {
  if (is_closed_) return;
  const std::int64_t due = due_us();
  if (due == INT64_MAX || (timer_.is_running() && armed_us_ <= due)) return;
  armed_us_ = due;
  timer_.start(due - steady_us());
}

// The loop may have been away, and the replies be there already: what is due is looked at
// twice, and in between the loop has as long as it was late.
void RouterCore::on_time() noexcept {
  const std::int64_t due = due_us();
  if (due <= looked_us_) {
    for (std::size_t i = 0; i < lanes_.size() && !is_closed_; ++i) expire(*lanes_[i], looked_us_);
    for (std::size_t i = 0; i < groups_.size() && !is_closed_; ++i) expire(groups_[i], looked_us_);
    if (own_us_ != 0 && own_us_ <= looked_us_ && !is_closed_) {
      own_us_ = 0;
      on_own_time();
    }
  } else if (due <= steady_us()) {
    looked_us_ = steady_us();
    armed_us_ = looked_us_;
    timer_.start(std::max(UvTimer::kSecondLook, looked_us_ - due));
    return;
  }
  arm();
}

void RouterCore::expire(Lane& lane, std::int64_t now_us) noexcept {
  if (lane.is_up()) {
    if (lane.due_us() > now_us || lane.has_more()) return;
    std::array<char, 64> reason = {};
    std::snprintf(reason.data(), reason.size(), "no reply within %g s",
                  static_cast<double>(address_.command_timeout_us) / 1e6);
    lane.give_up(reason.data());
    return;
  }
  EntryList expired;
  lane.take_expired(now_us, expired);
  if (expired.empty()) return;
  std::array<char, 400> reason = {};
  const bool is_known = lane.reason()[0] != '\0';
  std::snprintf(reason.data(), reason.size(), "%s%s", is_known ? "" : "no connection in time to ",
                is_known ? lane.reason() : lane.name());
  while (!expired.empty()) {
    std::unique_ptr<Entry> entry = expired.pop_front();
    Group& group = group_of(*entry);
    --group.on_lane;
    tell_not_done(std::move(entry), reason.data());
    settle(group);
  }
}

void RouterCore::expire(Group& group, std::int64_t now_us) noexcept {
  EntryList expired;
  while (!group.held.empty() && group.held.front().deadline_us <= now_us) {
    expired.push_back(group.held.pop_front());
  }
  while (group.held.empty() && !group.later.empty() && group.later.front().deadline_us <= now_us) {
    group.later_bytes -= group.later.front().command.size();
    expired.push_back(group.later.pop_front());
  }
  if (expired.empty() && (group.again_us == 0 || group.again_us > now_us)) return;
  std::array<char, 320> reason = {};
  const bool is_refused = group.refusal != Refusal::kNone;
  std::snprintf(reason.data(), reason.size(), "%s",
                is_refused ? group.reason.data() : no_lane_reason());
  const bool is_over = group.again_us != 0 && group.again_us <= now_us;
  if (group.lane != nullptr && !group.is_asking && (is_over || group.held.empty())) release(group);
  tell_not_done(expired, reason.data());
}

}  // namespace vu::store
