#include "pickle.h"

#include "file.h"
#include "message_bytes.h"
#include "message_class.h"

namespace vu {

PyObject* reduce_message(PyObject* self, PyObject*) {
  return py::enter([&] {
    const auto& message = *static_cast<const MessageObject*>(self);
    PyTypeObject* const type = Py_TYPE(self);
    const py::Owned bytes = serialized(message, true);
    if (is_made_here(type)) {
      const py::Owned module = py::checked(PyImport_ImportModule("vu_message"));
      const py::Owned make = py::checked(PyObject_GetAttrString(module.get(), "_unpickle"));
      return py::checked(Py_BuildValue("O(sO)", make.get(), message.info->name(), bytes.get()));
    }
    const py::Owned make =
        py::checked(PyObject_GetAttrString(reinterpret_cast<PyObject*>(type), "FromString"));
    return py::checked(Py_BuildValue("O(O)", make.get(), bytes.get()));
  });
}

PyObject* unpickle_by_name(PyObject* /*module*/, PyObject* arguments) {
  return py::enter([&] {
    PyObject* name = nullptr;
    PyObject* data = nullptr;
    if (!PyArg_ParseTuple(arguments, "OO:_unpickle", &name, &data)) throw py::PythonError();
    MessageInfo& info = known_type("_unpickle()", py::Borrowed(name));
    return new_message(class_of(info), parsed(info, Bytes(data).view()));
  });
}

}  // namespace vu
