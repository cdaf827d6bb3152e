// Stand-in for vu_thread: two types of the right sizes.
#include "records.h"

namespace {

PyTypeObject thread = py::static_type("vu_thread.Thread", sizeof(ThreadObject));
PyTypeObject thread_master =
    py::static_type("vu_thread.VuThreadMaster", sizeof(VuThreadMasterObject));

PyModuleDef definition = {
    PyModuleDef_HEAD_INIT, "vu_thread", nullptr, -1, nullptr, nullptr, nullptr, nullptr, nullptr};

}  // namespace

VU_MODULE_INIT PyInit_vu_thread() {
  return py::enter([] {
    PyTypeObject* const types[] = {&thread, &thread_master};
    for (PyTypeObject* type : types) type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    return siblings::module_of_types(definition, types, 2);
  });
}
