#include "client/reply.h"

#include "client/numbers.h"
#include "module/exceptions.h"
#include "module/imported_types.h"
#include "module/traceback.h"
#include "vu_mom_types.h"

namespace vu_mom {
namespace {

const MessageTuple msg_is_null("msg is NULL");
const MessageTuple privdata_is_null("privdata is NULL");
const KeywordTuple cls_keyword("cls");

py::Owned call_with(py::Borrowed callable, py::Borrowed argument) {
  PyObject* vector[] = {nullptr, argument.get()};
  return py::checked(py::call_vector(callable.get(), vector + 1, 1));
}

py::Owned make_message(const vu_mom_reply* reply) {
  PyObject* const type = reinterpret_cast<PyObject*>(types.PubSubMsg);
  py::Owned message = call_with(py::Borrowed(type), address_to_int(reply));
  if (!PyObject_TypeCheck(message.get(), types.PubSubMsg)) {
    py::raise(PyExc_TypeError, "Cannot convert %.200s to %.200s", Py_TYPE(message.get())->tp_name,
              types.PubSubMsg->tp_name);
  }
  return message;
}

}  // namespace

Delivery::Delivery(const vu_mom_reply* reply, void* privdata) : reply_(reply) {
  if (reply == nullptr) raise(MomCApiInnerError, msg_is_null);
  if (privdata == nullptr) raise(MomCApiInnerError, privdata_is_null);
  context_ = Context(py::Borrowed(static_cast<PyObject*>(privdata)));
  p_ = context_.item(Key::p);
  cb_ = context_.item(Key::cb);
  message_ = make_message(reply);
  set(py::Owned::share(py::Borrowed(Py_None)));
}

void Delivery::set_message() {
  if (reply_->data == nullptr) return;
  const py::Owned message_class = context_.item(Key::obj);
  set(call_with(message_class, data()));
}

void Delivery::set_result(py::Borrowed any_class) {
  if (reply_->data == nullptr) return;
  set(call_with(any_class, data()));
}

void Delivery::set_result_with_class(py::Borrowed result_class) {
  if (reply_->data == nullptr) return;
  const py::Owned address = data();
  const py::Owned message_class = context_.item(Key::obj);
  set(py::checked(py::call_with_keyword(result_class.get(), address.get(), cls_keyword.get().get(),
                                        message_class.get())));
}

void Delivery::set_result_with_class(PyTypeObject* result_class) {
  set_result_with_class(py::Borrowed(reinterpret_cast<PyObject*>(result_class)));
}

void Delivery::call() {
  PyObject* vector[] = {nullptr, message_.get(), p_.get()};
  py::checked(py::call_vector(cb_.get(), vector + 1, 2));
}

void Delivery::set(py::Owned value) {
  py::replace(reinterpret_cast<PubSubMsgObject*>(message_.get())->result, std::move(value));
}

py::Owned Delivery::data() const { return address_to_int(reply_->data); }

namespace {

// The result takes its shape from the classes that the command put into the context.
void set_result_by_context(Delivery& delivery, const vu_mom_reply* reply) {
  if (reply->data == nullptr) return;
  const py::Owned message_class = delivery.context().find(Key::obj);
  const py::Owned result_class = delivery.context().find(Key::resobj);
  if (!message_class.is_null() && !result_class.is_null()) {
    delivery.set_result_with_class(result_class);
  } else if (!message_class.is_null()) {
    delivery.set_result(message_class);
  } else if (!result_class.is_null()) {
    delivery.set_result(result_class);
  }
}

// Requests on a level get several replies; the last one carries the context's end mark.
bool is_last(const Delivery& delivery, const vu_mom_reply* reply) {
  const py::Owned flag = delivery.context().find(Key::flag);
  if (flag.is_null()) return true;
  const py::Owned end_mark = py::checked(PyLong_FromUnsignedLong(reply->end_mark));
  const py::Owned equal = py::checked(PyObject_RichCompare(flag.get(), end_mark.get(), Py_EQ));
  return py::checked(PyObject_IsTrue(equal.get())) != 0;
}

}  // namespace

void wrap_cb(void*, const vu_mom_reply* reply, void* privdata) {
  enter_unraisable("vu_mom.wrap_cb", [&] {
    Delivery delivery(reply, privdata);
    set_result_by_context(delivery, reply);
    delivery.call();
    if (is_last(delivery, reply)) delivery.release();
  });
}

}  // namespace vu_mom
