// What stands between a VuGlobal, its store handle and its event loop.
#pragma once

#include <cstdint>
#include <vector>

#include "python/error.h"
#include "vu_mom_types.h"
#include "vu_platform.h"
#include "vu_thread_api.h"

namespace vu_global {

class Link;

// The instance of vu_global.VuGlobal. Null where __init__ was not called.
struct Global {
  PyObject_HEAD vu_mom_handle* handle;  // owned; stays, closed, as long as the object
  PyObject* thread_master;              // owned; outlives the handle, which uses its uv loop
  Link* link;                           // owned
  PyObject* weak_references;
};
static_assert(sizeof(Global) == sizeof(VuGlobalObject), "the size that others are compiled with");
static_assert(offsetof(Global, handle) == offsetof(VuGlobalObject, handle),
              "the field that the binding reads");

// The C interface of vu_thread, as imported by this module.
extern const vu_thread_api* thread_api;

// The life of an opened handle: a source of the loop from the beginning, then closed, and
// freed with the VuGlobal. Requires the interpreter lock for every function.
class Link {
 public:
  // Opens `store`, a str, into self.handle. self.thread_master is there already. Raises
  // ValueError with the library's reason.
  Link(Global& self, py::Borrowed store);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // Refuses further commands, completes everything that is pending (the callbacks run), and
  // lets go of the loop and the applications. From inside a delivery, the delivery under way
  // does that before it ends. Does nothing when called again, and touches nothing that
  // belongs to the parent process.
  void close();
  // The same without calling anybody, for an interpreter that is going away.
  void close_silently();

  bool is_closed() const { return is_closed_; }
  PyObject* self() const { return reinterpret_cast<PyObject*>(&self_); }
  py::Borrowed store() const { return store_; }
  py::Borrowed store_text() const { return store_text_; }  // for people, without a password

  void add_app(py::Borrowed app);  // keeps it, once
  const std::vector<py::Owned>& apps() const { return apps_; }
  void drop_apps();

  // To be called when something may be due that was not before.
  void wake();

  // The oldest open VuGlobal of exactly that class and store; null: none.
  static py::Borrowed find_open(py::Borrowed type, py::Borrowed store);
  // Closes all that are open. From then on no reply is delivered by finalisers.
  static void close_all_at_exit();
  static bool is_at_exit();

 private:
  int deliver();
  void finish();
  void let_go();

  Global& self_;
  py::Owned store_;
  py::Owned store_text_;
  std::vector<py::Owned> apps_;
  vu_thread_source* source_ = nullptr;  // null: not in the loop (any more)
  bool is_delivering_ = false;
  bool is_closed_ = false;
  bool is_abandoned_ = false;  // to the parent process: the handle is never touched again
  bool is_listed_ = false;
};

}  // namespace vu_global
