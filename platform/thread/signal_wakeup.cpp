#include "signal_wakeup.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "python/error.h"
#include "wait_set.h"

namespace vu_thread {
namespace {

// One pipe for the process, made by the first wait on the main thread. A forked child
// makes its own: the parent's signals are not the child's.
struct Pipe {
  int reading = -1;
  int writing = -1;
  pid_t owner = 0;

  bool open() {
    const pid_t self = getpid();
    if (owner == self) return true;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    reading = ends[0];
    writing = ends[1];
    owner = self;
    return true;
  }
};

Pipe signal_pipe;

// signal.set_wakeup_fd: the interpreter exports nothing else for it.
PyObject* set_wakeup_function = nullptr;

// Returns the previous descriptor; -1: there was none. Raises ValueError where this is not
// what the interpreter calls its main thread.
int set_wakeup(int fd) {
  const py::Owned previous = py::checked(PyObject_CallFunction(set_wakeup_function, "i", fd));
  const long number = PyLong_AsLong(previous.get());
  if (number == -1 && PyErr_Occurred() != nullptr) throw py::PythonError();
  return static_cast<int>(number);
}

}  // namespace

void prepare_signal_wakeup() {
  // Not by way of signal, which imports enum and takes longer than all the platform.
  const py::Owned module = py::checked(PyImport_ImportModule("_signal"));
  set_wakeup_function =
      py::checked(PyObject_GetAttrString(module.get(), "set_wakeup_fd")).release();
}

SignalWakeup::SignalWakeup(WaitSet& set) {
  if (syscall(SYS_gettid) != getpid() || !signal_pipe.open()) return;
  if (py::enter_status([&] { previous_ = set_wakeup(signal_pipe.writing); }) != 0) {
    PyErr_Clear();  // signals still interrupt the waits of this thread
    return;
  }
  is_installed_ = true;
  if (previous_ >= 0 && previous_ != signal_pipe.writing) {
    uninstall();
    return;
  }
  set.watch_signals(signal_pipe.reading);
}

SignalWakeup::~SignalWakeup() {
  if (is_installed_) uninstall();
}

void SignalWakeup::uninstall() {
  py::SavedError error;
  py::enter_status([&] {
    const int current = set_wakeup(previous_);
    if (current != signal_pipe.writing) set_wakeup(current);  // a callback set its own
  });
  error.restore();  // in place of what may have failed here, which nobody can act upon
  is_installed_ = false;
}

}  // namespace vu_thread
