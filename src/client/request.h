// The context of a request that expects replies: what its callback needs to deliver them.
#pragma once

#include <cstdint>

#include "client/client.h"
#include "client/reply_name.h"
#include "module/constants.h"
#include "python/error.h"

namespace vu_mom {

// The keys of a context.
namespace key {
extern const Name p;       // the command's privdata, handed back with each reply
extern const Name cb;      // what is called with the replies
extern const Name obj;     // the message class of the request
extern const Name resobj;  // the result class that replies are built as
extern const Name flag;    // the end mark of the last reply
}  // namespace key

// A dict that is filled key by key. The command holds one reference while it runs. The
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
  void set(const Name& name, py::Borrowed value);

  py::Owned context_;
};

}  // namespace vu_mom
