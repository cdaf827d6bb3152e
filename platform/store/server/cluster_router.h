// A router to the members of a cluster: each partition is with the master of its slot.
#pragma once

#include <array>
#include <cstddef>

#include "router_core.h"

namespace vu::store {

class ClusterRouter final : public RouterCore {
 public:
  ClusterRouter(const Address& address, uv_loop_t* loop, Listener& listener);

  void flush() noexcept override;

 private:
  Refusal refusal_of(const redisReply& reply) const override;
  void recover(Group& group) noexcept override;
  const char* no_lane_reason() const override { return reason_.data(); }
  void on_lost(Lane& lane, EntryList sent, const char* reason, bool is_refused) noexcept override;
  void on_slots(const redisReply* reply) noexcept override;
  void on_own_time() noexcept override { ask(); }

  // The lane to a place, made where there is none. Throws std::bad_alloc.
  Lane& lane_to(const Endpoint& place);
  // Asks a member who has which slots.
  void ask() noexcept;
  void ask_later() noexcept;
  bool apply(const redisReply& reply);

  std::array<unsigned, kPartitions> slots_;
  Lane* asked_ = nullptr;     // null: nobody is being asked
  std::size_t next_ask_ = 0;  // of the lanes
  bool is_known_ = false;     // who has which slots
  std::array<char, 320> reason_ = {};
};

}  // namespace vu::store
