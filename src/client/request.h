// Making the context of a request that expects replies.
#pragma once

#include <cstdint>

#include "client/client.h"
#include "client/context.h"
#include "client/reply_name.h"
#include "python/error.h"

namespace vu_mom {

// A context that is filled key by key. The command holds one reference while it runs. The
// store holds another from hand_over on; the callback gives it back with the last reply.
// If the command fails after hand_over that reference stays, and the context with it: the
// store might have kept the pointer. This is on purpose.
class Request {
 public:
  // Replies go to the client's method `prefix` + obj.package_name + "_" + obj.short_name,
  // looked up here.
  Request(VuMom& client, const ReplyPrefix& prefix, py::Borrowed obj, py::Borrowed privdata);

  // Replies go to `callable`.
  Request(py::Borrowed callable, py::Borrowed privdata);

  Request& message_class_of(py::Borrowed obj);
  Request& result_class(PyTypeObject* type);
  Request& end_mark(std::uint32_t mark);

  // Adds the store's reference. Once, when the context is complete.
  void hand_over();

  // What the store is given.
  void* context() const { return context_.get(); }

 private:
  void set(Key key, py::Borrowed value);

  py::Owned context_;
};

}  // namespace vu_mom
