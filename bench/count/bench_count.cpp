// Where callgrind begins and ends to count; nothing happens where it does not run.
#include <valgrind/callgrind.h>

#include "python/error.h"

namespace {

PyObject* start(PyObject*, PyObject*) {
  CALLGRIND_ZERO_STATS;
  Py_RETURN_NONE;
}

PyObject* stop(PyObject*, PyObject* label) {
  return py::enter([&] {
    const py::Owned bytes = py::checked(PyUnicode_AsUTF8String(label));
    CALLGRIND_DUMP_STATS_AT(PyBytes_AS_STRING(bytes.get()));
    return py::Owned::share(py::Borrowed(Py_None));
  });
}

PyMethodDef functions[] = {
    {"start", start, METH_NOARGS, "Count from here on."},
    {"stop", stop, METH_O, "Write down what was counted since start, under a label."},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {};

}  // namespace

VU_MODULE_INIT PyInit_bench_count() {
  definition.m_base = PyModuleDef_HEAD_INIT;
  definition.m_name = "bench_count";
  definition.m_size = -1;
  definition.m_methods = functions;
  return PyModule_Create(&definition);
}
