// What every router does, whichever server has what: order, refusals, losses, deadlines.
//
// Commands belong to a group, within which order holds: all of them on one server, those of
// one partition in a cluster. A group's commands go to one lane. Where the server refuses
// one without carrying it out (its functions are gone, it is loading, it is no master any
// more), the group is held: what was sent behind comes back first, refused too or, where it
// only reads, to be repeated; then the reason is seen to, and all of it is sent again in
// order.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "lane.h"
#include "router.h"

namespace vu::store {

class RouterCore : public Router, protected Lane::Owner {
 public:
  RouterCore(const Address& address, uv_loop_t* loop, Listener& listener, std::size_t groups);

  void send(unsigned partition, std::string command, bool only_reads, void* ticket) override;
  std::size_t pending() const override { return pending_; }
  std::size_t unsent_bytes() const override;
  std::uint64_t reconnects() const override;
  bool is_spread() const override { return groups_.size() != 1; }
  void flush() noexcept override;
  void close() noexcept override;

 protected:
  enum class Refusal { kNone, kFunctions, kReadOnly, kLater, kMoved, kAsk };

  struct Group {
    bool is_held() const { return lane == nullptr || is_asking || !held.empty(); }

    Lane* lane = nullptr;     // null: not known yet
    std::size_t on_lane = 0;  // commands that lanes have, sent or not
    EntryList held;           // refused, and what is to be repeated behind
    EntryList later;          // came since; empty unless is_held()
    std::size_t later_bytes = 0;
    bool is_asking = false;  // one command is with another server
    Refusal refusal = Refusal::kNone;
    std::int64_t again_us = 0;  // kLater: when, 0 while others have to come back first
    std::size_t lost_writes = 0;
    std::array<char, 160> reason = {};  // of the refusal
  };

  Lane& add_lane(const Endpoint& endpoint);
  std::vector<Group>& groups() { return groups_; }

  virtual Refusal refusal_of(const redisReply& reply) const;
  // All of a held group has come back. Sees to the reason, and releases it, now or later.
  virtual void recover(Group& group) noexcept;
  // Why there is no lane for a group.
  virtual const char* no_lane_reason() const { return ""; }

  void pause(Group& group) noexcept;
  void send_asking(Group& group, Lane& lane) noexcept;
  void release(Group& group) noexcept;
  void fail_all(Group& group, const char* reason) noexcept;
  void fail_held(Group& group) noexcept;

  void on_answer(Lane& lane, std::unique_ptr<Entry> entry,
                 const redisReply& reply) noexcept override;
  void on_lost(Lane& lane, EntryList sent, const char* reason, bool is_refused) noexcept override;
  void on_slots(const redisReply*) noexcept override {}
  void on_drained(Lane& lane) noexcept override;

  // Moves what has not left to where the group belongs by now.
  void move_unsent(Group& group, Lane& to) noexcept;
  // A time of the router's own, for on_own_time(); 0: none.
  void set_own_time(std::int64_t us) noexcept;
  virtual void on_own_time() noexcept {}
  bool is_closed() const { return is_closed_; }
  std::vector<std::unique_ptr<Lane>>& lanes() { return lanes_; }
  void arm() noexcept;

  const Address address_;
  uv_loop_t* const loop_;

 private:
  Group& group_of(const Entry& entry) { return groups_[groups_.size() == 1 ? 0 : entry.partition]; }
  void route(std::unique_ptr<Entry> entry) noexcept;
  void hold(Group& group, std::unique_ptr<Entry> entry) noexcept;
  void tell(std::unique_ptr<Entry> entry, const Outcome& outcome) noexcept;
  void tell_not_done(std::unique_ptr<Entry> entry, const char* reason) noexcept;
  void tell_not_done(EntryList& entries, const char* reason) noexcept;
  void tell_unanswered(std::unique_ptr<Entry> entry, const char* reason) noexcept;
  void expire(Lane& lane, std::int64_t now_us) noexcept;
  void expire(Group& group, std::int64_t now_us) noexcept;
  void settle(Group& group) noexcept;
  std::int64_t due_us() const;
  void on_time() noexcept;

  Listener& listener_;
  std::vector<Group> groups_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  EntryList taken_;  // since the last flush
  std::size_t taken_bytes_ = 0;
  std::size_t pending_ = 0;
  UvTimer timer_;
  std::int64_t own_us_ = 0;     // see set_own_time
  std::int64_t armed_us_ = 0;   // when the timer ends
  std::int64_t looked_us_ = 0;  // when it last found something due
  bool is_closed_ = false;
};

}  // namespace vu::store
