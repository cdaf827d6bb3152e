#include "loop.h"

#include <pthread.h>

#include <algorithm>
#include <climits>
#include <new>
#include <optional>

#include "signal_wakeup.h"

namespace vu_thread {
namespace {

constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
constexpr unsigned kMostUnpolledTurns = 16;

Loop* first_loop = nullptr;  // of the list of all loops of the process
unsigned fork_count = 0;     // how often this process's line of ancestors forked

std::int64_t now() { return static_cast<std::int64_t>(uv_hrtime()); }

int to_milliseconds(std::int64_t nanoseconds) {
  if (nanoseconds < 0) return -1;
  const std::int64_t rounded_up =
      nanoseconds / kNanosecondsPerMillisecond + (nanoseconds % kNanosecondsPerMillisecond != 0);
  return static_cast<int>(std::min<std::int64_t>(rounded_up, INT_MAX));
}

std::int64_t sooner(std::int64_t one, std::int64_t other) {
  if (one < 0) return other;
  if (other < 0) return one;
  return std::min(one, other);
}

void raise_uv(int status) {
  if (status == UV_ENOMEM) throw std::bad_alloc();
  const py::Owned arguments = py::checked(Py_BuildValue("(is)", -status, uv_strerror(status)));
  PyErr_SetObject(PyExc_OSError, arguments.get());
  throw py::PythonError();
}

}  // namespace

// The time that a thread spends in run() or run_once().
class Loop::Drive {
 public:
  explicit Drive(Loop& loop) : loop_(loop) {
    loop.refuse_child();
    if (loop.driver_ == std::this_thread::get_id()) {
      py::raise(PyExc_RuntimeError,
                "this VuThreadMaster is running already: "
                "run() and run_once() cannot be called from its callbacks");
    }
    if (loop.is_running()) {
      py::raise(PyExc_RuntimeError, "this VuThreadMaster is being run by another thread");
    }
    loop.driver_ = std::this_thread::get_id();
  }
  ~Drive() {
    loop_.driver_ = std::thread::id();
    loop_.is_stopping_ = false;
    if (loop_.is_external_ && !loop_.is_from_parent()) loop_.publish();
  }
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;

 private:
  Loop& loop_;
};

Loop::Loop() : uv_(std::make_unique<uv_loop_t>()), fork_count_(fork_count) {
  static const int watching_forks = pthread_atfork(nullptr, nullptr, [] { ++fork_count; });
  static_cast<void>(watching_forks);
  const int status = uv_loop_init(uv_.get());
  if (status != 0) raise_uv(status);
  try {
    waits_ = std::make_unique<WaitSet>(uv_backend_fd(uv_.get()));
  } catch (...) {
    uv_loop_close(uv_.get());
    throw;
  }
  uv_prepare_init(uv_.get(), &keep_alive_);
  uv_prepare_start(&keep_alive_, [](uv_prepare_t*) {});
  uv_run(uv_.get(), UV_RUN_NOWAIT);  // uv's own descriptors go into its set
  next_loop_ = first_loop;
  first_loop = this;
}

Loop::~Loop() {
  Loop** link = &first_loop;
  while (*link != this) link = &(*link)->next_loop_;
  *link = next_loop_;

  cancel_all();
  if (is_from_parent()) {  // the parent still uses what the kernel holds for both
    static_cast<void>(uv_.release());
    static_cast<void>(waits_.release());
    return;
  }
  close_timers();
  uv_close(reinterpret_cast<uv_handle_t*>(&keep_alive_), nullptr);
  // One turn closes what is closing; a second one what the first one began to close.
  for (int turns = 0; turns < 8 && uv_loop_alive(uv_.get()) != 0; ++turns) {
    uv_run(uv_.get(), UV_RUN_NOWAIT);
  }
  // Where somebody has left a handle in it, the loop stays, because the handle may.
  if (uv_loop_close(uv_.get()) != 0) static_cast<void>(uv_.release());
}

bool Loop::is_from_parent() const { return fork_count_ != fork_count; }

void Loop::refuse_child() const {
  if (is_from_parent()) {
    py::raise(PyExc_RuntimeError,
              "this VuThreadMaster belongs to the parent process: make a new one after fork");
  }
}

// ---- Turns ---------------------------------------------------------------------

void Loop::run() {
  const Drive drive(*this);
  const SignalWakeup signals(*waits_);
  do {
    turn(next_wait());
  } while (!is_stopping_);
}

bool Loop::run_once(std::int64_t timeout) {
  const Drive drive(*this);
  std::optional<SignalWakeup> signals;
  if (timeout != 0) signals.emplace(*waits_);
  const std::int64_t deadline = timeout > 0 ? now() + timeout : timeout;
  for (;;) {
    const std::int64_t left =
        timeout > 0 ? std::max<std::int64_t>(deadline - now(), 0) : timeout;  // none, or no limit
    if (turn(sooner(next_wait(), left))) return true;
    if (is_stopping_ || left == 0) return false;
  }
}

void Loop::stop() {
  is_stopping_ = true;
  changed();
}

// How long the next turn has to wait, in nanoseconds; 0: not at all, -1: no limit.
std::int64_t Loop::next_wait() {
  if (is_stopping_ || ready_count_ != 0) return 0;
  std::int64_t wait = -1;
  for (const auto& source : sources_) {
    if (source->is_woken) return 0;
    const std::int64_t due = source->next_due(source->user);
    const bool is_far = due > INT64_MAX / kNanosecondsPerMicrosecond;
    wait = sooner(wait, due < 0 ? -1 : is_far ? INT64_MAX : due * kNanosecondsPerMicrosecond);
  }
  uv_update_time(uv_.get());
  const int uv_wait = uv_backend_timeout(uv_.get());
  return sooner(wait, uv_wait < 0 ? -1 : uv_wait * kNanosecondsPerMillisecond);
}

bool Loop::turn(std::int64_t wait) {
  refuse_child();
  if (wait != 0 || must_poll()) {
    waits_->wait(to_milliseconds(wait));
    unpolled_turns_ = 0;
  } else {
    waits_->find_nothing();
    ++unpolled_turns_;
  }
  queue_descriptors();
  py::checked(PyErr_CheckSignals());
  bool ran = run_uv();
  if (deliver_sources()) ran = true;
  if (run_ready()) ran = true;
  return ran;
}

// Whether a turn that need not wait has to ask the kernel what became ready. Not where nobody
// has given the loop a descriptor; but now and then all the same, because uv does not count
// the handles that somebody does not want to be counted.
bool Loop::must_poll() const {
  const bool uv_is_idle = uv_->active_handles == 1 && uv_->active_reqs.count == 0;  // keep_alive_
  return !watches_.empty() || !uv_is_idle || is_external_ || waits_->is_signalled() ||
         unpolled_turns_ >= kMostUnpolledTurns;
}

bool Loop::run_uv() {
  if (!waits_->uv_is_ready()) {
    if (uv_backend_timeout(uv_.get()) < 0) return false;  // there are no timers
    uv_update_time(uv_.get());
    if (uv_backend_timeout(uv_.get()) != 0) return false;
  }
  uv_run(uv_.get(), UV_RUN_NOWAIT);
  return waits_->uv_is_ready();
}

bool Loop::deliver_sources() {
  bool ran = false;
  is_delivering_ = true;
  for (std::size_t i = 0; i < sources_.size(); ++i) {  // deliver may add sources
    vu_thread_source& source = *sources_[i];
    if (source.is_removed) continue;
    if (!source.is_woken && source.next_due(source.user) != 0) continue;
    source.is_woken = false;
    if (source.deliver(source.user) != 0) source.is_woken = true;
    ran = true;
  }
  is_delivering_ = false;
  std::erase_if(sources_, [](const auto& source) { return source->is_removed; });
  return ran;
}

bool Loop::run_ready() {
  bool ran = false;
  for (std::size_t left = ready_count_; left != 0; --left) {
    refuse_child();  // a callback may have forked: the rest is the parent's
    const py::Owned thread = next_ready();
    if (run_work(*as_thread(thread))) ran = true;
  }
  return ran;
}

// Runs the work if it is still wanted. Raises what is no Exception.
bool Loop::run_work(Thread& thread) {
  Work& work = *thread.work;
  if (work.state != State::kActive) return false;
  const py::Owned func = py::Owned::share(py::Borrowed(thread.func));
  const py::Owned args = py::Owned::share(py::Borrowed(thread.args));
  if (work.interval != 0) {
    // Beats that were missed are left out; the others stay where they belong.
    const std::int64_t late = now() - work.due;
    work.due += (std::max<std::int64_t>(late, 0) / work.interval + 1) * work.interval;
    start_timer(work);
  } else if (work.kind == Kind::kSoon || work.kind == Kind::kTimer) {
    finish(work, State::kDone);
  }
  const py::Owned result = py::Owned::steal(PyObject_Call(func.get(), args.get(), nullptr));
  if (result.is_null()) {
    if (!PyErr_ExceptionMatches(PyExc_Exception)) throw py::PythonError();
    PyErr_WriteUnraisable(func.get());
  }
  return true;
}

// ---- Waking up -------------------------------------------------------------------

// To be called after every change that may end a wait.
void Loop::changed() {
  if (is_from_parent()) return;
  if (waits_->is_waiting()) {
    waits_->signal();
  } else if (is_external_ && !is_running()) {
    publish();
  }
}

// Makes the descriptor say what next_wait() says.
void Loop::publish() {
  const std::int64_t wait = next_wait();
  if (wait == 0) {
    waits_->signal();
  } else {
    waits_->arm(wait);
  }
}

int Loop::fileno() {
  refuse_child();
  if (!is_external_) {
    waits_->open_timer();
    is_external_ = true;
    changed();
  }
  return waits_->descriptor();
}

// ---- Sources -----------------------------------------------------------------------

vu_thread_source* Loop::add_source(vu_thread_deliver deliver, vu_thread_next_due next_due,
                                   void* user) {
  refuse_child();
  sources_.push_back(std::make_unique<vu_thread_source>(
      vu_thread_source{.deliver = deliver, .next_due = next_due, .user = user, .loop = this}));
  changed();
  return sources_.back().get();
}

void Loop::remove_source(vu_thread_source* source) {
  source->is_removed = true;
  source->is_woken = false;
  source->next_due = [](void*) -> std::int64_t { return -1; };
  if (is_delivering_) return;  // the end of the delivery sweeps
  std::erase_if(sources_, [](const auto& entry) { return entry->is_removed; });
}

void Loop::wake(vu_thread_source* source) {
  if (source->is_woken || source->is_removed) return;
  source->is_woken = true;
  changed();
}

// ---- The whole process ---------------------------------------------------------------

bool Loop::is_driven_elsewhere() const {
  return is_running() && driver_ != std::this_thread::get_id() && !is_from_parent();
}

void Loop::stop_others() {
  for (Loop* loop = first_loop; loop != nullptr; loop = loop->next_loop_) {
    if (loop->is_driven_elsewhere()) loop->stop();
  }
}

bool Loop::any_driven_elsewhere() {
  for (const Loop* loop = first_loop; loop != nullptr; loop = loop->next_loop_) {
    if (loop->is_driven_elsewhere()) return true;
  }
  return false;
}

}  // namespace vu_thread
