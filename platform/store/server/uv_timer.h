// A timer of a uv loop, owned.
#pragma once

#include <uv.h>

#include <cstdint>

namespace vu::store {

// Microseconds that never go back, read now; the loop's own time is as old as its turn.
inline std::int64_t steady_us() { return static_cast<std::int64_t>(uv_hrtime() / 1000); }

class UvTimer {
 public:
  // Who finds that time is up looks again, so much later at least: the loop may have been away, and
  // what was waited for be there. In microseconds.
  static constexpr std::int64_t kSecondLook = 1'000;

  // `on_time` is called with `user`, from the loop.
  UvTimer(uv_loop_t* loop, void (*on_time)(void*), void* user)
      : state_(new State{{}, on_time, user}) {
    uv_timer_init(loop, &state_->handle);
    state_->handle.data = state_;
  }
  UvTimer(const UvTimer&) = delete;
  UvTimer& operator=(const UvTimer&) = delete;
  ~UvTimer() {
    uv_timer_stop(&state_->handle);
    uv_close(reinterpret_cast<uv_handle_t*>(&state_->handle),
             [](uv_handle_t* handle) { delete static_cast<State*>(handle->data); });
  }

  // Once, in so many microseconds; rounded up to milliseconds, so that it is never early.
  void start(std::int64_t us) {
    uv_update_time(state_->handle.loop);
    const std::int64_t ms = us <= 0 ? 0 : (us - 1) / 1000 + 1;
    uv_timer_start(
        &state_->handle,
        [](uv_timer_t* handle) {
          const auto* const state = static_cast<State*>(handle->data);
          state->on_time(state->user);
        },
        static_cast<std::uint64_t>(ms), 0);
  }
  void stop() { uv_timer_stop(&state_->handle); }
  bool is_running() const {
    return uv_is_active(reinterpret_cast<const uv_handle_t*>(&state_->handle)) != 0;
  }

 private:
  struct State {
    uv_timer_t handle;
    void (*on_time)(void*);
    void* user;
  };
  State* state_;  // its memory belongs to the loop once it is being closed
};

}  // namespace vu::store
