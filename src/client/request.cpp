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
const Name package_name("package_name");
const Name short_name("short_name");
const Name underscore("_");
const Name class_attribute("__class__");

py::Owned attribute(py::Borrowed object, const Name& name) {
  return py::checked(PyObject_GetAttr(object.get(), name.get().get()));
}

py::Owned add(py::Borrowed left, py::Borrowed right) {
  return py::checked(PyNumber_Add(left.get(), right.get()));
}

// Strings are joined by `+` one after the other: a name that is none fails by its rules.
py::Owned reply_method(VuMom& client, const Name& prefix, py::Borrowed obj) {
  const py::Owned fetch = attribute(py::Borrowed(reinterpret_cast<PyObject*>(&client)), getfunc);
  const py::Owned package = attribute(obj, package_name);
  const py::Owned with_package = add(prefix.get(), package);
  const py::Owned with_underscore = add(with_package, underscore.get());
  const py::Owned message = attribute(obj, short_name);
  const py::Owned name = add(with_underscore, message);
  PyObject* vector[] = {nullptr, name.get()};
  return py::checked(py::call_vector(fetch.get(), vector + 1, 1));
}

}  // namespace

Request::Request(VuMom& client, const Name& prefix, py::Borrowed obj, py::Borrowed privdata)
    : Request(reply_method(client, prefix, obj), privdata) {}

Request::Request(py::Borrowed callable, py::Borrowed privdata)
    : context_(py::checked(PyDict_New())) {
  set(key::p, privdata);
  set(key::cb, callable);
}

Request& Request::message_class_of(py::Borrowed obj) {
  set(key::obj, attribute(obj, class_attribute));
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
