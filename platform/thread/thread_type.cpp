#include "thread_type.h"

#include <memory>

#include "loop.h"

namespace vu_thread {

PyTypeObject thread_type = py::static_type("vu_thread.Thread", sizeof(Thread));

namespace {

Thread* self_of(PyObject* self) { return reinterpret_cast<Thread*>(self); }

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kSoon:
      return "soon";
    case Kind::kTimer:
      return "timer";
    case Kind::kReader:
      return "reader";
    case Kind::kWriter:
      return "writer";
  }
  return "";
}

PyObject* cancel(PyObject* self, PyObject*) {
  return py::enter([&] {
    Work& work = *self_of(self)->work;
    const bool was_active = work.state == State::kActive && work.loop->cancel(work);
    return py::checked(PyBool_FromLong(was_active));
  });
}

template <State state>
PyObject* is_in_state(PyObject* self, void*) {
  return PyBool_FromLong(self_of(self)->work->state == state);
}

PyObject* represent(PyObject* self) {
  return py::enter([&] {
    const Thread& thread = *self_of(self);
    const Work& work = *thread.work;
    if (work.state != State::kActive) {
      return py::checked(PyUnicode_FromFormat("<vu_thread.Thread %s, %s>", name_of(work.kind),
                                              work.state == State::kDone ? "done" : "cancelled"));
    }
    const py::Owned func = py::Owned::share(py::Borrowed(thread.func));  // repr runs any code
    if (work.fd >= 0) {
      return py::checked(PyUnicode_FromFormat("<vu_thread.Thread %s of fd %d, active: %R>",
                                              name_of(work.kind), work.fd, func.get()));
    }
    return py::checked(
        PyUnicode_FromFormat("<vu_thread.Thread %s, active: %R>", name_of(work.kind), func.get()));
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(self_of(self)->func);
  Py_VISIT(self_of(self)->args);
  return 0;
}

// There is no tp_clear: a Thread loses what it refers to when its loop lets it go, and only
// an active one refers to anything.
void deallocate(PyObject* self) {
  PyObject_GC_UnTrack(self);
  Thread& thread = *self_of(self);
  Py_CLEAR(thread.func);
  Py_CLEAR(thread.args);
  delete thread.work;
  PyObject_GC_Del(self);
}

PyMethodDef methods[] = {
    {"cancel", cancel, METH_NOARGS,
     "cancel()\n--\n\n"
     "Take the work out of the loop; what it would have called is released.\n\n"
     "Returns True if the work was active, False if it was done or cancelled before.\n"
     "A repeating timer, a reader or a writer may cancel itself while it runs."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef attributes[] = {
    py::attribute("active", is_in_state<State::kActive>, nullptr,
                  "Whether the function will be called (again)."),
    py::attribute("done", is_in_state<State::kDone>, nullptr,
                  "Whether the function was called for the last time, or is being called so."),
    py::attribute("cancelled", is_in_state<State::kCancelled>, nullptr,
                  "Whether cancel() or the end of the VuThreadMaster took the work away."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

}  // namespace

void prepare_thread_type() {
  thread_type.tp_doc =
      "One piece of work in the event loop of a VuThreadMaster, as its add_timer(),\n"
      "call_soon(), add_reader() and add_writer() return it. The loop keeps it alive while\n"
      "it is active; dropping it does not cancel it.";
  thread_type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC;
  thread_type.tp_dealloc = deallocate;
  thread_type.tp_traverse = traverse;
  thread_type.tp_repr = represent;
  thread_type.tp_methods = methods;
  thread_type.tp_getset = attributes;
  py::checked(PyType_Ready(&thread_type));
}

py::Owned new_thread(Loop& loop, Kind kind, py::Borrowed func, py::Borrowed args) {
  auto work = std::make_unique<Work>();
  Thread* const thread = PyObject_GC_New(Thread, &thread_type);
  if (thread == nullptr) throw py::PythonError();
  work->loop = &loop;
  work->kind = kind;
  work->thread = thread;
  thread->func = py::Owned::share(func).release();
  thread->args = py::Owned::share(args).release();
  thread->work = work.release();
  PyObject_GC_Track(as_object(thread));
  return py::Owned::steal(as_object(thread));
}

}  // namespace vu_thread
