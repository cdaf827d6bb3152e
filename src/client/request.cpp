#include "client/request.h"

namespace vu_mom {

namespace {

const Name class_attribute("__class__");

py::Owned reply_method(VuMom& client, const ReplyPrefix& prefix, py::Borrowed obj) {
  const Fetch fetch(client);
  const py::Owned name = prefix.name_for(obj);
  return fetch(name);
}

}  // namespace

Request::Request(VuMom& client, const ReplyPrefix& prefix, py::Borrowed obj, py::Borrowed privdata)
    : Request(reply_method(client, prefix, obj), privdata) {}

Request::Request(py::Borrowed callable, py::Borrowed privdata)
    : context_(py::checked(PyDict_New())) {
  set(Key::p, privdata);
  set(Key::cb, callable);
}

Request& Request::message_class_of(py::Borrowed obj) {
  set(Key::obj, py::checked(py::get_class(obj.get(), class_attribute.get().get())));
  return *this;
}

Request& Request::result_class(PyTypeObject* type) {
  set(Key::resobj, py::Borrowed(reinterpret_cast<PyObject*>(type)));
  return *this;
}

Request& Request::end_mark(std::uint32_t mark) {
  set(Key::flag, py::checked(PyLong_FromUnsignedLong(mark)));
  return *this;
}

void Request::hand_over() {
  [[maybe_unused]] PyObject* const kept_by_the_store = py::Owned::share(context_).release();
}

void Request::set(Key key, py::Borrowed value) {
  py::checked(PyDict_SetItem(context_.get(), name_of(key).get().get(), value.get()));
}

}  // namespace vu_mom
