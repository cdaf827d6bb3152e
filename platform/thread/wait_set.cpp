#include "wait_set.h"

#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace vu_thread {
namespace {

// What an event belongs to is in the upper half of its data: one of these for the set's
// own descriptors, else the generation of a descriptor of the application.
enum Tag : std::uint32_t { kUv = 1u << 30, kWake, kTimer, kSignals };

std::atomic<bool> threads_are_held{false};

bool is_main_thread() { return syscall(SYS_gettid) == getpid(); }

int control(int epoll, int operation, int fd, std::uint32_t tag, std::uint32_t events) {
  epoll_event event = {};
  event.events = events;
  event.data.u64 = (std::uint64_t{tag} << 32) | static_cast<std::uint32_t>(fd);
  return epoll_ctl(epoll, operation, fd, &event) == 0 ? 0 : errno;
}

}  // namespace

void hold_waiting_threads() { threads_are_held = true; }

WaitSet::WaitSet(int uv_fd) : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ >= 0) wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0 || control(epoll_, EPOLL_CTL_ADD, wake_, kWake, EPOLLIN) != 0 ||
      control(epoll_, EPOLL_CTL_ADD, uv_fd, kUv, EPOLLIN) != 0) {
    PyErr_SetFromErrno(PyExc_OSError);
    if (wake_ >= 0) close(wake_);
    if (epoll_ >= 0) close(epoll_);
    throw py::PythonError();
  }
}

WaitSet::~WaitSet() {
  if (timer_ >= 0) close(timer_);
  close(wake_);
  close(epoll_);
}

int WaitSet::add(int fd, std::uint32_t generation, std::uint32_t events) {
  return control(epoll_, EPOLL_CTL_ADD, fd, generation, events);
}

int WaitSet::modify(int fd, std::uint32_t generation, std::uint32_t events) {
  return control(epoll_, EPOLL_CTL_MOD, fd, generation, events);
}

void WaitSet::remove(int fd) {
  control(epoll_, EPOLL_CTL_DEL, fd, 0, 0);  // fails where the descriptor was closed before
}

void WaitSet::watch_signals(int pipe_fd) {
  control(epoll_, EPOLL_CTL_ADD, pipe_fd, kSignals, EPOLLIN);  // fails where it is watched
}

void WaitSet::wait(int milliseconds) {
  std::array<epoll_event, kMostEvents> events;
  int count = 0;
  if (milliseconds == 0) {
    count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 0);
  } else {
    is_waiting_ = true;
    PyThreadState* const state = PyEval_SaveThread();
    count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), milliseconds);
    while (threads_are_held && !is_main_thread()) pause();
    PyEval_RestoreThread(state);
    is_waiting_ = false;
  }
  // An interrupted wait found nothing; the caller looks after signals in any case.
  uv_is_ready_ = false;
  ready_count_ = 0;
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    const auto tag = static_cast<std::uint32_t>(event.data.u64 >> 32);
    const auto fd = static_cast<int>(event.data.u64 & 0xffffffffu);
    switch (tag) {
      case kUv:
        uv_is_ready_ = true;
        break;
      case kWake:
        drain(fd);
        is_signalled_ = false;
        break;
      case kTimer:
        drain(fd);
        is_armed_ = false;
        break;
      case kSignals:
        drain(fd);
        break;
      default:
        ready_[ready_count_++] = {fd, tag, event.events};
    }
  }
}

void WaitSet::drain(int fd) {
  std::array<char, 256> unused;
  while (read(fd, unused.data(), unused.size()) == static_cast<ssize_t>(unused.size())) {
  }
}

void WaitSet::signal() {
  if (is_signalled_) return;
  const std::uint64_t one = 1;
  is_signalled_ = write(wake_, &one, sizeof one) == sizeof one;
}

void WaitSet::open_timer() {
  if (timer_ >= 0) return;
  const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
  if (fd < 0 || control(epoll_, EPOLL_CTL_ADD, fd, kTimer, EPOLLIN) != 0) {
    PyErr_SetFromErrno(PyExc_OSError);
    if (fd >= 0) close(fd);
    throw py::PythonError();
  }
  timer_ = fd;
}

void WaitSet::arm(std::int64_t nanoseconds) {
  if (nanoseconds < 0 && !is_armed_) return;
  itimerspec when = {};  // all zero: disarmed
  if (nanoseconds == 0) {
    when.it_value.tv_nsec = 1;
  } else if (nanoseconds > 0) {
    when.it_value.tv_sec = static_cast<time_t>(nanoseconds / 1000000000);
    when.it_value.tv_nsec = static_cast<long>(nanoseconds % 1000000000);
  }
  timerfd_settime(timer_, 0, &when, nullptr);
  is_armed_ = nanoseconds >= 0;
}

}  // namespace vu_thread
