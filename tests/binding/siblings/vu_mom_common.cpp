// Stand-in for vu_mom_common: types that remember how they were called, in `arguments`, as the
// pair (positional tuple, keyword dict). A type whose name is a key of the module's dict
// `failures` raises the exception found there instead.
#include <cstring>
#include <iterator>

#include "records.h"

namespace {

PyObject* failures = nullptr;

void fail_where_asked(PyTypeObject* type) {
  PyObject* failure = PyDict_GetItemString(failures, strrchr(type->tp_name, '.') + 1);
  if (failure == nullptr) return;
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(failure)), failure);
  throw py::PythonError();
}

// The same for all three structs, apart from where their free fields begin.
template <typename Object>
struct Recorded {
  static void** fields(PyObject* self) { return reinterpret_cast<Object*>(self)->fields; }

  static PyObject* create(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
    return py::enter([&] {
      fail_where_asked(type);
      py::Owned self = py::checked(type->tp_alloc(type, 0));
      fields(self.get())[0] = py::Owned::share(py::Borrowed(arguments)).release();
      fields(self.get())[1] =
          (keywords == nullptr ? py::checked(PyDict_New()) : py::checked(PyDict_Copy(keywords)))
              .release();
      return self;
    });
  }

  static void destroy(PyObject* self) {
    Py_XDECREF(static_cast<PyObject*>(fields(self)[0]));
    Py_XDECREF(static_cast<PyObject*>(fields(self)[1]));
    Py_TYPE(self)->tp_free(self);
  }

  static PyObject* get_arguments(PyObject* self, void*) {
    return Py_BuildValue("(OO)", fields(self)[0], fields(self)[1]);
  }
};

PyGetSetDef value_attributes[] = {
    py::attribute("arguments", Recorded<ValueResultObject>::get_arguments, nullptr, "As called."),
    {}};

PyGetSetDef messages_attributes[] = {
    py::attribute("arguments", Recorded<MessagesResultObject>::get_arguments, nullptr,
                  "As called."),
    {}};

// The result slot starts as NotImplemented, which tells it from a slot that was set to None.
PyObject* create_message(PyTypeObject* type, PyObject* arguments, PyObject* keywords) {
  PyObject* self = Recorded<PubSubMsgObject>::create(type, arguments, keywords);
  if (self == nullptr) return nullptr;
  py::replace(reinterpret_cast<PubSubMsgObject*>(self)->result,
              py::Owned::share(py::Borrowed(Py_NotImplemented)));
  return self;
}

void destroy_message(PyObject* self) {
  py::replace(reinterpret_cast<PubSubMsgObject*>(self)->result, py::Owned());
  Recorded<PubSubMsgObject>::destroy(self);
}

PyObject* get_result(PyObject* self, void*) {
  return py::Owned::share(py::Borrowed(reinterpret_cast<PubSubMsgObject*>(self)->result)).release();
}

PyGetSetDef message_attributes[] = {
    py::attribute("arguments", Recorded<PubSubMsgObject>::get_arguments, nullptr, "As called."),
    py::attribute("result", get_result, nullptr, "The result slot."),
    {}};

PyTypeObject value_type(const char* name) {
  PyTypeObject type = py::static_type(name, sizeof(ValueResultObject));
  type.tp_new = Recorded<ValueResultObject>::create;
  type.tp_dealloc = Recorded<ValueResultObject>::destroy;
  type.tp_getset = value_attributes;
  return type;
}

PyTypeObject messages_type(const char* name) {
  PyTypeObject type = py::static_type(name, sizeof(MessagesResultObject));
  type.tp_new = Recorded<MessagesResultObject>::create;
  type.tp_dealloc = Recorded<MessagesResultObject>::destroy;
  type.tp_getset = messages_attributes;
  return type;
}

PyTypeObject message_type() {
  PyTypeObject type = py::static_type("vu_mom_common.PubSubMsg", sizeof(PubSubMsgObject));
  type.tp_new = create_message;
  type.tp_dealloc = destroy_message;
  type.tp_getset = message_attributes;
  return type;
}

PyTypeObject all_types[] = {
    message_type(),
    messages_type("vu_mom_common.HashResult"),
    messages_type("vu_mom_common.SetResult"),
    messages_type("vu_mom_common.ListResult"),
    messages_type("vu_mom_common.SortedsetResult"),
    value_type("vu_mom_common.GetResult"),
    value_type("vu_mom_common.IncrResult"),
    value_type("vu_mom_common.SetnxResult"),
    messages_type("vu_mom_common.SmembersResult"),
    value_type("vu_mom_common.LlenResult"),
    messages_type("vu_mom_common.LrangeResult"),
    value_type("vu_mom_common.LinsertResult"),
    value_type("vu_mom_common.LminsertResult"),
    value_type("vu_mom_common.LmremResult"),
    value_type("vu_mom_common.LsetResult"),
    value_type("vu_mom_common.SaveResult"),
    value_type("vu_mom_common.ZcardResult"),
    value_type("vu_mom_common.ZrankResult"),
    value_type("vu_mom_common.ZscoreResult"),
    value_type("vu_mom_common.ZcountResult"),
    messages_type("vu_mom_common.ZrangeResult"),
    messages_type("vu_mom_common.ZrangebyscoreResult"),
    value_type("vu_mom_common.ScardResult"),
    value_type("vu_mom_common.SismemberResult"),
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "vu_mom_common",
                          nullptr,
                          -1,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace

VU_MODULE_INIT PyInit_vu_mom_common() {
  return py::enter([] {
    PyTypeObject* types[std::size(all_types)];
    for (std::size_t i = 0; i < std::size(all_types); ++i) {
      all_types[i].tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
      types[i] = &all_types[i];
    }
    py::Owned module = siblings::module_of_types(definition, types, std::size(types));
    failures = py::checked(PyDict_New()).release();
    py::checked(PyObject_SetAttrString(module.get(), "failures", failures));
    return module;
  });
}
