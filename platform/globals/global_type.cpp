#include "global_type.h"

#include <cmath>
#include <cstddef>
#include <memory>

namespace vu_global {

PyTypeObject global_type = py::static_type("vu_global.VuGlobal", sizeof(Global));

namespace {

Global& global_of(PyObject* self) { return *reinterpret_cast<Global*>(self); }

Link& link_of(PyObject* self) {
  Link* const link = global_of(self).link;
  if (link == nullptr) py::raise(PyExc_RuntimeError, "VuGlobal.__init__() was not called");
  return *link;
}

py::Owned none() { return py::Owned::share(py::Borrowed(Py_None)); }

// ---- Life -------------------------------------------------------------------------

py::Owned master_of(py::Borrowed given) {
  PyObject* const type = reinterpret_cast<PyObject*>(thread_api->master_type);
  if (given.is_none()) return py::checked(PyObject_CallObject(type, nullptr));
  if (PyObject_TypeCheck(given.get(), thread_api->master_type) == 0) {
    py::raise(PyExc_TypeError, "thread_master must be a VuThreadMaster or None, not %.200s",
              Py_TYPE(given.get())->tp_name);
  }
  return py::Owned::share(given);
}

py::Owned store_of(py::Borrowed given) {
  if (given.is_null()) return py::checked(PyUnicode_FromString("embedded:"));
  if (!PyUnicode_Check(given.get())) {
    py::raise(PyExc_TypeError, "store must be a str, not %.200s", Py_TYPE(given.get())->tp_name);
  }
  return py::Owned::share(given);
}

int initialise(PyObject* self, PyObject* args, PyObject* keywords) {
  return py::enter_status([&] {
    static const char* names[] = {"thread_master", "store", nullptr};
    PyObject* master_arg = Py_None;
    PyObject* store_arg = nullptr;
    if (PyArg_ParseTupleAndKeywords(args, keywords, "|OO:VuGlobal", const_cast<char**>(names),
                                    &master_arg, &store_arg) == 0) {
      throw py::PythonError();
    }
    Global& global = global_of(self);
    if (global.link != nullptr) {
      py::raise(PyExc_RuntimeError, "VuGlobal.__init__() was called already");
    }
    const py::Owned store = store_of(py::Borrowed(store_arg));
    py::replace(global.thread_master, master_of(py::Borrowed(master_arg)));
    global.link = std::make_unique<Link>(global, store).release();
  });
}

int traverse(PyObject* self, visitproc visit, void* arg) {
  Py_VISIT(global_of(self).thread_master);
  if (global_of(self).link == nullptr) return 0;
  for (const py::Owned& app : global_of(self).link->apps()) Py_VISIT(app.get());
  return 0;
}

// The master stays: it outlives the handle, and breaks its own cycles.
int clear(PyObject* self) {
  if (global_of(self).link != nullptr) global_of(self).link->drop_apps();
  return 0;
}

void finalise(PyObject* self) {
  Link* const link = global_of(self).link;
  if (link == nullptr) return;
  py::SavedError error;
  if (Link::is_at_exit()) {
    link->close_silently();
  } else {
    link->close();
  }
  error.restore();
}

void deallocate(PyObject* self) {
  if (PyObject_CallFinalizerFromDealloc(self) < 0) return;  // somebody keeps it after all
  PyObject_GC_UnTrack(self);
  Global& global = global_of(self);
  if (global.weak_references != nullptr) PyObject_ClearWeakRefs(self);
  delete global.link;
  Py_CLEAR(global.thread_master);
  Py_TYPE(self)->tp_free(self);
}

// ---- Methods ------------------------------------------------------------------------

PyObject* regist_app(PyObject* self, PyObject* app) {
  return py::enter([&] {
    Link& link = link_of(self);
    if (app == Py_None) py::raise(PyExc_TypeError, "app must not be None");
    if (link.is_closed()) py::raise(PyExc_RuntimeError, "this VuGlobal is closed");
    link.add_app(py::Borrowed(app));
    return none();
  });
}

PyObject* close(PyObject* self, PyObject*) {
  return py::enter([&] {
    link_of(self).close();
    return none();
  });
}

PyObject* enter_context(PyObject* self, PyObject*) {
  return py::enter([&] {
    if (link_of(self).is_closed()) py::raise(PyExc_RuntimeError, "this VuGlobal is closed");
    return py::Owned::share(py::Borrowed(self));
  });
}

PyObject* leave_context(PyObject* self, PyObject*) { return close(self, nullptr); }

// The method of the same name of the master, which may be one of a subclass.
py::Owned master_method(PyObject* self, const char* name) {
  link_of(self);
  return py::checked(PyObject_GetAttrString(global_of(self).thread_master, name));
}

PyObject* run(PyObject* self, PyObject*) {
  return py::enter([&] {
    const py::Owned method = master_method(self, "run");
    return py::checked(PyObject_CallObject(method.get(), nullptr));
  });
}

PyObject* run_once(PyObject* self, PyObject* args, PyObject* keywords) {
  return py::enter([&] {
    static PyObject* const name = py::checked(PyUnicode_InternFromString("run_once")).release();
    link_of(self);
    const py::Owned method =
        py::checked(PyObject_GetAttr(global_of(self).thread_master, name));  // often called
    return py::checked(PyObject_Call(method.get(), args, keywords));
  });
}

PyObject* stop(PyObject* self, PyObject*) {
  return py::enter([&] {
    const py::Owned method = master_method(self, "stop");
    return py::checked(PyObject_CallObject(method.get(), nullptr));
  });
}

PyObject* fileno(PyObject* self, PyObject*) {
  return py::enter([&] {
    const py::Owned method = master_method(self, "fileno");
    return py::checked(PyObject_CallObject(method.get(), nullptr));
  });
}

PyObject* advance_clock(PyObject* self, PyObject* argument) {
  return py::enter([&] {
    constexpr double kMicrosecondsPerSecond = 1e6;
    constexpr double kLongest = 1e11;  // seconds, some 3000 years
    Link& link = link_of(self);
    const double seconds = PyFloat_AsDouble(argument);
    if (seconds == -1.0 && PyErr_Occurred() != nullptr) throw py::PythonError();
    if (!(seconds >= 0 && seconds <= kLongest)) {
      py::raise(PyExc_ValueError, "seconds must be from 0 to 1e11, not %R", argument);
    }
    if (link.is_closed()) py::raise(PyExc_RuntimeError, "this VuGlobal is closed");
    vu_platform_advance_clock(global_of(self).handle,
                              std::llround(seconds * kMicrosecondsPerSecond));
    link.wake();
    return none();
  });
}

PyObject* reduce(PyObject* self, PyObject*) {
  return py::enter([&] {
    const Link& link = link_of(self);
    const py::Owned module = py::checked(PyImport_ImportModule("vu_global"));
    const py::Owned function = py::checked(PyObject_GetAttrString(module.get(), "_reopen"));
    return py::checked(Py_BuildValue("(O(OO))", function.get(), Py_TYPE(self), link.store().get()));
  });
}

// What a number of vu_platform_stats is called, in the order of the dict.
struct Statistic {
  const char* name;
  std::uint64_t vu_platform_stats::*number;
};

constexpr Statistic kStatistics[] = {{"commands", &vu_platform_stats::commands},
                                     {"refused", &vu_platform_stats::refused},
                                     {"replies", &vu_platform_stats::replies},
                                     {"errors", &vu_platform_stats::errors},
                                     {"events", &vu_platform_stats::events},
                                     {"missed", &vu_platform_stats::missed},
                                     {"reconnects", &vu_platform_stats::reconnects},
                                     {"waiting", &vu_platform_stats::waiting},
                                     {"pending", &vu_platform_stats::pending},
                                     {"unsent_bytes", &vu_platform_stats::unsent_bytes}};

PyObject* stats(PyObject* self, PyObject*) {
  return py::enter([&] {
    link_of(self);
    vu_platform_stats found;
    vu_platform_stats_of(global_of(self).handle, &found);
    py::Owned dict = py::checked(PyDict_New());
    for (const Statistic& statistic : kStatistics) {
      const py::Owned number = py::checked(PyLong_FromUnsignedLongLong(found.*statistic.number));
      py::checked(PyDict_SetItemString(dict.get(), statistic.name, number.get()));
    }
    return dict;
  });
}

// ---- Attributes -----------------------------------------------------------------------

PyObject* get_apps(PyObject* self, void*) {
  return py::enter([&] {
    const std::vector<py::Owned>& apps = link_of(self).apps();
    const py::Owned list = py::checked(PyList_New(0));
    for (std::size_t i = 0; i < apps.size(); ++i) {
      py::checked(PyList_Append(list.get(), apps[i].get()));
    }
    return py::checked(PyList_AsTuple(list.get()));
  });
}

PyObject* get_thread_master(PyObject* self, void*) {
  return py::enter([&] {
    link_of(self);
    return py::Owned::share(py::Borrowed(global_of(self).thread_master));
  });
}

PyObject* get_store(PyObject* self, void*) {
  return py::enter([&] { return py::Owned::share(link_of(self).store()); });
}

PyObject* get_store_text(PyObject* self, void*) {
  return py::enter([&] { return py::Owned::share(link_of(self).store_text()); });
}

PyObject* get_closed(PyObject* self, void*) {
  return py::enter([&] { return py::checked(PyBool_FromLong(link_of(self).is_closed())); });
}

PyObject* represent(PyObject* self) {
  return py::enter([&] {
    const char* const name = Py_TYPE(self)->tp_name;
    const Link* const link = global_of(self).link;
    if (link == nullptr) return py::checked(PyUnicode_FromFormat("<%s, not initialised>", name));
    return py::checked(PyUnicode_FromFormat("<%s of store %R, %s>", name, link->store_text().get(),
                                            link->is_closed() ? "closed" : "open"));
  });
}

// ---- The type ---------------------------------------------------------------------------

PyMethodDef methods[] = {
    {"regist_app", regist_app, METH_O,
     "regist_app(app)\n--\n\n"
     "Keep an application alive until close(); VuMom(glb) registers itself. The same\n"
     "application counts once."},
    {"close", close, METH_NOARGS,
     "close()\n--\n\n"
     "Close the store handle: every pending command is completed, with an error reply, and\n"
     "every subscription gets its end; then the applications are dropped. Later commands are\n"
     "refused. From inside a reply method, the delivery under way does so before it ends.\n"
     "Closing again does nothing."},
    {"run", run, METH_NOARGS, "run()\n--\n\nRun the event loop: thread_master.run()."},
    {"run_once", py::method_pointer(run_once), METH_VARARGS | METH_KEYWORDS,
     "run_once(timeout=None)\n--\n\nRun one turn: thread_master.run_once(timeout)."},
    {"stop", stop, METH_NOARGS, "stop()\n--\n\nEnd the loop: thread_master.stop()."},
    {"fileno", fileno, METH_NOARGS,
     "fileno()\n--\n\nThe descriptor of the event loop: thread_master.fileno()."},
    {"stats", stats, METH_NOARGS,
     "stats()\n--\n\n"
     "What the store handle has done since it was opened, a dict of ints.\n\n"
     "Of this VuGlobal: 'commands' accepted, 'refused' (an exception was raised), 'replies'\n"
     "delivered and how many of them were 'errors', 'events' delivered, 'missed' (events that\n"
     "say that others may be missing), and 'waiting', replies and events not delivered yet.\n"
     "Of the store, for all that share its connections, and 0 for an embedded one:\n"
     "'reconnects', and 'pending' commands without an answer and 'unsent_bytes' at this\n"
     "moment. After close() the counters stay as they were."},
    {"_advance_clock", advance_clock, METH_O,
     "_advance_clock(seconds)\n--\n\n"
     "For tests: stop the store's clock at the first call and move it on by so many seconds."},
    {"__enter__", enter_context, METH_NOARGS, "__enter__()\n--\n\nThe object itself."},
    {"__exit__", leave_context, METH_VARARGS, "__exit__(*exc_info)\n--\n\nclose()."},
    {"__reduce__", reduce, METH_NOARGS,
     "__reduce__()\n--\n\n"
     "Pickle by reference: unpickling gives an open VuGlobal of the unpickling process with\n"
     "the same class and store, the oldest one, or opens a new one."},
    {nullptr, nullptr, 0, nullptr}};

PyGetSetDef attributes[] = {
    py::attribute("apps", get_apps, nullptr, "The registered applications, a tuple."),
    py::attribute("thread_master", get_thread_master, nullptr, "The event loop."),
    py::attribute("store", get_store, nullptr, "The store that was opened, as it was named."),
    py::attribute("store_text", get_store_text, nullptr,
                  "The store without its password, to be shown to people."),
    py::attribute("closed", get_closed, nullptr, "Whether close() was called."),
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

}  // namespace

void prepare_global_type() {
  global_type.tp_doc =
      "VuGlobal(thread_master=None, store='embedded:')\n--\n\n"
      "The object that an application makes first: it opens the store, delivers the store's\n"
      "replies in the event loop of thread_master (None: a new VuThreadMaster), and keeps the\n"
      "registered applications.\n\n"
      "store is 'embedded:' or 'embedded:NAME', a store inside the process that all handles\n"
      "of the same name share, or the URL of one on a server, such as\n"
      "'redis+unix:///run/redis.sock', which connects by itself; a store that cannot be opened\n"
      "raises ValueError. Use close() or a with statement when done; at interpreter exit\n"
      "everything open is closed.";
  global_type.tp_flags =
      Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE | Py_TPFLAGS_HAVE_GC | VU_HAVE_FINALIZE;
  global_type.tp_new = PyType_GenericNew;
  global_type.tp_init = initialise;
  global_type.tp_finalize = finalise;
  global_type.tp_dealloc = deallocate;
  global_type.tp_traverse = traverse;
  global_type.tp_clear = clear;
  global_type.tp_weaklistoffset = offsetof(Global, weak_references);
  global_type.tp_repr = represent;
  global_type.tp_methods = methods;
  global_type.tp_getset = attributes;
  py::checked(PyType_Ready(&global_type));
}

const char* const kReopenDoc =
    "_reopen(cls, store)\n--\n\n"
    "The oldest open VuGlobal of exactly that class and store, or else cls(store=store).";

PyObject* reopen(PyObject*, PyObject* args) {
  return py::enter([&] {
    PyObject* type = nullptr;
    PyObject* store = nullptr;
    if (PyArg_ParseTuple(args, "O!U:_reopen", &PyType_Type, &type, &store) == 0) {
      throw py::PythonError();
    }
    if (PyType_IsSubtype(reinterpret_cast<PyTypeObject*>(type), &global_type) == 0) {
      py::raise(PyExc_TypeError, "cls must be VuGlobal or a subclass, not %.200s",
                reinterpret_cast<PyTypeObject*>(type)->tp_name);
    }
    const py::Borrowed found = Link::find_open(py::Borrowed(type), py::Borrowed(store));
    if (!found.is_null()) return py::Owned::share(found);
    const py::Owned none_given = py::checked(PyTuple_New(0));
    const py::Owned keywords = py::checked(Py_BuildValue("{sO}", "store", store));
    return py::checked(PyObject_Call(type, none_given.get(), keywords.get()));
  });
}

}  // namespace vu_global
