// The kernel's side of the event loop: one epoll set, which holds everything that can end
// a wait, and which is itself the descriptor that a foreign loop watches.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstdint>

#include "python/error.h"

namespace vu_thread {

// Requires the interpreter lock for every function.
class WaitSet {
 public:
  // A descriptor of the application that became ready.
  struct Ready {
    int fd;
    std::uint32_t generation;
    std::uint32_t events;
  };

  // `uv_fd` is the descriptor of the uv loop; it stays open longer than the set.
  // Raises OSError.
  explicit WaitSet(int uv_fd);
  ~WaitSet();
  WaitSet(const WaitSet&) = delete;
  WaitSet& operator=(const WaitSet&) = delete;

  // Readable when wait() would not have to wait. Belongs to the set.
  int descriptor() const { return epoll_; }

  // Descriptors of the application. `generation`, below 2^30, tells a descriptor from an
  // earlier one of the same number. Returns 0 or an errno.
  int add(int fd, std::uint32_t generation, std::uint32_t events);
  int modify(int fd, std::uint32_t generation, std::uint32_t events);
  void remove(int fd);

  // Waits until something is ready, at most `milliseconds` (-1: no limit), and forgets
  // earlier signals. The lock is released unless `milliseconds` is 0.
  void wait(int milliseconds);

  // As a wait that found nothing, without asking. Requires: is_signalled() is false.
  void find_nothing() {
    uv_is_ready_ = false;
    ready_count_ = 0;
  }

  // What the last wait found.
  bool uv_is_ready() const { return uv_is_ready_; }
  const Ready* begin() const { return ready_.data(); }
  const Ready* end() const { return ready_.data() + ready_count_; }

  // Whether a thread waits at this moment.
  bool is_waiting() const { return is_waiting_; }
  // Whether signal() was called since the last wait.
  bool is_signalled() const { return is_signalled_; }
  // Ends the wait, or makes the descriptor readable until the next one.
  void signal();
  // Has to be called before arm(). Raises OSError.
  void open_timer();
  // Makes the descriptor readable in `nanoseconds`; -1: not by the clock.
  void arm(std::int64_t nanoseconds);
  // Waits end when the nonblocking `pipe_fd` is readable; what it holds is dropped.
  void watch_signals(int pipe_fd);

 private:
  void drain(int fd);

  static constexpr std::size_t kMostEvents = 128;

  int epoll_ = -1;
  int wake_ = -1;   // an eventfd
  int timer_ = -1;  // a timerfd, see open_timer()
  bool is_waiting_ = false;
  bool is_signalled_ = false;
  bool is_armed_ = false;
  bool uv_is_ready_ = false;
  std::size_t ready_count_ = 0;
  std::array<Ready, kMostEvents> ready_;
};

// From now on threads other than the main one stay in wait() when it ends: they must not
// come back into an interpreter that goes away.
void hold_waiting_threads();

}  // namespace vu_thread
