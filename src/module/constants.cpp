#include "module/constants.h"

namespace vu_mom {

Constant* Name::list_ = nullptr;
Constant* MessageTuple::list_ = nullptr;
Constant* KeywordTuple::list_ = nullptr;

void Constant::create_all(Constant* list, PyObject* (*make)(const char* text)) {
  for (Constant* constant = list; constant != nullptr; constant = constant->next_) {
    // Those that an earlier, failed import made are still good.
    if (constant->object_ == nullptr) {
      constant->object_ = py::checked(make(constant->text_)).release();
    }
  }
}

void Name::create_all() { Constant::create_all(list_, PyUnicode_InternFromString); }

void MessageTuple::create_all() {
  Constant::create_all(list_, [](const char* text) { return Py_BuildValue("(s)", text); });
}

void KeywordTuple::create_all() {
  Constant::create_all(list_, [](const char* text) {
    const py::Owned keyword = py::checked(PyUnicode_InternFromString(text));
    return PyTuple_Pack(1, keyword.get());
  });
}

void raise(PyTypeObject& type, const MessageTuple& message) {
  PyObject* const type_object = reinterpret_cast<PyObject*>(&type);
  const py::Owned error = py::checked(PyObject_Call(type_object, message.get().get(), nullptr));
  PyErr_SetObject(type_object, error.get());
  throw py::PythonError();
}

}  // namespace vu_mom
