// The event loop behind VuThreadMaster.
//
// A loop runs in turns. A turn waits until there is something to do, collects what became
// ready (descriptors, timers) in one queue, lets the sources deliver a batch each, and then
// runs the queue as it was at that moment; what is queued meanwhile waits for the next turn,
// so that nothing starves the rest. The interpreter lock is released during the wait and at
// no other time: everything here, uv callbacks included, runs with the lock held.
#pragma once

#include <uv.h>

#include <cstdint>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

#include "thread_type.h"
#include "vu_thread_api.h"
#include "wait_set.h"

namespace vu_thread {
class Loop;
}

struct vu_thread_source {
  vu_thread_deliver deliver;
  vu_thread_next_due next_due;
  void* user;
  vu_thread::Loop* loop;
  bool is_woken = false;
  bool is_removed = false;
};

namespace vu_thread {

enum class Kind : std::uint8_t { kSoon, kTimer, kReader, kWriter };
enum class State : std::uint8_t { kActive, kDone, kCancelled };

// The uv part of a timer. Closing one costs a turn of the uv loop, so they are used again.
struct Timer {
  uv_timer_t handle;  // its data is the Work
  Timer* next_unused;
};

// What a Thread stands for. Active work is in its loop's list of active work; work whose turn
// has come is in the loop's queue too, and stays there when it is cancelled meanwhile. Each of
// the two owns a reference to the Thread. Work that is not active never looks at `loop`.
struct Work {
  Loop* loop = nullptr;
  Kind kind = Kind::kSoon;
  State state = State::kActive;
  bool is_queued = false;
  int fd = -1;
  Timer* timer = nullptr;
  std::int64_t due = 0;       // on uv_hrtime's clock, nanoseconds
  std::int64_t interval = 0;  // 0: once
  Thread* thread = nullptr;
  Work* previous = nullptr;
  Work* next = nullptr;
  Work* next_ready = nullptr;
};

class Loop {
 public:
  Loop();  // raises OSError
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // Each returns a Thread. Durations are in nanoseconds; an interval of 0 is no repetition.
  py::Owned add_soon(py::Borrowed func, py::Borrowed args);
  py::Owned add_timer(std::int64_t delay, std::int64_t interval, py::Borrowed func,
                      py::Borrowed args);
  py::Owned add_descriptor(Kind kind, int fd, py::Borrowed func, py::Borrowed args);

  // Whether the work was active. May run Python code: finalisers of what the work held.
  bool cancel(Work& work);
  void cancel_all();

  // Runs turns until stop(). Raises what a signal handler raises, and what leaves a callback
  // without being an Exception (KeyboardInterrupt, SystemExit).
  void run();
  // Runs one turn; waits at most `timeout` nanoseconds (-1: no limit) for something to do.
  // Returns whether anything ran.
  bool run_once(std::int64_t timeout);
  void stop();
  bool is_running() const { return driver_ != std::thread::id(); }
  // Whether another thread is inside run() or run_once().
  bool is_driven_elsewhere() const;

  // Readable whenever run_once(0) would run something.
  int fileno();

  vu_thread_source* add_source(vu_thread_deliver deliver, vu_thread_next_due next_due, void* user);
  void remove_source(vu_thread_source* source);
  void wake(vu_thread_source* source);
  uv_loop_t* uv() { return uv_.get(); }

  // Made by the parent of this process, which goes on using what the kernel holds for it.
  bool is_from_parent() const;

  int traverse(visitproc visit, void* argument) const;

  // The loops of the process, for the end of the interpreter.
  static void stop_others();
  static bool any_driven_elsewhere();

 private:
  class Drive;
  struct Watch {
    std::uint32_t generation = 0;
    Work* reader = nullptr;
    Work* writer = nullptr;

    std::uint32_t events() const;
    Work*& slot(Kind kind) { return kind == Kind::kReader ? reader : writer; }
  };

  void refuse_child() const;
  std::int64_t next_wait();
  bool turn(std::int64_t wait);
  bool must_poll() const;
  void queue_descriptors();
  bool run_uv();
  bool deliver_sources();
  bool run_ready();
  bool run_work(Thread& thread);

  void enlist(Work& work);
  void finish(Work& work, State state);
  void queue(Work& work);
  py::Owned next_ready();
  Timer* take_timer();
  void give_back(Timer* timer);
  void close_timers();
  void start_timer(Work& work);
  Watch& make_watch(Kind kind, int fd);
  void unwatch(Work& work);
  void changed();
  void publish();

  static void on_timer(uv_timer_t* handle);

  std::unique_ptr<uv_loop_t> uv_;
  uv_prepare_t keep_alive_;  // without an active handle uv would not say how long to wait
  std::unique_ptr<WaitSet> waits_;
  Work* active_ = nullptr;
  Timer* unused_timers_ = nullptr;
  std::size_t unused_timer_count_ = 0;
  Work* first_ready_ = nullptr;
  Work* last_ready_ = nullptr;
  std::size_t ready_count_ = 0;
  std::unordered_map<int, Watch> watches_;
  std::uint32_t last_generation_ = 0;
  std::vector<std::unique_ptr<vu_thread_source>> sources_;
  const unsigned fork_count_;
  std::thread::id driver_;       // the thread inside run() or run_once(), if any
  unsigned unpolled_turns_ = 0;  // since the last that asked the kernel
  bool is_delivering_ = false;
  bool is_stopping_ = false;
  bool is_external_ = false;  // fileno() was called: somebody may be waiting there
  Loop* next_loop_ = nullptr;
};

}  // namespace vu_thread
