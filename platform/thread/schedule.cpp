// Work in the loop: how it is scheduled, becomes due and ends.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "loop.h"

namespace vu_thread {

namespace {

constexpr std::size_t kMostUnusedTimers = 1024;

constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::uint32_t kMostGenerations = (1u << 30) - 1;

std::int64_t now() { return static_cast<std::int64_t>(uv_hrtime()); }

Work& work_of(py::Borrowed thread) { return *as_thread(thread)->work; }

}  // namespace

// ---- Lists -------------------------------------------------------------------------

void Loop::enlist(Work& work) {
  static_cast<void>(py::Owned::share(py::Borrowed(as_object(work.thread))).release());
  work.next = active_;
  if (active_ != nullptr) active_->previous = &work;
  active_ = &work;
}

// The work is not active any more. May free it, and may run Python code.
void Loop::finish(Work& work, State state) {
  work.state = state;
  if (work.timer != nullptr) give_back(std::exchange(work.timer, nullptr));
  if (work.kind == Kind::kReader || work.kind == Kind::kWriter) unwatch(work);
  (work.previous != nullptr ? work.previous->next : active_) = work.next;
  if (work.next != nullptr) work.next->previous = work.previous;
  const py::Owned thread = py::Owned::steal(as_object(work.thread));
  const py::Owned func = py::Owned::steal(std::exchange(work.thread->func, nullptr));
  const py::Owned args = py::Owned::steal(std::exchange(work.thread->args, nullptr));
}

void Loop::queue(Work& work) {
  if (work.is_queued) return;
  work.is_queued = true;
  work.next_ready = nullptr;
  static_cast<void>(py::Owned::share(py::Borrowed(as_object(work.thread))).release());
  (last_ready_ != nullptr ? last_ready_->next_ready : first_ready_) = &work;
  last_ready_ = &work;
  ++ready_count_;
}

// Takes the oldest entry out of the queue, which is not empty.
py::Owned Loop::next_ready() {
  Work& work = *first_ready_;
  first_ready_ = work.next_ready;
  if (first_ready_ == nullptr) last_ready_ = nullptr;
  --ready_count_;
  work.is_queued = false;
  return py::Owned::steal(as_object(work.thread));
}

bool Loop::cancel(Work& work) {
  if (work.state != State::kActive) return false;
  finish(work, State::kCancelled);
  return true;
}

void Loop::cancel_all() {
  while (active_ != nullptr) finish(*active_, State::kCancelled);
  while (ready_count_ != 0) next_ready();
}

int Loop::traverse(visitproc visit, void* arg) const {
  for (const Work* work = active_; work != nullptr; work = work->next) Py_VISIT(work->thread);
  for (const Work* work = first_ready_; work != nullptr; work = work->next_ready) {
    Py_VISIT(work->thread);
  }
  return 0;
}

// ---- Soon and by the clock -----------------------------------------------------------

py::Owned Loop::add_soon(py::Borrowed func, py::Borrowed args) {
  refuse_child();
  py::Owned thread = new_thread(*this, Kind::kSoon, func, args);
  enlist(work_of(thread));
  queue(work_of(thread));
  changed();
  return thread;
}

py::Owned Loop::add_timer(std::int64_t delay, std::int64_t interval, py::Borrowed func,
                          py::Borrowed args) {
  refuse_child();
  py::Owned thread = new_thread(*this, Kind::kTimer, func, args);
  Work& work = work_of(thread);
  work.timer = take_timer();
  work.timer->handle.data = &work;
  work.due = now() + delay;
  work.interval = interval;
  enlist(work);
  start_timer(work);
  changed();
  return thread;
}

Timer* Loop::take_timer() {
  if (unused_timers_ == nullptr) {
    Timer* const timer = new Timer();
    uv_timer_init(uv_.get(), &timer->handle);
    return timer;
  }
  --unused_timer_count_;
  return std::exchange(unused_timers_, unused_timers_->next_unused);
}

void Loop::give_back(Timer* timer) {
  uv_timer_stop(&timer->handle);
  timer->next_unused = std::exchange(unused_timers_, timer);
  if (++unused_timer_count_ > kMostUnusedTimers) close_timers();
}

void Loop::close_timers() {
  while (unused_timers_ != nullptr) {
    Timer* const timer = std::exchange(unused_timers_, unused_timers_->next_unused);
    uv_close(reinterpret_cast<uv_handle_t*>(&timer->handle),
             [](uv_handle_t* handle) { delete reinterpret_cast<Timer*>(handle); });
  }
  unused_timer_count_ = 0;
}

// Never early: uv counts in whole milliseconds and rounds its clock down.
void Loop::start_timer(Work& work) {
  uv_update_time(uv_.get());
  std::uint64_t wait = 0;
  if (work.due > now()) {
    const auto due = static_cast<std::uint64_t>((work.due + kNanosecondsPerMillisecond - 1) /
                                                kNanosecondsPerMillisecond);
    wait = due - std::min(due, uv_now(uv_.get()));
  }
  uv_timer_start(&work.timer->handle, on_timer, wait, 0);
}

void Loop::on_timer(uv_timer_t* handle) {
  Work& work = *static_cast<Work*>(handle->data);
  work.loop->queue(work);
}

// ---- Descriptors -----------------------------------------------------------------------

std::uint32_t Loop::Watch::events() const {
  return (reader != nullptr ? EPOLLIN | EPOLLRDHUP : 0u) | (writer != nullptr ? EPOLLOUT : 0u);
}

// The watch of `fd` with a free place for `kind`. Raises ValueError.
Loop::Watch& Loop::make_watch(Kind kind, int fd) {
  const auto found = watches_.find(fd);
  if (found != watches_.end()) {
    const Watch& watch = found->second;
    const int error = waits_->modify(fd, watch.generation, watch.events());
    if (error == 0) {
      if (found->second.slot(kind) != nullptr) {
        py::raise(PyExc_ValueError, "fd %d has a %s already: cancel it first", fd,
                  kind == Kind::kReader ? "reader" : "writer");
      }
      return found->second;
    }
    // The descriptor was closed while it was watched, and what has its number now is another.
    Work* const reader = watch.reader;
    Work* const writer = watch.writer;
    const py::Owned keep =
        py::Owned::share(py::Borrowed(writer != nullptr ? as_object(writer->thread) : nullptr));
    if (reader != nullptr) cancel(*reader);
    if (writer != nullptr) cancel(*writer);
    return make_watch(kind, fd);
  }
  last_generation_ = last_generation_ % kMostGenerations + 1;
  Watch& watch = watches_[fd];
  watch.generation = last_generation_;
  return watch;
}

py::Owned Loop::add_descriptor(Kind kind, int fd, py::Borrowed func, py::Borrowed args) {
  refuse_child();
  py::Owned thread = new_thread(*this, kind, func, args);
  Work& work = work_of(thread);
  work.fd = fd;
  Watch& watch = make_watch(kind, fd);
  const bool is_new = watch.events() == 0;
  watch.slot(kind) = &work;
  const int error = is_new ? waits_->add(fd, watch.generation, watch.events())
                           : waits_->modify(fd, watch.generation, watch.events());
  if (error != 0) {
    watch.slot(kind) = nullptr;
    if (is_new) watches_.erase(fd);
    const py::Owned text =
        py::checked(PyUnicode_FromFormat("fd %d cannot be watched: %s", fd, std::strerror(error)));
    const py::Owned arguments = py::checked(Py_BuildValue("(iO)", error, text.get()));
    PyErr_SetObject(PyExc_OSError, arguments.get());
    throw py::PythonError();
  }
  enlist(work);
  return thread;
}

void Loop::unwatch(Work& work) {
  const auto found = watches_.find(work.fd);
  Watch& watch = found->second;
  watch.slot(work.kind) = nullptr;
  const bool is_last = watch.events() == 0;
  if (!is_from_parent()) {  // the parent shares the set
    if (is_last) {
      waits_->remove(work.fd);
    } else {
      waits_->modify(work.fd, watch.generation, watch.events());
    }
  }
  if (is_last) watches_.erase(found);
}

// Errors and hang-ups wake both sides: whichever is there finds out by its next call.
void Loop::queue_descriptors() {
  constexpr std::uint32_t kBroken = EPOLLERR | EPOLLHUP;
  for (const WaitSet::Ready& ready : *waits_) {
    const auto found = watches_.find(ready.fd);
    if (found == watches_.end() || found->second.generation != ready.generation) continue;
    const Watch& watch = found->second;
    if (watch.reader != nullptr && (ready.events & (EPOLLIN | EPOLLRDHUP | kBroken)) != 0) {
      queue(*watch.reader);
    }
    if (watch.writer != nullptr && (ready.events & (EPOLLOUT | kBroken)) != 0) {
      queue(*watch.writer);
    }
  }
}

}  // namespace vu_thread
