#include "client/request.h"

namespace vu_mom {

namespace key {
const Name p("p");
const Name cb("cb");
const Name obj("obj");
const Name resobj("resobj");
const Name flag("flag");
}  // namespace key

namespace {

const Name getfunc("__getfunc");
const Name class_attribute("__class__");

py::Owned reply_method(VuMom& client, const ReplyPrefix& prefix, py::Borrowed obj) {
  const py::Owned fetch =
      py::checked(PyObject_GetAttr(reinterpret_cast<PyObject*>(&client), getfunc.get().get()));
  const py::Owned name = prefix.name_for(obj);
  PyObject* vector[] = {nullptr, name.get()};
  return py::checked(py::call_vector(fetch.get(), vector + 1, 1));
}

}  // namespace

Request::Request(VuMom& client, const ReplyPrefix& prefix, py::Borrowed obj, py::Borrowed privdata)
    : Request(reply_method(client, prefix, obj), privdata) {}

Request::Request(py::Borrowed callable, py::Borrowed privdata)
    : context_(py::checked(PyDict_New())) {
  set(key::p, privdata);
  set(key::cb, callable);
}

Request& Request::message_class_of(py::Borrowed obj) {
  set(key::obj, py::checked(PyObject_GetAttr(obj.get(), class_attribute.get().get())));
  return *this;
}

Request& Request::result_class(PyTypeObject* type) {
  set(key::resobj, py::Borrowed(reinterpret_cast<PyObject*>(type)));
  return *this;
}

Request& Request::end_mark(std::uint32_t mark) {
  set(key::flag, py::checked(PyLong_FromUnsignedLong(mark)));
  return *this;
}

void Request::hand_over() {
  [[maybe_unused]] PyObject* const kept_by_the_store = py::Owned::share(context_).release();
}

void Request::set(const Name& name, py::Borrowed value) {
  py::checked(PyDict_SetItem(context_.get(), name.get().get(), value.get()));
}

}  // namespace vu_mom
