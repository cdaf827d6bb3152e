// From a reply record to a call of the application's method: what the callbacks share,
// and the callback of ordinary commands.
//
// Callbacks run on a thread that holds the interpreter lock. No error leaves them: it is
// reported as unraisable under the callback's name, and the store's reference to the
// context is then kept, since nothing tells whether further replies use it.
#pragma once

#include "client/context.h"
#include "python/error.h"
#include "vu_mom_impl.h"

namespace vu_mom {

// The callback of commands with one reply, or several up to an end mark.
extern "C" void wrap_cb(void* unused, const vu_mom_reply* reply, void* privdata);

// One reply on its way to the application: the context's entries and the PubSubMsg.
class Delivery {
 public:
  // Refuses a null record and a null context, reads "p" and "cb", builds the message with
  // an empty result.
  Delivery(const vu_mom_reply* reply, void* privdata);

  const Context& context() const { return context_; }

  // Sets the result from the record's data; each leaves None where the reply carries none.
  void set_message();                                     // an object of the message class
  void set_result(py::Borrowed any_class);                // any_class(data)
  void set_result_with_class(py::Borrowed result_class);  // result_class(data, cls=message class)
  void set_result_with_class(PyTypeObject* result_class);

  void call();  // cb(message, p)
  void release() { context_.release(); }

 private:
  void set(py::Owned value);
  py::Owned data() const;

  const vu_mom_reply* reply_;
  Context context_;
  py::Owned p_;
  py::Owned cb_;
  py::Owned message_;
};

}  // namespace vu_mom
