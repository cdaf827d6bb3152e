#include "master_type.h"

#include <cmath>
#include <cstddef>

#include "loop.h"

namespace vu_thread {

PyTypeObject master_type = py::static_type("vu_thread.VuThreadMaster", sizeof(Master));

namespace {

constexpr double kLongest = 1e9;  // seconds, some 31 years
constexpr double kNanosecondsPerSecond = 1e9;

// ---- Arguments -------------------------------------------------------------------

// Seconds as nanoseconds. Raises TypeError and ValueError that name the argument.
std::int64_t to_nanoseconds(py::Borrowed value, const char* name) {
  const double seconds = PyFloat_AsDouble(value.get());
  if (seconds == -1.0 && PyErr_Occurred() != nullptr) {
    if (!PyErr_ExceptionMatches(PyExc_TypeError)) throw py::PythonError();
    py::raise(PyExc_TypeError, "%s must be a number of seconds, not %.200s", name,
              Py_TYPE(value.get())->tp_name);
  }
  if (!(seconds >= 0 && seconds <= kLongest)) {
    py::raise(PyExc_ValueError, "%s must be a number of seconds from 0 to 1e9, not %R", name,
              value.get());
  }
  return static_cast<std::int64_t>(std::ceil(seconds * kNanosecondsPerSecond));
}

// The first `count` arguments are the method's own, the last of them the function to call.
void check_call(py::Borrowed args, Py_ssize_t count, const char* method) {
  const Py_ssize_t given = PyTuple_GET_SIZE(args.get());
  if (given < count) {
    py::raise(PyExc_TypeError, "%s() takes at least %zd positional argument%s (%zd given)", method,
              count, count == 1 ? "" : "s", given);
  }
  PyObject* const func = PyTuple_GET_ITEM(args.get(), count - 1);
  if (!PyCallable_Check(func)) {
    py::raise(PyExc_TypeError, "func must be callable, not %.200s", Py_TYPE(func)->tp_name);
  }
}

py::Borrowed func_of(py::Borrowed args, Py_ssize_t count) {
  return py::Borrowed(PyTuple_GET_ITEM(args.get(), count - 1));
}

// What is left for the function itself.
py::Owned rest_of(py::Borrowed args, Py_ssize_t count) {
  return py::checked(PyTuple_GetSlice(args.get(), count, PyTuple_GET_SIZE(args.get())));
}

// `repeat`, the only keyword of add_timer.
bool repeat_of(py::Borrowed keywords) {
  if (keywords.is_null()) return false;
  PyObject* name = nullptr;
  PyObject* value = nullptr;
  Py_ssize_t position = 0;
  bool repeat = false;
  while (PyDict_Next(keywords.get(), &position, &name, &value) != 0) {
    if (PyUnicode_CompareWithASCIIString(name, "repeat") != 0) {
      py::raise(PyExc_TypeError, "add_timer() got an unexpected keyword argument '%U'", name);
    }
    const py::Owned keep = py::Owned::share(py::Borrowed(value));  // its truth runs any code
    repeat = py::checked(PyObject_IsTrue(keep.get())) != 0;
  }
  return repeat;
}

// ---- Methods ----------------------------------------------------------------------

PyObject* run(PyObject* self, PyObject*) {
  return py::enter([&] {
    loop_of(self).run();
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

PyObject* run_once(PyObject* self, PyObject* args, PyObject* keywords) {
  return py::enter([&] {
    static const char* names[] = {"timeout", nullptr};
    PyObject* timeout = Py_None;
    if (keywords == nullptr && PyTuple_GET_SIZE(args) == 1) {  // as a rule
      timeout = PyTuple_GET_ITEM(args, 0);
    } else if (PyArg_ParseTupleAndKeywords(args, keywords, "|O:run_once", const_cast<char**>(names),
                                           &timeout) == 0) {
      throw py::PythonError();
    }
    const std::int64_t wait =
        timeout == Py_None ? -1 : to_nanoseconds(py::Borrowed(timeout), "timeout");
    return py::checked(PyBool_FromLong(loop_of(self).run_once(wait)));
  });
}

PyObject* stop(PyObject* self, PyObject*) {
  return py::enter([&] {
    loop_of(self).stop();
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

PyObject* fileno(PyObject* self, PyObject*) {
  return py::enter([&] { return py::checked(PyLong_FromLong(loop_of(self).fileno())); });
}

PyObject* call_soon(PyObject* self, PyObject* args) {
  return py::enter([&] {
    const py::Borrowed given(args);
    check_call(given, 1, "call_soon");
    const py::Owned rest = rest_of(given, 1);
    return loop_of(self).add_soon(func_of(given, 1), rest);
  });
}

PyObject* add_timer(PyObject* self, PyObject* args, PyObject* keywords) {
  return py::enter([&] {
    const py::Borrowed given(args);
    check_call(given, 2, "add_timer");
    const std::int64_t delay = to_nanoseconds(py::Borrowed(PyTuple_GET_ITEM(args, 0)), "seconds");
    const bool repeat = repeat_of(py::Borrowed(keywords));
    if (repeat && delay == 0) {
      py::raise(PyExc_ValueError, "seconds must be more than 0 for a timer that repeats");
    }
    const py::Owned rest = rest_of(given, 2);
    return loop_of(self).add_timer(delay, repeat ? delay : 0, func_of(given, 2), rest);
  });
}

PyObject* add_descriptor(PyObject* self, py::Borrowed given, Kind kind, const char* method) {
  return py::enter([&] {
    check_call(given, 2, method);
    const int fd = py::checked(PyObject_AsFileDescriptor(PyTuple_GET_ITEM(given.get(), 0)));
    const py::Owned rest = rest_of(given, 2);
    return loop_of(self).add_descriptor(kind, fd, func_of(given, 2), rest);
  });
}

PyObject* add_reader(PyObject* self, PyObject* args) {
  return add_descriptor(self, py::Borrowed(args), Kind::kReader, "add_reader");
}

PyObject* add_writer(PyObject* self, PyObject* args) {
  return add_descriptor(self, py::Borrowed(args), Kind::kWriter, "add_writer");
}

PyObject* is_running(PyObject* self, void*) { return PyBool_FromLong(loop_of(self).is_running()); }

// ---- The type -----------------------------------------------------------------------

PyObject* create(PyTypeObject* type, PyObject*, PyObject*) {
  return py::enter([&] {
    std::unique_ptr<Loop> loop = std::make_unique<Loop>();
    py::Owned self = py::checked(type->tp_alloc(type, 0));
    reinterpret_cast<Master*>(self.get())->loop = loop.release();
    return self;
  });
}

int initialise(PyObject*, PyObject* args, PyObject* keywords) {
  return py::enter_status([&] {
    if (PyTuple_GET_SIZE(args) != 0 || (keywords != nullptr && PyDict_Size(keywords) != 0)) {
      py::raise(PyExc_TypeError, "VuThreadMaster() takes no arguments");
    }
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  const Loop* const loop = reinterpret_cast<Master*>(self)->loop;
  return loop != nullptr ? loop->traverse(visit, arg) : 0;
}

int clear(PyObject* self) {
  loop_of(self).cancel_all();
  return 0;
}

void deallocate(PyObject* self) {
  PyObject_GC_UnTrack(self);
  if (reinterpret_cast<Master*>(self)->weak_references != nullptr) PyObject_ClearWeakRefs(self);
  delete reinterpret_cast<Master*>(self)->loop;
  Py_TYPE(self)->tp_free(self);
}

PyMethodDef methods[] = {
    {"run", run, METH_NOARGS,
     "run()\n--\n\n"
     "Run the loop until stop(). The interpreter lock is released while waiting.\n\n"
     "An exception of a callback is reported through sys.unraisablehook and the loop goes\n"
     "on; KeyboardInterrupt, SystemExit and others that are no Exception, and what a signal\n"
     "handler raises, leave run() and lose no work: run() may be called again."},
    {"run_once", py::method_pointer(run_once), METH_VARARGS | METH_KEYWORDS,
     "run_once(timeout=None)\n--\n\n"
     "Wait until there is something to do, at most timeout seconds (None: as long as it\n"
     "takes, 0: not at all), run what is ready then, and return whether anything ran.\n"
     "stop() ends the wait. Exceptions are treated as in run()."},
    {"stop", stop, METH_NOARGS,
     "stop()\n--\n\n"
     "Make the run() or run_once() under way return when its turn is over; if none is, the\n"
     "next one does one turn without waiting. May be called from callbacks, signal handlers\n"
     "and other threads."},
    {"fileno", fileno, METH_NOARGS,
     "fileno()\n--\n\n"
     "A descriptor that is readable whenever run_once(0) has something to do, for a foreign\n"
     "loop to wait on. It belongs to this object; do not read, write or close it."},
    {"call_soon", call_soon, METH_VARARGS,
     "call_soon(func, *args)\n--\n\n"
     "Call func(*args) in the next turn of the loop, in the order of the call_soon() calls."},
    {"add_timer", py::method_pointer(add_timer), METH_VARARGS | METH_KEYWORDS,
     "add_timer(seconds, func, *args, repeat=False)\n--\n\n"
     "Call func(*args) in so many seconds (0 to 1e9), not earlier and as a rule less than\n"
     "two milliseconds later; with repeat=True again and again at that interval, leaving out\n"
     "the beats that were missed."},
    {"add_reader", add_reader, METH_VARARGS,
     "add_reader(fd, func, *args)\n--\n\n"
     "Call func(*args) in every turn in which fd, a number or an object with fileno(), is\n"
     "readable or broken, until the Thread is cancelled. A descriptor has one reader at most.\n"
     "Cancel before closing fd."},
    {"add_writer", add_writer, METH_VARARGS,
     "add_writer(fd, func, *args)\n--\n\n"
     "Call func(*args) in every turn in which fd, a number or an object with fileno(), is\n"
     "writable or broken, until the Thread is cancelled. A descriptor has one writer at most.\n"
     "Cancel before closing fd."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef attributes[] = {
    py::attribute("running", is_running, nullptr, "Whether run() or run_once() is under way."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

}  // namespace

void prepare_master_type() {
  master_type.tp_doc =
      "VuThreadMaster()\n--\n\n"
      "An event loop: timers, descriptors, soon-callbacks and the replies of store handles.\n\n"
      "One thread at a time runs it. Every method may be called from any thread; what is\n"
      "scheduled from another thread ends the loop's wait. The loop keeps active work alive;\n"
      "when the VuThreadMaster goes away, its work is cancelled. After a fork the child\n"
      "cannot use it.";
  master_type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC;
  master_type.tp_new = create;
  master_type.tp_init = initialise;
  master_type.tp_dealloc = deallocate;
  master_type.tp_traverse = traverse;
  master_type.tp_clear = clear;
  master_type.tp_weaklistoffset = offsetof(Master, weak_references);
  master_type.tp_methods = methods;
  master_type.tp_getset = attributes;
  py::checked(PyType_Ready(&master_type));
}

}  // namespace vu_thread
